#include "base/IcmpEcho.h"

#include <cstring>

unsigned short ChkSum(const unsigned short* data, int len) {
  uint32_t sum = 0;
  const uint8_t* p = reinterpret_cast<const uint8_t*>(data);
  for (; len > 1; len -= 2, p += 2) {
    uint16_t w;
    memcpy(&w, p, 2);
    sum += w;
  }
  if (len == 1) sum += *p;
  sum = (sum >> 16) + (sum & 0xFFFF);
  sum += sum >> 16;
  return static_cast<unsigned short>(~sum);
}

void BuildEchoRequest(uint8_t out[QXNET_ECHO_REQUEST_SIZE], uint16_t attempt, uint32_t nowSeconds) {
  memset(out, 0, QXNET_ECHO_REQUEST_SIZE);
  out[0] = 8;
  memcpy(out + 4, &attempt, 2);
  memcpy(out + 6, &attempt, 2);
  memcpy(out + 8, &nowSeconds, 4);
  uint16_t words[QXNET_ECHO_REQUEST_SIZE / 2];
  memcpy(words, out, sizeof words);
  unsigned short sum = ChkSum(words, QXNET_ECHO_REQUEST_SIZE);
  memcpy(out + 2, &sum, 2);
}

EchoVerdict ClassifyEchoAnswer(const uint8_t* buf, int len, bool withIpHeader, uint32_t from,
                               uint32_t dest) {
  int headerLen = 0;
  if (withIpHeader) {
    if (len < 20) return ECHO_BAD_LENGTH;  // no whole IP header: no source to compare
    memcpy(&from, buf + 12, 4);
    headerLen = (buf[0] & 0x0F) * 4;
  }
  if (from != dest) return ECHO_NOT_FROM_DEST;
  if (len <= headerLen + 7) return ECHO_BAD_LENGTH;
  return buf[headerLen] == 0 ? ECHO_REPLY : ECHO_NOT_REPLY;
}
