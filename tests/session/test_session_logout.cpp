// Stopping many sessions: each logout is quick, and QXNet_Free stops all of them at once
// instead of one after another.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "capture.h"
#include "devsim_client.h"
#include "sanitizers.h"
#include "session_fixture.h"

using qxtest::Capture;
using qxtest::Clock;
using qxtest::DevSim;
using qxtest::LoginLocal;
using qxtest::Since;

namespace {

// ThreadSanitizer makes each thread's start and end many times dearer (200 logouts took
// 1.7 s there, against 0.09 s in a normal build and 0.3 s with AddressSanitizer): fewer
// sessions under it, the same bounds.
#ifdef QXTEST_TSAN
const int kSessions = 100;
#else
const int kSessions = 200;
#endif

// Logs kSessions sessions in to the simulator's device and waits until all are authenticated.
std::vector<long> LoginAll(DevSim& sim) {
  std::vector<long> ids;
  for (int i = 0; i < kSessions; ++i) {
    long id = LoginLocal(sim.port());
    EXPECT_GT(id, 0);
    if (id > 0) ids.push_back(id);
  }
  EXPECT_TRUE(Capture::Get().WaitEvent(QXNET_EV_AUTHENTICATED, kSessions, 60000));
  EXPECT_TRUE(sim.waitConnections(kSessions, 10000, true));
  return ids;
}

// kSessions sessions, all authenticated with one simulated device, before each test.
class ManySessionsUp : public ::testing::Test {
 protected:
  void SetUp() override {
    Capture::Get().Install();
    sim_.reset(new DevSim);
    ASSERT_TRUE(sim_->ok()) << sim_->error();
    ids_ = LoginAll(*sim_);
    ASSERT_EQ(ids_.size(), static_cast<size_t>(kSessions));
  }
  std::unique_ptr<DevSim> sim_;
  std::vector<long> ids_;
};

TEST_F(ManySessionsUp, LogoutOneAfterAnotherIsQuick) {
  auto t0 = Clock::now();
  for (long id : ids_) EXPECT_EQ(0, QXNet_LogOutDev(id));
  double total = Since(t0);
  std::printf("%d logouts one after another: %.3f s\n", kSessions, total);
  EXPECT_LT(total, 2.0);
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_SOCKET_ERROR), kSessions);
  EXPECT_TRUE(sim_->waitConnectionsAtMost(0, 5000));
}

TEST_F(ManySessionsUp, FreeWithManyAuthenticatedSessionsIsQuick) {
  auto t0 = Clock::now();
  EXPECT_EQ(0, QXNet_Free());
  double total = Since(t0);
  std::printf("QXNet_Free with %d authenticated sessions: %.3f s\n", kSessions, total);
  EXPECT_LT(total, 1.5);
  EXPECT_TRUE(sim_->waitConnectionsAtMost(0, 5000));
  EXPECT_EQ(QXNET_E_NOT_INIT, QXNet_LogOutDev(ids_[0]));
}

// Sessions whose logout has returned, and log lines that named one of them afterwards.
std::mutex g_lateMu;
std::set<long> g_loggedOut;
int g_lateLines = 0;

// The worker's last line names its session ("... exit thread loop %p"). The callback
// lingers on it, so that a logout that returned before the line was written is caught
// for certain.
void OnLogCheckLate(unsigned int, const char* line) {
  const char* p = line ? std::strstr(line, "exit thread loop ") : nullptr;
  if (!p) return;
  long id = static_cast<long>(std::strtoul(p + std::strlen("exit thread loop "), nullptr, 16));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::lock_guard<std::mutex> lock(g_lateMu);
  if (g_loggedOut.count(id)) ++g_lateLines;
}

// After QXNet_LogOutDev returns the application may tear down what its callbacks use:
// the session's thread must not reach any of them any more.
TEST(ManySessions, NoCallbackOfASessionAfterItsLogoutReturned) {
  QXNet_init();  // forgets the log callback of earlier tests: the first one set is kept
  QXNet_SetfcLogCallBackEx(&OnLogCheckLate, 31);
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  for (int i = 0; i < 5; ++i) {
    long id = LoginLocal(sim.port());
    ASSERT_GT(id, 0);
    {
      // A new session may live at the address of an earlier one.
      std::lock_guard<std::mutex> lock(g_lateMu);
      g_loggedOut.erase(id);
    }
    ASSERT_TRUE(sim.waitConnections(1, 5000, true));
    EXPECT_EQ(0, QXNet_LogOutDev(id));
    {
      std::lock_guard<std::mutex> lock(g_lateMu);
      g_loggedOut.insert(id);
    }
    ASSERT_TRUE(sim.waitConnectionsAtMost(0, 5000));
    // A late line of this session is counted before its address can be reused.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  std::lock_guard<std::mutex> lock(g_lateMu);
  EXPECT_EQ(g_lateLines, 0) << "log lines of sessions already logged out";
}

}  // namespace
