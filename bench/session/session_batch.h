// One measured batch of the session benchmark: N sessions logged in to the simulator,
// left idle, then logged out one by one; a second batch of N ended by QXNet_Free alone.
#pragma once

#include <string>
#include <vector>

#include "devsim_client.h"
#include "idle_floor_run.h"

namespace qxbench {

struct BatchResult {
  long n = 0;
  long authenticated = 0;  // first batch, within the wait
  long failures = 0;       // status events 0, 2, 3 of the first batch
  double authSeconds = 0;  // until all were authenticated (or the wait ran out)
  double idleSeconds = 0;  // length of the idle window actually measured
  double idleCpuPct = 0;   // whole process, % of one core
  double simIdleCpuPct = -1;  // the simulator child in the same window, -1 when unread
  double rssKiBPerSession = 0;
  long threadsIdle = 0, fdsIdle = 0;
  double threadsPerSession = 0, fdsPerSession = 0;
  long long heartbeats = 0;  // answered by the simulator during the idle window
  double logoutSeconds = 0;  // QXNet_LogOutDev of every session, one thread
  // CPU seconds spent while the logouts ran (until the calls returned): this process,
  // the simulator child. Beside the wall-clock time they tell a busy machine's waits
  // from the work done.
  double logoutCpu = 0, logoutSimCpu = -1;
  bool simEmptyAfterLogout = false;
  long secondAuthenticated = 0;
  double secondAuthSeconds = 0;
  double freeSeconds = 0;  // QXNet_Free with the second batch logged in
  double freeCpu = 0, freeSimCpu = -1;
  bool simEmptyAfterFree = false;
  // The same idle wait with nothing of the library around it, N connections, same window.
  FloorResult floor;
};

// Per-session cost seen on a few sessions, to size the run before it starts.
struct SessionCost {
  double fds = 1, threads = 1, maps = 4;
};

// Installs the status callback that counts authentications and failures; call after
// every QXNet_init.
void InstallStatusCounter();

SessionCost ProbeSessionCost(qxtest::DevSim& sim, int sessions);

// Runs both halves for n sessions. Leaves the library initialised again afterwards.
BatchResult RunBatch(qxtest::DevSim& sim, long n, double idleSeconds, double authTimeout);

}  // namespace qxbench
