// The session's sender and receiver on a socket pair, without a worker thread.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "capture.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/DevComControl.h"

using qxtest::Capture;

namespace {

std::string Frame(uint32_t flag, uint32_t len, const std::string& payload) {
  std::string f;
  for (int i = 0; i < 4; ++i) f.push_back(static_cast<char>(flag >> (8 * i)));
  for (int i = 0; i < 4; ++i) f.push_back(static_cast<char>(len >> (8 * i)));
  return f + payload;
}

std::string Frame(const std::string& payload) {
  return Frame(0x20180307, static_cast<uint32_t>(payload.size()), payload);
}

const std::string kHeartbeatAnswer =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n<cmd>35001</cmd>\n"
    "<result>0</result>\n</head>\n<body></body>\n</PrivateProto>";

void WriteAll(int fd, const std::string& s) {
  size_t off = 0;
  while (off < s.size()) {
    ssize_t n = write(fd, s.data() + off, s.size() - off);
    if (n <= 0) return;
    off += static_cast<size_t>(n);
  }
}

std::string ReadN(int fd, size_t n) {
  std::string out;
  char buf[4096];
  while (out.size() < n) {
    ssize_t r = read(fd, buf, std::min(sizeof(buf), n - out.size()));
    if (r <= 0) break;
    out.append(buf, static_cast<size_t>(r));
  }
  return out;
}

class Framing : public ::testing::Test {
 protected:
  void SetUp() override {
    Capture::Get().Install();
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds_));
    dev_ = new CDevComControl(g_pInstance, nullptr);
    dev_->AdoptSocketForTest(fds_[0]);
    Capture::Get().Clear();
  }
  void TearDown() override {
    dev_->StopForTest();
    close(fds_[1]);  // the peer goes first, so the session's close finds it gone at once
    delete dev_;     // closes fds_[0]
  }
  int fds_[2] = {-1, -1};
  CDevComControl* dev_ = nullptr;
};

TEST_F(Framing, ReceivesAFrameIntoTheBufferAsText) {
  WriteAll(fds_[1], Frame(kHeartbeatAnswer));
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(dev_->RecvLen(), kHeartbeatAnswer.size());
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
  // Dispatched: the heartbeat answer is event 79 with the empty body.
  ASSERT_EQ(Capture::Get().CountEvents(79), 1);
  EXPECT_EQ(Capture::Get().Events().back().text, "");
}

TEST_F(Framing, GarbageBeforeAFrameIsSkippedWithOneLineForTheRun) {
  WriteAll(fds_[1], std::string(8, 'G') + Frame(kHeartbeatAnswer));
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
  // One line for the whole run, with its length and the last flag rejected: the zero
  // left by the seven-byte copy followed by the frame flag's first three bytes.
  EXPECT_EQ(Capture::Get().CountLogs("recv pack skip data", 3), 1);
  EXPECT_EQ(Capture::Get().CountLogs("flag[0x18030700], recv pack skip data, size=8", 3), 1);
  EXPECT_EQ(Capture::Get().CountLogs("recv pack skip data, size=8", 2), 1);
}

TEST_F(Framing, AMegabyteOfGarbageWritesAFewLinesNotOnePerByte) {
  const size_t kGarbage = 1 << 20;
  std::thread writer([&] { WriteAll(fds_[1], std::string(kGarbage, 'Z') + Frame(kHeartbeatAnswer)); });
  int rc = 0;
  // Each call gives up after its 3 s deadline at most; the frame behind the garbage is
  // found in the end.
  for (int i = 0; i < 20 && (rc = dev_->ReceiveData()) != 0; ++i) {
  }
  writer.join();
  ASSERT_EQ(rc, 0);
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
  int lines = Capture::Get().CountLogs("recv pack skip data", 3);
  EXPECT_GE(lines, 1);
  EXPECT_LE(lines, 20);
}

TEST_F(Framing, AlternativeFlagIsReceived) {
  WriteAll(fds_[1], Frame(0x70308102, static_cast<uint32_t>(kHeartbeatAnswer.size()), kHeartbeatAnswer));
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
}

TEST_F(Framing, FlagOneByteInLosesTheLengthsThirdByte) {
  // Length 0x00010000 + n with one garbage byte in front: the third byte is lost, so
  // only n bytes are taken as the payload.
  std::string payload = kHeartbeatAnswer;
  uint32_t len = 0x00010000u + static_cast<uint32_t>(payload.size());
  WriteAll(fds_[1], "X" + Frame(0x20180307, len, payload));
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(dev_->RecvLen(), payload.size());
  EXPECT_EQ(std::string(dev_->RecvBuf()), payload);
}

TEST_F(Framing, FlagFourBytesInIsSkippedAndTheNextFrameTaken) {
  std::string first = Frame(std::string(40, 'A'));
  WriteAll(fds_[1], "1234" + first + Frame(kHeartbeatAnswer));
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
}

TEST_F(Framing, LengthEightIsRefusedAndItsBytesConsumed) {
  WriteAll(fds_[1], Frame(std::string(8, 'Z')) + Frame(kHeartbeatAnswer));
  EXPECT_EQ(-4, dev_->ReceiveData());
  EXPECT_EQ(Capture::Get().CountLogs("recv bad len="), 1);
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
}

TEST_F(Framing, LengthAboveTheLimitIsRefusedWithMinusFive) {
  WriteAll(fds_[1], Frame(0x20180307, 0xF00009, std::string(16, 'q')));
  EXPECT_EQ(-5, dev_->ReceiveData());
  EXPECT_EQ(Capture::Get().CountLogs("recv_with_header() recv bad len="), 1);
}

TEST_F(Framing, LengthAtTheLimitPassesTheTestButNotTheBuffer) {
  // 0xF00008 passes the length test; it does not fit the 3 MiB buffer, so it is read and
  // dropped, and the stream stays in step for the next frame.
  const uint32_t len = 0xF00008;
  std::thread writer([&] {
    WriteAll(fds_[1], Frame(0x20180307, len, std::string(len, 'b')));
    WriteAll(fds_[1], Frame(kHeartbeatAnswer));
  });
  int r = dev_->ReceiveData();
  EXPECT_NE(-5, r);
  EXPECT_EQ(-6, r);
  EXPECT_EQ(Capture::Get().CountLogs("recv_with_header() recv bad len="), 0);
  EXPECT_EQ(0, dev_->ReceiveData());
  writer.join();
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
}

TEST_F(Framing, PeerCloseWhileWaitingGivesSocketBroken) {
  std::thread closer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    WriteAll(fds_[1], std::string("\x07\x03", 2));
    shutdown(fds_[1], SHUT_RDWR);
  });
  EXPECT_EQ(-1234567, dev_->ReceiveData());
  closer.join();
}

TEST_F(Framing, NothingToReadTimesOutWithZero) {
  auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(0, dev_->ReceiveData());
  double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_GT(s, 2.5);
  EXPECT_LT(s, 6.0);
}

TEST_F(Framing, FrameSplitOverManyWritesIsReassembled) {
  std::string f = Frame(kHeartbeatAnswer);
  std::thread writer([&] {
    for (char c : f) {
      WriteAll(fds_[1], std::string(1, c));
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  });
  ASSERT_EQ(0, dev_->ReceiveData());
  writer.join();
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
}

TEST_F(Framing, SendZeroLengthSendsTheHeaderOnly) {
  EXPECT_EQ(0, dev_->SendData("", 0));
  std::string got = ReadN(fds_[1], 8);
  EXPECT_EQ(got, std::string("\x07\x03\x18\x20\x00\x00\x00\x00", 8));
}

TEST_F(Framing, SendWritesFlagLengthAndPayload) {
  std::string payload = "<PrivateProto>x</PrivateProto>";
  EXPECT_EQ(static_cast<int>(payload.size()), dev_->SendData(payload.data(), static_cast<unsigned>(payload.size())));
  EXPECT_EQ(ReadN(fds_[1], 8 + payload.size()), Frame(payload));
}

TEST_F(Framing, CloseTwiceClosesAndReportsOnce) {
  EXPECT_EQ(0, dev_->CloseSocktFd());
  EXPECT_EQ(0, dev_->CloseSocktFd());
  EXPECT_EQ(dev_->SockFd(), -1);
  ASSERT_EQ(Capture::Get().CountEvents(1), 1);
  EXPECT_NE(Capture::Get().Events()[0].text.find("]  socket error, fd="), std::string::npos);
  EXPECT_EQ(-1, dev_->SendData("x", 1));
  EXPECT_EQ(-1, dev_->ReceiveData());
}

TEST_F(Framing, QueuedItemIsSentOnceAndFreed) {
  char* text = new char[16]();
  std::strcpy(text, "<q>1</q>");
  dev_->PutToSendData(NetSDKSendData_t{8, text});
  EXPECT_EQ(dev_->QueuedCount(), 1);
  dev_->SendOneQueued();
  EXPECT_EQ(dev_->QueuedCount(), 0);
  EXPECT_EQ(ReadN(fds_[1], 16), Frame("<q>1</q>"));
  EXPECT_EQ(Capture::Get().CountLogs("send cmd ok,data=<q>1</q>", 3), 1);
}

// poll() instead of select(): a descriptor above 1023 works.
// One read takes what the socket holds; the frames behind the first are taken from
// those bytes by the next calls, also after the peer has gone.
TEST_F(Framing, FramesArrivingTogetherAreReceivedOneByOne) {
  const std::string second = kHeartbeatAnswer + "<!-- 2 -->";
  const std::string third = kHeartbeatAnswer + "<!-- 3 -->";
  WriteAll(fds_[1], Frame(kHeartbeatAnswer) + std::string(8, 'G') + Frame(second) + Frame(third));
  shutdown(fds_[1], SHUT_WR);
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(dev_->RecvLen(), second.size());
  EXPECT_EQ(std::string(dev_->RecvBuf()), second);
  EXPECT_EQ(Capture::Get().CountLogs("recv pack skip data, size=8", 2), 1);
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(std::string(dev_->RecvBuf()), third);
  EXPECT_EQ(-1234567, dev_->ReceiveData());
}

// A frame larger than what one read keeps ahead: its start comes from the bytes read
// with the frame before it, the rest from the socket.
TEST_F(Framing, AFrameLongerThanTheReadAheadIsReadWhole) {
  std::string big = kHeartbeatAnswer + "<!--" + std::string(700 * 1024, 'b') + "-->";
  std::thread writer([&] { WriteAll(fds_[1], Frame(kHeartbeatAnswer) + Frame(big) + Frame(kHeartbeatAnswer)); });
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(dev_->RecvLen(), big.size());
  EXPECT_EQ(std::string(dev_->RecvBuf()), big);
  ASSERT_EQ(0, dev_->ReceiveData());
  EXPECT_EQ(std::string(dev_->RecvBuf()), kHeartbeatAnswer);
  writer.join();
}

TEST(FramingHighFd, DescriptorAbove1023Works) {
  Capture::Get().Install();
  struct rlimit rl;
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &rl));
  if (rl.rlim_cur < 2048) {
    rl.rlim_cur = std::min<rlim_t>(rl.rlim_max, 4096);
    setrlimit(RLIMIT_NOFILE, &rl);
    getrlimit(RLIMIT_NOFILE, &rl);
  }
  ASSERT_GE(rl.rlim_cur, 1601u) << "cannot raise the descriptor limit";
  int fds[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds));
  int high = fcntl(fds[0], F_DUPFD, 1500);
  ASSERT_GE(high, 1500);
  close(fds[0]);
  CDevComControl* dev = new CDevComControl(g_pInstance, nullptr);
  dev->AdoptSocketForTest(high);
  WriteAll(fds[1], Frame(kHeartbeatAnswer));
  EXPECT_EQ(0, dev->ReceiveData());
  EXPECT_EQ(std::string(dev->RecvBuf()), kHeartbeatAnswer);
  EXPECT_EQ(5, dev->SendData("hello", 5));
  EXPECT_EQ(ReadN(fds[1], 13), Frame("hello"));
  dev->StopForTest();
  delete dev;
  close(fds[1]);
}

}  // namespace
