// The LAN verb: the discoverable devices of --lan, their fields and behaviour, what they
// received, and answers and faults sent on demand.
#include <climits>

#include "control.h"
#include "lan.h"

namespace devsim {

namespace {

std::string target(LanNet& lan, const Args& a) { return a.get("to", lan.defaultTarget()); }

bool numOpt(const Args& a, const char* key, long long def, long long& out) {
  out = def;
  return !a.has(key) || (parseInt(a.get(key), out) && out >= 0);
}

// A malformed or hostile datagram of the named kind.
bool badDatagram(LanNet& lan, const std::string& kind, std::string& out) {
  std::string good = lan.devices.empty() ? lanEnvelope("30002", 0, "<x/>") : lan.searchAnswer(lan.devices[0]);
  if (kind == "truncated") out = good.substr(0, good.size() / 2);
  else if (kind == "noclose") out = good.substr(0, good.rfind("</PrivateProto>"));
  else if (kind == "noopen") out = "<Private>" + good.substr(good.find("<head>"));
  else if (kind == "badxml") out = lanEnvelope("30002", 0, "<hardwareType>IPC</versionInfo><a><b></a>");
  else if (kind == "noresult") out = "<PrivateProto><head><type>30000</type><cmd>30002</cmd></head><body></body></PrivateProto>";
  else if (kind == "nobody") out = "<PrivateProto><head><type>30000</type><cmd>30002</cmd><result>0</result></head></PrivateProto>";
  else if (kind == "empty") out.clear();
  else if (kind == "binary") out = std::string("\0\x01\xff<PrivateProto>\0</PrivateProto>\x80", 35);
  else if (kind == "search") out = lanEnvelope("30001", 0, "");
  else if (kind == "unknownuid") out = lanEnvelope("30004", 0, "<UID>NOSUCHDEVICE</UID>\n<token>t</token>");
  else return false;
  return true;
}

}  // namespace

std::string Cmd::lan() {
  if (!sim.lan_) return "ERR no LAN devices (start with --lan N)";
  LanNet& lan = *sim.lan_;
  std::string sub = a.pos.empty() ? "" : upper(a.pos[0]);
  if (sub.empty() || sub == "STATS") {
    std::string s = "OK devices=" + std::to_string(lan.devices.size()) + " port=" + std::to_string(lan.port()) +
                    " target=" + (lan.defaultTarget().empty() ? "-" : lan.defaultTarget());
    for (auto& kv : lan.stats) s += " " + kv.first + "=" + std::to_string(kv.second);
    for (auto& kv : lan.counts) s += " cmd" + kv.first + "=" + std::to_string(kv.second);
    return s;
  }
  if (sub == "LIST") return lanList();
  if (sub == "SET") return lanSet();
  if (sub == "GET") return lanGet();
  if (sub == "COUNT" || sub == "WAIT") return lanWait(sub == "WAIT");
  if (sub == "LAST") return lanLast();
  if (sub == "PACE") {
    long long us;
    if (a.pos.size() < 2 || !parseInt(a.pos[1], us) || us < 0) return "ERR usage: LAN PACE MICROSECONDS";
    lan.paceUs = us;
    return "OK";
  }
  if (sub == "ANSWER") {
    if (target(lan, a).empty()) return "ERR no target: no search seen yet and no to=";
    lan.answerSearch(target(lan, a));
    return "OK";
  }
  if (sub == "FLOOD") return lanFlood();
  if (sub == "BAD") return lanBad();
  if (sub == "OVERSIZE") return lanOversize();
  return "ERR unknown LAN command " + sub;
}

std::string Cmd::lanList() {
  LanNet& lan = *sim.lan_;
  long long from, max;
  if (!numOpt(a, "from", 0, from) || !numOpt(a, "max", 100, max)) return "ERR bad from= or max=";
  std::string s;
  size_t n = 0;
  for (size_t i = static_cast<size_t>(from); i < lan.devices.size() && n < static_cast<size_t>(max); ++i, ++n) {
    LanDevice& d = lan.devices[i];
    s += " idx=" + std::to_string(d.index) + ",uid=" + tok(d.f["uid"]) + ",ip=" + tok(d.f["ip"]) + ",hw=" +
         tok(d.f["hw"]) + ",mac=" + tok(d.f["mac"]) + ",token=" + tok(d.f["token"]);
  }
  return "OK " + std::to_string(n) + s;
}

// LAN SET K|all key=value...: the answer's fields (escaped values) and auth=0|1,
// result=N|auto, mute=0|1, repeat=N.
std::string Cmd::lanSet() {
  LanNet& lan = *sim.lan_;
  if (a.pos.size() < 2) return "ERR usage: LAN SET K|all key=value...";
  long long k = -1;
  if (a.pos[1] != "all" && (!parseInt(a.pos[1], k) || k < 0 || k >= (long long)lan.devices.size()))
    return "ERR no LAN device " + a.pos[1];
  for (LanDevice& d : lan.devices) {
    if (k >= 0 && d.index != k) continue;
    for (auto& kv : a.kv) {
      std::string v;
      long long n = 0;
      if (!unescape(kv.second, v)) return "ERR bad escape in " + kv.first;
      if (kv.first == "auth") d.requireAuth = v == "1";
      else if (kv.first == "mute") d.mute = v == "1";
      else if (kv.first == "result") d.forcedResult = v == "auto" ? LLONG_MIN : (parseInt(v, n) ? n : 0);
      else if (kv.first == "repeat") d.repeat = parseInt(v, n) && n >= 0 && n <= 100000 ? (int)n : 1;
      else if (kv.first == "to") continue;
      else d.f[kv.first] = v;
    }
  }
  return "OK";
}

std::string Cmd::lanGet() {
  LanNet& lan = *sim.lan_;
  long long k;
  if (a.pos.size() < 3 || !parseInt(a.pos[1], k) || k < 0 || k >= (long long)lan.devices.size())
    return "ERR usage: LAN GET K FIELD";
  auto it = lan.devices[(size_t)k].f.find(a.pos[2]);
  return it == lan.devices[(size_t)k].f.end() ? "ERR no field " + a.pos[2] : "OK " + tok(it->second);
}

// LAN COUNT CMD | LAN WAIT CMD N TIMEOUT_MS: requests received with that cmd.
std::string Cmd::lanWait(bool wait) {
  if (a.pos.size() < (wait ? 4u : 2u)) return "ERR usage: LAN COUNT CMD | LAN WAIT CMD N TIMEOUT_MS";
  std::string cmd = a.pos[1];
  Sim* s = &sim;
  auto n = [s, cmd]() {
    auto it = s->lan_->counts.find(cmd);
    return it == s->lan_->counts.end() ? 0ll : it->second;
  };
  if (!wait) return "OK " + std::to_string(n());
  long long want, timeout;
  if (!parseInt(a.pos[2], want) || !parseInt(a.pos[3], timeout)) return "ERR bad number";
  return startWait(
      timeout,
      [n, want](std::string& r) {
        if (n() < want) return false;
        r = "OK " + std::to_string(n());
        return true;
      },
      [n]() { return "ERR timeout " + std::to_string(n()); });
}

std::string Cmd::lanLast() {
  LanNet& lan = *sim.lan_;
  std::string cmd = a.pos.size() > 1 ? a.pos[1] : "*";
  for (auto it = lan.requests.rbegin(); it != lan.requests.rend(); ++it)
    if (cmd == "*" || it->cmd == cmd)
      return "OK cmd=" + tok(it->cmd) + " from=" + it->from + " size=" + std::to_string(it->size) +
             " body=" + tok(it->body);
  return "ERR none";
}

// LAN FLOOD N [distinct=1] [to=ADDR:PORT]: N search answers at once; distinct ones carry
// new UIDs (QXFLOOD00000000...), the others repeat device 0.
std::string Cmd::lanFlood() {
  LanNet& lan = *sim.lan_;
  long long n;
  if (a.pos.size() < 2 || !parseInt(a.pos[1], n) || n < 0) return "ERR usage: LAN FLOOD N [distinct=1] [to=]";
  std::string to = target(lan, a);
  if (to.empty()) return "ERR no target: no search seen yet and no to=";
  LanDevice proto = lan.devices.empty() ? LanDevice() : lan.devices[0];
  proto.f["hw"] = a.get("hw", proto.f["hw"].empty() ? "IPC" : proto.f["hw"]);
  std::string same = lan.searchAnswer(proto);
  long long sent = 0;
  for (long long i = 0; i < n; ++i) {
    if (a.get("distinct") == "1") {
      char uid[32];
      snprintf(uid, sizeof uid, "QXFLOOD%08lld", i);
      proto.f["uid"] = uid;
      sent += lan.sendTo(lan.searchAnswer(proto), to) >= 0;
    } else {
      sent += lan.sendTo(same, to) >= 0;
    }
  }
  return "OK " + std::to_string(sent);
}

// LAN BAD KIND [count=N] [to=]: truncated noclose noopen badxml noresult nobody empty
// binary search unknownuid.
std::string Cmd::lanBad() {
  LanNet& lan = *sim.lan_;
  std::string d;
  if (a.pos.size() < 2 || !badDatagram(lan, a.pos[1], d)) return "ERR usage: LAN BAD KIND [count=N] [to=]";
  long long n;
  if (!numOpt(a, "count", 1, n)) return "ERR bad count=";
  std::string to = target(lan, a);
  if (to.empty()) return "ERR no target: no search seen yet and no to=";
  long long sent = 0;
  for (long long i = 0; i < n; ++i) sent += lan.sendTo(d, to) >= 0;
  return "OK " + std::to_string(sent);
}

// LAN OVERSIZE [bytes=65507] [k=K] [field=osd] [to=]: device K's answer with one field
// padded so that the datagram is exactly BYTES long.
std::string Cmd::lanOversize() {
  LanNet& lan = *sim.lan_;
  long long bytes, k;
  if (!numOpt(a, "bytes", 65507, bytes) || bytes > 65507 || !numOpt(a, "k", 0, k) ||
      k >= (long long)lan.devices.size())
    return "ERR usage: LAN OVERSIZE [bytes=N<=65507] [k=K] [field=NAME] [to=]";
  LanDevice d = lan.devices[(size_t)k];
  std::string field = a.get("field", "osd");
  size_t base = lan.searchAnswer(d).size() - d.f[field].size();
  if ((long long)base > bytes) return "ERR bytes below the answer's own size " + std::to_string(base);
  d.f[field] = std::string((size_t)bytes - base, 'W');
  std::string to = target(lan, a);
  if (to.empty()) return "ERR no target: no search seen yet and no to=";
  return "OK " + std::to_string(lan.sendTo(lan.searchAnswer(d), to));
}

}  // namespace devsim
