#include "MemoryIo.h"

#include <sanitizer/asan_interface.h>
#include <string.h>

#include "base/SDKSocket.h"

namespace {
// Poisoned past the furthest byte a frame of this input wrote, so that a read just past
// the frames cannot land in memory that is merely unpoisoned zeros.
const size_t kPoisonMargin = 4096;
}  // namespace

MemoryIo::MemoryIo(const uint8_t* stream, size_t size, const uint8_t* sizes, size_t count, FailFn fail)
    : m_stream(stream), m_size(size), m_sizes(sizes), m_count(count), m_fail(fail) {}

MemoryIo::~MemoryIo() { Unfence(); }

void MemoryIo::Fence(char* buffer, size_t size) {
  Unfence();
  m_buf = buffer;
  m_bufSize = size;
  m_highWater = 0;
}

void MemoryIo::Unfence() {
  if (m_buf && m_poisonTo > m_poisonFrom) ASAN_UNPOISON_MEMORY_REGION(m_buf + m_poisonFrom, m_poisonTo - m_poisonFrom);
  m_poisonFrom = m_poisonTo = 0;
}

long MemoryIo::Send(int, const void*, unsigned long len) { return static_cast<long>(len); }

int MemoryIo::Poll(int, bool wantRead, bool wantWrite, int, int) {
  if (wantRead && m_pos >= m_size) return QXNET_SOCKET_BROKEN;
  return (wantRead ? QXPOLL_READ : 0) | (wantWrite ? QXPOLL_WRITE : 0);
}

long MemoryIo::Recv(int, void* data, unsigned long len) {
  if (m_pos >= m_size) return 0;
  GuardReceive(static_cast<const char*>(data), len);
  size_t n = TakeFromChunk(len < m_size - m_pos ? len : m_size - m_pos);
  memcpy(data, m_stream + m_pos, n);
  m_pos += n;
  return static_cast<long>(n);
}

long MemoryIo::RecvPair(int, void* a, unsigned long alen, void* b, unsigned long blen) {
  if (m_pos >= m_size) return 0;
  GuardReceive(static_cast<const char*>(a), alen);
  size_t left = m_size - m_pos;
  size_t want = alen + blen < left ? alen + blen : left;
  size_t n = TakeFromChunk(want);
  size_t first = n < alen ? n : alen;
  memcpy(a, m_stream + m_pos, first);
  if (n > first) memcpy(b, m_stream + m_pos + first, n - first);
  m_pos += n;
  return static_cast<long>(n);
}

// At most what is left of the current chunk; a new chunk starts when it is used up.
size_t MemoryIo::TakeFromChunk(size_t wanted) {
  if (m_count == 0 || wanted == 0) return wanted;
  if (m_chunkLeft == 0 && !m_oneRead) {
    uint8_t s = m_sizes[m_next++ % m_count];
    m_oneRead = s == 0;
    m_chunkLeft = s;
  }
  if (m_oneRead) {
    m_oneRead = false;
    return wanted;
  }
  size_t n = wanted < m_chunkLeft ? wanted : m_chunkLeft;
  m_chunkLeft -= n;
  return n;
}

// The receiver asks for the rest of the frame at each read into the buffer, so the end of
// what it asks for is the end of the frame.
void MemoryIo::GuardReceive(const char* dst, size_t len) {
  if (!m_buf || dst < m_buf || dst >= m_buf + m_bufSize) return;
  size_t end = static_cast<size_t>(dst - m_buf) + len;
  if (end > m_bufSize - 4) m_fail("a receive into the receive buffer reaches past it or into its last four bytes");
  if (end > m_highWater) m_highWater = end;
  size_t from = (end + 4 + 7) & ~static_cast<size_t>(7);
  size_t to = m_highWater + kPoisonMargin;
  if (to > m_bufSize) to = m_bufSize;
  if (from == m_poisonFrom && to == m_poisonTo) return;
  Unfence();
  if (to > from) {
    ASAN_POISON_MEMORY_REGION(m_buf + from, to - from);
    m_poisonFrom = from;
    m_poisonTo = to;
  }
}
