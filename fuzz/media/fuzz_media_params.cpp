// Stream-parameter decoding on hostile texts: the input is cut at its first zero byte into
// the VideoParam and the AudioParam text.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzInput.h"
#include "media/StreamParams.h"

namespace {
volatile unsigned g_sink;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const void* zero = std::memchr(data, 0, size);
  size_t cut = zero ? static_cast<size_t>(static_cast<const uint8_t*>(zero) - data) : size;
  std::string video(text, cut);
  std::string audio = cut < size ? std::string(text + cut + 1, size - cut - 1) : std::string();
  NETSDK_STREAM_PARAM rec, audioOnly;
  media::BuildReplayRecord(video.c_str(), audio.c_str(), &rec);
  g_sink = rec.wHasVideo + rec.wHasAudio;
  media::DownloadParams k = media::BuildDownloadRecord(video.c_str(), audio.empty() ? nullptr : audio.c_str(), &rec,
                                                       &audioOnly);
  g_sink = static_cast<unsigned>(k) + rec.audio.nCodec;
  return 0;
}
