// The line-based control channel: one command per line, one reply line per
// command, starting with "OK" or "ERR". Values in replies are escaped (see
// proto.h) so that a reply is always one line of space-separated tokens. The
// commands themselves live in the ctl_*.cpp files, listed in verbs.cpp.
#include "control.h"

#include <cstdio>
#include <sstream>

namespace devsim {

namespace {

std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> t;
  std::istringstream is(line);
  std::string w;
  while (is >> w) t.push_back(w);
  return t;
}

// Text after the first n whitespace-separated words of line (leading blanks removed).
std::string restAfter(const std::string& line, size_t n) {
  size_t p = 0;
  for (size_t i = 0; i < n; ++i) {
    p = line.find_first_not_of(" \t", p);
    if (p == std::string::npos) return std::string();
    p = line.find_first_of(" \t", p);
    if (p == std::string::npos) return std::string();
  }
  p = line.find_first_not_of(" \t", p);
  return p == std::string::npos ? std::string() : line.substr(p);
}

bool isKv(const std::string& t) {
  size_t eq = t.find('=');
  if (eq == std::string::npos || eq == 0) return false;
  for (size_t i = 0; i < eq; ++i)
    if (!(islower(static_cast<unsigned char>(t[i])) || isdigit(static_cast<unsigned char>(t[i])) || t[i] == '_'))
      return false;
  return true;
}

Args parseArgs(const std::vector<std::string>& t, size_t from) {
  Args a;
  for (size_t i = from; i < t.size(); ++i) {
    if (isKv(t[i])) {
      size_t eq = t[i].find('=');
      a.kv[t[i].substr(0, eq)] = t[i].substr(eq + 1);
    } else {
      a.pos.push_back(t[i]);
    }
  }
  return a;
}

// Words between the leading options and the free text of a command.
size_t fixedWords(const Verb* v, const std::vector<std::string>& t, size_t lead) {
  if (!v || v->textAfter == 0) return 0;
  if (v->textIfFirst && !(t.size() > 1 + lead && upper(t[1 + lead]) == v->textIfFirst)) return 0;
  return v->textAfter;
}

}  // namespace

std::string tok(const std::string& s) {
  std::string e = escape(s, true);
  std::string out;
  for (char ch : e) {
    if (ch == ',') out += "\\x2c";
    else out += ch;
  }
  return out;
}

std::string hex64(uint64_t v) {
  char b[32];
  snprintf(b, sizeof b, "%016llx", static_cast<unsigned long long>(v));
  return b;
}

std::string hex32(uint32_t v) {
  char b[16];
  snprintf(b, sizeof b, "%08x", v);
  return b;
}

std::string upper(std::string s) {
  for (auto& ch : s) ch = static_cast<char>(toupper(static_cast<unsigned char>(ch)));
  return s;
}

bool toBool(const std::string& v, bool& out) {
  if (v == "1" || v == "on" || v == "yes" || v == "true") return out = true, true;
  if (v == "0" || v == "off" || v == "no" || v == "false") return out = false, true;
  return false;
}

std::string okCount(size_t n) { return "OK " + std::to_string(n); }

Cmd::Cmd(Sim& s, ControlClient* cl, const std::string& line, std::vector<std::string> words)
    : sim(s), client(cl), raw(line), t(std::move(words)), verb(upper(t[0])) {}

bool Cmd::parse(const Verb* v) {
  // Options (key=value) may follow the command word. Commands ending in free
  // text take options only there and before the text: the text is never scanned.
  size_t lead = 0;
  while (1 + lead < t.size() && isKv(t[1 + lead])) ++lead;
  size_t fixed = fixedWords(v, t, lead);
  textStart = 1 + lead + fixed;
  if (fixed) {
    size_t end = std::min(t.size(), textStart);
    a = parseArgs(std::vector<std::string>(t.begin(), t.begin() + static_cast<long>(end)), 1);
    a.pos.clear();
    for (size_t i = 1 + lead; i < end; ++i) a.pos.push_back(t[i]);
  } else {
    a = parseArgs(t, 1);
  }
  if (a.has("dev")) {
    long long n;
    if (!parseInt(a.get("dev"), n) || n < 0 || n >= static_cast<long long>(sim.devices_.size())) return false;
    dev = static_cast<int>(n);
  }
  d0 = &sim.devices_[static_cast<size_t>(dev < 0 ? 0 : dev)];
  return true;
}

std::string Cmd::startWait(long long timeoutMs, std::function<bool(std::string&)> check,
                           std::function<std::string()> onTimeout) {
  std::string reply;
  if (!client) return check(reply) ? reply : onTimeout();
  client->waitCheck = std::move(check);
  client->waitOnTimeout = std::move(onTimeout);
  client->waitDeadline = nowMs() + std::max<long long>(0, timeoutMs);
  return std::string();
}

bool Cmd::needConns(size_t idx, std::vector<Conn*>& out) {
  if (a.pos.size() <= idx) return err = "missing connection", false;
  out = sim.resolveConns(a.pos[idx], dev, err);
  return !out.empty() || (err.empty() ? (err = "no open connection", false) : false);
}

std::string Cmd::freeText() const { return restAfter(raw, textStart); }

bool Cmd::escapedText(std::string& out) const { return unescape(freeText(), out); }

void Cmd::eachDevice(const std::function<void(Device&)>& fn) {
  for (auto& d : sim.devices_)
    if (dev < 0 || d.index == dev) fn(d);
}

Conn* Sim::resolveConn(const std::string& which, int dev, std::string& err) {
  if (which == "last") {
    Conn* best = nullptr;
    for (auto& kv : conns_) {
      Conn& c = *kv.second;
      if (c.closed || (dev >= 0 && c.dev != dev)) continue;
      best = &c;  // map is ordered by id: the last one wins
    }
    if (!best) err = "no open connection";
    return best;
  }
  long long id;
  if (!parseInt(which, id)) {
    err = "bad connection " + which;
    return nullptr;
  }
  Conn* c = findConn(static_cast<int>(id));
  if (!c) err = "no open connection " + which;
  return c;
}

std::vector<Conn*> Sim::resolveConns(const std::string& which, int dev, std::string& err) {
  std::vector<Conn*> v;
  if (which == "all") {
    for (auto& kv : conns_)
      if (!kv.second->closed && (dev < 0 || kv.second->dev == dev)) v.push_back(kv.second.get());
    return v;
  }
  if (Conn* c = resolveConn(which, dev, err)) v.push_back(c);
  return v;
}

std::string Sim::command(const std::string& rawLine, ControlClient* client) {
  std::vector<std::string> words = split(rawLine);
  if (words.empty()) return "ERR empty";
  Cmd c(*this, client, rawLine, std::move(words));
  const Verb* v = findVerb(c.verb);
  if (!c.parse(v)) return "ERR bad dev";
  if (!v) return "ERR unknown command " + c.t[0] + " (try HELP)";
  return (c.*(v->run))();
}

}  // namespace devsim
