# The library's version, in one place. project(VERSION) gives the release number; the
# text QXNet_GetSdkVersion returns, the shared library's file name, the CMake package
# version, qxnetsdk.pc and the Debian packages are all made from these variables.

# Date and build number that follow the release number in the version text.
set(QXNET_SDK_BUILD_TAG "20171109_001")
set(QXNET_SDK_VERSION_TEXT "SDK_PC_V${PROJECT_VERSION}_${QXNET_SDK_BUILD_TAG}")

# ABI generation: the SONAME is libQXNetSDK.so.${QXNET_SOVERSION}. It changes only when
# an export or a record crossing the interface changes incompatibly, never with the
# release number.
set(QXNET_SOVERSION 1)
