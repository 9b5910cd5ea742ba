// The event loop of the simulator: one epoll wait, the descriptors' events,
// timers, parked control clients, and the clean-up of closed connections.
#include "sim.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "epoll_tag.h"

namespace devsim {

int64_t nowMs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

Sim::Sim(const Options& o) : opt_(o) {}

Sim::~Sim() {
  for (auto& kv : conns_)
    if (kv.second->fd >= 0) close(kv.second->fd);
  for (auto& kv : controls_)
    if (kv.second->fd >= 0) close(kv.second->fd);
  for (auto& d : devices_)
    if (d.listenFd >= 0) close(d.listenFd);
  if (controlFd_ >= 0) close(controlFd_);
  if (sigfd_ >= 0) close(sigfd_);
  if (epfd_ >= 0) close(epfd_);
}

void Sim::logf(LogLevel lvl, const char* fmt, ...) {
  if (static_cast<int>(lvl) > static_cast<int>(opt_.log)) return;
  char buf[2048];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  fprintf(stderr, "qxdevsim: %s\n", buf);
}

void Sim::addTimer(int64_t at, std::function<void()> fn) { timers_.emplace(at, std::move(fn)); }

int64_t Sim::nextTimer() const { return timers_.empty() ? -1 : timers_.begin()->first; }

void Sim::runTimers() {
  int64_t now = nowMs();
  while (!timers_.empty() && timers_.begin()->first <= now) {
    auto fn = std::move(timers_.begin()->second);
    timers_.erase(timers_.begin());
    fn();
  }
}

// Only the connections closed since the last turn are looked up: a scan of all of them
// on every turn made each of 10,000 one-by-one logouts cost the simulator ~0.5 ms.
void Sim::reapClosed() {
  for (int id : closedConns_) {
    auto it = conns_.find(id);
    if (it != conns_.end() && it->second->closed) conns_.erase(it);
  }
  closedConns_.clear();
  for (auto it = controls_.begin(); it != controls_.end();) {
    if (it->second->closed)
      it = controls_.erase(it);
    else
      ++it;
  }
}

// Milliseconds epoll may sleep: until the next timer or wait deadline, at most a second.
int Sim::loopTimeout() const {
  int64_t wake = nextTimer();
  for (auto& kv : controls_)
    if (kv.second->waitCheck && (wake < 0 || kv.second->waitDeadline < wake)) wake = kv.second->waitDeadline;
  if (wake < 0) return 1000;
  return static_cast<int>(std::max<int64_t>(0, std::min<int64_t>(wake - nowMs(), 1000)));
}

void Sim::onConnEvent(int id, uint32_t e) {
  Conn* c = findConn(id);
  if (!c || c->stalled) return;  // a stall began earlier in this batch
  if (c->peerClosed) {
    if (e & (EPOLLHUP | EPOLLERR)) closeConn(*c, false, "peer gone");
  } else if (e & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) {
    onConnReadable(*c);
  }
  if (!c->closed && (e & EPOLLOUT)) flushConn(*c);
}

void Sim::onSignal() {
  signalfd_siginfo si;
  while (read(sigfd_, &si, sizeof si) == static_cast<ssize_t>(sizeof si)) {
    logf(LogLevel::Normal, "signal %u, stopping", si.ssi_signo);
    quit_ = true;
  }
}

void Sim::dispatch(const epoll_event& ev) {
  uint64_t v = epollValue(ev.data.u64);
  switch (epollKind(ev.data.u64)) {
    case kListen:
      if (v < devices_.size() && devices_[v].listenFd >= 0) onAccept(devices_[v]);
      break;
    case kConn: onConnEvent(static_cast<int>(v), ev.events); break;
    case kCtlListen: onControlAccept(); break;
    case kCtl: {
      auto it = controls_.find(static_cast<int>(v));
      if (it == controls_.end() || it->second->closed) break;
      if (ev.events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) onControlReadable(*it->second);
      else if (ev.events & EPOLLOUT) flushControl(*it->second);
      break;
    }
    case kSignal: onSignal(); break;
    case kLan: lan_->onReadable(); break;
    default: break;
  }
}

int Sim::run() {
  std::vector<epoll_event> evs(256);
  while (!quit_) {
    int n = epoll_wait(epfd_, evs.data(), static_cast<int>(evs.size()), loopTimeout());
    if (n < 0 && errno != EINTR) {
      logf(LogLevel::Quiet, "epoll_wait: %s", strerror(errno));
      return 1;
    }
    for (int i = 0; i < n; ++i) dispatch(evs[static_cast<size_t>(i)]);
    runTimers();
    checkWaits();
    reapClosed();
  }
  flushControlsOnExit();
  logf(LogLevel::Verbose, "stopped");
  return exitCode_;
}

// Deliver pending control replies (the QUIT answer in particular) before leaving.
void Sim::flushControlsOnExit() {
  int64_t until = nowMs() + 500;
  for (auto& kv : controls_) {
    ControlClient& cc = *kv.second;
    if (cc.closed) continue;
    int fl = fcntl(cc.fd, F_GETFL, 0);
    if (fl >= 0) fcntl(cc.fd, F_SETFL, fl & ~O_NONBLOCK);
    timeval tv{0, 200000};
    setsockopt(cc.fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    while (!cc.out.empty() && nowMs() < until) {
      ssize_t w = send(cc.fd, cc.out.data(), cc.out.size(), MSG_NOSIGNAL);
      if (w <= 0) break;
      cc.out.erase(0, static_cast<size_t>(w));
    }
  }
}

}  // namespace devsim
