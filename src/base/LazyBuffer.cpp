#include "base/LazyBuffer.h"

#include <sys/mman.h>

char* AllocLazyBuffer(size_t size) {
  void* p = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return p == MAP_FAILED ? nullptr : static_cast<char*>(p);
}

void FreeLazyBuffer(char* p, size_t size) {
  if (p) munmap(p, size);
}
