// CHAOS: a hostile device for soak tests. Every period, for each open
// connection of the device, drops, filler between frames and stalls happen
// with their probabilities, and the device itself may reboot. Each device draws
// from its own seeded sequence, so one seed replays the same decisions.
#include "sim.h"

namespace devsim {

namespace {

// splitmix64: small, fast, and the same on every platform.
uint64_t nextRandom(uint64_t& state) {
  uint64_t z = (state += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

uint64_t below(uint64_t& state, uint64_t n) { return nextRandom(state) % n; }

bool chance(uint64_t& state, long long perMille) { return static_cast<long long>(below(state, 1000)) < perMille; }

}  // namespace

void Sim::startChaos(Device& d, const Chaos& cfg) {
  unsigned gen = d.chaos.gen + 1;
  d.chaos = cfg;
  d.chaos.on = true;
  d.chaos.gen = gen;
  // Devices get distinct sequences from one seed.
  d.chaos.rng = cfg.seed ^ (0xD1B54A32D192ED03ull * (static_cast<uint64_t>(d.index) + 1));
  for (const char* name : {"chaos_rounds", "chaos_drops", "chaos_garbage", "chaos_reboots", "chaos_stalls"})
    bump(name, 0);
  scheduleChaos(d);
}

void Sim::stopChaos(Device& d) {
  d.chaos.on = false;
  ++d.chaos.gen;
}

void Sim::scheduleChaos(Device& d) {
  int idx = d.index;
  unsigned gen = d.chaos.gen;
  addTimer(nowMs() + d.chaos.periodMs, [this, idx, gen]() {
    Device& dv = devices_[static_cast<size_t>(idx)];
    if (!dv.chaos.on || dv.chaos.gen != gen) return;  // switched off or replaced
    chaosRound(dv);
    scheduleChaos(dv);
  });
}

void Sim::chaosRound(Device& d) {
  bump("chaos_rounds");
  std::vector<int> ids(d.connIds.begin(), d.connIds.end());  // drops edit the set
  for (int id : ids)
    if (Conn* c = findConn(id)) chaosOnConn(d.chaos, *c);
  bool reboots = chance(d.chaos.rng, d.chaos.reboot);
  if (reboots && !d.rebooting) {
    bump("chaos_reboots");
    reboot(d, nullptr);
  }
}

void Sim::chaosOnConn(Chaos& ch, Conn& c) {
  // Every draw is made whatever happens, so the sequence does not depend on outcomes.
  bool drop = chance(ch.rng, ch.drop);
  bool rst = below(ch.rng, 8) == 0;
  bool garbage = chance(ch.rng, ch.garbage);
  size_t bytes = 1 + static_cast<size_t>(below(ch.rng, 4096));
  bool stall = chance(ch.rng, ch.stall);
  if (drop) {
    bump("chaos_drops");
    closeConn(c, rst, rst ? "chaos drop (reset)" : "chaos drop");
    return;
  }
  if (garbage && insertFiller(c, bytes)) bump("chaos_garbage");
  if (stall && !c.closed) {
    bump("chaos_stalls");
    stallConn(c, ch.stallMs);
  }
}

}  // namespace devsim
