// The soak's simulator child, watched: it listens on fixed ports (below the ephemeral
// range, so a client's connect can never meet its own port while a device reboots), and
// when it dies the death is counted and it is started again on the same ports with the
// same control lines, so that the sessions, which keep their device addresses, return.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "devsim_client.h"
#include "soak_chaos.h"

namespace qxbench {

class SimSupervisor {
 public:
  explicit SimSupervisor(int devices) : devices_(devices) {}

  bool Start(std::string& err);
  qxtest::DevSim& sim() { return *sim_; }
  int devices() const { return devices_; }
  uint16_t port(int dev) const { return static_cast<uint16_t>(base_ + dev); }

  // Sends a control line and returns the reply. A later line with the same key replaces
  // an earlier one; with replay, a line that succeeded is sent again after a restart.
  std::string Apply(const std::string& key, const std::string& line, bool replay);

  // Polls the child; after a death counts it and restarts it. False while it is down.
  bool Check();
  int crashes() const { return static_cast<int>(deaths_.size()); }
  const std::vector<std::string>& deaths() const { return deaths_; }

  // chaos_* counters summed over every run of the simulator so far.
  ChaosStats Chaos();

  int Stop();  // QUIT and reap; the simulator's exit status, -1 when it had to be killed

 private:
  bool Launch(std::string& err);
  int devices_;
  uint16_t base_ = 0;
  std::unique_ptr<qxtest::DevSim> sim_;
  std::vector<std::pair<std::string, std::string>> lines_;
  std::vector<std::string> deaths_;
  ChaosStats carried_, last_;
};

}  // namespace qxbench
