#include "session_table.h"

#include <functional>
#include <string>

namespace qxbench {

namespace {
using Cell = std::function<std::string(const BatchResult&)>;

std::string Fmt(const char* format, double a, double b = 0) {
  char buf[64];
  std::snprintf(buf, sizeof buf, format, a, b);
  return buf;
}

// A figure with its verdict against an upper bound.
std::string Bounded(const char* format, double value, double bound, bool valid = true) {
  return Fmt(format, value) + (valid && value <= bound ? " ok" : " MISS");
}

std::string CpuPair(double self, double simulator) {
  return Fmt("%.2f / ", self) + (simulator < 0 ? std::string("-") : Fmt("%.2f", simulator));
}

void Row(FILE* out, const char* name, const char* target, const std::vector<BatchResult>& rs, const Cell& cell) {
  std::fprintf(out, "%-44s %-12s", name, target);
  for (const auto& r : rs) std::fprintf(out, " %20s", cell(r).c_str());
  std::fprintf(out, "\n");
}
}  // namespace

void PrintSessionTable(const std::vector<BatchResult>& rs, FILE* out) {
  std::fprintf(out, "\n%-44s %-12s", "measure", "target");
  for (const auto& r : rs) std::fprintf(out, " %20s", ("N=" + std::to_string(r.n)).c_str());
  std::fprintf(out, "\n");
  Row(out, "sessions authenticated", "all", rs, [](const BatchResult& r) {
    return std::to_string(r.authenticated) + "/" + std::to_string(r.n) +
           (r.authenticated == r.n ? " ok" : " MISS");
  });
  Row(out, "time until all authenticated (s)", "<= 10", rs, [](const BatchResult& r) {
    return Bounded("%.2f", r.authSeconds, kTargetAuthSeconds, r.authenticated == r.n);
  });
  Row(out, "failure events (0, 2, 3)", "0", rs, [](const BatchResult& r) { return Fmt("%.0f", r.failures); });
  Row(out, "idle CPU, whole process (% of one core)", "<= 5", rs,
      [](const BatchResult& r) { return Bounded("%.2f", r.idleCpuPct, kTargetIdleCpuPct); });
  Row(out, "  simulator child in the same window (%)", "", rs, [](const BatchResult& r) {
    return r.simIdleCpuPct < 0 ? std::string("-") : Fmt("%.2f", r.simIdleCpuPct);
  });
  Row(out, "  bare floor of the same wait, N threads (%)", "", rs, [](const BatchResult& r) {
    if (!r.floor.ran) return std::string("-");
    return Fmt("%.2f", r.floor.cpuPct) + (r.floor.ready == r.n ? "" : " (not all ready)");
  });
  Row(out, "  library / floor", "", rs, [](const BatchResult& r) {
    return r.floor.ran && r.floor.cpuPct > 0 ? Fmt("%.2f", r.idleCpuPct / r.floor.cpuPct) : std::string("-");
  });
  Row(out, "idle window (s)", "", rs, [](const BatchResult& r) { return Fmt("%.1f", r.idleSeconds); });
  Row(out, "heartbeats answered in the window", "", rs,
      [](const BatchResult& r) { return Fmt("%.0f", static_cast<double>(r.heartbeats)); });
  Row(out, "resident memory per idle session (KiB)", "<= 64", rs,
      [](const BatchResult& r) { return Bounded("%.1f", r.rssKiBPerSession, kTargetKiBPerSession); });
  Row(out, "threads idle (total / per session)", "", rs, [](const BatchResult& r) {
    return Fmt("%.0f / %.2f", static_cast<double>(r.threadsIdle), r.threadsPerSession);
  });
  Row(out, "descriptors idle (total / per session)", "", rs,
      [](const BatchResult& r) { return Fmt("%.0f / %.2f", static_cast<double>(r.fdsIdle), r.fdsPerSession); });
  Row(out, "logout of all, LogOutDev one by one (s)", "<= 2", rs, [](const BatchResult& r) {
    return Bounded("%.2f", r.logoutSeconds, kTargetLogoutSeconds, r.simEmptyAfterLogout) +
           (r.simEmptyAfterLogout ? "" : " (left open)");
  });
  Row(out, "  CPU meanwhile: process / simulator (s)", "", rs,
      [](const BatchResult& r) { return CpuPair(r.logoutCpu, r.logoutSimCpu); });
  Row(out, "second batch: all authenticated (s)", "", rs, [](const BatchResult& r) {
    return Fmt("%.2f", r.secondAuthSeconds) + (r.secondAuthenticated == r.n ? "" : " (not all)");
  });
  Row(out, "logout of all, QXNet_Free alone (s)", "<= 2", rs, [](const BatchResult& r) {
    return Bounded("%.2f", r.freeSeconds, kTargetLogoutSeconds, r.simEmptyAfterFree) +
           (r.simEmptyAfterFree ? "" : " (left open)");
  });
  Row(out, "  CPU meanwhile: process / simulator (s)", "", rs,
      [](const BatchResult& r) { return CpuPair(r.freeCpu, r.freeSimCpu); });
  for (const auto& r : rs)
    if (!r.simEmptyAfterLogout || !r.simEmptyAfterFree) {
      std::fprintf(out, "(\"left open\": the simulator still had connections 30 s after the logout)\n");
      break;
    }
}

}  // namespace qxbench
