#include "media/H264Sps.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

// One bit; past the end it reads 0 and the position stays at the end, so a short SPS
// yields zeros instead of a read outside the buffer.
unsigned read_bit(sps_bit_stream* bs) {
  if (bs->index / 8 >= bs->size) {
    bs->index = bs->size * 8;
    return 0;
  }
  unsigned bit = (bs->data[bs->index / 8] >> (7 - bs->index % 8)) & 1u;
  bs->index++;
  return bit;
}

bool at_end(const sps_bit_stream* bs) { return bs->index / 8 >= bs->size; }

// Up to 32 bits, most significant first; missing bits read as 0.
uint32_t read_bits(sps_bit_stream* bs, unsigned count) {
  uint32_t value = 0;
  for (unsigned i = 0; i < count; i++)
    value = (value << 1) | read_bit(bs);
  return value;
}

void skip_bits(sps_bit_stream* bs, unsigned count) {
  for (unsigned i = 0; i < count; i++)
    read_bit(bs);
}

// Hostile sizes can exceed 32 bits: the record keeps the low 32 bits (two's complement on
// every compiler we build with) rather than trapping on a signed overflow.
int32_t to_field(int64_t value) { return static_cast<int32_t>(static_cast<uint32_t>(value)); }

// Removes emulation prevention bytes (00 00 03 -> 00 00) into out; returns the new length.
// The byte after a removed 03 is copied untested, so 00 00 03 03 keeps its second 03.
unsigned unescape(const unsigned char* in, unsigned size, unsigned char* out) {
  unsigned n = 0;
  bool after_removed = false;
  for (unsigned i = 0; i < size; i++) {
    bool escape = !after_removed && n >= 2 && out[n - 2] == 0 && out[n - 1] == 0 && in[i] == 3;
    after_removed = escape;
    if (!escape)
      out[n++] = in[i];
  }
  return n;
}

bool high_profile(int32_t profile) {
  static const int32_t kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
  for (int32_t p : kProfiles)
    if (p == profile)
      return true;
  return false;
}

// The high profiles' chroma and bit-depth fields; returns chroma_format_idc. The scaling lists
// themselves are not read: only their present flags are skipped.
unsigned read_chroma_fields(sps_bit_stream* bs) {
  unsigned chroma = ue(bs);
  if (chroma == 3)
    skip_bits(bs, 1); // separate_colour_plane_flag
  ue(bs);             // bit_depth_luma_minus8
  ue(bs);             // bit_depth_chroma_minus8
  skip_bits(bs, 1);   // qpprime_y_zero_transform_bypass_flag
  if (read_bit(bs))   // seq_scaling_matrix_present_flag
    skip_bits(bs, chroma == 3 ? 9 : 8);
  return chroma;
}

void skip_pic_order_cnt(sps_bit_stream* bs) {
  unsigned type = ue(bs);
  if (type == 0) {
    ue(bs); // log2_max_pic_order_cnt_lsb_minus4
  } else if (type == 1) {
    skip_bits(bs, 1); // delta_pic_order_always_zero_flag
    se(bs);           // offset_for_non_ref_pic
    se(bs);           // offset_for_top_to_bottom_field
    unsigned cycle = ue(bs);
    // The codes must be consumed one by one; none is kept. A hostile cycle length cannot
    // read further than the input, since every code past the end is a single 0 read.
    for (unsigned i = 0; i < cycle && !at_end(bs); i++)
      se(bs);
  }
}

void apply_cropping(sps_bit_stream* bs, unsigned chroma, unsigned frame_mbs_only,
                    sps_info_struct* info) {
  int64_t left = ue(bs), right = ue(bs), top = ue(bs), bottom = ue(bs);
  int64_t unit_x = (chroma == 1 || chroma == 2) ? 2 : 1;
  int64_t unit_y = (chroma == 1 ? 2 : 1) * (2 - static_cast<int64_t>(frame_mbs_only));
  info->width = to_field(static_cast<int64_t>(info->width) - (left + right) * unit_x);
  info->height = to_field(static_cast<int64_t>(info->height) - (top + bottom) * unit_y);
}

// Everything after seq_parameter_set_id. Returns early (with the field-coded height) when the
// stream ends before frame_mbs_only_flag.
void read_picture_fields(sps_bit_stream* bs, unsigned chroma, sps_info_struct* info) {
  ue(bs); // log2_max_frame_num_minus4
  skip_pic_order_cnt(bs);
  ue(bs);           // max_num_ref_frames
  skip_bits(bs, 1); // gaps_in_frame_num_value_allowed_flag
  int64_t w = ue(bs);
  int64_t h = ue(bs);
  info->width = to_field((w + 1) * 16);
  if (at_end(bs)) {
    info->height = to_field((h + 1) * 32);
    return;
  }
  unsigned frame_mbs_only = read_bit(bs);
  info->height = to_field((h + 1) * (frame_mbs_only ? 16 : 32));
  if (!frame_mbs_only)
    skip_bits(bs, 1); // mb_adaptive_frame_field_flag
  skip_bits(bs, 1);   // direct_8x8_inference_flag
  if (read_bit(bs))   // frame_cropping_flag
    apply_cropping(bs, chroma, frame_mbs_only, info);
  if (read_bit(bs)) // vui_parameters_present_flag
    vui_para_parse(bs, info);
}

// Frame rate from the timing information. A tick of 0 would divide by zero, and a NaN or
// infinity converted to an integer is undefined behaviour: such a stream states no usable
// rate, so it gives 0.
int64_t timing_fps(uint32_t num_units_in_tick, uint32_t time_scale) {
  if (num_units_in_tick == 0)
    return 0;
  long double fps = static_cast<long double>(time_scale) / num_units_in_tick;
  return std::llround(fps); // at most 2^32 - 1: fits
}

} // namespace

unsigned ue(sps_bit_stream* bs) {
  unsigned zeros = 0;
  while (zeros < 32) {
    if (at_end(bs))
      return static_cast<unsigned>((uint64_t{1} << zeros) - 1);
    if (read_bit(bs))
      break;
    zeros++;
  }
  // If the stream ends among the value bits, the bits read so far are the value.
  uint64_t value = 0;
  for (unsigned i = 0; i < zeros && !at_end(bs); i++)
    value = (value << 1) | read_bit(bs);
  // 32 leading zeros overflow 32 bits: the result wraps, as unsigned arithmetic does.
  return static_cast<unsigned>((uint64_t{1} << zeros) - 1 + value);
}

int se(sps_bit_stream* bs) {
  int64_t k = ue(bs);
  int64_t magnitude = (k + 1) / 2;
  // Only k = 2^32 - 1 gives 2^31, which wraps to INT_MIN: no undefined behaviour.
  return static_cast<int>(static_cast<uint32_t>((k & 1) ? magnitude : -magnitude));
}

void vui_para_parse(sps_bit_stream* bs, sps_info_struct* info) {
  if (read_bit(bs)) {                // aspect_ratio_info_present_flag
    if (read_bits(bs, 8) == 255)     // aspect_ratio_idc: Extended_SAR
      skip_bits(bs, 32);             // sar_width, sar_height
  }
  if (read_bit(bs))                  // overscan_info_present_flag
    skip_bits(bs, 1);                // overscan_appropriate_flag
  if (read_bit(bs)) {                // video_signal_type_present_flag
    skip_bits(bs, 4);                // video_format, video_full_range_flag
    if (read_bit(bs))                // colour_description_present_flag
      skip_bits(bs, 24);             // primaries, transfer, matrix
  }
  if (read_bit(bs)) {                // chroma_loc_info_present_flag
    ue(bs);
    ue(bs);
  }
  if (!read_bit(bs))                 // timing_info_present_flag
    return;
  uint32_t num_units_in_tick = read_bits(bs, 32);
  uint32_t time_scale = read_bits(bs, 32);
  int64_t fps = timing_fps(num_units_in_tick, time_scale);
  if (at_end(bs)) {
    info->fps = to_field(fps);
    return;
  }
  // Deliberately not time_scale / (2 x tick): the rate is halved only when
  // fixed_frame_rate_flag is set.
  info->fps = to_field(read_bit(bs) ? fps >> 1 : fps);
}

int h264_parse_sps(const void* nal, unsigned size, sps_info_struct* info) {
  if (nal == nullptr || info == nullptr || size == 0)
    return 0;
  unsigned char* copy = static_cast<unsigned char*>(std::malloc(size));
  if (copy == nullptr)
    return 0;
  unsigned length = unescape(static_cast<const unsigned char*>(nal), size, copy);
  sps_bit_stream bs{copy, length, 0};
  int result = 0;
  skip_bits(&bs, 3); // forbidden_zero_bit, nal_ref_idc
  if (length > 0 && read_bits(&bs, 5) == 7) {
    info->profile_idc = static_cast<int32_t>(read_bits(&bs, 8));
    skip_bits(&bs, 8); // constraint_set flags, reserved_zero_2bits
    info->level_idc = static_cast<int32_t>(read_bits(&bs, 8));
    ue(&bs); // seq_parameter_set_id
    unsigned chroma = high_profile(info->profile_idc) ? read_chroma_fields(&bs) : 1;
    read_picture_fields(&bs, chroma, info);
    result = 1;
  }
  std::free(copy);
  return result;
}
