// Control commands that read the simulator's state: help, ports, connections,
// counters and the received messages.
#include "control.h"
#include "help.h"

namespace devsim {

namespace {

// "seq=.. conn=.. ..." with the separator given (space for one message, comma in lists).
std::string recordFields(const MsgRecord& r, char sep) {
  std::string s(1, sep);
  return "seq=" + std::to_string(r.seq) + s + "conn=" + std::to_string(r.conn) + s + "dev=" +
         std::to_string(r.dev) + s + "type=" + tok(r.type) + s + "cmd=" + tok(r.cmd) + s + "result=" +
         tok(r.result) + s + "size=" + std::to_string(r.size) + s + "body=" + tok(r.body);
}

}  // namespace

std::string Sim::connLine(const Conn& c) const {
  std::string u = c.upload ? c.upload->state : "none";
  return "id=" + std::to_string(c.id) + ",dev=" + std::to_string(c.dev) + ",auth=" + (c.auth ? "1" : "0") +
         ",user=" + tok(c.user) + ",peer=" + c.peer + ",rxframes=" + std::to_string(c.rxFrames) +
         ",txframes=" + std::to_string(c.txFrames) + ",badbytes=" + std::to_string(c.badBytes) +
         ",pending=" + std::to_string(c.out.size()) + ",upload=" + u;
}

std::string Cmd::help() { return "OK " + escape(controlHelpText(), true); }

std::string Cmd::ping() { return "OK pong"; }

std::string Cmd::quit() {
  sim.quit_ = true;
  return "OK bye";
}

std::string Cmd::ports() {
  std::string s = "OK control=" + std::to_string(sim.controlPort_) + " devices=";
  for (size_t i = 0; i < sim.devices_.size(); ++i) s += (i ? "," : "") + std::to_string(sim.devices_[i].port);
  return s;
}

std::string Cmd::conns() {
  std::string s;
  int n = 0;
  for (auto& kv : sim.conns_) {
    Conn& c = *kv.second;
    if (c.closed || (dev >= 0 && c.dev != dev)) continue;
    if (a.get("auth") == "1" && !c.auth) continue;
    s += " " + sim.connLine(c);
    ++n;
  }
  return "OK " + std::to_string(n) + s;
}

std::string Cmd::stats() {
  std::string s = "OK";
  for (auto& kv : sim.stats_) s += " " + kv.first + "=" + std::to_string(kv.second);
  return s;
}

std::string Cmd::count() {
  if (a.pos.size() < 2) return "ERR usage: COUNT TYPE CMD [conn=ID] [dev=K]";
  long long conn = 0;
  if (a.has("conn") && !parseInt(a.get("conn"), conn)) return "ERR bad conn";
  return "OK " + std::to_string(sim.countMsgs(a.pos[0], a.pos[1], static_cast<int>(conn), dev));
}

// conn= and max= of LASTMSG, MSG and MSGS: "" or the error reply.
std::string Cmd::msgOptions(long long& conn, long long& max) {
  if (a.has("conn") && !parseInt(a.get("conn"), conn)) return "ERR bad conn";
  if (a.has("max") && !parseInt(a.get("max"), max)) return "ERR bad max";
  return std::string();
}

// The newest message matching TYPE CMD conn= dev= (LASTMSG), or the one numbered SEQ (MSG).
std::string Cmd::showMsg(bool bySeq) {
  long long conn = 0, seq = 0, max = 100;
  std::string bad = msgOptions(conn, max);
  if (!bad.empty()) return bad;
  if (bySeq && (a.pos.empty() || !parseInt(a.pos[0], seq))) return "ERR usage: MSG SEQ";
  std::string type = !bySeq && a.pos.size() >= 1 ? a.pos[0] : "*";
  std::string cmd = !bySeq && a.pos.size() >= 2 ? a.pos[1] : "*";
  for (auto it = sim.records_.rbegin(); it != sim.records_.rend(); ++it) {
    const MsgRecord& r = *it;
    bool hit = bySeq ? r.seq == static_cast<uint64_t>(seq)
                     : (conn <= 0 || r.conn == conn) && (dev < 0 || r.dev == dev) &&
                           (type == "*" || r.type == type) && (cmd == "*" || r.cmd == cmd);
    if (hit) return "OK " + recordFields(r, ' ');
  }
  return "ERR none";
}

std::string Cmd::lastMsg() { return showMsg(false); }

std::string Cmd::msg() { return showMsg(true); }

std::string Cmd::msgs() {
  long long conn = 0, max = 100;
  std::string bad = msgOptions(conn, max);
  if (!bad.empty()) return bad;
  std::string type = a.pos.size() >= 1 ? a.pos[0] : "*";
  std::string cmd = a.pos.size() >= 2 ? a.pos[1] : "*";
  std::vector<const MsgRecord*> hits;  // newest first
  for (auto it = sim.records_.rbegin(); it != sim.records_.rend() && static_cast<long long>(hits.size()) < max;
       ++it) {
    const MsgRecord& r = *it;
    if ((conn <= 0 || r.conn == conn) && (dev < 0 || r.dev == dev) && (type == "*" || r.type == type) &&
        (cmd == "*" || r.cmd == cmd))
      hits.push_back(&r);
  }
  std::string s = "OK " + std::to_string(hits.size());
  for (auto it = hits.rbegin(); it != hits.rend(); ++it) s += " " + recordFields(**it, ',');
  return s;
}

std::string Cmd::clearMsgs() {
  sim.records_.clear();
  sim.counts_.clear();
  return "OK";
}

}  // namespace devsim
