// The media a recorder plays back: short clips (Annex B video, raw G.711, ADTS AAC) read once
// and cut into frames, looped by the stream for spans of any length.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace devsim {

// One access unit (video) or audio frame: a byte range of the clip file.
struct ClipFrame {
  size_t off = 0;
  size_t len = 0;
  bool key = false;
};

struct Clip {
  std::string name;        // file name, e.g. "h264_320x240.h264"
  std::string bytes;       // the whole file
  std::vector<ClipFrame> frames;
  bool video = false;
  std::string codec;       // h264 h265 pcmu pcma aac
  int payloadType = 0;     // of the pack header: 96 201 0 8 97
  int frameMs = 40;        // duration of one frame
  std::string paramSets;   // video: the first parameter sets, 4-byte start codes
  const char* data(const ClipFrame& f) const { return bytes.data() + f.off; }
};

// Clips by (codec, size), loaded on first use from the clip folder.
class ClipStore {
 public:
  void setDir(const std::string& dir) { dir_ = dir; }
  const std::string& dir() const { return dir_; }
  // codec h264|h265 and size 320x240|1920x1080; null with err set when missing or unreadable.
  const Clip* video(const std::string& codec, const std::string& size, std::string& err);
  // codec pcmu|pcma|aac.
  const Clip* audio(const std::string& codec, std::string& err);

 private:
  const Clip* load(const std::string& file, const std::string& codec, std::string& err);
  std::string dir_;
  std::map<std::string, std::unique_ptr<Clip>> clips_;
};

// Cutting (clip_cut.cpp): exposed for the tests of the simulator itself.
bool cutAnnexB(Clip& c, std::string& err);  // access units, key flags, parameter sets
bool cutAdts(Clip& c, std::string& err);    // one ADTS frame each, 1024 samples
void cutG711(Clip& c, size_t bytesPerFrame);

// The default clip folder: $QXNET_CLIP_DIR, else the folder the build encoded them into.
std::string defaultClipDir();

}  // namespace devsim
