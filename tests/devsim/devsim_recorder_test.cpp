// qxdevsim as a recorder, through a raw client: record lists that the library's readers
// read, packs that reassemble into exactly the clip's frames, and each fault on the wire.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "checked_sim.h"
#include "raw_client.h"
#include "xml/PayloadReaders.h"

using devsimtest::CheckedSim;
using devsimtest::Frame;
using devsimtest::RawClient;

namespace {

struct Pack {
  uint32_t ts, keyTs, index;
  uint16_t seq, size;
  uint8_t type, frameType, streamType, payloadType;
  std::string payload;
};

// The pack behind a media message's text (text, 4 bytes, pack), or false.
bool packOf(const Frame& f, Pack& p) {
  std::string text = f.text();
  if (text.find("<type>90000</type>") == std::string::npos || text.find("<cmd>90000</cmd>") != std::string::npos)
    return false;
  const std::string& s = f.payload;
  size_t off = text.size() + 4;
  if (s.size() < off + 20) return false;
  const unsigned char* h = reinterpret_cast<const unsigned char*>(s.data() + off);
  auto u32 = [h](int o) { return static_cast<uint32_t>(h[o] | h[o + 1] << 8 | h[o + 2] << 16 | h[o + 3] << 24); };
  p.ts = u32(0);
  p.keyTs = u32(4);
  p.seq = static_cast<uint16_t>(h[8] | h[9] << 8);
  p.size = static_cast<uint16_t>(h[10] | h[11] << 8);
  p.type = h[12];
  p.frameType = h[13];
  p.streamType = h[14];
  p.payloadType = h[15];
  p.index = u32(16);
  p.payload = s.substr(off + 20);
  EXPECT_EQ(devsimtest::tag(text, "dataLen"), std::to_string(20 + p.payload.size()));
  return true;
}

std::string bodyOf(const std::string& text) {
  size_t a = text.find("<body>\n"), b = text.rfind("\n</body>");
  return a == std::string::npos || b == std::string::npos || b < a + 7 ? "" : text.substr(a + 7, b - a - 7);
}

std::string clipDir() {
  const char* e = getenv("QXNET_CLIP_DIR");
  if (e && *e) return e;
  return std::string(getenv("HOME")) + "/.cache/qxnetsdk/clips-v2";
}

std::string readFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream o;
  o << f.rdbuf();
  return o.str();
}

std::string downloadBody(int ch, const std::string& from, const std::string& to) {
  return "<ChannelId>" + std::to_string(ch) + "</ChannelId>\n<Time>20261123" + from + "</Time>\n<TimeEnd>20261123" +
         to + "</TimeEnd>\n<DownloadRecord>1</DownloadRecord>";
}

// Reads media until `stop` holds or the device ends: packs in order; non-media texts too.
struct Capture {
  std::vector<Pack> packs;
  std::vector<std::string> texts;
  bool closed = false;
};

Capture capture(RawClient& c, size_t maxVideoFrames, int timeoutMs = 5000) {
  Capture cap;
  Frame f;
  size_t video = 0;
  while (video < maxVideoFrames) {
    if (!c.readFrame(f, timeoutMs)) {
      cap.closed = true;
      break;
    }
    Pack p;
    if (!packOf(f, p)) {
      cap.texts.push_back(f.text());
      if (f.text().find("<cmd>14301</cmd>") != std::string::npos && f.text().find("<result>-16") != std::string::npos)
        break;
      continue;
    }
    if (p.streamType != 1 && (p.type == 0x11 || p.type == 0x10)) ++video;
    cap.packs.push_back(p);
  }
  return cap;
}

// Frames reassembled by the rules of the library's replay path (sequence and index checked).
struct Reassembled {
  std::vector<std::string> video, audio;
  int seqErrors = 0, indexErrors = 0;
};

Reassembled reassemble(const std::vector<Pack>& packs) {
  Reassembled r;
  std::string buf;
  const Pack* head = nullptr;
  uint16_t lastSeq = 0;
  for (const Pack& p : packs) {
    auto deliver = [&](const std::string& data) { (p.streamType == 1 ? r.audio : r.video).push_back(data); };
    if (p.type == 0x11) {
      deliver(p.payload);
    } else if (p.type == 0x01) {
      head = &p;
      buf = p.payload;
      lastSeq = p.seq;
    } else if (head && p.index != head->index) {
      ++r.indexErrors;  // the frame is dropped; the next first pack starts over
      head = nullptr;
    } else if (head && static_cast<uint16_t>(lastSeq + 1) != p.seq) {
      ++r.seqErrors;
      head = nullptr;
    } else if (head) {
      buf += p.payload;
      lastSeq = p.seq;
      if (p.type == 0x10) deliver(buf), head = nullptr;
    }
  }
  return r;
}

}  // namespace

TEST(DevSimRecorder, SearchAnswersReadByTheRecordListReaders) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("RECSPANS 2 010000-013000,020000-023000"));
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  Frame f;
  ASSERT_TRUE(c.sendRequest("10000", "14300", "<ChannelId>2</ChannelId>\n<Time>20261123000000</Time>\n<ByMonth>0</ByMonth>\n"));
  ASSERT_TRUE(c.readAnswer("10000", "14300", f));
  char ch[16], stream[512];
  ASSERT_EQ(GetNvrRecInfo(bodyOf(f.text()).c_str(), ch, sizeof ch, stream, sizeof stream), 0) << f.text();
  EXPECT_STREQ(ch, "2");
  EXPECT_STREQ(stream, "010000-013000,020000-023000");

  ASSERT_TRUE(c.sendRequest("10000", "14300", "<ChannelId>2</ChannelId>\n<Time>202602</Time>\n<ByMonth>1</ByMonth>\n"));
  ASSERT_TRUE(c.readAnswer("10000", "14300", f));
  char time[32], data[64];
  ASSERT_EQ(GetNvrRecInfoByMonth(bodyOf(f.text()).c_str(), ch, sizeof ch, time, sizeof time, data, sizeof data), 0);
  EXPECT_STREQ(ch, "2");
  EXPECT_STREQ(time, "202602");
  // February 2026: 28 days; days 7, 16 and 25 hold nothing on channel 2.
  EXPECT_STREQ(data, "1111110111111110111111110111");

  // A day without recordings answers an empty list.
  ASSERT_TRUE(c.sendRequest("10000", "14300", "<ChannelId>2</ChannelId>\n<Time>20261107000000</Time>\n<ByMonth>0</ByMonth>\n"));
  ASSERT_TRUE(c.readAnswer("10000", "14300", f));
  ASSERT_EQ(GetNvrRecInfo(bodyOf(f.text()).c_str(), ch, sizeof ch, stream, sizeof stream), 0);
  EXPECT_STREQ(stream, "");
}

TEST(DevSimRecorder, DownloadPacksReassembleIntoTheClipFrames) {
  CheckedSim sim({"--set", "rec_pace=fast", "--set", "rec_audio=pcmu", "--set", "rec_pack=1400"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("RECSPANS 1 000000-010000"));
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(c.sendRequest("10000", "14301", downloadBody(1, "000010", "000018")));
  Frame f;
  ASSERT_TRUE(c.readAnswer("10000", "14301", f));
  EXPECT_EQ(devsimtest::tag(f.text(), "result"), "0");
  Capture cap = capture(c, 100000, 2000);
  ASSERT_FALSE(cap.texts.empty());
  EXPECT_NE(cap.texts[0].find("<VideoParam>"), std::string::npos);
  EXPECT_NE(cap.texts[0].find("<AudioParam>"), std::string::npos);
  Reassembled r = reassemble(cap.packs);
  EXPECT_EQ(r.seqErrors, 0);
  EXPECT_EQ(r.indexErrors, 0);
  // 10 s .. 18 s inclusive (201 frames at 25 fps), plus the first frame past the end.
  ASSERT_EQ(r.video.size(), 202u);
  EXPECT_EQ(cap.packs.front().ts, 10000u);
  std::string clip = readFile(clipDir() + "/h264_320x240.h264");
  ASSERT_FALSE(clip.empty());
  // The clip has 100 frames (4 s); 10 s in is frame 250 = clip frame 50: two loops later.
  std::string joined;
  for (size_t i = 0; i < 150; ++i) joined += r.video[i];
  size_t half = 0;
  for (size_t i = 0; i < 50; ++i) half += r.video[i].size();
  EXPECT_EQ(joined.substr(half, clip.size()), clip) << "frames 50..149 are one loop of the clip";
  // Audio: 320-byte G.711 chunks, 8 s of them.
  for (auto& a : r.audio) EXPECT_EQ(a.size(), 320u);
  EXPECT_GE(r.audio.size(), 200u);
  std::string rep = sim.cmd("RECSTREAM");
  EXPECT_NE(rep.find("state=ended"), std::string::npos) << rep;
  EXPECT_NE(rep.find("video_frames=202 "), std::string::npos) << rep;
  EXPECT_NE(rep.find("video_in_span=201 "), std::string::npos) << rep;
  // Several packs for key frames, none longer than the pack size.
  int multi = 0;
  for (auto& p : cap.packs) {
    EXPECT_LE(p.size, 1400);
    EXPECT_EQ(p.size, p.payload.size());
    multi += p.type == 0x01 && p.frameType == 1;
  }
  EXPECT_GE(multi, 8);
}

TEST(DevSimRecorder, PackFaultsShowOnTheWire) {
  CheckedSim sim({"--set", "rec_pace=fast", "--set", "rec_pack=1000"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("RECSPANS 1 000000-010000"));
  ASSERT_TRUE(sim.cmdOk("RECFAULT seq_wrap at_ms=0"));
  ASSERT_TRUE(sim.cmdOk("RECFAULT lose_pack at_ms=1000"));
  ASSERT_TRUE(sim.cmdOk("RECFAULT seq_jump at_ms=2000 value=500"));
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(c.sendRequest("10000", "14301", downloadBody(1, "000000", "000004")));
  Capture cap = capture(c, 100000, 2000);
  bool wrapped = false;
  for (size_t i = 1; i < cap.packs.size(); ++i)
    wrapped = wrapped || (cap.packs[i - 1].seq == 65535 && cap.packs[i].seq == 0 && cap.packs[i].type != 0x01);
  EXPECT_TRUE(wrapped) << "a frame's packs numbered 65535 then 0";
  Reassembled r = reassemble(cap.packs);
  EXPECT_EQ(r.seqErrors, 2) << "the lost pack and the jump";
  EXPECT_EQ(r.video.size(), 102u - 2u);
  std::string rep = sim.cmd("RECSTREAM");
  EXPECT_NE(rep.find("seq_wrap@"), std::string::npos) << rep;
  EXPECT_NE(rep.find("lose_pack@"), std::string::npos) << rep;
  EXPECT_NE(rep.find("seq_jump@"), std::string::npos) << rep;
}

TEST(DevSimRecorder, StreamFaultsShowOnTheWire) {
  CheckedSim sim({"--set", "rec_pace=fast", "--set", "rec_audio=pcmu"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("RECSPANS 1 000000-010000"));
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  Frame f;
  // Refusal with a chosen flag.
  ASSERT_TRUE(sim.cmdOk("RECFAULT refuse value=-7"));
  ASSERT_TRUE(c.sendRequest("10000", "14301", downloadBody(1, "000000", "000004")));
  ASSERT_TRUE(c.readAnswer("10000", "14301", f));
  EXPECT_EQ(devsimtest::tag(f.text(), "result"), "-7");
  // Audio first, parameter change and audio codec change in one download.
  ASSERT_TRUE(sim.cmdOk("RECFAULT audio_first"));
  ASSERT_TRUE(sim.cmdOk("RECFAULT param_change at_ms=2000"));
  ASSERT_TRUE(sim.cmdOk("RECFAULT audio_change at_ms=1000 to=pcma"));
  ASSERT_TRUE(c.sendRequest("10000", "14301", downloadBody(1, "000000", "000004")));
  ASSERT_TRUE(c.readAnswer("10000", "14301", f));
  Capture cap = capture(c, 100000, 2000);
  ASSERT_FALSE(cap.packs.empty());
  EXPECT_EQ(cap.packs.front().streamType, 1) << "audio before the first video frame";
  int params = 0;
  for (auto& t : cap.texts) params += t.find("<VideoParam>") != std::string::npos;
  EXPECT_EQ(params, 2) << "the start's parameters and the change's";
  bool mu = false, a = false;
  for (auto& p : cap.packs) {
    if (p.streamType != 1) continue;
    EXPECT_TRUE(p.payloadType == 0 || p.payloadType == 8);
    (p.payloadType == 0 ? mu : a) = true;
  }
  EXPECT_TRUE(mu && a);
  std::string rep = sim.cmd("RECSTREAM");
  EXPECT_NE(rep.find("parts=50/52"), std::string::npos) << rep;
  // Drop mid-download: the connection closes.
  ASSERT_TRUE(sim.cmdOk("RECFAULT drop at_ms=1000"));
  ASSERT_TRUE(c.sendRequest("10000", "14301", downloadBody(1, "000000", "000004")));
  Capture dropped = capture(c, 100000, 2000);
  EXPECT_TRUE(dropped.closed);
  EXPECT_NE(sim.cmd("RECSTREAM").find("state=dropped"), std::string::npos);
}

TEST(DevSimRecorder, RealTimeStallAndStop) {
  CheckedSim sim({"--set", "rec_audio=none"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("RECSPANS 1 000000-010000"));
  ASSERT_TRUE(sim.cmdOk("RECFAULT stall at_ms=400 value=800"));
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(c.sendRequest("10000", "14301", "<ChannelId>1</ChannelId>\n<Time>20261123000000</Time>\n<DownloadRecord>0</DownloadRecord>"));
  int64_t t0 = devsimtest::nowMs();
  Capture cap = capture(c, 26, 3000);  // one second of replay, a stall within it
  int64_t took = devsimtest::nowMs() - t0;
  EXPECT_GE(took, 1000 + 800 - 150);
  EXPECT_LE(took, 1000 + 800 + 1000);
  ASSERT_TRUE(c.sendRequest("10000", "14302", "<ChannelId>1</ChannelId>\n<DownloadRecord>0</DownloadRecord>"));
  Frame f;
  bool stopped = false;
  for (int i = 0; i < 200 && !stopped; ++i) {
    if (!c.readFrame(f, 2000)) break;
    stopped = f.text().find("<cmd>14302</cmd>") != std::string::npos;
  }
  EXPECT_TRUE(stopped);
  EXPECT_TRUE(c.silentFor(300)) << "no media after the stop";
  EXPECT_NE(sim.cmd("RECSTREAM").find("state=stopped"), std::string::npos);
}

// Every clip the recorder plays cuts into frames that join back into the clip, in both
// stream-parameter layouts.
TEST(DevSimRecorder, EveryVideoClipStreamsWhole) {
  const char* clips[][3] = {{"h264", "1920x1080", "h264_1920x1080.h264"},
                            {"h265", "320x240", "h265_320x240.hevc"},
                            {"h265", "1920x1080", "h265_1920x1080.hevc"}};
  for (auto& c3 : clips) {
    SCOPED_TRACE(c3[2]);
    CheckedSim sim({"--set", "rec_pace=fast", "--set", std::string("rec_video=") + c3[0], "--set",
                    std::string("rec_size=") + c3[1], "--set", "rec_audio=aac", "--set", "rec_video_layout=537",
                    "--set", "rec_audio_layout=57"});
    ASSERT_TRUE(sim.ok()) << sim.error();
    ASSERT_TRUE(sim.cmdOk("RECSPANS 1 000000-010000"));
    RawClient c(sim.port());
    ASSERT_TRUE(devsimtest::authenticate(c));
    ASSERT_TRUE(c.sendRequest("10000", "14301", downloadBody(1, "000000", "000004")));
    Capture cap = capture(c, 100000, 3000);
    Reassembled r = reassemble(cap.packs);
    ASSERT_EQ(r.video.size(), 102u);
    std::string joined;
    for (size_t i = 0; i < 100; ++i) joined += r.video[i];
    EXPECT_TRUE(joined == readFile(clipDir() + "/" + c3[2])) << "one loop is the clip, byte for byte";
    EXPECT_FALSE(r.audio.empty());
    for (auto& a : r.audio) EXPECT_EQ(static_cast<unsigned char>(a[0]), 0xFF) << "ADTS frames";
    // Padded VideoParam (537 form) and the 57-byte AudioParam: 76 base64 characters.
    ASSERT_GE(cap.texts.size(), 2u);  // the 14301 answer, then the parameters
    std::string vp = devsimtest::tag(cap.texts[1], "VideoParam"), ap = devsimtest::tag(cap.texts[1], "AudioParam");
    EXPECT_EQ(vp.size(), 716u);
    EXPECT_EQ(vp.back(), '=');
    EXPECT_EQ(ap.size(), 76u);
  }
}
