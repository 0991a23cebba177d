# What `cmake --install` puts where, by component, so that packaging can
# split it: runtime (plugin, STOMP transport), dev (headers, CMake package,
# pkg-config), tools (nuvclassify, embedded transport, completion, man
# page), server (nuvkesp-server, its tools and documents).
include(CMakePackageConfigHelpers)

install(FILES
  interface/classifyinterface.h
  interface/nuvinterfaceids.h
  interface/nuvmqclientinterface.h
  interface/nuvmqmessage.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nuvclassify COMPONENT dev)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/NuvClassify)
install(TARGETS nuvclassifyinterface EXPORT NuvClassifyTargets COMPONENT dev)
install(EXPORT NuvClassifyTargets NAMESPACE NuvClassify:: DESTINATION ${package_dir}
  COMPONENT dev)
configure_package_config_file(cmake/NuvClassifyConfig.cmake.in
  ${CMAKE_BINARY_DIR}/NuvClassifyConfig.cmake
  INSTALL_DESTINATION ${package_dir}
  PATH_VARS NUV_INSTALL_PLUGINDIR NUV_INSTALL_STOMPDIR NUV_INSTALL_EMBEDDEDDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/NuvClassifyConfigVersion.cmake
  COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES ${CMAKE_BINARY_DIR}/NuvClassifyConfig.cmake
  ${CMAKE_BINARY_DIR}/NuvClassifyConfigVersion.cmake
  DESTINATION ${package_dir} COMPONENT dev)
# The prefix is taken from the file's own place, so that a prefix given
# to `cmake --install --prefix` holds.
file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig
  ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
set(NUV_PC_PREFIX "\${pcfiledir}/${pc_to_prefix}")
configure_file(cmake/nuvclassify.pc.in ${CMAKE_BINARY_DIR}/nuvclassify.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/nuvclassify.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

install(FILES README.md LICENSE CHANGELOG.md docs/broker-protocol.md docs/performance.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES docs/cli.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tools)
install(FILES docs/server.md docs/server-operations.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT server)
