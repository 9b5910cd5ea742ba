// Configuration, control and auxiliary requests: the exact text each one queues, the
// user-data document, the core's reboot and restore, and the two session flags kept from
// system-control answers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "ops/ops_harness.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/capture.h"

using opstest::Answer;
using opstest::Request;
using qxtest::Capture;

namespace {

class Requests : public opstest::SessionTest {
 protected:
  std::string SendNext() { return opstest::SendOne(dev_, peer_); }
};

TEST_F(Requests, WriteAuxStringExPutsEachArgumentInItsPlace) {
  EXPECT_EQ(0, dev_->WriteAUXStringEx("40000", 14100, 7, "<q a=\"1\">x &amp; y</q>"));
  EXPECT_EQ(SendNext(), Request("40000", "14100", "7", "<q a=\"1\">x &amp; y</q>"));
  EXPECT_EQ(peer_->Flags().back(), 0x20180307u);
}

TEST_F(Requests, WriteAuxStringExWithoutBodyWritesTheEmptyBody) {
  EXPECT_EQ(0, dev_->WriteAUXStringEx("ANY", 0, 0, nullptr));
  EXPECT_EQ(SendNext(), Request("ANY", "0", "0", ""));
  EXPECT_EQ(0, dev_->WriteAUXStringEx("ANY", 1, 2, ""));
  EXPECT_EQ(SendNext(),
            "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>ANY</type>\n<cmd>1</cmd>\n"
            "<result>2</result>\n</head>\n<body>\n</body>\n</PrivateProto>");
}

TEST_F(Requests, NumbersArePrintedUnsigned) {
  EXPECT_EQ(0, dev_->WriteAUXStringEx("10000", 4294967295UL, 4000000000UL, "b"));
  EXPECT_EQ(SendNext(), Request("10000", "4294967295", "4000000000", "b"));
}

TEST_F(Requests, RequestsWaitInTheQueueInOrder) {
  EXPECT_EQ(0, dev_->WriteAUXStringEx("1", 1, 0, "a"));
  EXPECT_EQ(0, dev_->SystemControl(2, 0, "b"));
  EXPECT_EQ(0, dev_->PtzControl("c"));
  EXPECT_EQ(dev_->QueuedCount(), 3);
  ASSERT_TRUE(Flush(3));
  auto p = peer_->Payloads();
  EXPECT_EQ(p[0], Request("1", "1", "0", "a"));
  EXPECT_EQ(p[1], Request("20000", "2", "0", "b"));
  EXPECT_EQ(p[2], Request("PTZ_CONTROL_MESSAGE", "PTZ_CMD", "0", "c"));
}

TEST_F(Requests, GetAndSetConfigWithTheSameCodeAreByteIdentical) {
  char body[] = "<VideoEncode Channel=\"1\" Stream=\"0\"/>";
  EXPECT_EQ(0, dev_->GetDVRConfig(14101, 3, body, 999));
  std::string get = SendNext();
  EXPECT_EQ(0, dev_->SetDVRConfig(14101, -8, body, 1));
  std::string set = SendNext();
  EXPECT_EQ(get, set);
  EXPECT_EQ(get, Request("10000", "14101", "0", body));
  // The body buffer is read, never written to.
  EXPECT_STREQ(body, "<VideoEncode Channel=\"1\" Stream=\"0\"/>");
}

TEST_F(Requests, ConfigWithNullBodyIsTheEmptyBody) {
  EXPECT_EQ(0, dev_->GetDVRConfig(14000, 0, nullptr, 0));
  std::string get = SendNext();
  EXPECT_EQ(0, dev_->SetDVRConfig(14000, 0, nullptr, 0));
  EXPECT_EQ(SendNext(), get);
  EXPECT_EQ(get, Request("10000", "14000", "0", ""));
}

TEST_F(Requests, SystemControlIsType20000WithItsResult) {
  EXPECT_EQ(0, dev_->SystemControl(14035, 9, "<Serial Baud=\"9600\"/>"));
  EXPECT_EQ(SendNext(), Request("20000", "14035", "9", "<Serial Baud=\"9600\"/>"));
  EXPECT_EQ(0, dev_->SystemControl(14020, 0, nullptr));
  EXPECT_EQ(SendNext(), Request("20000", "14020", "0", ""));
}

TEST_F(Requests, PtzControlUsesWordsForCmdAndResultAndLogsTheWholeText) {
  const char* xml = "<PTZ Cmd=\"Up\" Speed=\"5\"/>";
  EXPECT_EQ(0, dev_->PtzControl(xml));
  std::string sent = SendNext();
  std::string expected = Request("PTZ_CONTROL_MESSAGE", "PTZ_CMD", "0", xml);
  EXPECT_EQ(sent, expected);
  // Level 3, device address (empty for this session), then the whole request text.
  std::string needle = "PtzControl dev=,xml=" + expected + " \n";
  EXPECT_EQ(Capture::Get().CountLogs(needle, 3), 1);
  int ending = 0;
  for (const std::string& line : Capture::Get().Logs())
    if (line.size() >= needle.size() && line.compare(line.size() - needle.size(), needle.size(), needle) == 0)
      ++ending;
  EXPECT_EQ(ending, 1);
}

TEST_F(Requests, GetUserDataSendsAnEmptyBodyAndLeavesItsArgumentsAlone) {
  char buf[8] = "keepme";
  int len = 77;
  EXPECT_EQ(0, dev_->GetUserData(buf, &len));
  EXPECT_EQ(SendNext(), Request("SYSTEM_CONTROL_MESSAGE", "14034", "0", ""));
  EXPECT_STREQ(buf, "keepme");
  EXPECT_EQ(len, 77);
}

TEST_F(Requests, SetUserDataWithLengthZeroWritesAZeroByteAndAnEmptyAttribute) {
  char buf[4] = {'X', 'Y', 'Z', 'W'};
  EXPECT_EQ(0, dev_->SetUserData(buf, 0));
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(buf[1], 'Y');
  EXPECT_EQ(SendNext(), Request("SYSTEM_CONTROL_MESSAGE", "14033", "0", "<REQUEST_PARAM UserDevData=\"\" />"));
}

TEST_F(Requests, SetUserDataEncodesEachByteAsTwoLowercaseDigits) {
  char buf[5] = {'\x00', '\xFF', '\x7F', 'Q', 'R'};
  EXPECT_EQ(0, dev_->SetUserData(buf, 3));
  // The zero byte lands just behind the data, nothing further.
  EXPECT_EQ(buf[3], '\0');
  EXPECT_EQ(buf[4], 'R');
  EXPECT_EQ(SendNext(), Request("SYSTEM_CONTROL_MESSAGE", "14033", "0", "<REQUEST_PARAM UserDevData=\"00ff7f\" />"));
}

TEST_F(Requests, SetUserDataCarriesEveryByteValue) {
  char buf[257];
  std::string hex;
  for (int i = 0; i < 256; ++i) {
    buf[i] = static_cast<char>(i);
    char two[3];
    std::snprintf(two, sizeof(two), "%02x", i);
    hex += two;
  }
  buf[256] = 'E';
  EXPECT_EQ(0, dev_->SetUserData(buf, 256));
  EXPECT_EQ(buf[256], '\0');
  EXPECT_EQ(SendNext(),
            Request("SYSTEM_CONTROL_MESSAGE", "14033", "0", "<REQUEST_PARAM UserDevData=\"" + hex + "\" />"));
}

TEST_F(Requests, SetUserDataWithNegativeLengthSendsAnEmptyValueAndWritesNothing) {
  char buf[2] = {'A', 'B'};
  EXPECT_EQ(0, dev_->SetUserData(buf + 1, -1));
  EXPECT_EQ(buf[0], 'A');
  EXPECT_EQ(buf[1], 'B');
  EXPECT_EQ(SendNext(), Request("SYSTEM_CONTROL_MESSAGE", "14033", "0", "<REQUEST_PARAM UserDevData=\"\" />"));
}

// ---- answers to system commands that the session keeps

TEST_F(Requests, FrontReplayFlagStartsUnknown) { EXPECT_EQ(dev_->FrontReplay(), -1); }

TEST_F(Requests, CapabilityTextWithBlanksSetsFrontReplay) {
  Feed(Answer("20000", "14020", "0", "<body><Capability>+ptz+ + front_replay + +audio+</Capability></body>"));
  EXPECT_EQ(dev_->FrontReplay(), 1);
  EXPECT_EQ(Capture::Get().CountLogs(
                "[OnSysControlMsgRsp] Get system control string: <Capability>+ptz+ + front_replay + +audio+</Capability> \n"),
            1);
  // The answer also reaches the application.
  auto aux = Capture::Get().Auxes();
  ASSERT_EQ(aux.size(), 1u);
  EXPECT_EQ(aux[0].code, 14020);
  EXPECT_EQ(aux[0].body, "<Capability>+ptz+ + front_replay + +audio+</Capability>");
}

TEST_F(Requests, CapabilityTextWithoutBlanksSetsFrontReplay) {
  dev_->OnSysControlMsgRsp("14020", "0", "a+front_replay+b");
  EXPECT_EQ(dev_->FrontReplay(), 1);
}

TEST_F(Requests, CapabilityTextWithoutTheWordClearsFrontReplay) {
  dev_->OnSysControlMsgRsp("14020", "0", "+front_replay+");
  ASSERT_EQ(dev_->FrontReplay(), 1);
  dev_->OnSysControlMsgRsp("14020", "0", "+front replay+ +front_replay +front_replay+ +");
  EXPECT_EQ(dev_->FrontReplay(), 1);  // the third word matches
  dev_->OnSysControlMsgRsp("14020", "0", "+front replay+ +front_replay +FRONT_REPLAY+");
  EXPECT_EQ(dev_->FrontReplay(), 0);
}

TEST_F(Requests, CapabilityAnswerWithoutBodySetsZero) {
  dev_->OnSysControlMsgRsp("14020", "0", "+front_replay+");
  ASSERT_EQ(dev_->FrontReplay(), 1);
  Feed("<?xml version=\"1.0\"?><PrivateProto><head><type>20000</type><cmd>14020</cmd><result>0</result></head>"
       "</PrivateProto>");
  EXPECT_EQ(dev_->FrontReplay(), 0);
  EXPECT_EQ(Capture::Get().CountLogs("[OnSysControlMsgRsp] Get system control string:  \n"), 1);
  dev_->OnSysControlMsgRsp("14020", "0", "+front_replay+");
  ASSERT_EQ(dev_->FrontReplay(), 1);
  dev_->OnSysControlMsgRsp("14020", "0", nullptr);
  EXPECT_EQ(dev_->FrontReplay(), 0);
}

TEST_F(Requests, SerialStartSuccessSetsTheFlag) {
  EXPECT_FALSE(dev_->SerialStarted());
  Feed(Answer("20000", "14035", "0", "<body><ok/></body>"));
  EXPECT_TRUE(dev_->SerialStarted());
  EXPECT_EQ(Capture::Get().CountLogs("[OnSysControlMsgRsp] Dev= start serial success \n", 0), 1);
}

TEST_F(Requests, SerialStartFailureLogsTheErrorAndClearsTheFlag) {
  dev_->OnSysControlMsgRsp("14035", "0", "");
  ASSERT_TRUE(dev_->SerialStarted());
  Feed(Answer("20000", "14035", "-5", "<body><err/></body>"));
  EXPECT_FALSE(dev_->SerialStarted());
  EXPECT_EQ(Capture::Get().CountLogs("[OnSysControlMsgRsp] Dev= start serial failed, error=-5 \n", 0), 1);
}

TEST_F(Requests, SerialStartFailureOnAFreshSessionLeavesTheFlagFalse) {
  dev_->OnSysControlMsgRsp("14035", "-5", "");
  EXPECT_FALSE(dev_->SerialStarted());
  EXPECT_EQ(Capture::Get().CountLogs("start serial failed, error=-5 \n"), 1);
  EXPECT_EQ(Capture::Get().CountLogs("start serial success"), 0);
}

TEST_F(Requests, OtherCodesChangeNeitherFlag) {
  dev_->OnSysControlMsgRsp("14036", "0", "+front_replay+");
  dev_->OnSysControlMsgRsp("14021", "0", "+front_replay+");
  EXPECT_EQ(dev_->FrontReplay(), -1);
  EXPECT_FALSE(dev_->SerialStarted());
}

// ---- requests routed by the core to a registered session

using CoreRequests = opstest::RegisteredSessionTest;

TEST_F(CoreRequests, RebootIs14008WithAnEmptyBody) {
  EXPECT_EQ(0, QXNet_Loc_RebootDVR(id_));
  EXPECT_EQ(SendNext(), Request("20000", "14008", "0", ""));
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_RebootDVR] RebootDVR, dev="), 1);
}

TEST_F(CoreRequests, RestoreIs14011WithAnEmptyBody) {
  EXPECT_EQ(0, QXNet_Loc_RestoreConfig(id_));
  EXPECT_EQ(SendNext(), Request("20000", "14011", "0", ""));
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_RestoreConfig] RestoreConfig, dev="), 1);
}

TEST_F(CoreRequests, UnknownSessionIsRefusedAndNothingIsQueued) {
  long other = id_ + 8;
  EXPECT_EQ(QXNET_E_NO_DEVICE, QXNet_Loc_RebootDVR(other));
  EXPECT_EQ(QXNET_E_NO_DEVICE, QXNet_Loc_RestoreConfig(other));
  EXPECT_EQ(dev_->QueuedCount(), 0);
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_RebootDVR] RebootDVR refused, find dev id=" + std::to_string(other) +
                                     " failed \n"),
            1);
}

TEST_F(CoreRequests, ExportedConfigAndControlRequestsReachTheSession) {
  char body[] = "<Osd Show=\"1\"/>";
  unsigned long returned = 0;
  EXPECT_EQ(0, QXNet_Loc_GetDVRConfig(id_, 14110, 0, body, sizeof(body), &returned));
  std::string get = SendNext();
  EXPECT_EQ(0, QXNet_Loc_SetDVRConfig(id_, 14110, 0, body, sizeof(body)));
  EXPECT_EQ(SendNext(), get);
  EXPECT_EQ(get, Request("10000", "14110", "0", body));
  char param[] = "<p/>";
  EXPECT_EQ(0, QXNet_Loc_SystemControl(id_, 14020, 4, param));
  EXPECT_EQ(SendNext(), Request("20000", "14020", "4", "<p/>"));
  char type[] = "50000", aux[] = "<a/>";
  EXPECT_EQ(0, QXNet_Loc_WriteAUXStringEx(id_, type, 51000, 2, aux));
  EXPECT_EQ(SendNext(), Request("50000", "51000", "2", "<a/>"));
  char data[4] = {'\x01', '\xab', '\x00', 'Z'};
  EXPECT_EQ(0, QXNet_Loc_SetUserData(id_, data, 3));
  EXPECT_EQ(data[3], '\0');
  EXPECT_EQ(SendNext(), Request("SYSTEM_CONTROL_MESSAGE", "14033", "0", "<REQUEST_PARAM UserDevData=\"01ab00\" />"));
  int len = 0;
  char out[4];
  EXPECT_EQ(0, QXNet_Loc_GetUserData(id_, out, &len));
  EXPECT_EQ(SendNext(), Request("SYSTEM_CONTROL_MESSAGE", "14034", "0", ""));
}

}  // namespace
