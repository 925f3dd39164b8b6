# What Debian's policy asks of the files in a package, beside the installation itself: a file `copyright`
# instead of the licence, a changelog in its own format, and manuals and changelogs compressed. Run by
# cpack in the folder that is to be packed; the other kinds of packages stay as installed.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
set(doc ${share}/doc/brisel)

file(READ ${doc}/LICENSE licence)
file(REMOVE ${doc}/LICENSE)
file(WRITE ${doc}/copyright "${licence}")

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(RENAME ${doc}/CHANGELOG.md ${doc}/NEWS.md)
file(WRITE ${doc}/changelog "\
brisel (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * What has changed is told in NEWS.md.gz, beside this file.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")

file(GLOB_RECURSE files ${share}/man/*.1)
list(APPEND files ${doc}/changelog ${doc}/NEWS.md)
execute_process(COMMAND gzip -9n ${files} COMMAND_ERROR_IS_FATAL ANY)
