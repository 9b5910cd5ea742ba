// Byte patterns, their hash and whole-file helpers for the device-operation tests; no
// library code, so binaries linked against the shared library can use them too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace opstest {

uint64_t Fnv1a(const std::string& bytes);
// Fnv1a as 16 lower-case hex digits, the form of the simulator's fnv= fields.
std::string FnvHex(const std::string& bytes);
std::string PatternBytes(size_t n, uint32_t seed);
bool WriteFile(const std::string& path, const std::string& bytes);
bool ReadFile(const std::string& path, std::string* bytes);
bool FileExists(const std::string& path);

}  // namespace opstest
