#include "media/media_clips.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace mediatest {

namespace {

bool isVcl(bool h265, unsigned char header) {
  return h265 ? ((header >> 1) & 0x3F) < 32 : ((header & 0x1F) >= 1 && (header & 0x1F) <= 5);
}

bool isKey(bool h265, unsigned char header) {
  int type = h265 ? (header >> 1) & 0x3F : header & 0x1F;
  return h265 ? (type >= 16 && type <= 21) : type == 5;
}

bool isParamSet(bool h265, unsigned char header) {
  int type = h265 ? (header >> 1) & 0x3F : header & 0x1F;
  return h265 ? (type >= 32 && type <= 34) : (type == 7 || type == 8);
}

// A NAL unit opens a new access unit when the current one already holds a picture and this unit
// is a prefix unit (parameter sets, SEI, delimiter) or the first slice of the next picture.
bool opensUnit(bool h265, const std::vector<unsigned char>& nal) {
  if (nal.size() < 3) return false;
  if (!isVcl(h265, nal[0])) {
    int type = h265 ? (nal[0] >> 1) & 0x3F : nal[0] & 0x1F;
    return h265 ? (type >= 32 && type <= 40) : (type >= 6 && type <= 9);
  }
  // first_slice_segment_in_pic_flag, or first_mb_in_slice == 0 (ue "1"): the first bit after the header.
  return (nal[h265 ? 2 : 1] & 0x80) != 0;
}

void appendNal(std::vector<unsigned char>& out, const std::vector<unsigned char>& nal) {
  static const unsigned char kStart[4] = {0, 0, 0, 1};
  out.insert(out.end(), kStart, kStart + 4);
  out.insert(out.end(), nal.begin(), nal.end());
}

}  // namespace

std::string clipDir() {
#ifdef QXNET_CLIP_DIR
  return QXNET_CLIP_DIR;
#else
  return "";
#endif
}

std::vector<unsigned char> readFile(const std::string& path) {
  std::vector<unsigned char> out;
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) throw std::runtime_error("cannot open " + path);
  unsigned char buf[65536];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof(buf), f)) > 0) out.insert(out.end(), buf, buf + n);
  std::fclose(f);
  return out;
}

std::vector<std::vector<unsigned char>> nalUnits(const unsigned char* data, size_t length) {
  std::vector<std::vector<unsigned char>> out;
  size_t i = 0, start = 0;
  bool inNal = false;
  while (i + 3 <= length) {
    if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1) {
      if (inNal) {
        size_t end = i;
        while (end > start && data[end - 1] == 0) --end;
        out.emplace_back(data + start, data + end);
      }
      i += 3;
      start = i;
      inNal = true;
    } else {
      ++i;
    }
  }
  if (inNal && start < length) out.emplace_back(data + start, data + length);
  return out;
}

VideoClip loadVideo(const std::string& name) {
  VideoClip clip;
  clip.h265 = name.compare(0, 4, "h265") == 0;
  std::vector<unsigned char> bytes = readFile(clipDir() + "/" + name + (clip.h265 ? ".hevc" : ".h264"));
  Unit unit;
  bool hasPicture = false;
  for (const auto& nal : nalUnits(bytes.data(), bytes.size())) {
    if (nal.empty()) continue;
    if (hasPicture && opensUnit(clip.h265, nal)) {
      clip.units.push_back(unit);
      unit = Unit();
      hasPicture = false;
    }
    if (clip.units.empty() && isParamSet(clip.h265, nal[0])) appendNal(clip.header, nal);
    appendNal(unit.data, nal);
    if (isVcl(clip.h265, nal[0])) hasPicture = true;
    if (isKey(clip.h265, nal[0])) unit.key = true;
  }
  if (hasPicture) clip.units.push_back(unit);
  return clip;
}

std::vector<Unit> loadAudio(const std::string& file) {
  std::vector<unsigned char> bytes = readFile(clipDir() + "/" + file);
  std::vector<Unit> out;
  bool adts = file.find(".adts") != std::string::npos;
  size_t i = 0;
  while (i < bytes.size()) {
    size_t n = 320;
    if (adts) {
      if (bytes.size() - i < 7) break;
      n = ((bytes[i + 3] & 0x03u) << 11) | (bytes[i + 4] << 3) | (bytes[i + 5] >> 5);
      if (n < 7) break;
    }
    n = std::min(n, bytes.size() - i);
    Unit u;
    u.data.assign(bytes.begin() + static_cast<long>(i), bytes.begin() + static_cast<long>(i + n));
    u.key = true;
    out.push_back(u);
    i += n;
  }
  return out;
}

}  // namespace mediatest
