// Library lifecycle and process-wide settings: init, initEx, Free, the version string,
// the log callback and level, auto-reconnect.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

#include "QXNetSDK.h"
#include "base/FuncLog.h"
#include "base/SDKSocket.h"
#include "base/SessionBlock.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "sdk_log_capture.h"
#include "search/search_loopback.h"

using sdktest::AsLogged;
using sdktest::CountLog;
using sdktest::CountLogPrefix;

namespace {

int g_statusCalls = 0;
long CountingStatus(long, long, char*, void*) {
  ++g_statusCalls;
  return 0;
}

class Lifecycle : public ::testing::Test {
 protected:
  void SetUp() override {
    sdktest::InstallLogCapture();
    QXNet_Free();
    sdktest::ClearLog();
  }
  void TearDown() override { QXNet_Free(); }
};

TEST(LifecycleStart, ReservedSettingsHaveTheirStartValues) {
  // Nothing in this binary has touched them before this test (it runs first).
  EXPECT_EQ(g_nSvrPort, 80);
  EXPECT_EQ(g_nIPType, 16);
  EXPECT_EQ(g_nReconnect, 1);
  EXPECT_EQ(g_nNetType, 0);
  EXPECT_TRUE(g_bForceSubStream);
  EXPECT_FALSE(g_bEnableVerifyPriData);
  EXPECT_FALSE(g_bLargeDevlist);
  EXPECT_FALSE(g_bCommProtocolByHttps);
  EXPECT_FALSE(g_bPcFree);
  EXPECT_EQ(g_fMsgRspCallBack, nullptr);
  EXPECT_EQ(g_fSDKLog, nullptr);
  EXPECT_EQ(g_szIpAddr[0], '\0');
  EXPECT_EQ(g_szSvrDomian[0], '\0');
  EXPECT_EQ(g_fLogLevel, 0x0FFFFFFFu);
  EXPECT_EQ(g_pInstance, nullptr);
  EXPECT_FALSE(g_bInit);
}

TEST_F(Lifecycle, VersionWorksBeforeInit) {
  ASSERT_EQ(g_pInstance, nullptr);
  const char* v = QXNet_GetSdkVersion();
  ASSERT_NE(v, nullptr);
  EXPECT_STREQ(v, "SDK_PC_V2.8.5_20171109_001");
  // Static storage: the same text at the same place, before and after init.
  ASSERT_EQ(QXNet_init(), 0);
  EXPECT_EQ(QXNet_GetSdkVersion(), v);
  EXPECT_STREQ(v, "SDK_PC_V2.8.5_20171109_001");
}

TEST_F(Lifecycle, StartSearchBeforeInitReturnsNotInit) {
  EXPECT_EQ(QXNet_StartSearchDev(), QXNET_E_NOT_INIT);
  EXPECT_EQ(QXNet_StartSearchDev(), -201);
  ASSERT_EQ(QXNet_init(), 0);
  searchtest::UseLoopbackSearchNetwork(searchtest::FreeLoopbackUdpPort());
  EXPECT_EQ(QXNet_StartSearchDev(), 0);
  ASSERT_EQ(QXNet_Free(), 0);
  EXPECT_EQ(QXNet_StartSearchDev(), QXNET_E_NOT_INIT);
  EXPECT_EQ(QXNet_Loc_StartSearchIPC(), QXNET_E_NOT_INIT);
}

TEST_F(Lifecycle, InitStartsOneCoreAndTheSocketLibrary) {
  EXPECT_EQ(g_nInitCount, 0);
  EXPECT_EQ(SocketLibraryStartCount(), 0);
  EXPECT_EQ(QXNet_init(), 0);
  EXPECT_TRUE(g_bInit);
  ASSERT_NE(g_pInstance, nullptr);
  EXPECT_EQ(g_nInitCount, 1);
  EXPECT_EQ(SocketLibraryStartCount(), 1);
  EXPECT_STREQ(g_szSvrDomian, kDefaultSvrDomain);
  EXPECT_EQ(CountLog(AsLogged("Sdk Version=SDK_PC_V2.8.5_20171109_001")), 1u);
  EXPECT_EQ(CountLogPrefix("QXNet_init(), "), 1u);
  EXPECT_EQ(sdktest::MalformedLogLines(), 0u);
  // The core's own thread is not started by init.
  EXPECT_FALSE(g_pInstance->IsRunning());
}

TEST_F(Lifecycle, InitTwiceReplacesTheCoreAndDropsItsSessions) {
  ASSERT_EQ(QXNet_init(), 0);
  long a = QXNet_LoginDev(const_cast<char*>("127.0.0.1"), 8000, const_cast<char*>("u"),
                          const_cast<char*>("p"), 1);
  long b = QXNet_LoginDev(const_cast<char*>("127.0.0.1"), 8001, const_cast<char*>("u"),
                          const_cast<char*>("p"), 1);
  ASSERT_NE(a, 0);
  ASSERT_NE(b, 0);
  ASSERT_EQ(g_pInstance->DeviceCount(), 2u);
  int user = 0;
  ASSERT_EQ(QXNet_SetStatusEventCallBack(&CountingStatus, &user), 0);
  sdktest::ClearLog();

  EXPECT_EQ(QXNet_init(), 0);
  ASSERT_NE(g_pInstance, nullptr);
  EXPECT_TRUE(g_bInit);
  // The first core was destroyed by the implicit Free (its cleanup ran once) and the
  // second one starts empty.
  EXPECT_EQ(CountLog("[SDK_Cleanup] Netsdk cleanup!\n"), 1u);
  EXPECT_EQ(CountLog(AsLogged("QXNet_Free()")), 1u);
  EXPECT_EQ(g_pInstance->DeviceCount(), 0u);
  EXPECT_EQ(QXNet_LogOutDev(a), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_LogoutDev(b), QXNET_E_NO_DEVICE);
  g_statusCalls = 0;
  g_pInstance->OnPostDevStatusMsg(nullptr, 5, const_cast<char*>(""));
  EXPECT_EQ(g_statusCalls, 0) << "callback registrations do not survive a re-init";
  // One socket-library start in force, one init count.
  EXPECT_EQ(g_nInitCount, 1);
  EXPECT_EQ(SocketLibraryStartCount(), 1);
}

TEST_F(Lifecycle, FreeTearsDownAndIsSafeWhenNotInitialised) {
  EXPECT_EQ(QXNet_Free(), 0);
  EXPECT_EQ(QXNet_Free(), 0);
  EXPECT_EQ(g_nInitCount, 0);
  EXPECT_EQ(SocketLibraryStartCount(), 0);
  EXPECT_EQ(g_pInstance, nullptr);

  ASSERT_EQ(QXNet_init(), 0);
  long id = QXNet_LoginDev(const_cast<char*>("127.0.0.1"), 8000, nullptr, nullptr, 1);
  ASSERT_NE(id, 0);
  sdktest::ClearLog();
  EXPECT_EQ(QXNet_Free(), 0);
  EXPECT_FALSE(g_bInit);
  EXPECT_EQ(g_pInstance, nullptr);
  EXPECT_EQ(g_nInitCount, 0);
  EXPECT_EQ(SocketLibraryStartCount(), 0);
  EXPECT_EQ(CountLog(AsLogged("QXNet_Free()")), 1u);
  EXPECT_EQ(CountLog("[SDK_Cleanup] Netsdk cleanup!\n"), 1u);
  // The log writer is stopped: nothing reaches the callback any more.
  sdktest::ClearLog();
  fLog(0, "after free");
  EXPECT_EQ(sdktest::LogLines().size(), 0u);
  EXPECT_EQ(QXNet_LogOutDev(id), QXNET_E_NOT_INIT);
}

// A logout leaves its session's memory parked for the next logout to unmap; QXNet_Free
// unmaps whatever is left (here the second session's), so a freed library holds none.
TEST_F(Lifecycle, FreeLeavesNoSessionMemoryParked) {
  ASSERT_EQ(QXNet_init(), 0);
  long a = QXNet_LoginDev(const_cast<char*>("127.0.0.1"), 8000, nullptr, nullptr, 1);
  long b = QXNet_LoginDev(const_cast<char*>("127.0.0.1"), 8001, nullptr, nullptr, 1);
  ASSERT_NE(a, 0);
  ASSERT_NE(b, 0);
  EXPECT_EQ(QXNet_LogOutDev(a), 0);
  // The logout parked the freed session's block rather than unmapping it (released here).
  EXPECT_TRUE(CSessionBlock::ReleaseParked()) << "a logout should leave its session's block parked";
  EXPECT_EQ(QXNet_Free(), 0);
  EXPECT_FALSE(CSessionBlock::ReleaseParked()) << "a session's block outlived QXNet_Free";
}

TEST_F(Lifecycle, InitExAfterInitChangesNothing) {
  ASSERT_EQ(QXNet_initEx(7), 0);
  EXPECT_EQ(g_nNetType, 7);
  EXPECT_STREQ(g_szSvrDomian, kDefaultSvrDomain);
  ASSERT_NE(g_pInstance, nullptr);
  CNetSDKFunc* core = g_pInstance;
  long id = QXNet_LoginDev(const_cast<char*>("127.0.0.1"), 8000, nullptr, nullptr, 1);
  ASSERT_NE(id, 0);
  std::string domain = g_szSvrDomian;
  sdktest::ClearLog();

  EXPECT_EQ(QXNet_initEx(3), 0);
  EXPECT_EQ(g_nNetType, 7);
  EXPECT_EQ(domain, g_szSvrDomian);
  EXPECT_EQ(g_pInstance, core);
  EXPECT_EQ(g_pInstance->DeviceCount(), 1u) << "no re-init took place";
  EXPECT_EQ(CountLog(AsLogged("QXNet_initEx(): init success, g_bInit=true")), 1u);
  EXPECT_EQ(CountLog(AsLogged("Sdk Version=SDK_PC_V2.8.5_20171109_001")), 1u);
  EXPECT_EQ(CountLogPrefix("QXNet_initEx(): nNetType = 3, "), 1u);
  EXPECT_EQ(QXNet_LogOutDev(id), 0);

  // Same when initialised through QXNet_init.
  ASSERT_EQ(QXNet_init(), 0);
  int before = g_nNetType;
  EXPECT_EQ(QXNet_initEx(3), 0);
  EXPECT_EQ(g_nNetType, before);
}

TEST_F(Lifecycle, InitExChoosesTheServerNameByNetType) {
  ASSERT_EQ(QXNet_initEx(3), 0);
  EXPECT_EQ(g_nNetType, 3);
  EXPECT_TRUE(g_bInit);
  ASSERT_NE(g_pInstance, nullptr);
  std::string d3 = g_szSvrDomian;
  ASSERT_EQ(QXNet_Free(), 0);
  ASSERT_EQ(QXNet_initEx(4), 0);
  std::string d4 = g_szSvrDomian;
  ASSERT_EQ(QXNet_Free(), 0);
  ASSERT_EQ(QXNet_initEx(5), 0);
  std::string d5 = g_szSvrDomian;
  ASSERT_EQ(QXNet_Free(), 0);
  ASSERT_EQ(QXNet_initEx(-1), 0);
  EXPECT_EQ(g_nNetType, -1);
  std::string dOther = g_szSvrDomian;
  ASSERT_EQ(QXNet_Free(), 0);
  ASSERT_EQ(QXNet_initEx(INT_MAX), 0);
  EXPECT_EQ(g_nNetType, INT_MAX);
  EXPECT_EQ(dOther, g_szSvrDomian);

  EXPECT_FALSE(d3.empty());
  EXPECT_NE(d3, d4);
  EXPECT_NE(d4, d5);
  EXPECT_NE(d3, d5);
  EXPECT_EQ(dOther, kDefaultSvrDomain);
  EXPECT_NE(d3, dOther);
  EXPECT_NE(d4, dOther);
  EXPECT_NE(d5, dOther);
  EXPECT_EQ(d3, SvrDomainForNetType(3));
  EXPECT_EQ(d4, SvrDomainForNetType(4));
  EXPECT_EQ(d5, SvrDomainForNetType(5));
  // The net type is only stored: the default is taken again by a plain init only when
  // the name is empty.
  ASSERT_EQ(QXNet_Free(), 0);
  ASSERT_EQ(QXNet_initEx(4), 0);
  ASSERT_EQ(QXNet_init(), 0);
  EXPECT_EQ(d4, g_szSvrDomian);
}

int g_cb1 = 0, g_cb2 = 0;
void LogCb1(unsigned int, const char*) { ++g_cb1; }
void LogCb2(unsigned int, const char*) { ++g_cb2; }

TEST_F(Lifecycle, FirstLogCallbackWinsAndLevelSetsTheMask) {
  // The capture of this binary is already registered: take it out for the length of
  // this test, to see the first-registration rule from a clean start.
  QXNetLogSink saved = g_fLogCallBack;
  g_fLogCallBack = nullptr;

  EXPECT_EQ(QXNet_SetfcLogCallBackEx(&LogCb1, 3), 0);
  EXPECT_EQ(g_fLogCallBack, &LogCb1);
  EXPECT_EQ(g_fLogLevel, 0xFu);
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(&LogCb2, 5), 0);
  EXPECT_EQ(g_fLogCallBack, &LogCb1);
  EXPECT_EQ(g_fLogLevel, 0x3Fu);

  ASSERT_EQ(QXNet_init(), 0);
  g_cb1 = g_cb2 = 0;
  fLog(5, "level five");
  fLog(6, "level six is off");
  EXPECT_EQ(g_cb1, 1);
  EXPECT_EQ(g_cb2, 0);

  EXPECT_EQ(QXNet_SetfcLogCallBackEx(&LogCb2, -1), 0);
  EXPECT_EQ(g_fLogLevel, 0u);
  fLog(0, "all levels off");
  EXPECT_EQ(g_cb1, 1);
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, INT_MIN), 0);
  EXPECT_EQ(g_fLogLevel, 0u);
  EXPECT_EQ(g_fLogCallBack, &LogCb1);

  EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, 0), 0);
  EXPECT_EQ(g_fLogLevel, 0x1u);
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, 29), 0);
  EXPECT_EQ(g_fLogLevel, 0x3FFFFFFFu);
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, 30), 0);
  EXPECT_EQ(g_fLogLevel, 0x7FFFFFFFu);
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, 31), 0);
  EXPECT_EQ(g_fLogLevel, 0x7FFFFFFFu);
  EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, INT_MAX), 0);
  EXPECT_EQ(g_fLogLevel, 0x7FFFFFFFu);
  EXPECT_EQ(g_fLogCallBack, &LogCb1);

  // The settings outlive Free.
  ASSERT_EQ(QXNet_Free(), 0);
  EXPECT_EQ(g_fLogCallBack, &LogCb1);
  EXPECT_EQ(g_fLogLevel, 0x7FFFFFFFu);

  g_fLogCallBack = saved;
  sdktest::InstallLogCapture();
  EXPECT_EQ(g_fLogCallBack, saved);
}

int g_sdkLogCalls = 0;
void SdkLog(const char*) { ++g_sdkLogCalls; }

TEST_F(Lifecycle, SdkLogCallbackIsOnlyStored) {
  QXNet_SetSDKLogCallBack(&SdkLog);
  EXPECT_EQ(g_fSDKLog, &SdkLog);
  ASSERT_EQ(QXNet_init(), 0);
  long id = QXNet_LoginDev(const_cast<char*>("127.0.0.1"), 8000, nullptr, nullptr, 1);
  EXPECT_EQ(QXNet_LogOutDev(id), 0);
  EXPECT_EQ(QXNet_Free(), 0);
  EXPECT_EQ(g_fSDKLog, &SdkLog);
  EXPECT_EQ(g_sdkLogCalls, 0);
  QXNet_SetSDKLogCallBack(nullptr);
  EXPECT_EQ(g_fSDKLog, nullptr);
}

TEST_F(Lifecycle, AutoReconnectIsStoredInAnyState) {
  EXPECT_EQ(QXNet_SetAutoReconnect(0), 0);
  EXPECT_EQ(g_nReconnect, 0);
  ASSERT_EQ(QXNet_init(), 0);
  EXPECT_EQ(g_nReconnect, 0) << "init keeps the setting";
  EXPECT_EQ(QXNet_SetAutoReconnect(-7), 0);
  EXPECT_EQ(g_nReconnect, -7);
  ASSERT_EQ(QXNet_Free(), 0);
  EXPECT_EQ(g_nReconnect, -7) << "Free keeps the setting";
  EXPECT_EQ(QXNet_SetAutoReconnect(1), 0);
  EXPECT_EQ(g_nReconnect, 1);
}

}  // namespace
