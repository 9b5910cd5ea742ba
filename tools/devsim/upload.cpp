// Uploads to the device (firmware 20001/20002, configuration file 20004/20005):
// the announcement, the chunks checked and reassembled, and the final report.
#include <fstream>

#include "sim.h"

namespace devsim {

void Sim::handleUploadAnnounce(Conn& c, Device& d, const Message& m) {
  if (c.upload) {
    c.upload->errors.push_back("new announcement while an upload was open");
    finishUpload(c, d, "abandoned");
  }
  auto u = std::make_unique<UploadReport>();
  u->requestCmd = m.cmd;
  u->kind = m.cmd == "20001" ? "firmware" : "config";
  u->conn = c.id;
  u->startedMs = nowMs();
  std::string lenText;
  long long len = -1;
  if (!tagText(m.body, m.cmd == "20001" ? "firmwareLength" : "fileLength", lenText) || !parseInt(lenText, len))
    u->errors.push_back("announcement without a readable length");
  u->announced = len;
  bump("uploads_announced");
  const std::string& mode = d.s.uploadMode;
  if (mode == "refuse") {
    answer(c, "20000", m.cmd, d.s.uploadRefuseCode);
    c.upload = std::move(u);
    finishUpload(c, d, "refused");
    return;
  }
  if (mode == "late") {
    u->state = "waiting";
    c.upload = std::move(u);
    return;
  }
  u->accepted = true;
  c.upload = std::move(u);
  answer(c, "20000", m.cmd, 0);
  if (mode == "twice") answer(c, "20000", m.cmd, 0);
}

// A chunk with no accepted upload open still gets a report, marked as an error.
UploadReport& Sim::uploadForChunk(Conn& c, const std::string& cmd) {
  if (c.upload && c.upload->state == "active") return *c.upload;
  auto u = std::make_unique<UploadReport>();
  u->requestCmd = cmd == "20002" ? "20001" : "20004";
  u->kind = cmd == "20002" ? "firmware" : "config";
  u->conn = c.id;
  u->startedMs = nowMs();
  u->errors.push_back(c.upload && c.upload->state == "waiting" ? "chunk before acceptance"
                                                               : "chunk without announcement");
  if (c.upload) u->announced = c.upload->announced;
  c.upload = std::move(u);
  return *c.upload;
}

// Separator, length and position of one chunk; errors are recorded, the bytes kept.
void Sim::checkChunk(UploadReport& u, const Message& m, const char* payload, size_t size, long long pos,
                     long long len) {
  size_t textLen = m.text.size();
  for (size_t i = textLen; i < textLen + 4; ++i)
    if (payload[i] != 0) {
      u.errors.push_back("separator byte not zero at chunk " + std::to_string(u.chunks));
      break;
    }
  size_t have = size - (textLen + 4);
  if (static_cast<long long>(have) != len) {
    u.errors.push_back("chunk " + std::to_string(u.chunks) + " announces " + std::to_string(len) +
                       " bytes, frame holds " + std::to_string(have));
  }
  if (pos != static_cast<long long>(u.data.size())) {
    u.errors.push_back("chunk " + std::to_string(u.chunks) + " startPos " + std::to_string(pos) + ", expected " +
                       std::to_string(u.data.size()));
  }
}

void Sim::handleUploadChunk(Conn& c, Device& d, const Message& m, const char* payload, size_t size) {
  std::string posText, lenText;
  long long pos = -2, len = -2;
  bool okPos = tagText(m.text, "startPos", posText) && parseInt(posText, pos);
  bool okLen = tagText(m.text, "dataLength", lenText) && parseInt(lenText, len);
  if (okLen && len == -1) {
    bump("upload_cancels");
    if (c.upload && (c.upload->state == "active" || c.upload->state == "waiting")) finishUpload(c, d, "cancelled");
    return;
  }
  UploadReport& u = uploadForChunk(c, m.cmd);
  std::string want = u.kind == "firmware" ? "20002" : "20005";
  if (m.cmd != want) u.errors.push_back("chunk cmd " + m.cmd + " in a " + u.kind + " upload");
  if (!okPos || !okLen || len < 0) {
    u.errors.push_back("unreadable chunk header");
    bump("upload_errors");
    return;
  }
  size_t dataOff = m.text.size() + 4;
  if (size < dataOff) {
    u.errors.push_back("chunk shorter than its header and separator");
    bump("upload_errors");
    return;
  }
  checkChunk(u, m, payload, size, pos, len);
  if (len == 0) {
    finishUpload(c, d, "done");
    return;
  }
  u.data.append(payload + dataOff, std::min<size_t>(size - dataOff, static_cast<size_t>(len)));
  u.chunks++;
  bump("upload_chunks");
}

// The connection ends with an upload open. Every announced byte arrived: the
// file is whole, recorded as done, with a note that its end-of-file chunk never
// came. Otherwise the upload is abandoned.
void Sim::endUploadOnClose(Conn& c, Device& d) {
  UploadReport& u = *c.upload;
  if (u.state == "waiting") {
    finishUpload(c, d, "abandoned");
  } else if (u.state != "active") {
    return;
  } else if (u.chunks > 0 && u.announced >= 0 && static_cast<long long>(u.data.size()) == u.announced) {
    u.errors.push_back("connection closed before the end-of-file chunk");
    finishUpload(c, d, "done");
  } else {
    u.errors.push_back("connection closed during upload");
    finishUpload(c, d, "abandoned");
  }
}

// Checksums, the announced length, and the file in the upload directory.
void Sim::completeUpload(Device& d, UploadReport& u) {
  u.fnv = fnv1a64(u.data.data(), u.data.size());
  u.crc = crc32(u.data.data(), u.data.size());
  if (u.announced >= 0 && static_cast<long long>(u.data.size()) != u.announced)
    u.errors.push_back("received " + std::to_string(u.data.size()) + " bytes, announced " +
                       std::to_string(u.announced));
  std::string name = d.s.uploadName;
  if (name.empty() && !opt_.uploadDir.empty())
    name = "upload_" + std::to_string(d.index) + "_" + std::to_string(u.index) + ".bin";
  if (name.empty()) return;
  std::string path = name;
  if (path[0] != '/' && !opt_.uploadDir.empty()) path = opt_.uploadDir + "/" + name;
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f.write(u.data.data(), static_cast<std::streamsize>(u.data.size()));
  f.close();
  if (!f) u.errors.push_back("cannot write " + path);
  else u.file = path;
}

void Sim::finishUpload(Conn& c, Device& d, const std::string& state) {
  if (!c.upload) return;
  UploadReport u = std::move(*c.upload);
  c.upload.reset();
  u.state = state;
  u.endedMs = nowMs();
  u.index = static_cast<int>(d.uploads.size());
  u.size = static_cast<long long>(u.data.size());
  if (state == "done") completeUpload(d, u);
  bump(state == "done"        ? "uploads_done"
       : state == "cancelled" ? "uploads_cancelled"
       : state == "refused"   ? "uploads_refused"
                              : "uploads_abandoned");
  if (!u.errors.empty()) bump("upload_errors", static_cast<long long>(u.errors.size()));
  logf(LogLevel::Normal, "device %d: upload %d %s (%s, %zu bytes, %d chunks, %zu errors)", d.index, u.index,
       state.c_str(), u.kind.c_str(), u.data.size(), u.chunks, u.errors.size());
  u.data.clear();
  u.data.shrink_to_fit();
  d.uploads.push_back(std::move(u));
}

}  // namespace devsim
