// qxdevsim when the client goes away: every complete frame received before a
// FIN or a reset is still handled, the simulator then closes its side, and an
// upload whose bytes all arrived is recorded as done, not abandoned.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include "checked_sim.h"
#include "devsim_client.h"
#include "ops/ops_files.h"
#include "raw_client.h"

using devsimtest::authBody;
using devsimtest::CheckedSim;
using devsimtest::chunk;
using devsimtest::chunkHeader;
using devsimtest::Frame;
using devsimtest::frameOf;
using devsimtest::PausedSim;
using devsimtest::RawClient;
using devsimtest::request;
using devsimtest::tag;
using opstest::FnvHex;
using opstest::PatternBytes;
using qxtest::DevSim;

namespace {

// Authentication, announcement and the chunks of a firmware upload, as one
// stream of frames; with the closing dataLength 0 chunk when `end`.
std::string uploadStream(const std::string& data, size_t chunkSize, bool end) {
  std::string s = frameOf(request("10000", "14012", authBody("admin", "admin")));
  s += frameOf(request("20000", "20001", "<firmwareLength>" + std::to_string(data.size()) + "</firmwareLength>"));
  for (size_t off = 0; off < data.size(); off += chunkSize)
    s += frameOf(chunk("20002", static_cast<long long>(off), data.substr(off, chunkSize)));
  if (end) s += frameOf(chunkHeader("20002", static_cast<long long>(data.size()), 0) + std::string(4, '\0'));
  return s;
}

void resetOnClose(RawClient& c) {
  linger lg{1, 0};
  setsockopt(c.fd(), SOL_SOCKET, SO_LINGER, &lg, sizeof lg);
}

}  // namespace

TEST(DevSimEof, FramesBeforeAFinAreAllAnsweredThenTheSimulatorCloses) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(c.connected());
  {
    // Paused: the three requests and the FIN are all waiting when it reads.
    PausedSim pause(sim.pid());
    ASSERT_TRUE(pause.ok());
    std::string hb = frameOf(request("30000", "35001", ""));
    ASSERT_TRUE(c.sendBytes(hb + hb + hb));
    ASSERT_EQ(shutdown(c.fd(), SHUT_WR), 0);
  }
  Frame f;
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(c.readAnswer("30000", "35001", f)) << i;
  EXPECT_TRUE(c.closedWithin(2000)) << "the simulator closes its side once the answers are out";
  EXPECT_EQ(sim.count("30000", "35001"), 3);
}

TEST(DevSimEof, UploadThenLogoutIsRecordedDone) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  const std::string data = PatternBytes(3 * 8000 + 123, 21);
  RawClient c(sim.port());
  ASSERT_TRUE(c.connected());
  {
    PausedSim pause(sim.pid());
    ASSERT_TRUE(pause.ok());
    ASSERT_TRUE(c.sendBytes(uploadStream(data, 8000, true)));
    ASSERT_EQ(shutdown(c.fd(), SHUT_WR), 0);
  }
  EXPECT_TRUE(c.closedWithin(3000));
  ASSERT_TRUE(sim.waitStat("uploads_done", 1, 3000));
  auto u = DevSim::fields(sim.cmd("UPLOAD 0"));
  EXPECT_EQ(u["state"], "done");
  EXPECT_EQ(u["size"], std::to_string(data.size()));
  EXPECT_EQ(u["fnv"], FnvHex(data));
  EXPECT_EQ(u["errors"], "0") << u["err"];
}

TEST(DevSimEof, UploadThenResetStillCountsWhatArrived) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  const std::string data = PatternBytes(3 * 8000, 22);
  {
    RawClient c(sim.port());
    ASSERT_TRUE(c.connected());
    PausedSim pause(sim.pid());
    ASSERT_TRUE(pause.ok());
    // Small enough to sit whole in the simulator's receive buffer before the reset.
    ASSERT_TRUE(c.sendBytes(uploadStream(data, 8000, true)));
    resetOnClose(c);
  }  // reset while the simulator is paused: it reads the frames, then the reset
  ASSERT_TRUE(sim.waitStat("uploads_done", 1, 3000)) << sim.cmd("UPLOAD");
  auto u = DevSim::fields(sim.cmd("UPLOAD 0"));
  EXPECT_EQ(u["state"], "done");
  EXPECT_EQ(u["fnv"], FnvHex(data));
  EXPECT_EQ(u["errors"], "0") << u["err"];
  EXPECT_TRUE(sim.waitConnections(0, 2000, false));
}

TEST(DevSimEof, AllBytesButNoEndChunkIsDoneWithANote) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  const std::string data = PatternBytes(20000, 23);
  RawClient c(sim.port());
  ASSERT_TRUE(c.connected());
  ASSERT_TRUE(c.sendBytes(uploadStream(data, 8000, false)));
  ASSERT_EQ(shutdown(c.fd(), SHUT_WR), 0);
  EXPECT_TRUE(c.closedWithin(3000));
  ASSERT_TRUE(sim.waitStat("uploads_done", 1, 3000)) << sim.cmd("UPLOAD");
  auto u = DevSim::fields(sim.cmd("UPLOAD 0"));
  EXPECT_EQ(u["state"], "done");
  EXPECT_EQ(u["fnv"], FnvHex(data));
  EXPECT_EQ(u["errors"], "1");
  EXPECT_NE(u["err"].find("end-of-file chunk"), std::string::npos) << u["err"];
}

TEST(DevSimEof, MissingBytesAtTheCloseAreAnAbandonedUpload) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  std::string data = PatternBytes(20000, 24);
  std::string stream = uploadStream(data, 8000, false);
  // Announce more than is sent.
  size_t at = stream.find("<firmwareLength>20000<");
  ASSERT_NE(at, std::string::npos);
  stream.replace(at, 22, "<firmwareLength>20001<");
  RawClient c(sim.port());
  ASSERT_TRUE(c.connected());
  ASSERT_TRUE(c.sendBytes(stream));
  ASSERT_EQ(shutdown(c.fd(), SHUT_WR), 0);
  EXPECT_TRUE(c.closedWithin(3000));
  ASSERT_TRUE(sim.waitStat("uploads_abandoned", 1, 3000)) << sim.cmd("UPLOAD");
  auto u = DevSim::fields(sim.cmd("UPLOAD 0"));
  EXPECT_EQ(u["state"], "abandoned");
  EXPECT_EQ(u["size"], "20000");
  EXPECT_EQ(sim.stat("uploads_done"), 0);
}
