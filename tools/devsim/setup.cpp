// Start-up of the simulator: signals, the devices' listeners, the control
// channel, the start script and the port file.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "epoll_tag.h"
#include "sim.h"

namespace devsim {

namespace {

bool parseAddr(const std::string& host, uint16_t port, sockaddr_in& sa) {
  memset(&sa, 0, sizeof sa);
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  return inet_pton(AF_INET, host.c_str(), &sa.sin_addr) == 1;
}

// Thousands of clients may connect at once (a soak test starting); the kernel
// caps the backlog at net.core.somaxconn.
constexpr int kListenBacklog = 65535;

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
  if (bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) < 0 || listen(fd, kListenBacklog) < 0) {
    err = std::string("bind/listen ") + host + ":" + std::to_string(port) + ": " + strerror(errno);
    close(fd);
    return -1;
  }
  socklen_t len = sizeof sa;
  getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len);
  bound = ntohs(sa.sin_port);
  return fd;
}

void watch(int epfd, int fd, uint64_t data) {
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = data;
  epoll_ctl(epfd, EPOLL_CTL_ADD, fd, &ev);
}

}  // namespace

int Sim::setup() {
  epfd_ = epoll_create1(EPOLL_CLOEXEC);
  if (epfd_ < 0) {
    logf(LogLevel::Quiet, "epoll_create1: %s", strerror(errno));
    return 1;
  }
  setupSignals();
  if (!setupDevices() || !setupControl() || !setupLan()) return 1;
  if (!opt_.script.empty() && !runScript()) return 2;
  if (!opt_.portFile.empty() && !writePortFile()) return 1;
  std::string ports;
  for (auto& d : devices_) ports += " " + std::to_string(d.port);
  logf(LogLevel::Normal, "listening on %s, device ports:%s, control port %u", opt_.listenHost.c_str(),
       ports.c_str(), controlPort_);
  return 0;
}

void Sim::setupSignals() {
  // Signals arrive through a descriptor so the loop stays single-threaded.
  sigset_t mask;
  sigemptyset(&mask);
  sigaddset(&mask, SIGTERM);
  sigaddset(&mask, SIGINT);
  sigaddset(&mask, SIGHUP);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  sigfd_ = signalfd(-1, &mask, SFD_NONBLOCK | SFD_CLOEXEC);
  if (sigfd_ >= 0) watch(epfd_, sigfd_, epollTag(kSignal, 0));
  signal(SIGPIPE, SIG_IGN);
}

bool Sim::setupDevices() {
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
    for (auto& kv : opt_.settings) {
      std::string err;
      if (!setSetting(d.s, kv.first, kv.second, err)) {
        fprintf(stderr, "qxdevsim: --set %s: %s\n", kv.first.c_str(), err.c_str());
        return false;
      }
    }
    if (!openListener(d)) return false;
  }
  clips_.setDir(opt_.clipDir.empty() ? defaultClipDir() : opt_.clipDir);
  return true;
}

bool Sim::setupControl() {
  if (opt_.controlPort < 0) return true;
  std::string err;
  controlFd_ = listenOn(opt_.controlHost, static_cast<uint16_t>(opt_.controlPort), controlPort_, err);
  if (controlFd_ < 0) {
    logf(LogLevel::Quiet, "control channel: %s", err.c_str());
    return false;
  }
  watch(epfd_, controlFd_, epollTag(kCtlListen, 0));
  return true;
}

bool Sim::runScript() {
  std::ifstream f(opt_.script);
  if (!f) {
    logf(LogLevel::Quiet, "cannot read script %s", opt_.script.c_str());
    return false;
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
      logf(LogLevel::Quiet, "script %s:%d: %s: %s", opt_.script.c_str(), n, line.c_str(), reply.c_str());
      return false;
    }
    if (quit_) break;
  }
  return true;
}

bool Sim::writePortFile() {
  // Written to a temporary name then renamed, so a reader never sees half a file.
  std::ostringstream o;
  o << "pid " << getpid() << "\n";
  o << "control " << controlPort_ << "\n";
  for (auto& d : devices_) o << "device " << d.index << " " << d.port << "\n";
  if (lan_) o << "lan " << lan_->port() << "\n";
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

bool Sim::setupLan() {
  if (opt_.lan.devices <= 0) return true;
  lan_.reset(new LanNet(opt_.lan));
  std::string err;
  if (!lan_->open(err)) {
    logf(LogLevel::Quiet, "LAN devices: %s", err.c_str());
    return false;
  }
  watch(epfd_, lan_->fd(), epollTag(kLan, 0));
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
  watch(epfd_, fd, epollTag(kListen, static_cast<uint64_t>(d.index)));
  return true;
}

void Sim::closeListener(Device& d) {
  if (d.listenFd < 0) return;
  epoll_ctl(epfd_, EPOLL_CTL_DEL, d.listenFd, nullptr);
  close(d.listenFd);
  d.listenFd = -1;
}

}  // namespace devsim
