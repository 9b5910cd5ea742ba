// The receiver's header search as pure logic: bytes go in eight at a time, exactly as
// the receiver reads them, and the search says when a frame header has been found.
//
// A 16-byte scratch area holds the candidate header (flag, length) in its first eight
// bytes and the read-ahead in its last eight. The first read-ahead is moved into the
// header slot with a seven-byte copy: the header slot's eighth byte (the length's most
// significant byte) stays 0. Devices in the field depend on the consequences, so they
// are kept: a flag that starts 1 to 3 bytes into the data is taken with one length byte
// zeroed, and one that starts 4 to 7 bytes in is not recognised at all.
#ifndef QXNET_SESSION_FRAMEHEADERSEARCH_H
#define QXNET_SESSION_FRAMEHEADERSEARCH_H

#include <cstdint>

class CFrameHeaderSearch {
 public:
  enum Result { kNeedMore = 0, kFound = 1 };
  // Called once per rejected flag (one shift): the flag and the running skipped count.
  typedef void (*SkipFn)(void* ctx, uint32_t flag, int skipped);

  CFrameHeaderSearch() { Reset(); }
  void Reset();

  // Feeds the next eight bytes read from the stream.
  Result Feed(const uint8_t bytes[8], SkipFn onSkip, void* ctx);

  // Valid after kFound.
  uint32_t Flag() const { return m_flag; }
  uint32_t Length() const { return m_length; }
  int Shift() const { return m_shift; }
  // The 8 - Shift() payload bytes already read behind the header.
  const uint8_t* PayloadPrefix() const { return m_scratch + 8; }
  int PayloadPrefixLength() const { return 8 - m_shift; }
  // Bytes skipped in whole passes (multiples of 8) before the header was found.
  int SkippedInPasses() const { return m_skippedPasses; }
  bool FirstPass() const { return m_first; }

  static bool IsFlag(uint32_t flag);

 private:
  uint8_t m_scratch[16];
  bool m_first;
  int m_skippedPasses;
  int m_skippedTotal;
  int m_shift;
  uint32_t m_flag;
  uint32_t m_length;
};

#endif
