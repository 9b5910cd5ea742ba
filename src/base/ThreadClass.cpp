#include "base/ThreadClass.h"

#include <time.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "base/SDKThread.h"

namespace {
const char kStatusLock[] = "thread_statusvar";
}

CThreadClass::CThreadClass(int* p, int n)
    : m_nSpare1(0),
      m_bQuit(true),
      m_pConstruct(p),
      m_nSpare2(0),
      m_nSpare3(0),
      m_nConstruct(n),
      m_hThread(),
      m_bHasHandle(false),
      m_dwThreadId(0),
      m_nExited(1),
      m_nSpare4(0),
      m_nPause(0),
      m_nRunning(0),
      m_nKill(0),
      m_nStopSleep(0),
      m_ftKernelStart(),
      m_ftUserStart(),
      m_ftKernelEnd(),
      m_ftUserEnd(),
      m_ftScratch(),
      m_bAlive(false) {
  std::memset(m_szDebugClassName, 0, sizeof(m_szDebugClassName));
  InitializeCriticalSection(&m_csObject);
  InitializeCriticalSection(&m_csRegistry);
}

CThreadClass::~CThreadClass() {
  Kill(-1);
  EnterCriticalSection(&m_csRegistry);
  for (auto& kv : m_locks) {
    if (kv.second) {
      DeleteCriticalSection(kv.second);
      delete kv.second;
    }
  }
  m_locks.clear();
  LeaveCriticalSection(&m_csRegistry);
  DeleteCriticalSection(&m_csObject);
  DeleteCriticalSection(&m_csRegistry);
}

int CThreadClass::SetDebugClassName(const char* name) {
  // Bounded: the name is copied up to 99 bytes or its terminator, whichever comes first,
  // so a short literal is never read past its end.
  std::memset(m_szDebugClassName, 0, sizeof(m_szDebugClassName));
  if (name) {
    size_t n = strnlen(name, sizeof(m_szDebugClassName) - 1);
    std::memcpy(m_szDebugClassName, name, n);
  }
  return static_cast<int>(std::strlen(m_szDebugClassName));
}

bool CThreadClass::IsRunning() { return m_nRunning.load() != 0 && m_nExited.load() == 0; }

int CThreadClass::IsExit() { return m_nExited.load(); }

int CThreadClass::IsPause() { return m_nPause.load(); }

int CThreadClass::Exit() { return Kill(0); }

bool CThreadClass::ThreadStillActive() { return m_bAlive.load(); }

int CThreadClass::Kill(int timeoutMs) {
  m_bQuit = true;
  m_nRunning = 0;
  if (m_nExited.load() != 0 || timeoutMs == 0) return 0;

  int result = 0;
  uint32_t start = GetTickCount();
  for (;;) {
    if (timeoutMs > 0 && GetTickCount() - start >= static_cast<uint32_t>(timeoutMs)) {
      result = 0;
      break;
    }
    // The alive flag is read first: the end of a run clears the handle before it clears
    // the alive flag, so a thread that is merely finishing never looks "gone without
    // its handle cleared" here.
    if (!ThreadStillActive() && m_bHasHandle.load()) {
      result = 0;
      break;
    }
    if (m_nExited.load() != 0) {
      result = 1;
      break;
    }
    m_nKill = 1;
    m_bQuit = true;
    m_nRunning = 0;
    _SDK_Sleep(10);
  }

  bool cancelled = false;
  pthread_t h{};
  Lock(kStatusLock);
  if (result == 0 && timeoutMs >= 1 && m_bHasHandle.load()) {
    // The thread did not stop in time: cancel it. It ends at its next cancellation
    // point. From here this Kill owns the handle (the run's end no longer detaches it).
    h = m_hThread;
    if (pthread_cancel(h) == 0) {
      cancelled = true;
      m_bHasHandle = false;
      m_dwThreadId = 0;
    }
  }
  UnLock(kStatusLock);

  if (cancelled) {
    // Joined without "thread_statusvar" held: a thread that had just left Thread() when
    // the time ran out needs that lock to finish its run, and must not still be using
    // the object when Kill returns. One that stays outside any cancellation point for
    // a second is left behind, detached.
    struct timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += 1;
    if (pthread_timedjoin_np(h, nullptr, &deadline) != 0) pthread_detach(h);
    m_bAlive = false;
    m_nExited = 1;
  } else if (result == 0 && timeoutMs >= 1) {
    // No handle left: the run has passed its end (or never began); its last act is
    // setting the exited flag, which is waited for so that the object is free to go.
    while (m_nExited.load() == 0 && !m_bAlive.load()) _SDK_Sleep(1);
    m_nExited = 1;
  }
  return result;
}

void* CThreadClass::TheThread(void* self) {
  if (!self) return reinterpret_cast<void*>(-1);
  CThreadClass* t = static_cast<CThreadClass*>(self);
  // Start has already set the running state under "thread_statusvar" before creating
  // this thread. Setting it again here would undo an Exit() or Kill() made between
  // Start's return and this thread's first instruction, and the run would never stop.
  t->RunThread();
  return nullptr;
}

void* CThreadClass::LinuxStartThread(void* self) { return TheThread(self); }

int CThreadClass::Start(int stackSize) {
  if (m_nRunning.load() != 0 && m_nExited.load() == 0 && m_bHasHandle.load() && ThreadStillActive()) {
    m_nPause = 0;
    return -1;
  }
  Kill(-1);
  Lock(kStatusLock);
  m_nRunning = 1;
  m_bQuit = false;
  m_nExited = 0;
  m_bHasHandle = false;
  m_bAlive = true;

  pthread_attr_t attr;
  pthread_attr_init(&attr);
  if (stackSize > 0 && static_cast<size_t>(stackSize) >= static_cast<size_t>(PTHREAD_STACK_MIN))
    pthread_attr_setstacksize(&attr, static_cast<size_t>(stackSize));
  bool created = false;
  pthread_t h;
  for (int i = 0; i < 100; ++i) {
    if (pthread_create(&h, &attr, &CThreadClass::TheThread, this) == 0) {
      created = true;
      break;
    }
    _SDK_Sleep(10);
  }
  pthread_attr_destroy(&attr);

  int result;
  if (!created) {
    m_nRunning = 0;
    m_bQuit = true;
    m_nExited = 1;
    m_bAlive = false;
    result = -2;
  } else {
    m_hThread = h;
    m_bHasHandle = true;
    // pthread ids are never 0 on Linux; 1 marks "assigned" for the id wait of RunThread.
    unsigned long id = static_cast<unsigned long>(h);
    m_dwThreadId = id ? id : 1;
    result = 0;
  }
  UnLock(kStatusLock);
  return result;
}

int CThreadClass::RunThread() {
  // The creator stores the id (and the handle) right after pthread_create returns.
  while (m_dwThreadId.load() == 0) _SDK_Sleep(20);
  Lock(kStatusLock);
  if (m_bHasHandle.load()) ReadThreadTime(&m_ftUserStart);
  UnLock(kStatusLock);
  int result = Thread();
  m_bQuit = true;

  Lock(kStatusLock);
  ReadThreadTime(&m_ftUserEnd);
  if (m_bHasHandle.load()) {
    pthread_detach(m_hThread);
    m_bHasHandle = false;
  }
  m_nKill = 1;
  m_dwThreadId = 0;
  m_nRunning = 0;
  m_bAlive = false;
  UnLock(kStatusLock);
  // The exited flag is the run's last touch of the object: Kill(-1) returns on it, and
  // the object may be restarted or destroyed at once. Set any earlier (under the lock,
  // as the status changes are), the UnLock above would run on a destroyed registry, and
  // a Start made meanwhile would see its new run marked exited.
  m_nExited = 1;
  return result;
}

int CThreadClass::SleepThread(int totalMs, int stepMs) {
  m_nStopSleep = 0;
  uint32_t start = GetTickCount();
  for (;;) {
    if (!IsRunning()) break;
    if (m_nStopSleep.load() != 0) return 1;
    if (GetTickCount() - start > static_cast<uint32_t>(totalMs)) break;
    _SDK_Sleep(static_cast<unsigned int>(stepMs > 1 ? stepMs : 1));
  }
  if (m_nStopSleep.load() != 0 || GetTickCount() - start >= static_cast<uint32_t>(totalMs)) return 1;
  return 0;
}

int CThreadClass::StopSleep() {
  m_nStopSleep = 1;
  return 0;
}

int CThreadClass::EnterPause(int timeoutMs) {
  if (!IsRunning()) return -1;
  m_nPause = -1;
  uint32_t start = GetTickCount();
  while (IsRunning()) {
    if (m_nPause.load() > 0) return 0;
    if (timeoutMs > 0 && GetTickCount() - start > static_cast<uint32_t>(timeoutMs)) break;
    _SDK_Sleep(100);
  }
  return m_nPause.load() > 0 ? 0 : -2;
}

int CThreadClass::CheckAllOk() {
  int expected = -1;
  if (m_nPause.compare_exchange_strong(expected, 1)) return 0;
  return 1;
}

int CThreadClass::Lock(const std::string& name) {
  EnterCriticalSection(&m_csRegistry);
  CRITICAL_SECTION*& slot = m_locks[name];
  if (!slot) {
    slot = new CRITICAL_SECTION;
    std::memset(slot, 0, sizeof(*slot));
    InitializeCriticalSection(slot);
  }
  CRITICAL_SECTION* cs = slot;
  LeaveCriticalSection(&m_csRegistry);
  EnterCriticalSection(cs);
  return 0;
}

int CThreadClass::UnLock(const std::string& name) {
  EnterCriticalSection(&m_csRegistry);
  auto it = m_locks.find(name);
  if (it != m_locks.end() && it->second) LeaveCriticalSection(it->second);
  LeaveCriticalSection(&m_csRegistry);
  return 0;
}

int CThreadClass::RemoveLock(const std::string& name) {
  EnterCriticalSection(&m_csRegistry);
  auto it = m_locks.find(name);
  if (it != m_locks.end()) {
    if (it->second) {
      DeleteCriticalSection(it->second);
      delete it->second;
    }
    m_locks.erase(it);
  }
  LeaveCriticalSection(&m_csRegistry);
  return 0;
}

static std::string IdName(long id) {
  char buf[32];
  std::snprintf(buf, sizeof(buf), "%d", static_cast<int>(id));
  return buf;
}

int CThreadClass::Lock(long id) { return Lock(IdName(id)); }
int CThreadClass::UnLock(long id) { return UnLock(IdName(id)); }
int CThreadClass::RemoveLock(long id) { return RemoveLock(IdName(id)); }

int CThreadClass::PostThreadMessageW(unsigned int, unsigned int, long) {
  // No thread message queues on POSIX.
  if (m_dwThreadId.load() == 0 || !m_bHasHandle.load()) return 0;
  return -1;
}

int CThreadClass::ReadThreadTime(FILETIME_t* user) {
  struct timespec ts;
  if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts) != 0) return -1;
  user->ticks100ns = static_cast<uint64_t>(ts.tv_sec) * 10000000u + static_cast<uint64_t>(ts.tv_nsec) / 100u;
  return 0;
}

int CThreadClass::ReadOtherThreadTime(FILETIME_t* user) {
  // Under "thread_statusvar": the thread detaches itself when its run ends, and its
  // handle must not be used once it may have gone.
  Lock(kStatusLock);
  int rc = -1;
  clockid_t cid;
  struct timespec ts;
  if (m_bHasHandle.load() && pthread_getcpuclockid(m_hThread, &cid) == 0 && clock_gettime(cid, &ts) == 0) {
    user->ticks100ns = static_cast<uint64_t>(ts.tv_sec) * 10000000u + static_cast<uint64_t>(ts.tv_nsec) / 100u;
    rc = 0;
  }
  UnLock(kStatusLock);
  return rc;
}

int CThreadClass::SaveThreadTime() { return ReadOtherThreadTime(&m_ftUserStart); }

int CThreadClass::ShowThreadTime() { return ReadOtherThreadTime(&m_ftUserEnd); }

int CThreadClass::ShowMsg(int, const char*, ...) { return -1; }
