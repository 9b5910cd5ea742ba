// Replayed frames counted by the data callback; the clock stops at the last frame wanted.
#include "replay_rate.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "QXNetSDK.h"
#include "child_process.h"
#include "proc_stats.h"

namespace benchdl {

namespace {

constexpr unsigned long kVideoStream = 0;  // the frame's stream type: 0 video, 1 audio
constexpr unsigned long kAudioStream = 1;
constexpr int kTimeoutSeconds = 900;

std::atomic<bool> g_authenticated{false};
std::atomic<long> g_video{0}, g_audio{0}, g_target{0};
std::atomic<long long> g_bytes{0}, g_bytesAt{0};
std::atomic<long> g_audioAt{0};
std::atomic<double> g_doneAt{0}, g_cpuAt{0};

long OnStatus(long, long code, char*, void*) {
  if (code == QXNET_EV_AUTHENTICATED) g_authenticated = true;
  return 0;
}

long OnReplayData(long, unsigned long type, unsigned char*, unsigned long length, FRAME_EXTDATA*) {
  if (type != kVideoStream && type != kAudioStream) return 0;  // stream-parameter records
  g_bytes += static_cast<long long>(length);
  if (type == kAudioStream) {
    g_audio++;
  } else if (++g_video == g_target) {
    g_bytesAt = g_bytes.load();
    g_audioAt = g_audio.load();
    g_cpuAt = SelfCpuSeconds();
    g_doneAt = NowSeconds();
  }
  return 0;
}

bool WaitFlag(const std::function<bool()>& done, double seconds) {
  double end = NowSeconds() + seconds;
  while (!done() && NowSeconds() < end) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  return done();
}

long Login(qxtest::DevSim& sim) {
  g_authenticated = false;
  static int user = 0;  // callbacks are registered per user pointer, which must not be null
  if (QXNet_SetStatusEventCallBack(OnStatus, &user) != 0) return 0;
  long id = QXNet_Loc_LoginDev(const_cast<char*>("127.0.0.1"), sim.port(), const_cast<char*>("admin"),
                               const_cast<char*>("admin"), nullptr);
  return id > 0 && WaitFlag([] { return g_authenticated.load(); }, 30) ? id : 0;
}

}  // namespace

Replay RunReplay(qxtest::DevSim& sim, const std::string& start, long pictures) {
  Replay r;
  QXNet_init();
  long id = Login(sim);
  if (!id) {
    QXNet_Free();
    return r.failure = "login to the simulator failed", r;
  }
  g_target = pictures;
  static int user = 0;
  QXNet_Loc_SetReplayDataCallBack(OnReplayData, &user);
  std::string time = start;
  double sim0 = qxbench::CpuSecondsOf(sim.pid()), c0 = SelfCpuSeconds(), t0 = NowSeconds();
  long rc = QXNet_Loc_NVRReplayByTime(id, 1, &time[0]);
  bool done = rc == 0 && WaitFlag([] { return g_doneAt.load() > 0; }, kTimeoutSeconds);
  r.delivered.cpu = (done ? g_cpuAt.load() : SelfCpuSeconds()) - c0;
  r.simulatorCpu = qxbench::CpuSecondsOf(sim.pid()) - sim0;
  r.delivered.wall = (done ? g_doneAt.load() : NowSeconds()) - t0;
  // What had arrived when the last picture wanted did: the clock stopped there.
  r.delivered.bytes = static_cast<double>(done ? g_bytesAt.load() : g_bytes.load());
  r.pictures = done ? g_target.load() : g_video.load();
  r.audioFrames = done ? g_audioAt.load() : g_audio.load();
  QXNet_Loc_ControlNVRReplay(id, 1, 3, 0, nullptr);  // 3: stop
  QXNet_Loc_SetReplayDataCallBack(nullptr, &user);
  QXNet_LogOutDev(id);
  QXNet_Free();
  if (rc != 0) r.failure = "QXNet_Loc_NVRReplayByTime returned " + std::to_string(rc);
  else if (!done) r.failure = "only " + std::to_string(r.pictures) + " pictures in " + std::to_string(kTimeoutSeconds) + " s";
  r.delivered.ok = r.failure.empty();
  return r;
}

}  // namespace benchdl
