// A wake signal a thread can wait on together with a socket: an eventfd that other threads
// signal (a request queued, a stop). Waiting never spins: an idle waiter costs nothing.
#ifndef QXNET_BASE_WAKEEVENT_H
#define QXNET_BASE_WAKEEVENT_H

class CWakeEvent {
 public:
  CWakeEvent();
  ~CWakeEvent();
  CWakeEvent(const CWakeEvent&) = delete;
  CWakeEvent& operator=(const CWakeEvent&) = delete;

  // Wakes the waiter (now or at its next wait). Safe from any thread.
  void Signal();
  // Waits up to timeoutMs (negative: no limit) for a signal and consumes it; true when
  // signalled, false on timeout.
  bool Wait(int timeoutMs);
  // Consumes a pending signal without waiting.
  void Drain();
  // The descriptor to poll for readability beside a socket; -1 when it could not be made
  // (then Wait falls back to sleeping in short steps).
  int Fd() const { return m_fd; }

 private:
  int m_fd;
};

#endif
