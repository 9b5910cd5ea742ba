// Cuts a fuzzer input into packs: each is a little-endian u16 length and that many bytes
// (the last one takes what is left).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/FuncLog.h"

namespace mediafuzz {

struct Piece {
  const unsigned char* data;
  size_t size;
};

inline std::vector<Piece> Pieces(const uint8_t* data, size_t size) {
  std::vector<Piece> out;
  while (size >= 2) {
    size_t n = static_cast<size_t>(data[0] | data[1] << 8);
    data += 2;
    size -= 2;
    if (n > size) n = size;
    out.push_back({data, n});
    data += n;
    size -= n;
  }
  return out;
}

inline void DropLine(unsigned int, const char*) {}

// Every log line is formatted and handed to a sink that drops it.
inline void StartLog() {
  static bool started = false;
  if (started) return;
  started = true;
  g_fLogCallBack = &DropLine;
  g_fLogLevel = 0xFFFFFFFFu;
  fLogStart();
}

// Reads every byte handed on, so that the sanitizer sees any read past a buffer.
inline unsigned Touch(const unsigned char* p, size_t n) {
  unsigned sum = 0;
  for (size_t i = 0; i < n; ++i) sum += p[i];
  return sum;
}

}  // namespace mediafuzz
