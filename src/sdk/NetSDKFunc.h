// The library's one core object: the device registry (login identifier -> session), the
// discovery engine, and the registries of application callbacks with their fan-out.
#ifndef QXNET_SDK_NETSDKFUNC_H
#define QXNET_SDK_NETSDKFUNC_H

#include <pthread.h>

#include <atomic>
#include <cwchar>
#include <map>
#include <memory>

#include "QXNetSDK.h"
#include "base/ThreadClass.h"
#include "sdk/SearchHostFacts.h"
#include "search/SearchIPC.h"
#include "session/SessionSink.h"

class CDevComControl;
typedef std::shared_ptr<CDevComControl> DevComPtr;

class CNetSDKFunc : public CThreadClass, public ISessionSink {
 public:
  CNetSDKFunc();
  ~CNetSDKFunc() override;

  int Thread() override;

  int SDK_Init();
  int SDK_InitEx(char* monitorIp);
  int SDK_Cleanup();

  // Registry.
  long SDK_LoginDev(char* ip, unsigned long port, char* user, char* password,
                    IP_NET_DVR_DEVICEINFO* info, int flag);
  long SDK_LogoutDev(long id);
  // The session under `id` (null on a miss); with `remove`, the entry leaves the registry
  // and the caller's reference is the last one the core gave up.
  DevComPtr FindDevComById(long id, bool remove);
  size_t DeviceCount();

  // Forwarding requests.
  long SDK_GetDVRConfig(long id, unsigned long cmd, long channel, void* out, unsigned long outSize,
                        unsigned long* returned);
  long SDK_SetDVRConfig(long id, unsigned long cmd, long channel, void* in, unsigned long inSize);
  long SDK_SystemControl(long id, unsigned long cmd, unsigned long sub, char* param);
  long SDK_WriteAUXStringEx(long id, char* type, unsigned long cmd, unsigned long result, char* body);
  long SDK_GetConfigFile(long id, char* path);
  long SDK_SetConfigFile(long id, char* path);
  long SDK_GetUserData(long id, char* buf, int* len);
  long SDK_SetUserData(long id, char* data, int len);
  long SDK_RestoreConfig(long id);
  long SDK_RebootDVR(long id);
  long SDK_Upgrade(long id, char* path);
  long SDK_UpgradeEx(long id, wchar_t* path);
  long SDK_GetUpgradeProgress(long id);
  long SDK_GetUpgradeState(long id);
  long SDK_CloseUpgradeHandle(long id);
  long SDK_SearchNVRRecByTime(long id, long channel, char* text);
  long SDK_NVRRecordDownload(long id, long channel, char* start, char* end, char* path);
  long SDK_NVRRecordDownloadStop(long id, long channel);
  long SDK_NVRReplayByTime(long id, long channel, char* text);
  long SDK_ControlNVRReplay(long id, long channel, long action, long speed, char* text);
  long SDK_SearchNvrRecByMonth(long id, long channel, char* date);

  // Discovery forwards.
  long SDK_SetSearchStatusCallBack(fSearchDevStatusCallBack cb, void* user);
  long SDK_StartSearchIPC();
  long SDK_StopSearchIPC();
  long SDK_GetSearchIPCCount();
  long SDK_GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* entry);
  long SDK_ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry);
  long SDK_GetIPCInfoXML(long index, char* buf, int len);
  long SDK_ModifyIPCXML(long index, const char* xml);
  long SDK_GetOneIPAddress(char* buf, int len);
  long SDK_GetNetworkParam(long index, char* buf, int len);
  long SDK_RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry);

  // Callback registration.
  long SDK_SetStatusEventCallBack(fStatusEventCallBack cb, void* user);
  long SDK_SetAUXResponseCallBack(fAuxResponseCallBack cb, void* user);
  long SDK_SetReplayDataCallBack(fReplayDataCallBack cb, void* user);
  long SDK_SetPlayActionEventCallBack(fPlayActionEventCallBack cb, void* user);

  // Fan-out, called by the sessions' workers.
  int OnPostDevStatusMsg(void* dev, int event, char* data) override;
  int OnPostAuxRspMsg(void* dev, unsigned int command, int channel, const char* xml) override;
  void OnFReplayMediaData(void* dev, unsigned long type, unsigned char* buffer, unsigned long length,
                          void* ext) override;
  long OnFRePlayEventCallBack(void* dev, long a, long b, char* text) override;

  // The auxiliary code: the channel (or the answer's result) folded into the top byte.
  static int32_t FoldAuxCode(unsigned int command, int channel);

  CSearchIPC& Search() { return m_search; }

 private:
  // Looks `id` up under the device lock and takes a reference: the session is used
  // outside the lock and lives until the last reference is gone, even when a logout
  // races with the call.
  DevComPtr Lookup(long id);

  pthread_mutex_t m_statusLock;
  pthread_mutex_t m_auxLock;
  pthread_mutex_t m_replayDispatchLock;
  pthread_mutex_t m_replayRegisterLock;
  pthread_mutex_t m_devLock;
  pthread_mutex_t m_spareLock1;
  pthread_mutex_t m_spareLock2;
  fPlayActionEventCallBack m_fPlayAction;
  void* m_pPlayActionUser;
  // Keyed by user pointer, ordered by its unsigned value.
  std::map<void*, fStatusEventCallBack> m_statusCallbacks;
  std::map<void*, fAuxResponseCallBack> m_auxCallbacks;
  std::map<void*, long (*)(long, char*, unsigned long, void*)> m_spareCallbacks;
  std::map<void*, fReplayDataCallBack> m_replayCallbacks;
  // Keyed by login identifier (the session's address; full-width compare on 64-bit hosts,
  // where the low 32 bits alone could collide).
  std::map<long, DevComPtr> m_devices;
  std::map<long, DevComPtr> m_spareDevices;
  int m_nSpare1;
  CSearchIPC m_search;
  CSearchHostFacts m_hostFacts;
  int m_nSocketStarted;
  // Written by every successful logout, and logouts come from any application thread.
  std::atomic<int> m_nLastLogout;
  int m_nSpare2;
};

#endif
