// Every export with bad input: null pointers, empty strings, negative and huge numbers,
// before init, after free and twice in a row. Each call must return its documented code
// and nothing may crash, hang or leak (this binary also runs under ASan and UBSan).
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "QXNetSDK.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "sdk_export_names.h"
#include "sdk_log_capture.h"
#include "search/search_loopback.h"

namespace {

char* C(const char* s) { return const_cast<char*>(s); }

// Searches started here stay on the loopback interface.
const bool kLoopback = searchtest::InstallLoopbackSearchNetwork();


// Identifiers that name no session.
const long kBadIds[] = {0, -1, 1, LONG_MIN, LONG_MAX, 0x7FFFFFFF, static_cast<long>(0xDEADBEEF)};

long StatusCb(long, long, char*, void*) { return 0; }
long ReplayCb(long, unsigned long, unsigned char*, unsigned long, FRAME_EXTDATA*) { return 0; }
long PlayCb(long, long, long, char*, void*) { return 0; }
long SearchCb(long, long, __NetSDK_IPC_ENTRYV2*, void*) { return 0; }

struct Probe {
  std::string name;        // the export exercised
  std::function<long()> fn;
  long expected;           // result once initialised
};

// One probe per bad input; every forwarding export appears at least once.
std::vector<Probe> ForwardingProbes(const std::string& missingFile, const std::string& existingFile) {
  std::vector<Probe> p;
  static char empty[] = "";
  static char junk[] = "\xff\xfe<not xml";
  static wchar_t wempty[] = L"";
  static std::wstring wmissing, wexisting;
  wmissing.assign(missingFile.begin(), missingFile.end());
  wexisting.assign(existingFile.begin(), existingFile.end());
  static std::string smissing, sexisting;
  smissing = missingFile;
  sexisting = existingFile;

  // discovery
  p.push_back({"QXNet_SetSearchDevStatusCallBack", [] { return QXNet_SetSearchDevStatusCallBack(nullptr, nullptr); }, 0});
  p.push_back({"QXNet_SetSearchDevStatusCallBack", [] { return QXNet_SetSearchDevStatusCallBack(&SearchCb, nullptr); }, 0});
  p.push_back({"QXNet_Loc_SetSearchStatusCallBack", [] { return QXNet_Loc_SetSearchStatusCallBack(nullptr, nullptr); }, 0});
  p.push_back({"QXNet_StartSearchDev", [] { return QXNet_StartSearchDev(); }, 0});
  p.push_back({"QXNet_Loc_StartSearchIPC", [] { return QXNet_Loc_StartSearchIPC(); }, 0});
  p.push_back({"QXNet_StopSearchDev", [] { return QXNet_StopSearchDev(); }, 0});
  p.push_back({"QXNet_Loc_StopSearchIPC", [] { return QXNet_Loc_StopSearchIPC(); }, 0});
  p.push_back({"QXNet_GetSearchIPCCount", [] { return QXNet_GetSearchIPCCount(); }, 0});
  p.push_back({"QXNet_Loc_GetSearchIPCCount", [] { return QXNet_Loc_GetSearchIPCCount(); }, 0});
  for (int len : {-1, 0, INT_MAX, INT_MIN}) {
    p.push_back({"QXNet_GetOneIPAddress", [len] { return QXNet_GetOneIPAddress(nullptr, len); }, QXNET_E_MISSING_ARG});
    p.push_back({"QXNet_Loc_GetOneIPAddress", [len] { return QXNet_Loc_GetOneIPAddress(nullptr, len); }, QXNET_E_MISSING_ARG});
  }
  for (long index : {-1L, 0L, LONG_MAX, LONG_MIN}) {
    p.push_back({"QXNet_GetIPCInfo", [index] { return QXNet_GetIPCInfo(index, nullptr); }, QXNET_E_BAD_INDEX});
    p.push_back({"QXNet_Loc_GetIPCInfo", [index] { return QXNet_Loc_GetIPCInfo(index, nullptr); }, QXNET_E_BAD_INDEX});
    // A missing record is refused by the core (with its log line).
    p.push_back({"QXNet_ModifyIPC", [index] { return QXNet_ModifyIPC(index, nullptr); }, QXNET_E_BAD_INDEX});
    p.push_back({"QXNet_Loc_ModifyIPC", [index] { return QXNet_Loc_ModifyIPC(index, nullptr); }, QXNET_E_BAD_INDEX});
    p.push_back({"QXNet_RestoreIPC", [index] { return QXNet_RestoreIPC(index, nullptr); }, QXNET_E_BAD_INDEX});
    p.push_back({"QXNet_Loc_RestoreIPC", [index] { return QXNet_Loc_RestoreIPC(index, nullptr); }, QXNET_E_BAD_INDEX});
    p.push_back({"QXNet_Loc_GetIPCInfoXML", [index] { return QXNet_Loc_GetIPCInfoXML(index, nullptr, -1); }, QXNET_E_BAD_INDEX});
    p.push_back({"QXNet_Loc_GetIPCInfoXML", [index] { return QXNet_Loc_GetIPCInfoXML(index, empty, INT_MAX); }, QXNET_E_BAD_INDEX});
    p.push_back({"QXNet_Loc_ModifyIPCXML", [index] { return QXNet_Loc_ModifyIPCXML(index, nullptr); }, QXNET_E_BAD_INDEX});
    p.push_back({"QXNet_Loc_ModifyIPCXML", [index] { return QXNet_Loc_ModifyIPCXML(index, junk); }, QXNET_E_BAD_INDEX});
    p.push_back({"QXNet_Loc_GetNetworkParam", [index] { return QXNet_Loc_GetNetworkParam(index, nullptr, 0); }, QXNET_E_BAD_INDEX});
  }
  p.push_back({"QXNet_ModifyIPC", [] {
                 __NetSDK_IPC_ENTRYV2 e;
                 std::memset(&e, 0xFF, sizeof(e));
                 return QXNet_ModifyIPC(-5, &e);
               }, QXNET_E_BAD_INDEX});
  p.push_back({"QXNet_Loc_RestoreIPC", [] {
                 __NetSDK_IPC_ENTRYV2 e;
                 std::memset(&e, 0xFF, sizeof(e));
                 return QXNet_Loc_RestoreIPC(LONG_MAX, &e);
               }, QXNET_E_BAD_INDEX});

  // sessions: bad login parameters give 0, unknown identifiers -103
  for (unsigned long port : {0UL, 65535UL, 65536UL, ULONG_MAX}) {
    p.push_back({"QXNet_LoginDev", [port] { return QXNet_LoginDev(C("127.0.0.1"), port, nullptr, nullptr, 0); }, 0});
    p.push_back({"QXNet_LoginDev", [port] { return QXNet_LoginDev(empty, port, empty, empty, -1); }, 0});
    p.push_back({"QXNet_Loc_LoginDev", [port] { return QXNet_Loc_LoginDev(C("127.0.0.1"), port, nullptr, nullptr, nullptr); }, 0});
  }
  p.push_back({"QXNet_LoginDev", [] { return QXNet_LoginDev(nullptr, 80, nullptr, nullptr, 0); }, 0});
  p.push_back({"QXNet_LoginDev", [] { return QXNet_LoginDev(nullptr, 80, nullptr, nullptr, INT_MIN); }, 0});
  p.push_back({"QXNet_Loc_LoginDev", [] { return QXNet_Loc_LoginDev(nullptr, 80, empty, empty, nullptr); }, 0});
  static std::string longText(300, 'x');
  p.push_back({"QXNet_LoginDev", [] { return QXNet_LoginDev(C(longText.c_str()), 80, nullptr, nullptr, 1); }, 0});
  p.push_back({"QXNet_LoginDev", [] { return QXNet_LoginDev(C("127.0.0.1"), 80, C(longText.c_str()), nullptr, 1); }, 0});
  p.push_back({"QXNet_Loc_LoginDev", [] { return QXNet_Loc_LoginDev(C("127.0.0.1"), 80, nullptr, C(longText.c_str()), nullptr); }, 0});
  for (long id : kBadIds) {
    p.push_back({"QXNet_LogOutDev", [id] { return QXNet_LogOutDev(id); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_LogoutDev", [id] { return QXNet_Loc_LogoutDev(id); }, QXNET_E_NO_DEVICE});
  }
  // Null user pointers are refused by the status and aux registries.
  p.push_back({"QXNet_SetStatusEventCallBack", [] { return QXNet_SetStatusEventCallBack(&StatusCb, nullptr); }, QXNET_E_BAD_INDEX});
  p.push_back({"QXNet_SetStatusEventCallBack", [] { return QXNet_SetStatusEventCallBack(nullptr, nullptr); }, QXNET_E_BAD_INDEX});
  p.push_back({"QXNet_Loc_SetStatusEventCallBack", [] { return QXNet_Loc_SetStatusEventCallBack(&StatusCb, nullptr); }, QXNET_E_BAD_INDEX});
  p.push_back({"QXNet_SetAuxResponseCallBack", [] { return QXNet_SetAuxResponseCallBack(&StatusCb, nullptr); }, QXNET_E_BAD_INDEX});
  p.push_back({"QXNet_SetAuxResponseCallBack", [] { return QXNet_SetAuxResponseCallBack(nullptr, nullptr); }, QXNET_E_BAD_INDEX});
  // Removing what was never registered is no error.
  static int notRegistered;
  p.push_back({"QXNet_SetStatusEventCallBack", [] { return QXNet_SetStatusEventCallBack(nullptr, &notRegistered); }, 0});
  p.push_back({"QXNet_Loc_SetStatusEventCallBack", [] { return QXNet_Loc_SetStatusEventCallBack(nullptr, &notRegistered); }, 0});
  p.push_back({"QXNet_SetAuxResponseCallBack", [] { return QXNet_SetAuxResponseCallBack(nullptr, &notRegistered); }, 0});

  for (long id : kBadIds) {
    // configuration and control
    p.push_back({"QXNet_GetDevConfig", [id] { return QXNet_GetDevConfig(id, ULONG_MAX); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_GetDVRConfig", [id] { return QXNet_Loc_GetDVRConfig(id, 0, -1, nullptr, ULONG_MAX, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_SetDevConfig", [id] { return QXNet_SetDevConfig(id, 0, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_SetDVRConfig", [id] { return QXNet_Loc_SetDVRConfig(id, ULONG_MAX, LONG_MIN, nullptr, ULONG_MAX); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_SystemControl", [id] { return QXNet_SystemControl(id, 0, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_SystemControl", [id] { return QXNet_Loc_SystemControl(id, ULONG_MAX, ULONG_MAX, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_WriteAUXStringEx", [id] { return QXNet_Loc_WriteAUXStringEx(id, nullptr, ULONG_MAX, ULONG_MAX, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_GetUserData", [id] { return QXNet_Loc_GetUserData(id, nullptr, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_SetUserData", [id] { return QXNet_Loc_SetUserData(id, nullptr, -1); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_SetUserData", [id] { return QXNet_Loc_SetUserData(id, nullptr, INT_MAX); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_RestoreConfig", [id] { return QXNet_Loc_RestoreConfig(id); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_RebootDVR", [id] { return QXNet_Loc_RebootDVR(id); }, QXNET_E_NO_DEVICE});
    // upgrade and files: the file is checked first
    p.push_back({"QXNet_Loc_Upgrade", [id] { return QXNet_Loc_Upgrade(id, nullptr); }, QXNET_E_FILE});
    p.push_back({"QXNet_Loc_Upgrade", [id] { return QXNet_Loc_Upgrade(id, empty); }, QXNET_E_FILE});
    p.push_back({"QXNet_Loc_Upgrade", [id] { return QXNet_Loc_Upgrade(id, smissing.c_str()); }, QXNET_E_FILE});
    p.push_back({"QXNet_Loc_Upgrade", [id] { return QXNet_Loc_Upgrade(id, sexisting.c_str()); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_UpgradeEx", [id] { return QXNet_Loc_UpgradeEx(id, nullptr); }, QXNET_E_FILE});
    p.push_back({"QXNet_Loc_UpgradeEx", [id] { return QXNet_Loc_UpgradeEx(id, wempty); }, QXNET_E_FILE});
    p.push_back({"QXNet_Loc_UpgradeEx", [id] { return QXNet_Loc_UpgradeEx(id, wmissing.c_str()); }, QXNET_E_FILE});
    p.push_back({"QXNet_Loc_UpgradeEx", [id] { return QXNet_Loc_UpgradeEx(id, wexisting.c_str()); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_GetUpgradeProgress", [id] { return QXNet_Loc_GetUpgradeProgress(id); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_GetUpgradeState", [id] { return QXNet_Loc_GetUpgradeState(id); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_CloseUpgradeHandle", [id] { return QXNet_Loc_CloseUpgradeHandle(id); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_GetConfigFile", [id] { return QXNet_Loc_GetConfigFile(id, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_SetConfigFile", [id] { return QXNet_Loc_SetConfigFile(id, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_SetConfigFile", [id] { return QXNet_Loc_SetConfigFile(id, smissing.c_str()); }, QXNET_E_NO_DEVICE});
    // recorder
    p.push_back({"QXNet_SearchNVRRecByTime", [id] { return QXNet_SearchNVRRecByTime(id, -1, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_SearchNVRRecByTime", [id] { return QXNet_Loc_SearchNVRRecByTime(id, LONG_MAX, junk); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_NVRRecordDownload", [id] { return QXNet_NVRRecordDownload(id, -1, nullptr, nullptr, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_NVRRecordDownload", [id] { return QXNet_Loc_NVRRecordDownload(id, LONG_MIN, empty, junk, empty); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_NVRRecordDownloadStop", [id] { return QXNet_Loc_NVRRecordDownloadStop(id, LONG_MAX); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_NVRReplayByTime", [id] { return QXNet_Loc_NVRReplayByTime(id, -1, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_Loc_ControlNVRReplay", [id] { return QXNet_Loc_ControlNVRReplay(id, -1, LONG_MAX, LONG_MIN, nullptr); }, QXNET_E_NO_DEVICE});
  }
  // The replay registry takes any user, null included.
  p.push_back({"QXNet_Loc_SetReplayDataCallBack", [] { return QXNet_Loc_SetReplayDataCallBack(nullptr, nullptr); }, 0});
  p.push_back({"QXNet_Loc_SetReplayDataCallBack", [] { return QXNet_Loc_SetReplayDataCallBack(&ReplayCb, nullptr); }, 0});
  p.push_back({"QXNet_Loc_SetReplayDataCallBack", [] { return QXNet_Loc_SetReplayDataCallBack(nullptr, nullptr); }, 0});
  return p;
}

// The five functions with C++ names follow the same rule.
std::vector<Probe> HiddenProbes() {
  std::vector<Probe> p;
  for (long id : kBadIds) {
    p.push_back({"QXNet_NVRRecordDownloadStop", [id] { return QXNet_NVRRecordDownloadStop(id, -1); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_NVRReplayByTime", [id] { return QXNet_NVRReplayByTime(id, LONG_MIN, nullptr); }, QXNET_E_NO_DEVICE});
    p.push_back({"QXNet_ControlNVRReplay", [id] { return QXNet_ControlNVRReplay(id, -1, -1, -1, nullptr); }, QXNET_E_NO_DEVICE});
  }
  p.push_back({"QXNet_SetReplayDataCallBack", [] { return QXNet_SetReplayDataCallBack(&ReplayCb, nullptr); }, 0});
  p.push_back({"QXNet_SetReplayDataCallBack", [] { return QXNet_SetReplayDataCallBack(nullptr, nullptr); }, 0});
  p.push_back({"QXNet_SetPlayActionEventCallBack", [] { return QXNet_SetPlayActionEventCallBack(&PlayCb, nullptr); }, 0});
  p.push_back({"QXNet_SetPlayActionEventCallBack", [] { return QXNet_SetPlayActionEventCallBack(nullptr, nullptr); }, 0});
  return p;
}

class BadInput : public ::testing::Test {
 protected:
  void SetUp() override {
    sdktest::InstallLogCapture();
    QXNet_Free();
    char tmpl[] = "/tmp/qxnet_sdk_walk_XXXXXX";
    int fd = mkstemp(tmpl);
    ASSERT_GE(fd, 0);
    close(fd);
    existing_ = tmpl;
    missing_ = existing_ + ".missing";
  }
  void TearDown() override {
    QXNet_Free();
    unlink(existing_.c_str());
  }

  // Runs every probe twice in a row and checks each result.
  void Walk(const std::vector<Probe>& probes, bool initialised, const char* phase) {
    for (const Probe& pr : probes) {
      long want = initialised ? pr.expected : QXNET_E_NOT_INIT;
      EXPECT_EQ(pr.fn(), want) << phase << ": " << pr.name;
      EXPECT_EQ(pr.fn(), want) << phase << ", again: " << pr.name;
    }
    if (initialised) {
      EXPECT_EQ(g_pInstance->DeviceCount(), 0u) << phase << ": a refused login left a session";
    }
  }

  std::string existing_, missing_;
};

TEST_F(BadInput, WalkCoversEveryForwardingExport) {
  std::set<std::string> covered;
  for (const Probe& p : ForwardingProbes(missing_, existing_)) covered.insert(p.name);
  std::set<std::string> expected(std::begin(sdktest::kForwardingExports), std::end(sdktest::kForwardingExports));
  EXPECT_EQ(covered, expected);
  EXPECT_EQ(covered.size(), 52u);
  std::set<std::string> hidden;
  for (const Probe& p : HiddenProbes()) hidden.insert(p.name);
  EXPECT_EQ(hidden, std::set<std::string>(std::begin(sdktest::kHiddenFunctions), std::end(sdktest::kHiddenFunctions)));
}

TEST_F(BadInput, ForwardingExportsBeforeInitDuringAndAfterFree) {
  std::vector<Probe> probes = ForwardingProbes(missing_, existing_);
  std::vector<Probe> hidden = HiddenProbes();
  ASSERT_EQ(g_pInstance, nullptr);
  Walk(probes, false, "before init");
  Walk(hidden, false, "before init");

  ASSERT_EQ(QXNet_init(), 0);
  Walk(probes, true, "initialised");
  Walk(hidden, true, "initialised");

  ASSERT_EQ(QXNet_Free(), 0);
  Walk(probes, false, "after free");
  Walk(hidden, false, "after free");

  // Again through a second life of the library, initialised twice in a row.
  ASSERT_EQ(QXNet_init(), 0);
  ASSERT_EQ(QXNet_init(), 0);
  Walk(probes, true, "re-initialised");
  Walk(hidden, true, "re-initialised");
  ASSERT_EQ(QXNet_Free(), 0);
  ASSERT_EQ(QXNet_Free(), 0);
  Walk(probes, false, "freed twice");
  Walk(hidden, false, "freed twice");
}

TEST_F(BadInput, LifecycleAndSettingsWorkInEveryState) {
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(QXNet_Free(), 0);
    EXPECT_EQ(QXNet_Free(), 0);
    EXPECT_STREQ(QXNet_GetSdkVersion(), "SDK_PC_V2.8.5_20171109_001");
    QXNet_SetSDKLogCallBack(nullptr);
    QXNet_SetSDKLogCallBack(nullptr);
    EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, INT_MIN), 0);
    EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, INT_MAX), 0);
    EXPECT_EQ(QXNet_SetAutoReconnect(INT_MIN), 0);
    EXPECT_EQ(QXNet_SetAutoReconnect(INT_MAX), 0);
    EXPECT_EQ(QXNet_initEx(INT_MIN), 0);
    EXPECT_EQ(QXNet_initEx(INT_MAX), 0) << "already initialised";
    EXPECT_EQ(g_nNetType, INT_MIN);
    EXPECT_EQ(QXNet_init(), 0);
    EXPECT_EQ(QXNet_init(), 0);
    EXPECT_STREQ(QXNet_GetSdkVersion(), "SDK_PC_V2.8.5_20171109_001");
    QXNet_SetSDKLogCallBack(nullptr);
    EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, -1), 0);
    EXPECT_EQ(QXNet_SetfcLogCallBackEx(nullptr, 31), 0);
    EXPECT_EQ(QXNet_SetAutoReconnect(-1), 0);
    EXPECT_EQ(QXNet_initEx(0), 0);
    EXPECT_EQ(QXNet_initEx(-1), 0);
  }
  EXPECT_EQ(QXNet_Free(), 0);
  EXPECT_EQ(QXNet_SetAutoReconnect(1), 0);
  sdktest::InstallLogCapture();
}

TEST_F(BadInput, KnownSessionWithNullArgumentsDoesNotCrash) {
  // The session layer answers for its own arguments; the core only must hand them on
  // without dereferencing anything itself.
  ASSERT_EQ(QXNet_init(), 0);
  long id = QXNet_LoginDev(C("127.0.0.1"), 8000, nullptr, nullptr, 1);
  ASSERT_NE(id, 0);
  std::vector<std::function<long()>> calls = {
      [id] { return QXNet_GetDevConfig(id, ULONG_MAX); },
      [id] { return QXNet_Loc_GetDVRConfig(id, 0, -1, nullptr, 0, nullptr); },
      [id] { return QXNet_SetDevConfig(id, 0, nullptr); },
      [id] { return QXNet_Loc_SetDVRConfig(id, 0, -1, nullptr, 0); },
      [id] { return QXNet_SystemControl(id, 0, nullptr); },
      [id] { return QXNet_Loc_SystemControl(id, 0, 0, nullptr); },
      [id] { return QXNet_Loc_WriteAUXStringEx(id, nullptr, 0, 0, nullptr); },
      [id] { return QXNet_Loc_GetUserData(id, nullptr, nullptr); },
      [id] { return QXNet_Loc_SetUserData(id, nullptr, -1); },
      [id] { return QXNet_Loc_GetUpgradeProgress(id); },
      [id] { return QXNet_Loc_GetUpgradeState(id); },
      [id] { return QXNet_Loc_CloseUpgradeHandle(id); },
      [id] { return QXNet_Loc_GetConfigFile(id, nullptr); },
      [id] { return QXNet_Loc_SetConfigFile(id, nullptr); },
      [id] { return QXNet_SearchNVRRecByTime(id, -1, nullptr); },
      [id] { return QXNet_NVRRecordDownload(id, -1, nullptr, nullptr, nullptr); },
      [id] { return QXNet_Loc_NVRRecordDownloadStop(id, -1); },
      [id] { return QXNet_Loc_NVRReplayByTime(id, -1, nullptr); },
      [id] { return QXNet_Loc_ControlNVRReplay(id, -1, -1, -1, nullptr); },
  };
  for (size_t i = 0; i < calls.size(); ++i) {
    long rc = calls[i]();
    EXPECT_NE(rc, QXNET_E_NO_DEVICE) << "call " << i;
    EXPECT_NE(rc, QXNET_E_NOT_INIT) << "call " << i;
  }
  EXPECT_EQ(QXNet_LogOutDev(id), 0);
  EXPECT_EQ(QXNet_LogOutDev(id), QXNET_E_NO_DEVICE);
}

}  // namespace
