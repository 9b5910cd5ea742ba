// The recorder's requests (type 10000): record search 14300, replay and download 14301,
// stop 14302, seek 14304 and the speed and pause controls 14306-14310.
#include <algorithm>

#include "sim.h"

namespace devsim {

namespace {

long long numTag(const std::string& body, const char* name, long long def) {
  std::string v;
  long long n;
  return tagText(body, name, v) && parseInt(v, n) ? n : def;
}

std::string textTag(const std::string& body, const char* name) {
  std::string v;
  tagText(body, name, v);
  return v;
}

}  // namespace

void Sim::handleRecorder(Conn& c, Device& d, const Message& m) {
  if (m.cmd == "14300") return recSearch(c, d, m);
  if (m.cmd == "14301") return recStart(c, d, m);
  recControl(c, d, m);
}

void Sim::recSearch(Conn& c, Device& d, const Message& m) {
  bump("rec_searches");
  long long ch = numTag(m.body, "ChannelId", -1);
  TimeText t;
  bool byMonth = numTag(m.body, "ByMonth", 0) == 1;
  if (ch < 0 || ch > 1024 || !parseTimeText(textTag(m.body, "Time"), t)) {
    answer(c, "10000", "14300", -1);
    return;
  }
  int channel = static_cast<int>(ch);
  if (byMonth) {
    answer(c, "10000", "14300", 0, monthListBody(channel, t));
    return;
  }
  bool recorded = t.day > 0 && RecorderSpans::recordedDay(channel, t.day);
  answer(c, "10000", "14300", 0, dayListBody(channel, t, d.spans.day(channel), recorded));
}

// Replay (DownloadRecord 0, from Time) or download (DownloadRecord 1, Time to TimeEnd).
void Sim::recStart(Conn& c, Device& d, const Message& m) {
  if (c.rec) recEnd(c, "stopped");
  StreamConfig cfg;
  cfg.download = numTag(m.body, "DownloadRecord", 0) == 1;
  cfg.channel = static_cast<int>(numTag(m.body, "ChannelId", -1));
  TimeText start, end;
  bool ok = cfg.channel >= 0 && parseTimeText(textTag(m.body, "Time"), start);
  if (cfg.download) ok = ok && parseTimeText(textTag(m.body, "TimeEnd"), end) && end.ms > start.ms;
  d.streams.emplace_back();
  StreamReport& r = d.streams.back();
  r.index = static_cast<int>(d.streams.size()) - 1;
  r.conn = c.id;
  // A refusal armed with RECFAULT answers this request instead of streaming.
  for (size_t i = 0; ok && i < d.recFaults.size(); ++i) {
    if (d.recFaults[i].kind != "refuse") continue;
    long long flag = d.recFaults[i].value ? d.recFaults[i].value : -16;
    d.recFaults.erase(d.recFaults.begin() + static_cast<long>(i));
    r.state = "refused";
    r.faults.push_back("refuse@" + std::to_string(flag));
    bump("rec_refused");
    answer(c, "10000", "14301", flag);
    return;
  }
  cfg.startMs = start.ms;
  cfg.endMs = cfg.download ? end.ms : kDayMs;
  cfg.recordedDay = start.day > 0 && RecorderSpans::recordedDay(cfg.channel, start.day);
  cfg.videoCodec = d.s.recVideo;
  cfg.videoSize = d.s.recSize;
  cfg.audioCodec = d.s.recAudio;
  cfg.videoLayout = static_cast<int>(d.s.recVideoLayout);
  cfg.audioLayout = static_cast<int>(d.s.recAudioLayout);
  cfg.packMax = static_cast<size_t>(d.s.recPack);
  cfg.fast = d.s.recPace == "fast";
  r.cfg = cfg;
  std::vector<RecFault> faults;
  for (auto& f : d.recFaults)
    if (f.kind != "refuse") faults.push_back(f);
  auto st = std::make_unique<RecorderStream>(cfg, d.spans, clips_, faults, r);
  std::string err;
  if (!ok || !st->open(err)) {
    r.state = "refused";
    r.faults.push_back(ok ? err : "bad request");
    if (!err.empty()) logf(LogLevel::Normal, "device %d: recorder: %s", d.index, err.c_str());
    bump("rec_refused");
    answer(c, "10000", "14301", -1);
    return;
  }
  d.recFaults.erase(std::remove_if(d.recFaults.begin(), d.recFaults.end(),
                                   [](const RecFault& f) { return f.kind != "refuse"; }),
                    d.recFaults.end());
  bump("rec_streams");
  answer(c, "10000", "14301", 0, "<ChannelId>" + std::to_string(cfg.channel) + "</ChannelId>");
  queueFrame(c, st->paramsMessage());
  c.rec = std::move(st);
  c.recReport = r.index;
  flushConn(c);
}

void Sim::recControl(Conn& c, Device& d, const Message& m) {
  bump("rec_controls");
  (void)d;
  if (!c.rec) {
    // The stop of a stream that already ended is still acknowledged.
    answer(c, "10000", m.cmd, m.cmd == "14302" ? 0 : -1);
    return;
  }
  int64_t now = nowMs();
  long long speed = std::max(1LL, numTag(m.body, "Speed", 1));
  TimeText t;
  if (m.cmd == "14302") {
    recEnd(c, "stopped");
    bump("rec_stops");
  } else if (m.cmd == "14304") {
    if (!parseTimeText(textTag(m.body, "Time"), t)) return answer(c, "10000", m.cmd, -1);
    c.rec->seek(t.ms, now);
  } else if (m.cmd == "14306") {
    c.rec->setSpeed(static_cast<int>(speed), 1, now);
  } else if (m.cmd == "14307") {
    c.rec->setSpeed(1, static_cast<int>(speed), now);
  } else if (m.cmd == "14308") {
    c.rec->setSpeed(1, 1, now);
  } else if (m.cmd == "14309") {
    c.rec->pause(true, now);
  } else if (m.cmd == "14310") {
    c.rec->pause(false, now);
  }
  answer(c, "10000", m.cmd, 0);
}

void Sim::recEnd(Conn& c, const std::string& state) {
  Device& d = devices_[static_cast<size_t>(c.dev)];
  if (c.recReport >= 0 && c.recReport < static_cast<int>(d.streams.size())) {
    d.streams[static_cast<size_t>(c.recReport)].state = state;
    bump("rec_streams_" + state);
  }
  c.rec.reset();
  c.recReport = -1;
}

}  // namespace devsim
