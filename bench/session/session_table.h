// The session benchmark's table: one row per measure, its target beside it, one
// column per session count; a figure that misses its target is marked MISS.
#pragma once

#include <cstdio>
#include <vector>

#include "session_batch.h"

namespace qxbench {

// Targets of the session worker.
constexpr double kTargetAuthSeconds = 10.0;
constexpr double kTargetIdleCpuPct = 5.0;
constexpr double kTargetKiBPerSession = 64.0;
constexpr double kTargetLogoutSeconds = 2.0;

void PrintSessionTable(const std::vector<BatchResult>& results, FILE* out);

}  // namespace qxbench
