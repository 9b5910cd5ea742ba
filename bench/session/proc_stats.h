// Figures of this process read from the kernel: resident memory, threads, open
// descriptors, CPU time of all threads, and a monotonic clock in seconds.
#pragma once

#include <chrono>
#include <thread>

namespace qxbench {

long RssKiB();       // VmRSS of /proc/self/status, -1 when unreadable
long ThreadCount();  // Threads of /proc/self/status, -1 when unreadable
long OpenFdCount();  // entries of /proc/self/fd (without the one used to list it)
// Heap bytes the program holds (freed blocks not counted), in KiB: glibc's mallinfo2, or
// under AddressSanitizer its allocator's count, whose quarantine keeps freed blocks
// resident so that RSS there grows without any leak.
long HeapInUseKiB();
bool UnderAddressSanitizer();
double CpuSeconds();  // user + system time of the whole process (getrusage RUSAGE_SELF)
// User + system time of another process (the simulator child) from /proc/PID/stat, in
// clock ticks' resolution; -1 when unreadable.
double CpuSecondsOf(long pid);
double NowSeconds();  // steady clock

// Polls fn() every 50 ms until it returns true or timeoutSeconds pass; returns the last result.
template <class Fn>
bool WaitUntil(Fn fn, double timeoutSeconds) {
  double end = NowSeconds() + timeoutSeconds;
  for (;;) {
    if (fn()) return true;
    if (NowSeconds() >= end) return fn();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

}  // namespace qxbench
