#include "ops/ops_files.h"

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <iterator>

namespace opstest {

uint64_t Fnv1a(const std::string& bytes) {
  uint64_t h = 1469598103934665603ULL;
  for (unsigned char c : bytes) {
    h ^= c;
    h *= 1099511628211ULL;
  }
  return h;
}

std::string FnvHex(const std::string& bytes) {
  char b[17];
  std::snprintf(b, sizeof(b), "%016llx", static_cast<unsigned long long>(Fnv1a(bytes)));
  return b;
}

std::string PatternBytes(size_t n, uint32_t seed) {
  std::string s(n, '\0');
  uint32_t x = seed * 2654435761u + 12345u;
  for (size_t i = 0; i < n; ++i) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    s[i] = static_cast<char>(x >> 11);
  }
  return s;
}

bool WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  if (!f) return false;
  f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(f);
}

bool ReadFile(const std::string& path, std::string* bytes) {
  std::ifstream f(path, std::ios::binary);
  if (!f) return false;
  bytes->assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
  return true;
}

bool FileExists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

}  // namespace opstest
