// qxdevsim CHAOS: random drops, filler between frames, stalls and reboots
// every period, reproducible from a seed.
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

#include "checked_sim.h"
#include "devsim_client.h"
#include "raw_client.h"

using devsimtest::CheckedSim;
using devsimtest::Frame;
using devsimtest::RawClient;
using devsimtest::tag;
using qxtest::DevSim;

namespace {

enum class End { Open, Fin, Reset };

// How the connection ends within ms (data before the end is discarded).
End endOf(RawClient& c, int ms) {
  char buf[4096];
  for (;;) {
    pollfd p{c.fd(), POLLIN, 0};
    int r = poll(&p, 1, ms);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) return End::Open;
    ssize_t n = recv(c.fd(), buf, sizeof buf, 0);
    if (n == 0) return End::Fin;
    if (n < 0) return errno == ECONNRESET ? End::Reset : End::Fin;
  }
}

std::vector<std::unique_ptr<RawClient>> authenticated(CheckedSim& sim, int n, int dev = 0) {
  std::vector<std::unique_ptr<RawClient>> cs;
  for (int i = 0; i < n; ++i) {
    cs.push_back(std::make_unique<RawClient>(sim.port(dev)));
    if (!devsimtest::authenticate(*cs.back())) cs.clear();
    if (cs.empty()) break;
  }
  return cs;
}

// CPU time the process has used, in clock ticks (user + system).
long long cpuTicks(pid_t pid) {
  std::ifstream f("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  std::getline(f, line);
  std::istringstream rest(line.substr(line.rfind(')') + 2));
  std::string field;
  long long utime = 0, stime = 0;
  for (int i = 3; i <= 15 && rest >> field; ++i) {
    if (i == 14) utime = std::stoll(field);
    if (i == 15) stime = std::stoll(field);
  }
  return utime + stime;
}

// Ids of the open connections, from CONNS.
std::set<std::string> openIds(CheckedSim& sim) {
  std::string r = sim.cmd("CONNS");
  std::set<std::string> ids;
  for (size_t p = 0; (p = r.find(" id=", p)) != std::string::npos; ++p)
    ids.insert(r.substr(p + 4, r.find(',', p) - p - 4));
  return ids;
}

}  // namespace

TEST(DevSimChaos, OptionsAreCheckedShownAndSwitchedOff) {
  CheckedSim sim({"--devices", "2"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  EXPECT_EQ(sim.cmd("CHAOS"), "OK off");
  EXPECT_EQ(sim.cmd("CHAOS drop=1001"), "ERR bad drop");
  EXPECT_EQ(sim.cmd("CHAOS stall=-1"), "ERR bad stall");
  EXPECT_EQ(sim.cmd("CHAOS period_ms=0"), "ERR bad period_ms");
  EXPECT_EQ(sim.cmd("CHAOS seed=x"), "ERR bad seed");
  EXPECT_EQ(sim.cmd("CHAOS dorp=1"), "ERR unknown option dorp");
  EXPECT_EQ(sim.cmd("CHAOS on").rfind("ERR usage", 0), 0u);
  EXPECT_EQ(sim.cmd("CHAOS dev=2 drop=1"), "ERR bad dev");
  EXPECT_EQ(sim.stat("chaos_drops"), 0);
  EXPECT_EQ(sim.cmd("STATS").find("chaos_"), std::string::npos) << "no counters before any CHAOS";

  EXPECT_EQ(sim.cmd("CHAOS dev=1 period_ms=500 garbage=20 stall_ms=100 seed=7"), "OK devices=1 seed=7");
  EXPECT_EQ(sim.cmd("CHAOS dev=1"),
            "OK on period_ms=500 drop=0 garbage=20 reboot=0 stall=0 stall_ms=100 seed=7");
  EXPECT_EQ(sim.cmd("CHAOS dev=0"), "OK off");
  std::string stats = sim.cmd("STATS");
  for (const char* name : {"chaos_drops=0", "chaos_garbage=0", "chaos_reboots=0", "chaos_stalls=0"})
    EXPECT_NE(stats.find(name), std::string::npos) << name << " in " << stats;
  auto r = DevSim::fields(sim.cmd("CHAOS drop=3"));
  EXPECT_EQ(r["devices"], "2");
  EXPECT_FALSE(r["seed"].empty()) << "a seed is chosen and told";
  EXPECT_EQ(sim.cmd("CHAOS off"), "OK off");
  EXPECT_EQ(sim.cmd("CHAOS dev=1"), "OK off");
}

TEST(DevSimChaos, DropsCloseConnectionsSomeWithAResetAndNewOnesStillComeIn) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto cs = authenticated(sim, 40);
  ASSERT_EQ(cs.size(), 40u);
  ASSERT_TRUE(sim.cmdOk("CHAOS drop=1000 period_ms=50 seed=11"));
  int fins = 0, resets = 0;
  for (auto& c : cs) {
    End e = endOf(*c, 3000);
    fins += e == End::Fin;
    resets += e == End::Reset;
  }
  EXPECT_EQ(fins + resets, 40);
  EXPECT_GE(resets, 1) << "now and then with a reset";
  EXPECT_GE(fins, resets) << "mostly a plain close";
  EXPECT_GE(sim.stat("chaos_drops"), 40);
  // The device still accepts; the next round drops the newcomer too.
  RawClient late(sim.port());
  ASSERT_TRUE(late.connected());
  EXPECT_NE(endOf(late, 3000), End::Open);
  ASSERT_TRUE(sim.cmdOk("CHAOS off"));
  RawClient kept(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(kept));
  EXPECT_EQ(endOf(kept, 300), End::Open) << "no drops once off";
}

TEST(DevSimChaos, GarbageGoesBetweenFramesNeverInsideOne) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  // Frames leave in 30-byte pieces 15 ms apart: a filler that ignored frame
  // boundaries would land inside them.
  ASSERT_TRUE(sim.cmdOk("ARM last count=100 split=30 delay=15"));
  ASSERT_TRUE(sim.cmdOk("CHAOS garbage=1000 period_ms=20 seed=3"));
  const int kAnswers = 12;
  size_t filler = 0;
  for (int i = 0; i < kAnswers; ++i) {
    ASSERT_TRUE(c.sendRequest("30000", "35001", "<n>" + std::to_string(i) + "</n>"));
    // Filler bytes, then one whole answer.
    std::string b;
    for (;;) {
      ASSERT_TRUE(c.readExact(1, b, 3000)) << "answer " << i;
      if (b[0] != '\x5a') break;
      ++filler;
    }
    std::string rest;
    ASSERT_TRUE(c.readExact(7, rest, 3000));
    std::string header = b + rest;
    ASSERT_EQ(devsimtest::le32At(header, 0), devsimtest::kFlag) << "answer " << i << " starts with the flag";
    std::string payload;
    ASSERT_TRUE(c.readExact(devsimtest::le32At(header, 4), payload, 3000));
    EXPECT_EQ(tag(payload, "type"), "30000");
    EXPECT_EQ(tag(payload, "cmd"), "35001");
    EXPECT_NE(payload.find("</PrivateProto>"), std::string::npos) << "answer " << i << " is whole";
  }
  ASSERT_TRUE(sim.cmdOk("CHAOS off"));
  EXPECT_GE(sim.stat("chaos_garbage"), 3);
  EXPECT_GT(filler, 0u);
  EXPECT_EQ(sim.stat("frames_rx"), kAnswers + 1);
}

TEST(DevSimChaos, StallStopsReadingAndWritingThenQueuedOutputGoes) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(sim.cmdOk("CHAOS stall=1000 period_ms=50 stall_ms=300 seed=5"));
  ASSERT_TRUE(sim.waitStat("chaos_stalls", 1, 3000));
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  ASSERT_EQ(sim.cmd("HB last"), "OK 1");  // queued behind the stall
  long long cpu0 = cpuTicks(sim.pid());
  EXPECT_TRUE(c.silentFor(250)) << "nothing written while stalled";
  EXPECT_LT(cpuTicks(sim.pid()) - cpu0, 5) << "unread input does not keep the loop spinning";
  EXPECT_EQ(sim.count("30000", "35001"), 0) << "nothing read while stalled";
  ASSERT_TRUE(sim.cmdOk("CHAOS off"));
  Frame f;
  ASSERT_TRUE(c.readAnswer("30000", "35001", f, 3000)) << "the queued frame after the stall";
  ASSERT_TRUE(c.readAnswer("30000", "35001", f, 3000)) << "then the answer to what was read";
  EXPECT_EQ(sim.count("30000", "35001"), 1);
  EXPECT_TRUE(c.silentFor(100));
}

TEST(DevSimChaos, RebootClosesTheDeviceAloneAndItComesBack) {
  CheckedSim sim({"--devices", "2"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("SET reboot_pause_ms 300 dev=1"));
  RawClient onOne(sim.port(1));
  ASSERT_TRUE(devsimtest::authenticate(onOne));
  RawClient onZero(sim.port(0));
  ASSERT_TRUE(devsimtest::authenticate(onZero));
  ASSERT_TRUE(sim.cmdOk("CHAOS dev=1 reboot=1000 period_ms=50 seed=9"));
  EXPECT_NE(endOf(onOne, 3000), End::Open);
  ASSERT_TRUE(sim.waitStat("chaos_reboots", 1, 3000));
  ASSERT_TRUE(sim.cmdOk("CHAOS off dev=1"));
  EXPECT_GE(sim.stat("reboots"), 1);
  ASSERT_TRUE(onZero.sendRequest("30000", "35001"));
  Frame f;
  EXPECT_TRUE(onZero.readAnswer("30000", "35001", f)) << "the other device is untouched";
  bool back = false;
  for (int i = 0; i < 100 && !back; ++i) {
    RawClient again(sim.port(1));
    back = again.connected() && devsimtest::authenticate(again);
    if (!back) usleep(20000);
  }
  EXPECT_TRUE(back);
}

TEST(DevSimChaos, OneSeedOneSequenceOfDecisions) {
  // One round over the same 20 connections: the same seed drops the same ones.
  auto survivors = [](const std::string& seed) {
    CheckedSim sim;
    EXPECT_TRUE(sim.ok()) << sim.error();
    auto cs = authenticated(sim, 20);
    EXPECT_EQ(cs.size(), 20u);
    EXPECT_TRUE(sim.cmdOk("CHAOS period_ms=400 drop=300 garbage=300 stall=300 stall_ms=10 seed=" + seed));
    EXPECT_TRUE(sim.waitStat("chaos_rounds", 1, 3000));
    EXPECT_TRUE(sim.cmdOk("CHAOS off"));
    EXPECT_EQ(sim.stat("chaos_rounds"), 1);
    return openIds(sim);
  };
  std::set<std::string> a = survivors("42"), b = survivors("42"), c = survivors("43");
  EXPECT_EQ(a, b);
  EXPECT_LT(a.size(), 20u) << "some were dropped";
  EXPECT_GT(a.size(), 0u) << "some were kept";
  EXPECT_NE(a, c) << "another seed, another draw";
}
