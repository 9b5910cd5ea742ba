// Proposes a free IPv4 address on the host's subnet for a newly found device: same first
// three octets as the host, last octet 254 down to 1; skipped without a probe are the
// host itself, its gateway and whatever the caller says is taken (addresses of known
// devices, addresses already handed out); the first that does not answer an echo wins.
#ifndef QXNET_BASE_FREEADDRESS_H
#define QXNET_BASE_FREEADDRESS_H

#include <cstdint>
#include <functional>

#include "base/HostNet.h"

// Network-order address -> true when it must not be offered.
typedef std::function<bool(uint32_t)> AddressTaken;
// Network-order address -> PintTest's codes (1 usable).
typedef std::function<int(uint32_t)> AddressProbe;

// The candidate walk alone. Returns the chosen address (network order), or 0 when every
// candidate was rejected or the host address is not a dotted IPv4 text.
uint32_t ChooseFreeAddress(const HostAddrs addrs, const AddressTaken& taken, const AddressProbe& probe);

// Refreshes the facts, walks the candidates and writes the answer's dotted text (or, when
// all are rejected, the host's own address). Its length, or -8999996 for a null buffer or
// a size below 33.
int GetOneIPAddress(HostAddrs addrs, const AddressTaken& taken, char* strResult, int nSize);
int GetOneIPAddressWith(HostAddrs addrs, const AddressTaken& taken, const AddressProbe& probe,
                        bool refresh, char* strResult, int nSize);

#endif
