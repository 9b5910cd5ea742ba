// qxdevsim entry point: options, descriptor limit, then the event loop.
#include <arpa/inet.h>
#include <sys/resource.h>

#include <cstdio>
#include <algorithm>
#include <cstring>
#include <string>

#include "help.h"
#include "sim.h"

using devsim::LogLevel;
using devsim::Options;

namespace {

bool splitHostPort(const std::string& s, std::string& host, long long& port) {
  size_t c = s.rfind(':');
  if (c == std::string::npos) return false;
  host = s.substr(0, c);
  if (host.empty()) host = "127.0.0.1";
  return devsim::parseInt(s.substr(c + 1), port) && port >= 0 && port <= 65535;
}

int usageError(const std::string& msg) {
  fprintf(stderr, "qxdevsim: %s (see --help)\n", msg.c_str());
  return 2;
}

// Many simultaneous sessions need many descriptors: take what the hard limit
// allows. When even that is short of --max-conns connections plus a listener
// per device and some spare (control channel, files, epoll), say so and serve
// fewer, so that the control channel never runs out of descriptors.
void raiseFileLimit(Options& o) {
  rlimit rl;
  if (getrlimit(RLIMIT_NOFILE, &rl) != 0) return;
  if (rl.rlim_cur < rl.rlim_max) {
    rl.rlim_cur = rl.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &rl) != 0) getrlimit(RLIMIT_NOFILE, &rl);
  }
  const rlim_t spare = static_cast<rlim_t>(o.devices) + 100;
  const rlim_t need = static_cast<rlim_t>(o.maxConns) + spare;
  if (rl.rlim_cur == RLIM_INFINITY || rl.rlim_cur >= need) return;
  int fit = rl.rlim_cur > spare ? static_cast<int>(rl.rlim_cur - spare) : 1;
  fprintf(stderr,
          "qxdevsim: warning: the descriptor limit (%llu, hard limit %llu) is below the %llu that "
          "--max-conns %d needs; serving at most %d connections\n",
          static_cast<unsigned long long>(rl.rlim_cur), static_cast<unsigned long long>(rl.rlim_max),
          static_cast<unsigned long long>(need), o.maxConns, fit);
  o.maxConns = fit;
}

int controlOption(const std::string& v, Options& o) {
  if (v == "off") {
    o.controlPort = -1;
    return 0;
  }
  std::string host = "127.0.0.1";
  long long n = 0;
  if (v.find(':') != std::string::npos) {
    if (!splitHostPort(v, host, n)) return usageError("bad --control " + v);
  } else if (!devsim::parseInt(v, n) || n < 0 || n > 65535) {
    return usageError("bad --control " + v);
  }
  o.controlHost = host;
  o.controlPort = static_cast<int>(n);
  return 0;
}

// The --lan options: discoverable devices answering on UDP.
int lanOption(const std::string& name, const std::string& v, devsim::LanOptions& l) {
  long long n = 0;
  in_addr probe{};
  if (name == "--lan") {
    if (!devsim::parseInt(v, n) || n < 0 || n > 100000) return usageError("bad --lan " + v);
    l.devices = static_cast<int>(n);
  } else if (name == "--lan-listen") {
    if (!splitHostPort(v, l.listenHost, n)) return usageError("bad --lan-listen " + v);
    l.listenPort = static_cast<uint16_t>(n);
  } else if (name == "--lan-first-ip" || name == "--lan-gateway" || name == "--lan-mask") {
    if (inet_pton(AF_INET, v.c_str(), &probe) != 1) return usageError("bad " + name + " " + v);
    (name == "--lan-first-ip" ? l.firstIp : name == "--lan-gateway" ? l.gateway : l.mask) = v;
  } else if (name == "--lan-kinds") {
    l.kinds.clear();
    for (size_t p = 0; p <= v.size();) {
      size_t c = std::min(v.find(',', p), v.size());
      if (c > p) l.kinds.push_back(v.substr(p, c - p));
      p = c + 1;
    }
    if (l.kinds.empty()) return usageError("bad --lan-kinds " + v);
  }
  return 0;
}

// One option with its value; 0, or the exit code of a usage error.
int applyOption(const std::string& name, const std::string& v, Options& o) {
  long long n = 0;
  if (name == "--listen") {
    if (!splitHostPort(v, o.listenHost, n)) return usageError("bad --listen " + v);
    o.listenPort = static_cast<uint16_t>(n);
  } else if (name == "--devices") {
    if (!devsim::parseInt(v, n) || n < 1 || n > 10000) return usageError("bad --devices " + v);
    o.devices = static_cast<int>(n);
  } else if (name == "--account") {
    size_t c = v.find(':');
    if (c == std::string::npos || c == 0) return usageError("bad --account " + v);
    o.accounts.emplace_back(v.substr(0, c), v.substr(c + 1));
  } else if (name == "--max-channels") {
    if (!devsim::parseInt(v, n)) return usageError("bad --max-channels " + v);
    o.maxChannels = n;
  } else if (name == "--auth-refusal") {
    if (!devsim::parseInt(v, n)) return usageError("bad --auth-refusal " + v);
    o.authRefusal = n;
  } else if (name == "--control") {
    return controlOption(v, o);
  } else if (name == "--port-file") {
    o.portFile = v;
  } else if (name == "--upload-dir") {
    o.uploadDir = v;
  } else if (name == "--script") {
    o.script = v;
  } else if (name.compare(0, 5, "--lan") == 0) {
    return lanOption(name, v, o.lan);
  } else if (name == "--clips") {
    o.clipDir = v;
  } else if (name == "--set") {
    size_t eq = v.find('=');
    if (eq == std::string::npos || eq == 0) return usageError("bad --set " + v + " (NAME=VALUE)");
    o.settings.emplace_back(v.substr(0, eq), v.substr(eq + 1));
  } else if (name == "--max-conns") {
    if (!devsim::parseInt(v, n) || n < 1 || n > 1000000) return usageError("bad --max-conns " + v);
    o.maxConns = static_cast<int>(n);
  }
  return 0;
}

// Options into o; -1 to go on, else the exit code (0 after --help).
int parseOptions(int argc, char** argv, Options& o) {
  static const char* known[] = {"--listen", "--devices", "--account", "--max-channels", "--auth-refusal",
                                "--control", "--port-file", "--upload-dir", "--script", "--max-conns",
                                "--lan", "--lan-listen", "--lan-first-ip", "--lan-gateway", "--lan-mask",
                                "--lan-kinds", "--clips", "--set"};
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      fputs(devsim::optionsHelpText().c_str(), stdout);
      return 0;
    }
    if (a == "--quiet" || a == "-q" || a == "--verbose" || a == "-v") {
      o.log = (a == "--quiet" || a == "-q") ? LogLevel::Quiet : LogLevel::Verbose;
      continue;
    }
    std::string name = a.substr(0, a.find('='));
    bool isKnown = false;
    for (const char* k : known) isKnown = isKnown || name == k;
    if (!isKnown) return usageError("unknown option " + a);
    // The value follows "=" or is the next argument.
    std::string v;
    if (name.size() < a.size()) v = a.substr(name.size() + 1);
    else if (i + 1 < argc) v = argv[++i];
    else return usageError("missing value for " + name);
    int rc = applyOption(name, v, o);
    if (rc != 0) return rc;
  }
  if (o.listenPort != 0 && o.listenPort + o.devices - 1 > 65535) return usageError("ports beyond 65535");
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  int rc = parseOptions(argc, argv, o);
  if (rc >= 0) return rc;
  raiseFileLimit(o);
  devsim::Sim sim(o);
  rc = sim.setup();
  if (rc != 0) return rc;
  return sim.run();
}
