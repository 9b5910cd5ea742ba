// The search worker on the loopback interface: requests leave from the bound socket,
// answers fill the table, stop returns promptly, a taken port is walked past, and hostile
// datagrams through the real socket do not stop the search.
#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "base/SDKSocket.h"
#include "base/UdpSocket.h"
#include "search/SearchIPC.h"
#include "search/SearchProto.h"
#include "search_loopback.h"
#include "search_test_util.h"

using namespace searchtest;

namespace {
std::string SearchRequest() {
  char buf[kSearchMsgSize];
  FormatSearchRequest(buf, sizeof(buf), 30001, nullptr, "");
  return buf;
}

class Worker : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(lan.Ok());
    UseLoopbackSearchNetwork(lan.Port());
    search.reset(new CSearchIPC);
    search->SetSearchStatusCallBack(&Recorder::Cb, &rec);
    SetSearchLogHook(nullptr);  // tests that read the log start it themselves
  }
  void TearDown() override { search.reset(); }
  // Starts and waits for the first search request; the worker's port in *port.
  void StartAndMeetFirstRequest(int* port) {
    ASSERT_EQ(search->StartSearch(), 0);
    std::string t;
    ASSERT_TRUE(lan.Receive(&t, 3000, port)) << "no search request";
    EXPECT_EQ(t, SearchRequest());
  }
  Endpoint lan;
  Recorder rec;
  std::unique_ptr<CSearchIPC> search;
};
}  // namespace

TEST_F(Worker, FirstRequestFromTheBoundPortAndAnswersFillTheTable) {
  int port = 0;
  StartAndMeetFirstRequest(&port);
  EXPECT_EQ(port, search->BindPort());
  EXPECT_EQ(search->HostAddr(0), "127.0.0.1");
  Device d;
  lan.SendTo(port, Answer(d));
  d.uid = "SECOND";
  lan.SendTo(port, Answer(d));
  ASSERT_TRUE(WaitUntil([&] { return search->GetIPCCount() == 2; }, 3000));
  ASSERT_TRUE(WaitUntil([&] { return rec.Events().size() == 2; }, 1000));
  EXPECT_EQ(rec.Events()[1].code, 1);
  EXPECT_EQ(rec.Events()[1].index, 1);
  // No second request within the first seven seconds' wait: check the next two seconds.
  std::string t;
  EXPECT_FALSE(lan.Receive(&t, 2000));
}

TEST_F(Worker, StopReturnsPromptlyAndTheWorkerHasEnded) {
  int port = 0;
  StartAndMeetFirstRequest(&port);
  EXPECT_EQ(search->WorkersAlive(), 1);
  auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(search->StopSearch(), 0);
  auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_LT(took, 300);
  EXPECT_EQ(search->WorkersAlive(), 0);
  EXPECT_FALSE(search->IsRunning());
  // The socket is gone: the port can be bound without address reuse.
  Endpoint again(port);
  EXPECT_TRUE(again.Ok());
}

TEST_F(Worker, WhileRunningARequestIsQueuedAndLeavesFromTheWorkersSocket) {
  int port = 0;
  StartAndMeetFirstRequest(&port);
  EXPECT_EQ(search->SendMsgToIPC(30005, "<UID>Q</UID>"), 0);
  std::string t;
  int from = 0;
  ASSERT_TRUE(lan.Receive(&t, 2000, &from));
  EXPECT_NE(t.find("<cmd>30005</cmd>"), std::string::npos);
  EXPECT_EQ(from, port);
}

TEST_F(Worker, ATakenPortIsWalkedPast) {
  // The holder binds without address reuse, so the worker's bind fails there.
  int p = FreeLoopbackUdpPort();
  Endpoint holder(p);
  ASSERT_TRUE(holder.Ok());
  UseLoopbackSearchNetwork(lan.Port(), p);
  search.reset(new CSearchIPC);
  EXPECT_EQ(search->BindPort(), p);
  StartLog();
  auto t0 = std::chrono::steady_clock::now();
  int port = 0;
  StartAndMeetFirstRequest(&port);
  auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_EQ(port, p + 1);
  EXPECT_EQ(search->BindPort(), p + 1);
  EXPECT_GE(took, 450);  // one failed pass and its half-second pause
  EXPECT_EQ(CountLog("[CSearchIPC] fail to bind port " + std::to_string(p) + " \n"), 1u);
  EXPECT_EQ(CountLog("[CSearchIPC] Connect failed \n"), 1u);
}

TEST_F(Worker, StartingAgainRestartsWithOneWorkerAndAnEmptyTable) {
  int port = 0;
  StartAndMeetFirstRequest(&port);
  lan.SendTo(port, Answer(Device()));
  ASSERT_TRUE(WaitUntil([&] { return search->GetIPCCount() == 1; }, 3000));
  StartAndMeetFirstRequest(&port);
  EXPECT_EQ(search->WorkersAlive(), 1);
  EXPECT_EQ(search->GetIPCCount(), 0);
}

TEST_F(Worker, HostileDatagramsDoNotStopTheSearch) {
  int port = 0;
  StartAndMeetFirstRequest(&port);
  std::string biggest(65507, '<');
  std::string envelope = "<PrivateProto>" + std::string(65000, 'x') + "</PrivateProto>";
  std::string answerTail = Answer(Device());
  std::string padded = std::string(30000, ' ') + answerTail;  // cut by the receive: no closing tag left
  for (const std::string& d : {biggest, envelope, padded, std::string(), std::string("\0\0\0", 3)})
    lan.SendTo(port, d);
  Device d;
  d.uid = "AFTER";
  lan.SendTo(port, Answer(d));
  ASSERT_TRUE(WaitUntil([&] { return search->GetIPCCount() == 1; }, 3000));
  __NetSDK_IPC_ENTRYV2 e;
  ASSERT_EQ(search->GetIPCInfo(0, &e), 0);
  EXPECT_STREQ(e.szUID, "AFTER");
  EXPECT_EQ(search->WorkersAlive(), 1);
}

TEST_F(Worker, ABurstOfDistinctDevicesThroughTheSocket) {
  int port = 0;
  StartAndMeetFirstRequest(&port);
  // Loopback drops what the receive buffer cannot hold, as a LAN would: the devices answer
  // again, as they do every search, until all slots are taken (a bounded number of rounds).
  for (int round = 0; round < 20 && search->GetIPCCount() < 1000; ++round) {
    for (int i = 0; i < 1100; ++i) {
      Device d;
      d.uid = "B" + std::to_string(i);
      lan.SendTo(port, Answer(d));
      if (i % 20 == 19) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    WaitUntil([&] { return search->GetIPCCount() == 1000; }, 1000);
  }
  ASSERT_EQ(search->GetIPCCount(), 1000);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(search->GetIPCCount(), 1000);
  EXPECT_EQ(rec.Events().size(), 1000u);
}
