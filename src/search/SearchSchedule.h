// When the worker repeats its search request: first at once, then after a wait that grows
// by 5 s per request (2, 7, 12, ... seconds, capped at 300), measured on the whole-second
// wall clock with a strict comparison.
#ifndef QXNET_SEARCH_SEARCHSCHEDULE_H
#define QXNET_SEARCH_SEARCHSCHEDULE_H

#include <cstdint>

class CResendSchedule {
 public:
  enum { kFirstInterval = 2, kStep = 5, kMaxInterval = 300 };
  CResendSchedule() { Reset(); }
  void Reset() {
    m_interval = kFirstInterval;
    m_last = 0;
  }
  bool Due(uint32_t nowSec) const { return nowSec - m_last > m_interval; }
  void Sent(uint32_t nowSec) {
    m_last = nowSec;
    const uint32_t next = m_interval + kStep;
    m_interval = next > static_cast<uint32_t>(kMaxInterval) ? static_cast<uint32_t>(kMaxInterval) : next;
  }
  // Milliseconds until Due turns true, for a clock now at nowMs (0 when already due).
  int64_t MsUntilDue(int64_t nowMs) const {
    int64_t dueMs = (static_cast<int64_t>(m_last) + m_interval + 1) * 1000;
    if (Due(static_cast<uint32_t>(nowMs / 1000)) || dueMs <= nowMs) return 0;
    return dueMs - nowMs;
  }
  uint32_t Interval() const { return m_interval; }

 private:
  uint32_t m_interval;
  uint32_t m_last;
};

#endif
