// Captures the host-facts and probe diagnostics (their family is dropped by default).
#ifndef QXNET_TESTS_BASE_HOSTNET_LOG_CAPTURE_H
#define QXNET_TESTS_BASE_HOSTNET_LOG_CAPTURE_H

#include <algorithm>
#include <string>
#include <vector>

#include "base/HostNetLog.h"

namespace hostlog {

inline std::vector<std::string>& Lines() {
  static std::vector<std::string> v;
  return v;
}
inline void Hook(int, const char* line) { Lines().push_back(line); }

// Installs the hook for one test's life.
struct Capture {
  Capture() {
    Lines().clear();
    SetHostNetLogHook(&Hook);
  }
  ~Capture() { SetHostNetLogHook(nullptr); }
  long Count(const std::string& line) const { return std::count(Lines().begin(), Lines().end(), line); }
};

}  // namespace hostlog

#endif
