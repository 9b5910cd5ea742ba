// Files of every codec pair play: ffmpeg decodes them silently and ffprobe finds the frames,
// picture size, codecs and durations that were written, with audio and video starting together.
#include <gtest/gtest.h>

#include <cmath>

#include "media/mp4_checks.h"
#include "media/mp4_feed.h"

using namespace mediatest;

namespace {

struct Case {
  const char* video;       // clip name
  const char* audioFile;   // nullptr: no audio
  unsigned char audioCodec;
  const char* videoCodecName;  // as ffprobe names it
  const char* audioCodecName;
  int width, height;
};

void PrintTo(const Case& c, std::ostream* os) { *os << c.video << "+" << (c.audioFile ? c.audioFile : "none"); }

class Mp4Matrix : public Mp4Dir, public ::testing::WithParamInterface<Case> {};

TEST_P(Mp4Matrix, PlaysWithWhatWasWritten) {
  const Case& c = GetParam();
  VideoClip video = loadVideo(c.video);
  ASSERT_GT(video.units.size(), 50u);
  ASSERT_LE(video.header.size(), 255u);
  std::vector<Unit> audio;
  if (c.audioFile) audio = loadAudio(c.audioFile);
  Feed feed;
  feed.video = &video;
  feed.audio = c.audioFile ? &audio : nullptr;
  feed.audioCodec = c.audioCodec;
  const int frames = 100;
  std::string path = file("rec.mp4");
  Fed fed = writeFile(path.c_str(), feed, frames);
  ASSERT_EQ(fed.videoFrames, frames);

  ProbeInfo p = checkedProbe(path);
  const StreamInfo* v = p.find("video");
  ASSERT_NE(v, nullptr) << p.raw;
  EXPECT_EQ(v->codec, c.videoCodecName);
  EXPECT_EQ(v->width, c.width);
  EXPECT_EQ(v->height, c.height);
  EXPECT_EQ(v->frames, frames);
  EXPECT_EQ(v->packets, frames);
  EXPECT_NEAR(v->duration, frames * 0.040, 0.002);
  const StreamInfo* a = p.find("audio");
  if (!c.audioFile) {
    EXPECT_EQ(a, nullptr);
    EXPECT_EQ(p.brand, "iso5");  // mp4 with fragments based on their moof
    return;
  }
  ASSERT_NE(a, nullptr) << p.raw;
  EXPECT_EQ(a->codec, c.audioCodecName);
  EXPECT_EQ(a->sampleRate, c.audioCodec == Mp4Writer::kAudioAac ? 16000 : 8000);
  EXPECT_NEAR(a->duration, fed.audioFrames * audioFrameMs(c.audioCodec) / 1000.0, 0.002);
  EXPECT_LE(std::fabs(a->start - v->start), 0.1);
  if (c.audioCodec == Mp4Writer::kAudioAac) {
    EXPECT_EQ(a->packets, fed.audioFrames);
    EXPECT_EQ(p.brand, "iso5");  // mp4 with fragments based on their moof
  } else {
    EXPECT_EQ(p.brand, "qt  ");  // G.711 goes into the QuickTime flavour
  }
}

const unsigned char kU = Mp4Writer::kAudioG711U, kA = Mp4Writer::kAudioG711A, kAac = Mp4Writer::kAudioAac,
                    kNo = Mp4Writer::kNone;

INSTANTIATE_TEST_SUITE_P(
    Codecs, Mp4Matrix,
    ::testing::Values(Case{"h264_320x240", "pcmu_8k.ulaw", kU, "h264", "pcm_mulaw", 320, 240},
                      Case{"h264_320x240", "pcma_8k.alaw", kA, "h264", "pcm_alaw", 320, 240},
                      Case{"h264_320x240", "aac_16k.adts", kAac, "h264", "aac", 320, 240},
                      Case{"h264_320x240", nullptr, kNo, "h264", "", 320, 240},
                      Case{"h265_320x240", "pcmu_8k.ulaw", kU, "hevc", "pcm_mulaw", 320, 240},
                      Case{"h265_320x240", "pcma_8k.alaw", kA, "hevc", "pcm_alaw", 320, 240},
                      Case{"h265_320x240", "aac_16k.adts", kAac, "hevc", "aac", 320, 240},
                      Case{"h265_320x240", nullptr, kNo, "hevc", "", 320, 240},
                      Case{"h264_1920x1080", "aac_16k.adts", kAac, "h264", "aac", 1920, 1080},
                      Case{"h265_1920x1080", "pcmu_8k.ulaw", kU, "hevc", "pcm_mulaw", 1920, 1080}));

}  // namespace
