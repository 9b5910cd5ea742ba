// libFuzzer target of the H.264 SPS reader: every input is one NAL unit. Besides the
// sanitizers' checks, the properties the recorder relies on abort the run when broken.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <vector>

#include "media/H264Sps.h"

namespace {

void Require(bool ok, const char* what) {
  if (ok) return;
  fprintf(stderr, "h264_parse_sps: %s\n", what);
  __builtin_trap();
}

// Whole-NAL properties: the input is left alone, the result depends only on the NAL type
// (the first byte is never an emulation prevention byte), and a second read agrees.
void CheckParse(const uint8_t* data, size_t size) {
  std::vector<uint8_t> before(data, data + size);
  sps_info_struct first{}, second{};
  unsigned n = static_cast<unsigned>(size);
  int rc = h264_parse_sps(data, n, &first);
  Require(size == 0 || memcmp(before.data(), data, size) == 0, "input modified");
  Require(rc == (size > 0 && (data[0] & 0x1f) == 7 ? 1 : 0), "result other than the NAL type says");
  int again = h264_parse_sps(data, n, &second);
  Require(again == rc && memcmp(&first, &second, sizeof first) == 0, "two reads differ");
  if (rc == 1) Require(first.profile_idc >= 0 && first.profile_idc <= 255, "profile outside a byte");
  if (rc == 1) Require(first.level_idc >= 0 && first.level_idc <= 255, "level outside a byte");
}

// The Exp-Golomb readers on the raw bytes: each code moves forward until the end is reached,
// never past it, so a loop over codes ends.
void CheckCodes(const uint8_t* data, size_t size) {
  sps_bit_stream bs{data, static_cast<unsigned>(size), 0};
  const unsigned end = static_cast<unsigned>(size) * 8;
  for (unsigned i = 0; bs.index < end; i++) {
    unsigned at = bs.index;
    if (i % 2) se(&bs);
    else ue(&bs);
    Require(bs.index > at && bs.index <= end, "code did not advance within the input");
  }
  unsigned at = bs.index;
  Require(ue(&bs) == 0 && se(&bs) == 0 && bs.index == at, "read past the end");
}

// The VUI reader alone on the raw bytes stays inside them.
void CheckVui(const uint8_t* data, size_t size) {
  sps_bit_stream bs{data, static_cast<unsigned>(size), 0};
  sps_info_struct info{};
  vui_para_parse(&bs, &info);
  Require(bs.index <= static_cast<unsigned>(size) * 8, "VUI read past the end");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1 << 16) return 0;  // an SPS is a few dozen bytes
  CheckParse(data, size);
  CheckCodes(data, size);
  CheckVui(data, size);
  return 0;
}
