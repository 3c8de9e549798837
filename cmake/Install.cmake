# `cmake --install` puts the library, its public headers, the host platform libraries it links
# (the binder emulation and the AIDL stub library) and a package config into the prefix, so that
# another host project can do:
#     find_package(QuarnZelClient REQUIRED)
#     target_link_libraries(app PRIVATE QuarnZelClient::zel-client)
include(CMakePackageConfigHelpers)

set(ZEL_INSTALL_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/quarn-zel-client)
set(ZEL_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QuarnZelClient)

install(DIRECTORY include/ DESTINATION ${ZEL_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(DIRECTORY platform/host/binder/include/ DESTINATION ${ZEL_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")
install(DIRECTORY platform/host/aidl/include/ DESTINATION ${ZEL_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")

install(TARGETS zel-client binder_ndk vendor.quarn.hardware.torq-V1-ndk
        EXPORT QuarnZelClientTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        INCLUDES DESTINATION ${ZEL_INSTALL_INCLUDEDIR})
if(TARGET torqctl)
    install(TARGETS torqctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# liblog and libcutils are Debian's; the exported targets name them by their installed paths.
install(EXPORT QuarnZelClientTargets NAMESPACE QuarnZelClient:: DESTINATION ${ZEL_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/QuarnZelClientConfig.cmake.in
        ${CMAKE_CURRENT_BINARY_DIR}/QuarnZelClientConfig.cmake
        INSTALL_DESTINATION ${ZEL_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/QuarnZelClientConfigVersion.cmake
        VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QuarnZelClientConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/QuarnZelClientConfigVersion.cmake
        DESTINATION ${ZEL_INSTALL_CMAKEDIR})
