// Small JSON writer for qxnet's --json output: pure functions, no I/O.
#pragma once

#include <string>
#include <vector>

// `text` as a JSON string literal, quotes included. Quotes, backslashes and control characters
// are escaped; bytes that are not valid UTF-8 (a device may send anything) become U+FFFD, so the
// document always parses.
std::string JsonQuote(const std::string& text);

// A number as JSON: NaN and infinities, which JSON cannot hold, become null.
std::string JsonReal(double value);

// One JSON object, members in the order added. Raw takes a value already in JSON.
class JsonObject {
 public:
  JsonObject& Str(const char* key, const std::string& value);
  JsonObject& Int(const char* key, long long value);
  JsonObject& Real(const char* key, double value);
  JsonObject& Bool(const char* key, bool value);
  JsonObject& Null(const char* key);
  JsonObject& Raw(const char* key, const std::string& json);
  std::string Text() const { return "{" + body_ + "}"; }

 private:
  void Key(const char* key);
  std::string body_;
};

// A JSON array of values already in JSON.
std::string JsonArray(const std::vector<std::string>& items);
