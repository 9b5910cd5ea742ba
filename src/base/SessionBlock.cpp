#include "base/SessionBlock.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {
size_t PageSize() {
  long p = sysconf(_SC_PAGESIZE);
  return p > 0 ? static_cast<size_t>(p) : 4096;
}

size_t RoundUp(size_t n, size_t page) { return (n + page - 1) / page * page; }
}  // namespace

bool CSessionBlock::Alloc(size_t stackSize, size_t recvSize, size_t workSize, size_t aheadSize) {
  Free();
  const size_t page = PageSize();
  size_t stack = RoundUp(stackSize, page);
  size_t recv = RoundUp(recvSize, page);
  size_t work = RoundUp(workSize, page);
  size_t size = page + stack + recv + work + RoundUp(aheadSize, page);
  void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) return false;
  char* base = static_cast<char*>(p);
  // The stack grows down towards the guard page: an overflow faults there instead of
  // running into another session's memory. The buffers lie above the stack's top.
  if (mprotect(base, page, PROT_NONE) != 0) {
    munmap(base, size);
    return false;
  }
  m_base = base;
  m_size = size;
  m_stack = base + page;
  m_stackSize = stack;
  m_recv = m_stack + stack;
  m_work = m_recv + recv;
  m_ahead = aheadSize ? m_work + work : nullptr;
  return true;
}

void CSessionBlock::Free() {
  if (m_base) munmap(m_base, m_size);
  Release();
}

void CSessionBlock::Release() {
  m_base = m_stack = m_recv = m_work = m_ahead = nullptr;
  m_size = m_stackSize = 0;
}
