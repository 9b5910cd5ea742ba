// The core object: device registry, request routing with its log texts, callback
// registries and their fan-out.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/fsuid.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "QXNetSDK.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "sdk_log_capture.h"
#include "search/search_loopback.h"
#include "search/search_test_util.h"
#include "session/DevComControl.h"

using sdktest::AsLogged;
using sdktest::CountLog;
using sdktest::CountLogPrefix;
using sdktest::Format;

namespace {

char* C(const char* s) { return const_cast<char*>(s); }

int g_statusCountOnly = 0;
long StatusCountOnly(long, long, char*, void*) {
  ++g_statusCountOnly;
  return 0;
}

class Core : public ::testing::Test {
 protected:
  void SetUp() override {
    sdktest::InstallLogCapture();
    ASSERT_EQ(QXNet_init(), 0);
    ASSERT_NE(g_pInstance, nullptr);
    sdktest::ClearLog();
  }
  void TearDown() override { QXNet_Free(); }

  // A session registered without any connection (nonzero flag).
  long Register(const char* ip = "127.0.0.1", unsigned long port = 8000) {
    long id = QXNet_LoginDev(C(ip), port, C("admin"), C("pw"), 1);
    EXPECT_NE(id, 0);
    return id;
  }
};

// ---------------------------------------------------------------- login and logout

TEST_F(Core, LoginRefusesPortZeroAnd65535AndNullAddress) {
  struct Case {
    const char* ip;
    unsigned long port;
  } cases[] = {{"127.0.0.1", 0}, {"127.0.0.1", 65535}, {nullptr, 8000}, {"127.0.0.1", 65536},
               {"127.0.0.1", ULONG_MAX}, {nullptr, 0}};
  for (const Case& c : cases) {
    for (int flag : {0, 1}) {
      sdktest::ClearLog();
      EXPECT_EQ(QXNet_LoginDev(C(c.ip), c.port, C("admin"), C("pw"), flag), 0)
          << (c.ip ? c.ip : "null") << ":" << c.port << " flag " << flag;
      const char* shown = c.ip ? c.ip : "(null)";
      EXPECT_EQ(CountLog(Format("[SDK_LoginDev] Begin login dev=%s \n", shown)), 1u);
      EXPECT_EQ(CountLog(Format("[SDK_LoginDev] Dev=%s login refused, input parameter invalid \n", shown)), 1u);
    }
    IP_NET_DVR_DEVICEINFO info;
    std::memset(&info, 0x5A, sizeof(info));
    EXPECT_EQ(QXNet_Loc_LoginDev(C(c.ip), c.port, C("admin"), C("pw"), &info), 0);
    for (size_t i = 0; i < sizeof(info); ++i) ASSERT_EQ(reinterpret_cast<uint8_t*>(&info)[i], 0x5A);
  }
  EXPECT_EQ(g_pInstance->DeviceCount(), 0u);
}

TEST_F(Core, LoginAcceptsPorts1And65534) {
  long a = QXNet_LoginDev(C("127.0.0.1"), 65534, C("admin"), C("pw"), 1);
  long b = QXNet_LoginDev(C("127.0.0.1"), 1, C("admin"), C("pw"), 1);
  EXPECT_NE(a, 0);
  EXPECT_NE(b, 0);
  EXPECT_EQ(CountLogPrefix("[SDK_LoginDev] Dev="), 0u);
  EXPECT_EQ(CountLog("[SDK_LoginDev] Begin login dev=127.0.0.1 \n"), 2u);
  EXPECT_EQ(g_pInstance->DeviceCount(), 2u);
  EXPECT_EQ(QXNet_LogOutDev(a), 0);
  EXPECT_EQ(QXNet_LogOutDev(b), 0);
}

TEST_F(Core, LoginRefusesFieldsLongerThan31Characters) {
  std::string s31(31, 'a'), s32(32, 'a');
  long ok = QXNet_LoginDev(C(s31.c_str()), 80, C(s31.c_str()), C(s31.c_str()), 1);
  EXPECT_NE(ok, 0);
  EXPECT_EQ(QXNet_LogOutDev(ok), 0);
  sdktest::ClearLog();
  EXPECT_EQ(QXNet_LoginDev(C(s32.c_str()), 80, C("u"), C("p"), 1), 0);
  EXPECT_EQ(CountLog(Format("[SDK_LoginDev] Dev=%s login refused, input parameter invalid \n", s32.c_str())), 1u);
  EXPECT_EQ(QXNet_LoginDev(C("127.0.0.1"), 80, C(s32.c_str()), C("p"), 1), 0);
  EXPECT_EQ(QXNet_LoginDev(C("127.0.0.1"), 80, C("u"), C(s32.c_str()), 1), 0);
  EXPECT_EQ(CountLog("[SDK_LoginDev] Dev=127.0.0.1 login refused, input parameter invalid \n"), 2u);
  // Null user and password count as empty.
  long n = QXNet_LoginDev(C("127.0.0.1"), 80, nullptr, nullptr, 1);
  EXPECT_NE(n, 0);
  EXPECT_EQ(QXNet_LogOutDev(n), 0);
  EXPECT_EQ(g_pInstance->DeviceCount(), 0u);
}

TEST_F(Core, TwoLoginsGiveTwoIdentifiersEqualToTheirSessions) {
  long a = Register();
  long b = Register();
  ASSERT_NE(a, 0);
  ASSERT_NE(b, 0);
  EXPECT_NE(a, b);
  CDevComControl* da = g_pInstance->FindDevComById(a, false).get();
  CDevComControl* db = g_pInstance->FindDevComById(b, false).get();
  ASSERT_NE(da, nullptr);
  ASSERT_NE(db, nullptr);
  EXPECT_EQ(reinterpret_cast<long>(da), a);
  EXPECT_EQ(reinterpret_cast<long>(db), b);
  // The identifier is usable as the session itself; a nonzero flag starts no worker.
  EXPECT_EQ(reinterpret_cast<CDevComControl*>(a)->SockFd(), -1);
  EXPECT_TRUE(da->ThreadExited());
  EXPECT_TRUE(db->ThreadExited());
  EXPECT_EQ(g_pInstance->DeviceCount(), 2u);
  EXPECT_EQ(QXNet_LogOutDev(a), 0);
  EXPECT_EQ(QXNet_Loc_LogoutDev(b), 0);
}

TEST_F(Core, LogoutOfUnknownOrTwiceReturnsNoDevice) {
  for (long bad : {0L, -1L, 1L, LONG_MAX, LONG_MIN, 0x12345678L}) {
    sdktest::ClearLog();
    EXPECT_EQ(QXNet_LogOutDev(bad), QXNET_E_NO_DEVICE);
    EXPECT_EQ(QXNet_Loc_LogoutDev(bad), -103);
    EXPECT_EQ(CountLog(Format("[SDK_LogoutDev] Logout refused, find dev by id=%ld failed \n", bad)), 2u);
  }
  long id = Register();
  std::string addr = g_pInstance->FindDevComById(id, false).get()->DevAddr();
  sdktest::ClearLog();
  EXPECT_EQ(QXNet_LogOutDev(id), 0);
  EXPECT_EQ(CountLog(Format("[SDK_LogoutDev] Begin logout dev=%s \n", addr.c_str())), 1u);
  EXPECT_EQ(QXNet_LogOutDev(id), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_LogoutDev(id), QXNET_E_NO_DEVICE);
  EXPECT_EQ(CountLog(Format("[SDK_LogoutDev] Logout refused, find dev by id=%ld failed \n", id)), 2u);
}

TEST_F(Core, IdentifiersAreComparedAtFullWidth) {
  long id = Register();
  // Same low 32 bits, different high half: another identifier.
  long twin = id ^ (1L << 40);
  EXPECT_EQ(g_pInstance->FindDevComById(twin, false).get(), nullptr);
  EXPECT_EQ(QXNet_LogOutDev(twin), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_RebootDVR(twin), QXNET_E_NO_DEVICE);
  long low = static_cast<long>(static_cast<uint32_t>(id));
  if (low != id) {
    // Heap addresses on this host are above 4 GiB: the truncated identifier names nothing.
    EXPECT_EQ(QXNet_LogOutDev(low), QXNET_E_NO_DEVICE);
  }
  EXPECT_EQ(g_pInstance->DeviceCount(), 1u);
  EXPECT_EQ(QXNet_LogOutDev(id), 0);
  EXPECT_EQ(g_pInstance->DeviceCount(), 0u);
}

TEST_F(Core, FindDevComByIdCanTakeTheSessionOut) {
  long id = Register();
  DevComPtr dev = g_pInstance->FindDevComById(id, true);
  ASSERT_NE(dev.get(), nullptr);
  EXPECT_EQ(reinterpret_cast<long>(dev.get()), id);
  EXPECT_EQ(g_pInstance->FindDevComById(id, false).get(), nullptr);
  EXPECT_EQ(QXNet_LogOutDev(id), QXNET_E_NO_DEVICE);
  EXPECT_EQ(dev.use_count(), 1);  // the caller holds the last reference now
}

int ReserveClosedPort() {
  // A port that was free a moment ago and has no listener: a connect to it is refused at once.
  int s = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  a.sin_port = 0;
  socklen_t len = sizeof(a);
  if (s < 0 || bind(s, reinterpret_cast<sockaddr*>(&a), sizeof(a)) != 0 ||
      getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
    if (s >= 0) close(s);
    return -1;
  }
  close(s);
  return ntohs(a.sin_port);
}

TEST_F(Core, LocLoginLeavesTheDeviceInfoUntouched) {
  int port = ReserveClosedPort();
  ASSERT_GT(port, 0);
  QXNet_SetAutoReconnect(0);
  IP_NET_DVR_DEVICEINFO info;
  std::memset(&info, 0xA5, sizeof(info));
  long id = QXNet_Loc_LoginDev(C("127.0.0.1"), static_cast<unsigned long>(port), C("admin"), C("pw"), &info);
  ASSERT_NE(id, 0);
  for (size_t i = 0; i < sizeof(info); ++i) ASSERT_EQ(reinterpret_cast<uint8_t*>(&info)[i], 0xA5) << i;
  // A real login: the session holds the address it was given.
  EXPECT_STREQ(reinterpret_cast<CDevComControl*>(id)->DevAddr(), "127.0.0.1");
  EXPECT_EQ(QXNet_Loc_LogoutDev(id), 0);
  for (size_t i = 0; i < sizeof(info); ++i) ASSERT_EQ(reinterpret_cast<uint8_t*>(&info)[i], 0xA5) << i;
  QXNet_SetAutoReconnect(1);
}

// ---------------------------------------------------------------- members no export calls

TEST_F(Core, InitMembersStartTheCoreThreadWhichEndsAtOnce) {
  EXPECT_FALSE(g_pInstance->IsRunning());
  EXPECT_EQ(g_pInstance->SDK_Init(), 0);
  EXPECT_EQ(CountLog("[SDK_Init] Netsdk init success!\n"), 1u);
  // The core thread has no periodic work: it logs its two lines and returns.
  for (int i = 0; i < 200 && CountLog(AsLogged("CNetSDKFunc::Thread(): CheckRtspConnect exit main loop!")) == 0; ++i)
    usleep(5000);
  EXPECT_EQ(CountLog(AsLogged("CRTSPObjectList::Thread(): CheckRtspConnect enter main loop....")), 1u);
  EXPECT_EQ(CountLog(AsLogged("CNetSDKFunc::Thread(): CheckRtspConnect exit main loop!")), 1u);
  sdktest::ClearLog();
  char monitor[] = "192.0.2.1";
  EXPECT_EQ(g_pInstance->SDK_InitEx(monitor), 0);
  EXPECT_EQ(CountLog("[SDK_Init] Netsdk init success!\n"), 1u);
  EXPECT_EQ(CountLog("[SDK_Init] Netsdk initex success, monitorip=192.0.2.1 \n"), 1u);
}

TEST_F(Core, CleanupLogsOutEverySessionAndKeepsTheCoreUsable) {
  long a = Register();
  long b = Register();
  int user = 0;
  ASSERT_EQ(QXNet_SetStatusEventCallBack(&StatusCountOnly, &user), 0);
  sdktest::ClearLog();
  EXPECT_EQ(g_pInstance->SDK_Cleanup(), 0);
  EXPECT_EQ(CountLog("[SDK_Cleanup] Netsdk cleanup!\n"), 1u);
  EXPECT_EQ(g_pInstance->DeviceCount(), 0u);
  EXPECT_EQ(QXNet_LogOutDev(a), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_LogOutDev(b), QXNET_E_NO_DEVICE);
  // Registrations are the core's, not the sessions': they stay.
  g_statusCountOnly = 0;
  g_pInstance->OnPostDevStatusMsg(nullptr, 5, nullptr);
  EXPECT_EQ(g_statusCountOnly, 1);
  long c = Register();
  EXPECT_NE(c, 0);
  EXPECT_EQ(QXNet_LogOutDev(c), 0);
}

// ---------------------------------------------------------------- status and aux registries

struct Call {
  long loginId;
  long code;
  char* data;
  void* user;
  int which;
};
std::vector<Call> g_calls;

long StatusA(long id, long code, char* data, void* user) {
  g_calls.push_back({id, code, data, user, 1});
  return 0;
}
long StatusB(long id, long code, char* data, void* user) {
  g_calls.push_back({id, code, data, user, 2});
  return 7;
}

TEST_F(Core, StatusRegistryKeepsOneEntryPerUser) {
  int user = 0;
  EXPECT_EQ(QXNet_SetStatusEventCallBack(&StatusA, &user), 0);
  EXPECT_EQ(CountLog("[SDK_SetStatusEventCallBack] Set status event callback \n"), 1u);
  EXPECT_EQ(QXNet_Loc_SetStatusEventCallBack(&StatusB, &user), 0);
  g_calls.clear();
  char text[] = "connected";
  void* dev = reinterpret_cast<void*>(0x1000);
  EXPECT_EQ(g_pInstance->OnPostDevStatusMsg(dev, 5, text), 0);
  ASSERT_EQ(g_calls.size(), 1u);
  EXPECT_EQ(g_calls[0].which, 2);
  EXPECT_EQ(g_calls[0].loginId, 0x1000);
  EXPECT_EQ(g_calls[0].code, 5);
  EXPECT_EQ(g_calls[0].data, text);
  EXPECT_EQ(g_calls[0].user, &user);

  // A null callback removes the entry; removing again is no error.
  EXPECT_EQ(QXNet_SetStatusEventCallBack(nullptr, &user), 0);
  EXPECT_EQ(QXNet_SetStatusEventCallBack(nullptr, &user), 0);
  g_calls.clear();
  g_pInstance->OnPostDevStatusMsg(dev, 5, text);
  EXPECT_TRUE(g_calls.empty());

  // A null user is refused and registers nothing.
  sdktest::ClearLog();
  EXPECT_EQ(QXNet_SetStatusEventCallBack(&StatusA, nullptr), QXNET_E_BAD_INDEX);
  EXPECT_EQ(QXNet_Loc_SetStatusEventCallBack(&StatusA, nullptr), -96);
  EXPECT_EQ(QXNet_SetStatusEventCallBack(nullptr, nullptr), -96);
  EXPECT_EQ(CountLog("[SDK_SetStatusEventCallBack] Set status event callback \n"), 3u);
  g_pInstance->OnPostDevStatusMsg(dev, 5, text);
  EXPECT_TRUE(g_calls.empty());
}

TEST_F(Core, AuxRegistryKeepsOneEntryPerUser) {
  int user = 0;
  EXPECT_EQ(QXNet_SetAuxResponseCallBack(&StatusA, &user), 0);
  EXPECT_EQ(CountLog("[SDK_SetAUXResponseCallBack] Set aux response callback \n"), 1u);
  EXPECT_EQ(QXNet_SetAuxResponseCallBack(&StatusB, &user), 0);
  g_calls.clear();
  g_pInstance->OnPostAuxRspMsg(reinterpret_cast<void*>(0x2000), 14008, 0, "<x/>");
  ASSERT_EQ(g_calls.size(), 1u);
  EXPECT_EQ(g_calls[0].which, 2);
  EXPECT_EQ(g_calls[0].loginId, 0x2000);
  EXPECT_EQ(g_calls[0].code, 14008);
  EXPECT_STREQ(g_calls[0].data, "<x/>");
  EXPECT_EQ(g_calls[0].user, &user);
  EXPECT_EQ(QXNet_SetAuxResponseCallBack(nullptr, &user), 0);
  g_calls.clear();
  g_pInstance->OnPostAuxRspMsg(nullptr, 1, 0, "");
  EXPECT_TRUE(g_calls.empty());
  EXPECT_EQ(QXNet_SetAuxResponseCallBack(&StatusA, nullptr), QXNET_E_BAD_INDEX);
  g_pInstance->OnPostAuxRspMsg(nullptr, 1, 0, "");
  EXPECT_TRUE(g_calls.empty());
  // The two registries are separate.
  EXPECT_EQ(QXNet_SetStatusEventCallBack(&StatusA, &user), 0);
  g_pInstance->OnPostAuxRspMsg(nullptr, 1, 0, "");
  EXPECT_TRUE(g_calls.empty());
}

// User pointers as keys: never dereferenced, ordered by their unsigned value.
std::vector<void*> Keys() {
  return {reinterpret_cast<void*>(uintptr_t{0xFFFF800000000000}), reinterpret_cast<void*>(uintptr_t{0x10}),
          reinterpret_cast<void*>(uintptr_t{0x7FFFFFFFFFFFFFF0}), reinterpret_cast<void*>(uintptr_t{0x80000000}),
          reinterpret_cast<void*>(uintptr_t{0x8000000000000000}), reinterpret_cast<void*>(uintptr_t{0x20})};
}
std::vector<void*> SortedKeys() {
  return {reinterpret_cast<void*>(uintptr_t{0x10}), reinterpret_cast<void*>(uintptr_t{0x20}),
          reinterpret_cast<void*>(uintptr_t{0x80000000}), reinterpret_cast<void*>(uintptr_t{0x7FFFFFFFFFFFFFF0}),
          reinterpret_cast<void*>(uintptr_t{0x8000000000000000}),
          reinterpret_cast<void*>(uintptr_t{0xFFFF800000000000})};
}

TEST_F(Core, CallbacksRunInAscendingOrderOfUserPointer) {
  for (void* k : Keys()) {
    ASSERT_EQ(QXNet_SetStatusEventCallBack(&StatusA, k), 0);
    ASSERT_EQ(QXNet_SetAuxResponseCallBack(&StatusB, k), 0);
  }
  g_calls.clear();
  g_pInstance->OnPostDevStatusMsg(nullptr, 6, nullptr);
  std::vector<void*> seen;
  for (const Call& c : g_calls) seen.push_back(c.user);
  EXPECT_EQ(seen, SortedKeys());
  g_calls.clear();
  g_pInstance->OnPostAuxRspMsg(nullptr, 5, 0, "");
  seen.clear();
  for (const Call& c : g_calls) seen.push_back(c.user);
  EXPECT_EQ(seen, SortedKeys());
}

// ---------------------------------------------------------------- aux code folding

TEST_F(Core, AuxCodeFoldsTheChannelIntoTheTopByte) {
  int user = 0;
  ASSERT_EQ(QXNet_SetAuxResponseCallBack(&StatusA, &user), 0);
  struct Case {
    unsigned int command;
    int channel;
    uint32_t expect;
  } cases[] = {
      {0x1234, 2, 0x02001234u},
      {0x1234, 0, 0x1234u},
      {0xAB001234u, 2, 0x02001234u},   // positive: the top byte is replaced
      {0xAB001234u, 0, 0xAB001234u},   // zero: the command as it is
      {0x1234, 255, 0xFF001234u},
      {0x1234, 0x12C, 0x2C001234u},    // only the low byte of the channel fits
      {0x1234, -1, 0xFF001234u},       // negative: added, 32-bit wrap-around
      {0x1234, -2, 0xFE001234u},
      {0xFFFFFFFFu, -1, 0xFEFFFFFFu},
      {0x05001234u, -1, 0x04001234u},  // negative does not mask the command
      {14008, -100, 14008u + (static_cast<uint32_t>(-100) << 24)},
      {0, INT_MIN, 0u},
      {0, INT_MAX, 0xFF000000u},
  };
  for (const Case& c : cases) {
    g_calls.clear();
    g_pInstance->OnPostAuxRspMsg(nullptr, c.command, c.channel, "body");
    ASSERT_EQ(g_calls.size(), 1u);
    // A 32-bit code handed on sign-extended.
    EXPECT_EQ(g_calls[0].code, static_cast<long>(static_cast<int32_t>(c.expect)))
        << std::hex << c.command << " ch " << std::dec << c.channel;
    EXPECT_EQ(CNetSDKFunc::FoldAuxCode(c.command, c.channel), static_cast<int32_t>(c.expect));
  }
}

// ---------------------------------------------------------------- alarm event 24

TEST_F(Core, AlarmEventWithAlarmCode24IsSwallowed) {
  int u1 = 0, u2 = 0;
  ASSERT_EQ(QXNet_SetStatusEventCallBack(&StatusA, &u1), 0);
  ASSERT_EQ(QXNet_SetStatusEventCallBack(&StatusB, &u2), 0);
  ALARM_ITEM item;
  std::memset(&item, 0, sizeof(item));
  item.nAlarmCode = 24;
  // The alarm code is the signed 32-bit field at byte 28.
  int32_t at28;
  std::memcpy(&at28, reinterpret_cast<char*>(&item) + 28, sizeof(at28));
  ASSERT_EQ(at28, 24);

  g_calls.clear();
  EXPECT_EQ(g_pInstance->OnPostDevStatusMsg(nullptr, QXNET_EV_ALARM, reinterpret_cast<char*>(&item)), 0);
  EXPECT_TRUE(g_calls.empty());

  for (int code : {0, 1, 23, 25, -24, 24 + 256, 0x18000000}) {
    item.nAlarmCode = code;
    g_calls.clear();
    EXPECT_EQ(g_pInstance->OnPostDevStatusMsg(nullptr, 24, reinterpret_cast<char*>(&item)), 0);
    ASSERT_EQ(g_calls.size(), 2u) << code;
    for (const Call& c : g_calls) {
      EXPECT_EQ(c.code, 24);
      EXPECT_EQ(c.data, reinterpret_cast<char*>(&item));
    }
  }
  // Another event whose data happens to hold 24 at byte 28 is passed on.
  item.nAlarmCode = 24;
  for (int event : {23, 25, 0, 55}) {
    g_calls.clear();
    g_pInstance->OnPostDevStatusMsg(nullptr, event, reinterpret_cast<char*>(&item));
    EXPECT_EQ(g_calls.size(), 2u) << event;
  }
}

// ---------------------------------------------------------------- replay data and play action

struct ReplayCall {
  long loginId;
  unsigned long type;
  unsigned char* buffer;
  unsigned long length;
  FRAME_EXTDATA* ext;
  void* userSeen;
  int which;
};
std::vector<ReplayCall> g_replay;
long ReplayA(long id, unsigned long type, unsigned char* buf, unsigned long len, FRAME_EXTDATA* ext) {
  g_replay.push_back({id, type, buf, len, ext, ext ? QXNet_FrameUser(ext) : nullptr, 1});
  return 0;
}
long ReplayB(long id, unsigned long type, unsigned char* buf, unsigned long len, FRAME_EXTDATA* ext) {
  g_replay.push_back({id, type, buf, len, ext, ext ? QXNet_FrameUser(ext) : nullptr, 2});
  return 0;
}

TEST_F(Core, ReplayRegistryWritesEachUserIntoTheFrameExtData) {
  FRAME_EXTDATA ext;
  std::memset(&ext, 0, sizeof(ext));
  unsigned char frame[16] = {0, 0, 0, 1, 0x65};
  void* dev = reinterpret_cast<void*>(0x3000);

  // No entries: nothing is called, the record is not touched.
  g_replay.clear();
  std::memset(&ext, 0xEE, sizeof(ext));
  g_pInstance->OnFReplayMediaData(dev, 1, frame, sizeof(frame), &ext);
  EXPECT_TRUE(g_replay.empty());
  for (size_t i = 0; i < sizeof(ext); ++i) ASSERT_EQ(reinterpret_cast<uint8_t*>(&ext)[i], 0xEE);

  // A null user is a key like any other.
  EXPECT_EQ(QXNet_Loc_SetReplayDataCallBack(&ReplayA, nullptr), 0);
  void* high = reinterpret_cast<void*>(uintptr_t{0x00007F1234567890});
  EXPECT_EQ(QXNet_Loc_SetReplayDataCallBack(&ReplayB, high), 0);
  ext.frame_type = 1;
  ext.timestamp = 40.0;
  ext.payload_type = 96;
  g_replay.clear();
  g_pInstance->OnFReplayMediaData(dev, 1, frame, sizeof(frame), &ext);
  ASSERT_EQ(g_replay.size(), 2u);
  EXPECT_EQ(g_replay[0].which, 1);
  EXPECT_EQ(g_replay[0].userSeen, nullptr);
  EXPECT_EQ(g_replay[1].which, 2);
  EXPECT_EQ(g_replay[1].userSeen, high);
  for (const ReplayCall& c : g_replay) {
    EXPECT_EQ(c.loginId, 0x3000);
    EXPECT_EQ(c.type, 1u);
    EXPECT_EQ(c.buffer, frame);
    EXPECT_EQ(c.length, sizeof(frame));
    EXPECT_EQ(c.ext, &ext);
  }
  // The low half in dwUser, the high half in dwUserHigh; the other fields as they were.
  EXPECT_EQ(ext.dwUser, 0x34567890u);
  EXPECT_EQ(ext.dwUserHigh, 0x00007F12u);
  EXPECT_EQ(ext.frame_type, 1u);
  EXPECT_EQ(ext.timestamp, 40.0);
  EXPECT_EQ(ext.payload_type, 96u);

  // Same key again replaces; a null callback removes.
  EXPECT_EQ(QXNet_Loc_SetReplayDataCallBack(&ReplayB, nullptr), 0);
  EXPECT_EQ(QXNet_Loc_SetReplayDataCallBack(nullptr, high), 0);
  g_replay.clear();
  g_pInstance->OnFReplayMediaData(dev, 2, frame, 3, &ext);
  ASSERT_EQ(g_replay.size(), 1u);
  EXPECT_EQ(g_replay[0].which, 2);
  EXPECT_EQ(g_replay[0].userSeen, nullptr);
  EXPECT_EQ(ext.dwUser, 0u);
  EXPECT_EQ(ext.dwUserHigh, 0u);

  // The hidden twin registers into the same registry.
  EXPECT_EQ(QXNet_SetReplayDataCallBack(&ReplayA, high), 0);
  g_replay.clear();
  g_pInstance->OnFReplayMediaData(dev, 2, frame, 3, &ext);
  ASSERT_EQ(g_replay.size(), 2u);
  EXPECT_EQ(g_replay[1].which, 1);
  EXPECT_EQ(g_replay[1].userSeen, high);
  EXPECT_EQ(QXNet_SetReplayDataCallBack(nullptr, high), 0);
  EXPECT_EQ(QXNet_Loc_SetReplayDataCallBack(nullptr, nullptr), 0);
  g_replay.clear();
  g_pInstance->OnFReplayMediaData(dev, 2, frame, 3, &ext);
  EXPECT_TRUE(g_replay.empty());
}

struct PlayCall {
  long dev, a, b;
  char* text;
  void* user;
  int which;
};
std::vector<PlayCall> g_play;
long PlayA(long dev, long a, long b, char* text, void* user) {
  g_play.push_back({dev, a, b, text, user, 1});
  return 0;
}
long PlayB(long dev, long a, long b, char* text, void* user) {
  g_play.push_back({dev, a, b, text, user, 2});
  return 0;
}

TEST_F(Core, PlayActionSlotHoldsOneCallback) {
  char text[] = "end";
  g_play.clear();
  EXPECT_EQ(g_pInstance->OnFRePlayEventCallBack(nullptr, 1, 2, text), -1);
  int u1 = 0, u2 = 0;
  EXPECT_EQ(QXNet_SetPlayActionEventCallBack(&PlayA, &u1), 0);
  EXPECT_EQ(g_pInstance->OnFRePlayEventCallBack(reinterpret_cast<void*>(0x4000), 3, -4, text), 0);
  ASSERT_EQ(g_play.size(), 1u);
  EXPECT_EQ(g_play[0].which, 1);
  EXPECT_EQ(g_play[0].dev, 0x4000);
  EXPECT_EQ(g_play[0].a, 3);
  EXPECT_EQ(g_play[0].b, -4);
  EXPECT_EQ(g_play[0].text, text);
  EXPECT_EQ(g_play[0].user, &u1);
  EXPECT_EQ(QXNet_SetPlayActionEventCallBack(&PlayB, &u2), 0);
  g_play.clear();
  EXPECT_EQ(g_pInstance->OnFRePlayEventCallBack(nullptr, 0, 0, nullptr), 0);
  ASSERT_EQ(g_play.size(), 1u);
  EXPECT_EQ(g_play[0].which, 2);
  EXPECT_EQ(g_play[0].user, &u2);
  // A null callback empties the slot.
  EXPECT_EQ(QXNet_SetPlayActionEventCallBack(nullptr, &u1), 0);
  g_play.clear();
  EXPECT_EQ(g_pInstance->OnFRePlayEventCallBack(nullptr, 0, 0, text), -1);
  EXPECT_TRUE(g_play.empty());
}

// ---------------------------------------------------------------- forwarding and its log texts

struct Route {
  const char* name;
  long (*call)(long id);
  const char* okText;      // success log format (%s = the session), or null
  const char* refuseText;  // refusal log format (%ld = the identifier)
};

char g_path[] = "/nonexistent-qxnet-dir/cfg.bin";
char g_empty[] = "";

const Route kRoutes[] = {
    {"GetDVRConfig",
     [](long id) {
       char out[16] = "";
       unsigned long ret = 0;
       return QXNet_Loc_GetDVRConfig(id, 1, 0, out, sizeof(out), &ret);
     },
     "[SDK_GetDVRConfig] Get device config, dev=%s",
     "[SDK_GetDVRConfig] Get device config refused, find dev by id=%ld failed \n"},
    {"GetDevConfig", [](long id) { return QXNet_GetDevConfig(id, 1); }, "[SDK_GetDVRConfig] Get device config, dev=%s",
     "[SDK_GetDVRConfig] Get device config refused, find dev by id=%ld failed \n"},
    {"SetDVRConfig", [](long id) { return QXNet_Loc_SetDVRConfig(id, 1, 0, g_empty, 0); },
     "[SDK_SetDVRConfig] Set device config, dev=%s",
     "[SDK_SetDVRConfig] Set device config refused, find dev by id=%ld failed \n"},
    {"SetDevConfig", [](long id) { return QXNet_SetDevConfig(id, 1, g_empty); },
     "[SDK_SetDVRConfig] Set device config, dev=%s",
     "[SDK_SetDVRConfig] Set device config refused, find dev by id=%ld failed \n"},
    {"SystemControl", [](long id) { return QXNet_SystemControl(id, 14020, g_empty); },
     "[SDK_SystemControl] System control, dev=%s \n",
     "[SDK_SystemControl] System control refused, find dev by id=%ld failed \n"},
    {"Loc_SystemControl", [](long id) { return QXNet_Loc_SystemControl(id, 14020, 0, g_empty); },
     "[SDK_SystemControl] System control, dev=%s \n",
     "[SDK_SystemControl] System control refused, find dev by id=%ld failed \n"},
    {"WriteAUXStringEx", [](long id) { return QXNet_Loc_WriteAUXStringEx(id, C("10000"), 14020, 0, g_empty); },
     "[SDK_WriteAUXStringEx] WriteAUXStringEx, dev=%s \n",
     "[SDK_WriteAUXStringEx] WriteAUXStringEx refused, find dev by id=%ld failed \n"},
    {"GetConfigFile", [](long id) { return QXNet_Loc_GetConfigFile(id, g_path); },
     "[SDK_GetConfigFile] Get config file, dev=%s \n",
     "[SDK_GetConfigFile] Get config file failed, find dev id=%ld failed \n"},
    {"SetConfigFile", [](long id) { return QXNet_Loc_SetConfigFile(id, g_path); },
     "[SDK_SetConfigFile] Set config file, dev=%s \n",
     "[SDK_SetConfigFile] Set config file failed, find dev id=%ld failed \n"},
    {"GetUserData",
     [](long id) {
       char buf[64];
       int len = sizeof(buf);
       return QXNet_Loc_GetUserData(id, buf, &len);
     },
     "[SDK_GetUserData] GetUserData, dev=%s \n", "[SDK_GetUserData] GetUserData refused, find dev id=%ld failed \n"},
    {"SetUserData",
     [](long id) {
       char data[8] = "abc";
       return QXNet_Loc_SetUserData(id, data, 3);
     },
     "[SDK_SetUserData] SetUserData, dev=%s \n", "[SDK_SetUserData] SetUserData refused, find dev id=%ld failed \n"},
    {"RestoreConfig", [](long id) { return QXNet_Loc_RestoreConfig(id); }, "[SDK_RestoreConfig] RestoreConfig, dev=%s \n",
     "[SDK_RestoreConfig] RestoreConfig refused, find dev id=%ld failed \n"},
    {"RebootDVR", [](long id) { return QXNet_Loc_RebootDVR(id); }, "[SDK_RebootDVR] RebootDVR, dev=%s \n",
     "[SDK_RebootDVR] RebootDVR refused, find dev id=%ld failed \n"},
    {"GetUpgradeProgress", [](long id) { return QXNet_Loc_GetUpgradeProgress(id); }, nullptr,
     "[SDK_GetUpgradeProgress] Get upgrade progress refused, find dev id=%ld failed \n"},
    {"GetUpgradeState", [](long id) { return QXNet_Loc_GetUpgradeState(id); }, nullptr,
     "[SDK_GetUpgradeState] Get upgrade state refused, find dev id=%ld failed \n"},
    {"CloseUpgradeHandle", [](long id) { return QXNet_Loc_CloseUpgradeHandle(id); }, nullptr,
     "[SDK_CloseUpgradeHandle] Close upgrade handle refused, find dev id=%ld failed \n"},
    {"SearchNVRRecByTime", [](long id) { return QXNet_SearchNVRRecByTime(id, 1, C("20240101000000")); }, nullptr,
     "[SDK_SearchNVRRecByTime] NVR record search failed, find dev id=%ld failed \n"},
    {"Loc_SearchNVRRecByTime", [](long id) { return QXNet_Loc_SearchNVRRecByTime(id, 1, C("20240101000000")); },
     nullptr, "[SDK_SearchNVRRecByTime] NVR record search failed, find dev id=%ld failed \n"},
    // The start and stop refusal texts are each other's words, kept as they are.
    {"NVRRecordDownload", [](long id) { return QXNet_NVRRecordDownload(id, 1, g_empty, g_empty, g_path); }, nullptr,
     "[SDK_NVRRecordDownload] Stop NVR record download failed, find dev id=%ld failed \n"},
    {"Loc_NVRRecordDownload", [](long id) { return QXNet_Loc_NVRRecordDownload(id, 1, g_empty, g_empty, g_path); },
     nullptr, "[SDK_NVRRecordDownload] Stop NVR record download failed, find dev id=%ld failed \n"},
    {"Loc_NVRRecordDownloadStop", [](long id) { return QXNet_Loc_NVRRecordDownloadStop(id, 1); }, nullptr,
     "[SDK_NVRRecordDownloadStop] Search NVR record failed, find dev id=%ld failed \n"},
    {"NVRRecordDownloadStop", [](long id) { return QXNet_NVRRecordDownloadStop(id, 1); }, nullptr,
     "[SDK_NVRRecordDownloadStop] Search NVR record failed, find dev id=%ld failed \n"},
    {"Loc_NVRReplayByTime", [](long id) { return QXNet_Loc_NVRReplayByTime(id, 1, C("20240101000000")); }, nullptr,
     "[SDK_NVRReplayByTime] NVR replay failed, find dev id=%ld failed \n"},
    {"NVRReplayByTime", [](long id) { return QXNet_NVRReplayByTime(id, 1, C("20240101000000")); }, nullptr,
     "[SDK_NVRReplayByTime] NVR replay failed, find dev id=%ld failed \n"},
    {"Loc_ControlNVRReplay", [](long id) { return QXNet_Loc_ControlNVRReplay(id, 1, 3, 1, g_empty); }, nullptr,
     "[SDK_ControlNVRReplay] Control NVR replay failed, find dev id=%ld failed \n"},
    {"ControlNVRReplay", [](long id) { return QXNet_ControlNVRReplay(id, 1, 3, 1, g_empty); }, nullptr,
     "[SDK_ControlNVRReplay] Control NVR replay failed, find dev id=%ld failed \n"},
    {"SearchNvrRecByMonth", [](long id) { return g_pInstance->SDK_SearchNvrRecByMonth(id, 1, C("202401")); }, nullptr,
     "[SDK_SearchNvrRecByMonth] failed, find dev id=%ld failed \n"},
};

TEST_F(Core, RequestsForAnUnknownIdentifierLogTheirRefusal) {
  long unknown = 0x7654321L;
  for (const Route& r : kRoutes) {
    sdktest::ClearLog();
    EXPECT_EQ(r.call(unknown), QXNET_E_NO_DEVICE) << r.name;
    std::vector<sdktest::LogLine> lines = sdktest::LogLines();
    ASSERT_EQ(lines.size(), 1u) << r.name;
    EXPECT_EQ(lines[0].text, Format(r.refuseText, unknown)) << r.name;
    EXPECT_EQ(lines[0].level, 0u) << r.name;
  }
}

TEST_F(Core, RequestsForAKnownIdentifierReachTheSession) {
  long id = Register();
  ASSERT_NE(id, 0);
  CDevComControl* dev = g_pInstance->FindDevComById(id, false).get();
  ASSERT_NE(dev, nullptr);
  for (const Route& r : kRoutes) {
    sdktest::ClearLog();
    long rc = r.call(id);
    EXPECT_NE(rc, QXNET_E_NO_DEVICE) << r.name;
    EXPECT_NE(rc, QXNET_E_NOT_INIT) << r.name;
    EXPECT_EQ(CountLog(Format(r.refuseText, id)), 0u) << r.name;
    if (r.okText) {
      // The success text names the session by its device address.
      EXPECT_EQ(CountLog(AsLogged(Format(r.okText, dev->DevAddr()))), 1u) << r.name;
    } else {
      EXPECT_EQ(CountLogPrefix("[SDK_"), 0u) << r.name;
    }
  }
  EXPECT_EQ(QXNet_LogOutDev(id), 0);
}

TEST_F(Core, ForwardedResultsAreTheSessionsOwn) {
  long id = Register();
  CDevComControl* dev = g_pInstance->FindDevComById(id, false).get();
  ASSERT_NE(dev, nullptr);
  // The progress and state queries have no side effects, so the session can be asked
  // directly for comparison.
  EXPECT_EQ(QXNet_Loc_GetUpgradeProgress(id), dev->GetUploadProgress());
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id), dev->GetUploadState());
  EXPECT_EQ(QXNet_LogOutDev(id), 0);
}

// ---------------------------------------------------------------- upgrade file checks

// A file that this process can read but not write. Root bypasses permission bits, so for
// root the file-system identity of this thread is switched to an ordinary user while
// the checks run.
class ReadOnlyFile {
 public:
  ReadOnlyFile() {
    char tmpl[] = "/tmp/qxnet_sdk_ro_XXXXXX";
    int fd = mkstemp(tmpl);
    if (fd >= 0) {
      (void)!write(fd, "firmware", 8);
      close(fd);
      path_ = tmpl;
      chmod(tmpl, 0444);
    }
  }
  ~ReadOnlyFile() {
    Restore();
    if (!path_.empty()) unlink(path_.c_str());
  }
  // Drops write access for this thread; true when the file is then read-only to it.
  bool Enter() {
    if (geteuid() == 0) {
      setfsuid(65534);
      switched_ = setfsuid(65534) == 65534;
    }
    FILE* w = std::fopen(path_.c_str(), "rb+");
    if (w) {
      std::fclose(w);
      return false;
    }
    FILE* r = std::fopen(path_.c_str(), "rb");
    if (!r) return false;
    std::fclose(r);
    return true;
  }
  void Restore() {
    if (switched_) setfsuid(0);
    switched_ = false;
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  bool switched_ = false;
};

std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

TEST_F(Core, UpgradeNeedsAWritableFileWhileUpgradeExReadsOnly) {
  ReadOnlyFile file;
  ASSERT_FALSE(file.path().empty());
  ASSERT_TRUE(file.Enter()) << "could not make a read-only file for this thread";
  long unknown = 0x5151L;
  long id = Register();
  std::wstring wpath = Wide(file.path());

  sdktest::ClearLog();
  long up = QXNet_Loc_Upgrade(unknown, file.path().c_str());
  long upKnown = QXNet_Loc_Upgrade(id, file.path().c_str());
  long upEx = QXNet_Loc_UpgradeEx(unknown, wpath.c_str());
  file.Restore();

  EXPECT_EQ(up, QXNET_E_FILE);
  EXPECT_EQ(upKnown, QXNET_E_FILE) << "the file is checked before the identifier";
  EXPECT_EQ(CountLog(Format("[SDK_Upgrade] Upgrade refused, error file=%s \n", file.path().c_str())), 2u);
  EXPECT_EQ(CountLogPrefix("[SDK_Upgrade] Upgrade refused, find dev"), 0u);
  // The wide form only needs read access and goes on to the lookup.
  EXPECT_EQ(upEx, QXNET_E_NO_DEVICE);
  EXPECT_EQ(CountLog(Format("[SDK_UpgradeEx] Upgrade refused, find dev id=%ld failed \n", unknown)), 1u);
  EXPECT_EQ(CountLogPrefix("[SDK_UpgradeEx] Upgrade refused, error file="), 0u);
  EXPECT_EQ(QXNet_LogOutDev(id), 0);
}

TEST_F(Core, UpgradeChecksTheFileBeforeTheIdentifier) {
  long unknown = 0x5152L;
  sdktest::ClearLog();
  EXPECT_EQ(QXNet_Loc_Upgrade(unknown, nullptr), QXNET_E_FILE);
  EXPECT_EQ(CountLog("[SDK_Upgrade] Upgrade refused, file is null \n"), 1u);
  EXPECT_EQ(QXNet_Loc_UpgradeEx(unknown, nullptr), QXNET_E_FILE);
  EXPECT_EQ(CountLog("[SDK_UpgradeEx] Upgrade refused, file is null \n"), 1u);

  const char* missing = "/nonexistent-qxnet-dir/fw.bin";
  EXPECT_EQ(QXNet_Loc_Upgrade(unknown, missing), QXNET_E_FILE);
  EXPECT_EQ(CountLog(Format("[SDK_Upgrade] Upgrade refused, error file=%s \n", missing)), 1u);
  EXPECT_EQ(QXNet_Loc_UpgradeEx(unknown, L"/nonexistent-qxnet-dir/fw.bin"), QXNET_E_FILE);
  EXPECT_EQ(CountLog(Format("[SDK_UpgradeEx] Upgrade refused, error file=%s \n", missing)), 1u);
  EXPECT_EQ(QXNet_Loc_Upgrade(unknown, ""), QXNET_E_FILE);
  EXPECT_EQ(QXNet_Loc_UpgradeEx(unknown, L""), QXNET_E_FILE);
  EXPECT_EQ(CountLogPrefix("[SDK_Upgrade] Upgrade refused, find dev"), 0u);
  EXPECT_EQ(CountLogPrefix("[SDK_UpgradeEx] Upgrade refused, find dev"), 0u);

  // A readable and writable file passes the check for both and meets the lookup.
  char tmpl[] = "/tmp/qxnet_sdk_rw_XXXXXX";
  int fd = mkstemp(tmpl);
  ASSERT_GE(fd, 0);
  close(fd);
  sdktest::ClearLog();
  EXPECT_EQ(QXNet_Loc_Upgrade(unknown, tmpl), QXNET_E_NO_DEVICE);
  EXPECT_EQ(CountLog(Format("[SDK_Upgrade] Upgrade refused, find dev id=%ld failed \n", unknown)), 1u);
  EXPECT_EQ(QXNet_Loc_UpgradeEx(unknown, Wide(tmpl).c_str()), QXNET_E_NO_DEVICE);
  EXPECT_EQ(CountLog(Format("[SDK_UpgradeEx] Upgrade refused, find dev id=%ld failed \n", unknown)), 1u);
  // A known session gets the success text.
  long id = Register();
  CDevComControl* dev = g_pInstance->FindDevComById(id, false).get();
  sdktest::ClearLog();
  EXPECT_NE(QXNet_Loc_Upgrade(id, tmpl), QXNET_E_NO_DEVICE);
  EXPECT_EQ(CountLog(Format("[SDK_Upgrade] Upgrade, dev=%s \n", dev->DevAddr())), 1u);
  EXPECT_NE(QXNet_Loc_UpgradeEx(id, Wide(tmpl).c_str()), QXNET_E_NO_DEVICE);
  EXPECT_EQ(CountLog(Format("[SDK_UpgradeEx] Upgrade, dev=%s \n", dev->DevAddr())), 1u);
  EXPECT_EQ(QXNet_LogOutDev(id), 0);
  // The file is closed again and left as it was.
  struct stat st;
  ASSERT_EQ(stat(tmpl, &st), 0);
  EXPECT_EQ(st.st_size, 0);
  unlink(tmpl);
}

// ---------------------------------------------------------------- discovery forwards

// The search started below stays on the loopback interface.
const bool kLoopback = searchtest::InstallLoopbackSearchNetwork();

TEST_F(Core, DiscoveryForwardsLogTheirText) {
  struct D {
    long (*call)();
    const char* text;
  } ds[] = {
      {[] { return QXNet_SetSearchDevStatusCallBack(nullptr, nullptr); },
       "[SDK_SetSearchStatusCallBack] Set search device callback \n"},
      {[] { return QXNet_Loc_StartSearchIPC(); }, "[SDK_StartSearchIPC] Start search device \n"},
      {[] { return QXNet_StopSearchDev(); }, "[SDK_StopSearchIPC] Stop search device \n"},
      {[] { return QXNet_GetSearchIPCCount(); }, "[SDK_GetSearchIPCCount] Get search ipc count \n"},
      {[] {
         __NetSDK_IPC_ENTRYV2 e{};
         return QXNet_Loc_GetIPCInfo(0, &e);
       },
       "[SDK_GetIPCInfo] Get search ipc info \n"},
      {[] {
         __NetSDK_IPC_ENTRYV2 e{};
         return QXNet_Loc_ModifyIPC(0, &e);
       },
       "[SDK_ModifyIPC] Modify ipc by ipc_entry \n"},
      {[] {
         char buf[64];
         return QXNet_Loc_GetIPCInfoXML(0, buf, sizeof(buf));
       },
       "[SDK_GetIPCInfoXML] Get search ipc xml info \n"},
      {[] { return QXNet_Loc_ModifyIPCXML(0, "<x/>"); }, "[SDK_ModifyIPCXML] Modify ipc by xml \n"},
      {[] {
         char buf[64];
         return QXNet_GetOneIPAddress(buf, sizeof(buf));
       },
       "[SDK_GetOneIPAddress] Get one ipc address \n"},
      {[] {
         char buf[64];
         return QXNet_Loc_GetNetworkParam(0, buf, sizeof(buf));
       },
       "[SDK_GetNetworkParam] Get network param \n"},
      {[] {
         __NetSDK_IPC_ENTRYV2 e{};
         return QXNet_RestoreIPC(0, &e);
       },
       "[SDK_RestoreIPC] Restore ipc \n"},
  };
  for (const D& d : ds) {
    sdktest::ClearLog();
    d.call();
    std::vector<sdktest::LogLine> lines = sdktest::LogLines();
    ASSERT_EQ(lines.size(), 1u) << d.text;
    EXPECT_EQ(lines[0].text, d.text);
    EXPECT_EQ(lines[0].level, 0u);
  }
}

long SearchCb(long, long, __NetSDK_IPC_ENTRYV2*, void*) { return 0; }

TEST_F(Core, SearchCallbackSetterReachesDiscovery) {
  int user = 0;
  EXPECT_EQ(QXNet_SetSearchDevStatusCallBack(&SearchCb, &user), 0);
  EXPECT_EQ(g_pInstance->Search().Callback(), &SearchCb);
  EXPECT_EQ(g_pInstance->Search().CallbackUser(), &user);
  EXPECT_EQ(QXNet_Loc_SetSearchStatusCallBack(nullptr, nullptr), 0);
  EXPECT_EQ(g_pInstance->Search().Callback(), nullptr);
  EXPECT_EQ(g_pInstance->Search().CallbackUser(), nullptr);
}

// ---------------------------------------------------------------- first-generation records

constexpr size_t kV1 = QXNET_IPC_ENTRY_V1_SIZE;

// One device in the core's table, as the discovery worker would have stored it.
void AddFoundDevice() {
  std::string a = searchtest::Answer(searchtest::Device());
  g_pInstance->Search().HandleDatagram(a.c_str(), static_cast<int>(a.size()));
  ASSERT_EQ(QXNet_GetSearchIPCCount(), 1);
}

TEST_F(Core, PlainGetIPCInfoWritesExactlyTheFirstGenerationRecord) {
  ASSERT_EQ(kV1, 4232u);
  AddFoundDevice();
  __NetSDK_IPC_ENTRYV2 whole;
  std::memset(&whole, 0, sizeof(whole));
  ASSERT_EQ(QXNet_Loc_GetIPCInfo(0, &whole), 0);
  EXPECT_STREQ(whole.szOsdStr, "Front door");  // beyond the first-generation bytes
  __NetSDK_IPC_ENTRYV2 e;
  std::memset(&e, 0xC3, sizeof(e));
  EXPECT_EQ(QXNet_GetIPCInfo(0, &e), 0);
  const uint8_t* p = reinterpret_cast<const uint8_t*>(&e);
  const uint8_t* w = reinterpret_cast<const uint8_t*>(&whole);
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(p[i], w[i]) << "byte " << i;
  for (size_t i = kV1; i < sizeof(e); ++i) ASSERT_EQ(p[i], 0xC3) << "byte " << i << " written";

  // An empty slot: -96, and the whole-record form leaves the caller's record untouched.
  std::memset(&e, 0xC3, sizeof(e));
  EXPECT_EQ(QXNet_Loc_GetIPCInfo(1, &e), QXNET_E_BAD_INDEX);
  for (size_t i = 0; i < sizeof(e); ++i) ASSERT_EQ(p[i], 0xC3) << "byte " << i;
}

TEST_F(Core, PlainModifyAndRestoreReadOnlyTheFirstGenerationRecord) {
  AddFoundDevice();
  // A buffer of exactly 4232 bytes: a read past it is caught by the address sanitizer,
  // and the record is never written.
  uint8_t* v1 = static_cast<uint8_t*>(std::malloc(kV1));
  ASSERT_NE(v1, nullptr);
  std::memset(v1, 0x3C, kV1);
  auto* e = reinterpret_cast<__NetSDK_IPC_ENTRYV2*>(v1);
  EXPECT_EQ(QXNet_ModifyIPC(0, e), 0);  // sent to a loopback port nobody reads
  EXPECT_EQ(QXNet_RestoreIPC(3, e), QXNET_E_BAD_INDEX);
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(v1[i], 0x3C);
  // The stored record is the caller's 4232 bytes followed by zeros.
  __NetSDK_IPC_ENTRYV2 stored;
  ASSERT_EQ(QXNet_Loc_GetIPCInfo(0, &stored), 0);
  EXPECT_EQ(stored.szHardwareType[0], 0x3C);
  EXPECT_EQ(stored.dwMagic, 0u);
  EXPECT_STREQ(stored.szOsdStr, "");
  // Same before init: the record is read, then -201.
  ASSERT_EQ(QXNet_Free(), 0);
  EXPECT_EQ(QXNet_ModifyIPC(0, e), QXNET_E_NOT_INIT);
  EXPECT_EQ(QXNet_RestoreIPC(0, e), QXNET_E_NOT_INIT);
  EXPECT_EQ(QXNet_GetIPCInfo(0, e), QXNET_E_NOT_INIT);
  for (size_t i = 0; i < kV1; ++i) ASSERT_EQ(v1[i], 0x3C);
  std::free(v1);
}

}  // namespace
