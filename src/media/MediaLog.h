// Per-pack log lines come many times a second: the mask is tested before anything is
// formatted.
#pragma once

#include "base/FuncLog.h"

namespace media {

inline bool LogOn(unsigned level) { return ((g_fLogLevel.load(std::memory_order_relaxed) >> (level % 32)) & 1u) != 0; }

}  // namespace media
