// The configuration-file download (20006): the length answer, then 20007 data
// answers of dl_chunk bytes, or one of the failure forms of dl_fault.
#include <fstream>
#include <sstream>

#include "sim.h"

namespace devsim {

namespace {

// Deterministic content for a generated configuration file: a readable text
// part followed by pseudo-random bytes (zeros included) so that every byte
// value crosses the wire.
std::string generatedFile(size_t size) {
  std::string s;
  s.reserve(size);
  const std::string head = "# qxdevsim generated configuration\n[device]\nname=sim\n";
  uint64_t x = 0x9E3779B97F4A7C15ull ^ size;
  while (s.size() < size) {
    if (s.size() < head.size()) {
      s += head[s.size()];
      continue;
    }
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    s += static_cast<char>(x & 0xFF);
  }
  return s;
}

// What goes on the wire: the bytes the data answers carry, the announced length
// and the pieces (start, length), with the fault's distortions applied.
struct DownloadPlan {
  std::string served;
  long long announced = 0;
  std::vector<std::pair<size_t, size_t>> pieces;
};

DownloadPlan planDownload(const std::string& content, const Settings& s) {
  DownloadPlan p;
  long long extra = std::max<long long>(1, s.dlExtra);
  p.served = content;
  p.announced = static_cast<long long>(content.size());
  if (s.dlFault == "extra") {
    // Announce the true size, carry more: the receiver's count overshoots.
    p.served += generatedFile(static_cast<size_t>(content.size() + extra)).substr(content.size());
  } else if (s.dlFault == "short") {
    p.announced = static_cast<long long>(content.size()) + extra;
  }
  size_t chunk = static_cast<size_t>(std::max<long long>(1, s.dlChunk));
  for (size_t off = 0; off < p.served.size(); off += chunk)
    p.pieces.emplace_back(off, std::min(chunk, p.served.size() - off));
  if (s.dlFault != "extra") return p;
  // No chunk boundary may land exactly on the announced size, or it would finish.
  for (size_t i = 0; i + 1 < p.pieces.size(); ++i) {
    if (p.pieces[i].first + p.pieces[i].second == static_cast<size_t>(p.announced)) {
      p.pieces[i].second += p.pieces[i + 1].second;
      p.pieces.erase(p.pieces.begin() + static_cast<long>(i) + 1);
      break;
    }
  }
  return p;
}

std::string dataAnswer(const std::string& served, size_t start, size_t len, bool badSep) {
  std::string p = envelope("20000", "20007", "0",
                           "<startPos>" + std::to_string(start) + "</startPos>\n<dataLength>" +
                               std::to_string(len) + "</dataLength>");
  // The first separator byte still ends the text; the other three break the rule.
  p += badSep ? std::string("\0\xff\xff\xff", 4) : std::string(4, '\0');
  p.append(served, start, len);
  return p;
}

}  // namespace

// The file to serve: dl_file, or generated content of dl_size bytes. False (and
// a refusal sent) when dl_file cannot be read.
bool Sim::downloadContent(Conn& c, Device& d, std::string& content, std::string& source) {
  const Settings& s = d.s;
  if (s.dlFile.empty()) {
    content = generatedFile(static_cast<size_t>(std::max<long long>(0, s.dlSize)));
    source = "generated:" + std::to_string(content.size());
    return true;
  }
  std::ifstream f(s.dlFile, std::ios::binary);
  if (!f) {
    logf(LogLevel::Normal, "device %d: cannot read %s, refusing download", d.index, s.dlFile.c_str());
    answer(c, "20000", "20006", -1);
    bump("download_errors");
    return false;
  }
  std::ostringstream o;
  o << f.rdbuf();
  content = o.str();
  source = s.dlFile;
  return true;
}

void Sim::serveDownload(Conn& c, Device& d) {
  std::string content, source;
  if (!downloadContent(c, d, content, source)) return;
  DownloadReport r;
  r.index = static_cast<int>(d.downloads.size());
  r.conn = c.id;
  r.fault = d.s.dlFault;
  r.source = source;
  r.fnv = fnv1a64(content.data(), content.size());
  r.crc = crc32(content.data(), content.size());
  bump("downloads");
  DownloadPlan plan = planDownload(content, d.s);
  r.announced = plan.announced;
  if (d.s.dlFault != "nolength") {
    std::string lenBody = "<fileLength>" + std::to_string(plan.announced) + "</fileLength>";
    answer(c, "20000", "20006", 0, lenBody);
    if (d.s.dlFault == "twice") answer(c, "20000", "20006", 0, lenBody);
  }
  sendDownloadData(c, d, plan.served, plan.pieces, r);
  d.downloads.push_back(std::move(r));
}

void Sim::sendDownloadData(Conn& c, Device& d, const std::string& served,
                           const std::vector<std::pair<size_t, size_t>>& pieces, DownloadReport& r) {
  const Settings& s = d.s;
  const std::string& fault = s.dlFault;
  int delay = static_cast<int>(std::max<long long>(0, s.dlDelayMs));
  for (size_t i = 0; i < pieces.size() && !c.closed; ++i) {
    std::string p = dataAnswer(served, pieces[i].first, pieces[i].second, fault == "badsep" && i == 0);
    if (fault == "drop" && (i == 1 || pieces.size() == 1)) {
      // Half a frame, then the connection goes away.
      std::string f = frame(p, s.answerFlag);
      sendRaw(c, f.substr(0, f.size() / 2), delay, true, false);
      r.sent += static_cast<long long>(pieces[i].second / 2);
      bump("frames_tx");
      break;
    }
    if (delay > 0) {
      // Delays between data answers: whole frames as delayed pieces.
      if (s.mute) break;
      sendRaw(c, frame(p, s.answerFlag), delay);
      c.txFrames++;
      bump("frames_tx");
    } else {
      sendPayload(c, p);
    }
    r.sent += static_cast<long long>(pieces[i].second);
    r.chunks++;
    if (fault == "zerolen" && i == 0) {
      sendPayload(c, dataAnswer(served, 0, 0, false));
      break;
    }
  }
  if (fault == "zerolen" && pieces.empty()) sendPayload(c, dataAnswer(served, 0, 0, false));
}

}  // namespace devsim
