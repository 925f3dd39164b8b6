# Installing: headers, CMake package and pkg-config file of the engine API, and brisel-measure. The
# plug-in and the renderer have their install rules beside their targets. Everything may be moved as
# a whole after installation: all paths in the package files are relative to the files themselves.
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/brisel DESTINATION include
  FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION share/doc/brisel)

install(PROGRAMS ${PROJECT_SOURCE_DIR}/measure/brisel-measure DESTINATION bin)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/measure/brisel_measure DESTINATION share/brisel
  FILES_MATCHING PATTERN "*.py")

# find_package(brisel) gives the target brisel::brisel.
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/brisel-config.cmake.in
  ${PROJECT_BINARY_DIR}/brisel-config.cmake
  INSTALL_DESTINATION lib/cmake/brisel NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/brisel-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/brisel-config.cmake
  ${PROJECT_BINARY_DIR}/brisel-config-version.cmake
  DESTINATION lib/cmake/brisel)
install(EXPORT brisel-targets NAMESPACE brisel:: DESTINATION lib/cmake/brisel)

configure_file(${CMAKE_CURRENT_LIST_DIR}/brisel.pc.in ${PROJECT_BINARY_DIR}/brisel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/brisel.pc DESTINATION lib/pkgconfig)
