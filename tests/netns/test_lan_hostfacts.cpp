// Host facts and the free-address probe on the namespace bench: the host at 10.77.0.1/24,
// its gateway 10.77.0.254 and the pingable 10.77.0.253 and .252 in the LAN namespace.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "QXNetSDK.h"
#include "base/HostNet.h"
#include "base/IcmpProbe.h"
#include "lan_fixture.h"

namespace {

using lantest::Env;

class LanHost : public ::testing::Test {
 protected:
  void SetUp() override {
    LAN_BENCH_OR_SKIP();
    ASSERT_EQ(0, QXNet_init());
  }
  void TearDown() override { QXNet_Free(); }
};

std::string Param(long index, int size = 64) {
  char buf[64] = "unchanged";
  long n = QXNet_Loc_GetNetworkParam(index, buf, size);
  return n < 0 ? "error " + std::to_string(n) : std::string(buf, static_cast<size_t>(n));
}

TEST_F(LanHost, NetworkParamGivesTheOutwardInterfacesFacts) {
  EXPECT_EQ(Env("QXNET_LAN_HOST_IP"), Param(0));
  EXPECT_EQ(Env("QXNET_LAN_MASK"), Param(1));
  EXPECT_EQ(Env("QXNET_LAN_GATEWAY"), Param(2));
  EXPECT_EQ(Env("QXNET_LAN_DNS1"), Param(3));
  EXPECT_EQ("", Param(4));  // one DNS server: the second is empty, and that is success
}

TEST_F(LanHost, NetworkParamRefusals) {
  char buf[64];
  EXPECT_EQ(-96, QXNet_Loc_GetNetworkParam(5, buf, sizeof buf));
  EXPECT_EQ(-96, QXNet_Loc_GetNetworkParam(-1, buf, sizeof buf));
  EXPECT_EQ(-96, QXNet_Loc_GetNetworkParam(0, nullptr, 64));
  EXPECT_EQ(-100, QXNet_Loc_GetNetworkParam(0, buf, 9));  // "10.77.0.1" needs 10 bytes
  EXPECT_EQ(9, QXNet_Loc_GetNetworkParam(0, buf, 10));
}

TEST_F(LanHost, ExportsRefuseBeforeInit) {
  QXNet_Free();
  char buf[64];
  EXPECT_EQ(-201, QXNet_Loc_GetNetworkParam(0, buf, sizeof buf));
  EXPECT_EQ(-201, QXNet_GetOneIPAddress(buf, sizeof buf));
  EXPECT_EQ(-201, QXNet_Loc_GetOneIPAddress(buf, sizeof buf));
}

uint32_t A(const std::string& t) { return inet_addr(t.c_str()); }

// Both socket kinds: the raw one (IP header in what is read) and the ping socket (none).
class LanProbe : public ::testing::TestWithParam<IcmpSocketKind> {
 protected:
  void SetUp() override { LAN_BENCH_OR_SKIP(); }
};

TEST_P(LanProbe, PingableAddressAnswers) {
  EXPECT_EQ(0, PintTestWith(A("10.77.0.253"), GetParam()));
  EXPECT_EQ(0, PintTestWith(A(Env("QXNET_LAN_GATEWAY")), GetParam()));
}

TEST_P(LanProbe, SilentAddressIsUsableAfterAboutHalfASecond) {
  auto t0 = std::chrono::steady_clock::now();
  EXPECT_EQ(1, PintTestWith(A("10.77.0.77"), GetParam()));
  double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  EXPECT_GE(s, 0.45);
  EXPECT_LT(s, 3.0);
}

INSTANTIATE_TEST_SUITE_P(Kinds, LanProbe, ::testing::Values(ICMP_SOCKET_RAW, ICMP_SOCKET_PING),
                         [](const ::testing::TestParamInfo<IcmpSocketKind>& i) {
                           return std::string(i.param == ICMP_SOCKET_RAW ? "Raw" : "PingSocket");
                         });

// Through the export: .254 is the gateway (skipped unprobed), .253 and .252 answer ping,
// so .251 is the first free one.
TEST_F(LanHost, OneIpAddressSkipsTheGatewayAndPingableAddresses) {
  char buf[64] = {0};
  long n = QXNet_Loc_GetOneIPAddress(buf, sizeof buf);
  EXPECT_EQ(11, n);
  EXPECT_STREQ("10.77.0.251", buf);
  memset(buf, 0, sizeof buf);
  EXPECT_EQ(11, QXNet_GetOneIPAddress(buf, 33));
  EXPECT_STREQ("10.77.0.251", buf);
  EXPECT_EQ(-8999996, QXNet_GetOneIPAddress(buf, 32));
  EXPECT_EQ(-8999996, QXNet_GetOneIPAddress(nullptr, 64));
}

}  // namespace
