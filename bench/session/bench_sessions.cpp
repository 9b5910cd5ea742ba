// Logs one process in to N simulated devices and reports, for N = 100, 500, 1000 (or the
// counts given on the command line): time until all are authenticated, resident memory
// per session, CPU used per second while idle (heartbeats only) and threads.
//
//   bench_sessions [N ...] [--idle SECONDS]
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "devsim_client.h"

namespace {
std::atomic<int> g_auth{0};
std::atomic<int> g_fail{0};

long OnStatus(long, long code, char*, void*) {
  if (code == QXNET_EV_AUTHENTICATED) ++g_auth;
  if (code == QXNET_EV_CONNECT_FAILED || code == QXNET_EV_BAD_CREDENTIALS || code == QXNET_EV_AUTH_FAILED)
    ++g_fail;
  return 0;
}

long StatusField(const char* name) {
  std::ifstream f("/proc/self/status");
  std::string line;
  size_t n = std::strlen(name);
  while (std::getline(f, line))
    if (line.compare(0, n, name) == 0) return std::atol(line.c_str() + n + 1);
  return -1;
}

double CpuSeconds() {
  struct rusage ru;
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
}  // namespace

int main(int argc, char** argv) {
  std::vector<int> counts;
  double idleSeconds = 10;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--idle") && i + 1 < argc)
      idleSeconds = std::atof(argv[++i]);
    else
      counts.push_back(std::atoi(argv[i]));
  }
  if (counts.empty()) counts = {100, 500, 1000};

  struct rlimit rl;
  getrlimit(RLIMIT_NOFILE, &rl);
  rl.rlim_cur = rl.rlim_max;
  setrlimit(RLIMIT_NOFILE, &rl);

  qxtest::DevSim sim({"--quiet"});
  if (!sim.ok()) {
    std::fprintf(stderr, "bench_sessions: simulator did not start: %s\n", sim.error().c_str());
    return 1;
  }
  QXNet_init();
  static int user = 0;
  QXNet_SetStatusEventCallBack(OnStatus, &user);

  std::printf("%-6s %12s %12s %14s %14s %8s %s\n", "N", "auth_s", "rss_MiB", "rss_KiB/sess", "idle_cpu_%",
              "threads", "note");
  for (int n : counts) {
    g_auth = 0;
    g_fail = 0;
    long rssBefore = StatusField("VmRSS");
    std::vector<long> ids;
    double t0 = Now();
    for (int i = 0; i < n; ++i) {
      long id = QXNet_Loc_LoginDev(const_cast<char*>("127.0.0.1"), sim.port(), const_cast<char*>("admin"),
                                   const_cast<char*>("admin"), nullptr);
      if (id > 0) ids.push_back(id);
    }
    double deadline = t0 + 120;
    while (g_auth < n && Now() < deadline) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    double authSeconds = Now() - t0;
    int authenticated = g_auth;
    long rssAfter = StatusField("VmRSS");
    long threads = StatusField("Threads");

    // Idle: only heartbeats flow.
    double c0 = CpuSeconds(), w0 = Now();
    std::this_thread::sleep_for(std::chrono::duration<double>(idleSeconds));
    double cpuPct = 100.0 * (CpuSeconds() - c0) / (Now() - w0);
    long heartbeats = sim.count("30000", "35001");

    char note[128];
    std::snprintf(note, sizeof(note), "authenticated=%d/%d failures=%d heartbeats_seen=%ld", authenticated, n,
                  g_fail.load(), heartbeats);
    std::printf("%-6d %12.2f %12.1f %14.1f %14.1f %8ld %s\n", n, authSeconds, rssAfter / 1024.0,
                static_cast<double>(rssAfter - rssBefore) / n, cpuPct, threads, note);
    std::fflush(stdout);
    double l0 = Now();
    for (long id : ids) QXNet_LogOutDev(id);
    std::printf("       logout of %d sessions: %.2f s\n", n, Now() - l0);
    sim.cmd("CLEARMSGS");
  }
  QXNet_Free();
  return 0;
}
