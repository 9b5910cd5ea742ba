// Keeps discovery on the loopback interface in a test process: binds to 127.0.0.1 from a
// free port, and sends requests to 127.0.0.1 at a port of the test's choosing instead of
// broadcasting them. Every test binary that may start a search installs this first.
#ifndef QXNET_TESTS_SEARCH_SEARCH_LOOPBACK_H
#define QXNET_TESTS_SEARCH_SEARCH_LOOPBACK_H

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>

#include "base/SDKSocket.h"
#include "base/UdpSocket.h"
#include "search/SearchNetwork.h"

namespace searchtest {

// A UDP port on 127.0.0.1 that was free a moment ago (the system's choice).
inline int FreeLoopbackUdpPort() {
  int s = CreateUdpSocket();
  if (s < 0) return -1;
  int port = BindIPv4(s, htonl(INADDR_LOOPBACK), 0) == 0 ? LocalPort(s) : -1;
  CloseSocket(s);
  return port;
}

// Requests go to 127.0.0.1:requestPort; the discovery socket binds 127.0.0.1 from
// firstBindPort (a free port when 0).
inline void UseLoopbackSearchNetwork(int requestPort, int firstBindPort = 0) {
  SearchNetwork n = DefaultSearchNetwork();
  std::strcpy(n.bindAddress, "127.0.0.1");
  n.requestAddr = htonl(INADDR_LOOPBACK);
  n.requestPort = static_cast<uint16_t>(requestPort);
  n.firstBindPort = firstBindPort > 0 ? firstBindPort : FreeLoopbackUdpPort();
  SetSearchNetwork(n);
}

// Installs the loopback network before any test of the binary runs; requests go to a port
// that nobody reads.
inline bool InstallLoopbackSearchNetwork() {
  UseLoopbackSearchNetwork(FreeLoopbackUdpPort());
  return true;
}

}  // namespace searchtest

#endif
