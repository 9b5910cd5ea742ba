// Session lifecycle: construction, login and logout, connect, authentication and
// heartbeat. The worker loop is in DevComWorker.cpp.
#include <errno.h>

#include <cstdlib>
#include <cstring>

#include "base/FuncLog.h"
#include "base/LazyBuffer.h"
#include "base/SDKLog.h"
#include "base/SDKSocket.h"
#include "base/SDKThread.h"
#include "session/DevComControl.h"
#include "session/FileRecver.h"
#include "xml/xmlutil.h"
#include "session/Protocol.h"

namespace {
const size_t kWorkerStack = 0x80000;
// The thread library keeps a thread's static TLS and its descriptor at the top of a stack
// it is given: the block's stack has room for them beyond the worker's 512 KiB. Pages
// never touched cost nothing.
const size_t kBlockStack = kWorkerStack + 0x10000;

void CopyField(char* dst, size_t size, const char* src) {
  std::memset(dst, 0, size);
  if (src) std::memcpy(dst, src, strnlen(src, size - 1));
}
}  // namespace

CDevComControl::CDevComControl(ISessionSink* sink, const std::atomic<int>* autoReconnect)
    : m_nPort(0),
      m_nDevStatus(NETSDK_DEV_STATUS_NONE),
      m_bThreadRun(false),
      m_pSink(sink),
      m_pIo(&ISessionIo::Default()),
      m_pAutoReconnect(autoReconnect),
      m_bThreadExited(true),
      m_bWorkerTurns(false),
      m_bKnownReadable(false),
      m_bHeartbeatFailed(false),
      m_nHeartbeatFailTick(0),
      m_nLastUploadTurnUs(0),
      m_workerId(0),
      m_nFailCount(0),
      m_nLastAuthTick(0),
      m_nLastHeartbeat(0),
      m_iSockFd(-1),
      m_nChannel(0),
      m_worker{0, false},
      m_pRecvBuf(nullptr),
      m_pWorkBuf(nullptr),
      m_nRecvLen(0),
      m_nSendCount(0),
      m_bSerialStarted(false),
      m_nFrontReplay(-1),
      m_nIdle(1),
      m_pCurMsg(nullptr),
      m_nCurChannel(0),
      m_nReplayMode(0),
      m_replay([this](unsigned long type, unsigned char* data, unsigned long length, FRAME_EXTDATA* ext) {
        if (m_pSink) m_pSink->OnFReplayMediaData(this, type, data, length, ext);
      }),
      m_nvrDownload(this),
      m_writerFactory(DefaultWriterFactory()) {
  std::memset(m_szReplayFile, 0, sizeof(m_szReplayFile));
  std::memset(m_szDevAddr, 0, sizeof(m_szDevAddr));
  std::memset(m_szUser, 0, sizeof(m_szUser));
  std::memset(m_szPassword, 0, sizeof(m_szPassword));
  m_upload.Reset();
  pthread_mutex_init(&m_sendLock, nullptr);
  // Recursive, as the critical section it replaces was. The transfer code never holds it
  // across a send or a status event, so callbacks may call back into the session freely.
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&m_opLock, &attr);
  pthread_mutexattr_destroy(&attr);
  InitDevCom();
}

CDevComControl::~CDevComControl() {
  // Normally joined by the logout already; the block holds the worker's stack, so it
  // must not go while the worker runs.
  if (m_worker.valid) {
    RequestStop();
    JoinWorker();
  }
  CloseSocktFd();
  {
    CMutexGuard guard(&m_sendLock);
    for (NetSDKSendData_t& item : m_sendList) delete[] item.data;
    m_sendList.clear();
    m_nSendCount = 0;
  }
  if (m_upload.file) std::fclose(m_upload.file);
  if (m_portDownload.tempFile) std::fclose(m_portDownload.tempFile);
  delete m_cfgDownload.recver;
  if (!m_block.Held()) {
    FreeLazyBuffer(m_pRecvBuf, QXNET_RECV_BUF_SIZE);
    FreeLazyBuffer(m_pWorkBuf, QXNET_WORK_BUF_SIZE);
  }
  // The worker has ended (a block whose thread could not be joined was released above),
  // so nothing uses the block: the next logout unmaps it while it waits for its worker.
  m_pRecvBuf = m_pWorkBuf = nullptr;
  m_block.Park();
  pthread_mutex_destroy(&m_sendLock);
  pthread_mutex_destroy(&m_opLock);
}

int CDevComControl::InitDevCom() {
  // Pages become resident only as frames use them, which keeps idle sessions cheap.
  if (!m_pRecvBuf && !m_pWorkBuf &&
      m_block.Alloc(kBlockStack, QXNET_RECV_BUF_SIZE, QXNET_WORK_BUF_SIZE, CRecvAhead::kCapacity)) {
    m_pRecvBuf = m_block.RecvBuf();
    m_pWorkBuf = m_block.WorkBuf();
    m_ahead.UseRoom(m_block.AheadBuf());
  }
  if (!m_pRecvBuf) m_pRecvBuf = AllocLazyBuffer(QXNET_RECV_BUF_SIZE);
  if (!m_pWorkBuf) m_pWorkBuf = AllocLazyBuffer(QXNET_WORK_BUF_SIZE);
  return 0;
}

int CDevComControl::LoginDev(const char* ip, unsigned int port, const char* user, const char* password,
                             unsigned int /*unused*/) {
  CopyField(m_szDevAddr, sizeof(m_szDevAddr), ip);
  CopyField(m_szUser, sizeof(m_szUser), user);
  CopyField(m_szPassword, sizeof(m_szPassword), password);
  m_nPort = port;
  char key[64];
  std::snprintf(key, sizeof(key), "%s:%d", m_szDevAddr, static_cast<int>(port));
  m_strDevKey = key;
  // Marked running before the thread exists, so that a logout that comes before the
  // thread's first instruction still waits for it instead of freeing the session under it.
  m_bThreadExited = false;
  m_bThreadRun = true;
  if (StartWorker() != 0) {
    m_bThreadRun = false;
    MarkThreadExited();
    fLog(0, "[LoginDev] task spawn DevComControl failed \n");
    return QXNET_E_SPAWN;
  }
  return 0;
}

int CDevComControl::StartWorker() {
  // A worker from an earlier login must be gone before another runs on its stack.
  if (m_worker.valid) JoinWorker();
  if (m_block.Held() && SDKThreadStartOnStack(&CDevComControl::ThreadFunc, m_block.StackLow(),
                                              m_block.StackSize(), this, &m_worker) == 0)
    return 0;
  // A stack the thread library cannot use (a sanitizer's runtime wants far more room for
  // its thread data than the block holds): the library's own stack then, as before.
  return SDKThreadStart(&CDevComControl::ThreadFunc, kWorkerStack, this, &m_worker);
}

void CDevComControl::JoinWorker() {
  if (!m_worker.valid) return;
  if (SDKThreadIsCurrent(m_worker)) {
    // The last reference dropped on the worker itself (cannot join itself): the thread
    // is let go and its block kept, since the thread still runs on it.
    SDKThreadDetach(&m_worker);
    if (m_block.Held()) {
      m_block.Release();
      m_pRecvBuf = m_pWorkBuf = nullptr;
    }
    return;
  }
  SDKThreadJoin(&m_worker);
}

void CDevComControl::RequestStop() {
  m_bThreadRun = false;
  m_wake.Signal();
}

int CDevComControl::LogoutDev() {
  RequestStop();
  // The worker now closes with the device, a round trip this thread only waits for: the
  // block a previous logout left parked is unmapped in that time instead of on its own.
  CSessionBlock::ReleaseParked();
  if (m_worker.valid) {
    // The join is the wait (the worker marks its exit before it returns): one wake-up of
    // the caller instead of two, and the worker's stack may be unmapped right after.
    JoinWorker();
  } else {
    std::unique_lock<std::mutex> lock(m_exitMutex);
    m_exitCond.wait(lock, [this] { return m_bThreadExited.load(); });
  }
  fLog(3, "[LogoutDev] dev=%s logout success \n", m_szDevAddr);
  CloseSocktFd();
  return 0;
}

void CDevComControl::ThreadFunc(void* self) {
  if (!self) {
    fLog(0, "[CDevComControl] thread error, pDevCom is null ");
    return;
  }
  CDevComControl* dev = static_cast<CDevComControl*>(self);
  fLog(0, "CDevComControl start thread ,this=%p", self);
  dev->m_bThreadExited = false;
  dev->m_workerId = static_cast<unsigned long>(pthread_self());
  dev->ThreadProc();
  dev->m_bThreadRun = false;
  dev->m_workerId = 0;
  // Logged before the exit is marked: once a waiting logout returns, the application may
  // tear down what its log callback uses (or free the library), so the thread must not
  // reach the log any more.
  fLog(0, "CDevComControl exit thread loop %p", self);
  // Last touch of the object: a waiting logout may free it from here on.
  dev->MarkThreadExited();
}


// The socket options of a session, in their order, with the failure text of each. The
// receive buffer is 1 MiB although its failure text speaks of 128k; both as they are.
// Keepalive and the user timeout come last: a device that vanishes without closing
// (power lost, cable pulled) leaves heartbeats unacknowledged, and the connection then
// ends after about 30 s and is made again as after any failure.
namespace {
struct SessionOption {
  QXSocketOption option;
  int value;
  const char* failText;
};
const SessionOption kSessionOptions[] = {
    {QXSO_REUSEADDR, 1, "[Connect] fail to setsocko SO_REUSEADDR : %s \n"},
    {QXSO_RCVBUF, 0x100000, "[Connect] fail to set recv buffer to 128k: %s \n"},
    {QXSO_SNDBUF, 0x20000, "[Connect] fail to set send buffer to 128k: %s \n"},
    {QXSO_LINGER, 0, "[Connect] fail to setsockt SO_LINGER : %s \n"},
    {QXSO_NODELAY, 1, "[Connect] fail to setsockt TCP_NODELAY : %s \n"},
    {QXSO_KEEPALIVE, 10, "[Connect] fail to set keepalive : %s \n"},
    {QXSO_USER_TIMEOUT, 30000, "[Connect] fail to set user timeout : %s \n"},
};
const int kConnectAttempts = 30;
const uint32_t kConnectWaitMs = 1100;
}  // namespace

bool CDevComControl::OpenConfiguredSocket() {
  int sock = CreateTcpSocket();
  if (sock < 0) {
    fLog(0, "[Connect] fail to create socket : %s \n", strerror(errno));
    return false;
  }
  fLog(0, "[Connect] success to create socket, new fd = %d \n", sock);
  m_ahead.Clear();  // bytes of an earlier connection are not this one's
  m_iSockFd = sock;
  for (const SessionOption& o : kSessionOptions) {
    if (SetSocketOption(sock, o.option, o.value) != 0) {
      fLog(0, o.failText, strerror(errno));
      CloseSocketWithEvent();
      return false;
    }
  }
  return true;
}

// A dotted address (in any form inet_aton takes) is used as written; a host name is
// resolved and its dotted address replaces the name in the address field.
bool CDevComControl::ResolveDeviceAddress(uint32_t* ip) {
  if (ParseIPv4(m_szDevAddr, ip)) return true;
  if (ResolveIPv4(m_szDevAddr, ip) != 0) return false;
  char dotted[32];
  const uint8_t* b = reinterpret_cast<const uint8_t*>(ip);
  std::snprintf(dotted, sizeof(dotted), "%d.%d.%d.%d", b[0], b[1], b[2], b[3]);
  fLog(0, "[Connect] host[%s] = ip[%s] \n", m_szDevAddr, dotted);
  CopyField(m_szDevAddr, sizeof(m_szDevAddr), dotted);
  return true;
}

// Up to 30 attempts of 1.1 s each, then a 100 ms pause. A refused or failed connect is
// not reported by the writability wait, so its attempts run to their timeout. A stop
// ends the wait at once.
bool CDevComControl::WaitConnected(int sock, bool haveAddr) {
  for (int attempt = 0; attempt < kConnectAttempts; ++attempt) {
    if (!m_bThreadRun) return false;
    uint32_t t0 = GetTickCount();
    for (;;) {
      uint32_t spent = GetTickCount() - t0;
      if (!m_bThreadRun || spent >= kConnectWaitMs) break;
      int left = static_cast<int>(kConnectWaitMs - spent);
      int r = haveAddr ? PollConnectWake(sock, m_wake.Fd(), left) : -1;
      if (r == 1) return true;
      if (r == 2) m_wake.Drain();        // a request queued or a stop: look at the flag
      if (r < 0) m_wake.Wait(left);      // failed: the attempt still runs to its end
    }
    SleepThread(100, 100);
  }
  return false;
}

bool CDevComControl::FinishConnect(int sock) {
  if (SetSocketNoBlock(sock, 0) != 0) {
    fLog(0, "[Connect] fail to set block socket : %s \n", strerror(errno));
    CloseSocketWithEvent();
    return false;
  }
  char text[128];
  std::snprintf(text, sizeof(text), "device[%s] connect socket OK! \n", m_szDevAddr);
  PostStatus(QXNET_EV_CONNECTED, text);
  m_nDevStatus = NETSDK_DEV_STATUS_CONNECTED;
  fLog(0, "[Connect] create socket fd[%d] connect devIP[%s] devPort[%d] success! \n", sock, m_szDevAddr,
       static_cast<int>(m_nPort));
  return true;
}

int CDevComControl::Connect() {
  if (m_iSockFd >= 0) {
    CloseSocketWithEvent();
    m_nFailCount = 0;
  }
  if (!OpenConfiguredSocket()) return -1;
  int sock = m_iSockFd;
  uint32_t ip = 0;
  bool haveAddr = ResolveDeviceAddress(&ip);
  if (SetSocketNoBlock(sock, 1) != 0) {
    fLog(0, "[Connect] fail to set unblock socket : %s \n", strerror(errno));
    CloseSocketWithEvent();
    return -1;
  }
  // A name that does not resolve is not sent anywhere: its attempts run out as for a
  // device that does not answer.
  if (haveAddr) StartConnect(sock, ip, static_cast<uint16_t>(m_nPort & 0xFFFF));
  if (!WaitConnected(sock, haveAddr)) {
    char text[128];
    std::snprintf(text, sizeof(text), "device[%s] connect socket failed! \n", m_szDevAddr);
    PostStatus(QXNET_EV_CONNECT_FAILED, text);
    fLog(0, "[Connect] create socket fd[%d] connect devIP[%s] devPort[%d] failed! \n", sock, m_szDevAddr,
         static_cast<int>(m_nPort));
    CloseSocktFd();
    return -1;
  }
  return FinishConnect(sock) ? 0 : -1;
}

namespace {
const char kAuthBody[] = "<userName>%s</userName>\n<password>%s</password>\n";
}

int CDevComControl::SendAuthMsgToDev() {
  char body[160];
  std::snprintf(body, sizeof(body), kAuthBody, m_szUser, m_szPassword);
  char msg[1024];
  std::memset(msg, 0, sizeof(msg));
  int len = MakeXMLRequest(msg, sizeof(msg), proto::kTypeConfig, proto::CmdText(proto::kCmdAuth), "0", body, -1);
  // A log is no place for credentials: the lines show the body with the password masked.
  char shown[160];
  std::snprintf(shown, sizeof(shown), kAuthBody, m_szUser, "***");
  mlogLevel(3, "SendAuthMsgToDev msg =%s \n", shown);
  int r = SendData(msg, static_cast<unsigned int>(len > 0 ? len : 0));
  if (r < len)
    fLog(1, "[CDevComControl::SendAuthMsgToDev] send auth message failed,return=%d", r);
  else
    fLog(3, "[CDevComControl::SendAuthMsgToDev] send auth message %s", shown);
  m_nLastAuthTick = GetTickCount();
  return r;
}

int CDevComControl::SendHeartbeatMsgToDev() {
  char msg[1024];
  std::memset(msg, 0, sizeof(msg));
  int len = MakeXMLRequest(msg, sizeof(msg), proto::kTypeDevice, proto::CmdText(proto::kCmdHeartbeat), "0", "", -1);
  int r = SendData(msg, static_cast<unsigned int>(len > 0 ? len : 0));
  if (r < len) {
    fLog(1, "[SendHeartbeatMsgToDev] Dev=%s, CH=%d, send heartbeat to device failed!,ret=%d \n", m_szDevAddr,
         m_nChannel, r);
    m_bHeartbeatFailed = true;
    m_nHeartbeatFailTick = GetTickCount();
    return r;
  }
  m_bHeartbeatFailed = false;
  _time32(&m_nLastHeartbeat);
  fLog(3, "[SendHeartbeatMsgToDev] Dev=%s, CH=%d, send heartbeat to device success! \n", m_szDevAddr,
       m_nChannel);
  return r;
}

int CDevComControl::OnAuthMsgRsp(const char* result) {
  int flag = std::atoi(result ? result : "");
  if (flag == 0) {
    m_nDevStatus = NETSDK_DEV_STATUS_AUTHENTICATED;
    char channels[20];
    std::memset(channels, 0, sizeof(channels));
    if (GetNVRChannels(m_pRecvBuf, channels, sizeof(channels)) == 0)
      PostStatus(QXNET_EV_MAX_CHANNELS, channels);
    PostStatus(QXNET_EV_AUTHENTICATED, "authentication success.");
    fLog(0, "[OnAuthMsgRsp] dev=%s authentication success. flag = %d \n", m_szDevAddr, flag);
  } else if (flag == 2 || flag == 3 || flag == 4 || flag == -1) {
    char text[128];
    std::snprintf(text, sizeof(text), "%s:authentication failed, username or passwords errror!", m_szDevAddr);
    fLog(0, "%s", text);
    PostStatus(QXNET_EV_BAD_CREDENTIALS, text);
  } else {
    PostStatus(QXNET_EV_AUTH_FAILED, "authentication failed.");
    fLog(0, "[OnAuthMsgRsp] dev=%s authentication failed. flag = %d \n", m_szDevAddr, flag);
  }
  return flag;
}

