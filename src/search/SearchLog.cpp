#include "search/SearchLog.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <vector>

namespace {
std::atomic<SearchLogHook> g_hook{nullptr};
}

void SetSearchLogHook(SearchLogHook hook) { g_hook = hook; }

void SearchLog(int level, const char* format, ...) {
  SearchLogHook hook = g_hook;
  if (!hook) return;
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  int n = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  if (n < 0) {
    va_end(again);
    return;
  }
  std::vector<char> line(static_cast<size_t>(n) + 1);
  std::vsnprintf(line.data(), line.size(), format, again);
  va_end(again);
  hook(level, line.data());
}
