// What an idle session touches of its own memory block from one heartbeat to the next.
// With thousands of sessions every page touched per heartbeat costs CPU (each comes back
// cold after ten seconds), so the heartbeat's path keeps to a few pages: the top of the
// worker's stack, the read-ahead room's first page and the receive buffer's first page.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "session_fixture.h"

namespace {

using qxtest::Capture;

// A session block: a one-page guard ("---p") on a 2 MiB boundary, the block's
// read-write rest right behind it.
struct Mapping {
  uintptr_t begin = 0, end = 0;
  std::string perms, name;
  long referencedKiB = 0;
};

std::vector<Mapping> ReadSmaps() {
  std::vector<Mapping> maps;
  std::ifstream in("/proc/self/smaps");
  std::string line;
  while (std::getline(in, line)) {
    unsigned long b, e;
    char perms[8] = {0};
    if (std::sscanf(line.c_str(), "%lx-%lx %7s", &b, &e, perms) == 3 && line.find(':') > line.find(' ')) {
      Mapping m;
      m.begin = b;
      m.end = e;
      m.perms = perms;
      std::istringstream fields(line);
      std::string f;
      for (int i = 0; i < 6 && fields >> f; ++i)
        if (i == 5) m.name = f;
      maps.push_back(m);
    } else if (!maps.empty() && line.rfind("Referenced:", 0) == 0) {
      maps.back().referencedKiB = std::atol(line.c_str() + 11);
    }
  }
  return maps;
}

// Starts of the read-write parts of every anonymous mapping that lies behind a one-page
// guard on a 2 MiB boundary.
std::set<uintptr_t> GuardedBlocks(const std::vector<Mapping>& maps) {
  std::set<uintptr_t> blocks;
  for (size_t i = 0; i + 1 < maps.size(); ++i) {
    const Mapping& g = maps[i];
    const Mapping& rw = maps[i + 1];
    if (g.perms == "---p" && g.name.empty() && g.end - g.begin == 4096 && g.begin % (2u << 20) == 0 &&
        rw.begin == g.end && rw.perms == "rw-p" && rw.name.empty())
      blocks.insert(rw.begin);
  }
  return blocks;
}

TEST(SessionFootprint, AnIdleSessionsHeartbeatTouchesAtMostFivePagesOfItsBlock) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizer builds give every frame redzones or shadow state: the page count is the plain build's";
#else
  const int kSessions = 4;
  qxtest::DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  Capture::Get().Install();
  std::set<uintptr_t> before = GuardedBlocks(ReadSmaps());
  std::vector<long> ids;
  for (int i = 0; i < kSessions; ++i) ids.push_back(qxtest::LoginLocal(sim.port()));
  for (long id : ids) ASSERT_GT(id, 0);
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_AUTHENTICATED, kSessions, 10000));
  // One heartbeat first, so that what its path touches the first time is in place.
  std::this_thread::sleep_for(std::chrono::seconds(11));

  std::set<uintptr_t> after = GuardedBlocks(ReadSmaps());
  std::set<uintptr_t> blocks;
  for (uintptr_t b : after)
    if (!before.count(b)) blocks.insert(b);
  ASSERT_EQ(blocks.size(), static_cast<size_t>(kSessions)) << "one block per session";

  {
    std::ofstream clear("/proc/self/clear_refs");
    ASSERT_TRUE(clear.good());
    clear << "1";
  }
  long long heartbeats0 = sim.stat("heartbeats");
  std::this_thread::sleep_for(std::chrono::milliseconds(10500));
  long long heartbeats = sim.stat("heartbeats") - heartbeats0;
  ASSERT_GE(heartbeats, kSessions) << "every session sent a heartbeat in the window";

  long touchedKiB = 0;
  for (const Mapping& m : ReadSmaps())
    if (blocks.count(m.begin)) touchedKiB += m.referencedKiB;
  double pagesPerSession = static_cast<double>(touchedKiB) / 4.0 / kSessions;
  EXPECT_GE(pagesPerSession, 1.0) << "the measurement sees the heartbeat's pages at all";
  EXPECT_LE(pagesPerSession, 5.0) << touchedKiB << " KiB of the blocks touched by " << kSessions
                                  << " sessions in one heartbeat period";
  for (long id : ids) EXPECT_EQ(0, QXNet_LogOutDev(id));
#endif
}

}  // namespace
