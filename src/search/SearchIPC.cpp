#include "search/SearchIPC.h"

CSearchIPC::CSearchIPC() : m_fCallBack(nullptr), m_pUser(nullptr) {}
CSearchIPC::~CSearchIPC() {}

int CSearchIPC::SetSearchStatusCallBack(fSearchDevStatusCallBack cb, void* user) {
  m_fCallBack = cb;
  m_pUser = user;
  return 0;
}

int CSearchIPC::StartSearch() { return QXNET_E_NOT_AVAILABLE; }
int CSearchIPC::StopSearch() { return QXNET_E_NOT_AVAILABLE; }
int CSearchIPC::GetIPCCount() { return QXNET_E_NOT_AVAILABLE; }
int CSearchIPC::GetIPCInfo(long, __NetSDK_IPC_ENTRYV2*) { return QXNET_E_NOT_AVAILABLE; }
int CSearchIPC::GetIPCInfoXML(long, char*, int) { return QXNET_E_NOT_AVAILABLE; }
int CSearchIPC::ModifyIPC(long, __NetSDK_IPC_ENTRYV2*) { return QXNET_E_NOT_AVAILABLE; }
int CSearchIPC::ModifyIPCXML(long, const char*) { return QXNET_E_NOT_AVAILABLE; }
int CSearchIPC::RestoreIPC(long, __NetSDK_IPC_ENTRYV2*) { return QXNET_E_NOT_AVAILABLE; }
int CSearchIPC::GetOneIPAddress(char*, int) { return QXNET_E_NOT_AVAILABLE; }
int CSearchIPC::GetNetworkParam(long, char*, int) { return QXNET_E_NOT_AVAILABLE; }
