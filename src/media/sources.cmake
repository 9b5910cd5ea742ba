# Pure media code: pack header and frame reassembly, stream parameters, SPS reader, MP4 writer.
list(APPEND QXNET_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/H264Sps.cpp
)
