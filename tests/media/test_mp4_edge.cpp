// The writer's edge cases: refused header blocks, the frame rate fallback, the frame trailer,
// a second video track, frames before the first key frame, wrapping timestamps, and the log
// lines of each step. Every file written is probed and decoded.
#include <gtest/gtest.h>

#include <cstring>

#include "media/mp4_feed.h"
#include "media/mp4_log.h"

using namespace mediatest;

namespace {

std::vector<unsigned char> withStartCodes(const std::vector<std::vector<unsigned char>>& nals, int codeLength) {
  std::vector<unsigned char> out;
  for (const auto& nal : nals) {
    for (int i = 0; i < codeLength - 1; ++i) out.push_back(0);
    out.push_back(1);
    out.insert(out.end(), nal.begin(), nal.end());
  }
  return out;
}

// Bit writer for hand-made SPSs; escape() adds the emulation prevention bytes.
struct Bits {
  std::vector<unsigned char> out;
  int n = 0;
  void bit(unsigned b) {
    if (n % 8 == 0) out.push_back(0);
    if (b) out.back() = static_cast<unsigned char>(out.back() | (0x80 >> (n % 8)));
    ++n;
  }
  void bits(uint32_t v, int count) {
    for (int i = count - 1; i >= 0; --i) bit((v >> i) & 1u);
  }
  void ue(uint32_t v) {
    uint32_t x = v + 1;
    int len = 0;
    while ((x >> len) > 1) ++len;
    bits(0, len);
    bits(x, len + 1);
  }
  std::vector<unsigned char> escaped() {
    bit(1);
    while (n % 8) bit(0);
    std::vector<unsigned char> e;
    int zeros = 0;
    for (unsigned char b : out) {
      if (zeros >= 2 && b <= 3) {
        e.push_back(3);
        zeros = 0;
      }
      e.push_back(b);
      zeros = b == 0 ? zeros + 1 : 0;
    }
    return e;
  }
};

// The clip's own 320x240 constrained-baseline SPS, rebuilt with or without timing information
// (num_units_in_tick 1, time_scale 100, fixed rate: 50 frames per second).
std::vector<unsigned char> handMadeSps(bool timing) {
  Bits b;
  b.bits(0x67, 8);
  b.bits(66, 8);
  b.bits(0xC0, 8);
  b.bits(13, 8);
  b.ue(0);  // seq_parameter_set_id
  b.ue(0);  // log2_max_frame_num_minus4
  b.ue(2);  // pic_order_cnt_type
  b.ue(1);  // max_num_ref_frames
  b.bit(0);
  b.ue(19);  // 320 / 16 - 1
  b.ue(14);  // 240 / 16 - 1
  b.bit(1);  // frame_mbs_only_flag
  b.bit(1);  // direct_8x8_inference_flag
  b.bit(0);  // frame_cropping_flag
  b.bit(timing);
  if (timing) {
    b.bits(0, 4);  // aspect ratio, overscan, video signal, chroma location: absent
    b.bit(1);
    b.bits(1, 32);
    b.bits(100, 32);
    b.bit(1);      // fixed_frame_rate_flag
    b.bits(0, 4);  // no HRD, no pic_struct, no bitstream restriction
  }
  return b.escaped();
}

class Mp4Edge : public Mp4LogTest {
 protected:
  void SetUp() override {
    Mp4LogTest::SetUp();
    h264 = loadVideo("h264_320x240");
    h265 = loadVideo("h265_320x240");
    feed.video = &h264;
  }
  bool addClipVideo(Mp4Writer& w, const VideoClip& clip) {
    return w.addVideo(clip.h265 ? "H265" : "H264", clip.header.data(), static_cast<unsigned char>(clip.header.size()));
  }
  VideoClip h264, h265;
  Feed feed;
};

TEST_F(Mp4Edge, HeaderOfFourBytesOrLessAddsNoTrack) {
  Mp4Writer w;
  std::string path = file("short.mp4");
  ASSERT_TRUE(w.create(path.c_str()));
  const unsigned char four[4] = {0, 0, 0, 1};
  EXPECT_FALSE(w.addVideo("H264", four, 4));
  EXPECT_FALSE(w.addVideo("H264", h264.header.data(), 3));
  EXPECT_EQ(w.videoCodec(), Mp4Writer::kNone);
  EXPECT_EQ(count("addVideo... H264"), 2);
  EXPECT_EQ(count("addVideo find vps: 0, sps: 0, pps: 0 ..."), 2);
  // The writer is unharmed: a real header still makes a playable file.
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  feedFrames(w, feed, 0, 50, next);
  w.close();
  EXPECT_EQ(videoFrames(checkedProbe(path)), 50);
}

TEST_F(Mp4Edge, OnlyThreeByteStartCodesAddNoTrack) {
  for (const VideoClip* clip : {&h264, &h265}) {
    Mp4Writer w;
    std::string path = file(clip->h265 ? "three265.mp4" : "three264.mp4");
    ASSERT_TRUE(w.create(path.c_str()));
    logtest::Clear();
    std::vector<unsigned char> three = withStartCodes(nalUnits(clip->header.data(), clip->header.size()), 3);
    const char* name = clip->h265 ? "H265" : "H264";
    EXPECT_FALSE(w.addVideo(name, three.data(), static_cast<unsigned char>(three.size())));
    EXPECT_EQ(w.videoCodec(), Mp4Writer::kNone);
    EXPECT_EQ(count("addVideo find vps: 0, sps: 0, pps: 0 ..."), 1) << all();
    ASSERT_TRUE(addClipVideo(w, *clip));
    Feed f;
    f.video = clip;
    int next = 0;
    feedFrames(w, f, 0, 30, next);
    w.close();
    EXPECT_EQ(videoFrames(checkedProbe(path)), 30);
  }
}

// Frames without usable timestamps are spaced by the SPS rate: 25 per second when it states none.
TEST_F(Mp4Edge, SpsWithoutTimingMeans25FramesPerSecond) {
  std::vector<std::vector<unsigned char>> sets = nalUnits(h264.header.data(), h264.header.size());
  ASSERT_EQ(sets.size(), 2u);
  for (bool timing : {false, true}) {
    std::vector<unsigned char> header = withStartCodes({handMadeSps(timing), sets[1]}, 4);
    std::string path = file(timing ? "fps50.mp4" : "fps25.mp4");
    Mp4Writer w;
    ASSERT_TRUE(w.create(path.c_str()));
    logtest::Clear();
    ASSERT_TRUE(w.addVideo("H264", header.data(), static_cast<unsigned char>(header.size())));
    EXPECT_EQ(count(timing ? "parse sps: size 320x240, fps 50" : "parse sps: size 320x240, fps 0"), 1) << all();
    std::vector<unsigned char> buf;
    for (int i = 0; i < 50; ++i) {
      buf = h264.units[static_cast<size_t>(i)].data;
      w.writeVideo(buf.data(), static_cast<unsigned>(buf.size()), h264.units[static_cast<size_t>(i)].key,
                   Mp4Writer::kVideoH264, 7777);  // every frame stamped alike
    }
    w.close();
    EXPECT_EQ(videoFrames(checkedProbe(path)), 50);
    std::vector<PacketInfo> list = packets(path, "v");
    ASSERT_EQ(list.size(), 50u);
    double step = timing ? 0.020 : 0.040;
    for (size_t i = 0; i < list.size(); ++i) EXPECT_NEAR(list[i].pts, static_cast<double>(i) * step, 1e-6) << i;
  }
}

TEST_F(Mp4Edge, TrailerFrameIsWritten16BytesShorter) {
  std::string plain = file("plain.mp4"), trailed = file("trailer.mp4");
  writeFile(plain.c_str(), feed, 30);
  // Frames 3 and 26 end with the trailer (first word 0x1A2B3C4D in the device's byte order);
  // frame 7 ends with the same bytes in the other order, which is no trailer.
  std::vector<Unit> units(h264.units.begin(), h264.units.begin() + 30);
  const unsigned char trailer[4] = {0x4D, 0x3C, 0x2B, 0x1A}, reversed[4] = {0x1A, 0x2B, 0x3C, 0x4D};
  for (int i : {3, 26, 7}) {
    units[static_cast<size_t>(i)].data.insert(units[static_cast<size_t>(i)].data.end(), i == 7 ? reversed : trailer,
                                              (i == 7 ? reversed : trailer) + 4);
    units[static_cast<size_t>(i)].data.insert(units[static_cast<size_t>(i)].data.end(), 12, 0x80);
  }
  VideoClip withTrailers = h264;
  withTrailers.units = units;
  Feed f;
  f.video = &withTrailers;
  writeFile(trailed.c_str(), f, 30);
  EXPECT_EQ(videoFrames(checkedProbe(plain)), 30);
  EXPECT_EQ(videoFrames(checkedProbe(trailed)), 30);
  std::vector<PacketInfo> a = packets(plain, "v"), b = packets(trailed, "v");
  ASSERT_EQ(a.size(), 30u);
  ASSERT_EQ(b.size(), 30u);
  for (size_t i = 0; i < a.size(); ++i) EXPECT_EQ(b[i].size, a[i].size + (i == 7 ? 16 : 0)) << i;
}

TEST_F(Mp4Edge, SecondVideoTrackIsRefusedAndChangesNothing) {
  Mp4Writer w;
  std::string path = file("twice.mp4");
  ASSERT_TRUE(w.create(path.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  logtest::Clear();
  EXPECT_FALSE(addClipVideo(w, h265));
  EXPECT_FALSE(addClipVideo(w, h264));
  EXPECT_EQ(w.videoCodec(), Mp4Writer::kVideoH264);
  EXPECT_EQ(logtest::Snapshot().size(), 0u) << all();  // refused before anything is logged
  int next = 0;
  feedFrames(w, feed, 0, 40, next);
  w.close();
  ProbeInfo p = checkedProbe(path);
  ASSERT_NE(p.find("video"), nullptr);
  EXPECT_EQ(p.find("video")->codec, "h264");
  EXPECT_EQ(p.find("video")->frames, 40);
}

TEST_F(Mp4Edge, ParameterSetLongerThanItsBufferIsRefused) {
  std::vector<std::vector<unsigned char>> sets = nalUnits(h264.header.data(), h264.header.size());
  std::vector<unsigned char> longSps = sets[0];
  longSps.resize(130, 0x55);
  std::vector<unsigned char> header = withStartCodes({longSps, sets[1]}, 4);
  Mp4Writer w;
  std::string path = file("long.mp4");
  ASSERT_TRUE(w.create(path.c_str()));
  EXPECT_FALSE(w.addVideo("H264", header.data(), static_cast<unsigned char>(header.size())));
  EXPECT_EQ(w.videoCodec(), Mp4Writer::kNone);
  EXPECT_EQ(count("addVideo refused: sps of 130 bytes, longer than 128"), 1) << all();
  std::vector<std::vector<unsigned char>> hevc = nalUnits(h265.header.data(), h265.header.size());
  ASSERT_EQ(hevc.size(), 3u);
  std::vector<unsigned char> longPps = hevc[2];
  longPps.resize(129, 0x55);
  header = withStartCodes({hevc[0], hevc[1], longPps}, 4);
  EXPECT_FALSE(w.addVideo("H265", header.data(), static_cast<unsigned char>(header.size())));
  EXPECT_EQ(count("addVideo refused: pps of 129 bytes, longer than 128"), 1) << all();
  EXPECT_EQ(w.videoCodec(), Mp4Writer::kNone);
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  feedFrames(w, feed, 0, 25, next);
  w.close();
  EXPECT_EQ(videoFrames(checkedProbe(path)), 25);
}

TEST_F(Mp4Edge, LogLinesOfCreateAndAddVideo) {
  std::string path = file("logs.mp4");
  Mp4Writer w;
  ASSERT_TRUE(w.create(path.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  int sps = 4, pps = 4 + static_cast<int>(nalUnits(h264.header.data(), h264.header.size())[0].size()) + 4;
  EXPECT_EQ(count("create mp4 file ok... " + path), 1) << all();
  EXPECT_EQ(count("addVideo... H264"), 1);
  EXPECT_EQ(count("addVideo find vps: 0, sps: " + std::to_string(sps) + ", pps: " + std::to_string(pps) + " ..."), 1)
      << all();
  // x264 states time_scale 50 without a fixed rate: the reader takes 50 as it stands.
  EXPECT_EQ(count("parse sps: size 320x240, fps 50"), 1) << all();
  EXPECT_EQ(count("add video track end."), 1);
  int next = 0;
  feedFrames(w, feed, 0, 25, next);
  w.close();

  std::string path265 = file("logs265.mp4");
  logtest::Clear();
  ASSERT_TRUE(w.create(path265.c_str()));
  ASSERT_TRUE(addClipVideo(w, h265));
  std::vector<std::vector<unsigned char>> sets = nalUnits(h265.header.data(), h265.header.size());
  int v = 4, s = v + static_cast<int>(sets[0].size()) + 4, p = s + static_cast<int>(sets[1].size()) + 4;
  EXPECT_EQ(count("addVideo... H265"), 1);
  EXPECT_EQ(count("addVideo find vps: " + std::to_string(v) + ", sps: " + std::to_string(s) + ", pps: " +
                  std::to_string(p) + " ..."),
            1)
      << all();
  EXPECT_EQ(count("add video track ok."), 1);
  Feed f;
  f.video = &h265;
  next = 0;
  feedFrames(w, f, 0, 25, next);
  w.close();
  EXPECT_EQ(videoFrames(checkedProbe(path)), 25);
  EXPECT_EQ(videoFrames(checkedProbe(path265)), 25);

  std::string bad = file("no/such/dir/x.mp4");
  logtest::Clear();
  EXPECT_FALSE(w.create(bad.c_str()));
  EXPECT_FALSE(w.isOpen());
  EXPECT_EQ(count("create mp4 file fail: " + bad), 1) << all();
}

TEST_F(Mp4Edge, VideoCodecMismatchIsLoggedOnceAndWritten) {
  std::string path = file("mismatch.mp4");
  Mp4Writer w;
  ASSERT_TRUE(w.create(path.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  std::vector<unsigned char> buf;
  for (int i = 0; i < 30; ++i) {
    buf = h264.units[static_cast<size_t>(i)].data;
    unsigned char codec = i >= 10 ? Mp4Writer::kVideoH265 : Mp4Writer::kVideoH264;
    w.writeVideo(buf.data(), static_cast<unsigned>(buf.size()), h264.units[static_cast<size_t>(i)].key, codec,
                 static_cast<uint32_t>(i * 40));
  }
  w.close();
  EXPECT_EQ(count("video codec changed. old: 96, new: 201"), 1) << all();
  EXPECT_EQ(videoFrames(checkedProbe(path)), 30);
}

// A file starts at a key frame: earlier frames could not be decoded and are left out.
TEST_F(Mp4Edge, FramesBeforeTheFirstKeyFrameAreLeftOut) {
  std::string path = file("midgop.mp4");
  Mp4Writer w;
  ASSERT_TRUE(w.create(path.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  feedFrames(w, feed, 10, 60, next);
  w.close();
  ProbeInfo p = checkedProbe(path);
  EXPECT_EQ(videoFrames(p), 35);  // frames 25..59
}

TEST_F(Mp4Edge, TimestampsThatWrapKeepCounting) {
  std::vector<Unit> aac = loadAudio("aac_16k.adts");
  feed.audio = &aac;
  feed.audioCodec = Mp4Writer::kAudioAac;
  feed.t0 = 0xFFFFFFFFu - 1500;  // wraps 1.5 s in
  std::string path = file("wrap.mp4");
  Fed fed = writeFile(path.c_str(), feed, 100);
  ProbeInfo p = checkedProbe(path);
  const StreamInfo* v = p.find("video");
  const StreamInfo* a = p.find("audio");
  ASSERT_NE(v, nullptr);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(v->frames, 100);
  EXPECT_NEAR(v->duration, 4.0, 0.002);
  EXPECT_EQ(a->packets, fed.audioFrames);
  EXPECT_NEAR(a->duration, fed.audioFrames * 0.064, 0.002);
  EXPECT_NEAR(a->start, v->start, 0.1);
}

// Once the header is out without audio, a late audio track cannot be added: refused once in the
// log, with the results callers know (false for G.711 µ-law only), and its samples dropped.
TEST_F(Mp4Edge, AudioAfterAVideoOnlyHeaderIsRefused) {
  std::string path = file("late.mp4");
  Mp4Writer w;
  ASSERT_TRUE(w.create(path.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  feedFrames(w, feed, 0, 40, next);  // 1.6 s of video: the header is written without audio
  EXPECT_FALSE(w.addAudio(77));
  EXPECT_FALSE(w.addAudio(Mp4Writer::kAudioG711U));
  EXPECT_TRUE(w.addAudio(Mp4Writer::kAudioG711A));
  EXPECT_TRUE(w.addAudio(Mp4Writer::kAudioAac));
  EXPECT_EQ(w.audioCodec(), Mp4Writer::kNone);
  std::vector<Unit> ulaw = loadAudio("pcmu_8k.ulaw");
  Feed f = feed;
  f.audio = &ulaw;
  f.audioCodec = Mp4Writer::kAudioG711U;
  feedFrames(w, f, 40, 60, next);
  w.close();
  EXPECT_EQ(count("add audio track fail: " + path + ", format: g711u"), 1) << all();
  ProbeInfo p = checkedProbe(path);
  EXPECT_EQ(p.find("audio"), nullptr);
  EXPECT_EQ(videoFrames(p), 60);
}

}  // namespace

namespace {

// Start times are real: audio that begins 480 ms after the picture starts 480 ms later in the
// file, so the "starts together" checks of the other tests can fail.
TEST_F(Mp4Edge, AudioStartingLaterKeepsItsOffset) {
  std::vector<Unit> ulaw = loadAudio("pcmu_8k.ulaw");
  Feed f = feed;
  f.audio = &ulaw;
  f.audioCodec = Mp4Writer::kAudioG711U;
  std::string path = file("late_audio.mp4");
  Mp4Writer w;
  ASSERT_TRUE(w.create(path.c_str()));
  ASSERT_TRUE(addClipVideo(w, h264));
  int next = 0;
  feedFrames(w, feed, 0, 12, next);  // video only for 0.48 s
  next = 12;
  feedFrames(w, f, 12, 75, next);
  w.close();
  ProbeInfo p = checkedProbe(path);
  ASSERT_NE(p.find("audio"), nullptr);
  EXPECT_EQ(videoFrames(p), 75);
  EXPECT_NEAR(p.find("audio")->start - p.find("video")->start, 0.48, 0.002);
}

}  // namespace
