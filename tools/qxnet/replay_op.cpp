// replay CHANNEL START [--seconds N]: frames per second, bitrate and codecs, once a second.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "QXNetSDK.h"
#include "cli_args.h"
#include "device_ops.h"
#include "exit_codes.h"
#include "json_out.h"
#include "session_wait.h"

namespace {

// Replayed frames, counted by the replay data callback (the session's worker thread).
struct ReplayCount {
  std::atomic<long> video{0}, audio{0}, bytes{0};
  std::atomic<int> videoType{-1}, audioType{-1};
} g_replay;

long OnReplayData(long, unsigned long type, unsigned char*, unsigned long length, FRAME_EXTDATA* ext) {
  if (type == QXNET_REPLAY_PARAM_AV || type == QXNET_REPLAY_PARAM_VIDEO || type == QXNET_REPLAY_PARAM_AUDIO)
    return 0;
  bool video = type == 0 || type == 2;  // stream types 0 and 2 are video
  (video ? g_replay.video : g_replay.audio)++;
  g_replay.bytes += static_cast<long>(length);
  if (ext) (video ? g_replay.videoType : g_replay.audioType) = static_cast<int>(ext->payload_type);
  return 0;
}

const char* CodecName(int payloadType, bool video) {
  if (payloadType < 0) return "-";
  if (video) return payloadType == 96 ? "H.264" : payloadType == 201 ? "H.265" : "video?";
  return payloadType == 0 ? "G.711u" : payloadType == 8 ? "G.711a" : payloadType == 97 ? "AAC" : "audio?";
}

void PrintSecond(double elapsed, long fps, double kbps) {
  const char* v = CodecName(g_replay.videoType, true);
  const char* au = CodecName(g_replay.audioType, false);
  if (JsonOutput())
    std::printf("%s\n", JsonObject().Int("second", static_cast<long>(elapsed + 0.5)).Int("fps", fps)
                            .Real("kbit_per_s", kbps).Str("video", v).Str("audio", au).Text().c_str());
  else
    std::printf("%5.0f s  %3ld fps  %7.1f kbit/s  video %s  audio %s\n", elapsed, fps, kbps, v, au);
  std::fflush(stdout);
}

void PrintTotals() {
  long v = g_replay.video.load(), au = g_replay.audio.load();
  if (JsonOutput())
    std::printf("%s\n", JsonObject().Int("video_frames", v).Int("audio_frames", au).Text().c_str());
  else
    std::printf("replay: %ld video frames, %ld audio frames\n", v, au);
}

}  // namespace

int RunReplay(const OpArgs& a) {
  double seconds = 10;
  if (a.Arg(3)) ParseSeconds(a.Arg(4), &seconds);
  static int user = 0;
  QXNet_Loc_SetReplayDataCallBack(OnReplayData, &user);
  std::string start = a.Arg(2);
  long ch = std::atol(a.Arg(1));
  long rc = QXNet_Loc_NVRReplayByTime(a.id, ch, &start[0]);
  if (rc != 0) return LibraryRefused("replay", rc);
  double t0 = Now();
  long lastV = 0, lastB = 0;
  while (!g_stop && Now() - t0 < seconds) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    long v = g_replay.video, b = g_replay.bytes;
    PrintSecond(Now() - t0, v - lastV, (b - lastB) * 8 / 1000.0);
    lastV = v;
    lastB = b;
  }
  QXNet_Loc_ControlNVRReplay(a.id, ch, 3, 0, nullptr);
  QXNet_Loc_SetReplayDataCallBack(nullptr, &user);
  PrintTotals();
  return g_replay.video > 0 ? kExitOk : kExitRefused;
}
