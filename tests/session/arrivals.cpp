#include "arrivals.h"

#include <cstdlib>
#include <sstream>

#include "session_fixture.h"

namespace qxtest {

namespace {

// Type and command of the oldest `n` recorded messages, from "OK N seq=..,type=..,cmd=.. ...".
bool Label(DevSim& sim, std::vector<Arrival>* out) {
  std::string r = sim.cmd("MSGS * * max=100000");
  if (r.rfind("OK ", 0) != 0) return false;
  std::istringstream is(r.substr(3));
  std::string count, item;
  is >> count;
  size_t i = 0;
  while (i < out->size() && is >> item) {
    std::istringstream fs(item);
    std::string field;
    while (std::getline(fs, field, ',')) {
      if (field.rfind("type=", 0) == 0) (*out)[i].type = DevSim::unescape(field.substr(5));
      if (field.rfind("cmd=", 0) == 0) (*out)[i].cmd = DevSim::unescape(field.substr(4));
    }
    ++i;
  }
  return i == out->size();
}

}  // namespace

std::vector<Arrival> RecordArrivals(DevSim& sim, std::chrono::steady_clock::time_point t0, double seconds,
                                    int sliceMs, const std::function<int()>& onSlice, bool* ok) {
  std::vector<Arrival> out;
  *ok = true;
  long long seen = 0;
  for (;;) {
    double left = seconds - Since(t0);
    if (left <= 0) break;
    int waitMs = static_cast<int>(left * 1000);
    if (waitMs > sliceMs) waitMs = sliceMs;
    if (onSlice) {
      int next = onSlice();
      if (next >= 0 && next < waitMs) waitMs = next;
    }
    if (waitMs < 1) waitMs = 1;
    std::string r = sim.cmd("WAIT * * " + std::to_string(seen + 1) + " " + std::to_string(waitMs), waitMs + 5000);
    double t = Since(t0);
    if (r.rfind("OK ", 0) == 0) {
      long long n = std::atoll(r.c_str() + 3);
      for (; seen < n; ++seen) out.push_back(Arrival{t, "", ""});
    } else if (r.rfind("ERR timeout", 0) != 0) {
      *ok = false;
      return out;
    }
  }
  if (!Label(sim, &out)) *ok = false;
  return out;
}

std::vector<double> TimesOf(const std::vector<Arrival>& all, const std::string& type, const std::string& cmd) {
  std::vector<double> t;
  for (const Arrival& a : all)
    if (a.type == type && a.cmd == cmd) t.push_back(a.t);
  return t;
}

}  // namespace qxtest
