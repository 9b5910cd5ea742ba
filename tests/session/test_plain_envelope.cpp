// An envelope with an empty body read without the XML parser: for every text it accepts,
// the general header reader gives the same head; every other text is refused.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "session/PlainEnvelope.h"
#include "xml/xmlutil.h"

namespace {

const char kDecl[] = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n";

std::string Head(const std::string& type, const std::string& cmd, const std::string& result) {
  return std::string(kDecl) + "<PrivateProto>\n<head>\n<type>" + type + "</type>\n<cmd>" + cmd + "</cmd>\n<result>" +
         result + "</result>\n</head>\n";
}

std::string Empty(const std::string& type, const std::string& cmd, const std::string& result) {
  return Head(type, cmd, result) + "<body>\n</body>\n</PrivateProto>";
}

std::string SelfClosed(const std::string& type, const std::string& cmd, const std::string& result) {
  return Head(type, cmd, result) + "<body/>\n</PrivateProto>";
}

// The text as the receiver leaves it: zero bytes behind it.
std::string Frame(const std::string& text) { return text + std::string(4, '\0'); }

void ExpectSameAsGeneralReader(const std::string& text) {
  std::string frame = Frame(text);
  PlainEnvelope e;
  ASSERT_TRUE(ReadPlainEnvelope(frame.c_str(), frame.size(), &e)) << text;
  char type[256], cmd[256], result[256];
  ASSERT_EQ(0, GetMessageHeader(frame.c_str(), type, sizeof type, cmd, sizeof cmd, result, sizeof result));
  EXPECT_STREQ(e.type, type);
  EXPECT_STREQ(e.cmd, cmd);
  EXPECT_STREQ(e.result, result);
}

TEST(PlainEnvelope, ReadsLikeTheGeneralReader) {
  ExpectSameAsGeneralReader(Empty("30000", "35001", "0"));  // the heartbeat answer
  ExpectSameAsGeneralReader(Empty("10000", "14012", "2"));
  ExpectSameAsGeneralReader(Empty("20000", "20002", "-1"));
  ExpectSameAsGeneralReader(Empty("90000", "90000", "-16"));
  ExpectSameAsGeneralReader(Empty("1", "000123", "999999999"));
  ExpectSameAsGeneralReader(SelfClosed("30000", "35001", "0"));
  ExpectSameAsGeneralReader(SelfClosed("40000", "40011", "-999999999"));
}

TEST(PlainEnvelope, RefusesEveryOtherForm) {
  const std::vector<std::string> refused = {
      Empty("30000", "35001", "0") + " ",                                     // text goes on
      Empty("30000", "35001", "0") + "<x/>",                                  // a second root
      Head("30000", "35001", "0") + "<body>\nX\n</body>\n</PrivateProto>",    // a body
      Head("30000", "35001", "0") + "<body>\n</body></PrivateProto>",         // other spacing
      Head("30000", "35001", "0") + "<body>\n</body>\n",                      // no end tag
      Head("30000", "35001", "0") + "<body/></PrivateProto>",                 // other spacing
      Empty("30000", "1234567890", "0"),                                      // ten digits
      Empty("30000", "35001", ""),                                            // empty result
      Empty("30000", "35001", "-"),                                           // no digits
      Empty("3000a", "35001", "0"),                                           // not a number
      Empty(" 30000", "35001", "0"),                                          // white space
      Empty("30000", "-35001", "0"),                                          // sign on cmd
      Empty("30000", "35001", "0").substr(0, 100),                            // cut short
      "<?xml version=\"1.0\" encoding=\"utf-8\" ?><PrivateProto>\n<head>\n<type>30000</type>\n<cmd>35001</cmd>\n"
      "<result>0</result>\n</head>\n<body/>\n</PrivateProto>",                // no line after the declaration
      "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PRIVATE_PROTO>\n<head>\n<type>30000</type>\n"
      "<cmd>35001</cmd>\n<result>0</result>\n</head>\n<body/>\n</PRIVATE_PROTO>",  // the other dialect
  };
  for (const std::string& text : refused) {
    std::string frame = Frame(text);
    PlainEnvelope e;
    EXPECT_FALSE(ReadPlainEnvelope(frame.c_str(), frame.size(), &e)) << text;
  }
  std::string whole = Empty("30000", "35001", "0");
  PlainEnvelope e;
  // The zero that ends the text must lie within the bytes given.
  EXPECT_FALSE(ReadPlainEnvelope(whole.c_str(), whole.size(), &e));
  EXPECT_TRUE(ReadPlainEnvelope(whole.c_str(), whole.size() + 1, &e));
  EXPECT_FALSE(ReadPlainEnvelope(nullptr, 10, &e));
}

}  // namespace
