// Control commands about transfers and the device's life: UPLOAD (reports,
// late acceptance or refusal), DOWNLOAD reports, REBOOT.
#include "control.h"

namespace devsim {

std::string Sim::uploadLine(const UploadReport& u) const {
  std::string errs;
  for (size_t i = 0; i < u.errors.size(); ++i) errs += (i ? "; " : "") + u.errors[i];
  long long size = u.data.empty() ? u.size : static_cast<long long>(u.data.size());
  return "index=" + std::to_string(u.index) + " state=" + u.state + " kind=" + u.kind +
         " conn=" + std::to_string(u.conn) + " announced=" + std::to_string(u.announced) +
         " size=" + std::to_string(size) +
         " chunks=" + std::to_string(u.chunks) + " fnv=" + hex64(u.fnv) + " crc32=" + hex32(u.crc) +
         " file=" + tok(u.file) + " errors=" + std::to_string(u.errors.size()) + " err=" + tok(errs);
}

std::string Sim::downloadLine(const DownloadReport& r) const {
  return "index=" + std::to_string(r.index) + " conn=" + std::to_string(r.conn) +
         " announced=" + std::to_string(r.announced) + " sent=" + std::to_string(r.sent) +
         " chunks=" + std::to_string(r.chunks) + " fault=" + r.fault + " fnv=" + hex64(r.fnv) +
         " crc32=" + hex32(r.crc) + " source=" + tok(r.source);
}

// UPLOAD ACCEPT [CONN] / UPLOAD REFUSE CODE [CONN]: answer an announcement now.
std::string Cmd::uploadAnswer(const std::string& sub) {
  long long code = 0;
  size_t ci = 1;
  if (sub == "REFUSE") {
    if (a.pos.size() < 2 || !parseInt(a.pos[1], code)) return "ERR usage: UPLOAD REFUSE CODE [CONN]";
    ci = 2;
  }
  // Default: the most recent connection with an announced upload.
  Conn* target = nullptr;
  if (a.pos.size() > ci) {
    target = sim.resolveConn(a.pos[ci], dev, err);
    if (!target) return "ERR " + err;
  } else {
    for (auto& kv : sim.conns_)
      if (!kv.second->closed && kv.second->upload && (dev < 0 || kv.second->dev == dev)) target = kv.second.get();
    // Acceptance after a cancel goes to the last connection that announced one.
    for (auto it = sim.devices_.rbegin(); it != sim.devices_.rend() && !target; ++it) {
      if (dev >= 0 && it->index != dev) continue;
      if (!it->uploads.empty()) target = sim.findConn(it->uploads.back().conn);
    }
    if (!target) return "ERR no upload to answer";
  }
  Device& d = sim.devices_[static_cast<size_t>(target->dev)];
  std::string cmd = target->upload ? target->upload->requestCmd
                                   : (d.uploads.empty() ? "20001" : d.uploads.back().requestCmd);
  sim.answer(*target, "20000", cmd, sub == "ACCEPT" ? 0 : code);
  // Checked after the answer: an armed cut may have closed the connection meanwhile.
  bool waiting = target->upload && target->upload->state == "waiting";
  if (waiting && sub == "ACCEPT") {
    target->upload->state = "active";
    target->upload->accepted = true;
  } else if (waiting) {
    sim.finishUpload(*target, d, "refused");
  }
  return "OK conn=" + std::to_string(target->id) + " cmd=" + cmd;
}

// UPLOAD [INDEX]: the newest is an upload still open on a connection, else the last finished one.
std::string Cmd::uploadShow() {
  long long idx = -1;
  if (!a.pos.empty() && !parseInt(a.pos[0], idx)) return "ERR usage: UPLOAD [INDEX|COUNT|ACCEPT|REFUSE]";
  if (idx < 0) {
    const UploadReport* open = nullptr;
    for (auto& kv : sim.conns_)
      if (!kv.second->closed && kv.second->upload && kv.second->dev == d0->index) open = kv.second->upload.get();
    if (open) return "OK " + sim.uploadLine(*open);
    if (d0->uploads.empty()) return "ERR none";
    return "OK " + sim.uploadLine(d0->uploads.back());
  }
  if (idx >= static_cast<long long>(d0->uploads.size())) return "ERR none";
  return "OK " + sim.uploadLine(d0->uploads[static_cast<size_t>(idx)]);
}

std::string Cmd::upload() {
  std::string sub = a.pos.empty() ? "" : upper(a.pos[0]);
  if (sub == "ACCEPT" || sub == "REFUSE") return uploadAnswer(sub);
  if (sub == "COUNT") return "OK " + std::to_string(d0->uploads.size());
  return uploadShow();
}

std::string Cmd::download() {
  if (!a.pos.empty() && upper(a.pos[0]) == "COUNT") return "OK " + std::to_string(d0->downloads.size());
  long long idx = -1;
  if (!a.pos.empty() && !parseInt(a.pos[0], idx)) return "ERR usage: DOWNLOAD [INDEX|COUNT]";
  if (d0->downloads.empty()) return "ERR none";
  if (idx < 0) return "OK " + sim.downloadLine(d0->downloads.back());
  if (idx >= static_cast<long long>(d0->downloads.size())) return "ERR none";
  return "OK " + sim.downloadLine(d0->downloads[static_cast<size_t>(idx)]);
}

std::string Cmd::reboot() {
  for (auto& d : sim.devices_)
    if ((dev < 0 && d.index == 0) || d.index == dev) sim.reboot(d, nullptr);
  return "OK";
}

}  // namespace devsim
