// The 20-byte header at the start of every media pack, read where the pack lies.
// All fields little-endian; a pack too short for its header or for the payload it
// announces is refused.
#pragma once

#include <cstddef>
#include <cstdint>

namespace media {

constexpr size_t kPackHeaderSize = 20;
// One reassembly buffer per path (replay, download): a frame longer than this is dropped.
constexpr size_t kReassemblyBufferSize = 2097152;

enum PackType : uint8_t {
  kPackMiddle = 0x00,
  kPackFirst = 0x01,
  kPackLast = 0x10,
  kPackWhole = 0x11,
};

struct PackHeader {
  uint32_t frame_timestamp;     // milliseconds (since midnight for a download)
  uint32_t keyframe_timestamp;  // equal to frame_timestamp on a key frame
  uint16_t pack_seq;            // counts modulo 65,536
  uint16_t payload_size;
  uint8_t pack_type;
  uint8_t frame_type;           // 1 = key frame
  uint8_t stream_type;          // 0 and 2 video, anything else audio
  uint8_t payload_type;         // codec, passed on unchanged
  uint32_t frame_index;
};

// Byte offsets of the fields that reassembly rewrites in a buffered header.
constexpr size_t kPackSeqOffset = 8;
constexpr size_t kPackTypeOffset = 12;

// Decodes the header; false when length < 20 or payload_size runs past the pack.
bool ReadPackHeader(const unsigned char* pack, size_t length, PackHeader* out);
// Decodes a header already known to be whole (the buffered first pack).
PackHeader DecodeHeader(const unsigned char* header);
void StorePackSeq(unsigned char* header, uint16_t seq);

inline bool IsVideoStream(uint8_t streamType) { return streamType == 0 || streamType == 2; }
// The sequence number that must follow `seq`.
inline uint16_t NextSeq(uint16_t seq) { return static_cast<uint16_t>(seq + 1u); }

}  // namespace media
