# Packages: `cpack --preset release` makes a Debian package, build/release/brisel_VERSION_amd64.deb, and a
# tarball of the same files.
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION share/doc/brisel)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION share/doc/brisel
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png")

# Software centres show what this file says.
string(TIMESTAMP BRISEL_DATE "%Y-%m-%d" UTC)
configure_file(${CMAKE_CURRENT_LIST_DIR}/metainfo.xml.in
  ${PROJECT_BINARY_DIR}/com.tamrockaudio.brisel.metainfo.xml @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/com.tamrockaudio.brisel.metainfo.xml
  DESTINATION share/metainfo)

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_NAME brisel)
set(CPACK_PACKAGE_VENDOR "Tamrock Audio")
set(CPACK_PACKAGE_CONTACT "Tamrock Audio <brisel@tamrockaudio.com>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "stereo reverb for CLAP and LV2 hosts, and for sound files")
set(CPACK_PACKAGE_DESCRIPTION "\
Brisel Live is a reverb for music, film and games whose tail goes on
whatever is turned: size, decay, predelay and all else move without a
click, in blocks of any length and without latency.
.
This package holds Brisel Live for CLAP and LV2 hosts, the exact plug-in
Brisel for CLAP hosts, brisel-render, which puts sound files through it,
brisel-measure, which measures its settings, the libraries and headers for
programs in C and C++, and the module brisel for Python.
.
It needs a processor with AVX2 and FMA.")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_PACKAGE_FILE_NAME brisel-${PROJECT_VERSION}-linux-x86_64)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What other packages depend on that link libbrisel-live; and the loader is told of it.
if(TARGET brisel_live)
  get_target_property(brisel_soversion brisel_live SOVERSION)
  file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs
    "libbrisel-live ${brisel_soversion} brisel (>= ${PROJECT_VERSION})\n")
  file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${PROJECT_BINARY_DIR}/debian/shlibs ${PROJECT_BINARY_DIR}/debian/triggers)
endif()
# brisel-measure and the module need Python, and numerical packages.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "python3:any")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
  "python3-numpy, python3-scipy, python3-matplotlib, python3-soundfile")
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
include(CPack)
