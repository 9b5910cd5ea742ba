// The readers behind the host facts, on plain text.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "base/HostNet.h"
#include "base/HostNetParse.h"
#include "hostnet_log_capture.h"

namespace {

uint32_t A(const char* t) { return inet_addr(t); }

const char* kRoute =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
    "eth1\t00000000\t0102A87F\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
    "eth0\t0000A87F\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
    "eth0\t00000000\t0100A87F\t0003\t0\t0\t0\t00000000\t0\t0\t0\n"
    "eth0\t00000000\t0200A87F\t0003\t0\t0\t50\t00000000\t0\t0\t0\n";

TEST(RouteFile, DefaultGatewayOfTheNamedInterface) {
  EXPECT_EQ(A("127.168.0.1"), ParseDefaultGateway(kRoute, "eth0"));
  EXPECT_EQ(A("127.168.2.1"), ParseDefaultGateway(kRoute, "eth1"));
  EXPECT_EQ(0u, ParseDefaultGateway(kRoute, "eth2"));
}

TEST(RouteFile, SubnetRoutesAndDownRoutesAreNotDefaults) {
  const char* t =
      "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\n"
      "eth0\t0000A87F\t0100A87F\t0003\t0\t0\t0\t00FFFFFF\n"   // a subnet via a gateway
      "eth0\t00000000\t0900A87F\t0002\t0\t0\t0\t00000000\n";  // default, not up
  EXPECT_EQ(0u, ParseDefaultGateway(t, "eth0"));
}

TEST(RouteFile, OnLinkDefaultHasNoGatewayAndGarbageIsSkipped) {
  const char* t =
      "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\n"
      "eth0\tzz\t0100A87F\t0003\t0\t0\t0\t00000000\n"
      "eth0\t00000000\t00000000\t0001\t0\t0\t0\t00000000\n"
      "short line\n";
  EXPECT_EQ(0u, ParseDefaultGateway(t, "eth0"));
  EXPECT_EQ(0u, ParseDefaultGateway("", "eth0"));
}

TEST(ResolvConf, Ipv4NameserversInOrder) {
  const char* t =
      "# comment\nsearch example\nnameserver 127.0.0.53\n  nameserver\t127.0.0.54 \n"
      "nameserver fe80::1\nnameserver 300.1.1.1\nnameserverx 1.1.1.1\nnameserver 127.0.0.55\n";
  std::vector<std::string> v = ParseResolvNameservers(t);
  ASSERT_EQ(3u, v.size());
  EXPECT_EQ("127.0.0.53", v[0]);
  EXPECT_EQ("127.0.0.54", v[1]);
  EXPECT_EQ("127.0.0.55", v[2]);
  EXPECT_TRUE(ParseResolvNameservers("").empty());
}

TEST(InterfaceAddress, TheOneOnTheGatewaysNetworkWins) {
  std::vector<HostIfAddr> a = {{A("127.1.0.5"), A("255.255.0.0")}, {A("127.168.7.9"), A("255.255.255.0")}};
  EXPECT_EQ(1, ChooseInterfaceAddress(a, A("127.168.7.1")));
  EXPECT_EQ(0, ChooseInterfaceAddress(a, A("127.1.200.1")));
  EXPECT_EQ(0, ChooseInterfaceAddress(a, A("127.16.0.1")));  // none: the first
  EXPECT_EQ(-1, ChooseInterfaceAddress({}, A("127.16.0.1")));
}

TEST(InterfaceAddress, LabelsNameTheirInterface) {
  EXPECT_EQ("eth0", InterfaceBaseName("eth0:1"));
  EXPECT_EQ("veth9", InterfaceBaseName("veth9"));
  EXPECT_EQ("1.2.3.4", Ipv4Text(A("1.2.3.4")));
}

HostAddrs& Filled() {
  static HostAddrs a;
  snprintf(a[0], 32, "127.9.0.7");
  snprintf(a[1], 32, "255.255.255.0");
  snprintf(a[2], 32, "127.9.0.1");
  snprintf(a[3], 32, "127.9.0.53");
  a[4][0] = '\0';
  return a;
}

TEST(NetworkParam, EachFactByIndex) {
  char buf[64];
  EXPECT_EQ(9, GetNetworkParam(Filled(), 0, buf, sizeof buf));
  EXPECT_STREQ("127.9.0.7", buf);
  EXPECT_EQ(13, GetNetworkParam(Filled(), 1, buf, sizeof buf));
  EXPECT_STREQ("255.255.255.0", buf);
  EXPECT_EQ(9, GetNetworkParam(Filled(), 2, buf, sizeof buf));
  EXPECT_STREQ("127.9.0.1", buf);
  EXPECT_EQ(10, GetNetworkParam(Filled(), 3, buf, sizeof buf));
  EXPECT_STREQ("127.9.0.53", buf);
}

TEST(NetworkParam, OneDnsServerGivesAnEmptySecond) {
  char buf[8];
  memset(buf, 'x', sizeof buf);
  EXPECT_EQ(0, GetNetworkParam(Filled(), 4, buf, sizeof buf));
  EXPECT_STREQ("", buf);
}

TEST(NetworkParam, BadIndexesAndNullBuffer) {
  hostlog::Capture cap;
  char buf[64];
  EXPECT_EQ(-96, GetNetworkParam(Filled(), 5, buf, sizeof buf));
  EXPECT_EQ(1, cap.Count("[CSearchIPC]: bad index: 5\n"));
  EXPECT_EQ(-96, GetNetworkParam(Filled(), -1, buf, sizeof buf));
  EXPECT_EQ(1, cap.Count("[CSearchIPC]: bad index: -1\n"));
  EXPECT_EQ(-96, GetNetworkParam(Filled(), 0, nullptr, 64));
  EXPECT_EQ(1, cap.Count("[CSearchIPC]: strResult is null \n"));
}

TEST(NetworkParam, TextMustFitWithItsNul) {
  char buf[16];
  EXPECT_EQ(-100, GetNetworkParam(Filled(), 0, buf, 9));  // 9 chars need 10 bytes
  EXPECT_EQ(9, GetNetworkParam(Filled(), 0, buf, 10));
  EXPECT_STREQ("127.9.0.7", buf);
}

// The file sources: DNS from the resolver file even when no interface leads outward.
TEST(NetworkConfig, DnsFromTheResolverFile) {
  char path[] = "/tmp/qxnet-resolv-XXXXXX";
  int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  std::ofstream(path) << "nameserver 127.3.3.3\nnameserver 127.4.4.4\nnameserver 127.5.5.5\n";
  hostlog::Capture cap;
  HostAddrs a = {};
  HostNetSources src;
  src.resolvFile = path;
  src.outwardProbe = "not an address";  // no route lookup at all: entries 0-2 stay
  snprintf(a[0], 32, "keep");
  EXPECT_EQ(1, GetNetworkConfigFrom(a, src));
  EXPECT_STREQ("127.3.3.3", a[3]);
  EXPECT_STREQ("127.4.4.4", a[4]);
  EXPECT_STREQ("keep", a[0]);
  EXPECT_EQ(1, cap.Count("[CSearchIPC] DNS1: 127.3.3.3\n"));
  EXPECT_EQ(1, cap.Count("[CSearchIPC] DNS2: 127.4.4.4\n"));
  unlink(path);
}

}  // namespace
