# Installing: headers, CMake package and pkg-config file of the engine API, and brisel-measure. The
# plug-in and the renderer have their install rules beside their targets. Everything may be moved as
# a whole after installation: all paths in the package files are relative to the files themselves.
include(CMakePackageConfigHelpers)

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/brisel DESTINATION include
  FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION share/doc/brisel)

install(PROGRAMS ${PROJECT_SOURCE_DIR}/measure/brisel-measure DESTINATION bin)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/measure/brisel_measure DESTINATION share/brisel
  FILES_MATCHING PATTERN "*.py")

# Its manual says what --help says, where the packages that it runs on are installed.
set(measure ${PROJECT_SOURCE_DIR}/measure/brisel-measure)
set(man_page ${PROJECT_BINARY_DIR}/brisel-measure.1)
execute_process(COMMAND ${measure} --help RESULT_VARIABLE no_help OUTPUT_QUIET ERROR_QUIET)
if(no_help)
  message(STATUS "Manual page of brisel-measure: skipped, it does not run here")
else()
  add_custom_command(OUTPUT ${man_page}
    COMMAND ${CMAKE_COMMAND} -DPROGRAM=${measure} "-DSUMMARY=measure the Brisel reverb"
      -DVERSION=${PROJECT_VERSION} -DOUTPUT=${man_page} -P ${PROJECT_SOURCE_DIR}/render/man_page.cmake
    DEPENDS ${measure} ${PROJECT_SOURCE_DIR}/measure/brisel_measure/main.py
      ${PROJECT_SOURCE_DIR}/render/man_page.cmake VERBATIM)
  add_custom_target(brisel_measure_manual ALL DEPENDS ${man_page})
  install(FILES ${man_page} DESTINATION share/man/man1)
endif()

# find_package(brisel) gives the targets brisel::brisel, the exact engines, and brisel::live, where it is
# built; brisel::static and brisel::live_static are the same for programs that want no library beside them.
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

set(packages brisel)
if(TARGET brisel_live)
  list(APPEND packages brisel-live)
endif()
foreach(package IN LISTS packages)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc DESTINATION lib/pkgconfig)
endforeach()
