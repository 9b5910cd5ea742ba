// Checks of the MP4 files the benchmark measured: how many pictures ffprobe finds, and
// whether ffmpeg decodes the whole file without a message.
#pragma once

#include <string>

namespace benchdl {

// Packets of the file's first video ("v") or audio ("a") stream as ffprobe counts them (one
// picture per packet: the clips have no B-frames); -1 when ffprobe fails.
long PacketCount(const std::string& file, const char* stream, const std::string& workDir);

struct Decoded {
  bool silent = false;  // ffmpeg ended with 0 and printed nothing at level "error"
  long frames = -1;     // video frames decoded
  std::string message;  // what ffmpeg printed, cut to a few hundred bytes
};

// Decodes every stream of the file into nothing.
Decoded DecodeFile(const std::string& file, const std::string& workDir);

}  // namespace benchdl
