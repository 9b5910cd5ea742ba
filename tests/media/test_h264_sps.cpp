// h264_parse_sps and its Exp-Golomb readers: SPS bit strings are built here with a small bit
// writer, and the encoded clips give real parameter sets.
#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "media/H264Sps.h"

namespace {

class BitWriter {
public:
  void bits(uint64_t value, unsigned count) {
    for (unsigned i = count; i-- > 0;)
      bit((value >> i) & 1u);
  }
  void bit(unsigned b) {
    if (count_ % 8 == 0)
      bytes_.push_back(0);
    if (b)
      bytes_.back() |= static_cast<unsigned char>(0x80u >> (count_ % 8));
    count_++;
  }
  void ue(uint64_t v) {
    uint64_t code = v + 1;
    unsigned len = 0;
    while ((code >> len) > 1)
      len++;
    bits(0, len);
    bits(code, len + 1);
  }
  void se(int64_t v) { ue(v > 0 ? 2 * static_cast<uint64_t>(v) - 1 : 2 * static_cast<uint64_t>(-v)); }
  // rbsp_trailing_bits: a stop bit, then zeros to the byte boundary.
  void trailing() {
    bit(1);
    while (count_ % 8 != 0)
      bit(0);
  }
  unsigned count() const { return count_; }
  const std::vector<unsigned char>& bytes() const { return bytes_; }

private:
  std::vector<unsigned char> bytes_;
  unsigned count_ = 0;
};

// Inserts emulation prevention bytes as an encoder does (after two zeros, before a byte <= 3).
std::vector<unsigned char> Escape(const std::vector<unsigned char>& rbsp) {
  std::vector<unsigned char> out;
  int zeros = 0;
  for (unsigned char b : rbsp) {
    if (zeros >= 2 && b <= 3) {
      out.push_back(3);
      zeros = 0;
    }
    out.push_back(b);
    zeros = b == 0 ? zeros + 1 : 0;
  }
  return out;
}

struct Parsed {
  int result;
  sps_info_struct info;
};

Parsed Parse(const std::vector<unsigned char>& nal) {
  Parsed p{};
  p.result = h264_parse_sps(nal.data(), static_cast<unsigned>(nal.size()), &p.info);
  return p;
}

// NAL header of an SPS (nal_ref_idc 3), profile, constraint flags, level, seq_parameter_set_id 0.
void WriteHead(BitWriter& w, unsigned profile, unsigned level) {
  w.bits(0x67, 8);
  w.bits(profile, 8);
  w.bits(0, 8);
  w.bits(level, 8);
  w.ue(0);
}

// The chroma block of the high profiles, without scaling lists.
void WriteChroma(BitWriter& w, unsigned chroma) {
  w.ue(chroma);
  if (chroma == 3)
    w.bit(0); // separate_colour_plane_flag
  w.ue(0);
  w.ue(0);
  w.bit(0);
  w.bit(0); // seq_scaling_matrix_present_flag
}

// log2_max_frame_num_minus4 .. gaps_in_frame_num_value_allowed_flag, picture order type 0.
void WriteFrameNum(BitWriter& w) {
  w.ue(0);
  w.ue(0);
  w.ue(2);
  w.ue(1);
  w.bit(0);
}

struct Crop {
  unsigned left, right, top, bottom;
};

// From pic_width_in_mbs_minus1 through frame_cropping; the VUI flag is left to the caller.
void WriteSize(BitWriter& w, unsigned wmbs, unsigned hmaps, unsigned frame_mbs_only, const Crop* crop) {
  w.ue(wmbs - 1);
  w.ue(hmaps - 1);
  w.bit(frame_mbs_only);
  if (!frame_mbs_only)
    w.bit(0); // mb_adaptive_frame_field_flag
  w.bit(1);   // direct_8x8_inference_flag
  w.bit(crop != nullptr);
  if (crop) {
    w.ue(crop->left);
    w.ue(crop->right);
    w.ue(crop->top);
    w.ue(crop->bottom);
  }
}

// A VUI with only timing information; the flag is written when flag >= 0.
void WriteTimingVui(BitWriter& w, uint32_t tick, uint32_t scale, int flag) {
  w.bit(1); // vui_parameters_present_flag
  w.bits(0, 4);
  w.bit(1); // timing_info_present_flag
  w.bits(tick, 32);
  w.bits(scale, 32);
  if (flag >= 0)
    w.bit(static_cast<unsigned>(flag));
}

// A 320x240 Baseline SPS (20x15 macroblocks) with the given timing.
std::vector<unsigned char> BaselineWithTiming(uint32_t tick, uint32_t scale, int flag, bool trailing) {
  BitWriter w;
  WriteHead(w, 66, 30);
  WriteFrameNum(w);
  WriteSize(w, 20, 15, 1, nullptr);
  WriteTimingVui(w, tick, scale, flag);
  if (trailing)
    w.trailing();
  return Escape(w.bytes());
}

std::vector<unsigned char> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The first SPS NAL unit (without start code) of an Annex B stream.
std::vector<unsigned char> FirstSps(const std::vector<unsigned char>& s) {
  for (size_t i = 0; i + 3 < s.size(); i++) {
    if (!(s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1 && (s[i + 3] & 0x1f) == 7))
      continue;
    size_t end = i + 3;
    while (end + 2 < s.size() && !(s[end] == 0 && s[end + 1] == 0 && (s[end + 2] <= 1)))
      end++;
    return std::vector<unsigned char>(s.begin() + static_cast<long>(i) + 3, s.begin() + static_cast<long>(end));
  }
  return {};
}

TEST(H264Sps, HighProfile1080WithCroppingIs1920x1080) {
  BitWriter w;
  WriteHead(w, 100, 40);
  WriteChroma(w, 1);
  WriteFrameNum(w);
  Crop crop{0, 0, 0, 4};
  WriteSize(w, 120, 68, 1, &crop);
  w.bit(0); // no VUI
  w.trailing();
  Parsed p = Parse(Escape(w.bytes()));
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.profile_idc, 100);
  EXPECT_EQ(p.info.level_idc, 40);
  EXPECT_EQ(p.info.width, 1920);
  EXPECT_EQ(p.info.height, 1080); // 68 x 16 - 4 x 2
  EXPECT_EQ(p.info.fps, 0);       // no VUI: left as the caller zeroed it
}

TEST(H264Sps, FieldCodedHeightAndCropUnit) {
  BitWriter w;
  WriteHead(w, 100, 40);
  WriteChroma(w, 1);
  WriteFrameNum(w);
  Crop crop{1, 2, 0, 2};
  WriteSize(w, 120, 34, 0, &crop);
  w.bit(0);
  w.trailing();
  Parsed p = Parse(Escape(w.bytes()));
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.width, 1920 - 3 * 2);
  EXPECT_EQ(p.info.height, 34 * 32 - 2 * 4); // CropUnitY = 2 x (2 - 0)
}

TEST(H264Sps, Chroma444SkipsColourPlaneAndNineScalingFlags) {
  BitWriter w;
  WriteHead(w, 244, 51);
  w.ue(3);  // chroma_format_idc 4:4:4
  w.bit(0); // separate_colour_plane_flag
  w.ue(2);
  w.ue(2);
  w.bit(0);
  w.bit(1);      // seq_scaling_matrix_present_flag
  w.bits(0, 9);  // nine list-present flags, all clear
  WriteFrameNum(w);
  Crop crop{2, 2, 1, 3};
  WriteSize(w, 40, 30, 1, &crop);
  w.bit(0);
  w.trailing();
  Parsed p = Parse(Escape(w.bytes()));
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.width, 640 - 4);  // CropUnitX 1
  EXPECT_EQ(p.info.height, 480 - 4); // CropUnitY 1
}

TEST(H264Sps, Chroma422ScalingFlagsAndCropUnits) {
  BitWriter w;
  WriteHead(w, 122, 40);
  w.ue(2); // 4:2:2
  w.ue(0);
  w.ue(0);
  w.bit(0);
  w.bit(1);
  w.bits(0, 8);
  WriteFrameNum(w);
  Crop crop{1, 0, 0, 4};
  WriteSize(w, 120, 68, 1, &crop);
  w.bit(0);
  w.trailing();
  Parsed p = Parse(Escape(w.bytes()));
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.width, 1920 - 2); // CropUnitX 2
  EXPECT_EQ(p.info.height, 1088 - 4); // CropUnitY 1 x (2 - 1)
}

TEST(H264Sps, PictureOrderType1CycleIsSkipped) {
  BitWriter w;
  WriteHead(w, 77, 31);
  w.ue(0);  // log2_max_frame_num_minus4
  w.ue(1);  // pic_order_cnt_type 1
  w.bit(0);
  w.se(-5);
  w.se(7);
  w.ue(3);  // num_ref_frames_in_pic_order_cnt_cycle
  w.se(1);
  w.se(-2);
  w.se(300);
  w.ue(2);
  w.bit(0);
  WriteSize(w, 80, 45, 1, nullptr);
  w.bit(0);
  w.trailing();
  Parsed p = Parse(Escape(w.bytes()));
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.width, 1280);
  EXPECT_EQ(p.info.height, 720);
}

TEST(H264Sps, HostileCycleLengthEndsWithTheInput) {
  BitWriter w;
  WriteHead(w, 66, 30);
  w.ue(0);
  w.ue(1);
  w.bit(0);
  w.se(0);
  w.se(0);
  w.ue(0xFFFFFFFEu); // a cycle of four billion codes in a few bytes
  w.trailing();
  Parsed p = Parse(w.bytes());
  EXPECT_EQ(p.result, 1);
}

TEST(H264Sps, PictureParameterSetIsRefused) {
  std::vector<unsigned char> nal = BaselineWithTiming(1, 50, 0, true);
  nal[0] = 0x68; // nal_unit_type 8
  EXPECT_EQ(Parse(nal).result, 0);
  nal[0] = 0x67;
  EXPECT_EQ(Parse(nal).result, 1);
}

TEST(H264Sps, NullAndEmptyInputAreRefused) {
  std::vector<unsigned char> nal = BaselineWithTiming(1, 50, 0, true);
  sps_info_struct info{};
  EXPECT_EQ(h264_parse_sps(nullptr, 10, &info), 0);
  EXPECT_EQ(h264_parse_sps(nal.data(), 0, &info), 0);
  EXPECT_EQ(h264_parse_sps(nal.data(), static_cast<unsigned>(nal.size()), nullptr), 0);
}

TEST(H264Sps, FixedFrameRateFlagHalvesTheRate) {
  Parsed fixed = Parse(BaselineWithTiming(1, 50, 1, true));
  ASSERT_EQ(fixed.result, 1);
  EXPECT_EQ(fixed.info.fps, 25);
  Parsed variable = Parse(BaselineWithTiming(1, 50, 0, true));
  ASSERT_EQ(variable.result, 1);
  EXPECT_EQ(variable.info.fps, 50);
  EXPECT_EQ(variable.info.width, 320);
  EXPECT_EQ(variable.info.height, 240);
}

TEST(H264Sps, RateIsRoundedToNearest) {
  EXPECT_EQ(Parse(BaselineWithTiming(1001, 60000, 0, true)).info.fps, 60); // 59.94
  EXPECT_EQ(Parse(BaselineWithTiming(1001, 60000, 1, true)).info.fps, 30);
  EXPECT_EQ(Parse(BaselineWithTiming(100, 2940, 0, true)).info.fps, 29);   // 29.4
  EXPECT_EQ(Parse(BaselineWithTiming(2, 51, 1, true)).info.fps, 13);      // 25.5 -> 26, halved
}

TEST(H264Sps, StreamEndingBeforeTheFixedFlagKeepsTheUndividedRate) {
  BitWriter w;
  WriteHead(w, 66, 30);
  WriteFrameNum(w);
  WriteSize(w, 20, 15, 1, nullptr);
  w.bit(1);       // vui_parameters_present_flag
  w.bit(0);       // aspect_ratio_info_present_flag
  w.bit(0);       // overscan_info_present_flag
  w.bit(1);       // video_signal_type_present_flag
  w.bits(0x5, 4);
  w.bit(0);       // colour_description_present_flag
  w.bit(0);       // chroma_loc_info_present_flag
  w.bit(1);       // timing_info_present_flag
  w.bits(1, 32);
  w.bits(50, 32);
  ASSERT_EQ(w.count() % 8, 0u) << "the flag must be the first bit past the input";
  Parsed p = Parse(Escape(w.bytes()));
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.fps, 50);
  std::vector<unsigned char> more = Escape(w.bytes());
  more.push_back(0x80); // fixed_frame_rate_flag 1
  EXPECT_EQ(Parse(more).info.fps, 25);
}

// The quotient of a zero tick is infinite or NaN; converting it would be undefined, so the
// reader reports no rate. The UBSan build runs this.
TEST(H264Sps, ZeroTickGivesNoRate) {
  for (uint32_t scale : {0u, 50u, 0xFFFFFFFFu}) {
    for (int flag : {0, 1}) {
      Parsed p = Parse(BaselineWithTiming(0, scale, flag, true));
      ASSERT_EQ(p.result, 1);
      EXPECT_EQ(p.info.fps, 0) << scale;
      EXPECT_EQ(p.info.width, 320);
    }
  }
}

TEST(H264Sps, FullVuiIsSkippedToTheTiming) {
  BitWriter w;
  WriteHead(w, 66, 30);
  WriteFrameNum(w);
  WriteSize(w, 20, 15, 1, nullptr);
  w.bit(1);          // vui_parameters_present_flag
  w.bit(1);          // aspect_ratio_info_present_flag
  w.bits(255, 8);    // Extended_SAR
  w.bits(0xFFFF, 16);
  w.bits(0xFFFF, 16);
  w.bit(1);          // overscan_info_present_flag
  w.bit(1);
  w.bit(1);          // video_signal_type_present_flag
  w.bits(0xF, 4);
  w.bit(1);          // colour_description_present_flag
  w.bits(0xFFFFFF, 24);
  w.bit(1);          // chroma_loc_info_present_flag
  w.ue(5);
  w.ue(3);
  w.bit(1);          // timing_info_present_flag
  w.bits(1, 32);
  w.bits(60, 32);
  w.bit(1);
  w.trailing();
  Parsed p = Parse(Escape(w.bytes()));
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.fps, 30);
}

TEST(H264Sps, EscapedStartCodeIsReadWithoutTheThree) {
  // level_idc sits after two zero bytes: 00 00 03 01 must read as level 1, not 3.
  Parsed p = Parse({0x67, 0x00, 0x00, 0x03, 0x01, 0x80});
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.profile_idc, 0);
  EXPECT_EQ(p.info.level_idc, 1);
}

TEST(H264Sps, EscapeInsideAFullSps) {
  BitWriter w;
  w.bits(0x67, 8);
  w.bits(66, 8);
  w.bits(0, 8);
  w.bits(0, 8);  // level 0: two zero bytes so far
  w.ue(127);     // seq_parameter_set_id: 0000000 1 0000000, i.e. the byte 01 after them
  WriteFrameNum(w);
  WriteSize(w, 20, 15, 1, nullptr);
  w.bit(0);
  w.trailing();
  std::vector<unsigned char> nal = Escape(w.bytes());
  ASSERT_GE(nal.size(), 5u);
  ASSERT_EQ(std::vector<unsigned char>(nal.begin() + 2, nal.begin() + 6),
            (std::vector<unsigned char>{0x00, 0x00, 0x03, 0x01}));
  std::vector<unsigned char> before = nal;
  Parsed p = Parse(nal);
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.width, 320);
  EXPECT_EQ(p.info.height, 240);
  EXPECT_EQ(nal, before); // the caller's bytes are not modified
}

TEST(H264Sps, ByteAfterARemovedThreeIsNotTestedAgain) {
  // 00 00 03 03: the first 03 goes, the second is level_idc (it would be 0x80 if it went too).
  Parsed p = Parse({0x67, 0x00, 0x00, 0x03, 0x03, 0x80});
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.level_idc, 3);
}

TEST(H264Sps, TestingResumesAfterTheUntestedByte) {
  BitWriter w;
  w.bits(0x67, 8);
  w.bits(0, 24);                 // profile, constraints and level all zero bytes
  w.ue((uint64_t{1} << 23) - 1); // seq_parameter_set_id: 23 zeros, 1, 23 zeros
  WriteFrameNum(w);
  WriteSize(w, 20, 15, 1, nullptr);
  w.bit(0);
  w.trailing();
  std::vector<unsigned char> nal = Escape(w.bytes());
  ASSERT_GE(nal.size(), w.bytes().size() + 2) << "the SPS must carry several escapes";
  Parsed p = Parse(nal);
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.width, 320);
  EXPECT_EQ(p.info.height, 240);
}

TEST(H264Sps, TwoByteInput) {
  Parsed p = Parse({0x67, 0x64});
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.profile_idc, 100);
  EXPECT_EQ(p.info.level_idc, 0);
  // Every code past the end reads 0: 1 macroblock wide, no frame_mbs_only_flag left.
  EXPECT_EQ(p.info.width, 16);
  EXPECT_EQ(p.info.height, 32);
  EXPECT_EQ(p.info.fps, 0);
  EXPECT_EQ(Parse({0x68, 0x64}).result, 0);
}

TEST(H264Sps, TruncatedSpsYieldsZeros) {
  Parsed one = Parse({0x67});
  ASSERT_EQ(one.result, 1);
  EXPECT_EQ(one.info.profile_idc, 0);
  EXPECT_EQ(one.info.level_idc, 0);
  EXPECT_EQ(one.info.width, 16);
  EXPECT_EQ(one.info.height, 32);
  EXPECT_EQ(one.info.fps, 0);

  Parsed head = Parse({0x67, 0x4D, 0x00, 0x1F});
  ASSERT_EQ(head.result, 1);
  EXPECT_EQ(head.info.profile_idc, 77);
  EXPECT_EQ(head.info.level_idc, 31);
  EXPECT_EQ(head.info.width, 16);
  EXPECT_EQ(head.info.height, 32);
}

TEST(H264Sps, EndBeforeFrameMbsOnlyFlagGivesFieldHeight) {
  BitWriter w;
  WriteHead(w, 66, 30);
  w.ue(0);
  w.ue(0);
  w.ue(0);
  w.ue(1);
  w.bit(0);
  w.ue(19); // 20 macroblocks wide
  w.ue(14); // 15 map units high
  ASSERT_EQ(w.count() % 8, 0u) << "the flag must be the first bit past the input";
  Parsed p = Parse(w.bytes());
  ASSERT_EQ(p.result, 1);
  EXPECT_EQ(p.info.width, 320);
  EXPECT_EQ(p.info.height, 480);

  std::vector<unsigned char> more = w.bytes();
  more.push_back(0xC0); // frame_mbs_only_flag 1, direct_8x8 1, no cropping, no VUI
  Parsed q = Parse(more);
  ASSERT_EQ(q.result, 1);
  EXPECT_EQ(q.info.height, 240);
}

TEST(H264Sps, EveryTruncationOfARealSpsIsRead) {
  std::vector<unsigned char> sps = FirstSps(ReadFile(std::string(QXNET_CLIP_DIR) + "/h264_1920x1080.h264"));
  ASSERT_GT(sps.size(), 4u);
  for (size_t n = 1; n <= sps.size(); n++) {
    // A heap copy of exactly n bytes, so that a read past it is caught by the address sanitizer.
    std::vector<unsigned char> cut(sps.begin(), sps.begin() + static_cast<long>(n));
    Parsed p = Parse(cut);
    EXPECT_EQ(p.result, 1) << n;
    if (n >= 4) {
      EXPECT_EQ(p.info.level_idc, 40) << n;
    }
  }
}

TEST(H264Sps, RealClips) {
  struct Clip {
    const char* file;
    int width, height, level;
  };
  for (const Clip& c : {Clip{"h264_1920x1080.h264", 1920, 1080, 40}, Clip{"h264_320x240.h264", 320, 240, 13}}) {
    std::vector<unsigned char> sps = FirstSps(ReadFile(std::string(QXNET_CLIP_DIR) + "/" + c.file));
    ASSERT_FALSE(sps.empty()) << c.file;
    Parsed p = Parse(sps);
    ASSERT_EQ(p.result, 1) << c.file;
    EXPECT_EQ(p.info.profile_idc, 66) << c.file;
    EXPECT_EQ(p.info.level_idc, c.level) << c.file;
    EXPECT_EQ(p.info.width, c.width) << c.file;
    EXPECT_EQ(p.info.height, c.height) << c.file;
    // The encoder states 1/50 s ticks without the fixed-rate flag: the undivided 50.
    EXPECT_EQ(p.info.fps, 50) << c.file;
  }
}

unsigned ReadUe(const std::vector<unsigned char>& bytes, unsigned* end_bit = nullptr) {
  sps_bit_stream bs{bytes.data(), static_cast<unsigned>(bytes.size()), 0};
  unsigned v = ue(&bs);
  if (end_bit)
    *end_bit = bs.index;
  return v;
}

TEST(H264SpsGolomb, UnsignedCodesRoundTrip) {
  std::vector<uint64_t> values;
  for (uint64_t v = 0; v < 600; v++)
    values.push_back(v);
  for (uint64_t v : {65535ull, 65536ull, 0x7FFFFFFFull, 0x80000000ull, 0xFFFFFFFEull})
    values.push_back(v);
  for (uint64_t v : values) {
    BitWriter w;
    w.ue(v);
    unsigned length = w.count();
    w.trailing();
    unsigned end = 0;
    EXPECT_EQ(ReadUe(w.bytes(), &end), v);
    EXPECT_EQ(end, length) << v;
  }
}

TEST(H264SpsGolomb, KnownUnsignedCodes) {
  EXPECT_EQ(ReadUe({0x80}), 0u); // 1
  EXPECT_EQ(ReadUe({0x40}), 1u); // 010
  EXPECT_EQ(ReadUe({0x60}), 2u); // 011
  EXPECT_EQ(ReadUe({0x20}), 3u); // 00100
  EXPECT_EQ(ReadUe({0x38}), 6u); // 00111
}

TEST(H264SpsGolomb, SequenceOfCodes) {
  // 1 010 011 00100 00101 0 (pad): 0 1 2 3 4
  BitWriter w;
  for (unsigned v = 0; v < 5; v++)
    w.ue(v);
  std::vector<unsigned char> bytes = w.bytes();
  sps_bit_stream bs{bytes.data(), static_cast<unsigned>(bytes.size()), 0};
  for (unsigned v = 0; v < 5; v++)
    EXPECT_EQ(ue(&bs), v);
}

TEST(H264SpsGolomb, EndAmongLeadingZeros) {
  unsigned end = 0;
  EXPECT_EQ(ReadUe({0x00}, &end), 255u); // eight zeros, then nothing: 2^8 - 1
  EXPECT_EQ(end, 8u);
  EXPECT_EQ(ReadUe({0x00, 0x00}, &end), 65535u);
  EXPECT_EQ(ReadUe({}, &end), 0u);
  EXPECT_EQ(end, 0u);
}

TEST(H264SpsGolomb, EndAmongValueBitsUsesTheBitsRead) {
  // 00000 1 01: five zeros, the 1, then two of five value bits ("01") before the end.
  EXPECT_EQ(ReadUe({0x05}), 31u + 1u);
  // 0000000 1: seven zeros, no value bit left.
  EXPECT_EQ(ReadUe({0x01}), 127u);
}

TEST(H264SpsGolomb, ThirtyTwoZerosDoNotOverflowIntoUndefinedBehaviour) {
  unsigned end = 0;
  ReadUe({0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, &end);
  EXPECT_LE(end, 72u);
  EXPECT_GE(end, 64u);
}

TEST(H264SpsGolomb, SignedCodes) {
  const int expected[] = {0, 1, -1, 2, -2, 3, -3, 4};
  for (unsigned k = 0; k < 8; k++) {
    BitWriter w;
    w.ue(k);
    w.trailing();
    std::vector<unsigned char> bytes = w.bytes();
    sps_bit_stream bs{bytes.data(), static_cast<unsigned>(bytes.size()), 0};
    EXPECT_EQ(se(&bs), expected[k]) << k;
  }
  for (int64_t v : {-100000ll, 99999ll, -2147483647ll, 2147483647ll}) {
    BitWriter w;
    w.se(v);
    std::vector<unsigned char> bytes = w.bytes();
    sps_bit_stream bs{bytes.data(), static_cast<unsigned>(bytes.size()), 0};
    EXPECT_EQ(se(&bs), v);
  }
}

TEST(H264SpsGolomb, ReadsPastTheEndStayAtTheEnd) {
  std::vector<unsigned char> bytes{0xFF};
  sps_bit_stream bs{bytes.data(), 1, 0};
  for (int i = 0; i < 20; i++)
    ue(&bs);
  EXPECT_EQ(bs.index, 8u);
  EXPECT_EQ(ue(&bs), 0u);
  EXPECT_EQ(se(&bs), 0);
  EXPECT_EQ(bs.index, 8u);
}

} // namespace
