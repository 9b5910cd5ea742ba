// File opening, including wide paths (converted to the multibyte form of a UTF-8 locale
// for this thread only, so the process's locale is left alone).
#ifndef QXNET_BASE_FILEOPEN_H
#define QXNET_BASE_FILEOPEN_H

#include <cstdio>
#include <cwchar>
#include <string>

bool WideToUtf8(const wchar_t* path, std::string& out);
FILE* OpenFile(const char* path, const char* mode);
FILE* OpenWideFile(const wchar_t* path, const char* mode);

#endif
