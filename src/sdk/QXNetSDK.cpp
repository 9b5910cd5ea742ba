// The exported C interface: thin forwards to the core object, plus the lifecycle and the
// process-wide settings.
#include <signal.h>

#include <cstring>
#include <string>

#include "QXNetSDK.h"
#include "base/FuncLog.h"
#include "base/SDKLog.h"
#include "base/SDKSocket.h"
#include "sdk/IpcEntryCopy.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "sdk/SdkVersion.h"

CLocker g_lock;
CNetSDKFunc* g_pInstance = nullptr;
bool g_bInit = false;
int g_nInitCount = 0;
int g_nNetType = 0;
char g_szSvrDomian[512] = {0};
char g_szIpAddr[128] = {0};
int g_nSvrPort = 80;
int g_nIPType = 16;
std::atomic<int> g_nReconnect{1};
fSDKLogCallBack g_fSDKLog = nullptr;
std::string g_strVendorId;
bool g_bForceSubStream = true;
bool g_bEnableVerifyPriData = false;
bool g_bLargeDevlist = false;
bool g_bCommProtocolByHttps = false;
bool g_bPcFree = false;
void* g_fMsgRspCallBack = nullptr;

// Deployment values: nothing in the library reads them, so reserved names are used.
const char* const kDefaultSvrDomain = "p2p.qxnet.invalid";

const char* SvrDomainForNetType(int netType) {
  switch (netType) {
    case 3:
      return "p2p-3.qxnet.invalid";
    case 4:
      return "p2p-4.qxnet.invalid";
    case 5:
      return "p2p-5.qxnet.invalid";
    default:
      return kDefaultSvrDomain;
  }
}

static void CopyDomain(const char* name) {
  std::strncpy(g_szSvrDomian, name, sizeof(g_szSvrDomian) - 1);
  g_szSvrDomian[sizeof(g_szSvrDomian) - 1] = 0;
}

static const char kVersion[] = QXNET_SDK_VERSION_TEXT;

#define QXNET_CORE_OR_201 \
  CNetSDKFunc* core = g_pInstance; \
  if (!core) return QXNET_E_NOT_INIT;

extern "C" {

QXNET_API long QXNet_init(void) {
  QXNet_Free();
  CAutoLocker guard(g_lock);
  if (g_bInit) {
    fLog(3, "QXNet_init(): init success, g_bInit=true");
  } else {
    signal(SIGPIPE, SIG_IGN);
    ++g_nInitCount;
    if (g_nInitCount == 1 && WSAStartup(0x0202, nullptr) != 0) WSAGetLastError();
    fLogStart();
    fLog(0, "QXNet_init(), %s %s", __DATE__, __TIME__);
    fLog(0, "Sdk Version=%s", kVersion);
    if (g_szSvrDomian[0] == 0) CopyDomain(kDefaultSvrDomain);
    if (!g_pInstance) g_pInstance = new CNetSDKFunc();
  }
  g_bInit = true;
  return 0;
}

QXNET_API long QXNet_initEx(int nNetType) {
  fLog(0, "Sdk Version=%s", kVersion);
  fLog(0, "QXNet_initEx(): nNetType = %d, %s %s", nNetType, __DATE__, __TIME__);
  if (g_bInit) {
    fLog(3, "QXNet_initEx(): init success, g_bInit=true");
    return 0;
  }
  g_nNetType = nNetType;
  CopyDomain(SvrDomainForNetType(nNetType));
  return QXNet_init();
}

QXNET_API long QXNet_Free(void) {
  CAutoLocker guard(g_lock);
  fLog(3, "QXNet_Free()");
  g_bInit = false;
  --g_nInitCount;
  if (g_pInstance) {
    CNetSDKFunc* core = g_pInstance;
    delete core;
    g_pInstance = nullptr;
  }
  if (g_nInitCount <= 0) {
    WSACleanup();
    g_nInitCount = 0;
  }
  fLogStop();
  return 0;
}

QXNET_API const char* QXNet_GetSdkVersion(void) { return kVersion; }

QXNET_API void QXNet_SetSDKLogCallBack(fSDKLogCallBack callback) { g_fSDKLog = callback; }

QXNET_API long QXNet_SetfcLogCallBackEx(fLogCallBack callback, int level) {
  if (!g_fLogCallBack) g_fLogCallBack = callback;
  g_fLogLevel = 0;
  if (level < 0) return 0;
  int n = level < 30 ? level : 30;
  g_fLogLevel = static_cast<unsigned int>((1ULL << (n + 1)) - 1);
  return 0;
}

QXNET_API long QXNet_SetAutoReconnect(int enable) {
  g_nReconnect = enable;
  return 0;
}

// ---- discovery

QXNET_API long QXNet_SetSearchDevStatusCallBack(fSearchDevStatusCallBack callback, void* user) {
  QXNET_CORE_OR_201
  return core->SDK_SetSearchStatusCallBack(callback, user);
}

QXNET_API long QXNet_Loc_SetSearchStatusCallBack(fSearchDevStatusCallBack callback, void* user) {
  QXNET_CORE_OR_201
  return core->SDK_SetSearchStatusCallBack(callback, user);
}

QXNET_API long QXNet_StartSearchDev(void) {
  QXNET_CORE_OR_201
  return core->SDK_StartSearchIPC();
}

QXNET_API long QXNet_Loc_StartSearchIPC(void) {
  QXNET_CORE_OR_201
  return core->SDK_StartSearchIPC();
}

QXNET_API long QXNet_StopSearchDev(void) {
  QXNET_CORE_OR_201
  return core->SDK_StopSearchIPC();
}

QXNET_API long QXNet_Loc_StopSearchIPC(void) {
  QXNET_CORE_OR_201
  return core->SDK_StopSearchIPC();
}

QXNET_API long QXNet_GetSearchIPCCount(void) {
  QXNET_CORE_OR_201
  return core->SDK_GetSearchIPCCount();
}

QXNET_API long QXNet_Loc_GetSearchIPCCount(void) {
  QXNET_CORE_OR_201
  return core->SDK_GetSearchIPCCount();
}

QXNET_API long QXNet_GetOneIPAddress(char* buf, int len) {
  QXNET_CORE_OR_201
  return core->SDK_GetOneIPAddress(buf, len);
}

QXNET_API long QXNet_Loc_GetOneIPAddress(char* buf, int len) {
  QXNET_CORE_OR_201
  return core->SDK_GetOneIPAddress(buf, len);
}

// First-generation record: the core fills a whole record, the caller gets its first
// 4232 bytes.
QXNET_API long QXNet_GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* entry) {
  QXNET_CORE_OR_201
  if (!entry) return core->SDK_GetIPCInfo(index, nullptr);
  __NetSDK_IPC_ENTRYV2 full;
  std::memset(&full, 0, sizeof(full));
  long rc = core->SDK_GetIPCInfo(index, &full);
  CopyIpcEntryToV1(full, entry);
  return rc;
}

QXNET_API long QXNet_Loc_GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* entry) {
  QXNET_CORE_OR_201
  return core->SDK_GetIPCInfo(index, entry);
}

// The caller's first-generation record is read before the initialisation test: a
// whole record is built from its 4232 bytes, the rest zero. A null record reaches the
// core as null, which refuses it with its own log line.
QXNET_API long QXNet_ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry) {
  __NetSDK_IPC_ENTRYV2 full;
  WidenIpcEntryFromV1(entry, &full);
  QXNET_CORE_OR_201
  return core->SDK_ModifyIPC(index, entry ? &full : nullptr);
}

QXNET_API long QXNet_Loc_ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry) {
  QXNET_CORE_OR_201
  return core->SDK_ModifyIPC(index, entry);
}

QXNET_API long QXNet_RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry) {
  __NetSDK_IPC_ENTRYV2 full;
  WidenIpcEntryFromV1(entry, &full);
  QXNET_CORE_OR_201
  return core->SDK_RestoreIPC(index, entry ? &full : nullptr);
}

QXNET_API long QXNet_Loc_RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry) {
  QXNET_CORE_OR_201
  return core->SDK_RestoreIPC(index, entry);
}

QXNET_API long QXNet_Loc_GetIPCInfoXML(long index, char* buf, int len) {
  QXNET_CORE_OR_201
  return core->SDK_GetIPCInfoXML(index, buf, len);
}

QXNET_API long QXNet_Loc_ModifyIPCXML(long index, const char* xml) {
  QXNET_CORE_OR_201
  return core->SDK_ModifyIPCXML(index, xml);
}

QXNET_API long QXNet_Loc_GetNetworkParam(long index, char* buf, int len) {
  QXNET_CORE_OR_201
  return core->SDK_GetNetworkParam(index, buf, len);
}

// ---- sessions

QXNET_API long QXNet_LoginDev(char* ip, unsigned long port, char* user, char* password, int flag) {
  QXNET_CORE_OR_201
  return core->SDK_LoginDev(ip, port, user, password, nullptr, flag);
}

QXNET_API long QXNet_Loc_LoginDev(char* ip, unsigned long port, char* user, char* password,
                                  IP_NET_DVR_DEVICEINFO* info) {
  QXNET_CORE_OR_201
  return core->SDK_LoginDev(ip, port, user, password, info, 0);
}

QXNET_API long QXNet_LogOutDev(long loginId) {
  QXNET_CORE_OR_201
  return core->SDK_LogoutDev(loginId);
}

QXNET_API long QXNet_Loc_LogoutDev(long loginId) {
  QXNET_CORE_OR_201
  return core->SDK_LogoutDev(loginId);
}

QXNET_API long QXNet_SetStatusEventCallBack(fStatusEventCallBack callback, void* user) {
  QXNET_CORE_OR_201
  return core->SDK_SetStatusEventCallBack(callback, user);
}

QXNET_API long QXNet_Loc_SetStatusEventCallBack(fStatusEventCallBack callback, void* user) {
  QXNET_CORE_OR_201
  return core->SDK_SetStatusEventCallBack(callback, user);
}

QXNET_API long QXNet_SetAuxResponseCallBack(fAuxResponseCallBack callback, void* user) {
  QXNET_CORE_OR_201
  return core->SDK_SetAUXResponseCallBack(callback, user);
}

// ---- configuration and control

QXNET_API long QXNet_GetDevConfig(long loginId, unsigned long command) {
  QXNET_CORE_OR_201
  static char kEmpty[] = "";
  return core->SDK_GetDVRConfig(loginId, command, 0, kEmpty, 0, nullptr);
}

QXNET_API long QXNet_Loc_GetDVRConfig(long loginId, unsigned long command, long channel,
                                      void* outBuffer, unsigned long outSize,
                                      unsigned long* bytesReturned) {
  QXNET_CORE_OR_201
  return core->SDK_GetDVRConfig(loginId, command, channel, outBuffer, outSize, bytesReturned);
}

QXNET_API long QXNet_SetDevConfig(long loginId, unsigned long command, void* inBuffer) {
  QXNET_CORE_OR_201
  return core->SDK_SetDVRConfig(loginId, command, 0, inBuffer, 0);
}

QXNET_API long QXNet_Loc_SetDVRConfig(long loginId, unsigned long command, long channel,
                                      void* inBuffer, unsigned long inSize) {
  QXNET_CORE_OR_201
  return core->SDK_SetDVRConfig(loginId, command, channel, inBuffer, inSize);
}

QXNET_API long QXNet_SystemControl(long loginId, unsigned long command, char* param) {
  QXNET_CORE_OR_201
  return core->SDK_SystemControl(loginId, command, 0, param);
}

QXNET_API long QXNet_Loc_SystemControl(long loginId, unsigned long command,
                                       unsigned long subCommand, char* param) {
  QXNET_CORE_OR_201
  return core->SDK_SystemControl(loginId, command, subCommand, param);
}

QXNET_API long QXNet_Loc_WriteAUXStringEx(long loginId, char* type, unsigned long command,
                                          unsigned long result, char* body) {
  QXNET_CORE_OR_201
  return core->SDK_WriteAUXStringEx(loginId, type, command, result, body);
}

QXNET_API long QXNet_Loc_GetUserData(long loginId, char* buffer, int* length) {
  QXNET_CORE_OR_201
  return core->SDK_GetUserData(loginId, buffer, length);
}

QXNET_API long QXNet_Loc_SetUserData(long loginId, char* data, int length) {
  QXNET_CORE_OR_201
  return core->SDK_SetUserData(loginId, data, length);
}

QXNET_API long QXNet_Loc_RestoreConfig(long loginId) {
  QXNET_CORE_OR_201
  return core->SDK_RestoreConfig(loginId);
}

QXNET_API long QXNet_Loc_RebootDVR(long loginId) {
  QXNET_CORE_OR_201
  return core->SDK_RebootDVR(loginId);
}

// ---- upgrade and files

QXNET_API long QXNet_Loc_Upgrade(long loginId, const char* path) {
  QXNET_CORE_OR_201
  return core->SDK_Upgrade(loginId, const_cast<char*>(path));
}

QXNET_API long QXNet_Loc_UpgradeEx(long loginId, const wchar_t* path) {
  QXNET_CORE_OR_201
  return core->SDK_UpgradeEx(loginId, const_cast<wchar_t*>(path));
}

QXNET_API long QXNet_Loc_GetUpgradeProgress(long loginId) {
  QXNET_CORE_OR_201
  return core->SDK_GetUpgradeProgress(loginId);
}

QXNET_API long QXNet_Loc_GetUpgradeState(long loginId) {
  QXNET_CORE_OR_201
  return core->SDK_GetUpgradeState(loginId);
}

QXNET_API long QXNet_Loc_CloseUpgradeHandle(long loginId) {
  QXNET_CORE_OR_201
  return core->SDK_CloseUpgradeHandle(loginId);
}

QXNET_API long QXNet_Loc_GetConfigFile(long loginId, const char* path) {
  QXNET_CORE_OR_201
  return core->SDK_GetConfigFile(loginId, const_cast<char*>(path));
}

QXNET_API long QXNet_Loc_SetConfigFile(long loginId, const char* path) {
  QXNET_CORE_OR_201
  return core->SDK_SetConfigFile(loginId, const_cast<char*>(path));
}

// ---- recorder

QXNET_API long QXNet_SearchNVRRecByTime(long loginId, long channel, char* timeText) {
  QXNET_CORE_OR_201
  return core->SDK_SearchNVRRecByTime(loginId, channel, timeText);
}

QXNET_API long QXNet_Loc_SearchNVRRecByTime(long loginId, long channel, char* timeText) {
  QXNET_CORE_OR_201
  return core->SDK_SearchNVRRecByTime(loginId, channel, timeText);
}

QXNET_API long QXNet_NVRRecordDownload(long loginId, long channel, char* start, char* end,
                                       char* path) {
  QXNET_CORE_OR_201
  return core->SDK_NVRRecordDownload(loginId, channel, start, end, path);
}

QXNET_API long QXNet_Loc_NVRRecordDownload(long loginId, long channel, char* start, char* end,
                                           char* path) {
  QXNET_CORE_OR_201
  return core->SDK_NVRRecordDownload(loginId, channel, start, end, path);
}

QXNET_API long QXNet_Loc_NVRRecordDownloadStop(long loginId, long channel) {
  QXNET_CORE_OR_201
  return core->SDK_NVRRecordDownloadStop(loginId, channel);
}

QXNET_API long QXNet_Loc_NVRReplayByTime(long loginId, long channel, char* timeText) {
  QXNET_CORE_OR_201
  return core->SDK_NVRReplayByTime(loginId, channel, timeText);
}

QXNET_API long QXNet_Loc_ControlNVRReplay(long loginId, long channel, long action, long speed,
                                          char* timeText) {
  QXNET_CORE_OR_201
  return core->SDK_ControlNVRReplay(loginId, channel, action, speed, timeText);
}

QXNET_API long QXNet_Loc_SetReplayDataCallBack(fReplayDataCallBack callback, void* user) {
  mlogLevel(3, "QXNet_Loc_SetReplayDataCallBack \n");
  QXNET_CORE_OR_201
  return core->SDK_SetReplayDataCallBack(callback, user);
}

}  // extern "C"

// The five functions with C++ names: not in the export table, same -201 rule.
long QXNet_NVRRecordDownloadStop(long loginId, long channel) {
  QXNET_CORE_OR_201
  return core->SDK_NVRRecordDownloadStop(loginId, channel);
}

long QXNet_NVRReplayByTime(long loginId, long channel, char* timeText) {
  QXNET_CORE_OR_201
  return core->SDK_NVRReplayByTime(loginId, channel, timeText);
}

long QXNet_ControlNVRReplay(long loginId, long channel, long action, long speed, char* timeText) {
  QXNET_CORE_OR_201
  return core->SDK_ControlNVRReplay(loginId, channel, action, speed, timeText);
}

long QXNet_SetReplayDataCallBack(fReplayDataCallBack callback, void* user) {
  mlogLevel(3, "QXNet_SetReplayDataCallBack \n");
  QXNET_CORE_OR_201
  return core->SDK_SetReplayDataCallBack(callback, user);
}

long QXNet_SetPlayActionEventCallBack(fPlayActionEventCallBack callback, void* user) {
  QXNET_CORE_OR_201
  return core->SDK_SetPlayActionEventCallBack(callback, user);
}
