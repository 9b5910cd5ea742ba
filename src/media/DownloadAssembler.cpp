#include "media/DownloadAssembler.h"

#include <cstdio>
#include <string>

#include "media/MediaLog.h"

namespace media {
namespace {

// The writer's arguments from the video block: the codec name (bounded copy), the
// parameter-set block and its length byte.
struct VideoArgs {
  char name[sizeof(NETSDK_VIDEO_PARAM::paramSet1) + 1];
  const unsigned char* header;
  unsigned char length;
  explicit VideoArgs(const NETSDK_VIDEO_PARAM& v) : header(v.paramSet2), length(v.byWriterArg) {
    std::memcpy(name, v.paramSet1, sizeof(v.paramSet1));
    name[sizeof(v.paramSet1)] = 0;
  }
};

void LogPack(const PackHeader& h) {
  if (!LogOn(0)) return;
  fLog(0,
       "OnRecvNVRDownloadMediaData: stream_type=%d, frame_timestamp=%d, keyframe_timestamp=%d,payload_size=%d,"
       "pack_type=%d,frame_type=%d,payload_type=%d,frame_index=%d \n",
       h.stream_type, static_cast<int>(h.frame_timestamp), static_cast<int>(h.keyframe_timestamp), h.payload_size,
       h.pack_type, h.frame_type, h.payload_type, static_cast<int>(h.frame_index));
}

void LogOversize(const PackHeader& h) {
  fLog(1, "OnRecvNVRDownloadMediaData: frame dropped, longer than the %u-byte buffer, frame index=%u \n",
       static_cast<unsigned>(kReassemblyBufferSize), static_cast<unsigned>(h.frame_index));
}

}  // namespace

int CDownloadAssembler::OnPack(const unsigned char* pack, size_t length) {
  if (!m_span.active) return 0;
  PackHeader h;
  if (!ReadPackHeader(pack, length, &h)) {
    fLog(1, "OnRecvNVRDownloadMediaData: pack refused, length=%u \n", static_cast<unsigned>(length));
    return 0;
  }
  LogPack(h);
  if (h.payload_size == 0) {
    if (LogOn(0)) fLog(0, "OnRecvNVRDownloadMediaData: payload_size is 0\n");
    return 0;
  }
  if (!BeforeAssembly(h)) return 0;
  if (length > kReassemblyBufferSize) {
    DropFrame(h);
    return 0;
  }
  if (PartOfDroppedFrame(h)) return 0;
  Frame f;
  if (!Assemble(h, pack, length, &f)) return 0;
  if (m_buf.Header().frame_timestamp > m_span.end || m_span.endReached) {
    EndOfSpan();
    return 0;
  }
  WriteFrame(h, f);
  return 0;
}

// The ticks, the end tests and the writer (steps before reassembly); false: stop here.
bool CDownloadAssembler::BeforeAssembly(const PackHeader& h) {
  if (IsVideoStream(h.stream_type)) {
    if (m_span.firstTick == -1) {
      m_span.firstTick = m_span.lastSplitTick = static_cast<int32_t>(h.frame_timestamp);
      fLog(0, "OnRecvNVRDownloadMediaData: first tick=%d \n", m_span.firstTick);
    }
    m_span.lastVideoTick = static_cast<int32_t>(h.frame_timestamp);
  }
  if (m_span.endReached) return false;
  // No first tick (-1) reads as the largest value: audio before any video ends here.
  if (m_span.end != 0 && m_span.end <= static_cast<uint32_t>(m_span.firstTick)) {
    m_span.endReached = true;
    m_pHost->PostDownloadAux(kAuxDownloadEnd, kFlagDownloadEnd, "");
    return false;
  }
  EnsureWriter();
  return true;
}

void CDownloadAssembler::EnsureWriter() {
  if (m_writer && m_nWriterGeneration != m_span.generation) CloseWriter();
  if (m_writer || m_span.createTried) return;
  m_span.createTried = true;
  std::unique_ptr<IDownloadWriter> w = m_pHost->NewDownloadWriter();
  if (!w) return;
  fLog(0, "Download NVR record file, TS_MP4_OpenWrite success \n");
  if (!w->create(m_span.path)) return;
  m_writer = std::move(w);
  m_nWriterGeneration = m_span.generation;
  VideoArgs v(m_params.video);
  m_writer->addVideo(v.name, v.header, v.length);
}

bool CDownloadAssembler::Assemble(const PackHeader& h, const unsigned char* pack, size_t length, Frame* f) {
  m_buf.Reserve();
  // What a pack that joins no frame writes: the buffer's contents, at this pack's length.
  f->data = m_buf.Data() + kPackHeaderSize;
  f->length = length - kPackHeaderSize;
  if (h.pack_type == kPackWhole) {
    m_buf.Start(pack, length, h.payload_size);
    m_buf.Finish();
    return true;
  }
  if (h.pack_type == kPackFirst) {
    m_buf.Start(pack, length, h.payload_size);
    return false;
  }
  if (h.pack_type != kPackMiddle && h.pack_type != kPackLast) return true;
  if (!m_buf.Open() || h.frame_index != m_buf.Header().frame_index) return true;
  if (NextSeq(m_buf.Header().pack_seq) != h.pack_seq) {
    fLog(1, "TCP pack error!");
    return false;
  }
  m_buf.StoreSeq(h.pack_seq);
  if (!m_buf.Append(pack + kPackHeaderSize, h.payload_size)) {
    DropFrame(h);
    return false;
  }
  if (h.pack_type == kPackMiddle) return false;
  m_buf.StorePackType(kPackWhole);
  m_buf.Finish();
  f->length = m_buf.Fill() - kPackHeaderSize;
  return true;
}

void CDownloadAssembler::DropFrame(const PackHeader& h) {
  LogOversize(h);
  m_buf.Abandon();
  m_bDropping = true;
  m_nDroppedIndex = h.frame_index;
}

bool CDownloadAssembler::PartOfDroppedFrame(const PackHeader& h) {
  if (!m_bDropping) return false;
  if (h.pack_type == kPackFirst || h.pack_type == kPackWhole || h.frame_index != m_nDroppedIndex) {
    m_bDropping = false;
    return false;
  }
  return true;
}

void CDownloadAssembler::EndOfSpan() {
  if (m_span.active) m_pHost->RunDownloadStop();
  if (!m_writer) return;
  CloseWriter();
  PostProgress(kProgressDone);
}

void CDownloadAssembler::WriteFrame(const PackHeader& h, const Frame& f) {
  if (IsVideoStream(h.stream_type)) {
    WriteVideo(h, f);
    return;
  }
  if (m_writer) m_writer->writeAudio(f.data, static_cast<unsigned>(f.length), h.payload_type, h.frame_timestamp);
}

void CDownloadAssembler::WriteVideo(const PackHeader& h, const Frame& f) {
  uint32_t sinceSplit = static_cast<uint32_t>(m_span.lastVideoTick) - static_cast<uint32_t>(m_span.lastSplitTick);
  if (h.frame_type == 1 && sinceSplit > kSplitIntervalMs) {
    m_span.lastSplitTick = m_span.lastVideoTick;
    SplitWithParams();
  }
  if (m_writer)
    m_writer->writeVideo(f.data, static_cast<unsigned>(f.length), h.frame_timestamp == h.keyframe_timestamp,
                         h.payload_type, h.frame_timestamp);
  uint32_t span = m_span.end - m_span.start;
  uint64_t done = static_cast<uint32_t>(m_buf.Header().frame_timestamp - m_span.start);
  uint64_t percent = span ? done * 100u / span : kProgressMax;
  m_span.progress = static_cast<int32_t>(percent > kProgressMax ? kProgressMax : percent);
  PostProgress(m_span.progress);
}

void CDownloadAssembler::PostProgress(int percent) {
  char text[64];
  std::snprintf(text, sizeof(text), "<RESPONSE_PARAM DownloadPos=\"%d\" />", percent);
  m_pHost->PostDownloadStatus(QXNET_EV_DOWNLOAD_PROGRESS, text);
}

void CDownloadAssembler::SplitWithParams() {
  if (!m_writer) return;
  VideoArgs v(m_params.video);
  m_writer->splitFile(v.name, v.header, v.length);
}

void CDownloadAssembler::CloseWriter() {
  if (!m_writer) return;
  m_writer->close();
  m_writer.reset();
}

}  // namespace media
