// Hostile answers through the datagram path (classification and table) without sockets:
// more devices than slots, maximum-size datagrams, truncated and malformed XML, fields
// longer than their record fields, and a flood of answers.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "search/SearchIPC.h"
#include "search/SearchProto.h"
#include "search_test_util.h"

using namespace searchtest;

namespace {
// What the receive step hands on: at most kSearchMsgSize bytes, NUL-terminated.
void Deliver(CSearchIPC& s, const std::string& datagram) {
  SetSearchLogHook(nullptr);  // the capture would keep every line of the flood
  std::string text = datagram.substr(0, kSearchMsgSize);
  s.HandleDatagram(text.c_str(), static_cast<int>(text.size()));
}
}  // namespace

TEST(SearchHostile, ThousandAndOneDistinctUidsStopAtTheTableSize) {
  CSearchIPC s;
  Recorder r;
  s.SetSearchStatusCallBack(&Recorder::Cb, &r);
  for (int i = 0; i < 1001; ++i) {
    Device d;
    d.uid = "H" + std::to_string(i);
    Deliver(s, Answer(d));
  }
  EXPECT_EQ(s.GetIPCCount(), 1000);
  EXPECT_EQ(r.Events().size(), 1000u);
  __NetSDK_IPC_ENTRYV2 e;
  EXPECT_EQ(s.GetIPCInfo(1000, &e), -96);
}

TEST(SearchHostile, MaximumSizeDatagrams) {
  CSearchIPC s;
  std::mt19937 rng(12345);
  for (int round = 0; round < 20; ++round) {
    std::string d(65507, '\0');
    for (char& c : d) c = static_cast<char>(rng());
    Deliver(s, d);
  }
  // A valid answer whose elements are padded far beyond the receive size.
  Device big;
  big.osd = std::string(65000, 'o');
  Deliver(s, Answer(big));
  // An envelope filled with one enormous head field.
  Deliver(s, "<PrivateProto><head><type>" + std::string(65400, '1') + "</type></head></PrivateProto>");
  EXPECT_EQ(s.GetIPCCount(), 0);
  // An answer that fits exactly within the receive size is still read.
  Device fit;
  std::string a = Answer(fit);
  fit.osd = std::string(kSearchMsgSize - a.size() + fit.osd.size(), 'f');
  ASSERT_EQ(Answer(fit).size(), static_cast<size_t>(kSearchMsgSize));
  Deliver(s, Answer(fit));
  ASSERT_EQ(s.GetIPCCount(), 1);
  __NetSDK_IPC_ENTRYV2 e;
  s.GetIPCInfo(0, &e);
  EXPECT_EQ(std::strlen(e.szOsdStr), 254u);
}

TEST(SearchHostile, EveryTruncationOfAnAnswer) {
  CSearchIPC s;
  const std::string a = Answer(Device());
  for (size_t n = 0; n < a.size(); ++n) Deliver(s, a.substr(0, n));
  // Only the untruncated text carries the closing tag.
  EXPECT_EQ(s.GetIPCCount(), 0);
  Deliver(s, a);
  EXPECT_EQ(s.GetIPCCount(), 1);
}

TEST(SearchHostile, MalformedXmlInsideAValidEnvelope) {
  CSearchIPC s;
  const char* bodies[] = {
      "<hardwareType>IPC</hardwareType><versionInfo><UID>X",
      "<hardwareType>IPC<versionInfo></hardwareType></versionInfo>",
      "<hardwareType a=\"1\" a=\"2\">IPC</hardwareType>",
      "<![CDATA[ <hardwareType>IPC</hardwareType>",
      "</body><body>",
      "<hardwareType>IPC</hardwareType><!-- never closed",
  };
  for (const char* b : bodies) Deliver(s, Envelope(30002, b));
  std::string deep;
  for (int i = 0; i < 10000; ++i) deep += "<a>";
  Deliver(s, Envelope(30002, deep));
  Deliver(s, "<PrivateProto>" + deep + "</PrivateProto>");
  Deliver(s, Envelope(30004, deep));
  std::string nul = Answer(Device());
  nul[nul.size() / 2] = '\0';
  Deliver(s, nul);
  EXPECT_EQ(s.GetIPCCount(), 0);
  // An unknown entity between elements is text to the parser: the answer is read.
  Deliver(s, Envelope(30002, "<hardwareType>IPC</hardwareType>&bogus;<TCPIP><IP>1</IP></TCPIP>"));
  ASSERT_EQ(s.GetIPCCount(), 1);
  __NetSDK_IPC_ENTRYV2 e;
  s.GetIPCInfo(0, &e);
  EXPECT_STREQ(e.lanCfg.szIP, "1");
}

TEST(SearchHostile, FieldsLongerThanTheirRecordFields) {
  CSearchIPC s;
  Device d;
  d.uid = std::string(500, 'U');
  d.hardwareType = "IPC" + std::string(500, 'h');
  d.productModel = std::string(500, 'm');
  d.firmware = std::string(500, 'f');
  d.ip = std::string(2000, '9');
  d.mac = std::string(2000, 'c');
  d.osd = std::string(2000, 'o');
  d.user = std::string(500, 'u');
  d.password = std::string(500, 'p');
  d.group = std::string(500, 'g');
  Deliver(s, Answer(d));
  ASSERT_EQ(s.GetIPCCount(), 1);
  __NetSDK_IPC_ENTRYV2 e;
  s.GetIPCInfo(0, &e);
  EXPECT_EQ(std::string(e.szUID), std::string(31, 'U'));
  EXPECT_EQ(std::strlen(e.szHardwareType), 127u);
  EXPECT_EQ(std::strlen(e.szProductModel), 127u);
  EXPECT_EQ(std::strlen(e.szFirmwareVersion), 63u);
  EXPECT_EQ(std::strlen(e.lanCfg.szIP), 255u);
  EXPECT_EQ(std::strlen(e.lanCfg.szMAC), 255u);
  EXPECT_EQ(std::strlen(e.szOsdStr), 254u);
  EXPECT_EQ(std::strlen(e.userCfg.accounts[0].szUserName), 39u);
  EXPECT_EQ(std::strlen(e.userCfg.accounts[0].szGroup), 31u);
  EXPECT_EQ(std::strlen(e.userCfg.accounts[0].szStatus), 7u);
  EXPECT_EQ(e.dwMagic, 0x01020304u);  // the neighbours of every field are intact
  EXPECT_EQ(e.nVersion, 1001);
  // The same long UID answering again is the same device.
  Deliver(s, Answer(d));
  EXPECT_EQ(s.GetIPCCount(), 1);
  // A modify answer naming it by the long UID reaches it, its long token cut.
  Deliver(s, SetupAnswer(30004, d.uid, std::string(300, 't'), "1"));
  s.GetIPCInfo(0, &e);
  EXPECT_EQ(std::string(e.lanCfg.szToken), std::string(31, 't'));
  EXPECT_EQ(e.lanCfg.nLastResult, 1);
  char xml[20480];
  EXPECT_GT(s.GetIPCInfoXML(0, xml, sizeof(xml)), 0);
}

TEST(SearchHostile, AFloodOfAnswersKeepsTheTableBounded) {
  CSearchIPC s;
  Recorder r;
  s.SetSearchStatusCallBack(&Recorder::Cb, &r);
  const int kFlood = 100000;
  auto t0 = std::chrono::steady_clock::now();
  for (int i = 0; i < kFlood; ++i) {
    Device d;
    d.uid = "F" + std::to_string(i % 3000);   // 3000 identities for 1000 slots
    d.rtspPort = i % 7;                         // known devices keep changing
    if (i % 11 == 0) {
      Deliver(s, SetupAnswer(i % 2 ? 30004 : 30006, d.uid, "t", "0"));
    } else if (i % 13 == 0) {
      std::string a = Answer(d);
      Deliver(s, a.substr(0, a.size() / 2));
    } else {
      Deliver(s, Answer(d));
    }
    if (i % 1000 == 999) r.events.clear();  // the recorder, not the library, would grow
  }
  double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  std::printf("flood: %d datagrams in %.2f s (%.0f per second)\n", kFlood, secs, kFlood / secs);
  EXPECT_EQ(s.GetIPCCount(), 1000);
  EXPECT_EQ(s.QueuedRequests(), 0u);
  // The search goes on: a known device still updates.
  Device d;
  d.uid = "F5";
  d.rtspPort = 4242;
  r.events.clear();
  Deliver(s, Answer(d));
  ASSERT_EQ(r.Events().size(), 1u);
  EXPECT_EQ(r.Events()[0].code, 2);
  EXPECT_EQ(r.Events()[0].rtspPort, 4242);
}
