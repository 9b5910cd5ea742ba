#include "json_out.h"

#include <cmath>
#include <cstdio>

namespace {

// Length of the valid UTF-8 sequence starting at s[i], or 0 when it is not one (overlong
// forms, surrogates, code points past U+10FFFF and cut sequences included).
size_t Utf8Length(const std::string& s, size_t i) {
  auto c = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
  auto cont = [&](size_t k) { return k < s.size() && (c(k) & 0xC0) == 0x80; };
  unsigned char b = c(i);
  if (b < 0x80) return 1;
  if (b >= 0xC2 && b <= 0xDF) return cont(i + 1) ? 2 : 0;
  if (b >= 0xE0 && b <= 0xEF) {
    if (!cont(i + 1) || !cont(i + 2)) return 0;
    if (b == 0xE0 && c(i + 1) < 0xA0) return 0;   // overlong
    if (b == 0xED && c(i + 1) >= 0xA0) return 0;  // UTF-16 surrogates
    return 3;
  }
  if (b >= 0xF0 && b <= 0xF4) {
    if (!cont(i + 1) || !cont(i + 2) || !cont(i + 3)) return 0;
    if (b == 0xF0 && c(i + 1) < 0x90) return 0;   // overlong
    if (b == 0xF4 && c(i + 1) >= 0x90) return 0;  // past U+10FFFF
    return 4;
  }
  return 0;
}

void AppendAscii(std::string& out, unsigned char b) {
  switch (b) {
    case '"': out += "\\\""; return;
    case '\\': out += "\\\\"; return;
    case '\b': out += "\\b"; return;
    case '\f': out += "\\f"; return;
    case '\n': out += "\\n"; return;
    case '\r': out += "\\r"; return;
    case '\t': out += "\\t"; return;
  }
  if (b < 0x20 || b == 0x7F) {
    char esc[8];
    std::snprintf(esc, sizeof esc, "\\u%04x", b);
    out += esc;
    return;
  }
  out += static_cast<char>(b);
}

}  // namespace

std::string JsonQuote(const std::string& text) {
  std::string out = "\"";
  out.reserve(text.size() + 2);
  for (size_t i = 0; i < text.size();) {
    size_t n = Utf8Length(text, i);
    if (n == 0) {
      out += "\\ufffd";
      ++i;
    } else if (n == 1) {
      AppendAscii(out, static_cast<unsigned char>(text[i++]));
    } else {
      out.append(text, i, n);
      i += n;
    }
  }
  return out + "\"";
}

std::string JsonReal(double value) {
  if (!std::isfinite(value)) return "null";
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.10g", value);
  return buf;
}

void JsonObject::Key(const char* key) {
  if (!body_.empty()) body_ += ',';
  body_ += JsonQuote(key) + ':';
}

JsonObject& JsonObject::Str(const char* key, const std::string& value) { return Raw(key, JsonQuote(value)); }
JsonObject& JsonObject::Int(const char* key, long long value) { return Raw(key, std::to_string(value)); }
JsonObject& JsonObject::Real(const char* key, double value) { return Raw(key, JsonReal(value)); }
JsonObject& JsonObject::Bool(const char* key, bool value) { return Raw(key, value ? "true" : "false"); }
JsonObject& JsonObject::Null(const char* key) { return Raw(key, "null"); }

JsonObject& JsonObject::Raw(const char* key, const std::string& json) {
  Key(key);
  body_ += json;
  return *this;
}

std::string JsonArray(const std::vector<std::string>& items) {
  std::string out = "[";
  for (size_t i = 0; i < items.size(); ++i) out += (i ? "," : "") + items[i];
  return out + "]";
}
