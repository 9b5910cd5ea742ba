#include "session/SessionIo.h"

#include "base/SDKSocket.h"

namespace {
class SocketIo : public ISessionIo {
 public:
  long Send(int sock, const void* data, unsigned long len) override { return SocketSendNoWait(sock, data, len); }
  long Recv(int sock, void* data, unsigned long len) override { return SocketRecvNoWait(sock, data, len); }
  int Poll(int sock, bool wantRead, bool wantWrite, int wakeFd, int timeoutMs) override {
    return PollSocketWake(sock, wantRead, wantWrite, wakeFd, timeoutMs);
  }
};
}  // namespace

ISessionIo& ISessionIo::Default() {
  static SocketIo io;
  return io;
}
