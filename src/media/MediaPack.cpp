#include "media/MediaPack.h"

namespace media {
namespace {
uint32_t U32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}
uint16_t U16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
}  // namespace

PackHeader DecodeHeader(const unsigned char* p) {
  PackHeader h;
  h.frame_timestamp = U32(p);
  h.keyframe_timestamp = U32(p + 4);
  h.pack_seq = U16(p + 8);
  h.payload_size = U16(p + 10);
  h.pack_type = p[12];
  h.frame_type = p[13];
  h.stream_type = p[14];
  h.payload_type = p[15];
  h.frame_index = U32(p + 16);
  return h;
}

bool ReadPackHeader(const unsigned char* pack, size_t length, PackHeader* out) {
  if (!pack || !out || length < kPackHeaderSize) return false;
  *out = DecodeHeader(pack);
  return out->payload_size <= length - kPackHeaderSize;
}

void StorePackSeq(unsigned char* header, uint16_t seq) {
  header[kPackSeqOffset] = static_cast<unsigned char>(seq & 0xFF);
  header[kPackSeqOffset + 1] = static_cast<unsigned char>(seq >> 8);
}

}  // namespace media
