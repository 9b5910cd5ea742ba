// A device that goes silent without closing (power lost, cable pulled): its link is taken
// down between two network namespaces, so nothing answers and nothing is refused. The
// session must end through the socket's keepalive and user timeout, not after the many
// minutes of TCP retransmission, and come back once the link does.
//
// Runs inside the library's namespace, started by netns_keepalive.sh, which makes the
// namespaces and the veth pair, starts the simulator in the device's namespace and names
// them in QXNET_NETNS_DEVICE_{NS,IF,ADDR,PORT}.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "capture.h"
#include "session_fixture.h"

extern char** environ;

using qxtest::Capture;
using qxtest::Clock;
using qxtest::Since;

namespace {

struct NetnsDevice {
  std::string ns, ifName, addr;
  unsigned long port = 0;
};

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

// The device as the wrapper script names it; an empty answer, or what is missing.
std::string ReadDevice(NetnsDevice* d) {
  d->ns = Env("QXNET_NETNS_DEVICE_NS");
  d->ifName = Env("QXNET_NETNS_DEVICE_IF");
  d->addr = Env("QXNET_NETNS_DEVICE_ADDR");
  d->port = std::strtoul(Env("QXNET_NETNS_DEVICE_PORT").c_str(), nullptr, 10);
  if (d->ns.empty() || d->ifName.empty() || d->addr.empty() || d->port == 0 || d->port > 65535)
    return "QXNET_NETNS_DEVICE_{NS,IF,ADDR,PORT} not set: run through netns_keepalive.sh";
  return "";
}

// `ip -n NS link set IF up|down`; true when it succeeded.
bool SetDeviceLink(const NetnsDevice& d, bool up) {
  std::vector<std::string> args = {"ip", "-n", d.ns, "link", "set", d.ifName, up ? "up" : "down"};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  pid_t pid;
  if (posix_spawnp(&pid, "ip", nullptr, nullptr, argv.data(), environ) != 0) return false;
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return false;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool IsSocketErrorText(const std::string& text, const std::string& addr) {
  const std::string head = "device[" + addr + "]  socket error, fd=";
  return text.compare(0, head.size(), head) == 0 && text.size() > head.size() + 2 &&
         text.compare(text.size() - 2, 2, " \n") == 0;
}

TEST(SessionNetns, SilentDeviceEndsTheSessionAndItComesBackWithTheLink) {
  NetnsDevice dev;
  std::string missing = ReadDevice(&dev);
  ASSERT_EQ(missing, "");
  Capture::Get().Install();
  QXNet_SetAutoReconnect(1);
  long id = QXNet_Loc_LoginDev(&dev.addr[0], dev.port, const_cast<char*>("admin"),
                               const_cast<char*>("admin"), nullptr);
  ASSERT_GT(id, 0);
  ASSERT_TRUE(Capture::Get().WaitEvent(6, 1, 15000)) << "not authenticated over the veth link";

  Capture::Get().Clear();
  ASSERT_TRUE(SetDeviceLink(dev, false));
  auto down = Clock::now();
  // An unanswered heartbeat or two is no reason to give the session up.
  EXPECT_FALSE(Capture::Get().WaitEvent(1, 1, 20000)) << "session ended " << Since(down) << " s after the link went down";
  ASSERT_TRUE(Capture::Get().WaitEvent(1, 1, 30000)) << "no socket error 50 s after the link went down";
  double toError = Since(down);
  std::printf("link down -> event 1: %.1f s\n", toError);
  EXPECT_GE(toError, 20.0);
  EXPECT_LE(toError, 50.0);
  auto ev = Capture::Get().Events();
  ASSERT_FALSE(ev.empty());
  EXPECT_EQ(ev[0].code, 1);
  EXPECT_EQ(ev[0].loginId, id);
  EXPECT_TRUE(IsSocketErrorText(ev[0].text, dev.addr)) << ev[0].text;

  // The reconnection meets the dead link first.
  std::this_thread::sleep_for(std::chrono::seconds(5));
  EXPECT_EQ(Capture::Get().CountEvents(5), 0);
  EXPECT_EQ(Capture::Get().CountEvents(6), 0);
  ASSERT_TRUE(SetDeviceLink(dev, true));
  auto up = Clock::now();
  ASSERT_TRUE(Capture::Get().WaitEvent(6, 1, 60000)) << "not authenticated again 60 s after the link came back";
  std::printf("link up -> event 6: %.1f s\n", Since(up));
  EXPECT_GE(Capture::Get().CountEvents(5), 1);
  std::fflush(stdout);
  EXPECT_EQ(0, QXNet_LogOutDev(id));
}

}  // namespace
