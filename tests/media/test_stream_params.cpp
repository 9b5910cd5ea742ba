// Stream-parameter decoding: both video layouts, both audio layouts and their validity rules.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/Base64.h"
#include "media/StreamParamLayout.h"
#include "media/StreamParams.h"

namespace {

std::string B64(const std::vector<unsigned char>& bytes, bool padded = true) {
  std::vector<char> out(bytes.size() * 4 / 3 + 8);
  CBase64::Encode(bytes.data(), out.data(), static_cast<int>(bytes.size()));
  std::string s(out.data());
  if (!padded) s.erase(s.find_last_not_of('=') + 1);
  return s;
}

void Put32(std::vector<unsigned char>& b, size_t o, int32_t v) {
  for (int i = 0; i < 4; ++i) b[o + i] = static_cast<unsigned char>(static_cast<uint32_t>(v) >> (8 * i));
}

std::vector<unsigned char> VideoBlock() {
  std::vector<unsigned char> b(streamparam::kVideoBlockSize, 0);
  std::memcpy(&b[streamparam::kVideoCodecNameOffset], "H265", 4);
  for (size_t i = 0; i < 40; ++i) b[streamparam::kVideoHeaderOffset + i] = static_cast<unsigned char>(0x40 + i);
  b[streamparam::kVideoHeaderLengthOffset] = 40;
  b[streamparam::kVideoBlockSize - 1] = 0x5A;  // the last byte, where padding bites
  return b;
}

std::vector<unsigned char> CompactAudio(int32_t rate, int32_t bits, int32_t codec, int32_t channels) {
  std::vector<unsigned char> b(streamparam::kAudioCompactSize, 0);
  std::memcpy(b.data(), "AAC", 3);
  Put32(b, streamparam::kAudioCompactSampleRate, rate);
  Put32(b, streamparam::kAudioCompactBitsPerSample, bits);
  Put32(b, streamparam::kAudioCompactCodec, codec);
  Put32(b, streamparam::kAudioCompactChannels, channels);
  return b;
}

std::vector<unsigned char> FullAudio(int32_t rate, int32_t bits, int32_t codec, int32_t channels) {
  std::vector<unsigned char> b(streamparam::kAudioBlockSize, 0);
  std::memcpy(b.data(), "G711U", 5);
  Put32(b, streamparam::kAudioSampleRateOffset, rate);
  Put32(b, streamparam::kAudioBitsPerSampleOffset, bits);
  Put32(b, streamparam::kAudioCodecOffset, codec);
  Put32(b, streamparam::kAudioChannelsOffset, channels);
  return b;
}

TEST(StreamParams, PaddedVideoBlockDecodesAs537AndLandsWhereThe536CopyPutsIt) {
  auto block = VideoBlock();
  std::string padded = B64(block), bare = B64(block, false);
  ASSERT_NE(padded, bare);
  std::vector<unsigned char> tmp(CBase64::DecodeBound(static_cast<int>(padded.size())));
  ASSERT_EQ(CBase64::Decode(padded.data(), tmp.data(), static_cast<int>(padded.size())), 537);
  ASSERT_EQ(CBase64::Decode(bare.data(), tmp.data(), static_cast<int>(bare.size())), 536);

  NETSDK_VIDEO_PARAM a, b;
  std::memset(&a, 0xEE, sizeof(a));
  std::memset(&b, 0x11, sizeof(b));
  ASSERT_TRUE(media::DecodeVideoParam(padded.c_str(), &a));
  ASSERT_TRUE(media::DecodeVideoParam(bare.c_str(), &b));
  EXPECT_EQ(0, std::memcmp(&a, block.data(), block.size()));
  EXPECT_EQ(0, std::memcmp(&b, block.data(), block.size()));
  EXPECT_EQ(a.byWriterArg, 40);
  EXPECT_STREQ(reinterpret_cast<const char*>(a.paramSet1), "H265");
}

TEST(StreamParams, VideoTextOfAnyOtherLengthIsNotABlock) {
  NETSDK_VIDEO_PARAM v;
  std::memset(&v, 0x33, sizeof(v));
  std::vector<unsigned char> shortBlock(500, 1);
  EXPECT_FALSE(media::DecodeVideoParam(B64(shortBlock).c_str(), &v));
  EXPECT_FALSE(media::DecodeVideoParam(nullptr, &v));
  EXPECT_EQ(v.byWriterArg, 0x33);  // untouched
  // A text longer than 1,023 characters is cut there (and so is no block).
  std::string longText(4000, 'A');
  EXPECT_FALSE(media::DecodeVideoParam(longText.c_str(), &v));
}

TEST(StreamParams, FullAudioBlockIsCopied) {
  auto block = FullAudio(8000, 16, 1, 1);
  NETSDK_AUDIO_PARAM a;
  ASSERT_EQ(media::DecodeAudioParam(B64(block).c_str(), &a), streamparam::kAudioBlockSize);
  EXPECT_EQ(0, std::memcmp(&a, block.data(), block.size()));
  EXPECT_EQ(a.nSampleRate, 8000);
  EXPECT_EQ(a.nCodec, 1);
}

TEST(StreamParams, CompactAudioFieldsAreMovedOneByOne) {
  NETSDK_AUDIO_PARAM a;
  std::memset(&a, 0x77, sizeof(a));
  ASSERT_EQ(media::DecodeAudioParam(B64(CompactAudio(44000, 16, 3, 2)).c_str(), &a), streamparam::kAudioCompactSize);
  EXPECT_STREQ(reinterpret_cast<const char*>(a.reserved), "AAC");
  EXPECT_EQ(a.reserved[255], 0);
  EXPECT_EQ(a.nSampleRate, 44000);
  EXPECT_EQ(a.nBitsPerSample, 16);
  EXPECT_EQ(a.nCodec, 3);
  EXPECT_EQ(a.nReserved, 0);
  EXPECT_EQ(a.nChannels, 2);
}

TEST(StreamParams, CompactAudioValidityRule) {
  struct Case {
    int32_t rate, bits, codec, channels;
    bool valid;
  } cases[] = {
      {8000, 16, 1, 1, true},   {48000, 32, 8, 2, true},  {8000, 16, 0, 1, false}, {8000, 16, 9, 1, false},
      {8000, 16, -1, 1, false}, {8000, 16, 1, 0, false},  {8000, 8, 1, 1, false},  {8000, 12, 1, 1, false},
      {8500, 16, 1, 1, false},  {7000, 16, 1, 1, false},  {16000, 24, 2, 1, true},
  };
  for (const Case& c : cases) {
    NETSDK_STREAM_PARAM rec;
    media::BuildReplayRecord(nullptr, B64(CompactAudio(c.rate, c.bits, c.codec, c.channels)).c_str(), &rec);
    EXPECT_EQ(rec.wHasAudio, c.valid ? 1 : 0) << c.rate << " " << c.bits << " " << c.codec << " " << c.channels;
  }
}

TEST(StreamParams, ReplayRecordCarriesBothBlocksAndTheirFlags) {
  auto video = VideoBlock();
  auto audio = FullAudio(8000, 8, 2, 1);
  NETSDK_STREAM_PARAM rec;
  std::memset(&rec, 0xCC, sizeof(rec));
  media::BuildReplayRecord(B64(video).c_str(), B64(audio).c_str(), &rec);
  EXPECT_EQ(rec.wHasVideo, 1);
  EXPECT_EQ(rec.wHasAudio, 1);
  EXPECT_EQ(0, std::memcmp(&rec.video, video.data(), video.size()));
  EXPECT_EQ(0, std::memcmp(&rec.audio, audio.data(), audio.size()));
  EXPECT_EQ(rec.reserved[0], 0);
  EXPECT_EQ(rec.reserved2[511], 0);
}

TEST(StreamParams, DownloadRecordKinds) {
  std::string v = B64(VideoBlock());
  NETSDK_STREAM_PARAM rec, audioOnly;
  EXPECT_EQ(media::BuildDownloadRecord(v.c_str(), B64(FullAudio(8000, 16, 1, 1)).c_str(), &rec, &audioOnly),
            media::DownloadParams::kBoth);
  EXPECT_EQ(rec.wHasVideo, 1);
  EXPECT_EQ(rec.wHasAudio, 1);
  // The download rule: codec > 0 and 8, 16 or 32 bits (8 bits is fine here, 24 is not).
  EXPECT_EQ(media::BuildDownloadRecord(v.c_str(), B64(FullAudio(8000, 8, 1, 1)).c_str(), &rec, &audioOnly),
            media::DownloadParams::kBoth);
  EXPECT_EQ(media::BuildDownloadRecord(v.c_str(), B64(FullAudio(8000, 24, 1, 1)).c_str(), &rec, &audioOnly),
            media::DownloadParams::kVideoOnly);
  EXPECT_EQ(rec.wHasAudio, 0);
  EXPECT_EQ(media::BuildDownloadRecord(v.c_str(), B64(FullAudio(8000, 16, 0, 1)).c_str(), &rec, &audioOnly),
            media::DownloadParams::kVideoOnly);
  EXPECT_EQ(media::BuildDownloadRecord(v.c_str(), nullptr, &rec, &audioOnly), media::DownloadParams::kVideoOnly);
  EXPECT_EQ(media::BuildDownloadRecord(nullptr, B64(CompactAudio(8000, 16, 1, 1)).c_str(), &rec, &audioOnly),
            media::DownloadParams::kAudioOnly);
  EXPECT_EQ(audioOnly.wHasAudio, 1);
  EXPECT_EQ(audioOnly.wHasVideo, 0);
  EXPECT_EQ(audioOnly.audio.nSampleRate, 8000);
  EXPECT_EQ(rec.wHasVideo, 0);
  EXPECT_EQ(media::BuildDownloadRecord(nullptr, nullptr, &rec, &audioOnly), media::DownloadParams::kNone);
}

TEST(StreamParams, DownloadAudioRule) {
  NETSDK_AUDIO_PARAM a;
  std::memset(&a, 0, sizeof(a));
  a.nCodec = 1;
  for (int bits : {8, 16, 32}) {
    a.nBitsPerSample = bits;
    EXPECT_TRUE(media::DownloadAudioValid(a));
  }
  a.nBitsPerSample = 12;
  EXPECT_FALSE(media::DownloadAudioValid(a));
  a.nBitsPerSample = 16;
  a.nCodec = 0;
  EXPECT_FALSE(media::DownloadAudioValid(a));
}

}  // namespace
