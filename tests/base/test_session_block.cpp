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
  EXPECT_GE(b.RecvBuf(), stack + b.StackSize());
  EXPECT_GE(b.WorkBuf(), b.RecvBuf() + kRecv);
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

TEST(SessionBlock, TheReadAheadRoomLiesAboveTheWorkBufferWhenAskedFor) {
  CSessionBlock b;
  ASSERT_TRUE(b.Alloc(kStack, kRecv, kWork, kAhead));
  ASSERT_NE(b.AheadBuf(), nullptr);
  EXPECT_GE(b.AheadBuf(), b.WorkBuf() + kWork);
  std::memset(b.WorkBuf(), 0xa5, kWork);
  std::memset(b.AheadBuf(), 0x3c, kAhead);
  EXPECT_EQ(static_cast<unsigned char>(b.WorkBuf()[kWork - 1]), 0xa5);
  EXPECT_EQ(static_cast<unsigned char>(b.AheadBuf()[0]), 0x3c);
  EXPECT_EQ(static_cast<unsigned char>(b.AheadBuf()[kAhead - 1]), 0x3c);
  b.Free();
  EXPECT_EQ(b.AheadBuf(), nullptr);
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
