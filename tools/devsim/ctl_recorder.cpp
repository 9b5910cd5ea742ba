// Control commands of the recorder: faults for the next stream, the channels' spans and the
// reports of the streams sent.
#include "control.h"

namespace devsim {

namespace {

const char* kFaultKinds[] = {"lose_pack", "seq_jump",  "seq_wrap", "audio_first", "param_change",
                             "audio_change", "drop", "stall", "refuse"};

bool knownKind(const std::string& k) {
  for (const char* n : kFaultKinds)
    if (k == n) return true;
  return false;
}

}  // namespace

std::string Cmd::recFault() {
  if (a.pos.empty()) {
    std::string s = "OK " + std::to_string(d0->recFaults.size());
    for (auto& f : d0->recFaults) s += " " + f.kind + "@" + std::to_string(f.atMs);
    return s;
  }
  if (a.pos[0] == "off") {
    eachDevice([](Device& d) { d.recFaults.clear(); });
    return "OK";
  }
  RecFault f;
  f.kind = a.pos[0];
  if (!knownKind(f.kind)) return "ERR unknown fault " + f.kind;
  long long n;
  if (a.has("at_ms") && !parseInt(a.get("at_ms"), f.atMs)) return "ERR bad at_ms";
  if (a.has("value") && !parseInt(a.get("value"), f.value)) return "ERR bad value";
  f.to = a.get("to");
  if (a.has("rst")) f.rst = parseInt(a.get("rst"), n) && n != 0;
  if (a.has("params")) f.params = parseInt(a.get("params"), n) && n != 0;
  eachDevice([&f](Device& d) { d.recFaults.push_back(f); });
  return "OK";
}

std::string Cmd::recSpans() {
  long long ch;
  if (a.pos.empty() || !parseInt(a.pos[0], ch) || ch < 0 || ch > 1024)
    return "ERR usage: RECSPANS CH [hhmmss-hhmmss,...|-]";
  if (a.pos.size() >= 2) {
    bool ok = true;
    eachDevice([&](Device& d) { ok = ok && d.spans.set(static_cast<int>(ch), a.pos[1], err); });
    if (!ok) return "ERR " + err;
  }
  return "OK " + d0->spans.text(static_cast<int>(ch));
}

std::string Cmd::recStream() {
  if (!a.pos.empty() && upper(a.pos[0]) == "COUNT") return "OK " + std::to_string(d0->streams.size());
  long long idx = -1;
  if (!a.pos.empty() && !parseInt(a.pos[0], idx)) return "ERR usage: RECSTREAM [INDEX|COUNT]";
  if (d0->streams.empty() || idx >= static_cast<long long>(d0->streams.size())) return "ERR none";
  return "OK " + sim.streamLine(idx < 0 ? d0->streams.back() : d0->streams[static_cast<size_t>(idx)]);
}

std::string Sim::streamLine(const StreamReport& r) const {
  const StreamConfig& c = r.cfg;
  std::string parts, faults;
  for (long long p : r.parts) parts += (parts.empty() ? "" : "/") + std::to_string(p);
  for (auto& f : r.faults) faults += (faults.empty() ? "" : ",") + f;
  auto n = [](long long v) { return std::to_string(v); };
  return "index=" + n(r.index) + " conn=" + n(r.conn) + " mode=" + (c.download ? "download" : "replay") +
         " state=" + r.state + " ch=" + n(c.channel) + " video=" + c.videoCodec + "_" + c.videoSize +
         " audio=" + c.audioCodec + " start=" + n(c.startMs) + " end=" + n(c.endMs) +
         " video_frames=" + n(r.videoFrames) + " key_frames=" + n(r.keyFrames) + " audio_frames=" +
         n(r.audioFrames) + " video_in_span=" + n(r.videoInSpan) + " audio_in_span=" + n(r.audioInSpan) +
         " packs=" + n(r.packs) + " bytes=" + n(r.bytes) + " first_video_ms=" + n(r.firstVideoMs) +
         " last_video_ms=" + n(r.lastVideoMs) + " last_in_span_ms=" + n(r.lastVideoInSpanMs) +
         " first_audio_ms=" + n(r.firstAudioMs) + " parts=" + (parts.empty() ? "-" : parts) +
         " faults=" + (faults.empty() ? "-" : tok(faults));
}

}  // namespace devsim
