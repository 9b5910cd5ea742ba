// ffmpeg's -c copy remux of a recorder-like stream, with its input cached between runs.
#include "remux_anchor.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "child_process.h"
#include "media/media_clips.h"
#include "media_verify.h"

namespace benchdl {

namespace {

constexpr int kVideoFps = 25;

std::string CacheDir() {
  const char* xdg = std::getenv("XDG_CACHE_HOME");
  const char* home = std::getenv("HOME");
  std::string base = xdg && *xdg ? xdg : std::string(home ? home : "/tmp") + "/.cache";
  for (const std::string& d : {base, base + "/qxnetsdk", base + "/qxnetsdk/bench-v1"}) mkdir(d.c_str(), 0755);
  return base + "/qxnetsdk/bench-v1";
}

bool WriteUnits(const std::string& path, const std::vector<mediatest::Unit>& units, long count) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = true;
  for (long i = 0; i < count && ok && !units.empty(); ++i) {
    const mediatest::Unit& u = units[static_cast<size_t>(i) % units.size()];
    ok = std::fwrite(u.data.data(), 1, u.data.size(), f) == u.data.size();
  }
  return std::fclose(f) == 0 && ok && !units.empty();
}

// The elementary streams into an MPEG-TS at `ts`; the raw H.264 demuxer takes 25 fps.
std::string BuildTs(const RemuxInput& in, const std::string& ts) {
  std::string stem = ts;
  std::string h264 = stem + ".h264", adts = stem + ".adts";
  std::string failure;
  mediatest::VideoClip video;
  std::vector<mediatest::Unit> audio;
  try {
    video = mediatest::loadVideo("h264_1920x1080");
    audio = mediatest::loadAudio("aac_16k.adts");
  } catch (const std::exception& e) {
    return std::string("clips: ") + e.what() + " (scripts/make-clips makes them)";
  }
  if (!WriteUnits(h264, video.units, in.pictures) || !WriteUnits(adts, audio, in.audioFrames))
    failure = "cannot write the elementary streams beside " + ts;
  else if (RunChild({"ffmpeg", "-nostdin", "-v", "error", "-y", "-framerate", std::to_string(kVideoFps), "-f", "h264",
                     "-i", h264, "-f", "aac", "-i", adts, "-c", "copy", "-f", "mpegts", ts},
                    "", stem + ".err").exitCode != 0)
    failure = "ffmpeg could not build " + ts + ": " + ReadText(stem + ".err").substr(0, 400);
  for (const std::string& p : {h264, adts, stem + ".err"}) std::remove(p.c_str());
  return failure;
}

}  // namespace

RemuxInput MakeRemuxInput(long pictures, long audioFrames, const std::string& workDir) {
  RemuxInput in;
  in.pictures = pictures;
  in.audioFrames = audioFrames;
  in.path = CacheDir() + "/h264_1920x1080_" + std::to_string(pictures) + "v_aac_" + std::to_string(audioFrames) + "a.ts";
  if (FileBytes(in.path) > 0) return in;
  // A name of this process's own, so that two runs building at once do not share a file.
  std::string building = in.path + "." + std::to_string(getpid()) + ".part";
  in.failure = BuildTs(in, building);
  // Kept only when whole: a cut input would make the anchor look faster than it is.
  long v = in.failure.empty() ? PacketCount(building, "v", workDir) : -1;
  long a = in.failure.empty() ? PacketCount(building, "a", workDir) : -1;
  if (in.failure.empty() && (v != in.pictures || a != in.audioFrames))
    in.failure = "built input holds " + std::to_string(v) + " pictures and " + std::to_string(a) + " audio frames";
  if (in.failure.empty() && std::rename(building.c_str(), in.path.c_str()) != 0) in.failure = "cannot rename " + building;
  if (!in.failure.empty()) std::remove(building.c_str());
  return in;
}

Remux RunRemux(const RemuxInput& in, const std::string& workDir) {
  Remux r;
  std::string out = workDir + "/remux.mp4", err = workDir + "/remux.err";
  // The same fragmenting as the library's writer; ADTS headers become the AudioSpecificConfig.
  ChildRun c = RunChild({"ffmpeg", "-nostdin", "-v", "error", "-y", "-i", in.path, "-c", "copy", "-bsf:a",
                         "aac_adtstoasc", "-movflags", "+frag_keyframe+empty_moov+default_base_moof", out},
                        "", err);
  r.out = Figure{c.wall, static_cast<double>(FileBytes(out)), c.cpu, false};
  r.pictures = PacketCount(out, "v", workDir);
  r.audioPackets = PacketCount(out, "a", workDir);
  if (c.exitCode != 0 || !ReadText(err).empty())
    r.failure = "ffmpeg ended with " + std::to_string(c.exitCode) + ": " + ReadText(err).substr(0, 400);
  else if (r.pictures != in.pictures || r.audioPackets != in.audioFrames)
    r.failure = "remuxed file holds " + std::to_string(r.pictures) + " pictures and " +
                std::to_string(r.audioPackets) + " audio frames";
  r.out.ok = r.failure.empty();
  return r;
}

}  // namespace benchdl
