// Loading clips from the clip folder, once each.
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "clips.h"

#ifndef QXNET_CLIP_DIR_DEFAULT
#define QXNET_CLIP_DIR_DEFAULT ""
#endif

namespace devsim {

namespace {

// G.711 at 8 kHz in 40 ms chunks (one per video frame); AAC at 16 kHz, 1024 samples a frame.
constexpr size_t kG711Bytes = 320;
constexpr int kG711Ms = 40;
constexpr int kAacMs = 64;

bool readWhole(const std::string& path, std::string& out) {
  std::ifstream f(path, std::ios::binary);
  if (!f) return false;
  std::ostringstream o;
  o << f.rdbuf();
  out = o.str();
  return true;
}

}  // namespace

std::string defaultClipDir() {
  const char* env = getenv("QXNET_CLIP_DIR");
  if (env && *env) return env;
  if (*QXNET_CLIP_DIR_DEFAULT) return QXNET_CLIP_DIR_DEFAULT;
  const char* home = getenv("HOME");
  return std::string(home ? home : ".") + "/.cache/qxnetsdk/clips-v2";
}

const Clip* ClipStore::video(const std::string& codec, const std::string& size, std::string& err) {
  if (codec != "h264" && codec != "h265") return err = "unknown video codec " + codec, nullptr;
  if (size != "320x240" && size != "1920x1080") return err = "unknown size " + size, nullptr;
  return load(codec + "_" + size + (codec == "h264" ? ".h264" : ".hevc"), codec, err);
}

const Clip* ClipStore::audio(const std::string& codec, std::string& err) {
  if (codec == "pcmu") return load("pcmu_8k.ulaw", codec, err);
  if (codec == "pcma") return load("pcma_8k.alaw", codec, err);
  if (codec == "aac") return load("aac_16k.adts", codec, err);
  return err = "unknown audio codec " + codec, nullptr;
}

const Clip* ClipStore::load(const std::string& file, const std::string& codec, std::string& err) {
  auto it = clips_.find(file);
  if (it != clips_.end()) return it->second.get();
  auto c = std::make_unique<Clip>();
  c->name = file;
  c->codec = codec;
  if (!readWhole(dir_ + "/" + file, c->bytes) || c->bytes.empty())
    return err = "cannot read clip " + dir_ + "/" + file + " (scripts/make-clips makes them)", nullptr;
  bool ok = true;
  if (codec == "h264" || codec == "h265") {
    c->video = true;
    c->payloadType = codec == "h264" ? 96 : 201;
    ok = cutAnnexB(*c, err);
  } else if (codec == "aac") {
    c->payloadType = 97;
    c->frameMs = kAacMs;
    ok = cutAdts(*c, err);
  } else {
    c->payloadType = codec == "pcmu" ? 0 : 8;
    c->frameMs = kG711Ms;
    cutG711(*c, kG711Bytes);
  }
  if (!ok) return nullptr;
  const Clip* out = c.get();
  clips_[file] = std::move(c);
  return out;
}

}  // namespace devsim
