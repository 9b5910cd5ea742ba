// Lines waiting for a log callback, packed one after another in blocks of 64 KiB: each is
// its level, its length with the terminating zero, then the text. Thousands of sessions
// log a few lines per heartbeat each, and a download logs a line per media pack (megabytes
// a second): a heap string per line, or one array grown again every writer turn, cost more
// than building the lines. Blocks are reused from turn to turn; a burst's extra blocks are
// given back once a turn no longer needs them.
#ifndef QXNET_BASE_LOGQUEUE_H
#define QXNET_BASE_LOGQUEUE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

class CLogQueue {
 public:
  static constexpr size_t kBlockBytes = 64 * 1024;
  // Room always kept.
  static constexpr size_t kKeptBytes = 1u << 20;

  // length: at most kBlockBytes - 9 (a line is at most 4096 bytes).
  void Push(unsigned int level, const char* text, size_t length);
  bool Empty() const { return m_nUsed == 0; }
  void Swap(CLogQueue& other);
  // Calls fn(level, text) for every line in order until fn returns false.
  template <typename Fn>
  void ForEach(Fn fn) const;
  // Forgets the lines, keeping the room unless a burst grew it past what is still used.
  void Clear();
  size_t Capacity() const { return m_blocks.size() * kBlockBytes; }

 private:
  struct Head {
    unsigned int level;
    uint32_t size;  // text bytes with the terminating zero
  };
  std::vector<std::vector<char>> m_blocks;  // each reserved at kBlockBytes
  size_t m_nUsed = 0;                       // blocks holding lines, from the first
};

template <typename Fn>
void CLogQueue::ForEach(Fn fn) const {
  for (size_t b = 0; b < m_nUsed; ++b) {
    const std::vector<char>& bytes = m_blocks[b];
    size_t at = 0;
    while (at + sizeof(Head) <= bytes.size()) {
      Head h;
      std::memcpy(&h, bytes.data() + at, sizeof(h));
      if (!fn(h.level, bytes.data() + at + sizeof(h))) return;
      at += sizeof(h) + h.size;
    }
  }
}

#endif
