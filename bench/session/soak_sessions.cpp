// Soak: N sessions (default 1,000) against the simulator for T minutes (default 60)
// while its CHAOS command drops connections, sends filler between frames, stalls
// connections and reboots devices at random. Then chaos stops, every session must
// authenticate again within a grace period, and after the logout of all the process
// must hold as many descriptors and threads as before the first login. The report
// counts status events per kind, reconnects, crashes and lost sessions, and compares
// resident memory at the start and the end. Exit code: see --help of the program.
//
//   soak_sessions [--sessions N] [--minutes T] [--no-chaos | --emulate-chaos] ...
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "host_limits.h"
#include "proc_stats.h"
#include "soak_events.h"
#include "soak_options.h"
#include "soak_report.h"
#include "soak_sim.h"

namespace {
using namespace qxbench;
const char* kProg = "soak_sessions";

struct Run {
  SoakOptions opt;
  SimSupervisor sup;
  EventBook book;
  std::vector<long> ids;
  SoakFigures fig;
  std::unique_ptr<ChaosEmulator> emulator;
  explicit Run(const SoakOptions& o) : opt(o), sup(o.devices) {}
};

void LoginSpread(Run& r) {
  for (long i = 0; i < r.opt.sessions; ++i) {
    unsigned long port = r.sup.port(static_cast<int>(i % r.opt.devices));
    long id = QXNet_Loc_LoginDev(const_cast<char*>("127.0.0.1"), port, const_cast<char*>("admin"),
                                 const_cast<char*>("admin"), nullptr);
    if (id > 0)
      r.ids.push_back(id);
    else
      std::fprintf(stderr, "%s: login %ld refused (%ld)\n", kProg, i + 1, id);
  }
}

// Exactly one authenticated connection per session at the simulator, and no other.
bool SimHoldsExactly(qxtest::DevSim& sim, long n) {
  std::string want = std::to_string(n);
  return sim.cmdOk("WAITCONN " + want + " 0 auth=1") && sim.cmdOk("WAITCONN " + want + " 0 atmost=1");
}

// Waits until every session is authenticated, in this process and at the simulator.
bool WaitAllAuthenticated(Run& r, double timeout) {
  long n = r.opt.sessions;
  return WaitUntil(
      [&r, n] {
        r.sup.Check();
        return r.book.AuthenticatedAmong(r.ids) == n && SimHoldsExactly(r.sup.sim(), n);
      },
      timeout);
}

void Progress(Run& r, double elapsed) {
  EventTotals e = r.book.Sum();
  ChaosStats c = r.opt.mode == ChaosMode::Emulated ? r.emulator->played() : r.sup.Chaos();
  std::printf(
      "[%6.0f s] authenticated %ld/%ld closes %ld reconnects %ld | RSS %ld KiB heap %ld KiB "
      "threads %ld fds %ld | chaos drops %lld garbage %lld reboots %lld stalls %lld | "
      "simulator deaths %d\n",
      elapsed, r.book.AuthenticatedAmong(r.ids), r.opt.sessions, e.closes, e.auths - e.sessionsAuthed, RssKiB(),
      HeapInUseKiB(), ThreadCount(), OpenFdCount(), c.drops, c.garbage, c.reboots, c.stalls, r.sup.crashes());
  std::fflush(stdout);
}

// Sends a CHAOS line; false (and says why) when the simulator refuses it: without its
// faults this run cannot do what it is for.
bool ChaosAccepted(Run& r, const std::string& line, bool replay) {
  std::string reply = r.sup.Apply("chaos", line, replay);
  if (reply.rfind("OK", 0) == 0) return true;
  std::fprintf(stderr,
               "%s: FAIL: the simulator refused '%s' (reply: %s).\n"
               "%s: this qxdevsim has no CHAOS command; the soak cannot run its faults. "
               "(--no-chaos or --emulate-chaos run without it.)\n",
               kProg, line.c_str(), reply.c_str(), kProg);
  return false;
}

bool StartChaos(Run& r) {
  if (r.opt.mode == ChaosMode::Emulated) r.emulator = std::make_unique<ChaosEmulator>(r.opt.chaos);
  if (r.opt.mode != ChaosMode::Simulator) return true;
  r.fig.chaosLine = ChaosCommand(r.opt.chaos);
  return ChaosAccepted(r, r.fig.chaosLine, true);
}

void StopChaos(Run& r) {
  if (r.opt.mode != ChaosMode::Simulator) return;
  std::string reply = r.sup.Apply("chaos", "CHAOS off", false);
  if (reply.rfind("OK", 0) != 0) std::fprintf(stderr, "%s: CHAOS off answered: %s\n", kProg, reply.c_str());
}

// The chaos phase: one turn per chaos period, watching the simulator and printing progress.
void RunChaos(Run& r) {
  double t0 = NowSeconds(), end = t0 + r.opt.minutes * 60.0, nextProgress = t0 + r.opt.progressSeconds;
  double period = r.opt.chaos.periodMs / 1000.0;
  for (double now = t0; now < end; now = NowSeconds()) {
    std::this_thread::sleep_for(std::chrono::duration<double>(std::min(period, end - now)));
    if (!r.sup.Check()) continue;
    if (r.emulator) r.emulator->Step(r.sup.sim(), r.opt.devices);
    if (NowSeconds() >= nextProgress) {
      Progress(r, NowSeconds() - t0);
      nextProgress += r.opt.progressSeconds;
    }
  }
  r.fig.chaosSeconds = NowSeconds() - t0;
}

void LogoutAll(Run& r) {
  double t0 = NowSeconds();
  for (long id : r.ids) QXNet_LogOutDev(id);
  r.fig.logoutSeconds = NowSeconds() - t0;
  r.fig.simEmptyAfterLogout = r.sup.sim().waitConnectionsAtMost(0, 30000);
  // A worker may still be on its way out when its logout returns: give the counts a moment.
  long fds0 = r.fig.fdsStart, threads0 = r.fig.threadsStart;
  WaitUntil([fds0, threads0] { return OpenFdCount() == fds0 && ThreadCount() == threads0; }, 10);
  r.fig.fdsAfter = OpenFdCount();
  r.fig.threadsAfter = ThreadCount();
}

int Finish(Run& r, int failedBefore) {
  LogoutAll(r);
  QXNet_Free();
  r.fig.simDeaths = r.sup.deaths();
  r.fig.simExit = r.sup.Stop();
  int failed = PrintSoakReport(r.fig, stdout) + failedBefore;
  return failed == 0 ? 0 : 1;
}
}  // namespace

namespace {
// Before anything starts: descriptors for this process (a socket and a wake descriptor
// per session at most) and for the simulator child, which inherits the same limit.
bool LimitsHold(const SoakOptions& o) {
  FdLimit lim = RaiseFdLimit(kProg);
  unsigned long need = static_cast<unsigned long>(2 * o.sessions + 64);
  if (lim.now < need) {
    std::fprintf(stderr,
                 "%s: descriptor limit %lu is too low for %ld sessions (about %lu needed): lower "
                 "--sessions or raise the hard limit (ulimit -Hn)\n",
                 kProg, lim.now, o.sessions, need);
    return false;
  }
  PrintShortfalls(kProg, SessionLimitShortfalls(o.sessions, 6.0), stderr);
  return true;
}

// Ends a run that could not reach its report: every session out, library and simulator stopped.
void Abandon(Run& r) {
  for (long id : r.ids) QXNet_LogOutDev(id);
  QXNet_Free();
  r.sup.Stop();
}

bool FirstLogin(Run& r) {
  double t0 = NowSeconds(), timeout = 60.0 + static_cast<double>(r.opt.sessions) / 50.0;
  LoginSpread(r);
  if (!WaitAllAuthenticated(r, timeout)) {
    std::fprintf(stderr, "%s: FAIL: only %ld of %ld sessions authenticated within %.0f s of the first login\n",
                 kProg, r.book.AuthenticatedAmong(r.ids), r.opt.sessions, timeout);
    return false;
  }
  std::printf("%s: %ld sessions on %d devices authenticated in %.2f s\n", kProg, r.opt.sessions, r.opt.devices,
              NowSeconds() - t0);
  return true;
}

// Every connection closed once and every session back: the reconnect path has run in
// every worker (the allocator has given each thread its arena) before the memory at the
// start is taken, so that the end is compared with a steady state, not with a cold one.
bool WarmUp(Run& r) {
  double t0 = NowSeconds(), timeout = 60.0 + static_cast<double>(r.opt.sessions) / 50.0;
  std::string reply = r.sup.sim().cmd("CLOSE all");
  if (reply.rfind("OK", 0) != 0 || !WaitAllAuthenticated(r, timeout)) {
    std::fprintf(stderr,
                 "%s: FAIL: after one close of every connection (%s) only %ld of %ld sessions "
                 "authenticated again within %.0f s\n",
                 kProg, reply.c_str(), r.book.AuthenticatedAmong(r.ids), r.opt.sessions, timeout);
    return false;
  }
  r.fig.warmupReconnects = r.book.Sum().auths - r.opt.sessions;
  std::printf("%s: warm-up: every connection closed once, all authenticated again in %.2f s; settling %.0f s\n",
              kProg, NowSeconds() - t0, r.opt.settleSeconds);
  std::fflush(stdout);
  std::this_thread::sleep_for(std::chrono::duration<double>(r.opt.settleSeconds));
  r.fig.rssStartKiB = RssKiB();
  r.fig.heapStartKiB = HeapInUseKiB();
  return true;
}

void Recover(Run& r) {
  double t0 = NowSeconds();
  WaitAllAuthenticated(r, r.opt.graceSeconds);
  r.fig.recoverSeconds = NowSeconds() - t0;
  r.fig.lost = r.opt.sessions - r.book.AuthenticatedAmong(r.ids);
  r.fig.simHoldsAll = SimHoldsExactly(r.sup.sim(), r.opt.sessions);
  // Measured after the same quiet time as the start figure: right after a reconnect burst
  // the log lines of the last second are still queued, and start and end would not
  // compare like with like.
  std::this_thread::sleep_for(std::chrono::duration<double>(r.opt.settleSeconds));
  r.fig.rssEndKiB = RssKiB();
  r.fig.heapEndKiB = HeapInUseKiB();
  r.fig.events = r.book.Sum();  // before the logout adds its own closes
  r.fig.chaos = r.emulator ? r.emulator->played() : r.sup.Chaos();
}
}  // namespace

int main(int argc, char** argv) {
  SoakOptions opt;
  if (!ParseSoakOptions(argc, argv, opt) || !LimitsHold(opt)) return 2;
  Run r(opt);
  std::string err;
  if (!r.sup.Start(err)) {
    std::fprintf(stderr, "%s: %s\n", kProg, err.c_str());
    return 2;
  }
  // Asked before anything else so that a simulator without CHAOS fails the run at once.
  if (opt.mode == ChaosMode::Simulator && !ChaosAccepted(r, "CHAOS off", false)) return r.sup.Stop(), 3;
  QXNet_init();
  QXNet_SetStatusEventCallBack(&EventBook::OnStatus, &r.book);
  r.fig.sessions = opt.sessions;
  r.fig.devices = opt.devices;
  r.fig.mode = opt.mode;
  r.fig.graceSeconds = opt.graceSeconds;
  r.fig.fdsStart = OpenFdCount();
  r.fig.threadsStart = ThreadCount();
  if (!FirstLogin(r) || !WarmUp(r)) return Abandon(r), 1;
  if (!StartChaos(r)) return Abandon(r), 3;
  RunChaos(r);
  StopChaos(r);
  Recover(r);
  return Finish(r, 0);
}
