// DevSim that also checks the simulator's exit: a clean QUIT must give status
// 0, so a sanitizer report inside qxdevsim (which changes the status) fails the
// test that provoked it.
#pragma once

#include <gtest/gtest.h>

#include "devsim_client.h"

namespace devsimtest {

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
