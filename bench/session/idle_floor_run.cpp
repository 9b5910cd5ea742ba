#include "idle_floor_run.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace qxbench {

namespace {
// The directory of this executable, with its trailing slash; empty when unknown.
std::string OwnDirectory() {
  char path[4096];
  ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
  if (n <= 0) return "";
  std::string p(path, static_cast<size_t>(n));
  size_t slash = p.rfind('/');
  return slash == std::string::npos ? "" : p.substr(0, slash + 1);
}
}  // namespace

FloorResult RunIdleFloor(uint16_t port, long sessions, double idleSeconds) {
  FloorResult r;
  std::string cmd = OwnDirectory() + "bench_idle_floor --port " + std::to_string(port) + " --sessions " +
                    std::to_string(sessions) + " --idle " + std::to_string(idleSeconds);
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return r;
  char line[256];
  while (std::fgets(line, sizeof line, p)) {
    long n = 0;
    double idle = 0;
    if (std::sscanf(line, "floor N=%ld ready=%ld idle_s=%lf cpu_pct=%lf answers=%ld", &n, &r.ready, &idle,
                    &r.cpuPct, &r.answers) == 5)
      r.ran = true;
  }
  pclose(p);
  return r;
}

}  // namespace qxbench
