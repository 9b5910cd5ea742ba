#include "search/SearchNetwork.h"

#include <mutex>

#include "search/SearchProto.h"

namespace {
std::mutex g_netMutex;
SearchNetwork g_net = DefaultSearchNetwork();
}  // namespace

SearchNetwork DefaultSearchNetwork() {
  SearchNetwork n;
  n.bindAddress[0] = '\0';
  n.requestAddr = 0xFFFFFFFFu;  // limited broadcast, the same in either byte order
  n.requestPort = kSearchRequestPort;
  n.firstBindPort = kSearchFirstBindPort;
  return n;
}

void SetSearchNetwork(const SearchNetwork& net) {
  std::lock_guard<std::mutex> g(g_netMutex);
  g_net = net;
  g_net.bindAddress[sizeof(g_net.bindAddress) - 1] = '\0';
}

SearchNetwork CurrentSearchNetwork() {
  std::lock_guard<std::mutex> g(g_netMutex);
  return g_net;
}
