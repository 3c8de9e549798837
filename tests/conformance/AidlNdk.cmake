# zel_aidl_ndk_library(<target> NAMESPACE <ns> ROOT <import root> FILES <a.aidl> ...)
#
# A static library of the NDK back end that the AIDL compiler (Debian's `aidl`) generates from
# FILES at build time, in the build tree, adapted by generate_ndk.cmake (which lists every
# change). Its headers are <ns>/<package path>/IFoo.h; its classes live in namespace ::<ns>.
find_program(ZEL_AIDL_COMPILER aidl)
set(ZEL_AIDL_NDK_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/generate_ndk.cmake)

function(zel_aidl_ndk_library target)
    cmake_parse_arguments(ARG "" "NAMESPACE;ROOT" "FILES" ${ARGN})
    set(out ${CMAKE_CURRENT_BINARY_DIR}/${target})
    set(sources)
    set(headers)
    set(inputs)
    foreach(f IN LISTS ARG_FILES)
        list(APPEND inputs ${ARG_ROOT}/${f})
        get_filename_component(dir ${f} DIRECTORY)
        get_filename_component(name ${f} NAME_WE)
        list(APPEND sources ${out}/src/${dir}/${name}.cpp)
        list(APPEND headers ${out}/include/${ARG_NAMESPACE}/${dir}/${name}.h)
    endforeach()
    # ':' separates the files on the command line (a ';' would split the argument).
    string(REPLACE ";" ":" files_arg "${ARG_FILES}")
    add_custom_command(
        OUTPUT ${sources} ${headers}
        COMMAND ${CMAKE_COMMAND} -DAIDL=${ZEL_AIDL_COMPILER} -DROOT=${ARG_ROOT}
                "-DFILES=${files_arg}" -DOUT=${out} -DNAMESPACE=${ARG_NAMESPACE}
                -P ${ZEL_AIDL_NDK_SCRIPT}
        DEPENDS ${inputs} ${ZEL_AIDL_NDK_SCRIPT} ${ZEL_AIDL_COMPILER}
        COMMENT "Generating the NDK back end of ${target} with ${ZEL_AIDL_COMPILER}"
        VERBATIM)
    add_library(${target} STATIC ${sources})
    target_include_directories(${target} PUBLIC ${out}/include)
    target_link_libraries(${target} PUBLIC binder_ndk)
    # The compiler's output is used as it comes; its warnings are not ours to fix.
    target_compile_options(${target} PRIVATE -w)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()
