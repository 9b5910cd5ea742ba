#include "proto.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace devsim {

void putLE32(std::string& out, uint32_t v) {
  out.push_back(static_cast<char>(v & 0xFF));
  out.push_back(static_cast<char>((v >> 8) & 0xFF));
  out.push_back(static_cast<char>((v >> 16) & 0xFF));
  out.push_back(static_cast<char>((v >> 24) & 0xFF));
}

uint32_t getLE32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

std::string frameHeader(uint32_t flag, uint32_t length) {
  std::string h;
  h.reserve(8);
  putLE32(h, flag);
  putLE32(h, length);
  return h;
}

std::string frame(const std::string& payload, uint32_t flag) {
  std::string f = frameHeader(flag, static_cast<uint32_t>(payload.size()));
  f += payload;
  return f;
}

std::string envelope(const std::string& type, const std::string& cmd, const std::string& result,
                     const std::string& body) {
  std::string s;
  s.reserve(160 + body.size());
  s += "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>";
  s += type;
  s += "</type>\n<cmd>";
  s += cmd;
  s += "</cmd>\n<result>";
  s += result;
  s += "</result>\n</head>\n";
  if (body.empty()) {
    s += "<body>\n</body>\n</PrivateProto>";
  } else {
    s += "<body>\n";
    s += body;
    s += "\n</body>\n</PrivateProto>";
  }
  return s;
}

bool tagText(const std::string& text, const std::string& name, std::string& out) {
  const std::string open = "<" + name + ">";
  const std::string close = "</" + name + ">";
  size_t a = text.find(open);
  if (a == std::string::npos) return false;
  a += open.size();
  size_t b = text.find(close, a);
  if (b == std::string::npos) return false;
  out = text.substr(a, b - a);
  return true;
}

bool attrValue(const std::string& text, const std::string& name, std::string& out) {
  size_t pos = 0;
  while ((pos = text.find(name, pos)) != std::string::npos) {
    // Must be a whole attribute name: preceded by a blank and followed by optional blanks and '='.
    bool startOk = pos > 0 && (text[pos - 1] == ' ' || text[pos - 1] == '\n' ||
                               text[pos - 1] == '\t' || text[pos - 1] == '\r');
    size_t p = pos + name.size();
    while (p < text.size() && (text[p] == ' ' || text[p] == '\t')) ++p;
    if (startOk && p < text.size() && text[p] == '=') {
      ++p;
      while (p < text.size() && (text[p] == ' ' || text[p] == '\t')) ++p;
      if (p < text.size() && (text[p] == '"' || text[p] == '\'')) {
        char q = text[p];
        size_t e = text.find(q, p + 1);
        if (e == std::string::npos) return false;
        out = text.substr(p + 1, e - p - 1);
        return true;
      }
    }
    pos += name.size();
  }
  return false;
}

static std::string trimmed(const std::string& s) {
  size_t a = 0, b = s.size();
  while (a < b && (s[a] == ' ' || s[a] == '\n' || s[a] == '\r' || s[a] == '\t')) ++a;
  while (b > a && (s[b - 1] == ' ' || s[b - 1] == '\n' || s[b - 1] == '\r' || s[b - 1] == '\t')) --b;
  return s.substr(a, b - a);
}

Message parseMessage(const char* payload, size_t size) {
  Message m;
  m.payloadSize = size;
  m.text.assign(payload, strnlen(payload, size));
  const std::string& t = m.text;
  bool ht = tagText(t, "type", m.type);
  bool hc = tagText(t, "cmd", m.cmd);
  tagText(t, "result", m.result);
  m.type = trimmed(m.type);
  m.cmd = trimmed(m.cmd);
  m.result = trimmed(m.result);
  m.hasHead = ht && hc;

  // Body: "<body/>" is empty; otherwise from the first "<body>" to the last "</body>".
  size_t a = t.find("<body>");
  size_t selfClosed = t.find("<body/>");
  if (a != std::string::npos && (selfClosed == std::string::npos || a < selfClosed)) {
    a += 6;
    size_t b = t.rfind("</body>");
    if (b == std::string::npos || b < a) b = t.size();
    std::string body = t.substr(a, b - a);
    // The library's builder wraps a non-empty body in one newline on each side.
    if (!body.empty() && body.front() == '\n') body.erase(0, 1);
    if (!body.empty() && body.back() == '\n') body.pop_back();
    m.body = body;
  }
  return m;
}

std::string escape(const std::string& in, bool escapeSpace) {
  static const char* hex = "0123456789abcdef";
  std::string out;
  out.reserve(in.size() + 16);
  for (unsigned char c : in) {
    switch (c) {
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      case '\\': out += "\\\\"; break;
      case ' ':
        if (escapeSpace) out += "\\s"; else out += ' ';
        break;
      default:
        if (c < 0x20 || c >= 0x7F) {
          out += "\\x";
          out += hex[c >> 4];
          out += hex[c & 15];
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out;
}

static int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool unescape(const std::string& in, std::string& out) {
  out.clear();
  out.reserve(in.size());
  for (size_t i = 0; i < in.size(); ++i) {
    char c = in[i];
    if (c != '\\') {
      out += c;
      continue;
    }
    if (++i >= in.size()) return false;
    switch (in[i]) {
      case 'n': out += '\n'; break;
      case 'r': out += '\r'; break;
      case 't': out += '\t'; break;
      case 's': out += ' '; break;
      case '0': out += '\0'; break;
      case '\\': out += '\\'; break;
      case 'x': {
        if (i + 2 >= in.size()) return false;
        int h = hexDigit(in[i + 1]), l = hexDigit(in[i + 2]);
        if (h < 0 || l < 0) return false;
        out += static_cast<char>(h * 16 + l);
        i += 2;
        break;
      }
      default: return false;
    }
  }
  return true;
}

std::string toHex(const std::string& bytes) {
  static const char* hex = "0123456789abcdef";
  std::string out;
  out.reserve(bytes.size() * 2);
  for (unsigned char c : bytes) {
    out += hex[c >> 4];
    out += hex[c & 15];
  }
  return out;
}

bool fromHex(const std::string& hex, std::string& out) {
  out.clear();
  std::string digits;
  for (char c : hex)
    if (c != ' ' && c != ':' && c != '\t') digits += c;
  if (digits.size() % 2) return false;
  out.reserve(digits.size() / 2);
  for (size_t i = 0; i < digits.size(); i += 2) {
    int h = hexDigit(digits[i]), l = hexDigit(digits[i + 1]);
    if (h < 0 || l < 0) return false;
    out += static_cast<char>(h * 16 + l);
  }
  return true;
}

uint64_t fnv1a64(const void* data, size_t n, uint64_t h) {
  const unsigned char* p = static_cast<const unsigned char*>(data);
  for (size_t i = 0; i < n; ++i) {
    h ^= p[i];
    h *= 1099511628211ull;
  }
  return h;
}

uint32_t crc32(const void* data, size_t n, uint32_t crc) {
  static uint32_t table[256];
  static bool ready = false;
  if (!ready) {
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      table[i] = c;
    }
    ready = true;
  }
  const unsigned char* p = static_cast<const unsigned char*>(data);
  crc = ~crc;
  for (size_t i = 0; i < n; ++i) crc = table[(crc ^ p[i]) & 0xFF] ^ (crc >> 8);
  return ~crc;
}

bool parseInt(const std::string& s, long long& out) {
  if (s.empty()) return false;
  errno = 0;
  char* end = nullptr;
  long long v;
  bool neg = false;
  std::string t = s;
  if (t[0] == '-' || t[0] == '+') {
    neg = t[0] == '-';
    t.erase(0, 1);
  }
  if (t.size() > 2 && t[0] == '0' && (t[1] == 'x' || t[1] == 'X')) {
    unsigned long long u = strtoull(t.c_str() + 2, &end, 16);
    if (errno || *end || end == t.c_str() + 2) return false;
    v = static_cast<long long>(u);
  } else {
    if (t.empty() || t[0] < '0' || t[0] > '9') return false;
    v = strtoll(t.c_str(), &end, 10);
    if (errno || *end) return false;
  }
  out = neg ? -v : v;
  return true;
}

}  // namespace devsim
