// The whole-process download: `qxnet download` of a recorder span from qxdevsim streaming as
// fast as the socket takes, measured from outside, then the file checked.
#pragma once

#include <memory>
#include <string>

#include "bench_figure.h"
#include "devsim_client.h"
#include "media_verify.h"

namespace benchdl {

// A simulated recorder of 1080p H.264 + AAC on 127.0.0.1 that records channel 1 all day and
// sends without pacing; null (with err) when it did not start.
std::unique_ptr<qxtest::DevSim> StartRecorder(std::string& err);

// YYYYMMDD of a day on which channel 1 of the simulator has recordings.
std::string RecordingDay(int channel);

struct Download {
  Figure file;              // bytes: the MP4's size; cpu: the qxnet process
  Figure received;          // bytes: media payload the simulator sent; cpu: the same qxnet CPU
  double simulatorCpu = 0;  // CPU seconds of the simulator meanwhile
  long sentPictures = -1;   // video frames of the span, as the simulator reports them
  long pictures = -1;       // video packets in the file (ffprobe)
  long audioPackets = -1;
  Decoded decoded;
  std::string failure;  // empty when every check held
};

// Downloads channel 1 from `start` to `end` (YYYYMMDDhhmmss) into workDir/download.mp4.
Download RunDownload(qxtest::DevSim& sim, const std::string& qxnet, const std::string& start, const std::string& end,
                     const std::string& workDir);

}  // namespace benchdl
