// The echo request of the free-address probe and the reading of what comes back, as pure
// functions: both receive forms are handled (a raw socket hands over the IP header, the
// unprivileged ping socket only the ICMP message).
#ifndef QXNET_BASE_ICMPECHO_H
#define QXNET_BASE_ICMPECHO_H

#include <cstdint>

enum { QXNET_ECHO_REQUEST_SIZE = 12 };

// Internet checksum over len bytes: 16-bit words summed, an odd last byte added as it is,
// carries folded twice, the result inverted.
unsigned short ChkSum(const unsigned short* data, int len);

// Type 8, code 0, identifier and sequence = attempt (host order), payload = the 32-bit time
// in seconds, checksum over all twelve bytes.
void BuildEchoRequest(uint8_t out[QXNET_ECHO_REQUEST_SIZE], uint16_t attempt, uint32_t nowSeconds);

enum EchoVerdict {
  ECHO_REPLY,          // an echo reply from the probed address
  ECHO_NOT_FROM_DEST,  // something from another address
  ECHO_NOT_REPLY,      // long enough, but not an echo reply
  ECHO_BAD_LENGTH      // too short to hold the ICMP header
};

// `from` is the sender as the socket reported it (network order); with an IP header the
// header's source address is used instead, as the raw form carries it.
EchoVerdict ClassifyEchoAnswer(const uint8_t* buf, int len, bool withIpHeader, uint32_t from,
                               uint32_t dest);

#endif
