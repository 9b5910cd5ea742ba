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

// poll() on one descriptor, restarted on EINTR: poll's result, the events in *revents.
int PollOne(int fd, short events, int timeoutMs, short* revents);

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

// Creates an IPv4 TCP stream socket; -1 on failure (errno set).
int CreateTcpSocket();

// The socket options a session sets, by name, so that no caller outside this layer needs
// the socket headers.
enum QXSocketOption {
  QXSO_REUSEADDR,     // value 0/1
  QXSO_RCVBUF,        // bytes
  QXSO_SNDBUF,        // bytes
  QXSO_LINGER,        // linger on with this many seconds (0: a close resets at once)
  QXSO_NODELAY,       // value 0/1
  QXSO_KEEPALIVE,     // seconds idle before the first probe, then probes every 5 s; 0 = off
  QXSO_USER_TIMEOUT,  // milliseconds that sent data may stay unacknowledged
};
// 0, or -1 with errno set.
int SetSocketOption(int sock, QXSocketOption option, int value);

// Starts a connect to an IPv4 address (network order) and port (host order) on a
// non-blocking socket; the outcome is learnt from PollConnect / PollConnectWake.
void StartConnect(int sock, uint32_t addrNetOrder, uint16_t port);

// As PollConnect, but returns 2 as soon as wakeFd becomes readable (the waiter is being
// stopped or has work); the wake is not consumed.
int PollConnectWake(int sock, int wakeFd, int timeoutMs);

// Waits for a socket and a wake descriptor at once. Result bits: QXPOLL_READ (readable,
// including a peer's close), QXPOLL_WRITE (writable; only asked when wantWrite),
// QXPOLL_WAKE (wakeFd readable; not consumed); 0 on timeout; QXNET_SOCKET_BROKEN when
// the socket reports an error or hang-up and nothing to read. A negative timeout waits
// without limit.
enum { QXPOLL_READ = 1, QXPOLL_WRITE = 2, QXPOLL_WAKE = 4 };
int PollSocketWake(int sock, bool wantRead, bool wantWrite, int wakeFd, int timeoutMs);

// Closes a connection without destroying bytes already handed to it: shuts down the
// sending side (the peer gets everything sent, then end of stream), reads and drops what
// the peer still sends until it closes or drainMs pass, then closes the descriptor.
void ShutdownAndClose(int sock, int drainMs);

// Resolves a host name to its first IPv4 address (network order); 0 on success.
int ResolveIPv4(const char* host, uint32_t* addrNetOrder);

// Parses an IPv4 address in any form inet_aton accepts ("127.0.0.1", "127.1", "0x7f.1",
// a plain number), network order; false when it does not parse.
bool ParseIPv4(const char* text, uint32_t* addrNetOrder);

// Sends with MSG_NOSIGNAL: a closed peer yields an error, never SIGPIPE.
long SocketSend(int sock, const void* data, unsigned long len);
long SocketRecv(int sock, void* data, unsigned long len);
// Reads what the socket holds now (MSG_DONTWAIT), restarted on EINTR: -1 with EAGAIN
// when nothing is there.
long SocketRecvNoWait(int sock, void* data, unsigned long len);
// As SocketRecvNoWait into two pieces in one call: the first is filled before the second.
long SocketRecvPairNoWait(int sock, void* a, unsigned long alen, void* b, unsigned long blen);
// True when errno says a non-blocking call found nothing to do (EAGAIN, EWOULDBLOCK).
bool SocketWouldBlock();
// Sends what the socket takes now (MSG_DONTWAIT | MSG_NOSIGNAL), restarted on EINTR.
long SocketSendNoWait(int sock, const void* data, unsigned long len);
// As SocketSendNoWait for two pieces in one call (a frame's header and its payload): one
// system call and, with TCP_NODELAY, one segment where separate sends make one each.
long SocketSendPairNoWait(int sock, const void* a, unsigned long alen, const void* b, unsigned long blen);
int CloseSocket(int sock);

#endif
