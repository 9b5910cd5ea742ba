#include "media/StreamParams.h"

#include <cstdint>
#include <cstring>

#include "base/Base64.h"
#include "media/StreamParamLayout.h"

namespace media {
namespace {

static_assert(sizeof(NETSDK_VIDEO_PARAM) == streamparam::kVideoBlockSize, "video block");
static_assert(sizeof(NETSDK_AUDIO_PARAM) == streamparam::kAudioBlockSize, "audio block");
static_assert(offsetof(NETSDK_STREAM_PARAM, video) == streamparam::kVideoBlockOffset, "video offset");
static_assert(offsetof(NETSDK_STREAM_PARAM, audio) == streamparam::kAudioBlockOffset, "audio offset");
static_assert(offsetof(NETSDK_AUDIO_PARAM, nSampleRate) == streamparam::kAudioSampleRateOffset, "rate");
static_assert(offsetof(NETSDK_AUDIO_PARAM, nCodec) == streamparam::kAudioCodecOffset, "codec");
static_assert(offsetof(NETSDK_AUDIO_PARAM, nChannels) == streamparam::kAudioChannelsOffset, "channels");

// Room for the decode of the longest text taken.
constexpr size_t kDecodedMax = kParamTextMax * 3 / 4 + 2;

// Decodes at most kParamTextMax characters of `text`; the decoder's count.
int DecodeText(const char* text, unsigned char* out) {
  if (!text) return 0;
  size_t n = strnlen(text, kParamTextMax);
  return CBase64::Decode(text, out, static_cast<int>(n));
}

int32_t ReadI32(const unsigned char* p) {
  return static_cast<int32_t>(static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                              static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24);
}

void MoveCompactAudio(const unsigned char* src, NETSDK_AUDIO_PARAM* a) {
  std::memset(a, 0, sizeof(*a));
  std::memcpy(a->reserved, src, streamparam::kAudioCompactNameSize);
  a->nSampleRate = ReadI32(src + streamparam::kAudioCompactSampleRate);
  a->nBitsPerSample = ReadI32(src + streamparam::kAudioCompactBitsPerSample);
  a->nCodec = ReadI32(src + streamparam::kAudioCompactCodec);
  a->nChannels = ReadI32(src + streamparam::kAudioCompactChannels);
}

bool HasText(const char* t) { return t && *t; }

}  // namespace

bool DecodeVideoParam(const char* text, NETSDK_VIDEO_PARAM* block) {
  unsigned char buf[kDecodedMax];
  int n = DecodeText(text, buf);
  // The 537-byte layout keeps every field where the 536-byte block has it.
  if (n != static_cast<int>(streamparam::kVideoBlockSize) && n != static_cast<int>(streamparam::kVideoBlockSize537))
    return false;
  std::memcpy(block, buf, streamparam::kVideoBlockSize);
  return true;
}

size_t DecodeAudioParam(const char* text, NETSDK_AUDIO_PARAM* block) {
  unsigned char buf[kDecodedMax];
  int n = DecodeText(text, buf);
  if (n == static_cast<int>(streamparam::kAudioBlockSize)) {
    std::memcpy(block, buf, streamparam::kAudioBlockSize);
    return streamparam::kAudioBlockSize;
  }
  if (n == static_cast<int>(streamparam::kAudioCompactSize)) {
    MoveCompactAudio(buf, block);
    return streamparam::kAudioCompactSize;
  }
  return 0;
}

bool CompactAudioValid(const NETSDK_AUDIO_PARAM& a) {
  return static_cast<uint32_t>(a.nCodec) - 1u < 8u && a.nChannels > 0 && a.nBitsPerSample > 8 &&
         a.nBitsPerSample % 8 == 0 && a.nSampleRate % 1000 == 0 && a.nSampleRate >= 8000;
}

bool DownloadAudioValid(const NETSDK_AUDIO_PARAM& a) {
  return a.nCodec > 0 && (a.nBitsPerSample == 8 || a.nBitsPerSample == 16 || a.nBitsPerSample == 32);
}

void BuildReplayRecord(const char* videoText, const char* audioText, NETSDK_STREAM_PARAM* rec) {
  std::memset(rec, 0, sizeof(*rec));
  if (HasText(videoText) && DecodeVideoParam(videoText, &rec->video)) rec->wHasVideo = 1;
  if (!HasText(audioText)) return;
  size_t layout = DecodeAudioParam(audioText, &rec->audio);
  if (layout == streamparam::kAudioBlockSize || (layout != 0 && CompactAudioValid(rec->audio))) rec->wHasAudio = 1;
}

DownloadParams BuildDownloadRecord(const char* videoText, const char* audioText, NETSDK_STREAM_PARAM* rec,
                                   NETSDK_STREAM_PARAM* audioOnly) {
  std::memset(rec, 0, sizeof(*rec));
  if (HasText(videoText) && DecodeVideoParam(videoText, &rec->video)) {
    rec->wHasVideo = 1;
    if (HasText(audioText) && DecodeAudioParam(audioText, &rec->audio) != 0 && DownloadAudioValid(rec->audio))
      rec->wHasAudio = 1;
    return rec->wHasAudio ? DownloadParams::kBoth : DownloadParams::kVideoOnly;
  }
  std::memset(&rec->video, 0, sizeof(rec->video));
  if (!HasText(audioText)) return DownloadParams::kNone;
  std::memset(audioOnly, 0, sizeof(*audioOnly));
  DecodeAudioParam(audioText, &audioOnly->audio);
  audioOnly->wHasAudio = 1;
  return DownloadParams::kAudioOnly;
}

}  // namespace media
