# Debian packages through CPack (cpack -G DEB in the build folder):
#   libqxnetsdk<SOVERSION>  the shared library (component runtime)
#   libqxnetsdk-dev         header, archive, CMake package, qxnetsdk.pc (component dev)
#   qxnet-tools             qxnet and qxdevsim (component tools)
set(QXNET_DEB_RUNTIME libqxnetsdk${QXNET_SOVERSION})
set(QXNET_DEB_DOCS ${PROJECT_BINARY_DIR}/package/debian)

# Each package carries its copyright file and a compressed changelog where Debian's
# policy expects them.
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in ${QXNET_DEB_DOCS}/changelog @ONLY)
execute_process(COMMAND gzip -9n -c ${QXNET_DEB_DOCS}/changelog
  OUTPUT_FILE ${QXNET_DEB_DOCS}/changelog.Debian.gz RESULT_VARIABLE gz_rc)
if(NOT gz_rc EQUAL 0)
  message(FATAL_ERROR "gzip of the Debian changelog failed")
endif()
foreach(pair "runtime;${QXNET_DEB_RUNTIME}" "dev;libqxnetsdk-dev" "tools;qxnet-tools")
  list(GET pair 0 comp)
  list(GET pair 1 pkg)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright ${QXNET_DEB_DOCS}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${pkg} COMPONENT ${comp})
endforeach()

# The -dev package needs the -dev packages that own the pkg-config modules the archive
# requires (qxnetsdk.pc names them in Requires.private).
set(dev_depends)
find_program(QXNET_DPKG_QUERY dpkg-query)
foreach(pc IN LISTS QXNET_PC_MODULE_FILES)
  if(QXNET_DPKG_QUERY)
    execute_process(COMMAND ${QXNET_DPKG_QUERY} -S ${pc} OUTPUT_VARIABLE owner
      OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    string(REGEX REPLACE ":.*" "" owner "${owner}")
    if(owner)
      list(APPEND dev_depends ${owner})
    endif()
  endif()
endforeach()
list(REMOVE_DUPLICATES dev_depends)
list(APPEND dev_depends pkg-config)
list(JOIN dev_depends ", " QXNET_DEB_DEV_DEPENDS)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qxnetsdk)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "QXNetSDK developers")
set(CPACK_PACKAGE_CONTACT "QXNetSDK developers <qxnetsdk@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# qxnet links the library of the runtime package, staged beside the tools' tree (each
# package's dpkg-shlibdeps runs in its own staging folder); the dependency on it comes from
# the component dependency below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ../runtime/usr/${CMAKE_INSTALL_LIBDIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${QXNET_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# A public shared library: ldconfig runs through the dpkg trigger.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
string(CONCAT CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "client library for IP cameras and video recorders\n"
  "QXNetSDK logs in to IP cameras, network and digital video recorders on\n"
  "the local network, sends configuration and control requests, uploads\n"
  "firmware and reports the devices' events and alarms through callbacks.\n"
  "This package holds the shared library.")
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libqxnetsdk-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${QXNET_DEB_DEV_DEPENDS}")
string(CONCAT CPACK_COMPONENT_DEV_DESCRIPTION
  "client library for IP cameras and video recorders (development files)\n"
  "QXNetSDK logs in to IP cameras, network and digital video recorders on\n"
  "the local network. This package holds the C header, the static archive,\n"
  "the CMake package (find_package(QXNetSDK)) and the pkg-config file\n"
  "(qxnetsdk).")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qxnet-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
string(CONCAT CPACK_COMPONENT_TOOLS_DESCRIPTION
  "command-line client and device simulator for QXNetSDK\n"
  "qxnet logs in to a device, prints its events and alarms, reads and writes its\n"
  "settings and uploads firmware. qxdevsim simulates such devices on 127.0.0.1 for\n"
  "tests and demonstrations.")

include(CPack)
