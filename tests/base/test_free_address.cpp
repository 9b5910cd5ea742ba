// The candidate walk of the free-address proposal with a scripted probe.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "base/FreeAddress.h"
#include "base/HostNetParse.h"
#include "hostnet_log_capture.h"

namespace {

uint32_t A(const char* t) { return inet_addr(t); }

struct Host {
  HostAddrs a = {};
  Host(const char* ip, const char* gw) {
    snprintf(a[0], 32, "%s", ip);
    snprintf(a[1], 32, "255.255.255.0");
    snprintf(a[2], 32, "%s", gw);
  }
};

// Records every probed address; answers 1 (usable) only for those in `free`.
struct Probe {
  std::vector<std::string> probed;
  std::set<uint32_t> free;
  int other = 0;  // what the busy ones return
  AddressProbe Fn() {
    return [this](uint32_t a) {
      probed.push_back(Ipv4Text(a));
      return free.count(a) ? 1 : other;
    };
  }
};

TEST(FreeAddress, WalksDownFrom254) {
  Host h("127.1.2.7", "127.1.2.1");
  Probe p;
  p.free = {A("127.1.2.252")};
  char out[64];
  EXPECT_EQ(11, GetOneIPAddressWith(h.a, nullptr, p.Fn(), false, out, sizeof out));
  EXPECT_STREQ("127.1.2.252", out);
  EXPECT_EQ((std::vector<std::string>{"127.1.2.254", "127.1.2.253", "127.1.2.252"}), p.probed);
}

TEST(FreeAddress, HostOn254IsSkippedAnd253ProbedFirst) {
  Host h("127.1.2.254", "127.1.2.1");
  Probe p;
  p.free = {A("127.1.2.253")};
  char out[64];
  EXPECT_GT(GetOneIPAddressWith(h.a, nullptr, p.Fn(), false, out, sizeof out), 0);
  EXPECT_EQ("127.1.2.253", p.probed.at(0));
  EXPECT_STREQ("127.1.2.253", out);
}

TEST(FreeAddress, GatewayKnownAndHandedOutAddressesCostNoProbe) {
  Host h("127.1.2.7", "127.1.2.254");
  std::set<uint32_t> taken = {A("127.1.2.253"), A("127.1.2.252")};
  Probe p;
  p.free = {A("127.1.2.254"), A("127.1.2.253"), A("127.1.2.252"), A("127.1.2.251")};
  char out[64];
  GetOneIPAddressWith(h.a, [&](uint32_t a) { return taken.count(a) != 0; }, p.Fn(), false, out, sizeof out);
  EXPECT_STREQ("127.1.2.251", out);
  EXPECT_EQ(std::vector<std::string>{"127.1.2.251"}, p.probed);
}

TEST(FreeAddress, ProbeErrorsCountAsNotUsable) {
  Host h("127.1.2.7", "127.1.2.1");
  Probe p;
  p.other = -1;
  p.free = {A("127.1.2.250")};
  char out[64];
  GetOneIPAddressWith(h.a, nullptr, p.Fn(), false, out, sizeof out);
  EXPECT_STREQ("127.1.2.250", out);
  EXPECT_EQ(5u, p.probed.size());
}

TEST(FreeAddress, AllRejectedGivesTheHostsOwnAddressWithoutALogLine) {
  hostlog::Capture cap;
  Host h("127.1.2.7", "127.1.2.1");
  Probe p;
  char out[64];
  EXPECT_EQ(9, GetOneIPAddressWith(h.a, nullptr, p.Fn(), false, out, sizeof out));
  EXPECT_STREQ("127.1.2.7", out);
  EXPECT_EQ(252u, p.probed.size());  // 254 candidates less the host and the gateway
  EXPECT_EQ("127.1.2.1" == p.probed.back(), false);
  EXPECT_EQ("127.1.2.2", p.probed.back());
  for (const std::string& l : hostlog::Lines()) EXPECT_EQ(std::string::npos, l.find("got one ip"));
}

TEST(FreeAddress, AnswerIsLogged) {
  hostlog::Capture cap;
  Host h("127.1.2.7", "127.1.2.1");
  Probe p;
  p.free = {A("127.1.2.254")};
  char out[64];
  GetOneIPAddressWith(h.a, nullptr, p.Fn(), false, out, sizeof out);
  EXPECT_EQ(1, cap.Count("[CSearchIPC] got one ip: 127.1.2.254\n"));
}

TEST(FreeAddress, BufferChecks) {
  hostlog::Capture cap;
  Host h("127.1.2.7", "127.1.2.1");
  Probe p;
  p.free = {A("127.1.2.254")};
  char out[64];
  EXPECT_EQ(-8999996, GetOneIPAddressWith(h.a, nullptr, p.Fn(), false, out, 32));
  EXPECT_EQ(1, cap.Count("[CSearchIPC] nSize less than 33 \n"));
  EXPECT_EQ(-8999996, GetOneIPAddressWith(h.a, nullptr, p.Fn(), false, nullptr, 64));
  EXPECT_EQ(1, cap.Count("[CSearchIPC] strResult is null \n"));
  EXPECT_TRUE(p.probed.empty());
  EXPECT_EQ(11, GetOneIPAddressWith(h.a, nullptr, p.Fn(), false, out, 33));
}

TEST(FreeAddress, NoHostAddressProbesNothing) {
  Host h("", "");
  Probe p;
  p.free = {A("255.255.255.254")};
  char out[64];
  EXPECT_EQ(0, GetOneIPAddressWith(h.a, nullptr, p.Fn(), false, out, sizeof out));
  EXPECT_STREQ("", out);
  EXPECT_TRUE(p.probed.empty());
}

}  // namespace
