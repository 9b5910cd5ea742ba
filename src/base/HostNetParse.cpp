#include "base/HostNetParse.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <sstream>

namespace {

// A hexadecimal field of /proc/net/route; false when it is not one.
bool ParseHex32(const std::string& s, uint32_t& out) {
  if (s.empty() || s.size() > 8) return false;
  char* end = nullptr;
  unsigned long v = std::strtoul(s.c_str(), &end, 16);
  if (*end != '\0') return false;
  out = static_cast<uint32_t>(v);
  return true;
}

}  // namespace

// Columns: Iface Destination Gateway Flags RefCnt Use Metric Mask ...; addresses are
// the kernel's 32-bit values printed as they lie in memory (network order on any host).
uint32_t ParseDefaultGateway(const std::string& routeText, const std::string& ifName) {
  const uint32_t kRtfGateway = 0x2, kRtfUp = 0x1;
  std::istringstream in(routeText);
  std::string line;
  std::getline(in, line);  // the heading
  while (std::getline(in, line)) {
    std::istringstream f(line);
    std::string iface, dest, gw, flags, refcnt, use, metric, mask;
    if (!(f >> iface >> dest >> gw >> flags >> refcnt >> use >> metric >> mask)) continue;
    uint32_t d, g, fl, m;
    if (!ParseHex32(dest, d) || !ParseHex32(gw, g) || !ParseHex32(flags, fl) || !ParseHex32(mask, m))
      continue;
    if (iface != ifName || d != 0 || m != 0 || !(fl & kRtfUp)) continue;
    if (fl & kRtfGateway) return g;
  }
  return 0;
}

std::vector<std::string> ParseResolvNameservers(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream f(line);
    std::string key, value;
    if (!(f >> key >> value) || key != "nameserver") continue;
    in_addr a;
    if (inet_pton(AF_INET, value.c_str(), &a) == 1) out.push_back(value);
  }
  return out;
}

int ChooseInterfaceAddress(const std::vector<HostIfAddr>& addrs, uint32_t gateway) {
  if (addrs.empty()) return -1;
  for (size_t i = 0; i < addrs.size(); ++i) {
    uint32_t m = ntohl(addrs[i].mask);
    if ((ntohl(addrs[i].addr) & m) == (ntohl(gateway) & m)) return static_cast<int>(i);
  }
  return 0;
}

std::string InterfaceBaseName(const std::string& label) { return label.substr(0, label.find(':')); }

std::string Ipv4Text(uint32_t addrNetOrder) {
  in_addr a;
  a.s_addr = addrNetOrder;
  char buf[INET_ADDRSTRLEN] = {0};
  inet_ntop(AF_INET, &a, buf, sizeof buf);
  return buf;
}
