#include "soak_report.h"

#include <cstdlib>
#include <cstring>

#include "proc_stats.h"

namespace qxbench {

namespace {
struct Checks {
  FILE* out;
  int failed = 0;
  void Check(bool ok, const std::string& what) {
    std::fprintf(out, "  %-5s %s\n", ok ? "ok" : "FAIL", what.c_str());
    if (!ok) ++failed;
  }
};

double Growth(long start, long end) {
  return start > 0 ? 100.0 * static_cast<double>(end - start) / static_cast<double>(start) : 0.0;
}

bool WithinGrowth(long start, long end) {
  return static_cast<double>(end) <= static_cast<double>(start) * (1.0 + kRssGrowthAllowed);
}

// RSS holds the allocator's own pages: glibc gives threads up to 8 arenas per core,
// so without a fixed arena count the RSS comparison depends on the machine.
std::string AllocatorText() {
  if (UnderAddressSanitizer()) return "AddressSanitizer's (the memory check compares heap in use, not RSS)";
  const char* t = std::getenv("GLIBC_TUNABLES");
  std::string text = std::string("glibc, GLIBC_TUNABLES=") + (t && *t ? t : "(unset)");
  if (!t || !std::strstr(t, "arena_max"))
    text +=
        "; RSS includes per-thread arenas that grow with the core count "
        "(glibc.malloc.arena_max=1 leaves the program's own memory)";
  return text;
}

const char* ModeText(ChaosMode m) {
  switch (m) {
    case ChaosMode::Simulator:
      return "simulator CHAOS";
    case ChaosMode::Emulated:
      return "emulated by this program (CLOSE, GARBAGE, REBOOT; no stalls)";
    case ChaosMode::Off:
      return "off (--no-chaos)";
  }
  return "?";
}

void PrintFigures(const SoakFigures& f, FILE* out) {
  const EventTotals& e = f.events;
  std::fprintf(out, "\nsoak: %ld sessions on %d simulated devices for %.1f min; chaos: %s\n", f.sessions,
               f.devices, f.chaosSeconds / 60.0, ModeText(f.mode));
  if (!f.chaosLine.empty()) std::fprintf(out, "  command            %s\n", f.chaosLine.c_str());
  std::fprintf(out, "  chaos events       drops=%lld garbage=%lld reboots=%lld stalls=%lld\n", f.chaos.drops,
               f.chaos.garbage, f.chaos.reboots, f.chaos.stalls);
  std::fprintf(out, "  status events      connects(5)=%ld closes(1)=%ld authenticated(6)=%ld\n", e.connects,
               e.closes, e.auths);
  std::fprintf(out, "  failure events     connect failed(0)=%ld bad credentials(2)=%ld auth failed(3)=%ld\n",
               e.connectFailures, e.badCredentials, e.authFailures);
  std::fprintf(out,
               "  reconnects         %ld (authentications after each session's first; %ld of them in the "
               "warm-up)\n",
               e.auths - e.sessionsAuthed, f.warmupReconnects);
  std::fprintf(out, "  crashes            program 0 (it wrote this report), simulator %zu", f.simDeaths.size());
  for (const auto& d : f.simDeaths) std::fprintf(out, " [%s]", d.c_str());
  std::fprintf(out, ", simulator exit status at the end %d\n", f.simExit);
  if (f.lost == 0 && f.simHoldsAll)
    std::fprintf(out, "  lost sessions      0 (all authenticated again %.1f s after chaos stopped)\n",
                 f.recoverSeconds);
  else
    std::fprintf(out, "  lost sessions      %ld (not authenticated again within the %.0f s grace period)\n",
                 f.lost, f.graceSeconds);
  std::fprintf(out,
               "  RSS                start %ld KiB (after the warm-up, before chaos), end %ld KiB "
               "(after the grace period): %+.1f %%\n",
               f.rssStartKiB, f.rssEndKiB, Growth(f.rssStartKiB, f.rssEndKiB));
  std::fprintf(out, "  allocator          %s\n", AllocatorText().c_str());
  std::fprintf(out, "  heap in use        start %ld KiB, end %ld KiB: %+.1f %%%s\n", f.heapStartKiB, f.heapEndKiB,
               Growth(f.heapStartKiB, f.heapEndKiB), UnderAddressSanitizer() ? " (AddressSanitizer's count)" : "");
  std::fprintf(out, "  descriptors        %ld before login, %ld after logout of all\n", f.fdsStart, f.fdsAfter);
  std::fprintf(out, "  threads            %ld before login, %ld after logout of all\n", f.threadsStart,
               f.threadsAfter);
  std::fprintf(out, "  logout of all      %.2f s (QXNet_LogOutDev one by one)\n", f.logoutSeconds);
}
}  // namespace

int PrintSoakReport(const SoakFigures& f, FILE* out) {
  PrintFigures(f, out);
  Checks c{out};
  std::fprintf(out, "checks:\n");
  if (f.mode != ChaosMode::Off)
    c.Check(f.chaos.Total() > 0, "chaos happened (a soak without faults tests nothing)");
  c.Check(f.simDeaths.empty() && f.simExit == 0, "the simulator did not crash and exited cleanly");
  c.Check(f.lost == 0, "no session lost: all authenticated again within the grace period");
  c.Check(f.simHoldsAll, "the simulator holds exactly one authenticated connection per session");
  if (UnderAddressSanitizer())
    c.Check(WithinGrowth(f.heapStartKiB, f.heapEndKiB),
            "heap in use at the end within +5 % of the start (RSS is not comparable under AddressSanitizer: "
            "its quarantine keeps freed memory resident)");
  else
    c.Check(WithinGrowth(f.rssStartKiB, f.rssEndKiB), "RSS at the end within +5 % of the start");
  c.Check(f.fdsAfter == f.fdsStart, "descriptors back to the count before login");
  c.Check(f.threadsAfter == f.threadsStart, "threads back to the count before login");
  c.Check(f.simEmptyAfterLogout, "the simulator saw every connection closed after the logout");
  std::fprintf(out, "soak: %s\n", c.failed == 0 ? "PASS" : "FAIL");
  return c.failed;
}

}  // namespace qxbench
