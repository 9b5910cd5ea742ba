// The socket calls a session makes once connected, behind a small interface: the
// default forwards to the socket layer; tests and the receive-path fuzzer put another
// in its place (a device whose sends fail, bytes fed from memory).
#ifndef QXNET_SESSION_SESSIONIO_H
#define QXNET_SESSION_SESSIONIO_H

class ISessionIo {
 public:
  virtual ~ISessionIo() = default;
  // As send() without blocking and without SIGPIPE: bytes sent, or -1 with errno (EAGAIN
  // when the socket takes nothing now).
  virtual long Send(int sock, const void* data, unsigned long len) = 0;
  // Both pieces in one non-blocking send as far as the socket takes them: bytes sent
  // (counted over both), or -1 with errno. By default the first piece, then the second
  // once the first went whole, through Send.
  virtual long SendPair(int sock, const void* a, unsigned long alen, const void* b, unsigned long blen);
  // As recv() without blocking: bytes read, 0 at the peer's close, -1 with errno (EAGAIN
  // when nothing is there now).
  virtual long Recv(int sock, void* data, unsigned long len) = 0;
  // As Recv into two pieces in one call, the first filled before the second: bytes read
  // (counted over both). By default the first piece only, through Recv.
  virtual long RecvPair(int sock, void* a, unsigned long alen, void* b, unsigned long blen);
  // As PollSocketWake (base/SDKSocket.h).
  virtual int Poll(int sock, bool wantRead, bool wantWrite, int wakeFd, int timeoutMs) = 0;

  // The socket layer itself.
  static ISessionIo& Default();
};

#endif
