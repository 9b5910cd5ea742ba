// Device behaviour: framing of received bytes, authentication, heartbeat,
// configuration store, system control, uploads and configuration-file download.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "sim.h"

namespace devsim {

namespace {

bool isFlag(uint32_t f) { return f == kFlagLibrary || f == kFlagAlt; }

// Bytes used as filler: 0x5A never starts either flag, so no flag can appear in
// the filler or across its boundary with the frame that follows.
std::string filler(size_t n) { return std::string(n, '\x5a'); }

// Deterministic content for a generated configuration file: a readable text
// part followed by pseudo-random bytes (zeros included) so that every byte
// value crosses the wire.
std::string generatedFile(size_t size) {
  std::string s;
  s.reserve(size);
  const std::string head = "# qxdevsim generated configuration\n[device]\nname=sim\n";
  uint64_t x = 0x9E3779B97F4A7C15ull ^ size;
  while (s.size() < size) {
    if (s.size() < head.size()) {
      s += head[s.size()];
      continue;
    }
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    s += static_cast<char>(x & 0xFF);
  }
  return s;
}

}  // namespace

void Sim::parseFrames(Conn& c) {
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
  if (c.inOff > 0 && (c.inOff == c.in.size() || c.inOff > (1u << 20))) {
    c.in.erase(0, c.inOff);
    c.inOff = 0;
  }
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
              last && closeAfter && ff.rst);
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
  if (m.type == "10000" || m.type == "40000") {
    handleConfig(c, d, m);
    return;
  }
  if (m.type == "20000") {
    handleSysctl(c, d, m, payload, size);
    return;
  }
  if (m.type == "SYSTEM_CONTROL_MESSAGE" && m.cmd == "14033") {
    std::string hex, bytes;
    if (!attrValue(m.body, "UserDevData", hex) || !fromHex(hex, bytes)) {
      bump("userdata_errors");
      if (d.s.userDataAnswer) answer(c, "20000", "14033", -1);
      return;
    }
    d.userData = bytes;
    bump("userdata_writes");
    if (d.s.userDataAnswer) answer(c, "20000", "14033", 0);
    return;
  }
  if (m.type == "SYSTEM_CONTROL_MESSAGE" && m.cmd == "14034") {
    answer(c, "20000", "14034", 0, "<RESPONSE_PARAM UserDevData=\"" + toHex(d.userData) + "\" />");
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
  for (auto& kv : conns_) {
    Conn& c = *kv.second;
    if (c.closed || c.dev != d.index) continue;
    if (&c == requester && !c.out.empty()) {
      // Let the answer leave first; the close follows it.
      sendRaw(c, std::string(), 0, true, false);
    } else {
      closeConn(c, false, "reboot");
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

void Sim::handleUploadAnnounce(Conn& c, Device& d, const Message& m) {
  if (c.upload) {
    c.upload->errors.push_back("new announcement while an upload was open");
    finishUpload(c, d, "abandoned");
  }
  auto u = std::make_unique<UploadReport>();
  u->requestCmd = m.cmd;
  u->kind = m.cmd == "20001" ? "firmware" : "config";
  u->conn = c.id;
  u->startedMs = nowMs();
  std::string lenText;
  long long len = -1;
  if (!tagText(m.body, m.cmd == "20001" ? "firmwareLength" : "fileLength", lenText) ||
      !parseInt(lenText, len))
    u->errors.push_back("announcement without a readable length");
  u->announced = len;
  bump("uploads_announced");
  const std::string& mode = d.s.uploadMode;
  if (mode == "refuse") {
    answer(c, "20000", m.cmd, d.s.uploadRefuseCode);
    c.upload = std::move(u);
    finishUpload(c, d, "refused");
    return;
  }
  if (mode == "late") {
    u->state = "waiting";
    c.upload = std::move(u);
    return;
  }
  u->accepted = true;
  c.upload = std::move(u);
  answer(c, "20000", m.cmd, 0);
  if (mode == "twice") answer(c, "20000", m.cmd, 0);
}

void Sim::handleUploadChunk(Conn& c, Device& d, const Message& m, const char* payload, size_t size) {
  std::string posText, lenText;
  long long pos = -2, len = -2;
  bool okPos = tagText(m.text, "startPos", posText) && parseInt(posText, pos);
  bool okLen = tagText(m.text, "dataLength", lenText) && parseInt(lenText, len);
  bool cancel = okLen && len == -1;
  if (cancel) {
    bump("upload_cancels");
    if (c.upload && (c.upload->state == "active" || c.upload->state == "waiting")) {
      finishUpload(c, d, "cancelled");
    }
    return;
  }
  if (!c.upload || c.upload->state != "active") {
    auto u = std::make_unique<UploadReport>();
    u->requestCmd = m.cmd == "20002" ? "20001" : "20004";
    u->kind = m.cmd == "20002" ? "firmware" : "config";
    u->conn = c.id;
    u->startedMs = nowMs();
    u->errors.push_back(c.upload && c.upload->state == "waiting" ? "chunk before acceptance"
                                                                 : "chunk without announcement");
    if (c.upload) {
      u->announced = c.upload->announced;
      c.upload.reset();
    }
    c.upload = std::move(u);
  }
  UploadReport& u = *c.upload;
  std::string want = u.kind == "firmware" ? "20002" : "20005";
  if (m.cmd != want) u.errors.push_back("chunk cmd " + m.cmd + " in a " + u.kind + " upload");
  if (!okPos || !okLen || len < 0) {
    u.errors.push_back("unreadable chunk header");
    bump("upload_errors");
    return;
  }
  size_t textLen = m.text.size();
  size_t dataOff = textLen + 4;
  if (size < dataOff) {
    u.errors.push_back("chunk shorter than its header and separator");
    bump("upload_errors");
    return;
  }
  for (size_t i = textLen; i < dataOff; ++i)
    if (payload[i] != 0) {
      u.errors.push_back("separator byte not zero at chunk " + std::to_string(u.chunks));
      break;
    }
  size_t have = size - dataOff;
  if (static_cast<long long>(have) != len) {
    u.errors.push_back("chunk " + std::to_string(u.chunks) + " announces " + std::to_string(len) +
                       " bytes, frame holds " + std::to_string(have));
  }
  if (pos != static_cast<long long>(u.data.size())) {
    u.errors.push_back("chunk " + std::to_string(u.chunks) + " startPos " + std::to_string(pos) +
                       ", expected " + std::to_string(u.data.size()));
  }
  if (len == 0) {
    finishUpload(c, d, "done");
    return;
  }
  u.data.append(payload + dataOff, std::min<size_t>(have, static_cast<size_t>(len)));
  u.chunks++;
  bump("upload_chunks");
}

void Sim::finishUpload(Conn& c, Device& d, const std::string& state) {
  if (!c.upload) return;
  UploadReport u = std::move(*c.upload);
  c.upload.reset();
  u.state = state;
  u.endedMs = nowMs();
  u.index = static_cast<int>(d.uploads.size());
  u.size = static_cast<long long>(u.data.size());
  if (state == "done") {
    u.fnv = fnv1a64(u.data.data(), u.data.size());
    u.crc = crc32(u.data.data(), u.data.size());
    if (u.announced >= 0 && static_cast<long long>(u.data.size()) != u.announced)
      u.errors.push_back("received " + std::to_string(u.data.size()) + " bytes, announced " +
                         std::to_string(u.announced));
    std::string name = d.s.uploadName;
    if (name.empty() && !opt_.uploadDir.empty())
      name = "upload_" + std::to_string(d.index) + "_" + std::to_string(u.index) + ".bin";
    if (!name.empty()) {
      std::string path = name;
      if (path[0] != '/' && !opt_.uploadDir.empty()) path = opt_.uploadDir + "/" + name;
      std::ofstream f(path, std::ios::binary | std::ios::trunc);
      f.write(u.data.data(), static_cast<std::streamsize>(u.data.size()));
      f.close();
      if (!f) u.errors.push_back("cannot write " + path);
      else u.file = path;
    }
    bump("uploads_done");
  } else if (state == "cancelled") {
    bump("uploads_cancelled");
  } else if (state == "refused") {
    bump("uploads_refused");
  } else {
    bump("uploads_abandoned");
  }
  if (!u.errors.empty()) bump("upload_errors", static_cast<long long>(u.errors.size()));
  logf(LogLevel::Normal, "device %d: upload %d %s (%s, %zu bytes, %d chunks, %zu errors)", d.index,
       u.index, state.c_str(), u.kind.c_str(), u.data.size(), u.chunks, u.errors.size());
  u.data.clear();
  u.data.shrink_to_fit();
  d.uploads.push_back(std::move(u));
}

void Sim::serveDownload(Conn& c, Device& d) {
  const Settings& s = d.s;
  std::string content;
  std::string source;
  if (!s.dlFile.empty()) {
    std::ifstream f(s.dlFile, std::ios::binary);
    if (!f) {
      logf(LogLevel::Normal, "device %d: cannot read %s, refusing download", d.index, s.dlFile.c_str());
      answer(c, "20000", "20006", -1);
      bump("download_errors");
      return;
    }
    std::ostringstream o;
    o << f.rdbuf();
    content = o.str();
    source = s.dlFile;
  } else {
    content = generatedFile(static_cast<size_t>(std::max<long long>(0, s.dlSize)));
    source = "generated:" + std::to_string(content.size());
  }
  DownloadReport r;
  r.index = static_cast<int>(d.downloads.size());
  r.conn = c.id;
  r.fault = s.dlFault;
  r.source = source;
  r.fnv = fnv1a64(content.data(), content.size());
  r.crc = crc32(content.data(), content.size());
  bump("downloads");

  const std::string& fault = s.dlFault;
  long long extra = std::max<long long>(1, s.dlExtra);
  std::string served = content;  // what the data answers carry
  long long announced = static_cast<long long>(content.size());
  if (fault == "extra") {
    // Announce the true size, carry more: the receiver's count overshoots.
    served += generatedFile(static_cast<size_t>(content.size() + extra)).substr(content.size());
  } else if (fault == "short") {
    announced = static_cast<long long>(content.size()) + extra;
  }
  r.announced = announced;

  size_t chunk = static_cast<size_t>(std::max<long long>(1, s.dlChunk));
  std::vector<std::pair<size_t, size_t>> pieces;  // (start, length)
  for (size_t off = 0; off < served.size(); off += chunk)
    pieces.emplace_back(off, std::min(chunk, served.size() - off));
  if (fault == "extra") {
    // No chunk boundary may land exactly on the announced size, or it would finish.
    for (size_t i = 0; i + 1 < pieces.size(); ++i) {
      if (pieces[i].first + pieces[i].second == static_cast<size_t>(announced)) {
        pieces[i].second += pieces[i + 1].second;
        pieces.erase(pieces.begin() + static_cast<long>(i) + 1);
        break;
      }
    }
  }

  int delay = static_cast<int>(std::max<long long>(0, s.dlDelayMs));
  auto dataFrame = [&](size_t start, size_t len, bool badSep) {
    std::string text = envelope("20000", "20007", "0",
                                "<startPos>" + std::to_string(start) + "</startPos>\n<dataLength>" +
                                    std::to_string(len) + "</dataLength>");
    std::string p = text;
    // The first separator byte still ends the text; the other three break the rule.
    p += badSep ? std::string("\0\xff\xff\xff", 4) : std::string(4, '\0');
    p.append(served, start, len);
    return p;
  };

  if (fault != "nolength") {
    std::string lenBody = "<fileLength>" + std::to_string(announced) + "</fileLength>";
    answer(c, "20000", "20006", 0, lenBody);
    if (fault == "twice") answer(c, "20000", "20006", 0, lenBody);
  }
  for (size_t i = 0; i < pieces.size() && !c.closed; ++i) {
    std::string p = dataFrame(pieces[i].first, pieces[i].second, fault == "badsep" && i == 0);
    if (fault == "drop" && (i == 1 || pieces.size() == 1)) {
      // Half a frame, then the connection goes away.
      std::string f = frame(p, s.answerFlag);
      sendRaw(c, f.substr(0, f.size() / 2), delay, true, false);
      r.sent += static_cast<long long>(pieces[i].second / 2);
      bump("frames_tx");
      break;
    }
    if (delay > 0) {
      // Delays between data answers: whole frames as delayed pieces.
      if (d.s.mute) break;
      sendRaw(c, frame(p, s.answerFlag), delay);
      c.txFrames++;
      bump("frames_tx");
    } else {
      sendPayload(c, p);
    }
    r.sent += static_cast<long long>(pieces[i].second);
    r.chunks++;
    if (fault == "zerolen" && i == 0) {
      sendPayload(c, dataFrame(0, 0, false));
      break;
    }
  }
  if (fault == "zerolen" && pieces.empty()) sendPayload(c, dataFrame(0, 0, false));
  d.downloads.push_back(std::move(r));
}

}  // namespace devsim
