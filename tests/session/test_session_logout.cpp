// Stopping many sessions: each logout is quick, and QXNet_Free stops all of them at once
// instead of one after another.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <vector>

#include "capture.h"
#include "devsim_client.h"

using qxtest::Capture;
using qxtest::DevSim;
using Clock = std::chrono::steady_clock;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QXTEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QXTEST_SANITIZED 1
#endif
#endif

namespace {

// Sanitizer builds run several times slower: fewer sessions, the same bounds.
#ifdef QXTEST_SANITIZED
const int kSessions = 200;
#else
const int kSessions = 200;
#endif

double Since(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// Logs kSessions sessions in to the simulator's device and waits until all are authenticated.
std::vector<long> LoginAll(DevSim& sim) {
  std::vector<long> ids;
  for (int i = 0; i < kSessions; ++i) {
    long id = QXNet_Loc_LoginDev(const_cast<char*>("127.0.0.1"), sim.port(), const_cast<char*>("admin"),
                                 const_cast<char*>("admin"), nullptr);
    EXPECT_GT(id, 0);
    if (id > 0) ids.push_back(id);
  }
  EXPECT_TRUE(Capture::Get().WaitEvent(QXNET_EV_AUTHENTICATED, kSessions, 60000));
  EXPECT_TRUE(sim.waitConnections(kSessions, 10000, true));
  return ids;
}

TEST(ManySessions, LogoutOneAfterAnotherIsQuick) {
  Capture::Get().Install();
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  std::vector<long> ids = LoginAll(sim);
  ASSERT_EQ(ids.size(), static_cast<size_t>(kSessions));
  auto t0 = Clock::now();
  for (long id : ids) EXPECT_EQ(0, QXNet_LogOutDev(id));
  double total = Since(t0);
  std::printf("%d logouts one after another: %.3f s\n", kSessions, total);
  EXPECT_LT(total, 2.0);
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_SOCKET_ERROR), kSessions);
  EXPECT_TRUE(sim.waitConnectionsAtMost(0, 5000));
}

TEST(ManySessions, FreeWithManyAuthenticatedSessionsIsQuick) {
  Capture::Get().Install();
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  std::vector<long> ids = LoginAll(sim);
  ASSERT_EQ(ids.size(), static_cast<size_t>(kSessions));
  auto t0 = Clock::now();
  EXPECT_EQ(0, QXNet_Free());
  double total = Since(t0);
  std::printf("QXNet_Free with %d authenticated sessions: %.3f s\n", kSessions, total);
  EXPECT_LT(total, 1.5);
  EXPECT_TRUE(sim.waitConnectionsAtMost(0, 5000));
  EXPECT_EQ(QXNET_E_NOT_INIT, QXNet_LogOutDev(ids[0]));
}

}  // namespace
