// Encoding of the stream parameters into the device layouts.
#include "rec_params.h"

#include <cstdint>
#include <cstring>

#include "clips.h"
#include "media/StreamParamLayout.h"

namespace devsim {

namespace {

void putU32(std::string& b, size_t off, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[off + i] = static_cast<char>((v >> (8 * i)) & 0xFF);
}

int audioCodecNumber(const std::string& codec) {
  if (codec == "pcmu") return streamparam::kAudioCodecG711U;
  if (codec == "pcma") return streamparam::kAudioCodecG711A;
  return streamparam::kAudioCodecAac;
}

const char* audioCodecName(const std::string& codec) {
  if (codec == "pcmu") return "G711U";
  if (codec == "pcma") return "G711A";
  return "AAC";
}

}  // namespace

std::string base64(const std::string& bytes, bool padding) {
  static const char* kAlpha = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  const unsigned char* p = reinterpret_cast<const unsigned char*>(bytes.data());
  size_t n = bytes.size(), i = 0;
  for (; i + 3 <= n; i += 3) {
    uint32_t v = (p[i] << 16) | (p[i + 1] << 8) | p[i + 2];
    for (int k = 3; k >= 0; --k) out += kAlpha[(v >> (6 * k)) & 0x3F];
  }
  if (i < n) {
    uint32_t v = p[i] << 16;
    if (i + 1 < n) v |= p[i + 1] << 8;
    out += kAlpha[(v >> 18) & 0x3F];
    out += kAlpha[(v >> 12) & 0x3F];
    if (i + 1 < n) out += kAlpha[(v >> 6) & 0x3F];
    if (padding) out += (i + 1 < n) ? "=" : "==";
  }
  return out;
}

std::string videoParam(const Clip& video, int layout) {
  using namespace streamparam;
  std::string b(kVideoBlockSize, '\0');
  const char* name = video.codec == "h264" ? "H264" : "H265";
  memcpy(&b[kVideoCodecNameOffset], name, strlen(name));
  size_t n = std::min(video.paramSets.size(), kVideoHeaderSize);
  memcpy(&b[kVideoHeaderOffset], video.paramSets.data(), n);
  b[kVideoHeaderLengthOffset] = static_cast<char>(n);
  return base64(b, layout == static_cast<int>(kVideoBlockSize537));
}

// The clips' rates (scripts/make-clips): G.711 at 8 kHz, AAC at 16 kHz.
uint32_t audioSampleRate(const std::string& codec) { return codec == "aac" ? 16000 : 8000; }

std::string audioParam(const Clip& audio, int layout) {
  using namespace streamparam;
  const char* name = audioCodecName(audio.codec);
  if (layout == static_cast<int>(kAudioCompactSize)) {
    std::string b(kAudioCompactSize, '\0');
    memcpy(&b[0], name, strlen(name));
    putU32(b, kAudioCompactSampleRate, audioSampleRate(audio.codec));
    putU32(b, kAudioCompactBitsPerSample, 16);
    putU32(b, kAudioCompactCodec, static_cast<uint32_t>(audioCodecNumber(audio.codec)));
    putU32(b, kAudioCompactChannels, 1);
    return base64(b, true);
  }
  std::string b(kAudioBlockSize, '\0');
  memcpy(&b[0], name, strlen(name));
  putU32(b, kAudioSampleRateOffset, audioSampleRate(audio.codec));
  putU32(b, kAudioBitsPerSampleOffset, 16);
  putU32(b, kAudioCodecOffset, static_cast<uint32_t>(audioCodecNumber(audio.codec)));
  putU32(b, kAudioChannelsOffset, 1);
  return base64(b, true);
}

std::string streamParamBody(const Clip& video, const Clip* audio, int videoLayout, int audioLayout,
                            long long seconds) {
  std::string body = "<VideoParam>" + videoParam(video, videoLayout) + "</VideoParam>\n";
  if (audio) body += "<AudioParam>" + audioParam(*audio, audioLayout) + "</AudioParam>\n";
  body += "<VideoSeconds>" + std::to_string(seconds) + "</VideoSeconds>";
  return body;
}

}  // namespace devsim
