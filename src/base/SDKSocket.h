// Socket shims: everything the library asks of the operating system's socket layer.
#ifndef QXNET_BASE_SDKSOCKET_H
#define QXNET_BASE_SDKSOCKET_H

#include <cstdint>

enum { QXNET_SOCKET_BROKEN = -1234567 };

// Socket library start and stop: counted no-ops on POSIX (there is nothing to start).
int WSAStartup(unsigned short version, void* data);
int WSACleanup();
int WSAGetLastError();
int SocketLibraryStartCount();

// Switches a socket to non-blocking (on != 0) or blocking mode; 0, or -1 after logging.
int SetSocketNoBlock(int sock, int on);

// Waits up to timeoutMs for the socket to become readable (write = false) or writable.
// 1 ready, 0 timeout, QXNET_SOCKET_BROKEN on error or an error/hang-up condition only.
// poll() is used so that descriptors of 1024 and above work.
int PollSocket(int sock, bool write, int timeoutMs);

// Waits for readability and writability at once: bit 1 readable, bit 2 writable,
// 0 timeout, QXNET_SOCKET_BROKEN on error.
int PollSocketRW(int sock, int timeoutMs);

// Waits up to timeoutMs for a non-blocking connect: 1 connected, 0 still pending,
// -1 the connect failed (refused, unreachable). A failed connect also shows as
// "writable" to poll, so the peer address is checked as well.
int PollConnect(int sock, int timeoutMs);

// Resolves a host name to its first IPv4 address (network order); 0 on success.
int ResolveIPv4(const char* host, uint32_t* addrNetOrder);

// Parses dotted-quad text (network order result); false when it does not parse.
bool ParseIPv4(const char* text, uint32_t* addrNetOrder);

// Sends with MSG_NOSIGNAL: a closed peer yields an error, never SIGPIPE.
long SocketSend(int sock, const void* data, unsigned long len);
long SocketRecv(int sock, void* data, unsigned long len);
int CloseSocket(int sock);

#endif
