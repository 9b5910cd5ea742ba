// Pure readers behind the host's network facts: the kernel's route table text, the
// resolver configuration text and the choice of an interface address. No system calls,
// so every rule is tested on plain text.
#ifndef QXNET_BASE_HOSTNETPARSE_H
#define QXNET_BASE_HOSTNETPARSE_H

#include <cstdint>
#include <string>
#include <vector>

// One IPv4 address of an interface, both values in network byte order.
struct HostIfAddr {
  uint32_t addr;
  uint32_t mask;
};

// The gateway (network order) of the first default route of interface `ifName` in the
// text of /proc/net/route; 0 when the interface has none, or its default route is on-link.
uint32_t ParseDefaultGateway(const std::string& routeText, const std::string& ifName);

// The IPv4 "nameserver" entries of a resolv.conf text, in file order (IPv6 and malformed
// entries are skipped: the facts are dotted IPv4 texts).
std::vector<std::string> ParseResolvNameservers(const std::string& text);

// Index into `addrs` of the address to use: the first whose network under its own mask is
// the gateway's network under that mask, else the first; -1 when `addrs` is empty.
int ChooseInterfaceAddress(const std::vector<HostIfAddr>& addrs, uint32_t gateway);

// The interface part of an address label ("eth0:1" -> "eth0").
std::string InterfaceBaseName(const std::string& label);

// Dotted text of a network-order IPv4 address.
std::string Ipv4Text(uint32_t addrNetOrder);

#endif
