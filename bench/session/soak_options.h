// Command line of the soak program.
#pragma once

#include "soak_chaos.h"

namespace qxbench {

enum class ChaosMode {
  Simulator,  // the simulator's CHAOS command (the run fails when it is refused)
  Off,        // --no-chaos: sessions only
  Emulated,   // --emulate-chaos: drops, filler and reboots through older control commands
};

struct SoakOptions {
  long sessions = 1000;
  double minutes = 60;
  double graceSeconds = 60;   // after chaos stops, for every session to authenticate again
  double settleSeconds = 11;  // after the first logins, so every session has sent a heartbeat
  double progressSeconds = 60;
  int devices = 10;
  ChaosMode mode = ChaosMode::Simulator;
  ChaosSettings chaos;
};

// False (after printing the usage) on a bad or unknown option.
bool ParseSoakOptions(int argc, char** argv, SoakOptions& o);

}  // namespace qxbench
