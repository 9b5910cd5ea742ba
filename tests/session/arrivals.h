// When the messages a session sends reach the simulator, timed by the test: the
// simulator's WAIT returns the moment a message arrives, so the test's clock at that
// moment is the arrival time (within a control round trip).
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "devsim_client.h"

namespace qxtest {

struct Arrival {
  double t;  // seconds since the reference point
  std::string type;
  std::string cmd;
};

// Records every message the simulator receives for `seconds` after t0, in arrival order.
// `onSlice`, when given, runs before each wait (a test that also drives the device
// between waits) and returns the milliseconds until it wants to run again; a wait lasts
// at most that and at most `sliceMs`. False in `*ok` when the control channel failed.
std::vector<Arrival> RecordArrivals(DevSim& sim, std::chrono::steady_clock::time_point t0, double seconds,
                                    int sliceMs, const std::function<int()>& onSlice, bool* ok);

// Arrival times of one kind of message.
std::vector<double> TimesOf(const std::vector<Arrival>& all, const std::string& type, const std::string& cmd);

}  // namespace qxtest
