// Log capture for the MP4 writer's tests: the writer logs through fLog at level 6.
#pragma once

#include <string>

#include "base/FuncLog.h"
#include "base/log_capture.h"
#include "media/mp4_checks.h"

namespace mediatest {

class Mp4LogTest : public Mp4Dir {
 protected:
  static void SetUpTestSuite() {
    g_fLogCallBack = logtest::Capture;
    g_fLogLevel = 0x7FFFFFFFu;
    fLogStart();  // once per process; later calls find it running
  }
  void SetUp() override {
    Mp4Dir::SetUp();
    logtest::Clear();
  }
  // Lines delivered at level 6 whose text after the time prefix is exactly `body`.
  static int count(const std::string& body) {
    const size_t prefix = 24;  // "QXNetSDK:MM-DD,hh:mm:ss,"
    int n = 0;
    for (const logtest::Line& l : logtest::Snapshot()) {
      if (l.level != 6 || l.text.compare(0, 9, "QXNetSDK:") != 0) continue;
      if (l.text.size() == prefix + body.size() + 2 && l.text.compare(prefix, body.size(), body) == 0 &&
          l.text.compare(prefix + body.size(), 2, "\r\n") == 0)
        ++n;
    }
    return n;
  }
  static std::string all() {
    std::string out;
    for (const logtest::Line& l : logtest::Snapshot()) out += l.text;
    return out;
  }
};

}  // namespace mediatest
