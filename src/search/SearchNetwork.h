// Where discovery binds and sends. The defaults are the LAN's: bind to the host's first
// address from port 2019 upwards, send requests to 255.255.255.255 port 2018. Tests and
// tools that run without a private network replace them with loopback addresses, so that
// nothing is broadcast.
#ifndef QXNET_SEARCH_SEARCHNETWORK_H
#define QXNET_SEARCH_SEARCHNETWORK_H

#include <cstdint>

struct SearchNetwork {
  char bindAddress[32];    // "" = the host's first IPv4 address
  uint32_t requestAddr;    // network order
  uint16_t requestPort;    // host order
  int firstBindPort;       // the bind port of a new discovery object
};

SearchNetwork DefaultSearchNetwork();
// Process-wide; read by every send and bind that follows (the first bind port by discovery
// objects constructed afterwards).
void SetSearchNetwork(const SearchNetwork& net);
SearchNetwork CurrentSearchNetwork();

#endif
