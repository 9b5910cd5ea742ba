// The state of the file transfers a session runs, one struct per transfer. The upload and
// the configuration-file download share the session's one transfer slot (its idle flag).
#ifndef QXNET_SESSION_TRANSFERS_H
#define QXNET_SESSION_TRANSFERS_H

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <string>

#include "media/DownloadAssembler.h"

class CFileRecver;

// Firmware or configuration-file upload: announced, then (once the device accepts)
// streamed in chunks by the worker. Read by application threads (progress, state) while
// the worker streams, hence the atomics.
struct UploadTransfer {
  // The flags and counters come first and the path buffers last: the worker reads the
  // flags on every turn, the paths only when a transfer starts.
  std::atomic<int> uploading{0};  // announced or streaming
  std::atomic<int> sending{0};    // accepted: chunks go out
  int32_t fileType = 0;
  std::atomic<int32_t> fileLength{0};
  std::atomic<int32_t> bytesSent{0};
  int32_t kind = 0;  // 1 firmware, 0 configuration file, -1 ended
  // Bumped whenever the state is reset, so that a chunk send under way outside the lock
  // can tell that its transfer was cancelled or replaced meanwhile.
  uint32_t gen = 0;
  uint32_t startTick = 0, acceptTick = 0, lastChunkTick = 0;
  FILE* file = nullptr;
  char path[512];          // narrow path, or
  wchar_t widePath[512];   // the wide one of UploadFileEx

  // Forgets everything but the generation, which moves on (the file is the caller's).
  void Reset() {
    std::memset(path, 0, sizeof(path));
    std::wmemset(widePath, 0, sizeof(widePath) / sizeof(widePath[0]));
    uploading = 0;
    sending = 0;
    fileType = 0;
    fileLength = 0;
    bytesSent = 0;
    kind = 0;
    startTick = acceptTick = lastChunkTick = 0;
    ++gen;
  }
  // Announced and accepted: chunks are due.
  bool Streaming() const { return sending == 1 && uploading == 1; }
};

// Configuration-file download: the local name, and the receiver once the length is known.
struct ConfigDownload {
  CFileRecver* recver = nullptr;
  char fileName[1024] = {0};
};

// The older port-answer download: a temporary file and timed re-requests.
struct PortDownload {
  // Cleared by application threads (upload start and cancel) while the worker reads it.
  std::atomic<int> flag{0};
  uint16_t port = 0;
  uint32_t length = 0;
  uint32_t startTick = 0;
  uint32_t lastRetryTick = 0;
  int retryState = 0;
  uint32_t bytesReceived = 0;
  FILE* tempFile = nullptr;
  std::string tempFileName;
  std::string remoteFileName;
};

// Recorder download: the span asked for and its reassembly into the file (media/), plus
// what only the session keeps.
struct NvrDownload {
  explicit NvrDownload(media::IDownloadHost* host) : assembler(host) {}
  media::DownloadSpan& Span() { return assembler.Span(); }
  media::CDownloadAssembler assembler;
  // A stop was sent and its answer (cmd 14302) has not come yet. The stop sets the replay
  // mode back to 0 before the answer arrives; this keeps the answer on the download path,
  // where it closes the file and reports event 54.
  std::atomic<bool> stopAnswerDue{false};
};

#endif
