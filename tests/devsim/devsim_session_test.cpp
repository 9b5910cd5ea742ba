// qxdevsim on its own: authentication, heartbeat, status and alarm messages,
// framing faults and the control channel, driven through raw sockets.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "checked_sim.h"
#include "devsim_client.h"
#include "raw_client.h"

using devsimtest::authBody;
using devsimtest::Frame;
using devsimtest::nowMs;
using devsimtest::RawClient;
using devsimtest::tag;
using devsimtest::CheckedSim;
using qxtest::DevSim;

TEST(DevSimAuth, KnownAccountGetsResultZeroAndMaxChannels) {
  CheckedSim sim({"--account", "alice:s3cret", "--max-channels", "32"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(c.connected());
  ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("alice", "s3cret")));
  Frame f;
  ASSERT_TRUE(c.readAnswer("10000", "14012", f));
  EXPECT_EQ(f.flag, devsimtest::kFlag);
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_EQ(tag(f.text(), "MAXChannels"), "32");
  EXPECT_NE(f.text().find("<authRsp><MAXChannels>32</MAXChannels></authRsp>"), std::string::npos);
  EXPECT_EQ(f.payload.size(), f.text().size()) << "the answer carries no NUL";

  ASSERT_TRUE(sim.waitConnections(1, 2000, true));
  std::string conns = sim.cmd("CONNS");
  EXPECT_NE(conns.find("auth=1"), std::string::npos) << conns;
  EXPECT_NE(conns.find("user=alice"), std::string::npos) << conns;
  EXPECT_EQ(sim.lastBody("10000", "14012"), authBody("alice", "s3cret"))
      << "the body is recorded as sent, without the envelope's own newlines";
  EXPECT_EQ(sim.stat("auth_ok"), 1);
}

TEST(DevSimAuth, RefusalCodesAreConfigurable) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  for (const char* code : {"2", "3", "4", "-1", "7"}) {
    ASSERT_TRUE(sim.cmdOk(std::string("SET auth_refusal ") + code));
    RawClient c(sim.port());
    ASSERT_TRUE(c.connected());
    ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("admin", "wrong")));
    Frame f;
    ASSERT_TRUE(c.readAnswer("10000", "14012", f)) << code;
    EXPECT_EQ(tag(f.text(), "result"), code);
    EXPECT_EQ(f.text().find("MAXChannels"), std::string::npos);
  }
  // An unknown user is refused the same way, and the default code is 2.
  CheckedSim sim2;
  ASSERT_TRUE(sim2.ok()) << sim2.error();
  RawClient c(sim2.port());
  ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("nobody", "admin")));
  Frame f;
  ASSERT_TRUE(c.readAnswer("10000", "14012", f));
  EXPECT_EQ(tag(f.text(), "result"), "2");
  EXPECT_EQ(sim2.stat("auth_refused"), 1);
  EXPECT_TRUE(sim2.waitConnections(1, 500, false));
  EXPECT_FALSE(sim2.waitConnections(1, 100, true)) << "a refused session is not authenticated";
}

TEST(DevSimAuth, RefusalFromCommandLineAndSilentAndRefuseModes) {
  CheckedSim sim({"--auth-refusal", "4"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  {
    RawClient c(sim.port());
    ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("admin", "bad")));
    Frame f;
    ASSERT_TRUE(c.readAnswer("10000", "14012", f));
    EXPECT_EQ(tag(f.text(), "result"), "4");
  }
  ASSERT_TRUE(sim.cmdOk("SET auth_mode silent"));
  {
    RawClient c(sim.port());
    ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("admin", "admin")));
    ASSERT_TRUE(sim.waitFor("10000", "14012", 2, 2000));
    EXPECT_TRUE(c.silentFor(300)) << "silent mode never answers authentication";
  }
  ASSERT_TRUE(sim.cmdOk("SET auth_mode refuse"));
  {
    RawClient c(sim.port());
    ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("admin", "admin")));
    Frame f;
    ASSERT_TRUE(c.readAnswer("10000", "14012", f));
    EXPECT_EQ(tag(f.text(), "result"), "4");
  }
  EXPECT_EQ(sim.cmd("SET auth_mode maybe").rfind("ERR", 0), 0u);
}

TEST(DevSimAuth, NegativeMaxChannelsOmitsTheBodyAndAccountsCanChange) {
  CheckedSim sim({"--max-channels", "-1"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("ACCOUNT ADD bob pw"));
  ASSERT_TRUE(sim.cmdOk("ACCOUNT DEL admin"));
  RawClient c(sim.port());
  ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("bob", "pw")));
  Frame f;
  ASSERT_TRUE(c.readAnswer("10000", "14012", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_EQ(f.text().find("authRsp"), std::string::npos);
  ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("admin", "admin")));
  ASSERT_TRUE(c.readAnswer("10000", "14012", f));
  EXPECT_EQ(tag(f.text(), "result"), "2");
}

TEST(DevSimHeartbeat, AnsweredUnlessSwitchedOff) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  Frame f;
  ASSERT_TRUE(c.readAnswer("30000", "35001", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_NE(f.text().find("<body>\n</body>"), std::string::npos) << "empty body";

  ASSERT_TRUE(sim.cmdOk("SET heartbeat_answer 0"));
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  ASSERT_TRUE(sim.waitFor("30000", "35001", 2, 2000));
  EXPECT_TRUE(c.silentFor(300));
  EXPECT_EQ(sim.stat("heartbeats"), 2);

  ASSERT_TRUE(sim.cmdOk("SET heartbeat_answer 1"));
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  ASSERT_TRUE(c.readAnswer("30000", "35001", f));
}

TEST(DevSimMessages, CameraStatusAndAlarmForms) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(sim.waitConnections(1, 2000));

  ASSERT_TRUE(sim.cmdOk("CAMSTAT last 1,0,1,1 cam\\stwo"));
  Frame f;
  ASSERT_TRUE(c.readAnswer("30000", "35003", f));
  EXPECT_NE(f.text().find("<Ipcs_stat>1,0,1,1</Ipcs_stat>\n<Ipcs_stat>cam two</Ipcs_stat>"), std::string::npos)
      << f.text();

  ASSERT_TRUE(sim.cmdOk("ALARM last items=3 acode=7 level=4 data=door\\sopen year=2023 second=9"));
  ASSERT_TRUE(c.readAnswer("30000", "35010", f));
  std::string t = f.text();
  size_t items = 0;
  for (size_t p = 0; (p = t.find("<ALARM_ITEM>", p)) != std::string::npos; ++p) ++items;
  EXPECT_EQ(items, 3u);
  EXPECT_NE(t.find("Msg_type=\"ALARM_REPORT_MESSAGE\""), std::string::npos);
  EXPECT_NE(t.find("Alarm_code=\"7\""), std::string::npos);
  EXPECT_NE(t.find("Alarm_level=\"4\""), std::string::npos);
  EXPECT_NE(t.find("Alarm_data=\"door open\""), std::string::npos);
  EXPECT_NE(t.find("Year=\"2023\""), std::string::npos);
  EXPECT_NE(t.find("Second=\"9\""), std::string::npos);
  EXPECT_EQ(t.find("\"0\"\""), std::string::npos) << "a good report has no doubled quote";

  ASSERT_TRUE(sim.cmdOk("ALARM last type=30000 cmd=35099 form=badquote"));
  ASSERT_TRUE(c.readAnswer("30000", "35099", f));
  EXPECT_NE(f.text().find("ALARM_REPORT_MESSAGE"), std::string::npos);
  EXPECT_NE(f.text().find("\"0\"\""), std::string::npos);

  ASSERT_TRUE(sim.cmdOk("ALARM last form=emptybody"));
  ASSERT_TRUE(c.readAnswer("30000", "35010", f));
  EXPECT_NE(f.text().find("<MESSAGE_BODY></MESSAGE_BODY>"), std::string::npos);

  ASSERT_TRUE(sim.cmdOk("ALARM last wrap=private datalen=200"));
  ASSERT_TRUE(c.readFrame(f));
  EXPECT_EQ(f.text().find("<PrivateProto>"), std::string::npos);
  EXPECT_NE(f.text().find("<PRIVATE_PROTO>"), std::string::npos);
  std::string longData;
  for (int i = 0; i < 200; ++i) longData += static_cast<char>('A' + i % 26);
  EXPECT_NE(f.text().find("Alarm_data=\"" + longData + "\""), std::string::npos) << f.text();

  EXPECT_EQ(sim.cmd("ALARM last form=odd").rfind("ERR", 0), 0u);
  EXPECT_EQ(sim.stat("alarms_sent"), 4);
}

TEST(DevSimFaults, GarbageBeforeAFrame) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(sim.cmdOk("ARM last garbage=21"));
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  std::string g;
  ASSERT_TRUE(c.readExact(21, g));
  for (char ch : g) {
    EXPECT_NE(ch, '\x07');
    EXPECT_NE(ch, '\x02');
  }
  Frame f;
  ASSERT_TRUE(c.readAnswer("30000", "35001", f)) << "the frame follows the garbage intact";
  // One-shot: the next answer is clean.
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  ASSERT_TRUE(c.readAnswer("30000", "35001", f));

  // Bare garbage on demand.
  ASSERT_TRUE(sim.cmdOk("GARBAGE last 9"));
  ASSERT_TRUE(c.readExact(9, g));
  EXPECT_EQ(g, std::string(9, '\x5a'));
}

TEST(DevSimFaults, SplitFrameArrivesInDelayedPieces) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(sim.cmdOk("ARM last split=40 delay=25"));
  int64_t t0 = nowMs();
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  std::string whole = devsimtest::frameOf(devsimtest::request("30000", "35001", ""));
  std::string got;
  int pieces = c.readCountingPieces(whole.size(), got);
  int64_t took = nowMs() - t0;
  ASSERT_GT(pieces, 0);
  EXPECT_EQ(got, whole) << "the pieces put together are the same frame";
  size_t expectedPieces = (whole.size() + 39) / 40;
  EXPECT_GE(static_cast<size_t>(pieces), expectedPieces - 1);
  EXPECT_GE(took, static_cast<int64_t>((expectedPieces - 1) * 25) - 5);
}

TEST(DevSimFaults, LengthEightOversizeAltFlagShiftAndCut) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(sim.waitConnections(1, 2000));

  ASSERT_TRUE(sim.cmdOk("LEN8 last"));
  std::string b;
  ASSERT_TRUE(c.readExact(16, b));
  EXPECT_EQ(devsimtest::le32At(b, 0), devsimtest::kFlag);
  EXPECT_EQ(devsimtest::le32At(b, 4), 8u);

  ASSERT_TRUE(sim.cmdOk("OVERSIZE last bytes=32"));
  ASSERT_TRUE(c.readExact(40, b));
  EXPECT_EQ(devsimtest::le32At(b, 4), 0xF00009u);

  ASSERT_TRUE(sim.cmdOk("ARM last flag=0x70308102"));
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  Frame f;
  ASSERT_TRUE(c.readAnswer("30000", "35001", f));
  EXPECT_EQ(f.flag, devsimtest::kFlagAlt);

  ASSERT_TRUE(sim.cmdOk("SET answer_flag 0x70308102"));
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  ASSERT_TRUE(c.readAnswer("30000", "35001", f));
  EXPECT_EQ(f.flag, devsimtest::kFlagAlt);
  ASSERT_TRUE(sim.cmdOk("SET answer_flag 0x20180307"));

  ASSERT_TRUE(sim.cmdOk("FRAME last shift=3 flag=0x20180307 len=12 hex=000102030405060708090a0b"));
  ASSERT_TRUE(c.readExact(3 + 8 + 12, b));
  EXPECT_EQ(b.substr(0, 3), std::string(3, '\x5a'));
  EXPECT_EQ(devsimtest::le32At(b, 3), devsimtest::kFlag);
  EXPECT_EQ(devsimtest::le32At(b, 7), 12u);
  EXPECT_EQ(b[3 + 8 + 11], '\x0b');

  ASSERT_TRUE(sim.cmdOk("SENDTEXT last hello\\sthere"));
  ASSERT_TRUE(c.readFrame(f));
  EXPECT_EQ(f.payload, "hello there");
  ASSERT_TRUE(sim.cmdOk("RAW last 0102ff"));
  ASSERT_TRUE(c.readExact(3, b));
  EXPECT_EQ(b, std::string("\x01\x02\xff", 3));
  ASSERT_TRUE(sim.cmdOk("SEND last 30000 35077 0 <x>1</x>"));
  ASSERT_TRUE(c.readAnswer("30000", "35077", f));
  EXPECT_EQ(tag(f.text(), "x"), "1");

  ASSERT_TRUE(sim.cmdOk("CUTFRAME last n=10"));
  ASSERT_TRUE(c.readExact(18, b));
  EXPECT_EQ(devsimtest::le32At(b, 0), devsimtest::kFlag);
  EXPECT_GT(devsimtest::le32At(b, 4), 10u) << "the header announces more than is sent";
  EXPECT_TRUE(c.closedWithin(2000));
}

TEST(DevSimFaults, ArmedCutAndSilenceAfterConnect) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  // Armed for any connection: the authentication answer itself is cut.
  ASSERT_TRUE(sim.cmdOk("ARM any cut=30"));
  RawClient c(sim.port());
  ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("admin", "admin")));
  std::string b;
  ASSERT_TRUE(c.readExact(38, b));
  EXPECT_GT(devsimtest::le32At(b, 4), 30u);
  EXPECT_TRUE(c.closedWithin(2000));

  ASSERT_TRUE(sim.cmdOk("SET mute 1"));
  RawClient d(sim.port());
  ASSERT_TRUE(d.sendRequest("10000", "14012", authBody("admin", "admin")));
  ASSERT_TRUE(d.sendRequest("30000", "35001"));
  ASSERT_TRUE(sim.waitFor("30000", "35001", 1, 2000));
  EXPECT_TRUE(d.silentFor(300));
}

TEST(DevSimRobustness, MalformedInputNeverStopsTheDevice) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  {
    RawClient c(sim.port());
    // Garbage, then a frame: the device resynchronises on the flag.
    ASSERT_TRUE(c.sendBytes(std::string(37, '\x11') + devsimtest::frameOf(devsimtest::request("30000", "35001", ""))));
    Frame f;
    ASSERT_TRUE(c.readAnswer("30000", "35001", f));
    // A text without head, with an unclosed head, with a NUL inside, and a huge length.
    ASSERT_TRUE(c.sendFrame("not xml at all"));
    ASSERT_TRUE(c.sendFrame("\n\r\n<?xml version=\"1.0\" ?>\n<PrivateProto>\n<head>\n<type>20000</type>\n"
                            "<cmd>20002</cmd>\n<result>0</result>\n<body>\n<startPos>0</startPos>\n"
                            "<dataLength>-1</dataLength>\n</body>\n</PrivateProto>"));
    ASSERT_TRUE(c.sendFrame(std::string("<type>1\0</type>", 16)));
    ASSERT_TRUE(c.sendBytes(devsimtest::le32(devsimtest::kFlag) + devsimtest::le32(0xFFFFFFF0u) + "xyz"));
    ASSERT_TRUE(c.sendRequest("30000", "35001"));
    ASSERT_TRUE(c.readAnswer("30000", "35001", f)) << "still answering after bad input";
  }
  {
    RawClient c(sim.port());
    ASSERT_TRUE(c.sendBytes(std::string("\x07\x03\x18\x20\x10\x00\x00\x00partial", 15)));
  }  // closed mid-frame by the client
  EXPECT_EQ(sim.cmd("PING"), "OK pong");
  EXPECT_GT(sim.stat("bad_bytes"), 0);
  EXPECT_EQ(sim.stat("bad_frames"), 1);
  EXPECT_EQ(sim.stat("upload_cancels"), 1);
  EXPECT_EQ(sim.cmd("NOSUCHCOMMAND").rfind("ERR", 0), 0u);
  EXPECT_EQ(sim.cmd("SEND 999 1 2 3").rfind("ERR", 0), 0u);
  EXPECT_EQ(sim.cmd("SET dl_chunk 0").rfind("ERR", 0), 0u);
}

TEST(DevSimControl, WaitCountAndMessageListing) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  EXPECT_EQ(sim.count("10000", "14012"), 1);
  EXPECT_EQ(sim.count("*", "*"), 1);
  // A WAIT that cannot be met times out with the count so far.
  int64_t t0 = nowMs();
  EXPECT_EQ(sim.cmd("WAIT 10000 14001 1 150"), "ERR timeout 0");
  EXPECT_GE(nowMs() - t0, 140);
  // A WAIT parked before the message arrives is released by it.
  ASSERT_TRUE(c.sendRequest("10000", "14001", "<a b=\"c d\"/>"));
  EXPECT_TRUE(sim.waitFor("10000", "14001", 1, 3000));
  auto m = sim.lastMsg("10000", "14001");
  EXPECT_EQ(m["body"], "<a b=\"c d\"/>");
  EXPECT_EQ(m["type"], "10000");
  EXPECT_EQ(m["result"], "0");
  int conn = atoi(m["conn"].c_str());
  EXPECT_GT(conn, 0);
  EXPECT_EQ(sim.count("10000", "*", conn), 2);
  EXPECT_EQ(sim.count("10000", "*", conn + 100), 0);
  std::string list = sim.cmd("MSGS 10000");
  EXPECT_EQ(list.rfind("OK 2 ", 0), 0u) << list;
  EXPECT_NE(list.find("body=<a\\sb=\"c\\sd\"/>"), std::string::npos) << list;
  ASSERT_TRUE(sim.cmdOk("CLEARMSGS"));
  EXPECT_EQ(sim.count("*", "*"), 0);
  EXPECT_EQ(sim.cmd("LASTMSG 10000 14001"), "ERR none");

  std::string ports = sim.cmd("PORTS");
  EXPECT_NE(ports.find("devices=" + std::to_string(sim.port())), std::string::npos) << ports;
  std::string help = sim.cmd("HELP");
  EXPECT_NE(DevSim::unescape(help).find("WAITCONN"), std::string::npos);
  ASSERT_TRUE(sim.cmdOk("CLOSE last"));
  EXPECT_TRUE(c.closedWithin(2000));
  EXPECT_TRUE(sim.waitConnections(0, 2000, false)) << "none left";
  EXPECT_FALSE(sim.waitConnections(1, 100, false));
  RawClient c2(sim.port());
  ASSERT_TRUE(sim.waitConnections(1, 2000, false));
  EXPECT_FALSE(sim.waitConnectionsAtMost(0, 100));
  EXPECT_EQ(sim.cmd("WAITCONN 0 50 atmost=1"), "ERR timeout 1");
}

TEST(DevSimControl, ConcurrentControlClientsAndScripts) {
  CheckedSim probe;
  ASSERT_TRUE(probe.ok()) << probe.error();
  std::string script = probe.tempDir() + "/scenario.txt";
  {
    std::ofstream f(script);
    f << "# reproducible scenario\n\nSET max_channels 4\nSET auth_refusal -1 dev=1\nCONFIG SET 14001 <x>1</x>\n";
  }
  CheckedSim sim({"--devices", "2", "--script", script});
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_EQ(sim.deviceCount(), 2);
  EXPECT_NE(sim.port(0), sim.port(1));
  EXPECT_EQ(sim.cmd("GET max_channels dev=1"), "OK 4");
  EXPECT_EQ(sim.cmd("GET auth_refusal dev=0"), "OK 2");
  EXPECT_EQ(sim.cmd("GET auth_refusal dev=1"), "OK -1");
  EXPECT_EQ(sim.cmd("CONFIG GET 14001 dev=1"), "OK body=<x>1</x>");

  RawClient c(sim.port(1));
  ASSERT_TRUE(c.sendRequest("10000", "14012", authBody("admin", "x")));
  Frame f;
  ASSERT_TRUE(c.readAnswer("10000", "14012", f));
  EXPECT_EQ(tag(f.text(), "result"), "-1");

  // A second control connection answers while the first is parked in a WAIT.
  RawClient ctl(sim.controlPort());
  ASSERT_TRUE(ctl.sendBytes("WAIT 30000 35001 1 5000\n"));
  EXPECT_EQ(sim.cmd("PING"), "OK pong");
  ASSERT_TRUE(c.sendRequest("30000", "35001"));
  std::string reply;
  ASSERT_TRUE(ctl.readExact(5, reply, 5000));
  EXPECT_EQ(reply, "OK 1\n");

  // A bad script stops the simulator at start with status 2.
  {
    std::ofstream f2(script);
    f2 << "SET no_such_setting 1\n";
  }
  DevSim bad({"--script", script});
  EXPECT_FALSE(bad.ok());
  EXPECT_NE(bad.error().find("status 2"), std::string::npos) << bad.error();
}

TEST(DevSimControl, StopsCleanlyOnQuitAndOnSigterm) {
  DevSim a;
  ASSERT_TRUE(a.ok()) << a.error();
  RawClient c(a.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  EXPECT_EQ(a.stop(), 0);
  EXPECT_TRUE(c.closedWithin(2000));

  DevSim b;
  ASSERT_TRUE(b.ok()) << b.error();
  ASSERT_EQ(kill(b.pid(), SIGTERM), 0);
  int st = 0;
  pid_t r = 0;
  int64_t deadline = nowMs() + 5000;
  while ((r = waitpid(b.pid(), &st, WNOHANG)) == 0 && nowMs() < deadline) usleep(5000);
  ASSERT_EQ(r, b.pid());
  EXPECT_TRUE(WIFEXITED(st));
  EXPECT_EQ(WEXITSTATUS(st), 0);
}

TEST(DevSimHelp, DocumentsOptionsAndCommands) {
  std::string cmd = DevSim::binaryPath() + " --help";
  FILE* p = popen(cmd.c_str(), "r");
  ASSERT_NE(p, nullptr);
  std::string out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  EXPECT_EQ(pclose(p), 0);
  for (const char* w : {"--listen", "--devices", "--account", "--max-channels", "--auth-refusal", "--control",
                        "--port-file", "--upload-dir", "--script", "--max-conns", "--quiet", "--verbose", "WAIT ",
                        "ARM ", "CAMSTAT", "ALARM", "UPLOAD", "DOWNLOAD", "REBOOT", "CONFIG", "QUIT", "CHAOS ",
                        "CHAOS off", "TRICKLE ", "normal|silent|refuse|close", "chaos_stalls"})
    EXPECT_NE(out.find(w), std::string::npos) << w;
}

TEST(DevSimHelp, EveryCommandInTheHelpIsKnown) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  std::string help = DevSim::unescape(sim.cmd("HELP").substr(3));
  std::istringstream lines(help);
  std::string line;
  int verbs = 0;
  while (std::getline(lines, line)) {
    // Command lines start with two blanks and a word in capitals.
    if (line.size() < 3 || line.compare(0, 2, "  ") != 0 || !isupper(static_cast<unsigned char>(line[2]))) continue;
    std::string verb = line.substr(2, line.find(' ', 2) - 2);
    if (verb == "QUIT") continue;  // would stop the simulator
    ++verbs;
    std::string reply = sim.cmd(verb);
    EXPECT_EQ(reply.find("ERR unknown command"), std::string::npos) << verb << ": " << reply;
  }
  EXPECT_GE(verbs, 40);
  EXPECT_EQ(sim.cmd("PING"), "OK pong");
}
