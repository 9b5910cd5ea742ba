// The floor under the session worker's idle cost: the same wake pattern with nothing of
// the library around it. N threads, each holding one connection to the simulator and an
// eventfd, authenticate once and then loop on poll(socket, eventfd, time to the next
// heartbeat): at the deadline the heartbeat frame goes out, an answer is read and
// dropped. Heartbeats go out on the same wall-clock second boundaries as the library's
// (ten seconds after the second of the last one), the frames are built by the library's
// own envelope builder, so the simulator does the same work for both.
//
//   bench_idle_floor --port P --sessions N --idle SECONDS
//
// Prints one line: "floor N=<n> ready=<r> idle_s=<s> cpu_pct=<p> answers=<a>", the CPU of
// this whole process in the idle window as % of one core.
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <arpa/inet.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <thread>
#include <vector>

#include "host_limits.h"
#include "proc_stats.h"
#include "session/Protocol.h"
#include "xml/xmlutil.h"

namespace {
constexpr int kHeartbeatSeconds = 10;
constexpr size_t kStackBytes = 64 * 1024;

struct Frames {
  std::vector<char> auth, heartbeat;
};

struct Conn {
  int sock = -1;
  int wake = -1;
  const Frames* frames = nullptr;
  pthread_t thread{};
  bool started = false;
};

std::atomic<long> g_ready{0};
std::atomic<long> g_answers{0};
std::atomic<bool> g_counting{false};

std::vector<char> Frame(const char* type, long cmd, const char* body) {
  char xml[1024];
  char cmdText[16];
  std::snprintf(cmdText, sizeof cmdText, "%ld", cmd);
  int len = MakeXMLRequest(xml, sizeof xml, type, cmdText, "0", body, -1);
  if (len < 0) len = 0;
  std::vector<char> f(8 + static_cast<size_t>(len));
  uint32_t head[2] = {proto::kFrameFlag, static_cast<uint32_t>(len)};  // both little-endian on x86
  std::memcpy(f.data(), head, 8);
  std::memcpy(f.data() + 8, xml, static_cast<size_t>(len));
  return f;
}

bool SendAll(int fd, const std::vector<char>& f) {
  size_t off = 0;
  while (off < f.size()) {
    ssize_t n = send(fd, f.data() + off, f.size() - off, MSG_NOSIGNAL);
    if (n <= 0) return false;
    off += static_cast<size_t>(n);
  }
  return true;
}

int64_t WallMs() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Reads what is there; false when the peer closed or the socket failed.
bool Drain(int fd, bool count) {
  char buf[4096];
  ssize_t n = recv(fd, buf, sizeof buf, MSG_DONTWAIT);
  if (n == 0) return false;
  if (n < 0) return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
  if (count) ++g_answers;
  return true;
}

void* Run(void* arg) {
  Conn* c = static_cast<Conn*>(arg);
  if (!SendAll(c->sock, c->frames->auth)) return nullptr;
  pollfd first = {c->sock, POLLIN, 0};
  if (poll(&first, 1, 10000) != 1 || !Drain(c->sock, false)) return nullptr;
  ++g_ready;
  int64_t lastSecond = WallMs() / 1000;  // as if a heartbeat had just gone out
  for (;;) {
    int64_t left = (lastSecond + kHeartbeatSeconds) * 1000 - WallMs();
    if (left <= 0) {
      if (!SendAll(c->sock, c->frames->heartbeat)) return nullptr;
      lastSecond = WallMs() / 1000;
      continue;
    }
    pollfd p[2] = {{c->sock, POLLIN, 0}, {c->wake, POLLIN, 0}};
    int r = poll(p, 2, static_cast<int>(left));
    if (r < 0 && errno != EINTR) return nullptr;
    if (r > 0 && p[1].revents) return nullptr;
    if (r > 0 && p[0].revents && !Drain(c->sock, g_counting.load())) return nullptr;
  }
}

// The session socket's options: its keepalive timers and buffer sizes are part of what
// an idle connection costs.
int Connect(uint16_t port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  int one = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  int idle = 10, intvl = 5, cnt = 4, userTimeout = 30000, rcvbuf = 1 << 20, sndbuf = 128 << 10;
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf);
  setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf);
  setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &one, sizeof one);
  setsockopt(fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof idle);
  setsockopt(fd, IPPROTO_TCP, TCP_KEEPINTVL, &intvl, sizeof intvl);
  setsockopt(fd, IPPROTO_TCP, TCP_KEEPCNT, &cnt, sizeof cnt);
  setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &userTimeout, sizeof userTimeout);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

bool Start(Conn& c, uint16_t port, const Frames& frames, const pthread_attr_t& attr) {
  c.frames = &frames;
  c.sock = Connect(port);
  c.wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (c.sock < 0 || c.wake < 0) return false;
  c.started = pthread_create(&c.thread, &attr, Run, &c) == 0;
  return c.started;
}

void StopAll(std::vector<Conn>& conns) {
  const uint64_t one = 1;
  for (auto& c : conns)
    if (c.wake >= 0 && write(c.wake, &one, sizeof one) < 0) std::perror("bench_idle_floor: eventfd");
  for (auto& c : conns) {
    if (c.started) pthread_join(c.thread, nullptr);
    if (c.sock >= 0) close(c.sock);
    if (c.wake >= 0) close(c.wake);
  }
}

struct Options {
  uint16_t port = 0;
  long sessions = 0;
  double idle = 20;
};

bool Parse(int argc, char** argv, Options& o) {
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--port")) o.port = static_cast<uint16_t>(std::atoi(argv[i + 1]));
    else if (!std::strcmp(argv[i], "--sessions")) o.sessions = std::atol(argv[i + 1]);
    else if (!std::strcmp(argv[i], "--idle")) o.idle = std::atof(argv[i + 1]);
    else return false;
  }
  return o.port != 0 && o.sessions > 0 && o.idle > 0;
}
}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!Parse(argc, argv, o)) {
    std::fprintf(stderr, "usage: bench_idle_floor --port P --sessions N --idle SECONDS\n");
    return 2;
  }
  qxbench::RaiseFdLimit("bench_idle_floor");
  Frames frames;
  frames.auth = Frame(proto::kTypeConfig, proto::kCmdAuth, "<userName>admin</userName>\n<password>admin</password>\n");
  frames.heartbeat = Frame(proto::kTypeDevice, proto::kCmdHeartbeat, "");
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, kStackBytes);
  std::vector<Conn> conns(static_cast<size_t>(o.sessions));
  long started = 0;
  for (auto& c : conns) started += Start(c, o.port, frames, attr) ? 1 : 0;
  pthread_attr_destroy(&attr);
  qxbench::WaitUntil([&] { return g_ready.load() >= started; }, 60 + static_cast<double>(o.sessions) / 100);
  g_counting = true;
  double c0 = qxbench::CpuSeconds(), w0 = qxbench::NowSeconds();
  std::this_thread::sleep_for(std::chrono::duration<double>(o.idle));
  double cpu = qxbench::CpuSeconds() - c0, wall = qxbench::NowSeconds() - w0;
  g_counting = false;
  std::printf("floor N=%ld ready=%ld idle_s=%.1f cpu_pct=%.2f answers=%ld\n", o.sessions, g_ready.load(), wall,
              100.0 * cpu / wall, g_answers.load());
  std::fflush(stdout);
  StopAll(conns);
  return g_ready.load() == o.sessions ? 0 : 1;
}
