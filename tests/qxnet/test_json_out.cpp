// qxnet's JSON writer: every byte string a device may send becomes a valid JSON string.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "json_out.h"

TEST(JsonQuote, PlainTextIsQuotedAsIs) { EXPECT_EQ(JsonQuote("abc 123"), "\"abc 123\""); }

TEST(JsonQuote, EmptyText) { EXPECT_EQ(JsonQuote(""), "\"\""); }

TEST(JsonQuote, QuotesAndBackslashesAreEscaped) {
  EXPECT_EQ(JsonQuote("say \"hi\" \\ there"), "\"say \\\"hi\\\" \\\\ there\"");
}

TEST(JsonQuote, ShortEscapesForCommonControls) {
  EXPECT_EQ(JsonQuote("a\nb\rc\td\be\ff"), "\"a\\nb\\rc\\td\\be\\ff\"");
}

TEST(JsonQuote, OtherControlCharactersAsUnicodeEscapes) {
  EXPECT_EQ(JsonQuote(std::string("\x01\x1f\x7f", 3)), "\"\\u0001\\u001f\\u007f\"");
}

TEST(JsonQuote, EmbeddedNulIsKept) { EXPECT_EQ(JsonQuote(std::string("a\0b", 3)), "\"a\\u0000b\""); }

TEST(JsonQuote, ValidUtf8PassesThrough) {
  EXPECT_EQ(JsonQuote("caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb7"), "\"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x93\xb7\"");
}

TEST(JsonQuote, InvalidBytesBecomeReplacementCharacters) {
  EXPECT_EQ(JsonQuote("a\xff" "b"), "\"a\\ufffdb\"");
  EXPECT_EQ(JsonQuote("\x80"), "\"\\ufffd\"");                       // lone continuation byte
  EXPECT_EQ(JsonQuote("\xc3"), "\"\\ufffd\"");                       // cut two-byte sequence
  EXPECT_EQ(JsonQuote("\xe2\x82"), "\"\\ufffd\\ufffd\"");            // cut three-byte sequence
  EXPECT_EQ(JsonQuote("\xc0\xaf"), "\"\\ufffd\\ufffd\"");            // overlong '/'
  EXPECT_EQ(JsonQuote("\xe0\x80\xaf"), "\"\\ufffd\\ufffd\\ufffd\"");  // overlong, three bytes
  EXPECT_EQ(JsonQuote("\xed\xa0\x80"), "\"\\ufffd\\ufffd\\ufffd\"");  // UTF-16 surrogate
  EXPECT_EQ(JsonQuote("\xf4\x90\x80\x80"), "\"\\ufffd\\ufffd\\ufffd\\ufffd\"");  // past U+10FFFF
}

TEST(JsonQuote, InvalidByteBeforeQuoteDoesNotSwallowIt) {
  EXPECT_EQ(JsonQuote("\xc3\""), "\"\\ufffd\\\"\"");
}

// Every single byte value, alone and after a lead byte, yields text with only printable ASCII
// or valid UTF-8 between the quotes and no raw quote or control character.
TEST(JsonQuote, NoByteLeaksRawControlOrQuote) {
  for (int b = 0; b < 256; ++b) {
    for (const std::string& in : {std::string(1, static_cast<char>(b)), std::string("\xe2") + static_cast<char>(b)}) {
      std::string q = JsonQuote(in);
      ASSERT_GE(q.size(), 2u);
      std::string inner = q.substr(1, q.size() - 2);
      for (size_t i = 0; i < inner.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(inner[i]);
        EXPECT_GE(c, 0x20) << "byte " << b;
        if (c == '"') {
          EXPECT_EQ(inner[i - 1], '\\') << "byte " << b;
        }
      }
    }
  }
}

TEST(JsonReal, FiniteAndNonFinite) {
  EXPECT_EQ(JsonReal(1.5), "1.5");
  EXPECT_EQ(JsonReal(-2), "-2");
  EXPECT_EQ(JsonReal(std::nan("")), "null");
  EXPECT_EQ(JsonReal(std::numeric_limits<double>::infinity()), "null");
}

TEST(JsonObject, MembersInOrder) {
  std::string t = JsonObject().Str("name", "cam \"1\"").Int("port", 8000).Bool("ok", true).Null("dns2").Text();
  EXPECT_EQ(t, "{\"name\":\"cam \\\"1\\\"\",\"port\":8000,\"ok\":true,\"dns2\":null}");
}

TEST(JsonObject, EmptyObjectAndNegativeNumbers) {
  EXPECT_EQ(JsonObject().Text(), "{}");
  EXPECT_EQ(JsonObject().Int("flag", -1).Bool("ok", false).Text(), "{\"flag\":-1,\"ok\":false}");
}

TEST(JsonObject, KeysAreEscapedToo) { EXPECT_EQ(JsonObject().Int("a\"b", 1).Text(), "{\"a\\\"b\":1}"); }

TEST(JsonObject, NestedArraysAndObjects) {
  std::string inner = JsonObject().Str("day", "20261123").Int("seconds", 6).Text();
  std::string t = JsonObject().Int("channel", 1).Raw("records", JsonArray({inner, inner})).Text();
  EXPECT_EQ(t, "{\"channel\":1,\"records\":[" + inner + "," + inner + "]}");
  EXPECT_EQ(JsonArray({}), "[]");
}
