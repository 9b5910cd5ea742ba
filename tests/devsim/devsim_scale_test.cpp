// qxdevsim at scale: a connection burst held in the listen backlog, ten
// thousand idle sessions on one device port in little memory, and the
// --max-conns ceiling.
#include <gtest/gtest.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iostream>
#include <memory>
#include <vector>

#include "checked_sim.h"
#include "devsim_client.h"
#include "raw_client.h"

using devsimtest::CheckedSim;
using devsimtest::Frame;
using devsimtest::PausedSim;
using devsimtest::RawClient;

namespace {

// The descriptor limit raised to the hard limit; false when still below `need`.
bool descriptorsFor(rlim_t need) {
  rlimit rl;
  if (getrlimit(RLIMIT_NOFILE, &rl) != 0) return false;
  if (rl.rlim_cur < rl.rlim_max) {
    rl.rlim_cur = rl.rlim_max;
    setrlimit(RLIMIT_NOFILE, &rl);
    getrlimit(RLIMIT_NOFILE, &rl);
  }
  return rl.rlim_cur >= need;
}

long readLong(const std::string& path) {
  std::ifstream f(path);
  long v = -1;
  f >> v;
  return v;
}

long rssKiB(pid_t pid) {
  std::ifstream f("/proc/" + std::to_string(pid) + "/status");
  std::string key;
  while (f >> key) {
    if (key == "VmRSS:") {
      long v = -1;
      f >> v;
      return v;
    }
    f.ignore(1 << 20, '\n');
  }
  return -1;
}

// A non-blocking connect to 127.0.0.1:port; the descriptor, or -1.
int startConnect(uint16_t port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0 && errno != EINPROGRESS) {
    close(fd);
    return -1;
  }
  return fd;
}

// How many of the connects have completed within ms.
size_t completed(std::vector<int>& fds, int ms) {
  std::vector<pollfd> p;
  for (int fd : fds) p.push_back(pollfd{fd, POLLOUT, 0});
  size_t done = 0;
  for (int waited = 0; waited <= ms && done < p.size(); waited += 50) {
    if (poll(p.data(), p.size(), 50) < 0) break;
    done = 0;
    for (auto& q : p) {
      int err = 0;
      socklen_t len = sizeof err;
      if ((q.revents & POLLOUT) && getsockopt(q.fd, SOL_SOCKET, SO_ERROR, &err, &len) == 0 && err == 0) ++done;
    }
  }
  return done;
}

}  // namespace

TEST(DevSimScale, ABurstOfConnectsWaitsInTheBacklog) {
  const int kBurst = 4096;
  if (readLong("/proc/sys/net/core/somaxconn") < kBurst)
    GTEST_SKIP() << "net.core.somaxconn is below " << kBurst;
  if (!descriptorsFor(kBurst + 100)) GTEST_SKIP() << "descriptor limit too low for " << kBurst << " sockets";
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  std::vector<int> fds;
  {
    // Nothing is accepted while paused: every completed connect sits in the backlog.
    PausedSim pause(sim.pid());
    ASSERT_TRUE(pause.ok());
    for (int i = 0; i < kBurst; ++i) {
      int fd = startConnect(sim.port());
      ASSERT_GE(fd, 0) << i;
      fds.push_back(fd);
    }
    EXPECT_EQ(completed(fds, 3000), static_cast<size_t>(kBurst)) << "the listen backlog holds the burst";
  }
  EXPECT_TRUE(sim.waitConnections(kBurst, 20000, false)) << sim.cmd("STATS");
  for (int fd : fds) close(fd);
  EXPECT_TRUE(sim.waitConnections(0, 20000, false));
}

TEST(DevSimScale, TenThousandIdleSessionsOnOnePortInLittleMemory) {
  const int kSessions = 10000;
  if (!descriptorsFor(kSessions + 100)) GTEST_SKIP() << "descriptor limit too low for " << kSessions << " sessions";
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  long before = rssKiB(sim.pid());
  ASSERT_GT(before, 0);
  std::vector<std::unique_ptr<RawClient>> cs;
  std::string auth = devsimtest::frameOf(devsimtest::request("10000", "14012", devsimtest::authBody("admin", "admin")));
  for (int i = 0; i < kSessions; ++i) {
    cs.push_back(std::make_unique<RawClient>(sim.port()));
    ASSERT_TRUE(cs.back()->connected()) << i;
    ASSERT_TRUE(cs.back()->sendBytes(auth)) << i;
  }
  ASSERT_TRUE(sim.waitConnections(kSessions, 60000, true)) << sim.cmd("STATS");
  for (auto& c : cs) {
    Frame f;
    ASSERT_TRUE(c->readAnswer("10000", "14012", f));
  }
  long after = rssKiB(sim.pid());
  double perConn = (after - before) * 1024.0 / kSessions;
  std::cout << "[ RSS      ] qxdevsim with " << kSessions << " idle authenticated sessions: " << after
            << " KiB (" << before << " KiB at start, " << static_cast<long>(perConn) << " bytes per session)\n";
  RecordProperty("rss_kib", static_cast<int>(after));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  // What a session keeps (connection record, message log entry, map nodes) is
  // under a KiB; any buffer allocated up front per connection would show here.
  // Sanitizer builds inflate every allocation, so the bound holds only without.
  EXPECT_LT(perConn, 2048.0);
#endif
  EXPECT_EQ(sim.cmd("PING"), "OK pong");
  EXPECT_EQ(sim.stat("auth_ok"), kSessions);
}

TEST(DevSimScale, MaxConnsClosesConnectionsBeyondTheCeiling) {
  CheckedSim sim({"--max-conns", "3"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  std::vector<std::unique_ptr<RawClient>> cs;
  for (int i = 0; i < 3; ++i) {
    cs.push_back(std::make_unique<RawClient>(sim.port()));
    ASSERT_TRUE(devsimtest::authenticate(*cs.back())) << i;
  }
  RawClient extra(sim.port());
  ASSERT_TRUE(extra.connected());
  EXPECT_TRUE(extra.closedWithin(2000)) << "the fourth is closed at once";
  EXPECT_EQ(sim.stat("connections_refused"), 1);
  cs.pop_back();  // one leaves: room for another
  ASSERT_TRUE(sim.waitConnectionsAtMost(2, 2000));
  RawClient next(sim.port());
  EXPECT_TRUE(devsimtest::authenticate(next));
  EXPECT_EQ(sim.cmd("PING"), "OK pong");
}
