#include "base/FuncLog.h"

#include <errno.h>
#include <time.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

std::atomic<QXNetLogSink> g_fLogCallBack{nullptr};
std::atomic<unsigned int> g_fLogLevel{0x0FFFFFFFu};

namespace {
CFCLog s_theLog;

// Wakes the idle writer early only when it is being stopped, so that stopping does not
// wait out the 1000 ms idle sleep; queued lines do not wake it (they wait for a callback
// until the writer's next regular wake-up).
pthread_mutex_t s_wakeMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t s_wakeCond = PTHREAD_COND_INITIALIZER;
}  // namespace

CFCLog::CFCLog() : m_thread(), m_bHasThread(false), m_bRunning(false) {}

CFCLog::~CFCLog() {
  Stop();
  CAutoLocker guard(m_queueLock);
  m_queue.Clear();
}

bool CFCLog::IsRunning() const { return m_bRunning; }

int CFCLog::Start() {
  if (m_bRunning) return -1;
  m_bRunning = true;
  int rc = pthread_create(&m_thread, nullptr, LogThreadProc, this);
  if (rc != 0) {
    m_bRunning = false;
    return rc;
  }
  m_bHasThread = true;
  return 0;
}

void CFCLog::Stop() {
  if (!m_bHasThread) return;
  pthread_mutex_lock(&s_wakeMutex);
  m_bRunning = false;
  pthread_cond_broadcast(&s_wakeCond);
  pthread_mutex_unlock(&s_wakeMutex);
  pthread_join(m_thread, nullptr);
  m_bHasThread = false;
}

namespace {
// The line prefix changes once a second: one copy for the whole process, rebuilt when
// the second turns, so that a line does not convert the time (which takes the C
// library's time-zone lock). A per-thread copy missed on nearly every line once
// thousands of session threads log a few lines every ten seconds each.
struct PrefixCache {
  time_t second = -1;
  char text[48];
  int length = 0;
};
PrefixCache s_prefix;
pthread_mutex_t s_prefixLock = PTHREAD_MUTEX_INITIALIZER;

// Writes the prefix of a line logged now into `line`; its length, or -1.
int WritePrefix(char* line) {
  time_t now = time(nullptr);
  CMutexGuard guard(&s_prefixLock);
  PrefixCache& cache = s_prefix;
  if (now != cache.second) {
    struct tm lt;
    if (!localtime_r(&now, &lt)) return -1;
    cache.length = std::snprintf(cache.text, sizeof(cache.text), "QXNetSDK:%02u-%02u,%02u:%02u:%02u,",
                                 static_cast<unsigned>(lt.tm_mon + 1), static_cast<unsigned>(lt.tm_mday),
                                 static_cast<unsigned>(lt.tm_hour), static_cast<unsigned>(lt.tm_min),
                                 static_cast<unsigned>(lt.tm_sec));
    if (cache.length < 0 || cache.length >= static_cast<int>(sizeof(cache.text))) return -1;
    cache.second = now;
  }
  std::memcpy(line, cache.text, static_cast<size_t>(cache.length) + 1);
  return cache.length;
}
}  // namespace

int CFCLog::BuildLine(char* line, const char* format, va_list args) {
  return BuildLineIn(line, QXNET_LOG_LINE_SIZE, format, args);
}

int CFCLog::BuildLineIn(char* line, int size, const char* format, va_list args) {
  // Only the written part of the line is touched: its last byte is set below when the
  // text reaches it. An untouched tail is an untouched stack page for an idle session.
  line[0] = 0;
  int p = WritePrefix(line);
  if (p < 0) return -100;
  // Room for 4095 - p message characters, so that the whole line with its terminating
  // zero fills the 4096 bytes when the message is too long.
  int m = std::vsnprintf(line + p, static_cast<size_t>(size - p), format, args);
  bool full = m + 3 >= size - 1 - p;
  if (m >= 1 && full && size < QXNET_LOG_LINE_SIZE) return 1;
  if (m < 1 || full) {
    line[size - 1] = 0;
    return 0;
  }
  if (line[p + m - 1] != '\n') {
    line[p + m] = '\r';
    line[p + m + 1] = '\n';
    line[p + m + 2] = 0;
  }
  return 0;
}

namespace {
// Nearly every line fits this room. Only a longer one is built again in the full 4096
// bytes, in a frame of its own: a session worker logs on every heartbeat, and each stack
// page its deepest call reaches is one more page an idle session touches.
constexpr int kShortLine = 512;
}  // namespace

int CFCLog::Out(unsigned int level, const char* format, va_list args) {
  if (((g_fLogLevel.load() >> (level % 32)) & 1u) == 0 || !m_bRunning) return 0;
  char line[kShortLine];
  va_list again;
  va_copy(again, args);
  int rc = BuildLineIn(line, kShortLine, format, args);
  if (rc == 1)
    rc = OutLong(level, format, again);
  else if (rc == 0)
    rc = Deliver(level, line);
  va_end(again);
  return rc;
}

__attribute__((noinline)) int CFCLog::OutLong(unsigned int level, const char* format, va_list args) {
  char line[QXNET_LOG_LINE_SIZE];
  if (BuildLine(line, format, args) != 0) return -100;
  return Deliver(level, line);
}

int CFCLog::Deliver(unsigned int level, const char* line) {
  QXNetLogSink cb = g_fLogCallBack;
  if (cb) {
    cb(level, line);
    return 1;
  }
  size_t length = std::strlen(line);
  CAutoLocker guard(m_queueLock);
  m_queue.Push(level, line, length);
  return 1;
}

int CFCLog::Run() {
  // Swapped with the queue each turn: both keep their room, so a steady stream of lines
  // costs no allocation.
  CLogQueue taken;
  while (m_bRunning) {
    bool empty;
    {
      CAutoLocker guard(m_queueLock);
      empty = m_queue.Empty();
    }
    if (empty) {
      pthread_mutex_lock(&s_wakeMutex);
      if (m_bRunning) {
        struct timespec deadline;
        clock_gettime(CLOCK_REALTIME, &deadline);
        deadline.tv_sec += 1;
        while (m_bRunning) {
          int rc = pthread_cond_timedwait(&s_wakeCond, &s_wakeMutex, &deadline);
          if (rc == ETIMEDOUT) break;
        }
      }
      pthread_mutex_unlock(&s_wakeMutex);
      continue;
    }
    {
      CAutoLocker guard(m_queueLock);
      taken.Swap(m_queue);
    }
    taken.ForEach([this](unsigned int level, const char* text) {
      if (!m_bRunning) return false;
      QXNetLogSink cb = g_fLogCallBack;
      if (cb) cb(level, text);
      return true;
    });
    taken.Clear();
  }
  return 0;
}

int fLogStart() { return s_theLog.Start(); }

void fLogStop() { s_theLog.Stop(); }

void* LogThreadProc(void* log) {
  if (log) static_cast<CFCLog*>(log)->Run();
  return nullptr;
}

int fLog(unsigned int level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int rc = s_theLog.Out(level, format, args);
  va_end(args);
  return rc;
}
