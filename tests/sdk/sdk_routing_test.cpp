// Request routing from the exports through the core to the real session: which session
// method each export reaches, with which arguments (the fixed values that the plain
// forms fill in), and that the session's result comes back unchanged. The session is
// registered through the exports and its socket is one end of a socket pair, so each
// request is seen as the frame it puts on the wire; the file an upload names is seen in
// the event the device's refusal causes; a login is seen by a listener on 127.0.0.1.
#include <errno.h>
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "QXNetSDK.h"
#include "ops/ops_files.h"
#include "ops/ops_harness.h"
#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/DevComControl.h"
#include "session/capture.h"

using opstest::Answer;
using opstest::Request;
using qxtest::Capture;
using qxtest::Event;

namespace {

const long kChunk = QXNET_UPLOAD_CHUNK;

char* C(const char* s) { return const_cast<char*>(s); }

std::vector<Event> EventsOf(long code) {
  std::vector<Event> out;
  for (const Event& e : Capture::Get().Events())
    if (e.code == code) out.push_back(e);
  return out;
}

class Routing : public opstest::RegisteredSessionTest {
 protected:
  // The next frame the session sends: its payload, after checking the frame flag.
  std::string Sent() {
    std::string payload = SendNext();
    std::vector<uint32_t> flags = peer_->Flags();
    EXPECT_FALSE(flags.empty());
    if (!flags.empty()) {
      EXPECT_EQ(flags.back(), static_cast<uint32_t>(QXNET_FRAME_FLAG));
    }
    return payload;
  }
  // Nothing was queued: the session has no worker, so nothing else can go out.
  void ExpectNothingQueued(const char* what) { EXPECT_EQ(dev_->QueuedCount(), 0) << what; }
  // A file of `size` pattern bytes under the test's directory.
  std::string MakeFile(const std::string& name, size_t size) {
    std::string path = tmp_.File(name);
    EXPECT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(size, 11)));
    return path;
  }
  // The device refuses the announced upload (answer `cmd` with a nonzero result).
  void Refuse(int cmd) { Feed(Answer("20000", std::to_string(cmd), "-1", "<body></body>")); }

  opstest::TempDir tmp_;
};

// ---- configuration and control

// Get and set are one request on the wire (the device tells them apart by the code);
// channel and size stay in the session. So the frame pins the code and the body.
TEST_F(Routing, GetDevConfigAsksWithChannel0AndAnEmptyBody) {
  EXPECT_EQ(QXNet_GetDevConfig(id_, 77), 0);
  EXPECT_EQ(Sent(), Request("10000", "77", "0", ""));
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_GetDVRConfig] Get device config, dev="), 1);
}

TEST_F(Routing, LocGetDVRConfigSendsTheCallersCodeAndBodyAndLeavesReturnedAlone) {
  char body[64] = "<VideoEncode Channel=\"2\"/>";
  unsigned long returned = 0xABCDu;
  EXPECT_EQ(QXNet_Loc_GetDVRConfig(id_, 77, -2, body, sizeof(body), &returned), 0);
  EXPECT_EQ(Sent(), Request("10000", "77", "0", "<VideoEncode Channel=\"2\"/>"));
  EXPECT_EQ(returned, 0xABCDu) << "the returned-size pointer is not used";
  EXPECT_STREQ(body, "<VideoEncode Channel=\"2\"/>");
  EXPECT_EQ(QXNet_Loc_GetDVRConfig(id_, 1, 0, nullptr, 0, nullptr), 0);
  EXPECT_EQ(Sent(), Request("10000", "1", "0", ""));
}

TEST_F(Routing, SetDevConfigAndItsTwinSendTheCallersCodeAndBody) {
  char body[] = "<Osd Show=\"1\"/>";
  EXPECT_EQ(QXNet_SetDevConfig(id_, 78, body), 0);
  EXPECT_EQ(Sent(), Request("10000", "78", "0", body));
  // The size does not cut the body: the session sends the text.
  EXPECT_EQ(QXNet_Loc_SetDVRConfig(id_, 78, 9, body, 5), 0);
  EXPECT_EQ(Sent(), Request("10000", "78", "0", body));
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_SetDVRConfig] Set device config, dev="), 2);
}

TEST_F(Routing, SystemControlPlainFormSendsSubCommand0) {
  char text[] = "<Serial Baud=\"9600\"/>";
  EXPECT_EQ(QXNet_SystemControl(id_, 14035, text), 0);
  EXPECT_EQ(Sent(), Request("20000", "14035", "0", text));
  EXPECT_EQ(QXNet_Loc_SystemControl(id_, 14035, 4, text), 0);
  EXPECT_EQ(Sent(), Request("20000", "14035", "4", text));
}

TEST_F(Routing, RestoreAndRebootAreSystemControlsWithSubCommand0AndNoBody) {
  EXPECT_EQ(QXNet_Loc_RestoreConfig(id_), 0);
  EXPECT_EQ(Sent(), Request("20000", "14011", "0", ""));
  EXPECT_EQ(QXNet_Loc_RebootDVR(id_), 0);
  EXPECT_EQ(Sent(), Request("20000", "14008", "0", ""));
}

TEST_F(Routing, WriteAuxStringExPutsEachArgumentInItsPlace) {
  char type[] = "40000", body[] = "<q/>";
  EXPECT_EQ(QXNet_Loc_WriteAUXStringEx(id_, type, 14001, 3, body), 0);
  EXPECT_EQ(Sent(), Request("40000", "14001", "3", "<q/>"));
  // The session's refusal of a missing type comes back as it is.
  EXPECT_EQ(QXNet_Loc_WriteAUXStringEx(id_, nullptr, 14001, 3, body), QXNET_E_MISSING_ARG);
  ExpectNothingQueued("no type");
}

TEST_F(Routing, UserDataRequestsUseTheCallersBufferAndLength) {
  char buf[8] = "keepme";
  int len = 77;
  EXPECT_EQ(QXNet_Loc_GetUserData(id_, buf, &len), 0);
  EXPECT_EQ(Sent(), Request("SYSTEM_CONTROL_MESSAGE", "14034", "0", ""));
  EXPECT_STREQ(buf, "keepme");
  EXPECT_EQ(len, 77);
  // Exactly `length` bytes are sent, and the zero byte lands just behind them.
  char data[6] = {'\x01', '\xab', '\x00', 'Z', 'Q', 'R'};
  EXPECT_EQ(QXNet_Loc_SetUserData(id_, data, 4), 0);
  EXPECT_EQ(Sent(), Request("SYSTEM_CONTROL_MESSAGE", "14033", "0", "<REQUEST_PARAM UserDevData=\"01ab005a\" />"));
  EXPECT_EQ(data[4], '\0');
  EXPECT_EQ(data[5], 'R');
  EXPECT_EQ(QXNet_Loc_SetUserData(id_, nullptr, 3), QXNET_E_MISSING_ARG);
  ExpectNothingQueued("no data");
}

// ---- upgrade and files

TEST_F(Routing, UpgradeAnnouncesTheCallersFileAsFirmwareOfType1) {
  const std::string path = MakeFile("fw.bin", 1000);
  EXPECT_EQ(QXNet_Loc_Upgrade(id_, path.c_str()), 0);
  EXPECT_EQ(Sent(), Request("20000", "20001", "0", "<firmwareLength>1000</firmwareLength>"));
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_Upgrade] Upgrade, dev="), 1);
  // The refusal event names the file type and the path the session was given.
  Refuse(20001);
  auto ev = EventsOf(QXNET_EV_UPGRADE_FAILED);
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].loginId, id_);
  EXPECT_EQ(ev[0].text, opstest::OpenFailedText(1, path));
}

TEST_F(Routing, UpgradeWhileOneRunsComesBackBusy) {
  const std::string first = MakeFile("fw1.bin", 10);
  const std::string second = MakeFile("fw2.bin", 20);
  ASSERT_EQ(QXNet_Loc_Upgrade(id_, first.c_str()), 0);
  Sent();
  EXPECT_EQ(QXNet_Loc_Upgrade(id_, second.c_str()), QXNET_E_BUSY);
  ExpectNothingQueued("busy");
  EXPECT_EQ(Capture::Get().CountLogs("[UploadFile]just now is uploading file " + first +
                                     ", new file can't be upload \n"),
            1);
}

TEST_F(Routing, UpgradeExAnnouncesTheCallersWideFileAsFirmwareOfType1) {
  const std::string path = MakeFile("fw-wide.bin", 4321);
  const std::wstring wide(path.begin(), path.end());
  EXPECT_EQ(QXNet_Loc_UpgradeEx(id_, wide.c_str()), 0);
  EXPECT_EQ(Sent(), Request("20000", "20001", "0", "<firmwareLength>4321</firmwareLength>"));
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_UpgradeEx] Upgrade, dev="), 1);
  Refuse(20001);
  auto ev = EventsOf(QXNET_EV_UPGRADE_FAILED);
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].text, opstest::OpenFailedText(1, path));
}

TEST_F(Routing, APathOver511CharactersComesBackAsTheSessionsRefusal) {
  // The file exists, so the core's own check passes and the session refuses the path.
  const std::string p512 = opstest::LongPath(tmp_.path(), 512);
  ASSERT_EQ(p512.size(), 512u);
  ASSERT_TRUE(opstest::WriteFile(p512, "long"));
  const std::wstring w512(p512.begin(), p512.end());
  EXPECT_EQ(QXNet_Loc_Upgrade(id_, p512.c_str()), QXNET_E_BAD_ARG);
  EXPECT_EQ(QXNet_Loc_UpgradeEx(id_, w512.c_str()), QXNET_E_BAD_ARG);
  EXPECT_EQ(QXNet_Loc_SetConfigFile(id_, p512.c_str()), QXNET_E_BAD_ARG);
  ExpectNothingQueued("long path");
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_Upgrade] Upgrade, dev="), 1);
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_UpgradeEx] Upgrade, dev="), 1);
}

TEST_F(Routing, ProgressStateAndCloseAreTheSessionsUploadState) {
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);  // idle
  EXPECT_EQ(QXNet_Loc_GetUpgradeProgress(id_), 0);
  const std::string path = MakeFile("fw10.bin", static_cast<size_t>(10 * kChunk));
  ASSERT_EQ(QXNet_Loc_Upgrade(id_, path.c_str()), 0);
  Sent();
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), 0);  // announced
  EXPECT_EQ(QXNet_Loc_GetUpgradeProgress(id_), 0);
  // Accepted; one turn of the worker streams five of the ten chunks.
  Feed(Answer("20000", "20001", "0", "<body></body>"));
  ASSERT_TRUE(dev_->UploadDue());
  dev_->SendUploadFileData();
  ASSERT_TRUE(peer_->WaitFrames(1 + 5, 10000));
  EXPECT_EQ(QXNet_Loc_GetUpgradeProgress(id_), 50);
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), 0);
  // Closing cancels: the fixed cancel text goes out and the session is idle again.
  EXPECT_EQ(QXNet_Loc_CloseUpgradeHandle(id_), 0);
  EXPECT_EQ(Sent(), std::string(opstest::kCancelText));
  EXPECT_FALSE(dev_->UploadDue());
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);
  EXPECT_EQ(QXNet_Loc_GetUpgradeProgress(id_), 0);
}

TEST_F(Routing, GetConfigFileAsksFor20006AndWritesTheCallersPath) {
  const std::string path = tmp_.File("dev.cfg");
  EXPECT_EQ(QXNet_Loc_GetConfigFile(id_, path.c_str()), 0);
  EXPECT_EQ(Sent(), Request("20000", "20006", "0", ""));
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_GetConfigFile] Get config file, dev="), 1);
  Feed(Answer("20000", "20006", "0", "<body><fileLength>3</fileLength></body>"));
  Feed(opstest::DataAnswer(0, 3, "abc"));
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_EQ(got, "abc");
  // The session's refusal of a missing path comes back as it is.
  EXPECT_EQ(QXNet_Loc_GetConfigFile(id_, nullptr), QXNET_E_MISSING_ARG);
  ExpectNothingQueued("no path");
}

TEST_F(Routing, SetConfigFileAnnouncesTheCallersFileAsAConfigurationFile) {
  const std::string path = MakeFile("dev.cfg", 77);
  EXPECT_EQ(QXNet_Loc_SetConfigFile(id_, path.c_str()), 0);
  EXPECT_EQ(Sent(), Request("20000", "20004", "0", "<fileLength>77</fileLength>"));
  EXPECT_EQ(Capture::Get().CountLogs("[SDK_SetConfigFile] Set config file, dev="), 1);
  Refuse(20004);
  auto ev = EventsOf(QXNET_EV_CFGFILE_SET_FAILED);
  ASSERT_EQ(ev.size(), 1u);
  EXPECT_EQ(ev[0].text, opstest::OpenFailedText(-1, path));
  // A missing file is the session's refusal (the core does not look at it).
  EXPECT_EQ(QXNet_Loc_SetConfigFile(id_, tmp_.File("missing.cfg").c_str()), QXNET_E_FILE);
  ExpectNothingQueued("missing file");
}

// ---- recorder

// Every recorder export reaches the session (not the core's -103) with its arguments,
// and the session's answer comes back as it is.
TEST_F(Routing, RecorderRequestsReachTheSessionAndReturnItsAnswer) {
  char t[] = "20240101083000", e[] = "20240101083100", path[] = "/tmp/none.mp4";
  const std::string day = "<Time>20240101083000</Time>\n<ByMonth>0</ByMonth>\n";
  EXPECT_EQ(QXNet_SearchNVRRecByTime(id_, 3, t), 0);
  EXPECT_EQ(Sent(), Request("10000", "14300", "0", "<ChannelId>3</ChannelId>\n" + day));
  EXPECT_EQ(QXNet_Loc_SearchNVRRecByTime(id_, 4, t), 0);
  EXPECT_EQ(Sent(), Request("10000", "14300", "0", "<ChannelId>4</ChannelId>\n" + day));
  const std::string span = "<Time>20240101083000</Time>\n<TimeEnd>20240101083100</TimeEnd>\n<DownloadRecord>1</DownloadRecord>";
  EXPECT_EQ(QXNet_NVRRecordDownload(id_, 5, t, e, path), 0);
  EXPECT_EQ(Sent(), Request("10000", "14301", "0", "<ChannelId>5</ChannelId>\n" + span));
  EXPECT_EQ(QXNet_Loc_NVRRecordDownload(id_, -6, t, e, path), 0);
  EXPECT_EQ(Sent(), Request("10000", "14301", "0", "<ChannelId>-6</ChannelId>\n" + span));
  EXPECT_EQ(QXNet_Loc_NVRRecordDownload(id_, 1, nullptr, e, path), QXNET_E_MISSING_ARG);
  EXPECT_EQ(QXNet_Loc_NVRRecordDownloadStop(id_, 7), 0);
  EXPECT_EQ(Sent(), Request("10000", "14302", "0", "<ChannelId>7</ChannelId>\n<DownloadRecord>1</DownloadRecord>"));
  EXPECT_EQ(QXNet_NVRRecordDownloadStop(id_, 8), 0);  // no download any more: nothing sent
  ExpectNothingQueued("second stop");
  EXPECT_EQ(QXNet_Loc_NVRReplayByTime(id_, 9, t), 0);
  EXPECT_EQ(Sent(), Request("10000", "14301", "0",
                            "<ChannelId>9</ChannelId>\n<Time>20240101083000</Time>\n<DownloadRecord>0</DownloadRecord>"));
  EXPECT_EQ(QXNet_NVRReplayByTime(id_, 10, t), 0);
  Sent();
  EXPECT_EQ(QXNet_Loc_ControlNVRReplay(id_, 1, 6, 2, t), 0);
  EXPECT_EQ(Sent(), Request("10000", "14304", "0", "<ChannelId>1</ChannelId>\n<Time>20240101083000</Time>"));
  EXPECT_EQ(QXNet_ControlNVRReplay(id_, 2, 3, 1, t), 0);
  EXPECT_EQ(Sent(), Request("10000", "14302", "0", "<ChannelId>2</ChannelId>\n<DownloadRecord>0</DownloadRecord>"));
  EXPECT_EQ(QXNet_Loc_ControlNVRReplay(id_, 2, 0, 1, t), -1);
  EXPECT_EQ(g_pInstance->SDK_SearchNvrRecByMonth(id_, -1, t), -2);
  EXPECT_EQ(g_pInstance->SDK_SearchNvrRecByMonth(id_, 11, t), 0);
  Sent();
  ExpectNothingQueued("recorder");
  EXPECT_EQ(Capture::Get().CountLogs("find dev id="), 0);
}

// ---- identifiers without a session

TEST_F(Routing, UnknownIdentifiersReachNoSession) {
  const long unknown = id_ + 8;
  const std::string path = MakeFile("fw.bin", 10);
  const std::wstring wide(path.begin(), path.end());
  char t[] = "x";
  EXPECT_EQ(QXNet_GetDevConfig(unknown, 1), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_SystemControl(unknown, 1, t), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_Upgrade(unknown, path.c_str()), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_UpgradeEx(unknown, wide.c_str()), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(unknown), QXNET_E_NO_DEVICE);
  EXPECT_EQ(QXNet_Loc_ControlNVRReplay(unknown, 1, 1, 1, t), QXNET_E_NO_DEVICE);
  ExpectNothingQueued("unknown identifier");
  EXPECT_EQ(dev_->GetUploadState(), -1);
}

// ---- login

// A fixed "device" that only accepts: the session's connection and its first frame
// (authentication) show the address, port, user name and password it was given.
class LoginRouting : public ::testing::Test {
 protected:
  void SetUp() override {
    Capture::Get().Install();
    ASSERT_GT(listener_.port(), 0);
  }
  void TearDown() override {
    for (long id : ids_) EXPECT_EQ(QXNet_LogOutDev(id), 0);
  }
  // Accepts the session's connection and returns its first frame.
  std::string FirstFrame() {
    int fd = listener_.Accept(10000);
    EXPECT_GE(fd, 0) << "no connection";
    if (fd < 0) return std::string();
    opstest::Peer peer(fd);
    EXPECT_TRUE(peer.WaitFrames(1, 10000));
    std::string first = peer.Payload(0);
    peer.Shutdown();  // the device goes: the session's logout need not wait for it
    close(fd);
    return first;
  }
  static std::string AuthRequest(const std::string& user, const std::string& password) {
    return Request("10000", "14012", "0",
                   "<userName>" + user + "</userName>\n<password>" + password + "</password>\n");
  }

  opstest::LoopbackListener listener_;
  std::vector<long> ids_;
};

TEST_F(LoginRouting, LocLoginConnectsAndAuthenticatesWithTheCallersArguments) {
  IP_NET_DVR_DEVICEINFO info;
  std::memset(&info, 0x5A, sizeof(info));
  long id = QXNet_Loc_LoginDev(C("127.0.0.1"), listener_.port(), C("admin"), C("secret"), &info);
  ASSERT_GT(id, 0);
  ids_.push_back(id);
  EXPECT_EQ(FirstFrame(), AuthRequest("admin", "secret"));
  // The session that connected is the one registered under the identifier.
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_CONNECTED, 1, 5000));
  EXPECT_EQ(EventsOf(QXNET_EV_CONNECTED)[0].loginId, id);
  EXPECT_EQ(reinterpret_cast<long>(g_pInstance->FindDevComById(id, false).get()), id);
  EXPECT_EQ(g_pInstance->FindDevComById(id, false)->DevKey(), "127.0.0.1:" + std::to_string(listener_.port()));
  // The device record is neither read nor written.
  const uint8_t* b = reinterpret_cast<const uint8_t*>(&info);
  for (size_t i = 0; i < sizeof(info); ++i) ASSERT_EQ(b[i], 0x5A) << "byte " << i;
}

TEST_F(LoginRouting, PlainLoginWithFlag0LogsInWithNullCredentialsAsEmptyTexts) {
  long id = QXNet_LoginDev(C("127.0.0.1"), listener_.port(), nullptr, nullptr, 0);
  ASSERT_GT(id, 0);
  ids_.push_back(id);
  EXPECT_EQ(FirstFrame(), AuthRequest("", ""));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_CONNECTED, 1, 5000));
  EXPECT_EQ(EventsOf(QXNET_EV_CONNECTED)[0].loginId, id);
}

TEST_F(LoginRouting, NonzeroFlagRegistersWithoutLoggingIn) {
  long id = QXNet_LoginDev(C("127.0.0.1"), listener_.port(), C("u"), C("p"), 5);
  ASSERT_GT(id, 0);
  ids_.push_back(id);
  DevComPtr dev = g_pInstance->FindDevComById(id, false);
  ASSERT_TRUE(dev);
  EXPECT_TRUE(dev->ThreadExited());
  EXPECT_EQ(dev->SockFd(), -1);
  EXPECT_EQ(dev->DevKey(), "");  // the session was never given the address
  int fd = listener_.Accept(300);
  EXPECT_LT(fd, 0) << "the session connected";
  if (fd >= 0) close(fd);
}

// Makes every new thread of the calling thread fail to start (clone and clone3 answer
// EAGAIN), for the rest of the process; false when the filter cannot be installed.
bool RefuseNewThreads() {
  struct sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_clone, 2, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_clone3, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (EAGAIN & SECCOMP_RET_DATA)),
  };
  struct sock_fprog prog = {static_cast<unsigned short>(sizeof(filter) / sizeof(filter[0])), filter};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return false;
  return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &prog) == 0;
}

// Runs in a child process: a login whose worker cannot start.
[[noreturn]] void LoginWithoutThreads(opstest::LoopbackListener* listener) {
  const size_t before = g_pInstance->DeviceCount();
  if (!RefuseNewThreads()) {
    std::fprintf(stderr, "the thread filter could not be installed\n");
    _exit(2);
  }
  long rc = QXNet_Loc_LoginDev(C("127.0.0.1"), listener->port(), C("u"), C("p"), nullptr);
  const size_t after = g_pInstance->DeviceCount();
  const int spawnLogs = Capture::Get().CountLogs("[LoginDev] task spawn DevComControl failed \n");
  int fd = listener->Accept(200);
  std::fprintf(stderr, "rc=%ld devices %zu->%zu spawn log %d connected %d\n", rc, before, after, spawnLogs,
               fd >= 0 ? 1 : 0);
  _exit(rc == QXNET_E_SPAWN && after == before && spawnLogs == 1 && fd < 0 ? 0 : 1);
}

TEST_F(LoginRouting, AFailedLoginReturnsTheSessionsCodeAndRegistersNothing) {
  // The child starts afresh (no threads of this process are lost in a fork).
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(LoginWithoutThreads(&listener_), ::testing::ExitedWithCode(0),
              "rc=-97 devices 0->0 spawn log 1 connected 0");
}

}  // namespace
