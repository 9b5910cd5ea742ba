// Shared by the media tests: packs built byte by byte, the captured log, and a writer
// and session double that record every call.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "QXNetSDK.h"
#include "base/FuncLog.h"
#include "base/log_capture.h"
#include "media/DownloadWriter.h"
#include "media/MediaPack.h"

namespace mediatest {

struct Pack {
  uint32_t ts = 1000, keyTs = 1000;
  uint16_t seq = 0;
  uint8_t type = media::kPackWhole, frameType = 1, stream = 0, payloadType = 96;
  uint32_t index = 1;
  std::string payload = "abc";
  // Overrides the payload_size field (a broken pack); -1 = the payload's size.
  int sizeField = -1;

  std::vector<unsigned char> Bytes() const {
    std::vector<unsigned char> b(20 + payload.size());
    auto put32 = [&b](size_t o, uint32_t v) {
      for (int i = 0; i < 4; ++i) b[o + i] = static_cast<unsigned char>(v >> (8 * i));
    };
    put32(0, ts);
    put32(4, keyTs);
    b[8] = static_cast<unsigned char>(seq);
    b[9] = static_cast<unsigned char>(seq >> 8);
    uint16_t size = static_cast<uint16_t>(sizeField >= 0 ? sizeField : static_cast<int>(payload.size()));
    b[10] = static_cast<unsigned char>(size);
    b[11] = static_cast<unsigned char>(size >> 8);
    b[12] = type;
    b[13] = frameType;
    b[14] = stream;
    b[15] = payloadType;
    put32(16, index);
    std::copy(payload.begin(), payload.end(), b.begin() + 20);
    return b;
  }
};

// The library is initialised and every log line (all levels) captured.
class LoggedTest : public ::testing::Test {
 protected:
  void SetUp() override {
    QXNet_SetfcLogCallBackEx(logtest::Capture, 30);
    ASSERT_EQ(QXNet_init(), 0);
    QXNet_SetfcLogCallBackEx(logtest::Capture, 30);
    logtest::Clear();
  }
  void TearDown() override { QXNet_Free(); }
  // Lines containing `text`.
  static size_t Count(const std::string& text) { return logtest::With(text).size(); }
  // True when a line ends with exactly `body` (after the time prefix).
  static bool HasLine(const std::string& body) {
    for (const auto& l : logtest::Snapshot())
      if (l.text.size() >= body.size() && l.text.compare(l.text.size() - body.size(), body.size(), body) == 0)
        return true;
    return false;
  }
};

// Every writer call, in order, as one text each ("create path", "video 3 sync 96 1000", ...).
struct WriterLog {
  std::vector<std::string> calls;
  std::vector<std::string> frames;  // the data of each write
  bool createFails = false;
  int Count(const std::string& prefix) const {
    int n = 0;
    for (const auto& c : calls)
      if (c.compare(0, prefix.size(), prefix) == 0) ++n;
    return n;
  }
};

class RecordingWriter : public media::IDownloadWriter {
 public:
  explicit RecordingWriter(WriterLog* log) : log_(log) {}
  bool create(const char* path) override {
    log_->calls.push_back(std::string("create ") + path);
    return !log_->createFails;
  }
  bool addVideo(const char* name, const unsigned char*, unsigned char length) override {
    log_->calls.push_back(std::string("addVideo ") + name + " " + std::to_string(length));
    return true;
  }
  void writeVideo(unsigned char* f, unsigned n, bool sync, unsigned char codec, uint32_t ts) override {
    log_->calls.push_back("video " + std::to_string(n) + (sync ? " sync " : " delta ") + std::to_string(codec) +
                          " " + std::to_string(ts));
    log_->frames.emplace_back(reinterpret_cast<const char*>(f), n);
  }
  void writeAudio(const unsigned char* d, unsigned n, unsigned char codec, uint32_t ts) override {
    log_->calls.push_back("audio " + std::to_string(n) + " " + std::to_string(codec) + " " + std::to_string(ts));
    log_->frames.emplace_back(reinterpret_cast<const char*>(d), n);
  }
  void splitFile(const char* name, const unsigned char*, unsigned char length) override {
    log_->calls.push_back(std::string("split ") + name + " " + std::to_string(length));
  }
  void close() override { log_->calls.push_back("close"); }

 private:
  WriterLog* log_;
};

// The session side: stop procedure runs, aux answers and status events, writers made.
class RecordingHost : public media::IDownloadHost {
 public:
  struct Posted {
    int code;
    int flag;
    std::string text;
  };
  std::vector<Posted> aux, status;
  int stops = 0;
  int writersMade = 0;
  WriterLog writer;
  bool noWriter = false;
  std::function<void()> onStop;

  void RunDownloadStop() override {
    ++stops;
    if (onStop) onStop();
  }
  void PostDownloadAux(unsigned int code, int flag, const char* text) override {
    aux.push_back({static_cast<int>(code), flag, text ? text : "(null)"});
  }
  void PostDownloadStatus(int event, char* text) override { status.push_back({event, 0, text ? text : ""}); }
  std::unique_ptr<media::IDownloadWriter> NewDownloadWriter() override {
    if (noWriter) return nullptr;
    ++writersMade;
    return std::unique_ptr<media::IDownloadWriter>(new RecordingWriter(&writer));
  }
  std::vector<std::string> Progress() const {
    std::vector<std::string> out;
    for (const auto& s : status)
      if (s.code == QXNET_EV_DOWNLOAD_PROGRESS) out.push_back(s.text);
    return out;
  }
};

inline std::string Pos(int p) { return "<RESPONSE_PARAM DownloadPos=\"" + std::to_string(p) + "\" />"; }

}  // namespace mediatest
