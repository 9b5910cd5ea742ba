// A cursor over a received envelope text for the readers that recognise one exact form
// without the XML parser (media packs, envelopes with an empty body).
#ifndef QXNET_SESSION_ENVELOPECURSOR_H
#define QXNET_SESSION_ENVELOPECURSOR_H

#include <cstddef>
#include <cstring>

class CEnvelopeCursor {
 public:
  CEnvelopeCursor(const char* p, size_t size) : m_p(p), m_end(p + size) {}
  // Consumes the literal when the text continues with it.
  bool Literal(const char* s, size_t n) {
    if (static_cast<size_t>(m_end - m_p) < n || std::memcmp(m_p, s, n) != 0) return false;
    m_p += n;
    return true;
  }
  template <size_t N>
  bool Literal(const char (&s)[N]) {
    return Literal(s, N - 1);
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
  // Consumes the head every envelope of the usual form starts with, up to and including
  // "</head>\n": type and cmd of 1 to 9 digits, result the same with an optional '-'
  // (each into 11 bytes).
  bool Head(char* type, char* cmd, char* result) {
    return Literal("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>") &&
           Number(type, false) && Literal("</type>\n<cmd>") && Number(cmd, false) && Literal("</cmd>\n<result>") &&
           Number(result, true) && Literal("</result>\n</head>\n");
  }
  const char* At() const { return m_p; }
  // The text ends here: a zero byte follows within the readable size.
  bool EndsHere() const { return m_p < m_end && *m_p == 0; }

 private:
  const char* m_p;
  const char* m_end;
};

#endif
