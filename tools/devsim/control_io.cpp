// Control-channel clients: accepting, reading lines, writing replies, and the
// clients parked in a WAIT command.
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "epoll_tag.h"
#include "sim.h"

namespace devsim {

void Sim::onControlAccept() {
  for (;;) {
    int fd = accept4(controlFd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) return;
    auto cc = std::make_unique<ControlClient>();
    cc->fd = fd;
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLRDHUP;
    ev.data.u64 = epollTag(kCtl, static_cast<uint64_t>(fd));
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
    ev.data.u64 = epollTag(kCtl, static_cast<uint64_t>(cc.fd));
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

}  // namespace devsim
