// The machine's raw TCP rate over 127.0.0.1: what any download on loopback is bounded by.
#pragma once

#include "bench_figure.h"

namespace benchdl {

// A thread writes `bytes` as fast as it can to a receiver thread that drops them; the CPU is
// the whole process's (both ends).
Figure LoopbackRate(double bytes);

}  // namespace benchdl
