#include "base/FileOpen.h"

#include <locale.h>

#include <cstdlib>
#include <vector>

bool WideToUtf8(const wchar_t* path, std::string& out) {
  out.clear();
  if (!path) return false;
  locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  if (utf8 == static_cast<locale_t>(0)) return false;
  locale_t old = uselocale(utf8);
  bool ok = false;
  size_t need = wcstombs(nullptr, path, 0);
  if (need != static_cast<size_t>(-1)) {
    std::vector<char> buf(need + 1, 0);
    if (wcstombs(buf.data(), path, need + 1) != static_cast<size_t>(-1)) {
      out.assign(buf.data(), need);
      ok = true;
    }
  }
  uselocale(old);
  freelocale(utf8);
  return ok;
}

FILE* OpenFile(const char* path, const char* mode) {
  if (!path || !mode) return nullptr;
  return std::fopen(path, mode);
}

FILE* OpenWideFile(const wchar_t* path, const char* mode) {
  std::string narrow;
  if (!WideToUtf8(path, narrow)) return nullptr;
  return std::fopen(narrow.c_str(), mode);
}
