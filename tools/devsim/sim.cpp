// Event loop and socket plumbing of the simulator.
#include "sim.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

namespace devsim {

namespace {

// epoll user data: kind in the top byte, an index or id below.
enum : uint64_t { kListen = 1, kConn = 2, kCtlListen = 3, kCtl = 4, kSignal = 5 };
uint64_t tag(uint64_t kind, uint64_t v) { return (kind << 56) | v; }

bool parseAddr(const std::string& host, uint16_t port, sockaddr_in& sa) {
  memset(&sa, 0, sizeof sa);
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  return inet_pton(AF_INET, host.c_str(), &sa.sin_addr) == 1;
}

int listenOn(const std::string& host, uint16_t port, uint16_t& bound, std::string& err) {
  sockaddr_in sa;
  if (!parseAddr(host, port, sa)) {
    err = "bad address " + host;
    return -1;
  }
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    err = std::string("socket: ") + strerror(errno);
    return -1;
  }
  int one = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) < 0 || listen(fd, 1024) < 0) {
    err = std::string("bind/listen ") + host + ":" + std::to_string(port) + ": " + strerror(errno);
    close(fd);
    return -1;
  }
  socklen_t len = sizeof sa;
  getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len);
  bound = ntohs(sa.sin_port);
  return fd;
}

}  // namespace

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

int Sim::setup() {
  epfd_ = epoll_create1(EPOLL_CLOEXEC);
  if (epfd_ < 0) {
    logf(LogLevel::Quiet, "epoll_create1: %s", strerror(errno));
    return 1;
  }

  // Signals arrive through a descriptor so the loop stays single-threaded.
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  sigaddset(&mask, SIGINT);
  sigaddset(&mask, SIGHUP);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  sigfd_ = signalfd(-1, &mask, SFD_NONBLOCK | SFD_CLOEXEC);
  if (sigfd_ >= 0) {
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.u64 = tag(kSignal, 0);
    epoll_ctl(epfd_, EPOLL_CTL_ADD, sigfd_, &ev);
  }
  signal(SIGPIPE, SIG_IGN);

  devices_.resize(static_cast<size_t>(opt_.devices));
  for (int i = 0; i < opt_.devices; ++i) {
    Device& d = devices_[static_cast<size_t>(i)];
    d.index = i;
    d.host = opt_.listenHost;
    // With a fixed base port the devices take consecutive ports.
    d.port = opt_.listenPort ? static_cast<uint16_t>(opt_.listenPort + i) : 0;
    d.s.maxChannels = opt_.maxChannels;
    d.s.authRefusal = opt_.authRefusal;
    if (opt_.accounts.empty()) {
      d.accounts["admin"] = "admin";
    } else {
      for (auto& a : opt_.accounts) d.accounts[a.first] = a.second;
    }
    if (!openListener(d)) return 1;
  }

  if (opt_.controlPort >= 0) {
    std::string err;
    controlFd_ = listenOn(opt_.controlHost, static_cast<uint16_t>(opt_.controlPort), controlPort_, err);
    if (controlFd_ < 0) {
      logf(LogLevel::Quiet, "control channel: %s", err.c_str());
      return 1;
    }
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.u64 = tag(kCtlListen, 0);
    epoll_ctl(epfd_, EPOLL_CTL_ADD, controlFd_, &ev);
  }

  if (!opt_.script.empty()) {
    std::ifstream f(opt_.script);
    if (!f) {
      logf(LogLevel::Quiet, "cannot read script %s", opt_.script.c_str());
      return 2;
    }
    std::string line;
    int n = 0;
    while (std::getline(f, line)) {
      ++n;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      size_t p = line.find_first_not_of(" \t");
      if (p == std::string::npos || line[p] == '#') continue;
      std::string reply = command(line, nullptr);
      logf(LogLevel::Verbose, "script:%d %s -> %s", n, line.c_str(), reply.c_str());
      if (reply.compare(0, 2, "OK") != 0) {
        logf(LogLevel::Quiet, "script %s:%d: %s: %s", opt_.script.c_str(), n, line.c_str(),
             reply.c_str());
        return 2;
      }
      if (quit_) break;
    }
  }

  if (!opt_.portFile.empty() && !writePortFile()) return 1;
  std::string ports;
  for (auto& d : devices_) ports += " " + std::to_string(d.port);
  logf(LogLevel::Normal, "listening on %s, device ports:%s, control port %u", opt_.listenHost.c_str(),
       ports.c_str(), controlPort_);
  return 0;
}

bool Sim::writePortFile() {
  // Written to a temporary name then renamed, so a reader never sees half a file.
  std::ostringstream o;
  o << "pid " << getpid() << "\n";
  o << "control " << controlPort_ << "\n";
  for (auto& d : devices_) o << "device " << d.index << " " << d.port << "\n";
  o << "ports";
  for (auto& d : devices_) o << " " << d.port;
  o << "\n";
  std::string tmp = opt_.portFile + ".tmp";
  {
    std::ofstream f(tmp, std::ios::trunc);
    if (!f) {
      logf(LogLevel::Quiet, "cannot write %s", tmp.c_str());
      return false;
    }
    f << o.str();
    f.flush();
    if (!f) return false;
  }
  if (rename(tmp.c_str(), opt_.portFile.c_str()) != 0) {
    logf(LogLevel::Quiet, "rename %s: %s", tmp.c_str(), strerror(errno));
    return false;
  }
  return true;
}

bool Sim::openListener(Device& d) {
  std::string err;
  uint16_t bound = 0;
  int fd = listenOn(d.host, d.port, bound, err);
  if (fd < 0) {
    logf(LogLevel::Quiet, "device %d: %s", d.index, err.c_str());
    return false;
  }
  d.listenFd = fd;
  d.port = bound;
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = tag(kListen, static_cast<uint64_t>(d.index));
  epoll_ctl(epfd_, EPOLL_CTL_ADD, fd, &ev);
  return true;
}

void Sim::closeListener(Device& d) {
  if (d.listenFd < 0) return;
  epoll_ctl(epfd_, EPOLL_CTL_DEL, d.listenFd, nullptr);
  close(d.listenFd);
  d.listenFd = -1;
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

void Sim::onAccept(Device& d) {
  for (;;) {
    sockaddr_in sa;
    socklen_t len = sizeof sa;
    int fd = accept4(d.listenFd, reinterpret_cast<sockaddr*>(&sa), &len, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return;
      if (errno == EMFILE || errno == ENFILE) {
        // Out of descriptors: stop watching the listener for a moment rather than spin.
        logf(LogLevel::Normal, "device %d: accept: %s", d.index, strerror(errno));
        epoll_ctl(epfd_, EPOLL_CTL_DEL, d.listenFd, nullptr);
        int idx = d.index;
        addTimer(nowMs() + 100, [this, idx]() {
          Device& dv = devices_[static_cast<size_t>(idx)];
          if (dv.listenFd < 0) return;
          epoll_event ev{};
          ev.events = EPOLLIN;
          ev.data.u64 = tag(kListen, static_cast<uint64_t>(idx));
          epoll_ctl(epfd_, EPOLL_CTL_ADD, dv.listenFd, &ev);
        });
      }
      return;
    }
    int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    auto c = std::make_unique<Conn>();
    c->id = nextConnId_++;
    c->fd = fd;
    c->dev = d.index;
    char ip[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &sa.sin_addr, ip, sizeof ip);
    c->peer = std::string(ip) + ":" + std::to_string(ntohs(sa.sin_port));
    c->openedMs = nowMs();
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLRDHUP;
    ev.data.u64 = tag(kConn, static_cast<uint64_t>(c->id));
    epoll_ctl(epfd_, EPOLL_CTL_ADD, fd, &ev);
    lastConnId_ = c->id;
    connDev_[c->id] = d.index;
    fdToConn_[fd] = c->id;
    bump("connections_accepted");
    logf(LogLevel::Verbose, "device %d: connection %d from %s", d.index, c->id, c->peer.c_str());
    conns_[c->id] = std::move(c);
  }
}

void Sim::onConnReadable(Conn& c) {
  char buf[65536];
  for (int rounds = 0; rounds < 64 && !c.closed; ++rounds) {
    ssize_t n = recv(c.fd, buf, sizeof buf, 0);
    if (n > 0) {
      c.rxBytes += n;
      c.in.append(buf, static_cast<size_t>(n));
      continue;
    }
    if (n == 0) {
      parseFrames(c);
      if (c.closed) return;
      if (c.out.empty()) {
        closeConn(c, false, "peer closed");
      } else {
        // Half-closed: deliver what is queued (answers, download data), then close.
        c.peerClosed = true;
        updateConnEvents(c);
        sendRaw(c, std::string(), 0, true, false);
      }
      return;
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) break;
    if (errno == EINTR) continue;
    closeConn(c, false, std::string("recv: ") + strerror(errno));
    return;
  }
  parseFrames(c);
}

void Sim::sendRaw(Conn& c, const std::string& bytes, int delayMs, bool closeAfter, bool rst) {
  if (c.closed) return;
  Segment s;
  s.data = bytes;
  s.delayMs = delayMs;
  s.closeAfter = closeAfter;
  s.rst = rst;
  c.out.push_back(std::move(s));
  flushConn(c);
}

void Sim::flushConn(Conn& c) {
  while (!c.closed && !c.out.empty()) {
    Segment& s = c.out.front();
    int64_t now = nowMs();
    if (s.due < 0) s.due = now + s.delayMs;
    if (s.due > now) {
      if (!c.timerArmed) {
        c.timerArmed = true;
        int id = c.id;
        addTimer(s.due, [this, id]() {
          Conn* cc = findConn(id);
          if (!cc) return;
          cc->timerArmed = false;
          flushConn(*cc);
        });
      }
      break;
    }
    while (s.off < s.data.size()) {
      ssize_t n = send(c.fd, s.data.data() + s.off, s.data.size() - s.off, MSG_NOSIGNAL);
      if (n > 0) {
        s.off += static_cast<size_t>(n);
        c.txBytes += n;
        continue;
      }
      if (n < 0 && errno == EINTR) continue;
      if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        c.wantOut = true;
        updateConnEvents(c);
        return;
      }
      closeConn(c, false, std::string("send: ") + strerror(errno));
      return;
    }
    bool closeAfter = s.closeAfter, rst = s.rst;
    c.out.pop_front();
    if (closeAfter) {
      closeConn(c, rst, "closed after write");
      return;
    }
  }
  if (c.wantOut) {
    c.wantOut = false;
    updateConnEvents(c);
  }
}

void Sim::updateConnEvents(Conn& c) {
  if (c.closed) return;
  epoll_event ev{};
  ev.events = (c.peerClosed ? 0u : static_cast<uint32_t>(EPOLLIN | EPOLLRDHUP)) |
              (c.wantOut ? static_cast<uint32_t>(EPOLLOUT) : 0u);
  ev.data.u64 = tag(kConn, static_cast<uint64_t>(c.id));
  epoll_ctl(epfd_, EPOLL_CTL_MOD, c.fd, &ev);
}

void Sim::closeConn(Conn& c, bool rst, const std::string& why) {
  if (c.closed) return;
  c.closed = true;
  if (c.upload && c.upload->state == "active") {
    c.upload->errors.push_back("connection closed during upload");
    finishUpload(c, devices_[static_cast<size_t>(c.dev)], "abandoned");
  } else if (c.upload && c.upload->state == "waiting") {
    finishUpload(c, devices_[static_cast<size_t>(c.dev)], "abandoned");
  }
  if (rst) {
    linger lg{1, 0};
    setsockopt(c.fd, SOL_SOCKET, SO_LINGER, &lg, sizeof lg);
  }
  epoll_ctl(epfd_, EPOLL_CTL_DEL, c.fd, nullptr);
  fdToConn_.erase(c.fd);
  close(c.fd);
  c.fd = -1;
  c.out.clear();
  bump("connections_closed");
  logf(LogLevel::Verbose, "connection %d closed (%s)", c.id, why.c_str());
}

void Sim::reapClosed() {
  for (auto it = conns_.begin(); it != conns_.end();) {
    if (it->second->closed)
      it = conns_.erase(it);
    else
      ++it;
  }
  for (auto it = controls_.begin(); it != controls_.end();) {
    if (it->second->closed)
      it = controls_.erase(it);
    else
      ++it;
  }
}

Conn* Sim::findConn(int id) {
  auto it = conns_.find(id);
  if (it == conns_.end() || it->second->closed) return nullptr;
  return it->second.get();
}

void Sim::onControlAccept() {
  for (;;) {
    int fd = accept4(controlFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    auto cc = std::make_unique<ControlClient>();
    cc->fd = fd;
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLRDHUP;
    ev.data.u64 = tag(kCtl, static_cast<uint64_t>(fd));
    epoll_ctl(epfd_, EPOLL_CTL_ADD, fd, &ev);
    controls_[fd] = std::move(cc);
  }
}

void Sim::onControlReadable(ControlClient& cc) {
  char buf[16384];
  for (;;) {
    ssize_t n = recv(cc.fd, buf, sizeof buf, 0);
    if (n > 0) {
      cc.in.append(buf, static_cast<size_t>(n));
      if (cc.in.size() > (64u << 20)) {
        cc.closeAfterFlush = true;  // a control line this long is a broken client
        break;
      }
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    // Peer closed: still answer what it sent, then close.
    cc.closeAfterFlush = true;
    break;
  }
  processControl(cc);
}

void Sim::processControl(ControlClient& cc) {
  while (!cc.closed && !cc.waitCheck && !quit_) {
    size_t nl = cc.in.find('\n');
    if (nl == std::string::npos) break;
    std::string line = cc.in.substr(0, nl);
    cc.in.erase(0, nl + 1);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    std::string reply = command(line, &cc);
    if (cc.waitCheck) break;  // reply comes when the wait ends
    cc.out += reply + "\n";
  }
  flushControl(cc);
}

void Sim::flushControl(ControlClient& cc) {
  while (!cc.closed && !cc.out.empty()) {
    ssize_t n = send(cc.fd, cc.out.data(), cc.out.size(), MSG_NOSIGNAL);
    if (n > 0) {
      cc.out.erase(0, static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    cc.closeAfterFlush = true;
    cc.out.clear();
    break;
  }
  bool wantOut = !cc.out.empty();
  if (!cc.closed) {
    if (cc.closeAfterFlush && !wantOut && !cc.waitCheck) {
      epoll_ctl(epfd_, EPOLL_CTL_DEL, cc.fd, nullptr);
      close(cc.fd);
      cc.fd = -1;
      cc.closed = true;
      return;
    }
    epoll_event ev{};
    ev.events = (cc.closeAfterFlush ? 0u : static_cast<uint32_t>(EPOLLIN | EPOLLRDHUP)) |
                (wantOut ? static_cast<uint32_t>(EPOLLOUT) : 0u);
    ev.data.u64 = tag(kCtl, static_cast<uint64_t>(cc.fd));
    epoll_ctl(epfd_, EPOLL_CTL_MOD, cc.fd, &ev);
  }
}

void Sim::checkWaits() {
  int64_t now = nowMs();
  for (auto& kv : controls_) {
    ControlClient& cc = *kv.second;
    if (cc.closed || !cc.waitCheck) continue;
    std::string reply;
    bool done = cc.waitCheck(reply);
    if (!done && now >= cc.waitDeadline) {
      reply = cc.waitOnTimeout ? cc.waitOnTimeout() : "ERR timeout";
      done = true;
    }
    if (!done) continue;
    cc.waitCheck = nullptr;
    cc.waitOnTimeout = nullptr;
    cc.out += reply + "\n";
    processControl(cc);  // lines that queued up behind the wait
  }
}

int Sim::run() {
  std::vector<epoll_event> evs(256);
  while (!quit_) {
    int64_t now = nowMs();
    int64_t wake = nextTimer();
    for (auto& kv : controls_)
      if (kv.second->waitCheck && (wake < 0 || kv.second->waitDeadline < wake))
        wake = kv.second->waitDeadline;
    int timeout = 1000;
    if (wake >= 0) timeout = static_cast<int>(std::max<int64_t>(0, std::min<int64_t>(wake - now, 1000)));
    int n = epoll_wait(epfd_, evs.data(), static_cast<int>(evs.size()), timeout);
    if (n < 0 && errno != EINTR) {
      logf(LogLevel::Quiet, "epoll_wait: %s", strerror(errno));
      return 1;
    }
    for (int i = 0; i < n; ++i) {
      uint64_t kind = evs[static_cast<size_t>(i)].data.u64 >> 56;
      uint64_t v = evs[static_cast<size_t>(i)].data.u64 & ((1ull << 56) - 1);
      uint32_t e = evs[static_cast<size_t>(i)].events;
      switch (kind) {
        case kListen:
          if (v < devices_.size() && devices_[v].listenFd >= 0) onAccept(devices_[v]);
          break;
        case kConn: {
          Conn* c = findConn(static_cast<int>(v));
          if (!c) break;
          if (c->peerClosed) {
            if (e & (EPOLLHUP | EPOLLERR)) closeConn(*c, false, "peer gone");
          } else if (e & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) {
            onConnReadable(*c);
          }
          if (!c->closed && (e & EPOLLOUT)) flushConn(*c);
          break;
        }
        case kCtlListen: onControlAccept(); break;
        case kCtl: {
          auto it = controls_.find(static_cast<int>(v));
          if (it == controls_.end() || it->second->closed) break;
          if (e & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) onControlReadable(*it->second);
          else if (e & EPOLLOUT) flushControl(*it->second);
          break;
        }
        case kSignal: {
          signalfd_siginfo si;
          while (read(sigfd_, &si, sizeof si) == static_cast<ssize_t>(sizeof si)) {
            logf(LogLevel::Normal, "signal %u, stopping", si.ssi_signo);
            quit_ = true;
          }
          break;
        }
        default: break;
      }
    }
    runTimers();
    checkWaits();
    reapClosed();
  }
  // Deliver pending control replies (the QUIT answer in particular) before leaving.
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
  logf(LogLevel::Verbose, "stopped");
  return exitCode_;
}

}  // namespace devsim
