// Reads picture size and frame rate from one H.264 sequence parameter set NAL unit.
// A reader of the few fields the recorder needs, not a validator: a short SPS yields zeros for
// the fields it does not reach. Every read is bounded by the input length.
#pragma once

#include <cstdint>

struct sps_bit_stream {
  const unsigned char* data;
  unsigned size;  // bytes
  unsigned index; // bit position from the most significant bit of data[0]
};

struct sps_info_struct {
  int32_t profile_idc;
  int32_t level_idc;
  int32_t width;
  int32_t height;
  int32_t fps;
};

// nal starts at the NAL header byte (no start code). 1 when info was filled, 0 on refusal.
int h264_parse_sps(const void* nal, unsigned size, sps_info_struct* info);
unsigned ue(sps_bit_stream* bs);
int se(sps_bit_stream* bs);
void vui_para_parse(sps_bit_stream* bs, sps_info_struct* info);
