// A session's socket made of memory, for the receive-path fuzzer. The stream is handed out
// in chunks whose sizes the input chooses, so that frames arrive split at every point; once
// it is used up the socket reports itself broken at once, so that the receiver ends instead
// of waiting out its deadlines. Sends are taken whole.
//
// The session's receive buffer is mapped memory that AddressSanitizer does not guard, so
// this layer guards it: a receive into it must leave the four bytes behind the frame inside
// the buffer, and the bytes behind the frame (where earlier frames left theirs) are
// poisoned until Unfence(), so a parser reading past its frame is caught.
#ifndef QXNET_FUZZ_SESSION_MEMORYIO_H
#define QXNET_FUZZ_SESSION_MEMORYIO_H

#include <stddef.h>
#include <stdint.h>

#include "session/SessionIo.h"

class MemoryIo : public ISessionIo {
 public:
  typedef void (*FailFn)(const char* what);

  // `count` chunk sizes are used in turn and repeated: 1..255 bytes, or 0 for one read of
  // whatever is asked. No sizes: every read gets what it asks.
  MemoryIo(const uint8_t* stream, size_t size, const uint8_t* sizes, size_t count, FailFn fail);
  ~MemoryIo() override;

  void Fence(char* buffer, size_t size);
  void Unfence();

  long Send(int sock, const void* data, unsigned long len) override;
  long Recv(int sock, void* data, unsigned long len) override;
  // As the socket layer's: one chunk's worth over both pieces, the first filled first, so
  // that the session's read-ahead sees frames split at every point too.
  long RecvPair(int sock, void* a, unsigned long alen, void* b, unsigned long blen) override;
  int Poll(int sock, bool wantRead, bool wantWrite, int wakeFd, int timeoutMs) override;

  const uint8_t* Stream() const { return m_stream; }
  size_t Size() const { return m_size; }
  size_t Consumed() const { return m_pos; }

 private:
  MemoryIo(const MemoryIo&) = delete;
  MemoryIo& operator=(const MemoryIo&) = delete;
  size_t TakeFromChunk(size_t wanted);
  void GuardReceive(const char* dst, size_t len);

  const uint8_t* m_stream;
  size_t m_size;
  size_t m_pos = 0;
  const uint8_t* m_sizes;
  size_t m_count;
  size_t m_next = 0;
  size_t m_chunkLeft = 0;
  bool m_oneRead = false;
  FailFn m_fail;
  // The fenced receive buffer, the poisoned range in it, and how far frames have written.
  char* m_buf = nullptr;
  size_t m_bufSize = 0;
  size_t m_poisonFrom = 0, m_poisonTo = 0;
  size_t m_highWater = 0;
};

#endif
