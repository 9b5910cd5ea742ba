// Byte-level helpers of the MP4 writer, free of FFmpeg: Annex B start codes and parameter-set
// positions, the recorder's 16-byte frame trailer, ADTS frame headers. All reads are bounded by
// the lengths given.
#pragma once

#include <cstddef>
#include <cstdint>

// Positions (index of the NAL header byte) of the last parameter set of each kind found after a
// 4-byte start code; 0 = not found. Only the positions found are written.
void findSpsPps(const unsigned char* data, int length, int& sps, int& pps);
void findVpsSpsPps(const unsigned char* data, int length, int& vps, int& sps, int& pps);

// Length of the NAL unit whose header byte is at pos: up to the next start code (3 or 4 bytes)
// or to the end of the block.
int nalLengthAt(const unsigned char* data, int length, int pos);

// Length of the start code at the beginning of data (3 or 4), 0 when there is none.
unsigned startCodeLength(const unsigned char* data, unsigned length);

// The frame length without the recorder's trailer: 16 bytes whose first word is 0x1A2B3C4D in
// the device's (little-endian) order end some frames.
unsigned lengthWithoutTrailer(const unsigned char* frame, unsigned length);

struct AdtsHeader {
  unsigned frameLength;  // header included
  int sampleRate;
  int channels;
};

// Reads the ADTS header at data; false when it is not one or its frame does not fit in length.
bool readAdtsHeader(const unsigned char* data, size_t length, AdtsHeader& out);
