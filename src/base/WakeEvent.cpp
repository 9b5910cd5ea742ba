#include "base/WakeEvent.h"

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
  struct pollfd p;
  p.fd = m_fd;
  p.events = POLLIN;
  p.revents = 0;
  int rc;
  do {
    rc = poll(&p, 1, timeoutMs);
  } while (rc < 0 && errno == EINTR);
  if (rc <= 0) return false;
  Drain();
  return true;
}
