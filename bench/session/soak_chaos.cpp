#include "soak_chaos.h"

#include <sstream>
#include <vector>

namespace qxbench {

namespace {
constexpr int kFillerBytes = 100;

// Connection ids of a CONNS reply: "OK N id=3,dev=0,... id=4,dev=1,...".
std::vector<std::string> ConnIds(const std::string& reply) {
  std::vector<std::string> ids;
  if (reply.rfind("OK", 0) != 0) return ids;
  std::istringstream is(reply);
  std::string word;
  while (is >> word)
    if (word.rfind("id=", 0) == 0) ids.push_back(word.substr(3, word.find(',') - 3));
  return ids;
}

long long Field(const std::map<std::string, std::string>& f, const char* name) {
  auto it = f.find(name);
  return it == f.end() ? 0 : std::atoll(it->second.c_str());
}
}  // namespace

std::string ChaosCommand(const ChaosSettings& s) {
  std::ostringstream o;
  o << "CHAOS period_ms=" << s.periodMs << " drop=" << s.drop << " garbage=" << s.garbage << " reboot=" << s.reboot
    << " stall=" << s.stall << " stall_ms=" << s.stallMs << " seed=" << s.seed;
  return o.str();
}

ChaosStats& ChaosStats::operator+=(const ChaosStats& o) {
  drops += o.drops;
  garbage += o.garbage;
  reboots += o.reboots;
  stalls += o.stalls;
  return *this;
}

ChaosStats ReadChaosStats(qxtest::DevSim& sim) {
  auto f = qxtest::DevSim::fields(sim.cmd("STATS"));
  ChaosStats c;
  c.drops = Field(f, "chaos_drops");
  c.garbage = Field(f, "chaos_garbage");
  c.reboots = Field(f, "chaos_reboots");
  c.stalls = Field(f, "chaos_stalls");
  return c;
}

void ChaosEmulator::Step(qxtest::DevSim& sim, int devices) {
  for (const std::string& id : ConnIds(sim.cmd("CONNS"))) {
    if (Roll(s_.drop) && sim.cmdOk("CLOSE " + id))
      ++played_.drops;
    else if (Roll(s_.garbage) && sim.cmdOk("GARBAGE " + id + " " + std::to_string(kFillerBytes)))
      ++played_.garbage;
  }
  for (int dev = 0; dev < devices; ++dev)
    if (Roll(s_.reboot) && sim.cmdOk("REBOOT dev=" + std::to_string(dev))) ++played_.reboots;
}

}  // namespace qxbench
