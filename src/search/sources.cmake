list(APPEND QXNET_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/SearchIPC.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchWorker.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchModify.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchTable.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchAnswer.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchConfigXml.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchProto.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchNetwork.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchRecvQueue.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchUidIndex.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SearchLog.cpp)
