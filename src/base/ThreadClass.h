// Base class of the library's long-lived workers: start, stop with a time limit,
// cooperative pause, interruptible sleep, named locks and thread CPU times.
//
// POSIX notes:
// - Threads are joinable pthreads that detach themselves when their run ends, so nobody
//   has to join them and Kill never touches a thread that is gone (all handle changes
//   happen under the "thread_statusvar" lock).
// - Kill with a time limit ends an unresponsive thread with pthread_cancel, which takes
//   effect only at a cancellation point (a sleep, a blocking socket call, poll...), and
//   then joins it for up to a second; a thread that reaches no cancellation point in
//   that time is left running, detached, and must not outlive the object.
// - The exited flag is the last thing a run writes to the object: once IsExit() or
//   Kill(-1) reports the end, the object may be restarted or destroyed.
// - There are no thread message queues: PostThreadMessageW returns -1 when a thread
//   exists and 0 otherwise.
// - Thread times: one CPU clock per thread (pthread_getcpuclockid) with no split between
//   kernel and user time; the whole CPU time is kept in the user-time slots, in 100 ns
//   units as FILETIME counts them.
#ifndef QXNET_BASE_THREADCLASS_H
#define QXNET_BASE_THREADCLASS_H

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

#include "base/Locker.h"

struct FILETIME_t {
  uint64_t ticks100ns;
};

class CThreadClass {
 public:
  CThreadClass(int* p, int n);
  virtual ~CThreadClass();

  virtual int SetDebugClassName(const char* name);
  virtual bool IsRunning();
  virtual int IsExit();
  virtual int Exit();
  virtual int Kill(int timeoutMs);
  virtual int Thread() = 0;
  virtual int Start(int stackSize);
  virtual int SleepThread(int totalMs, int stepMs);
  virtual int EnterPause(int timeoutMs);
  virtual int IsPause();
  virtual int CheckAllOk();
  virtual int RunThread();

  int StopSleep();
  int Lock(const std::string& name);
  int UnLock(const std::string& name);
  int RemoveLock(const std::string& name);
  int Lock(long id);
  int UnLock(long id);
  int RemoveLock(long id);
  int PostThreadMessageW(unsigned int msg, unsigned int wParam, long lParam);
  int SaveThreadTime();
  int ShowThreadTime();
  int ShowMsg(int level, const char* format, ...);

  const char* DebugClassName() const { return m_szDebugClassName; }
  // CPU time of the last run, start and end samples (100 ns units).
  uint64_t StartCpuTime() const { return m_ftUserStart.ticks100ns; }
  uint64_t EndCpuTime() const { return m_ftUserEnd.ticks100ns; }

  // Thread entries: TheThread is given to pthread_create; LinuxStartThread is its twin.
  static void* TheThread(void* self);
  static void* LinuxStartThread(void* self);

 protected:
  char m_szDebugClassName[100];
  CRITICAL_SECTION m_csObject;
  int m_nSpare1;
  std::atomic<bool> m_bQuit;
  int* m_pConstruct;
  int m_nSpare2;
  int m_nSpare3;
  int m_nConstruct;
  pthread_t m_hThread;
  std::atomic<bool> m_bHasHandle;
  std::atomic<unsigned long> m_dwThreadId;
  std::atomic<int> m_nExited;
  int m_nSpare4;
  std::atomic<int> m_nPause;
  std::atomic<int> m_nRunning;
  std::atomic<int> m_nKill;
  std::atomic<int> m_nStopSleep;
  std::map<std::string, CRITICAL_SECTION*> m_locks;
  CRITICAL_SECTION m_csRegistry;
  FILETIME_t m_ftKernelStart, m_ftUserStart, m_ftKernelEnd, m_ftUserEnd, m_ftScratch;

 private:
  CThreadClass(const CThreadClass&) = delete;
  CThreadClass& operator=(const CThreadClass&) = delete;
  bool ThreadStillActive();
  int ReadThreadTime(FILETIME_t* user);
  int ReadOtherThreadTime(FILETIME_t* user);
  // True from the thread's start until the end of its run: what the STILL_ACTIVE exit
  // code tells on Windows.
  std::atomic<bool> m_bAlive;
};

#endif
