#include "proc_stats.h"

#include <dirent.h>
#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#if defined(__SANITIZE_ADDRESS__)
#define QXBENCH_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QXBENCH_ASAN 1
#endif
#endif

#ifdef QXBENCH_ASAN
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#endif

namespace qxbench {

namespace {
long StatusField(const char* name) {
  std::ifstream f("/proc/self/status");
  std::string line;
  size_t n = std::strlen(name);
  while (std::getline(f, line))
    if (line.compare(0, n, name) == 0 && line.size() > n && line[n] == ':') return std::atol(line.c_str() + n + 1);
  return -1;
}
}  // namespace

long RssKiB() { return StatusField("VmRSS"); }

long ThreadCount() { return StatusField("Threads"); }

long OpenFdCount() {
  DIR* d = opendir("/proc/self/fd");
  if (!d) return -1;
  long n = 0;
  while (dirent* e = readdir(d))
    if (e->d_name[0] != '.') ++n;
  closedir(d);
  return n - 1;  // the directory stream's own descriptor
}

bool UnderAddressSanitizer() {
#ifdef QXBENCH_ASAN
  return true;
#else
  return false;
#endif
}

long HeapInUseKiB() {
#ifdef QXBENCH_ASAN
  return static_cast<long>(__sanitizer_get_current_allocated_bytes() / 1024);
#else
  struct mallinfo2 mi = mallinfo2();
  return static_cast<long>((mi.uordblks + mi.hblkhd) / 1024);
#endif
}

double CpuSeconds() {
  struct rusage ru;
  getrusage(RUSAGE_SELF, &ru);
  return static_cast<double>(ru.ru_utime.tv_sec + ru.ru_stime.tv_sec) +
         static_cast<double>(ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

double CpuSecondsOf(long pid) {
  std::ifstream f("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  // The command name may hold spaces: fields are counted from its closing parenthesis,
  // which field 3 (the state) follows.
  size_t close = text.rfind(')');
  if (close == std::string::npos) return -1;
  std::istringstream rest(text.substr(close + 1));
  std::string field;
  double ticks = 0;
  for (int i = 3; i <= 15 && rest >> field; ++i)
    if (i >= 14) ticks += std::atof(field.c_str());  // utime, stime
  long hz = sysconf(_SC_CLK_TCK);
  return hz > 0 && rest ? ticks / static_cast<double>(hz) : -1;
}

double NowSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace qxbench
