// Large zero-filled buffers whose pages become resident only when written: each session
// owns a 3 MiB receive buffer and a 512,000-byte work buffer, and hundreds of idle
// sessions must not cost their full size. calloc cannot promise that once the allocator
// has raised its mapping threshold, so these come straight from anonymous mappings.
#ifndef QXNET_BASE_LAZYBUFFER_H
#define QXNET_BASE_LAZYBUFFER_H

#include <cstddef>

char* AllocLazyBuffer(size_t size);
void FreeLazyBuffer(char* p, size_t size);

// Makes every page of such a buffer resident and writable now (MADV_POPULATE_WRITE where
// the kernel offers it, Linux 5.14, and a write to each page): for a buffer that will be
// filled in a hurry, whose page faults would all fall into the hurry. The contents stay
// zero.
void PrefaultLazyBuffer(char* p, size_t size);

#endif
