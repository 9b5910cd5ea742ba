#include "media/Mp4Writer.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cstring>
#include <deque>
#include <vector>

#include "base/FuncLog.h"
#include "media/H264Sps.h"
#include "media/Mp4Bitstream.h"
#include "media/Mp4PartName.h"

namespace {

constexpr unsigned kLogLevel = 6;
constexpr int kSetBuffer = 128;
constexpr int kDefaultFps = 25;
constexpr int kVideoClock = 90000;
constexpr int kAacFrameSamples = 1024;
// libavformat writes the header once every stream is known, and the audio track is added lazily:
// the first packets wait until audio shows up or this much media has passed without it. The
// count and byte bounds keep a stream with frozen timestamps from growing the wait without end.
constexpr int64_t kHoldMs = 1000;
constexpr size_t kHoldMaxPackets = 500;
constexpr size_t kHoldMaxBytes = 64u << 20;
// A new audio codec waits for the next key frame (so that the video of both parts decodes), but
// not for more than this many audio packets.
constexpr size_t kPendingMaxPackets = 500;
// Enough of a key frame for libavcodec's parser to reach the first slice header.
constexpr unsigned kProbeFrameBytes = 64 * 1024;
const char kFragmentFlags[] = "frag_keyframe+empty_moov+default_base_moof";
const unsigned char kStartCode[4] = {0, 0, 0, 1};

struct ParamSet {
  unsigned char data[kSetBuffer];
  int length = 0;
};

// A packet waiting for the header (data owned by pkt).
struct Held {
  AVPacket* pkt;
  bool video;
  int samples;  // audio: samples in the packet
  uint32_t ts;  // the frame's timestamp, ms
};

// Audio of a new codec waiting for the next part.
struct Pending {
  std::vector<unsigned char> data;
  uint32_t ts;
};

AVPacket* copyPacket(const unsigned char* a, unsigned aLength, const unsigned char* b, unsigned bLength) {
  AVPacket* p = av_packet_alloc();
  if (!p || av_new_packet(p, static_cast<int>(aLength + bLength)) < 0) {
    av_packet_free(&p);
    return nullptr;
  }
  if (aLength) std::memcpy(p->data, a, aLength);
  if (bLength) std::memcpy(p->data + aLength, b, bLength);
  return p;
}

const char* audioFormatName(unsigned char codec) {
  if (codec == Mp4Writer::kAudioG711A) return "g711a";
  if (codec == Mp4Writer::kAudioAac) return "aac";
  if (codec == Mp4Writer::kAudioG711U) return "g711u";
  return nullptr;
}

}  // namespace

struct Mp4Writer::Impl {
  // Files: the name given to create(), the part written now and its number.
  std::string path;
  std::string current;
  unsigned part = 0;
  AVIOContext* pb = nullptr;
  AVFormatContext* fmt = nullptr;
  bool started = false;  // the header was written (or refused)
  int videoIndex = -1;
  int audioIndex = -1;

  // Video track.
  unsigned char videoCodec = kNone;
  ParamSet vps, sps, pps;
  int width = 0;
  int height = 0;
  int fps = kDefaultFps;
  unsigned char mismatchLogged = kNone;

  // Audio track.
  unsigned char audioCodec = kNone;
  AVBSFContext* adts = nullptr;
  std::vector<unsigned char> asc;  // AudioSpecificConfig from the first ADTS header
  int sampleRate = 8000;
  int channels = 1;
  bool audioRefusedLogged = false;
  bool badAdtsLogged = false;

  // Timing of the part: timestamps count from the anchor (the first kept packet), the file's
  // zero is the earliest held packet.
  bool anchored = false;
  uint32_t anchor = 0;
  int64_t baseMs = 0;
  bool keySeen = false;
  int64_t lastVideoDts = -1;  // 1/90000 s
  int64_t audioNext = -1;     // samples
  std::deque<Held> held;
  size_t heldBytes = 0;
  int64_t heldMin = 0;
  int64_t heldMax = 0;

  unsigned char pendingCodec = kNone;
  std::deque<Pending> pending;

  AVPacket* pkt = av_packet_alloc();
  std::vector<unsigned char> scratch;

  ~Impl();
  bool openPart(const std::string& name, unsigned n);
  bool openNextPart();
  void finishPart();
  void resetPart();
  void resetAudio();
  int64_t rel(uint32_t ts);

  bool takeSets(bool h265, const unsigned char* header, int length, ParamSet& v, ParamSet& s, ParamSet& p);
  void h264Size();
  std::vector<unsigned char> annexBSets() const;
  void probeSize();

  void pushVideo(const unsigned char* frame, unsigned length, bool isSync, uint32_t ts);
  void pushAudio(const unsigned char* data, unsigned length, int samples, uint32_t ts);
  void pushAdts(const unsigned char* data, unsigned length, uint32_t ts);
  bool openAdts(const AdtsHeader& h);
  AVPacket* stripAdts(const unsigned char* data, unsigned length);
  void hold(AVPacket* p, bool video, int samples, uint32_t ts);
  bool holdComplete() const;
  void startOutput();
  bool openMuxer(bool withVideo, bool withAudio);
  bool addVideoStream();
  bool addAudioStream();
  void writeVideoPacket(const unsigned char* data, unsigned length, bool key, uint32_t ts);
  void writeAudioPacket(const unsigned char* data, unsigned length, int samples, uint32_t ts);
  void writePacket(int index, AVRational from);

  void queueAudioChange(const unsigned char* data, unsigned length, unsigned char codec, uint32_t ts);
  std::deque<Pending> takePending(unsigned char& codec);
  void logAudioRefused(unsigned char codec);
};

Mp4Writer::Impl::~Impl() {
  av_packet_free(&pkt);
  av_bsf_free(&adts);
}

// ---- files and parts

bool Mp4Writer::Impl::openPart(const std::string& name, unsigned n) {
  if (avio_open(&pb, name.c_str(), AVIO_FLAG_WRITE) < 0) {
    pb = nullptr;
    return false;
  }
  current = name;
  part = n;
  return true;
}

bool Mp4Writer::Impl::openNextPart() {
  std::string name;
  unsigned n = path.empty() ? 0 : claimNextPart(path, part, name);
  if (n == 0 || !openPart(name, n)) {
    fLog(kLogLevel, "change parameter create file fail. %s", name.empty() ? path.c_str() : name.c_str());
    return false;
  }
  fLog(kLogLevel, "create mp4 file ok... %s", name.c_str());
  return true;
}

void Mp4Writer::Impl::finishPart() {
  if (!pb) return;
  if (!started) startOutput();
  if (fmt) av_write_trailer(fmt);
  avformat_free_context(fmt);
  fmt = nullptr;
  avio_closep(&pb);
  resetPart();
}

void Mp4Writer::Impl::resetPart() {
  for (Held& h : held) av_packet_free(&h.pkt);
  held.clear();
  heldBytes = 0;
  current.clear();
  started = false;
  videoIndex = audioIndex = -1;
  anchored = false;
  baseMs = 0;
  keySeen = false;
  lastVideoDts = audioNext = -1;
  audioRefusedLogged = badAdtsLogged = false;
}

void Mp4Writer::Impl::resetAudio() {
  audioCodec = kNone;
  av_bsf_free(&adts);
  asc.clear();
  sampleRate = 8000;
  channels = 1;
}

// Milliseconds from the part's anchor; 32-bit differences, so a timestamp that wraps keeps counting.
int64_t Mp4Writer::Impl::rel(uint32_t ts) {
  if (!anchored) {
    anchor = ts;
    anchored = true;
  }
  return static_cast<int32_t>(ts - anchor);
}

// ---- video track

bool Mp4Writer::Impl::takeSets(bool h265, const unsigned char* header, int length, ParamSet& v, ParamSet& s,
                               ParamSet& p) {
  int vPos = 0, sPos = 0, pPos = 0;
  if (h265) findVpsSpsPps(header, length, vPos, sPos, pPos);
  else findSpsPps(header, length, sPos, pPos);
  fLog(kLogLevel, "addVideo find vps: %d, sps: %d, pps: %d ...", vPos, sPos, pPos);
  if (!sPos || !pPos || (h265 && !vPos)) return false;
  struct { const char* name; int pos; ParamSet* out; } sets[3] = {{"vps", vPos, &v}, {"sps", sPos, &s}, {"pps", pPos, &p}};
  for (auto& set : sets) {
    if (!set.pos) continue;
    int n = nalLengthAt(header, length, set.pos);
    if (n > kSetBuffer) {
      fLog(kLogLevel, "addVideo refused: %s of %d bytes, longer than %d", set.name, n, kSetBuffer);
      return false;
    }
    std::memcpy(set.out->data, header + set.pos, static_cast<size_t>(n));
    set.out->length = n;
  }
  return true;
}

void Mp4Writer::Impl::h264Size() {
  sps_info_struct info;
  std::memset(&info, 0, sizeof(info));
  h264_parse_sps(sps.data, static_cast<unsigned>(sps.length), &info);
  fLog(kLogLevel, "parse sps: size %dx%d, fps %d", info.width, info.height, info.fps);
  width = info.width;
  height = info.height;
  // Only the timestamps' fallback uses it: a rate the SPS does not state, or states absurdly, is 25.
  fps = info.fps > 0 && info.fps <= 1000 ? info.fps : kDefaultFps;
}

std::vector<unsigned char> Mp4Writer::Impl::annexBSets() const {
  std::vector<unsigned char> out;
  for (const ParamSet* set : {&vps, &sps, &pps}) {
    if (set->length == 0) continue;
    out.insert(out.end(), kStartCode, kStartCode + 4);
    out.insert(out.end(), set->data, set->data + set->length);
  }
  return out;
}

// Picture size (and rate) from the stream's own parameter sets and first key frame, through
// libavcodec's parser: it reports the size once it has read a slice header.
void Mp4Writer::Impl::probeSize() {
  std::vector<unsigned char> buf = annexBSets();
  for (const Held& h : held) {
    if (!h.video) continue;
    unsigned n = std::min(static_cast<unsigned>(h.pkt->size), kProbeFrameBytes);
    buf.insert(buf.end(), h.pkt->data, h.pkt->data + n);
    break;
  }
  buf.resize(buf.size() + AV_INPUT_BUFFER_PADDING_SIZE, 0);
  AVCodecID id = videoCodec == kVideoH265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
  AVCodecParserContext* parser = av_parser_init(id);
  AVCodecContext* ctx = avcodec_alloc_context3(nullptr);
  if (parser && ctx) {
    parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    uint8_t* out = nullptr;
    int outSize = 0;
    av_parser_parse2(parser, ctx, &out, &outSize, buf.data(),
                     static_cast<int>(buf.size() - AV_INPUT_BUFFER_PADDING_SIZE), AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
    if (parser->width > 0 && parser->height > 0) {
      width = parser->width;
      height = parser->height;
    }
    if (videoCodec == kVideoH265 && ctx->framerate.num > 0 && ctx->framerate.den > 0) {
      int rate = static_cast<int>((ctx->framerate.num + ctx->framerate.den / 2) / ctx->framerate.den);
      if (rate > 0 && rate <= 1000) fps = rate;
    }
  }
  av_parser_close(parser);
  avcodec_free_context(&ctx);
}

// ---- packets before and after the header

void Mp4Writer::Impl::pushVideo(const unsigned char* frame, unsigned length, bool isSync, uint32_t ts) {
  // The muxer converts Annex B input only: a frame handed over without its start code gets one.
  bool bare = startCodeLength(frame, length) == 0;
  if (!started) {
    AVPacket* p = bare ? copyPacket(kStartCode, 4, frame, length) : copyPacket(frame, length, nullptr, 0);
    if (p) {
      if (isSync) p->flags |= AV_PKT_FLAG_KEY;
      hold(p, true, 0, ts);
    }
    return;
  }
  if (bare) {
    scratch.assign(kStartCode, kStartCode + 4);
    scratch.insert(scratch.end(), frame, frame + length);
    frame = scratch.data();
    length = static_cast<unsigned>(scratch.size());
  }
  writeVideoPacket(frame, length, isSync, ts);
}

void Mp4Writer::Impl::pushAudio(const unsigned char* data, unsigned length, int samples, uint32_t ts) {
  if (started) {
    writeAudioPacket(data, length, samples, ts);
    return;
  }
  AVPacket* p = copyPacket(data, length, nullptr, 0);
  if (p) hold(p, false, samples, ts);
}

// AAC arrives as ADTS frames (possibly several in one payload); MP4 wants raw frames and an
// AudioSpecificConfig, which libavcodec's aac_adtstoasc filter derives from the first header.
void Mp4Writer::Impl::pushAdts(const unsigned char* data, unsigned length, uint32_t ts) {
  unsigned offset = 0;
  for (unsigned k = 0; offset < length; ++k) {
    AdtsHeader h;
    if (!readAdtsHeader(data + offset, length - offset, h)) {
      if (!badAdtsLogged) fLog(kLogLevel, "mp4 writer: AAC payload without a valid ADTS header dropped");
      badAdtsLogged = true;
      return;
    }
    if (!adts && !openAdts(h)) return;
    AVPacket* raw = stripAdts(data + offset, h.frameLength);
    uint32_t at = ts + static_cast<uint32_t>(static_cast<int64_t>(k) * kAacFrameSamples * 1000 / sampleRate);
    if (raw) pushAudio(raw->data, static_cast<unsigned>(raw->size), kAacFrameSamples, at);
    av_packet_free(&raw);
    offset += h.frameLength;
  }
}

bool Mp4Writer::Impl::openAdts(const AdtsHeader& h) {
  const AVBitStreamFilter* filter = av_bsf_get_by_name("aac_adtstoasc");
  if (!filter || av_bsf_alloc(filter, &adts) < 0) return false;
  adts->par_in->codec_type = AVMEDIA_TYPE_AUDIO;
  adts->par_in->codec_id = AV_CODEC_ID_AAC;
  adts->par_in->sample_rate = h.sampleRate;
  av_channel_layout_default(&adts->par_in->ch_layout, h.channels);
  adts->time_base_in = AVRational{1, h.sampleRate};
  if (av_bsf_init(adts) < 0) {
    av_bsf_free(&adts);
    return false;
  }
  sampleRate = h.sampleRate;
  channels = h.channels;
  return true;
}

AVPacket* Mp4Writer::Impl::stripAdts(const unsigned char* data, unsigned length) {
  AVPacket* p = copyPacket(data, length, nullptr, 0);
  if (!p) return nullptr;
  if (av_bsf_send_packet(adts, p) < 0 || av_bsf_receive_packet(adts, p) < 0) {
    av_packet_free(&p);
    return nullptr;
  }
  // The filter hands the configuration over once, beside its first output packet.
  size_t size = 0;
  const uint8_t* config = av_packet_get_side_data(p, AV_PKT_DATA_NEW_EXTRADATA, &size);
  if (config && size > 0 && asc.empty()) asc.assign(config, config + size);
  return p;
}

void Mp4Writer::Impl::hold(AVPacket* p, bool video, int samples, uint32_t ts) {
  int64_t ms = rel(ts);
  heldMin = held.empty() ? ms : std::min(heldMin, ms);
  heldMax = held.empty() ? ms : std::max(heldMax, ms);
  heldBytes += static_cast<size_t>(p->size);
  held.push_back(Held{p, video, samples, ts});
  if (holdComplete()) startOutput();
}

bool Mp4Writer::Impl::holdComplete() const {
  if (held.size() >= kHoldMaxPackets || heldBytes >= kHoldMaxBytes) return true;
  bool video = false, audio = false;
  for (const Held& h : held) (h.video ? video : audio) = true;
  if (video && audio) return true;
  return heldMax - heldMin >= kHoldMs;
}

// ---- the header and the writing

void Mp4Writer::Impl::startOutput() {
  started = true;
  bool withVideo = videoCodec != kNone;
  bool withAudio = audioCodec == kAudioG711U || audioCodec == kAudioG711A ||
                   (audioCodec == kAudioAac && !asc.empty());
  if ((withVideo || withAudio) && !openMuxer(withVideo, withAudio))
    fLog(kLogLevel, "add video track fail: %s", current.c_str());
  baseMs = held.empty() ? 0 : heldMin;
  while (!held.empty()) {
    Held h = held.front();
    held.pop_front();
    if (h.video) writeVideoPacket(h.pkt->data, static_cast<unsigned>(h.pkt->size), h.pkt->flags & AV_PKT_FLAG_KEY, h.ts);
    else writeAudioPacket(h.pkt->data, static_cast<unsigned>(h.pkt->size), h.samples, h.ts);
    av_packet_free(&h.pkt);
  }
  heldBytes = 0;
}

bool Mp4Writer::Impl::openMuxer(bool withVideo, bool withAudio) {
  // The mp4 muxer refuses G.711; mov (the same family, QuickTime brand) takes it.
  const char* muxer = withAudio && audioCodec != kAudioAac ? "mov" : "mp4";
  if (avformat_alloc_output_context2(&fmt, nullptr, muxer, current.c_str()) < 0) return false;
  fmt->pb = pb;
  bool ok = (!withVideo || addVideoStream()) && (!withAudio || addAudioStream());
  AVDictionary* options = nullptr;
  av_dict_set(&options, "movflags", kFragmentFlags, 0);
  ok = ok && avformat_write_header(fmt, &options) >= 0;
  av_dict_free(&options);
  if (ok) return true;
  avformat_free_context(fmt);
  fmt = nullptr;
  videoIndex = audioIndex = -1;
  return false;
}

bool Mp4Writer::Impl::addVideoStream() {
  if (videoCodec == kVideoH265 || width <= 0 || height <= 0) probeSize();
  std::vector<unsigned char> sets = annexBSets();
  AVStream* st = avformat_new_stream(fmt, nullptr);
  if (!st) return false;
  AVCodecParameters* par = st->codecpar;
  par->codec_type = AVMEDIA_TYPE_VIDEO;
  par->codec_id = videoCodec == kVideoH265 ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264;
  par->width = width;
  par->height = height;
  par->extradata = static_cast<uint8_t*>(av_mallocz(sets.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!par->extradata) return false;
  std::memcpy(par->extradata, sets.data(), sets.size());
  par->extradata_size = static_cast<int>(sets.size());
  st->time_base = AVRational{1, kVideoClock};
  st->avg_frame_rate = AVRational{fps, 1};
  videoIndex = st->index;
  return true;
}

bool Mp4Writer::Impl::addAudioStream() {
  AVStream* st = avformat_new_stream(fmt, nullptr);
  if (!st) return false;
  AVCodecParameters* par = st->codecpar;
  par->codec_type = AVMEDIA_TYPE_AUDIO;
  par->sample_rate = sampleRate;
  av_channel_layout_default(&par->ch_layout, channels);
  if (audioCodec == kAudioAac) {
    par->codec_id = AV_CODEC_ID_AAC;
    par->frame_size = kAacFrameSamples;
    par->extradata = static_cast<uint8_t*>(av_mallocz(asc.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!par->extradata) return false;
    std::memcpy(par->extradata, asc.data(), asc.size());
    par->extradata_size = static_cast<int>(asc.size());
  } else {
    par->codec_id = audioCodec == kAudioG711A ? AV_CODEC_ID_PCM_ALAW : AV_CODEC_ID_PCM_MULAW;
    par->bits_per_coded_sample = 8;
    par->block_align = channels;
  }
  st->time_base = AVRational{1, sampleRate};
  audioIndex = st->index;
  return true;
}

// Timestamps come from the frames; where they stand still or go back, the previous step (or the
// SPS rate) continues the clock, since the muxer needs them strictly increasing.
void Mp4Writer::Impl::writeVideoPacket(const unsigned char* data, unsigned length, bool key, uint32_t ts) {
  if (videoIndex < 0) return;
  int64_t dts = std::max<int64_t>(0, (rel(ts) - baseMs) * (kVideoClock / 1000));
  int64_t step = kVideoClock / fps;
  if (lastVideoDts >= 0 && dts <= lastVideoDts) dts = lastVideoDts + step;
  // A fragment's last sample lasts its packet's duration: the step just seen is the best guess.
  int64_t duration = lastVideoDts >= 0 ? dts - lastVideoDts : step;
  lastVideoDts = dts;
  pkt->data = const_cast<uint8_t*>(data);
  pkt->size = static_cast<int>(length);
  pkt->pts = pkt->dts = dts;
  pkt->duration = duration;
  pkt->flags = key ? AV_PKT_FLAG_KEY : 0;
  writePacket(videoIndex, AVRational{1, kVideoClock});
}

// Audio stays continuous: a timestamp within 100 ms of where the previous packet ended is
// rounding, and only a real gap moves the clock forward.
void Mp4Writer::Impl::writeAudioPacket(const unsigned char* data, unsigned length, int samples, uint32_t ts) {
  if (audioIndex < 0) {
    logAudioRefused(audioCodec);
    return;
  }
  int64_t at = (rel(ts) - baseMs) * sampleRate / 1000;
  if (audioNext < 0 && at < 0) return;
  int64_t dts = audioNext < 0 || at > audioNext + sampleRate / 10 ? at : audioNext;
  audioNext = dts + samples;
  pkt->data = const_cast<uint8_t*>(data);
  pkt->size = static_cast<int>(length);
  pkt->pts = pkt->dts = dts;
  pkt->duration = samples;
  pkt->flags = AV_PKT_FLAG_KEY;
  writePacket(audioIndex, AVRational{1, sampleRate});
}

void Mp4Writer::Impl::writePacket(int index, AVRational from) {
  pkt->stream_index = index;
  av_packet_rescale_ts(pkt, from, fmt->streams[index]->time_base);
  av_write_frame(fmt, pkt);
  pkt->data = nullptr;
  pkt->size = 0;
}

// ---- audio codec change

void Mp4Writer::Impl::queueAudioChange(const unsigned char* data, unsigned length, unsigned char codec,
                                       uint32_t ts) {
  if (pendingCodec == kNone) {
    // The first number is the video codec byte: the line keeps the form its readers know.
    fLog(kLogLevel, "audio codec changed. old: %d, new: %d", videoCodec, codec);
    pendingCodec = codec;
  }
  if (codec != pendingCodec) return;  // a second change before the part began
  pending.push_back(Pending{std::vector<unsigned char>(data, data + length), ts});
}

std::deque<Pending> Mp4Writer::Impl::takePending(unsigned char& codec) {
  codec = pendingCodec;
  pendingCodec = kNone;
  std::deque<Pending> out;
  out.swap(pending);
  return out;
}

void Mp4Writer::Impl::logAudioRefused(unsigned char codec) {
  if (audioRefusedLogged) return;
  audioRefusedLogged = true;
  const char* name = audioFormatName(codec);
  fLog(kLogLevel, "add audio track fail: %s, format: %s", current.c_str(), name ? name : "?");
}

// ---- the interface

Mp4Writer::Mp4Writer() : impl_(new Impl) {}

Mp4Writer::~Mp4Writer() { close(); }

bool Mp4Writer::create(const char* path) {
  close();
  Impl& d = *impl_;
  std::string name = path ? path : "";
  if (name.empty() || !d.openPart(name, 0)) {
    fLog(kLogLevel, "create mp4 file fail: %s", name.c_str());
    return false;
  }
  d.path = name;
  fLog(kLogLevel, "create mp4 file ok... %s", name.c_str());
  return true;
}

void Mp4Writer::close() {
  Impl& d = *impl_;
  d.finishPart();
  unsigned char codec;
  d.takePending(codec);  // audio of a new codec with no video after it: nothing to pair it with
  d.videoCodec = kNone;
  d.vps.length = d.sps.length = d.pps.length = 0;
  d.fps = kDefaultFps;
  d.width = d.height = 0;
  d.mismatchLogged = kNone;
  d.resetAudio();
}

bool Mp4Writer::addVideo(const char* codecName, const unsigned char* header, unsigned char length) {
  Impl& d = *impl_;
  if (d.videoCodec != kNone) return false;
  const char* name = codecName ? codecName : "";
  fLog(kLogLevel, "addVideo... %s", name);
  if (length <= 4 || !header) {
    fLog(kLogLevel, "addVideo find vps: %d, sps: %d, pps: %d ...", 0, 0, 0);
    return false;
  }
  bool h265 = std::strncmp(name, "H265", 4) == 0;
  ParamSet v, s, p;
  if (!d.takeSets(h265, header, length, v, s, p)) return false;
  if (!d.pb || d.started) {
    fLog(kLogLevel, "add video track fail: %s", d.current.c_str());
    return false;
  }
  d.vps = v;
  d.sps = s;
  d.pps = p;
  d.videoCodec = h265 ? kVideoH265 : kVideoH264;
  if (h265) {
    fLog(kLogLevel, "add video track ok.");
  } else {
    d.h264Size();
    fLog(kLogLevel, "add video track end.");
  }
  return true;
}

bool Mp4Writer::addAudio(unsigned char codec) {
  Impl& d = *impl_;
  if (d.audioCodec != kNone) return true;
  const char* name = audioFormatName(codec);
  if (!name) return false;
  if (!d.pb || d.started) {
    // A file already under way has no room for a new track. The result differs by codec as
    // callers have always seen it.
    d.logAudioRefused(codec);
    return codec != kAudioG711U;
  }
  d.audioCodec = codec;
  return true;
}

void Mp4Writer::writeVideo(unsigned char* frame, unsigned length, bool isSync, unsigned char codec,
                           uint32_t timestampMs) {
  Impl& d = *impl_;
  if (!d.pb || d.videoCodec == kNone || !frame) return;
  if (codec != d.videoCodec && codec != d.mismatchLogged) {
    fLog(kLogLevel, "video codec changed. old: %d, new: %d", d.videoCodec, codec);
    d.mismatchLogged = codec;
  }
  length = lengthWithoutTrailer(frame, length);
  if (length == 0) return;
  if (isSync && d.pendingCodec != kNone) beginAudioPart();
  // A part starts at a key frame: what comes before it cannot be decoded.
  if (!d.pb || (!d.keySeen && !isSync)) return;
  d.keySeen = true;
  d.pushVideo(frame, length, isSync, timestampMs);
}

void Mp4Writer::writeAudio(const unsigned char* data, unsigned length, unsigned char codec,
                           uint32_t timestampMs) {
  Impl& d = *impl_;
  if (!d.pb || !data || length == 0) return;
  if (d.pendingCodec != kNone || (d.audioCodec != kNone && codec != d.audioCodec)) {
    d.queueAudioChange(data, length, codec, timestampMs);
    bool noKeyFrameToWaitFor = d.videoCodec == kNone || (d.started && d.videoIndex < 0);
    if (noKeyFrameToWaitFor || d.pending.size() >= kPendingMaxPackets) beginAudioPart();
    return;
  }
  if (d.audioCodec == kNone) addAudio(codec);
  if (d.audioCodec == kNone) return;
  if (d.audioCodec == kAudioAac) d.pushAdts(data, length, timestampMs);
  else d.pushAudio(data, length, static_cast<int>(length / static_cast<unsigned>(d.channels)), timestampMs);
}

// The new audio codec begins the next part, with the same video track, at a key frame.
void Mp4Writer::beginAudioPart() {
  Impl& d = *impl_;
  unsigned char codec;
  std::deque<Pending> queue = d.takePending(codec);
  d.finishPart();
  d.resetAudio();
  if (!d.openNextPart()) return;
  addAudio(codec);
  for (const Pending& p : queue) writeAudio(p.data.data(), static_cast<unsigned>(p.data.size()), codec, p.ts);
}

void Mp4Writer::splitFile(const char* codecName, const unsigned char* header, unsigned char length) {
  Impl& d = *impl_;
  unsigned char codec;
  std::deque<Pending> queue = d.takePending(codec);
  close();
  if (!d.openNextPart()) return;
  if (!addVideo(codecName, header, length))
    fLog(kLogLevel, "change parameter add Video fail. %s, %s", d.current.c_str(), codecName ? codecName : "");
  for (const Pending& p : queue) writeAudio(p.data.data(), static_cast<unsigned>(p.data.size()), codec, p.ts);
}

bool Mp4Writer::isOpen() const { return impl_->pb != nullptr; }
unsigned char Mp4Writer::videoCodec() const { return impl_->videoCodec; }
unsigned char Mp4Writer::audioCodec() const { return impl_->audioCodec; }
const std::string& Mp4Writer::currentPath() const { return impl_->current; }
