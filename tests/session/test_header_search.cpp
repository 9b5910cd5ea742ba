// The receiver's header search as pure logic.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "session/FrameHeaderSearch.h"

namespace {

std::vector<uint8_t> Frame(uint32_t flag, uint32_t len, const std::vector<uint8_t>& payload) {
  std::vector<uint8_t> f;
  for (int i = 0; i < 4; ++i) f.push_back(static_cast<uint8_t>(flag >> (8 * i)));
  for (int i = 0; i < 4; ++i) f.push_back(static_cast<uint8_t>(len >> (8 * i)));
  f.insert(f.end(), payload.begin(), payload.end());
  return f;
}

struct Skips {
  std::vector<int> counts;
  static void On(void* p, uint32_t, int skipped) { static_cast<Skips*>(p)->counts.push_back(skipped); }
};

// Feeds the stream 8 bytes at a time until found; returns the number of bytes fed, or -1.
int FeedAll(CFrameHeaderSearch& s, const std::vector<uint8_t>& data, Skips* skips) {
  size_t pos = 0;
  while (pos + 8 <= data.size()) {
    CFrameHeaderSearch::Result r = s.Feed(&data[pos], &Skips::On, skips);
    pos += 8;
    if (r == CFrameHeaderSearch::kFound) return static_cast<int>(pos);
  }
  return -1;
}

std::vector<uint8_t> Payload(size_t n) {
  std::vector<uint8_t> p(n);
  for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>('a' + i % 26);
  return p;
}

TEST(HeaderSearch, FrameAtStartIsFoundWithItsPayloadPrefix) {
  auto data = Frame(0x20180307, 40, Payload(40));
  CFrameHeaderSearch s;
  Skips skips;
  ASSERT_EQ(FeedAll(s, data, &skips), 16);
  EXPECT_EQ(s.Shift(), 0);
  EXPECT_EQ(s.Length(), 40u);
  EXPECT_EQ(s.Flag(), 0x20180307u);
  ASSERT_EQ(s.PayloadPrefixLength(), 8);
  EXPECT_EQ(0, std::memcmp(s.PayloadPrefix(), "abcdefgh", 8));
  EXPECT_TRUE(skips.counts.empty());
  EXPECT_EQ(s.SkippedInPasses(), 0);
}

TEST(HeaderSearch, AlternativeFlagIsAccepted) {
  auto data = Frame(0x70308102, 20, Payload(20));
  CFrameHeaderSearch s;
  Skips skips;
  ASSERT_GT(FeedAll(s, data, &skips), 0);
  EXPECT_EQ(s.Flag(), 0x70308102u);
  EXPECT_EQ(s.Length(), 20u);
}

TEST(HeaderSearch, EightGarbageBytesAreSkippedOneLineEach) {
  std::vector<uint8_t> data(8, 0x55);
  auto f = Frame(0x20180307, 30, Payload(30));
  data.insert(data.end(), f.begin(), f.end());
  CFrameHeaderSearch s;
  Skips skips;
  ASSERT_GT(FeedAll(s, data, &skips), 0);
  EXPECT_EQ(s.Shift(), 0);
  EXPECT_EQ(s.Length(), 30u);
  EXPECT_EQ(s.SkippedInPasses(), 8);
  ASSERT_EQ(skips.counts.size(), 8u);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(skips.counts[i], i + 1);
  EXPECT_EQ(0, std::memcmp(s.PayloadPrefix(), "abcdefgh", 8));
}

TEST(HeaderSearch, TwelveGarbageBytesGiveTwelveSkipLines) {
  std::vector<uint8_t> data(12, 0x11);
  auto f = Frame(0x20180307, 0x1234, Payload(64));
  data.insert(data.end(), f.begin(), f.end());
  CFrameHeaderSearch s;
  Skips skips;
  ASSERT_GT(FeedAll(s, data, &skips), 0);
  EXPECT_EQ(s.Shift(), 4);
  EXPECT_EQ(s.Length(), 0x1234u);
  EXPECT_EQ(skips.counts.size(), 12u);
  EXPECT_EQ(s.PayloadPrefixLength(), 4);
  EXPECT_EQ(0, std::memcmp(s.PayloadPrefix(), "abcd", 4));
}

// The seven-byte first copy: a flag 1 to 3 bytes in loses one length byte.
TEST(HeaderSearch, FlagOneToThreeBytesInLosesOneLengthByte) {
  const uint32_t len = 0x0A0B0C0D;
  const uint32_t expected[4] = {0, 0x0A000C0D, 0x0A0B000D, 0x0A0B0C00};
  for (int s = 1; s <= 3; ++s) {
    std::vector<uint8_t> data(static_cast<size_t>(s), 0x77);
    auto f = Frame(0x20180307, len, Payload(32));
    data.insert(data.end(), f.begin(), f.end());
    CFrameHeaderSearch hs;
    Skips skips;
    ASSERT_GT(FeedAll(hs, data, &skips), 0) << "shift " << s;
    EXPECT_EQ(hs.Shift(), s);
    EXPECT_EQ(hs.Length(), expected[s]) << "shift " << s;
    EXPECT_EQ(hs.PayloadPrefixLength(), 8 - s);
    EXPECT_EQ(0, std::memcmp(hs.PayloadPrefix(), "abcdefgh", static_cast<size_t>(8 - s)));
  }
}

TEST(HeaderSearch, FlagFourToSevenBytesInIsNotRecognised) {
  for (int s = 4; s <= 7; ++s) {
    std::vector<uint8_t> data(static_cast<size_t>(s), 0x77);
    auto f = Frame(0x20180307, 16, std::vector<uint8_t>(16, 0x20));
    data.insert(data.end(), f.begin(), f.end());
    data.resize(data.size() + 32, 0x20);  // nothing flag-like behind it
    CFrameHeaderSearch hs;
    Skips skips;
    EXPECT_EQ(FeedAll(hs, data, &skips), -1) << "shift " << s;
  }
}

TEST(HeaderSearch, ZeroedLengthByteAtShiftZeroIsTheHighestOne) {
  // The first copy leaves the length's most significant byte at 0.
  auto data = Frame(0x20180307, 0x01000020, Payload(40));
  CFrameHeaderSearch s;
  Skips skips;
  ASSERT_GT(FeedAll(s, data, &skips), 0);
  EXPECT_EQ(s.Length(), 0x20u);
}

}  // namespace
