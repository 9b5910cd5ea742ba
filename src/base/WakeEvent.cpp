#include "base/WakeEvent.h"

#include "base/SDKSocket.h"

#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

CWakeEvent::CWakeEvent() : m_fd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

CWakeEvent::~CWakeEvent() {
  if (m_fd >= 0) close(m_fd);
}

void CWakeEvent::Signal() {
  if (m_fd < 0) return;
  uint64_t one = 1;
  ssize_t n;
  do {
    n = write(m_fd, &one, sizeof(one));
  } while (n < 0 && errno == EINTR);
}

void CWakeEvent::Drain() {
  if (m_fd < 0) return;
  uint64_t value;
  ssize_t n;
  do {
    n = read(m_fd, &value, sizeof(value));
  } while (n < 0 && errno == EINTR);
}

bool CWakeEvent::Wait(int timeoutMs) {
  if (m_fd < 0) {
    // Without a descriptor nothing can wake the sleeper early: sleep in short steps so a
    // caller that re-checks its flags still reacts within 10 ms.
    usleep(static_cast<useconds_t>((timeoutMs < 0 || timeoutMs > 10 ? 10 : timeoutMs) * 1000));
    return false;
  }
  short revents;
  if (PollOne(m_fd, POLLIN, timeoutMs, &revents) <= 0) return false;
  Drain();
  return true;
}
