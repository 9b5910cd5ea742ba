// Five failed sends of the authentication message: the session gives up on the
// connection (event 3 with the device address), closes it and connects again at once.
// The session runs on its own worker against the simulator; only its sends fail.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "devsim_client.h"
#include "session/DevComControl.h"
#include "session_fixture.h"

using qxtest::Clock;
using qxtest::DevSim;
using qxtest::Since;

namespace {

// Stands in for the core: keeps every status event with the time it was posted.
class RecordingSink : public ISessionSink {
 public:
  struct Event {
    double t;
    int code;
    std::string text;
  };
  explicit RecordingSink(Clock::time_point t0) : t0_(t0) {}
  int OnPostDevStatusMsg(void*, int event, char* data) override {
    std::lock_guard<std::mutex> lock(mu_);
    events_.push_back(Event{Since(t0_), event, data ? data : ""});
    cv_.notify_all();
    return 0;
  }
  int OnPostAuxRspMsg(void*, unsigned int, int, const char*) override { return 0; }
  void OnFReplayMediaData(void*, unsigned long, unsigned char*, unsigned long, void*) override {}
  long OnFRePlayEventCallBack(void*, long, long, char*) override { return 0; }

  // Waits until `count` events of `code` were posted.
  bool Wait(int code, int count, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mu_);
    return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
      int n = 0;
      for (auto& e : events_) n += e.code == code;
      return n >= count;
    });
  }
  std::vector<Event> Events() {
    std::lock_guard<std::mutex> lock(mu_);
    return events_;
  }

 private:
  Clock::time_point t0_;
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<Event> events_;
};

// The real socket, except that every send fails as on a connection the device reset.
class FailingSendIo : public ISessionIo {
 public:
  explicit FailingSendIo(Clock::time_point t0) : t0_(t0) {}
  long Send(int, const void*, unsigned long) override {
    {
      std::lock_guard<std::mutex> lock(mu_);
      sends_.push_back(Since(t0_));
    }
    errno = EPIPE;
    return -1;
  }
  long Recv(int sock, void* data, unsigned long len) override { return Default().Recv(sock, data, len); }
  int Poll(int sock, bool r, bool w, int wakeFd, int timeoutMs) override {
    return Default().Poll(sock, r, w, wakeFd, timeoutMs);
  }
  std::vector<double> Sends() {
    std::lock_guard<std::mutex> lock(mu_);
    return sends_;
  }

 private:
  Clock::time_point t0_;
  std::mutex mu_;
  std::vector<double> sends_;
};

TEST(AuthSendFailures, FiveFailedSendsGiveEvent3ThenCloseAndReconnect) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  auto t0 = Clock::now();
  RecordingSink sink(t0);
  FailingSendIo io(t0);
  std::atomic<int> reconnect{1};
  CDevComControl dev(&sink, &reconnect);
  dev.SetIoForTest(&io);
  ASSERT_EQ(0, dev.LoginDev("127.0.0.1", sim.port(), "admin", "admin", 0));
  // The fifth failure comes about 20 s in, the give-up a 1 s pause later.
  ASSERT_TRUE(sink.Wait(QXNET_EV_AUTH_FAILED, 1, 30000));
  ASSERT_TRUE(sink.Wait(QXNET_EV_CONNECTED, 2, 5000)) << "no reconnection after giving up";
  auto sends = io.Sends();
  auto events = sink.Events();
  dev.LogoutDev();

  for (double t : sends) std::printf("failed send at %.3f s\n", t);
  for (auto& e : events) std::printf("event %d at %.3f s\n", e.code, e.t);
  // Each failed send is one call: the flag fails, nothing more of the frame is tried.
  ASSERT_GE(sends.size(), 5u);
  for (size_t i = 1; i < 5; ++i) {
    EXPECT_GE(sends[i] - sends[i - 1], 4.99) << "send " << i + 1;
    EXPECT_LE(sends[i] - sends[i - 1], 5.6) << "send " << i + 1;
  }
  // Event order: connected, then (after the fifth failure and its 1 s pause) the give-up,
  // the close and the new connection.
  ASSERT_GE(events.size(), 4u);
  EXPECT_EQ(events[0].code, QXNET_EV_CONNECTED);
  EXPECT_EQ(events[0].text, "device[127.0.0.1] connect socket OK! \n");
  EXPECT_LT(sends[0] - events[0].t, 0.5) << "the first authentication goes out on connect";
  const RecordingSink::Event& giveUp = events[1];
  EXPECT_EQ(giveUp.code, QXNET_EV_AUTH_FAILED);
  EXPECT_EQ(giveUp.text, "[127.0.0.1] login failed, not get auth response 5 times.");
  EXPECT_GE(giveUp.t - sends[4], 1.0);
  EXPECT_LE(giveUp.t - sends[4], 1.5);
  EXPECT_EQ(events[2].code, QXNET_EV_SOCKET_ERROR);
  EXPECT_EQ(events[2].text.rfind("device[127.0.0.1]  socket error, fd=", 0), 0u) << events[2].text;
  EXPECT_LT(events[2].t - giveUp.t, 0.5);
  EXPECT_EQ(events[3].code, QXNET_EV_CONNECTED);
  EXPECT_LT(events[3].t - events[2].t, 1.5) << "connects again at once";
  // Nothing of a frame reached the device, and it saw two connections.
  EXPECT_EQ(sim.count("*", "*"), 0);
  EXPECT_EQ(sim.stat("connections_accepted"), 2);
}

}  // namespace
