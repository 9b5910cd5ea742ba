// qxdevsim as a hostile device: bytes that dribble in one at a time (TRICKLE)
// and a device that hangs up during authentication (auth_mode close).
#include <gtest/gtest.h>

#include "checked_sim.h"
#include "devsim_client.h"
#include "raw_client.h"

using devsimtest::authBody;
using devsimtest::CheckedSim;
using devsimtest::Frame;
using devsimtest::nowMs;
using devsimtest::RawClient;
using devsimtest::tag;

namespace {

std::string hexOf(const std::string& bytes) {
  static const char* digits = "0123456789abcdef";
  std::string h;
  for (unsigned char b : bytes) {
    h += digits[b >> 4];
    h += digits[b & 15];
  }
  return h;
}

// Id of the connection that sent the newest authentication request.
std::string lastAuthConn(CheckedSim& sim) { return sim.lastMsg("10000", "14012")["conn"]; }

}  // namespace

TEST(DevSimTrickle, OneByteAtATimeWhileOtherConnectionsAreServed) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient slow(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(slow));
  std::string slowId = lastAuthConn(sim);
  RawClient other(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(other));

  int64_t t0 = nowMs();
  ASSERT_EQ(sim.cmd("TRICKLE " + slowId + " 6 100"), "OK 1");
  // The loop is not blocked: another connection is answered at once.
  ASSERT_TRUE(other.sendRequest("30000", "35001"));
  Frame f;
  ASSERT_TRUE(other.readAnswer("30000", "35001", f, 2000));
  EXPECT_LT(nowMs() - t0, 400) << "answered while the trickle still runs";
  // An answer asked for on the trickling connection queues behind its bytes.
  ASSERT_TRUE(slow.sendRequest("30000", "35001"));
  std::string got;
  int pieces = slow.readCountingPieces(6, got, 3000);
  int64_t took = nowMs() - t0;
  EXPECT_EQ(got, std::string(6, '\x5a'));
  EXPECT_GE(pieces, 3) << "the bytes arrive separately";
  EXPECT_GE(took, 5 * 100 - 10) << "one byte every 100 ms";
  ASSERT_TRUE(slow.readAnswer("30000", "35001", f, 2000));
  EXPECT_EQ(sim.stat("trickle_bytes"), 6);
}

TEST(DevSimTrickle, RepeatsTheGivenBytesAndCanDripAWholeFrame) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_EQ(sim.cmd("TRICKLE last 7 2 hex=0a0b0c"), "OK 1");
  std::string got;
  ASSERT_TRUE(c.readExact(7, got, 3000));
  EXPECT_EQ(got, std::string("\x0a\x0b\x0c\x0a\x0b\x0c\x0a", 7));

  std::string hb = devsimtest::frameOf(devsimtest::request("30000", "35099", "<x>drip</x>"));
  ASSERT_EQ(sim.cmd("TRICKLE last " + std::to_string(hb.size()) + " 1 hex=" + hexOf(hb)), "OK 1");
  Frame f;
  ASSERT_TRUE(c.readAnswer("30000", "35099", f, 5000));
  EXPECT_EQ(tag(f.text(), "x"), "drip");

  EXPECT_EQ(sim.cmd("TRICKLE last 0 10").rfind("ERR usage", 0), 0u);
  EXPECT_EQ(sim.cmd("TRICKLE last 5 0").rfind("ERR usage", 0), 0u);
  EXPECT_EQ(sim.cmd("TRICKLE last 5").rfind("ERR usage", 0), 0u);
  EXPECT_EQ(sim.cmd("TRICKLE last 5 10 hex=zz"), "ERR bad hex");
  EXPECT_EQ(sim.cmd("TRICKLE 999 5 10"), "ERR no open connection 999");
}

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
