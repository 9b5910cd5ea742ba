// Numbered parts: a split or an audio codec change begins name_1.mp4, name_2.mp4, ... without
// losing or overwriting anything; a writer killed midway leaves a file that plays up to its last
// fragment.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "media/mp4_feed.h"
#include "media/mp4_log.h"

using namespace mediatest;

namespace {

class Mp4Parts : public Mp4LogTest {
 protected:
  void SetUp() override {
    Mp4LogTest::SetUp();
    h264 = loadVideo("h264_320x240");
    h265 = loadVideo("h265_320x240");
    aac = loadAudio("aac_16k.adts");
    feed.video = &h264;
    feed.audio = &aac;
    feed.audioCodec = Mp4Writer::kAudioAac;
  }
  static bool addClipVideo(Mp4Writer& w, const VideoClip& clip) {
    return w.addVideo(clip.h265 ? "H265" : "H264", clip.header.data(), static_cast<unsigned char>(clip.header.size()));
  }
  static std::string text(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  VideoClip h264, h265;
  std::vector<Unit> aac;
  Feed feed;
};

TEST_F(Mp4Parts, SplitGivesNumberedPartsWhoseFramesAddUp) {
  std::string first = file("rec.mp4");
  Mp4Writer w;
  ASSERT_TRUE(w.create(first.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  Fed a = feedFrames(w, feed, 0, 50, next);
  w.splitFile("H264", h264.header.data(), static_cast<unsigned char>(h264.header.size()));
  EXPECT_EQ(w.currentPath(), file("rec_1.mp4"));
  EXPECT_EQ(w.videoCodec(), Mp4Writer::kVideoH264);
  Fed b = feedFrames(w, feed, 50, 100, next);
  w.close();
  EXPECT_EQ(w.currentPath(), "");
  EXPECT_EQ(count("create mp4 file ok... " + file("rec_1.mp4")), 1) << all();

  ProbeInfo p0 = checkedProbe(first), p1 = checkedProbe(file("rec_1.mp4"));
  EXPECT_EQ(videoFrames(p0), 50);
  EXPECT_EQ(videoFrames(p1), 50);
  ASSERT_NE(p0.find("audio"), nullptr);
  ASSERT_NE(p1.find("audio"), nullptr);
  EXPECT_EQ(p0.find("audio")->packets + p1.find("audio")->packets, a.audioFrames + b.audioFrames);
  EXPECT_NEAR(p1.find("audio")->start, p1.find("video")->start, 0.1);
  EXPECT_FALSE(fileExists(file("rec_2.mp4")));
}

TEST_F(Mp4Parts, NewParametersMayChangeTheCodec) {
  std::string first = file("codec.mp4");
  Mp4Writer w;
  ASSERT_TRUE(w.create(first.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  feedFrames(w, feed, 0, 30, next);
  w.splitFile("H265", h265.header.data(), static_cast<unsigned char>(h265.header.size()));
  EXPECT_EQ(w.videoCodec(), Mp4Writer::kVideoH265);
  Feed f = feed;
  f.video = &h265;
  feedFrames(w, f, 50, 100, next);
  w.close();
  ProbeInfo p0 = checkedProbe(first), p1 = checkedProbe(file("codec_1.mp4"));
  EXPECT_EQ(videoFrames(p0), 30);
  EXPECT_EQ(videoFrames(p1), 50);
  ASSERT_NE(p1.find("video"), nullptr);
  EXPECT_EQ(p1.find("video")->codec, "hevc");
}

TEST_F(Mp4Parts, ExistingPartIsNeverOverwritten) {
  std::string first = file("keep.mp4");
  { std::ofstream(file("keep_1.mp4")) << "an earlier download"; }
  Mp4Writer w;
  ASSERT_TRUE(w.create(first.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  feedFrames(w, feed, 0, 25, next);
  w.splitFile("H264", h264.header.data(), static_cast<unsigned char>(h264.header.size()));
  EXPECT_EQ(w.currentPath(), file("keep_2.mp4"));
  feedFrames(w, feed, 25, 75, next);
  w.close();
  EXPECT_EQ(text(file("keep_1.mp4")), "an earlier download");
  EXPECT_EQ(videoFrames(checkedProbe(first)), 25);
  EXPECT_EQ(videoFrames(checkedProbe(file("keep_2.mp4"))), 50);
}

TEST_F(Mp4Parts, NameWithoutExtensionGetsTheNumberAtTheEnd) {
  std::string first = file("plain");
  Mp4Writer w;
  ASSERT_TRUE(w.create(first.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  feedFrames(w, feed, 0, 25, next);
  w.splitFile("H264", h264.header.data(), static_cast<unsigned char>(h264.header.size()));
  feedFrames(w, feed, 25, 50, next);
  w.close();
  EXPECT_EQ(videoFrames(checkedProbe(first)), 25);
  EXPECT_EQ(videoFrames(checkedProbe(file("plain_1"))), 25);
}

// µ-law until 1.52 s, A-law after: the first part runs to the next key frame (2.0 s), the second
// starts there with every A-law sample; no frame and no sample is lost.
TEST_F(Mp4Parts, AudioCodecChangeBeginsTheNextPart) {
  std::vector<Unit> ulaw = loadAudio("pcmu_8k.ulaw"), alaw = loadAudio("pcma_8k.alaw");
  Feed u = feed, a = feed;
  u.audio = &ulaw;
  u.audioCodec = Mp4Writer::kAudioG711U;
  a.audio = &alaw;
  a.audioCodec = Mp4Writer::kAudioG711A;
  std::string first = file("change.mp4");
  Mp4Writer w;
  ASSERT_TRUE(w.create(first.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  Fed before = feedFrames(w, u, 0, 38, next);
  EXPECT_EQ(before.audioFrames, 38);
  Fed after = feedFrames(w, a, 38, 100, next);
  EXPECT_EQ(after.audioFrames, 62);
  EXPECT_EQ(w.audioCodec(), Mp4Writer::kAudioG711A);
  EXPECT_EQ(w.currentPath(), file("change_1.mp4"));
  w.close();
  EXPECT_EQ(count("audio codec changed. old: 96, new: 8"), 1) << all();

  ProbeInfo p0 = checkedProbe(first), p1 = checkedProbe(file("change_1.mp4"));
  EXPECT_EQ(videoFrames(p0), 50);
  EXPECT_EQ(videoFrames(p1), 50);
  const StreamInfo* a0 = p0.find("audio");
  const StreamInfo* a1 = p1.find("audio");
  ASSERT_NE(a0, nullptr);
  ASSERT_NE(a1, nullptr);
  EXPECT_EQ(a0->codec, "pcm_mulaw");
  EXPECT_EQ(a1->codec, "pcm_alaw");
  EXPECT_NEAR(a0->duration, 38 * 0.040, 0.002);
  EXPECT_NEAR(a1->duration, 62 * 0.040, 0.002);
  // The A-law samples before the key frame keep their place ahead of the picture.
  EXPECT_NEAR(p1.find("video")->start - a1->start, 2.0 - 1.52, 0.002);
}

// The child writes 150 frames with AAC (key frames every 25) and is killed without closing:
// the fragments up to the last key frame (frames 0..124) are on disk and play.
TEST_F(Mp4Parts, KilledWriterLeavesAFileThatPlaysToItsLastFragment) {
  std::string path = file("killed.mp4");
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    close(ready[0]);
    Mp4Writer w;
    if (!w.create(path.c_str()) || !addClipVideo(w, h264)) _exit(2);
    int next = 0;
    feedFrames(w, feed, 0, 150, next);
    char one = 1;
    if (write(ready[1], &one, 1) != 1) _exit(3);
    for (;;) pause();
  }
  close(ready[1]);
  char got = 0;
  ASSERT_EQ(read(ready[0], &got, 1), 1);
  close(ready[0]);
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  ProbeInfo p = checkedProbe(path);
  EXPECT_EQ(videoFrames(p), 125);
  ASSERT_NE(p.find("audio"), nullptr);
  // The AAC frames stamped before key frame 125 (5.0 s), 64 ms apart: 0..78.
  EXPECT_EQ(p.find("audio")->packets, (5000 + 63) / 64);
  EXPECT_NEAR(p.find("video")->duration, 5.0, 0.002);
}

}  // namespace
