// Device connections: accepting, reading, the queue of outgoing pieces, closing.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "epoll_tag.h"
#include "sim.h"

namespace devsim {

void Sim::onAccept(Device& d) {
  for (;;) {
    sockaddr_in sa;
    socklen_t len = sizeof sa;
    int fd = accept4(d.listenFd, reinterpret_cast<sockaddr*>(&sa), &len, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd >= 0) {
      addConn(d, fd, sa);
      continue;
    }
    if (errno == EMFILE || errno == ENFILE) pauseAccept(d);
    return;  // EAGAIN: all accepted
  }
}

// Out of descriptors: stop watching the listener for a moment rather than spin.
void Sim::pauseAccept(Device& d) {
  logf(LogLevel::Normal, "device %d: accept: %s", d.index, strerror(errno));
  epoll_ctl(epfd_, EPOLL_CTL_DEL, d.listenFd, nullptr);
  int idx = d.index;
  addTimer(nowMs() + 100, [this, idx]() {
    Device& dv = devices_[static_cast<size_t>(idx)];
    if (dv.listenFd < 0) return;
    epoll_event ev{};
    ev.events = EPOLLIN;
    ev.data.u64 = epollTag(kListen, static_cast<uint64_t>(idx));
    epoll_ctl(epfd_, EPOLL_CTL_ADD, dv.listenFd, &ev);
  });
}

void Sim::addConn(Device& d, int fd, const sockaddr_in& sa) {
  if (openConns_ >= opt_.maxConns) {
    // Over --max-conns: keep the descriptors the control channel needs.
    close(fd);
    bump("connections_refused");
    return;
  }
  ++openConns_;
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
  ev.data.u64 = epollTag(kConn, static_cast<uint64_t>(c->id));
  epoll_ctl(epfd_, EPOLL_CTL_ADD, fd, &ev);
  lastConnId_ = c->id;
  d.connIds.insert(c->id);
  connDev_[c->id] = d.index;
  fdToConn_[fd] = c->id;
  bump("connections_accepted");
  logf(LogLevel::Verbose, "device %d: connection %d from %s", d.index, c->id, c->peer.c_str());
  conns_[c->id] = std::move(c);
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
      onPeerClosed(c);
      return;
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) break;
    if (errno == EINTR) continue;
    // A reset comes after the bytes that preceded it: those frames still count
    // (the last chunks of an upload, say), though no answer can reach the peer.
    c.peerGone = true;
    c.goneWhy = std::string("recv: ") + strerror(errno);
    parseFrames(c);
    return;
  }
  parseFrames(c);
}

// The peer sent its FIN: every complete frame still counts; then close once
// what is queued has gone out.
void Sim::onPeerClosed(Conn& c) {
  parseFrames(c);
  if (c.closed) return;
  if (c.out.empty()) {
    closeConn(c, false, "peer closed");
    return;
  }
  // Half-closed: deliver what is queued (answers, download data), then close.
  c.peerClosed = true;
  updateConnEvents(c);
  sendRaw(c, std::string(), 0, true, false);
}

void Sim::sendRaw(Conn& c, const std::string& bytes, int delayMs, bool closeAfter, bool rst, bool midFrame) {
  if (c.closed || c.peerGone) return;
  Segment s;
  s.data = bytes;
  s.delayMs = delayMs;
  s.closeAfter = closeAfter;
  s.rst = rst;
  s.midFrame = midFrame;
  c.out.push_back(std::move(s));
  flushConn(c);
}

void Sim::sendPaced(Conn& c, const std::string& pattern, size_t total, int paceMs) {
  if (c.closed || c.peerGone || pattern.empty() || total == 0) return;
  Segment s;
  s.data = pattern;
  s.paceMs = std::max(1, paceMs);
  s.total = total;
  c.out.push_back(std::move(s));
  flushConn(c);
}

// Arms the connection's timer for a piece that is not due yet.
void Sim::armFlushTimer(Conn& c, int64_t due) {
  if (c.timerArmed) return;
  c.timerArmed = true;
  int id = c.id;
  addTimer(due, [this, id]() {
    Conn* cc = findConn(id);
    if (!cc) return;
    cc->timerArmed = false;
    flushConn(*cc);
  });
}

// Writes the head piece: All when it is out, Later when a paced piece has its
// next byte due, Blocked when the socket is full or the connection closed.
Sim::Wrote Sim::writeSegment(Conn& c, Segment& s) {
  if (s.paceMs > 0) return writePaced(c, s);
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
      return Wrote::Blocked;
    }
    sendFailed(c, std::string("send: ") + strerror(errno));
    return Wrote::Blocked;
  }
  return Wrote::All;
}

// One byte of a paced piece (TRICKLE); the next one falls due paceMs later.
Sim::Wrote Sim::writePaced(Conn& c, Segment& s) {
  char b = s.data[s.off % s.data.size()];
  ssize_t n = send(c.fd, &b, 1, MSG_NOSIGNAL);
  if (n == 1) {
    ++s.off;
    ++c.txBytes;
    bump("trickle_bytes");
    if (s.off >= s.total) return Wrote::All;
    s.due = nowMs() + s.paceMs;
    return Wrote::Later;
  }
  if (n < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK)) {
    c.wantOut = true;
    updateConnEvents(c);
    return Wrote::Blocked;
  }
  sendFailed(c, std::string("send: ") + strerror(errno));
  return Wrote::Blocked;
}

// The peer is gone. While its frames are being handled the close waits for the
// last of them (an upload's final chunks still count); nothing more is sent.
void Sim::sendFailed(Conn& c, const std::string& why) {
  if (!c.parsing) {
    closeConn(c, false, why);
    return;
  }
  c.peerGone = true;
  c.goneWhy = why;
  c.out.clear();
}

void Sim::flushConn(Conn& c) {
  if (c.stalled) return;  // resumeConn flushes
  // A recorder stream refills the queue whenever it runs dry.
  while (!c.closed && (!c.out.empty() || (c.rec && pumpRecorder(c)))) {
    Segment& s = c.out.front();
    int64_t now = nowMs();
    if (s.due < 0) s.due = now + s.delayMs;
    if (s.due > now) {
      armFlushTimer(c, s.due);
      break;
    }
    Wrote w = writeSegment(c, s);
    if (w == Wrote::Blocked) return;
    if (w == Wrote::Later) continue;
    bool closeAfter = s.closeAfter, rst = s.rst;
    c.midFrameOut = s.midFrame;
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
  if (c.stalled) {
    // Out of the epoll set: a stalled connection must not wake the loop, not even
    // with a hang-up, which epoll reports whatever the mask.
    if (c.watched) epoll_ctl(epfd_, EPOLL_CTL_DEL, c.fd, nullptr);
    c.watched = false;
    return;
  }
  epoll_event ev{};
  ev.events = (c.peerClosed ? 0u : static_cast<uint32_t>(EPOLLIN | EPOLLRDHUP)) |
              (c.wantOut ? static_cast<uint32_t>(EPOLLOUT) : 0u);
  ev.data.u64 = epollTag(kConn, static_cast<uint64_t>(c.id));
  epoll_ctl(epfd_, c.watched ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, c.fd, &ev);
  c.watched = true;
}

void Sim::stallConn(Conn& c, long long ms) {
  int64_t until = nowMs() + std::max<long long>(0, ms);
  if (c.stalled && until <= c.stalledUntil) return;
  c.stalled = true;
  c.stalledUntil = until;
  updateConnEvents(c);
  int id = c.id;
  addTimer(until, [this, id]() {
    Conn* cc = findConn(id);
    if (cc && cc->stalled && nowMs() >= cc->stalledUntil) resumeConn(*cc);
  });
}

void Sim::resumeConn(Conn& c) {
  c.stalled = false;
  c.wantOut = !c.out.empty();  // written when the socket can take it
  updateConnEvents(c);
  flushConn(c);
}

// n filler bytes where a frame ends: before the first queued piece that starts
// at a frame boundary, or at the end. False when the connection is closing.
bool Sim::insertFiller(Conn& c, size_t n) {
  auto at = c.out.begin();
  bool headStarted = !c.out.empty() && c.out.front().off > 0;
  if (headStarted || (!c.out.empty() && c.midFrameOut)) {
    // Behind the piece that finishes the frame in progress.
    while (std::next(at) != c.out.end() && at->midFrame) ++at;
    if (at->midFrame || at->closeAfter) return false;
    ++at;
  }
  Segment s;
  s.data.assign(n, '\x5a');
  c.out.insert(at, std::move(s));
  flushConn(c);
  return true;
}

void Sim::closeConn(Conn& c, bool rst, const std::string& why) {
  if (c.closed) return;
  c.closed = true;
  closedConns_.push_back(c.id);
  --openConns_;
  Device& d = devices_[static_cast<size_t>(c.dev)];
  d.connIds.erase(c.id);
  if (c.upload) endUploadOnClose(c, d);
  if (c.rec) recEnd(c, "closed");
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

Conn* Sim::findConn(int id) {
  auto it = conns_.find(id);
  if (it == conns_.end() || it->second->closed) return nullptr;
  return it->second.get();
}

}  // namespace devsim
