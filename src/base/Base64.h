// Base64 (RFC 4648 alphabet, "=" padding) with a deliberately lenient decoder: foreign
// characters are skipped, the first "=" ends decoding and counts the byte under
// construction, and 0x1C decodes like "X". Stream-parameter decoding relies on both.
#ifndef QXNET_BASE_BASE64_H
#define QXNET_BASE_BASE64_H

class CBase64 {
 public:
  // Writes 4 * ceil(length / 3) characters and a zero; returns the character count.
  static int Encode(const void* src, void* dst, int length);
  // Reads `length` characters; dst must hold length * 3 / 4 + 2 bytes.
  static int Decode(const void* src, void* dst, int length);
  // Bytes Decode may write for `length` input characters.
  static int DecodeBound(int length) { return length > 0 ? length * 3 / 4 + 2 : 2; }
};

#endif
