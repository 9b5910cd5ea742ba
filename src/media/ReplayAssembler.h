// Replay media: packs are joined into frames and each frame is handed on at once, with its
// FRAME_EXTDATA. Broken packs are logged and dropped; the next first pack starts over.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

#include "QXNetSDK.h"
#include "media/MediaPack.h"
#include "media/ReassemblyBuffer.h"

namespace media {

// type = the frame's stream_type; data is valid only during the call.
using ReplayFrameFn = std::function<void(unsigned long type, unsigned char* data, unsigned long length,
                                         FRAME_EXTDATA* ext)>;

// Fills a zeroed FRAME_EXTDATA from a header.
void FillExtData(const PackHeader& h, FRAME_EXTDATA* ext);

class CReplayAssembler {
 public:
  explicit CReplayAssembler(ReplayFrameFn deliver) : m_deliver(std::move(deliver)) {}
  void Reserve() { m_buf.Reserve(); }
  // One pack as the device sent it; `channel` only goes into the log line.
  void OnPack(const unsigned char* pack, size_t length, int channel);

 private:
  void Deliver(const PackHeader& h, unsigned char* data, size_t length);
  // The frame_index and pack_seq tests of a middle or last pack (logged when failing).
  bool Joins(const PackHeader& h);
  void LogFrameError(const PackHeader& h);
  void Join(const PackHeader& h, const unsigned char* pack);

  ReplayFrameFn m_deliver;
  CReassemblyBuffer m_buf;
};

}  // namespace media
