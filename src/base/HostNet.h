// The host's own network facts, as discovery and the free-address probe need them: the
// address of the interface that leads outward, its netmask and default gateway, and two
// DNS servers. Linux sources: getifaddrs, /proc/net/route, /etc/resolv.conf, and the
// route toward an outside address learnt by connect() of a UDP socket (no packet sent).
#ifndef QXNET_BASE_HOSTNET_H
#define QXNET_BASE_HOSTNET_H

enum {
  QXNET_HOST_IP = 0,
  QXNET_HOST_MASK = 1,
  QXNET_HOST_GATEWAY = 2,
  QXNET_HOST_DNS1 = 3,
  QXNET_HOST_DNS2 = 4,
  QXNET_HOST_FACTS = 5
};

typedef char HostAddrs[QXNET_HOST_FACTS][32];

// Where the facts are read from; tests point these at their own files.
struct HostNetSources {
  const char* routeFile = "/proc/net/route";
  const char* resolvFile = "/etc/resolv.conf";
  // The outside address whose route names the outward interface. Only a route lookup is
  // made toward it: a connected UDP socket sends nothing until written to.
  const char* outwardProbe = "8.8.8.8";
};

// Fills the five facts. 1 when done, or when no interface leads outward (address, mask
// and gateway are then left as they were); -1 when the interface list cannot be read.
int GetNetworkConfig(HostAddrs addrs);
int GetNetworkConfigFrom(HostAddrs addrs, const HostNetSources& src);

// Copies fact `index` into strResult (size bytes); refreshes the facts first when the
// address or the gateway is empty. Its length, -96 (bad index, null buffer) or -100
// (does not fit with its NUL).
int GetNetworkParam(HostAddrs addrs, long index, char* strResult, int size);

#endif
