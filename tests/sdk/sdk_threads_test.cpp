// The core under several threads: logins and logouts from many application threads,
// fan-out from many dispatching threads while registrations change, and events that a
// real session worker posts through the core.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "sdk_log_capture.h"

namespace {

char* C(const char* s) { return const_cast<char*>(s); }

class Threads : public ::testing::Test {
 protected:
  void SetUp() override {
    sdktest::InstallLogCapture();
    ASSERT_EQ(QXNet_init(), 0);
  }
  void TearDown() override { QXNet_Free(); }
};

TEST_F(Threads, LoginsAndLogoutsFromManyThreads) {
  constexpr int kThreads = 4, kEach = 100;
  std::vector<std::vector<long>> ids(kThreads);
  std::vector<std::thread> ts;
  for (int t = 0; t < kThreads; ++t)
    ts.emplace_back([t, &ids] {
      for (int i = 0; i < kEach; ++i) ids[t].push_back(QXNet_LoginDev(C("127.0.0.1"), 8000 + i, C("u"), C("p"), 1));
    });
  for (auto& t : ts) t.join();
  std::set<long> all;
  for (auto& v : ids)
    for (long id : v) {
      EXPECT_NE(id, 0);
      all.insert(id);
    }
  EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kEach)) << "identifiers of live sessions are unique";
  EXPECT_EQ(g_pInstance->DeviceCount(), static_cast<size_t>(kThreads * kEach));

  // Each thread logs out another thread's sessions, each twice.
  std::atomic<int> ok{0}, refused{0}, other{0};
  ts.clear();
  for (int t = 0; t < kThreads; ++t)
    ts.emplace_back([t, &ids, &ok, &refused, &other] {
      for (long id : ids[(t + 1) % kThreads])
        for (int k = 0; k < 2; ++k) {
          long rc = k == 0 ? QXNet_LogOutDev(id) : QXNet_Loc_LogoutDev(id);
          (rc == 0 ? ok : rc == QXNET_E_NO_DEVICE ? refused : other)++;
        }
    });
  for (auto& t : ts) t.join();
  EXPECT_EQ(ok.load(), kThreads * kEach);
  EXPECT_EQ(refused.load(), kThreads * kEach);
  EXPECT_EQ(other.load(), 0);
  EXPECT_EQ(g_pInstance->DeviceCount(), 0u);
}

std::atomic<long> g_fixedCalls{0};
std::atomic<long> g_churnCalls{0};
std::atomic<long> g_auxCalls{0};
long Fixed(long, long, char*, void*) {
  g_fixedCalls++;
  return 0;
}
long Churn(long, long, char*, void*) {
  g_churnCalls++;
  return 0;
}
long Aux(long, long code, char*, void*) {
  if (code == 0x03000007) g_auxCalls++;
  return 0;
}

TEST_F(Threads, FanOutWhileRegistrationsChange) {
  int fixedUser = 0;
  ASSERT_EQ(QXNet_SetStatusEventCallBack(&Fixed, &fixedUser), 0);
  ASSERT_EQ(QXNet_SetAuxResponseCallBack(&Aux, &fixedUser), 0);
  constexpr int kDispatchers = 3, kEach = 3000;
  std::atomic<bool> stop{false};
  std::thread churn([&stop] {
    char keys[8];
    while (!stop.load()) {
      for (char& k : keys) QXNet_SetStatusEventCallBack(&Churn, &k);
      for (char& k : keys) QXNet_Loc_SetStatusEventCallBack(nullptr, &k);
    }
  });
  std::vector<std::thread> ts;
  for (int t = 0; t < kDispatchers; ++t)
    ts.emplace_back([] {
      for (int i = 0; i < kEach; ++i) {
        g_pInstance->OnPostDevStatusMsg(reinterpret_cast<void*>(0x100), 5, nullptr);
        g_pInstance->OnPostAuxRspMsg(reinterpret_cast<void*>(0x100), 7, 3, "");
      }
    });
  for (auto& t : ts) t.join();
  stop = true;
  churn.join();
  EXPECT_EQ(g_fixedCalls.load(), kDispatchers * kEach);
  EXPECT_EQ(g_auxCalls.load(), kDispatchers * kEach);
  // After the churn every churn key is gone again.
  long before = g_churnCalls.load();
  g_pInstance->OnPostDevStatusMsg(nullptr, 5, nullptr);
  EXPECT_EQ(g_churnCalls.load(), before);
}

// A listener on 127.0.0.1 that accepts connections and says nothing.
class Listener {
 public:
  Listener() {
    fd_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(a);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof(a)) != 0 || listen(fd_, 64) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len) != 0)
      return;
    port_ = ntohs(a.sin_port);
  }
  ~Listener() {
    if (fd_ >= 0) close(fd_);
  }
  int port() const { return port_; }

 private:
  int fd_ = -1;
  int port_ = 0;
};

std::mutex g_eventsMutex;
std::vector<std::pair<long, long>> g_events;
long Record(long id, long code, char*, void*) {
  std::lock_guard<std::mutex> lock(g_eventsMutex);
  g_events.emplace_back(id, code);
  return 0;
}
bool SawEvent(long id, long code) {
  std::lock_guard<std::mutex> lock(g_eventsMutex);
  for (auto& e : g_events)
    if (e.first == id && e.second == code) return true;
  return false;
}

TEST_F(Threads, SessionWorkersPostThroughTheCore) {
  Listener listener;
  ASSERT_GT(listener.port(), 0);
  int user = 0;
  ASSERT_EQ(QXNet_SetStatusEventCallBack(&Record, &user), 0);
  constexpr int kSessions = 3;
  long ids[kSessions];
  for (long& id : ids) {
    id = QXNet_Loc_LoginDev(C("127.0.0.1"), static_cast<unsigned long>(listener.port()), C("admin"), C("pw"), nullptr);
    ASSERT_NE(id, 0);
  }
  // Each worker connects and reports event 5 with its own identifier.
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  for (long id : ids)
    while (!SawEvent(id, QXNET_EV_CONNECTED) && std::chrono::steady_clock::now() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
  for (long id : ids) EXPECT_TRUE(SawEvent(id, QXNET_EV_CONNECTED)) << id;
  EXPECT_EQ(QXNet_LogOutDev(ids[0]), 0);
  // Free stops the other workers and deletes their sessions.
  auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(QXNet_Free(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
  EXPECT_EQ(QXNet_LogOutDev(ids[1]), QXNET_E_NOT_INIT);
}

std::atomic<int> g_stage{0};
std::atomic<long> g_callbackResult{1};
long CallsBackIntoTheLibrary(long id, long code, char*, void*) {
  if (code != QXNET_EV_CONNECTED || g_stage.load() != 0) return 0;
  g_stage = 1;
  // Give the application thread time to be inside QXNet_Free, then make a request from
  // the worker, as an application does when it reacts to an event.
  while (g_stage.load() != 2) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  g_callbackResult = QXNet_Loc_GetUpgradeState(id);
  g_stage = 3;
  return 0;
}

TEST_F(Threads, FreeWhileACallbackMakesARequestDoesNotHang) {
  Listener listener;
  ASSERT_GT(listener.port(), 0);
  int user = 0;
  ASSERT_EQ(QXNet_SetStatusEventCallBack(&CallsBackIntoTheLibrary, &user), 0);
  long id = QXNet_Loc_LoginDev(C("127.0.0.1"), static_cast<unsigned long>(listener.port()), C("a"), C("b"), nullptr);
  ASSERT_NE(id, 0);
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (g_stage.load() != 1 && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ASSERT_EQ(g_stage.load(), 1) << "the session did not report a connection in time";

  std::atomic<bool> done{false};
  std::thread watchdog([&done] {
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!done.load() && std::chrono::steady_clock::now() < end)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (!done.load()) {
      std::fprintf(stderr, "QXNet_Free hangs while a status callback makes a request\n");
      std::_Exit(2);
    }
  });
  g_stage = 2;
  EXPECT_EQ(QXNet_Free(), 0);
  done = true;
  watchdog.join();
  EXPECT_EQ(g_stage.load(), 3);
  // The session was already out of the registry when the worker asked.
  EXPECT_EQ(g_callbackResult.load(), QXNET_E_NO_DEVICE);
}

}  // namespace
