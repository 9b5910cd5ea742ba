// Download reassembly against a recording writer and session: what is written, when the
// span ends, the progress events, the splits.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "media/DownloadAssembler.h"
#include "media_test_util.h"

using mediatest::Pack;
using mediatest::Pos;

namespace {

class Download : public mediatest::LoggedTest {
 protected:
  Download() : asm_(&host_) {
    // The session's stop procedure clears the span.
    host_.onStop = [this] { asm_.Span().Stop(); };
    NETSDK_VIDEO_PARAM& v = asm_.Params().video;
    std::memcpy(v.paramSet1, "H264", 4);
    v.byWriterArg = 12;
  }
  void Begin(uint32_t start, uint32_t end) {
    asm_.Span().Begin("/tmp/out.mp4", start, end);
    asm_.Reserve();
    asm_.Span().active = true;
  }
  void Feed(const Pack& p) {
    auto b = p.Bytes();
    EXPECT_EQ(asm_.OnPack(b.data(), b.size()), 0);
  }
  static Pack Video(uint32_t ts, bool key = true, uint32_t index = 1) {
    Pack p;
    p.ts = ts;
    p.keyTs = key ? ts : ts - 40;
    p.frameType = key ? 1 : 0;
    p.index = index;
    return p;
  }
  static Pack Audio(uint32_t ts) {
    Pack p = Video(ts);
    p.stream = 1;
    p.frameType = 0;
    p.payloadType = 97;
    p.payload = "aud";
    return p;
  }
  const std::vector<std::string>& Calls() const { return host_.writer.calls; }

  mediatest::RecordingHost host_;
  media::CDownloadAssembler asm_;
};

TEST_F(Download, FramesAreWrittenAfterTheFileIsCreatedWithTheVideoParameters) {
  Begin(1000, 60000);
  Feed(Video(1000));
  Feed(Audio(1010));
  Feed(Video(1040, false, 2));
  std::vector<std::string> want = {"create /tmp/out.mp4", "addVideo H264 12", "video 3 sync 96 1000", "audio 3 97 1010",
                                   "video 3 delta 96 1040"};
  EXPECT_EQ(Calls(), want);
  EXPECT_TRUE(HasLine("OnRecvNVRDownloadMediaData: first tick=1000 \n"));
  EXPECT_TRUE(HasLine("Download NVR record file, TS_MP4_OpenWrite success \n"));
  EXPECT_TRUE(HasLine("OnRecvNVRDownloadMediaData: stream_type=0, frame_timestamp=1000, keyframe_timestamp=1000,"
                      "payload_size=3,pack_type=17,frame_type=1,payload_type=96,frame_index=1 \n"));
  // Audio reports no progress; each video frame does.
  EXPECT_EQ(host_.Progress(), (std::vector<std::string>{Pos(0), Pos(0)}));
}

TEST_F(Download, EndZeroSkipsTheFirstTickTestAndStopsAtTheFirstCompleteFrame) {
  Begin(0, 0);
  Feed(Video(1000));
  EXPECT_TRUE(host_.aux.empty());
  EXPECT_EQ(host_.stops, 1);
  EXPECT_EQ(Calls(), (std::vector<std::string>{"create /tmp/out.mp4", "addVideo H264 12", "close"}));
  EXPECT_EQ(host_.Progress(), (std::vector<std::string>{Pos(100)}));
  Feed(Video(1040));  // the download is no longer active
  EXPECT_EQ(host_.stops, 1);
  EXPECT_EQ(host_.Progress().size(), 1u);
}

TEST_F(Download, ProgressStaysAt99UntilTheEndThenIs100Once) {
  Begin(1000, 11000);
  Feed(Video(1000));
  Feed(Video(6000, false));
  Feed(Video(10999, false));
  Feed(Video(11000, false));  // at the end, not past it: still written
  EXPECT_EQ(host_.Progress(), (std::vector<std::string>{Pos(0), Pos(50), Pos(99), Pos(99)}));
  EXPECT_EQ(host_.stops, 0);
  Feed(Video(11001, false));
  EXPECT_EQ(host_.stops, 1);
  EXPECT_EQ(Calls().back(), "close");
  Feed(Video(11040, false));
  Feed(Audio(11050));
  auto p = host_.Progress();
  EXPECT_EQ(std::count(p.begin(), p.end(), Pos(100)), 1);
  EXPECT_EQ(p.back(), Pos(100));
  EXPECT_EQ(host_.writer.Count("video"), 4);
}

TEST_F(Download, AudioBeforeAnyVideoEndsTheDownloadWithAux14312Flag15) {
  Begin(1000, 5000);
  Feed(Audio(1000));
  ASSERT_EQ(host_.aux.size(), 1u);
  EXPECT_EQ(host_.aux[0].code, 14312);
  EXPECT_EQ(host_.aux[0].flag, -15);
  EXPECT_EQ(host_.aux[0].text, "");
  EXPECT_TRUE(asm_.Span().endReached);
  EXPECT_EQ(host_.writersMade, 0);
  Feed(Video(1040));  // end reached: nothing more happens
  EXPECT_EQ(host_.aux.size(), 1u);
  EXPECT_TRUE(Calls().empty());
}

TEST_F(Download, EndAtOrBelowTheFirstTickEndsBeforeAnyWrite) {
  Begin(0, 2000);
  Feed(Video(2000));
  ASSERT_EQ(host_.aux.size(), 1u);
  EXPECT_EQ(host_.aux[0].code, 14312);
  EXPECT_TRUE(Calls().empty());
}

TEST_F(Download, NewFileAtTheFirstKeyFrameAfterMoreThanAnHour) {
  Begin(0, 86000000);
  Feed(Video(1000));
  Feed(Video(3601000, false));   // an hour exactly, and not a key frame
  Feed(Video(3601000));          // exactly 3,600,000: not more
  EXPECT_EQ(host_.writer.Count("split"), 0);
  Feed(Video(3601001, false));   // more than an hour, but not a key frame
  EXPECT_EQ(host_.writer.Count("split"), 0);
  Feed(Video(3601002));
  EXPECT_EQ(host_.writer.Count("split"), 1);
  EXPECT_EQ(Calls()[Calls().size() - 2], "split H264 12");  // before the key frame is written
  Feed(Video(3700000));
  Feed(Video(7201002));
  EXPECT_EQ(host_.writer.Count("split"), 1);
  Feed(Video(7201003));
  EXPECT_EQ(host_.writer.Count("split"), 2);
}

TEST_F(Download, PacksOfAFrameAreJoinedAndASequenceGapIsLogged) {
  Begin(0, 86000000);
  Pack first = Video(5000);
  first.type = media::kPackFirst;
  first.seq = 65535;
  first.payload = "AB";
  Feed(first);
  Pack mid = first;
  mid.type = media::kPackMiddle;
  mid.seq = 0;
  mid.payload = "CD";
  Feed(mid);
  EXPECT_EQ(host_.writer.Count("video"), 0);
  Pack gap = first;
  gap.type = media::kPackLast;
  gap.seq = 2;
  Feed(gap);
  EXPECT_TRUE(HasLine("TCP pack error!\r\n"));  // the logger ends a bare line so
  EXPECT_EQ(host_.writer.Count("video"), 0);
  Pack last = gap;
  last.seq = 1;
  last.payload = "E";
  Feed(last);
  ASSERT_EQ(host_.writer.frames.size(), 1u);
  EXPECT_EQ(host_.writer.frames[0], "ABCDE");
}

TEST_F(Download, PackOfAnotherFrameIsWrittenWithTheBuffersContentsAtItsOwnLength) {
  Begin(0, 86000000);
  Pack first = Video(5000);
  first.type = media::kPackFirst;
  first.index = 7;
  first.payload = "AB";
  Feed(first);
  Pack stray = Video(5040, false);
  stray.type = media::kPackMiddle;
  stray.index = 8;
  stray.seq = 1;
  stray.payload = "XYZW";
  Feed(stray);
  ASSERT_EQ(host_.writer.frames.size(), 1u);
  EXPECT_EQ(host_.writer.frames[0].size(), 4u);
  EXPECT_EQ(host_.writer.frames[0].substr(0, 2), "AB");
  EXPECT_EQ(Calls().back(), "video 4 delta 96 5040");  // this pack's header values
}

TEST_F(Download, PayloadSizeZeroIsLoggedAndIgnored) {
  Begin(0, 86000000);
  Pack p = Video(1000);
  p.payload = "";
  Feed(p);
  EXPECT_TRUE(HasLine("OnRecvNVRDownloadMediaData: payload_size is 0\n"));
  EXPECT_EQ(asm_.Span().firstTick, -1);
  EXPECT_EQ(host_.writersMade, 0);
}

TEST_F(Download, PacksAreIgnoredWhenNoDownloadIsActive) {
  asm_.Span().Begin("/tmp/x.mp4", 0, 1000);
  Feed(Video(10));
  EXPECT_TRUE(Calls().empty());
  EXPECT_EQ(Count("OnRecvNVRDownloadMediaData"), 0u);
}

TEST_F(Download, FailedCreateLeavesTheDownloadRunningWithoutAFile) {
  host_.writer.createFails = true;
  Begin(0, 10000);
  Feed(Video(1000));
  Feed(Video(2000));
  EXPECT_EQ(Calls(), (std::vector<std::string>{"create /tmp/out.mp4"}));
  EXPECT_EQ(host_.Progress(), (std::vector<std::string>{Pos(10), Pos(20)}));
  Feed(Video(10001));  // the end still sends the stop request
  EXPECT_EQ(host_.stops, 1);
  EXPECT_EQ(host_.Progress().back(), Pos(20));  // no writer: no 100
}

TEST_F(Download, FrameLongerThanTheBufferIsDroppedWithALine) {
  Begin(0, 86000000);
  const std::string chunk(65000, 'v');
  Pack first = Video(1000);
  first.type = media::kPackFirst;
  first.payload = chunk;
  Feed(first);
  uint16_t seq = 1;
  for (size_t total = chunk.size() + 20; total <= media::kReassemblyBufferSize; total += chunk.size(), ++seq) {
    Pack mid = first;
    mid.type = media::kPackMiddle;
    mid.seq = seq;
    Feed(mid);
  }
  EXPECT_TRUE(HasLine("OnRecvNVRDownloadMediaData: frame dropped, longer than the 2097152-byte buffer, "
                      "frame index=1 \n"));
  EXPECT_EQ(host_.writer.Count("video"), 0);
  Pack last = first;  // the rest of the dropped frame is not written either
  last.type = media::kPackLast;
  last.seq = seq;
  Feed(last);
  EXPECT_EQ(host_.writer.Count("video"), 0);
  Feed(Video(2000, true, 2));  // the next frame is
  EXPECT_EQ(host_.writer.Count("video"), 1);
  unsigned char shortPack[12] = {0};
  EXPECT_EQ(asm_.OnPack(shortPack, sizeof(shortPack)), 0);
  EXPECT_TRUE(HasLine("OnRecvNVRDownloadMediaData: pack refused, length=12 \n"));
}

TEST_F(Download, SplitWithNewParametersOnlyWithAWriter) {
  Begin(0, 86000000);
  asm_.SplitWithParams();
  EXPECT_TRUE(Calls().empty());
  Feed(Video(1000));
  std::memcpy(asm_.Params().video.paramSet1, "H265", 4);
  asm_.SplitWithParams();
  EXPECT_EQ(Calls().back(), "split H265 12");
}

}  // namespace
