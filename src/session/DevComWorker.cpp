// The session's worker: connect, authenticate, then turns that send the queue, keep the
// heartbeat, receive and dispatch, and drive uploads and download retries.
//
// The worker waits only for what is due. Each normal turn blocks in one poll on the
// socket (readable; writable only while an upload step or a download retry waits for
// it) and the session's wake signal (a request queued, a stop), with the time to the
// next deadline as its timeout. What goes on the wire and when is unchanged: heartbeat
// after more than 9 s, authentication resend after 5 s, five failed sends then event 3,
// the 8 s pause after a failed connect, 5 upload chunks a turn with a turn every 20 ms.
#include <cstdio>

#include "base/FuncLog.h"
#include "base/SDKSocket.h"
#include "base/SDKThread.h"
#include "session/DevComControl.h"

namespace {
const uint32_t kAuthResendMs = 5000;  // resent once more than 4999 ms have passed
const int kHeartbeatSeconds = 10;     // sent once more than 9 whole seconds have passed
// The next upload turn once more than 20 ms have passed since the last one began,
// measured in microseconds: the millisecond tick would round every turn up to 21 ms.
const uint64_t kUploadTurnUs = 20000;
const int kLongestWaitMs = 10000;     // re-read the clocks at least this often
const uint32_t kHeartbeatRetryMs = 100;  // a failed heartbeat is tried again this much later
}  // namespace

void CDevComControl::MarkThreadExited() {
  std::lock_guard<std::mutex> lock(m_exitMutex);
  m_bThreadExited = true;
  m_exitCond.notify_all();
}

// A heartbeat whose send failed is retried on a later turn, not in a loop: the old turn
// never came round faster than every 100 ms.
bool CDevComControl::HeartbeatDue() const { return MsUntilHeartbeat() == 0; }

int CDevComControl::MsUntilHeartbeat() const {
  if (_time32(nullptr) - m_nLastHeartbeat <= kHeartbeatSeconds - 1) {
    int64_t due = (static_cast<int64_t>(m_nLastHeartbeat) + kHeartbeatSeconds) * 1000;
    int64_t left = due - WallClockMs();
    if (left < 1) left = 1;  // the clocks' seconds turn over within the millisecond
    return left > kLongestWaitMs ? kLongestWaitMs : static_cast<int>(left);
  }
  uint32_t sinceFailure = GetTickCount() - m_nHeartbeatFailTick;
  if (m_bHeartbeatFailed && sinceFailure < kHeartbeatRetryMs) return static_cast<int>(kHeartbeatRetryMs - sinceFailure);
  return 0;
}

bool CDevComControl::UploadTurnDue() const {
  return UploadDue() && MonotonicMicros() - m_nLastUploadTurnUs > kUploadTurnUs;
}

bool CDevComControl::DownloadRetryDue() const { return MsUntilRetryReqDownload() == 0; }

int CDevComControl::MsUntilNextDeadline(bool waitingForWritable) {
  if (QueuedCount() > 0) return 0;
  int ms = MsUntilHeartbeat();
  uint32_t now = GetTickCount();
  if (m_nDevStatus == NETSDK_DEV_STATUS_SEND_AUTHMSG) {
    uint32_t spent = now - m_nLastAuthTick;
    int left = spent >= kAuthResendMs ? 0 : static_cast<int>(kAuthResendMs - spent);
    if (left < ms) ms = left;
  }
  // Steps that wait for writability are woken by it, not by their deadline.
  if (!waitingForWritable) {
    if (UploadDue()) {
      uint64_t spent = MonotonicMicros() - m_nLastUploadTurnUs;
      int left = spent > kUploadTurnUs ? 0 : static_cast<int>((kUploadTurnUs - spent) / 1000 + 1);
      if (left < ms) ms = left;
    }
    int retry = MsUntilRetryReqDownload();
    if (retry >= 0 && retry < ms) ms = retry;
  }
  return ms;
}

void CDevComControl::KeepHeartbeatDuringReceive() {
  if (m_nDevStatus >= NETSDK_DEV_STATUS_SEND_AUTHMSG && HeartbeatDue()) SendHeartbeatMsgToDev();
}

// Connects; after a failure pauses 8 s, or ends the worker when reconnection is off.
// False when the worker must end.
bool CDevComControl::ConnectStep() {
  if (Connect() == 0) return true;
  m_nDevStatus = NETSDK_DEV_STATUS_NONE;
  fLog(0, "CDevComControl Connect failed\n");
  if (m_pAutoReconnect && m_pAutoReconnect->load() == 0) return false;
  return SleepThread(8000, 100) == 0;
}

CDevComControl::AuthStep CDevComControl::GiveUpAuthentication() {
  char text[128];
  std::snprintf(text, sizeof(text), "[%s] login failed, not get auth response 5 times.", m_szDevAddr);
  PostStatus(QXNET_EV_AUTH_FAILED, text);
  CloseSocketWithEvent();
  return m_bThreadRun ? AuthStep::kReconnect : AuthStep::kEnd;
}

// Connected but not authenticated: (re)send the authentication message when it is due.
CDevComControl::AuthStep CDevComControl::AuthenticationStep() {
  int st = m_nDevStatus;
  if (GetTickCount() - m_nLastAuthTick > kAuthResendMs - 1) {
    if (SendAuthMsgToDev() < 0) {
      ++m_nFailCount;
      SleepThread(1000, 100);
      return AuthStep::kNextTurn;
    }
    m_nDevStatus = NETSDK_DEV_STATUS_SEND_AUTHMSG;
    return m_nFailCount > 4 ? GiveUpAuthentication() : AuthStep::kNormalTurn;
  }
  if (m_nFailCount > 4) return GiveUpAuthentication();
  if (st == NETSDK_DEV_STATUS_SEND_AUTHMSG) return AuthStep::kNormalTurn;
  fLog(0, "CDevComControl:m_nDevStatus < NETSDK_DEV_STATUS_SEND_AUTHMSG \n");
  SleepThread(2000, 100);
  return AuthStep::kNextTurn;
}

void CDevComControl::ReceiveAndHandle() {
  if (ReceiveData() == QXNET_SOCKET_BROKEN) {
    CloseSocketWithEvent();
    SleepThread(1000, 100);
  }
}

void CDevComControl::NormalTurn() {
  SendOneQueued();
  if (HeartbeatDue()) SendHeartbeatMsgToDev();
  // Frames already read from the socket come before anything the poll could report.
  if (m_ahead.Available() > 0) {
    ReceiveAndHandle();
    return;
  }
  const bool wantWrite = UploadTurnDue() || DownloadRetryDue();
  int r = m_pIo->Poll(m_iSockFd, true, wantWrite, m_wake.Fd(), MsUntilNextDeadline(wantWrite));
  if (r == QXNET_SOCKET_BROKEN) {
    CloseSocketWithEvent();
    SleepThread(50, 50);
    return;
  }
  if (r & QXPOLL_WAKE) m_wake.Drain();
  if (r & QXPOLL_READ) {
    m_bKnownReadable = true;
    ReceiveAndHandle();
    return;
  }
  if (r & QXPOLL_WRITE) {
    if (UploadTurnDue()) {
      m_nLastUploadTurnUs = MonotonicMicros();
      SendUploadFileData();
    }
    CheckRetryReqDownload();
  }
}

int CDevComControl::ThreadProc() {
  m_nFailCount = 0;
  _time32(&m_nLastHeartbeat);
  m_bWorkerTurns = true;
  bool needConnect = false;
  while (m_bThreadRun) {
    if (m_iSockFd < 0 || needConnect) {
      needConnect = false;
      if (!ConnectStep()) break;
      if (m_iSockFd < 0) continue;
    }
    int st = m_nDevStatus;
    if (st == NETSDK_DEV_STATUS_CONNECTED || st == NETSDK_DEV_STATUS_SEND_AUTHMSG) {
      AuthStep step = AuthenticationStep();
      if (step == AuthStep::kEnd) break;
      if (step == AuthStep::kReconnect) needConnect = true;
      if (step != AuthStep::kNormalTurn) continue;
    } else if (st == NETSDK_DEV_STATUS_NONE) {
      // A socket without a connection status should not persist.
      fLog(0, "CDevComControl:m_nDevStatus < NETSDK_DEV_STATUS_SEND_AUTHMSG \n");
      SleepThread(2000, 100);
      continue;
    }
    NormalTurn();
  }
  if (m_iSockFd >= 0) CloseSocketWithEvent();
  m_bWorkerTurns = false;
  fLog(0, "CDevComControl:end thread... \n");
  return 0;
}
