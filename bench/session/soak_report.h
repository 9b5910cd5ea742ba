// What the soak measured, its report, and the checks that decide its exit code.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "soak_chaos.h"
#include "soak_events.h"
#include "soak_options.h"

namespace qxbench {

struct SoakFigures {
  long sessions = 0;
  int devices = 0;
  double chaosSeconds = 0;
  ChaosMode mode = ChaosMode::Simulator;
  std::string chaosLine;
  EventTotals events;
  long warmupReconnects = 0;  // the one close of every connection before the start
  ChaosStats chaos;           // the simulator's counters (or what the emulation played)
  std::vector<std::string> simDeaths;
  int simExit = 0;  // exit status of the simulator at the end
  long lost = 0;    // not authenticated again within the grace period
  bool simHoldsAll = false;
  double recoverSeconds = 0;
  double graceSeconds = 0;
  long rssStartKiB = 0, rssEndKiB = 0;
  long heapStartKiB = 0, heapEndKiB = 0;
  long fdsStart = 0, fdsAfter = 0, threadsStart = 0, threadsAfter = 0;
  double logoutSeconds = 0;
  bool simEmptyAfterLogout = false;
};

constexpr double kRssGrowthAllowed = 0.05;

// Prints the report; returns the number of checks that failed.
int PrintSoakReport(const SoakFigures& f, FILE* out);

}  // namespace qxbench
