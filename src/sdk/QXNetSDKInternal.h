// Internals of the export layer, for tests: the process-wide settings and the five
// functions that carry C++ (type-decorated) names and are not exported.
#ifndef QXNET_SDK_QXNETSDKINTERNAL_H
#define QXNET_SDK_QXNETSDKINTERNAL_H

#include "QXNetSDK.h"
#include "base/Locker.h"

#include <atomic>

class CNetSDKFunc;

extern CLocker g_lock;
extern CNetSDKFunc* g_pInstance;
extern bool g_bInit;
extern int g_nInitCount;
extern int g_nNetType;
extern char g_szSvrDomian[512];
extern char g_szIpAddr[128];
extern int g_nSvrPort;
extern int g_nIPType;
extern std::atomic<int> g_nReconnect;
extern fSDKLogCallBack g_fSDKLog;
extern bool g_bForceSubStream;
extern bool g_bEnableVerifyPriData;
extern bool g_bLargeDevlist;
extern bool g_bCommProtocolByHttps;
extern bool g_bPcFree;
extern void* g_fMsgRspCallBack;

// Server host names by net type (stored only; nothing in the library reads them).
extern const char* const kDefaultSvrDomain;
const char* SvrDomainForNetType(int netType);

long QXNet_NVRRecordDownloadStop(long loginId, long channel);
long QXNet_NVRReplayByTime(long loginId, long channel, char* timeText);
long QXNet_ControlNVRReplay(long loginId, long channel, long action, long speed, char* timeText);
long QXNet_SetReplayDataCallBack(fReplayDataCallBack callback, void* user);
long QXNet_SetPlayActionEventCallBack(fPlayActionEventCallBack callback, void* user);

#endif
