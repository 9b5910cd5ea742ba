// Writes 10 minutes of 1080p H.264 + AAC (the clips looped, timestamps rewritten) through
// Mp4Writer, then remuxes the same elementary streams with `ffmpeg -c copy` in the same run.
// Prints MB/s and CPU seconds per GB of each and their ratio; no timed assertions.
#include <sys/resource.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "media/mp4_feed.h"

using namespace mediatest;

namespace {

double cpuSeconds(int who) {
  struct rusage ru;
  getrusage(who, &ru);
  return ru.ru_utime.tv_sec + ru.ru_stime.tv_sec + (ru.ru_utime.tv_usec + ru.ru_stime.tv_usec) / 1e6;
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

long fileSize(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : 0;
}

struct Figure {
  double wall, cpu;
  long bytes;
  double mbs() const { return bytes / 1e6 / wall; }
  double cpuPerGb() const { return cpu / (bytes / 1e9); }
};

void print(const char* name, const Figure& f) {
  std::printf("%-22s %8.1f MB  %6.2f s wall  %6.2f s CPU  %8.1f MB/s  %6.3f CPU s/GB\n", name, f.bytes / 1e6, f.wall,
              f.cpu, f.mbs(), f.cpuPerGb());
}

// The same frames as the writer got, as elementary stream files for ffmpeg.
void writeStreams(const VideoClip& v, const std::vector<Unit>& a, int frames, int audioFrames, const std::string& dir) {
  FILE* fv = std::fopen((dir + "/bench.h264").c_str(), "wb");
  FILE* fa = std::fopen((dir + "/bench.adts").c_str(), "wb");
  for (int i = 0; i < frames; ++i) {
    const Unit& u = v.units[static_cast<size_t>(i) % v.units.size()];
    std::fwrite(u.data.data(), 1, u.data.size(), fv);
  }
  for (int k = 0; k < audioFrames; ++k) {
    const Unit& u = a[static_cast<size_t>(k) % a.size()];
    std::fwrite(u.data.data(), 1, u.data.size(), fa);
  }
  std::fclose(fv);
  std::fclose(fa);
}

}  // namespace

int main(int argc, char** argv) {
  std::string dir = argc > 1 ? argv[1] : ".";
  int seconds = argc > 2 ? std::atoi(argv[2]) : 600;
  VideoClip v = loadVideo("h264_1920x1080");
  std::vector<Unit> aac = loadAudio("aac_16k.adts");
  Feed feed;
  feed.video = &v;
  feed.audio = &aac;
  feed.audioCodec = Mp4Writer::kAudioAac;
  int frames = seconds * 25;

  std::string ours = dir + "/bench_writer.mp4";
  double c0 = cpuSeconds(RUSAGE_SELF), t0 = now();
  Fed fed = writeFile(ours.c_str(), feed, frames);
  Figure w{now() - t0, cpuSeconds(RUSAGE_SELF) - c0, fileSize(ours)};

  writeStreams(v, aac, fed.videoFrames, fed.audioFrames, dir);
  std::string theirs = dir + "/bench_ffmpeg.mp4";
  std::string cmd = "ffmpeg -nostdin -v error -y -framerate 25 -f h264 -i '" + dir + "/bench.h264' -f aac -i '" + dir +
                    "/bench.adts' -c copy -bsf:a aac_adtstoasc -movflags frag_keyframe+empty_moov+default_base_moof+delay_moov '" +
                    theirs + "'";
  c0 = cpuSeconds(RUSAGE_CHILDREN);
  t0 = now();
  int rc = std::system(cmd.c_str());
  Figure f{now() - t0, cpuSeconds(RUSAGE_CHILDREN) - c0, fileSize(theirs)};

  std::printf("%d s of 1080p H.264 + AAC: %d video frames, %d audio frames\n", seconds, fed.videoFrames, fed.audioFrames);
  print("Mp4Writer", w);
  print(rc == 0 ? "ffmpeg -c copy remux" : "ffmpeg -c copy FAILED", f);
  std::printf("CPU/GB ratio (writer / ffmpeg): %.2f (target <= 1.2)\n", w.cpuPerGb() / f.cpuPerGb());
  std::printf("throughput ratio (writer / ffmpeg): %.2f (target >= 1.0)\n", w.mbs() / f.mbs());
  for (const char* n : {"/bench.h264", "/bench.adts", "/bench_writer.mp4", "/bench_ffmpeg.mp4"}) std::remove((dir + n).c_str());
  return rc == 0 ? 0 : 1;
}
