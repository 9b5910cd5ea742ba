#include "base/LazyBuffer.h"

#include <sys/mman.h>
#include <unistd.h>

char* AllocLazyBuffer(size_t size) {
  void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : static_cast<char*>(p);
}

void FreeLazyBuffer(char* p, size_t size) {
  if (p) munmap(p, size);
}

void PrefaultLazyBuffer(char* p, size_t size) {
  if (!p || !size) return;
#ifdef MADV_POPULATE_WRITE
  // The pages in one call; older kernels refuse the advice (EINVAL) and the writes below
  // fault them in one by one.
  madvise(p, size, MADV_POPULATE_WRITE);
#endif
  // A write to every page even so: on a virtual machine that shadows the page tables the
  // first write to a page still traps to the hypervisor after the kernel populated it
  // (measured here: about as costly as the fault itself).
  long page = sysconf(_SC_PAGESIZE);
  size_t step = page > 0 ? static_cast<size_t>(page) : 4096;
  for (size_t off = 0; off < size; off += step) static_cast<volatile char*>(p)[off] = 0;
}
