#include "base/Locker.h"

#include <cstring>

void InitializeCriticalSection(CRITICAL_SECTION* cs) {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&cs->mutex, &attr);
  pthread_mutexattr_destroy(&attr);
}

void DeleteCriticalSection(CRITICAL_SECTION* cs) { pthread_mutex_destroy(&cs->mutex); }
void EnterCriticalSection(CRITICAL_SECTION* cs) { pthread_mutex_lock(&cs->mutex); }
void LeaveCriticalSection(CRITICAL_SECTION* cs) { pthread_mutex_unlock(&cs->mutex); }

CLocker::CLocker() : m_pSection(new CRITICAL_SECTION) {
  std::memset(m_pSection, 0, sizeof(*m_pSection));
  InitializeCriticalSection(m_pSection);
}

CLocker::~CLocker() {
  DeleteCriticalSection(m_pSection);
  delete m_pSection;
}

int CLocker::Lock() {
  EnterCriticalSection(m_pSection);
  return 0;
}

int CLocker::UnLock() {
  LeaveCriticalSection(m_pSection);
  return 0;
}

CAutoLocker::CAutoLocker(CRITICAL_SECTION* cs) : m_pSection(cs) {
  if (m_pSection) EnterCriticalSection(m_pSection);
}

CAutoLocker::CAutoLocker(CLocker& locker) : m_pSection(locker.Section()) {
  if (m_pSection) EnterCriticalSection(m_pSection);
}

CAutoLocker::CAutoLocker(CLocker* locker) : m_pSection(locker ? locker->Section() : nullptr) {
  if (m_pSection) EnterCriticalSection(m_pSection);
}

CAutoLocker::~CAutoLocker() {
  if (m_pSection) LeaveCriticalSection(m_pSection);
}
