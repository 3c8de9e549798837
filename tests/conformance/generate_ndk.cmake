# Runs the AIDL compiler's NDK back end on a set of .aidl files and adapts its output so that it
# can live beside hand-written stubs of the same interfaces in one binary. Run with cmake -P:
#
#   -DAIDL=<compiler> -DROOT=<import root> -DFILES=<a:b:...> (paths relative to ROOT)
#   -DOUT=<output dir> -DNAMESPACE=<top namespace replacing "aidl"> [-DVERSION=<n>]
#
# Output: OUT/include/<NAMESPACE>/<package path>/*.h and OUT/src/<package path>/*.cpp.
#
# The compiler's output is used as it comes except for four changes (1-4 below), each made
# beside the comment that names why. 1 works around a limit of Android 10's compiler; 2 lets the
# generated classes live beside the hand-written ones; 3 and 4 are differences between Android
# 10's output and the API-34 headers that a device has too. A shape the script does not know
# stops the build rather than slip through.

foreach(var AIDL ROOT FILES OUT NAMESPACE)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "generate_ndk.cmake: ${var} is not set")
    endif()
endforeach()
string(REPLACE ":" ";" FILES "${FILES}")
if(NOT DEFINED VERSION)
    set(VERSION 1)
endif()

set(copy_root ${OUT}/aidl-src)
set(raw_root ${OUT}/raw)
file(REMOVE_RECURSE ${copy_root} ${raw_root} ${OUT}/include ${OUT}/src)

# 1. A copy of the sources without @VintfStability: Android 10's compiler does not know the
#    annotation (later compilers only use it to mark the binders, a no-op on the host).
foreach(f IN LISTS FILES)
    file(READ ${ROOT}/${f} text)
    string(REGEX REPLACE "@VintfStability[ \t\r\n]*" "" text "${text}")
    get_filename_component(dir ${copy_root}/${f} DIRECTORY)
    file(MAKE_DIRECTORY ${dir})
    file(WRITE ${copy_root}/${f} "${text}")
endforeach()

foreach(f IN LISTS FILES)
    execute_process(
        COMMAND ${AIDL} --lang=ndk --structured --version=${VERSION} -I ${copy_root}
                -o ${raw_root}/src -h ${raw_root}/include ${copy_root}/${f}
        RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${AIDL} failed on ${f}:\n${output}")
    endif()
endforeach()

file(GLOB_RECURSE generated RELATIVE ${raw_root} ${raw_root}/*.h ${raw_root}/*.cpp)
foreach(rel IN LISTS generated)
    file(READ ${raw_root}/${rel} text)

    # 2. A namespace of its own: the top namespace `aidl` and the include folder `aidl/` become
    #    NAMESPACE, so the classes do not collide with hand-written stubs of the same interface.
    #    Descriptors are left alone: both sides must be the same interface on the wire.
    string(REPLACE "namespace aidl {" "namespace ${NAMESPACE} {" text "${text}")
    string(REPLACE "}  // namespace aidl\n" "}  // namespace ${NAMESPACE}\n" text "${text}")
    string(REPLACE "::aidl::" "::${NAMESPACE}::" text "${text}")
    string(REPLACE "#include <aidl/" "#include <${NAMESPACE}/" text "${text}")
    string(REPLACE "#include \"aidl/" "#include \"${NAMESPACE}/" text "${text}")

    # 3. `(new BpFoo(binder))->ref<IFoo>()` becomes `::ndk::SharedRefBase::make<BpFoo>(binder)`:
    #    from API 30 on, SharedRefBase hides operator new (only make() may allocate), so Android
    #    10's fromBinder does not compile against API-34 headers on a device either.
    string(REGEX REPLACE "\\(new (Bp[A-Za-z0-9_]+)\\(binder\\)\\)->ref<[A-Za-z0-9_:]+>\\(\\)"
                         "::ndk::SharedRefBase::make<\\1>(binder)" text "${text}")

    # 4. The int32 non-null marker before a parcelable moves out of the parcelable's own
    #    writeToParcel / readFromParcel to the call sites (::ndk::AParcel_writeParcelable /
    #    AParcel_readParcelable). Android 10's compiler wrote it inside; the API-34 headers write
    #    it in their helpers (for each element of a vector too), so Android 10's output with
    #    API-34 headers would write it twice inside vectors, on a device too. The bytes on the
    #    wire become what both compilers intend.
    string(REGEX REPLACE
           "\\(([A-Za-z0-9_]+)\\)\\.writeToParcel\\(([A-Za-z0-9_]+(\\.get\\(\\))?)\\)"
           "::ndk::AParcel_writeParcelable(\\2, \\1)" text "${text}")
    string(REGEX REPLACE
           "\\((&?[A-Za-z0-9_]+)\\)->readFromParcel\\(([A-Za-z0-9_]+(\\.get\\(\\))?)\\)"
           "::ndk::AParcel_readParcelable(\\2, \\1)" text "${text}")
    string(REPLACE
           "  _aidl_ret_status = AParcel_writeInt32(parcel, 1);\n  if (_aidl_ret_status != STATUS_OK) return _aidl_ret_status;\n\n  size_t _aidl_start_pos"
           "  size_t _aidl_start_pos" text "${text}")
    string(REPLACE "  int32_t _aidl_null;\n" "" text "${text}")
    string(REPLACE
           "  _aidl_ret_status = AParcel_readInt32(parcel, &_aidl_null);\n  if (_aidl_ret_status != STATUS_OK) return _aidl_ret_status;\n\n"
           "" text "${text}")
    string(REPLACE "  if (_aidl_null == 0) return STATUS_UNEXPECTED_NULL;\n\n" "" text "${text}")
    if(text MATCHES "_aidl_null|\\(new Bp")
        message(FATAL_ERROR "generate_ndk.cmake: ${rel} has a shape this script does not adapt")
    endif()

    if(rel MATCHES "^include/aidl/(.*)$")
        set(dest ${OUT}/include/${NAMESPACE}/${CMAKE_MATCH_1})
    else()
        set(dest ${OUT}/${rel})
    endif()
    file(WRITE ${dest} "${text}")
endforeach()
file(REMOVE_RECURSE ${raw_root})
