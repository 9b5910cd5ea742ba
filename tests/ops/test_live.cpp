// Device operations through the public API with the session's own worker: the library
// logs in to a minimal device on 127.0.0.1, the worker streams uploads and receives the
// configuration file, while the application thread polls progress and cancels.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ops/ops_harness.h"
#include "session/capture.h"

using opstest::Answer;
using qxtest::Capture;

namespace {

const long kChunk = 163840;

std::string Between(const std::string& s, const std::string& open, const std::string& close) {
  size_t a = s.find(open);
  if (a == std::string::npos) return std::string();
  a += open.size();
  size_t b = s.find(close, a);
  return b == std::string::npos ? std::string() : s.substr(a, b - a);
}

// Answers authentication, accepts uploads, reassembles their chunks and serves the
// configuration file in pieces.
class FakeDevice {
 public:
  FakeDevice() {
    listen_ = socket(AF_INET, SOCK_STREAM, 0);
    int one = 1;
    setsockopt(listen_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
    // A small receive buffer, inherited by the accepted socket: a device that stops
    // reading stalls the sender soon.
    int rcv = 64 * 1024;
    setsockopt(listen_, SOL_SOCKET, SO_RCVBUF, &rcv, sizeof(rcv));
    sockaddr_in a;
    std::memset(&a, 0, sizeof(a));
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = 0;
    bind(listen_, reinterpret_cast<sockaddr*>(&a), sizeof(a));
    listen(listen_, 1);
    socklen_t len = sizeof(a);
    getsockname(listen_, reinterpret_cast<sockaddr*>(&a), &len);
    port_ = ntohs(a.sin_port);
    thread_ = std::thread([this] { Run(); });
  }
  ~FakeDevice() {
    stop_ = true;
    paused_ = false;
    shutdown(listen_, SHUT_RDWR);
    if (conn_ >= 0) shutdown(conn_, SHUT_RDWR);
    thread_.join();
    if (conn_ >= 0) close(conn_);
    close(listen_);
  }
  int port() const { return port_; }

  // What 20006 is answered with, sent in 20007 answers of 50,000 bytes.
  void SetConfigFile(const std::string& bytes) {
    std::lock_guard<std::mutex> l(mu_);
    configFile_ = bytes;
  }
  std::atomic<long> pauseAfterChunks{-1};  // stop reading after this many chunks
  std::atomic<bool> paused_{false};

  std::string Uploaded() {
    std::lock_guard<std::mutex> l(mu_);
    return uploaded_;
  }
  int EndHeaders() {
    std::lock_guard<std::mutex> l(mu_);
    return endHeaders_;
  }
  long Chunks() { return chunks_; }
  int CancelTexts() {
    std::lock_guard<std::mutex> l(mu_);
    return cancels_;
  }
  int BadChunks() {
    std::lock_guard<std::mutex> l(mu_);
    return badChunks_;
  }

 private:
  bool ReadExact(char* out, size_t n) {
    size_t got = 0;
    while (got < n) {
      if (stop_) return false;
      if (paused_) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        continue;
      }
      pollfd p{conn_, POLLIN, 0};
      if (poll(&p, 1, 50) <= 0) continue;
      ssize_t r = read(conn_, out + got, n - got);
      if (r <= 0) return false;
      got += static_cast<size_t>(r);
    }
    return true;
  }
  void Send(const std::string& payload) {
    std::string f("\x07\x03\x18\x20", 4);
    uint32_t len = static_cast<uint32_t>(payload.size());
    for (int i = 0; i < 4; ++i) f.push_back(static_cast<char>(len >> (8 * i)));
    f += payload;
    size_t off = 0;
    while (off < f.size() && !stop_) {
      ssize_t n = send(conn_, f.data() + off, f.size() - off, MSG_NOSIGNAL);
      if (n <= 0) return;
      off += static_cast<size_t>(n);
    }
  }
  void Run() {
    pollfd p{listen_, POLLIN, 0};
    while (!stop_ && poll(&p, 1, 50) <= 0) {
    }
    if (stop_) return;
    conn_ = accept(listen_, nullptr, nullptr);
    if (conn_ < 0) return;
    for (;;) {
      char head[8];
      if (!ReadExact(head, 8)) return;
      uint32_t len = 0;
      for (int i = 0; i < 4; ++i) len |= static_cast<uint32_t>(static_cast<unsigned char>(head[4 + i])) << (8 * i);
      std::string payload(len, '\0');
      if (len && !ReadExact(&payload[0], len)) return;
      Handle(payload);
    }
  }
  void Handle(const std::string& payload) {
    std::string text(payload.c_str());
    std::string cmd = Between(text, "<cmd>", "</cmd>");
    if (text.find("<dataLength>-1</dataLength>") != std::string::npos && text.compare(0, 3, "\n\r\n") == 0) {
      std::lock_guard<std::mutex> l(mu_);
      ++cancels_;
      return;
    }
    if (cmd == "14012") {
      Send(Answer("10000", "14012", "0", "<body><authRsp><MAXChannels>4</MAXChannels></authRsp></body>"));
    } else if (cmd == "20001" || cmd == "20004") {
      Send(Answer("20000", cmd, "0", "<body></body>"));
    } else if (cmd == "20002" || cmd == "20005") {
      long start = std::atol(Between(text, "<startPos>", "</startPos>").c_str());
      long n = std::atol(Between(text, "<dataLength>", "</dataLength>").c_str());
      std::lock_guard<std::mutex> l(mu_);
      if (n == 0) {
        ++endHeaders_;
        return;
      }
      if (start != static_cast<long>(uploaded_.size()) || payload.size() != text.size() + 4 + n ||
          payload.compare(text.size(), 4, std::string(4, '\0')) != 0) {
        ++badChunks_;
        return;
      }
      uploaded_.append(payload, text.size() + 4, static_cast<size_t>(n));
      ++chunks_;
      if (chunks_ == pauseAfterChunks) paused_ = true;
    } else if (cmd == "20006") {
      std::string file;
      {
        std::lock_guard<std::mutex> l(mu_);
        file = configFile_;
      }
      Send(Answer("20000", "20006", "0", "<body><fileLength>" + std::to_string(file.size()) + "</fileLength></body>"));
      for (size_t pos = 0; pos < file.size(); pos += 50000) {
        std::string piece = file.substr(pos, 50000);
        Send(opstest::DataAnswer(static_cast<long>(pos), static_cast<long>(piece.size()), piece));
      }
    }
  }

  int listen_ = -1;
  int conn_ = -1;
  int port_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
  std::mutex mu_;
  std::string configFile_;
  std::string uploaded_;
  int endHeaders_ = 0;
  int cancels_ = 0;
  int badChunks_ = 0;
  std::atomic<long> chunks_{0};
};

class Live : public ::testing::Test {
 protected:
  void SetUp() override {
    Capture::Get().Install();
    char ip[] = "127.0.0.1", user[] = "admin", pass[] = "secret";
    id_ = QXNet_Loc_LoginDev(ip, static_cast<unsigned long>(device_.port()), user, pass, nullptr);
    ASSERT_GT(id_, 0);
    ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_AUTHENTICATED, 1, 15000));
  }
  void TearDown() override {
    if (id_ > 0) {
      EXPECT_EQ(0, QXNet_Loc_LogoutDev(id_));
    }
  }
  FakeDevice device_;
  long id_ = 0;
  opstest::TempDir tmp_;
};

TEST_F(Live, FirmwareStreamsThroughTheWorkerWhileProgressIsPolled) {
  const std::string path = tmp_.File("fw.bin");
  const std::string content = opstest::PatternBytes(20 * kChunk + 777, 31);
  ASSERT_TRUE(opstest::WriteFile(path, content));
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);
  ASSERT_EQ(0, QXNet_Loc_Upgrade(id_, path.c_str()));
  EXPECT_EQ(QXNET_E_BUSY, QXNet_Loc_Upgrade(id_, path.c_str()));
  std::vector<long> seen;
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (Capture::Get().CountEvents(QXNET_EV_UPGRADE_FINISHED) == 0 && std::chrono::steady_clock::now() < until) {
    long state = QXNet_Loc_GetUpgradeState(id_);
    long p = QXNet_Loc_GetUpgradeProgress(id_);
    if (state == 0) seen.push_back(p);
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  ASSERT_EQ(Capture::Get().CountEvents(QXNET_EV_UPGRADE_FINISHED), 1);
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_UPGRADE_PROGRESS), 20);
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_UPGRADE_FAILED), 0);
  // State 0 also means "not idle", so a sample taken just as the transfer ends can read
  // the progress of no upload (0). Progress never goes back during the transfer; once it
  // reads 0 after having risen, the upload is over and it stays 0.
  bool ended = false;
  for (size_t i = 1; i < seen.size(); ++i) {
    if (ended) {
      EXPECT_EQ(seen[i], 0) << "progress rose again after the upload ended, sample " << i;
    } else if (seen[i] < seen[i - 1]) {
      EXPECT_EQ(seen[i], 0) << "progress went back from " << seen[i - 1] << " at sample " << i;
      ended = true;
    }
  }
  for (long p : seen) {
    EXPECT_GE(p, 0);
    EXPECT_LE(p, 100);
  }
  // The device has everything once the end header is in.
  auto until2 = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (device_.EndHeaders() == 0 && std::chrono::steady_clock::now() < until2)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(device_.EndHeaders(), 1);
  EXPECT_EQ(device_.BadChunks(), 0);
  std::string got = device_.Uploaded();
  EXPECT_EQ(opstest::Fnv1a(got), opstest::Fnv1a(content));
  EXPECT_TRUE(got == content);
  EXPECT_EQ(QXNet_Loc_GetUpgradeProgress(id_), 0);
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);
}

TEST_F(Live, ConfigFileIsFetchedThroughTheWorker) {
  const std::string content = opstest::PatternBytes(123457, 17);
  device_.SetConfigFile(content);
  const std::string path = tmp_.File("fetched.cfg");
  ASSERT_EQ(0, QXNet_Loc_GetConfigFile(id_, path.c_str()));
  ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_CFGFILE_GET_PROGRESS, 2, 15000));
  std::vector<std::string> progress;
  for (const qxtest::Event& e : Capture::Get().Events())
    if (e.code == QXNET_EV_CFGFILE_GET_PROGRESS) progress.push_back(e.text);
  EXPECT_EQ(progress, (std::vector<std::string>{"\n<downProgress>0</downProgress>\n",
                                                "\n<downProgress>100</downProgress>\n"}));
  std::string got;
  ASSERT_TRUE(opstest::ReadFile(path, &got));
  EXPECT_TRUE(got == content);
}

TEST_F(Live, CancellingAStalledUploadReturnsAtOnce) {
  const std::string path = tmp_.File("stall.cfg");
  ASSERT_TRUE(opstest::WriteFile(path, opstest::PatternBytes(40 * kChunk, 3)));
  device_.pauseAfterChunks = 2;
  ASSERT_EQ(0, QXNet_Loc_SetConfigFile(id_, path.c_str()));
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (device_.Chunks() < 2 && std::chrono::steady_clock::now() < until)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  ASSERT_EQ(device_.Chunks(), 2);
  std::this_thread::sleep_for(std::chrono::milliseconds(600));  // the worker is now stuck in a send
  auto t0 = std::chrono::steady_clock::now();
  auto cancelled = std::async(std::launch::async, [&] { return QXNet_Loc_CloseUpgradeHandle(id_); });
  bool prompt = cancelled.wait_for(std::chrono::seconds(2)) == std::future_status::ready;
  EXPECT_TRUE(prompt) << "cancel waited behind the stalled send";
  EXPECT_EQ(QXNet_Loc_GetUpgradeState(id_), -1);
  EXPECT_EQ(QXNet_Loc_GetUpgradeProgress(id_), 0);
  // Logout releases the stalled send; nothing about the cancelled transfer is reported.
  EXPECT_EQ(0, QXNet_Loc_LogoutDev(id_));
  id_ = 0;
  EXPECT_EQ(cancelled.get(), 0);
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(), 5.0);
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_CFGFILE_SET_FINISHED), 0);
  EXPECT_EQ(Capture::Get().CountEvents(QXNET_EV_CFGFILE_SET_FAILED), 0);
}

}  // namespace
