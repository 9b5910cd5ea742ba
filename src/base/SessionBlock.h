// One anonymous mapping for everything large a session owns: its worker's stack (behind
// a guard page), the receiver's read-ahead room, and its work and receive buffers.
// Ending a session then costs one unmap (one TLB shootdown to every core running the
// process) instead of three, and starting one a single map: with ten thousand sessions
// the unmaps dominated logout.
#ifndef QXNET_BASE_SESSIONBLOCK_H
#define QXNET_BASE_SESSIONBLOCK_H

#include <cstddef>

class CSessionBlock {
 public:
  CSessionBlock() = default;
  ~CSessionBlock() { Free(); }
  // Maps the block: a guard page, a stack of stackSize bytes, the read-ahead room (only
  // when aheadSize is not 0), the work buffer and the receive buffer, each rounded up to
  // whole pages, the block starting on a page-table boundary. Pages become resident only
  // when written. False when the mapping fails (nothing is held then).
  bool Alloc(size_t stackSize, size_t recvSize, size_t workSize, size_t aheadSize = 0);
  void Free();
  // Hands the mapping to the process's one parking place instead of unmapping it now:
  // unmapping costs tens of microseconds (page tables and a TLB shootdown to every core
  // running the process), and a logout can pay it while it waits anyway, for its worker's
  // close round trip with the device (ReleaseParked). A block already parked there is
  // unmapped at once, so at most one waits. Nothing may use the block's memory any more.
  void Park();
  // Unmaps the parked block, if one waits; returns whether one did.
  static bool ReleaseParked();
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
