#include "media/Mp4PartName.h"

#include <cerrno>
#include <cstdio>

#include "base/FileOpen.h"

namespace {
// Enough for a recorder's longest download split every hour, with room for leftovers of
// earlier runs; the bound keeps a directory full of parts from stalling the writer.
const unsigned kMaxPart = 100000;
}  // namespace

std::string mp4PartName(const std::string& path, unsigned n) {
  if (n == 0) return path;
  size_t slash = path.find_last_of('/');
  size_t dot = path.find_last_of('.');
  bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash + 1);
  std::string number = "_" + std::to_string(n);
  if (!hasExtension) return path + number;
  return path.substr(0, dot) + number + path.substr(dot);
}

unsigned claimNextPart(const std::string& path, unsigned after, std::string& name) {
  for (unsigned n = after + 1; n > after && n <= kMaxPart; ++n) {
    name = mp4PartName(path, n);
    errno = 0;
    FILE* f = OpenFile(name.c_str(), "wbx");  // "x": O_EXCL, fails when the name exists
    if (f) {
      std::fclose(f);
      return n;
    }
    if (errno != EEXIST) break;
  }
  name.clear();
  return 0;
}
