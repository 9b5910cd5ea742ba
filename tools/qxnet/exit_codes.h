// qxnet's exit codes, in one place: the commands return them and the help prints this table.
#pragma once

#include <cstddef>

enum ExitCode : int {
  kExitOk = 0,          // done
  kExitRefused = 1,     // the device refused, or the library returned an error result
  kExitUsage = 2,       // bad or missing arguments, unknown command
  kExitConnection = 3,  // no connection, login refused, connection dropped, device not found
  kExitFile = 4,        // a local file is missing or cannot be read or written
  kExitTimeout = 5,     // no answer from the device within --timeout
};

struct ExitCodeInfo {
  ExitCode code;
  const char* meaning;
};

inline constexpr ExitCodeInfo kExitCodeTable[] = {
    {kExitOk, "success"},
    {kExitRefused, "the device refused, or the library returned an error result"},
    {kExitUsage, "usage error: bad or missing arguments, unknown command"},
    {kExitConnection, "connection or login failed, connection dropped, device not found"},
    {kExitFile, "a local file is missing or cannot be read or written"},
    {kExitTimeout, "timed out waiting for the device (--timeout)"},
};
inline constexpr std::size_t kExitCodeCount = sizeof kExitCodeTable / sizeof kExitCodeTable[0];
