// Wire helpers of the device simulator: framing, envelope text, tolerant field
// extraction, escaping and checksums. Written independently of the library so
// that each checks the other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace devsim {

constexpr uint32_t kFlagLibrary = 0x20180307u;  // what the library sends
constexpr uint32_t kFlagAlt = 0x70308102u;      // second flag the library accepts
constexpr uint32_t kMaxPayload = 0xF00000u;     // 15 MiB, the library's own limit

// 8-byte frame header (flag, length, both little-endian) followed by payload.
std::string frame(const std::string& payload, uint32_t flag = kFlagLibrary);
std::string frameHeader(uint32_t flag, uint32_t length);
void putLE32(std::string& out, uint32_t v);
uint32_t getLE32(const unsigned char* p);

// "<?xml ...?>\n<PrivateProto>\n<head>...</head>\n<body>\n...\n</body>\n</PrivateProto>".
// An empty body is written as "<body>\n</body>".
std::string envelope(const std::string& type, const std::string& cmd, const std::string& result,
                     const std::string& body);

// Fields of a received message, read by substring search so that texts that are
// not well formed (the upload cancel text has an unclosed head) still parse.
struct Message {
  std::string text;     // payload up to the first NUL
  std::string type;
  std::string cmd;
  std::string result;
  std::string body;     // between <body> and </body>, builder newlines stripped
  bool hasHead = false; // type and cmd were both found
  size_t payloadSize = 0;
};
Message parseMessage(const char* payload, size_t size);

// Text of the first <name>...</name> in text; false when absent.
bool tagText(const std::string& text, const std::string& name, std::string& out);
// Value of the first name="..." in text; false when absent.
bool attrValue(const std::string& text, const std::string& name, std::string& out);

// One-line escaping used by the control channel: \n \r \t \\ \s (space) \xHH.
std::string escape(const std::string& in, bool escapeSpace = true);
bool unescape(const std::string& in, std::string& out);

std::string toHex(const std::string& bytes);
bool fromHex(const std::string& hex, std::string& out);

uint64_t fnv1a64(const void* data, size_t n, uint64_t h = 1469598103934665603ull);
uint32_t crc32(const void* data, size_t n, uint32_t crc = 0);

bool parseInt(const std::string& s, long long& out);  // decimal or 0x-hex, whole string

}  // namespace devsim
