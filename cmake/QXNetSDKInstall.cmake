# Install rules: the shared library (runtime), header, archive, CMake package and
# qxnetsdk.pc (dev), and the two programs (tools). The components are the Debian packages
# of cmake/QXNetSDKPackage.cmake.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/QXNetSDKStaticDeps.cmake)

set(QXNET_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QXNetSDK)

install(TARGETS QXNetSDK EXPORT QXNetSDKTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS QXNetSDK_static EXPORT QXNetSDKStaticTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/QXNetSDK.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(TARGETS qxnet qxdevsim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

# The archive in its own export set: its dependencies are looked for only by consumers
# that ask for the "static" component.
install(EXPORT QXNetSDKTargets NAMESPACE QXNetSDK:: DESTINATION ${QXNET_CMAKE_DIR}
  COMPONENT dev)
install(EXPORT QXNetSDKStaticTargets NAMESPACE QXNetSDK:: DESTINATION ${QXNET_CMAKE_DIR}
  COMPONENT dev)

qxnet_static_dependencies(QXNetSDK_static QXNET_STATIC_FIND_CODE QXNET_PC_REQUIRES_PRIVATE
  QXNET_PC_MODULE_FILES)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/QXNetSDKConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/QXNetSDKConfig.cmake INSTALL_DESTINATION ${QXNET_CMAKE_DIR})
# Compatibility: AnyNewerVersion. The release number (2.8.5) and the ABI generation
# (SONAME .so.1) are counted separately; the interface a 1.0 program was written
# against is the same 59 exports and pinned records in every later release, so a request
# for 1.0 must accept 2.8.5, which SameMajorVersion would refuse. An incompatible change
# raises QXNET_SOVERSION (and the runtime package's name) and must revisit this choice.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/QXNetSDKConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY AnyNewerVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/QXNetSDKConfig.cmake
  ${PROJECT_BINARY_DIR}/package/QXNetSDKConfigVersion.cmake
  DESTINATION ${QXNET_CMAKE_DIR} COMPONENT dev)

# qxnetsdk.pc finds its prefix from its own place, so the tree can be moved.
set(QXNET_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH QXNET_PC_TO_PREFIX /${QXNET_PC_DIR} /)
string(REGEX REPLACE "/$" "" QXNET_PC_TO_PREFIX "${QXNET_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/qxnetsdk.pc.in ${PROJECT_BINARY_DIR}/package/qxnetsdk.pc
  @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/package/qxnetsdk.pc DESTINATION ${QXNET_PC_DIR}
  COMPONENT dev)
