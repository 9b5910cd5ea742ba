// The line-based control channel: one command per line, one reply line per
// command, starting with "OK" or "ERR". Values in replies are escaped (see
// proto.h) so that a reply is always one line of space-separated tokens.
#include <sys/socket.h>

#include <cstdio>
#include <sstream>

#include "help.h"
#include "sim.h"

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

std::string upper(std::string s) {
  for (auto& ch : s) ch = static_cast<char>(toupper(static_cast<unsigned char>(ch)));
  return s;
}

// Escaped for a reply token, commas too (MSGS and CONNS use commas between fields).
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

std::string xmlAttr(const std::string& s) {
  std::string o;
  for (char ch : s) {
    switch (ch) {
      case '&': o += "&amp;"; break;
      case '<': o += "&lt;"; break;
      case '>': o += "&gt;"; break;
      case '"': o += "&quot;"; break;
      default: o += ch;
    }
  }
  return o;
}

bool isKv(const std::string& t) {
  size_t eq = t.find('=');
  if (eq == std::string::npos || eq == 0) return false;
  for (size_t i = 0; i < eq; ++i)
    if (!(islower(static_cast<unsigned char>(t[i])) || isdigit(static_cast<unsigned char>(t[i])) || t[i] == '_'))
      return false;
  return true;
}

struct Args {
  std::vector<std::string> pos;
  std::map<std::string, std::string> kv;
  bool has(const std::string& k) const { return kv.count(k) != 0; }
  std::string get(const std::string& k, const std::string& def = std::string()) const {
    auto it = kv.find(k);
    return it == kv.end() ? def : it->second;
  }
};

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

bool toBool(const std::string& v, bool& out) {
  if (v == "1" || v == "on" || v == "yes" || v == "true") return out = true, true;
  if (v == "0" || v == "off" || v == "no" || v == "false") return out = false, true;
  return false;
}

}  // namespace

std::string Sim::connLine(const Conn& c) const {
  std::string u = c.upload ? c.upload->state : "none";
  return "id=" + std::to_string(c.id) + ",dev=" + std::to_string(c.dev) + ",auth=" + (c.auth ? "1" : "0") +
         ",user=" + tok(c.user) + ",peer=" + c.peer + ",rxframes=" + std::to_string(c.rxFrames) +
         ",txframes=" + std::to_string(c.txFrames) + ",badbytes=" + std::to_string(c.badBytes) +
         ",pending=" + std::to_string(c.out.size()) + ",upload=" + u;
}

std::string Sim::uploadLine(const UploadReport& u) const {
  std::string errs;
  for (size_t i = 0; i < u.errors.size(); ++i) errs += (i ? "; " : "") + u.errors[i];
  long long size = u.data.empty() ? u.size : static_cast<long long>(u.data.size());
  return "index=" + std::to_string(u.index) + " state=" + u.state + " kind=" + u.kind +
         " conn=" + std::to_string(u.conn) + " announced=" + std::to_string(u.announced) +
         " size=" + std::to_string(size) +
         " chunks=" + std::to_string(u.chunks) + " fnv=" + hex64(u.fnv) + " crc32=" + hex32(u.crc) +
         " file=" + tok(u.file) + " errors=" + std::to_string(u.errors.size()) + " err=" + tok(errs);
}

std::string Sim::downloadLine(const DownloadReport& r) const {
  return "index=" + std::to_string(r.index) + " conn=" + std::to_string(r.conn) +
         " announced=" + std::to_string(r.announced) + " sent=" + std::to_string(r.sent) +
         " chunks=" + std::to_string(r.chunks) + " fault=" + r.fault + " fnv=" + hex64(r.fnv) +
         " crc32=" + hex32(r.crc) + " source=" + tok(r.source);
}

bool Sim::setSetting(Settings& s, const std::string& name, const std::string& v, std::string& err) {
  long long n = 0;
  bool b = false;
  auto num = [&](long long& dst) {
    if (!parseInt(v, n)) return err = "not a number: " + v, false;
    dst = n;
    return true;
  };
  auto flag = [&](bool& dst) {
    if (!toBool(v, b)) return err = "not a boolean: " + v, false;
    dst = b;
    return true;
  };
  auto oneOf = [&](std::string& dst, std::initializer_list<const char*> allowed) {
    for (const char* a : allowed)
      if (v == a) return dst = v, true;
    err = "bad value " + v + " for " + name;
    return false;
  };
  if (name == "auth_mode") return oneOf(s.authMode, {"normal", "silent", "refuse"});
  if (name == "auth_refusal") return num(s.authRefusal);
  if (name == "max_channels") return num(s.maxChannels);
  if (name == "heartbeat_answer") return flag(s.heartbeatAnswer);
  if (name == "require_auth") return flag(s.requireAuth);
  if (name == "config_answer_type") {
    if (v.empty()) return err = "empty type", false;
    s.configAnswerType = v;
    return true;
  }
  if (name == "config_missing_result") return num(s.configMissingResult);
  if (name == "reboot_pause_ms") return num(s.rebootPauseMs);
  if (name == "front_replay") return oneOf(s.frontReplay, {"none", "plain", "spaced"});
  if (name == "caps") return unescape(v, s.caps) || (err = "bad escape", false);
  if (name == "serial_result") return num(s.serialResult);
  if (name == "ptz_answer") return flag(s.ptzAnswer);
  if (name == "userdata_answer") return flag(s.userDataAnswer);
  if (name == "sysctl_answer_unknown") return flag(s.sysctlAnswerUnknown);
  if (name == "upload_mode") return oneOf(s.uploadMode, {"accept", "refuse", "late", "twice"});
  if (name == "upload_refuse_code") return num(s.uploadRefuseCode);
  if (name == "upload_name") {
    if (v == "-") return s.uploadName.clear(), true;
    return unescape(v, s.uploadName) || (err = "bad escape", false);
  }
  if (name == "dl_file") {
    if (v == "-") return s.dlFile.clear(), true;
    return unescape(v, s.dlFile) || (err = "bad escape", false);
  }
  if (name == "dl_size") return num(s.dlSize) && (s.dlSize >= 0 || (err = "negative size", false));
  if (name == "dl_chunk") return num(s.dlChunk) && (s.dlChunk >= 1 || (err = "chunk must be >= 1", false));
  if (name == "dl_fault")
    return oneOf(s.dlFault, {"none", "badsep", "zerolen", "nolength", "extra", "short", "twice", "drop"});
  if (name == "dl_extra") return num(s.dlExtra);
  if (name == "dl_delay_ms") return num(s.dlDelayMs);
  if (name == "mute") return flag(s.mute);
  if (name == "answer_flag") {
    long long f;
    if (!parseInt(v, f) || f < 0 || f > 0xFFFFFFFFll) return err = "bad flag " + v, false;
    s.answerFlag = static_cast<uint32_t>(f);
    return true;
  }
  err = "unknown setting " + name;
  return false;
}

bool Sim::getSetting(const Settings& s, const std::string& name, std::string& out) const {
  auto B = [](bool b) { return std::string(b ? "1" : "0"); };
  if (name == "auth_mode") out = s.authMode;
  else if (name == "auth_refusal") out = std::to_string(s.authRefusal);
  else if (name == "max_channels") out = std::to_string(s.maxChannels);
  else if (name == "heartbeat_answer") out = B(s.heartbeatAnswer);
  else if (name == "require_auth") out = B(s.requireAuth);
  else if (name == "config_answer_type") out = tok(s.configAnswerType);
  else if (name == "config_missing_result") out = std::to_string(s.configMissingResult);
  else if (name == "reboot_pause_ms") out = std::to_string(s.rebootPauseMs);
  else if (name == "front_replay") out = s.frontReplay;
  else if (name == "caps") out = tok(s.caps);
  else if (name == "serial_result") out = std::to_string(s.serialResult);
  else if (name == "ptz_answer") out = B(s.ptzAnswer);
  else if (name == "userdata_answer") out = B(s.userDataAnswer);
  else if (name == "sysctl_answer_unknown") out = B(s.sysctlAnswerUnknown);
  else if (name == "upload_mode") out = s.uploadMode;
  else if (name == "upload_refuse_code") out = std::to_string(s.uploadRefuseCode);
  else if (name == "upload_name") out = s.uploadName.empty() ? "-" : tok(s.uploadName);
  else if (name == "dl_file") out = s.dlFile.empty() ? "-" : tok(s.dlFile);
  else if (name == "dl_size") out = std::to_string(s.dlSize);
  else if (name == "dl_chunk") out = std::to_string(s.dlChunk);
  else if (name == "dl_fault") out = s.dlFault;
  else if (name == "dl_extra") out = std::to_string(s.dlExtra);
  else if (name == "dl_delay_ms") out = std::to_string(s.dlDelayMs);
  else if (name == "mute") out = B(s.mute);
  else if (name == "answer_flag") out = "0x" + hex32(s.answerFlag);
  else return false;
  return true;
}

std::string Sim::settingsLine(const Settings& s) const {
  static const char* names[] = {"auth_mode", "auth_refusal", "max_channels", "heartbeat_answer",
                                "require_auth", "config_answer_type", "config_missing_result",
                                "reboot_pause_ms", "front_replay", "caps", "serial_result",
                                "ptz_answer", "userdata_answer", "sysctl_answer_unknown",
                                "upload_mode", "upload_refuse_code", "upload_name", "dl_file",
                                "dl_size", "dl_chunk", "dl_fault", "dl_extra", "dl_delay_ms",
                                "mute", "answer_flag"};
  std::string out;
  for (const char* n : names) {
    std::string v;
    getSetting(s, n, v);
    out += std::string(" ") + n + "=" + v;
  }
  return out;
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

std::string Sim::alarmBody(const std::map<std::string, std::string>& kv, std::string& err) const {
  auto get = [&](const char* k, const char* def) {
    auto it = kv.find(k);
    return it == kv.end() ? std::string(def) : it->second;
  };
  std::string form = get("form", "good");
  long long items = 1;
  if (!parseInt(get("items", "1"), items) || items < 0 || items > 10000) {
    err = "bad items";
    return std::string();
  }
  std::string data;
  if (!unescape(get("data", "sim alarm"), data)) {
    err = "bad escape in data";
    return std::string();
  }
  long long datalen = -1;
  if (kv.count("datalen")) {
    if (!parseInt(get("datalen", "0"), datalen) || datalen < 0 || datalen > 100000) {
      err = "bad datalen";
      return std::string();
    }
    data.clear();
    for (long long i = 0; i < datalen; ++i) data += static_cast<char>('A' + i % 26);
  }
  std::string head = "<MESSAGE_HEADER Msg_type=\"ALARM_REPORT_MESSAGE\" Msg_code=\"" +
                     xmlAttr(get("msgcode", "CMD_REPORT_ALARM")) + "\" Msg_flag=\"" +
                     xmlAttr(get("msgflag", "0")) + "\"";
  if (form == "badquote") return head + "\" />" + "<MESSAGE_BODY><ALARM_REPORT_PARAM></ALARM_REPORT_PARAM></MESSAGE_BODY>";
  head += " />";
  if (form == "emptybody") return head + "<MESSAGE_BODY></MESSAGE_BODY>";
  if (form == "emptybody_nl") return head + "<MESSAGE_BODY>\n</MESSAGE_BODY>";
  if (form != "good") {
    err = "bad form " + form;
    return std::string();
  }
  std::string time = "<ALARM_TIME Year=\"" + xmlAttr(get("year", "2024")) + "\" Month=\"" +
                     xmlAttr(get("month", "5")) + "\" Day=\"" + xmlAttr(get("day", "17")) +
                     "\" WDay=\"" + xmlAttr(get("wday", "5")) + "\" Hour=\"" + xmlAttr(get("hour", "13")) +
                     "\" Minute=\"" + xmlAttr(get("minute", "45")) + "\" Second=\"" +
                     xmlAttr(get("second", "30")) + "\"/>";
  std::string info = "<ALARM_INFO Alarm_code=\"" + xmlAttr(get("acode", "1")) + "\" Alarm_flag=\"" +
                     xmlAttr(get("aflag", "1")) + "\" Alarm_level=\"" + xmlAttr(get("level", "2")) +
                     "\" Alarm_data=\"" + xmlAttr(data) + "\"/>";
  bool noTime = get("notime", "0") == "1", noInfo = get("noinfo", "0") == "1";
  std::string body = head + "<MESSAGE_BODY><ALARM_REPORT_PARAM>";
  for (long long i = 0; i < items; ++i)
    body += "<ALARM_ITEM>" + (noTime ? std::string() : time) + (noInfo ? std::string() : info) + "</ALARM_ITEM>";
  body += "</ALARM_REPORT_PARAM></MESSAGE_BODY>";
  return body;
}

std::string Sim::command(const std::string& rawLine, ControlClient* client) {
  std::vector<std::string> t = split(rawLine);
  if (t.empty()) return "ERR empty";
  std::string verb = upper(t[0]);
  // Options (key=value) may follow the command word. Commands ending in free
  // text take options only there and before the text: the text is never scanned.
  size_t lead = 0;
  while (1 + lead < t.size() && isKv(t[1 + lead])) ++lead;
  size_t fixedArgs = 0;  // words between the options and the free text
  if (verb == "SEND") fixedArgs = 4;
  else if (verb == "SENDTEXT" || verb == "SENDHEX" || verb == "RAW") fixedArgs = 1;
  else if (verb == "CONFIG" && t.size() > 1 + lead && upper(t[1 + lead]) == "SET") fixedArgs = 2;
  const size_t textStart = 1 + lead + fixedArgs;  // words before the free text
  Args a;
  if (fixedArgs) {
    a = parseArgs(std::vector<std::string>(t.begin(), t.begin() + static_cast<long>(std::min(t.size(), textStart))), 1);
    a.pos.clear();
    for (size_t i = 1 + lead; i < std::min(t.size(), textStart); ++i) a.pos.push_back(t[i]);
  } else {
    a = parseArgs(t, 1);
  }
  int dev = -1;
  if (a.has("dev")) {
    long long v;
    if (!parseInt(a.get("dev"), v) || v < 0 || v >= static_cast<long long>(devices_.size()))
      return "ERR bad dev";
    dev = static_cast<int>(v);
  }
  Device& d0 = devices_[static_cast<size_t>(dev < 0 ? 0 : dev)];
  std::string err;

  // Parks the client until check() holds; scripts get one immediate evaluation.
  auto startWait = [&](long long timeoutMs, std::function<bool(std::string&)> check,
                       std::function<std::string()> onTimeout) -> std::string {
    std::string reply;
    if (!client) return check(reply) ? reply : onTimeout();
    client->waitCheck = std::move(check);
    client->waitOnTimeout = std::move(onTimeout);
    client->waitDeadline = nowMs() + std::max<long long>(0, timeoutMs);
    return std::string();
  };
  auto needConns = [&](size_t idx, std::vector<Conn*>& out) -> bool {
    if (a.pos.size() <= idx) return err = "missing connection", false;
    out = resolveConns(a.pos[idx], dev, err);
    return !out.empty() || (err.empty() ? (err = "no open connection", false) : false);
  };

  if (verb == "HELP") return "OK " + escape(controlHelpText(), true);
  if (verb == "PING") return "OK pong";
  if (verb == "QUIT" || verb == "STOP") {
    quit_ = true;
    return "OK bye";
  }
  if (verb == "PORTS") {
    std::string s = "OK control=" + std::to_string(controlPort_) + " devices=";
    for (size_t i = 0; i < devices_.size(); ++i) s += (i ? "," : "") + std::to_string(devices_[i].port);
    return s;
  }
  if (verb == "CONNS") {
    std::string s;
    int n = 0;
    for (auto& kv : conns_) {
      Conn& c = *kv.second;
      if (c.closed || (dev >= 0 && c.dev != dev)) continue;
      if (a.get("auth") == "1" && !c.auth) continue;
      s += " " + connLine(c);
      ++n;
    }
    return "OK " + std::to_string(n) + s;
  }
  if (verb == "STATS") {
    std::string s = "OK";
    for (auto& kv : stats_) s += " " + kv.first + "=" + std::to_string(kv.second);
    return s;
  }
  if (verb == "COUNT") {
    if (a.pos.size() < 2) return "ERR usage: COUNT TYPE CMD [conn=ID] [dev=K]";
    long long conn = 0;
    if (a.has("conn") && !parseInt(a.get("conn"), conn)) return "ERR bad conn";
    return "OK " + std::to_string(countMsgs(a.pos[0], a.pos[1], static_cast<int>(conn), dev));
  }
  if (verb == "WAIT") {
    long long want, timeout, conn = 0;
    if (a.pos.size() < 4 || !parseInt(a.pos[2], want) || !parseInt(a.pos[3], timeout))
      return "ERR usage: WAIT TYPE CMD COUNT TIMEOUT_MS [conn=ID] [dev=K]";
    if (a.has("conn") && !parseInt(a.get("conn"), conn)) return "ERR bad conn";
    std::string type = a.pos[0], cmd = a.pos[1];
    int cid = static_cast<int>(conn);
    return startWait(
        timeout,
        [this, type, cmd, cid, dev, want](std::string& r) {
          long long n = countMsgs(type, cmd, cid, dev);
          if (n < want) return false;
          r = "OK " + std::to_string(n);
          return true;
        },
        [this, type, cmd, cid, dev]() {
          return "ERR timeout " + std::to_string(countMsgs(type, cmd, cid, dev));
        });
  }
  if (verb == "WAITCONN") {
    long long want, timeout;
    if (a.pos.size() < 2 || !parseInt(a.pos[0], want) || !parseInt(a.pos[1], timeout))
      return "ERR usage: WAITCONN COUNT TIMEOUT_MS [auth=1] [atmost=1] [dev=K]";
    bool needAuth = a.get("auth") == "1";
    bool atMost = a.get("atmost") == "1";  // wait for the count to fall to COUNT or below
    auto count = [this, needAuth, dev]() {
      long long n = 0;
      for (auto& kv : conns_)
        if (!kv.second->closed && (dev < 0 || kv.second->dev == dev) && (!needAuth || kv.second->auth)) ++n;
      return n;
    };
    return startWait(
        timeout,
        [count, want, atMost](std::string& r) {
          long long n = count();
          if (atMost ? n > want : n < want) return false;
          r = "OK " + std::to_string(n);
          return true;
        },
        [count]() { return "ERR timeout " + std::to_string(count()); });
  }
  if (verb == "WAITCLOSED") {
    long long id, timeout;
    if (a.pos.size() < 2 || !parseInt(a.pos[1], timeout)) return "ERR usage: WAITCLOSED CONN TIMEOUT_MS";
    if (a.pos[0] == "last") id = lastConnId_;
    else if (!parseInt(a.pos[0], id)) return "ERR bad connection";
    int cid = static_cast<int>(id);
    return startWait(
        timeout,
        [this, cid](std::string& r) {
          if (findConn(cid)) return false;
          r = "OK closed";
          return true;
        },
        []() { return std::string("ERR timeout open"); });
  }
  if (verb == "WAITSTAT") {
    long long want, timeout;
    if (a.pos.size() < 3 || !parseInt(a.pos[1], want) || !parseInt(a.pos[2], timeout))
      return "ERR usage: WAITSTAT NAME VALUE TIMEOUT_MS";
    std::string name = a.pos[0];
    return startWait(
        timeout,
        [this, name, want](std::string& r) {
          long long v = stats_.count(name) ? stats_[name] : 0;
          if (v < want) return false;
          r = "OK " + std::to_string(v);
          return true;
        },
        [this, name]() { return "ERR timeout " + std::to_string(stats_.count(name) ? stats_[name] : 0); });
  }
  if (verb == "LASTMSG" || verb == "MSG" || verb == "MSGS") {
    long long conn = 0, seq = 0, max = 100;
    if (a.has("conn") && !parseInt(a.get("conn"), conn)) return "ERR bad conn";
    if (a.has("max") && !parseInt(a.get("max"), max)) return "ERR bad max";
    std::string type = "*", cmd = "*";
    if (verb == "MSG") {
      if (a.pos.empty() || !parseInt(a.pos[0], seq)) return "ERR usage: MSG SEQ";
    } else {
      if (a.pos.size() >= 1) type = a.pos[0];
      if (a.pos.size() >= 2) cmd = a.pos[1];
    }
    auto match = [&](const MsgRecord& r) {
      if (verb == "MSG") return r.seq == static_cast<uint64_t>(seq);
      if (conn > 0 && r.conn != conn) return false;
      if (dev >= 0 && r.dev != dev) return false;
      return (type == "*" || r.type == type) && (cmd == "*" || r.cmd == cmd);
    };
    if (verb == "MSGS") {
      std::vector<const MsgRecord*> hits;
      for (auto it = records_.rbegin(); it != records_.rend() && static_cast<long long>(hits.size()) < max; ++it)
        if (match(*it)) hits.push_back(&*it);
      std::string s = "OK " + std::to_string(hits.size());
      for (auto it = hits.rbegin(); it != hits.rend(); ++it) {
        const MsgRecord& r = **it;
        s += " seq=" + std::to_string(r.seq) + ",conn=" + std::to_string(r.conn) + ",dev=" +
             std::to_string(r.dev) + ",type=" + tok(r.type) + ",cmd=" + tok(r.cmd) + ",result=" +
             tok(r.result) + ",size=" + std::to_string(r.size) + ",body=" + tok(r.body);
      }
      return s;
    }
    for (auto it = records_.rbegin(); it != records_.rend(); ++it) {
      if (!match(*it)) continue;
      const MsgRecord& r = *it;
      return "OK seq=" + std::to_string(r.seq) + " conn=" + std::to_string(r.conn) + " dev=" +
             std::to_string(r.dev) + " type=" + tok(r.type) + " cmd=" + tok(r.cmd) + " result=" +
             tok(r.result) + " size=" + std::to_string(r.size) + " body=" + tok(r.body);
    }
    return "ERR none";
  }
  if (verb == "CLEARMSGS") {
    records_.clear();
    counts_.clear();
    return "OK";
  }
  if (verb == "SET") {
    if (a.pos.size() < 2) return "ERR usage: SET NAME VALUE [dev=K]";
    for (auto& d : devices_) {
      if (dev >= 0 && d.index != dev) continue;
      if (!setSetting(d.s, a.pos[0], a.pos[1], err)) return "ERR " + err;
    }
    return "OK";
  }
  if (verb == "GET") {
    if (a.pos.empty()) return "ERR usage: GET NAME [dev=K]";
    std::string v;
    if (!getSetting(d0.s, a.pos[0], v)) return "ERR unknown setting " + a.pos[0];
    return "OK " + v;
  }
  if (verb == "SETTINGS") return "OK" + settingsLine(d0.s);
  if (verb == "ACCOUNT") {
    std::string sub = a.pos.empty() ? "" : upper(a.pos[0]);
    if (sub == "ADD" && a.pos.size() >= 3) {
      for (auto& d : devices_)
        if (dev < 0 || d.index == dev) d.accounts[a.pos[1]] = a.pos[2];
      return "OK";
    }
    if (sub == "DEL" && a.pos.size() >= 2) {
      for (auto& d : devices_)
        if (dev < 0 || d.index == dev) d.accounts.erase(a.pos[1]);
      return "OK";
    }
    if (sub == "LIST") {
      std::string s = "OK " + std::to_string(d0.accounts.size());
      for (auto& kv : d0.accounts) s += " " + tok(kv.first) + ":" + tok(kv.second);
      return s;
    }
    return "ERR usage: ACCOUNT ADD USER PASS | ACCOUNT DEL USER | ACCOUNT LIST";
  }
  if (verb == "CONFIG") {
    std::string sub = a.pos.empty() ? "" : upper(a.pos[0]);
    if (sub == "GET" && a.pos.size() >= 2) {
      auto it = d0.config.find(a.pos[1]);
      if (it == d0.config.end()) return "ERR none";
      return "OK body=" + tok(it->second);
    }
    if (sub == "SET" && a.pos.size() >= 2) {
      // Body: the rest of the line after "CONFIG SET CMD", escaped.
      std::string body;
      if (!unescape(restAfter(rawLine, textStart), body)) return "ERR bad escape";
      for (auto& d : devices_)
        if (dev < 0 || d.index == dev) d.config[a.pos[1]] = body;
      return "OK";
    }
    if (sub == "DEL" && a.pos.size() >= 2) {
      for (auto& d : devices_)
        if (dev < 0 || d.index == dev) d.config.erase(a.pos[1]);
      return "OK";
    }
    if (sub == "CLEAR") {
      for (auto& d : devices_)
        if (dev < 0 || d.index == dev) d.config.clear();
      return "OK";
    }
    if (sub == "DUMP") {
      std::string s = "OK " + std::to_string(d0.config.size());
      for (auto& kv : d0.config) s += " " + tok(kv.first) + "=" + tok(kv.second);
      return s;
    }
    return "ERR usage: CONFIG GET CMD | SET CMD BODY | DEL CMD | CLEAR | DUMP";
  }
  if (verb == "USERDATA") {
    if (a.pos.empty()) return "OK hex=" + toHex(d0.userData);
    std::string bytes;
    if (a.pos[0] != "-" && !fromHex(a.pos[0], bytes)) return "ERR bad hex";
    for (auto& d : devices_)
      if (dev < 0 || d.index == dev) d.userData = bytes;
    return "OK";
  }
  if (verb == "UPLOAD") {
    std::string sub = a.pos.empty() ? "" : upper(a.pos[0]);
    if (sub == "ACCEPT" || sub == "REFUSE") {
      long long code = 0;
      size_t ci = 1;
      if (sub == "REFUSE") {
        if (a.pos.size() < 2 || !parseInt(a.pos[1], code)) return "ERR usage: UPLOAD REFUSE CODE [CONN]";
        ci = 2;
      }
      // Default: the most recent connection with an announced upload.
      Conn* target = nullptr;
      if (a.pos.size() > ci) {
        target = resolveConn(a.pos[ci], dev, err);
        if (!target) return "ERR " + err;
      } else {
        for (auto& kv : conns_)
          if (!kv.second->closed && kv.second->upload && (dev < 0 || kv.second->dev == dev))
            target = kv.second.get();
        // Acceptance after a cancel goes to the last connection that announced one.
        if (!target) {
          for (auto it = devices_.rbegin(); it != devices_.rend() && !target; ++it) {
            if (dev >= 0 && it->index != dev) continue;
            if (!it->uploads.empty()) target = findConn(it->uploads.back().conn);
          }
        }
        if (!target) return "ERR no upload to answer";
      }
      Device& d = devices_[static_cast<size_t>(target->dev)];
      std::string cmd = target->upload ? target->upload->requestCmd
                                       : (d.uploads.empty() ? "20001" : d.uploads.back().requestCmd);
      if (sub == "ACCEPT") {
        answer(*target, "20000", cmd, 0);
        if (target->upload && target->upload->state == "waiting") {
          target->upload->state = "active";
          target->upload->accepted = true;
        }
      } else {
        answer(*target, "20000", cmd, code);
        if (target->upload && target->upload->state == "waiting") finishUpload(*target, d, "refused");
      }
      return "OK conn=" + std::to_string(target->id) + " cmd=" + cmd;
    }
    if (sub == "COUNT") return "OK " + std::to_string(d0.uploads.size());
    long long idx = -1;
    if (!a.pos.empty() && !parseInt(a.pos[0], idx)) return "ERR usage: UPLOAD [INDEX|COUNT|ACCEPT|REFUSE]";
    if (idx < 0) {
      // The newest: an upload still open on a connection, else the last finished one.
      const UploadReport* open = nullptr;
      for (auto& kv : conns_)
        if (!kv.second->closed && kv.second->upload && kv.second->dev == d0.index) open = kv.second->upload.get();
      if (open) return "OK " + uploadLine(*open);
      if (d0.uploads.empty()) return "ERR none";
      return "OK " + uploadLine(d0.uploads.back());
    }
    if (idx >= static_cast<long long>(d0.uploads.size())) return "ERR none";
    return "OK " + uploadLine(d0.uploads[static_cast<size_t>(idx)]);
  }
  if (verb == "DOWNLOAD") {
    if (!a.pos.empty() && upper(a.pos[0]) == "COUNT") return "OK " + std::to_string(d0.downloads.size());
    long long idx = -1;
    if (!a.pos.empty() && !parseInt(a.pos[0], idx)) return "ERR usage: DOWNLOAD [INDEX|COUNT]";
    if (d0.downloads.empty()) return "ERR none";
    if (idx < 0) return "OK " + downloadLine(d0.downloads.back());
    if (idx >= static_cast<long long>(d0.downloads.size())) return "ERR none";
    return "OK " + downloadLine(d0.downloads[static_cast<size_t>(idx)]);
  }
  if (verb == "REBOOT") {
    for (auto& d : devices_)
      if ((dev < 0 && d.index == 0) || d.index == dev) reboot(d, nullptr);
    return "OK";
  }
  if (verb == "CLOSE") {
    std::vector<Conn*> cs;
    if (!needConns(0, cs)) return "ERR " + err;
    bool rst = a.get("rst") == "1";
    for (Conn* c : cs) closeConn(*c, rst, "closed by control");
    return "OK " + std::to_string(cs.size());
  }

  // Everything below sends something to one or more connections.
  std::vector<Conn*> cs;
  if (verb == "SEND") {
    if (a.pos.size() < 4) return "ERR usage: SEND CONN TYPE CMD RESULT [BODY]";
    if (!needConns(0, cs)) return "ERR " + err;
    std::string body;
    if (!unescape(restAfter(rawLine, textStart), body)) return "ERR bad escape";
    for (Conn* c : cs) sendPayload(*c, envelope(a.pos[1], a.pos[2], a.pos[3], body));
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "SENDTEXT") {
    if (a.pos.empty()) return "ERR usage: SENDTEXT CONN TEXT";
    if (!needConns(0, cs)) return "ERR " + err;
    std::string text;
    if (!unescape(restAfter(rawLine, textStart), text)) return "ERR bad escape";
    for (Conn* c : cs) sendPayload(*c, text);
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "SENDHEX" || verb == "RAW") {
    if (a.pos.empty() || t.size() <= textStart) return "ERR usage: " + verb + " CONN HEX";
    std::vector<Conn*> v = resolveConns(a.pos[0], dev, err);
    if (v.empty()) return "ERR " + (err.empty() ? std::string("no open connection") : err);
    std::string bytes;
    if (!fromHex(restAfter(rawLine, textStart), bytes)) return "ERR bad hex";
    for (Conn* c : v) {
      if (verb == "RAW") sendRaw(*c, bytes);
      else sendPayload(*c, bytes);
    }
    return "OK " + std::to_string(v.size());
  }
  if (verb == "FRAME") {
    if (!needConns(0, cs)) return "ERR " + err;
    long long flag = kFlagLibrary, len = -1, shift = 0;
    if (a.has("flag") && !parseInt(a.get("flag"), flag)) return "ERR bad flag";
    if (a.has("len") && !parseInt(a.get("len"), len)) return "ERR bad len";
    if (a.has("shift") && (!parseInt(a.get("shift"), shift) || shift < 0 || shift > 1000000)) return "ERR bad shift";
    std::string payload;
    if (a.has("hex") && !fromHex(a.get("hex"), payload)) return "ERR bad hex";
    if (a.has("text") && !unescape(a.get("text"), payload)) return "ERR bad escape";
    std::string bytes = std::string(static_cast<size_t>(shift), '\x5a') +
                        frameHeader(static_cast<uint32_t>(flag),
                                    static_cast<uint32_t>(len < 0 ? static_cast<long long>(payload.size()) : len)) +
                        payload;
    for (Conn* c : cs) sendRaw(*c, bytes);
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "GARBAGE") {
    long long n;
    if (a.pos.size() < 2 || !parseInt(a.pos[1], n) || n < 0 || n > (16 << 20)) return "ERR usage: GARBAGE CONN N";
    if (!needConns(0, cs)) return "ERR " + err;
    for (Conn* c : cs) sendRaw(*c, std::string(static_cast<size_t>(n), '\x5a'));
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "LEN8") {
    if (!needConns(0, cs)) return "ERR " + err;
    for (Conn* c : cs) sendRaw(*c, frame("01234567", devices_[static_cast<size_t>(c->dev)].s.answerFlag));
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "OVERSIZE") {
    if (!needConns(0, cs)) return "ERR " + err;
    long long len = 0xF00009, n = 64;
    if (a.has("len") && !parseInt(a.get("len"), len)) return "ERR bad len";
    if (a.has("bytes") && (!parseInt(a.get("bytes"), n) || n < 0 || n > (16 << 20))) return "ERR bad bytes";
    for (Conn* c : cs)
      sendRaw(*c, frameHeader(devices_[static_cast<size_t>(c->dev)].s.answerFlag, static_cast<uint32_t>(len)) +
                      std::string(static_cast<size_t>(n), '\x5a'));
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "CUTFRAME") {
    if (!needConns(0, cs)) return "ERR " + err;
    long long n = 20;
    if (a.has("n") && (!parseInt(a.get("n"), n) || n < 0)) return "ERR bad n";
    bool rst = a.get("rst") == "1";
    std::string f = frame(envelope("30000", "35001", "0", ""), kFlagLibrary);
    if (static_cast<size_t>(n) + 8 >= f.size()) return "ERR n must be below the payload size";
    for (Conn* c : cs) {
      std::string ff = frame(envelope("30000", "35001", "0", ""), devices_[static_cast<size_t>(c->dev)].s.answerFlag);
      sendRaw(*c, ff.substr(0, 8 + static_cast<size_t>(n)), 0, true, rst);
    }
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "ARM" || verb == "DISARM") {
    if (a.pos.empty()) return "ERR usage: " + verb + " CONN|any [options]";
    FrameFault f;
    if (verb == "ARM") {
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
    }
    if (a.pos[0] == "any") {
      anyFault_ = f;
      return "OK any";
    }
    if (!needConns(0, cs)) return "ERR " + err;
    for (Conn* c : cs) c->fault = f;
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "CAMSTAT") {
    if (a.pos.size() < 2) return "ERR usage: CAMSTAT CONN TEXT [TEXT...] [type=T] [cmd=C]";
    if (!needConns(0, cs)) return "ERR " + err;
    std::string body;
    for (size_t i = 1; i < a.pos.size(); ++i) {
      std::string text;
      if (!unescape(a.pos[i], text)) return "ERR bad escape";
      body += "<Ipcs_stat>" + text + "</Ipcs_stat>\n";
    }
    body.pop_back();
    for (Conn* c : cs) sendPayload(*c, envelope(a.get("type", "30000"), a.get("cmd", "35003"), "0", body));
    bump("camstat_sent", static_cast<long long>(cs.size()));
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "ALARM") {
    if (!needConns(0, cs)) return "ERR " + err;
    std::string body = alarmBody(a.kv, err);
    if (!err.empty()) return "ERR " + err;
    // wrap=body: inside the PrivateProto body; root: MESSAGE_HEADER / MESSAGE_BODY as
    // children of the PrivateProto root (body empty); private: PRIVATE_PROTO alone.
    std::string wrap = a.get("wrap", "body"), payload;
    if (wrap == "body") {
      payload = envelope(a.get("type", "30000"), a.get("cmd", "35010"), "0", body);
    } else if (wrap == "root") {
      payload = envelope(a.get("type", "30000"), a.get("cmd", "35010"), "0", "");
      payload.insert(payload.find("<body>"), body + "\n");
    } else if (wrap == "private") {
      payload = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PRIVATE_PROTO>\n" + body + "\n</PRIVATE_PROTO>";
    } else {
      return "ERR bad wrap " + wrap;
    }
    for (Conn* c : cs) sendPayload(*c, payload);
    bump("alarms_sent", static_cast<long long>(cs.size()));
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "HB") {
    if (!needConns(0, cs)) return "ERR " + err;
    for (Conn* c : cs) answer(*c, "30000", "35001", 0);
    return "OK " + std::to_string(cs.size());
  }
  if (verb == "AUTHANSWER") {
    if (!needConns(0, cs)) return "ERR " + err;
    long long result = 0, maxch = d0.s.maxChannels;
    if (a.has("result") && !parseInt(a.get("result"), result)) return "ERR bad result";
    if (a.has("maxch") && !parseInt(a.get("maxch"), maxch)) return "ERR bad maxch";
    for (Conn* c : cs) {
      std::string body;
      if (result == 0 && maxch >= 0)
        body = "<authRsp><MAXChannels>" + std::to_string(maxch) + "</MAXChannels></authRsp>";
      if (result == 0) c->auth = true;
      answer(*c, "10000", "14012", result, body);
    }
    return "OK " + std::to_string(cs.size());
  }
  return "ERR unknown command " + t[0] + " (try HELP)";
}

}  // namespace devsim
