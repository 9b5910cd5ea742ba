// The host's first IPv4 address, for binding the discovery socket. A minimal reading of
// the interface list; the fuller host facts (mask, gateway, DNS, outward interface) live
// with the free-address probe.
#ifndef QXNET_BASE_HOSTADDR_H
#define QXNET_BASE_HOSTADDR_H

#include <cstddef>

// Writes the dotted address of the first interface that is up, not loopback and has an
// IPv4 address into out[size]; 0, or -1 (out "") when there is none.
int HostFirstIPv4(char* out, size_t size);

#endif
