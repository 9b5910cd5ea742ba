// A minimal device-protocol client for testing qxdevsim on its own: raw
// frames over a blocking socket with poll() timeouts. Deliberately separate
// from both the library and the simulator's code.
#pragma once

#include <cstdint>
#include <string>

namespace devsimtest {

constexpr uint32_t kFlag = 0x20180307u;
constexpr uint32_t kFlagAlt = 0x70308102u;

struct Frame {
  uint32_t flag = 0;
  std::string payload;
  std::string text() const;  // payload up to the first NUL
};

std::string le32(uint32_t v);
uint32_t le32At(const std::string& s, size_t off);
// "<?xml ...?>\n<PrivateProto>\n<head>...</head>\n<body>\n...\n</body>\n</PrivateProto>"
std::string request(const std::string& type, const std::string& cmd, const std::string& body,
                    const std::string& result = "0");
std::string frameOf(const std::string& payload, uint32_t flag = kFlag);
// An upload chunk as the library frames it: header text, 4 zero bytes, data.
std::string chunkHeader(const std::string& cmd, long long start, long long len);
std::string chunk(const std::string& cmd, long long start, const std::string& data);
// Body of an authentication request.
std::string authBody(const std::string& user, const std::string& pass);
// Milliseconds of the monotonic clock, for the client's timeouts and the tests' timings.
int64_t nowMs();
// Text of <name>..</name>, or "<missing>".
std::string tag(const std::string& text, const std::string& name);

class RawClient {
 public:
  explicit RawClient(uint16_t port);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  bool connected() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  bool sendBytes(const std::string& bytes);
  bool sendFrame(const std::string& payload, uint32_t flag = kFlag) { return sendBytes(frameOf(payload, flag)); }
  bool sendRequest(const std::string& type, const std::string& cmd, const std::string& body = "") {
    return sendFrame(request(type, cmd, body));
  }
  // Exactly n bytes (false on timeout or close; what arrived is kept in out).
  bool readExact(size_t n, std::string& out, int timeoutMs = 3000);
  bool readFrame(Frame& f, int timeoutMs = 3000);
  // Reads one frame and checks it is a PrivateProto answer of that type/cmd.
  bool readAnswer(const std::string& type, const std::string& cmd, Frame& f, int timeoutMs = 3000);
  // True when nothing at all arrives within ms.
  bool silentFor(int ms);
  // True when the peer closes within ms (any data before the close is discarded).
  bool closedWithin(int ms);
  // Number of recv() calls that returned data while reading n bytes (split writes).
  int readCountingPieces(size_t n, std::string& out, int timeoutMs = 3000);

 private:
  int fd_ = -1;
  std::string buf_;
};

bool authenticate(RawClient& c, const std::string& user = "admin", const std::string& pass = "admin");

}  // namespace devsimtest
