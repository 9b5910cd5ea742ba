#include "session/SessionIo.h"

#include "base/SDKSocket.h"

namespace {
class SocketIo : public ISessionIo {
 public:
  long Send(int sock, const void* data, unsigned long len) override { return SocketSendNoWait(sock, data, len); }
  long SendPair(int sock, const void* a, unsigned long alen, const void* b, unsigned long blen) override {
    return SocketSendPairNoWait(sock, a, alen, b, blen);
  }
  long Recv(int sock, void* data, unsigned long len) override { return SocketRecvNoWait(sock, data, len); }
  long RecvPair(int sock, void* a, unsigned long alen, void* b, unsigned long blen) override {
    return SocketRecvPairNoWait(sock, a, alen, b, blen);
  }
  int Poll(int sock, bool wantRead, bool wantWrite, int wakeFd, int timeoutMs) override {
    return PollSocketWake(sock, wantRead, wantWrite, wakeFd, timeoutMs);
  }
};
}  // namespace

long ISessionIo::SendPair(int sock, const void* a, unsigned long alen, const void* b, unsigned long blen) {
  long n = Send(sock, a, alen);
  if (n < 0 || static_cast<unsigned long>(n) < alen || blen == 0) return n;
  long m = Send(sock, b, blen);
  return m < 0 ? n : n + m;
}

long ISessionIo::RecvPair(int sock, void* a, unsigned long alen, void*, unsigned long) {
  return Recv(sock, a, alen);
}

ISessionIo& ISessionIo::Default() {
  static SocketIo io;
  return io;
}
