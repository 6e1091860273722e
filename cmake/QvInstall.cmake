# cmake --install: headers, library with its soname, pkg-config file and CMake package config.
include(CMakePackageConfigHelpers)

install(TARGETS qvreader EXPORT qvreaderTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/qvreader DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING
        PATTERN "*.h")

# The installed tree may be moved: the pkg-config file finds it from its own place.
file(RELATIVE_PATH QV_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" QV_PC_TO_PREFIX "${QV_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/qvreader.pc.in ${CMAKE_CURRENT_BINARY_DIR}/qvreader.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qvreader.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(sPackageDir ${CMAKE_INSTALL_LIBDIR}/cmake/qvreader)
install(EXPORT qvreaderTargets NAMESPACE qvreader:: DESTINATION ${sPackageDir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qvreaderConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/qvreaderConfig.cmake INSTALL_DESTINATION ${sPackageDir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/qvreaderConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qvreaderConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/qvreaderConfigVersion.cmake
        DESTINATION ${sPackageDir})

# The rule that lets whoever sits at the machine use USB readers. Relative to the prefix: udev reads /usr/lib and
# /usr/local/lib.
install(FILES ${PROJECT_BINARY_DIR}/generated/70-qvreader.rules DESTINATION lib/udev/rules.d)
