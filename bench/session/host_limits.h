// Limits of the host that decide how many sessions one process can hold: the
// descriptor limit (raised to its hard value), and the kernel and account limits on
// threads, process ids and memory mappings that bite at thousands of threads.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace qxbench {

struct FdLimit {
  unsigned long before = 0;  // soft limit found at start
  unsigned long now = 0;     // soft limit after raising
  unsigned long hard = 0;
};

// Raises RLIMIT_NOFILE (as root the hard limit too, up to fs.nr_open; else the soft limit
// to the hard one) and prints one line saying so.
// Children started afterwards (the simulator) inherit the raised limit.
FdLimit RaiseFdLimit(const char* prog);

// Largest session count whose descriptors fit `limit`: this process needs perSession
// descriptors a session plus reserve. The limit is per process, so the simulator child
// (one descriptor per session) only needs its own count under the same value.
long MaxSessionsForFds(unsigned long limit, double perSession, long reserve);

struct LimitShortfall {
  std::string name;
  long long value;
  long long needed;
};

// Limits too low for `sessions` more sessions in this process, each a thread holding
// mapsPerSession memory mappings (its stack and guard, its buffers) and a connection
// from an ephemeral local port.
std::vector<LimitShortfall> SessionLimitShortfalls(long sessions, double mapsPerSession);

// Prints one line per shortfall ("prog: kernel limit NAME = V is too low for ...");
// nothing when there is none. Returns the number printed.
int PrintShortfalls(const char* prog, const std::vector<LimitShortfall>& list, FILE* out);

long MapCount();  // lines of /proc/self/maps

}  // namespace qxbench
