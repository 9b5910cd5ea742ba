#include "base/SessionBlock.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <mutex>

namespace {
size_t PageSize() {
  long p = sysconf(_SC_PAGESIZE);
  return p > 0 ? static_cast<size_t>(p) : 4096;
}

size_t RoundUp(size_t n, size_t page) { return (n + page - 1) / page * page; }

// What one page table maps on x86-64 and arm64 with 4 KiB pages.
const size_t kPageTableSpan = 2u << 20;

struct ParkedMapping {
  std::mutex lock;
  char* base = nullptr;
  size_t size = 0;
};

// Never destroyed: a session may be freed while the process exits.
ParkedMapping& Parked() {
  static ParkedMapping* parked = new ParkedMapping;
  return *parked;
}
}  // namespace

// Maps size bytes whose start lies on an align boundary (a power of two): maps more and
// unmaps the slack on both sides. Null when the mapping fails.
static char* MapAligned(size_t size, size_t align, size_t page) {
  size_t span = size + align - page;
  void* p = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (p == MAP_FAILED) return nullptr;
  char* raw = static_cast<char*>(p);
  uintptr_t a = (reinterpret_cast<uintptr_t>(raw) + align - 1) & ~static_cast<uintptr_t>(align - 1);
  char* base = reinterpret_cast<char*>(a);
  if (base > raw) munmap(raw, static_cast<size_t>(base - raw));
  char* end = raw + span;
  if (end > base + size) munmap(base + size, static_cast<size_t>(end - (base + size)));
  return base;
}

bool CSessionBlock::Alloc(size_t stackSize, size_t recvSize, size_t workSize, size_t aheadSize) {
  Free();
  const size_t page = PageSize();
  size_t stack = RoundUp(stackSize, page);
  size_t recv = RoundUp(recvSize, page);
  size_t work = RoundUp(workSize, page);
  size_t ahead = RoundUp(aheadSize, page);
  size_t size = page + stack + ahead + work + recv;
  char* base = MapAligned(size, kPageTableSpan, page);
  if (!base) return false;
  // The stack grows down towards the guard page: an overflow faults there instead of
  // running into another session's memory. Above the stack's top come the read-ahead
  // room, the work buffer and the large receive buffer, each used from its start: an
  // idle session touches only the first pages of each, and with the block starting on a
  // page-table boundary those all lie under one page table. Unmapping the block then
  // frees one page table instead of three, which is most of what a logout costs.
  if (mprotect(base, page, PROT_NONE) != 0) {
    munmap(base, size);
    return false;
  }
  // Huge pages would make every session's first touch resident in 2 MiB steps.
  madvise(base, size, MADV_NOHUGEPAGE);
  m_base = base;
  m_size = size;
  m_stack = base + page;
  m_stackSize = stack;
  m_ahead = aheadSize ? m_stack + stack : nullptr;
  m_work = m_stack + stack + ahead;
  m_recv = m_work + work;
  return true;
}

void CSessionBlock::Free() {
  if (m_base) munmap(m_base, m_size);
  Release();
}

// Puts base/size in the parking place and unmaps what was parked there before (if any);
// true when something was.
static bool SwapParked(char* base, size_t size) {
  ParkedMapping& p = Parked();
  char* oldBase;
  size_t oldSize;
  {
    std::lock_guard<std::mutex> guard(p.lock);
    oldBase = p.base;
    oldSize = p.size;
    p.base = base;
    p.size = size;
  }
  if (oldBase) munmap(oldBase, oldSize);
  return oldBase != nullptr;
}

void CSessionBlock::Park() {
  if (!m_base) return;
  SwapParked(m_base, m_size);
  Release();
}

bool CSessionBlock::ReleaseParked() { return SwapParked(nullptr, 0); }

void CSessionBlock::Release() {
  m_base = m_stack = m_recv = m_work = m_ahead = nullptr;
  m_size = m_stackSize = 0;
}
