// The free-address probe: up to five ICMP echo requests to one address, 100 ms apart at
// most. A raw ICMP socket when the process may open one, else the unprivileged ping
// socket (net.ipv4.ping_group_range); the probe loop runs over a small I/O interface so
// that its rules are tested without a network.
#ifndef QXNET_BASE_ICMPPROBE_H
#define QXNET_BASE_ICMPPROBE_H

#include <cstdint>

class IIcmpIo {
 public:
  virtual ~IIcmpIo() {}
  virtual bool HasIpHeader() const = 0;  // received datagrams begin with the IP header
  virtual int Send(const uint8_t* data, int len, uint32_t dest) = 0;  // bytes sent, or -1
  // 1 readable, 0 timeout, -1 the wait failed, -2 woken without the socket being readable.
  virtual int WaitReadable(int timeoutMs) = 0;
  virtual int Receive(uint8_t* buf, int cap, uint32_t* from) = 0;  // bytes, or < 1 on failure
  virtual void Pause(int ms) = 0;
  virtual uint32_t NowSeconds() = 0;
};

// The probe loop over an open I/O: 1 no echo reply (usable), 0 the address answered,
// -1 a receive failed, -2 a short send, -3 the wait failed, -4 readiness without data.
int RunEchoProbe(IIcmpIo& io, uint32_t destNetOrder);

enum IcmpSocketKind { ICMP_SOCKET_AUTO, ICMP_SOCKET_RAW, ICMP_SOCKET_PING };

// Probes `addr` (network order). The codes of RunEchoProbe; -1 also when no ICMP socket of
// the allowed kinds can be opened. AUTO tries raw first, then the ping socket.
int PintTest(unsigned long addr);
int PintTestWith(unsigned long addr, IcmpSocketKind kind);

#endif
