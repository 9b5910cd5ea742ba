// Byte layouts of the stream parameters a recorder sends (base64 in VideoParam / AudioParam) and
// of the stream-parameter record the library hands on. Shared by the library's decoder and the
// device simulator's encoder, so both sides agree on every offset. All integers little-endian.
#pragma once

#include <cstddef>

namespace streamparam {

// The record (1,360 bytes, zeroed before filling).
constexpr size_t kRecordSize = 1360;
constexpr size_t kHasVideoOffset = 32;   // u16, 1 = video block valid
constexpr size_t kHasAudioOffset = 34;   // u16, 1 = audio block valid
constexpr size_t kVideoBlockOffset = 36;
constexpr size_t kAudioBlockOffset = 572;

// Video block, 536 bytes: codec name text (NUL-padded, "H264" or "H265..."), then the Annex B
// parameter-set block (4-byte start codes), then the length of that block.
constexpr size_t kVideoBlockSize = 536;
constexpr size_t kVideoCodecNameOffset = 0;
constexpr size_t kVideoCodecNameSize = 276;
constexpr size_t kVideoHeaderOffset = 276;
constexpr size_t kVideoHeaderSize = 256;
constexpr size_t kVideoHeaderLengthOffset = 532;  // one byte

// The second video layout decodes to 537 bytes: a 536-byte block sent with ordinary base64
// padding decodes with one count more (the decoder counts the byte under construction). Its
// fields therefore sit at the very offsets of the 536-byte block; byte 536 is not used.
constexpr size_t kVideoBlockSize537 = 537;

// Audio block, 276 bytes: codec name text, then 32-bit fields.
constexpr size_t kAudioBlockSize = 276;
constexpr size_t kAudioCodecNameSize = 256;
constexpr size_t kAudioSampleRateOffset = 256;   // Hz
constexpr size_t kAudioBitsPerSampleOffset = 260;
constexpr size_t kAudioCodecOffset = 264;        // codec number 1..8
constexpr size_t kAudioChannelsOffset = 272;

// Codec numbers used in the audio block.
constexpr int kAudioCodecG711U = 1;
constexpr int kAudioCodecG711A = 2;
constexpr int kAudioCodecAac = 3;

// The compact audio layout, 57 bytes: a 40-byte codec name text, then sample rate, bits per
// sample, codec number and channel count (u32 each), then one reserved byte. Its fields are
// moved one by one into the 276-byte block (name to offset 0, the numbers to their offsets).
constexpr size_t kAudioCompactSize = 57;
constexpr size_t kAudioCompactNameSize = 40;
constexpr size_t kAudioCompactSampleRate = 40;
constexpr size_t kAudioCompactBitsPerSample = 44;
constexpr size_t kAudioCompactCodec = 48;
constexpr size_t kAudioCompactChannels = 52;

}  // namespace streamparam

// Payload types carried in media pack headers (passed on unchanged to the application and used
// by the MP4 writer to choose the track): video 96 = H.264, 201 = H.265; audio 0 = G.711 µ-law,
// 8 = G.711 A-law, 97 = AAC. Pack stream_type: 0 and 2 video, any other value audio.
