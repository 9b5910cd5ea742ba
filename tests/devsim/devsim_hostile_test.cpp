// qxdevsim as a hostile device: a device that hangs up during authentication
// (auth_mode close).
#include <gtest/gtest.h>

#include "checked_sim.h"
#include "devsim_client.h"
#include "raw_client.h"

using devsimtest::authBody;
using devsimtest::CheckedSim;
using devsimtest::Frame;
using devsimtest::RawClient;

TEST(DevSimAuthClose, HangsUpOnAuthenticationWithoutAnswer) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("SET auth_mode close"));
  EXPECT_EQ(sim.cmd("GET auth_mode"), "OK close");
  RawClient c(sim.port());
  ASSERT_TRUE(c.connected());
  // Requests before the authentication are still answered.
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  Frame f;
  ASSERT_TRUE(c.readAnswer("30000", "35001", f));
  ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("admin", "admin")));
  std::string got;
  EXPECT_FALSE(c.readExact(1, got, 2000));
  EXPECT_TRUE(got.empty()) << "no answer before the close";
  EXPECT_TRUE(c.closedWithin(500));
  EXPECT_EQ(sim.count("10000", "14012"), 1) << "the request is still recorded";
  EXPECT_EQ(sim.stat("auth_hangups"), 1);
  EXPECT_EQ(sim.stat("auth_ok"), 0);
  EXPECT_TRUE(sim.waitConnections(0, 2000, false));

  ASSERT_TRUE(sim.cmdOk("SET auth_mode normal"));
  RawClient d(sim.port());
  EXPECT_TRUE(devsimtest::authenticate(d));
}
