#include "FrameModel.h"

#include "base/SDKSocket.h"

namespace {
const uint32_t kMaxRemaining = 0xF00000;

uint32_t Le32(const uint8_t* b) {
  return static_cast<uint32_t>(b[0]) | (static_cast<uint32_t>(b[1]) << 8) | (static_cast<uint32_t>(b[2]) << 16) |
         (static_cast<uint32_t>(b[3]) << 24);
}

bool IsFlag(uint32_t v) { return v == 0x20180307u || v == 0x70308102u; }

// The eight header bytes at position q, as the header slot holds them.
void HeaderAt(const uint8_t* p, size_t q, uint8_t h[8]) {
  for (size_t i = 0; i < 8; ++i) h[i] = q + i == 7 ? 0 : p[q + i];
}
}  // namespace

ReceiveOutcome PredictReceive(const uint8_t* p, size_t n, uint32_t buffered) {
  const ReceiveOutcome broken = {QXNET_SOCKET_BROKEN, n, 0, 0};
  for (size_t q = 0;; ++q) {
    // Position q is tested once the pass after the one holding it has been read.
    size_t read = 8 * (q / 8 + 2);
    if (read > n) return broken;
    uint8_t h[8];
    HeaderAt(p, q, h);
    if (!IsFlag(Le32(h))) continue;
    uint32_t length = Le32(h + 4);
    uint32_t prefix = 8 - static_cast<uint32_t>(q % 8);
    int32_t remaining = static_cast<int32_t>(length - prefix);
    if (remaining < 1) return {-4, read, 0, 0};
    if (static_cast<uint32_t>(remaining) > kMaxRemaining) return {-5, read, 0, 0};
    size_t end = q + 8 + length;
    if (end > n) return broken;
    return {length > buffered ? -6 : 0, end, q + 8, length};
  }
}
