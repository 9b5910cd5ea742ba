#include "session/MediaEnvelope.h"

#include <cstdlib>
#include <cstring>

namespace {

class Cursor {
 public:
  Cursor(const char* p, size_t size) : m_p(p), m_end(p + size) {}
  // Consumes the literal when the text continues with it.
  bool Literal(const char* s, size_t n) {
    if (static_cast<size_t>(m_end - m_p) < n || std::memcmp(m_p, s, n) != 0) return false;
    m_p += n;
    return true;
  }
  // Consumes 1 to 9 digits (after a '-' when allowed) into out (11 bytes).
  bool Number(char* out, bool minus) {
    size_t n = 0;
    if (minus && m_p < m_end && *m_p == '-') out[n++] = *m_p++;
    size_t digits = 0;
    while (m_p < m_end && *m_p >= '0' && *m_p <= '9' && digits < 9) {
      out[n++] = *m_p++;
      ++digits;
    }
    out[n] = 0;
    return digits > 0 && (m_p == m_end || *m_p < '0' || *m_p > '9');
  }
  const char* At() const { return m_p; }
  bool EndsHere() const { return m_p < m_end && *m_p == 0; }

 private:
  const char* m_p;
  const char* m_end;
};

#define LIT(c, s) (c).Literal(s, sizeof(s) - 1)

}  // namespace

bool ReadMediaEnvelope(const char* text, size_t size, MediaEnvelope* out) {
  if (!text || !out) return false;
  Cursor c(text, size);
  char length[11];
  bool ok = LIT(c, "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>") &&
            c.Number(out->type, false) && LIT(c, "</type>\n<cmd>") && c.Number(out->cmd, false) &&
            LIT(c, "</cmd>\n<result>") && c.Number(out->result, true) &&
            LIT(c, "</result>\n</head>\n<body>\n<dataLen>") && c.Number(length, false) &&
            LIT(c, "</dataLen>\n</body>\n</PrivateProto>") && c.EndsHere();
  if (!ok) return false;
  out->dataLen = std::atol(length);
  out->textLength = static_cast<size_t>(c.At() - text);
  return true;
}
