// Control commands that make the device misbehave on its own: ARM / DISARM
// (modify the next frames sent).
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

}  // namespace devsim
