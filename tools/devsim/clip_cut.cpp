// Cutting clip files into frames: Annex B access units (by NAL unit type), ADTS frames (by
// their length field), G.711 in fixed chunks. Frames are byte ranges of the file, so one
// loop of frames is exactly the file.
#include <cstdint>

#include "clips.h"

namespace devsim {

namespace {

struct Nal {
  size_t start = 0;   // of its start code
  size_t payload = 0; // first byte after the start code
  int type = 0;
  bool firstSlice = false;
};

// Start codes 00 00 01 and 00 00 00 01.
std::vector<Nal> findNals(const std::string& b, bool hevc) {
  std::vector<Nal> out;
  const unsigned char* p = reinterpret_cast<const unsigned char*>(b.data());
  size_t n = b.size();
  for (size_t i = 0; i + 3 < n; ++i) {
    if (p[i] != 0 || p[i + 1] != 0 || p[i + 2] != 1) continue;
    Nal nal;
    nal.start = (i > 0 && p[i - 1] == 0) ? i - 1 : i;
    nal.payload = i + 3;
    size_t hdr = hevc ? 2 : 1;
    if (nal.payload + hdr < n) {
      nal.type = hevc ? (p[nal.payload] >> 1) & 0x3F : p[nal.payload] & 0x1F;
      // first_mb_in_slice == 0 / first_slice_segment_in_pic_flag: the first bit after the header.
      nal.firstSlice = (p[nal.payload + hdr] & 0x80) != 0;
    }
    out.push_back(nal);
    i += 2;
  }
  return out;
}

bool isVcl(int type, bool hevc) { return hevc ? type < 32 : (type >= 1 && type <= 5); }
bool isKey(int type, bool hevc) { return hevc ? (type >= 16 && type <= 23) : type == 5; }
bool isParamSet(int type, bool hevc) { return hevc ? (type >= 32 && type <= 34) : (type == 7 || type == 8); }

}  // namespace

bool cutAnnexB(Clip& c, std::string& err) {
  bool hevc = c.codec == "h265";
  std::vector<Nal> nals = findNals(c.bytes, hevc);
  if (nals.empty() || nals[0].start != 0) return err = c.name + ": not an Annex B stream", false;
  ClipFrame cur;
  bool hasVcl = false;
  for (size_t i = 0; i < nals.size(); ++i) {
    const Nal& nal = nals[i];
    size_t end = i + 1 < nals.size() ? nals[i + 1].start : c.bytes.size();
    bool vcl = isVcl(nal.type, hevc);
    // A non-VCL unit or a picture's first slice after a VCL unit starts the next access unit.
    if (hasVcl && (!vcl || nal.firstSlice)) {
      cur.len = nal.start - cur.off;
      c.frames.push_back(cur);
      cur = ClipFrame();
      cur.off = nal.start;
      hasVcl = false;
    }
    if (vcl) hasVcl = true;
    if (vcl && isKey(nal.type, hevc)) cur.key = true;
    if (isParamSet(nal.type, hevc) && c.frames.empty()) {
      c.paramSets += std::string("\0\0\0\1", 4);
      c.paramSets.append(c.bytes, nal.payload, end - nal.payload);
    }
  }
  if (!hasVcl) return err = c.name + ": no picture", false;
  cur.len = c.bytes.size() - cur.off;
  c.frames.push_back(cur);
  if (!c.frames[0].key) return err = c.name + ": does not begin with a key frame", false;
  if (c.paramSets.size() > 255) return err = c.name + ": parameter sets over 255 bytes", false;
  return true;
}

bool cutAdts(Clip& c, std::string& err) {
  const unsigned char* p = reinterpret_cast<const unsigned char*>(c.bytes.data());
  size_t n = c.bytes.size(), off = 0;
  while (off + 7 <= n) {
    if (p[off] != 0xFF || (p[off + 1] & 0xF0) != 0xF0) return err = c.name + ": lost ADTS sync", false;
    size_t len = (static_cast<size_t>(p[off + 3] & 0x03) << 11) | (static_cast<size_t>(p[off + 4]) << 3) |
                 (p[off + 5] >> 5);
    if (len < 7 || off + len > n) return err = c.name + ": bad ADTS length", false;
    c.frames.push_back(ClipFrame{off, len, true});
    off += len;
  }
  if (c.frames.empty()) return err = c.name + ": no ADTS frame", false;
  return true;
}

void cutG711(Clip& c, size_t bytesPerFrame) {
  for (size_t off = 0; off < c.bytes.size(); off += bytesPerFrame)
    c.frames.push_back(ClipFrame{off, std::min(bytesPerFrame, c.bytes.size() - off), true});
}

}  // namespace devsim
