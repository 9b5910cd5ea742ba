// Sessions to a device that is down: the 30 connect attempts, auto-reconnect on and off,
// and logout during the reconnect pause. These take the real protocol timings.
#include <arpa/inet.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "capture.h"
#include "devsim_client.h"
#include "session_fixture.h"

using qxtest::Capture;
using qxtest::Clock;
using qxtest::DevSim;
using qxtest::LoginLocal;
using qxtest::Since;

namespace {

// A loopback port with nothing listening on it.
uint16_t ClosedPort() {
  int s = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(s, reinterpret_cast<sockaddr*>(&a), sizeof(a));
  socklen_t len = sizeof(a);
  getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
  close(s);
  return ntohs(a.sin_port);
}

// Threads of this process right now.
int ThreadCount() {
  int n = 0;
  DIR* d = opendir("/proc/self/task");
  if (!d) return -1;
  while (dirent* e = readdir(d))
    if (e->d_name[0] != '.') ++n;
  closedir(d);
  return n;
}

// A detached thread leaves the task list a moment after its last instruction.
bool WaitThreadCount(int n, int timeoutMs) {
  auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  while (ThreadCount() != n) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// A device that appears on a port: tells whether anyone connected to it.
class Listener {
 public:
  explicit Listener(uint16_t port) {
    fd_ = socket(AF_INET, SOCK_STREAM, 0);
    int one = 1;
    setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    ok_ = fd_ >= 0 && bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof(a)) == 0 && listen(fd_, 8) == 0;
  }
  ~Listener() {
    if (fd_ >= 0) close(fd_);
  }
  bool ok() const { return ok_; }
  // True as soon as a connection is waiting to be accepted.
  bool Accepted(int timeoutMs) {
    pollfd p{fd_, POLLIN, 0};
    return poll(&p, 1, timeoutMs) > 0;
  }

 private:
  int fd_ = -1;
  bool ok_ = false;
};

TEST(SessionDown, AutoReconnectOffGivesEvent0OnceAndTheWorkerEnds) {
  Capture::Get().Install();
  QXNet_SetAutoReconnect(0);
  const int threadsBefore = ThreadCount();
  uint16_t port = ClosedPort();
  auto t0 = Clock::now();
  long id = LoginLocal(port);
  ASSERT_GT(id, 0);
  // The count sees the worker while it tries: the check after the event is not vacuous.
  EXPECT_EQ(ThreadCount(), threadsBefore + 1);
  ASSERT_TRUE(Capture::Get().WaitEvent(0, 1, 60000));
  double t = Since(t0);
  EXPECT_GT(t, 33.0);  // 30 attempts of 1.1 s + 100 ms
  EXPECT_LT(t, 45.0);
  auto ev = Capture::Get().Events();
  ASSERT_GE(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 0);
  EXPECT_EQ(ev[0].text, "device[127.0.0.1] connect socket failed! \n");
  // The worker's thread is gone, not parked somewhere.
  EXPECT_TRUE(WaitThreadCount(threadsBefore, 1000)) << ThreadCount() << " threads, " << threadsBefore
                                                     << " before login";
  // The device comes up now: a worker still alive would connect after its 8 s pause.
  Listener dev(port);
  ASSERT_TRUE(dev.ok());
  EXPECT_FALSE(dev.Accepted(10000)) << "a connect attempt after event 0 with reconnection off";
  EXPECT_EQ(Capture::Get().CountEvents(0), 1);
  EXPECT_EQ(Capture::Get().CountEvents(5), 0);
  auto t1 = Clock::now();
  EXPECT_EQ(0, QXNet_LogOutDev(id));
  EXPECT_LT(Since(t1), 0.1);
  EXPECT_EQ(ThreadCount(), threadsBefore);
  QXNet_SetAutoReconnect(1);
}

TEST(SessionDown, AutoReconnectOnRetriesAfterThePauseAndLogoutInThePauseIsPrompt) {
  Capture::Get().Install();
  QXNet_SetAutoReconnect(1);
  uint16_t port = ClosedPort();
  long id = LoginLocal(port);
  ASSERT_GT(id, 0);
  ASSERT_TRUE(Capture::Get().WaitEvent(0, 1, 60000));
  // The device comes up during the 8 s pause: the next attempt connects.
  DevSim sim({"--listen", "127.0.0.1:" + std::to_string(port)});
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto t0 = Clock::now();
  ASSERT_TRUE(Capture::Get().WaitEvent(6, 1, 20000));
  double t = Since(t0);
  EXPECT_GT(t, 5.0);   // not before the pause is over
  EXPECT_LT(t, 12.0);
  EXPECT_EQ(0, QXNet_LogOutDev(id));

  // A second session to a closed port: logout during its reconnect pause.
  Capture::Get().Clear();
  long id2 = LoginLocal(ClosedPort());
  ASSERT_GT(id2, 0);
  ASSERT_TRUE(Capture::Get().WaitEvent(0, 1, 60000));
  std::this_thread::sleep_for(std::chrono::seconds(2));
  auto t1 = Clock::now();
  EXPECT_EQ(0, QXNet_LogOutDev(id2));
  EXPECT_LT(Since(t1), 0.5);
}

}  // namespace
