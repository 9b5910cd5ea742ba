// Recorder download as a user runs it, beside two yardsticks, in one run:
//   1. `qxnet download` of a span of 1080p H.264 + AAC from qxdevsim streaming as fast as
//      the socket takes: wall time, MB/s of the MP4 and of the payload received, CPU of qxnet
//      and of the simulator; the file is then probed and decoded (a bad file fails the run);
//   2. ffmpeg's `-c copy` remux of the same media into a fragmented MP4;
//   3. raw TCP over 127.0.0.1;
//   4. replay through the library into a callback that only counts.
// Figures and ratios only: nothing about time is asserted. Exit 1 when a check fails.
//
//   bench_download [SECONDS] [--runs N]   (600: ten minutes, 15,000 pictures; 3 runs)
//
// The download and the remux both write a gigabyte through the page cache, whose cost on a
// shared virtual machine swings by 2x from one run to the next. So they run N times each,
// alternately, every run checked; the table shows the median run of each by CPU per GB, and
// every run is listed below it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "loopback_rate.h"
#include "recorder_download.h"
#include "remux_anchor.h"
#include "replay_rate.h"

#ifndef QXNET_CLI_PATH
#error "the build names the qxnet program"
#endif

using namespace benchdl;

namespace {

constexpr int kStartSecond = 600;  // 00:10:00, inside the all-day span set on the simulator

std::string TimeOfDay(const std::string& day, int second) {
  char t[16];
  std::snprintf(t, sizeof t, "%02d%02d%02d", second / 3600 % 100, second / 60 % 60, second % 60);
  return day + t;
}

std::string LoadAverage(const std::string& workDir) {
  RunChild({"uptime"}, workDir + "/uptime.out", "");
  std::string text = ReadText(workDir + "/uptime.out");
  size_t at = text.find("load average");
  return at == std::string::npos ? "unknown" : text.substr(at, text.find('\n', at) - at);
}

void Row(const char* name, const Figure& f, const std::string& note) {
  std::printf("%-34s %8.2f %9.1f %8.1f %8.2f %9.3f  %s\n", name, f.wall, f.bytes / 1e6, f.mbs(), f.cpu, f.cpuPerGb(),
              note.c_str());
}

void CpuRow(const char* name, double cpu, double bytes) {
  std::printf("%-34s %8s %9s %8s %8.2f %9.3f  per GB of payload\n", name, "-", "-", "-", cpu,
              bytes > 0 ? cpu / (bytes / 1e9) : 0);
}

void PrintTable(const Download& d, const Remux& m, const Figure& tcp, const Replay& r) {
  std::printf("\n%-34s %8s %9s %8s %8s %9s  %s\n", "", "wall s", "MB", "MB/s", "CPU s", "CPU s/GB", "");
  Row("qxnet download: MP4 written", d.file, std::to_string(d.pictures) + " pictures");
  Row("qxnet download: payload received", d.received, "media bytes the simulator sent");
  CpuRow("qxdevsim while downloading", d.simulatorCpu, d.received.bytes);
  Row("anchor 1: ffmpeg -c copy remux", m.out, std::to_string(m.pictures) + " pictures");
  Row("anchor 2: loopback TCP", tcp, "sender and receiver threads");
  char fps[64];
  std::snprintf(fps, sizeof fps, "%.0f frames/s, %ld pictures", r.fps(), r.pictures);
  Row("replay, counting callback", r.delivered, fps);
  CpuRow("qxdevsim while replaying", r.simulatorCpu, r.delivered.bytes);
  std::printf("\nratios\n");
  std::printf("  download / remux, MB/s of MP4 written:      %6.2f\n", d.file.mbs() / m.out.mbs());
  std::printf("  download / remux, CPU s per GB of MP4:      %6.2f\n", d.file.cpuPerGb() / m.out.cpuPerGb());
  std::printf("  download / loopback TCP, MB/s of payload:   %6.3f\n", d.received.mbs() / tcp.mbs());
}

// One line per check; false when any failed.
bool PrintChecks(const Download& d, const Remux& m, const Figure& tcp, const Replay& r) {
  auto line = [](const char* what, const std::string& failure, const std::string& good) {
    std::printf("  %-9s %s\n", what, failure.empty() ? ("ok: " + good).c_str() : ("FAILED: " + failure).c_str());
    return failure.empty();
  };
  std::printf("\nchecks\n");
  bool ok = line("download", d.failure,
                 std::to_string(d.pictures) + " pictures (ffprobe) = " + std::to_string(d.sentPictures) +
                     " sent in the span, " + std::to_string(d.audioPackets) + " audio frames; ffmpeg decoded " +
                     std::to_string(d.decoded.frames) + " pictures without a message");
  ok &= line("remux", m.failure,
             std::to_string(m.pictures) + " pictures, " + std::to_string(m.audioPackets) + " audio frames, as the input");
  ok &= line("loopback", tcp.ok ? "" : "fewer bytes arrived than were sent", "every byte arrived");
  ok &= line("replay", r.failure, std::to_string(r.pictures) + " pictures, " + std::to_string(r.audioFrames) + " audio frames");
  return ok;
}

// The run whose CPU per GB is the median of all (the lower middle for an even count).
template <typename Run>
const Run& Median(const std::vector<Run>& runs, const Figure Run::*figure) {
  std::vector<size_t> order(runs.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return (runs[a].*figure).cpuPerGb() < (runs[b].*figure).cpuPerGb(); });
  return runs[order[(order.size() - 1) / 2]];
}

void PrintRuns(const std::vector<Download>& downloads, const std::vector<Remux>& remuxes) {
  std::printf("\nevery run, in the order run (CPU s/GB, MB/s of MP4 written)\n");
  for (size_t i = 0; i < downloads.size(); ++i)
    std::printf("  run %zu: download %6.3f %7.1f   remux %6.3f %7.1f   CPU ratio %5.2f\n", i + 1,
                downloads[i].file.cpuPerGb(), downloads[i].file.mbs(),
                i < remuxes.size() ? remuxes[i].out.cpuPerGb() : 0.0, i < remuxes.size() ? remuxes[i].out.mbs() : 0.0,
                i < remuxes.size() && remuxes[i].out.cpuPerGb() > 0
                    ? downloads[i].file.cpuPerGb() / remuxes[i].out.cpuPerGb()
                    : 0.0);
}

// The first failure among the runs, or empty.
template <typename Run>
std::string FirstFailure(const std::vector<Run>& runs) {
  for (size_t i = 0; i < runs.size(); ++i)
    if (!runs[i].failure.empty()) return "run " + std::to_string(i + 1) + ": " + runs[i].failure;
  return "";
}

bool ParseArgs(int argc, char** argv, int* seconds, int* runs) {
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--runs") && i + 1 < argc) *runs = std::atoi(argv[++i]);
    else if (argv[i][0] != '-') *seconds = std::atoi(argv[i]);
    else return false;
  }
  return *seconds > 0 && kStartSecond + *seconds < 24 * 3600 && *runs > 0 && *runs <= 20;
}

}  // namespace

int main(int argc, char** argv) {
  int seconds = 600, runs = 3;
  if (!ParseArgs(argc, argv, &seconds, &runs)) {
    std::fprintf(stderr, "usage: bench_download [SECONDS] [--runs N]   (SECONDS 1..%d, default 600; N 1..20, default 3)\n",
                 24 * 3600 - kStartSecond - 1);
    return 2;
  }
  std::string err;
  std::unique_ptr<qxtest::DevSim> sim = StartRecorder(err);
  if (!sim) return std::fprintf(stderr, "bench_download: %s\n", err.c_str()), 1;
  const std::string work = sim->tempDir(), day = RecordingDay(1);
  const std::string start = TimeOfDay(day, kStartSecond), end = TimeOfDay(day, kStartSecond + seconds);
  std::printf("recorder download: %d s of 1080p H.264 + AAC, channel 1, %s to %s, %d runs each\n", seconds,
              start.c_str(), end.c_str(), runs);
  std::printf("before the run: %s\n", LoadAverage(work).c_str());
  std::fflush(stdout);

  std::vector<Download> downloads{RunDownload(*sim, QXNET_CLI_PATH, start, end, work)};
  std::remove((work + "/download.mp4").c_str());
  // The anchor remuxes what the download wrote: the same pictures and audio frames.
  const Download& first = downloads[0];
  long pictures = first.failure.empty() ? first.pictures : static_cast<long>(seconds) * 25;
  long audioFrames = first.failure.empty() ? first.audioPackets : (seconds * 1000L + 63) / 64;
  RemuxInput in = MakeRemuxInput(pictures, audioFrames, work);
  std::vector<Remux> remuxes;
  for (int i = 0; i < runs; ++i) {
    if (i > 0) downloads.push_back(RunDownload(*sim, QXNET_CLI_PATH, start, end, work));
    std::remove((work + "/download.mp4").c_str());
    Remux m;
    if (in.failure.empty()) m = RunRemux(in, work);
    else m.failure = in.failure;
    remuxes.push_back(m);
    std::remove((work + "/remux.mp4").c_str());
  }
  Figure tcp = LoopbackRate(first.received.bytes > 0 ? first.received.bytes : 1e9);
  Replay r = RunReplay(*sim, start, static_cast<long>(seconds) * 25);

  Download d = Median(downloads, &Download::file);
  Remux m = Median(remuxes, &Remux::out);
  PrintTable(d, m, tcp, r);
  PrintRuns(downloads, remuxes);
  // Every run must have passed its checks, not only the median one shown.
  d.failure = FirstFailure(downloads);
  m.failure = FirstFailure(remuxes);
  bool ok = PrintChecks(d, m, tcp, r);
  std::printf("after the run: %s\n", LoadAverage(work).c_str());
  return ok ? 0 : 1;
}
