# cmake -P script: install BUILD_DIR into WORK_DIR/prefix, check the layout, then build the
# example project EXAMPLE_DIR (copied out of the source tree) against the prefix with CMake and
# with pkg-config, and run what was built.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
set(libdir ${prefix}/${LIBDIR})

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
    endif()
    set(out "${out}" PARENT_SCOPE)
endfunction()

function(expect_output program expected)
    run(${program})
    if(NOT out MATCHES "${expected}")
        message(FATAL_ERROR "${program} printed '${out}', expected '${expected}'")
    endif()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# The layout: the host platform libraries only in the private folder, only namespaced targets
# in the package config, torqctl's version the package's.
foreach(lib libbinder_ndk.so libvendor.quarn.hardware.torq-V1-ndk.so)
    if(EXISTS ${libdir}/${lib} OR NOT EXISTS ${libdir}/quarn-zel-client/${lib})
        message(FATAL_ERROR "${lib} must be in ${libdir}/quarn-zel-client only")
    endif()
endforeach()
file(GLOB target_files ${libdir}/cmake/QuarnZelClient/QuarnZelClientTargets*.cmake)
foreach(f IN LISTS target_files ITEMS ${libdir}/cmake/QuarnZelClient/QuarnZelClientConfig.cmake)
    file(STRINGS ${f} lines REGEX "add_library\\(|_LIBRARIES")
    foreach(line IN LISTS lines)
        string(REGEX REPLACE "QuarnZelClient::[A-Za-z0-9_.-]+|Threads::Threads" "" rest "${line}")
        if(rest MATCHES "add_library\\([A-Za-z]|_LIBRARIES[A-Z_]* \"[^\"]*[A-Za-z]")
            message(FATAL_ERROR "${f} names a target outside QuarnZelClient::: ${line}")
        endif()
    endforeach()
endforeach()
expect_output("${prefix}/bin/torqctl;--version" "^torqctl ${VERSION}\n$")

# A copy, so that nothing of the source tree is at hand.
file(COPY ${EXAMPLE_DIR}/ DESTINATION ${WORK_DIR}/src)

# CMake: find_package(QuarnZelClient).
run(${CMAKE_COMMAND} -S ${WORK_DIR}/src -B ${WORK_DIR}/cmake -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake)
expect_output(${WORK_DIR}/cmake/readme_example "host test passed")
expect_output(${WORK_DIR}/cmake/client_test "client test passed")

# pkg-config: a plain compiler command line, no definition from any build system.
set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
run(${PKG_CONFIG} --modversion quarn-zel-client)
if(NOT out STREQUAL "${VERSION}\n")
    message(FATAL_ERROR "quarn-zel-client.pc says version '${out}', the package is ${VERSION}")
endif()
run(${PKG_CONFIG} --cflags --libs quarn-zel-torq-sim)
separate_arguments(flags UNIX_COMMAND "${out}")
file(MAKE_DIRECTORY ${WORK_DIR}/pkg-config)
foreach(program readme_example client_test)
    run(${CXX} -std=c++17 -Wall -Wextra -Werror ${WORK_DIR}/src/${program}.cpp
        -o ${WORK_DIR}/pkg-config/${program} ${flags})
endforeach()
expect_output(${WORK_DIR}/pkg-config/readme_example "host test passed")
expect_output(${WORK_DIR}/pkg-config/client_test "client test passed")
