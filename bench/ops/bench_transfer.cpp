// Upload and configuration-file download throughput on loopback for a 64 MiB file,
// beside the raw loopback TCP rate of this machine measured in the same run. The upload
// is also set beside the protocol's pacing bound (5 chunks of 163,840 bytes per 20 ms
// turn) and its target, 90 % of that bound. Figures and ratios only: nothing is asserted.
//
//   bench_transfer [--mib N] [--dl-chunk BYTES]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "devsim_client.h"

namespace {
// Upload pacing of the protocol: at most this many chunks of this size per turn.
constexpr double kChunkBytes = 163840;
constexpr double kChunksPerTurn = 5;
constexpr double kTurnSeconds = 0.020;
constexpr double kPacingBoundMBps = kChunkBytes * kChunksPerTurn / kTurnSeconds / 1e6;  // 40.96
constexpr double kUploadTargetShare = 0.90;

std::mutex g_mu;
std::condition_variable g_cv;
std::vector<std::pair<long, std::string>> g_events;

long OnStatus(long, long code, char* data, void*) {
  std::lock_guard<std::mutex> lock(g_mu);
  g_events.emplace_back(code, data && code != QXNET_EV_ALARM ? data : "");
  g_cv.notify_all();
  return 0;
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Waits for one of the codes; returns it, or -1 on timeout.
long WaitFor(const std::vector<long>& codes, const std::string& needle, double timeout) {
  std::unique_lock<std::mutex> lock(g_mu);
  double end = Now() + timeout;
  size_t seen = 0;
  for (;;) {
    for (; seen < g_events.size(); ++seen)
      for (long c : codes)
        if (g_events[seen].first == c && (needle.empty() || g_events[seen].second.find(needle) != std::string::npos))
          return c;
    if (Now() > end) return -1;
    g_cv.wait_for(lock, std::chrono::milliseconds(50));
  }
}

double RawLoopbackMBps(size_t bytes) {
  int ls = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  bind(ls, reinterpret_cast<sockaddr*>(&a), sizeof(a));
  socklen_t len = sizeof(a);
  getsockname(ls, reinterpret_cast<sockaddr*>(&a), &len);
  listen(ls, 1);
  std::thread reader([ls] {
    int c = accept(ls, nullptr, nullptr);
    std::vector<char> buf(1 << 16);
    while (read(c, buf.data(), buf.size()) > 0) {
    }
    close(c);
  });
  int s = socket(AF_INET, SOCK_STREAM, 0);
  connect(s, reinterpret_cast<sockaddr*>(&a), sizeof(a));
  std::vector<char> chunk(163840 + 256, 'x');
  double t0 = Now();
  size_t sent = 0;
  while (sent < bytes) {
    ssize_t n = write(s, chunk.data(), chunk.size());
    if (n <= 0) break;
    sent += static_cast<size_t>(n);
  }
  close(s);
  reader.join();
  double t = Now() - t0;
  close(ls);
  return sent / t / 1e6;
}
}  // namespace

int main(int argc, char** argv) {
  size_t mib = 64;
  int dlChunk = 1 << 20;
  for (int i = 1; i + 1 < argc; ++i) {
    if (!std::strcmp(argv[i], "--mib")) mib = static_cast<size_t>(std::atol(argv[++i]));
    else if (!std::strcmp(argv[i], "--dl-chunk")) dlChunk = std::atoi(argv[++i]);
  }
  const size_t bytes = mib << 20;

  double raw = RawLoopbackMBps(bytes * 4);

  qxtest::DevSim sim({"--quiet"});
  if (!sim.ok()) {
    std::fprintf(stderr, "bench_transfer: simulator did not start: %s\n", sim.error().c_str());
    return 1;
  }
  std::string file = sim.tempDir() + "/firmware.bin";
  {
    FILE* f = std::fopen(file.c_str(), "wb");
    std::vector<char> block(1 << 20);
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 131 + 7);
    for (size_t m = 0; m < mib; ++m) std::fwrite(block.data(), 1, block.size(), f);
    std::fclose(f);
  }

  QXNet_init();
  static int user = 0;
  QXNet_SetStatusEventCallBack(OnStatus, &user);
  long id = QXNet_Loc_LoginDev(const_cast<char*>("127.0.0.1"), sim.port(), const_cast<char*>("admin"),
                               const_cast<char*>("admin"), nullptr);
  if (id <= 0 || WaitFor({QXNET_EV_AUTHENTICATED}, "", 20) < 0) {
    std::fprintf(stderr, "bench_transfer: login failed\n");
    return 1;
  }

  double t0 = Now();
  long rc = QXNet_Loc_Upgrade(id, file.c_str());
  long end = rc == 0 ? WaitFor({QXNET_EV_UPGRADE_FINISHED, QXNET_EV_UPGRADE_FAILED, QXNET_EV_CFGFILE_SET_FAILED}, "", 600) : -1;
  double upSeconds = Now() - t0;
  std::string upload = sim.cmd("UPLOAD");

  sim.cmd("SET dl_size " + std::to_string(bytes));
  sim.cmd("SET dl_chunk " + std::to_string(dlChunk));
  std::string out = sim.tempDir() + "/config.out";
  t0 = Now();
  rc = QXNet_Loc_GetConfigFile(id, out.c_str());
  long dl = rc == 0 ? WaitFor({QXNET_EV_CFGFILE_GET_PROGRESS}, "<downProgress>100<", 600) : -1;
  double dlSeconds = Now() - t0;

  QXNet_LogOutDev(id);
  QXNet_Free();

  double upMBps = bytes / upSeconds / 1e6;
  double dlMBps = bytes / dlSeconds / 1e6;
  double targetMBps = kUploadTargetShare * kPacingBoundMBps;
  std::printf("file size                  %zu MiB\n", mib);
  std::printf("raw loopback TCP           %10.1f MB/s\n", raw);
  std::printf("upload pacing bound        %10.2f MB/s  (%.0f chunks of %.0f bytes per %.0f ms turn)\n",
              kPacingBoundMBps, kChunksPerTurn, kChunkBytes, kTurnSeconds * 1000);
  std::printf("upload target              %10.2f MB/s  (>= %.0f %% of the pacing bound)\n", targetMBps,
              kUploadTargetShare * 100);
  std::printf("upload (firmware)          %10.1f MB/s  %6.2f s  %s\n", upMBps, upSeconds,
              end == QXNET_EV_UPGRADE_FINISHED ? "ok" : "FAILED");
  std::printf("  ratio to pacing bound    %10.3f      (target >= %.2f: %s)\n", upMBps / kPacingBoundMBps,
              kUploadTargetShare, upMBps >= targetMBps ? "meets" : "misses");
  std::printf("  ratio to raw loopback    %10.3f\n", upMBps / raw);
  std::printf("config-file download       %10.1f MB/s  %6.2f s  ratio to raw %.3f  %s (%d-byte answers)\n",
              dlMBps, dlSeconds, dlMBps / raw, dl == QXNET_EV_CFGFILE_GET_PROGRESS ? "ok" : "FAILED", dlChunk);
  std::printf("simulator's upload record: %s\n", upload.c_str());
  return 0;
}
