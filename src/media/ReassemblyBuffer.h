// A frame under assembly: the first pack's header followed by the payloads appended so
// far, in a buffer of kReassemblyBufferSize bytes allocated once and kept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "media/MediaPack.h"

namespace media {

class CReassemblyBuffer {
 public:
  // Allocates the buffer if absent (zeroed).
  void Reserve();
  bool Allocated() const { return m_data != nullptr; }
  // Starts a frame with the whole first pack; false (nothing kept) when it does not fit.
  bool Start(const unsigned char* pack, size_t length, uint16_t payloadSize);
  // Appends a payload; false (the frame is abandoned) when it would pass the buffer end.
  bool Append(const unsigned char* payload, size_t size);
  // Ends the frame: a later middle or last pack has nothing to join.
  void Finish() { m_bOpen = false; }
  void Abandon() { m_bOpen = false; }
  bool Open() const { return m_bOpen; }
  // The buffered header (the first pack's, with the last accepted pack_seq).
  PackHeader Header() const { return DecodeHeader(m_data.get()); }
  void StoreSeq(uint16_t seq) { StorePackSeq(m_data.get(), seq); }
  void StorePackType(uint8_t type) { m_data[kPackTypeOffset] = type; }
  unsigned char* Data() { return m_data.get(); }
  size_t Fill() const { return m_nFill; }

 private:
  std::unique_ptr<unsigned char[]> m_data;
  size_t m_nFill = 0;
  bool m_bOpen = false;
};

}  // namespace media
