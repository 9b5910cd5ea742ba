#include "media/mp4_feed.h"

namespace mediatest {

// The clips: AAC at 16 kHz (1024 samples = 64 ms a frame), G.711 in 40 ms chunks.
int audioFrameMs(unsigned char codec) { return codec == Mp4Writer::kAudioAac ? 64 : 40; }

namespace {

void writeAudioUntil(Mp4Writer& w, const Feed& f, int64_t endMs, int& next, Fed& fed) {
  if (!f.audio || f.audio->empty()) return;
  int step = audioFrameMs(f.audioCodec);
  while (static_cast<int64_t>(next) * step < endMs) {
    const Unit& u = (*f.audio)[static_cast<size_t>(next) % f.audio->size()];
    w.writeAudio(u.data.data(), static_cast<unsigned>(u.data.size()), f.audioCodec,
                 f.t0 + static_cast<uint32_t>(next * step));
    ++next;
    ++fed.audioFrames;
  }
}

}  // namespace

Fed feedFrames(Mp4Writer& w, const Feed& f, int from, int to, int& nextAudio) {
  Fed fed;
  std::vector<unsigned char> buf;
  unsigned char codec = f.video->h265 ? Mp4Writer::kVideoH265 : Mp4Writer::kVideoH264;
  for (int i = from; i < to; ++i) {
    writeAudioUntil(w, f, static_cast<int64_t>(i) * 40 + 1, nextAudio, fed);
    const Unit& u = f.video->units[static_cast<size_t>(i) % f.video->units.size()];
    buf = u.data;
    w.writeVideo(buf.data(), static_cast<unsigned>(buf.size()), u.key, codec, f.t0 + static_cast<uint32_t>(i * 40));
    ++fed.videoFrames;
  }
  writeAudioUntil(w, f, static_cast<int64_t>(to) * 40, nextAudio, fed);
  return fed;
}

Fed writeFile(const char* path, const Feed& f, int frames) {
  Mp4Writer w;
  Fed none;
  if (!w.create(path)) return none;
  const char* name = f.video->h265 ? "H265" : "H264";
  if (!w.addVideo(name, f.video->header.data(), static_cast<unsigned char>(f.video->header.size()))) return none;
  int next = 0;
  Fed fed = feedFrames(w, f, 0, frames, next);
  w.close();
  return fed;
}

}  // namespace mediatest
