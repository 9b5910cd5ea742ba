// What the session tests that go through the public interface share: the time since a
// moment, a login to a device on 127.0.0.1, and a fixture that owns one session.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

#include "QXNetSDK.h"
#include "capture.h"
#include "support/devsim_client.h"  // tests/ is on every test include path

namespace qxtest {

using Clock = std::chrono::steady_clock;

// Seconds from t0 until now.
inline double Since(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// Logs in to the device listening on 127.0.0.1:port; the login identifier (> 0), or an error.
inline long LoginLocal(uint16_t port, const char* user = "admin", const char* pass = "admin") {
  return QXNet_Loc_LoginDev(const_cast<char*>("127.0.0.1"), port, const_cast<char*>(user),
                            const_cast<char*>(pass), nullptr);
}

// A test with one session of its own (id_): the capture is installed and reconnection on
// before it; after it the session, if still there, is logged out and reconnection is on
// again for the next test.
class SessionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Capture::Get().Install();
    QXNet_SetAutoReconnect(1);
  }
  void TearDown() override {
    if (id_ > 0) {
      EXPECT_EQ(0, QXNet_LogOutDev(id_));
    }
    QXNet_SetAutoReconnect(1);
  }
  // Logs the test's session in to device `dev` of the simulator.
  long Login(DevSim& sim, const char* user = "admin", const char* pass = "admin", int dev = 0) {
    id_ = LoginLocal(sim.port(dev), user, pass);
    return id_;
  }
  // Logs the test's session in and waits until the device has accepted it. A failure is
  // fatal: call it through ASSERT_NO_FATAL_FAILURE where more follows.
  void LoginAuthenticated(DevSim& sim) {
    ASSERT_GT(Login(sim), 0);
    ASSERT_TRUE(Capture::Get().WaitEvent(QXNET_EV_AUTHENTICATED, 1, 10000));
  }

  long id_ = 0;
};

}  // namespace qxtest
