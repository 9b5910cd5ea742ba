// Control commands that put bytes on device connections (framed or raw, well
// formed or not), answer on the device's behalf, or close connections.
#include "control.h"

namespace devsim {

namespace {

// Filler never contains a flag (see device.cpp).
std::string filler(long long n) { return std::string(static_cast<size_t>(n), '\x5a'); }

}  // namespace

std::string Cmd::close() {
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  bool rst = a.get("rst") == "1";
  for (Conn* c : cs) sim.closeConn(*c, rst, "closed by control");
  return okCount(cs.size());
}

std::string Cmd::send() {
  if (a.pos.size() < 4) return "ERR usage: SEND CONN TYPE CMD RESULT [BODY]";
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  std::string body;
  if (!escapedText(body)) return "ERR bad escape";
  for (Conn* c : cs) sim.sendPayload(*c, envelope(a.pos[1], a.pos[2], a.pos[3], body));
  return okCount(cs.size());
}

std::string Cmd::sendText() {
  if (a.pos.empty()) return "ERR usage: SENDTEXT CONN TEXT";
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  std::string text;
  if (!escapedText(text)) return "ERR bad escape";
  for (Conn* c : cs) sim.sendPayload(*c, text);
  return okCount(cs.size());
}

// SENDHEX frames the bytes, RAW sends them as they are.
std::string Cmd::sendHex() {
  if (a.pos.empty() || t.size() <= textStart) return "ERR usage: " + verb + " CONN HEX";
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  std::string bytes;
  if (!fromHex(freeText(), bytes)) return "ERR bad hex";
  for (Conn* c : cs) {
    if (verb == "RAW") sim.sendRaw(*c, bytes);
    else sim.sendPayload(*c, bytes);
  }
  return okCount(cs.size());
}

std::string Cmd::frame() {
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  long long flag = kFlagLibrary, len = -1, shift = 0;
  if (a.has("flag") && !parseInt(a.get("flag"), flag)) return "ERR bad flag";
  if (a.has("len") && !parseInt(a.get("len"), len)) return "ERR bad len";
  if (a.has("shift") && (!parseInt(a.get("shift"), shift) || shift < 0 || shift > 1000000)) return "ERR bad shift";
  std::string payload;
  if (a.has("hex") && !fromHex(a.get("hex"), payload)) return "ERR bad hex";
  if (a.has("text") && !unescape(a.get("text"), payload)) return "ERR bad escape";
  uint32_t length = static_cast<uint32_t>(len < 0 ? static_cast<long long>(payload.size()) : len);
  std::string bytes = filler(shift) + frameHeader(static_cast<uint32_t>(flag), length) + payload;
  for (Conn* c : cs) sim.sendRaw(*c, bytes);
  return okCount(cs.size());
}

std::string Cmd::garbage() {
  long long n;
  if (a.pos.size() < 2 || !parseInt(a.pos[1], n) || n < 0 || n > (16 << 20)) return "ERR usage: GARBAGE CONN N";
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  for (Conn* c : cs) sim.sendRaw(*c, filler(n));
  return okCount(cs.size());
}

std::string Cmd::len8() {
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  for (Conn* c : cs) sim.sendRaw(*c, devsim::frame("01234567", sim.devices_[static_cast<size_t>(c->dev)].s.answerFlag));
  return okCount(cs.size());
}

std::string Cmd::oversize() {
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  long long len = 0xF00009, n = 64;
  if (a.has("len") && !parseInt(a.get("len"), len)) return "ERR bad len";
  if (a.has("bytes") && (!parseInt(a.get("bytes"), n) || n < 0 || n > (16 << 20))) return "ERR bad bytes";
  for (Conn* c : cs)
    sim.sendRaw(*c, frameHeader(sim.devices_[static_cast<size_t>(c->dev)].s.answerFlag, static_cast<uint32_t>(len)) +
                        filler(n));
  return okCount(cs.size());
}

std::string Cmd::cutFrame() {
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  long long n = 20;
  if (a.has("n") && (!parseInt(a.get("n"), n) || n < 0)) return "ERR bad n";
  bool rst = a.get("rst") == "1";
  std::string hb = envelope("30000", "35001", "0", "");
  if (static_cast<unsigned long long>(n) >= hb.size()) return "ERR n must be below the payload size";
  for (Conn* c : cs) {
    std::string f = devsim::frame(hb, sim.devices_[static_cast<size_t>(c->dev)].s.answerFlag);
    sim.sendRaw(*c, f.substr(0, 8 + static_cast<size_t>(n)), 0, true, rst);
  }
  return okCount(cs.size());
}

std::string Cmd::hb() {
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  for (Conn* c : cs) sim.answer(*c, "30000", "35001", 0);
  return okCount(cs.size());
}

std::string Cmd::authAnswer() {
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  long long result = 0, maxch = d0->s.maxChannels;
  if (a.has("result") && !parseInt(a.get("result"), result)) return "ERR bad result";
  if (a.has("maxch") && !parseInt(a.get("maxch"), maxch)) return "ERR bad maxch";
  std::string body;
  if (result == 0 && maxch >= 0) body = "<authRsp><MAXChannels>" + std::to_string(maxch) + "</MAXChannels></authRsp>";
  for (Conn* c : cs) {
    if (result == 0) c->auth = true;
    sim.answer(*c, "10000", "14012", result, body);
  }
  return okCount(cs.size());
}

// Bytes one at a time, INTERVAL_MS apart, from the loop's timers: a device
// that dribbles. What is sent later waits behind them, as on a real stream.
std::string Cmd::trickle() {
  long long bytes, interval;
  if (a.pos.size() < 3 || !parseInt(a.pos[1], bytes) || bytes < 1 || bytes > (16 << 20) ||
      !parseInt(a.pos[2], interval) || interval < 1 || interval > 3600000)
    return "ERR usage: TRICKLE CONN BYTES INTERVAL_MS [hex=H]";
  std::string pattern(1, '\x5a');
  if (a.has("hex") && (!fromHex(a.get("hex"), pattern) || pattern.empty())) return "ERR bad hex";
  std::vector<Conn*> cs;
  if (!needConns(0, cs)) return "ERR " + err;
  for (Conn* c : cs) sim.sendPaced(*c, pattern, static_cast<size_t>(bytes), static_cast<int>(interval));
  sim.bump("trickles", static_cast<long long>(cs.size()));
  return okCount(cs.size());
}

}  // namespace devsim
