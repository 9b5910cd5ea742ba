// Request texts and the first reading of received datagrams.
#include <gtest/gtest.h>

#include <string>

#include "search/SearchProto.h"
#include "search_test_util.h"

using namespace searchtest;

namespace {
const std::string kHead =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n<cmd>30001</cmd>\n"
    "<result>0</result>\n</head>\n";

std::string Format(int cmd, const char* body, const char* vendor) {
  char buf[kSearchMsgSize];
  int n = FormatSearchRequest(buf, sizeof(buf), cmd, body, vendor);
  EXPECT_EQ(n, static_cast<int>(std::string(buf).size()));
  return buf;
}
}  // namespace

TEST(SearchRequest, NoBodyNoVendor) {
  EXPECT_EQ(Format(30001, nullptr, ""), kHead + "<body>\n</body>\n</PrivateProto>");
  EXPECT_EQ(Format(30001, nullptr, nullptr), kHead + "<body>\n</body>\n</PrivateProto>");
}

TEST(SearchRequest, NoBodyWithVendor) {
  EXPECT_EQ(Format(30001, nullptr, "V7"), kHead + "<body>\n<VENDOR_PARAM VendorId=\"V7\" />\n</body>\n</PrivateProto>");
}

TEST(SearchRequest, BodyNoVendor) {
  std::string t = Format(30005, "<UID>A</UID>", "");
  EXPECT_EQ(t, "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n"
               "<cmd>30005</cmd>\n<result>0</result>\n</head>\n<body>\n<UID>A</UID>\n</body>\n</PrivateProto>");
}

TEST(SearchRequest, BodyWithVendor) {
  std::string t = Format(30003, "X", "V");
  EXPECT_EQ(t, "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n"
               "<cmd>30003</cmd>\n<result>0</result>\n</head>\n<body>\nX\n<VENDOR_PARAM VendorId=\"V\" />\n"
               "</body>\n</PrivateProto>");
}

TEST(SearchRequest, EmptyBodyIsABody) {
  EXPECT_EQ(Format(30001, "", ""), kHead + "<body>\n\n</body>\n</PrivateProto>");
}

TEST(SearchRequest, VendorIdIsEmptyAtLoad) { EXPECT_STREQ(g_strVendorId, ""); }

TEST(SearchRequest, TooLongIsRefusedWhole) {
  std::string body(kSearchMsgSize, 'b');
  char buf[kSearchMsgSize];
  EXPECT_EQ(FormatSearchRequest(buf, sizeof(buf), 30003, body.c_str(), ""), -1);
  EXPECT_STREQ(buf, "");
}

TEST(SearchDatagram, MissingClosingTagIsLoggedTwiceAndDropped) {
  StartLog();
  std::string t = Envelope(30002, AnswerBody(Device()));
  t.resize(t.size() - 3);  // "</PrivateProto>" cut
  SearchHead h;
  EXPECT_EQ(ClassifySearchDatagram(t.c_str(), &h), SEARCH_DG_DROPPED);
  std::vector<std::string> log = Log();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0], "[CSearchIPC] Invalid message, </PrivateProto> not found:\n" + t + "\n");
  EXPECT_EQ(log[1], "[CSearchIPC] get message header faile.recv message: " + t + "\n");
}

TEST(SearchDatagram, MissingOpeningTagIsLoggedTwiceAndDropped) {
  StartLog();
  std::string t = "<Private>x</PrivateProto>";
  SearchHead h;
  EXPECT_EQ(ClassifySearchDatagram(t.c_str(), &h), SEARCH_DG_DROPPED);
  std::vector<std::string> log = Log();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0], "[CSearchIPC] Invalid message, <PrivateProto> not found:\n" + t + "\n");
  EXPECT_EQ(log[1], "[CSearchIPC] get message header faile.recv message: " + t + "\n");
}

TEST(SearchDatagram, HeadWithoutResultIsDroppedEvenWithAValidCmd) {
  StartLog();
  std::string t = "<PrivateProto><head><type>30000</type><cmd>30002</cmd></head><body><UID>A</UID></body></PrivateProto>";
  SearchHead h;
  EXPECT_EQ(ClassifySearchDatagram(t.c_str(), &h), SEARCH_DG_DROPPED);
  EXPECT_STREQ(h.cmd, "30002");
  EXPECT_EQ(CountLog("[CSearchIPC] get message header faile.recv message: " + t + "\n"), 1u);
}

TEST(SearchDatagram, EmptyResultIsDropped) {
  std::string t = "<PrivateProto><head><type>30000</type><cmd>30002</cmd><result></result></head></PrivateProto>";
  SearchHead h;
  EXPECT_EQ(ClassifySearchDatagram(t.c_str(), &h), SEARCH_DG_DROPPED);
}

TEST(SearchDatagram, AnotherHostsSearchRequestIsLoggedAndDropped) {
  StartLog();
  char req[kSearchMsgSize];
  FormatSearchRequest(req, sizeof(req), 30001, nullptr, "");
  SearchHead h;
  EXPECT_EQ(ClassifySearchDatagram(req, &h), SEARCH_DG_OTHER);
  EXPECT_EQ(Log(), std::vector<std::string>{std::string("[CSearchIPC] recv message: ") + req + "\n"});
}

TEST(SearchDatagram, AnswersAreClassifiedByCmdOnly) {
  SearchHead h;
  EXPECT_EQ(ClassifySearchDatagram(Envelope(30002, "").c_str(), &h), SEARCH_DG_SEARCH_ANSWER);
  EXPECT_EQ(ClassifySearchDatagram(Envelope(30004, "", "-1").c_str(), &h), SEARCH_DG_SETUP_ANSWER);
  EXPECT_STREQ(h.result, "-1");
  EXPECT_EQ(ClassifySearchDatagram(Envelope(30006, "").c_str(), &h), SEARCH_DG_SETUP_ANSWER);
  std::string other = "<PrivateProto><head><type>99</type><cmd>30002</cmd><result>0</result></head></PrivateProto>";
  EXPECT_EQ(ClassifySearchDatagram(other.c_str(), &h), SEARCH_DG_SEARCH_ANSWER);  // type is ignored
}

TEST(SearchDatagram, LaterDuplicateHeadFieldWins) {
  std::string t = "<PrivateProto><head><type>1</type><cmd>30001</cmd><cmd>30004</cmd><result>0</result></head>"
                  "</PrivateProto>";
  SearchHead h;
  EXPECT_EQ(ClassifySearchDatagram(t.c_str(), &h), SEARCH_DG_SETUP_ANSWER);
}

TEST(SearchDatagram, UnparsableTextLogsTheFormatErrorAndTheHeaderFailure) {
  StartLog();
  std::string t = "<PrivateProto><head><type>1</type></PrivateProto>";
  SearchHead h;
  EXPECT_EQ(ClassifySearchDatagram(t.c_str(), &h), SEARCH_DG_DROPPED);
  EXPECT_EQ(CountLog("[CSearchIPC] Invalid message, xml format error:\n" + t + "\n"), 1u);
  EXPECT_EQ(CountLog("[CSearchIPC] get message header faile.recv message: " + t + "\n"), 1u);
}

TEST(SearchDatagram, NoHeadIsLogged) {
  StartLog();
  std::string t = "<PrivateProto><body/></PrivateProto>";
  SearchHead h;
  EXPECT_EQ(ClassifySearchDatagram(t.c_str(), &h), SEARCH_DG_DROPPED);
  EXPECT_EQ(CountLog("[CSearchIPC] select head node failed:\n" + t + "\n"), 1u);
}

TEST(SearchDatagram, OverlongHeadFieldsAreCut) {
  std::string big(5000, '7');
  std::string t = "<PrivateProto><head><type>" + big + "</type><cmd>" + big + "</cmd><result>" + big +
                  "</result></head></PrivateProto>";
  SearchHead h;
  ClassifySearchDatagram(t.c_str(), &h);
  EXPECT_EQ(std::string(h.type), std::string(kSearchHeadField - 1, '7'));
  EXPECT_EQ(std::string(h.cmd).size(), static_cast<size_t>(kSearchHeadField - 1));
  EXPECT_EQ(std::string(h.result).size(), static_cast<size_t>(kSearchHeadField - 1));
}
