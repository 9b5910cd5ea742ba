#include "cli_args.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {
bool g_json = false;
}

int TakeGlobalFlags(int argc, char** argv, GlobalFlags* flags) {
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--json"))
      flags->json = true;
    else if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h"))
      flags->help = true;
    else
      argv[kept++] = argv[i];
  }
  argv[kept] = nullptr;
  g_json = flags->json;
  return kept;
}

bool JsonOutput() { return g_json; }

bool ParseLong(const char* text, long* out) {
  if (!text || !*text) return false;
  char* end = nullptr;
  errno = 0;
  long v = std::strtol(text, &end, 10);
  if (*end || errno == ERANGE) return false;
  *out = v;
  return true;
}

bool ParseSeconds(const char* text, double* out) {
  if (!text || !*text) return false;
  char* end = nullptr;
  double v = std::strtod(text, &end);
  if (*end || !(v >= 0) || v > 1e9) return false;
  *out = v;
  return true;
}

bool IsDigits(const char* text, size_t count) {
  if (!text || std::strlen(text) != count) return false;
  for (size_t i = 0; i < count; ++i)
    if (text[i] < '0' || text[i] > '9') return false;
  return true;
}

bool CanCreate(const char* file) {
  std::string f = file ? file : "";
  size_t slash = f.rfind('/');
  std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : f.substr(0, slash);
  return !f.empty() && access(dir.c_str(), W_OK) == 0;
}
