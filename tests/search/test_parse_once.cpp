// A datagram is parsed once: the answer readers read the body element of the head
// reader's parse instead of parsing the cut-out body again. These tests hold the readers
// with the shared parse to the readers on their own parse (the way every answer was read
// before), field by field, with their results and log lines, on the sample answers and on
// texts built to make the two parses differ.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "search/SearchAnswer.h"
#include "search/SearchProto.h"
#include "search/search_test_util.h"
#include "xml/ParsedBody.h"
#include "xml/XmlParse.h"

using namespace searchtest;

namespace {

struct Reading {
  int rc;
  __NetSDK_IPC_ENTRYV2 entry;
  std::vector<std::string> log;
};

// The answer read on its own parse of the cut-out body (parsed == null) or from `parsed`.
Reading ReadAnswer(const std::string& msg, const TiXmlDocument* parsed) {
  Reading r;
  StartLog();
  std::memset(&r.entry, 0x5A, sizeof(r.entry));
  r.rc = ParseSearchAnswer(msg.c_str(), &r.entry, parsed);
  r.log = Log();
  return r;
}

std::string Field(const char* f, size_t n) { return std::string(f, strnlen(f, n)); }
#define EXPECT_FIELD(a, b, field) \
  EXPECT_EQ(Field((a).field, sizeof((a).field)), Field((b).field, sizeof((b).field))) << #field

void ExpectSameEntry(const __NetSDK_IPC_ENTRYV2& a, const __NetSDK_IPC_ENTRYV2& b) {
  EXPECT_FIELD(a, b, szUID);
  EXPECT_FIELD(a, b, szHardwareType);
  EXPECT_FIELD(a, b, szProductModel);
  EXPECT_FIELD(a, b, szFirmwareVersion);
  EXPECT_FIELD(a, b, szSdkPlatform);
  EXPECT_FIELD(a, b, szOsdStr);
  EXPECT_EQ(a.portCfg.nRTSPPort, b.portCfg.nRTSPPort);
  EXPECT_EQ(a.portCfg.nHTTPPort, b.portCfg.nHTTPPort);
  EXPECT_FIELD(a, b, lanCfg.szIP);
  EXPECT_FIELD(a, b, lanCfg.szNetmask);
  EXPECT_FIELD(a, b, lanCfg.szGateway);
  EXPECT_FIELD(a, b, lanCfg.szPreferredDNS);
  EXPECT_FIELD(a, b, lanCfg.szStandbyDNS);
  EXPECT_FIELD(a, b, lanCfg.szMAC);
  EXPECT_EQ(a.lanCfg.nDHCPMode, b.lanCfg.nDHCPMode);
  EXPECT_FIELD(a, b, userCfg.accounts[0].szUserName);
  EXPECT_FIELD(a, b, userCfg.accounts[0].szPassword);
  EXPECT_FIELD(a, b, userCfg.accounts[0].szGroup);
  EXPECT_FIELD(a, b, userCfg.accounts[0].szStatus);
  // And every other byte of the record, which is compared whole by the table.
  EXPECT_EQ(std::memcmp(&a, &b, sizeof(a)), 0);
}

// Reads `msg` both ways when it is a search answer; false when it is not one.
bool ExpectSameReading(const std::string& msg, bool* reused = nullptr) {
  SearchHead head;
  TiXmlDocument doc;
  StartLog();
  if (ClassifySearchDatagram(msg.c_str(), &head, &doc) != SEARCH_DG_SEARCH_ANSWER) return false;
  if (reused) *reused = ReusableBodyElement(msg.c_str(), doc) != nullptr;
  Reading own = ReadAnswer(msg, nullptr);
  Reading shared = ReadAnswer(msg, &doc);
  EXPECT_EQ(own.rc, shared.rc) << msg;
  EXPECT_EQ(own.log, shared.log) << msg;
  ExpectSameEntry(own.entry, shared.entry);
  return true;
}

std::string ReadFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream s;
  s << f.rdbuf();
  return s.str();
}

std::string Corpus(const char* name) {
  const char* src = std::getenv("QXNET_SOURCE_DIR");
  return ReadFile(std::string(src ? src : ".") + "/fuzz/search/corpus/" + name);
}

std::string WithOsd(const std::string& osd) {
  Device d;
  d.osd = osd;
  return Answer(d);
}

}  // namespace

TEST(SearchParseOnce, SampleAnswersReadAsBeforeFromTheSharedParse) {
  std::vector<std::string> samples;
  for (const char* name : {"answer_ipc", "answer_nvr_devicetype", "answer_nvs"}) samples.push_back(Corpus(name));
  ASSERT_NE(samples[0].find("<UID>UID0001</UID>"), std::string::npos) << "corpus not found";
  Device d;
  samples.push_back(Answer(d));
  d.hardwareType = "NVR";
  d.uid = std::string(40, 'U');  // cut to the field
  d.osd = std::string(300, 'o');
  samples.push_back(Answer(d));
  for (const std::string& s : samples) {
    bool reused = false;
    ASSERT_TRUE(ExpectSameReading(s, &reused)) << s;
    EXPECT_TRUE(reused) << "the usual answer must not be parsed twice:\n" << s;
  }
}

TEST(SearchParseOnce, AnIpcAnswerReadsItsFieldsFromTheSharedParse) {
  std::string msg = Corpus("answer_ipc");
  SearchHead head;
  TiXmlDocument doc;
  ASSERT_EQ(ClassifySearchDatagram(msg.c_str(), &head, &doc), SEARCH_DG_SEARCH_ANSWER);
  __NetSDK_IPC_ENTRYV2 e;
  ASSERT_EQ(ParseSearchAnswer(msg.c_str(), &e, &doc), 0);
  EXPECT_STREQ(e.szUID, "UID0001");
  EXPECT_STREQ(e.szProductModel, "QX-100");
  EXPECT_EQ(e.portCfg.nRTSPPort, 1);  // platformAccess comes later and wins
  EXPECT_EQ(e.portCfg.nHTTPPort, 80);  // platformAccess has none
  EXPECT_STREQ(e.lanCfg.szIP, "10.9.8.7");
  EXPECT_STREQ(e.userCfg.accounts[0].szStatus, "Adminis");  // the group, cut to the field
}

TEST(SearchParseOnce, SetupAnswersReadAsBeforeFromTheSharedParse) {
  for (const std::string& msg : {Corpus("modify_answer"), Corpus("restore_answer"),
                                 SetupAnswer(30004, std::string(50, 'u'), std::string(50, 't'), "3")}) {
    SearchHead head;
    TiXmlDocument doc;
    ASSERT_EQ(ClassifySearchDatagram(msg.c_str(), &head, &doc), SEARCH_DG_SETUP_ANSWER) << msg;
    EXPECT_NE(ReusableBodyElement(msg.c_str(), doc), nullptr);
    char uid[2][32], token[2][32];
    std::vector<std::string> log[2];
    int rc[2];
    for (int k = 0; k < 2; ++k) {
      StartLog();
      rc[k] = GetDeviceUID_TOKEN(uid[k], token[k], msg.c_str(), k ? &doc : nullptr);
      log[k] = Log();
    }
    EXPECT_EQ(rc[0], rc[1]);
    EXPECT_STREQ(uid[0], uid[1]);
    EXPECT_STREQ(token[0], token[1]);
    EXPECT_EQ(log[0], log[1]);
  }
}

// Texts on which the whole parse and the cut-out body's parse see different bodies, or
// read the same bytes differently: the shared parse must not be used, and the reading is
// the cut-out body's, as before.
TEST(SearchParseOnce, BodiesThatMightReadOtherwiseAreParsedOnTheirOwn) {
  std::string usual = Answer(Device());
  auto swap = [&usual](const std::string& from, const std::string& to) {
    std::string s = usual;
    s.replace(s.find(from), from.size(), to);
    return s;
  };
  const std::vector<std::string> texts = {
      swap("<OsdStr>", "<OsdStr>&#233;&#x4e2d;"),                          // numeric references
      swap("<OsdStr>", "<OsdStr>\xE4<"),                                    // a lead byte swallowing '<'
      swap("<OsdStr>", "\xEF\xBB\xBF<OsdStr>"),                             // a byte-order mark between elements
      swap("<OsdStr>", "<OsdStr>\xEF\xBF\xBF"),                             // U+FFFF where white space may be
      swap("<OsdStr>", "<x><body>in</body></x><OsdStr>"),                   // a second body inside the body
      swap("<OsdStr>", "<!-- </body> --><OsdStr>"),                         // the end tag in a comment
      swap("<body>", "<!-- <body> --><body >"),                             // the cut finds a comment
      swap("<head>", "<head><x a=\"<body>\"/>"),                            // or an attribute
      swap("</PrivateProto>", "<body/></PrivateProto>"),                   // an empty body anywhere
      swap("<hardwareType>", "<body></body><hardwareType>"),                // an early end tag
  };
  size_t read = 0;
  for (const std::string& t : texts) {
    bool reused = true;
    if (!ExpectSameReading(t, &reused)) continue;  // the head reader dropped it: nothing more is read
    ++read;
    EXPECT_FALSE(reused) << t;
  }
  std::printf("%zu of %zu texts read as search answers\n", read, texts.size());
  EXPECT_GE(read, texts.size() - 1);
  // Plain UTF-8 reads alike in both modes and keeps the single parse.
  bool reused = false;
  ASSERT_TRUE(ExpectSameReading(WithOsd("T\xC3\xBCr \xE5\x89\x8D\xE9\x97\xA8 \xF0\x9F\x93\xB7"), &reused));
  EXPECT_TRUE(reused);
}

TEST(SearchParseOnce, EncodingTestRefusesWhatUtf8ModeReadsOtherwise) {
  auto alike = [](const std::string& s) { return ReadsAlikeInBothEncodings(s.data(), s.data() + s.size()); };
  EXPECT_TRUE(alike("<a>plain &amp; simple</a>"));
  EXPECT_TRUE(alike("<a>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80</a>"));
  EXPECT_FALSE(alike("<a>&#65;</a>"));
  EXPECT_FALSE(alike("<a>\xC3</a>"));       // a lead without its continuation
  EXPECT_FALSE(alike("<a>\xE2\x82"));        // cut short at the end
  EXPECT_FALSE(alike("<a>\xEF\xBB\xBF</a>"));
  EXPECT_FALSE(alike("<a>\xEF\xBF\xBE</a>"));
  // A high byte anywhere in a run of ASCII, read eight bytes at a time, is still seen.
  for (size_t at = 0; at < 20; ++at) {
    std::string s(20, 'a');
    EXPECT_TRUE(alike(s.substr(0, at) + "\xC3\xA9" + s.substr(at))) << at;
    EXPECT_FALSE(alike(s.substr(0, at) + "\xC3" + s.substr(at))) << at;
    EXPECT_FALSE(alike(s.substr(0, at) + "&#" + s.substr(at))) << at;
  }
}

// Random edits of the usual answer with the pieces that make the two parses part ways,
// compared both ways: whatever the shared parse is used for must read as the body's own.
TEST(SearchParseOnce, EditedAnswersReadAsBeforeFromTheSharedParse) {
  const std::vector<std::string> pieces = {"<body>", "</body>", "<body/>", "<body >", "</body >", "&#233;", "&#x41;",
                                           "\xC3\xA9", "\xE4", "\xEF\xBB\xBF", "<!--", "-->", "<![CDATA[", "]]>",
                                           "<x>", "</x>", "\"", "&amp;", " ", "\n", "<?xml encoding=\"gbk\"?>"};
  std::mt19937 rng(20261123);
  std::string base = Answer(Device());
  int answers = 0, reusedCount = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string s = base;
    int edits = 1 + static_cast<int>(rng() % 3);
    for (int k = 0; k < edits; ++k) {
      size_t at = rng() % (s.size() + 1);
      if (rng() % 4 == 0 && at < s.size())
        s.erase(at, 1 + rng() % 8);
      else
        s.insert(at, pieces[rng() % pieces.size()]);
    }
    bool reused = false;
    if (ExpectSameReading(s, &reused)) {
      ++answers;
      reusedCount += reused;
    }
    if (HasFailure()) break;
  }
  std::printf("edited answers: %d read as search answers, %d of them from the shared parse\n", answers, reusedCount);
  EXPECT_GT(answers, 100);
  EXPECT_GT(reusedCount, 0);
  EXPECT_LT(reusedCount, answers);
}
