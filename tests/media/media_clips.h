// The encoded clips of the media tests (made once by scripts/make-clips), cut into what a
// recorder delivers: video access units and audio frames.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mediatest {

struct Unit {
  std::vector<unsigned char> data;  // Annex B access unit, or one audio frame
  bool key = false;
};

struct VideoClip {
  bool h265 = false;
  std::vector<Unit> units;
  // The first access unit's parameter sets, each after a 4-byte start code (the header block).
  std::vector<unsigned char> header;
};

// Folder of the clips (the build passes it in).
std::string clipDir();
std::vector<unsigned char> readFile(const std::string& path);

// "h264_320x240", "h265_1920x1080", ...
VideoClip loadVideo(const std::string& name);
// Audio frames of a clip: "pcmu_8k.ulaw" and "pcma_8k.alaw" in 40 ms frames of 320 bytes,
// "aac_16k.adts" as ADTS frames.
std::vector<Unit> loadAudio(const std::string& file);

// NAL units (without start codes) of an Annex B buffer.
std::vector<std::vector<unsigned char>> nalUnits(const unsigned char* data, size_t length);

}  // namespace mediatest
