#include "ops/ops_harness.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "sdk/NetSDKFunc.h"
#include "sdk/QXNetSDKInternal.h"
#include "session/capture.h"

namespace opstest {

const char kCancelText[] =
    "\n\r\n<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>20000</type>\n"
    "<cmd>20002</cmd>\n<result>0</result>\n<body>\n<startPos>0</startPos>\n<dataLength>-1</dataLength>\n"
    "</body>\n</PrivateProto>";

std::string Request(const std::string& type, const std::string& cmd, const std::string& result,
                    const std::string& body) {
  std::string s = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>" + type +
                  "</type>\n<cmd>" + cmd + "</cmd>\n<result>" + result + "</result>\n</head>\n";
  if (body.empty())
    s += "<body>\n</body>\n</PrivateProto>";
  else
    s += "<body>\n" + body + "\n</body>\n</PrivateProto>";
  return s;
}

std::string Answer(const std::string& type, const std::string& cmd, const std::string& result,
                   const std::string& bodyElement) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>" + type + "</type>\n<cmd>" +
         cmd + "</cmd>\n<result>" + result + "</result>\n</head>\n" + bodyElement + "\n</PrivateProto>";
}

std::string DataAnswer(long startPos, long dataLength, const std::string& data) {
  std::string text = Answer("20000", "20007", "0",
                            "<body><startPos>" + std::to_string(startPos) + "</startPos>\n<dataLength>" +
                                std::to_string(dataLength) + "</dataLength>\n</body>");
  return text + std::string(4, '\0') + data;
}

std::string ChunkHeader(int cmd, long startPos, long dataLength) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>20000</type>\n<cmd>" +
         std::to_string(cmd) + "</cmd>\n<result>0</result>\n</head>\n<body><startPos>" + std::to_string(startPos) +
         "</startPos>\n<dataLength>" + std::to_string(dataLength) + "</dataLength>\n</body>\n</PrivateProto>";
}

std::string OpenFailedText(int fileType, const std::string& path) {
  return "<RESPONSE_PARAM\nFileType=\"" + std::to_string(fileType) +
         "\" errormsg=\"can not open input file\" \nFileName=\"" + path + "\"\n/>";
}

std::string LongPath(const std::string& dir, size_t length) {
  std::string p = dir;
  while (length - p.size() > 200) {
    p += "/" + std::string(150, 'd');
    mkdir(p.c_str(), 0700);
  }
  p += "/" + std::string(length - p.size() - 1, 'f');
  return p;
}

bool ProcessHoldsOpen(const std::string& path) {
  char real[PATH_MAX];
  if (!realpath(path.c_str(), real)) return false;
  DIR* d = opendir("/proc/self/fd");
  if (!d) return false;
  bool found = false;
  while (struct dirent* e = readdir(d)) {
    std::string link = std::string("/proc/self/fd/") + e->d_name;
    char target[PATH_MAX];
    ssize_t n = readlink(link.c_str(), target, sizeof(target) - 1);
    if (n <= 0) continue;
    target[n] = 0;
    if (std::strcmp(target, real) == 0) found = true;
  }
  closedir(d);
  return found;
}

namespace {
void RemoveTree(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return;
  if (S_ISDIR(st.st_mode)) {
    if (DIR* d = opendir(path.c_str())) {
      while (struct dirent* e = readdir(d)) {
        if (std::strcmp(e->d_name, ".") == 0 || std::strcmp(e->d_name, "..") == 0) continue;
        RemoveTree(path + "/" + e->d_name);
      }
      closedir(d);
    }
    rmdir(path.c_str());
  } else {
    unlink(path.c_str());
  }
}
}  // namespace

TempDir::TempDir() {
  const char* base = std::getenv("TMPDIR");
  std::string tmpl = std::string(base && *base ? base : "/tmp") + "/qxops.XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data())) path_ = buf.data();
}

TempDir::~TempDir() {
  if (!path_.empty()) RemoveTree(path_);
}

Peer::Peer(int fd) : fd_(fd) { reader_ = std::thread([this] { Run(); }); }

Peer::~Peer() { Shutdown(); }

void Peer::Shutdown() {
  stop_ = true;
  if (fd_ >= 0) shutdown(fd_, SHUT_RDWR);
  if (reader_.joinable()) reader_.join();
}

namespace {
// Reads exactly n bytes; false on end of stream or error.
bool ReadExact(int fd, char* out, size_t n, const std::atomic<bool>& stop, const std::atomic<bool>& paused) {
  size_t got = 0;
  while (got < n) {
    if (stop) return false;
    if (paused) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      continue;
    }
    ssize_t r = read(fd, out + got, n - got);
    if (r <= 0) return false;
    got += static_cast<size_t>(r);
  }
  return true;
}
}  // namespace

void Peer::Run() {
  for (;;) {
    unsigned char head[8];
    if (!ReadExact(fd_, reinterpret_cast<char*>(head), 8, stop_, paused_)) break;
    uint32_t flag = head[0] | (head[1] << 8) | (head[2] << 16) | (static_cast<uint32_t>(head[3]) << 24);
    uint32_t len = head[4] | (head[5] << 8) | (head[6] << 16) | (static_cast<uint32_t>(head[7]) << 24);
    std::string payload(len, '\0');
    if (len && !ReadExact(fd_, &payload[0], len, stop_, paused_)) break;
    std::lock_guard<std::mutex> lock(mu_);
    payloads_.push_back(std::move(payload));
    flags_.push_back(flag);
    cv_.notify_all();
  }
}

bool Peer::WaitFrames(size_t n, int timeoutMs) {
  std::unique_lock<std::mutex> lock(mu_);
  return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return payloads_.size() >= n; });
}

size_t Peer::Count() {
  std::lock_guard<std::mutex> lock(mu_);
  return payloads_.size();
}

std::vector<std::string> Peer::Payloads() {
  std::lock_guard<std::mutex> lock(mu_);
  return payloads_;
}

std::string Peer::Payload(size_t i) {
  std::lock_guard<std::mutex> lock(mu_);
  return i < payloads_.size() ? payloads_[i] : std::string();
}

std::vector<uint32_t> Peer::Flags() {
  std::lock_guard<std::mutex> lock(mu_);
  return flags_;
}

void SessionTest::SetUp() {
  qxtest::Capture::Get().Install();
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds_));
  dev_ = new CDevComControl(g_pInstance, nullptr);
  dev_->AdoptSocketForTest(fds_[0]);
  peer_ = new Peer(fds_[1]);
  qxtest::Capture::Get().Clear();
}

void SessionTest::TearDown() {
  // The peer goes first, so that the session's close finds it gone and need not wait for it.
  if (dev_) dev_->StopForTest();
  delete peer_;
  peer_ = nullptr;
  if (fds_[1] >= 0) close(fds_[1]);
  fds_[1] = -1;
  delete dev_;  // closes fds_[0]
  dev_ = nullptr;
}

bool SessionTest::Flush(size_t total) {
  while (dev_->QueuedCount() > 0) dev_->SendOneQueued();
  return peer_->WaitFrames(total, 5000);
}

LoopbackListener::LoopbackListener() {
  fd_ = socket(AF_INET, SOCK_STREAM, 0);
  if (fd_ < 0) return;
  sockaddr_in a;
  std::memset(&a, 0, sizeof(a));
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(a);
  if (bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof(a)) != 0 || listen(fd_, 4) != 0 ||
      getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len) != 0)
    return;
  port_ = ntohs(a.sin_port);
}

LoopbackListener::~LoopbackListener() {
  if (fd_ >= 0) close(fd_);
}

int LoopbackListener::Accept(int timeoutMs) {
  if (fd_ < 0) return -1;
  pollfd p{fd_, POLLIN, 0};
  if (poll(&p, 1, timeoutMs) <= 0) return -1;
  return accept(fd_, nullptr, nullptr);
}

std::string SendOne(CDevComControl* dev, Peer* peer) {
  size_t before = peer->Count();
  EXPECT_EQ(dev->QueuedCount(), 1);
  dev->SendOneQueued();
  EXPECT_TRUE(peer->WaitFrames(before + 1, 5000));
  return peer->Payload(before);
}

void RegisteredSessionTest::SetUp() {
  qxtest::Capture::Get().Install();
  char ip[] = "127.0.0.1", user[] = "admin", pass[] = "pw";
  id_ = QXNet_LoginDev(ip, 8000, user, pass, 1);
  ASSERT_GT(id_, 0);
  dev_ = g_pInstance->FindDevComById(id_, false).get();
  ASSERT_EQ(reinterpret_cast<long>(dev_), id_);
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, fds_));
  dev_->AdoptSocketForTest(fds_[0]);
  peer_ = new Peer(fds_[1]);
  qxtest::Capture::Get().Clear();
}

void RegisteredSessionTest::TearDown() {
  // The peer goes first, so that the session's close finds it gone and need not wait for it.
  delete peer_;
  peer_ = nullptr;
  if (fds_[1] >= 0) close(fds_[1]);
  fds_[1] = -1;
  if (id_ > 0) {
    EXPECT_EQ(0, QXNet_LogOutDev(id_));  // closes fds_[0]
  }
  id_ = 0;
}

}  // namespace opstest
