// Discovery speed: 1,000 simulated devices answer one search request in a burst; time
// until all are in the table and all callbacks made, and answers handled per second per
// core. The unpaced burst runs with the simulator in the idle scheduling class (the devices
// are other machines), then once more with the simulator beside the library. Runs only inside the namespaces of tests/netns/lan_netns.sh (run_bench_search.sh).
//   bench_search [--devices 1000] [--pace-us 0,20] [--flood 50000]
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "support/devsim_client.h"

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<long> g_found{0};
std::atomic<long> g_callbacks{0};
std::atomic<long long> g_lastNs{0};

long OnSearch(long code, long, __NetSDK_IPC_ENTRYV2*, void*) {
  g_callbacks++;
  if (code == 1) g_found++;
  g_lastNs = Clock::now().time_since_epoch().count();
  return 0;
}

double CpuSeconds() {
  rusage ru;
  getrusage(RUSAGE_SELF, &ru);
  return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

// A counter of the Udp line of /proc/net/snmp (this namespace).
long long UdpCounter(const std::string& name) {
  std::ifstream f("/proc/net/snmp");
  std::string names, values;
  while (std::getline(f, names) && std::getline(f, values)) {
    if (names.compare(0, 4, "Udp:") != 0) continue;
    std::istringstream n(names), v(values);
    std::string k, x;
    while (n >> k && v >> x)
      if (k == name) return std::atoll(x.c_str());
  }
  return -1;
}

// idle: the simulator runs in the idle scheduling class and gets a core only when nothing
// else wants it, as devices on their own machines would; otherwise it competes with the
// library for the 2 cores.
std::unique_ptr<qxtest::DevSim> StartSim(int devices, bool idle = false) {
  qxtest::DevSimPlace place;
  place.launcher = {"ip", "netns", "exec", getenv("QXNET_LAN_NS")};
  if (idle) place.launcher.insert(place.launcher.end(), {"chrt", "--idle", "0"});
  place.controlHost = getenv("QXNET_LAN_GATEWAY");
  return std::unique_ptr<qxtest::DevSim>(new qxtest::DevSim(
      {"--lan", std::to_string(devices), "--lan-kinds", "IPC", "--listen", "127.0.0.1:0", "--lan-first-ip",
       "10.77.1.1", "--lan-mask", "255.255.0.0"},
      10000, place));
}

void WaitQuiet(int ms) {
  long last = -1;
  while (last != g_callbacks.load()) {
    last = g_callbacks.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  }
}

// One burst: the first search request and the devices' answers. Returns false when the
// search cannot run.
bool Burst(int devices, long long paceUs, bool simIdle) {
  auto sim = StartSim(devices, simIdle);
  if (!sim->ok()) return std::fprintf(stderr, "simulator: %s\n", sim->error().c_str()), false;
  sim->cmd("LAN PACE " + std::to_string(paceUs));
  QXNet_init();
  QXNet_Loc_SetSearchStatusCallBack(&OnSearch, nullptr);
  g_found = 0;
  g_callbacks = 0;
  long long drops0 = UdpCounter("RcvbufErrors");
  double cpu0 = CpuSeconds();
  auto t0 = Clock::now();
  if (QXNet_StartSearchDev() != 0) return std::fprintf(stderr, "the search does not start\n"), false;
  // The second request of a run leaves after more than 7 s: wait 6 s for the first burst.
  while (g_found < devices && Clock::now() - t0 < std::chrono::seconds(6))
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  WaitQuiet(200);
  double ms = (g_lastNs.load() - t0.time_since_epoch().count()) / 1e6;
  double cpu = CpuSeconds() - cpu0;
  long found = g_found;
  long long drops = UdpCounter("RcvbufErrors") - drops0;
  std::printf("burst, pace %lld us, simulator %s: %ld of %d devices in the table, %ld callbacks, "
              "last after %.1f ms (target: all within 1000 ms: %s); receive-buffer drops %lld; CPU %.3f s\n",
              paceUs, simIdle ? "in the idle class" : "beside the library", found, devices, g_callbacks.load(), ms,
              found >= devices && ms <= 1000 ? "met" : "MISSED", drops, cpu);
  if (found > 0 && cpu > 0)
    std::printf("  %.0f answers handled per second per core (the process's CPU time over the burst)\n", found / cpu);
  QXNet_StopSearchDev();
  QXNet_Free();
  return true;
}

// Identical answers of known devices, as fast as the simulator sends them: handled = sent
// less what the socket buffer dropped, per CPU second of this process.
void Rate(long flood) {
  auto sim = StartSim(10);
  if (!sim->ok()) return;
  QXNet_init();
  QXNet_Loc_SetSearchStatusCallBack(&OnSearch, nullptr);
  g_found = 0;
  if (QXNet_StartSearchDev() != 0) return;
  while (g_found < 10) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  long long in0 = UdpCounter("InDatagrams"), drops0 = UdpCounter("RcvbufErrors");
  double cpu0 = CpuSeconds();
  auto t0 = Clock::now();
  std::string r = sim->cmd("LAN FLOOD " + std::to_string(flood), 300000);
  double cpuPrev = -1, cpu = CpuSeconds();
  while (cpu - cpuPrev > 0.002) {  // until this process stops working on them
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    cpuPrev = cpu;
    cpu = CpuSeconds();
  }
  double wall = std::chrono::duration<double>(Clock::now() - t0).count();
  long long handled = UdpCounter("InDatagrams") - in0, drops = UdpCounter("RcvbufErrors") - drops0;
  std::printf("flood of %ld identical answers (%s): %lld handled, %lld dropped by the socket buffer, "
              "%.3f CPU s over %.2f s: %.0f answers per second per core\n",
              flood, r.c_str(), handled, drops, cpu - cpu0, wall, handled / (cpu - cpu0));
  QXNet_StopSearchDev();
  QXNet_Free();
}

}  // namespace

int main(int argc, char** argv) {
  if (!getenv("QXNET_LAN_NS")) {
    std::fprintf(stderr, "bench_search: run it through bench/search/run_bench_search.sh (private namespaces)\n");
    return 2;
  }
  int devices = 1000;
  std::vector<long long> paces = {0, 20};
  long flood = 50000;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string k = argv[i];
    if (k == "--devices") devices = std::atoi(argv[i + 1]);
    else if (k == "--flood") flood = std::atol(argv[i + 1]);
    else if (k == "--pace-us") {
      paces.clear();
      std::stringstream ss(argv[i + 1]);
      std::string p;
      while (std::getline(ss, p, ',')) paces.push_back(std::atoll(p.c_str()));
    }
  }
  std::printf("bench_search: %d devices, %u cores\n", devices, std::thread::hardware_concurrency());
  // Unpaced, the simulator runs in the idle class; paced, it sleeps between answers and an
  // idle-class sleeper would wait for a free core each time, so it runs as usual.
  for (long long p : paces)
    if (!Burst(devices, p, p == 0)) return 1;
  // The same unpaced burst with the simulator competing for the cores.
  if (!Burst(devices, 0, false)) return 1;
  Rate(flood);
  return 0;
}
