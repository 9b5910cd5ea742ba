#include "base/SDKThread.h"

#include <pthread.h>
#include <time.h>
#include <errno.h>
#include <climits>

namespace {
struct SpawnArgs {
  void (*entry)(void*);
  void* arg;
};

void* SpawnTrampoline(void* p) {
  SpawnArgs a = *static_cast<SpawnArgs*>(p);
  delete static_cast<SpawnArgs*>(p);
  a.entry(a.arg);
  return nullptr;
}
}  // namespace

int _SDK_ThreadSpawn(void (*entry)(void*), unsigned int stackSize, void* arg) {
  if (!entry) return -1;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  if (stackSize >= PTHREAD_STACK_MIN) pthread_attr_setstacksize(&attr, stackSize);
  SpawnArgs* a = new SpawnArgs{entry, arg};
  pthread_t t;
  int rc = pthread_create(&t, &attr, SpawnTrampoline, a);
  pthread_attr_destroy(&attr);
  if (rc != 0) {
    delete a;
    return -1;
  }
  return 0;
}

int SDKThreadStart(void (*entry)(void*), unsigned int stackSize, void* arg, SDKThreadHandle* out) {
  if (!entry || !out) return -1;
  out->valid = false;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  if (stackSize >= PTHREAD_STACK_MIN) pthread_attr_setstacksize(&attr, stackSize);
  SpawnArgs* a = new SpawnArgs{entry, arg};
  pthread_t t;
  int rc = pthread_create(&t, &attr, SpawnTrampoline, a);
  pthread_attr_destroy(&attr);
  if (rc != 0) {
    delete a;
    return -1;
  }
  out->id = static_cast<unsigned long>(t);
  out->valid = true;
  return 0;
}

int SDKThreadStartOnStack(void (*entry)(void*), void* stackLow, size_t stackSize, void* arg,
                          SDKThreadHandle* out) {
  if (!entry || !out || !stackLow || stackSize < static_cast<size_t>(PTHREAD_STACK_MIN)) return -1;
  out->valid = false;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  int rc = pthread_attr_setstack(&attr, stackLow, stackSize);
  SpawnArgs* a = new SpawnArgs{entry, arg};
  pthread_t t;
  if (rc == 0) rc = pthread_create(&t, &attr, SpawnTrampoline, a);
  pthread_attr_destroy(&attr);
  if (rc != 0) {
    delete a;
    return -1;
  }
  out->id = static_cast<unsigned long>(t);
  out->valid = true;
  return 0;
}

void SDKThreadJoin(SDKThreadHandle* h) {
  if (!h || !h->valid) return;
  pthread_join(static_cast<pthread_t>(h->id), nullptr);
  h->valid = false;
}

bool SDKThreadIsCurrent(const SDKThreadHandle& h) {
  return h.valid && pthread_equal(static_cast<pthread_t>(h.id), pthread_self());
}

int _SDK_Sleep(unsigned int ms) {
  struct timespec ts;
  ts.tv_sec = ms / 1000;
  ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
  return 0;
}

uint32_t GetTickCount() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  uint64_t ms = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
  return static_cast<uint32_t>(ms);
}

int32_t _time32(int32_t* out) {
  int32_t now = static_cast<int32_t>(time(nullptr));
  if (out) *out = now;
  return now;
}

uint64_t MonotonicMicros() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000u + static_cast<uint64_t>(ts.tv_nsec) / 1000u;
}

int64_t WallClockMs() {
  struct timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}
