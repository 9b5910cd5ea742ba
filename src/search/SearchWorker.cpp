// The discovery worker: socket set-up, the search loop, sending and receiving.
#include <errno.h>

#include <cstdlib>
#include <cstring>

#include <tinyxml.h>

#include "base/SDKSocket.h"
#include "base/SDKThread.h"
#include "base/UdpSocket.h"
#include "search/SearchIPC.h"
#include "search/SearchLog.h"
#include "search/SearchNetwork.h"
#include "search/SearchProto.h"
#include "search/SearchSchedule.h"

namespace {
enum { kSocketBuffer = 131072, kConnectRetryMs = 500, kMaxWaitMs = 300000 };

bool SetOptions(int sock) {
  if (SetSocketOption(sock, QXSO_REUSEADDR, 1) != 0 || SetUdpBroadcast(sock, 1) != 0) {
    SearchLog(0, "[CSearchIPC] fail to setsockopt : %s \n", std::strerror(errno));
    return false;
  }
  if (SetSocketOption(sock, QXSO_RCVBUF, kSocketBuffer) != 0) {
    SearchLog(0, "[CSearchIPC] fail to set recv buffer to 128k: %s \n", std::strerror(errno));
    return false;
  }
  if (SetSocketOption(sock, QXSO_SNDBUF, kSocketBuffer) != 0) {
    SearchLog(0, "[CSearchIPC] fail to set send buffer to 128k: %s \n", std::strerror(errno));
    return false;
  }
  return true;
}
}  // namespace

int CSearchIPC::Connect() {
  CloseSocktFd();
  int sock = CreateUdpSocket();
  if (sock < 0) {
    SearchLog(0, "[CSearchIPC] fail to create socket : %s \n", std::strerror(errno));
    return -1;
  }
  SearchLog(0, "[CSearchIPC] success to create socket, new fd = %d \n", sock);
  if (!SetOptions(sock)) {
    CloseSocket(sock);
    return -1;
  }
  std::string host = HostAddr(0);
  // No address found: listen on all of them rather than not at all.
  uint32_t addr = host.empty() ? 0 : InetAddr(host.c_str());
  int port = m_nBindPort;
  if (BindIPv4(sock, addr, static_cast<uint16_t>(port)) != 0) {
    SearchLog(0, "[CSearchIPC] fail to bind port %d \n", port);
    CloseSocket(sock);
    m_nBindPort = port + 1;
    return -1;
  }
  m_iSock = sock;
  SearchLog(0, "[CSearchIPC] create socket success, fd=%d, ip=%s, bind port %d \n", sock, host.c_str(), port);
  return 0;
}

int CSearchIPC::SendData(const char* data, unsigned len) {
  int sock = m_iSock;
  if (sock < 0) return -1;
  SearchNetwork net = CurrentSearchNetwork();
  long n = UdpSendTo(sock, data, len, net.requestAddr, net.requestPort);
  if (n != static_cast<long>(len)) {
    CloseSocktFd();
    SearchLog(0, "[CSearchIPC] send to failed, nLen=%d \n", static_cast<int>(n));
    return -1;
  }
  return 0;
}

// No worker: a socket of its own, never bound (the system picks the source port).
int CSearchIPC::SendOneShot(const char* data, unsigned len) {
  int sock = CreateUdpSocket();
  if (sock < 0) return -1;
  if (SetSocketOption(sock, QXSO_REUSEADDR, 1) != 0 || SetUdpBroadcast(sock, 1) != 0) {
    SearchLog(0, "[CSearchIPC] fail to setsockopt : %s \n", std::strerror(errno));
    CloseSocket(sock);
    return -1;
  }
  SearchNetwork net = CurrentSearchNetwork();
  long n = UdpSendTo(sock, data, len, net.requestAddr, net.requestPort);
  CloseSocket(sock);
  if (n == static_cast<long>(len)) return 0;
  SearchLog(0, "[CSearchIPC] send to failed, nLen=%d \n", static_cast<int>(n));
  return -1;
}

int CSearchIPC::SendMsgToIPC(int cmd, const char* body) {
  std::unique_ptr<char[]> buf(new char[kSearchMsgSize]);
  int n = FormatSearchRequest(buf.get(), kSearchMsgSize, cmd, body, g_strVendorId);
  if (n < 0) {
    SearchLog(0, "[CSearchIPC] request too long, cmd=%d \n", cmd);
    return -1;
  }
  SearchLog(0, "[CSearchIPC] ============== %s\n", buf.get());
  if (!m_bRunning) return SendOneShot(buf.get(), static_cast<unsigned>(n));
  {
    std::lock_guard<std::mutex> g(m_queueLock);
    m_queue.emplace_back(buf.get(), static_cast<size_t>(n));
  }
  m_wake.Signal();
  return 0;
}

void CSearchIPC::DrainQueue() {
  while (m_bRunning && m_iSock >= 0) {
    std::string item;
    {
      std::lock_guard<std::mutex> g(m_queueLock);
      if (m_queue.empty()) return;
      item.swap(m_queue.front());
      m_queue.pop_front();
    }
    SendData(item.data(), static_cast<unsigned>(item.size()));
  }
}

// Empties the socket into the queue before each datagram is handled, so that a burst of
// answers waits in the queue rather than overflowing the socket's receive buffer.
int CSearchIPC::ReceiveData(bool socketReadable) {
  int sock = m_iSock;
  if (sock < 0) return -1;
  if (socketReadable) m_rxq.Drain([sock](UdpRecvSlot* slots, int n) { return UdpRecvBatch(sock, slots, n); });
  SearchDatagram d;
  int k = m_rxq.Next(&d);
  if (k < 0) {
    CloseSocktFd();
    return -1;
  }
  if (k == 0) return 0;
  m_peerAddr = d.fromNetOrder;
  m_peerPort = d.fromPort;
  return HandleDatagram(d.text, d.len);
}

// The head reader's parse goes on to the answer's readers: the text is parsed once.
int CSearchIPC::HandleDatagram(const char* text, int len) {
  SearchHead head;
  TiXmlDocument doc;
  switch (ClassifySearchDatagram(text, &head, &doc)) {
    case SEARCH_DG_SEARCH_ANSWER:
      m_table.HandleSearchAnswer(text, len, &doc);
      break;
    case SEARCH_DG_SETUP_ANSWER:
      m_table.HandleSetupAnswer(text, len, std::atoi(head.cmd), head.result, &doc);
      break;
    default:
      break;
  }
  return 0;
}

void CSearchIPC::ThreadFunc(void* arg) {
  if (!arg) return;
  CSearchIPC* self = static_cast<CSearchIPC*>(arg);
  ++self->m_nWorkers;
  self->ThreadProc();
  --self->m_nWorkers;
}

// Waits for the socket (reading; writing too while requests are queued) or the wake
// signal: a queued request or a stop ends the wait at once.
int CSearchIPC::Select(int timeoutMs) {
  bool queued;
  {
    std::lock_guard<std::mutex> g(m_queueLock);
    queued = !m_queue.empty();
  }
  return PollSocketWake(m_iSock, true, queued, m_wake.Fd(), timeoutMs);
}

// One pass handles at most one datagram, then sends what is queued, as before the receive
// queue; while datagrams wait in the queue the pass does not block.
int CSearchIPC::ThreadProc() {
  CResendSchedule resend;
  m_table.Reserve();  // before the first request: its answers then fill resident pages
  while (m_bRunning) {
    if (m_iSock < 0) {
      m_rxq.Clear();  // they went with the socket
      RefreshHostAddrs();
      if (Connect() != 0) {
        SearchLog(0, "[CSearchIPC] Connect failed \n");
        resend.Reset();
        m_wake.Wait(kConnectRetryMs);
        continue;
      }
    }
    uint32_t now = static_cast<uint32_t>(_time32(nullptr));
    if (resend.Due(now)) {
      SendMsgToIPC(SEARCH_CMD_SEARCH, nullptr);
      resend.Sent(now);
    }
    int64_t wait = m_rxq.Empty() ? resend.MsUntilDue(WallClockMs()) : 0;
    const int64_t cap = kMaxWaitMs;
    int r = Select(static_cast<int>(wait > cap ? cap : wait));
    if (r == QXNET_SOCKET_BROKEN) {
      CloseSocktFd();
      continue;
    }
    if (r & QXPOLL_WAKE) m_wake.Drain();
    if ((r & QXPOLL_READ) || !m_rxq.Empty()) ReceiveData((r & QXPOLL_READ) != 0);
    if ((r & QXPOLL_WRITE) && m_bRunning) DrainQueue();
  }
  CloseSocktFd();
  m_rxq.Clear();
  return 0;
}
