// A recorder stream: positioning on the spans, the interleaving of video and audio by
// timestamp, real-time pacing and the faults that act on whole frames.
#include "rec_stream.h"

#include "proto.h"
#include "rec_params.h"

namespace devsim {

namespace {
constexpr uint32_t kVideoFrameMs = 40;  // 25 fps
}

RecorderStream::RecorderStream(const StreamConfig& cfg, RecorderSpans& spans, ClipStore& clips,
                               std::vector<RecFault> faults, StreamReport& report)
    : cfg_(cfg), spans_(spans), clips_(clips), faults_(std::move(faults)), rep_(report) {}

bool RecorderStream::open(std::string& err) {
  video_ = clips_.video(cfg_.videoCodec, cfg_.videoSize, err);
  if (!video_) return false;
  if (cfg_.audioCodec != "none" && !(audio_ = clips_.audio(cfg_.audioCodec, err))) return false;
  empty_ = !position(cfg_.startMs);
  rep_.parts.push_back(0);
  return true;
}

bool RecorderStream::position(uint32_t ms) {
  if (!cfg_.recordedDay) return false;
  const Span* s = spans_.spanAtOrAfter(cfg_.channel, ms);
  if (!s) return false;
  span_ = *s;
  uint32_t t = std::max(ms, span_.startMs);
  // Start on the key frame at or before the time asked for, as recorders do.
  size_t f = (t - span_.startMs) / kVideoFrameMs;
  size_t pos = f % video_->frames.size();
  while (pos > 0 && !video_->frames[pos].key) --pos, --f;
  vPos_ = pos;
  vts_ = span_.startMs + static_cast<uint32_t>(f) * kVideoFrameMs;
  keyTs_ = vts_;
  if (audio_) {
    uint32_t dur = static_cast<uint32_t>(audio_->frameMs);
    uint32_t k = (vts_ - span_.startMs + dur - 1) / dur;
    aPos_ = k % audio_->frames.size();
    ats_ = span_.startMs + k * dur;
  }
  return true;
}

bool RecorderStream::nextSpan(int64_t now) {
  if (!position(span_.endMs)) return false;
  rebase(now, vts_);  // a recorder skips gaps at once
  return true;
}

int64_t RecorderStream::dueOf(uint32_t ts) const {
  return wallBase_ + (static_cast<int64_t>(ts) - static_cast<int64_t>(mediaBase_)) * den_ / num_;
}

void RecorderStream::rebase(int64_t now, uint32_t ts) {
  wallBase_ = now;
  mediaBase_ = ts;
}

void RecorderStream::seek(uint32_t ms, int64_t now) {
  empty_ = !position(ms);
  pastEnd_ = false;
  rebase(now, vts_);
}

void RecorderStream::setSpeed(int num, int den, int64_t now) {
  rebase(now, audio_ && ats_ < vts_ ? ats_ : vts_);
  num_ = std::max(1, num);
  den_ = std::max(1, den);
}

void RecorderStream::pause(bool p, int64_t now) {
  if (paused_ && !p) rebase(now, audio_ && ats_ < vts_ ? ats_ : vts_);
  paused_ = p;
}

bool RecorderStream::takeFault(const std::string& kind, uint32_t ts, RecFault& out) {
  long long elapsed = firstTs_ < 0 ? 0 : static_cast<long long>(ts) - firstTs_;
  for (size_t i = 0; i < faults_.size(); ++i) {
    // audio_first acts before the first frame, whatever its at_ms.
    if (faults_[i].kind != kind || (kind != "audio_first" && elapsed < faults_[i].atMs)) continue;
    out = faults_[i];
    faults_.erase(faults_.begin() + static_cast<long>(i));
    rep_.faults.push_back(kind + "@" + std::to_string(ts));
    return true;
  }
  return false;
}

std::string RecorderStream::paramsMessage() {
  long long seconds = cfg_.download ? (static_cast<long long>(cfg_.endMs) - cfg_.startMs) / 1000
                                    : (static_cast<long long>(span_.endMs) - span_.startMs) / 1000;
  return envelope("90000", "90000", "0",
                  streamParamBody(*video_, audio_, cfg_.videoLayout, cfg_.audioLayout, std::max(0LL, seconds)));
}

std::string RecorderStream::framedParams(uint32_t flag) { return frame(paramsMessage(), flag); }

RecorderStream::Stop RecorderStream::produce(std::string& out, size_t budget, int64_t now, int64_t& due,
                                             uint32_t flag) {
  if (paused_) return Stop::Paused;
  if (!started_) {
    started_ = true;
    rebase(now, vts_);
  }
  while (out.size() < budget) {
    if (pastEnd_) return Stop::Done;
    if (empty_) return Stop::End;
    if (!audioFirstDone_ && audioFirst(out, flag)) continue;
    bool audioOk = audio_ && ats_ < span_.endMs && (!cfg_.download || ats_ <= cfg_.endMs);
    bool audioNext = audioOk && ats_ < vts_;
    if (!audioNext && vts_ >= span_.endMs) {
      if (!nextSpan(now)) empty_ = true;
      continue;
    }
    uint32_t ts = audioNext ? ats_ : vts_;
    if (!cfg_.fast && dueOf(ts) > now) {
      due = dueOf(ts);
      return Stop::NotDue;
    }
    Stop s = audioNext ? audioStep(out, flag) : videoStep(out, flag, due, now);
    if (s != Stop::Budget) return s;
  }
  return Stop::Budget;
}

// The audio_first fault: one audio frame just before the first video frame.
bool RecorderStream::audioFirst(std::string& out, uint32_t flag) {
  audioFirstDone_ = true;
  RecFault f;
  if (!takeFault("audio_first", vts_, f)) return false;
  std::string err;
  const Clip* a = audio_ ? audio_ : clips_.audio("pcmu", err);
  if (!a) return false;
  uint32_t ts = vts_ >= kVideoFrameMs ? vts_ - kVideoFrameMs : 0;
  if (firstTs_ < 0) firstTs_ = ts;
  emitFrame(out, *a, a->frames[0], ts, ts, false, flag);
  rep_.audioFrames++;
  if (rep_.firstAudioMs < 0) rep_.firstAudioMs = ts;
  return true;
}

RecorderStream::Stop RecorderStream::audioStep(std::string& out, uint32_t flag) {
  if (firstTs_ < 0) firstTs_ = ats_;
  RecFault f;
  if (takeFault("audio_change", ats_, f)) {
    std::string err, to = f.to.empty() ? (audio_->codec == "pcmu" ? "pcma" : "pcmu") : f.to;
    if (const Clip* a = clips_.audio(to, err)) audio_ = a, aPos_ = 0;
    if (f.params) out += framedParams(flag);
  }
  emitFrame(out, *audio_, audio_->frames[aPos_], ats_, ats_, false, flag);
  rep_.audioFrames++;
  if (cfg_.download && ats_ >= cfg_.startMs && ats_ <= cfg_.endMs) rep_.audioInSpan++;
  if (rep_.firstAudioMs < 0) rep_.firstAudioMs = ats_;
  ats_ += static_cast<uint32_t>(audio_->frameMs);
  aPos_ = (aPos_ + 1) % audio_->frames.size();
  return Stop::Budget;
}

RecorderStream::Stop RecorderStream::videoStep(std::string& out, uint32_t flag, int64_t& due, int64_t now) {
  uint32_t ts = vts_;
  if (firstTs_ < 0) firstTs_ = ts;
  RecFault f;
  if (takeFault("drop", ts, f)) {
    dropRst_ = f.rst;
    return Stop::Drop;
  }
  if (takeFault("stall", ts, f)) {
    long long ms = f.value > 0 ? f.value : 3000;
    due = now + ms;
    wallBase_ += ms;
    return Stop::Stall;
  }
  if (video_->frames[vPos_].key && takeFault("param_change", ts, f)) {
    std::string err, to = f.to.empty() ? cfg_.videoCodec + "_" + (video_->name.find("_320x240") != std::string::npos
                                                                      ? "1920x1080" : "320x240") : f.to;
    size_t u = to.find('_');
    const Clip* v = u == std::string::npos ? nullptr : clips_.video(to.substr(0, u), to.substr(u + 1), err);
    if (v) {
      video_ = v;
      vPos_ = 0;
      out += framedParams(flag);
      rep_.parts.push_back(0);
    }
  }
  const ClipFrame& fr = video_->frames[vPos_];
  if (fr.len > cfg_.packMax) {
    if (takeFault("lose_pack", ts, f)) losePack_ = true;
    if (takeFault("seq_jump", ts, f)) jumpPack_ = true, jump_ = f.value > 0 ? f.value : 1000;
    if (takeFault("seq_wrap", ts, f)) wrapPack_ = true;
  }
  if (fr.key) keyTs_ = ts;
  emitFrame(out, *video_, fr, ts, keyTs_, true, flag);
  rep_.videoFrames++;
  rep_.keyFrames += fr.key ? 1 : 0;
  rep_.parts.back()++;
  if (rep_.firstVideoMs < 0) rep_.firstVideoMs = ts;
  rep_.lastVideoMs = ts;
  if (!cfg_.download || (ts >= cfg_.startMs && ts <= cfg_.endMs)) rep_.videoInSpan++, rep_.lastVideoInSpanMs = ts;
  vts_ += kVideoFrameMs;
  vPos_ = (vPos_ + 1) % video_->frames.size();
  if (cfg_.download && ts > cfg_.endMs) pastEnd_ = true;
  return Stop::Budget;
}

void RecorderStream::emitFrame(std::string& out, const Clip& clip, const ClipFrame& f, uint32_t ts, uint32_t keyTs,
                               bool video, uint32_t flag) {
  const char* data = clip.data(f);
  size_t max = std::max<size_t>(1, std::min<size_t>(cfg_.packMax, 65535));
  size_t packs = std::max<size_t>(1, (f.len + max - 1) / max);
  bool key = video && f.key;
  for (size_t i = 0; i < packs; ++i) {
    uint8_t type = packs == 1 ? 0x11 : i == 0 ? 0x01 : i + 1 == packs ? 0x10 : 0x00;
    if (i == 0 && wrapPack_) seq_ = 65535, wrapPack_ = false;
    if (i == 1 && jumpPack_) seq_ = static_cast<uint16_t>(seq_ + jump_), jumpPack_ = false;
    size_t len = std::min(max, f.len - i * max);
    if (i == 1 && losePack_) {
      losePack_ = false;
      ++seq_;  // the pack was sent and lost: its number is gone too
      continue;
    }
    emitPack(out, data + i * max, len, ts, keyTs, type, key, video, clip.payloadType, flag);
  }
  ++frameIndex_;
}

void RecorderStream::emitPack(std::string& out, const char* data, size_t len, uint32_t ts, uint32_t keyTs,
                              uint8_t packType, bool key, bool video, int payloadType, uint32_t flag) {
  std::string text = envelope("90000", cfg_.download ? "90002" : "90001", "0",
                              "<dataLen>" + std::to_string(20 + len) + "</dataLen>");
  size_t payload = text.size() + 4 + 20 + len;
  out += frameHeader(flag, static_cast<uint32_t>(payload));
  out += text;
  out.append(4, '\0');
  std::string h;
  putLE32(h, ts);
  putLE32(h, keyTs);
  h.push_back(static_cast<char>(seq_ & 0xFF));
  h.push_back(static_cast<char>(seq_ >> 8));
  h.push_back(static_cast<char>(len & 0xFF));
  h.push_back(static_cast<char>(len >> 8));
  h.push_back(static_cast<char>(packType));
  h.push_back(static_cast<char>(key ? 1 : 0));
  h.push_back(static_cast<char>(video ? 0 : 1));
  h.push_back(static_cast<char>(payloadType));
  putLE32(h, frameIndex_);
  out += h;
  out.append(data, len);
  ++seq_;
  rep_.packs++;
  rep_.bytes += static_cast<long long>(len);
}

}  // namespace devsim
