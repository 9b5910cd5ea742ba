// Thread, sleep and tick helpers on POSIX.
#ifndef QXNET_BASE_SDKTHREAD_H
#define QXNET_BASE_SDKTHREAD_H

#include <cstddef>
#include <cstdint>

// Starts a detached thread running entry(arg); 0, or -1 when it cannot be created.
int _SDK_ThreadSpawn(void (*entry)(void*), unsigned int stackSize, void* arg);
// A joinable worker for owners that must see their thread end before they go on (stop
// returns only once the worker has left the object).
struct SDKThreadHandle {
  unsigned long id;
  bool valid;
};
// Starts entry(arg) on a joinable thread; 0, or -1 (handle left invalid).
int SDKThreadStart(void (*entry)(void*), unsigned int stackSize, void* arg, SDKThreadHandle* out);
// Starts entry(arg) on a joinable thread that runs on the caller's memory [stackLow,
// stackLow + stackSize): the memory must stay mapped until SDKThreadJoin has returned.
int SDKThreadStartOnStack(void (*entry)(void*), void* stackLow, size_t stackSize, void* arg,
                          SDKThreadHandle* out);
// Waits for the thread to end and invalidates the handle; nothing for an invalid handle.
void SDKThreadJoin(SDKThreadHandle* h);
// Lets the thread end on its own (it is never joined) and invalidates the handle.
void SDKThreadDetach(SDKThreadHandle* h);
// True when called on the thread the handle names.
bool SDKThreadIsCurrent(const SDKThreadHandle& h);
// Sleeps `ms` milliseconds; 0.
int _SDK_Sleep(unsigned int ms);
// Milliseconds of the monotonic clock, truncated to 32 bits: compare with unsigned
// subtraction (now - then) so that the wrap after 49.7 days is harmless.
uint32_t GetTickCount();
// Microseconds of the monotonic clock, for pacing finer than the millisecond tick.
uint64_t MonotonicMicros();
// Milliseconds of the wall clock (the clock _time32 reads), for deadlines kept in its
// whole seconds.
int64_t WallClockMs();
// Whole seconds of the wall clock, truncated to 32 bits.
int32_t _time32(int32_t* out);

#endif
