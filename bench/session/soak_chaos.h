// The faults of the soak: the simulator's CHAOS command (per period and connection,
// with probability N/1000: close it, send filler between frames, stall it; per device
// a reboot), its counters, and an emulation of drops, filler and reboots through older
// control commands for a simulator without CHAOS.
#pragma once

#include <random>
#include <string>

#include "devsim_client.h"

namespace qxbench {

struct ChaosSettings {
  int periodMs = 1000;
  int drop = 2;  // per mille, per connection and period
  int garbage = 2;
  int reboot = 1;  // per mille, per device and period
  int stall = 1;
  int stallMs = 3000;
  unsigned seed = 1;
};

// "CHAOS period_ms=1000 drop=2 garbage=2 reboot=1 stall=1 stall_ms=3000 seed=1"
std::string ChaosCommand(const ChaosSettings& s);

struct ChaosStats {
  long long drops = 0, garbage = 0, reboots = 0, stalls = 0;
  long long Total() const { return drops + garbage + reboots + stalls; }
  ChaosStats& operator+=(const ChaosStats& o);
};

// The simulator's chaos_* STATS counters (zero when it has none).
ChaosStats ReadChaosStats(qxtest::DevSim& sim);

// Plays one chaos period from this side: CLOSE, GARBAGE and REBOOT with the settings'
// probabilities (stalls have no older command and are not played).
class ChaosEmulator {
 public:
  explicit ChaosEmulator(const ChaosSettings& s) : s_(s), rng_(s.seed) {}
  void Step(qxtest::DevSim& sim, int devices);
  const ChaosStats& played() const { return played_; }

 private:
  bool Roll(int perMille) { return perMille > 0 && static_cast<int>(rng_() % 1000) < perMille; }
  ChaosSettings s_;
  std::mt19937 rng_;
  ChaosStats played_;
};

}  // namespace qxbench
