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

// Creates the thread from prepared attributes and destroys them; the trampoline owns the
// arguments once the thread exists.
int CreateWithAttr(pthread_attr_t* attr, void (*entry)(void*), void* arg, pthread_t* t) {
  SpawnArgs* a = new SpawnArgs{entry, arg};
  int rc = pthread_create(t, attr, SpawnTrampoline, a);
  pthread_attr_destroy(attr);
  if (rc != 0) delete a;
  return rc;
}
}  // namespace

int _SDK_ThreadSpawn(void (*entry)(void*), unsigned int stackSize, void* arg) {
  if (!entry) return -1;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  if (stackSize >= PTHREAD_STACK_MIN) pthread_attr_setstacksize(&attr, stackSize);
  pthread_t t;
  return CreateWithAttr(&attr, entry, arg, &t) == 0 ? 0 : -1;
}

int SDKThreadStart(void (*entry)(void*), unsigned int stackSize, void* arg, SDKThreadHandle* out) {
  if (!entry || !out) return -1;
  out->valid = false;
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  if (stackSize >= PTHREAD_STACK_MIN) pthread_attr_setstacksize(&attr, stackSize);
  pthread_t t;
  if (CreateWithAttr(&attr, entry, arg, &t) != 0) return -1;
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
  if (pthread_attr_setstack(&attr, stackLow, stackSize) != 0) {
    pthread_attr_destroy(&attr);
    return -1;
  }
  pthread_t t;
  if (CreateWithAttr(&attr, entry, arg, &t) != 0) return -1;
  out->id = static_cast<unsigned long>(t);
  out->valid = true;
  return 0;
}

void SDKThreadJoin(SDKThreadHandle* h) {
  if (!h || !h->valid) return;
  pthread_join(static_cast<pthread_t>(h->id), nullptr);
  h->valid = false;
}

void SDKThreadDetach(SDKThreadHandle* h) {
  if (!h || !h->valid) return;
  pthread_detach(static_cast<pthread_t>(h->id));
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
