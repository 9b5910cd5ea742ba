// Device operations end to end: the public interface of the shared library against the
// device simulator, including devices that refuse, answer twice, drop the connection or
// send more or fewer bytes than announced.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <thread>

#include "devsim_client.h"
#include "ops/ops_files.h"
#include "session/capture.h"
#include "session/session_fixture.h"

using qxtest::Capture;
using qxtest::DevSim;

namespace {

using opstest::FnvHex;
using opstest::PatternBytes;

// Writes `bytes` to `path`; the test cannot go on without the file.
void WriteAll(const std::string& path, const std::string& bytes) {
  ASSERT_TRUE(opstest::WriteFile(path, bytes)) << path;
}

std::string ReadAll(const std::string& path) {
  std::string bytes;
  EXPECT_TRUE(opstest::ReadFile(path, &bytes)) << path;
  return bytes;
}

class OpsDevsim : public qxtest::SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    sim_.reset(new DevSim({"--quiet"}));
    ASSERT_TRUE(sim_->ok()) << sim_->error();
    LoginAuthenticated(*sim_);
  }
  // The newest answer whose command is `cmd`, waited for.
  bool WaitAux(long cmd, qxtest::Aux* out, int timeoutMs = 5000) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (std::chrono::steady_clock::now() < end) {
      for (auto& a : Capture::Get().Auxes())
        if ((static_cast<unsigned long>(a.code) & 0xFFFFFF) == static_cast<unsigned long>(cmd)) {
          *out = a;
          return true;
        }
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
  std::string TempFile(const std::string& name) { return sim_->tempDir() + "/" + name; }
  std::unique_ptr<DevSim> sim_;
};

TEST_F(OpsDevsim, ConfigurationWriteThenReadComesBackThroughTheAuxCallback) {
  char body[] = "<VideoEncode><BitRate>2048</BitRate></VideoEncode>";
  ASSERT_EQ(0, QXNet_Loc_SetDVRConfig(id_, 1601, 0, body, 0));
  qxtest::Aux a;
  ASSERT_TRUE(WaitAux(1601, &a));
  EXPECT_EQ(a.code, 1601);
  Capture::Get().Clear();
  char empty[] = "";
  ASSERT_EQ(0, QXNet_Loc_GetDVRConfig(id_, 1601, 0, empty, 0, nullptr));
  ASSERT_TRUE(WaitAux(1601, &a));
  EXPECT_NE(a.body.find("<BitRate>2048</BitRate>"), std::string::npos);
  Capture::Get().Clear();
  ASSERT_EQ(0, QXNet_GetDevConfig(id_, 1777));
  ASSERT_TRUE(WaitAux(1777, &a));
  EXPECT_LT(a.code, 0);  // unset: the device's -1 folded into the top byte
}

TEST_F(OpsDevsim, RebootDropsTheConnectionAndTheSessionComesBack) {
  // The first reconnect meets the closed listener: its connect is refused, its 30 attempts
  // run out (event 0), and the attempt after the 8 s pause finds the device back.
  ASSERT_TRUE(sim_->cmdOk("SET reboot_pause_ms 1500"));
  ASSERT_EQ(0, QXNet_Loc_RebootDVR(id_));
  ASSERT_TRUE(sim_->waitFor("20000", "14008", 1, 5000));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_SOCKET_ERROR, 1, 5000));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_AUTHENTICATED, 2, 70000));
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_CONNECT_FAILED), 1);
}

TEST_F(OpsDevsim, UserDataIsStoredAndReturned) {
  char data[] = "\x01\x02\xff\x7f" "x";
  ASSERT_EQ(0, QXNet_Loc_SetUserData(id_, data, 4));
  EXPECT_EQ(data[4], '\0');
  qxtest::Aux a;
  ASSERT_TRUE(WaitAux(14033, &a));
  ASSERT_EQ(0, QXNet_Loc_GetUserData(id_, nullptr, nullptr));
  ASSERT_TRUE(WaitAux(14034, &a));
  EXPECT_NE(a.body.find("0102ff7f"), std::string::npos);
}

TEST_F(OpsDevsim, FirmwareUploadArrivesByteIdenticalWithProgress) {
  const size_t size = 5 * 1024 * 1024 + 17;
  std::string bytes = PatternBytes(size, 7);
  std::string path = TempFile("fw.bin");
  WriteAll(path, bytes);
  ASSERT_EQ(0, QXNet_Loc_Upgrade(id_, path.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_UPGRADE_FINISHED, 1, 30000));
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_UPGRADE_PROGRESS), static_cast<int>(size / 163840));
  ASSERT_TRUE(sim_->waitStat("uploads_done", 1, 5000));
  auto up = DevSim::fields(sim_->cmd("UPLOAD 0"));
  EXPECT_EQ(up["state"], "done");
  EXPECT_EQ(up["size"], std::to_string(size));
  EXPECT_EQ(up["fnv"], FnvHex(bytes));
  EXPECT_EQ(up["errors"], "0");
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);
  EXPECT_EQ(QXNet_Loc_GetUpgradeProgress(id_), 0);
}

TEST_F(OpsDevsim, ConfigurationFileUploadOfAnEmptyFileEndsAtOnce) {
  std::string path = TempFile("empty.cfg");
  WriteAll(path, "");
  ASSERT_EQ(0, QXNet_Loc_SetConfigFile(id_, path.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_CFGFILE_SET_FINISHED, 1, 10000));
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_CFGFILE_SET_PROGRESS), 0);
  auto up = DevSim::fields(sim_->cmd("UPLOAD 0"));
  EXPECT_EQ(up["size"], "0");
  EXPECT_EQ(up["kind"], "config");
}

TEST_F(OpsDevsim, RefusedUploadIsEvent16AndTheSessionIsFreeAgain) {
  ASSERT_TRUE(sim_->cmdOk("SET upload_mode refuse"));
  std::string path = TempFile("fw.bin");
  WriteAll(path, PatternBytes(1000, 1));
  ASSERT_EQ(0, QXNet_Loc_Upgrade(id_, path.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_UPGRADE_FAILED, 1, 10000));
  EXPECT_NE(Capture::Get().Events().back().text.find("errormsg=\"can not open input file\""), std::string::npos);
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);
  ASSERT_TRUE(sim_->cmdOk("SET upload_mode accept"));
  ASSERT_EQ(0, QXNet_Loc_Upgrade(id_, path.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_UPGRADE_FINISHED, 1, 10000));
}

TEST_F(OpsDevsim, AcceptanceAnsweredTwiceDoesNotRestartTheStream) {
  ASSERT_TRUE(sim_->cmdOk("SET upload_mode twice"));
  std::string bytes = PatternBytes(3 * 163840 + 5, 3);
  std::string path = TempFile("fw.bin");
  WriteAll(path, bytes);
  ASSERT_EQ(0, QXNet_Loc_Upgrade(id_, path.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_UPGRADE_FINISHED, 1, 10000));
  ASSERT_TRUE(sim_->waitStat("uploads_done", 1, 5000));
  auto up = DevSim::fields(sim_->cmd("UPLOAD 0"));
  EXPECT_EQ(up["fnv"], FnvHex(bytes));
  EXPECT_EQ(up["errors"], "0");
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_UPGRADE_PROGRESS), 3);
}

TEST_F(OpsDevsim, LateAcceptanceAfterCancellationSendsNothing) {
  ASSERT_TRUE(sim_->cmdOk("SET upload_mode late"));
  std::string path = TempFile("fw.bin");
  WriteAll(path, PatternBytes(400000, 4));
  ASSERT_EQ(0, QXNet_Loc_Upgrade(id_, path.c_str()));
  ASSERT_TRUE(sim_->waitFor("20000", "20001", 1, 5000));
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), 0);
  EXPECT_EQ(QXNet_Loc_Upgrade(id_, path.c_str()), QXNET_E_BUSY);
  ASSERT_EQ(0, QXNet_Loc_CloseUpgradeHandle(id_));
  ASSERT_TRUE(sim_->waitFor("20000", "20002", 1, 5000));  // the cancel text
  ASSERT_TRUE(sim_->cmdOk("UPLOAD ACCEPT"));
  ASSERT_TRUE(Capture::Get().WaitLog("recv upload file response, but the task has been canceled", 1, 5000));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(sim_->count("20000", "20002"), 1);
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_UPGRADE_PROGRESS), 0);
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_UPGRADE_FINISHED), 0);
}

TEST_F(OpsDevsim, ConnectionDroppedDuringAnUploadIsAFailureEvent) {
  std::string path = TempFile("big.bin");
  WriteAll(path, PatternBytes(48u << 20, 5));
  ASSERT_EQ(0, QXNet_Loc_Upgrade(id_, path.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_UPGRADE_PROGRESS, 1, 10000));
  ASSERT_TRUE(sim_->cmdOk("CLOSE all"));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_CFGFILE_SET_FAILED, 1, 10000));
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_UPGRADE_FINISHED), 0);
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);
  // After the reconnect a new upload works.
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_AUTHENTICATED, 2, 20000));
  std::string small = TempFile("small.bin");
  WriteAll(small, PatternBytes(1000, 6));
  ASSERT_EQ(0, QXNet_Loc_Upgrade(id_, small.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_UPGRADE_FINISHED, 1, 10000));
}

TEST_F(OpsDevsim, ConfigurationFileDownloadIsByteIdentical) {
  std::string src = TempFile("served.cfg");
  std::string bytes = PatternBytes(100000, 9);
  WriteAll(src, bytes);
  ASSERT_TRUE(sim_->cmdOk("SET dl_file " + src));
  ASSERT_TRUE(sim_->cmdOk("SET dl_chunk 7000"));
  std::string out = TempFile("fetched.cfg");
  ASSERT_EQ(0, QXNet_Loc_GetConfigFile(id_, out.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_CFGFILE_GET_PROGRESS, 2, 10000));
  auto ev = Capture::Get().Events();
  std::vector<std::string> progress;
  for (auto& e : ev)
    if (e.code == QXNET_EV_CFGFILE_GET_PROGRESS) progress.push_back(e.text);
  ASSERT_EQ(progress.size(), 2u);
  EXPECT_EQ(progress[0], "\n<downProgress>0</downProgress>\n");
  EXPECT_EQ(progress[1], "\n<downProgress>100</downProgress>\n");
  EXPECT_EQ(ReadAll(out), bytes);
}

TEST_F(OpsDevsim, DownloadFailureFormsGiveTheirProgressCodes) {
  struct Case {
    const char* fault;
    const char* expected;
  } cases[] = {{"badsep", "\n<downProgress>-1</downProgress>\n"},
               {"zerolen", "\n<downProgress>-2</downProgress>\n"},
               {"drop", "\n<downProgress>-2</downProgress>\n"}};
  for (const Case& c : cases) {
    Capture::Get().Clear();
    ASSERT_TRUE(sim_->cmdOk(std::string("SET dl_fault ") + c.fault));
    ASSERT_TRUE(sim_->cmdOk("SET dl_size 30000"));
    ASSERT_TRUE(sim_->cmdOk("SET dl_chunk 4096"));
    std::string out = TempFile(std::string("dl_") + c.fault);
    ASSERT_EQ(0, QXNet_Loc_GetConfigFile(id_, out.c_str()));
    bool seen = false;
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!seen && std::chrono::steady_clock::now() < end) {
      for (auto& e : Capture::Get().Events())
        if (e.code == QXNET_EV_CFGFILE_GET_PROGRESS && e.text == c.expected) seen = true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(seen) << c.fault;
    for (auto& e : Capture::Get().Events())
      EXPECT_FALSE(e.code == QXNET_EV_CFGFILE_GET_PROGRESS && e.text == "\n<downProgress>100</downProgress>\n")
          << c.fault;
    if (std::string(c.fault) == "drop") {
      ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_AUTHENTICATED, 1, 20000));
    } else if (std::string(c.fault) == "badsep") {
      // The receiver is kept after a bad separator: end it with a drop-free restart of the
      // session so the next case starts clean.
      ASSERT_TRUE(sim_->cmdOk("CLOSE all"));
      ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_AUTHENTICATED, 1, 20000));
    }
  }
}

TEST_F(OpsDevsim, MoreBytesThanAnnouncedNeverFinishes) {
  ASSERT_TRUE(sim_->cmdOk("SET dl_fault extra"));
  ASSERT_TRUE(sim_->cmdOk("SET dl_size 10000"));
  std::string out = TempFile("extra.cfg");
  ASSERT_EQ(0, QXNet_Loc_GetConfigFile(id_, out.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_CFGFILE_GET_PROGRESS, 1, 5000));
  ASSERT_TRUE(sim_->waitStat("downloads", 1, 5000));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_CFGFILE_GET_PROGRESS), 1);  // 0 only
  struct stat st;
  ASSERT_EQ(0, stat(out.c_str(), &st));
  EXPECT_GT(st.st_size, 10000);
}

}  // namespace
