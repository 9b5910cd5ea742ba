// CThreadClass (start, stop with a time limit, pause handshake, interruptible sleep,
// thread times) and the free thread helpers.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "base/SDKThread.h"
#include "base/ThreadClass.h"

namespace {

using Clock = std::chrono::steady_clock;

long MsSince(Clock::time_point t) {
  return static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t).count());
}

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

bool WaitFor(const std::function<bool()>& pred, int ms) {
  auto end = Clock::now() + std::chrono::milliseconds(ms);
  while (!pred()) {
    if (Clock::now() >= end) return pred();
    SleepMs(2);
  }
  return true;
}

// Generous limit for things that should happen "soon" (sanitizers, loaded 2-core host).
const int kSoonMs = 3000;

// A worker whose Thread() is given by the test.
class Worker : public CThreadClass {
 public:
  explicit Worker(std::function<int(Worker&)> body, int* p = nullptr, int n = 0)
      : CThreadClass(p, n), m_body(std::move(body)) {}
  ~Worker() override { Kill(-1); }

  int Thread() override {
    m_tid = pthread_self();
    ++entries;
    int r = m_body(*this);
    finished = 1;
    return r;
  }

  bool Quit() const { return m_bQuit; }
  int* ConstructPointer() const { return m_pConstruct; }
  int ConstructValue() const { return m_nConstruct; }
  pthread_t WorkerThreadId() const { return m_tid; }

  std::atomic<int> entries{0};
  std::atomic<int> finished{0};
  std::atomic<long> ticks{0};

 private:
  std::function<int(Worker&)> m_body;
  pthread_t m_tid{};
};

// Runs until asked to stop, counting its turns.
int LoopUntilQuit(Worker& w) {
  while (!w.Quit()) {
    ++w.ticks;
    _SDK_Sleep(5);
  }
  return 42;
}

// Never looks at its flags; the sleep is where a forced stop can take it.
int IgnoreFlags(Worker& w) {
  for (;;) {
    ++w.ticks;
    _SDK_Sleep(10);
  }
  return 0;
}

// Busy-waits (no sleep, to act the moment it happens) until the run has ended.
bool SpinUntilExited(Worker& w) {
  auto end = Clock::now() + std::chrono::milliseconds(kSoonMs);
  while (w.IsExit() == 0) {
    if (Clock::now() >= end) return false;
  }
  return true;
}

bool TicksAdvance(Worker& w, int ms = 150) {
  long a = w.ticks;
  return WaitFor([&] { return w.ticks > a; }, ms + kSoonMs);
}

bool TicksStill(Worker& w, int ms = 200) {
  long a = w.ticks;
  SleepMs(ms);
  return w.ticks == a;
}

// ---- state table

TEST(ThreadClass, NewObjectIsIdle) {
  int value = 5;
  Worker w(LoopUntilQuit, &value, 77);
  EXPECT_FALSE(w.IsRunning());
  EXPECT_EQ(w.IsExit(), 1);
  EXPECT_EQ(w.IsPause(), 0);
  EXPECT_TRUE(w.Quit());
  EXPECT_EQ(w.ConstructPointer(), &value);
  EXPECT_EQ(w.ConstructValue(), 77);
  EXPECT_STREQ(w.DebugClassName(), "");
  EXPECT_EQ(w.PostThreadMessageW(1, 2, 3), 0);
  EXPECT_EQ(w.SaveThreadTime(), -1);
  EXPECT_EQ(w.ShowThreadTime(), -1);
  EXPECT_EQ(w.ShowMsg(0, "x %d", 1), -1);
  EXPECT_EQ(w.EnterPause(1000), -1);
  auto t0 = Clock::now();
  EXPECT_EQ(w.Exit(), 0);
  EXPECT_EQ(w.Kill(500), 0);
  EXPECT_EQ(w.Kill(-1), 0);
  EXPECT_LT(MsSince(t0), 300) << "stopping an idle object must not wait";
  EXPECT_EQ(w.entries, 0);
}

TEST(ThreadClass, StartRunStoppingAndIdleStates) {
  std::atomic<bool> gate{false};
  Worker w([&](Worker& self) {
    LoopUntilQuit(self);
    while (!gate) _SDK_Sleep(2);  // hold the Stopping state until the test looks at it
    return 0;
  });
  ASSERT_EQ(w.Start(0), 0);
  // Running as soon as Start returns.
  EXPECT_TRUE(w.IsRunning());
  EXPECT_EQ(w.IsExit(), 0);
  EXPECT_FALSE(w.Quit());
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  EXPECT_FALSE(pthread_equal(w.WorkerThreadId(), pthread_self()));
  EXPECT_TRUE(TicksAdvance(w));
  EXPECT_EQ(w.PostThreadMessageW(1, 2, 3), -1);  // no message queues: says so while a thread exists

  auto t0 = Clock::now();
  EXPECT_EQ(w.Exit(), 0);
  EXPECT_LT(MsSince(t0), 300);
  // Stopping: no longer running, not yet exited.
  EXPECT_FALSE(w.IsRunning());
  EXPECT_TRUE(w.Quit());
  SleepMs(100);
  EXPECT_EQ(w.IsExit(), 0);
  EXPECT_FALSE(w.IsRunning());

  gate = true;
  ASSERT_TRUE(WaitFor([&] { return w.IsExit() == 1; }, kSoonMs));
  EXPECT_FALSE(w.IsRunning());
  EXPECT_EQ(w.finished, 1);
  EXPECT_EQ(w.Kill(-1), 0);  // already exited
  EXPECT_EQ(w.PostThreadMessageW(1, 2, 3), 0);
}

TEST(ThreadClass, WorkerThatReturnsByItselfEndsIdle) {
  Worker w([](Worker&) { return 7; });
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.IsExit() == 1; }, kSoonMs));
  EXPECT_FALSE(w.IsRunning());
  EXPECT_TRUE(w.Quit());
  EXPECT_EQ(w.finished, 1);
  // Restart after the end: a second run of Thread().
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 2 && w.IsExit() == 1; }, kSoonMs));
}

TEST(ThreadClass, StartTwiceKeepsTheRunningThread) {
  Worker w(LoopUntilQuit);
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  pthread_t first = w.WorkerThreadId();
  EXPECT_EQ(w.Start(0), -1);
  EXPECT_TRUE(w.IsRunning());
  EXPECT_TRUE(TicksAdvance(w));
  SleepMs(50);
  EXPECT_EQ(w.entries, 1) << "the second Start must not begin another run";
  EXPECT_TRUE(pthread_equal(first, w.WorkerThreadId()));
  EXPECT_EQ(w.Kill(-1), 1);
}

TEST(ThreadClass, StartAfterExitWaitsForTheOldRunAndStartsANewOne) {
  Worker w([](Worker& self) {
    LoopUntilQuit(self);
    if (self.entries == 1) _SDK_Sleep(300);  // the first run takes its time to wind down
    return 0;
  });
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  w.Exit();
  EXPECT_EQ(w.Start(0), 0);
  EXPECT_EQ(w.finished, 1) << "Start must wait for the previous run to end";
  EXPECT_TRUE(w.IsRunning());
  ASSERT_TRUE(WaitFor([&] { return w.entries == 2; }, kSoonMs));
  EXPECT_TRUE(TicksAdvance(w));
  EXPECT_EQ(w.Kill(-1), 1);
}

TEST(ThreadClass, StopRequestedRightAfterStartIsNotLost) {
  // The stop may come before the new thread has run its first instruction.
  Worker w(LoopUntilQuit);
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(w.Start(0), 0);
    EXPECT_EQ(w.Exit(), 0);
    bool ended = WaitFor([&] { return w.IsExit() == 1; }, kSoonMs);
    if (!ended) {
      w.Kill(-1);
      FAIL() << "run " << i << " ignored an Exit() made right after Start()";
    }
    EXPECT_FALSE(w.IsRunning());
  }
}

TEST(ThreadClass, RestartRightAfterTheRunEndsKeepsTheNewRunRunning) {
  // A new Start as soon as the previous run is seen to end: the ending thread must not
  // overwrite the state of the new run.
  Worker w(LoopUntilQuit);
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(w.Start(0), 0);
    w.Exit();
    ASSERT_TRUE(SpinUntilExited(w)) << "run " << i;
    ASSERT_EQ(w.Start(0), 0) << "run " << i;
    ASSERT_TRUE(w.IsRunning()) << "run " << i;
    ASSERT_EQ(w.IsExit(), 0) << "run " << i;
    ASSERT_EQ(w.Kill(-1), 1) << "run " << i;
  }
}

// ---- Kill

TEST(ThreadClass, KillZeroReturnsAtOnceAndTheThreadEndsByItself) {
  Worker w([](Worker& self) {
    while (!self.Quit()) _SDK_Sleep(200);  // slow to notice
    return 0;
  });
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  auto t0 = Clock::now();
  EXPECT_EQ(w.Kill(0), 0);
  EXPECT_LT(MsSince(t0), 150);
  EXPECT_FALSE(w.IsRunning());
  ASSERT_TRUE(WaitFor([&] { return w.IsExit() == 1; }, kSoonMs));
  EXPECT_EQ(w.finished, 1) << "the thread must end on its own, not be terminated";
}

TEST(ThreadClass, KillWithLimitTerminatesAWorkerThatIgnoresItsFlags) {
  Worker w(IgnoreFlags);
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  ASSERT_TRUE(TicksAdvance(w));
  auto t0 = Clock::now();
  EXPECT_EQ(w.Kill(500), 0);
  long took = MsSince(t0);
  EXPECT_GE(took, 450);
  EXPECT_LE(took, 2500);
  EXPECT_EQ(w.IsExit(), 1);
  EXPECT_FALSE(w.IsRunning());
  EXPECT_EQ(w.finished, 0);
  EXPECT_TRUE(TicksStill(w)) << "the worker is still running after Kill(500)";
  // The object can run again.
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 2; }, kSoonMs));
  EXPECT_TRUE(TicksAdvance(w));
  EXPECT_EQ(w.Kill(100), 0);
  EXPECT_TRUE(TicksStill(w));
}

TEST(ThreadClass, KillWithoutLimitWaitsAsLongAsItTakes) {
  Worker w([](Worker&) {
    _SDK_Sleep(900);  // deaf to the stop request for a while
    return 0;
  });
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  auto t0 = Clock::now();
  EXPECT_EQ(w.Kill(-1), 1);
  EXPECT_GE(MsSince(t0), 500);
  EXPECT_EQ(w.finished, 1) << "Kill(-1) must never terminate";
  EXPECT_EQ(w.IsExit(), 1);
}

TEST(ThreadClass, KillWithLimitReturnsOneWhenTheWorkerStopsInTime) {
  Worker w(LoopUntilQuit);
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(w.Start(0), 0);
    auto t0 = Clock::now();
    ASSERT_EQ(w.Kill(5000), 1) << "run " << i;
    EXPECT_LT(MsSince(t0), 2000);
    ASSERT_EQ(w.finished, 1);
    w.finished = 0;
  }
}

TEST(ThreadClass, KillWhoseTimeRunsOutAsTheWorkerFinishes) {
  // The time limit and the worker's own end fall close together, in either order:
  // whatever Kill did, the object is then idle and immediately reusable.
  for (int i = 0; i < 80; ++i) {
    const int deaf = 20 + i % 15;
    auto* w = new Worker([deaf](Worker& self) {
      if (self.entries == 1) {
        _SDK_Sleep(static_cast<unsigned>(deaf));
        return 0;
      }
      return LoopUntilQuit(self);
    });
    ASSERT_EQ(w->Start(0), 0);
    int r = w->Kill(27);
    ASSERT_TRUE(r == 0 || r == 1) << r;
    ASSERT_EQ(w->IsExit(), 1) << "run " << i;
    ASSERT_FALSE(w->IsRunning());
    ASSERT_EQ(w->Start(0), 0);
    ASSERT_TRUE(WaitFor([&] { return w->entries == 2; }, kSoonMs)) << "run " << i;
    SleepMs(5);
    ASSERT_TRUE(w->IsRunning()) << "run " << i << ": the first run's end overwrote the second's state";
    ASSERT_EQ(w->Kill(-1), 1);
    delete w;
  }
}

TEST(ThreadClass, DestructorStopsARunningWorker) {
  // Only base-class state is used by this worker, so that the base destructor's own
  // stop is what ends it.
  class Plain : public CThreadClass {
   public:
    explicit Plain(int* out) : CThreadClass(out, 0) {}
    int Thread() override {
      __atomic_store_n(&m_pConstruct[0], 1, __ATOMIC_SEQ_CST);
      while (!m_bQuit) _SDK_Sleep(5);
      m_pConstruct[1] = 1;
      return 0;
    }
  };
  int state[2] = {0, 0};
  auto* p = new Plain(state);
  ASSERT_EQ(p->Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return p->IsRunning() && __atomic_load_n(&state[0], __ATOMIC_SEQ_CST) == 1; },
                      kSoonMs));
  delete p;
  EXPECT_EQ(state[1], 1) << "the destructor returned before the worker ended";
}

TEST(ThreadClass, DestroyingTheObjectAsSoonAsTheRunEnds) {
  // The ending thread must be done with the object once it reports the end
  // (checked for use after free by the sanitizer runs).
  for (int i = 0; i < 200; ++i) {
    auto* w = new Worker([](Worker&) { return 0; });
    ASSERT_EQ(w->Start(0), 0);
    ASSERT_TRUE(SpinUntilExited(*w)) << "run " << i;
    EXPECT_EQ(w->entries, 1);
    delete w;
  }
}

// ---- SleepThread

struct SleepProbe {
  std::atomic<int> entered{0};
  std::atomic<int> result{-99};
  std::atomic<long> tookMs{-1};
  std::atomic<long> returnedAtMs{-1};  // since the probe's epoch
  Clock::time_point epoch = Clock::now();
};

std::function<int(Worker&)> SleepBody(SleepProbe& probe, int total, int step) {
  return [&probe, total, step](Worker& self) {
    probe.entered = 1;
    auto t0 = Clock::now();
    int r = self.SleepThread(total, step);
    probe.tookMs = MsSince(t0);
    probe.returnedAtMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - probe.epoch).count();
    probe.result = r;
    while (!self.Quit()) _SDK_Sleep(5);
    return 0;
  };
}

long NowSince(const SleepProbe& p) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - p.epoch).count();
}

TEST(ThreadClass, SleepThreadSleepsTheFullTime) {
  SleepProbe probe;
  Worker w(SleepBody(probe, 1000, 50));
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return probe.result != -99; }, 1000 + kSoonMs));
  EXPECT_EQ(probe.result, 1);
  EXPECT_GE(probe.tookMs, 950);
  EXPECT_LE(probe.tookMs, 2500);
  EXPECT_TRUE(w.IsRunning());
}

TEST(ThreadClass, StopSleepWakesTheSleeperWithinAStep) {
  SleepProbe probe;
  Worker w(SleepBody(probe, 20000, 50));
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return probe.entered == 1; }, kSoonMs));
  SleepMs(200);
  ASSERT_EQ(probe.result, -99);
  long at = NowSince(probe);
  EXPECT_EQ(w.StopSleep(), 0);
  ASSERT_TRUE(WaitFor([&] { return probe.result != -99; }, kSoonMs));
  EXPECT_EQ(probe.result, 1);
  EXPECT_LT(probe.returnedAtMs - at, 600);
  EXPECT_LT(probe.tookMs, 5000);
  EXPECT_TRUE(w.IsRunning()) << "StopSleep only wakes the sleeper";
}

TEST(ThreadClass, ExitMakesSleepThreadReturnZeroWithinAStep) {
  SleepProbe probe;
  Worker w(SleepBody(probe, 20000, 50));
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return probe.entered == 1; }, kSoonMs));
  SleepMs(200);
  ASSERT_EQ(probe.result, -99);
  long at = NowSince(probe);
  EXPECT_EQ(w.Exit(), 0);
  ASSERT_TRUE(WaitFor([&] { return probe.result != -99; }, kSoonMs));
  EXPECT_EQ(probe.result, 0);
  EXPECT_LT(probe.returnedAtMs - at, 600);
  ASSERT_TRUE(WaitFor([&] { return w.IsExit() == 1; }, kSoonMs));
}

TEST(ThreadClass, SleepThreadStepZeroStillSleeps) {
  SleepProbe probe;
  Worker w(SleepBody(probe, 200, 0));
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return probe.result != -99; }, kSoonMs));
  EXPECT_EQ(probe.result, 1);
  EXPECT_GE(probe.tookMs, 190);
  EXPECT_LE(probe.tookMs, 2000);
}

TEST(ThreadClass, SleepThreadWithoutARunningThread) {
  Worker w(LoopUntilQuit);
  auto t0 = Clock::now();
  EXPECT_EQ(w.SleepThread(2000, 10), 0) << "nothing runs: the sleep is cut short and reports it";
  EXPECT_LT(MsSince(t0), 500);
  EXPECT_EQ(w.SleepThread(0, 10), 1) << "a zero sleep is complete at once";
}

// ---- pause handshake

int PauseAware(Worker& w, std::atomic<int>* acks) {
  while (!w.Quit()) {
    if (w.CheckAllOk() == 0) {
      ++*acks;
      while (w.IsPause() > 0 && !w.Quit()) _SDK_Sleep(5);
      continue;
    }
    ++w.ticks;
    _SDK_Sleep(5);
  }
  return 0;
}

TEST(ThreadClass, EnterPauseTimesOutWhenTheWorkerNeverAcknowledges) {
  Worker w(LoopUntilQuit);
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  auto t0 = Clock::now();
  EXPECT_EQ(w.EnterPause(300), -2);
  long took = MsSince(t0);
  EXPECT_GE(took, 290);
  EXPECT_LE(took, 1500);
  EXPECT_EQ(w.IsPause(), -1) << "the request stays pending";
  EXPECT_TRUE(w.IsRunning());
  EXPECT_TRUE(TicksAdvance(w));
  EXPECT_EQ(w.Kill(-1), 1);
}

TEST(ThreadClass, PauseHandshakeAndResumeByStart) {
  std::atomic<int> acks{0};
  Worker w([&](Worker& self) { return PauseAware(self, &acks); });
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(TicksAdvance(w));
  auto t0 = Clock::now();
  EXPECT_EQ(w.EnterPause(5000), 0);
  EXPECT_LT(MsSince(t0), 2000);
  // Paused: running, not exited, pause acknowledged, and the worker idles.
  EXPECT_EQ(w.IsPause(), 1);
  EXPECT_TRUE(w.IsRunning());
  EXPECT_EQ(w.IsExit(), 0);
  EXPECT_EQ(acks, 1);
  EXPECT_TRUE(TicksStill(w));
  // Start on the paused thread lifts the pause and starts nothing new.
  EXPECT_EQ(w.Start(0), -1);
  EXPECT_EQ(w.IsPause(), 0);
  EXPECT_TRUE(TicksAdvance(w));
  EXPECT_EQ(w.entries, 1);
  EXPECT_EQ(acks, 1);
  // A second pause works the same way.
  EXPECT_EQ(w.EnterPause(5000), 0);
  EXPECT_EQ(acks, 2);
  EXPECT_EQ(w.Kill(-1), 1);
}

TEST(ThreadClass, CheckAllOkAnswers) {
  std::atomic<int> before{-9}, first{-9}, second{-9};
  std::atomic<int> requested{0};
  Worker w([&](Worker& self) {
    before = self.CheckAllOk();
    while (!requested) _SDK_Sleep(2);
    while (self.IsPause() != -1) _SDK_Sleep(2);
    first = self.CheckAllOk();
    second = self.CheckAllOk();
    while (!self.Quit()) _SDK_Sleep(5);
    return 0;
  });
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return before != -9; }, kSoonMs));
  EXPECT_EQ(before, 1) << "no pause requested: go on";
  requested = 1;
  EXPECT_EQ(w.EnterPause(5000), 0);
  ASSERT_TRUE(WaitFor([&] { return second != -9; }, kSoonMs));
  EXPECT_EQ(first, 0) << "a requested pause is acknowledged once";
  EXPECT_EQ(second, 1) << "an acknowledged pause is not acknowledged again";
  EXPECT_EQ(w.IsPause(), 1);
  EXPECT_EQ(w.Kill(-1), 1);
}

TEST(ThreadClass, EnterPauseWithoutLimitWaitsForALateAcknowledgement) {
  std::atomic<int> acks{0};
  Worker w([&](Worker& self) {
    _SDK_Sleep(600);  // busy elsewhere before it next looks
    return PauseAware(self, &acks);
  });
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  auto t0 = Clock::now();
  EXPECT_EQ(w.EnterPause(0), 0);
  EXPECT_GE(MsSince(t0), 400);
  EXPECT_EQ(acks, 1);
  EXPECT_EQ(w.Kill(-1), 1);
}

TEST(ThreadClass, EnterPauseGivesUpWhenTheWorkerEnds) {
  Worker w([](Worker&) {
    _SDK_Sleep(300);
    return 0;
  });
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  auto t0 = Clock::now();
  EXPECT_EQ(w.EnterPause(-1), -2);
  EXPECT_LT(MsSince(t0), kSoonMs);
  EXPECT_EQ(w.finished, 1);
}

// ---- names, stack sizes, thread times

TEST(ThreadClass, SetDebugClassNameIsBounded) {
  Worker w(LoopUntilQuit);
  // An exact-size heap copy: reading past its end is caught by AddressSanitizer.
  char* shortName = new char[4];
  std::memcpy(shortName, "abc", 4);
  EXPECT_EQ(w.SetDebugClassName(shortName), 3);
  EXPECT_STREQ(w.DebugClassName(), "abc");
  delete[] shortName;

  std::string longName(150, 'n');
  for (size_t i = 0; i < longName.size(); ++i) longName[i] = static_cast<char>('a' + i % 26);
  EXPECT_EQ(w.SetDebugClassName(longName.c_str()), 99);
  EXPECT_EQ(std::string(w.DebugClassName()), longName.substr(0, 99));

  std::string exact(99, 'q');
  EXPECT_EQ(w.SetDebugClassName(exact.c_str()), 99);
  EXPECT_EQ(std::string(w.DebugClassName()), exact);

  EXPECT_EQ(w.SetDebugClassName("xy"), 2);
  EXPECT_STREQ(w.DebugClassName(), "xy") << "a shorter name must not keep the old tail";
}

size_t CurrentStackSize() {
  pthread_attr_t attr;
  size_t size = 0;
  if (pthread_getattr_np(pthread_self(), &attr) == 0) {
    pthread_attr_getstacksize(&attr, &size);
    pthread_attr_destroy(&attr);
  }
  return size;
}

TEST(ThreadClass, StartHonoursTheStackSize) {
  std::atomic<size_t> seen{0};
  Worker w([&](Worker&) {
    seen = CurrentStackSize();
    return 0;
  });
  ASSERT_EQ(w.Start(3 * 1024 * 1024), 0);
  ASSERT_TRUE(WaitFor([&] { return w.IsExit() == 1; }, kSoonMs));
  EXPECT_GE(seen.load(), 3u * 1024 * 1024);
  // Sizes below the system minimum fall back to the default.
  ASSERT_EQ(w.Start(1), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 2 && w.IsExit() == 1; }, kSoonMs));
  EXPECT_GT(seen.load(), 16u * 1024);
}

TEST(ThreadClass, ThreadTimesOfARun) {
  std::atomic<int> go{0};
  Worker w([&](Worker&) {
    while (!go) _SDK_Sleep(2);
    // About 150 ms of this thread's own CPU time.
    struct timespec a, b;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &a);
    volatile unsigned long sink = 0;
    do {
      for (int i = 0; i < 10000; ++i) sink = sink + static_cast<unsigned long>(i);
      clock_gettime(CLOCK_THREAD_CPUTIME_ID, &b);
    } while ((b.tv_sec - a.tv_sec) * 1000000000L + (b.tv_nsec - a.tv_nsec) < 150000000L);
    return 0;
  });
  ASSERT_EQ(w.Start(0), 0);
  ASSERT_TRUE(WaitFor([&] { return w.entries == 1; }, kSoonMs));
  EXPECT_EQ(w.SaveThreadTime(), 0);
  EXPECT_EQ(w.ShowThreadTime(), 0);
  go = 1;
  ASSERT_TRUE(WaitFor([&] { return w.IsExit() == 1; }, kSoonMs + 1000));
  uint64_t spent = w.EndCpuTime() - w.StartCpuTime();  // 100 ns units
  EXPECT_GE(spent, 1400000u);
  EXPECT_LT(spent, 50000000u);
  EXPECT_EQ(w.SaveThreadTime(), -1);
  EXPECT_EQ(w.ShowThreadTime(), -1);
}

// ---- free helpers

struct SpawnProbe {
  std::atomic<int> ran{0};
  std::atomic<int> detached{-1};
  std::atomic<size_t> stack{0};
  pthread_t tid{};
  std::atomic<int> sameThread{-1};
  pthread_t caller{};
};

void SpawnEntry(void* arg) {
  auto* p = static_cast<SpawnProbe*>(arg);
  pthread_attr_t attr;
  if (pthread_getattr_np(pthread_self(), &attr) == 0) {
    int state = -1;
    pthread_attr_getdetachstate(&attr, &state);
    size_t size = 0;
    pthread_attr_getstacksize(&attr, &size);
    pthread_attr_destroy(&attr);
    p->detached = state == PTHREAD_CREATE_DETACHED ? 1 : 0;
    p->stack = size;
  }
  p->sameThread = pthread_equal(pthread_self(), p->caller) ? 1 : 0;
  p->ran = 1;
}

TEST(SDKThread, ThreadSpawnRunsADetachedThread) {
  SpawnProbe probe;
  probe.caller = pthread_self();
  EXPECT_EQ(_SDK_ThreadSpawn(&SpawnEntry, 2 * 1024 * 1024, &probe), 0);
  ASSERT_TRUE(WaitFor([&] { return probe.ran == 1; }, kSoonMs));
  EXPECT_EQ(probe.sameThread, 0);
  EXPECT_EQ(probe.detached, 1);
  EXPECT_GE(probe.stack.load(), 2u * 1024 * 1024);
}

void CountEntry(void* arg) { static_cast<std::atomic<int>*>(arg)->fetch_add(1); }

TEST(SDKThread, ThreadSpawnManyAndWithoutEntry) {
  static std::atomic<int> count{0};
  for (int i = 0; i < 20; ++i) EXPECT_EQ(_SDK_ThreadSpawn(&CountEntry, 0, &count), 0);
  EXPECT_TRUE(WaitFor([&] { return count == 20; }, kSoonMs));
  EXPECT_EQ(_SDK_ThreadSpawn(nullptr, 0, nullptr), -1);
}

TEST(SDKThread, SleepTicksAndTime) {
  auto t0 = Clock::now();
  uint32_t k0 = GetTickCount();
  EXPECT_EQ(_SDK_Sleep(120), 0);
  uint32_t k1 = GetTickCount();
  long took = MsSince(t0);
  EXPECT_GE(took, 115);
  EXPECT_LE(took, 1500);
  EXPECT_GE(k1 - k0, 115u);
  EXPECT_LE(k1 - k0, static_cast<uint32_t>(took) + 5);
  EXPECT_EQ(_SDK_Sleep(0), 0);

  int32_t out = 0;
  time_t before = time(nullptr);
  int32_t now = _time32(&out);
  time_t after = time(nullptr);
  EXPECT_EQ(now, out);
  EXPECT_GE(now, static_cast<int32_t>(before));
  EXPECT_LE(now, static_cast<int32_t>(after));
  EXPECT_GE(_time32(nullptr), now);
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QXNET_TEST_SANITIZED 1
#endif

// A thread that cannot be created: run in a child process whose address space is
// capped so that a large stack cannot be mapped.
TEST(ThreadClass, StartReportsThreadCreationFailure) {
#ifdef QXNET_TEST_SANITIZED
  GTEST_SKIP() << "address-space limits do not mix with sanitizer shadow memory";
#else
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    long pages = 0;
    FILE* f = std::fopen("/proc/self/statm", "r");
    if (!f || std::fscanf(f, "%ld", &pages) != 1) _exit(10);
    std::fclose(f);
    struct rlimit lim;
    lim.rlim_cur = lim.rlim_max = static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) +
                                  (256u << 20);
    if (setrlimit(RLIMIT_AS, &lim) != 0) _exit(11);
    Worker w(LoopUntilQuit);
    auto t0 = Clock::now();
    if (w.Start(1 << 30) != -2) _exit(12);
    if (MsSince(t0) < 500) _exit(13);  // it keeps trying for about a second
    if (w.IsRunning() || w.IsExit() != 1 || !w.Quit()) _exit(14);
    if (_SDK_ThreadSpawn(&CountEntry, 1u << 30, nullptr) != -1) _exit(15);
    // A thread that fits can still be started.
    if (w.Start(0) != 0) _exit(16);
    if (w.Kill(-1) != 1) _exit(17);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "child step failed (code 12: Start did not return -2)";
#endif
}

}  // namespace
