// The LAN test bench: the facts of the namespaces made by lan_netns.sh, and simulators
// started in the LAN namespace. Outside that script every test skips: these tests must
// never broadcast or probe on the machine's real interfaces.
#pragma once

#include <gtest/gtest.h>

#include <sched.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "support/devsim_client.h"

namespace lantest {

inline std::string Env(const char* name) {
  const char* v = getenv(name);
  return v ? v : "";
}

inline bool InLanBench() { return !Env("QXNET_LAN_NS").empty(); }

#define LAN_BENCH_OR_SKIP()                                                                      \
  do {                                                                                           \
    if (!lantest::InLanBench())                                                                  \
      GTEST_SKIP() << "not inside the namespaces of tests/netns/lan_netns.sh: refusing to use " \
                      "the machine's own network";                                               \
  } while (0)

// qxdevsim in the LAN namespace with --lan N and the given extra options; its control
// channel on the gateway address. `idle`: the simulator runs in the idle scheduling class,
// so that it gets a core only when nothing else wants one. Real devices answer from their
// own machines; here they share the 2 cores with the library, and a simulator holding the
// library's core for a scheduler tick would measure the machine, not the library.
inline std::unique_ptr<qxtest::DevSim> StartLanSim(int n, const std::vector<std::string>& extra = {},
                                                   bool idle = false) {
  std::vector<std::string> args = {"--lan", std::to_string(n), "--lan-listen", "0.0.0.0:2018",
                                   "--listen", "127.0.0.1:0", "--lan-gateway", Env("QXNET_LAN_GATEWAY"),
                                   "--lan-mask", Env("QXNET_LAN_MASK")};
  args.insert(args.end(), extra.begin(), extra.end());
  qxtest::DevSimPlace place;
  place.launcher = {"ip", "netns", "exec", Env("QXNET_LAN_NS")};
  place.controlHost = Env("QXNET_LAN_GATEWAY");
  std::unique_ptr<qxtest::DevSim> sim(new qxtest::DevSim(args, 10000, place));
  // Moved to the idle class only once it listens: started there, on a machine whose cores
  // are busy with other tests it may not get the moment it needs to come up at all.
  // (`ip netns exec` execs the simulator, so the launcher's pid is the simulator's.)
  if (idle && sim->ok()) {
    struct sched_param none = {};
    if (sched_setscheduler(sim->pid(), SCHED_IDLE, &none) != 0)
      std::fprintf(stderr, "could not move qxdevsim to the idle class: %s\n", std::strerror(errno));
  }
  return sim;
}

}  // namespace lantest
