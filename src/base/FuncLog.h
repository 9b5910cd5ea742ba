// Log sink of the library: time-stamped lines delivered to the application's log
// callback, directly when one is set, else queued for the writer thread.
#ifndef QXNET_BASE_FUNCLOG_H
#define QXNET_BASE_FUNCLOG_H

#include <pthread.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include <vector>

#include "base/Locker.h"

typedef void (*QXNetLogSink)(unsigned int level, const char* line);

// Process-wide log settings; they outlive QXNet_Free. Read by every logging thread and
// written by the application's thread without a lock: atomic, so that a callback
// registered while the writer runs is seen whole and without a data race.
extern std::atomic<QXNetLogSink> g_fLogCallBack;
extern std::atomic<unsigned int> g_fLogLevel;

// Lines waiting for a callback, packed one after another in one byte array: each is its
// level, its length with the terminating zero, then the text. Thousands of sessions log
// a few lines per heartbeat each; a heap string per line (allocated on the logging
// thread, freed on the writer) cost more than building the line.
class CLogQueue {
 public:
  void Push(unsigned int level, const char* text, size_t length);
  bool Empty() const { return m_bytes.empty(); }
  void Swap(CLogQueue& other) { m_bytes.swap(other.m_bytes); }
  // Calls fn(level, text) for every line in order until fn returns false.
  template <typename Fn>
  void ForEach(Fn fn) const;
  // Forgets the lines, keeping the room unless a burst grew it past what is still used.
  void Clear();
  size_t Capacity() const { return m_bytes.capacity(); }
  // Room always kept.
  static constexpr size_t kKeptBytes = 1u << 20;

 private:
  struct Head {
    unsigned int level;
    uint32_t size;  // text bytes with the terminating zero
  };
  std::vector<char> m_bytes;
};

template <typename Fn>
void CLogQueue::ForEach(Fn fn) const {
  size_t at = 0;
  while (at + sizeof(Head) <= m_bytes.size()) {
    Head h;
    std::memcpy(&h, m_bytes.data() + at, sizeof(h));
    if (!fn(h.level, m_bytes.data() + at + sizeof(h))) return;
    at += sizeof(h) + h.size;
  }
}

class CFCLog {
 public:
  CFCLog();
  virtual ~CFCLog();

  int Start();
  void Stop();
  // Builds and delivers one line; 0 filtered out, 1 delivered or queued,
  // -100 local time unreadable.
  int Out(unsigned int level, const char* format, va_list args);
  int Run();
  bool IsRunning() const;

  // Line building without delivery (exposed for tests): fills `line` (4096 bytes).
  static int BuildLine(char* line, const char* format, va_list args);

 private:
  CFCLog(const CFCLog&) = delete;
  CFCLog& operator=(const CFCLog&) = delete;

  pthread_t m_thread;
  bool m_bHasThread;
  CLogQueue m_queue;
  CLocker m_queueLock;
  std::atomic<bool> m_bRunning;
};

enum { QXNET_LOG_LINE_SIZE = 4096 };

int fLogStart();
void fLogStop();
void* LogThreadProc(void* log);
int fLog(unsigned int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

#endif
