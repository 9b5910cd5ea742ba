#include "base/HostAddr.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <cstdio>

int HostFirstIPv4(char* out, size_t size) {
  if (!out || size == 0) return -1;
  out[0] = '\0';
  struct ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return -1;
  int rc = -1;
  for (struct ifaddrs* i = list; i; i = i->ifa_next) {
    if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET) continue;
    if (!(i->ifa_flags & IFF_UP) || (i->ifa_flags & IFF_LOOPBACK)) continue;
    char text[INET_ADDRSTRLEN];
    const sockaddr_in* sa = reinterpret_cast<const sockaddr_in*>(i->ifa_addr);
    if (!inet_ntop(AF_INET, &sa->sin_addr, text, sizeof(text))) continue;
    std::snprintf(out, size, "%s", text);
    rc = 0;
    break;
  }
  freeifaddrs(list);
  return rc;
}
