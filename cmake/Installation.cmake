# What is installed, by component: runtime (to run plugins), development (to build them), tools. The install
# tree may be moved, or chosen at install time by --prefix: the files of CMake and pkg-config find it from
# where they are themselves.
include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/PluginSDK)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS PluginSDK EXPORT PluginSDKTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(FILES ${PLUGINSDK_PUBLIC_HEADERS}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/PluginSDK COMPONENT development)

# Private libraries stand by name in the file of pkg-config, not as modules: it wants every module that is
# required, even privately, to be installed before it tells compiler flags.
if(BUILD_SHARED_LIBS)
  set(modules cJSON)
  set(pc_requires libcjson)
  set(pc_libs "")
  set(pc_libs_private "-largon2 -lcrypto -pthread")
else()
  set(modules cJSON Argon2)
  set(pc_requires "libcjson libargon2 libcrypto")
  set(pc_libs " -pthread")
  set(pc_libs_private "")
endif()

install(EXPORT PluginSDKTargets NAMESPACE PluginSDK:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(cmake/PluginSDKConfig.cmake.in PluginSDKConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(PluginSDKConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/PluginSDKConfig.cmake ${PROJECT_BINARY_DIR}/PluginSDKConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT development)

# An absolute folder stands in the file as it was chosen, and an absolute place of the file itself fixes the prefix.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(pc_prefix ${CMAKE_INSTALL_PREFIX})
else()
  file(RELATIVE_PATH pkgconfig_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  set(pc_prefix "\${pcfiledir}/${pkgconfig_to_prefix}")
endif()
foreach(dir IN ITEMS LIBDIR INCLUDEDIR)
  set(pc_${dir} "\${prefix}")
  cmake_path(APPEND pc_${dir} "${CMAKE_INSTALL_${dir}}")  # of an absolute path, the path alone
endforeach()
configure_file(cmake/pluginsdk.pc.in pluginsdk.pc @ONLY)
# The name of version 1.0, for builds that ask for it.
file(CREATE_LINK pluginsdk.pc ${PROJECT_BINARY_DIR}/PluginSDK.pc SYMBOLIC)
install(FILES ${PROJECT_BINARY_DIR}/pluginsdk.pc ${PROJECT_BINARY_DIR}/PluginSDK.pc
  DESTINATION ${pkgconfig_dir} COMPONENT development)

# As in the checkout, so that their links lead somewhere.
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")
# Without the lists of this build: a small example is compiled by the line that README.md shows for a plugin.
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
  PATTERN CMakeLists.txt EXCLUDE)

if(TARGET pluginsdk)
  install(TARGETS pluginsdk RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES tools/man/pluginsdk.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES tools/completion/pluginsdk
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()
