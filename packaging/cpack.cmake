# SPDX-License-Identifier: Apache-2.0
# Debian packages, one per install component (scripts/package builds them):
#   runtime -> libnuvclassify      the classify plugin and the STOMP transport
#   dev     -> nuvclassify-dev     headers, CMake package, pkg-config file
#   tools   -> nuvclassify-tools   command-line host, embedded transport
#   server  -> nuvkesp-server      the daemon, its units, configuration, docs
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools server)
set(CPACK_PACKAGE_NAME nuvclassify)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "nuvclassify developers")
set(CPACK_PACKAGE_CONTACT "nuvclassify maintainers <maintainers@nuvclassify.example>")
set(CPACK_PACKAGE_HOMEPAGE_URL "https://github.com/nuvclassify/nuvclassify")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Dependencies between the packages, at the exact version built together.
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(NUV_DEB_VERSION ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

set(NUV_DEB_runtime libnuvclassify)
set(NUV_DEB_dev nuvclassify-dev)
set(NUV_DEB_tools nuvclassify-tools)
set(NUV_DEB_server nuvkesp-server)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libnuvclassify)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "classification plugin of the nuv document system
A Qt plugin that hosts load to classify, search and file documents on a
nuv document server, and the STOMP transport that carries its requests to
the server through an ActiveMQ broker.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME nuvclassify-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_DEV_DESCRIPTION "development files of the nuv classification plugin
Headers of the plugin's interfaces, the CMake package and the pkg-config
file, for writing hosts and transports for the classification plugin.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME nuvclassify-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libqt5sql5-sqlite")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command-line host of the nuv classification plugin
nuvclassify calls any operation of the classification plugin by name,
against a server through the broker or on a local database through the
embedded transport, which runs the reference server engine in-process.")

set(CPACK_DEBIAN_SERVER_PACKAGE_NAME nuvkesp-server)
set(CPACK_DEBIAN_SERVER_PACKAGE_SECTION net)
# Qt loads its SQL drivers as plugins, which shlibdeps cannot see; the
# service's postinst uses systemd-sysusers and systemd-tmpfiles.
set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS "libqt5sql5-sqlite, libqt5sql5-psql, systemd")
set(CPACK_DEBIAN_SERVER_PACKAGE_RECOMMENDS "activemq, postgresql-client")
set(CPACK_COMPONENT_SERVER_DESCRIPTION "server of the nuv document system behind ActiveMQ
nuvkesp-server takes classification requests from an ActiveMQ request
queue over STOMP and answers them with the reference server engine, on an
SQLite or a shared PostgreSQL database; any number of instances may serve
one queue. With systemd units, a system user, a default configuration and
the operator's guide.")

set(NUV_DEB_CONTROL ${CMAKE_BINARY_DIR}/packaging/debian-control)
foreach(script postinst prerm postrm conffiles)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/server.${script}
    ${NUV_DEB_CONTROL}/server/${script} COPYONLY)
  list(APPEND CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_EXTRA ${NUV_DEB_CONTROL}/server/${script})
endforeach()

# Every package carries its copyright file and a Debian changelog.
string(TIMESTAMP NUV_DEB_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component runtime dev tools server)
  set(NUV_DEB_PACKAGE ${NUV_DEB_${component}})
  set(docs ${NUV_DEB_CONTROL}/${component}/doc)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in ${docs}/changelog.Debian @ONLY)
  execute_process(COMMAND gzip -9nf ${docs}/changelog.Debian)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${docs}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${NUV_DEB_PACKAGE} COMPONENT ${component})
  configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/lintian-overrides.in
    ${NUV_DEB_CONTROL}/${component}/overrides/${NUV_DEB_PACKAGE} @ONLY)
  install(FILES ${NUV_DEB_CONTROL}/${component}/overrides/${NUV_DEB_PACKAGE}
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides COMPONENT ${component})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/docs/operations.md
  DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/nuvkesp-server COMPONENT server)

include(CPack)
