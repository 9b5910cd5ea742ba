// The session's sleep: it lasts what it was asked for, and ends the moment the session
// is stopped.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <future>
#include <thread>

#include "session/DevComControl.h"

using Clock = std::chrono::steady_clock;

namespace {

double MsSince(Clock::time_point t0) {
  return std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
}

class SleepThread : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds_));
    dev_ = new CDevComControl(nullptr, nullptr);
    dev_->AdoptSocketForTest(fds_[0]);
  }
  void TearDown() override {
    dev_->StopForTest();
    close(fds_[1]);
    delete dev_;  // closes fds_[0]
  }
  int fds_[2] = {-1, -1};
  CDevComControl* dev_ = nullptr;
};

TEST_F(SleepThread, FiftyMillisecondsLastFiftyToAHundredAndFifty) {
  for (int i = 0; i < 5; ++i) {
    auto t0 = Clock::now();
    EXPECT_EQ(0, dev_->SleepThread(50, 10));
    double ms = MsSince(t0);
    EXPECT_GE(ms, 50.0);
    EXPECT_LE(ms, 150.0);
  }
}

TEST_F(SleepThread, ZeroReturnsAtOnce) {
  auto t0 = Clock::now();
  EXPECT_EQ(0, dev_->SleepThread(0, 10));
  EXPECT_LE(MsSince(t0), 20.0);
}

TEST_F(SleepThread, NegativeDurationReturnsZeroAtOnce) {
  auto t0 = Clock::now();
  EXPECT_EQ(0, dev_->SleepThread(-1, 10));
  EXPECT_EQ(0, dev_->SleepThread(-5000, 100));
  EXPECT_LE(MsSince(t0), 20.0);
}

TEST_F(SleepThread, StoppedSessionReturnsMinusOneAtOnce) {
  dev_->StopForTest();
  auto t0 = Clock::now();
  EXPECT_EQ(-1, dev_->SleepThread(5000, 100));
  EXPECT_EQ(-1, dev_->SleepThread(0, 10));
  EXPECT_EQ(-1, dev_->SleepThread(-1, 10));
  EXPECT_LE(MsSince(t0), 20.0);
}

TEST_F(SleepThread, StopDuringALongSleepEndsItWithinFiftyMilliseconds) {
  auto sleeper = std::async(std::launch::async, [this] {
    int r = dev_->SleepThread(5000, 100);
    return std::make_pair(r, Clock::now());
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  auto stopAt = Clock::now();
  dev_->StopForTest();
  ASSERT_EQ(std::future_status::ready, sleeper.wait_for(std::chrono::seconds(6)));
  auto res = sleeper.get();
  EXPECT_EQ(-1, res.first);
  double ms = std::chrono::duration<double, std::milli>(res.second - stopAt).count();
  EXPECT_LE(ms, 50.0);
}

// A request queued while the worker sleeps wakes its wait, but the sleep still lasts its
// time: only a stop cuts it short.
TEST_F(SleepThread, AQueuedRequestDoesNotCutTheSleepShort) {
  auto sleeper = std::async(std::launch::async, [this] {
    auto t0 = Clock::now();
    int r = dev_->SleepThread(300, 100);
    return std::make_pair(r, MsSince(t0));
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  char* data = new char[4];
  std::memcpy(data, "abc", 4);
  dev_->PutToSendData(NetSDKSendData_t{3, data});
  auto res = sleeper.get();
  EXPECT_EQ(0, res.first);
  EXPECT_GE(res.second, 300.0);
  EXPECT_LE(res.second, 400.0);
}

}  // namespace
