// CLocker, CAutoLocker and the named locks of CThreadClass: mutual exclusion between
// threads, re-entrancy on the owning thread, and which names share a section.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <type_traits>

#include "base/Locker.h"
#include "base/ThreadClass.h"

namespace {

using Clock = std::chrono::steady_clock;

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// A second thread that takes a lock, reports it, and gives it back when told to.
class Contender {
 public:
  Contender(std::function<void()> acquire, std::function<void()> release)
      : m_thread([this, acquire, release] {
          acquire();
          m_got = true;
          while (!m_release) SleepMs(1);
          release();
          m_released = true;
        }) {}
  ~Contender() {
    m_release = true;
    m_thread.join();
  }
  bool Got() const { return m_got; }
  bool WaitGot(int ms) {
    auto end = Clock::now() + std::chrono::milliseconds(ms);
    while (!m_got && Clock::now() < end) SleepMs(2);
    return m_got;
  }
  // Lets the contender give the lock back and waits until it has.
  void Release() {
    m_release = true;
    while (!m_released) SleepMs(1);
  }

 private:
  std::atomic<bool> m_got{false};
  std::atomic<bool> m_release{false};
  std::atomic<bool> m_released{false};
  std::thread m_thread;
};

// How long a contender is given to (wrongly) get a lock that is held elsewhere.
const int kHeldCheckMs = 200;
// How long it is given to get a lock once it is free (generous: sanitizers, loaded host).
const int kFreeWaitMs = 3000;

class IdleThread : public CThreadClass {
 public:
  IdleThread() : CThreadClass(nullptr, 1) {}
  ~IdleThread() override { Kill(-1); }
  int Thread() override { return 0; }
};

static_assert(!std::is_copy_constructible<CLocker>::value, "a CLocker copy would free its section twice");
static_assert(!std::is_copy_assignable<CLocker>::value, "a CLocker copy would free its section twice");

TEST(CLocker, ExcludesOtherThreadsAndReturnsZero) {
  CLocker locker;
  EXPECT_EQ(locker.Lock(), 0);
  Contender c([&] { locker.Lock(); }, [&] { locker.UnLock(); });
  SleepMs(kHeldCheckMs);
  EXPECT_FALSE(c.Got());
  EXPECT_EQ(locker.UnLock(), 0);
  EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
  c.Release();
  // Free again for this thread.
  EXPECT_EQ(locker.Lock(), 0);
  EXPECT_EQ(locker.UnLock(), 0);
}

TEST(CLocker, IsReentrantForTheOwningThread) {
  CLocker locker;
  locker.Lock();
  locker.Lock();  // a plain mutex would deadlock here
  Contender c([&] { locker.Lock(); }, [&] { locker.UnLock(); });
  locker.UnLock();
  SleepMs(kHeldCheckMs);
  EXPECT_FALSE(c.Got()) << "one UnLock must not release a section entered twice";
  locker.UnLock();
  EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
}

TEST(CAutoLocker, FromReferenceHoldsForItsScope) {
  CLocker locker;
  std::unique_ptr<Contender> c;
  {
    CAutoLocker guard(locker);
    c.reset(new Contender([&] { locker.Lock(); }, [&] { locker.UnLock(); }));
    SleepMs(kHeldCheckMs);
    EXPECT_FALSE(c->Got());
  }
  EXPECT_TRUE(c->WaitGot(kFreeWaitMs));
}

TEST(CAutoLocker, FromPointerHoldsForItsScope) {
  CLocker locker;
  std::unique_ptr<Contender> c;
  {
    CAutoLocker guard(&locker);
    c.reset(new Contender([&] { locker.Lock(); }, [&] { locker.UnLock(); }));
    SleepMs(kHeldCheckMs);
    EXPECT_FALSE(c->Got());
  }
  EXPECT_TRUE(c->WaitGot(kFreeWaitMs));
}

TEST(CAutoLocker, FromSectionHoldsForItsScope) {
  CRITICAL_SECTION cs;
  InitializeCriticalSection(&cs);
  {
    std::unique_ptr<Contender> c;
    {
      CAutoLocker guard(&cs);
      c.reset(new Contender([&] { EnterCriticalSection(&cs); }, [&] { LeaveCriticalSection(&cs); }));
      SleepMs(kHeldCheckMs);
      EXPECT_FALSE(c->Got());
    }
    EXPECT_TRUE(c->WaitGot(kFreeWaitMs));
  }
  DeleteCriticalSection(&cs);
}

TEST(CAutoLocker, NullLockerOrSectionDoesNothing) {
  {
    CAutoLocker a(static_cast<CLocker*>(nullptr));
    CAutoLocker b(static_cast<CRITICAL_SECTION*>(nullptr));
  }
  // A guard on a null locker must not touch some other lock either.
  CLocker other;
  {
    CAutoLocker a(static_cast<CLocker*>(nullptr));
    Contender c([&] { other.Lock(); }, [&] { other.UnLock(); });
    EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
  }
}

TEST(CAutoLocker, NestedGuardsOnOneLockerAreReentrant) {
  CLocker locker;
  std::unique_ptr<Contender> c;
  {
    CAutoLocker outer(locker);
    {
      CAutoLocker inner(&locker);
      CAutoLocker innermost(locker.Section());
    }
    // Still held by the outer guard.
    c.reset(new Contender([&] { locker.Lock(); }, [&] { locker.UnLock(); }));
    SleepMs(kHeldCheckMs);
    EXPECT_FALSE(c->Got());
  }
  EXPECT_TRUE(c->WaitGot(kFreeWaitMs));
}

TEST(CLocker, ManyThreadsCountUnderTheLock) {
  CLocker locker;
  long counter = 0;  // deliberately plain: only the lock protects it
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        CAutoLocker guard(locker);
        ++counter;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(counter, 80000);
}

TEST(NamedLock, NumberAndItsDecimalTextShareOneSection) {
  IdleThread obj;
  EXPECT_EQ(obj.Lock(7L), 0);
  {
    Contender c([&] { obj.Lock("7"); }, [&] { obj.UnLock("7"); });
    SleepMs(kHeldCheckMs);
    EXPECT_FALSE(c.Got()) << "Lock(\"7\") entered while Lock(7) was held";
    EXPECT_EQ(obj.UnLock(7L), 0);
    EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
  }
  // And the other way round, released through the text form.
  EXPECT_EQ(obj.Lock(std::string("7")), 0);
  {
    Contender c([&] { obj.Lock(7L); }, [&] { obj.UnLock(7L); });
    SleepMs(kHeldCheckMs);
    EXPECT_FALSE(c.Got()) << "Lock(7) entered while Lock(\"7\") was held";
    EXPECT_EQ(obj.UnLock("7"), 0);
    EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
  }
}

TEST(NamedLock, NegativeNumberUsesItsDecimalText) {
  IdleThread obj;
  obj.Lock(-5L);
  Contender c([&] { obj.Lock("-5"); }, [&] { obj.UnLock("-5"); });
  SleepMs(kHeldCheckMs);
  EXPECT_FALSE(c.Got());
  obj.UnLock(-5L);
  EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
}

TEST(NamedLock, DifferentNamesAreIndependent) {
  IdleThread obj;
  obj.Lock("a");
  {
    Contender c([&] { obj.Lock("b"); }, [&] { obj.UnLock("b"); });
    EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
  }
  obj.UnLock("a");
}

TEST(NamedLock, EachObjectHasItsOwnRegistry) {
  IdleThread one, two;
  one.Lock("shared");
  {
    Contender c([&] { two.Lock("shared"); }, [&] { two.UnLock("shared"); });
    EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
  }
  one.UnLock("shared");
}

TEST(NamedLock, IsReentrantForTheOwningThread) {
  IdleThread obj;
  obj.Lock("r");
  obj.Lock("r");
  Contender c([&] { obj.Lock("r"); }, [&] { obj.UnLock("r"); });
  obj.UnLock("r");
  SleepMs(kHeldCheckMs);
  EXPECT_FALSE(c.Got());
  obj.UnLock("r");
  EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
}

TEST(NamedLock, WaitingForASectionDoesNotBlockTheRegistry) {
  IdleThread obj;
  obj.Lock("held");
  Contender waiter([&] { obj.Lock("held"); }, [&] { obj.UnLock("held"); });
  SleepMs(100);  // the waiter is now blocked on "held"
  // Other names must still be usable meanwhile.
  Contender other(
      [&] {
        obj.Lock("free");
        obj.UnLock("free");
        obj.RemoveLock("free");
        obj.Lock(12L);
      },
      [&] { obj.UnLock(12L); });
  EXPECT_TRUE(other.WaitGot(kFreeWaitMs)) << "a thread waiting for one named lock blocked the others";
  EXPECT_FALSE(waiter.Got());
  obj.UnLock("held");
  EXPECT_TRUE(waiter.WaitGot(kFreeWaitMs));
}

TEST(NamedLock, UnknownNamesAndRemoval) {
  IdleThread obj;
  EXPECT_EQ(obj.UnLock("never"), 0);
  EXPECT_EQ(obj.UnLock(99L), 0);
  EXPECT_EQ(obj.RemoveLock("never"), 0);
  EXPECT_EQ(obj.RemoveLock(99L), 0);

  EXPECT_EQ(obj.Lock("gone"), 0);
  EXPECT_EQ(obj.UnLock("gone"), 0);
  EXPECT_EQ(obj.RemoveLock("gone"), 0);
  // Unlocking a removed name is a no-op; locking it again makes a fresh section.
  EXPECT_EQ(obj.UnLock("gone"), 0);
  EXPECT_EQ(obj.Lock("gone"), 0);
  Contender c([&] { obj.Lock("gone"); }, [&] { obj.UnLock("gone"); });
  SleepMs(kHeldCheckMs);
  EXPECT_FALSE(c.Got());
  EXPECT_EQ(obj.UnLock("gone"), 0);
  EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
  c.Release();
  EXPECT_EQ(obj.RemoveLock(7L), 0);
  EXPECT_EQ(obj.Lock(7L), 0);
  EXPECT_EQ(obj.UnLock(7L), 0);
  EXPECT_EQ(obj.RemoveLock(7L), 0);
}

TEST(NamedLock, NamesCompareBytewise) {
  IdleThread obj;
  obj.Lock("Name");
  {
    // A different case is a different lock.
    Contender c([&] { obj.Lock("name"); }, [&] { obj.UnLock("name"); });
    EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
  }
  {
    Contender c([&] { obj.Lock(std::string("Name\0x", 6)); }, [&] { obj.UnLock(std::string("Name\0x", 6)); });
    EXPECT_TRUE(c.WaitGot(kFreeWaitMs));
  }
  obj.UnLock("Name");
}

}  // namespace
