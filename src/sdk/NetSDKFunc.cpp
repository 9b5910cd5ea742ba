#include "sdk/NetSDKFunc.h"

#include <cstring>

#include "base/FileOpen.h"
#include "base/FuncLog.h"
#include "base/SDKSocket.h"
#include "base/SessionBlock.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/DevComControl.h"
#include "session/Protocol.h"

CNetSDKFunc::CNetSDKFunc()
    : CThreadClass(nullptr, 1),
      m_fPlayAction(nullptr),
      m_pPlayActionUser(nullptr),
      m_nSpare1(0),
      m_nSocketStarted(0),
      m_nLastLogout(0),
      m_nSpare2(0) {
  pthread_mutex_init(&m_statusLock, nullptr);
  pthread_mutex_init(&m_auxLock, nullptr);
  pthread_mutex_init(&m_replayDispatchLock, nullptr);
  pthread_mutex_init(&m_replayRegisterLock, nullptr);
  pthread_mutex_init(&m_devLock, nullptr);
  pthread_mutex_init(&m_spareLock1, nullptr);
  pthread_mutex_init(&m_spareLock2, nullptr);
}

CNetSDKFunc::~CNetSDKFunc() {
  Kill(-1);
  SDK_Cleanup();
  m_statusCallbacks.clear();
  m_auxCallbacks.clear();
  m_spareCallbacks.clear();
  m_replayCallbacks.clear();
  m_spareDevices.clear();
  pthread_mutex_destroy(&m_statusLock);
  pthread_mutex_destroy(&m_auxLock);
  pthread_mutex_destroy(&m_replayDispatchLock);
  pthread_mutex_destroy(&m_replayRegisterLock);
  pthread_mutex_destroy(&m_devLock);
  pthread_mutex_destroy(&m_spareLock1);
  pthread_mutex_destroy(&m_spareLock2);
}

int CNetSDKFunc::Thread() {
  fLog(0, "CRTSPObjectList::Thread(): CheckRtspConnect enter main loop....");
  fLog(0, "CNetSDKFunc::Thread(): CheckRtspConnect exit main loop!");
  return 0;
}

int CNetSDKFunc::SDK_Init() {
  if (m_nSocketStarted == 0) WSAStartup(0x0202, nullptr);
  if (!IsRunning()) Start(0);
  fLog(0, "[SDK_Init] Netsdk init success!\n");
  return 0;
}

int CNetSDKFunc::SDK_InitEx(char* monitorIp) {
  SDK_Init();
  fLog(0, "[SDK_Init] Netsdk initex success, monitorip=%s \n", monitorIp ? monitorIp : "(null)");
  return 0;
}

int CNetSDKFunc::SDK_Cleanup() {
  fLog(0, "[SDK_Cleanup] Netsdk cleanup!\n");
  // The sessions leave the registry under the lock and are stopped outside it, as in
  // SDK_LogoutDev: a worker may be inside an application callback that makes a request
  // (a lookup under this lock); holding the lock while waiting for that worker would
  // never end. Such a late request now finds no session and gets -103.
  std::map<long, DevComPtr> sessions;
  {
    CMutexGuard guard(&m_devLock);
    sessions.swap(m_devices);
  }
  // Every worker is asked to stop first and all of them wind down at once; the waits
  // below then find them ended: stopping many takes about as long as stopping one.
  for (auto& kv : sessions)
    if (kv.second) kv.second->RequestStop();
  for (auto& kv : sessions)
    if (kv.second) kv.second->LogoutDev();
  // Freed only once every worker has ended: an unmap while none of this process's threads
  // runs on another core needs no TLB shootdown, and costs a third as much.
  sessions.clear();
  CSessionBlock::ReleaseParked();
  if (m_nSocketStarted) {
    WSACleanup();
    m_nSocketStarted = 0;
  }
  Kill(-1);
  return 0;
}

size_t CNetSDKFunc::DeviceCount() {
  CMutexGuard guard(&m_devLock);
  return m_devices.size();
}

long CNetSDKFunc::SDK_LoginDev(char* ip, unsigned long port, char* user, char* password,
                               IP_NET_DVR_DEVICEINFO* /*info*/, int flag) {
  fLog(0, "[SDK_LoginDev] Begin login dev=%s \n", ip ? ip : "(null)");
  // Port 0 and 65535 are refused (the unsigned test port - 1 > 65533). Fields are 32
  // bytes: a longer address, user name or password is refused rather than cut, since a
  // cut one would name another host or fail authentication in silence.
  bool bad = (port - 1 > 65533UL) || ip == nullptr || std::strlen(ip) > 31 ||
             (user && std::strlen(user) > 31) || (password && std::strlen(password) > 31);
  if (bad) {
    fLog(0, "[SDK_LoginDev] Dev=%s login refused, input parameter invalid \n", ip ? ip : "(null)");
    return 0;
  }
  DevComPtr dev = std::make_shared<CDevComControl>(this, &g_nReconnect);
  long key = reinterpret_cast<long>(dev.get());
  // Registered before its worker starts: on loopback the device can answer before this
  // call returns, and a callback of the new session must already find it.
  {
    CMutexGuard guard(&m_devLock);
    m_devices[key] = dev;
  }
  if (flag == 0) {
    int rc = dev->LoginDev(ip, static_cast<unsigned int>(port), user ? user : "",
                           password ? password : "", 1);
    if (rc != 0) {
      CMutexGuard guard(&m_devLock);
      m_devices.erase(key);
      return rc;
    }
  }
  return key;
}

DevComPtr CNetSDKFunc::FindDevComById(long id, bool remove) {
  CMutexGuard guard(&m_devLock);
  auto it = m_devices.find(id);
  if (it == m_devices.end()) return nullptr;
  DevComPtr dev = it->second;
  if (remove) m_devices.erase(it);
  return dev;
}

DevComPtr CNetSDKFunc::Lookup(long id) {
  CMutexGuard guard(&m_devLock);
  auto it = m_devices.find(id);
  return it == m_devices.end() ? nullptr : it->second;
}

long CNetSDKFunc::SDK_LogoutDev(long id) {
  DevComPtr dev;
  {
    CMutexGuard guard(&m_devLock);
    auto it = m_devices.find(id);
    if (it != m_devices.end()) {
      // From the session's own callback the logout would wait for its own worker
      // forever: refused, the session stays registered.
      if (it->second && it->second->OnWorkerThread()) {
        fLog(0, "[SDK_LogoutDev] Logout refused, dev id=%ld called from its own callback \n", id);
        return QXNET_E_BAD_ARG;
      }
      dev = it->second;
      m_devices.erase(it);
    }
  }
  if (!dev) {
    fLog(0, "[SDK_LogoutDev] Logout refused, find dev by id=%ld failed \n", id);
    return QXNET_E_NO_DEVICE;
  }
  fLog(0, "[SDK_LogoutDev] Begin logout dev=%s \n", dev->DevAddr());
  dev->LogoutDev();
  dev.reset();
  m_nLastLogout = 0;
  return 0;
}

// Forwarding: a miss logs the refusal with the identifier and returns -103; a hit logs
// the success text (where there is one) with the session's device address.
#define QXNET_FORWARD_QUIET(ID, REFUSETEXT, CALL) \
  DevComPtr dev = Lookup(ID);                     \
  if (!dev) {                                     \
    fLog(0, REFUSETEXT, (ID));                    \
    return QXNET_E_NO_DEVICE;                     \
  }                                               \
  return dev->CALL;

#define QXNET_FORWARD(ID, OKTEXT, REFUSETEXT, CALL) \
  DevComPtr dev = Lookup(ID);                       \
  if (!dev) {                                       \
    fLog(0, REFUSETEXT, (ID));                      \
    return QXNET_E_NO_DEVICE;                       \
  }                                                 \
  fLog(0, OKTEXT, dev->DevAddr());                  \
  return dev->CALL;

long CNetSDKFunc::SDK_GetDVRConfig(long id, unsigned long cmd, long channel, void* out,
                                   unsigned long outSize, unsigned long* /*returned*/) {
  QXNET_FORWARD(id, "[SDK_GetDVRConfig] Get device config, dev=%s",
                "[SDK_GetDVRConfig] Get device config refused, find dev by id=%ld failed \n",
                GetDVRConfig(cmd, channel, out, outSize));
}

long CNetSDKFunc::SDK_SetDVRConfig(long id, unsigned long cmd, long channel, void* in,
                                   unsigned long inSize) {
  QXNET_FORWARD(id, "[SDK_SetDVRConfig] Set device config, dev=%s",
                "[SDK_SetDVRConfig] Set device config refused, find dev by id=%ld failed \n",
                SetDVRConfig(cmd, channel, in, inSize));
}

long CNetSDKFunc::SDK_SystemControl(long id, unsigned long cmd, unsigned long sub, char* param) {
  QXNET_FORWARD(id, "[SDK_SystemControl] System control, dev=%s \n",
                "[SDK_SystemControl] System control refused, find dev by id=%ld failed \n",
                SystemControl(cmd, sub, param));
}

long CNetSDKFunc::SDK_WriteAUXStringEx(long id, char* type, unsigned long cmd, unsigned long result,
                                       char* body) {
  QXNET_FORWARD(id, "[SDK_WriteAUXStringEx] WriteAUXStringEx, dev=%s \n",
                "[SDK_WriteAUXStringEx] WriteAUXStringEx refused, find dev by id=%ld failed \n",
                WriteAUXStringEx(type, cmd, result, body));
}

long CNetSDKFunc::SDK_GetConfigFile(long id, char* path) {
  QXNET_FORWARD(id, "[SDK_GetConfigFile] Get config file, dev=%s \n",
                "[SDK_GetConfigFile] Get config file failed, find dev id=%ld failed \n",
                GetConfigFile(path));
}

long CNetSDKFunc::SDK_SetConfigFile(long id, char* path) {
  QXNET_FORWARD(id, "[SDK_SetConfigFile] Set config file, dev=%s \n",
                "[SDK_SetConfigFile] Set config file failed, find dev id=%ld failed \n",
                SetConfigFile(path));
}

long CNetSDKFunc::SDK_GetUserData(long id, char* buf, int* len) {
  QXNET_FORWARD(id, "[SDK_GetUserData] GetUserData, dev=%s \n",
                "[SDK_GetUserData] GetUserData refused, find dev id=%ld failed \n",
                GetUserData(buf, len));
}

long CNetSDKFunc::SDK_SetUserData(long id, char* data, int len) {
  QXNET_FORWARD(id, "[SDK_SetUserData] SetUserData, dev=%s \n",
                "[SDK_SetUserData] SetUserData refused, find dev id=%ld failed \n",
                SetUserData(data, len));
}

long CNetSDKFunc::SDK_RestoreConfig(long id) {
  QXNET_FORWARD(id, "[SDK_RestoreConfig] RestoreConfig, dev=%s \n",
                "[SDK_RestoreConfig] RestoreConfig refused, find dev id=%ld failed \n",
                SystemControl(proto::kCmdRestoreConfig, 0, ""));
}

long CNetSDKFunc::SDK_RebootDVR(long id) {
  QXNET_FORWARD(id, "[SDK_RebootDVR] RebootDVR, dev=%s \n",
                "[SDK_RebootDVR] RebootDVR refused, find dev id=%ld failed \n",
                SystemControl(proto::kCmdReboot, 0, ""));
}

long CNetSDKFunc::SDK_Upgrade(long id, char* path) {
  if (!path) {
    fLog(0, "[SDK_Upgrade] Upgrade refused, file is null \n");
    return QXNET_E_FILE;
  }
  // "rb+": a firmware file must be writable as well as readable.
  FILE* f = OpenFile(path, "rb+");
  if (!f) {
    fLog(0, "[SDK_Upgrade] Upgrade refused, error file=%s \n", path);
    return QXNET_E_FILE;
  }
  std::fclose(f);
  QXNET_FORWARD(id, "[SDK_Upgrade] Upgrade, dev=%s \n",
                "[SDK_Upgrade] Upgrade refused, find dev id=%ld failed \n", UploadFile(1, path));
}

long CNetSDKFunc::SDK_UpgradeEx(long id, wchar_t* path) {
  if (!path) {
    fLog(0, "[SDK_UpgradeEx] Upgrade refused, file is null \n");
    return QXNET_E_FILE;
  }
  FILE* f = OpenWideFile(path, "rb");
  if (!f) {
    std::string narrow;
    WideToUtf8(path, narrow);
    fLog(0, "[SDK_UpgradeEx] Upgrade refused, error file=%s \n", narrow.c_str());
    return QXNET_E_FILE;
  }
  std::fclose(f);
  QXNET_FORWARD(id, "[SDK_UpgradeEx] Upgrade, dev=%s \n",
                "[SDK_UpgradeEx] Upgrade refused, find dev id=%ld failed \n", UploadFileEx(1, path));
}

long CNetSDKFunc::SDK_GetUpgradeProgress(long id) {
  QXNET_FORWARD_QUIET(id,
                "[SDK_GetUpgradeProgress] Get upgrade progress refused, find dev id=%ld failed \n",
                GetUploadProgress());
}

long CNetSDKFunc::SDK_GetUpgradeState(long id) {
  QXNET_FORWARD_QUIET(id,
                "[SDK_GetUpgradeState] Get upgrade state refused, find dev id=%ld failed \n",
                GetUploadState());
}

long CNetSDKFunc::SDK_CloseUpgradeHandle(long id) {
  QXNET_FORWARD_QUIET(id,
                "[SDK_CloseUpgradeHandle] Close upgrade handle refused, find dev id=%ld failed \n",
                CloseUploadHandle());
}

long CNetSDKFunc::SDK_SearchNVRRecByTime(long id, long channel, char* text) {
  QXNET_FORWARD_QUIET(id,
                "[SDK_SearchNVRRecByTime] NVR record search failed, find dev id=%ld failed \n",
                SearchNVRRecByTime(static_cast<unsigned int>(channel), text));
}

// The refusal texts of the download start and stop are each other's words; devices'
// log parsers in the field match them as they stand.
long CNetSDKFunc::SDK_NVRRecordDownload(long id, long channel, char* start, char* end, char* path) {
  QXNET_FORWARD_QUIET(id,
                "[SDK_NVRRecordDownload] Stop NVR record download failed, find dev id=%ld failed \n",
                NVRRecordDownload(channel, start, end, path));
}

long CNetSDKFunc::SDK_NVRRecordDownloadStop(long id, long channel) {
  QXNET_FORWARD_QUIET(id,
                "[SDK_NVRRecordDownloadStop] Search NVR record failed, find dev id=%ld failed \n",
                NVRRecordDownloadStop(channel));
}

long CNetSDKFunc::SDK_NVRReplayByTime(long id, long channel, char* text) {
  QXNET_FORWARD_QUIET(id, "[SDK_NVRReplayByTime] NVR replay failed, find dev id=%ld failed \n",
                NVRReplayByTime(static_cast<unsigned int>(channel), text));
}

long CNetSDKFunc::SDK_ControlNVRReplay(long id, long channel, long action, long speed, char* text) {
  QXNET_FORWARD_QUIET(id,
                "[SDK_ControlNVRReplay] Control NVR replay failed, find dev id=%ld failed \n",
                ControlNVRReplay(static_cast<unsigned int>(channel), static_cast<unsigned int>(action),
                                 static_cast<unsigned int>(speed), text));
}

long CNetSDKFunc::SDK_SearchNvrRecByMonth(long id, long channel, char* date) {
  QXNET_FORWARD_QUIET(id, "[SDK_SearchNvrRecByMonth] failed, find dev id=%ld failed \n",
                SearchNvrRecByMonth(channel, date));
}

#undef QXNET_FORWARD
#undef QXNET_FORWARD_QUIET

long CNetSDKFunc::SDK_SetSearchStatusCallBack(fSearchDevStatusCallBack cb, void* user) {
  fLog(0, "[SDK_SetSearchStatusCallBack] Set search device callback \n");
  return m_search.SetSearchStatusCallBack(cb, user);
}

long CNetSDKFunc::SDK_StartSearchIPC() {
  fLog(0, "[SDK_StartSearchIPC] Start search device \n");
  return m_search.StartSearch();
}

long CNetSDKFunc::SDK_StopSearchIPC() {
  fLog(0, "[SDK_StopSearchIPC] Stop search device \n");
  return m_search.StopSearch();
}

long CNetSDKFunc::SDK_GetSearchIPCCount() {
  fLog(0, "[SDK_GetSearchIPCCount] Get search ipc count \n");
  return m_search.GetIPCCount();
}

long CNetSDKFunc::SDK_GetIPCInfo(long index, __NetSDK_IPC_ENTRYV2* entry) {
  fLog(0, "[SDK_GetIPCInfo] Get search ipc info \n");
  return m_search.GetIPCInfo(index, entry);
}

long CNetSDKFunc::SDK_ModifyIPC(long index, __NetSDK_IPC_ENTRYV2* entry) {
  fLog(0, "[SDK_ModifyIPC] Modify ipc by ipc_entry \n");
  return m_search.ModifyIPC(index, entry);
}

long CNetSDKFunc::SDK_GetIPCInfoXML(long index, char* buf, int len) {
  fLog(0, "[SDK_GetIPCInfoXML] Get search ipc xml info \n");
  return m_search.GetIPCInfoXML(index, buf, len);
}

long CNetSDKFunc::SDK_ModifyIPCXML(long index, const char* xml) {
  fLog(0, "[SDK_ModifyIPCXML] Modify ipc by xml \n");
  return m_search.ModifyIPCXML(index, xml);
}

long CNetSDKFunc::SDK_GetOneIPAddress(char* buf, int len) {
  fLog(0, "[SDK_GetOneIPAddress] Get one ipc address \n");
  return m_hostFacts.GetOneIPAddress(m_search, buf, len);
}

long CNetSDKFunc::SDK_GetNetworkParam(long index, char* buf, int len) {
  fLog(0, "[SDK_GetNetworkParam] Get network param \n");
  return m_hostFacts.GetNetworkParam(index, buf, len);
}

long CNetSDKFunc::SDK_RestoreIPC(long index, __NetSDK_IPC_ENTRYV2* entry) {
  fLog(0, "[SDK_RestoreIPC] Restore ipc \n");
  return m_search.RestoreIPC(index, entry);
}

long CNetSDKFunc::SDK_SetStatusEventCallBack(fStatusEventCallBack cb, void* user) {
  fLog(0, "[SDK_SetStatusEventCallBack] Set status event callback \n");
  if (!user) return QXNET_E_BAD_INDEX;
  CMutexGuard guard(&m_statusLock);
  if (cb)
    m_statusCallbacks[user] = cb;
  else
    m_statusCallbacks.erase(user);
  return 0;
}

long CNetSDKFunc::SDK_SetAUXResponseCallBack(fAuxResponseCallBack cb, void* user) {
  fLog(0, "[SDK_SetAUXResponseCallBack] Set aux response callback \n");
  if (!user) return QXNET_E_BAD_INDEX;
  CMutexGuard guard(&m_auxLock);
  if (cb)
    m_auxCallbacks[user] = cb;
  else
    m_auxCallbacks.erase(user);
  return 0;
}

long CNetSDKFunc::SDK_SetReplayDataCallBack(fReplayDataCallBack cb, void* user) {
  CMutexGuard guard(&m_replayRegisterLock);
  if (cb)
    m_replayCallbacks[user] = cb;
  else
    m_replayCallbacks.erase(user);
  return 0;
}

long CNetSDKFunc::SDK_SetPlayActionEventCallBack(fPlayActionEventCallBack cb, void* user) {
  m_fPlayAction = cb;
  m_pPlayActionUser = user;
  return 0;
}

int CNetSDKFunc::OnPostDevStatusMsg(void* dev, int event, char* data) {
  // An alarm item whose own alarm code is 24 is not passed on.
  if (event == QXNET_EV_ALARM && data) {
    int32_t code;
    std::memcpy(&code, data + 28, sizeof(code));
    if (code == 24) return 0;
  }
  CMutexGuard guard(&m_statusLock);
  for (auto& kv : m_statusCallbacks)
    if (kv.second) kv.second(reinterpret_cast<long>(dev), event, data, kv.first);
  return 0;
}

int32_t CNetSDKFunc::FoldAuxCode(unsigned int command, int channel) {
  uint32_t code;
  if (channel > 0)
    code = (command & 0x00FFFFFFu) | (static_cast<uint32_t>(channel) << 24);
  else if (channel < 0)
    code = command + (static_cast<uint32_t>(channel) << 24);
  else
    code = command;
  return static_cast<int32_t>(code);
}

int CNetSDKFunc::OnPostAuxRspMsg(void* dev, unsigned int command, int channel, const char* xml) {
  // The code is a 32-bit value handed on sign-extended, so a negative flag folded into
  // the top byte reads as a negative code.
  long code = FoldAuxCode(command, channel);
  CMutexGuard guard(&m_auxLock);
  for (auto& kv : m_auxCallbacks)
    if (kv.second) kv.second(reinterpret_cast<long>(dev), code, const_cast<char*>(xml), kv.first);
  return 0;
}

void CNetSDKFunc::OnFReplayMediaData(void* dev, unsigned long type, unsigned char* buffer,
                                     unsigned long length, void* ext) {
  CMutexGuard guard(&m_replayDispatchLock);
  for (auto& kv : m_replayCallbacks) {
    if (!kv.second) continue;
    if (ext) {
      FRAME_EXTDATA* e = static_cast<FRAME_EXTDATA*>(ext);
      uint64_t u = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(kv.first));
      e->dwUser = static_cast<uint32_t>(u);
      e->dwUserHigh = static_cast<uint32_t>(u >> 32);
    }
    kv.second(reinterpret_cast<long>(dev), type, buffer, length, static_cast<FRAME_EXTDATA*>(ext));
  }
}

long CNetSDKFunc::OnFRePlayEventCallBack(void* dev, long a, long b, char* text) {
  fPlayActionEventCallBack cb = m_fPlayAction;
  if (!cb) return -1;
  cb(reinterpret_cast<long>(dev), a, b, text, m_pPlayActionUser);
  return 0;
}
