# Pure media code: pack header and frame reassembly, stream parameters, SPS reader, MP4 writer.
list(APPEND QXNET_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/H264Sps.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Mp4Bitstream.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Mp4PartName.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Mp4Writer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/MediaPack.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ReassemblyBuffer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ReplayAssembler.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DownloadAssembler.cpp
  ${CMAKE_CURRENT_LIST_DIR}/StreamParams.cpp
)
