# Installs the library, its headers, the pkg-config file and the CMake package.
include(CMakePackageConfigHelpers)

install(TARGETS qzlib EXPORT qzlibTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} ${CMAKE_INSTALL_INCLUDEDIR}/qzlib)
install(FILES ${PROJECT_SOURCE_DIR}/include/qzlib.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/itempool.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/QZException.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT qzlibTargets NAMESPACE qzlib:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qzlib)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/qzlibConfig.cmake.in
  ${PROJECT_BINARY_DIR}/qzlibConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qzlib)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/qzlibConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/qzlibConfig.cmake ${PROJECT_BINARY_DIR}/qzlibConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qzlib)

configure_file(${PROJECT_SOURCE_DIR}/cmake/qzlib.pc.in ${PROJECT_BINARY_DIR}/qzlib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qzlib.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
