// Raw loopback TCP: one connection, 256 KiB writes and reads, nothing else done with the bytes.
#include "loopback_rate.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>
#include <vector>

#include "child_process.h"

namespace benchdl {

namespace {

constexpr size_t kBlock = 256 * 1024;

// A listening socket on 127.0.0.1 at an ephemeral port; -1 on failure.
int Listen(sockaddr_in& addr) {
  int ls = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  addr = sockaddr_in{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(addr);
  if (ls < 0 || bind(ls, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 ||
      getsockname(ls, reinterpret_cast<sockaddr*>(&addr), &len) != 0 || listen(ls, 1) != 0) {
    if (ls >= 0) close(ls);
    return -1;
  }
  return ls;
}

double Drain(int ls) {
  int c = accept(ls, nullptr, nullptr);
  std::vector<char> buf(kBlock);
  double got = 0;
  ssize_t n;
  while (c >= 0 && (n = read(c, buf.data(), buf.size())) > 0) got += static_cast<double>(n);
  if (c >= 0) close(c);
  return got;
}

}  // namespace

Figure LoopbackRate(double bytes) {
  Figure f;
  sockaddr_in addr;
  int ls = Listen(addr);
  if (ls < 0) return f;
  double received = 0;
  std::thread reader([ls, &received] { received = Drain(ls); });
  int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::vector<char> block(kBlock, 'x');
  double c0 = SelfCpuSeconds(), t0 = NowSeconds(), sent = 0;
  bool connected = s >= 0 && connect(s, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) == 0;
  ssize_t n;
  while (connected && sent < bytes && (n = write(s, block.data(), block.size())) > 0) sent += static_cast<double>(n);
  if (!connected) shutdown(ls, SHUT_RDWR);  // no connection will come: wake the reader's accept
  if (s >= 0) close(s);
  reader.join();
  f.wall = NowSeconds() - t0;
  f.cpu = SelfCpuSeconds() - c0;
  close(ls);
  f.bytes = received;
  f.ok = received >= bytes;
  return f;
}

}  // namespace benchdl
