// qxdevsim entry point: options, descriptor limit, then the event loop.
#include <sys/resource.h>

#include <cstdio>
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

// Many simultaneous sessions need many descriptors: take what the hard limit allows.
void raiseFileLimit() {
  rlimit rl;
  if (getrlimit(RLIMIT_NOFILE, &rl) == 0 && rl.rlim_cur < rl.rlim_max) {
    rl.rlim_cur = rl.rlim_max;
    setrlimit(RLIMIT_NOFILE, &rl);
  }
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    std::string v;
    auto value = [&](std::string& out) {
      size_t eq = a.find('=');
      if (eq != std::string::npos) {
        out = a.substr(eq + 1);
        a = a.substr(0, eq);
        return true;
      }
      if (i + 1 >= argc) return false;
      out = argv[++i];
      return true;
    };
    if (a == "--help" || a == "-h") {
      fputs(devsim::optionsHelpText().c_str(), stdout);
      return 0;
    }
    if (a == "--quiet" || a == "-q") {
      o.log = LogLevel::Quiet;
      continue;
    }
    if (a == "--verbose" || a == "-v") {
      o.log = LogLevel::Verbose;
      continue;
    }
    std::string name = a.substr(0, a.find('='));
    static const char* known[] = {"--listen", "--devices", "--account", "--max-channels", "--auth-refusal",
                                  "--control", "--port-file", "--upload-dir", "--script"};
    bool isKnown = false;
    for (const char* k : known) isKnown = isKnown || name == k;
    if (!isKnown) return usageError("unknown option " + a);
    if (!value(v)) return usageError("missing value for " + name);
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
      if (v == "off") {
        o.controlPort = -1;
      } else {
        std::string host = "127.0.0.1";
        if (v.find(':') != std::string::npos) {
          if (!splitHostPort(v, host, n)) return usageError("bad --control " + v);
        } else if (!devsim::parseInt(v, n) || n < 0 || n > 65535) {
          return usageError("bad --control " + v);
        }
        o.controlHost = host;
        o.controlPort = static_cast<int>(n);
      }
    } else if (name == "--port-file") {
      o.portFile = v;
    } else if (name == "--upload-dir") {
      o.uploadDir = v;
    } else if (name == "--script") {
      o.script = v;
    } else {
      return usageError("unknown option " + a);
    }
  }
  if (o.listenPort != 0 && o.listenPort + o.devices - 1 > 65535) return usageError("ports beyond 65535");

  raiseFileLimit();
  devsim::Sim sim(o);
  int rc = sim.setup();
  if (rc != 0) return rc;
  return sim.run();
}
