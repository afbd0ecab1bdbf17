# Run by CPack on what is installed for the packages, before it packs: what Debian wants beside the files of
# an ordinary installation. Each package holds the changelog and that of its packaging, and these and the
# manual pages are compressed.
string(REGEX REPLACE "-.*" "" version ${CPACK_PACKAGE_VERSION})
file(READ ${CPACK_PACKAGE_CHANGELOG} changelog)
if(NOT changelog MATCHES "## \\[${version}\\] - ([0-9-]+)")
  message(FATAL_ERROR "${CPACK_PACKAGE_CHANGELOG} has no entry of version ${version}")
endif()
execute_process(COMMAND date -u -R -d ${CMAKE_MATCH_1} OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(share ${CPACK_TEMPORARY_DIRECTORY}/${component}${CPACK_PACKAGING_INSTALL_PREFIX}/share)
  set(documents ${share}/doc/${package})
  file(WRITE ${documents}/changelog "${changelog}")
  file(WRITE ${documents}/changelog.Debian
"${package} (${version}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Version ${version}, see changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
  file(GLOB manual_pages ${share}/man/man*/*)
  # Without the time of day, so that equal contents make equal packages.
  execute_process(COMMAND gzip -9nf ${documents}/changelog ${documents}/changelog.Debian ${manual_pages}
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()
