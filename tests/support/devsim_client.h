// Test-support client for qxdevsim, the device simulator.
//
// A DevSim object starts one simulator process (fork/exec) with a private
// temporary directory, waits for its port file, and talks to its control
// channel. The destructor stops the process (QUIT, then SIGTERM, then SIGKILL),
// reaps it and removes the temporary directory.
//
//   qxtest::DevSim sim({"--account", "admin:secret", "--max-channels", "8"});
//   ASSERT_TRUE(sim.ok()) << sim.error();
//   long id = QXNet_Loc_LoginDev("127.0.0.1", sim.port(), "admin", "secret", ...);
//   ASSERT_TRUE(sim.waitConnections(1, 10000));          // authenticated session
//   sim.cmd("ALARM last items=2");                          // any control command
//   ASSERT_TRUE(sim.waitFor("10000", "14001", 1, 5000));  // a request arrived
//   EXPECT_EQ(sim.lastBody("10000", "14001"), "<x/>");
//
// The simulator binary is $QXNET_DEVSIM when that names an executable file,
// otherwise the qxdevsim target built with the tests. Set QXNET_DEVSIM_VERBOSE=1
// to see the simulator's own log on stderr, QXNET_DEVSIM_KEEP=1 to keep the
// temporary directory. The control commands are listed by `qxdevsim --help`.
//
// Thread safety: cmd() and the helpers may be called from several threads (a
// mutex serialises them). The simulator is asked to die with the thread that
// created the DevSim (PR_SET_PDEATHSIG): create it on the test's main thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace qxtest {

// Where a simulator runs when not beside the test: a command that the simulator's own
// command line is appended to (e.g. {"ip", "netns", "exec", "NS"}, which execs in place so
// the process id stays the simulator's), and the address its control channel is reached at
// (the simulator is given --control HOST:0).
struct DevSimPlace {
  std::vector<std::string> launcher;
  std::string controlHost = "127.0.0.1";
};

class DevSim {
 public:
  // args: extra qxdevsim options. --port-file and --control are supplied; an
  // --upload-dir inside tempDir() is supplied unless args give one.
  explicit DevSim(const std::vector<std::string>& args = {}, int startTimeoutMs = 10000,
                  const DevSimPlace& place = DevSimPlace());
  ~DevSim();
  DevSim(const DevSim&) = delete;
  DevSim& operator=(const DevSim&) = delete;

  bool ok() const { return ok_; }
  const std::string& error() const { return error_; }

  uint16_t port(int dev = 0) const;  // device listening port, 0 if no such device
  int deviceCount() const { return static_cast<int>(ports_.size()); }
  uint16_t controlPort() const { return controlPort_; }
  pid_t pid() const { return pid_; }
  const std::string& tempDir() const { return tmp_; }
  const std::string& uploadDir() const { return uploadDir_; }

  // Sends one control line and returns the reply line (without newline).
  // I/O failures and timeouts return a line starting with "ERR io".
  std::string cmd(const std::string& line, int timeoutMs = 10000);
  bool cmdOk(const std::string& line, int timeoutMs = 10000);

  // Received-message helpers; type/cmd may be "*". conn 0 = any connection.
  long long count(const std::string& type, const std::string& cmd, int conn = 0);
  bool waitFor(const std::string& type, const std::string& cmd, long long count, int timeoutMs,
               int conn = 0);
  // Body (unescaped) of the newest message of that type/cmd; empty if none.
  std::string lastBody(const std::string& type, const std::string& cmd);
  // Fields of the newest message (seq, conn, dev, type, cmd, result, size, body); empty if none.
  std::map<std::string, std::string> lastMsg(const std::string& type, const std::string& cmd);

  // Waits for at least n open connections (authenticated ones only when
  // `authenticated`). n == 0 waits until there are none at all.
  bool waitConnections(int n, int timeoutMs, bool authenticated = true, int dev = -1);
  // Waits until at most n connections are open (e.g. after a logout).
  bool waitConnectionsAtMost(int n, int timeoutMs, int dev = -1);
  long long stat(const std::string& name);  // a STATS counter, 0 when absent
  bool waitStat(const std::string& name, long long value, int timeoutMs);

  // False once the simulator process has ended (a crash, a kill): it is then reaped and
  // exitDescription() says how it ended ("exit status 1", "signal 11"). Polls, never waits.
  bool running();
  const std::string& exitDescription() const { return exitText_; }

  // Asks the simulator to quit and reaps it. Returns its exit status (0 on a
  // clean exit), or -1 if it had to be killed or was not running.
  int stop(int timeoutMs = 5000);

  // "OK a=1 b=x\sy" -> {a:"1", b:"x y"} (values unescaped; bare words skipped).
  static std::map<std::string, std::string> fields(const std::string& reply);
  static std::string escape(const std::string& s);    // for free text in commands
  static std::string unescape(const std::string& s);
  static std::string binaryPath();

 private:
  bool connectControl(std::string& err);
  void closeControl();
  void killAndReap();

  bool ok_ = false;
  std::string error_;
  pid_t pid_ = -1;
  int exitStatus_ = -1;
  std::string exitText_;
  std::string tmp_;
  std::string uploadDir_;
  std::vector<uint16_t> ports_;
  uint16_t controlPort_ = 0;
  std::string controlHost_ = "127.0.0.1";
  int ctl_ = -1;
  std::string pending_;  // bytes read past the last reply line
  std::mutex mu_;
};

}  // namespace qxtest
