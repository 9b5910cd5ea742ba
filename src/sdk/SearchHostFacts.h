// The host facts and the free-address proposal as the core offers them: the five facts
// kept for the library's life, and the exclusions of the walk read from the discovery
// table (each known device's address).
#ifndef QXNET_SDK_SEARCHHOSTFACTS_H
#define QXNET_SDK_SEARCHHOSTFACTS_H

#include "base/HostNet.h"

class CSearchIPC;

class CSearchHostFacts {
 public:
  CSearchHostFacts();
  int GetOneIPAddress(CSearchIPC& search, char* strResult, int nSize);
  int GetNetworkParam(long index, char* strResult, int size);

 private:
  HostAddrs m_szHostAddr;
};

#endif
