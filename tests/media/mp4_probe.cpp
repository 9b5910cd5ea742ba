#include "media/mp4_probe.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace mediatest {

namespace {

std::string quoted(const std::string& s) {
  std::string out = "'";
  for (char c : s) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

double number(const std::string& v) { return v.empty() || v == "N/A" ? -1 : std::strtod(v.c_str(), nullptr); }

void readStreamField(StreamInfo& s, const std::string& key, const std::string& value) {
  if (key == "codec_type") s.type = value;
  else if (key == "codec_name") s.codec = value;
  else if (key == "width") s.width = static_cast<int>(number(value));
  else if (key == "height") s.height = static_cast<int>(number(value));
  else if (key == "nb_read_frames") s.frames = static_cast<long>(number(value));
  else if (key == "nb_read_packets") s.packets = static_cast<long>(number(value));
  else if (key == "sample_rate") s.sampleRate = static_cast<int>(number(value));
}

// Start and duration from the packets: fragmented files carry no overall duration in the moov.
void addPacketTimes(const std::string& path, StreamInfo& s, const char* which) {
  std::vector<PacketInfo> list = packets(path, which);
  if (list.empty()) return;
  double first = list.front().pts, end = list.front().pts;
  for (const PacketInfo& p : list) {
    first = std::min(first, p.pts);
    end = std::max(end, p.pts + p.duration);
  }
  s.start = first;
  s.duration = end - first;
}

}  // namespace

const StreamInfo* ProbeInfo::find(const std::string& type) const {
  for (const StreamInfo& s : streams)
    if (s.type == type) return &s;
  return nullptr;
}

std::string runCommand(const std::string& cmd) {
  std::string out;
  FILE* p = popen((cmd + " 2>&1").c_str(), "r");
  if (!p) return "popen failed";
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof(buf), p)) > 0) out.append(buf, n);
  pclose(p);
  return out;
}

std::string decodeErrors(const std::string& path) {
  return runCommand("ffmpeg -nostdin -hide_banner -v error -i " + quoted(path) + " -f null -");
}

ProbeInfo probe(const std::string& path) {
  ProbeInfo info;
  info.raw = runCommand("ffprobe -v error -count_frames -count_packets -show_entries "
                        "stream=codec_type,codec_name,width,height,nb_read_frames,nb_read_packets,sample_rate"
                        ":format_tags=major_brand -of default=nw=0 " + quoted(path));
  std::istringstream in(info.raw);
  std::string line;
  StreamInfo* cur = nullptr;
  while (std::getline(in, line)) {
    if (line == "[STREAM]") {
      info.streams.emplace_back();
      cur = &info.streams.back();
      continue;
    }
    if (line == "[/STREAM]") cur = nullptr;
    size_t eq = line.find('=');
    if (eq == std::string::npos) continue;
    std::string key = line.substr(0, eq), value = line.substr(eq + 1);
    if (cur) readStreamField(*cur, key, value);
    if (key == "TAG:major_brand") info.brand = value;
  }
  info.ok = !info.streams.empty();
  for (StreamInfo& s : info.streams) addPacketTimes(path, s, s.type == "video" ? "v" : "a");
  return info;
}

std::vector<PacketInfo> packets(const std::string& path, const char* stream) {
  std::vector<PacketInfo> out;
  std::string text = runCommand(std::string("ffprobe -v error -select_streams ") + stream +
                                " -show_entries packet=pts_time,duration_time,size,flags -of csv=p=0 " + quoted(path));
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    // pts_time,duration_time,size,flags
    std::vector<std::string> f;
    std::istringstream cells(line);
    std::string cell;
    while (std::getline(cells, cell, ',')) f.push_back(cell);
    if (f.size() < 4) continue;
    out.push_back(PacketInfo{number(f[0]), number(f[1]), static_cast<long>(number(f[2])), f[3].find('K') != std::string::npos});
  }
  return out;
}

std::string tempDir() {
  char tmpl[] = "/tmp/qxnet-mp4-XXXXXX";
  const char* dir = mkdtemp(tmpl);
  return dir ? dir : "/tmp";
}

bool fileExists(const std::string& path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

}  // namespace mediatest
