#include "base/UdpSocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {
sockaddr_in MakeAddr(uint32_t addrNetOrder, uint16_t port) {
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof(sa));
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  sa.sin_addr.s_addr = addrNetOrder;
  return sa;
}
}  // namespace

int CreateUdpSocket() { return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP); }

int SetUdpBroadcast(int sock, int on) {
  int v = on ? 1 : 0;
  return setsockopt(sock, SOL_SOCKET, SO_BROADCAST, &v, sizeof(v)) == 0 ? 0 : -1;
}

int BindIPv4(int sock, uint32_t addrNetOrder, uint16_t port) {
  sockaddr_in sa = MakeAddr(addrNetOrder, port);
  return bind(sock, reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) == 0 ? 0 : -1;
}

int LocalPort(int sock) {
  sockaddr_in sa;
  socklen_t len = sizeof(sa);
  if (getsockname(sock, reinterpret_cast<sockaddr*>(&sa), &len) != 0) return -1;
  return ntohs(sa.sin_port);
}

long UdpSendTo(int sock, const void* data, unsigned long len, uint32_t addrNetOrder, uint16_t port) {
  sockaddr_in sa = MakeAddr(addrNetOrder, port);
  ssize_t n;
  do {
    n = sendto(sock, data, len, MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&sa), sizeof(sa));
  } while (n < 0 && errno == EINTR);
  return static_cast<long>(n);
}

long UdpRecvFrom(int sock, void* data, unsigned long len, uint32_t* fromNetOrder, uint16_t* fromPort) {
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof(sa));
  socklen_t salen = sizeof(sa);
  ssize_t n;
  do {
    n = recvfrom(sock, data, len, 0, reinterpret_cast<sockaddr*>(&sa), &salen);
  } while (n < 0 && errno == EINTR);
  if (n >= 0) {
    if (fromNetOrder) *fromNetOrder = sa.sin_addr.s_addr;
    if (fromPort) *fromPort = ntohs(sa.sin_port);
  }
  return static_cast<long>(n);
}

int UdpRecvBatch(int sock, UdpRecvSlot* slots, int n) {
  if (n <= 0) return 0;
  if (n > kUdpRecvBatchMax) n = kUdpRecvBatchMax;
  mmsghdr msgs[kUdpRecvBatchMax];
  iovec iov[kUdpRecvBatchMax];
  sockaddr_in from[kUdpRecvBatchMax];
  std::memset(msgs, 0, sizeof(mmsghdr) * static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    iov[i].iov_base = slots[i].data;
    iov[i].iov_len = slots[i].cap;
    msgs[i].msg_hdr.msg_iov = &iov[i];
    msgs[i].msg_hdr.msg_iovlen = 1;
    msgs[i].msg_hdr.msg_name = &from[i];
    msgs[i].msg_hdr.msg_namelen = sizeof(from[i]);
  }
  int got;
  do {
    got = recvmmsg(sock, msgs, static_cast<unsigned>(n), MSG_DONTWAIT, nullptr);
  } while (got < 0 && errno == EINTR);
  if (got < 0) return (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : -1;
  for (int i = 0; i < got; ++i) {
    slots[i].len = static_cast<long>(msgs[i].msg_len);
    bool named = msgs[i].msg_hdr.msg_namelen >= sizeof(sockaddr_in);
    slots[i].fromNetOrder = named ? from[i].sin_addr.s_addr : 0;
    slots[i].fromPort = named ? ntohs(from[i].sin_port) : 0;
  }
  return got;
}

uint32_t InetAddr(const char* text) { return text ? inet_addr(text) : INADDR_NONE; }

void InetNtoa(uint32_t addrNetOrder, char* out, unsigned long size) {
  if (!out || size == 0) return;
  in_addr a;
  a.s_addr = addrNetOrder;
  char buf[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &a, buf, sizeof(buf));
  std::snprintf(out, size, "%s", buf);
}
