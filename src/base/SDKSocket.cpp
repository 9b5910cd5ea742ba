#include "base/SDKSocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <time.h>

#include <atomic>
#include <cstring>

#include "base/FuncLog.h"

namespace {
std::atomic<int> s_startCount{0};
}

int PollOne(int fd, short events, int timeoutMs, short* revents) {
  struct pollfd p;
  p.fd = fd;
  p.events = events;
  p.revents = 0;
  int rc;
  do {
    rc = poll(&p, 1, timeoutMs);
  } while (rc < 0 && errno == EINTR);
  *revents = p.revents;
  return rc;
}

int WSAStartup(unsigned short, void*) {
  ++s_startCount;
  return 0;
}

int WSACleanup() {
  if (s_startCount.load() > 0) --s_startCount;
  return 0;
}

int WSAGetLastError() { return errno; }

int SocketLibraryStartCount() { return s_startCount.load(); }

int SetSocketNoBlock(int sock, int on) {
  int flags = fcntl(sock, F_GETFL, 0);
  int rc = -1;
  if (flags >= 0) rc = fcntl(sock, F_SETFL, on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK));
  if (rc < 0) {
    fLog(0, "CCSInf: ioctlsocket FIONBIO return failed.\n");
    return -1;
  }
  return 0;
}

int PollSocket(int sock, bool write, int timeoutMs) {
  if (sock < 0) return QXNET_SOCKET_BROKEN;
  short revents;
  int rc = PollOne(sock, write ? POLLOUT : POLLIN, timeoutMs, &revents);
  if (rc == 0) return 0;
  if (rc < 0) return QXNET_SOCKET_BROKEN;
  // Readable includes a peer's orderly close (recv then returns 0); an error or hang-up
  // without the wanted direction is the "exception set only" case.
  if (revents & (write ? POLLOUT : (POLLIN | POLLHUP))) return 1;
  return QXNET_SOCKET_BROKEN;
}

int PollSocketRW(int sock, int timeoutMs) {
  if (sock < 0) return QXNET_SOCKET_BROKEN;
  short revents;
  int rc = PollOne(sock, POLLIN | POLLOUT, timeoutMs, &revents);
  if (rc == 0) return 0;
  if (rc < 0) return QXNET_SOCKET_BROKEN;
  int r = 0;
  if (revents & (POLLIN | POLLHUP | POLLERR)) r |= 1;
  if (revents & POLLOUT) r |= 2;
  if (r == 0) return QXNET_SOCKET_BROKEN;
  return r;
}

int PollConnect(int sock, int timeoutMs) {
  if (sock < 0) return -1;
  short revents;
  int rc = PollOne(sock, POLLOUT, timeoutMs, &revents);
  if (rc == 0) return 0;
  if (rc < 0 || (revents & (POLLERR | POLLHUP | POLLNVAL))) return -1;
  int err = 0;
  socklen_t len = sizeof(err);
  if (getsockopt(sock, SOL_SOCKET, SO_ERROR, &err, &len) != 0 || err != 0) return -1;
  struct sockaddr_storage peer;
  socklen_t plen = sizeof(peer);
  if (getpeername(sock, reinterpret_cast<struct sockaddr*>(&peer), &plen) != 0) return -1;
  return (revents & POLLOUT) ? 1 : 0;
}

int ResolveIPv4(const char* host, uint32_t* addr) {
  if (!host || !addr) return -1;
  struct addrinfo hints;
  std::memset(&hints, 0, sizeof(hints));
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  struct addrinfo* res = nullptr;
  if (getaddrinfo(host, nullptr, &hints, &res) != 0 || !res) return -1;
  int rc = -1;
  for (struct addrinfo* a = res; a; a = a->ai_next) {
    if (a->ai_family == AF_INET && a->ai_addr) {
      *addr = reinterpret_cast<struct sockaddr_in*>(a->ai_addr)->sin_addr.s_addr;
      rc = 0;
      break;
    }
  }
  freeaddrinfo(res);
  return rc;
}

bool ParseIPv4(const char* text, uint32_t* addr) {
  if (!text) return false;
  struct in_addr a;
  if (inet_aton(text, &a) == 0) return false;
  *addr = a.s_addr;
  return true;
}

long SocketSend(int sock, const void* data, unsigned long len) {
  ssize_t n;
  do {
    n = send(sock, data, len, MSG_NOSIGNAL);
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

long SocketSendNoWait(int sock, const void* data, unsigned long len) {
  ssize_t n;
  do {
    n = send(sock, data, len, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

namespace {
// A message of two pieces, a then b, for sendmsg and recvmsg.
struct PairMessage {
  PairMessage(void* a, unsigned long alen, void* b, unsigned long blen) {
    iov[0].iov_base = a;
    iov[0].iov_len = alen;
    iov[1].iov_base = b;
    iov[1].iov_len = blen;
    std::memset(&msg, 0, sizeof(msg));
    msg.msg_iov = iov;
    msg.msg_iovlen = 2;
  }
  PairMessage(const PairMessage&) = delete;  // msg points into this object's iov
  PairMessage& operator=(const PairMessage&) = delete;
  struct iovec iov[2];
  struct msghdr msg;
};
}  // namespace

long SocketSendPairNoWait(int sock, const void* a, unsigned long alen, const void* b, unsigned long blen) {
  PairMessage pair(const_cast<void*>(a), alen, const_cast<void*>(b), blen);
  ssize_t n;
  do {
    n = sendmsg(sock, &pair.msg, MSG_NOSIGNAL | MSG_DONTWAIT);
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

long SocketRecvNoWait(int sock, void* data, unsigned long len) {
  ssize_t n;
  do {
    n = recv(sock, data, len, MSG_DONTWAIT);
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

long SocketRecvPairNoWait(int sock, void* a, unsigned long alen, void* b, unsigned long blen) {
  PairMessage pair(a, alen, b, blen);
  ssize_t n;
  do {
    n = recvmsg(sock, &pair.msg, MSG_DONTWAIT);
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

bool SocketWouldBlock() { return errno == EAGAIN || errno == EWOULDBLOCK; }

long SocketRecv(int sock, void* data, unsigned long len) {
  ssize_t n;
  do {
    n = recv(sock, data, len, 0);
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

int CloseSocket(int sock) { return close(sock); }

int CreateTcpSocket() { return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP); }

int SetSocketOption(int sock, QXSocketOption option, int value) {
  switch (option) {
    case QXSO_REUSEADDR:
      return setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &value, sizeof(value));
    case QXSO_RCVBUF:
      return setsockopt(sock, SOL_SOCKET, SO_RCVBUF, &value, sizeof(value));
    case QXSO_SNDBUF:
      return setsockopt(sock, SOL_SOCKET, SO_SNDBUF, &value, sizeof(value));
    case QXSO_LINGER: {
      struct linger lg;
      lg.l_onoff = 1;
      lg.l_linger = value;
      return setsockopt(sock, SOL_SOCKET, SO_LINGER, &lg, sizeof(lg));
    }
    case QXSO_NODELAY:
      return setsockopt(sock, IPPROTO_TCP, TCP_NODELAY, &value, sizeof(value));
    case QXSO_KEEPALIVE: {
      int on = value > 0 ? 1 : 0;
      if (setsockopt(sock, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on)) != 0) return -1;
      if (!on) return 0;
      int interval = 5, count = 4;
      if (setsockopt(sock, IPPROTO_TCP, TCP_KEEPIDLE, &value, sizeof(value)) != 0) return -1;
      if (setsockopt(sock, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof(interval)) != 0) return -1;
      return setsockopt(sock, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof(count));
    }
    case QXSO_USER_TIMEOUT: {
      unsigned int ms = static_cast<unsigned int>(value);
      return setsockopt(sock, IPPROTO_TCP, TCP_USER_TIMEOUT, &ms, sizeof(ms));
    }
  }
  errno = EINVAL;
  return -1;
}

void StartConnect(int sock, uint32_t addrNetOrder, uint16_t port) {
  struct sockaddr_in addr;
  std::memset(&addr, 0, sizeof(addr));
  addr.sin_family = AF_INET;
  addr.sin_port = htons(port);
  addr.sin_addr.s_addr = addrNetOrder;
  connect(sock, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr));
}

namespace {
// poll() on the socket and the wake descriptor, restarted on EINTR.
int PollPair(struct pollfd* p, int wakeFd, int timeoutMs) {
  p[1].fd = wakeFd;
  p[1].events = POLLIN;
  p[1].revents = 0;
  int rc;
  do {
    rc = poll(p, wakeFd >= 0 ? 2 : 1, timeoutMs);
  } while (rc < 0 && errno == EINTR);
  return rc;
}
}  // namespace

int PollConnectWake(int sock, int wakeFd, int timeoutMs) {
  if (sock < 0) return -1;
  struct pollfd p[2];
  p[0].fd = sock;
  p[0].events = POLLOUT;
  p[0].revents = 0;
  int rc = PollPair(p, wakeFd, timeoutMs);
  if (rc == 0) return 0;
  if (rc < 0) return -1;
  if (p[0].revents == 0) return 2;
  return PollConnect(sock, 0);
}

int PollSocketWake(int sock, bool wantRead, bool wantWrite, int wakeFd, int timeoutMs) {
  if (sock < 0) return QXNET_SOCKET_BROKEN;
  struct pollfd p[2];
  p[0].fd = sock;
  p[0].events = static_cast<short>((wantRead ? POLLIN : 0) | (wantWrite ? POLLOUT : 0));
  p[0].revents = 0;
  int rc = PollPair(p, wakeFd, timeoutMs);
  if (rc == 0) return 0;
  if (rc < 0) return QXNET_SOCKET_BROKEN;
  int r = 0;
  if (p[1].revents & POLLIN) r |= QXPOLL_WAKE;
  short ev = p[0].revents;
  if (ev & POLLIN) r |= QXPOLL_READ;
  if ((ev & POLLOUT) && wantWrite) r |= QXPOLL_WRITE;
  // An error or hang-up with nothing to read: the receiver learns it from recv when it
  // reads, a writer from the broken code.
  if ((ev & (POLLERR | POLLHUP | POLLNVAL)) && !(r & (QXPOLL_READ | QXPOLL_WRITE))) {
    if (wantRead && !(ev & POLLNVAL)) return r | QXPOLL_READ;
    return QXNET_SOCKET_BROKEN;
  }
  return r;
}

void ShutdownAndClose(int sock, int drainMs) {
  if (sock < 0) return;
  if (shutdown(sock, SHUT_WR) == 0) {
    // The peer's unread answers would turn the close into a reset that destroys what is
    // still in flight: read them until the peer closes too.
    struct timespec t0;
    clock_gettime(CLOCK_MONOTONIC, &t0);
    char sink[4096];
    for (;;) {
      struct timespec t;
      clock_gettime(CLOCK_MONOTONIC, &t);
      long elapsed = (t.tv_sec - t0.tv_sec) * 1000 + (t.tv_nsec - t0.tv_nsec) / 1000000;
      if (elapsed >= drainMs) break;
      short revents;
      if (PollOne(sock, POLLIN, static_cast<int>(drainMs - elapsed), &revents) <= 0) break;
      ssize_t n = recv(sock, sink, sizeof(sink), MSG_DONTWAIT);
      if (n == 0) break;
      if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) break;
    }
  }
  close(sock);
}
