// Recorder download: packs are joined into frames and written to the file, with the end
// of the span, the hourly split and the progress events. The rules differ from the
// replay path on purpose: a pack whose frame_index does not match the buffered frame is
// not dropped but written with the buffer's contents (the devices' own clients behave so).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "QXNetSDK.h"
#include "media/DownloadSpan.h"
#include "media/DownloadWriter.h"
#include "media/MediaPack.h"
#include "media/ReassemblyBuffer.h"

namespace media {

constexpr unsigned int kAuxDownloadEnd = 14312;  // aux code: the span ends before its first frame
constexpr int kFlagDownloadEnd = -15;
constexpr uint32_t kSplitIntervalMs = 3600000;   // a new file at the first key frame after an hour
constexpr int kProgressDone = 100;
constexpr int kProgressMax = 99;                 // until the span's end

class CDownloadAssembler {
 public:
  explicit CDownloadAssembler(IDownloadHost* host) : m_pHost(host) { std::memset(&m_params, 0, sizeof(m_params)); }
  DownloadSpan& Span() { return m_span; }
  void Reserve() { m_buf.Reserve(); }
  // The session's stream parameters (the video block feeds addVideo and splitFile).
  NETSDK_STREAM_PARAM& Params() { return m_params; }
  // One pack as the device sent it; always 0.
  int OnPack(const unsigned char* pack, size_t length);
  bool HasWriter() const { return m_writer != nullptr; }
  // New stream parameters mid-download: the next numbered part begins.
  void SplitWithParams();
  void CloseWriter();

 private:
  // Where step 7 leaves a pack: stored (nothing to write yet) or a frame to write.
  struct Frame {
    unsigned char* data;
    size_t length;
  };
  bool BeforeAssembly(const PackHeader& h);
  void EnsureWriter();
  bool Assemble(const PackHeader& h, const unsigned char* pack, size_t length, Frame* f);
  void DropFrame(const PackHeader& h);
  bool PartOfDroppedFrame(const PackHeader& h);
  void EndOfSpan();
  void WriteFrame(const PackHeader& h, const Frame& f);
  void WriteVideo(const PackHeader& h, const Frame& f);
  void PostProgress(int percent);

  IDownloadHost* m_pHost;
  DownloadSpan m_span;
  NETSDK_STREAM_PARAM m_params;
  CReassemblyBuffer m_buf;
  std::unique_ptr<IDownloadWriter> m_writer;
  uint32_t m_nWriterGeneration = 0;
  // The frame dropped for its length: its remaining packs are dropped too.
  bool m_bDropping = false;
  uint32_t m_nDroppedIndex = 0;
};

}  // namespace media
