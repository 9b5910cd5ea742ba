// Critical sections on POSIX: recursive mutexes, since the sections they replace may be
// entered again by the thread that holds them.
#ifndef QXNET_BASE_LOCKER_H
#define QXNET_BASE_LOCKER_H

#include <pthread.h>

// A re-entrant critical section.
struct CRITICAL_SECTION {
  pthread_mutex_t mutex;
};

void InitializeCriticalSection(CRITICAL_SECTION* cs);
void DeleteCriticalSection(CRITICAL_SECTION* cs);
void EnterCriticalSection(CRITICAL_SECTION* cs);
void LeaveCriticalSection(CRITICAL_SECTION* cs);

class CLocker {
 public:
  CLocker();
  ~CLocker();
  int Lock();
  int UnLock();
  CRITICAL_SECTION* Section() { return m_pSection; }

 private:
  // A copy would share and twice free the section.
  CLocker(const CLocker&) = delete;
  CLocker& operator=(const CLocker&) = delete;
  CRITICAL_SECTION* m_pSection;
};

class CAutoLocker {
 public:
  explicit CAutoLocker(CRITICAL_SECTION* cs);
  explicit CAutoLocker(CLocker& locker);
  explicit CAutoLocker(CLocker* locker);
  ~CAutoLocker();

 private:
  CAutoLocker(const CAutoLocker&) = delete;
  CAutoLocker& operator=(const CAutoLocker&) = delete;
  CRITICAL_SECTION* m_pSection;
};

// Scope guard for a plain (non-recursive) pthread mutex.
class CMutexGuard {
 public:
  explicit CMutexGuard(pthread_mutex_t* m) : m_p(m) { pthread_mutex_lock(m_p); }
  ~CMutexGuard() { pthread_mutex_unlock(m_p); }

 private:
  CMutexGuard(const CMutexGuard&) = delete;
  CMutexGuard& operator=(const CMutexGuard&) = delete;
  pthread_mutex_t* m_p;
};

#endif
