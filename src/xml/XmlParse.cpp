#include "xml/XmlParse.h"

#include <ctype.h>
#include <string.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace {

// Kept per thread: after the first messages no allocation is needed for the copy. A
// buffer grown by an unusually large text is released again after that parse.
const size_t kKeepBufferBytes = 256 * 1024;

char* PaddedCopy(std::string& buf, const char* text, size_t len) {
  buf.assign(text, len);
  buf.append(static_cast<size_t>(kXmlTextPad), '\0');
  return &buf[0];
}

// Counts the places where TinyXML can start an element: '<' directly followed by a letter,
// '_' or a byte of 127 and above. The nesting depth cannot exceed this count.
size_t CountElementStarts(const char* text, size_t len) {
  size_t n = 0;
  const char* end = text + len;
  const char* p = text;
  while (p < end) {
    const char* lt = static_cast<const char*>(memchr(p, '<', static_cast<size_t>(end - p)));
    if (!lt || lt + 1 >= end) break;
    unsigned char c = static_cast<unsigned char>(lt[1]);
    if (c >= 127 || c == '_' || isalpha(c)) ++n;
    p = lt + 1;
  }
  return n;
}

// ---------------------------------------------------------------------------------------
// A walk over the text that takes exactly the steps TinyXML 2.6's parser takes
// (TiXmlDocument::Parse, Identify, the Parse of each node kind, ReadValue, ReadText,
// GetChar, GetEntity, SkipWhiteSpace), keeping only the element depth. Every TinyXML
// error ends its whole parse, so the walk stops at the first one too. It relies on the
// kXmlTextPad zero bytes after the text, as TinyXML does here.
class NestingWalk {
 public:
  explicit NestingWalk(int limit)
      : m_limit(limit), m_maxDepth(0), m_stop(false), m_enc(TIXML_ENCODING_UNKNOWN) {}

  int Run(const char* p) {
    if (!p || !*p) return 0;
    const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
    if (u[0] == 0xefU && u[1] == 0xbbU && u[2] == 0xbfU) m_enc = TIXML_ENCODING_UTF8;
    p = SkipWhiteSpace(p);
    while (p && *p && !m_stop) {
      int kind = Identify(p);
      if (kind == kNone) break;
      std::string declEncoding;
      bool isDecl = kind == kDeclaration;
      p = ParseNode(kind, p, 1, isDecl ? &declEncoding : nullptr);
      if (m_enc == TIXML_ENCODING_UNKNOWN && isDecl) {
        // Read as TinyXML reads it: a C string, so a decoded "&#0;" ends it.
        const char* enc = declEncoding.c_str();
        if (*enc == 0 || EqualPrefix(enc, "UTF-8", true) || EqualPrefix(enc, "UTF8", true))
          m_enc = TIXML_ENCODING_UTF8;
        else
          m_enc = TIXML_ENCODING_LEGACY;
      }
      p = SkipWhiteSpace(p);
    }
    return m_maxDepth;
  }

 private:
  enum { kNone, kDeclaration, kComment, kCData, kUnknown, kElement };

  static bool IsWhite(char c) { return isspace(static_cast<unsigned char>(c)) || c == '\n' || c == '\r'; }
  static bool IsAlpha(unsigned char c) { return c < 127 ? isalpha(c) != 0 : true; }
  static bool IsAlphaNum(unsigned char c) { return c < 127 ? isalnum(c) != 0 : true; }

  int ToLower(int v) const {
    if (m_enc == TIXML_ENCODING_UTF8) return v < 128 ? tolower(v) : v;
    return tolower(v);
  }

  // TinyXML's StringEqual: does the text at p begin with tag?
  bool EqualPrefix(const char* p, const char* tag, bool ignoreCase) const {
    if (!p || !*p) return false;
    const char* q = p;
    if (ignoreCase) {
      while (*q && *tag && ToLower(*q) == ToLower(*tag)) {
        ++q;
        ++tag;
      }
    } else {
      while (*q && *tag && *q == *tag) {
        ++q;
        ++tag;
      }
    }
    return *tag == 0;
  }

  const char* SkipWhiteSpace(const char* p) const {
    if (!p || !*p) return nullptr;
    if (m_enc == TIXML_ENCODING_UTF8) {
      while (*p) {
        const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
        if (u[0] == 0xefU && ((u[1] == 0xbbU && u[2] == 0xbfU) || (u[1] == 0xbfU && u[2] == 0xbeU) ||
                              (u[1] == 0xbfU && u[2] == 0xbfU))) {
          p += 3;
          continue;
        }
        if (IsWhite(*p))
          ++p;
        else
          break;
      }
    } else {
      while (*p && IsWhite(*p)) ++p;
    }
    return p;
  }

  const char* ReadName(const char* p) const {
    if (p && *p && (IsAlpha(static_cast<unsigned char>(*p)) || *p == '_')) {
      while (p && *p &&
             (IsAlphaNum(static_cast<unsigned char>(*p)) || *p == '_' || *p == '-' || *p == '.' || *p == ':'))
        ++p;
      return p;
    }
    return nullptr;
  }

  // GetEntity; appends the decoded character to `value` when one is given.
  const char* GetEntity(const char* p, std::string* value) const {
    if (p[1] && p[1] == '#' && p[2]) {
      unsigned long ucs = 0;
      unsigned mult = 1;
      const char* q;
      if (p[2] == 'x') {
        if (!p[3]) return nullptr;
        q = strchr(p + 3, ';');
        if (!q || !*q) return nullptr;
        const char* semi = q;
        --q;
        while (*q != 'x') {
          if (*q >= '0' && *q <= '9')
            ucs += mult * static_cast<unsigned>(*q - '0');
          else if (*q >= 'a' && *q <= 'f')
            ucs += mult * static_cast<unsigned>(*q - 'a' + 10);
          else if (*q >= 'A' && *q <= 'F')
            ucs += mult * static_cast<unsigned>(*q - 'A' + 10);
          else
            return nullptr;
          mult *= 16;
          --q;
        }
        q = semi;
      } else {
        q = strchr(p + 2, ';');
        if (!q || !*q) return nullptr;
        const char* semi = q;
        --q;
        while (*q != '#') {
          if (*q >= '0' && *q <= '9')
            ucs += mult * static_cast<unsigned>(*q - '0');
          else
            return nullptr;
          mult *= 10;
          --q;
        }
        q = semi;
      }
      // A value is only collected for the declaration's encoding, which matters only
      // while the encoding is still unknown, where TinyXML keeps the low byte.
      if (value) value->push_back(static_cast<char>(ucs));
      return q + 1;
    }
    static const struct {
      const char* str;
      size_t len;
      char chr;
    } kEntities[] = {{"&amp;", 5, '&'}, {"&lt;", 4, '<'}, {"&gt;", 4, '>'}, {"&quot;", 6, '"'}, {"&apos;", 6, '\''}};
    for (const auto& e : kEntities) {
      if (strncmp(e.str, p, e.len) == 0) {
        if (value) value->push_back(e.chr);
        return p + e.len;
      }
    }
    // An unrecognised '&' is skipped and contributes nothing.
    return p + 1;
  }

  const char* GetChar(const char* p, std::string* value) const {
    int length = 1;
    if (m_enc == TIXML_ENCODING_UTF8) length = TiXmlBase::utf8ByteTable[static_cast<unsigned char>(*p)];
    if (length == 1) {
      if (*p == '&') return GetEntity(p, value);
      if (value) value->push_back(*p);
      return p + 1;
    }
    if (length) {
      if (value)
        for (int i = 0; p[i] && i < length; ++i) value->push_back(p[i]);
      return p + length;
    }
    return nullptr;
  }

  const char* ReadText(const char* p, bool trimWhiteSpace, const char* endTag, std::string* value) const {
    if (!trimWhiteSpace || !TiXmlBase::IsWhiteSpaceCondensed()) {
      while (p && *p && !EqualPrefix(p, endTag, false)) p = GetChar(p, value);
    } else {
      p = SkipWhiteSpace(p);
      while (p && *p && !EqualPrefix(p, endTag, false)) {
        if (*p == '\r' || *p == '\n' || IsWhite(*p))
          ++p;
        else
          p = GetChar(p, nullptr);
      }
    }
    if (p && *p) p += strlen(endTag);
    return (p && *p) ? p : nullptr;
  }

  int Identify(const char* p) const {
    p = SkipWhiteSpace(p);
    if (!p || !*p || *p != '<') return kNone;
    if (EqualPrefix(p, "<?xml", true)) return kDeclaration;
    if (EqualPrefix(p, "<!--", false)) return kComment;
    if (EqualPrefix(p, "<![CDATA[", false)) return kCData;
    if (EqualPrefix(p, "<!", false)) return kUnknown;
    if (IsAlpha(static_cast<unsigned char>(p[1])) || p[1] == '_') return kElement;
    return kUnknown;
  }

  const char* ParseNode(int kind, const char* p, int depth, std::string* declEncoding) {
    switch (kind) {
      case kElement:
        return ParseElement(p, depth);
      case kDeclaration:
        return ParseDeclaration(p, declEncoding);
      case kComment:
        p = SkipWhiteSpace(p);
        if (!EqualPrefix(p, "<!--", false)) return nullptr;
        p += 4;
        while (p && *p && !EqualPrefix(p, "-->", false)) ++p;
        if (p && *p) p += 3;
        return p;
      case kCData:
        if (!EqualPrefix(p, "<![CDATA[", false)) return nullptr;
        p += 9;
        while (p && *p && !EqualPrefix(p, "]]>", false)) ++p;
        return ReadText(p, false, "]]>", nullptr);
      default:  // unknown
        p = SkipWhiteSpace(p);
        if (!p || !*p || *p != '<') return nullptr;
        ++p;
        while (p && *p && *p != '>') ++p;
        if (p && *p == '>') return p + 1;
        return p;
    }
  }

  // TiXmlAttribute::Parse; reports where the name lies and, when asked, the value.
  const char* ParseAttribute(const char* p, const char** name, size_t* nameLen, std::string* value) const {
    p = SkipWhiteSpace(p);
    if (!p || !*p) return nullptr;
    const char* start = p;
    p = ReadName(p);
    if (!p || !*p) return nullptr;
    *name = start;
    *nameLen = static_cast<size_t>(p - start);
    p = SkipWhiteSpace(p);
    if (!p || !*p || *p != '=') return nullptr;
    ++p;
    p = SkipWhiteSpace(p);
    if (!p || !*p) return nullptr;
    if (value) value->clear();
    if (*p == '\'') return ReadText(p + 1, false, "'", value);
    if (*p == '"') return ReadText(p + 1, false, "\"", value);
    while (p && *p && !IsWhite(*p) && *p != '\n' && *p != '\r' && *p != '/' && *p != '>') {
      if (*p == '\'' || *p == '"') return nullptr;
      if (value) value->push_back(*p);
      ++p;
    }
    return p;
  }

  const char* ParseDeclaration(const char* p, std::string* encoding) {
    p = SkipWhiteSpace(p);
    if (!p || !*p || !EqualPrefix(p, "<?xml", true)) return nullptr;
    p += 5;
    if (encoding) encoding->clear();
    while (p && *p) {
      if (*p == '>') return p + 1;
      p = SkipWhiteSpace(p);
      if (!p || !*p) break;
      const char* name;
      size_t nameLen;
      if (EqualPrefix(p, "version", true) || EqualPrefix(p, "standalone", true)) {
        p = ParseAttribute(p, &name, &nameLen, nullptr);
      } else if (EqualPrefix(p, "encoding", true)) {
        std::string value;
        p = ParseAttribute(p, &name, &nameLen, &value);
        if (encoding) *encoding = value;
      } else {
        while (p && *p && *p != '>' && !IsWhite(*p)) ++p;
      }
    }
    return nullptr;
  }

  // Keeps the frame small: this walk itself recurses once per level.
  const char* ParseElement(const char* p, int depth) {
    if (depth > m_maxDepth) m_maxDepth = depth;
    if (depth > m_limit) {
      m_stop = true;
      return nullptr;
    }
    p = SkipWhiteSpace(p);
    if (!p || !*p || *p != '<') return nullptr;
    p = SkipWhiteSpace(p + 1);
    const char* name = p;
    p = ReadName(p);
    if (!p || !*p) return nullptr;
    size_t nameLen = static_cast<size_t>(p - name);

    // TinyXML ends the parse at a repeated attribute name. The names of this element's
    // attributes are compared in a list while there are few, in a hash set past that.
    NameScope scope(m_names);
    std::unique_ptr<std::unordered_set<std::string_view>> many;
    while (p && *p) {
      p = SkipWhiteSpace(p);
      if (!p || !*p) return nullptr;
      if (*p == '/') {
        ++p;
        if (*p != '>') return nullptr;
        return p + 1;
      }
      if (*p == '>') {
        scope.Release();
        many.reset();
        p = ReadValue(p + 1, depth);
        if (!p || !*p) return nullptr;
        // "</name", optional white space, '>'.
        if (!EqualPrefix(p, "</", false) || strncmp(p + 2, name, nameLen) != 0) return nullptr;
        p = SkipWhiteSpace(p + 2 + nameLen);
        if (p && *p && *p == '>') return p + 1;
        return nullptr;
      }
      const char* attr = nullptr;
      size_t attrLen = 0;
      p = ParseAttribute(p, &attr, &attrLen, nullptr);
      if (!p || !*p) return nullptr;
      std::string_view n(attr, attrLen);
      if (!many) {
        for (size_t i = scope.From(); i < m_names.size(); ++i)
          if (m_names[i] == n) return nullptr;
        m_names.push_back(n);
        if (m_names.size() - scope.From() > 16)
          many.reset(new std::unordered_set<std::string_view>(m_names.begin() + static_cast<long>(scope.From()),
                                                              m_names.end()));
      } else if (!many->insert(n).second) {
        return nullptr;
      }
    }
    return p;
  }

  // Drops the attribute names an element added to the shared list when it is done with them.
  class NameScope {
   public:
    explicit NameScope(std::vector<std::string_view>& names) : m_names(names), m_from(names.size()) {}
    ~NameScope() { Release(); }
    size_t From() const { return m_from; }
    void Release() {
      if (m_names.size() > m_from) m_names.resize(m_from);
    }

   private:
    std::vector<std::string_view>& m_names;
    size_t m_from;
  };

  const char* ReadValue(const char* p, int depth) {
    const char* withWhiteSpace = p;
    p = SkipWhiteSpace(p);
    while (p && *p && !m_stop) {
      if (*p != '<') {
        const char* from = TiXmlBase::IsWhiteSpaceCondensed() ? p : withWhiteSpace;
        p = ReadText(from, true, "<", nullptr);
        p = p ? p - 1 : nullptr;
      } else {
        if (EqualPrefix(p, "</", false)) return p;
        int kind = Identify(p);
        if (kind == kNone) return nullptr;
        p = ParseNode(kind, p, depth + 1, nullptr);
      }
      withWhiteSpace = p;
      p = SkipWhiteSpace(p);
    }
    return m_stop ? nullptr : p;
  }

  std::vector<std::string_view> m_names;
  int m_limit;
  int m_maxDepth;
  bool m_stop;
  TiXmlEncoding m_enc;
};

}  // namespace

int XmlNestingDepth(const char* text, size_t len, int limit) {
  if (!text) return 0;
  std::string buf;
  const char* padded = PaddedCopy(buf, text, len);
  return NestingWalk(limit).Run(padded);
}

int XmlTreeDepth(const TiXmlNode* node) {
  if (!node) return 0;
  int best = 0;
  std::vector<std::pair<const TiXmlNode*, int>> todo;
  todo.emplace_back(node, 0);
  while (!todo.empty()) {
    const TiXmlNode* n = todo.back().first;
    int depth = todo.back().second;
    todo.pop_back();
    for (const TiXmlNode* c = n->FirstChild(); c; c = c->NextSibling()) {
      int d = depth + (c->ToElement() ? 1 : 0);
      if (d > best) best = d;
      todo.emplace_back(c, d);
    }
  }
  return best;
}

int ParseXmlText(TiXmlDocument& doc, const char* text, size_t len) {
  if (!text) return XML_PARSE_ERROR;
  static thread_local std::string buf;
  const char* padded = PaddedCopy(buf, text, len);
  size_t textLen = strlen(padded);
  int rc = XML_PARSE_OK;
  if (CountElementStarts(padded, textLen) > static_cast<size_t>(kXmlMaxNesting) &&
      NestingWalk(kXmlMaxNesting).Run(padded) > kXmlMaxNesting) {
    rc = XML_PARSE_TOO_DEEP;
  } else {
    // Row and column tracking is never read here; without it TinyXML does not walk the
    // text a second time for every node it creates.
    doc.SetTabSize(0);
    doc.Parse(padded, nullptr, TIXML_ENCODING_UNKNOWN);
    rc = doc.Error() ? XML_PARSE_ERROR : XML_PARSE_OK;
  }
  if (buf.capacity() > kKeepBufferBytes) std::string().swap(buf);
  return rc;
}

int ParseXmlText(TiXmlDocument& doc, const char* text) {
  if (!text) return XML_PARSE_ERROR;
  return ParseXmlText(doc, text, strlen(text));
}
