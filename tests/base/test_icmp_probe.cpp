// The echo request, the reading of both answer forms, and the probe loop over a scripted
// socket: every rule of the probe without a network.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <vector>

#include "base/IcmpEcho.h"
#include "base/IcmpProbe.h"
#include "hostnet_log_capture.h"

namespace {

uint32_t A(const char* t) { return inet_addr(t); }

TEST(EchoRequest, FieldsAndChecksum) {
  uint8_t r[12];
  BuildEchoRequest(r, 3, 0x11223344u);
  EXPECT_EQ(8, r[0]);
  EXPECT_EQ(0, r[1]);
  uint16_t id, seq;
  uint32_t t;
  memcpy(&id, r + 4, 2);
  memcpy(&seq, r + 6, 2);
  memcpy(&t, r + 8, 4);
  EXPECT_EQ(3, id);
  EXPECT_EQ(3, seq);
  EXPECT_EQ(0x11223344u, t);
  // A correct Internet checksum makes the sum over the whole message fold to 0xFFFF.
  uint16_t w[6];
  memcpy(w, r, 12);
  EXPECT_EQ(0, ChkSum(w, 12));
}

TEST(EchoRequest, ChecksumOfKnownWordsAndOddLength) {
  // Two words 0x0001 and 0xF203 (as they lie in memory): sum 0xF204, inverted 0x0DFB.
  const uint8_t b[4] = {0x01, 0x00, 0x03, 0xF2};
  uint16_t w[2];
  memcpy(w, b, 4);
  EXPECT_EQ(0x0DFB, ChkSum(w, 4));
  // Carries fold: 0xFFFF + 0x0002 = 0x10001 -> 0x0002 -> inverted 0xFFFD.
  const uint8_t c[4] = {0xFF, 0xFF, 0x02, 0x00};
  memcpy(w, c, 4);
  EXPECT_EQ(0xFFFD, ChkSum(w, 4));
  // An odd last byte is added as it is.
  const uint8_t d[3] = {0x01, 0x00, 0x05};
  uint16_t x[2] = {0, 0};
  memcpy(x, d, 3);
  EXPECT_EQ(static_cast<unsigned short>(~0x0006), ChkSum(x, 3));
}

std::vector<uint8_t> RawReply(const char* src, uint8_t type, int ihlWords = 5, int icmpBytes = 8) {
  std::vector<uint8_t> p(static_cast<size_t>(ihlWords * 4 + icmpBytes), 0);
  p[0] = static_cast<uint8_t>(0x40 | ihlWords);
  uint32_t s = A(src);
  memcpy(&p[12], &s, 4);
  p[static_cast<size_t>(ihlWords * 4)] = type;
  return p;
}

TEST(EchoAnswer, RawFormReadsTheIpHeader) {
  std::vector<uint8_t> p = RawReply("127.0.0.9", 0);
  // The socket's own idea of the sender does not matter in the raw form.
  EXPECT_EQ(ECHO_REPLY, ClassifyEchoAnswer(p.data(), (int)p.size(), true, A("1.1.1.1"), A("127.0.0.9")));
  EXPECT_EQ(ECHO_NOT_FROM_DEST, ClassifyEchoAnswer(p.data(), (int)p.size(), true, A("127.0.0.9"), A("127.0.0.8")));
  std::vector<uint8_t> req = RawReply("127.0.0.9", 8);
  EXPECT_EQ(ECHO_NOT_REPLY, ClassifyEchoAnswer(req.data(), (int)req.size(), true, 0, A("127.0.0.9")));
  // With IP options the ICMP header begins later.
  std::vector<uint8_t> opt = RawReply("127.0.0.9", 0, 6);
  EXPECT_EQ(ECHO_REPLY, ClassifyEchoAnswer(opt.data(), (int)opt.size(), true, 0, A("127.0.0.9")));
  opt[20] = 0xAA;  // where a 20-byte header would put the type: must not be read
  EXPECT_EQ(ECHO_REPLY, ClassifyEchoAnswer(opt.data(), (int)opt.size(), true, 0, A("127.0.0.9")));
}

TEST(EchoAnswer, RawFormLengthBound) {
  std::vector<uint8_t> p = RawReply("127.0.0.9", 0, 5, 7);  // header + 7: too short
  EXPECT_EQ(ECHO_BAD_LENGTH, ClassifyEchoAnswer(p.data(), (int)p.size(), true, 0, A("127.0.0.9")));
  EXPECT_EQ(ECHO_BAD_LENGTH, ClassifyEchoAnswer(p.data(), 12, true, 0, A("127.0.0.9")));
}

TEST(EchoAnswer, PingSocketFormHasNoIpHeader) {
  uint8_t m[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(ECHO_REPLY, ClassifyEchoAnswer(m, 8, false, A("127.0.0.9"), A("127.0.0.9")));
  EXPECT_EQ(ECHO_NOT_FROM_DEST, ClassifyEchoAnswer(m, 8, false, A("127.0.0.7"), A("127.0.0.9")));
  EXPECT_EQ(ECHO_BAD_LENGTH, ClassifyEchoAnswer(m, 7, false, A("127.0.0.9"), A("127.0.0.9")));
  m[0] = 3;
  EXPECT_EQ(ECHO_NOT_REPLY, ClassifyEchoAnswer(m, 8, false, A("127.0.0.9"), A("127.0.0.9")));
}

// A socket that plays a script: per attempt, what the wait reports and what is read.
struct Step {
  int wait;                    // WaitReadable's result
  std::vector<uint8_t> data;   // what Receive returns (empty: -1)
  uint32_t from = 0;
};

class ScriptedIo : public IIcmpIo {
 public:
  ScriptedIo(bool raw, std::deque<Step> s) : raw_(raw), steps_(std::move(s)) {}
  bool HasIpHeader() const override { return raw_; }
  int Send(const uint8_t* d, int len, uint32_t dest) override {
    sent.push_back(std::vector<uint8_t>(d, d + len));
    dests.push_back(dest);
    return shortSend ? len - 1 : len;
  }
  int WaitReadable(int ms) override {
    waits.push_back(ms);
    if (steps_.empty()) return 0;
    cur_ = steps_.front();
    steps_.pop_front();
    return cur_.wait;
  }
  int Receive(uint8_t* buf, int cap, uint32_t* from) override {
    if (cur_.data.empty()) return -1;
    int n = std::min<int>(cap, (int)cur_.data.size());
    memcpy(buf, cur_.data.data(), (size_t)n);
    *from = cur_.from;
    return n;
  }
  void Pause(int ms) override { pauses.push_back(ms); }
  uint32_t NowSeconds() override { return 1000; }
  std::vector<std::vector<uint8_t>> sent;
  std::vector<uint32_t> dests;
  std::vector<int> waits, pauses;
  bool shortSend = false;

 private:
  bool raw_;
  std::deque<Step> steps_;
  Step cur_;
};

TEST(EchoProbe, SilentAddressIsUsableAfterFiveAttempts) {
  hostlog::Capture cap;
  ScriptedIo io(true, {});
  EXPECT_EQ(1, RunEchoProbe(io, A("127.0.0.9")));
  ASSERT_EQ(5u, io.sent.size());
  for (uint16_t i = 0; i < 5; ++i) {
    uint16_t id;
    memcpy(&id, io.sent[i].data() + 4, 2);
    EXPECT_EQ(i, id);
    EXPECT_EQ(A("127.0.0.9"), io.dests[i]);
    EXPECT_EQ(100, io.waits[i]);
  }
  EXPECT_EQ(1, cap.Count("[CSearchIPC] no replay recv, ip 127.0.0.9 is usable.\n"));
}

TEST(EchoProbe, AnswerOnTheThirdAttemptAfterThreeSends) {
  hostlog::Capture cap;
  ScriptedIo io(true, {{0, {}}, {0, {}}, {1, RawReply("127.0.0.9", 0)}});
  EXPECT_EQ(0, RunEchoProbe(io, A("127.0.0.9")));
  EXPECT_EQ(3u, io.sent.size());
  EXPECT_EQ(1, cap.Count("[CSearchIPC]got replay from ip: 127.0.0.9\n"));
}

TEST(EchoProbe, ReplyFromAnotherHostIsLoggedWithTheProbedAddressAndTheProbeGoesOn) {
  hostlog::Capture cap;
  ScriptedIo io(true, {{1, RawReply("127.0.0.77", 0)}, {1, RawReply("127.0.0.9", 0)}});
  EXPECT_EQ(0, RunEchoProbe(io, A("127.0.0.9")));
  EXPECT_EQ(2u, io.sent.size());
  EXPECT_EQ(1, cap.Count("[CSearchIPC] recv packet not from dest ip, but from: 127.0.0.9\n"));
  EXPECT_EQ(std::vector<int>{100}, io.pauses);
}

TEST(EchoProbe, PingSocketFormTakesTheSenderFromTheSocket) {
  std::vector<uint8_t> reply(8, 0);
  ScriptedIo other(false, {{1, reply, A("127.0.0.5")}});
  EXPECT_EQ(1, RunEchoProbe(other, A("127.0.0.9")));
  ScriptedIo same(false, {{1, reply, A("127.0.0.9")}});
  EXPECT_EQ(0, RunEchoProbe(same, A("127.0.0.9")));
}

TEST(EchoProbe, OtherIcmpAndShortAnswersAreSkipped) {
  hostlog::Capture cap;
  std::vector<uint8_t> shortOne = RawReply("127.0.0.9", 0, 5, 4);
  ScriptedIo io(true, {{1, RawReply("127.0.0.9", 8)}, {1, shortOne}});
  EXPECT_EQ(1, RunEchoProbe(io, A("127.0.0.9")));
  EXPECT_EQ(1, cap.Count("[CSearchIPC]recv not icmp packet.\n"));
  EXPECT_EQ(1, cap.Count("[CSearchIPC] recv bad length.\n"));
  EXPECT_EQ(5u, io.sent.size());
}

TEST(EchoProbe, FailuresAndTheirCodes) {
  {
    hostlog::Capture cap;
    ScriptedIo io(true, {{-1, {}}});
    EXPECT_EQ(-3, RunEchoProbe(io, A("127.0.0.9")));
    EXPECT_EQ(1, cap.Count("[CSearchIPC] select failed.\n"));
  }
  {
    hostlog::Capture cap;
    ScriptedIo io(true, {{-2, {}}});
    EXPECT_EQ(-4, RunEchoProbe(io, A("127.0.0.9")));
    EXPECT_EQ(1, cap.Count("[CSearchIPC] socket not readable.\n"));
  }
  {
    hostlog::Capture cap;
    ScriptedIo io(true, {{1, {}}});
    EXPECT_EQ(-1, RunEchoProbe(io, A("127.0.0.9")));
    EXPECT_EQ(1, cap.Count("[CSearchIPC] recvfrom failed.\n"));
  }
  {
    hostlog::Capture cap;
    ScriptedIo io(true, {});
    io.shortSend = true;
    EXPECT_EQ(-2, RunEchoProbe(io, A("127.0.0.9")));
    EXPECT_EQ(1, cap.Count("[CSearchIPC] sendto failed.\n"));
  }
}

}  // namespace
