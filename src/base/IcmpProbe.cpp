#include "base/IcmpProbe.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "base/HostNetLog.h"
#include "base/HostNetParse.h"
#include "base/IcmpEcho.h"

namespace {

const int kAttempts = 5;
const int kWaitMs = 100;

// One attempt's answer: 0 replied, 1 go on with the next attempt, < 0 the probe fails.
int ReadAnswer(IIcmpIo& io, uint32_t dest, const char* destText) {
  uint8_t buf[256];
  uint32_t from = 0;
  int n = io.Receive(buf, sizeof buf, &from);
  if (n < 1) {
    HostNetLog(0, "[CSearchIPC] recvfrom failed.\n");
    return -1;
  }
  switch (ClassifyEchoAnswer(buf, n, io.HasIpHeader(), from, dest)) {
    case ECHO_REPLY:
      HostNetLog(0, "[CSearchIPC]got replay from ip: %s\n", destText);
      return 0;
    case ECHO_NOT_FROM_DEST:
      // The probed address is printed, not the sender: the log has always read so.
      HostNetLog(0, "[CSearchIPC] recv packet not from dest ip, but from: %s\n", destText);
      break;
    case ECHO_NOT_REPLY: HostNetLog(0, "[CSearchIPC]recv not icmp packet.\n"); break;
    case ECHO_BAD_LENGTH: HostNetLog(0, "[CSearchIPC] recv bad length.\n"); break;
  }
  io.Pause(100);
  return 1;
}

// One attempt: send, wait, read. Same codes as ReadAnswer.
int Attempt(IIcmpIo& io, uint32_t dest, uint16_t attempt, const char* destText) {
  uint8_t req[QXNET_ECHO_REQUEST_SIZE];
  BuildEchoRequest(req, attempt, io.NowSeconds());
  if (io.Send(req, sizeof req, dest) != static_cast<int>(sizeof req)) {
    HostNetLog(0, "[CSearchIPC] sendto failed.\n");
    return -2;
  }
  int w = io.WaitReadable(kWaitMs);
  if (w == 0) return 1;
  if (w == -1) {
    HostNetLog(0, "[CSearchIPC] select failed.\n");
    return -3;
  }
  if (w != 1) {
    HostNetLog(0, "[CSearchIPC] socket not readable.\n");
    return -4;
  }
  return ReadAnswer(io, dest, destText);
}

class SocketIcmpIo : public IIcmpIo {
 public:
  SocketIcmpIo(int fd, bool raw) : m_fd(fd), m_raw(raw) {}
  ~SocketIcmpIo() override { close(m_fd); }
  bool HasIpHeader() const override { return m_raw; }
  int Send(const uint8_t* data, int len, uint32_t dest) override {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = dest;
    ssize_t n = sendto(m_fd, data, static_cast<size_t>(len), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&to),
                       sizeof to);
    return static_cast<int>(n);
  }
  int WaitReadable(int timeoutMs) override {
    pollfd p{m_fd, POLLIN, 0};
    int r;
    do r = poll(&p, 1, timeoutMs);
    while (r < 0 && errno == EINTR);
    if (r <= 0) return r < 0 ? -1 : 0;
    return (p.revents & POLLIN) ? 1 : -2;
  }
  int Receive(uint8_t* buf, int cap, uint32_t* from) override {
    sockaddr_in peer{};
    socklen_t len = sizeof peer;
    ssize_t n = recvfrom(m_fd, buf, static_cast<size_t>(cap), 0, reinterpret_cast<sockaddr*>(&peer), &len);
    *from = peer.sin_addr.s_addr;
    return static_cast<int>(n);
  }
  void Pause(int ms) override {
    timespec ts{ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {}
  }
  uint32_t NowSeconds() override { return static_cast<uint32_t>(time(nullptr)); }

 private:
  int m_fd;
  bool m_raw;
};

// Opens the ICMP socket allowed by `kind`; -1 when none can be opened.
int OpenIcmpSocket(IcmpSocketKind kind, bool* raw) {
  int fd = -1;
  if (kind != ICMP_SOCKET_PING) fd = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
  *raw = fd >= 0;
  if (fd < 0 && kind != ICMP_SOCKET_RAW) fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_ICMP);
  return fd;
}

}  // namespace

int RunEchoProbe(IIcmpIo& io, uint32_t dest) {
  std::string destText = Ipv4Text(dest);
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    int r = Attempt(io, dest, static_cast<uint16_t>(attempt), destText.c_str());
    if (r <= 0) return r;
  }
  HostNetLog(0, "[CSearchIPC] no replay recv, ip %s is usable.\n", destText.c_str());
  return 1;
}

int PintTestWith(unsigned long addr, IcmpSocketKind kind) {
  bool raw = false;
  int fd = OpenIcmpSocket(kind, &raw);
  if (fd < 0) {
    HostNetLog(0, "[CSearchIPC] create socket failed.");
    return -1;
  }
  SocketIcmpIo io(fd, raw);
  return RunEchoProbe(io, static_cast<uint32_t>(addr));
}

int PintTest(unsigned long addr) { return PintTestWith(addr, ICMP_SOCKET_AUTO); }
