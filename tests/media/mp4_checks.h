// GoogleTest checks shared by the MP4 writer's tests.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "media/mp4_probe.h"

namespace mediatest {

// Every file a test writes: ffmpeg decodes it without a word, ffprobe reads its streams.
inline ProbeInfo checkedProbe(const std::string& path) {
  EXPECT_TRUE(fileExists(path)) << path;
  EXPECT_EQ(decodeErrors(path), "") << path;
  ProbeInfo p = probe(path);
  EXPECT_TRUE(p.ok) << path << ":\n" << p.raw;
  return p;
}

inline long videoFrames(const ProbeInfo& p) {
  const StreamInfo* v = p.find("video");
  return v ? v->frames : -1;
}

// A folder of its own per test, removed afterwards unless the test failed.
class Mp4Dir : public ::testing::Test {
 protected:
  void SetUp() override { dir = tempDir(); }
  void TearDown() override {
    if (!HasFailure()) runCommand("rm -rf '" + dir + "'");
  }
  std::string file(const std::string& name) const { return dir + "/" + name; }
  std::string dir;
};

}  // namespace mediatest
