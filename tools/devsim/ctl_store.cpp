// Control commands for the device's settings, accounts, configuration store and
// user data. Setters act on every device unless dev=K; getters read one device.
#include "control.h"

namespace devsim {

namespace {

// "OK N k<sep>v ...": the count, then every pair, escaped.
std::string pairsReply(const std::map<std::string, std::string>& m, const char* sep) {
  std::string s = "OK " + std::to_string(m.size());
  for (auto& kv : m) s += " " + tok(kv.first) + sep + tok(kv.second);
  return s;
}

}  // namespace

std::string Cmd::set() {
  if (a.pos.size() < 2) return "ERR usage: SET NAME VALUE [dev=K]";
  for (auto& d : sim.devices_) {
    if (dev >= 0 && d.index != dev) continue;
    if (!sim.setSetting(d.s, a.pos[0], a.pos[1], err)) return "ERR " + err;
  }
  return "OK";
}

std::string Cmd::get() {
  if (a.pos.empty()) return "ERR usage: GET NAME [dev=K]";
  std::string v;
  if (!sim.getSetting(d0->s, a.pos[0], v)) return "ERR unknown setting " + a.pos[0];
  return "OK " + v;
}

std::string Cmd::settings() { return "OK" + sim.settingsLine(d0->s); }

std::string Cmd::account() {
  std::string sub = a.pos.empty() ? "" : upper(a.pos[0]);
  if (sub == "ADD" && a.pos.size() >= 3) {
    eachDevice([&](Device& d) { d.accounts[a.pos[1]] = a.pos[2]; });
    return "OK";
  }
  if (sub == "DEL" && a.pos.size() >= 2) {
    eachDevice([&](Device& d) { d.accounts.erase(a.pos[1]); });
    return "OK";
  }
  if (sub == "LIST") return pairsReply(d0->accounts, ":");
  return "ERR usage: ACCOUNT ADD USER PASS | ACCOUNT DEL USER | ACCOUNT LIST";
}

// CONFIG SET CMD BODY: the body is the rest of the line, escaped.
std::string Cmd::configSet() {
  std::string body;
  if (!escapedText(body)) return "ERR bad escape";
  eachDevice([&](Device& d) { d.config[a.pos[1]] = body; });
  return "OK";
}

std::string Cmd::config() {
  std::string sub = a.pos.empty() ? "" : upper(a.pos[0]);
  if (sub == "GET" && a.pos.size() >= 2) {
    auto it = d0->config.find(a.pos[1]);
    if (it == d0->config.end()) return "ERR none";
    return "OK body=" + tok(it->second);
  }
  if (sub == "SET" && a.pos.size() >= 2) return configSet();
  if (sub == "DEL" && a.pos.size() >= 2) {
    eachDevice([&](Device& d) { d.config.erase(a.pos[1]); });
    return "OK";
  }
  if (sub == "CLEAR") {
    eachDevice([](Device& d) { d.config.clear(); });
    return "OK";
  }
  if (sub == "DUMP") return pairsReply(d0->config, "=");
  return "ERR usage: CONFIG GET CMD | SET CMD BODY | DEL CMD | CLEAR | DUMP";
}

std::string Cmd::userData() {
  if (a.pos.empty()) return "OK hex=" + toHex(d0->userData);
  std::string bytes;
  if (a.pos[0] != "-" && !fromHex(a.pos[0], bytes)) return "ERR bad hex";
  eachDevice([&](Device& d) { d.userData = bytes; });
  return "OK";
}

}  // namespace devsim
