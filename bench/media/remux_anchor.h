// The first yardstick of the download: ffmpeg remuxing (-c copy) the same ten minutes of
// media into a fragmented MP4, from an MPEG-TS that keeps H.264 in Annex B and AAC in ADTS
// as the recorder sends them, so that ffmpeg does the conversions the library does.
#pragma once

#include <string>

#include "bench_figure.h"

namespace benchdl {

struct RemuxInput {
  std::string path;     // the cached MPEG-TS
  long pictures = 0;    // video frames in it
  long audioFrames = 0;
  std::string failure;  // empty when the input exists and holds every frame
};

// The simulator's 1080p H.264 clip and AAC clip looped as the simulator loops them, `pictures`
// and `audioFrames` long (25 pictures and 15.625 AAC frames a second), built once into a cache
// folder; workDir holds the scratch files of the checks.
RemuxInput MakeRemuxInput(long pictures, long audioFrames, const std::string& workDir);

struct Remux {
  Figure out;  // bytes: the MP4's size; cpu: the ffmpeg process
  long pictures = -1;
  long audioPackets = -1;
  std::string failure;  // empty when ffmpeg succeeded and the file holds every frame
};

Remux RunRemux(const RemuxInput& in, const std::string& workDir);

}  // namespace benchdl
