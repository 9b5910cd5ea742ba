// Stream parameters of a replay or download: the base64 texts VideoParam and AudioParam
// turned into the 1,360-byte record (NETSDK_STREAM_PARAM). Each device sends one of two
// layouts per block; the layouts are those of media/StreamParamLayout.h.
#pragma once

#include <cstddef>

#include "QXNetSDK.h"

namespace media {

// Longest parameter text taken from an answer (the rest is cut).
constexpr size_t kParamTextMax = 1023;

// Decodes a VideoParam text into `block`: true for the 536- and 537-byte layouts (block
// untouched otherwise).
bool DecodeVideoParam(const char* text, NETSDK_VIDEO_PARAM* block);
// Decodes an AudioParam text into `block`: the layout size (276 or 57), or 0 for any
// other length (block untouched).
size_t DecodeAudioParam(const char* text, NETSDK_AUDIO_PARAM* block);

// Validity of an audio block in the compact layout: codec 1..8, channels > 0, bits per
// sample above 8 and a multiple of 8, sample rate a multiple of 1,000 and at least 8,000.
bool CompactAudioValid(const NETSDK_AUDIO_PARAM& a);
// Validity of an audio block in a download: codec > 0 and 8, 16 or 32 bits per sample.
bool DownloadAudioValid(const NETSDK_AUDIO_PARAM& a);

// Replay answers: the record (zeroed first) with has-video for a decoded video block and
// has-audio for a 276-byte audio block or a valid compact one.
void BuildReplayRecord(const char* videoText, const char* audioText, NETSDK_STREAM_PARAM* rec);

// Download answers. kBoth and kVideoOnly fill `rec` (the session's record, zeroed first);
// kAudioOnly fills `audioOnly` (has-audio set) and leaves `rec` zeroed.
enum class DownloadParams { kNone, kBoth, kVideoOnly, kAudioOnly };
DownloadParams BuildDownloadRecord(const char* videoText, const char* audioText, NETSDK_STREAM_PARAM* rec,
                                   NETSDK_STREAM_PARAM* audioOnly);

}  // namespace media
