// LAN discovery and device network setup. This build keeps the discovery object's
// callback registration; searching, the device table and network setup are not in this
// build yet: those operations return QXNET_E_NOT_AVAILABLE (the README lists them).
#ifndef QXNET_SEARCH_SEARCHIPC_H
#define QXNET_SEARCH_SEARCHIPC_H

#include "QXNetSDK.h"

class CSearchIPC {
 public:
  CSearchIPC();
  ~CSearchIPC();

  int SetSearchStatusCallBack(fSearchDevStatusCallBack cb, void* user);
  int StartSearch();
  int StopSearch();
  int GetIPCCount();
  int GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* out);
  int GetIPCInfoXML(long index, char* buf, int size);
  int ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
  int ModifyIPCXML(long index, const char* xml);
  int RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
  int GetOneIPAddress(char* strResult, int nSize);
  int GetNetworkParam(long index, char* strResult, int size);

  fSearchDevStatusCallBack Callback() const { return m_fCallBack; }
  void* CallbackUser() const { return m_pUser; }

 private:
  CSearchIPC(const CSearchIPC&) = delete;
  CSearchIPC& operator=(const CSearchIPC&) = delete;
  fSearchDevStatusCallBack m_fCallBack;
  void* m_pUser;
};

#endif
