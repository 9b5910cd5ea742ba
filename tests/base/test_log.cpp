// fLog and its settings: the level mask set through QXNet_SetfcLogCallBackEx, the line
// format, the 4096-byte cut, direct delivery on the caller's thread, the span between
// QXNet_init and QXNet_Free; and the silent mlog family.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "base/FuncLog.h"
#include "base/SDKLog.h"
#include "base/SDKSocket.h"
#include "log_capture.h"

namespace {

using logtest::Capture;
using logtest::Clear;
using logtest::MatchesAnyPrefix;
using logtest::PrefixAt;
using logtest::Snapshot;
using logtest::With;

// Read while the program loads, before any test has changed them.
const unsigned kMaskAtLoad = g_fLogLevel;
const bool kNoCallbackAtLoad = g_fLogCallBack == nullptr;

const size_t kPrefixLen = 24;  // "QXNetSDK:" + "MM-DD," + "hh:mm:ss,"

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QXNet_SetfcLogCallBackEx(Capture, 30);
    ASSERT_EQ(g_fLogCallBack, &Capture);
    ASSERT_EQ(QXNet_init(), 0);
    Clear();
  }
  void TearDown() override {
    QXNet_Free();
    QXNet_SetfcLogCallBackEx(Capture, 30);
  }

  // Logs one line and checks that it was delivered at once, on this thread, as
  // prefix + `body`, with the given level.
  void ExpectLine(unsigned level, const std::string& body, const std::function<int()>& log) {
    Clear();
    time_t before = time(nullptr);
    int rc = log();
    time_t after = time(nullptr);
    EXPECT_EQ(rc, 1);
    auto lines = Snapshot();  // no waiting: delivery is synchronous
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, level);
    EXPECT_EQ(lines[0].tid, std::this_thread::get_id());
    EXPECT_TRUE(MatchesAnyPrefix(lines[0].text, body, before, after))
        << "got      \"" << lines[0].text << "\"\nexpected \"" << PrefixAt(before) << body << "\"";
  }
};

// The mask helper: set a callback-less level through the export.
unsigned MaskFor(int level) {
  QXNet_SetfcLogCallBackEx(Capture, level);
  return g_fLogLevel;
}

TEST(LogSettings, StartValues) {
  EXPECT_EQ(kMaskAtLoad, 0x0FFFFFFFu);
  EXPECT_TRUE(kNoCallbackAtLoad);
}

TEST(LogSettings, LevelToMask) {
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(Capture, 3), 0);
  EXPECT_EQ(g_fLogLevel, 0xFu);
  EXPECT_EQ(MaskFor(0), 0x1u);
  EXPECT_EQ(MaskFor(1), 0x3u);
  EXPECT_EQ(MaskFor(5), 0x3Fu);
  EXPECT_EQ(MaskFor(29), 0x3FFFFFFFu);
  EXPECT_EQ(MaskFor(30), 0x7FFFFFFFu);
  EXPECT_EQ(MaskFor(31), 0x7FFFFFFFu);
  EXPECT_EQ(MaskFor(64), 0x7FFFFFFFu);
  EXPECT_EQ(MaskFor(INT_MAX), 0x7FFFFFFFu);
  EXPECT_EQ(MaskFor(-1), 0x0u);
  EXPECT_EQ(MaskFor(INT_MIN), 0x0u);
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(Capture, -1), 0);
  QXNet_SetfcLogCallBackEx(Capture, 30);
}

std::atomic<int> g_cb1Calls{0};
std::atomic<int> g_cb2Calls{0};
void Cb1(unsigned int, const char*) { ++g_cb1Calls; }
void Cb2(unsigned int, const char*) { ++g_cb2Calls; }

TEST_F(LogTest, FirstRegisteredCallbackStays) {
  // Start from a process without a callback for this test only.
  g_fLogCallBack = nullptr;
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(Cb1, 3), 0);
  EXPECT_EQ(g_fLogCallBack, &Cb1);
  EXPECT_EQ(g_fLogLevel, 0xFu);
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(Cb2, 5), 0);
  EXPECT_EQ(g_fLogCallBack, &Cb1) << "a later callback must not replace the first";
  EXPECT_EQ(g_fLogLevel, 0x3Fu);
  EXPECT_EQ(fLog(5, "to the first callback"), 1);
  EXPECT_EQ(g_cb1Calls, 1);
  EXPECT_EQ(g_cb2Calls, 0);
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, -1), 0);
  EXPECT_EQ(g_fLogCallBack, &Cb1) << "a null callback must not clear it";
  EXPECT_EQ(g_fLogLevel, 0u);
  EXPECT_EQ(fLog(0, "filtered"), 0);
  EXPECT_EQ(g_cb1Calls, 1);
  g_fLogCallBack = &Capture;
}

TEST_F(LogTest, LevelFiltering) {
  QXNet_SetfcLogCallBackEx(Capture, 0);  // mask 0x1
  Clear();
  EXPECT_EQ(fLog(3, "level three"), 0);
  EXPECT_EQ(fLog(1, "level one"), 0);
  EXPECT_TRUE(Snapshot().empty());
  EXPECT_EQ(fLog(0, "level zero"), 1);
  // Levels are taken modulo 32; the callback gets the level as given.
  EXPECT_EQ(fLog(32, "level thirty-two"), 1);
  EXPECT_EQ(fLog(33, "level thirty-three"), 0);
  auto lines = Snapshot();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].level, 0u);
  EXPECT_NE(lines[0].text.find("level zero"), std::string::npos);
  EXPECT_EQ(lines[1].level, 32u);
  EXPECT_NE(lines[1].text.find("level thirty-two"), std::string::npos);

  QXNet_SetfcLogCallBackEx(Capture, 3);
  Clear();
  EXPECT_EQ(fLog(3, "three"), 1);
  EXPECT_EQ(fLog(4, "four"), 0);
  EXPECT_EQ(Snapshot().size(), 1u);

  QXNet_SetfcLogCallBackEx(Capture, 30);
  Clear();
  EXPECT_EQ(fLog(30, "thirty"), 1);
  EXPECT_EQ(fLog(31, "thirty-one"), 0);
  EXPECT_EQ(fLog(63, "sixty-three"), 0);
  EXPECT_EQ(Snapshot().size(), 1u);

  QXNet_SetfcLogCallBackEx(Capture, -1);
  Clear();
  EXPECT_EQ(fLog(0, "nothing"), 0);
  EXPECT_TRUE(Snapshot().empty());
}

TEST_F(LogTest, DirectMaskWrite) {
  g_fLogLevel = 0x1u;
  Clear();
  EXPECT_EQ(fLog(3, "three"), 0);
  EXPECT_TRUE(Snapshot().empty());
  EXPECT_EQ(fLog(0, "zero"), 1);
  EXPECT_EQ(Snapshot().size(), 1u);
  g_fLogLevel = 0x80000000u;  // level 31 only
  EXPECT_EQ(fLog(31, "thirty-one"), 1);
  EXPECT_EQ(fLog(0, "zero"), 0);
  EXPECT_EQ(Snapshot().size(), 2u);
}

TEST_F(LogTest, LineGetsPrefixAndCarriageReturnLineFeed) {
  ExpectLine(0, "abc\r\n", [] { return fLog(0, "abc"); });
}

TEST_F(LogTest, LineEndingInLineFeedIsLeftAsIs) {
  ExpectLine(0, "abc\n", [] { return fLog(0, "abc\n"); });
  ExpectLine(3, "abc\r\n", [] { return fLog(3, "abc\r\n"); });
  ExpectLine(0, "a\nb\r\n", [] { return fLog(0, "a\nb"); });
}

TEST_F(LogTest, FormatArguments) {
  ExpectLine(3, "[Fn] n=42 s=x u=4294967295 \n",
             [] { return fLog(3, "[Fn] n=%d s=%s u=%u \n", 42, "x", 4294967295u); });
}

TEST_F(LogTest, EmptyMessageIsThePrefixAlone) {
  ExpectLine(0, "", [] { return fLog(0, "%s", ""); });
}

TEST_F(LogTest, LongMessageIsCutToTheBufferWithoutLineEnd) {
  std::string msg(5000, 'x');
  for (size_t i = 0; i < msg.size(); ++i) msg[i] = static_cast<char>('a' + i % 26);
  std::string expect = msg.substr(0, 4095 - kPrefixLen);
  ExpectLine(0, expect, [&] { return fLog(0, "%s", msg.c_str()); });
  auto lines = Snapshot();
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].text.size(), 4095u) << "the line fills the 4096 bytes with its terminating zero";

  // A cut line loses its line feed too.
  std::string withLf = msg + "\n";
  ExpectLine(0, expect, [&] { return fLog(0, "%s", withLf.c_str()); });
}

TEST_F(LogTest, LineEndNeedsThreeBytesOfRoom) {
  // Room for the message is 4095 - prefix bytes; a line end is added only while the
  // message plus CR, LF and zero stays below it.
  const size_t room = 4095 - kPrefixLen;
  std::string fits(room - 4, 'f');
  ExpectLine(0, fits + "\r\n", [&] { return fLog(0, "%s", fits.c_str()); });
  EXPECT_EQ(Snapshot()[0].text.size(), 4093u);

  std::string tight(room - 3, 't');
  ExpectLine(0, tight, [&] { return fLog(0, "%s", tight.c_str()); });

  std::string full(room, 'u');
  ExpectLine(0, full, [&] { return fLog(0, "%s", full.c_str()); });

  std::string over(room + 1, 'v');
  ExpectLine(0, over.substr(0, room), [&] { return fLog(0, "%s", over.c_str()); });

  // Ending in a line feed and short enough: left as it is.
  std::string lf(room - 4, 'g');
  lf.back() = '\n';
  ExpectLine(0, lf, [&] { return fLog(0, "%s", lf.c_str()); });
}

TEST_F(LogTest, LinesOfAnyLengthBelowTheCutAreWholeWithTheirArguments) {
  // Short lines are built in a small room and longer ones again in the full 4096 bytes:
  // every length up to the cut, around the small room's edge and well past it, comes out
  // whole, with the arguments read again for the second build.
  for (size_t n = 380; n <= 700; ++n) {
    std::string body(n, 'k');
    for (size_t i = 0; i < n; i += 37) body[i] = static_cast<char>('A' + i % 26);
    ExpectLine(0, body + " #" + std::to_string(n) + "\r\n",
               [&] { return fLog(0, "%s #%d", body.c_str(), static_cast<int>(n)); });
  }
  std::string big(3000, 'b');
  ExpectLine(3, big + " end=9\r\n", [&] { return fLog(3, "%s end=%d", big.c_str(), 9); });
}

TEST_F(LogTest, ConcurrentCallersEachGetTheirLinesOnTheirOwnThread) {
  const int kThreads = 4, kLines = 300;
  std::vector<std::thread> threads;
  std::vector<std::thread::id> ids(kThreads);
  std::atomic<int> bad{0};
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &ids, &bad] {
      ids[static_cast<size_t>(t)] = std::this_thread::get_id();
      for (int i = 0; i < kLines; ++i)
        if (fLog(0, "conc t=%d i=%d", t, i) != 1) ++bad;
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(bad, 0);
  auto lines = With("conc t=");
  ASSERT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
  std::vector<int> next(kThreads, 0);
  for (const auto& l : lines) {
    int t = -1, i = -1;
    size_t pos = l.text.find("conc t=");
    ASSERT_EQ(std::sscanf(l.text.c_str() + pos, "conc t=%d i=%d", &t, &i), 2);
    ASSERT_TRUE(t >= 0 && t < kThreads);
    EXPECT_EQ(l.tid, ids[static_cast<size_t>(t)]);
    EXPECT_EQ(i, next[static_cast<size_t>(t)]) << "lines of one thread out of order";
    next[static_cast<size_t>(t)] = i + 1;
    EXPECT_EQ(pos, kPrefixLen);
    EXPECT_EQ(l.text.substr(l.text.size() - 2), "\r\n");
  }
}

TEST_F(LogTest, NothingAfterFreeEvenWithACallback) {
  Clear();
  ASSERT_EQ(QXNet_Free(), 0);
  auto freeLines = With("QXNet_Free()");
  ASSERT_EQ(freeLines.size(), 1u) << "QXNet_Free logs before it stops the writer";
  EXPECT_EQ(freeLines[0].level, 3u);
  Clear();
  EXPECT_EQ(g_fLogCallBack, &Capture);
  EXPECT_EQ(fLog(0, "after free"), 0);
  EXPECT_EQ(fLog(3, "after free %d", 3), 0);
  EXPECT_EQ(SetSocketNoBlock(-1, 1), -1);  // its failure line is dropped too
  EXPECT_EQ(g_fLogLevel, 0x7FFFFFFFu) << "settings survive QXNet_Free";
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));
  EXPECT_TRUE(Snapshot().empty());
  // A second free is harmless; init brings logging back.
  EXPECT_EQ(QXNet_Free(), 0);
  ASSERT_EQ(QXNet_init(), 0);
  Clear();
  EXPECT_EQ(fLog(0, "back"), 1);
  EXPECT_EQ(With("back").size(), 1u);
}

TEST_F(LogTest, InitLogsTheVersionAtLevelZero) {
  ASSERT_EQ(QXNet_Free(), 0);
  Clear();
  time_t before = time(nullptr);
  ASSERT_EQ(QXNet_init(), 0);
  time_t after = time(nullptr);
  auto v = With("Sdk Version=");
  ASSERT_EQ(v.size(), 1u);
  EXPECT_EQ(v[0].level, 0u);
  EXPECT_TRUE(MatchesAnyPrefix(v[0].text, "Sdk Version=SDK_PC_V2.8.5_20171109_001\r\n", before, after)) << v[0].text;
  auto i = With("QXNet_init(), ");
  ASSERT_EQ(i.size(), 1u);
  EXPECT_EQ(i[0].level, 0u);
}

TEST_F(LogTest, WriterStartAndStop) {
  EXPECT_EQ(fLogStart(), -1) << "the writer is already running after QXNet_init";
  QXNet_Free();
  fLogStop();  // no writer: nothing to do
  fLogStop();
  EXPECT_EQ(fLog(0, "stopped"), 0);
  EXPECT_EQ(fLogStart(), 0);
  Clear();
  EXPECT_EQ(fLog(0, "started by hand"), 1);
  EXPECT_EQ(With("started by hand").size(), 1u);
  EXPECT_EQ(fLogStart(), -1);
  fLogStop();
  EXPECT_EQ(fLog(0, "stopped again"), 0);
}

TEST(LogThreadProc, NullArgumentDoesNothing) { EXPECT_EQ(LogThreadProc(nullptr), nullptr); }

TEST_F(LogTest, SetSocketNoBlockLogsItsFailure) {
  ExpectLine(0, "CCSInf: ioctlsocket FIONBIO return failed.\n", [] { return SetSocketNoBlock(-1, 1) == -1 ? 1 : -1; });
}

TEST_F(LogTest, SetSocketNoBlockSwitchesTheMode) {
  int sv[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sv), 0);
  Clear();
  EXPECT_EQ(SetSocketNoBlock(sv[0], 1), 0);
  EXPECT_NE(fcntl(sv[0], F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(SetSocketNoBlock(sv[0], 0), 0);
  EXPECT_EQ(fcntl(sv[0], F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(SetSocketNoBlock(sv[1], 5), 0);
  EXPECT_NE(fcntl(sv[1], F_GETFL) & O_NONBLOCK, 0);
  EXPECT_TRUE(Snapshot().empty()) << "success is not logged";
  close(sv[0]);
  close(sv[1]);
}

TEST_F(LogTest, MlogFamilyHasNoOutput) {
  std::string big(6000, 'm');
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  mlogLevel(0, "[SDK_LogoutDev] Logout refused, find dev by id=%ld \n", 12345L);
  mlogLevel(3, "QXNet_Loc_SetReplayDataCallBack \n");
  mlogLevel(31, "%s", big.c_str());
  mlogLevel(-1, "negative level %d", -1);
  mlogLevel(100, "level %d", 100);
  mlog("plain %s %d\n", "mlog", 1);
  mlog("%s", big.c_str());
  std::string out = testing::internal::GetCapturedStdout();
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "");
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));  // past a writer wake-up
  EXPECT_TRUE(Snapshot().empty()) << "mlog lines must not reach the log callback";
  char name[] = "ignored.log";
  EXPECT_EQ(mlogInit(name), 0);
  EXPECT_EQ(mlogInit(nullptr), 0);
  EXPECT_EQ(mlogClose(), 0);
}

// A line whose level the mask drops is not formatted at all: its arguments are never
// read. A %s argument that is no string shows it (formatting it would crash).
TEST_F(LogTest, DroppedLevelsAreNotFormatted) {
  const char* notAString = reinterpret_cast<const char*>(static_cast<uintptr_t>(1));
  QXNet_SetfcLogCallBackEx(Capture, 2);  // levels 0..2 pass, 3 is dropped
  EXPECT_EQ(fLog(3, "[ReceiveData] Dev=%s, recv len=%d \n", notAString, 7), 0);
  mlogLevel(0, "%s", notAString);
  mlogLevel(3, "%s", notAString);
  mlog("%s", notAString);
  QXNet_SetfcLogCallBackEx(Capture, 30);
  EXPECT_TRUE(Snapshot().empty());
}

TEST_F(LogTest, MlogFromManyThreads) {
  std::vector<std::thread> threads;
  std::atomic<int> done{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &done] {
      for (int i = 0; i < 300; ++i) {
        mlogLevel(i % 40, "thread %d line %d", t, i);
        mlog("thread %d line %d", t, i);
      }
      ++done;
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(done, 4);
  EXPECT_TRUE(Snapshot().empty());
}

}  // namespace
