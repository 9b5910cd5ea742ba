list(APPEND QXNET_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/FrameHeaderSearch.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FileRecver.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DevComSocket.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DevComSession.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DevComWorker.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SessionIo.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RecvAhead.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DevComDispatch.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DevComRequests.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DevComUpload.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DevComDownload.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DevComRecord.cpp
  ${CMAKE_CURRENT_LIST_DIR}/DevComMedia.cpp
  ${CMAKE_CURRENT_LIST_DIR}/MediaEnvelope.cpp
  ${CMAKE_CURRENT_LIST_DIR}/PlainEnvelope.cpp)
