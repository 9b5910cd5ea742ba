// Logs one process in to N simulated devices (default 10,000; or the counts given) and
// reports, beside the session worker's targets: time until all are authenticated, CPU of
// the whole process while idle (heartbeats only), resident memory per idle session,
// threads and descriptors, then the time to log all out one by one, and, for a second
// batch of N, the time QXNet_Free alone takes.
//
//   bench_sessions [N ...] [--idle SECONDS]      (idle window, default 20 s)
//
// The descriptor limit is raised to its hard value first; a count that does not fit it
// is lowered (and said so). Kernel limits too low for that many threads are printed.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "QXNetSDK.h"
#include "devsim_client.h"
#include "host_limits.h"
#include "session_batch.h"
#include "session_table.h"

namespace {
const char* kProg = "bench_sessions";
constexpr long kFdReserve = 64;  // the simulator's control channel, log files, stdio, ...
constexpr int kProbeSessions = 8;

struct Options {
  std::vector<long> counts;
  double idleSeconds = 20;
};

bool ParseArgs(int argc, char** argv, Options& o) {
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--idle") && i + 1 < argc) {
      o.idleSeconds = std::atof(argv[++i]);
    } else {
      char* end = nullptr;
      long n = std::strtol(argv[i], &end, 10);
      if (!end || *end || n <= 0) {
        std::fprintf(stderr, "usage: %s [N ...] [--idle SECONDS]\n", kProg);
        return false;
      }
      o.counts.push_back(n);
    }
  }
  if (o.counts.empty()) o.counts = {10000};
  return o.idleSeconds > 0;
}

// Lowers n to what the descriptor limit holds for this process and the simulator child.
long FitDescriptors(long n, const qxbench::FdLimit& lim, const qxbench::SessionCost& cost) {
  long mine = qxbench::MaxSessionsForFds(lim.now, cost.fds, kFdReserve);
  long sims = qxbench::MaxSessionsForFds(lim.now, 1.0, kFdReserve);
  long fit = mine < sims ? mine : sims;
  if (n <= fit) return n;
  std::printf(
      "%s: N=%ld does not fit the descriptor limit %lu (this process needs %.2f per session, the "
      "simulator child 1, each + %ld): N lowered to %ld\n",
      kProg, n, lim.now, cost.fds, kFdReserve, fit);
  return fit;
}
}  // namespace

int main(int argc, char** argv) {
  Options opt;
  if (!ParseArgs(argc, argv, opt)) return 2;
  qxbench::FdLimit lim = qxbench::RaiseFdLimit(kProg);  // before the simulator starts: it inherits it
  qxtest::DevSim sim({"--quiet"});
  if (!sim.ok()) {
    std::fprintf(stderr, "%s: simulator did not start: %s\n", kProg, sim.error().c_str());
    return 1;
  }
  QXNet_init();
  qxbench::InstallStatusCounter();
  qxbench::SessionCost cost = qxbench::ProbeSessionCost(sim, kProbeSessions);
  std::printf("%s: per session seen on %d: %.2f descriptors, %.2f threads, %.2f memory mappings\n", kProg,
              kProbeSessions, cost.fds, cost.threads, cost.maps);
  std::vector<qxbench::BatchResult> results;
  for (long n : opt.counts) {
    n = FitDescriptors(n, lim, cost);
    if (n < 1) {
      std::fprintf(stderr, "%s: the descriptor limit %lu leaves no room for sessions\n", kProg, lim.now);
      QXNet_Free();
      return 1;
    }
    if (qxbench::PrintShortfalls(kProg, qxbench::SessionLimitShortfalls(n, cost.maps), stdout) == 0)
      std::printf("%s: thread, process-id, mapping and port limits hold for N=%ld\n", kProg, n);
    std::fflush(stdout);
    results.push_back(qxbench::RunBatch(sim, n, opt.idleSeconds, 60.0 + static_cast<double>(n) / 100.0));
  }
  QXNet_Free();
  qxbench::PrintSessionTable(results, stdout);
  return 0;
}
