#include "base/FreeAddress.h"

#include <arpa/inet.h>

#include <cstdio>

#include "base/HostNetLog.h"
#include "base/HostNetParse.h"
#include "base/IcmpProbe.h"

namespace {

// Strict dotted-quad reading: an empty or partial text proposes nothing rather than
// candidates on some other network.
bool ReadAddr(const char* text, uint32_t& out) {
  in_addr a;
  if (inet_pton(AF_INET, text, &a) != 1) return false;
  out = a.s_addr;
  return true;
}

int WriteAnswer(const char* text, char* strResult) {
  int n = snprintf(strResult, 33, "%.32s", text);
  return n;
}

}  // namespace

uint32_t ChooseFreeAddress(const HostAddrs addrs, const AddressTaken& taken, const AddressProbe& probe) {
  uint32_t host = 0, gateway = 0;
  if (!ReadAddr(addrs[QXNET_HOST_IP], host)) return 0;
  ReadAddr(addrs[QXNET_HOST_GATEWAY], gateway);
  const uint32_t prefix = ntohl(host) & 0xFFFFFF00u;
  for (uint32_t last = 254; last >= 1; --last) {
    uint32_t cand = htonl(prefix | last);
    if (cand == host || cand == gateway || (taken && taken(cand))) continue;
    if (probe(cand) == 1) return cand;
  }
  return 0;
}

int GetOneIPAddressWith(HostAddrs addrs, const AddressTaken& taken, const AddressProbe& probe,
                        bool refresh, char* strResult, int nSize) {
  if (!strResult) {
    HostNetLog(0, "[CSearchIPC] strResult is null \n");
    return -8999996;
  }
  if (nSize < 33) {
    HostNetLog(0, "[CSearchIPC] nSize less than 33 \n");
    return -8999996;
  }
  if (refresh) GetNetworkConfig(addrs);
  uint32_t chosen = ChooseFreeAddress(addrs, taken, probe);
  if (chosen == 0) return WriteAnswer(addrs[QXNET_HOST_IP], strResult);
  int n = WriteAnswer(Ipv4Text(chosen).c_str(), strResult);
  HostNetLog(0, "[CSearchIPC] got one ip: %s\n", strResult);
  return n;
}

int GetOneIPAddress(HostAddrs addrs, const AddressTaken& taken, char* strResult, int nSize) {
  return GetOneIPAddressWith(addrs, taken, [](uint32_t a) { return PintTest(a); }, true, strResult, nSize);
}
