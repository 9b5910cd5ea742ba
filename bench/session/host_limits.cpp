#include "host_limits.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace qxbench {

namespace {
long long ReadNumber(const std::string& path) {
  std::ifstream f(path);
  long long v = -1;
  if (!(f >> v)) return -1;  // also "max" in a cgroup file: no limit
  return v;
}

// Tasks (threads) alive on the whole system: the fourth field of /proc/loadavg, "R/T".
long long SystemTasks() {
  std::ifstream f("/proc/loadavg");
  std::string a, b, c, rt;
  if (!(f >> a >> b >> c >> rt)) return -1;
  size_t slash = rt.find('/');
  return slash == std::string::npos ? -1 : std::atoll(rt.c_str() + slash + 1);
}

// pids.max of this process's cgroup (v2 unified line "0::/path", else the v1 pids controller).
std::string PidsCgroupDir() {
  std::ifstream f("/proc/self/cgroup");
  std::string line, v2;
  while (std::getline(f, line)) {
    std::istringstream is(line);
    std::string id, ctrl, path;
    std::getline(is, id, ':');
    std::getline(is, ctrl, ':');
    std::getline(is, path);
    if (ctrl == "pids") return "/sys/fs/cgroup/pids" + path;
    if (id == "0" && ctrl.empty()) v2 = "/sys/fs/cgroup" + path;
  }
  return v2;
}

void Need(std::vector<LimitShortfall>& out, const std::string& name, long long value, long long needed) {
  if (value >= 0 && value < needed) out.push_back({name, value, needed});
}
}  // namespace

FdLimit RaiseFdLimit(const char* prog) {
  FdLimit r;
  struct rlimit rl;
  getrlimit(RLIMIT_NOFILE, &rl);
  r.before = rl.rlim_cur;
  r.hard = rl.rlim_max;
  // Root may raise the hard limit itself, up to the kernel's fs.nr_open: ten thousand
  // sessions need twenty thousand descriptors here and as many again in the simulator.
  long long nrOpen = ReadNumber("/proc/sys/fs/nr_open");
  struct rlimit raised = rl;
  if (nrOpen > 0 && static_cast<rlim_t>(nrOpen) > rl.rlim_max) {
    raised.rlim_cur = raised.rlim_max = static_cast<rlim_t>(nrOpen);
    if (setrlimit(RLIMIT_NOFILE, &raised) == 0) {
      r.now = r.hard = raised.rlim_cur;
      std::printf("%s: descriptor limit (RLIMIT_NOFILE) raised from %lu to %lu (hard limit raised too)\n", prog,
                  r.before, r.now);
      return r;
    }
  }
  rl.rlim_cur = rl.rlim_max;
  if (setrlimit(RLIMIT_NOFILE, &rl) == 0)
    r.now = rl.rlim_cur;
  else
    r.now = r.before;
  std::printf("%s: descriptor limit (RLIMIT_NOFILE) raised from %lu to the hard limit %lu\n", prog, r.before,
              r.now);
  return r;
}

long MaxSessionsForFds(unsigned long limit, double perSession, long reserve) {
  if (perSession <= 0) perSession = 1;
  double n = (static_cast<double>(limit) - static_cast<double>(reserve)) / perSession;
  return n < 0 ? 0 : static_cast<long>(std::floor(n));
}

std::vector<LimitShortfall> SessionLimitShortfalls(long sessions, double mapsPerSession) {
  std::vector<LimitShortfall> out;
  long long tasks = SystemTasks();
  long long busy = (tasks < 0 ? 0 : tasks) + sessions + 256;
  Need(out, "kernel.threads-max", ReadNumber("/proc/sys/kernel/threads-max"), busy);
  Need(out, "kernel.pid_max", ReadNumber("/proc/sys/kernel/pid_max"), busy);
  long long maps = MapCount() + static_cast<long long>(std::ceil(sessions * mapsPerSession)) + 1024;
  Need(out, "vm.max_map_count", ReadNumber("/proc/sys/vm/max_map_count"), maps);
  std::string cg = PidsCgroupDir();
  if (!cg.empty()) {
    long long cur = ReadNumber(cg + "/pids.current");
    Need(out, "cgroup pids.max", ReadNumber(cg + "/pids.max"), (cur < 0 ? 0 : cur) + sessions + 64);
  }
  // The per-user task limit does not hold for root.
  struct rlimit rl;
  if (geteuid() != 0 && getrlimit(RLIMIT_NPROC, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY)
    Need(out, "RLIMIT_NPROC (ulimit -u)", static_cast<long long>(rl.rlim_cur), busy);
  std::ifstream ports("/proc/sys/net/ipv4/ip_local_port_range");
  long long lo = 0, hi = -1;
  if (ports >> lo >> hi) Need(out, "net.ipv4.ip_local_port_range (ports)", hi - lo + 1, sessions + 1024);
  return out;
}

int PrintShortfalls(const char* prog, const std::vector<LimitShortfall>& list, FILE* out) {
  for (const auto& s : list)
    std::fprintf(out, "%s: %s = %lld is too low for this run (about %lld needed)\n", prog, s.name.c_str(), s.value,
                 s.needed);
  return static_cast<int>(list.size());
}

long MapCount() {
  std::ifstream f("/proc/self/maps");
  std::string line;
  long n = 0;
  while (std::getline(f, line)) ++n;
  return n;
}

}  // namespace qxbench
