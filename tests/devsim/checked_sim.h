// DevSim that also checks the simulator's exit: a clean QUIT must give status
// 0, so a sanitizer report inside qxdevsim (which changes the status) fails the
// test that provoked it.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "devsim_client.h"

namespace devsimtest {

// Stops the simulator (SIGSTOP) for the scope, so that whatever clients send
// meanwhile is waiting in its sockets all at once when it continues.
class PausedSim {
 public:
  explicit PausedSim(pid_t pid) : pid_(pid) {
    stopped_ = kill(pid_, SIGSTOP) == 0;
    // Stopping is asynchronous: wait until the process state says so.
    for (int i = 0; stopped_ && i < 200 && state() != 'T'; ++i) usleep(5000);
  }
  ~PausedSim() {
    if (stopped_) kill(pid_, SIGCONT);
  }
  bool ok() const { return stopped_; }

 private:
  char state() const {
    std::ifstream f("/proc/" + std::to_string(pid_) + "/stat");
    std::string line;
    std::getline(f, line);
    size_t p = line.rfind(')');
    return p != std::string::npos && p + 2 < line.size() ? line[p + 2] : '?';
  }
  pid_t pid_;
  bool stopped_ = false;
};

class CheckedSim : public qxtest::DevSim {
 public:
  using qxtest::DevSim::DevSim;
  ~CheckedSim() {
    if (ok()) {
      EXPECT_EQ(stop(), 0) << "qxdevsim did not exit cleanly";
    }
  }
};

}  // namespace devsimtest
