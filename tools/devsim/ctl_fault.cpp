// Control commands that make the device misbehave on its own: ARM / DISARM
// (modify the next frames sent) and CHAOS (random faults every period).
#include <random>

#include "control.h"

namespace devsim {

namespace {

// ARM options into f; "" or the error reply.
std::string armOptions(const Args& a, FrameFault& f) {
  long long v;
  f.count = 1;
  if (a.has("count")) {
    if (!parseInt(a.get("count"), v) || v < 1) return "ERR bad count";
    f.count = static_cast<int>(v);
  }
  if (a.has("garbage")) {
    if (!parseInt(a.get("garbage"), v) || v < 0 || v > (16 << 20)) return "ERR bad garbage";
    f.garbage = static_cast<size_t>(v);
  }
  if (a.has("shift")) {
    if (!parseInt(a.get("shift"), v) || v < 0 || v > 7) return "ERR shift must be 0..7";
    f.garbage = static_cast<size_t>(v);
  }
  if (a.has("split")) {
    if (!parseInt(a.get("split"), v) || v < 1) return "ERR bad split";
    f.split = static_cast<size_t>(v);
  }
  if (a.has("delay")) {
    if (!parseInt(a.get("delay"), v) || v < 0) return "ERR bad delay";
    f.delayMs = static_cast<int>(v);
  }
  if (a.has("flag")) {
    if (!parseInt(a.get("flag"), v) || v < 0 || v > 0xFFFFFFFFll) return "ERR bad flag";
    f.hasFlag = true;
    f.flag = static_cast<uint32_t>(v);
  }
  if (a.has("cut")) {
    if (!parseInt(a.get("cut"), v) || v < 0) return "ERR bad cut";
    f.cut = v;
  }
  f.rst = a.get("rst") == "1";
  f.drop = a.get("drop") == "1";
  return std::string();
}

// One CHAOS option within [lo, hi]; "" or the error reply.
std::string chaosValue(const Args& a, const char* name, long long lo, long long hi, long long& out) {
  if (!a.has(name)) return std::string();
  if (!parseInt(a.get(name), out) || out < lo || out > hi) return std::string("ERR bad ") + name;
  return std::string();
}

// CHAOS options into ch; "" or the error reply.
std::string chaosOptions(const Args& a, Chaos& ch) {
  static const char* known[] = {"dev", "period_ms", "drop", "garbage", "reboot", "stall", "stall_ms", "seed"};
  for (auto& kv : a.kv) {
    bool ok = false;
    for (const char* k : known) ok = ok || kv.first == k;
    if (!ok) return "ERR unknown option " + kv.first;
  }
  std::string bad;
  if ((bad = chaosValue(a, "period_ms", 1, 86400000, ch.periodMs)).size()) return bad;
  if ((bad = chaosValue(a, "drop", 0, 1000, ch.drop)).size()) return bad;
  if ((bad = chaosValue(a, "garbage", 0, 1000, ch.garbage)).size()) return bad;
  if ((bad = chaosValue(a, "reboot", 0, 1000, ch.reboot)).size()) return bad;
  if ((bad = chaosValue(a, "stall", 0, 1000, ch.stall)).size()) return bad;
  if ((bad = chaosValue(a, "stall_ms", 0, 86400000, ch.stallMs)).size()) return bad;
  long long seed;
  if (!a.has("seed")) {
    std::random_device rd;  // a fresh run each time unless a seed is given; the reply names it
    ch.seed = (static_cast<uint64_t>(rd()) << 32) | rd();
  } else if (!parseInt(a.get("seed"), seed)) {
    return "ERR bad seed";
  } else {
    ch.seed = static_cast<uint64_t>(seed);
  }
  return std::string();
}

}  // namespace

// ARM sets a fault for the next frames; DISARM sets an inactive one.
std::string Cmd::arm() {
  if (a.pos.empty()) return "ERR usage: " + verb + " CONN|any [options]";
  FrameFault f;
  if (verb == "ARM") {
    std::string bad = armOptions(a, f);
    if (!bad.empty()) return bad;
  }
  if (a.pos[0] == "any") {
    sim.anyFault_ = f;
    return "OK any";
  }
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  for (Conn* c : cs) c->fault = f;
  return okCount(cs.size());
}

std::string Cmd::chaosShow() {
  const Chaos& ch = d0->chaos;
  if (!ch.on) return "OK off";
  return "OK on period_ms=" + std::to_string(ch.periodMs) + " drop=" + std::to_string(ch.drop) +
         " garbage=" + std::to_string(ch.garbage) + " reboot=" + std::to_string(ch.reboot) +
         " stall=" + std::to_string(ch.stall) + " stall_ms=" + std::to_string(ch.stallMs) +
         " seed=" + std::to_string(ch.seed);
}

// CHAOS [options] starts (or replaces) the faults on the devices selected; CHAOS
// off stops them; CHAOS alone shows a device's.
std::string Cmd::chaos() {
  if (a.pos.size() > 1 || (a.pos.size() == 1 && a.pos[0] != "off"))
    return "ERR usage: CHAOS [dev=K] [period_ms=N] [drop=N] [garbage=N] [reboot=N] [stall=N] [stall_ms=N] "
           "[seed=S] | CHAOS off [dev=K]";
  if (!a.pos.empty()) {
    eachDevice([this](Device& d) { sim.stopChaos(d); });
    return "OK off";
  }
  if (a.kv.size() == a.kv.count("dev")) return chaosShow();
  Chaos cfg;
  std::string bad = chaosOptions(a, cfg);
  if (!bad.empty()) return bad;
  size_t n = 0;
  eachDevice([&](Device& d) {
    sim.startChaos(d, cfg);
    ++n;
  });
  return "OK devices=" + std::to_string(n) + " seed=" + std::to_string(cfg.seed);
}

}  // namespace devsim
