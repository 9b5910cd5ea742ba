// qxnet's argument helpers: the global flags and strict number checks.
#pragma once

#include <cstddef>

struct GlobalFlags {
  bool json = false;  // --json
  bool help = false;  // -h, --help
};

// Takes --json, -h and --help out of argv wherever they stand; the new argc.
int TakeGlobalFlags(int argc, char** argv, GlobalFlags* flags);
// Whether --json was given (the commands print data as JSON then).
bool JsonOutput();
// The whole text is a decimal integer (sign allowed) within long.
bool ParseLong(const char* text, long* out);
// The whole text is a non-negative decimal number.
bool ParseSeconds(const char* text, double* out);
// The text is exactly `count` decimal digits (dates such as YYYYMMDDhhmmss).
bool IsDigits(const char* text, size_t count);
// The folder of `file` exists and may be written: a file can be made there.
bool CanCreate(const char* file);
