#include "base/HostNetLog.h"

#include <cstdarg>
#include <cstdio>

#include "base/SDKLog.h"

namespace {
HostNetLogHook g_hook = nullptr;
}

void SetHostNetLogHook(HostNetLogHook hook) { g_hook = hook; }

void HostNetLog(int level, const char* format, ...) {
  char line[4096];
  va_list ap;
  va_start(ap, format);
  vsnprintf(line, sizeof line, format, ap);
  va_end(ap);
  if (g_hook) g_hook(level, line);
  else mlogLevel(level, "%s", line);
}
