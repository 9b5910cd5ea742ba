// Control commands that park the client until a condition holds, so that tests
// need no sleeps: WAIT, WAITCONN, WAITCLOSED, WAITSTAT.
#include "control.h"

namespace devsim {

std::string Cmd::wait() {
  long long want, timeout, conn = 0;
  if (a.pos.size() < 4 || !parseInt(a.pos[2], want) || !parseInt(a.pos[3], timeout))
    return "ERR usage: WAIT TYPE CMD COUNT TIMEOUT_MS [conn=ID] [dev=K]";
  if (a.has("conn") && !parseInt(a.get("conn"), conn)) return "ERR bad conn";
  std::string type = a.pos[0], cmd = a.pos[1];
  int cid = static_cast<int>(conn), d = dev;
  Sim* s = &sim;
  return startWait(
      timeout,
      [s, type, cmd, cid, d, want](std::string& r) {
        long long n = s->countMsgs(type, cmd, cid, d);
        if (n < want) return false;
        r = "OK " + std::to_string(n);
        return true;
      },
      [s, type, cmd, cid, d]() { return "ERR timeout " + std::to_string(s->countMsgs(type, cmd, cid, d)); });
}

std::string Cmd::waitConn() {
  long long want, timeout;
  if (a.pos.size() < 2 || !parseInt(a.pos[0], want) || !parseInt(a.pos[1], timeout))
    return "ERR usage: WAITCONN COUNT TIMEOUT_MS [auth=1] [atmost=1] [dev=K]";
  bool needAuth = a.get("auth") == "1";
  bool atMost = a.get("atmost") == "1";  // wait for the count to fall to COUNT or below
  int d = dev;
  Sim* s = &sim;
  auto count = [s, needAuth, d]() {
    long long n = 0;
    for (auto& kv : s->conns_)
      if (!kv.second->closed && (d < 0 || kv.second->dev == d) && (!needAuth || kv.second->auth)) ++n;
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

std::string Cmd::waitClosed() {
  long long id, timeout;
  if (a.pos.size() < 2 || !parseInt(a.pos[1], timeout)) return "ERR usage: WAITCLOSED CONN TIMEOUT_MS";
  if (a.pos[0] == "last") id = sim.lastConnId_;
  else if (!parseInt(a.pos[0], id)) return "ERR bad connection";
  int cid = static_cast<int>(id);
  Sim* s = &sim;
  return startWait(
      timeout,
      [s, cid](std::string& r) {
        if (s->findConn(cid)) return false;
        r = "OK closed";
        return true;
      },
      []() { return std::string("ERR timeout open"); });
}

std::string Cmd::waitStat() {
  long long want, timeout;
  if (a.pos.size() < 3 || !parseInt(a.pos[1], want) || !parseInt(a.pos[2], timeout))
    return "ERR usage: WAITSTAT NAME VALUE TIMEOUT_MS";
  std::string name = a.pos[0];
  Sim* s = &sim;
  auto value = [s, name]() {
    auto it = s->stats_.find(name);
    return it == s->stats_.end() ? 0 : it->second;
  };
  return startWait(
      timeout,
      [value, want](std::string& r) {
        long long v = value();
        if (v < want) return false;
        r = "OK " + std::to_string(v);
        return true;
      },
      [value]() { return "ERR timeout " + std::to_string(value()); });
}

}  // namespace devsim
