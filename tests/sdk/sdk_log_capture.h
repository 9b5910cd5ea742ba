// Captures the library's log lines through the application log callback. The callback is
// process-wide and the first one registered stays, so each test binary installs this one
// capture and reads from it.
#ifndef QXNET_TESTS_SDK_LOG_CAPTURE_H
#define QXNET_TESTS_SDK_LOG_CAPTURE_H

#include <string>
#include <vector>

namespace sdktest {

struct LogLine {
  unsigned int level;
  std::string text;  // the line without its "QXNetSDK:MM-DD,hh:mm:ss," prefix
};

// Registers the capture (all levels on). Lines reach it only while the library is
// initialised (the log writer runs from QXNet_init to QXNet_Free).
void InstallLogCapture();
void ClearLog();
std::vector<LogLine> LogLines();
// How many captured lines equal `text` exactly (after the prefix).
size_t CountLog(const std::string& text);
// How many captured lines begin with `head`.
size_t CountLogPrefix(const std::string& head);
// Lines that arrived without the expected time-stamp prefix.
size_t MalformedLogLines();
// printf into a std::string.
std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
// A message as the log callback receives it: the sink ends a line that has no line feed
// of its own with "\r\n".
std::string AsLogged(const std::string& message);

}  // namespace sdktest

#endif
