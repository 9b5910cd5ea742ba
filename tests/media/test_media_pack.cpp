// The pack header: field order, little-endian, and the refusals.
#include <gtest/gtest.h>

#include "media/MediaPack.h"
#include "media_test_util.h"

using mediatest::Pack;

TEST(MediaPack, ReadsEveryFieldLittleEndian) {
  Pack p;
  p.ts = 0x01020304;
  p.keyTs = 0xA0B0C0D0;
  p.seq = 0xBEEF;
  p.type = media::kPackLast;
  p.frameType = 1;
  p.stream = 2;
  p.payloadType = 201;
  p.index = 0x11223344;
  auto b = p.Bytes();
  EXPECT_EQ(b[0], 0x04);  // least significant byte first
  media::PackHeader h;
  ASSERT_TRUE(media::ReadPackHeader(b.data(), b.size(), &h));
  EXPECT_EQ(h.frame_timestamp, 0x01020304u);
  EXPECT_EQ(h.keyframe_timestamp, 0xA0B0C0D0u);
  EXPECT_EQ(h.pack_seq, 0xBEEF);
  EXPECT_EQ(h.payload_size, 3);
  EXPECT_EQ(h.pack_type, media::kPackLast);
  EXPECT_EQ(h.frame_type, 1);
  EXPECT_EQ(h.stream_type, 2);
  EXPECT_EQ(h.payload_type, 201);
  EXPECT_EQ(h.frame_index, 0x11223344u);
}

TEST(MediaPack, RefusesShortPacksAndPayloadsBeyondThePack) {
  Pack p;
  auto b = p.Bytes();
  media::PackHeader h;
  EXPECT_FALSE(media::ReadPackHeader(b.data(), 19, &h));
  EXPECT_FALSE(media::ReadPackHeader(nullptr, 40, &h));
  EXPECT_TRUE(media::ReadPackHeader(b.data(), 20 + 3, &h));
  EXPECT_FALSE(media::ReadPackHeader(b.data(), 20 + 2, &h));  // announces 3, carries 2
  p.payload = "";
  auto empty = p.Bytes();
  EXPECT_TRUE(media::ReadPackHeader(empty.data(), 20, &h));
  EXPECT_EQ(h.payload_size, 0);
}

TEST(MediaPack, SequenceWrapsAtSixteenBits) {
  EXPECT_EQ(media::NextSeq(65535), 0);
  EXPECT_EQ(media::NextSeq(7), 8);
  unsigned char hdr[20] = {0};
  media::StorePackSeq(hdr, 0x1234);
  EXPECT_EQ(media::DecodeHeader(hdr).pack_seq, 0x1234);
}

TEST(MediaPack, StreamTypesZeroAndTwoAreVideo) {
  EXPECT_TRUE(media::IsVideoStream(0));
  EXPECT_TRUE(media::IsVideoStream(2));
  EXPECT_FALSE(media::IsVideoStream(1));
  EXPECT_FALSE(media::IsVideoStream(3));
}
