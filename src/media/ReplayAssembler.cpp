#include "media/ReplayAssembler.h"

#include <cstring>

#include "media/MediaLog.h"

namespace media {

void FillExtData(const PackHeader& h, FRAME_EXTDATA* ext) {
  std::memset(ext, 0, sizeof(*ext));
  ext->frame_type = h.frame_type;
  ext->timestamp = static_cast<double>(h.frame_timestamp);
  ext->payload_type = h.payload_type;
}

void CReplayAssembler::Deliver(const PackHeader& h, unsigned char* data, size_t length) {
  FRAME_EXTDATA ext;
  FillExtData(h, &ext);
  if (m_deliver) m_deliver(h.stream_type, data, length, &ext);
}

void CReplayAssembler::LogFrameError(const PackHeader& h) {
  // Without a frame under way the last index is the one left in the buffer (0 at first).
  uint32_t last = m_buf.Allocated() ? m_buf.Header().frame_index : 0;
  if (LogOn(1))
    fLog(1, "[OnRecvMediaData] Recv media data error, pack type=%d,frame index=%d,last pack frame index=%d \n",
         h.pack_type, static_cast<int>(h.frame_index), static_cast<int>(last));
}

bool CReplayAssembler::Joins(const PackHeader& h) {
  if (!m_buf.Open() || h.frame_index != m_buf.Header().frame_index) {
    LogFrameError(h);
    return false;
  }
  PackHeader prev = m_buf.Header();
  if (NextSeq(prev.pack_seq) != h.pack_seq) {
    if (LogOn(1))
      fLog(1, "[OnRecvMediaData] Media data pack error, pre->pack_seq+1[%d] != cur->pack_seq[%d] \n",
           NextSeq(prev.pack_seq), h.pack_seq);
    return false;
  }
  return true;
}

void CReplayAssembler::Join(const PackHeader& h, const unsigned char* pack) {
  m_buf.StoreSeq(h.pack_seq);
  if (!m_buf.Append(pack + kPackHeaderSize, h.payload_size))
    fLog(1, "[OnRecvMediaData] Media frame dropped, longer than the %u-byte buffer, frame index=%u \n",
         static_cast<unsigned>(kReassemblyBufferSize), static_cast<unsigned>(h.frame_index));
}

void CReplayAssembler::OnPack(const unsigned char* pack, size_t length, int channel) {
  PackHeader h;
  if (!ReadPackHeader(pack, length, &h)) {
    fLog(1, "[OnRecvMediaData] Media data pack refused, length=%u \n", static_cast<unsigned>(length));
    return;
  }
  if (LogOn(0))
    fLog(0,
         "[OnRecvMediaData]: stream_type=%d, frame_timestamp=%d, keyframe_timestamp=%d,payload_size=%d,pack_type=%d,"
         "frame_type=%d,payload_type=%d,frame_index=%d ch=%d\n",
         h.stream_type, static_cast<int>(h.frame_timestamp), static_cast<int>(h.keyframe_timestamp), h.payload_size,
         h.pack_type, h.frame_type, h.payload_type, static_cast<int>(h.frame_index), channel);
  if (length > kReassemblyBufferSize) {
    fLog(1, "[OnRecvMediaData] Media frame dropped, longer than the %u-byte buffer, frame index=%u \n",
         static_cast<unsigned>(kReassemblyBufferSize), static_cast<unsigned>(h.frame_index));
    m_buf.Abandon();
    return;
  }
  switch (h.pack_type) {
    case kPackWhole:
      Deliver(h, const_cast<unsigned char*>(pack) + kPackHeaderSize, length - kPackHeaderSize);
      return;
    case kPackFirst:
      m_buf.Start(pack, length, h.payload_size);
      return;
    case kPackMiddle:
    case kPackLast:
      break;
    default:
      LogFrameError(h);
      return;
  }
  if (!Joins(h)) return;
  Join(h, pack);
  if (h.pack_type == kPackLast && m_buf.Open()) {
    m_buf.StorePackType(kPackWhole);
    m_buf.Finish();
    Deliver(h, m_buf.Data() + kPackHeaderSize, m_buf.Fill() - kPackHeaderSize);
  }
}

}  // namespace media
