# `cmake --install` puts into the prefix:
#   <libdir>/libquarn-zel-client.so         the library              QuarnZelClient::zel-client
#   <libdir>/libquarn-zel-torq-sim.so       the reference Torq HAL   QuarnZelClient::torq-sim
#                                           for host tests
#   <libdir>/quarn-zel-client/              the host platform libraries they link: the binder
#                                           emulation (libbinder_ndk.so) and the AIDL stub
#                                           library. Private: a system's own libbinder_ndk never
#                                           meets ours; the libraries and torqctl find them
#                                           through their RUNPATH.
#   <includedir>/quarn-zel-client/          the public headers, the host binder and AIDL headers
#                                           and the simulator's (torq_sim/...)
#   <libdir>/cmake/QuarnZelClient/          the package config (only QuarnZelClient:: targets)
#   <libdir>/pkgconfig/                     quarn-zel-client.pc, quarn-zel-torq-sim.pc
#   <bindir>/torqctl
# so that another host project can do:
#     find_package(QuarnZelClient REQUIRED)
#     target_link_libraries(app PRIVATE QuarnZelClient::zel-client)
# or: c++ app.cpp $(pkg-config --cflags --libs quarn-zel-client)
include(CMakePackageConfigHelpers)

set(ZEL_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/quarn-zel-client)
set(ZEL_INSTALL_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/quarn-zel-client)
set(ZEL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QuarnZelClient)
set(ZEL_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(ZEL_ANDROID_LIBDIR /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android)

# RUNPATHs relative to where each file lands, so the prefix can be anywhere; Debian's liblog and
# libcutils live in a folder of their own.
file(RELATIVE_PATH ZEL_BIN_TO_LIBDIR /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(binder_ndk vendor.quarn.hardware.torq-V1-ndk PROPERTIES
                      INSTALL_RPATH "$ORIGIN;${ZEL_ANDROID_LIBDIR}")
set_target_properties(zel-client torq-sim PROPERTIES
                      INSTALL_RPATH "$ORIGIN;$ORIGIN/quarn-zel-client;${ZEL_ANDROID_LIBDIR}")
if(TARGET torqctl)
    set_target_properties(torqctl PROPERTIES INSTALL_RPATH
        "$ORIGIN/${ZEL_BIN_TO_LIBDIR};$ORIGIN/${ZEL_BIN_TO_LIBDIR}/quarn-zel-client;${ZEL_ANDROID_LIBDIR}")
endif()

install(DIRECTORY include/ DESTINATION ${ZEL_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY platform/host/binder/include/ DESTINATION ${ZEL_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
# The AIDL headers: the hand-written ones and the two the build writes (with the interface hash).
install(DIRECTORY platform/host/aidl/include/ ${TORQ_AIDL_GENERATED_INCLUDE_DIR}/
        DESTINATION ${ZEL_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY sim/include/ sim/host/include/ DESTINATION ${ZEL_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")

install(TARGETS zel-client torq-sim
        EXPORT QuarnZelClientTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${ZEL_INSTALL_INCLUDEDIR})
install(TARGETS binder_ndk vendor.quarn.hardware.torq-V1-ndk
        EXPORT QuarnZelClientTargets
        LIBRARY DESTINATION ${ZEL_INSTALL_PRIVATE_LIBDIR}
        INCLUDES DESTINATION ${ZEL_INSTALL_INCLUDEDIR})
if(TARGET torqctl)
    install(TARGETS torqctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT QuarnZelClientTargets NAMESPACE QuarnZelClient:: DESTINATION ${ZEL_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/QuarnZelClientConfig.cmake.in
        ${CMAKE_CURRENT_BINARY_DIR}/QuarnZelClientConfig.cmake
        INSTALL_DESTINATION ${ZEL_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/QuarnZelClientConfigVersion.cmake
        VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QuarnZelClientConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/QuarnZelClientConfigVersion.cmake
        DESTINATION ${ZEL_INSTALL_CMAKEDIR})

# pkg-config files that find the prefix from their own place (${pcfiledir}), so they stay right
# whatever --prefix the install is given.
file(RELATIVE_PATH ZEL_PC_TO_PREFIX /${ZEL_INSTALL_PKGCONFIGDIR} /)
string(REGEX REPLACE "/$" "" ZEL_PC_TO_PREFIX "${ZEL_PC_TO_PREFIX}")
foreach(pc quarn-zel-client quarn-zel-torq-sim)
    configure_file(cmake/${pc}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${pc}.pc DESTINATION ${ZEL_INSTALL_PKGCONFIGDIR})
endforeach()
