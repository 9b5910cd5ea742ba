#include "media/Mp4Bitstream.h"

namespace {

bool isStartCode4(const unsigned char* p) { return p[0] == 0 && p[1] == 0 && p[2] == 0 && p[3] == 1; }

// Calls found(type, pos) for every NAL unit after a 4-byte start code; H.265 keeps its type in
// bits 1..6 of the header byte, H.264 in the low 5 bits.
template <typename Found>
void scanParamSets(const unsigned char* data, int length, bool h265, Found found) {
  if (!data) return;
  for (int i = 4; i < length; ++i) {
    if (!isStartCode4(data + i - 4)) continue;
    int type = h265 ? (data[i] >> 1) & 0x3F : data[i] & 0x1F;
    found(type, i);
  }
}

}  // namespace

void findSpsPps(const unsigned char* data, int length, int& sps, int& pps) {
  scanParamSets(data, length, false, [&](int type, int pos) {
    if (type == 7) sps = pos;
    if (type == 8) pps = pos;
  });
}

void findVpsSpsPps(const unsigned char* data, int length, int& vps, int& sps, int& pps) {
  scanParamSets(data, length, true, [&](int type, int pos) {
    if (type == 32) vps = pos;
    if (type == 33) sps = pos;
    if (type == 34) pps = pos;
  });
}

int nalLengthAt(const unsigned char* data, int length, int pos) {
  if (!data || pos < 0 || pos >= length) return 0;
  for (int i = pos + 1; i + 3 <= length; ++i) {
    if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) continue;
    int end = i;
    if (end > pos + 1 && data[end - 1] == 0) --end;  // the first zero of a 4-byte start code
    return end - pos;
  }
  return length - pos;
}

unsigned startCodeLength(const unsigned char* data, unsigned length) {
  if (!data) return 0;
  if (length >= 3 && data[0] == 0 && data[1] == 0 && data[2] == 1) return 3;
  if (length >= 4 && isStartCode4(data)) return 4;
  return 0;
}

unsigned lengthWithoutTrailer(const unsigned char* frame, unsigned length) {
  if (!frame || length < 16) return length;
  const unsigned char* t = frame + length - 16;
  bool trailer = t[0] == 0x4D && t[1] == 0x3C && t[2] == 0x2B && t[3] == 0x1A;
  return trailer ? length - 16 : length;
}

bool readAdtsHeader(const unsigned char* data, size_t length, AdtsHeader& out) {
  static const int kRates[13] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                 22050, 16000, 12000, 11025, 8000,  7350};
  if (!data || length < 7) return false;
  if (data[0] != 0xFF || (data[1] & 0xF6) != 0xF0) return false;  // sync word, layer 0
  unsigned headerLength = (data[1] & 0x01) ? 7 : 9;                // CRC present: 2 more bytes
  unsigned rateIndex = (data[2] >> 2) & 0x0F;
  unsigned channels = ((data[2] & 0x01) << 2) | (data[3] >> 6);
  unsigned frameLength = ((data[3] & 0x03u) << 11) | (data[4] << 3) | (data[5] >> 5);
  if (rateIndex >= 13 || channels == 0) return false;
  if (frameLength <= headerLength || frameLength > length) return false;
  out.frameLength = frameLength;
  out.sampleRate = kRates[rateIndex];
  out.channels = channels == 7 ? 8 : static_cast<int>(channels);
  return true;
}
