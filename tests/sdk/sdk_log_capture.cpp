#include "sdk_log_capture.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "QXNetSDK.h"

namespace sdktest {
namespace {

std::mutex g_mutex;
std::vector<LogLine> g_lines;
size_t g_malformed = 0;

// "QXNetSDK:" then "%02u-%02u,%02u:%02u:%02u,".
constexpr const char kHead[] = "QXNetSDK:";
constexpr size_t kPrefixLength = 9 + 6 + 9;

bool HasPrefix(const char* line) {
  std::string s(line);
  if (s.size() < kPrefixLength || s.compare(0, 9, kHead) != 0) return false;
  const char* pattern = "dd-dd,dd:dd:dd,";
  for (size_t i = 0; i < 15; ++i) {
    char c = s[9 + i];
    if (pattern[i] == 'd' ? !std::isdigit(static_cast<unsigned char>(c)) : c != pattern[i]) return false;
  }
  return true;
}

void Capture(unsigned int level, const char* line) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!line || !HasPrefix(line)) {
    ++g_malformed;
    return;
  }
  g_lines.push_back(LogLine{level, std::string(line + kPrefixLength)});
}

}  // namespace

void InstallLogCapture() { QXNet_SetfcLogCallBackEx(&Capture, 31); }

void ClearLog() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_lines.clear();
  g_malformed = 0;
}

std::vector<LogLine> LogLines() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_lines;
}

size_t CountLog(const std::string& text) {
  std::lock_guard<std::mutex> lock(g_mutex);
  size_t n = 0;
  for (const LogLine& l : g_lines)
    if (l.text == text) ++n;
  return n;
}

size_t CountLogPrefix(const std::string& head) {
  std::lock_guard<std::mutex> lock(g_mutex);
  size_t n = 0;
  for (const LogLine& l : g_lines)
    if (l.text.compare(0, head.size(), head) == 0) ++n;
  return n;
}

size_t MalformedLogLines() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_malformed;
}

std::string Format(const char* format, ...) {
  char buf[4096];
  va_list args;
  va_start(args, format);
  std::vsnprintf(buf, sizeof(buf), format, args);
  va_end(args);
  return buf;
}

std::string AsLogged(const std::string& message) {
  if (!message.empty() && message.back() == '\n') return message;
  return message + "\r\n";
}

}  // namespace sdktest
