// qxnet: command-line client built on the public QXNetSDK interface only.
#include <signal.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "QXNetSDK.h"
#include "cli_args.h"
#include "cli_help.h"
#include "device_ops.h"
#include "event_print.h"
#include "exit_codes.h"
#include "json_out.h"
#include "lan_commands.h"
#include "session_wait.h"

namespace {

void OnSignal(int) { g_stop = true; }

// Logs in and waits up to `wait` seconds for the device to authenticate; the login id, or 0
// after saying why on stderr.
long LoginAndWait(char** argv, double wait) {
  long id = QXNet_Loc_LoginDev(argv[1], std::strtoul(argv[2], nullptr, 10), argv[3], argv[4], nullptr);
  if (id <= 0) {
    std::fprintf(stderr, "qxnet: login refused (result %ld)\n", id);
    return 0;
  }
  long code = 0;
  std::string text;
  size_t next = 0;
  int r = WaitEvent({QXNET_EV_AUTHENTICATED, QXNET_EV_BAD_CREDENTIALS, QXNET_EV_AUTH_FAILED}, 0, wait, &code, &text,
                    &next);
  if (r >= 0 && code == QXNET_EV_AUTHENTICATED) return id;
  std::fprintf(stderr, "qxnet: not logged in (%s)\n", r == -1 ? "timeout" : OneLine(text.c_str()).c_str());
  QXNet_LogOutDev(id);
  return 0;
}

// Takes "--timeout S" out of the operation's words; false when it is malformed.
bool TakeTimeout(int* argc, char** argv, double* timeout) {
  for (int i = 5; i < *argc; ++i) {
    if (std::strcmp(argv[i], "--timeout") != 0) continue;
    if (i + 1 >= *argc || !ParseSeconds(argv[i + 1], timeout)) return false;
    for (int k = i; k + 2 <= *argc; ++k) argv[k] = argv[k + 2];
    *argc -= 2;
    return true;
  }
  return true;
}

int CmdOperation(int argc, char** argv) {
  double timeout = 30;
  long port = 0;
  const char* op = argv[5];
  if (!TakeTimeout(&argc, argv, &timeout)) return UsageError(op, "--timeout needs a number of seconds");
  if (!ParseLong(argv[2], &port) || port <= 0 || port > 65535) return UsageError(op, "PORT must be 1..65535");
  OpArgs a{0, argc, argv, 5, timeout};
  if (const char* why = CheckOperation(a)) return UsageError(IsCommand(op) ? op : nullptr, why);
  QXNet_init();
  InstallSessionCallbacks(true);
  a.id = LoginAndWait(argv, timeout < 40 ? timeout : 40);
  int rc = a.id ? RunOperation(a) : kExitConnection;
  if (a.id) QXNet_LogOutDev(a.id);
  QXNet_Free();
  return rc;
}

int CmdVersion(int argc) {
  if (argc != 2) return UsageError("version", "version takes no arguments");
  QXNet_init();
  if (JsonOutput())
    std::printf("%s\n", JsonObject().Str("version", QXNet_GetSdkVersion()).Text().c_str());
  else
    std::printf("QXNetSDK %s\n", QXNet_GetSdkVersion());
  QXNet_Free();
  return kExitOk;
}

// login's options after HOST PORT USER PASS; false when one is wrong.
bool LoginOptions(int argc, char** argv, double* seconds, bool* reconnect) {
  for (int i = 6; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc) {
      if (!ParseSeconds(argv[++i], seconds)) return false;
    } else if (!std::strcmp(argv[i], "--no-reconnect")) {
      *reconnect = false;
    } else {
      return false;
    }
  }
  return true;
}

int CmdLogin(int argc, char** argv) {
  double seconds = -1;
  bool reconnect = true;
  long port = 0;
  if (argc < 6) return UsageError("login", "login needs HOST PORT USER PASS");
  if (!ParseLong(argv[3], &port) || port <= 0 || port > 65535) return UsageError("login", "PORT must be 1..65535");
  if (!LoginOptions(argc, argv, &seconds, &reconnect)) return UsageError("login", "bad option");
  QXNet_init();
  QXNet_SetAutoReconnect(reconnect ? 1 : 0);
  InstallSessionCallbacks(false);
  long id = QXNet_Loc_LoginDev(argv[2], static_cast<unsigned long>(port), argv[4], argv[5], nullptr);
  if (id <= 0) {
    std::fprintf(stderr, "qxnet: login refused (result %ld)\n", id);
    QXNet_Free();
    return kExitConnection;
  }
  double end = Now() + seconds;
  while (!g_stop && (seconds < 0 || Now() < end)) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  QXNet_LogOutDev(id);
  QXNet_Free();
  if (SawAuthenticated()) return kExitOk;
  std::fprintf(stderr, "qxnet: the device never authenticated this login\n");
  return kExitConnection;
}

// qxnet help [COMMAND], and -h/--help anywhere.
int CmdHelp(const char* name) {
  if (!name) {
    PrintHelp(stdout);
    return kExitOk;
  }
  return PrintCommandHelp(name, stdout) ? kExitOk : UsageError(nullptr, "no such command");
}

// The command a --help is about: argv[1] (help's subject after "help"), or the operation
// after HOST PORT USER PASS.
int HelpFor(int argc, char** argv) {
  if (argc < 2) return CmdHelp(nullptr);
  if (!std::strcmp(argv[1], "help") && argc > 2) return CmdHelp(argv[2]);
  if (IsCommand(argv[1])) return CmdHelp(argv[1]);
  if (argc > 5 && IsCommand(argv[5])) return CmdHelp(argv[5]);
  return UsageError(nullptr, "no such command");
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  GlobalFlags flags;
  argc = TakeGlobalFlags(argc, argv, &flags);
  if (flags.help) return HelpFor(argc, argv);
  if (argc < 2) return UsageError(nullptr, "no command given");
  std::string cmd = argv[1];
  if (cmd == "help") return CmdHelp(argc > 2 ? argv[2] : nullptr);
  if (cmd == "version") return CmdVersion(argc);
  if (cmd == "login") return CmdLogin(argc, argv);
  int lan = RunLanCommand(argc, argv);
  if (lan >= 0) return lan;
  if (argc >= 6) return CmdOperation(argc, argv);
  if (IsCommand(argv[1])) return UsageError(argv[1], "missing arguments (operations follow HOST PORT USER PASS)");
  return UsageError(nullptr, ("unknown command '" + cmd + "'").c_str());
}
