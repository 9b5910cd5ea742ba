// Log sink of the library: time-stamped lines delivered to the application's log
// callback, directly when one is set, else queued for the writer thread.
#ifndef QXNET_BASE_FUNCLOG_H
#define QXNET_BASE_FUNCLOG_H

#include <pthread.h>

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "base/Locker.h"
#include "base/LogQueue.h"

typedef void (*QXNetLogSink)(unsigned int level, const char* line);

// Process-wide log settings; they outlive QXNet_Free. Read by every logging thread and
// written by the application's thread without a lock: atomic, so that a callback
// registered while the writer runs is seen whole and without a data race.
extern std::atomic<QXNetLogSink> g_fLogCallBack;
extern std::atomic<unsigned int> g_fLogLevel;

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
  // The same in `size` bytes (at most 4096): 0 the line is what BuildLine makes, 1 the
  // text needs the whole 4096 bytes (only when size is smaller), -100 as BuildLine.
  static int BuildLineIn(char* line, int size, const char* format, va_list args);

 private:
  int OutLong(unsigned int level, const char* format, va_list args);
  int Deliver(unsigned int level, const char* line);

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
