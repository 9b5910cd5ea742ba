// What the download path needs of a file writer and of its session. The real writer is
// Mp4Writer (through Mp4DownloadWriter); tests put a recording double in its place.
#pragma once

#include <cstdint>
#include <memory>

namespace media {

class IDownloadWriter {
 public:
  virtual ~IDownloadWriter() = default;
  virtual bool create(const char* path) = 0;
  virtual bool addVideo(const char* codecName, const unsigned char* header, unsigned char length) = 0;
  virtual void writeVideo(unsigned char* frame, unsigned length, bool isSync, unsigned char codec,
                          uint32_t timestampMs) = 0;
  virtual void writeAudio(const unsigned char* data, unsigned length, unsigned char codec,
                          uint32_t timestampMs) = 0;
  virtual void splitFile(const char* codecName, const unsigned char* header, unsigned char length) = 0;
  virtual void close() = 0;
};

// The session side of a download.
class IDownloadHost {
 public:
  virtual ~IDownloadHost() = default;
  // The stop procedure: clears the span and asks the device to stop (cmd 14302).
  virtual void RunDownloadStop() = 0;
  virtual void PostDownloadAux(unsigned int code, int flag, const char* text) = 0;
  virtual void PostDownloadStatus(int event, char* text) = 0;
  // A new, unopened writer (null: none can be made).
  virtual std::unique_ptr<IDownloadWriter> NewDownloadWriter() = 0;
};

}  // namespace media
