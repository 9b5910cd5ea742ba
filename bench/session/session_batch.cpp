#include "session_batch.h"

#include <atomic>
#include <cstdio>
#include <thread>

#include "QXNetSDK.h"
#include "host_limits.h"
#include "proc_stats.h"

namespace qxbench {

namespace {
std::atomic<long> g_auth{0};
std::atomic<long> g_fail{0};
int g_user = 0;

long OnStatus(long, long code, char*, void*) {
  if (code == QXNET_EV_AUTHENTICATED) ++g_auth;
  if (code == QXNET_EV_CONNECT_FAILED || code == QXNET_EV_BAD_CREDENTIALS || code == QXNET_EV_AUTH_FAILED)
    ++g_fail;
  return 0;
}

std::vector<long> LoginAll(qxtest::DevSim& sim, long n) {
  std::vector<long> ids;
  ids.reserve(static_cast<size_t>(n));
  for (long i = 0; i < n; ++i) {
    long id = QXNet_Loc_LoginDev(const_cast<char*>("127.0.0.1"), sim.port(), const_cast<char*>("admin"),
                                 const_cast<char*>("admin"), nullptr);
    if (id > 0)
      ids.push_back(id);
    else
      std::fprintf(stderr, "bench_sessions: login %ld of %ld refused (%ld)\n", i + 1, n, id);
  }
  return ids;
}

// Logs in n sessions and waits for all to authenticate; returns the seconds waited.
double LoginAndWait(qxtest::DevSim& sim, long n, double timeout, std::vector<long>& ids, long& authenticated) {
  g_auth = 0;
  g_fail = 0;
  double t0 = NowSeconds();
  ids = LoginAll(sim, n);
  WaitUntil([n] { return g_auth.load() >= n; }, timeout - (NowSeconds() - t0));
  double seconds = NowSeconds() - t0;
  authenticated = g_auth.load();
  return seconds;
}

// CPU seconds of this process and of the simulator child from construction to Stop().
class CpuSpan {
 public:
  explicit CpuSpan(qxtest::DevSim& sim) : m_pid(sim.pid()), m_self(CpuSeconds()), m_sim(CpuSecondsOf(m_pid)) {}
  void Stop(double& self, double& simulator) {
    self = CpuSeconds() - m_self;
    double s = CpuSecondsOf(m_pid);
    simulator = (m_sim < 0 || s < 0) ? -1 : s - m_sim;
  }

 private:
  long m_pid;
  double m_self, m_sim;
};

void MeasureIdle(qxtest::DevSim& sim, BatchResult& r, double idleSeconds, long rssBefore, long threadsBefore,
                 long fdsBefore) {
  long long hb0 = sim.stat("heartbeats");
  double w0 = NowSeconds();
  CpuSpan cpu(sim);
  std::this_thread::sleep_for(std::chrono::duration<double>(idleSeconds));
  double self, simulator;
  cpu.Stop(self, simulator);
  r.idleSeconds = NowSeconds() - w0;
  r.idleCpuPct = 100.0 * self / r.idleSeconds;
  if (simulator >= 0) r.simIdleCpuPct = 100.0 * simulator / r.idleSeconds;
  r.heartbeats = sim.stat("heartbeats") - hb0;
  double n = static_cast<double>(r.n);
  r.rssKiBPerSession = static_cast<double>(RssKiB() - rssBefore) / n;
  r.threadsIdle = ThreadCount();
  r.fdsIdle = OpenFdCount();
  r.threadsPerSession = static_cast<double>(r.threadsIdle - threadsBefore) / n;
  r.fdsPerSession = static_cast<double>(r.fdsIdle - fdsBefore) / n;
}

void LogoutOneByOne(qxtest::DevSim& sim, BatchResult& r, const std::vector<long>& ids) {
  double t0 = NowSeconds();
  CpuSpan cpu(sim);
  for (long id : ids) QXNet_LogOutDev(id);
  r.logoutSeconds = NowSeconds() - t0;
  cpu.Stop(r.logoutCpu, r.logoutSimCpu);
  r.simEmptyAfterLogout = sim.waitConnectionsAtMost(0, 30000);
}

void SecondBatchThenFree(qxtest::DevSim& sim, BatchResult& r, double authTimeout) {
  std::vector<long> ids;
  r.secondAuthSeconds = LoginAndWait(sim, r.n, authTimeout, ids, r.secondAuthenticated);
  double t0 = NowSeconds();
  CpuSpan cpu(sim);
  QXNet_Free();
  r.freeSeconds = NowSeconds() - t0;
  cpu.Stop(r.freeCpu, r.freeSimCpu);
  r.simEmptyAfterFree = sim.waitConnectionsAtMost(0, 30000);
  QXNet_init();
  InstallStatusCounter();
}
}  // namespace

void InstallStatusCounter() { QXNet_SetStatusEventCallBack(OnStatus, &g_user); }

SessionCost ProbeSessionCost(qxtest::DevSim& sim, int sessions) {
  long fds0 = OpenFdCount(), threads0 = ThreadCount(), maps0 = MapCount();
  std::vector<long> ids;
  long authenticated = 0;
  LoginAndWait(sim, sessions, 20, ids, authenticated);
  SessionCost c;
  double n = sessions;
  c.fds = static_cast<double>(OpenFdCount() - fds0) / n;
  c.threads = static_cast<double>(ThreadCount() - threads0) / n;
  c.maps = static_cast<double>(MapCount() - maps0) / n;
  for (long id : ids) QXNet_LogOutDev(id);
  sim.waitConnectionsAtMost(0, 10000);
  if (authenticated < sessions)
    std::fprintf(stderr, "bench_sessions: probe: only %ld of %d sessions authenticated\n", authenticated,
                 sessions);
  return c;
}

BatchResult RunBatch(qxtest::DevSim& sim, long n, double idleSeconds, double authTimeout) {
  BatchResult r;
  r.n = n;
  long rss0 = RssKiB(), threads0 = ThreadCount(), fds0 = OpenFdCount();
  std::vector<long> ids;
  r.authSeconds = LoginAndWait(sim, n, authTimeout, ids, r.authenticated);
  r.failures = g_fail.load();
  std::fprintf(stderr, "bench_sessions: N=%ld: %ld authenticated in %.2f s; idle window %.0f s\n", n,
               r.authenticated, r.authSeconds, idleSeconds);
  MeasureIdle(sim, r, idleSeconds, rss0, threads0, fds0);
  LogoutOneByOne(sim, r, ids);
  std::fprintf(stderr, "bench_sessions: N=%ld: logged out one by one in %.2f s; second batch\n", n,
               r.logoutSeconds);
  SecondBatchThenFree(sim, r, authTimeout);
  std::fprintf(stderr, "bench_sessions: N=%ld: the bare floor of the idle wait, %.0f s\n", n, idleSeconds);
  r.floor = RunIdleFloor(sim.port(), n, idleSeconds);
  sim.waitConnectionsAtMost(0, 30000);
  return r;
}

}  // namespace qxbench
