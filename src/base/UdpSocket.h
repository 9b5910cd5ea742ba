// UDP datagram shims for LAN discovery: create, broadcast permission, bind, send to and
// receive from an IPv4 address. Addresses are in network order, ports in host order.
#ifndef QXNET_BASE_UDPSOCKET_H
#define QXNET_BASE_UDPSOCKET_H

#include <cstdint>

// An IPv4 datagram socket; -1 on failure (errno set).
int CreateUdpSocket();
// Allows (on != 0) sending to broadcast addresses; 0, or -1 with errno set.
int SetUdpBroadcast(int sock, int on);
// 0, or -1 with errno set (EADDRINUSE when the port is taken).
int BindIPv4(int sock, uint32_t addrNetOrder, uint16_t port);
// The bound local port, or -1.
int LocalPort(int sock);
// Sends one datagram; the byte count or -1.
long UdpSendTo(int sock, const void* data, unsigned long len, uint32_t addrNetOrder, uint16_t port);
// Receives one datagram of at most len bytes (a longer one is cut); its length or -1.
// The sender is written to the two outputs when they are not null.
long UdpRecvFrom(int sock, void* data, unsigned long len, uint32_t* fromNetOrder, uint16_t* fromPort);

// One datagram slot of a batch receive: the caller sets data and cap; the receive sets len
// (a datagram longer than cap is cut to cap, as UdpRecvFrom does) and the sender.
struct UdpRecvSlot {
  void* data;
  unsigned long cap;
  long len;
  uint32_t fromNetOrder;
  uint16_t fromPort;
};
enum { kUdpRecvBatchMax = 64 };
// Takes up to n (at most kUdpRecvBatchMax) datagrams the socket already holds, without
// waiting: the count taken (0 when none waits), or -1 with errno set. An error met after
// some datagrams were taken is left for the next call, which reports it.
int UdpRecvBatch(int sock, UdpRecvSlot* slots, int n);
// The classic dotted-quad parser: the address in network order, or 0xFFFFFFFF (which is
// also what "255.255.255.255" gives) for a null or unreadable text.
uint32_t InetAddr(const char* text);
// Dotted text of an address (network order) into out[size].
void InetNtoa(uint32_t addrNetOrder, char* out, unsigned long size);

#endif
