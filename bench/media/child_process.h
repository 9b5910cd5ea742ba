// Runs another program to its end and measures it: wall time and the CPU time (user +
// system, all its threads) that wait4 reports for it.
#pragma once

#include <string>
#include <vector>

namespace benchdl {

struct ChildRun {
  int exitCode = -1;  // the exit status, or -1 when it could not start or died of a signal
  double wall = 0;    // seconds from start to end
  double cpu = 0;     // user + system seconds of the child
};

// Runs argv[0] (searched in PATH) with stdin from /dev/null, stdout into outFile and stderr
// into errFile (/dev/null when empty).
ChildRun RunChild(const std::vector<std::string>& argv, const std::string& outFile, const std::string& errFile);

// The whole content of a file, empty when unreadable.
std::string ReadText(const std::string& path);
long long FileBytes(const std::string& path);  // -1 when absent
double NowSeconds();                           // steady clock
double SelfCpuSeconds();                       // user + system time of this process

}  // namespace benchdl
