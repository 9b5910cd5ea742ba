// Replay through the library in this process: QXNet_Loc_NVRReplayByTime from the simulated
// recorder streaming as fast as the socket takes, into a replay data callback that only
// counts, until a span's worth of pictures has been delivered.
#pragma once

#include <string>

#include "bench_figure.h"
#include "devsim_client.h"

namespace benchdl {

struct Replay {
  Figure delivered;         // bytes: video and audio frames handed to the callback; cpu: this process
  double simulatorCpu = 0;  // CPU seconds of the simulator meanwhile
  long pictures = 0;        // video frames delivered
  long audioFrames = 0;
  std::string failure;  // empty when `pictures` frames arrived
  double fps() const { return delivered.wall > 0 ? pictures / delivered.wall : 0; }
};

// Replays channel 1 from `start` (YYYYMMDDhhmmss) until `pictures` video frames arrived.
Replay RunReplay(qxtest::DevSim& sim, const std::string& start, long pictures);

}  // namespace benchdl
