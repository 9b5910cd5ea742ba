// One replay or download of a simulated recorder: walks the channel's spans from a start
// time, loops the clips over them with rewritten timestamps and frame numbers, cuts frames
// into packs and frames those as media messages, applying the faults armed for it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "clips.h"
#include "rec_spans.h"

namespace devsim {

// A fault armed with RECFAULT, applied once by the next stream of the device.
struct RecFault {
  std::string kind;      // lose_pack seq_jump seq_wrap audio_first param_change audio_change
                         // drop stall refuse
  long long atMs = 2000; // media time after the stream's first frame
  long long value = 0;   // seq_jump: the jump; stall: ms; refuse: the flag
  std::string to;        // param_change: CODEC_SIZE; audio_change: CODEC
  bool rst = false;      // drop with a reset
  bool params = false;   // audio_change: announce the new parameters first
};

struct StreamConfig {
  std::string videoCodec = "h264", videoSize = "320x240", audioCodec = "aac";
  int videoLayout = 536, audioLayout = 276;
  size_t packMax = 4096;
  bool fast = false;
  bool download = false;
  int channel = 1;
  uint32_t startMs = 0, endMs = kDayMs;
  bool recordedDay = true;
};

struct StreamReport {
  int index = -1;
  int conn = 0;
  std::string state = "streaming";  // streaming ended stopped dropped refused closed
  StreamConfig cfg;
  long long videoFrames = 0, keyFrames = 0, audioFrames = 0, packs = 0, bytes = 0;
  long long videoInSpan = 0, audioInSpan = 0;  // timestamps within start..end
  long long firstVideoMs = -1, lastVideoMs = -1, firstAudioMs = -1, lastVideoInSpanMs = -1;
  std::vector<long long> parts;     // video frames per announced parameter set
  std::vector<std::string> faults;  // applied, in order
};

class RecorderStream {
 public:
  RecorderStream(const StreamConfig& cfg, RecorderSpans& spans, ClipStore& clips, std::vector<RecFault> faults,
                 StreamReport& report);
  bool open(std::string& err);  // clips loaded, positioned at the start time
  std::string paramsMessage();  // the stream-parameter message (unframed payload)

  enum class Stop { Budget, NotDue, End, Done, Drop, Stall, Paused };
  // End: nothing more is recorded; Done: a download sent its first frame past the end.
  // Appends framed media messages to out, until the budget or a stop: NotDue sets due to
  // the wall time of the next frame (real time); Stall sets due to the stall's end.
  Stop produce(std::string& out, size_t budget, int64_t now, int64_t& due, uint32_t flag);
  void seek(uint32_t ms, int64_t now);
  void setSpeed(int num, int den, int64_t now);
  void pause(bool p, int64_t now);
  bool paused() const { return paused_; }
  bool dropRst() const { return dropRst_; }

 private:
  bool position(uint32_t ms);  // false: nothing recorded at or after ms
  bool nextSpan(int64_t now);
  bool audioFirst(std::string& out, uint32_t flag);
  std::string framedParams(uint32_t flag);
  int64_t dueOf(uint32_t ts) const;
  void rebase(int64_t now, uint32_t ts);
  bool takeFault(const std::string& kind, uint32_t ts, RecFault& out);
  void emitFrame(std::string& out, const Clip& clip, const ClipFrame& f, uint32_t ts, uint32_t keyTs, bool video,
                 uint32_t flag);
  void emitPack(std::string& out, const char* data, size_t len, uint32_t ts, uint32_t keyTs, uint8_t packType,
                bool key, bool video, int payloadType, uint32_t flag);
  Stop videoStep(std::string& out, uint32_t flag, int64_t& due, int64_t now);
  Stop audioStep(std::string& out, uint32_t flag);

  StreamConfig cfg_;
  RecorderSpans& spans_;
  ClipStore& clips_;
  std::vector<RecFault> faults_;
  StreamReport& rep_;
  const Clip* video_ = nullptr;
  const Clip* audio_ = nullptr;
  Span span_;
  uint32_t vts_ = 0, ats_ = 0, keyTs_ = 0;
  size_t vPos_ = 0, aPos_ = 0;  // next frame of each clip
  uint32_t frameIndex_ = 0;
  uint16_t seq_ = 0;
  long long firstTs_ = -1;
  bool pastEnd_ = false, audioFirstDone_ = false;
  // per-frame pack faults
  bool losePack_ = false, jumpPack_ = false, wrapPack_ = false;
  long long jump_ = 0;
  bool dropRst_ = false;
  // real-time pacing: ts maps to wallBase + (ts - mediaBase) * den / num
  int64_t wallBase_ = 0;
  uint32_t mediaBase_ = 0;
  int num_ = 1, den_ = 1;
  bool paused_ = false;
  bool empty_ = false;     // nothing left to play
  bool started_ = false;
};

}  // namespace devsim
