// The found-device table: what a search answer fills, the type filter, identity by UID,
// callback codes, reads by index and as XML.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/LazyBuffer.h"
#include "search/SearchAnswer.h"
#include "search/SearchConfigXml.h"
#include "search/SearchTable.h"
#include "search_test_util.h"

using namespace searchtest;

namespace {
int Feed(CSearchTable& t, const std::string& msg) { return t.HandleSearchAnswer(msg.c_str(), static_cast<int>(msg.size())); }

__NetSDK_IPC_ENTRYV2 Parsed(const std::string& msg) {
  __NetSDK_IPC_ENTRYV2 e;
  EXPECT_EQ(ParseSearchAnswer(msg.c_str(), &e), 0);
  return e;
}

std::string WithVersionInfo(const std::string& inner, const std::string& type = "IPC") {
  return Envelope(30002, "<hardwareType>" + type + "</hardwareType><versionInfo>" + inner + "</versionInfo>");
}
}  // namespace

TEST(SearchRecord, LayoutIsTheInterfaceOne) {
  EXPECT_EQ(sizeof(__NetSDK_IPC_ENTRYV2), 4784u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, userCfg), 288u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg), 2700u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg) + offsetof(NetSDK_LANConfig, szToken), 2780u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, lanCfg) + offsetof(NetSDK_LANConfig, szIP), 3072u);
  EXPECT_EQ(offsetof(__NetSDK_IPC_ENTRYV2, szOsdStr), 4400u);
}

TEST(SearchRecord, AnAnswerFillsEveryMember) {
  Device d;
  __NetSDK_IPC_ENTRYV2 e = Parsed(Answer(d));
  EXPECT_STREQ(e.szUID, "UID0001");
  EXPECT_STREQ(e.szHardwareType, "IPC");
  EXPECT_STREQ(e.szProductModel, "QX-100");
  EXPECT_STREQ(e.szFirmwareVersion, "1.2.3");
  EXPECT_STREQ(e.szSdkPlatform, "linux");
  EXPECT_STREQ(e.szOsdStr, "Front door");
  EXPECT_EQ(e.portCfg.nRTSPPort, 554);
  EXPECT_EQ(e.portCfg.nHTTPPort, 80);
  EXPECT_STREQ(e.lanCfg.szIP, "127.9.8.7");
  EXPECT_STREQ(e.lanCfg.szNetmask, "255.255.255.0");
  EXPECT_STREQ(e.lanCfg.szGateway, "127.9.8.1");
  EXPECT_STREQ(e.lanCfg.szPreferredDNS, "8.8.8.8");
  EXPECT_STREQ(e.lanCfg.szMAC, "00:11:22:33:44:55");
  EXPECT_STREQ(e.userCfg.accounts[0].szUserName, "admin");
  EXPECT_STREQ(e.userCfg.accounts[0].szPassword, "pw");
  EXPECT_STREQ(e.userCfg.accounts[0].szGroup, "Administrators");
  EXPECT_STREQ(e.userCfg.accounts[0].szStatus, "Adminis");  // the group text, cut to 7
  EXPECT_EQ(e.dwMagic, 0x01020304u);
  EXPECT_EQ(e.nVersion, 1001);
  EXPECT_STREQ(e.lanCfg.szToken, "");
}

TEST(SearchRecord, ProductModelChoice) {
  EXPECT_STREQ(Parsed(WithVersionInfo("<product_model_ext>E</product_model_ext><deviceType>D</deviceType>")).szProductModel, "E");
  EXPECT_STREQ(Parsed(WithVersionInfo("<productModel>P</productModel><product_model_ext>E</product_model_ext>")).szProductModel, "P");
  EXPECT_STREQ(Parsed(WithVersionInfo("<deviceType>D</deviceType><product_model>M</product_model>")).szProductModel, "D");
  EXPECT_STREQ(Parsed(WithVersionInfo("<deviceType></deviceType><product_model>M</product_model>")).szProductModel, "M");
  // Without deviceType, product_model is not consulted.
  EXPECT_STREQ(Parsed(WithVersionInfo("<product_model>M</product_model>")).szProductModel, "");
  // The first of duplicate names counts.
  EXPECT_STREQ(Parsed(WithVersionInfo("<productModel>A</productModel><productModel>B</productModel>")).szProductModel, "A");
}

TEST(SearchRecord, MisspeltFirmwareVersionIsTheSecondChoice) {
  EXPECT_STREQ(Parsed(WithVersionInfo("<firmwaveVersion>W</firmwaveVersion>")).szFirmwareVersion, "W");
  EXPECT_STREQ(Parsed(WithVersionInfo("<firmwaveVersion>W</firmwaveVersion><firmwareVersion>F</firmwareVersion>")).szFirmwareVersion, "F");
}

TEST(SearchRecord, LaterPortGroupWins) {
  std::string body = "<hardwareType>NVR</hardwareType><platformAccess><RTSPPort>1</RTSPPort></platformAccess>"
                     "<portConfig><RTSPPort>2</RTSPPort><HTTPPort>3</HTTPPort></portConfig>";
  __NetSDK_IPC_ENTRYV2 e = Parsed(Envelope(30002, body));
  EXPECT_EQ(e.portCfg.nRTSPPort, 2);
  EXPECT_EQ(e.portCfg.nHTTPPort, 3);
  body = "<hardwareType>NVR</hardwareType><portConfig><RTSPPort>2</RTSPPort><HTTPPort>3</HTTPPort></portConfig>"
         "<platformAccess><RTSPPort>1</RTSPPort><HTTPPort></HTTPPort></platformAccess>";
  e = Parsed(Envelope(30002, body));
  EXPECT_EQ(e.portCfg.nRTSPPort, 1);
  EXPECT_EQ(e.portCfg.nHTTPPort, 0);
}

TEST(SearchRecord, NoVersionInfoGivesAnEmptyUid) {
  __NetSDK_IPC_ENTRYV2 e = Parsed(Envelope(30002, "<hardwareType>IPC</hardwareType>"));
  EXPECT_STREQ(e.szUID, "");
}

TEST(SearchTable, NvsAloneIsDroppedWithTheLogNamingFourTypes) {
  StartLog();
  CSearchTable t;
  Device d;
  d.hardwareType = "NVS";
  d.productModel = "M9";
  d.uid = "U9";
  EXPECT_EQ(Feed(t, Answer(d)), -3);
  EXPECT_EQ(t.Count(), 0);
  EXPECT_EQ(CountLog("[CSearchIPC] Found one device not NVS or DVS or DEC or DVR, type=M9, sn=U9\n"), 1u);
}

TEST(SearchTable, IpcOrNvrAnywhereInCapitalsIsKept) {
  CSearchTable t;
  const char* kept[] = {"IPC", "xxNVRyy", "HD-IPC-2", "NVR"};
  int i = 0;
  for (const char* type : kept) {
    Device d;
    d.hardwareType = type;
    d.uid = "K" + std::to_string(i++);
    EXPECT_EQ(Feed(t, Answer(d)), 0) << type;
  }
  for (const char* type : {"ipc", "nvr", "DVR", "DEC", "DVS", "", "IP C"}) {
    Device d;
    d.hardwareType = type;
    d.uid = "R" + std::to_string(i++);
    EXPECT_EQ(Feed(t, Answer(d)), -3) << type;
  }
  EXPECT_EQ(t.Count(), 4);
}

TEST(SearchTable, SameAnswerTwiceRaisesCodeOneOnce) {
  CSearchTable t;
  Recorder r;
  t.SetCallback(&Recorder::Cb, &r);
  Device d;
  EXPECT_EQ(Feed(t, Answer(d)), 0);
  EXPECT_EQ(Feed(t, Answer(d)), -3);
  EXPECT_EQ(Feed(t, Answer(d)), -3);
  std::vector<CallbackEvent> ev = r.Events();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 1);
  EXPECT_EQ(ev[0].index, 0);
  EXPECT_EQ(ev[0].uid, "UID0001");
}

TEST(SearchTable, ChangedPortRaisesCodeTwoForTheSameSlot) {
  CSearchTable t;
  Recorder r;
  t.SetCallback(&Recorder::Cb, &r);
  Device a, b;
  b.uid = "OTHER";
  Feed(t, Answer(a));
  Feed(t, Answer(b));
  a.rtspPort = 8554;
  EXPECT_EQ(Feed(t, Answer(a)), -3);
  std::vector<CallbackEvent> ev = r.Events();
  ASSERT_EQ(ev.size(), 3u);
  EXPECT_EQ(ev[2].code, 2);
  EXPECT_EQ(ev[2].index, 0);
  EXPECT_EQ(ev[2].rtspPort, 8554);
  __NetSDK_IPC_ENTRYV2 out;
  ASSERT_EQ(t.GetIPCInfo(0, &out), 0);
  EXPECT_EQ(out.portCfg.nRTSPPort, 8554);
  EXPECT_EQ(t.Count(), 2);
}

TEST(SearchTable, TheThousandAndFirstUidIsRefusedAndLogged) {
  StartLog();
  CSearchTable t;
  Recorder r;
  t.SetCallback(&Recorder::Cb, &r);
  for (int i = 0; i < 1001; ++i) {
    Device d;
    d.uid = "DEV" + std::to_string(i);
    EXPECT_EQ(Feed(t, Answer(d)), i < 1000 ? 0 : -3);
  }
  EXPECT_EQ(t.Count(), 1000);
  EXPECT_EQ(CountLog("[CSearchIPC] found new entry, but ipc count exceed 1000\n"), 1u);
  EXPECT_EQ(r.Events().size(), 1000u);
  __NetSDK_IPC_ENTRYV2 out;
  ASSERT_EQ(t.GetIPCInfo(999, &out), 0);
  EXPECT_STREQ(out.szUID, "DEV999");
  // A known device still updates when the table is full.
  Device d;
  d.uid = "DEV5";
  d.rtspPort = 1;
  Feed(t, Answer(d));
  EXPECT_EQ(r.Events().back().code, 2);
}

TEST(SearchTable, GetIPCInfoAtCountLogsTheEmptySlot) {
  StartLog();
  CSearchTable t;
  Feed(t, Answer(Device()));
  __NetSDK_IPC_ENTRYV2 out;
  EXPECT_EQ(t.GetIPCInfo(1, &out), -96);
  EXPECT_EQ(CountLog("[CSearchIPC] get IPC info failed, m_ipc_list[1] is null \n"), 1u);
  EXPECT_EQ(t.GetIPCInfo(-1, &out), -96);
  EXPECT_EQ(CountLog("[CSearchIPC] get IPC info failed, input index=-1 \n"), 1u);
  EXPECT_EQ(t.GetIPCInfo(2, &out), -96);
  EXPECT_EQ(CountLog("[CSearchIPC] get IPC info failed, input index=2 \n"), 1u);
  EXPECT_EQ(t.GetIPCInfo(0, nullptr), -96);
  EXPECT_EQ(CountLog("[CSearchIPC] get IPC info failed, input ipc_entry is null \n"), 1u);
  std::memset(&out, 0, sizeof(out));
  EXPECT_EQ(t.GetIPCInfo(0, &out), 0);
  EXPECT_STREQ(out.szUID, "UID0001");
}

TEST(SearchTable, GetIPCInfoXmlSizesAndText) {
  CSearchTable t;
  Feed(t, Answer(Device()));
  __NetSDK_IPC_ENTRYV2 e;
  ASSERT_EQ(t.GetIPCInfo(0, &e), 0);
  std::unique_ptr<char[]> net(MakeNetworkLANCfgXml(e.szUID, &e.lanCfg));
  std::unique_ptr<char[]> user(MakeUserCfgXml(&e.userCfg));
  const std::string expected = "<IPC_INFO>\n" + std::string(net.get()) + "\n" + user.get() + "\n</IPC_INFO>";
  const int len = static_cast<int>(expected.size());
  EXPECT_EQ(t.GetIPCInfoXML(0, nullptr, 0), len + 1);
  std::string buf(static_cast<size_t>(len) + 8, '#');
  EXPECT_EQ(t.GetIPCInfoXML(0, &buf[0], len), -100);
  EXPECT_EQ(t.GetIPCInfoXML(0, &buf[0], len + 1), len);
  EXPECT_EQ(std::string(buf.c_str()), expected);
  EXPECT_EQ(buf[static_cast<size_t>(len) + 1], '#');  // nothing written past the NUL
  EXPECT_EQ(t.GetIPCInfoXML(1, nullptr, 0), -96);
  EXPECT_EQ(t.GetIPCInfoXML(-1, nullptr, 0), -96);
}

TEST(SearchTable, SetupAnswerForAnUnknownUidRaisesNothing) {
  CSearchTable t;
  Recorder r;
  t.SetCallback(&Recorder::Cb, &r);
  Feed(t, Answer(Device()));
  std::string m = SetupAnswer(30004, "NOBODY", "tk", "0");
  EXPECT_EQ(t.HandleSetupAnswer(m.c_str(), static_cast<int>(m.size()), 30004, "0"), -3);
  EXPECT_EQ(r.Events().size(), 1u);
}

TEST(SearchTable, ModifyAndRestoreAnswersUpdateTokenAndResult) {
  CSearchTable t;
  Recorder r;
  t.SetCallback(&Recorder::Cb, &r);
  Feed(t, Answer(Device()));
  std::string m = SetupAnswer(30004, "UID0001", "tok1", "-7");
  t.HandleSetupAnswer(m.c_str(), static_cast<int>(m.size()), 30004, "-7");
  __NetSDK_IPC_ENTRYV2 e;
  t.GetIPCInfo(0, &e);
  EXPECT_STREQ(e.lanCfg.szToken, "tok1");
  EXPECT_EQ(e.lanCfg.nLastResult, -7);
  m = SetupAnswer(30006, "UID0001", "", "3");
  t.HandleSetupAnswer(m.c_str(), static_cast<int>(m.size()), 30006, "3");
  t.GetIPCInfo(0, &e);
  EXPECT_STREQ(e.lanCfg.szToken, "tok1");  // an empty token keeps the stored one
  EXPECT_EQ(e.lanCfg.nLastResult, 3);
  std::vector<CallbackEvent> ev = r.Events();
  ASSERT_EQ(ev.size(), 3u);
  EXPECT_EQ(ev[1].code, 3);
  EXPECT_EQ(ev[2].code, 4);
  EXPECT_EQ(ev[2].index, 0);
}

TEST(SearchTable, WithoutACallbackTheTableStillFills) {
  StartLog();
  CSearchTable t;
  EXPECT_EQ(Feed(t, Answer(Device())), 0);
  EXPECT_EQ(t.Count(), 1);
  EXPECT_EQ(CountLog("[CSearchIPC] search IPC callback fuction is null \n"), 1u);
}

TEST(SearchTable, NullAndNegativeLength) {
  CSearchTable t;
  EXPECT_EQ(t.HandleSearchAnswer(nullptr, 0), -1);
  EXPECT_EQ(t.HandleSearchAnswer("x", -1), -2);
  EXPECT_EQ(t.HandleSetupAnswer(nullptr, 0, 30004, "0"), -1);
  EXPECT_EQ(t.HandleSetupAnswer("x", -1, 30004, "0"), -2);
}

TEST(SearchTable, AnswerWithoutBodyIsLoggedAtLevelOne) {
  StartLog();
  CSearchTable t;
  std::string m = "<PrivateProto><head><type>30000</type><cmd>30002</cmd><result>0</result></head></PrivateProto>";
  EXPECT_EQ(Feed(t, m), -3);
  EXPECT_EQ(CountLog("body is null\n"), 1u);
}

TEST(SearchTable, ClearEmptiesAndSlotsRefill) {
  CSearchTable t;
  Feed(t, Answer(Device()));
  EXPECT_EQ(t.Clear(), 0);
  EXPECT_EQ(t.Count(), 0);
  __NetSDK_IPC_ENTRYV2 out;
  EXPECT_EQ(t.GetIPCInfo(0, &out), -96);
  EXPECT_EQ(Feed(t, Answer(Device())), 0);
  EXPECT_EQ(t.Count(), 1);
}

// Network setup rewrites a stored record whole, UID included: lookups follow the new UID.
TEST(SearchTable, AUidRewrittenInPlaceIsFoundUnderTheNewOne) {
  CSearchTable t;
  Recorder r;
  t.SetCallback(&Recorder::Cb, &r);
  Device a, b;
  b.uid = "SECOND";
  Feed(t, Answer(a));
  Feed(t, Answer(b));
  {
    CAutoLocker hold(t.Lock());
    std::strcpy(t.Slot(0)->szUID, "RENAMED");
  }
  EXPECT_EQ(Feed(t, Answer(a)), 0) << "the old UID is a new device now";
  Device renamed;
  renamed.uid = "RENAMED";
  renamed.rtspPort = 1;
  EXPECT_EQ(Feed(t, Answer(renamed)), -3);
  std::vector<CallbackEvent> ev = r.Events();
  ASSERT_EQ(ev.size(), 4u);
  EXPECT_EQ(ev[2].code, 1);
  EXPECT_EQ(ev[2].index, 2);
  EXPECT_EQ(ev[3].code, 2);
  EXPECT_EQ(ev[3].index, 0);
}

// Two slots holding one UID (a setup request copied one record over another): the first
// slot answers, as a search in slot order would find it.
TEST(SearchTable, OfTwoSlotsWithOneUidTheFirstIsFound) {
  CSearchTable t;
  Recorder r;
  t.SetCallback(&Recorder::Cb, &r);
  for (const char* uid : {"A", "B", "C"}) {
    Device d;
    d.uid = uid;
    Feed(t, Answer(d));
  }
  {
    CAutoLocker hold(t.Lock());
    std::strcpy(t.Slot(2)->szUID, "B");
    std::strcpy(t.Slot(1)->szUID, "X");
    std::strcpy(t.Slot(0)->szUID, "B");
  }
  std::string m = SetupAnswer(30004, "B", "tk", "0");
  t.HandleSetupAnswer(m.c_str(), static_cast<int>(m.size()), 30004, "0");
  ASSERT_EQ(r.Events().size(), 4u);
  EXPECT_EQ(r.Events().back().code, 3);
  EXPECT_EQ(r.Events().back().index, 0);
  {
    CAutoLocker hold(t.Lock());
    std::strcpy(t.Slot(0)->szUID, "Z");
  }
  t.HandleSetupAnswer(m.c_str(), static_cast<int>(m.size()), 30004, "0");
  EXPECT_EQ(r.Events().back().index, 2);
}

// A full table of distinct UIDs that share long prefixes: each answer again finds its own
// slot, and after Clear the same UIDs are new again.
TEST(SearchTable, EveryOneOfAThousandFindsItsOwnSlot) {
  CSearchTable t;
  Recorder r;
  t.SetCallback(&Recorder::Cb, &r);
  auto dev = [](int i, int port) {
    Device d;
    d.uid = "QXSIM-0000000000-" + std::to_string(i);
    d.rtspPort = port;
    return d;
  };
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(Feed(t, Answer(dev(i, 554))), 0);
  for (int i = 999; i >= 0; i -= 7) Feed(t, Answer(dev(i, 1000 + i)));
  std::vector<CallbackEvent> ev = r.Events();
  ASSERT_EQ(ev.size(), 1000u + 143u);
  for (size_t k = 1000; k < ev.size(); ++k) {
    EXPECT_EQ(ev[k].code, 2);
    EXPECT_EQ(ev[k].rtspPort, 1000 + ev[k].index);
    EXPECT_EQ(ev[k].uid, "QXSIM-0000000000-" + std::to_string(ev[k].index));
  }
  t.Clear();
  EXPECT_EQ(Feed(t, Answer(dev(500, 554))), 0);
  EXPECT_EQ(r.Events().back().index, 0);
}

namespace {
// Resident pages of [p, p + size), page-aligned p.
size_t ResidentPages(const void* p, size_t size) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  std::vector<unsigned char> v((size + page - 1) / page);
  if (mincore(const_cast<void*>(p), size, v.data()) != 0) return 0;
  size_t n = 0;
  for (unsigned char c : v) n += c & 1;
  return n;
}
const size_t kRecordsBytes = sizeof(__NetSDK_IPC_ENTRYV2) * CSearchTable::kMaxDevices;
}  // namespace

TEST(SearchTableMemory, PrefaultMakesEveryPageResidentAndLeavesZeros) {
  const size_t size = 1 << 20;
  char* p = AllocLazyBuffer(size);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(ResidentPages(p, size), 0u);
  PrefaultLazyBuffer(p, size);
  EXPECT_EQ(ResidentPages(p, size), size / static_cast<size_t>(sysconf(_SC_PAGESIZE)));
  bool zero = true;
  for (size_t i = 0; i < size; ++i) zero = zero && p[i] == 0;
  EXPECT_TRUE(zero);
  FreeLazyBuffer(p, size);
}

// The first answer after Reserve lands in a table whose every record page is resident, so
// the rest of the burst meets no page fault; Clear gives the memory back.
TEST(SearchTableMemory, ReserveMakesTheWholeTableResidentBeforeTheFirstDevice) {
  CSearchTable t;
  ASSERT_TRUE(t.Reserve());
  ASSERT_EQ(Feed(t, Answer(Device())), 0);
  const void* records = t.Slot(0);
  ASSERT_NE(records, nullptr);
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t pages = (kRecordsBytes + page - 1) / page;
  EXPECT_EQ(ResidentPages(records, kRecordsBytes), pages);
  __NetSDK_IPC_ENTRYV2 e;
  ASSERT_EQ(t.GetIPCInfo(0, &e), 0);
  EXPECT_STREQ(e.szUID, "UID0001");
  t.Clear();
  EXPECT_EQ(t.Slot(0), nullptr);
  EXPECT_EQ(t.Count(), 0);
  // Without an earlier Reserve the first device reserves the table itself.
  ASSERT_EQ(Feed(t, Answer(Device())), 0);
  ASSERT_NE(t.Slot(0), nullptr);
  EXPECT_EQ(ResidentPages(t.Slot(0), kRecordsBytes), pages);
}
