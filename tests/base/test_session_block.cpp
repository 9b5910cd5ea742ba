// The session block: one mapping with a guarded stack and two buffers, and a joinable
// thread that runs on the block's stack.
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/SDKThread.h"
#include "base/SessionBlock.h"

namespace {

const size_t kStack = 0x80000 + 0x10000;
const size_t kRecv = 0x300000;
const size_t kWork = 512000;
const size_t kAhead = 256 * 1024;

TEST(SessionBlock, LaysOutStackThenBuffersWithoutOverlap) {
  CSessionBlock b;
  ASSERT_TRUE(b.Alloc(kStack, kRecv, kWork));
  ASSERT_TRUE(b.Held());
  char* stack = static_cast<char*>(b.StackLow());
  EXPECT_GE(b.StackSize(), kStack);
  EXPECT_GE(b.WorkBuf(), stack + b.StackSize());
  EXPECT_GE(b.RecvBuf(), b.WorkBuf() + kWork);
  // Fresh anonymous memory reads as zeros and every byte of each part is writable.
  EXPECT_EQ(b.RecvBuf()[0], 0);
  EXPECT_EQ(b.WorkBuf()[kWork - 1], 0);
  std::memset(b.RecvBuf(), 0x5a, kRecv);
  std::memset(b.WorkBuf(), 0xa5, kWork);
  EXPECT_EQ(static_cast<unsigned char>(b.RecvBuf()[kRecv - 1]), 0x5a);
  EXPECT_EQ(static_cast<unsigned char>(b.WorkBuf()[0]), 0xa5);
  EXPECT_EQ(b.AheadBuf(), nullptr);  // none asked for
  b.Free();
  EXPECT_FALSE(b.Held());
  EXPECT_EQ(b.RecvBuf(), nullptr);
}

TEST(SessionBlock, TheReadAheadRoomLiesBetweenTheStackAndTheWorkBufferWhenAskedFor) {
  CSessionBlock b;
  ASSERT_TRUE(b.Alloc(kStack, kRecv, kWork, kAhead));
  ASSERT_NE(b.AheadBuf(), nullptr);
  EXPECT_GE(b.AheadBuf(), static_cast<char*>(b.StackLow()) + b.StackSize());
  EXPECT_GE(b.WorkBuf(), b.AheadBuf() + kAhead);
  EXPECT_GE(b.RecvBuf(), b.WorkBuf() + kWork);
  std::memset(b.WorkBuf(), 0xa5, kWork);
  std::memset(b.AheadBuf(), 0x3c, kAhead);
  std::memset(b.RecvBuf(), 0x69, kRecv);
  EXPECT_EQ(static_cast<unsigned char>(b.WorkBuf()[kWork - 1]), 0xa5);
  EXPECT_EQ(static_cast<unsigned char>(b.AheadBuf()[0]), 0x3c);
  EXPECT_EQ(static_cast<unsigned char>(b.AheadBuf()[kAhead - 1]), 0x3c);
  EXPECT_EQ(static_cast<unsigned char>(b.RecvBuf()[0]), 0x69);
  b.Free();
  EXPECT_EQ(b.AheadBuf(), nullptr);
}

// An idle session writes only near the stack's top and at the start of each buffer. All
// of those must lie under one page table (2 MiB with 4 KiB pages), so that ending the
// session frees one page table, not three: in every one of many blocks, not by luck.
TEST(SessionBlock, WhatAnIdleSessionTouchesLiesUnderOnePageTable) {
  const uintptr_t span = 2u << 20;
  for (int i = 0; i < 64; ++i) {
    CSessionBlock b;
    ASSERT_TRUE(b.Alloc(kStack, kRecv, kWork, kAhead));
    uintptr_t top = reinterpret_cast<uintptr_t>(b.StackLow()) + b.StackSize() - 1;
    uintptr_t region = top / span;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b.AheadBuf()) / span, region) << "block " << i;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(b.WorkBuf()) / span, region) << "block " << i;
    EXPECT_EQ((reinterpret_cast<uintptr_t>(b.RecvBuf()) + 4095) / span, region) << "block " << i;
  }
}

// The permissions /proc/self/maps gives the mapping that holds `addr` ("" when none).
std::string PermissionsAt(const void* addr) {
  std::FILE* f = std::fopen("/proc/self/maps", "r");
  if (!f) return "";
  char line[512];
  std::string perms;
  uintptr_t a = reinterpret_cast<uintptr_t>(addr);
  while (std::fgets(line, sizeof(line), f)) {
    unsigned long lo = 0, hi = 0;
    char p[8] = {0};
    if (std::sscanf(line, "%lx-%lx %4s", &lo, &hi, p) == 3 && a >= lo && a < hi) {
      perms = p;
      break;
    }
  }
  std::fclose(f);
  return perms;
}

TEST(SessionBlock, PageBelowTheStackIsAGuard) {
  CSessionBlock b;
  ASSERT_TRUE(b.Alloc(kStack, kRecv, kWork));
  long page = sysconf(_SC_PAGESIZE);
  char* guard = static_cast<char*>(b.StackLow()) - page;
  EXPECT_EQ(PermissionsAt(guard), "---p");
  EXPECT_EQ(PermissionsAt(b.StackLow()), "rw-p");
  EXPECT_EQ(PermissionsAt(b.WorkBuf()), "rw-p");
}

struct StackProbe {
  char* low;
  char* high;
  bool onStack = false;
  bool ran = false;
};

void ProbeEntry(void* p) {
  StackProbe* probe = static_cast<StackProbe*>(p);
  // Uses a good part of the stack: a worker's deepest calls need a few dozen KiB.
  volatile char deep[256 * 1024];
  std::memset(const_cast<char*>(deep), 1, sizeof(deep));
  char* here = const_cast<char*>(deep);
  probe->onStack = here >= probe->low && here < probe->high;
  probe->ran = deep[sizeof(deep) - 1] == 1;
}

TEST(SessionBlock, ThreadRunsOnTheBlocksStackAndIsJoined) {
  CSessionBlock b;
  ASSERT_TRUE(b.Alloc(kStack, kRecv, kWork));
  StackProbe probe;
  probe.low = static_cast<char*>(b.StackLow());
  probe.high = probe.low + b.StackSize();
  SDKThreadHandle h{0, false};
  int rc = SDKThreadStartOnStack(&ProbeEntry, b.StackLow(), b.StackSize(), &probe, &h);
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  // A sanitizer's runtime may want more room for its thread data than the block holds;
  // the session then falls back to a stack of the thread library's own.
  if (rc != 0) GTEST_SKIP() << "the sanitizer refuses a stack of this size";
#endif
  ASSERT_EQ(rc, 0);
  ASSERT_TRUE(h.valid);
  SDKThreadJoin(&h);
  EXPECT_FALSE(h.valid);
  EXPECT_TRUE(probe.ran);
  EXPECT_TRUE(probe.onStack);
}

TEST(SessionBlock, StartOnStackRefusesMissingArguments) {
  SDKThreadHandle h{0, false};
  char small[64];
  EXPECT_EQ(SDKThreadStartOnStack(nullptr, small, sizeof(small), nullptr, &h), -1);
  EXPECT_EQ(SDKThreadStartOnStack(&ProbeEntry, nullptr, kStack, nullptr, &h), -1);
  EXPECT_EQ(SDKThreadStartOnStack(&ProbeEntry, small, sizeof(small), nullptr, &h), -1);
  EXPECT_FALSE(h.valid);
}

}  // namespace

namespace {
// Whether [p, p + n) is still mapped: msync refuses an unmapped range with ENOMEM.
bool Mapped(const void* p, size_t n) {
  long page = sysconf(_SC_PAGESIZE);
  uintptr_t a = reinterpret_cast<uintptr_t>(p) & ~static_cast<uintptr_t>(page - 1);
  return msync(reinterpret_cast<void*>(a), n, MS_ASYNC) == 0;
}

TEST(SessionBlock, AParkedBlockStaysMappedUntilReleased) {
  CSessionBlock::ReleaseParked();  // whatever an earlier test left
  CSessionBlock b;
  ASSERT_TRUE(b.Alloc(kStack, kRecv, kWork, kAhead));
  char* recv = b.RecvBuf();
  char* ahead = b.AheadBuf();
  std::memset(recv, 0x11, 4096);
  b.Park();
  EXPECT_FALSE(b.Held());
  EXPECT_EQ(b.RecvBuf(), nullptr);
  ASSERT_TRUE(Mapped(recv, 4096)) << "parking unmapped the block";
  EXPECT_EQ(static_cast<unsigned char>(recv[0]), 0x11);
  EXPECT_TRUE(CSessionBlock::ReleaseParked());
  EXPECT_FALSE(Mapped(recv, 4096)) << "the parked block was not unmapped";
  EXPECT_FALSE(Mapped(ahead, 4096));
  EXPECT_FALSE(CSessionBlock::ReleaseParked()) << "nothing should wait after a release";
}

TEST(SessionBlock, ParkingASecondBlockUnmapsTheFirst) {
  CSessionBlock::ReleaseParked();
  CSessionBlock a, b;
  ASSERT_TRUE(a.Alloc(kStack, kRecv, kWork));
  ASSERT_TRUE(b.Alloc(kStack, kRecv, kWork));
  char* first = a.RecvBuf();
  char* second = b.RecvBuf();
  a.Park();
  b.Park();
  EXPECT_FALSE(Mapped(first, 4096)) << "at most one block may wait";
  EXPECT_TRUE(Mapped(second, 4096));
  EXPECT_TRUE(CSessionBlock::ReleaseParked());
  EXPECT_FALSE(Mapped(second, 4096));
}

TEST(SessionBlock, ParkingAnEmptyBlockLeavesTheParkedOne) {
  CSessionBlock::ReleaseParked();
  CSessionBlock a, empty;
  ASSERT_TRUE(a.Alloc(kStack, kRecv, kWork));
  char* recv = a.RecvBuf();
  a.Park();
  empty.Park();
  EXPECT_TRUE(Mapped(recv, 4096));
  EXPECT_TRUE(CSessionBlock::ReleaseParked());
}
}  // namespace
