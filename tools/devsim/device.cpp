// Device behaviour: framing of received bytes, the message record, sending with
// armed faults, and the answers to authentication, heartbeat, configuration,
// user data, PTZ and system control (uploads and the download have their files).
#include <algorithm>
#include <cstring>

#include "sim.h"

namespace devsim {

namespace {

bool isFlag(uint32_t f) { return f == kFlagLibrary || f == kFlagAlt; }

// Bytes used as filler: 0x5A never starts either flag, so no flag can appear in
// the filler or across its boundary with the frame that follows.
std::string filler(size_t n) { return std::string(n, '\x5a'); }

}  // namespace

void Sim::parseFrames(Conn& c) {
  c.parsing = true;
  while (!c.closed) {
    size_t avail = c.in.size() - c.inOff;
    if (avail < 8) break;
    const unsigned char* p = reinterpret_cast<const unsigned char*>(c.in.data()) + c.inOff;
    uint32_t flag = getLE32(p);
    if (!isFlag(flag)) {
      // Resynchronise on the next flag; keep the last 3 bytes, they may start one.
      size_t skip = 1;
      while (skip + 4 <= avail && !isFlag(getLE32(p + skip))) ++skip;
      if (skip + 4 > avail) skip = avail - 3;
      c.inOff += skip;
      c.badBytes += static_cast<long long>(skip);
      bump("bad_bytes", static_cast<long long>(skip));
      continue;
    }
    uint32_t len = getLE32(p + 4);
    if (len > kMaxPayload) {
      bump("bad_frames");
      logf(LogLevel::Normal, "connection %d: frame length %u too large, resynchronising", c.id, len);
      c.inOff += 4;
      c.badBytes += 4;
      continue;
    }
    if (avail < 8 + static_cast<size_t>(len)) break;
    c.inOff += 8;
    const char* payload = c.in.data() + c.inOff;
    c.rxFrames++;
    bump("frames_rx");
    // Copy: handlers may send, and sending never touches c.in, but be safe
    // against the buffer being compacted by a nested call.
    std::string copy(payload, len);
    c.inOff += len;
    handleMessage(c, copy.data(), copy.size());
  }
  if (c.inOff > 0 && c.inOff == c.in.size()) {
    // All consumed: give the buffer back, an idle connection keeps none.
    std::string().swap(c.in);
    c.inOff = 0;
  } else if (c.inOff > (1u << 20)) {
    c.in.erase(0, c.inOff);
    c.inOff = 0;
  }
  c.parsing = false;
  // The peer went away meanwhile: it is closed only now, after the last frame.
  if (c.peerGone) closeConn(c, false, c.goneWhy);
}

void Sim::record(Conn& c, const Message& m) {
  MsgRecord r;
  r.seq = nextSeq_++;
  r.conn = c.id;
  r.dev = c.dev;
  r.type = m.hasHead ? m.type : (m.type.empty() ? "?" : m.type);
  r.cmd = m.hasHead ? m.cmd : (m.cmd.empty() ? "?" : m.cmd);
  r.result = m.result;
  r.body = m.body.size() > 65536 ? m.body.substr(0, 65536) : m.body;
  r.size = m.payloadSize;
  counts_[std::make_tuple(c.id, r.type, r.cmd)]++;
  records_.push_back(std::move(r));
  while (records_.size() > maxRecords_) records_.pop_front();
}

long long Sim::countMsgs(const std::string& type, const std::string& cmd, int conn, int dev) const {
  long long n = 0;
  for (auto& kv : counts_) {
    int cid = std::get<0>(kv.first);
    if (conn > 0 && cid != conn) continue;
    if (dev >= 0) {
      auto it = connDev_.find(cid);
      if (it == connDev_.end() || it->second != dev) continue;
    }
    if (type != "*" && std::get<1>(kv.first) != type) continue;
    if (cmd != "*" && std::get<2>(kv.first) != cmd) continue;
    n += kv.second;
  }
  return n;
}

void Sim::sendPayload(Conn& c, const std::string& payload) {
  if (c.closed) return;
  Device& d = devices_[static_cast<size_t>(c.dev)];
  if (d.s.mute) {
    bump("frames_muted");
    return;
  }
  FrameFault* f = nullptr;
  if (c.fault.count > 0)
    f = &c.fault;
  else if (anyFault_.count > 0)
    f = &anyFault_;
  uint32_t flag = d.s.answerFlag;
  c.txFrames++;
  bump("frames_tx");
  if (!f) {
    sendRaw(c, frame(payload, flag));
    return;
  }
  FrameFault ff = *f;
  if (f->count > 0) --f->count;  // 0 = spent; ARM sets every field afresh
  bump("faults_applied");
  if (ff.drop) return;
  if (ff.hasFlag) flag = ff.flag;
  std::string bytes = filler(ff.garbage) + frame(payload, flag);
  bool closeAfter = false;
  if (ff.cut >= 0) {
    size_t keep = ff.garbage + 8 + std::min<size_t>(static_cast<size_t>(ff.cut), payload.size());
    bytes.resize(keep);
    closeAfter = true;
  }
  if (ff.split > 0 && bytes.size() > ff.split) {
    for (size_t off = 0; off < bytes.size(); off += ff.split) {
      bool last = off + ff.split >= bytes.size();
      sendRaw(c, bytes.substr(off, ff.split), off == 0 ? 0 : ff.delayMs, last && closeAfter,
              last && closeAfter && ff.rst, !last);
      if (c.closed) return;
    }
  } else {
    sendRaw(c, bytes, 0, closeAfter, closeAfter && ff.rst);
  }
}

void Sim::answer(Conn& c, const std::string& type, const std::string& cmd, long long result,
                 const std::string& body) {
  sendPayload(c, envelope(type, cmd, std::to_string(result), body));
}

void Sim::handleMessage(Conn& c, const char* payload, size_t size) {
  Message m = parseMessage(payload, size);
  record(c, m);
  Device& d = devices_[static_cast<size_t>(c.dev)];
  logf(LogLevel::Verbose, "connection %d: type=%s cmd=%s result=%s size=%zu", c.id, m.type.c_str(),
       m.cmd.c_str(), m.result.c_str(), size);
  if (!m.hasHead) {
    bump("unparsed_messages");
    return;
  }
  if (m.type == "10000" && m.cmd == "14012") {
    handleAuth(c, d, m);
    return;
  }
  if (d.s.requireAuth && !c.auth) {
    bump("unauthenticated_requests");
    return;
  }
  if (m.type == "30000" && m.cmd == "35001") {
    bump("heartbeats");
    if (d.s.heartbeatAnswer) answer(c, "30000", "35001", 0);
    return;
  }
  if (m.type == "10000" && m.cmd.size() == 5 && m.cmd.compare(0, 3, "143") == 0 && m.cmd != "14303" &&
      m.cmd != "14305" && m.cmd < "14311") {
    handleRecorder(c, d, m);
    return;
  }
  if (m.type == "10000" || m.type == "40000") {
    handleConfig(c, d, m);
    return;
  }
  if (m.type == "20000") {
    handleSysctl(c, d, m, payload, size);
    return;
  }
  if (m.type == "SYSTEM_CONTROL_MESSAGE" && (m.cmd == "14033" || m.cmd == "14034")) {
    handleUserData(c, d, m);
    return;
  }
  if (m.type == "PTZ_CONTROL_MESSAGE") {
    bump("ptz");
    if (d.s.ptzAnswer) answer(c, m.type, m.cmd, 0);
    return;
  }
  bump("unhandled_messages");
}

void Sim::handleAuth(Conn& c, Device& d, const Message& m) {
  std::string user, pass;
  tagText(m.body, "userName", user);
  tagText(m.body, "password", pass);
  c.user = user;
  if (d.s.authMode == "silent") {
    bump("auth_ignored");
    return;
  }
  if (d.s.authMode == "close") {
    // A device that hangs up during authentication.
    bump("auth_hangups");
    closeConn(c, false, "closed on authentication");
    return;
  }
  auto it = d.accounts.find(user);
  bool good = d.s.authMode == "normal" && it != d.accounts.end() && it->second == pass;
  if (good) {
    c.auth = true;
    bump("auth_ok");
    std::string body;
    if (d.s.maxChannels >= 0)
      body = "<authRsp><MAXChannels>" + std::to_string(d.s.maxChannels) + "</MAXChannels></authRsp>";
    answer(c, "10000", "14012", 0, body);
  } else {
    bump("auth_refused");
    answer(c, "10000", "14012", d.s.authRefusal);
  }
}

void Sim::handleConfig(Conn& c, Device& d, const Message& m) {
  const std::string& atype = d.s.configAnswerType;
  bool empty = m.body.find_first_not_of(" \t\r\n") == std::string::npos;
  if (!empty) {
    d.config[m.cmd] = m.body;
    bump("config_writes");
    answer(c, atype, m.cmd, 0);
    return;
  }
  bump("config_reads");
  auto it = d.config.find(m.cmd);
  if (it == d.config.end())
    answer(c, atype, m.cmd, d.s.configMissingResult);
  else
    answer(c, atype, m.cmd, 0, it->second);
}

void Sim::handleSysctl(Conn& c, Device& d, const Message& m, const char* payload, size_t size) {
  const std::string& cmd = m.cmd;
  if (cmd == "14008") {
    answer(c, "20000", cmd, 0);
    reboot(d, &c);
  } else if (cmd == "14011") {
    d.config.clear();
    bump("restores");
    answer(c, "20000", cmd, 0);
  } else if (cmd == "14020") {
    std::string marker;
    if (d.s.frontReplay == "plain") marker = "+front_replay+";
    else if (d.s.frontReplay == "spaced") marker = "+ front_replay +";
    answer(c, "20000", cmd, 0, "<Capability>" + d.s.caps + marker + "</Capability>");
  } else if (cmd == "14035") {
    answer(c, "20000", cmd, d.s.serialResult);
  } else if (cmd == "20001" || cmd == "20004") {
    handleUploadAnnounce(c, d, m);
  } else if (cmd == "20002" || cmd == "20005") {
    handleUploadChunk(c, d, m, payload, size);
  } else if (cmd == "20006") {
    serveDownload(c, d);
  } else if (d.s.sysctlAnswerUnknown) {
    answer(c, "20000", cmd, 0);
  }
}

void Sim::reboot(Device& d, Conn* requester) {
  bump("reboots");
  logf(LogLevel::Normal, "device %d: reboot, back in %lld ms", d.index, d.s.rebootPauseMs);
  // The listener goes first: a client that sees its connection end must not
  // find the port still accepting.
  closeListener(d);
  std::vector<int> ids(d.connIds.begin(), d.connIds.end());  // closing edits the set
  for (int id : ids) {
    Conn* c = findConn(id);
    if (!c) continue;
    if (c == requester && !c->out.empty()) {
      // Let the answer leave first; the close follows it.
      sendRaw(*c, std::string(), 0, true, false);
    } else {
      closeConn(*c, false, "reboot");
    }
  }
  d.rebooting = true;
  int idx = d.index;
  addTimer(nowMs() + d.s.rebootPauseMs, [this, idx]() { reopenAfterReboot(idx); });
}

void Sim::reopenAfterReboot(int idx) {
  Device& d = devices_[static_cast<size_t>(idx)];
  if (!d.rebooting) return;
  if (openListener(d)) {
    d.rebooting = false;
    logf(LogLevel::Normal, "device %d: back on port %u", idx, d.port);
  } else {
    // The port may still be held for a moment.
    addTimer(nowMs() + 100, [this, idx]() { reopenAfterReboot(idx); });
  }
}

void Sim::handleUserData(Conn& c, Device& d, const Message& m) {
  if (m.cmd == "14034") {
    answer(c, "20000", "14034", 0, "<RESPONSE_PARAM UserDevData=\"" + toHex(d.userData) + "\" />");
    return;
  }
  std::string hex, bytes;
  if (!attrValue(m.body, "UserDevData", hex) || !fromHex(hex, bytes)) {
    bump("userdata_errors");
    if (d.s.userDataAnswer) answer(c, "20000", "14033", -1);
    return;
  }
  d.userData = bytes;
  bump("userdata_writes");
  if (d.s.userDataAnswer) answer(c, "20000", "14033", 0);
}

}  // namespace devsim
