// Feeds a writer with clip media as a recorder download would: video frames every 40 ms and the
// audio frames whose time has come, each with its millisecond timestamp.
#pragma once

#include <cstdint>
#include <vector>

#include "media/Mp4Writer.h"
#include "media/media_clips.h"

namespace mediatest {

struct Feed {
  const VideoClip* video = nullptr;
  const std::vector<Unit>* audio = nullptr;  // none: video only
  unsigned char audioCodec = Mp4Writer::kNone;
  uint32_t t0 = 1000;  // timestamp of frame 0
};

struct Fed {
  int videoFrames = 0;
  int audioFrames = 0;
};

// Milliseconds one audio frame of the codec lasts (G.711: 320 bytes; AAC: 1024 samples at 8 kHz).
int audioFrameMs(unsigned char codec);

// Writes video frames [from, to) (the clip loops) and the audio frames that start before frame
// `to`'s time, from the first one not written yet (`next` keeps the audio position between calls).
Fed feedFrames(Mp4Writer& w, const Feed& f, int from, int to, int& nextAudio);

// create + addVideo + feedFrames over `frames` frames + close.
Fed writeFile(const char* path, const Feed& f, int frames);

}  // namespace mediatest
