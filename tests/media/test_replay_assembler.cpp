// Replay reassembly: frames handed on whole, broken packs dropped with their log lines.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "media/ReplayAssembler.h"
#include "media_test_util.h"

using mediatest::Pack;

namespace {

struct Delivered {
  unsigned long type;
  std::string data;
  FRAME_EXTDATA ext;
};

class Replay : public mediatest::LoggedTest {
 protected:
  Replay()
      : asm_([this](unsigned long type, unsigned char* d, unsigned long n, FRAME_EXTDATA* ext) {
          got_.push_back({type, std::string(reinterpret_cast<char*>(d), n), *ext});
        }) {}
  void Feed(const Pack& p) {
    auto b = p.Bytes();
    asm_.OnPack(b.data(), b.size(), 5);
  }
  // A frame of `parts` payloads, packs numbered from `seq`.
  void FeedFrame(uint32_t index, uint16_t seq, const std::vector<std::string>& parts) {
    for (size_t i = 0; i < parts.size(); ++i) {
      Pack p;
      p.index = index;
      p.seq = static_cast<uint16_t>(seq + i);
      p.payload = parts[i];
      p.type = i == 0 ? media::kPackFirst : (i + 1 == parts.size() ? media::kPackLast : media::kPackMiddle);
      Feed(p);
    }
  }
  std::vector<Delivered> got_;
  media::CReplayAssembler asm_;
};

TEST_F(Replay, WholePackIsDeliveredAtOnceWithItsExtData) {
  Pack p;
  p.stream = 1;
  p.frameType = 0;
  p.ts = 123456;
  p.payloadType = 97;
  p.payload = "AUDIO";
  Feed(p);
  ASSERT_EQ(got_.size(), 1u);
  EXPECT_EQ(got_[0].type, 1u);
  EXPECT_EQ(got_[0].data, "AUDIO");
  EXPECT_EQ(got_[0].ext.frame_type, 0u);
  EXPECT_EQ(got_[0].ext.timestamp, 123456.0);
  EXPECT_EQ(got_[0].ext.payload_type, 97u);
  EXPECT_EQ(got_[0].ext.dwUser, 0u);
  EXPECT_EQ(got_[0].ext.dwUserHigh, 0u);
}

TEST_F(Replay, PacksOfOneFrameAreJoinedAndDeliveredWithTheLastPacksHeader) {
  Pack first;
  first.type = media::kPackFirst;
  first.payload = "AA";
  first.seq = 10;
  first.index = 4;
  first.ts = 500;
  Feed(first);
  Pack mid = first;
  mid.type = media::kPackMiddle;
  mid.seq = 11;
  mid.payload = "BBB";
  Feed(mid);
  EXPECT_TRUE(got_.empty());
  Pack last = first;
  last.type = media::kPackLast;
  last.seq = 12;
  last.payload = "C";
  last.ts = 501;
  last.payloadType = 201;
  last.stream = 2;
  Feed(last);
  ASSERT_EQ(got_.size(), 1u);
  EXPECT_EQ(got_[0].data, "AABBBC");
  EXPECT_EQ(got_[0].type, 2u);
  EXPECT_EQ(got_[0].ext.timestamp, 501.0);
  EXPECT_EQ(got_[0].ext.payload_type, 201u);
}

TEST_F(Replay, SequenceWrapFrom65535ToZeroIsAccepted) {
  FeedFrame(9, 65534, {"x", "y", "z"});  // 65534, 65535, 0
  ASSERT_EQ(got_.size(), 1u);
  EXPECT_EQ(got_[0].data, "xyz");
  EXPECT_EQ(Count("Media data pack error"), 0u);
}

TEST_F(Replay, MiddlePackOfAnotherFrameIsDroppedWithTheRecvErrorLine) {
  Pack first;
  first.type = media::kPackFirst;
  first.index = 7;
  first.seq = 1;
  Feed(first);
  Pack stray = first;
  stray.type = media::kPackMiddle;
  stray.index = 8;
  stray.seq = 2;
  Feed(stray);
  EXPECT_TRUE(HasLine("[OnRecvMediaData] Recv media data error, pack type=0,frame index=8,last pack frame index=7 \n"));
  // The buffer was left as it was: the frame still completes.
  Pack last = first;
  last.type = media::kPackLast;
  last.seq = 2;
  last.payload = "END";
  Feed(last);
  ASSERT_EQ(got_.size(), 1u);
  EXPECT_EQ(got_[0].data, "abcEND");
}

TEST_F(Replay, SequenceGapDropsThePackWithItsLineAndTheNextFirstPackStartsOver) {
  Pack first;
  first.type = media::kPackFirst;
  first.seq = 5;
  Feed(first);
  Pack last = first;
  last.type = media::kPackLast;
  last.seq = 7;
  Feed(last);
  EXPECT_TRUE(got_.empty());
  EXPECT_TRUE(HasLine("[OnRecvMediaData] Media data pack error, pre->pack_seq+1[6] != cur->pack_seq[7] \n"));
  FeedFrame(2, 100, {"n", "e", "w"});
  ASSERT_EQ(got_.size(), 1u);
  EXPECT_EQ(got_[0].data, "new");
}

TEST_F(Replay, UnknownPackTypeIsDroppedWithTheRecvErrorLine) {
  Pack p;
  p.type = 0x22;
  p.index = 3;
  Feed(p);
  EXPECT_TRUE(got_.empty());
  EXPECT_TRUE(HasLine("[OnRecvMediaData] Recv media data error, pack type=34,frame index=3,last pack frame index=0 \n"));
}

TEST_F(Replay, LastPackWithoutFirstIsDropped) {
  Pack p;
  p.type = media::kPackLast;
  p.index = 0;  // the untouched buffer's index: still no frame to join
  p.seq = 1;
  Feed(p);
  EXPECT_TRUE(got_.empty());
  EXPECT_EQ(Count("Recv media data error"), 1u);
}

TEST_F(Replay, EveryPackIsLoggedWithTheChannel) {
  Pack p;
  p.ts = 40;
  p.keyTs = 40;
  p.index = 2;
  Feed(p);
  EXPECT_TRUE(HasLine("[OnRecvMediaData]: stream_type=0, frame_timestamp=40, keyframe_timestamp=40,payload_size=3,"
                      "pack_type=17,frame_type=1,payload_type=96,frame_index=2 ch=5\n"));
}

TEST_F(Replay, PerPackLineIsNotLoggedWhenTheMaskExcludesLevel0) {
  g_fLogLevel = 0x0FFFFFFE;
  Pack p;
  Feed(p);
  EXPECT_EQ(got_.size(), 1u);
  EXPECT_EQ(Count("[OnRecvMediaData]: stream_type"), 0u);
}

TEST_F(Replay, BrokenPacksAreRefusedWithALine) {
  Pack p;
  p.sizeField = 400;  // announces more than it carries
  Feed(p);
  unsigned char shortPack[10] = {0};
  asm_.OnPack(shortPack, sizeof(shortPack), 5);
  EXPECT_TRUE(got_.empty());
  EXPECT_TRUE(HasLine("[OnRecvMediaData] Media data pack refused, length=23 \n"));
  EXPECT_TRUE(HasLine("[OnRecvMediaData] Media data pack refused, length=10 \n"));
}

TEST_F(Replay, FrameLongerThanTheBufferIsDroppedAndNotWrittenPastIt) {
  const std::string chunk(60000, 'q');
  Pack first;
  first.type = media::kPackFirst;
  first.payload = chunk;
  first.seq = 0;
  Feed(first);
  size_t total = chunk.size() + 20;
  uint16_t seq = 1;
  for (; total + chunk.size() <= media::kReassemblyBufferSize; total += chunk.size(), ++seq) {
    Pack mid = first;
    mid.type = media::kPackMiddle;
    mid.seq = seq;
    Feed(mid);
  }
  EXPECT_EQ(Count("longer than the 2097152-byte buffer"), 0u);
  Pack over = first;
  over.type = media::kPackLast;
  over.seq = seq;
  Feed(over);
  EXPECT_TRUE(got_.empty());
  EXPECT_TRUE(HasLine("[OnRecvMediaData] Media frame dropped, longer than the 2097152-byte buffer, frame index=1 \n"));
  // A single pack longer than the buffer is dropped too.
  std::vector<unsigned char> huge(media::kReassemblyBufferSize + 40, 0);
  Pack whole;
  auto head = whole.Bytes();
  std::copy(head.begin(), head.begin() + 20, huge.begin());
  asm_.OnPack(huge.data(), huge.size(), 5);
  EXPECT_TRUE(got_.empty());
  EXPECT_EQ(Count("longer than the 2097152-byte buffer"), 2u);
  // And the path goes on afterwards.
  FeedFrame(2, 0, {"o", "k"});
  ASSERT_EQ(got_.size(), 1u);
  EXPECT_EQ(got_[0].data, "ok");
}

}  // namespace
