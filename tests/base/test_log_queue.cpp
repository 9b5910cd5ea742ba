// Lines logged while no log callback exists: queued, then delivered in order by the
// writer thread if a callback appears before its next wake-up, dropped otherwise.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "base/FuncLog.h"
#include "log_capture.h"

namespace {

using logtest::Capture;
using logtest::Clear;
using logtest::MatchesAnyPrefix;
using logtest::Snapshot;
using logtest::WaitFor;
using logtest::With;

using Clock = std::chrono::steady_clock;

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

long MsSince(Clock::time_point t) {
  return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t).count());
}

class LogQueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The callback is process-wide and cannot be unregistered through the API: each
    // test starts from "no callback" by clearing the library's variable.
    g_fLogCallBack = nullptr;
    QXNet_SetfcLogCallBackEx(nullptr, 30);
    ASSERT_EQ(g_fLogCallBack, nullptr);
    ASSERT_EQ(QXNet_init(), 0);
    // Let the writer take whatever init queued and go to its idle sleep.
    SleepMs(300);
    Clear();
  }
  void TearDown() override {
    QXNet_Free();
    g_fLogCallBack = nullptr;
  }
};

TEST_F(LogQueueTest, QueuedLinesReachALateCallbackInOrderOnTheWriterThread) {
  time_t before = time(nullptr);
  EXPECT_EQ(fLog(0, "queued one"), 1) << "a line without a callback is queued, not filtered";
  EXPECT_EQ(fLog(3, "queued two\n"), 1);
  EXPECT_EQ(fLog(0, "queued %s", "three"), 1);
  time_t after = time(nullptr);
  EXPECT_TRUE(Snapshot().empty());

  auto registered = Clock::now();
  QXNet_SetfcLogCallBackEx(Capture, 30);
  ASSERT_TRUE(WaitFor([] { return With("queued ").size() >= 3; }, 4000)) << "queued lines never delivered";
  EXPECT_LT(MsSince(registered), 2500) << "not delivered at the writer's next wake-up";
  SleepMs(100);
  auto lines = With("queued ");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_TRUE(MatchesAnyPrefix(lines[0].text, "queued one\r\n", before, after)) << lines[0].text;
  EXPECT_TRUE(MatchesAnyPrefix(lines[1].text, "queued two\n", before, after)) << lines[1].text;
  EXPECT_TRUE(MatchesAnyPrefix(lines[2].text, "queued three\r\n", before, after)) << lines[2].text;
  EXPECT_EQ(lines[0].level, 0u);
  EXPECT_EQ(lines[1].level, 3u);
  EXPECT_EQ(lines[2].level, 0u);
  for (const auto& l : lines) EXPECT_NE(l.tid, std::this_thread::get_id());
  EXPECT_EQ(lines[0].tid, lines[2].tid);

  // With the callback in place, lines go straight to it on the caller's thread.
  Clear();
  EXPECT_EQ(fLog(0, "direct"), 1);
  auto direct = Snapshot();
  ASSERT_EQ(direct.size(), 1u);
  EXPECT_EQ(direct[0].tid, std::this_thread::get_id());
}

TEST_F(LogQueueTest, LinesFromManyThreadsKeepTheirOrder) {
  const int kThreads = 3, kLines = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kLines; ++i) fLog(0, "many t=%d i=%d", t, i);
    });
  }
  for (auto& th : threads) th.join();
  QXNet_SetfcLogCallBackEx(Capture, 30);
  ASSERT_TRUE(WaitFor([&] { return With("many t=").size() >= static_cast<size_t>(kThreads * kLines); }, 4000));
  auto lines = With("many t=");
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
  std::vector<int> next(kThreads, 0);
  for (const auto& l : lines) {
    int t = -1, i = -1;
    ASSERT_EQ(std::sscanf(l.text.c_str() + l.text.find("many t="), "many t=%d i=%d", &t, &i), 2);
    ASSERT_TRUE(t >= 0 && t < kThreads);
    EXPECT_EQ(i, next[static_cast<size_t>(t)]);
    next[static_cast<size_t>(t)] = i + 1;
  }
}

TEST_F(LogQueueTest, QueuedLinesAreDroppedWhenNoCallbackAppearsInTime) {
  EXPECT_EQ(fLog(0, "dropped line"), 1);
  SleepMs(2300);  // the writer wakes at least once with no callback to give it to
  QXNet_SetfcLogCallBackEx(Capture, 30);
  SleepMs(2300);
  EXPECT_TRUE(With("dropped line").empty()) << "a line older than the writer's wake-up was kept";
  EXPECT_EQ(fLog(0, "kept line"), 1);
  EXPECT_EQ(With("kept line").size(), 1u);
}

TEST_F(LogQueueTest, NothingIsQueuedOutsideInitAndFree) {
  QXNet_Free();
  EXPECT_EQ(fLog(0, "while freed"), 0);
  ASSERT_EQ(QXNet_init(), 0);
  QXNet_SetfcLogCallBackEx(Capture, 30);
  SleepMs(1500);
  EXPECT_TRUE(With("while freed").empty());
}

}  // namespace

namespace {

// Fills the queue with `bytes` of lines of 200 characters.
void PushLines(CLogQueue& q, size_t bytes) {
  const std::string line(200, 'x');
  for (size_t n = 0; n < bytes; n += line.size()) q.Push(0, line.c_str(), line.size());
}

size_t LineCount(const CLogQueue& q) {
  size_t n = 0;
  q.ForEach([&n](unsigned int, const char*) { return ++n, true; });
  return n;
}

TEST(LogQueueRoom, LinesKeepTheirOrderAndLevelsAcrossBlocks) {
  CLogQueue q;
  for (unsigned i = 0; i < 1000; ++i) {
    std::string line = std::to_string(i) + std::string(300 + i % 7, '.');
    q.Push(i % 32, line.c_str(), line.size());
  }
  EXPECT_GT(q.Capacity(), CLogQueue::kBlockBytes);
  unsigned next = 0;
  q.ForEach([&next](unsigned int level, const char* text) {
    std::string want = std::to_string(next) + std::string(300 + next % 7, '.');
    EXPECT_EQ(level, next % 32);
    EXPECT_EQ(std::string(text), want);
    return ++next, true;
  });
  EXPECT_EQ(next, 1000u);
}

TEST(LogQueueRoom, ASteadyStreamKeepsItsRoomAndABurstsRoomIsGivenBack) {
  CLogQueue q;
  PushLines(q, 4u << 20);
  EXPECT_EQ(LineCount(q), ((4u << 20) + 199) / 200);
  size_t room = q.Capacity();
  ASSERT_GT(room, CLogQueue::kKeptBytes);
  q.Clear();
  EXPECT_TRUE(q.Empty());
  EXPECT_EQ(q.Capacity(), room) << "a turn that used its room gave it back";
  PushLines(q, 3u << 20);  // the next turn of the same stream: no growth
  EXPECT_EQ(q.Capacity(), room);
  q.Clear();
  PushLines(q, 4096);  // the stream has ended
  q.Clear();
  EXPECT_LE(q.Capacity(), CLogQueue::kKeptBytes) << "a burst's room was kept after it";
}

}  // namespace
