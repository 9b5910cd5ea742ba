// One measured transfer of the download benchmark: time, bytes and CPU.
#pragma once

namespace benchdl {

struct Figure {
  double wall = 0;        // seconds
  double bytes = 0;       // payload bytes moved or written
  double cpu = 0;         // CPU seconds of the measured process
  bool ok = false;        // ran to its end and passed its checks
  double mbs() const { return wall > 0 ? bytes / 1e6 / wall : 0; }
  double cpuPerGb() const { return bytes > 0 ? cpu / (bytes / 1e9) : 0; }
};

}  // namespace benchdl
