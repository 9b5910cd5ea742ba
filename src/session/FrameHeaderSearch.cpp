#include "session/FrameHeaderSearch.h"

#include <cstring>

namespace {
uint32_t Le32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
}  // namespace

bool CFrameHeaderSearch::IsFlag(uint32_t flag) { return flag == 0x20180307u || flag == 0x70308102u; }

void CFrameHeaderSearch::Reset() {
  std::memset(m_scratch, 0, sizeof(m_scratch));
  m_first = true;
  m_skippedPasses = 0;
  m_skippedTotal = 0;
  m_shift = 0;
  m_flag = 0;
  m_length = 0;
}

CFrameHeaderSearch::Result CFrameHeaderSearch::Feed(const uint8_t bytes[8], SkipFn onSkip, void* ctx) {
  std::memcpy(m_scratch + 8, bytes, 8);
  if (m_first) {
    // Seven bytes only: the header slot's eighth byte stays as it was (zero).
    std::memcpy(m_scratch, m_scratch + 8, 7);
    m_first = false;
    return kNeedMore;
  }
  for (int s = 0; s < 8; ++s) {
    uint32_t flag = Le32(m_scratch);
    if (IsFlag(flag)) {
      m_shift = s;
      m_flag = flag;
      m_length = Le32(m_scratch + 4);
      return kFound;
    }
    std::memmove(m_scratch, m_scratch + 1, 15);
    m_scratch[15] = 0;
    ++m_skippedTotal;
    if (onSkip) onSkip(ctx, flag, m_skippedTotal);
  }
  m_skippedPasses += 8;
  return kNeedMore;
}
