// Closing a session never destroys bytes already handed to its socket: an application
// that logs out the moment an upload is reported finished still delivers the whole
// file. Also: a read-only file can be sent as a configuration file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

#include "capture.h"
#include "devsim_client.h"
#include "ops/ops_files.h"
#include "session_fixture.h"

using qxtest::Capture;
using qxtest::DevSim;

namespace {

// Signals the test's logout thread when the awaited event is posted; the logout itself
// cannot run inside the session's own callback.
struct FinishSignal {
  std::mutex mu;
  std::condition_variable cv;
  long code = -1;
  bool fired = false;
};
FinishSignal g_finish;

long OnStatus(long loginId, long code, char* data, void* user) {
  Capture::OnStatus(loginId, code, data, user);
  std::lock_guard<std::mutex> lock(g_finish.mu);
  if (code == g_finish.code) {
    g_finish.fired = true;
    g_finish.cv.notify_all();
  }
  return 0;
}

// A file this process cannot open for writing: mode 0444, and for root (whom the mode
// does not stop) the immutable attribute as well, taken off again at the end.
class ReadOnlyFile {
 public:
  explicit ReadOnlyFile(const std::string& path) : path_(path) {
    chmod(path.c_str(), 0444);
    if (geteuid() == 0) immutable_ = SetImmutable(true);
  }
  ~ReadOnlyFile() {
    if (immutable_) SetImmutable(false);
    chmod(path_.c_str(), 0644);
  }
  bool Writable() const {
    FILE* f = std::fopen(path_.c_str(), "r+b");
    if (f) std::fclose(f);
    return f != nullptr;
  }

 private:
  bool SetImmutable(bool on) {
    int fd = open(path_.c_str(), O_RDONLY);
    if (fd < 0) return false;
    int flags = 0;
    bool ok = ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
    ok = ok && ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    close(fd);
    return ok;
  }
  std::string path_;
  bool immutable_ = false;
};

class SessionClose : public qxtest::SessionTest {
 protected:
  void SetUp() override {
    SessionTest::SetUp();
    static int user = 3;
    ASSERT_EQ(0, QXNet_SetStatusEventCallBack(&OnStatus, &user));
    sim_.reset(new DevSim({"--quiet"}));
    ASSERT_TRUE(sim_->ok()) << sim_->error();
    LoginAuthenticated(*sim_);
  }
  void TearDown() override {
    if (logout_.joinable()) {
      // A test that stopped early: release the logout thread, which then logs out.
      {
        std::lock_guard<std::mutex> lock(g_finish.mu);
        g_finish.fired = true;
        g_finish.cv.notify_all();
      }
      JoinLogout();
    }
    SessionTest::TearDown();
    std::lock_guard<std::mutex> lock(g_finish.mu);
    g_finish.code = -1;
    g_finish.fired = false;
  }
  std::string TempFile(const std::string& name) { return sim_->tempDir() + "/" + name; }

  // Starts the logout thread, which logs the session out the moment `finishCode` is posted.
  void LogoutAt(long finishCode) {
    {
      std::lock_guard<std::mutex> lock(g_finish.mu);
      g_finish.code = finishCode;
      g_finish.fired = false;
    }
    long id = id_;
    logout_ = std::thread([this, id] {
      std::unique_lock<std::mutex> lock(g_finish.mu);
      if (!g_finish.cv.wait_for(lock, std::chrono::seconds(30), [] { return g_finish.fired; })) return;
      lock.unlock();
      logoutResult_ = QXNet_LogOutDev(id);
    });
  }
  // Waits for the logout thread; true when it logged the session out.
  bool JoinLogout() {
    logout_.join();
    if (logoutResult_ != 0) return false;
    id_ = 0;
    return true;
  }
  // What the simulator kept of its first upload, once it is over.
  void ExpectDelivered(const std::string& kind, const std::string& bytes) {
    ASSERT_TRUE(sim_->waitStat("uploads_done", 1, 5000)) << sim_->cmd("UPLOAD 0");
    auto up = DevSim::fields(sim_->cmd("UPLOAD 0"));
    EXPECT_EQ(up["state"], "done");
    EXPECT_EQ(up["kind"], kind);
    EXPECT_EQ(up["size"], std::to_string(bytes.size()));
    EXPECT_EQ(up["fnv"], opstest::FnvHex(bytes));
    EXPECT_EQ(up["errors"], "0");
  }

  // One kind of upload: the call that starts it, its finished event, the kind the
  // simulator records, the file's name and the seed of its bytes.
  struct Upload {
    long (*start)(long loginId, const char* path);
    long finishCode;
    const char* kind;
    const char* fileName;
    uint32_t seed;
  };
  // Uploads 3 MB and logs out from another thread the moment the upload is reported
  // finished: the device must still get every byte.
  void UploadAndLogoutAtFinish(const Upload& up) {
    std::string bytes = opstest::PatternBytes(3000000, up.seed);
    std::string path = TempFile(up.fileName);
    ASSERT_TRUE(opstest::WriteFile(path, bytes));
    LogoutAt(up.finishCode);
    ASSERT_EQ(0, up.start(id_, path.c_str()));
    ASSERT_TRUE(JoinLogout()) << "no finished event, or the logout failed";
    EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_UPGRADE_FAILED), 0);
    EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_CFGFILE_SET_FAILED), 0);
    ExpectDelivered(up.kind, bytes);
  }

  std::unique_ptr<DevSim> sim_;
  std::thread logout_;
  long logoutResult_ = -1;
};

TEST_F(SessionClose, LogoutAtFirmwareFinishedLosesNoByte) {
  UploadAndLogoutAtFinish(Upload{&QXNet_Loc_Upgrade, QXNET_EV_UPGRADE_FINISHED, "firmware", "fw.bin", 11});
}

TEST_F(SessionClose, LogoutAtConfigurationFileFinishedLosesNoByte) {
  UploadAndLogoutAtFinish(Upload{&QXNet_Loc_SetConfigFile, QXNET_EV_CFGFILE_SET_FINISHED, "config", "dev.cfg", 12});
}

TEST_F(SessionClose, ReadOnlyFileIsSentAsConfigurationButRefusedAsFirmware) {
  std::string bytes = opstest::PatternBytes(400000, 13);
  std::string path = TempFile("ro.cfg");
  ASSERT_TRUE(opstest::WriteFile(path, bytes));
  ReadOnlyFile ro(path);
  if (ro.Writable()) GTEST_SKIP() << "cannot make a file read-only for this process here";
  // A firmware file must be writable as well as readable.
  EXPECT_EQ(QXNET_E_FILE, QXNet_Loc_Upgrade(id_, path.c_str()));
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);
  ASSERT_EQ(0, QXNet_Loc_SetConfigFile(id_, path.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_CFGFILE_SET_FINISHED, 1, 15000));
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_CFGFILE_SET_FAILED), 0);
  ExpectDelivered("config", bytes);
}

}  // namespace
