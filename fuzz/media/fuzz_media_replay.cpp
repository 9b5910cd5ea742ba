// The pack header and replay reassembly on hostile packs: every frame handed on must lie
// within what was received or assembled.
#include <cstddef>
#include <cstdint>

#include "FuzzInput.h"
#include "media/MediaPack.h"
#include "media/ReplayAssembler.h"

namespace {
volatile unsigned g_sink;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  mediafuzz::StartLog();
  media::CReplayAssembler replay([](unsigned long, unsigned char* d, unsigned long n, FRAME_EXTDATA* ext) {
    g_sink = mediafuzz::Touch(d, n) + ext->frame_type;
  });
  for (const mediafuzz::Piece& p : mediafuzz::Pieces(data, size)) {
    media::PackHeader h;
    if (media::ReadPackHeader(p.data, p.size, &h)) g_sink = mediafuzz::Touch(p.data + 20, h.payload_size);
    replay.OnPack(p.data, p.size, 3);
  }
  return 0;
}
