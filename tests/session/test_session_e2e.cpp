// Device sessions through the public interface against the device simulator.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "arrivals.h"
#include "capture.h"
#include "devsim_client.h"
#include "session_fixture.h"

using qxtest::Capture;
using qxtest::Clock;
using qxtest::DevSim;
using qxtest::Since;

namespace {

using Session = qxtest::SessionTest;

TEST_F(Session, CorrectCredentialsGiveConnectedChannelsAuthenticated) {
  DevSim sim({"--account", "admin:admin", "--max-channels", "16"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  auto ev = Capture::Get().Events();
  ASSERT_GE(ev.size(), 3u);
  EXPECT_EQ(ev[0].code, 5);
  EXPECT_EQ(ev[0].text, "device[127.0.0.1] connect socket OK! \n");
  EXPECT_EQ(ev[0].loginId, id_);
  EXPECT_EQ(ev[1].code, 50);
  EXPECT_EQ(ev[1].text, "16");
  EXPECT_EQ(ev[2].code, 6);
  EXPECT_EQ(ev[2].text, "authentication success.");
  ASSERT_TRUE(sim.waitConnections(1, 5000, true));
  auto auth = sim.lastMsg("10000", "14012");
  EXPECT_NE(auth["body"].find("<userName>admin</userName>\n<password>admin</password>\n"), std::string::npos);
}

TEST_F(Session, WrongCredentialsGiveEvent2OnEveryAnswerAndStayConnected) {
  DevSim sim({"--account", "admin:admin"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_GT(Login(sim, "admin", "nope"), 0);
  ASSERT_TRUE(Capture::Get().WaitEvent(2, 2, 15000));
  auto ev = Capture::Get().Events();
  EXPECT_EQ(ev[0].code, 5);
  int twos = 0;
  for (auto& e : ev) {
    if (e.code != 2) continue;
    ++twos;
    EXPECT_EQ(e.text, "127.0.0.1:authentication failed, username or passwords errror!");
  }
  EXPECT_GE(twos, 2);
  EXPECT_EQ(Capture::Get().CountEvents(6), 0);
  EXPECT_EQ(Capture::Get().CountEvents(1), 0);  // never disconnected
  EXPECT_GE(sim.count("10000", "14012"), 2);
}

// Past the fifth authentication message: the "5 times" event counts failed sends, and
// these sends all succeed, so the session just keeps asking.
TEST_F(Session, SilentDeviceGetsAuthEveryFiveSecondsAndHeartbeatEveryTenWithoutGivingUp) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("SET auth_mode silent"));
  auto t0 = Clock::now();
  ASSERT_GT(Login(sim), 0);
  bool ok = false;
  auto all = qxtest::RecordArrivals(sim, t0, 26.5, 1000, nullptr, &ok);
  ASSERT_TRUE(ok) << "control channel";
  auto auth = qxtest::TimesOf(all, "10000", "14012");
  auto hb = qxtest::TimesOf(all, "30000", "35001");
  EXPECT_EQ(all.size(), auth.size() + hb.size()) << "only authentication and heartbeats are sent";
  // Six messages: the first, then one every 5 s (the sixth at about 25 s).
  ASSERT_EQ(auth.size(), 6u);
  EXPECT_LT(auth[0], 1.0);
  // The resend is due once more than 4999 ms have passed on a millisecond tick; the
  // lower bound leaves 20 ms for that truncation and the control round trips.
  for (size_t i = 1; i < auth.size(); ++i) {
    EXPECT_GE(auth[i] - auth[i - 1], 4.98) << "authentication " << i + 1;
    EXPECT_LE(auth[i] - auth[i - 1], 5.6) << "authentication " << i + 1;
  }
  // Heartbeats: the first once more than 9 whole seconds have passed, then every 10 s.
  ASSERT_EQ(hb.size(), 2u);
  EXPECT_GE(hb[0] - auth[0], 8.9);
  EXPECT_LE(hb[0] - auth[0], 10.6);
  EXPECT_GE(hb[1] - hb[0], 9.5);
  EXPECT_LE(hb[1] - hb[0], 10.6);
  EXPECT_EQ(Capture::Get().CountEvents(3), 0);  // no "not get auth response 5 times."
  EXPECT_EQ(Capture::Get().CountEvents(1), 0);  // never disconnected
  EXPECT_EQ(Capture::Get().CountEvents(5), 1);
  EXPECT_EQ(Capture::Get().CountEvents(6), 0);
  EXPECT_EQ(sim.stat("connections_accepted"), 1);
}

TEST_F(Session, HeartbeatAnswerIsEvent79) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  ASSERT_TRUE(sim.cmdOk("HB last"));
  ASSERT_TRUE(Capture::Get().WaitEvent(79, 1, 5000));
  // The simulator writes an empty body as "<body>\n</body>", as the library's own builder
  // does: the body handed on is its content, the one line break.
  for (auto& e : Capture::Get().Events()) {
    if (e.code == 79) {
      EXPECT_EQ(e.text, "\n");
    }
  }
}

TEST_F(Session, CameraStatusIsEvent51WithTheLastText) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  ASSERT_TRUE(sim.cmdOk("CAMSTAT last 1,1,0 0,1,1"));
  ASSERT_TRUE(Capture::Get().WaitEvent(51, 1, 5000));
  for (auto& e : Capture::Get().Events()) {
    if (e.code == 51) {
      EXPECT_EQ(e.text, "0,1,1");
    }
  }
}

TEST_F(Session, AlarmReportsArriveAsMessagesAndBrokenOnesAreDropped) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  Capture::Get().Clear();
  ASSERT_TRUE(sim.cmdOk("ALARM last form=badquote"));
  ASSERT_TRUE(sim.cmdOk("ALARM last form=emptybody"));
  ASSERT_TRUE(sim.cmdOk("ALARM last form=good items=2 acode=5 data=door"));
  ASSERT_TRUE(Capture::Get().WaitEvent(79, 1, 5000));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  auto ev = Capture::Get().Events();
  int n79 = 0;
  for (auto& e : ev) {
    if (e.code != 79) continue;
    ++n79;
    EXPECT_NE(e.text.find("ALARM_REPORT_PARAM"), std::string::npos);
    EXPECT_NE(e.text.find("Alarm_data=\"door\""), std::string::npos);
  }
  EXPECT_EQ(n79, 1);
  EXPECT_EQ(Capture::Get().CountLogs("detect bad ALARM_REPORT_MESSAGE"), 2);
}

TEST_F(Session, FramingFaultsLeaveTheSessionAlive) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  Capture::Get().Clear();
  ASSERT_TRUE(sim.cmdOk("GARBAGE last 13"));
  ASSERT_TRUE(sim.cmdOk("LEN8 last"));
  ASSERT_TRUE(sim.cmdOk("OVERSIZE last"));
  ASSERT_TRUE(sim.cmdOk("SENDTEXT last <not\\sxml"));
  ASSERT_TRUE(sim.cmdOk("ARM last count=1 split=7 delay=5 flag=0x70308102"));
  ASSERT_TRUE(sim.cmdOk("HB last"));
  ASSERT_TRUE(Capture::Get().WaitEvent(79, 1, 10000));
  EXPECT_EQ(Capture::Get().CountEvents(1), 0);
  EXPECT_GE(Capture::Get().CountLogs("recv bad len"), 1);
}

TEST_F(Session, PeerCloseGivesEvent1AndAReconnect) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  ASSERT_TRUE(sim.cmdOk("CLOSE all"));
  ASSERT_TRUE(Capture::Get().WaitEvent(1, 1, 5000));
  ASSERT_TRUE(Capture::Get().WaitEvent(6, 2, 15000));
  EXPECT_EQ(Capture::Get().CountEvents(5), 2);
}

TEST_F(Session, CloseMidFrameGivesEvent1AndAReconnect) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  ASSERT_TRUE(sim.cmdOk("CUTFRAME last n=20"));
  ASSERT_TRUE(Capture::Get().WaitEvent(1, 1, 8000));
  ASSERT_TRUE(Capture::Get().WaitEvent(6, 2, 15000));
}

TEST_F(Session, HostNameIsReplacedByItsDottedAddress) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  id_ = QXNet_Loc_LoginDev(const_cast<char*>("localhost"), sim.port(), const_cast<char*>("admin"),
                           const_cast<char*>("admin"), nullptr);
  ASSERT_GT(id_, 0);
  ASSERT_TRUE(Capture::Get().WaitEvent(6, 1, 10000));
  EXPECT_EQ(Capture::Get().Events()[0].text, "device[127.0.0.1] connect socket OK! \n");
}

// A short dotted form is an address, not a name: used as written, also in the events.
TEST_F(Session, ShortDottedAddressConnectsAndKeepsItsForm) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  id_ = QXNet_Loc_LoginDev(const_cast<char*>("127.1"), sim.port(), const_cast<char*>("admin"),
                           const_cast<char*>("admin"), nullptr);
  ASSERT_GT(id_, 0);
  ASSERT_TRUE(Capture::Get().WaitEvent(6, 1, 10000));
  auto ev = Capture::Get().Events();
  ASSERT_FALSE(ev.empty());
  EXPECT_EQ(ev[0].code, 5);
  EXPECT_EQ(ev[0].text, "device[127.1] connect socket OK! \n");
  EXPECT_EQ(Capture::Get().CountLogs("[Connect] host["), 0) << "not resolved as a host name";
  ASSERT_TRUE(sim.waitConnections(1, 5000, true));
}

TEST_F(Session, LogoutOfALiveSessionReturnsPromptly) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  auto t0 = Clock::now();
  EXPECT_EQ(0, QXNet_LogOutDev(id_));
  EXPECT_LT(Since(t0), 1.5);
  id_ = 0;
  EXPECT_EQ(QXNET_E_NO_DEVICE, QXNet_LogOutDev(id_));
  ASSERT_TRUE(sim.waitConnections(0, 5000, false));
}

TEST_F(Session, LoginThenImmediateLogoutIsSafe) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  for (int i = 0; i < 20; ++i) {
    long id = Login(sim);
    ASSERT_GT(id, 0);
    EXPECT_EQ(0, QXNet_LogOutDev(id));
  }
  id_ = 0;
}

}  // namespace

namespace {
std::atomic<long> g_selfLogoutResult{1};
long LogoutFromCallback(long loginId, long code, char*, void*) {
  if (code == QXNET_EV_AUTHENTICATED) g_selfLogoutResult = QXNet_LogOutDev(loginId);
  return 0;
}

TEST_F(Session, LogoutFromTheSessionsOwnCallbackIsRefusedNotHung) {
  DevSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  static int key = 2;
  ASSERT_EQ(0, QXNet_SetStatusEventCallBack(LogoutFromCallback, &key));
  ASSERT_NO_FATAL_FAILURE(LoginAuthenticated(sim));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  EXPECT_EQ(g_selfLogoutResult.load(), QXNET_E_BAD_ARG);
  QXNet_SetStatusEventCallBack(nullptr, &key);
  // Still registered: the application's own thread logs it out (TearDown).
}
}  // namespace
