#include "progress.h"

#include <unistd.h>

#include <cstdio>

#include "session_wait.h"

void ProgressBar(const char* what, int pct, double totalBytes) {
  static double started = 0, lastLine = -10;
  static int lastPct = -1;
  double now = Now();
  if (pct <= 0 || started == 0) started = now;
  int w = pct < 0 ? 0 : (pct > 100 ? 100 : pct);
  char extra[96] = "";
  double took = now - started;
  if (w > 0 && took > 0.2) {
    double left = took * (100 - w) / w;
    if (totalBytes > 0)
      std::snprintf(extra, sizeof extra, "  %.1f MB/s  %.0f s left", totalBytes * w / 100 / took / 1e6, left);
    else
      std::snprintf(extra, sizeof extra, "  %.0f s left", left);
  }
  if (!isatty(fileno(stderr))) {
    if (w == lastPct || (w < 100 && now - lastLine < 1.0)) return;
    lastLine = now;
    lastPct = w;
    std::fprintf(stderr, "%s %d%%%s\n", what, w, extra);
    return;
  }
  char bar[41];
  for (int i = 0; i < 40; ++i) bar[i] = i < w * 40 / 100 ? '#' : ' ';
  bar[40] = 0;
  std::fprintf(stderr, "\r%s [%s] %3d%%%s", what, bar, w, extra);
  if (w >= 100) std::fprintf(stderr, "\n");
}
