// The media envelope read without the XML parser: for every text it accepts, the general
// readers give the same head and dataLen; every other text is refused.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "session/MediaEnvelope.h"
#include "xml/PayloadReaders.h"
#include "xml/xmlutil.h"

namespace {

std::string Envelope(const std::string& type, const std::string& cmd, const std::string& result,
                     const std::string& dataLen) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>" + type + "</type>\n<cmd>" + cmd +
         "</cmd>\n<result>" + result + "</result>\n</head>\n<body>\n<dataLen>" + dataLen +
         "</dataLen>\n</body>\n</PrivateProto>";
}

// The text as the receiver leaves it: four zero bytes and a pack behind it.
std::string Frame(const std::string& text) { return text + std::string(4, '\0') + std::string(40, 'p'); }

void ExpectSameAsGeneralReaders(const std::string& text) {
  std::string frame = Frame(text);
  MediaEnvelope e;
  ASSERT_TRUE(ReadMediaEnvelope(frame.c_str(), frame.size(), &e)) << text;
  char type[256], cmd[256], result[256];
  ASSERT_EQ(0, GetMessageHeader(frame.c_str(), type, sizeof type, cmd, sizeof cmd, result, sizeof result));
  EXPECT_STREQ(e.type, type);
  EXPECT_STREQ(e.cmd, cmd);
  EXPECT_STREQ(e.result, result);
  int64_t pos = 0;
  long len = 0;
  ASSERT_EQ(0, GetXmlPosAndDataLen(frame.c_str(), &pos, &len));
  EXPECT_EQ(e.dataLen, len);
  EXPECT_EQ(e.textLength, text.size());
}

TEST(MediaEnvelope, ReadsLikeTheGeneralReaders) {
  ExpectSameAsGeneralReaders(Envelope("90000", "90002", "0", "3864"));
  ExpectSameAsGeneralReaders(Envelope("90000", "90001", "0", "21"));
  ExpectSameAsGeneralReaders(Envelope("90000", "90002", "-16", "0"));
  ExpectSameAsGeneralReaders(Envelope("90000", "90002", "0", "000123"));
  ExpectSameAsGeneralReaders(Envelope("10000", "14301", "0", "999999999"));
}

TEST(MediaEnvelope, RefusesEveryOtherForm) {
  const std::vector<std::string> refused = {
      Envelope("90000", "90002", "0", "12") + " ",                  // text goes on
      Envelope("90000", "90002", "0", "1234567890"),                // ten digits
      Envelope("90000", "90002", "0", ""),                          // no length
      Envelope("90000", "90002", "0", "-5"),                        // negative length
      Envelope("90000", "90002", "-", "5"),                         // no digits
      Envelope("9000a", "90002", "0", "5"),                         // not a number
      Envelope(" 90000", "90002", "0", "5"),                        // white space
      Envelope("90000", "90002", "0", "5").substr(0, 120),          // cut short
  };
  for (const std::string& text : refused) {
    std::string frame = Frame(text);
    MediaEnvelope e;
    EXPECT_FALSE(ReadMediaEnvelope(frame.c_str(), frame.size(), &e)) << text;
  }
  std::string whole = Envelope("90000", "90002", "0", "5");
  MediaEnvelope e;
  // The zero that ends the text must lie within the bytes given.
  EXPECT_FALSE(ReadMediaEnvelope(whole.c_str(), whole.size(), &e));
  EXPECT_TRUE(ReadMediaEnvelope(whole.c_str(), whole.size() + 1, &e));
  std::string other = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>90000</type>\n"
                      "<cmd>90002</cmd>\n<result>0</result>\n</head>\n<body>\n<dataLen>5</dataLen>\n<x/>\n</body>\n"
                      "</PrivateProto>";
  EXPECT_FALSE(ReadMediaEnvelope(other.c_str(), other.size() + 1, &e));
  EXPECT_FALSE(ReadMediaEnvelope(nullptr, 10, &e));
}

}  // namespace
