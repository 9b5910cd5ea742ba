#include "soak_options.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace qxbench {

namespace {
const char* kUsage =
    "usage: soak_sessions [--help] [--sessions N] [--minutes T] [--devices D] [--grace S] [--settle S]\n"
    "                     [--progress S] [--period-ms MS] [--drop N] [--garbage N] [--reboot N]\n"
    "                     [--stall N] [--stall-ms MS] [--seed S] [--no-chaos | --emulate-chaos]\n"
    "  N sessions (1000) spread over D simulated devices (10) for T minutes (60) of chaos;\n"
    "  probabilities are per mille per period (drop 2, garbage 2, stall 1 per connection,\n"
    "  reboot 1 per device); then chaos off, S seconds of grace (60) to authenticate again.\n"
    "  exit 0: all checks hold; 1: a check failed; 2: bad options or setup; 3: CHAOS refused\n";

bool Number(const char* text, double lo, double& out) {
  char* end = nullptr;
  double v = std::strtod(text, &end);
  if (!end || *end || v < lo) return false;
  out = v;
  return true;
}

bool SetInt(const char* text, double lo, int& out) {
  double v = 0;
  if (!Number(text, lo, v) || v > 1e9) return false;
  out = static_cast<int>(v);
  return true;
}

// One "--name value" option; false when the name is unknown or the value is bad.
bool Apply(const std::string& name, const char* v, SoakOptions& o) {
  double d = 0;
  int i = 0;
  if (name == "--sessions" && SetInt(v, 1, i)) return o.sessions = i, true;
  if (name == "--devices" && SetInt(v, 1, i)) return o.devices = i, true;
  if (name == "--minutes" && Number(v, 0, d)) return o.minutes = d, true;
  if (name == "--grace" && Number(v, 0, d)) return o.graceSeconds = d, true;
  if (name == "--settle" && Number(v, 0, d)) return o.settleSeconds = d, true;
  if (name == "--progress" && Number(v, 1, d)) return o.progressSeconds = d, true;
  if (name == "--period-ms") return SetInt(v, 1, o.chaos.periodMs);
  if (name == "--drop") return SetInt(v, 0, o.chaos.drop);
  if (name == "--garbage") return SetInt(v, 0, o.chaos.garbage);
  if (name == "--reboot") return SetInt(v, 0, o.chaos.reboot);
  if (name == "--stall") return SetInt(v, 0, o.chaos.stall);
  if (name == "--stall-ms") return SetInt(v, 0, o.chaos.stallMs);
  if (name == "--seed" && SetInt(v, 0, i)) return o.chaos.seed = static_cast<unsigned>(i), true;
  return false;
}
}  // namespace

bool ParseSoakOptions(int argc, char** argv, SoakOptions& o) {
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      std::exit(0);
    } else if (a == "--no-chaos") {
      o.mode = ChaosMode::Off;
    } else if (a == "--emulate-chaos") {
      o.mode = ChaosMode::Emulated;
    } else if (i + 1 >= argc || !Apply(a, argv[i + 1], o)) {
      std::fprintf(stderr, "soak_sessions: bad option '%s'\n%s", a.c_str(), kUsage);
      return false;
    } else {
      ++i;
    }
  }
  if (o.devices > 1000) {
    std::fprintf(stderr, "soak_sessions: at most 1000 devices\n");
    return false;
  }
  return true;
}

}  // namespace qxbench
