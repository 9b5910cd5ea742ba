// qxdevsim on its own: configuration store, system control, uploads, the
// configuration-file download, reboot and many simultaneous sessions.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "checked_sim.h"
#include "devsim_client.h"
#include "ops/ops_files.h"
#include "raw_client.h"

using devsimtest::chunk;
using devsimtest::chunkHeader;
using devsimtest::Frame;
using devsimtest::RawClient;
using devsimtest::tag;
using devsimtest::CheckedSim;
using opstest::FnvHex;
using opstest::PatternBytes;
using qxtest::DevSim;

namespace {

const char* kCancelText =
    "\n\r\n<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>20000</type>\n"
    "<cmd>20002</cmd>\n<result>0</result>\n<body>\n<startPos>0</startPos>\n<dataLength>-1</dataLength>\n"
    "</body>\n</PrivateProto>";

std::string readFile(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream o;
  o << f.rdbuf();
  return o.str();
}

// Sends a whole upload the way the library streams it.
void streamUpload(RawClient& c, const std::string& chunkCmd, const std::string& data, size_t chunkSize) {
  size_t off = 0;
  while (off < data.size()) {
    size_t n = std::min(chunkSize, data.size() - off);
    ASSERT_TRUE(c.sendFrame(chunk(chunkCmd, static_cast<long long>(off), data.substr(off, n))));
    off += n;
  }
  ASSERT_TRUE(c.sendFrame(chunkHeader(chunkCmd, static_cast<long long>(off), 0) + std::string(4, '\0')));
}

}  // namespace

TEST(DevSimConfig, WriteThenReadAndBothAnswerTypes) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  Frame f;
  ASSERT_TRUE(c.sendRequest("10000", "14001"));
  ASSERT_TRUE(c.readAnswer("10000", "14001", f));
  EXPECT_EQ(tag(f.text(), "result"), "-1") << "nothing stored yet";

  const std::string body = "<VideoEncode Stream=\"0\" BitRate=\"2048\"/>";
  ASSERT_TRUE(c.sendRequest("10000", "14001", body));
  ASSERT_TRUE(c.readAnswer("10000", "14001", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_NE(f.text().find("<body>\n</body>"), std::string::npos) << "a write is answered with an empty body";

  ASSERT_TRUE(c.sendRequest("10000", "14001"));
  ASSERT_TRUE(c.readAnswer("10000", "14001", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_EQ(tag(f.text(), "body"), "\n" + body + "\n");
  EXPECT_EQ(sim.cmd("CONFIG GET 14001"), "OK body=" + DevSim::escape(body));

  ASSERT_TRUE(sim.cmdOk("SET config_answer_type 40000"));
  ASSERT_TRUE(c.sendRequest("10000", "14001"));
  ASSERT_TRUE(c.readAnswer("40000", "14001", f));
  EXPECT_EQ(tag(f.text(), "body"), "\n" + body + "\n");

  ASSERT_TRUE(sim.cmdOk("CONFIG SET 14002 <a>x\\sy</a>"));
  ASSERT_TRUE(c.sendRequest("10000", "14002"));
  ASSERT_TRUE(c.readAnswer("40000", "14002", f));
  EXPECT_EQ(tag(f.text(), "a"), "x y");
  EXPECT_EQ(sim.cmd("CONFIG DUMP").rfind("OK 2 ", 0), 0u);
  // Free text is never read as options, even when it looks like one.
  ASSERT_TRUE(sim.cmdOk("CONFIG SET 14003 dev=\"1\" a=b"));
  EXPECT_EQ(sim.cmd("CONFIG GET 14003"), "OK body=dev=\"1\"\\sa=b");
  ASSERT_TRUE(sim.cmdOk("SEND last 30000 35077 0 <x dev=\"9\" max=1/>"));
  ASSERT_TRUE(c.readAnswer("30000", "35077", f));
  EXPECT_NE(f.text().find("<body>\n<x dev=\"9\" max=1/>\n</body>"), std::string::npos) << f.text();
  ASSERT_TRUE(sim.cmdOk("CONFIG dev=0 SET 14004 <y/>"));
  EXPECT_EQ(sim.cmd("CONFIG GET 14004 dev=0"), "OK body=<y/>");
  ASSERT_TRUE(sim.cmdOk("CONFIG DEL 14003"));
  ASSERT_TRUE(sim.cmdOk("CONFIG DEL 14004"));

  // Restore clears the store.
  ASSERT_TRUE(c.sendRequest("20000", "14011"));
  ASSERT_TRUE(c.readAnswer("20000", "14011", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_EQ(sim.cmd("CONFIG DUMP"), "OK 0");
}

TEST(DevSimSysctl, CapabilitiesSerialUserDataAndPtz) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  Frame f;
  ASSERT_TRUE(c.sendRequest("20000", "14020"));
  ASSERT_TRUE(c.readAnswer("20000", "14020", f));
  EXPECT_NE(f.text().find("+front_replay+"), std::string::npos);
  ASSERT_TRUE(sim.cmdOk("SET front_replay spaced"));
  ASSERT_TRUE(c.sendRequest("20000", "14020"));
  ASSERT_TRUE(c.readAnswer("20000", "14020", f));
  EXPECT_NE(f.text().find("+ front_replay +"), std::string::npos);
  ASSERT_TRUE(sim.cmdOk("SET front_replay none"));
  ASSERT_TRUE(c.sendRequest("20000", "14020"));
  ASSERT_TRUE(c.readAnswer("20000", "14020", f));
  EXPECT_EQ(f.text().find("front_replay"), std::string::npos);

  ASSERT_TRUE(c.sendRequest("20000", "14035"));
  ASSERT_TRUE(c.readAnswer("20000", "14035", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  ASSERT_TRUE(sim.cmdOk("SET serial_result -5"));
  ASSERT_TRUE(c.sendRequest("20000", "14035"));
  ASSERT_TRUE(c.readAnswer("20000", "14035", f));
  EXPECT_EQ(tag(f.text(), "result"), "-5");

  ASSERT_TRUE(c.sendRequest("SYSTEM_CONTROL_MESSAGE", "14033", "<REQUEST_PARAM UserDevData=\"00ff7f\" />"));
  ASSERT_TRUE(c.readAnswer("20000", "14033", f));
  EXPECT_EQ(sim.cmd("USERDATA"), "OK hex=00ff7f");
  ASSERT_TRUE(c.sendRequest("SYSTEM_CONTROL_MESSAGE", "14034"));
  ASSERT_TRUE(c.readAnswer("20000", "14034", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_NE(f.text().find("<RESPONSE_PARAM UserDevData=\"00ff7f\" />"), std::string::npos) << f.text();

  ASSERT_TRUE(c.sendRequest("PTZ_CONTROL_MESSAGE", "PTZ_CMD", "<PTZ action=\"left\"/>"));
  ASSERT_TRUE(sim.waitFor("PTZ_CONTROL_MESSAGE", "PTZ_CMD", 1, 2000));
  EXPECT_EQ(sim.lastBody("PTZ_CONTROL_MESSAGE", "PTZ_CMD"), "<PTZ action=\"left\"/>");
  EXPECT_TRUE(c.silentFor(200)) << "PTZ is not answered by default";
  ASSERT_TRUE(sim.cmdOk("SET ptz_answer 1"));
  ASSERT_TRUE(c.sendRequest("PTZ_CONTROL_MESSAGE", "PTZ_CMD", "<PTZ action=\"stop\"/>"));
  ASSERT_TRUE(c.readAnswer("PTZ_CONTROL_MESSAGE", "PTZ_CMD", f));
}

TEST(DevSimSysctl, RebootClosesAndRefusesForThePause) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("SET reboot_pause_ms 600"));
  RawClient other(sim.port());
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(c.sendRequest("20000", "14008"));
  Frame f;
  ASSERT_TRUE(c.readAnswer("20000", "14008", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_TRUE(c.closedWithin(2000));
  EXPECT_TRUE(other.closedWithin(2000));
  {
    RawClient refused(sim.port());
    EXPECT_FALSE(refused.connected()) << "no listener during the pause";
  }
  ASSERT_TRUE(sim.waitStat("reboots", 1, 100));
  // Back on the same port after the pause.
  bool back = false;
  for (int i = 0; i < 100 && !back; ++i) {
    RawClient again(sim.port());
    back = again.connected() && devsimtest::authenticate(again);
    if (!back) usleep(20000);
  }
  EXPECT_TRUE(back);
}

TEST(DevSimUpload, FirmwareReassembledWithMatchingChecksum) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  const std::string data = PatternBytes(163840 * 2 + 1234, 1);
  ASSERT_TRUE(c.sendRequest("20000", "20001", "<firmwareLength>" + std::to_string(data.size()) + "</firmwareLength>"));
  Frame f;
  ASSERT_TRUE(c.readAnswer("20000", "20001", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  streamUpload(c, "20002", data, 163840);
  ASSERT_TRUE(sim.waitStat("uploads_done", 1, 5000));
  auto u = DevSim::fields(sim.cmd("UPLOAD"));
  EXPECT_EQ(u["state"], "done");
  EXPECT_EQ(u["kind"], "firmware");
  EXPECT_EQ(u["size"], std::to_string(data.size()));
  EXPECT_EQ(u["announced"], std::to_string(data.size()));
  EXPECT_EQ(u["chunks"], "3");
  EXPECT_EQ(u["errors"], "0") << u["err"];
  EXPECT_EQ(u["fnv"], FnvHex(data));
  ASSERT_FALSE(u["file"].empty());
  EXPECT_EQ(readFile(u["file"]), data);
}

TEST(DevSimUpload, ConfigFileNamedAndErrorsRecorded) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("SET upload_name cfg.bin"));
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  const std::string data = PatternBytes(5000, 2);
  ASSERT_TRUE(c.sendRequest("20000", "20004", "<fileLength>5000</fileLength>"));
  Frame f;
  ASSERT_TRUE(c.readAnswer("20000", "20004", f));
  // A gap in startPos and a bad separator are both reported, the bytes still kept.
  ASSERT_TRUE(c.sendFrame(chunk("20005", 0, data.substr(0, 2000))));
  std::string bad = chunk("20005", 2100, data.substr(2000, 3000));
  bad[chunkHeader("20005", 2100, 3000).size() + 2] = '\x01';
  ASSERT_TRUE(c.sendFrame(bad));
  ASSERT_TRUE(c.sendFrame(chunkHeader("20005", 5000, 0) + std::string(4, '\0')));
  ASSERT_TRUE(sim.waitStat("uploads_done", 1, 5000));
  auto u = DevSim::fields(sim.cmd("UPLOAD"));
  EXPECT_EQ(u["kind"], "config");
  EXPECT_EQ(u["size"], "5000");
  EXPECT_EQ(u["errors"], "2") << u["err"];
  EXPECT_NE(u["err"].find("startPos 2100"), std::string::npos) << u["err"];
  EXPECT_NE(u["err"].find("separator"), std::string::npos) << u["err"];
  EXPECT_EQ(u["file"], sim.uploadDir() + "/cfg.bin");
  EXPECT_EQ(readFile(sim.uploadDir() + "/cfg.bin"), data);
}

TEST(DevSimUpload, RefuseLateTwiceAndCancel) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  Frame f;

  ASSERT_TRUE(sim.cmdOk("SET upload_mode refuse"));
  ASSERT_TRUE(sim.cmdOk("SET upload_refuse_code -7"));
  ASSERT_TRUE(c.sendRequest("20000", "20001", "<firmwareLength>10</firmwareLength>"));
  ASSERT_TRUE(c.readAnswer("20000", "20001", f));
  EXPECT_EQ(tag(f.text(), "result"), "-7");
  EXPECT_EQ(DevSim::fields(sim.cmd("UPLOAD"))["state"], "refused");

  ASSERT_TRUE(sim.cmdOk("SET upload_mode twice"));
  ASSERT_TRUE(c.sendRequest("20000", "20004", "<fileLength>10</fileLength>"));
  ASSERT_TRUE(c.readAnswer("20000", "20004", f));
  ASSERT_TRUE(c.readAnswer("20000", "20004", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  ASSERT_TRUE(c.sendFrame(chunk("20005", 0, "0123456789")));
  ASSERT_TRUE(c.sendFrame(kCancelText));
  ASSERT_TRUE(sim.waitStat("uploads_cancelled", 1, 3000));
  EXPECT_EQ(DevSim::fields(sim.cmd("UPLOAD"))["state"], "cancelled");

  // Late: no answer until told, then an acceptance arrives (after a cancel too).
  ASSERT_TRUE(sim.cmdOk("SET upload_mode late"));
  ASSERT_TRUE(c.sendRequest("20000", "20001", "<firmwareLength>4</firmwareLength>"));
  ASSERT_TRUE(sim.waitFor("20000", "20001", 2, 2000));
  EXPECT_TRUE(c.silentFor(200));
  EXPECT_EQ(DevSim::fields(sim.cmd("UPLOAD"))["state"], "waiting");
  ASSERT_TRUE(c.sendFrame(kCancelText));
  ASSERT_TRUE(sim.waitStat("uploads_cancelled", 2, 3000));
  std::string r = sim.cmd("UPLOAD ACCEPT");
  EXPECT_EQ(r.rfind("OK", 0), 0u) << r;
  ASSERT_TRUE(c.readAnswer("20000", "20001", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_EQ(sim.cmd("UPLOAD COUNT"), "OK 3");
}

TEST(DevSimDownload, SizeAndChunkSettingsRefuseValuesBelowTheirFloor) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  EXPECT_TRUE(sim.cmdOk("SET dl_size 0"));
  EXPECT_EQ(sim.cmd("SET dl_size -1"), "ERR dl_size must be >= 0");
  EXPECT_EQ(sim.cmd("SET dl_chunk 0"), "ERR dl_chunk must be >= 1");
  EXPECT_EQ(sim.cmd("SET dl_chunk x"), "ERR not a number: x");
  // The refused values changed nothing.
  EXPECT_EQ(sim.cmd("GET dl_size"), "OK 0");
  EXPECT_EQ(sim.cmd("GET dl_chunk"), "OK 4096");
}

TEST(DevSimDownload, ServedInSeveralAnswersWithMatchingChecksum) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("SET dl_size 10000"));
  ASSERT_TRUE(sim.cmdOk("SET dl_chunk 4096"));
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  Frame f;
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  EXPECT_EQ(tag(f.text(), "result"), "0");
  EXPECT_EQ(tag(f.text(), "fileLength"), "10000");
  std::string file;
  int answers = 0;
  while (file.size() < 10000) {
    ASSERT_TRUE(c.readAnswer("20000", "20007", f));
    std::string t = f.text();
    ASSERT_GE(f.payload.size(), t.size() + 4);
    EXPECT_EQ(f.payload.substr(t.size(), 4), std::string(4, '\0'));
    EXPECT_EQ(tag(t, "startPos"), std::to_string(file.size()));
    size_t len = std::stoul(tag(t, "dataLength"));
    EXPECT_EQ(f.payload.size(), t.size() + 4 + len);
    file += f.payload.substr(t.size() + 4);
    ++answers;
  }
  EXPECT_EQ(answers, 3);
  EXPECT_EQ(file.size(), 10000u);
  auto d = DevSim::fields(sim.cmd("DOWNLOAD"));
  EXPECT_EQ(d["fnv"], FnvHex(file));
  EXPECT_EQ(d["chunks"], "3");
  EXPECT_EQ(d["sent"], "10000");
  EXPECT_TRUE(c.silentFor(200)) << "nothing after the last answer";

  // A file given by path is served as it is.
  std::string path = sim.tempDir() + "/served.cfg";
  {
    std::ofstream o(path, std::ios::binary);
    o.write("abc\0def", 7);
  }
  ASSERT_TRUE(sim.cmdOk("SET dl_file " + DevSim::escape(path)));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  EXPECT_EQ(tag(f.text(), "fileLength"), "7");
  ASSERT_TRUE(c.readAnswer("20000", "20007", f));
  EXPECT_EQ(f.payload.substr(f.text().size() + 4), std::string("abc\0def", 7));
  // A client that half-closes right after its request still gets everything.
  {
    ASSERT_TRUE(sim.cmdOk("SET dl_file -"));
    ASSERT_TRUE(sim.cmdOk("SET dl_size 30000"));
    ASSERT_TRUE(sim.cmdOk("SET dl_delay_ms 10"));  // data still queued when the FIN arrives
    RawClient h(sim.port());
    ASSERT_TRUE(h.sendRequest("20000", "20006"));
    ASSERT_EQ(shutdown(h.fd(), SHUT_WR), 0);
    ASSERT_TRUE(h.readAnswer("20000", "20006", f));
    size_t got = 0;
    while (got < 30000) {
      ASSERT_TRUE(h.readAnswer("20000", "20007", f)) << got;
      got += f.payload.size() - f.text().size() - 4;
    }
    EXPECT_EQ(got, 30000u);
    EXPECT_TRUE(h.closedWithin(2000));
    ASSERT_TRUE(sim.cmdOk("SET dl_delay_ms 0"));
  }
  // A missing file is refused rather than served empty.
  ASSERT_TRUE(sim.cmdOk("SET dl_file " + DevSim::escape(path + ".missing")));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  EXPECT_EQ(tag(f.text(), "result"), "-1");
}

TEST(DevSimDownload, FailureForms) {
  CheckedSim sim;
  ASSERT_TRUE(sim.ok()) << sim.error();
  ASSERT_TRUE(sim.cmdOk("SET dl_size 3000"));
  ASSERT_TRUE(sim.cmdOk("SET dl_chunk 1000"));
  RawClient c(sim.port());
  ASSERT_TRUE(devsimtest::authenticate(c));
  Frame f;
  auto payloadData = [](const Frame& fr) { return fr.payload.substr(fr.text().size() + 4); };

  ASSERT_TRUE(sim.cmdOk("SET dl_fault badsep"));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  ASSERT_TRUE(c.readAnswer("20000", "20007", f));
  EXPECT_EQ(f.payload.substr(f.text().size(), 4), std::string("\0\xff\xff\xff", 4));
  ASSERT_TRUE(c.readAnswer("20000", "20007", f));
  EXPECT_EQ(f.payload.substr(f.text().size(), 4), std::string(4, '\0'));
  ASSERT_TRUE(c.readAnswer("20000", "20007", f));

  ASSERT_TRUE(sim.cmdOk("SET dl_fault zerolen"));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  ASSERT_TRUE(c.readAnswer("20000", "20007", f));
  EXPECT_EQ(payloadData(f).size(), 1000u);
  ASSERT_TRUE(c.readAnswer("20000", "20007", f));
  EXPECT_EQ(tag(f.text(), "dataLength"), "0");
  EXPECT_TRUE(c.silentFor(150));

  ASSERT_TRUE(sim.cmdOk("SET dl_fault nolength"));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  ASSERT_TRUE(c.readAnswer("20000", "20007", f)) << "data comes without a length answer";
  ASSERT_TRUE(c.readAnswer("20000", "20007", f));
  ASSERT_TRUE(c.readAnswer("20000", "20007", f));

  ASSERT_TRUE(sim.cmdOk("SET dl_fault twice"));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(c.readAnswer("20000", "20007", f));

  ASSERT_TRUE(sim.cmdOk("SET dl_fault extra"));
  ASSERT_TRUE(sim.cmdOk("SET dl_extra 50"));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  EXPECT_EQ(tag(f.text(), "fileLength"), "3000");
  size_t total = 0;
  std::vector<size_t> ends;
  while (total < 3050) {
    ASSERT_TRUE(c.readAnswer("20000", "20007", f));
    total += payloadData(f).size();
    ends.push_back(total);
  }
  EXPECT_EQ(total, 3050u);
  for (size_t e : ends) EXPECT_NE(e, 3000u) << "no answer may end exactly on the announced size";

  ASSERT_TRUE(sim.cmdOk("SET dl_fault short"));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  EXPECT_EQ(tag(f.text(), "fileLength"), "3050");
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(c.readAnswer("20000", "20007", f));
  EXPECT_TRUE(c.silentFor(150));

  ASSERT_TRUE(sim.cmdOk("SET dl_fault drop"));
  ASSERT_TRUE(c.sendRequest("20000", "20006"));
  ASSERT_TRUE(c.readAnswer("20000", "20006", f));
  ASSERT_TRUE(c.readAnswer("20000", "20007", f));
  EXPECT_FALSE(c.readFrame(f, 1000)) << "the second answer is cut";
  EXPECT_TRUE(c.closedWithin(1000));
  EXPECT_EQ(sim.cmd("DOWNLOAD COUNT"), "OK 7");
}

TEST(DevSimLoad, AThousandSessionsAtOnce) {
  const int kSessions = 1000;
  rlimit rl;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &rl), 0);
  if (rl.rlim_cur < rl.rlim_max) {
    rl.rlim_cur = rl.rlim_max;
    setrlimit(RLIMIT_NOFILE, &rl);
    getrlimit(RLIMIT_NOFILE, &rl);
  }
  if (rl.rlim_cur < static_cast<rlim_t>(kSessions + 100))
    GTEST_SKIP() << "descriptor limit " << rl.rlim_cur << " too low for " << kSessions << " sessions";
  CheckedSim sim({"--devices", "4"});
  ASSERT_TRUE(sim.ok()) << sim.error();
  std::vector<std::unique_ptr<RawClient>> cs;
  for (int i = 0; i < kSessions; ++i) {
    cs.push_back(std::make_unique<RawClient>(sim.port(i % 4)));
    ASSERT_TRUE(cs.back()->connected()) << i;
  }
  std::string auth = devsimtest::frameOf(
      devsimtest::request("10000", "14012", "<userName>admin</userName>\n<password>admin</password>\n"));
  for (auto& c : cs) ASSERT_TRUE(c->sendBytes(auth));
  ASSERT_TRUE(sim.waitConnections(kSessions, 20000, true));
  for (auto& c : cs) {
    Frame f;
    ASSERT_TRUE(c->readAnswer("10000", "14012", f));
  }
  EXPECT_TRUE(sim.waitConnections(kSessions / 4, 100, true, 3));
  EXPECT_EQ(sim.stat("auth_ok"), kSessions);
  EXPECT_EQ(sim.cmd("PING"), "OK pong");
}
