// epoll user data of the simulator's descriptors: the kind in the top byte, an
// index or id below.
#pragma once

#include <cstdint>

namespace devsim {

enum : uint64_t { kListen = 1, kConn = 2, kCtlListen = 3, kCtl = 4, kSignal = 5, kLan = 6 };

inline uint64_t epollTag(uint64_t kind, uint64_t v) { return (kind << 56) | v; }
inline uint64_t epollKind(uint64_t data) { return data >> 56; }
inline uint64_t epollValue(uint64_t data) { return data & ((1ull << 56) - 1); }

}  // namespace devsim
