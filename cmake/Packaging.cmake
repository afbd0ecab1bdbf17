# Debian packages by `cpack` (scripts/package.sh): one for each component of the installation.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "PluginSDK developers")
set(CPACK_PACKAGE_CONTACT "PluginSDK developers <pluginsdk@localhost>")
# Empty, because it would stand before the description of every package.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/FinishPackages.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/RepackPackages.cmake)
set(CPACK_PACKAGE_CHANGELOG ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_COMPONENTS_ALL runtime development)
if(PLUGINSDK_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(package_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

# Two versions of the soname live side by side, so the name of the package follows it.
set(runtime_package libpluginsdk${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Programs built against this version may use what it added, so they want it or a newer one, of whatever
# packaging: what CPack writes by itself names the Debian revision, too.
file(WRITE ${PROJECT_BINARY_DIR}/shlibs
  "libPluginSDK ${PROJECT_VERSION_MAJOR} ${runtime_package} (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/shlibs ${PROJECT_BINARY_DIR}/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"plugin-side library to talk to the agent of a device
Builds, signs, parses and verifies the JSON-RPC messages between a plugin and
the agent process of its device, and brings a logging facility and thin
wrappers over POSIX threads, files and time.
.
This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libpluginsdk-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${runtime_package} (= ${package_version}), libcjson-dev, pkg-config")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
"development files of the plugin-side library PluginSDK
Headers, the files by which CMake and pkg-config find the library, guides and
example programs.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME pluginsdk-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
"command-line tool for plugins of a device and their messages
Looks at messages as the library PluginSDK does, and reads the log ring in
shared memory that a plugin leaves behind when it crashes. It needs no
installed library.")

include(CPack)
