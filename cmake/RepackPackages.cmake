# Run by CPack on the packages it made. It gives a package with a library scripts that call ldconfig, which the
# trigger does once for all packages, and lists files as the file system happens to; dpkg-deb packs sorted.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(tree ${package}.tree)
  file(REMOVE_RECURSE ${tree})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE ${tree}/DEBIAN/postinst ${tree}/DEBIAN/postrm)
  execute_process(COMMAND sort -k 2 -o ${tree}/DEBIAN/md5sums ${tree}/DEBIAN/md5sums COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND dpkg-deb --root-owner-group -Z${CPACK_DEBIAN_COMPRESSION_TYPE} --build ${tree} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${tree})
endforeach()
