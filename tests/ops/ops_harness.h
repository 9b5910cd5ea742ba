// Device side of a session for the device-operation tests: the far end of a socket pair
// read by its own thread (uploads write megabytes, more than a socket buffer holds), plus
// builders for the texts that travel and small file helpers.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ops/ops_files.h"
#include "session/DevComControl.h"

namespace opstest {

// The request text a session queues (envelope buffer form, no channel).
std::string Request(const std::string& type, const std::string& cmd, const std::string& result,
                    const std::string& body);
// An answer as a device sends it; `bodyElement` is put verbatim between head and end tag.
std::string Answer(const std::string& type, const std::string& cmd, const std::string& result,
                   const std::string& bodyElement);
// A configuration-file data answer: the text, its NUL and three more zero bytes, the data.
std::string DataAnswer(long startPos, long dataLength, const std::string& data);

// Chunk header of an upload, with the command of its kind.
std::string ChunkHeader(int cmd, long startPos, long dataLength);
// Event text of an upload that the device refused or whose file could not be opened.
std::string OpenFailedText(int fileType, const std::string& path);

extern const char kCancelText[];

// True when this process holds a descriptor open on `path`.
bool ProcessHoldsOpen(const std::string& path);

// A path of exactly `length` characters under `dir`, its directories made (the file is not).
std::string LongPath(const std::string& dir, size_t length);

// A fresh directory under the system temp dir, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Reads frames (flag, length, payload) from the device end until it closes.
class Peer {
 public:
  explicit Peer(int fd);
  ~Peer();
  // Waits until at least n frames have arrived.
  bool WaitFrames(size_t n, int timeoutMs);
  size_t Count();
  std::vector<std::string> Payloads();
  std::string Payload(size_t i);
  std::vector<uint32_t> Flags();
  // Stops and resumes reading (a device that stops taking data).
  void Pause() { paused_ = true; }
  void Resume() { paused_ = false; }
  // Shuts both directions of the device end and stops reading: the session's next send fails.
  void Shutdown();
  int fd() const { return fd_; }

 private:
  void Run();
  int fd_;
  std::atomic<bool> paused_{false};
  std::atomic<bool> stop_{false};
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<std::string> payloads_;
  std::vector<uint32_t> flags_;
  std::thread reader_;
};

// A TCP listener on 127.0.0.1, on a port the system chooses: a device that only accepts.
class LoopbackListener {
 public:
  LoopbackListener();
  ~LoopbackListener();
  int port() const { return port_; }
  // The next connection within `timeoutMs` (the caller closes it), or -1.
  int Accept(int timeoutMs);

 private:
  int fd_ = -1;
  int port_ = 0;
};

// Sends the one request queued on `dev` and returns the payload of the frame that the
// device end read.
std::string SendOne(CDevComControl* dev, Peer* peer);

// A session without a worker whose socket is the near end of a socket pair.
class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  void Feed(const std::string& payload) {
    dev_->DispatchPayload(payload.data(), static_cast<uint32_t>(payload.size()));
  }
  // Sends every queued item and waits until the device end has `total` frames.
  bool Flush(size_t total);

  CDevComControl* dev_ = nullptr;
  Peer* peer_ = nullptr;
  int fds_[2] = {-1, -1};
};

// A session registered in the core through the exports (QXNet_LoginDev with a nonzero
// flag: no worker, no connection), whose socket is the near end of a socket pair: what
// an export asks of it goes out as frames the device end reads.
class RegisteredSessionTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::string SendNext() { return SendOne(dev_, peer_); }
  void Feed(const std::string& payload) {
    dev_->DispatchPayload(payload.data(), static_cast<uint32_t>(payload.size()));
  }

  long id_ = 0;
  CDevComControl* dev_ = nullptr;
  Peer* peer_ = nullptr;
  int fds_[2] = {-1, -1};
};

}  // namespace opstest
