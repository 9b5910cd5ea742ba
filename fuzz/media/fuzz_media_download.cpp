// Download reassembly on hostile packs, with a writer that reads every byte it is given
// and a session that runs the stop procedure: nothing is read or written past a buffer.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "FuzzInput.h"
#include "media/DownloadAssembler.h"

namespace {
volatile unsigned g_sink;

class TouchWriter : public media::IDownloadWriter {
 public:
  bool create(const char* path) override { return path && path[0] != 'x'; }
  bool addVideo(const char* name, const unsigned char* h, unsigned char n) override {
    g_sink = static_cast<unsigned>(strlen(name)) + mediafuzz::Touch(h, n);
    return true;
  }
  void writeVideo(unsigned char* f, unsigned n, bool, unsigned char, uint32_t) override { g_sink = mediafuzz::Touch(f, n); }
  void writeAudio(const unsigned char* d, unsigned n, unsigned char, uint32_t) override { g_sink = mediafuzz::Touch(d, n); }
  void splitFile(const char* name, const unsigned char* h, unsigned char n) override {
    g_sink = static_cast<unsigned>(strlen(name)) + mediafuzz::Touch(h, n);
  }
  void close() override {}
};

class Host : public media::IDownloadHost {
 public:
  media::CDownloadAssembler* asmb = nullptr;
  void RunDownloadStop() override { asmb->Span().Stop(); }
  void PostDownloadAux(unsigned int, int, const char* t) override { g_sink = static_cast<unsigned>(strlen(t)); }
  void PostDownloadStatus(int, char* t) override { g_sink = static_cast<unsigned>(strlen(t)); }
  std::unique_ptr<media::IDownloadWriter> NewDownloadWriter() override {
    return std::unique_ptr<media::IDownloadWriter>(new TouchWriter);
  }
};

uint32_t U32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24; }
}  // namespace

// Input: start and end of the span (u32 each), the video block's last bytes (length byte
// and codec name), then packs.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  mediafuzz::StartLog();
  if (size < 10) return 0;
  Host host;
  media::CDownloadAssembler asmb(&host);
  host.asmb = &asmb;
  asmb.Span().Begin(data[8] & 1 ? "xfail.mp4" : "out.mp4", U32(data), U32(data + 4));
  asmb.Span().active = true;
  NETSDK_VIDEO_PARAM& v = asmb.Params().video;
  std::memset(v.paramSet1, 'H', sizeof(v.paramSet1));  // no terminating zero: the copy must bound it
  v.byWriterArg = data[9];
  for (const mediafuzz::Piece& p : mediafuzz::Pieces(data + 10, size - 10)) {
    asmb.OnPack(p.data, p.size);
    if (p.size == 1) asmb.SplitWithParams();
  }
  return 0;
}
