#include "devsim_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#ifndef QXNET_DEVSIM_PATH
#define QXNET_DEVSIM_PATH ""
#endif

namespace qxtest {

namespace {

int64_t nowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

bool isExecutable(const std::string& p) {
  struct stat st;
  return !p.empty() && stat(p.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(p.c_str(), X_OK) == 0;
}

bool hasArg(const std::vector<std::string>& args, const std::string& name) {
  for (auto& a : args)
    if (a == name || a.rfind(name + "=", 0) == 0) return true;
  return false;
}

// Reads "pid P / control P / device I P" lines; false until the file is complete.
bool readPortFile(const std::string& path, uint16_t& control, std::vector<uint16_t>& ports) {
  std::ifstream f(path);
  if (!f) return false;
  std::string line;
  bool haveControl = false, havePorts = false;
  std::vector<uint16_t> devs;
  while (std::getline(f, line)) {
    std::istringstream is(line);
    std::string key;
    is >> key;
    if (key == "control") {
      unsigned p = 0;
      if (is >> p) control = static_cast<uint16_t>(p), haveControl = true;
    } else if (key == "device") {
      unsigned idx = 0, p = 0;
      if (is >> idx >> p) {
        if (devs.size() <= idx) devs.resize(idx + 1);
        devs[idx] = static_cast<uint16_t>(p);
      }
    } else if (key == "ports") {
      havePorts = true;
    }
  }
  if (!haveControl || !havePorts || devs.empty()) return false;
  ports = devs;
  return true;
}

}  // namespace

std::string DevSim::binaryPath() {
  const char* env = getenv("QXNET_DEVSIM");
  if (env && isExecutable(env)) return env;
  return QXNET_DEVSIM_PATH;
}

DevSim::DevSim(const std::vector<std::string>& args, int startTimeoutMs, const DevSimPlace& place)
    : controlHost_(place.controlHost) {
  std::string bin = binaryPath();
  if (!isExecutable(bin)) {
    error_ = "qxdevsim not found (QXNET_DEVSIM or built path '" + bin + "')";
    return;
  }
  const char* tmpBase = getenv("TMPDIR");
  std::string templ = std::string(tmpBase && *tmpBase ? tmpBase : "/tmp") + "/qxdevsim.XXXXXX";
  std::vector<char> buf(templ.begin(), templ.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) {
    error_ = std::string("mkdtemp: ") + strerror(errno);
    return;
  }
  tmp_ = buf.data();
  std::string portFile = tmp_ + "/ports";

  std::vector<std::string> argv(place.launcher);
  argv.push_back(bin);
  argv.insert(argv.end(), args.begin(), args.end());
  argv.push_back("--port-file");
  argv.push_back(portFile);
  if (!hasArg(args, "--control")) {
    argv.push_back("--control");
    argv.push_back(controlHost_ == "127.0.0.1" ? "0" : controlHost_ + ":0");
  }
  if (!hasArg(args, "--upload-dir")) {
    uploadDir_ = tmp_ + "/uploads";
    mkdir(uploadDir_.c_str(), 0700);
    argv.push_back("--upload-dir");
    argv.push_back(uploadDir_);
  } else {
    for (size_t i = 0; i < args.size(); ++i) {
      if (args[i] == "--upload-dir" && i + 1 < args.size()) uploadDir_ = args[i + 1];
      else if (args[i].rfind("--upload-dir=", 0) == 0) uploadDir_ = args[i].substr(13);
    }
  }
  const char* verbose = getenv("QXNET_DEVSIM_VERBOSE");
  if (!(verbose && *verbose && *verbose != '0') && !hasArg(args, "--verbose") && !hasArg(args, "--quiet"))
    argv.push_back("--quiet");

  std::vector<char*> cargv;
  for (auto& a : argv) cargv.push_back(const_cast<char*>(a.c_str()));
  cargv.push_back(nullptr);

  pid_t parent = getpid();
  pid_t pid = fork();
  if (pid < 0) {
    error_ = std::string("fork: ") + strerror(errno);
    return;
  }
  if (pid == 0) {
    // Child: die with the test rather than linger after a crash of the test.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(127);
    execvp(cargv[0], cargv.data());
    _exit(127);
  }
  pid_ = pid;

  int64_t deadline = nowMs() + startTimeoutMs;
  for (;;) {
    if (readPortFile(portFile, controlPort_, ports_)) break;
    int st = 0;
    if (waitpid(pid_, &st, WNOHANG) == pid_) {
      exitStatus_ = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
      pid_ = -1;
      error_ = "qxdevsim exited during start-up (status " + std::to_string(exitStatus_) + ")";
      return;
    }
    if (nowMs() > deadline) {
      error_ = "qxdevsim did not write its port file in time";
      killAndReap();
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  std::string err;
  if (!connectControl(err)) {
    error_ = err;
    killAndReap();
    return;
  }
  ok_ = true;
}

DevSim::~DevSim() {
  if (pid_ > 0) stop(3000);
  closeControl();
  const char* keep = getenv("QXNET_DEVSIM_KEEP");
  if (!tmp_.empty() && !(keep && *keep && *keep != '0')) {
    std::error_code ec;
    std::filesystem::remove_all(tmp_, ec);
  }
}

uint16_t DevSim::port(int dev) const {
  if (dev < 0 || dev >= static_cast<int>(ports_.size())) return 0;
  return ports_[static_cast<size_t>(dev)];
}

bool DevSim::connectControl(std::string& err) {
  closeControl();
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    err = std::string("socket: ") + strerror(errno);
    return false;
  }
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(controlPort_);
  if (inet_pton(AF_INET, controlHost_.c_str(), &sa.sin_addr) != 1) {
    err = "bad control host " + controlHost_;
    close(fd);
    return false;
  }
  if (connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0) {
    err = "connect to control port " + std::to_string(controlPort_) + ": " + strerror(errno);
    close(fd);
    return false;
  }
  ctl_ = fd;
  pending_.clear();
  return true;
}

void DevSim::closeControl() {
  if (ctl_ >= 0) close(ctl_);
  ctl_ = -1;
  pending_.clear();
}

std::string DevSim::cmd(const std::string& line, int timeoutMs) {
  std::lock_guard<std::mutex> lock(mu_);
  if (pid_ <= 0) return "ERR io simulator not running";
  std::string err;
  if (ctl_ < 0 && !connectControl(err)) return "ERR io " + err;
  std::string out = line + "\n";
  size_t off = 0;
  while (off < out.size()) {
    ssize_t n = send(ctl_, out.data() + off, out.size() - off, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      closeControl();
      return std::string("ERR io send: ") + strerror(errno);
    }
    off += static_cast<size_t>(n);
  }
  int64_t deadline = nowMs() + timeoutMs;
  for (;;) {
    size_t nl = pending_.find('\n');
    if (nl != std::string::npos) {
      std::string reply = pending_.substr(0, nl);
      pending_.erase(0, nl + 1);
      return reply;
    }
    int64_t left = deadline - nowMs();
    if (left <= 0) {
      // A late reply would be taken for the next command's: start afresh.
      closeControl();
      return "ERR io timeout waiting for the reply to: " + line;
    }
    pollfd p{ctl_, POLLIN, 0};
    int r = poll(&p, 1, static_cast<int>(left));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) continue;
    char buf[65536];
    ssize_t n = recv(ctl_, buf, sizeof buf, 0);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      closeControl();
      return "ERR io control channel closed";
    }
    pending_.append(buf, static_cast<size_t>(n));
  }
}

bool DevSim::cmdOk(const std::string& line, int timeoutMs) {
  return cmd(line, timeoutMs).rfind("OK", 0) == 0;
}

long long DevSim::count(const std::string& type, const std::string& c, int conn) {
  std::string r = cmd("COUNT " + type + " " + c + (conn > 0 ? " conn=" + std::to_string(conn) : ""));
  if (r.rfind("OK ", 0) != 0) return -1;
  return atoll(r.c_str() + 3);
}

bool DevSim::waitFor(const std::string& type, const std::string& c, long long n, int timeoutMs, int conn) {
  std::string line = "WAIT " + type + " " + c + " " + std::to_string(n) + " " + std::to_string(timeoutMs);
  if (conn > 0) line += " conn=" + std::to_string(conn);
  return cmdOk(line, timeoutMs + 5000);
}

std::map<std::string, std::string> DevSim::lastMsg(const std::string& type, const std::string& c) {
  std::string r = cmd("LASTMSG " + type + " " + c);
  if (r.rfind("OK", 0) != 0) return {};
  return fields(r);
}

std::string DevSim::lastBody(const std::string& type, const std::string& c) {
  auto f = lastMsg(type, c);
  auto it = f.find("body");
  return it == f.end() ? std::string() : it->second;
}

bool DevSim::waitConnections(int n, int timeoutMs, bool authenticated, int dev) {
  if (n == 0) return waitConnectionsAtMost(0, timeoutMs, dev);  // "at least none" would say nothing
  std::string line = "WAITCONN " + std::to_string(n) + " " + std::to_string(timeoutMs);
  if (authenticated) line += " auth=1";
  if (dev >= 0) line += " dev=" + std::to_string(dev);
  return cmdOk(line, timeoutMs + 5000);
}

bool DevSim::waitConnectionsAtMost(int n, int timeoutMs, int dev) {
  std::string line = "WAITCONN " + std::to_string(n) + " " + std::to_string(timeoutMs) + " atmost=1";
  if (dev >= 0) line += " dev=" + std::to_string(dev);
  return cmdOk(line, timeoutMs + 5000);
}

long long DevSim::stat(const std::string& name) {
  auto f = fields(cmd("STATS"));
  auto it = f.find(name);
  return it == f.end() ? 0 : atoll(it->second.c_str());
}

bool DevSim::waitStat(const std::string& name, long long value, int timeoutMs) {
  return cmdOk("WAITSTAT " + name + " " + std::to_string(value) + " " + std::to_string(timeoutMs),
               timeoutMs + 5000);
}

bool DevSim::running() {
  std::lock_guard<std::mutex> lock(mu_);
  if (pid_ <= 0) return false;
  int st = 0;
  pid_t r = waitpid(pid_, &st, WNOHANG);
  if (r == 0) return true;
  if (r == pid_ && WIFSIGNALED(st)) {
    exitText_ = "signal " + std::to_string(WTERMSIG(st));
  } else if (r == pid_) {
    exitStatus_ = WEXITSTATUS(st);
    exitText_ = "exit status " + std::to_string(exitStatus_);
  } else {
    exitText_ = std::string("waitpid: ") + strerror(errno);
  }
  pid_ = -1;
  closeControl();
  return false;
}

int DevSim::stop(int timeoutMs) {
  if (pid_ <= 0) return exitStatus_;
  cmd("QUIT", 2000);
  {
    std::lock_guard<std::mutex> lock(mu_);
    closeControl();
  }
  int64_t deadline = nowMs() + timeoutMs;
  for (;;) {
    int st = 0;
    pid_t r = waitpid(pid_, &st, WNOHANG);
    if (r == pid_) {
      exitStatus_ = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
      pid_ = -1;
      return exitStatus_;
    }
    if (r < 0) {
      pid_ = -1;
      return exitStatus_ = -1;
    }
    if (nowMs() > deadline) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  killAndReap();
  return exitStatus_ = -1;
}

void DevSim::killAndReap() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  int64_t deadline = nowMs() + 2000;
  int st = 0;
  while (nowMs() < deadline) {
    if (waitpid(pid_, &st, WNOHANG) == pid_) {
      pid_ = -1;
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  kill(pid_, SIGKILL);
  waitpid(pid_, &st, 0);
  pid_ = -1;
}

std::map<std::string, std::string> DevSim::fields(const std::string& reply) {
  std::map<std::string, std::string> m;
  std::istringstream is(reply);
  std::string w;
  while (is >> w) {
    size_t eq = w.find('=');
    if (eq == std::string::npos || eq == 0) continue;
    m[w.substr(0, eq)] = unescape(w.substr(eq + 1));
  }
  return m;
}

std::string DevSim::escape(const std::string& in) {
  static const char* hex = "0123456789abcdef";
  std::string out;
  for (unsigned char c : in) {
    switch (c) {
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      case '\\': out += "\\\\"; break;
      case ' ': out += "\\s"; break;
      default:
        if (c < 0x20 || c >= 0x7F) {
          out += "\\x";
          out += hex[c >> 4];
          out += hex[c & 15];
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out;
}

std::string DevSim::unescape(const std::string& in) {
  auto hv = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  std::string out;
  for (size_t i = 0; i < in.size(); ++i) {
    if (in[i] != '\\' || i + 1 >= in.size()) {
      out += in[i];
      continue;
    }
    char e = in[++i];
    if (e == 'n') out += '\n';
    else if (e == 'r') out += '\r';
    else if (e == 't') out += '\t';
    else if (e == 's') out += ' ';
    else if (e == '0') out += '\0';
    else if (e == 'x' && i + 2 < in.size() && hv(in[i + 1]) >= 0 && hv(in[i + 2]) >= 0) {
      out += static_cast<char>(hv(in[i + 1]) * 16 + hv(in[i + 2]));
      i += 2;
    } else {
      out += e;
    }
  }
  return out;
}

}  // namespace qxtest
