// One anonymous mapping for everything large a session owns: its worker's stack (behind
// a guard page), its receive and work buffers and the receiver's read-ahead room. Ending a session then costs one unmap
// (one TLB shootdown to every core running the process) instead of three, and starting
// one a single map: with ten thousand sessions the unmaps dominated logout.
#ifndef QXNET_BASE_SESSIONBLOCK_H
#define QXNET_BASE_SESSIONBLOCK_H

#include <cstddef>

class CSessionBlock {
 public:
  CSessionBlock() = default;
  ~CSessionBlock() { Free(); }
  // Maps the block: a guard page, a stack of stackSize bytes, then the buffers, each
  // rounded up to whole pages (the read-ahead room only when aheadSize is not 0). Pages
  // become resident only when written. False when the mapping fails (nothing is held then).
  bool Alloc(size_t stackSize, size_t recvSize, size_t workSize, size_t aheadSize = 0);
  void Free();
  // Forgets the mapping without unmapping it (a thread that cannot be waited for still
  // runs on it: kept mapped for good rather than pulled from under that thread).
  void Release();
  bool Held() const { return m_base != nullptr; }
  // The stack's lowest address and size (pthread_attr_setstack's arguments).
  void* StackLow() const { return m_stack; }
  size_t StackSize() const { return m_stackSize; }
  char* RecvBuf() const { return m_recv; }
  char* WorkBuf() const { return m_work; }
  char* AheadBuf() const { return m_ahead; }

 private:
  CSessionBlock(const CSessionBlock&) = delete;
  CSessionBlock& operator=(const CSessionBlock&) = delete;

  char* m_base = nullptr;
  size_t m_size = 0;
  char* m_stack = nullptr;
  size_t m_stackSize = 0;
  char* m_recv = nullptr;
  char* m_work = nullptr;
  char* m_ahead = nullptr;
};

#endif
