// CBase64: RFC 4648 encoding, and the lenient decoder whose count after "=" and extra
// 0x1C table entry the replay parameter readers depend on.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "base/Base64.h"

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

struct Encoded {
  std::string text;
  int result;
  bool terminated;
};

Encoded EncodeBytes(const std::string& bytes) {
  int len = static_cast<int>(bytes.size());
  int room = 4 * ((len + 2) / 3) + 1;
  // Filled with a marker so that a missing terminator or a write past the text shows.
  std::vector<char> out(static_cast<size_t>(room) + 8, '#');
  int r = CBase64::Encode(bytes.data(), out.data(), len);
  Encoded e;
  e.result = r;
  e.terminated = r >= 0 && r < room && out[static_cast<size_t>(r)] == 0;
  e.text.assign(out.data(), static_cast<size_t>(r > 0 ? r : 0));
  // Nothing may be written beyond the documented room.
  for (size_t i = static_cast<size_t>(room); i < out.size(); ++i) EXPECT_EQ(out[i], '#') << "byte " << i;
  return e;
}

struct Decoded {
  std::vector<unsigned char> buf;  // the whole destination buffer
  int result;
};

Decoded DecodeText(const std::string& text) {
  int len = static_cast<int>(text.size());
  size_t room = static_cast<size_t>(len * 3 / 4 + 2);
  // Heap buffer of exactly the documented size: AddressSanitizer catches any overrun.
  std::vector<unsigned char> out(room, 0xEE);
  Decoded d;
  d.result = CBase64::Decode(text.data(), out.data(), len);
  d.buf = out;
  return d;
}

std::string Bytes(const Decoded& d, int n) {
  return std::string(reinterpret_cast<const char*>(d.buf.data()), static_cast<size_t>(n));
}

// Independent reference encoder for the comparisons below.
std::string RefEncode(const std::string& in) {
  std::string out;
  size_t i = 0;
  for (; i + 3 <= in.size(); i += 3) {
    unsigned v = (static_cast<unsigned char>(in[i]) << 16) | (static_cast<unsigned char>(in[i + 1]) << 8) |
                 static_cast<unsigned char>(in[i + 2]);
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += kAlphabet[v & 63];
  }
  size_t rest = in.size() - i;
  if (rest == 1) {
    unsigned v = static_cast<unsigned char>(in[i]) << 16;
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += "==";
  } else if (rest == 2) {
    unsigned v = (static_cast<unsigned char>(in[i]) << 16) | (static_cast<unsigned char>(in[i + 1]) << 8);
    out += kAlphabet[(v >> 18) & 63];
    out += kAlphabet[(v >> 12) & 63];
    out += kAlphabet[(v >> 6) & 63];
    out += '=';
  }
  return out;
}

TEST(Base64Encode, Vectors) {
  struct {
    const char* in;
    const char* out;
    int n;
  } cases[] = {{"Man", "TWFu", 4}, {"Ma", "TWE=", 4}, {"M", "TQ==", 4}, {"Many", "TWFueQ==", 8}, {"", "", 0}};
  for (const auto& c : cases) {
    Encoded e = EncodeBytes(c.in);
    EXPECT_EQ(e.result, c.n) << c.in;
    EXPECT_EQ(e.text, c.out) << c.in;
    EXPECT_TRUE(e.terminated) << c.in;
  }
}

TEST(Base64Encode, NegativeLengthWritesOnlyTheTerminator) {
  char out[8];
  std::memset(out, '#', sizeof(out));
  EXPECT_EQ(CBase64::Encode("abc", out, -5), 0);
  EXPECT_EQ(out[0], 0);
  EXPECT_EQ(out[1], '#');
}

TEST(Base64Encode, EveryByteValueAndNoLineBreaks) {
  for (int b = 0; b < 256; ++b) {
    std::string one(1, static_cast<char>(b));
    Encoded e = EncodeBytes(one);
    EXPECT_EQ(e.text, RefEncode(one)) << "byte " << b;
  }
  std::string all;
  for (int i = 0; i < 1000; ++i) all += static_cast<char>(i * 37 + 11);
  Encoded e = EncodeBytes(all);
  EXPECT_EQ(e.result, 4 * ((1000 + 2) / 3));
  EXPECT_EQ(e.text, RefEncode(all));
  EXPECT_EQ(e.text.find('\n'), std::string::npos);
  EXPECT_EQ(e.text.find('\r'), std::string::npos);
}

TEST(Base64Decode, FullGroupAndPaddingCounts) {
  Decoded d = DecodeText("TWFu");
  EXPECT_EQ(d.result, 3);
  EXPECT_EQ(Bytes(d, 3), "Man");

  // "=" counts the byte under construction: one more than the bytes decoded.
  d = DecodeText("TWE=");
  EXPECT_EQ(d.result, 3);
  EXPECT_EQ(Bytes(d, 2), "Ma");
  EXPECT_EQ(d.buf[2], 0);  // the byte under construction has no bits set here

  d = DecodeText("TQ==");
  EXPECT_EQ(d.result, 2);
  EXPECT_EQ(d.buf[0], 'M');
  EXPECT_EQ(d.buf[1], 0);

  d = DecodeText("TWFuTQ==");
  EXPECT_EQ(d.result, 5);
  EXPECT_EQ(Bytes(d, 4), "ManM");
}

TEST(Base64Decode, UnpaddedCountsAreExact) {
  Decoded d = DecodeText("TQ");
  EXPECT_EQ(d.result, 1);
  EXPECT_EQ(d.buf[0], 'M');
  EXPECT_EQ(d.buf[1], 0);  // the unfinished byte is zeroed and not counted

  d = DecodeText("TWE");
  EXPECT_EQ(d.result, 2);
  EXPECT_EQ(Bytes(d, 2), "Ma");
  EXPECT_EQ(d.buf[2], 0);

  d = DecodeText("T");
  EXPECT_EQ(d.result, 0);
  EXPECT_EQ(d.buf[0], 0);

  d = DecodeText("");
  EXPECT_EQ(d.result, 0);
}

TEST(Base64Decode, ForeignCharactersAreSkipped) {
  Decoded d = DecodeText("TWFu\nTWFu");
  EXPECT_EQ(d.result, 6);
  EXPECT_EQ(Bytes(d, 6), "ManMan");

  d = DecodeText("T*W-F!u");
  EXPECT_EQ(d.result, 3);
  EXPECT_EQ(Bytes(d, 3), "Man");

  d = DecodeText(std::string(" T\tW\r\nF u ", 10));
  EXPECT_EQ(d.result, 3);
  EXPECT_EQ(Bytes(d, 3), "Man");
}

TEST(Base64Decode, EveryCharacterOutsideTheTableIsIgnored) {
  std::string valid = std::string(kAlphabet) + '=' + '\x1C';
  for (int c = 0; c < 256; ++c) {
    if (valid.find(static_cast<char>(c)) != std::string::npos) continue;
    std::string text = "TW";
    text += static_cast<char>(c);
    text += "Fu";
    Decoded d = DecodeText(text);
    EXPECT_EQ(d.result, 3) << "char " << c;
    EXPECT_EQ(Bytes(d, 3), "Man") << "char " << c;
  }
}

TEST(Base64Decode, FirstEqualsSignEndsDecoding) {
  Decoded d = DecodeText("TQ==TWFu");
  EXPECT_EQ(d.result, 2);
  EXPECT_EQ(d.buf[0], 'M');

  d = DecodeText("=TWFu");
  EXPECT_EQ(d.result, 1);
  EXPECT_EQ(d.buf[0], 0);

  // An "=" in the middle of a group keeps the bits of the byte under construction.
  d = DecodeText("TWF=");
  EXPECT_EQ(d.result, 3);
  EXPECT_EQ(Bytes(d, 2), "Ma");
  EXPECT_EQ(d.buf[2], static_cast<unsigned char>((5 & 3) << 6));  // "F" = 5
}

TEST(Base64Decode, ControlCharacter1CDecodesLikeX) {
  const char text[] = {0x1C, 0x57, 0x46, 0x75};
  Decoded d = DecodeText(std::string(text, 4));
  EXPECT_EQ(d.result, 3);
  ASSERT_GE(d.buf.size(), 3u);
  EXPECT_EQ(d.buf[0], 0x5D);
  EXPECT_EQ(d.buf[1], 0x61);
  EXPECT_EQ(d.buf[2], 0x6E);

  Decoded a = DecodeText(std::string(4, '\x1C'));
  Decoded b = DecodeText("XXXX");
  EXPECT_EQ(a.result, 3);
  EXPECT_EQ(Bytes(a, 3), Bytes(b, 3));
}

TEST(Base64Decode, ReadsOnlyTheGivenLength) {
  const char text[] = "TWFuTWFu";
  std::vector<unsigned char> out(5, 0xEE);
  EXPECT_EQ(CBase64::Decode(text, out.data(), 4), 3);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(out.data()), 3), "Man");
  EXPECT_EQ(CBase64::Decode(text, out.data(), 0), 0);
}

TEST(Base64, RandomRoundTrip) {
  std::mt19937 rng(12345);
  for (int n = 0; n <= 300; ++n) {
    std::string data(static_cast<size_t>(n), '\0');
    for (auto& ch : data) ch = static_cast<char>(rng() & 0xFF);
    Encoded e = EncodeBytes(data);
    ASSERT_EQ(e.result, 4 * ((n + 2) / 3)) << n;
    ASSERT_EQ(e.text, RefEncode(data)) << n;
    Decoded d = DecodeText(e.text);
    // Padding makes the count one larger than the data.
    int expect = n + (n % 3 != 0 ? 1 : 0);
    ASSERT_EQ(d.result, expect) << n;
    ASSERT_EQ(Bytes(d, n), data) << n;
  }
}

}  // namespace
