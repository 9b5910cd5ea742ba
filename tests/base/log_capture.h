// Capturing log callback shared by the log tests: every delivered line with its level
// and the thread it was delivered on.
#ifndef QXNET_TESTS_BASE_LOG_CAPTURE_H
#define QXNET_TESTS_BASE_LOG_CAPTURE_H

#include <time.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace logtest {

struct Line {
  unsigned level;
  std::string text;
  std::thread::id tid;
};

inline std::mutex& Mutex() {
  static std::mutex m;
  return m;
}

inline std::vector<Line>& Lines() {
  static std::vector<Line> v;
  return v;
}

inline void Capture(unsigned int level, const char* line) {
  std::lock_guard<std::mutex> g(Mutex());
  Lines().push_back(Line{level, line ? std::string(line) : std::string("(null)"), std::this_thread::get_id()});
}

inline void Clear() {
  std::lock_guard<std::mutex> g(Mutex());
  Lines().clear();
}

inline std::vector<Line> Snapshot() {
  std::lock_guard<std::mutex> g(Mutex());
  return Lines();
}

// Lines whose text contains `marker`, in delivery order.
inline std::vector<Line> With(const std::string& marker) {
  std::vector<Line> out;
  for (const Line& l : Snapshot())
    if (l.text.find(marker) != std::string::npos) out.push_back(l);
  return out;
}

inline bool WaitFor(const std::function<bool()>& pred, int ms) {
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!pred()) {
    if (std::chrono::steady_clock::now() >= end) return pred();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

// The line prefix for local time t, built independently of the library.
inline std::string PrefixAt(time_t t) {
  struct tm lt;
  localtime_r(&t, &lt);
  char buf[64];
  std::snprintf(buf, sizeof(buf), "QXNetSDK:%02u-%02u,%02u:%02u:%02u,", static_cast<unsigned>(lt.tm_mon + 1),
                static_cast<unsigned>(lt.tm_mday), static_cast<unsigned>(lt.tm_hour),
                static_cast<unsigned>(lt.tm_min), static_cast<unsigned>(lt.tm_sec));
  return buf;
}

// True when `text` is one of the lines "prefix(t) + body" for a t in [before, after]
// (the clock may tick between reading it and logging).
inline bool MatchesAnyPrefix(const std::string& text, const std::string& body, time_t before, time_t after) {
  for (time_t t = before; t <= after; ++t)
    if (text == PrefixAt(t) + body) return true;
  return false;
}

}  // namespace logtest

#endif
