#include "base/HostNet.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "base/HostNetLog.h"
#include "base/HostNetParse.h"

namespace {

std::string ReadWholeFile(const char* path) {
  std::ifstream f(path);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

void SetFact(HostAddrs addrs, int index, const std::string& text) {
  snprintf(addrs[index], sizeof addrs[index], "%s", text.c_str());
}

void FillDns(HostAddrs addrs, const HostNetSources& src) {
  std::vector<std::string> dns = ParseResolvNameservers(ReadWholeFile(src.resolvFile));
  SetFact(addrs, QXNET_HOST_DNS1, dns.empty() ? "" : dns[0]);
  SetFact(addrs, QXNET_HOST_DNS2, dns.size() < 2 ? "" : dns[1]);
  HostNetLog(0, "[CSearchIPC] DNS1: %s\n", addrs[QXNET_HOST_DNS1]);
  HostNetLog(0, "[CSearchIPC] DNS2: %s\n", addrs[QXNET_HOST_DNS2]);
}

// The local address the kernel would use toward `probe` (network order); 0 when there is
// no route. connect() on a UDP socket only looks the route up.
uint32_t OutwardSourceAddress(const char* probe) {
  int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return 0;
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(53);
  uint32_t local = 0;
  if (inet_pton(AF_INET, probe, &to.sin_addr) == 1 &&
      connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) == 0) {
    sockaddr_in me{};
    socklen_t len = sizeof me;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&me), &len) == 0) local = me.sin_addr.s_addr;
  }
  close(fd);
  return local;
}

// The interface holding `local`, and every IPv4 address of that interface in list order.
bool InterfaceOf(ifaddrs* list, uint32_t local, std::string& name, std::vector<HostIfAddr>& addrs) {
  for (ifaddrs* i = list; i; i = i->ifa_next)
    if (i->ifa_addr && i->ifa_addr->sa_family == AF_INET &&
        reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr.s_addr == local)
      name = InterfaceBaseName(i->ifa_name);
  if (name.empty()) return false;
  for (ifaddrs* i = list; i; i = i->ifa_next) {
    if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET || !i->ifa_netmask) continue;
    if (InterfaceBaseName(i->ifa_name) != name) continue;
    addrs.push_back(HostIfAddr{reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr.s_addr,
                               reinterpret_cast<sockaddr_in*>(i->ifa_netmask)->sin_addr.s_addr});
  }
  return !addrs.empty();
}

void FillInterface(HostAddrs addrs, const std::string& name, const std::vector<HostIfAddr>& list,
                   const HostNetSources& src) {
  uint32_t gw = ParseDefaultGateway(ReadWholeFile(src.routeFile), name);
  SetFact(addrs, QXNET_HOST_GATEWAY, gw ? Ipv4Text(gw) : "");
  HostNetLog(0, "[CSearchIPC] Gateway: %s\n", addrs[QXNET_HOST_GATEWAY]);
  const HostIfAddr& a = list[static_cast<size_t>(ChooseInterfaceAddress(list, gw))];
  SetFact(addrs, QXNET_HOST_IP, Ipv4Text(a.addr));
  SetFact(addrs, QXNET_HOST_MASK, Ipv4Text(a.mask));
  HostNetLog(0, "[CSearchIPC] IPAddress: %s\n", addrs[QXNET_HOST_IP]);
  HostNetLog(0, "[CSearchIPC] NetMask: %s\n", addrs[QXNET_HOST_MASK]);
}

}  // namespace

int GetNetworkConfigFrom(HostAddrs addrs, const HostNetSources& src) {
  HostNetLog(0, "[CSearchIPC] GetNetworkParams OK \n");
  FillDns(addrs, src);
  uint32_t local = OutwardSourceAddress(src.outwardProbe);
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) {
    HostNetLog(0, "[CSearchIPC] GetAdaptersInfo failed!\n");
    return -1;
  }
  std::string name;
  std::vector<HostIfAddr> ifAddrs;
  if (local != 0 && InterfaceOf(list, local, name, ifAddrs)) FillInterface(addrs, name, ifAddrs, src);
  freeifaddrs(list);
  return 1;
}

int GetNetworkConfig(HostAddrs addrs) { return GetNetworkConfigFrom(addrs, HostNetSources()); }

int GetNetworkParam(HostAddrs addrs, long index, char* strResult, int size) {
  if (index < 0 || index >= QXNET_HOST_FACTS) {
    HostNetLog(0, "[CSearchIPC]: bad index: %ld\n", index);
    return -96;
  }
  if (!strResult) {
    HostNetLog(0, "[CSearchIPC]: strResult is null \n");
    return -96;
  }
  if (addrs[QXNET_HOST_IP][0] == '\0' || addrs[QXNET_HOST_GATEWAY][0] == '\0') GetNetworkConfig(addrs);
  int len = static_cast<int>(strnlen(addrs[index], sizeof addrs[index] - 1));
  if (len >= size) return -100;
  memcpy(strResult, addrs[index], static_cast<size_t>(len));
  strResult[len] = '\0';
  return len;
}
