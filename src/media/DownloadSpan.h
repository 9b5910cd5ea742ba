// The state of one recorder download: what was asked for and how far the frames got.
// Set by the request (an application thread), read and moved on by the session's worker.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

namespace media {

struct DownloadSpan {
  std::atomic<bool> active{false};
  std::atomic<bool> endReached{false};
  char path[1024] = {0};
  uint32_t start = 0;  // milliseconds since midnight
  uint32_t end = 0;
  int32_t firstTick = -1;  // first video frame_timestamp; -1 = none yet
  int32_t lastVideoTick = 0;
  int32_t lastSplitTick = 0;
  int32_t progress = 0;
  // One attempt to create the file per download: a failed create leaves the download
  // running without a file instead of retrying on every pack.
  bool createTried = false;
  // Moves on with each request, so that a file left open by an earlier download (whose
  // stop answer never came) is closed before the next one writes.
  std::atomic<uint32_t> generation{0};

  // What a new download request resets (before it is sent).
  void Begin(const char* file, uint32_t startMs, uint32_t endMs) {
    endReached = false;
    std::memset(path, 0, sizeof(path));
    if (file) std::strncpy(path, file, sizeof(path) - 1);
    start = startMs;
    end = endMs;
    firstTick = -1;
    lastVideoTick = 0;
    lastSplitTick = 0;
    createTried = false;
    ++generation;
  }
  // The fields the stop procedure clears.
  void Stop() {
    active = false;
    std::memset(path, 0, sizeof(path));
    progress = 0;
    start = 0;
    end = 0;
  }
};

}  // namespace media
