#include "base/SDKSocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>

#include "base/FuncLog.h"

namespace {
std::atomic<int> s_startCount{0};
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
  struct pollfd p;
  p.fd = sock;
  p.events = write ? POLLOUT : POLLIN;
  p.revents = 0;
  int rc;
  do {
    rc = poll(&p, 1, timeoutMs);
  } while (rc < 0 && errno == EINTR);
  if (rc == 0) return 0;
  if (rc < 0) return QXNET_SOCKET_BROKEN;
  // Readable includes a peer's orderly close (recv then returns 0); an error or hang-up
  // without the wanted direction is the "exception set only" case.
  if (p.revents & (write ? POLLOUT : (POLLIN | POLLHUP))) return 1;
  return QXNET_SOCKET_BROKEN;
}

int PollSocketRW(int sock, int timeoutMs) {
  if (sock < 0) return QXNET_SOCKET_BROKEN;
  struct pollfd p;
  p.fd = sock;
  p.events = POLLIN | POLLOUT;
  p.revents = 0;
  int rc;
  do {
    rc = poll(&p, 1, timeoutMs);
  } while (rc < 0 && errno == EINTR);
  if (rc == 0) return 0;
  if (rc < 0) return QXNET_SOCKET_BROKEN;
  int r = 0;
  if (p.revents & (POLLIN | POLLHUP | POLLERR)) r |= 1;
  if (p.revents & POLLOUT) r |= 2;
  if (r == 0) return QXNET_SOCKET_BROKEN;
  return r;
}

int PollConnect(int sock, int timeoutMs) {
  if (sock < 0) return -1;
  struct pollfd p;
  p.fd = sock;
  p.events = POLLOUT;
  p.revents = 0;
  int rc;
  do {
    rc = poll(&p, 1, timeoutMs);
  } while (rc < 0 && errno == EINTR);
  if (rc == 0) return 0;
  if (rc < 0 || (p.revents & (POLLERR | POLLHUP | POLLNVAL))) return -1;
  int err = 0;
  socklen_t len = sizeof(err);
  if (getsockopt(sock, SOL_SOCKET, SO_ERROR, &err, &len) != 0 || err != 0) return -1;
  struct sockaddr_storage peer;
  socklen_t plen = sizeof(peer);
  if (getpeername(sock, reinterpret_cast<struct sockaddr*>(&peer), &plen) != 0) return -1;
  return (p.revents & POLLOUT) ? 1 : 0;
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
  if (inet_pton(AF_INET, text, &a) != 1) return false;
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

long SocketRecv(int sock, void* data, unsigned long len) {
  ssize_t n;
  do {
    n = recv(sock, data, len, 0);
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

int CloseSocket(int sock) { return close(sock); }
