// Runs bench_idle_floor (beside this program) against the simulator and reads its line:
// the idle CPU of the bare wake pattern, measured in the same run as the library's.
#pragma once

#include <cstdint>

namespace qxbench {

struct FloorResult {
  bool ran = false;
  long ready = 0;     // connections authenticated
  double cpuPct = -1;  // whole floor process in its idle window, % of one core
  long answers = 0;   // heartbeat answers read in the window
};

FloorResult RunIdleFloor(uint16_t port, long sessions, double idleSeconds);

}  // namespace qxbench
