// How soon a live session acts: a queued request goes out at once, a device that closes
// during authentication is noticed at once, and a device that trickles bytes cannot hold
// back the heartbeat. Through the public interface, against the simulator.
#include <cstdlib>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "arrivals.h"
#include "capture.h"
#include "devsim_client.h"
#include "sanitizers.h"
#include "session_fixture.h"

using qxtest::Capture;
using qxtest::Clock;
using qxtest::DevSim;
using qxtest::Since;

namespace {

using Timing = qxtest::SessionTest;

// The worker is idle in its wait for the next heartbeat when each request is queued;
// the request must not wait for a timed turn. A worker that sends on turns 20 ms apart
// shows a median near 10 ms; one woken by the request, about a millisecond (the figure
// includes the simulator's control round trip). The median keeps a loaded machine's
// scheduling hiccups out of the verdict; the slowest has a bound of its own.
TEST_F(Timing, AQueuedRequestGoesOutAtOnce) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  std::vector<double> ms;
  for (int i = 0; i < 21; ++i) {
    // Requests at uneven moments, so that none lines up with a turn by chance.
    std::this_thread::sleep_for(std::chrono::milliseconds((i * 37) % 90));
    char empty[] = "";
    auto t0 = Clock::now();
    ASSERT_EQ(0, QXNet_Loc_GetDVRConfig(id_, 1601, 0, empty, 0, nullptr));
    std::string r = sim.cmd("WAIT * 1601 " + std::to_string(i + 1) + " 2000");
    ms.push_back(Since(t0) * 1000);
    ASSERT_EQ(r.rfind("OK", 0), 0u) << r;
  }
  std::sort(ms.begin(), ms.end());
  std::printf("21 requests, call to device: median %.1f ms, slowest %.1f ms\n", ms[10], ms.back());
  EXPECT_LE(ms[10], 5.0 * qxtest::kSanitizerSlowdown);
  EXPECT_LE(ms.back(), 250.0 * qxtest::kSanitizerSlowdown);
}

TEST_F(Timing, ADeviceClosingDuringAuthenticationIsNoticedWithin200Milliseconds) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  // The simulator closes by itself when it has that mode; otherwise it stays silent and
  // the test closes the connection the moment the authentication message is in.
  const bool simCloses = sim.cmdOk("SET auth_mode close");
  if (!simCloses) {
    ASSERT_TRUE(sim.cmdOk("SET auth_mode silent"));
  }
  ASSERT_GT(Login(sim), 0);
  ASSERT_TRUE(sim.waitFor("10000", "14012", 1, 10000));
  // Measured from before the close command: the time counted is never short of the real one.
  auto closedAt = Clock::now();
  if (!simCloses) {
    ASSERT_EQ(sim.cmd("CLOSE last"), "OK 1");
  }
  ASSERT_TRUE(Capture::Get().WaitEvent(1, 1, 3000));
  double ms = Since(closedAt) * 1000;
  EXPECT_LE(ms, 200.0);
  std::printf("close noticed after %.1f ms\n", ms);
  auto ev = Capture::Get().Events();
  ASSERT_GE(ev.size(), 2u);
  EXPECT_EQ(ev[0].code, 5);
  EXPECT_EQ(ev[1].code, 1);
  EXPECT_EQ(ev[1].text.rfind("device[127.0.0.1]  socket error, fd=", 0), 0u) << ev[1].text;
  EXPECT_EQ(Capture::Get().CountEvents(6), 0);
  // And it connects again.
  EXPECT_TRUE(Capture::Get().WaitEvent(5, 2, 3000));
}

// One garbage byte every 0.4 s keeps a frame "arriving" for ever; the heartbeat must go
// out on time all the same.
TEST_F(Timing, ATricklingDeviceDoesNotHoldBackTheHeartbeat) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto t0 = Clock::now();
  const double wallT0 =
      std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  int bytes = 0;
  bool rawOk = true;
  auto nextByte = Clock::now();
  auto trickle = [&]() {
    auto now = Clock::now();
    if (now >= nextByte) {
      rawOk = rawOk && sim.cmd("RAW last 5a") == "OK 1";
      ++bytes;
      nextByte += std::chrono::milliseconds(400);
    }
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(nextByte - Clock::now()).count());
  };
  bool ok = false;
  auto all = qxtest::RecordArrivals(sim, t0, 25.0, 400, trickle, &ok);
  ASSERT_TRUE(ok) << "control channel";
  EXPECT_TRUE(rawOk);
  EXPECT_GE(bytes, 55);
  auto hb = qxtest::TimesOf(all, "30000", "35001");
  ASSERT_EQ(hb.size(), 2u);
  EXPECT_GE(hb[0], 8.5);
  EXPECT_LE(hb[0], 11.5);
  EXPECT_GE(hb[1] - hb[0], 8.5);
  EXPECT_LE(hb[1] - hb[0], 11.5);
  // A heartbeat falls due when the wall clock's second turns over. Held back by a receive
  // that waits out its 3 s deadline, it would go out at any point of a later second.
  for (double t : hb) {
    double fraction = std::fmod(wallT0 + t, 1.0);
    EXPECT_LT(fraction, 0.25) << "heartbeat at " << t << " s went out " << fraction << " s into its second";
  }
  EXPECT_LE(25.0 - hb[1], 11.5);
  std::printf("heartbeats at %.2f s and %.2f s under a trickle of %d bytes\n", hb[0], hb[1], bytes);
  EXPECT_EQ(Capture::Get().CountEvents(1), 0);
}

// Upload pacing: five 163,840-byte chunks a turn, a turn once more than 20 ms have passed
// since the last one began. Fifty chunks are ten turns: at least 180 ms from the first
// chunk to the last (a worker without pacing sends them in a few milliseconds), and well
// under the second that one chunk a turn would take.
TEST_F(Timing, UploadChunksGoOutFiveATurnEveryTwentyMilliseconds) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  char path[] = "/tmp/qxnet-pacing-XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  const size_t kChunk = 163840, kChunks = 50;
  std::string bytes(kChunk * kChunks, 'p');
  ASSERT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
  ASSERT_EQ(0, QXNet_Loc_Upgrade(id_, path));
  std::string first = sim.cmd("WAIT 20000 20002 1 10000");
  auto t1 = Clock::now();
  std::string last = sim.cmd("WAIT 20000 20002 " + std::to_string(kChunks) + " 20000");
  double span = Since(t1);
  unlink(path);
  ASSERT_EQ(first.rfind("OK", 0), 0u) << first;
  ASSERT_EQ(last.rfind("OK", 0), 0u) << last;
  // The first answer may come late on a loaded machine, with more than the first turn in:
  // count only the turns still to come after the one it saw, less two for how late the answer
  // reached this thread (the worker never catches up: each turn starts more than 20 ms after
  // the one before began, so late turns cannot shorten the span). An unpaced worker sends
  // all fifty chunks within a few milliseconds.
  long seen = std::atol(first.c_str() + 3);
  long turnsSeen = (seen + 4) / 5, turnsLeft = static_cast<long>(kChunks / 5) - turnsSeen;
  std::printf("first to last of %zu chunks: %.0f ms (%ld chunks in at the start)\n", kChunks,
              span * 1000, seen);
  ASSERT_GE(turnsLeft, 4) << "the upload was nearly done before the test saw it start";
  EXPECT_GE(span, 0.020 * static_cast<double>(turnsLeft - 2));
  EXPECT_LE(span, 0.6 * qxtest::kSanitizerSlowdown);
  EXPECT_TRUE(Capture::Get().WaitEvent(QXNET_EV_UPGRADE_FINISHED, 1, 10000));
}

}  // namespace
