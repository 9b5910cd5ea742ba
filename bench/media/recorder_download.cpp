// qxnet downloading a span from the simulated recorder, timed and checked.
#include "recorder_download.h"

#include <cstdlib>
#include <ctime>

#include "child_process.h"
#include "proc_stats.h"

namespace benchdl {

std::unique_ptr<qxtest::DevSim> StartRecorder(std::string& err) {
  auto sim = std::make_unique<qxtest::DevSim>(std::vector<std::string>{
      "--account", "admin:admin", "--set", "rec_video=h264", "--set", "rec_size=1920x1080", "--set", "rec_audio=aac",
      "--set", "rec_pace=fast", "--quiet"});
  if (!sim->ok()) return err = "simulator did not start: " + sim->error(), nullptr;
  // One span over the whole day, so that the ten minutes asked for hold no gap.
  std::string reply = sim->cmd("RECSPANS 1 000000-235959");
  if (reply.rfind("OK", 0) != 0) return err = "RECSPANS: " + reply, nullptr;
  return sim;
}

std::string RecordingDay(int channel) {
  std::time_t t = std::time(nullptr);
  std::tm day {};
  localtime_r(&t, &day);
  // The simulator leaves every ninth day of the month empty, shifted by the channel.
  if ((day.tm_mday + channel) % 9 == 0) {
    t -= 24 * 3600;
    localtime_r(&t, &day);
  }
  char text[16];
  std::strftime(text, sizeof text, "%Y%m%d", &day);
  return text;
}

namespace {

// The value of key=VALUE in a RECSTREAM reply; -1 when absent.
long long ReplyNumber(const std::string& reply, const std::string& key) {
  size_t at = reply.find(" " + key + "=");
  return at == std::string::npos ? -1 : std::atoll(reply.c_str() + at + key.size() + 2);
}

std::string CheckFile(Download& d, const std::string& file, const std::string& workDir) {
  d.pictures = PacketCount(file, "v", workDir);
  d.audioPackets = PacketCount(file, "a", workDir);
  if (d.pictures != d.sentPictures)
    return std::to_string(d.pictures) + " pictures in the file, the simulator sent " + std::to_string(d.sentPictures);
  d.decoded = DecodeFile(file, workDir);
  if (!d.decoded.silent) return "ffmpeg did not decode it silently: " + d.decoded.message;
  if (d.decoded.frames != d.sentPictures) return "ffmpeg decoded " + std::to_string(d.decoded.frames) + " pictures";
  return "";
}

}  // namespace

Download RunDownload(qxtest::DevSim& sim, const std::string& qxnet, const std::string& start, const std::string& end,
                     const std::string& workDir) {
  Download d;
  std::string file = workDir + "/download.mp4";
  double sim0 = qxbench::CpuSecondsOf(sim.pid());
  ChildRun r = RunChild({qxnet, "127.0.0.1", std::to_string(sim.port()), "admin", "admin", "download", "1", start, end,
                         file, "--timeout", "600"},
                        workDir + "/qxnet.out", workDir + "/qxnet.err");
  d.simulatorCpu = qxbench::CpuSecondsOf(sim.pid()) - sim0;
  std::string stream = sim.cmd("RECSTREAM");
  d.sentPictures = static_cast<long>(ReplyNumber(stream, "video_in_span"));
  d.file = Figure{r.wall, static_cast<double>(FileBytes(file)), r.cpu, false};
  d.received = Figure{r.wall, static_cast<double>(ReplyNumber(stream, "bytes")), r.cpu, false};
  if (r.exitCode != 0)
    d.failure = "qxnet ended with " + std::to_string(r.exitCode) + ": " + ReadText(workDir + "/qxnet.err").substr(0, 400);
  else if (stream.rfind("OK", 0) != 0)
    d.failure = "RECSTREAM: " + stream;
  else
    d.failure = CheckFile(d, file, workDir);
  d.file.ok = d.received.ok = d.failure.empty();
  return d;
}

}  // namespace benchdl
