// ffprobe and ffmpeg as the judges of a written file.
#include "media_verify.h"

#include <cstdlib>

#include "child_process.h"

namespace benchdl {

long PacketCount(const std::string& file, const char* stream, const std::string& workDir) {
  std::string out = workDir + "/ffprobe.out";
  ChildRun r = RunChild({"ffprobe", "-v", "error", "-count_packets", "-select_streams", std::string(stream) + ":0",
                         "-show_entries", "stream=nb_read_packets", "-of", "csv=p=0", file},
                        out, "");
  std::string text = ReadText(out);
  if (r.exitCode != 0 || text.empty() || text[0] < '0' || text[0] > '9') return -1;
  return std::atol(text.c_str());
}

Decoded DecodeFile(const std::string& file, const std::string& workDir) {
  std::string out = workDir + "/decode.progress", err = workDir + "/decode.err";
  // -progress writes "frame=N" blocks; the last one holds the total of video frames.
  ChildRun r = RunChild({"ffmpeg", "-nostdin", "-v", "error", "-i", file, "-f", "null", "-", "-progress", "pipe:1"},
                        out, err);
  Decoded d;
  d.message = ReadText(err).substr(0, 400);
  d.silent = r.exitCode == 0 && d.message.empty();
  std::string progress = ReadText(out);
  size_t at = progress.rfind("frame=");
  if (at != std::string::npos) d.frames = std::atol(progress.c_str() + at + 6);
  return d;
}

}  // namespace benchdl
