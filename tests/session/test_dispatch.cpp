// Routing of received messages by type and command, driven through DispatchPayload.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "capture.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/DevComControl.h"

using qxtest::Capture;

namespace {

std::string Msg(const std::string& type, const std::string& cmd, const std::string& result,
                const std::string& bodyElement) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>" + type + "</type>\n<cmd>" +
         cmd + "</cmd>\n<result>" + result + "</result>\n</head>\n" + bodyElement + "\n</PrivateProto>";
}

class Dispatch : public ::testing::Test {
 protected:
  void SetUp() override {
    Capture::Get().Install();
    dev_ = new CDevComControl(g_pInstance, nullptr);
    Capture::Get().Clear();
  }
  void TearDown() override { delete dev_; }
  void Feed(const std::string& m) { dev_->DispatchPayload(m.data(), static_cast<uint32_t>(m.size())); }
  CDevComControl* dev_ = nullptr;
};

TEST_F(Dispatch, HeartbeatAnswerWithEmptyBodyIsEvent79WithEmptyText) {
  Feed(Msg("30000", "35001", "0", "<body></body>"));
  auto ev = Capture::Get().Events();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 79);
  EXPECT_EQ(ev[0].text, "");
  EXPECT_EQ(ev[0].loginId, reinterpret_cast<long>(dev_));
  EXPECT_TRUE(Capture::Get().Auxes().empty());
}

// The answer as devices send it ("<body>" and "</body>" on lines of their own) and with a
// self-closed body: the forms read without the XML parser route as before.
TEST_F(Dispatch, HeartbeatAnswerInTheUsualFormsIsEvent79WithItsBodyText) {
  Feed(Msg("30000", "35001", "0", "<body>\n</body>"));
  Feed(Msg("30000", "35001", "0", "<body/>"));
  auto ev = Capture::Get().Events();
  ASSERT_EQ(ev.size(), 2u);
  EXPECT_EQ(ev[0].code, 79);
  EXPECT_EQ(ev[0].text, "\n");
  EXPECT_EQ(ev[1].code, 79);
  EXPECT_EQ(ev[1].text, "null");
  EXPECT_TRUE(Capture::Get().Auxes().empty());
}

TEST_F(Dispatch, EmptyBodyAnswersOfOtherFamiliesRouteByTheirHead) {
  Feed(Msg("40000", "40011", "-3", "<body>\n</body>"));
  Feed(Msg("10000", "14012", "2", "<body/>"));
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 1u);
  EXPECT_EQ(aux[0].code, static_cast<long>(static_cast<int32_t>(40011u + (0xFFFFFFFDu << 24))));
  EXPECT_EQ(aux[0].body, "\n");
  auto ev = Capture::Get().Events();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 2);
}

TEST_F(Dispatch, OtherType30000MessageIsEvent79WithItsBody) {
  Feed(Msg("30000", "35010", "0", "<body><x>1</x></body>"));
  auto ev = Capture::Get().Events();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 79);
  EXPECT_EQ(ev[0].text, "<x>1</x>");
}

// Short bodies are held without the heap and long ones as cut out by GetMessageBody:
// lengths on both sides of that line, and far past it, reach the callbacks whole.
TEST_F(Dispatch, BodiesOfEveryLengthReachTheCallbacksWhole) {
  std::vector<std::string> bodies;
  for (size_t n : {0u, 1u, 100u, 126u, 127u, 128u, 129u, 200u, 5000u}) {
    std::string b(n, 'q');
    for (size_t i = 0; i < n; i += 7) b[i] = static_cast<char>('a' + (i / 7) % 26);
    bodies.push_back(b);
    Feed(Msg("30000", "35010", "0", "<body>" + b + "</body>"));
    Feed(Msg("40000", "40011", "0", "<body>" + b + "</body>"));
  }
  auto ev = Capture::Get().Events();
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(ev.size(), bodies.size());
  ASSERT_EQ(aux.size(), bodies.size());
  for (size_t i = 0; i < bodies.size(); ++i) {
    EXPECT_EQ(ev[i].code, 79);
    EXPECT_EQ(ev[i].text, bodies[i]) << "event body of " << bodies[i].size() << " bytes";
    EXPECT_EQ(aux[i].body, bodies[i]) << "auxiliary body of " << bodies[i].size() << " bytes";
  }
}

TEST_F(Dispatch, CameraStatusIsEvent51) {
  Feed(Msg("30000", "35003", "0", "<body><Ipcs_stat>1,0,1</Ipcs_stat><Ipcs_stat>0,0,1</Ipcs_stat></body>"));
  auto ev = Capture::Get().Events();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 51);
  EXPECT_EQ(ev[0].text, "0,0,1");
}

TEST_F(Dispatch, Control20001WithResultZeroPostsNoAuxButNegativeDoes) {
  Feed(Msg("20000", "20001", "0", "<body><a>1</a></body>"));
  EXPECT_TRUE(Capture::Get().Auxes().empty());
  Feed(Msg("20000", "20001", "-1", "<body><a>1</a></body>"));
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 1u);
  EXPECT_EQ(aux[0].code, static_cast<long>(static_cast<int32_t>(20001u + (0xFFFFFFFFu << 24))));
  EXPECT_LT(aux[0].code, 0);
  EXPECT_EQ(aux[0].body, "<a>1</a>");
}

TEST_F(Dispatch, Control14023IsNeverPostedAsAux) {
  Feed(Msg("20000", "14023", "0", "<body><a/></body>"));
  EXPECT_TRUE(Capture::Get().Auxes().empty());
}

TEST_F(Dispatch, Control20002NegativeWithoutBodyPostsNullBody) {
  Feed("<?xml version=\"1.0\"?><PrivateProto><head><type>20000</type><cmd>20002</cmd><result>-3</result></head></PrivateProto>");
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 1u);
  EXPECT_TRUE(aux[0].nullBody);
}

TEST_F(Dispatch, OtherControlAnswerIsAuxWithItsCode) {
  Feed(Msg("20000", "14008", "0", "<body><ok/></body>"));
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 1u);
  EXPECT_EQ(aux[0].code, 14008);
  EXPECT_EQ(aux[0].body, "<ok/>");
}

TEST_F(Dispatch, ConfigAnswersOfBothFamiliesAreAux) {
  Feed(Msg("10000", "1234", "0", "<body><v>7</v></body>"));
  Feed(Msg("40000", "1235", "0", "<body><v>8</v></body>"));
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 2u);
  EXPECT_EQ(aux[0].code, 1234);
  EXPECT_EQ(aux[0].body, "<v>7</v>");
  EXPECT_EQ(aux[1].code, 1235);
  EXPECT_EQ(Capture::Get().CountLogs("SYSTEM_CONFIG_GET_MESSAGE"), 2);
}

TEST_F(Dispatch, UnknownTypeIsAuxAndLogged) {
  Feed(Msg("55555", "1", "2", "<body><z/></body>"));
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 1u);
  EXPECT_EQ(aux[0].code, static_cast<long>(1u | (2u << 24)));
  EXPECT_EQ(Capture::Get().CountLogs("recv unknow xml=", 1), 1);
}

TEST_F(Dispatch, MediaWithLengthZeroIsDroppedSilently) {
  Feed(Msg("90000", "90001", "0", "<body><dataLen>0</dataLen></body>"));
  EXPECT_TRUE(Capture::Get().Events().empty());
  EXPECT_TRUE(Capture::Get().Auxes().empty());
}

TEST_F(Dispatch, UnreadableHeadIsLoggedAndDropped) {
  Feed(Msg("30000", "35001", "", "<body></body>"));
  EXPECT_TRUE(Capture::Get().Events().empty());
  EXPECT_EQ(Capture::Get().CountLogs("get message header failed, ret=-5", 3), 1);
}

TEST_F(Dispatch, BrokenAlarmReportIsRefused) {
  Feed(Msg("30000", "35010", "0",
           "<body><MESSAGE_HEADER Msg_type=\"ALARM_REPORT_MESSAGE\" Msg_flag=\"0\"\"/></body>"));
  EXPECT_TRUE(Capture::Get().Events().empty());
}

TEST_F(Dispatch, AuthSuccessPostsChannelsThenAuthenticated) {
  Feed(Msg("10000", "14012", "0", "<body><authRsp><MAXChannels>16</MAXChannels></authRsp></body>"));
  auto ev = Capture::Get().Events();
  ASSERT_EQ(ev.size(), 2u);
  EXPECT_EQ(ev[0].code, 50);
  EXPECT_EQ(ev[0].text, "16");
  EXPECT_EQ(ev[1].code, 6);
  EXPECT_EQ(ev[1].text, "authentication success.");
  EXPECT_EQ(dev_->DevStatus(), 3);
}

TEST_F(Dispatch, AuthRefusalCodesGiveEvent2AndOthersEvent3) {
  for (const char* r : {"2", "3", "4", "-1"}) {
    Capture::Get().Clear();
    Feed(Msg("10000", "14012", r, "<body></body>"));
    auto ev = Capture::Get().Events();
    ASSERT_EQ(ev.size(), 1u) << r;
    EXPECT_EQ(ev[0].code, 2) << r;
    EXPECT_EQ(ev[0].text, ":authentication failed, username or passwords errror!");
  }
  Capture::Get().Clear();
  Feed(Msg("10000", "14012", "9", "<body></body>"));
  auto ev = Capture::Get().Events();
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].code, 3);
  EXPECT_EQ(ev[0].text, "authentication failed.");
  EXPECT_NE(dev_->DevStatus(), 3);
}

const char kAlarmReport[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?><PRIVATE_PROTO><MESSAGE_HEADER Msg_type=\"ALARM_REPORT_MESSAGE\" "
    "Msg_code=\"1\" Msg_flag=\"0\"/><MESSAGE_BODY><ALARM_REPORT_PARAM>"
    "<ALARM_ITEM><ALARM_TIME Year=\"2026\" Month=\"11\" Day=\"22\" WDay=\"0\" Hour=\"10\" Minute=\"5\" Second=\"9\"/>"
    "<ALARM_INFO Alarm_code=\"3\" Alarm_flag=\"1\" Alarm_level=\"2\" Alarm_data=\"motion\"/></ALARM_ITEM>"
    "<ALARM_ITEM><ALARM_INFO Alarm_code=\"24\" Alarm_flag=\"1\" Alarm_level=\"\" Alarm_data=\"x\"/></ALARM_ITEM>"
    "<ALARM_ITEM><ALARM_INFO Alarm_code=\"7\" Alarm_flag=\"0\" Alarm_level=\"1\" Alarm_data=\"door\"/></ALARM_ITEM>"
    "</ALARM_REPORT_PARAM></MESSAGE_BODY></PRIVATE_PROTO>";

TEST_F(Dispatch, AlarmReportPostsOneEventPerItemAndSwallowsCode24) {
  std::string m = kAlarmReport;
  // OnAlmMsgRsp reads the receive buffer: the report is placed there directly.
  std::memcpy(dev_->RecvBuf(), m.data(), m.size() + 1);
  dev_->OnAlmMsgRsp("CMD_REPORT_ALARM", "");
  auto ev = Capture::Get().Events();
  ASSERT_EQ(ev.size(), 2u);
  EXPECT_EQ(ev[0].code, 24);
  EXPECT_EQ(ev[0].alarm.nYear, 2026);
  EXPECT_EQ(ev[0].alarm.nMonth, 11);
  EXPECT_EQ(ev[0].alarm.nDay, 22);
  EXPECT_EQ(ev[0].alarm.nHour, 10);
  EXPECT_EQ(ev[0].alarm.nMinute, 5);
  EXPECT_EQ(ev[0].alarm.nSecond, 9);
  EXPECT_EQ(ev[0].alarm.nAlarmCode, 3);
  EXPECT_EQ(ev[0].alarm.nAlarmFlag, 1);
  EXPECT_EQ(ev[0].alarm.nAlarmLevel, 2);
  EXPECT_STREQ(ev[0].alarm.szAlarmData, "motion");
  EXPECT_EQ(ev[1].alarm.nAlarmCode, 7);
  EXPECT_EQ(ev[1].alarm.nYear, 0);
  EXPECT_STREQ(ev[1].alarm.szAlarmData, "door");
  Capture::Get().Clear();
  dev_->OnAlmMsgRsp("OTHER", "");
  EXPECT_TRUE(Capture::Get().Events().empty());
}

}  // namespace
