// Modify and restore of found devices: the requests on the wire (a loopback receiver plays
// the LAN), their refusals, and the list of assigned addresses.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "base/UdpSocket.h"
#include "search/SearchConfigXml.h"
#include "search/SearchIPC.h"
#include "search/SearchProto.h"
#include "search_loopback.h"
#include "search_test_util.h"

using namespace searchtest;

namespace {
std::string Request(int cmd, const std::string& body) {
  char buf[kSearchMsgSize];
  FormatSearchRequest(buf, sizeof(buf), cmd, body.c_str(), "");
  return buf;
}

class Modify : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(rx.Ok());
    UseLoopbackSearchNetwork(rx.Port());
    search.reset(new CSearchIPC);
    StartLog();
    Add(Device());
  }
  void Add(const Device& d) {
    std::string a = Answer(d);
    search->HandleDatagram(a.c_str(), static_cast<int>(a.size()));
  }
  __NetSDK_IPC_ENTRYV2 Stored(long i) {
    __NetSDK_IPC_ENTRYV2 e;
    EXPECT_EQ(search->GetIPCInfo(i, &e), 0);
    return e;
  }
  std::string Sent() {
    std::string t;
    EXPECT_TRUE(rx.Receive(&t, 2000)) << "no request arrived";
    return t;
  }
  Endpoint rx;
  std::unique_ptr<CSearchIPC> search;
};
}  // namespace

TEST_F(Modify, RecordWithAllCredentialsSendsTheCredentialedBody) {
  __NetSDK_IPC_ENTRYV2 e = Stored(0);
  std::strcpy(e.lanCfg.szToken, "T1");
  std::strcpy(e.lanCfg.szUserName, "admin");
  std::strcpy(e.lanCfg.szPassword, "pw");
  std::strcpy(e.lanCfg.szIP, "127.9.8.20");
  EXPECT_EQ(search->ModifyIPC(0, &e), 0);
  std::unique_ptr<char[]> body(MakeNetworkLANCfgXml("UID0001", &e.lanCfg));
  std::string sent = Sent();
  EXPECT_EQ(sent, Request(30003, body.get()));
  EXPECT_NE(sent.find("<token>T1</token>\r\n<userName>admin</userName>\r\n<password>pw</password>"), std::string::npos);
  EXPECT_NE(sent.find("<IP>127.9.8.20</IP>"), std::string::npos);
  // The table holds the requested settings before any answer.
  EXPECT_STREQ(Stored(0).lanCfg.szIP, "127.9.8.20");
}

TEST_F(Modify, AnyCredentialMissingSendsTheUidOnlyBody) {
  for (int missing = 0; missing < 3; ++missing) {
    __NetSDK_IPC_ENTRYV2 e = Stored(0);
    std::strcpy(e.lanCfg.szToken, missing == 0 ? "" : "T");
    std::strcpy(e.lanCfg.szUserName, missing == 1 ? "" : "u");
    std::strcpy(e.lanCfg.szPassword, missing == 2 ? "" : "p");
    EXPECT_EQ(search->ModifyIPC(0, &e), 0);
    std::string sent = Sent();
    EXPECT_NE(sent.find("<body>\n<UID>UID0001</UID>\r\n<TCPIP>\r\n"), std::string::npos) << missing;
    EXPECT_EQ(sent.find("<token>"), std::string::npos);
    EXPECT_EQ(sent.find("<password>"), std::string::npos);
  }
}

TEST_F(Modify, XmlPathNeverSendsCredentials) {
  __NetSDK_IPC_ENTRYV2 e = Stored(0);
  std::strcpy(e.lanCfg.szToken, "T");
  std::strcpy(e.lanCfg.szUserName, "u");
  std::strcpy(e.lanCfg.szPassword, "p");
  ASSERT_EQ(search->ModifyIPC(0, &e), 0);
  Sent();
  EXPECT_EQ(search->ModifyIPCXML(0, "<x><TCPIP><IP>127.1.1.1</IP></TCPIP></x>"), 0);
  std::string sent = Sent();
  EXPECT_EQ(sent.find("<token>"), std::string::npos);
  EXPECT_EQ(sent.find("<userName>"), std::string::npos);
  EXPECT_NE(sent.find("<UID>UID0001</UID>\r\n<TCPIP>\r\n<DHCPMode>0</DHCPMode>\r\n<IP>127.1.1.1</IP>"), std::string::npos);
  // The stored record is left as it was.
  EXPECT_STREQ(Stored(0).lanCfg.szToken, "T");
  EXPECT_STREQ(Stored(0).lanCfg.szIP, "127.9.8.7");
}

TEST_F(Modify, XmlPathWithNullTextSendsNothing) {
  EXPECT_EQ(search->ModifyIPCXML(0, nullptr), 0);
  std::string t;
  EXPECT_FALSE(rx.Receive(&t, 300));
}

TEST_F(Modify, XmlPathRefusals) {
  EXPECT_EQ(search->ModifyIPCXML(1, "<x/>"), -96);
  EXPECT_EQ(CountLog("[CSearchIPC] modify IPC xml failed. index=1 \n"), 1u);
  EXPECT_EQ(search->ModifyIPCXML(-1, "<x/>"), -96);
  EXPECT_EQ(search->ModifyIPCXML(0, "<x><TCPIP>"), -95);
  EXPECT_EQ(CountLog("[CSearchIPC] modify IPC xml failed. bad xml : <x><TCPIP> \n"), 1u);
}

TEST_F(Modify, XmlPathKeepsTheDevicesAddressMarked) {
  EXPECT_EQ(search->ModifyIPCXML(0, "<x><TCPIP><IP>127.1.1.1</IP></TCPIP></x>"), 0);
  EXPECT_TRUE(search->Assigned().Contains(InetAddr("127.9.8.7")));
  EXPECT_FALSE(search->Assigned().Contains(InetAddr("127.1.1.1")));
  EXPECT_EQ(search->Assigned().Used(), 1);
}

TEST_F(Modify, RestoreIndexTest) {
  __NetSDK_IPC_ENTRYV2 e = Stored(0);
  EXPECT_EQ(search->RestoreIPC(2, &e), -96);  // count + 1
  EXPECT_EQ(CountLog("[CSearchIPC] restore IPC failed. index[2] > m_ipc_count[1] \n"), 1u);
  // count itself passes the index test and meets the empty slot.
  EXPECT_EQ(search->RestoreIPC(1, &e), -96);
  EXPECT_EQ(CountLogPrefix("[CSearchIPC] restore IPC failed. index[1]"), 0u);
  EXPECT_EQ(CountLog("[CSearchIPC] restore IPC failed, m_ipc_list[1] is null \n"), 1u);
  EXPECT_EQ(search->RestoreIPC(-1, &e), -96);
  std::string t;
  EXPECT_FALSE(rx.Receive(&t, 200));
}

TEST_F(Modify, RestoreSendsItsBodyAndMarksTheAddress) {
  __NetSDK_IPC_ENTRYV2 e = Stored(0);
  EXPECT_EQ(search->RestoreIPC(0, &e), 0);
  EXPECT_EQ(Sent(), Request(30005, "<UID>UID0001</UID>"));
  std::strcpy(e.lanCfg.szToken, "T");
  std::strcpy(e.lanCfg.szUserName, "u");
  std::strcpy(e.lanCfg.szPassword, "p");
  std::strcpy(e.lanCfg.szIP, "127.9.8.99");
  EXPECT_EQ(search->RestoreIPC(0, &e), 0);
  EXPECT_EQ(Sent(), Request(30005, "<UID>UID0001</UID>\r\n<token>T</token>\r\n<userName>u</userName>\r\n"
                                   "<password>p</password>\r\n"));
  EXPECT_TRUE(search->Assigned().Contains(InetAddr("127.9.8.99")));
  EXPECT_FALSE(search->Assigned().Contains(InetAddr("127.9.8.7")));
}

TEST_F(Modify, AfterModifyTheOldAddressIsNoLongerAssigned) {
  __NetSDK_IPC_ENTRYV2 e = Stored(0);
  search->Assigned().Add(InetAddr("127.9.8.7"));
  std::strcpy(e.lanCfg.szIP, "127.9.8.30");
  ASSERT_EQ(search->ModifyIPC(0, &e), 0);
  EXPECT_FALSE(search->Assigned().Contains(InetAddr("127.9.8.7")));
  // What is added is the UID read as an address: all ones for this UID.
  EXPECT_TRUE(search->Assigned().Contains(0xFFFFFFFFu));
  EXPECT_FALSE(search->Assigned().Contains(InetAddr("127.9.8.30")));
}

TEST_F(Modify, RefusalsOfModify) {
  __NetSDK_IPC_ENTRYV2 e = Stored(0);
  EXPECT_EQ(search->ModifyIPC(2, &e), -96);
  EXPECT_EQ(CountLog("[CSearchIPC] modify IPC failed, input index=2 \n"), 1u);
  EXPECT_EQ(search->ModifyIPC(1, &e), -96);
  EXPECT_EQ(CountLog("[CSearchIPC] modify IPC failed, m_ipc_list[1] is null \n"), 1u);
  EXPECT_EQ(search->ModifyIPC(0, nullptr), -96);
  EXPECT_EQ(CountLog("[CSearchIPC] modify IPC failed, input ipc_entry is null \n"), 1u);
  EXPECT_EQ(search->RestoreIPC(0, nullptr), -96);
  EXPECT_EQ(CountLog("[CSearchIPC] restore IPC failed, input ipc_entry is null \n"), 1u);
  std::string t;
  EXPECT_FALSE(rx.Receive(&t, 200));
}

TEST_F(Modify, CallersRecordWithoutTerminatorsIsStoredBounded) {
  __NetSDK_IPC_ENTRYV2 e;
  std::memset(&e, 'A', sizeof(e));
  EXPECT_EQ(search->ModifyIPC(0, &e), 0);
  std::string sent = Sent();
  __NetSDK_IPC_ENTRYV2 s = Stored(0);
  EXPECT_EQ(std::strlen(s.szUID), 31u);
  EXPECT_EQ(std::strlen(s.lanCfg.szIP), 255u);
  EXPECT_NE(sent.find("<IP>" + std::string(255, 'A') + "</IP>"), std::string::npos);
}

TEST_F(Modify, WithoutWorkerTheRequestLeavesAtOnceFromAnUnboundSocket) {
  EXPECT_FALSE(search->IsRunning());
  EXPECT_EQ(search->SendMsgToIPC(30005, "<UID>Z</UID>"), 0);
  std::string t;
  int from = 0;
  ASSERT_TRUE(rx.Receive(&t, 2000, &from));
  EXPECT_EQ(t, Request(30005, "<UID>Z</UID>"));
  EXPECT_NE(from, search->BindPort());
  EXPECT_EQ(search->QueuedRequests(), 0u);
}
