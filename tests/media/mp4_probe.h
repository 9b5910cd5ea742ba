// What ffprobe and ffmpeg say about a written file: every MP4 a test writes goes through both.
#pragma once

#include <string>
#include <vector>

namespace mediatest {

struct StreamInfo {
  std::string type;  // "video" / "audio"
  std::string codec;
  int width = 0;
  int height = 0;
  long frames = -1;  // decoded frames (ffprobe -count_frames)
  long packets = -1;
  int sampleRate = 0;
  double start = -1;
  double duration = -1;  // from the packets: end of the last one minus start
};

struct ProbeInfo {
  bool ok = false;
  std::string brand;  // major_brand
  std::string raw;    // ffprobe's output, for failure messages
  std::vector<StreamInfo> streams;
  const StreamInfo* find(const std::string& type) const;
};

// Standard output and error of a shell command.
std::string runCommand(const std::string& cmd);
// What `ffmpeg -v error -i FILE -f null -` prints: empty for a file that decodes cleanly.
std::string decodeErrors(const std::string& path);
ProbeInfo probe(const std::string& path);
// Sizes and presentation times (seconds) of one stream's packets ("v" or "a").
struct PacketInfo {
  double pts;
  double duration;
  long size;
  bool key;
};
std::vector<PacketInfo> packets(const std::string& path, const char* stream);

std::string tempDir();  // a fresh folder for the test's files
bool fileExists(const std::string& path);

}  // namespace mediatest
