list(APPEND QXNET_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/QXNetSDK.cpp
  ${CMAKE_CURRENT_LIST_DIR}/NetSDKFunc.cpp
  ${CMAKE_CURRENT_LIST_DIR}/IpcEntryCopy.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchHostFacts.cpp)
  
# The version text comes from the project's version (cmake/QXNetSDKVersion.cmake), so
# that QXNet_GetSdkVersion, the SONAME's file and the packages cannot disagree.
configure_file(${CMAKE_CURRENT_LIST_DIR}/SdkVersion.h.in
  ${PROJECT_BINARY_DIR}/generated/sdk/SdkVersion.h @ONLY)
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/QXNetSDK.cpp PROPERTIES
  INCLUDE_DIRECTORIES ${PROJECT_BINARY_DIR}/generated)
