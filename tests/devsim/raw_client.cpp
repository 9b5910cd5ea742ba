#include "raw_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

namespace devsimtest {

int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string Frame::text() const { return std::string(payload.c_str()); }

std::string le32(uint32_t v) {
  std::string s(4, '\0');
  for (int i = 0; i < 4; ++i) s[static_cast<size_t>(i)] = static_cast<char>((v >> (8 * i)) & 0xFF);
  return s;
}

uint32_t le32At(const std::string& s, size_t off) {
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(s[off + static_cast<size_t>(i)]);
  return v;
}

std::string request(const std::string& type, const std::string& cmd, const std::string& body,
                    const std::string& result) {
  std::string s = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>" + type +
                  "</type>\n<cmd>" + cmd + "</cmd>\n<result>" + result + "</result>\n</head>\n";
  s += body.empty() ? "<body>\n</body>\n</PrivateProto>" : "<body>\n" + body + "\n</body>\n</PrivateProto>";
  return s;
}

std::string frameOf(const std::string& payload, uint32_t flag) {
  return le32(flag) + le32(static_cast<uint32_t>(payload.size())) + payload;
}

std::string chunkHeader(const std::string& cmd, long long start, long long len) {
  return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>20000</type>\n<cmd>" + cmd +
         "</cmd>\n<result>0</result>\n</head>\n<body><startPos>" + std::to_string(start) +
         "</startPos>\n<dataLength>" + std::to_string(len) + "</dataLength>\n</body>\n</PrivateProto>";
}

std::string chunk(const std::string& cmd, long long start, const std::string& data) {
  return chunkHeader(cmd, start, static_cast<long long>(data.size())) + std::string(4, '\0') + data;
}

std::string authBody(const std::string& user, const std::string& pass) {
  return "<userName>" + user + "</userName>\n<password>" + pass + "</password>\n";
}

std::string tag(const std::string& text, const std::string& name) {
  size_t a = text.find("<" + name + ">");
  if (a == std::string::npos) return "<missing>";
  a += name.size() + 2;
  size_t b = text.find("</" + name + ">", a);
  if (b == std::string::npos) return "<missing>";
  return text.substr(a, b - a);
}

RawClient::RawClient(uint16_t port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  sa.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0) {
    close(fd);
    return;
  }
  int one = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  fd_ = fd;
}

RawClient::~RawClient() {
  if (fd_ >= 0) close(fd_);
}

bool RawClient::sendBytes(const std::string& bytes) {
  size_t off = 0;
  while (off < bytes.size()) {
    ssize_t n = send(fd_, bytes.data() + off, bytes.size() - off, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    off += static_cast<size_t>(n);
  }
  return true;
}

int RawClient::readCountingPieces(size_t n, std::string& out, int timeoutMs) {
  int pieces = 0;
  int64_t deadline = nowMs() + timeoutMs;
  while (buf_.size() < n) {
    int64_t left = deadline - nowMs();
    if (left <= 0) break;
    pollfd p{fd_, POLLIN, 0};
    int r = poll(&p, 1, static_cast<int>(left));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) break;
    char tmp[65536];
    ssize_t got = recv(fd_, tmp, sizeof tmp, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    buf_.append(tmp, static_cast<size_t>(got));
    ++pieces;
  }
  size_t take = std::min(n, buf_.size());
  out = buf_.substr(0, take);
  buf_.erase(0, take);
  return out.size() == n ? pieces : -1;
}

bool RawClient::readExact(size_t n, std::string& out, int timeoutMs) {
  return readCountingPieces(n, out, timeoutMs) >= 0;
}

bool RawClient::readFrame(Frame& f, int timeoutMs) {
  std::string h;
  if (!readExact(8, h, timeoutMs)) return false;
  f.flag = le32At(h, 0);
  uint32_t len = le32At(h, 4);
  return readExact(len, f.payload, timeoutMs);
}

bool RawClient::readAnswer(const std::string& type, const std::string& cmd, Frame& f, int timeoutMs) {
  if (!readFrame(f, timeoutMs)) return false;
  std::string t = f.text();
  return tag(t, "type") == type && tag(t, "cmd") == cmd;
}

bool RawClient::silentFor(int ms) {
  if (!buf_.empty()) return false;
  pollfd p{fd_, POLLIN, 0};
  int r = poll(&p, 1, ms);
  return r == 0;
}

bool RawClient::closedWithin(int ms) {
  int64_t deadline = nowMs() + ms;
  buf_.clear();
  for (;;) {
    int64_t left = deadline - nowMs();
    if (left <= 0) return false;
    pollfd p{fd_, POLLIN, 0};
    int r = poll(&p, 1, static_cast<int>(left));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) return false;
    char tmp[65536];
    ssize_t got = recv(fd_, tmp, sizeof tmp, 0);
    if (got == 0) return true;
    if (got < 0 && errno != EINTR) return errno == ECONNRESET;
  }
}

bool authenticate(RawClient& c, const std::string& user, const std::string& pass) {
  if (!c.sendRequest("10000", "14012", authBody(user, pass))) return false;
  Frame f;
  return c.readAnswer("10000", "14012", f) && tag(f.text(), "result") == "0";
}

}  // namespace devsimtest
