#include "xml/ParsedBody.h"

#include <ctype.h>
#include <stdint.h>
#include <string.h>

#include "xml/xmlutil.h"

namespace {

// Occurrences of `needle` in the NUL-terminated `text`, counted up to 2.
int CountUpToTwo(const char* text, const char* needle) {
  const char* p = strstr(text, needle);
  if (!p) return 0;
  return strstr(p + 1, needle) ? 2 : 1;
}

bool IsContinuation(unsigned char c) { return c >= 0x80 && c <= 0xbf; }

// A byte above 127 that both modes take as an ordinary character of a text or a name.
bool PlainHighByte(unsigned char c) { return !isspace(c) && tolower(c) >= 0x80; }

// The first byte above 127 in [p, end), or end; eight bytes at a time (answers are mostly
// ASCII).
const char* SkipAscii(const char* p, const char* end) {
  for (uint64_t w; end - p >= 8; p += 8) {
    memcpy(&w, p, 8);
    if (w & 0x8080808080808080ULL) break;
  }
  while (p < end && static_cast<unsigned char>(*p) < 0x80) ++p;
  return p;
}

}  // namespace

bool ReadsAlikeInBothEncodings(const char* begin, const char* end) {
  // UTF-8 mode writes a numeric character reference in several bytes, byte mode in one.
  for (const char* a = begin; (a = static_cast<const char*>(memchr(a, '&', static_cast<size_t>(end - a)))); ++a)
    if (a + 1 < end && a[1] == '#') return false;
  for (const char* p = begin; p < end; ++p) {
    p = SkipAscii(p, end);
    if (p >= end) break;
    unsigned char c = static_cast<unsigned char>(*p);
    if (!PlainHighByte(c)) return false;
    // UTF-8 mode steps over a lead and its continuation bytes at once, byte mode one by one:
    // alike only when the bytes stepped over are continuation bytes.
    int len = TiXmlBase::utf8ByteTable[c];
    if (len < 1 || end - p < len) return false;
    // UTF-8 mode skips the byte-order mark and U+FFFE, U+FFFF as white space; refused with
    // the rest of their two small blocks, which keeps the test short.
    if (c == 0xefU && (static_cast<unsigned char>(p[1]) == 0xbbU || static_cast<unsigned char>(p[1]) == 0xbfU))
      return false;
    for (int i = 1; i < len; ++i) {
      unsigned char k = static_cast<unsigned char>(p[i]);
      if (!IsContinuation(k) || !PlainHighByte(k)) return false;
    }
    p += len - 1;
  }
  return true;
}

const TiXmlElement* ReusableBodyElement(const char* msg, const TiXmlDocument& doc) {
  const char* begin;
  const char* end;
  bool isNull;
  if (!msg || !FindMessageBody(msg, &begin, &end, &isNull) || isNull) return nullptr;
  // With a single "<body" and a single "</body" in the text, an element named "body" can
  // only open at the cut's first byte and close at its last: its text is the cut's text.
  if (CountUpToTwo(msg, "<body") != 1 || CountUpToTwo(msg, "</body") != 1) return nullptr;
  const TiXmlElement* root = doc.RootElement();
  const TiXmlElement* body = root ? root->FirstChildElement("body") : nullptr;
  if (!body || !ReadsAlikeInBothEncodings(begin, end)) return nullptr;
  return body;
}
