// Framing and socket I/O of a session: the sender, the receiver with its header search,
// the readiness waits, the socket close and the send queue.
#include <errno.h>

#include <cstdlib>
#include <cstring>

#include "base/FuncLog.h"
#include "base/SDKSocket.h"
#include "base/SDKThread.h"
#include "base/Locker.h"
#include "session/DevComControl.h"
#include "session/FrameHeaderSearch.h"
#include "session/Protocol.h"

namespace {
const int kProbeMs = 500;
const uint32_t kSendDeadlineMs = 5000;
const uint32_t kRecvDeadlineMs = 3000;  // gives up once more than 2999 ms have passed
const int kCloseDrainMs = 1000;
// ProbeSocket: woken by the wake signal, neither ready nor timed out.
const int kWoken = 2;

// Largest payload that fits the receive buffer with the four zero bytes behind it that
// the parsers rely on.
const uint32_t kMaxBufferedPayload = QXNET_RECV_BUF_SIZE - 4;

void PutLittleEndian32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace

int CDevComControl::SocketCanRead(int sock, int timeoutMs) { return PollSocket(sock, false, timeoutMs); }

int CDevComControl::SocketCanWrite(int sock, int timeoutMs) {
  int r = PollSocket(sock, true, timeoutMs);
  if (r < 0)
    fLog(0, "SocketCanWrite failed, recvcount=%d, err=%d \n ", r, errno);
  else if (r == 0)
    fLog(0, "SocketCanWrite timeout, recvcount=%d, err=%d \n ", r, errno);
  return r;
}

int CDevComControl::ProbeSocket(int mode, int sock, int timeoutMs) {
  int r = m_pIo->Poll(sock, mode == 0, mode != 0, m_wake.Fd(), timeoutMs);
  if (r == QXNET_SOCKET_BROKEN) {
    if (mode != 0) fLog(0, "SocketCanWrite failed, recvcount=%d, err=%d \n ", r, errno);
    return r;
  }
  if (r & QXPOLL_WAKE) m_wake.Drain();
  if (r & (QXPOLL_READ | QXPOLL_WRITE)) return 1;
  if (r == 0 && mode != 0) fLog(0, "SocketCanWrite timeout, recvcount=%d, err=%d \n ", r, errno);
  return r == 0 ? 0 : kWoken;
}

// Probes of at most 500 ms until the socket is ready, the deadline has passed or the
// session stops. The deadline is checked before every probe, so bytes that keep
// trickling in cannot stretch it; a stop or a queued request wakes the probe at once.
int CDevComControl::WaitForSock(int mode, int sock, uint32_t startTick, uint32_t timeoutMs) {
  const bool limited = timeoutMs != 0xFFFFFFFFu;
  for (;;) {
    if (!m_bThreadRun) {
      fLog(0, "[WaitForSock] m_bThreadRun == false \n");
      return 0;
    }
    uint32_t spent = GetTickCount() - startTick;
    if (limited && spent >= timeoutMs) return 0;
    int probe = kProbeMs;
    if (limited && timeoutMs - spent < static_cast<uint32_t>(probe)) probe = static_cast<int>(timeoutMs - spent);
    if (mode == 0 && m_bWorkerTurns) {
      KeepHeartbeatDuringReceive();
      int hb = MsUntilHeartbeat();
      if (hb < 10) hb = 10;  // never spin, whatever the heartbeat's state
      if (hb < probe) probe = hb;
    }
    int r = ProbeSocket(mode, sock, probe);
    if (r != 0 && r != kWoken) return r;
  }
}

// Waits on the session's wake signal instead of sleeping in steps: the sleep ends the
// moment the session is stopped. A negative duration returns at once.
int CDevComControl::SleepThread(int durationMs, int /*stepMs*/) {
  if (!m_bThreadRun) return -1;
  if (durationMs < 0) return 0;
  uint32_t start = GetTickCount();
  for (;;) {
    if (!m_bThreadRun) return -1;
    uint32_t spent = GetTickCount() - start;
    if (spent > static_cast<uint32_t>(durationMs)) return 0;
    m_wake.Wait(static_cast<int>(static_cast<uint32_t>(durationMs) - spent + 1));
  }
}

// A send that waits for writability only when the socket cannot take the bytes now: the
// protocol's wait costs a poll on every frame part otherwise, and an idle session sends
// a heartbeat every 10 s. *waitStatus is 1, or the failed wait's result (nothing sent).
long CDevComControl::SendWhenWritable(int sock, const void* bytes, unsigned long n, uint32_t startTick,
                                      int* waitStatus) {
  *waitStatus = 1;
  if (m_bThreadRun) {
    long r = m_pIo->Send(sock, bytes, n);
    if (r >= 0 || !SocketWouldBlock()) return r;
  }
  *waitStatus = WaitForSock(1, sock, startTick, kSendDeadlineMs);
  if (*waitStatus <= 0) return 0;
  return m_pIo->Send(sock, bytes, n);
}

// The payload of a frame: one deadline of 5 s for all of it, never renewed. Once it has
// passed, nothing more is sent and the routine waits for the session to stop: callers
// see a short count.
int CDevComControl::SendPayload(int sock, const char* data, unsigned int length) {
  uint32_t start = GetTickCount();
  unsigned int sent = 0;
  while (sent < length && m_bThreadRun) {
    uint32_t spent = GetTickCount() - start;
    if (spent >= kSendDeadlineMs) {
      while (m_bThreadRun) m_wake.Wait(-1);
      break;
    }
    long n = m_pIo->Send(sock, data + sent, length - sent);
    if (n > 0) {
      sent += static_cast<unsigned int>(n);
      continue;
    }
    if (n == 0 || !SocketWouldBlock()) break;
    int probe = kSendDeadlineMs - spent < static_cast<uint32_t>(kProbeMs) ? static_cast<int>(kSendDeadlineMs - spent)
                                                                         : kProbeMs;
    int w = ProbeSocket(1, sock, probe);
    if (w < 0) {
      fLog(0, "[CDevComControl::SendData] SocketCanWrite3 failed, err = %d \n", w);
      return w;
    }
  }
  return static_cast<int>(sent);
}

int CDevComControl::SendData(const char* data, unsigned int length) {
  int sock = m_iSockFd;
  if (sock < 0) {
    fLog(0, "[CDevComControl::SendData] m_iSockFd < 0 failed, m_iSockFd = %d \n", sock);
    return -1;
  }
  // Flag, length and payload in one call when the socket takes them now (a heartbeat, a
  // request): the same bytes at the same moment in one system call instead of three.
  uint8_t head[8];
  PutLittleEndian32(head, proto::kFrameFlag);
  PutLittleEndian32(head + 4, length);
  long n = -1;
  if (m_bThreadRun) n = m_pIo->SendPair(sock, head, sizeof(head), data, length);
  if (n < 0 && (!m_bThreadRun || SocketWouldBlock())) return SendFrameInPieces(sock, data, length);
  if (n < 4) {
    fLog(0, "[CDevComControl::SendData] m_iSockFd=%d, send flag failed, nSend = %ld \n", sock, n);
    return -3;
  }
  if (n < 8) {
    fLog(0, "[CDevComControl::SendData] send data len failed, nSend = %ld \n", n - 4);
    return -5;
  }
  unsigned int sent = static_cast<unsigned int>(n - 8);
  if (sent >= length) return static_cast<int>(length);
  int rest = SendPayload(sock, data + sent, length - sent);
  return rest < 0 ? rest : static_cast<int>(sent) + rest;
}

// The frame in three sends, each waiting for writability when the socket takes nothing:
// the way for a full send buffer or a stopping session.
int CDevComControl::SendFrameInPieces(int sock, const char* data, unsigned int length) {
  int ws;
  uint8_t flag[4];
  PutLittleEndian32(flag, proto::kFrameFlag);
  long n = SendWhenWritable(sock, flag, 4, GetTickCount(), &ws);
  if (ws <= 0) {
    fLog(0, "[CDevComControl::SendData] SocketCanWrite1 failed, err = %d, m_iSockFd=%d \n", ws, sock);
    return -2;
  }
  if (n != 4) {
    fLog(0, "[CDevComControl::SendData] m_iSockFd=%d, send flag failed, nSend = %ld \n", sock, n);
    return -3;
  }
  uint8_t len[4];
  PutLittleEndian32(len, length);
  n = SendWhenWritable(sock, len, 4, GetTickCount(), &ws);
  if (ws <= 0) {
    fLog(0, "[CDevComControl::SendData] SocketCanWrite2 failed, err = %d \n", ws);
    return -4;
  }
  if (n != 4) {
    fLog(0, "[CDevComControl::SendData] send data len failed, nSend = %ld \n", n);
    return -5;
  }
  return SendPayload(sock, data, length);
}

// Reads what the socket holds now, up to len, waiting against the receive deadline from
// startTick only when nothing is there. The recv result (bytes, 0 at the peer's close,
// -1 on error), or 0 with *waitStatus set to the failed wait's result.
long CDevComControl::RecvWhenReadable(int sock, void* dst, unsigned long len, uint32_t startTick,
                                      int* waitStatus) {
  *waitStatus = 1;
  if (m_ahead.Available() > 0) return static_cast<long>(m_ahead.Take(dst, len));
  for (;;) {
    // The deadline holds whatever arrives: a device trickling bytes cannot stretch it.
    if (!m_bThreadRun || GetTickCount() - startTick >= kRecvDeadlineMs) {
      *waitStatus = WaitForSock(0, sock, startTick, kRecvDeadlineMs);
      if (*waitStatus <= 0) return 0;
    }
    if (m_bWorkerTurns) KeepHeartbeatDuringReceive();
    long n = RecvWithReadAhead(sock, dst, len);
    if (n >= 0 || !SocketWouldBlock()) return n;
    *waitStatus = WaitForSock(0, sock, startTick, kRecvDeadlineMs);
    if (*waitStatus <= 0) return 0;
  }
}

// One read of up to len bytes into dst, with whatever more the socket holds (up to the
// read-ahead's room) kept for the next calls. Only called with nothing buffered.
long CDevComControl::RecvWithReadAhead(int sock, void* dst, unsigned long len) {
  char* room = m_ahead.Room();
  if (!room) return m_pIo->Recv(sock, dst, len);
  long n = m_pIo->RecvPair(sock, dst, len, room, CRecvAhead::kCapacity);
  if (n <= static_cast<long>(len)) return n;
  m_ahead.Filled(static_cast<size_t>(n) - len);
  return static_cast<long>(len);
}

namespace {
// Bytes skipped while looking for a frame header are logged as one line per run, with
// the run's length and the last flag rejected: a hostile device sending a megabyte of
// garbage must not write a log line per byte.
class SkipRun {
 public:
  SkipRun(const char* dev, int channel) : m_dev(dev), m_channel(channel) {}
  ~SkipRun() { Flush(); }
  static void OnSkip(void* p, uint32_t flag, int skipped) {
    SkipRun* r = static_cast<SkipRun*>(p);
    r->m_flag = flag;
    r->m_skipped = skipped;
  }
  void Flush() {
    if (m_skipped > 0)
      fLog(3, "[ReceiveData] Dev=%s, CH[%d], flag[0x%x], recv pack skip data, size=%d\n", m_dev, m_channel,
           m_flag, m_skipped);
    m_skipped = 0;
  }

 private:
  const char* m_dev;
  int m_channel;
  uint32_t m_flag = 0;
  int m_skipped = 0;
};
}  // namespace

// Reads `want` bytes into dst (or drops them when dst is null) against one deadline. 1
// when the loop ended (all read, or a stop ended it early: *have tells), else the failed
// wait's status or the broken code.
int CDevComControl::ReadFrameBytes(int sock, char* dst, uint32_t want, uint32_t deadlineStart, uint32_t* have) {
  if (!dst) return DropFrameBytes(sock, want, deadlineStart, have);
  *have = 0;
  while (*have < want && m_bThreadRun) {
    uint32_t room = want - *have;
    int st;
    long n = RecvWhenReadable(sock, dst + *have, room, deadlineStart, &st);
    if (st <= 0) {
      fLog(0, "[ReceiveData]: CH=%d, WaitForSock3 failed socketstatus=%d \n", m_nChannel, st);
      return st;
    }
    if (n < 1) {
      fLog(0, "%s recv_with_header() recv data error, ret=%ld \n", m_szDevAddr, n);
      return QXNET_SOCKET_BROKEN;
    }
    *have += static_cast<uint32_t>(n);
  }
  return 1;
}

// ReadFrameBytes for bytes that are dropped, through a scratch room of its own. Kept out of
// the reading path's frame: that path runs on every heartbeat answer of every session, and
// each stack page it reaches is one more page an idle session touches.
__attribute__((noinline)) int CDevComControl::DropFrameBytes(int sock, uint32_t want, uint32_t deadlineStart,
                                                             uint32_t* have) {
  char sink[16384];
  *have = 0;
  while (*have < want) {
    uint32_t chunk = want - *have;
    if (chunk > sizeof(sink)) chunk = sizeof(sink);
    uint32_t got = 0;
    int st = ReadFrameBytes(sock, sink, chunk, deadlineStart, &got);
    *have += got;
    if (st != 1 || got < chunk) return st;
  }
  return 1;
}

// Reads eight bytes at a time into the header search until a frame header is found: 0,
// or the code the receiver returns.
int CDevComControl::FindFrameHeader(int sock, uint32_t start, CFrameHeaderSearch* search) {
  SkipRun skipRun(m_szDevAddr, m_nChannel);
  for (;;) {
    if (!m_bThreadRun) {
      // A stop during the search leaves through the bad-length exit.
      fLog(0, "[ReceiveData] Dev=%s, CH[%d], recv bad len=%d \n", m_szDevAddr, m_nChannel, 0);
      return -4;
    }
    uint8_t bytes[8];
    int got = 0;
    while (got < 8) {
      int st;
      long n = RecvWhenReadable(sock, bytes + got, static_cast<unsigned long>(8 - got), start, &st);
      if (st <= 0) {
        fLog(0, "[ReceiveData]: WaitForSock2 failed socketstatus=%d \n", st);
        return st;
      }
      if (n < 1) {
        fLog(0, "[ReceiveData] Dev[%s] recv flag failed, ret=%ld\n", m_szDevAddr, n);
        return QXNET_SOCKET_BROKEN;
      }
      got += static_cast<int>(n);
    }
    if (search->Feed(bytes, &SkipRun::OnSkip, &skipRun) == CFrameHeaderSearch::kFound) return 0;
  }
}

// The length tests of a found header: 0 when the rest of the frame may be read.
int CDevComControl::CheckFrameLength(int remaining) {
  if (remaining < 1) {
    fLog(0, "[ReceiveData] Dev=%s, CH[%d], recv bad len=%d \n", m_szDevAddr, m_nChannel, remaining);
    return -4;
  }
  if (remaining > QXNET_MAX_FRAME_LEN) {
    fLog(0, "[ReceiveData] Dev=%s, CH[%d], recv_with_header() recv bad len=%d \n", m_szDevAddr, m_nChannel,
         remaining);
    return -5;
  }
  return 0;
}

int CDevComControl::ReceiveData() {
  int sock = m_iSockFd;
  if (sock < 0) {
    fLog(0, "[ReceiveData]: m_iSockFd=%d \n", sock);
    return -1;
  }
  if (!m_pRecvBuf) {
    fLog(0, "[ReceiveData] m_pRecvBuf is null, new memory failed \n");
    return -1;
  }
  uint32_t start = GetTickCount();
  // The worker calls in when its poll has just seen the socket readable: the first wait
  // would only repeat that poll.
  int st = m_bKnownReadable || m_ahead.Available() > 0 ? 1 : WaitForSock(0, sock, start, kRecvDeadlineMs);
  m_bKnownReadable = false;
  if (st <= 0) {
    fLog(0, "[ReceiveData]: WaitForSock1 failed socketstatus=%d \n", st);
    return st;
  }
  CFrameHeaderSearch search;
  if ((st = FindFrameHeader(sock, start, &search)) != 0) return st;
  if (search.SkippedInPasses() > 0)
    fLog(2, "[ReceiveData] Dev=%s, CH[%d], recv pack skip data, size=%d\n", m_szDevAddr, m_nChannel,
         search.SkippedInPasses());

  uint32_t length = search.Length();
  int prefix = search.PayloadPrefixLength();
  int remaining = static_cast<int>(length - static_cast<uint32_t>(prefix));
  if ((st = CheckFrameLength(remaining)) != 0) return st;
  uint32_t deadlineStart = GetTickCount();
  if (length > kMaxBufferedPayload) {
    // Passes the length test but not the 3 MiB receive buffer: the frame is read and
    // dropped, so the stream stays in step and nothing is written past the buffer.
    fLog(0, "[ReceiveData] Dev=%s, CH[%d], recv len=%d exceeds the receive buffer, frame dropped \n",
         m_szDevAddr, m_nChannel, remaining);
    uint32_t dropped = 0;
    st = ReadFrameBytes(sock, nullptr, static_cast<uint32_t>(remaining), deadlineStart, &dropped);
    return st == 1 ? -6 : st;
  }
  fLog(3, "[ReceiveData] Dev=%s, CH[%d], recv len=%d \n", m_szDevAddr, m_nChannel, remaining);

  // Cleared as far as the frame reaches (payload and the four bytes behind it): the
  // payload carries no terminating zero and the parsers read it as text.
  std::memset(m_pRecvBuf, 0, length + 4);
  std::memcpy(m_pRecvBuf, search.PayloadPrefix(), static_cast<size_t>(prefix));
  uint32_t got = 0;
  st = ReadFrameBytes(sock, m_pRecvBuf + prefix, static_cast<uint32_t>(remaining), deadlineStart, &got);
  if (st != 1) return st;
  m_nRecvLen = static_cast<uint32_t>(prefix) + got;
  ParserRecvData();
  return 0;
}

void CDevComControl::PostStatus(int event, const char* text) {
  if (m_pSink) m_pSink->OnPostDevStatusMsg(this, event, const_cast<char*>(text));
}

void CDevComControl::CloseSocketWithEvent() {
  int sock = m_iSockFd.exchange(-1);
  if (sock == -1) return;
  fLog(0, "[CloseSocktFd] close socket fd=%d \n", sock);
  // Bytes already handed to the socket (the last upload chunks, a request) reach the
  // device: its sending side is shut and its answers drained before the close.
  ShutdownAndClose(sock, kCloseDrainMs);
  char text[128];
  std::snprintf(text, sizeof(text), "device[%s]  socket error, fd=%d \n", m_szDevAddr, sock);
  PostStatus(QXNET_EV_SOCKET_ERROR, text);
  m_nDevStatus = NETSDK_DEV_STATUS_NONE;
  m_nFailCount = 0;
  AbortTransfersOnDisconnect();
}

int CDevComControl::CloseSocktFd() {
  CloseSocketWithEvent();
  return 0;
}

void CDevComControl::PutToSendData(NetSDKSendData_t item) {
  {
    CMutexGuard guard(&m_sendLock);
    m_sendList.push_back(item);
    ++m_nSendCount;
  }
  // Goes out at once, not at the next timed turn.
  m_wake.Signal();
}

int CDevComControl::QueuedCount() {
  CMutexGuard guard(&m_sendLock);
  return m_nSendCount;
}

void CDevComControl::SendOneQueued() {
  NetSDKSendData_t item = {0, nullptr};
  {
    CMutexGuard guard(&m_sendLock);
    if (m_sendList.empty()) return;
    item = m_sendList.front();
    m_sendList.pop_front();
    --m_nSendCount;
  }
  if (!item.data) return;
  int r = SendData(item.data, item.length);
  if (r < static_cast<int>(item.length))
    fLog(0, "send cmd error,data=%s", item.data);
  else
    fLog(3, "send cmd ok,data=%s", item.data);
  delete[] item.data;
}
