#include "device_ops.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "cli_args.h"
#include "exit_codes.h"
#include "json_out.h"
#include "session_wait.h"

namespace {

// The device's command numbers this tool sends (the library's public header names the
// operations, not the wire codes it answers with).
enum : unsigned long {
  kCmdReboot = 14008,
  kCmdRestoreConfig = 14011,
  kCmdSetUserData = 14033,
  kCmdGetUserData = 14034,
};

bool Is(const char* word, const char* name) { return word && !std::strcmp(word, name); }

void PrintAnswerBody(unsigned long cmd, int flag, const std::string& body) {
  if (!JsonOutput()) {
    std::printf("answer %lu flag %d\n%s\n", cmd, flag, body.c_str());
    return;
  }
  std::printf("%s\n",
              JsonObject().Int("command", static_cast<long long>(cmd)).Int("flag", flag).Bool("ok", flag >= 0)
                  .Str("body", body).Text().c_str());
}

// Waits for the answer to a queued request and prints it; the exit code.
int PrintAnswer(const OpArgs& a, unsigned long cmd, long rc) {
  if (rc != 0) return LibraryRefused("request", rc);
  long code = 0;
  std::string body;
  AnswerWait w = WaitAnswer(cmd, a.timeout, &code, &body);
  if (w != AnswerWait::kAnswered) {
    bool dropped = w == AnswerWait::kDropped;
    std::fprintf(stderr, "qxnet: no answer to %lu (%s)\n", cmd, dropped ? "connection dropped" : "timeout");
    return dropped ? kExitConnection : kExitTimeout;
  }
  int flag = AnswerFlag(code);
  PrintAnswerBody(cmd, flag, body);
  if (flag < 0) {
    std::fprintf(stderr, "qxnet: the device refused (flag %d)\n", flag);
    return kExitRefused;
  }
  return kExitOk;
}

const char* CheckConfig(const OpArgs& a) {
  long cmd = 0;
  if (!Is(a.Arg(1), "get") && !Is(a.Arg(1), "set")) return "config: say get or set";
  if (!ParseLong(a.Arg(2), &cmd) || cmd < 0) return "config: CMD must be a command number";
  if (Is(a.Arg(1), "set") && a.Count() != 4) return "config set: needs CMD and BODY";
  return a.Count() > 4 ? "config: too many arguments" : nullptr;
}

int RunConfig(const OpArgs& a) {
  unsigned long cmd = std::strtoul(a.Arg(2), nullptr, 10);
  char* text = const_cast<char*>(a.Arg(3) ? a.Arg(3) : "");
  if (Is(a.Arg(1), "get")) return PrintAnswer(a, cmd, QXNet_Loc_GetDVRConfig(a.id, cmd, 0, text, 0, nullptr));
  return PrintAnswer(a, cmd, QXNet_Loc_SetDVRConfig(a.id, cmd, 0, text, 0));
}

int RunPtz(const OpArgs& a) {
  // PTZ commands have no export of their own: the document goes out as a
  // PTZ_CONTROL_MESSAGE request; devices do not answer it.
  long rc = QXNet_Loc_WriteAUXStringEx(a.id, const_cast<char*>("PTZ_CONTROL_MESSAGE"), 0, 0,
                                       const_cast<char*>(a.Arg(1)));
  if (rc != 0) return LibraryRefused("ptz command", rc);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  std::printf("%s\n", JsonOutput() ? JsonObject().Bool("queued", true).Text().c_str() : "ptz command queued");
  return kExitOk;
}

const char* CheckUserData(const OpArgs& a) {
  if (Is(a.Arg(1), "get")) return a.Count() == 2 ? nullptr : "userdata get: too many arguments";
  if (Is(a.Arg(1), "set")) return a.Count() == 3 ? nullptr : "userdata set: needs TEXT";
  return "userdata: say get or set";
}

int RunUserData(const OpArgs& a) {
  if (Is(a.Arg(1), "get")) return PrintAnswer(a, kCmdGetUserData, QXNet_Loc_GetUserData(a.id, nullptr, nullptr));
  std::vector<char> data(a.Arg(2), a.Arg(2) + std::strlen(a.Arg(2)) + 1);
  return PrintAnswer(a, kCmdSetUserData,
                     QXNet_Loc_SetUserData(a.id, data.data(), static_cast<int>(data.size() - 1)));
}

const char* CheckTransfer(const OpArgs& a) {
  if (Is(a.Arg(0), "upgrade")) return a.Count() == 2 ? nullptr : "upgrade: needs FILE";
  if (!Is(a.Arg(1), "save") && !Is(a.Arg(1), "load")) return "config-file: say save or load";
  return a.Count() == 3 ? nullptr : "config-file: needs FILE";
}

}  // namespace

int LibraryRefused(const char* what, long rc) {
  std::fprintf(stderr, "qxnet: %s refused by the library (result %ld%s)\n", what, rc,
               rc == QXNET_E_FILE ? ": file missing or unreadable" : rc == QXNET_E_BUSY ? ": a transfer is running" : "");
  if (rc == QXNET_E_FILE) return kExitFile;
  if (rc == QXNET_E_SOCKET || rc == QXNET_E_NO_DEVICE) return kExitConnection;
  return kExitRefused;
}

void PrintOutcome(const char* operation, const char* status, const char* file, bool fileInText) {
  if (JsonOutput())
    std::printf("%s\n", JsonObject().Str("operation", operation).Str("status", status).Str("file", file).Text().c_str());
  else if (fileInText)
    std::printf("%s %s: %s\n", operation, status, file);
  else
    std::printf("%s %s\n", operation, status);
}

const char* CheckOperation(const OpArgs& a) {
  const char* op = a.Arg(0);
  if (Is(op, "config")) return CheckConfig(a);
  if (Is(op, "reboot") || Is(op, "restore")) return a.Count() == 1 ? nullptr : "too many arguments";
  if (Is(op, "ptz")) return a.Count() == 2 ? nullptr : "ptz: needs one XML document";
  if (Is(op, "userdata")) return CheckUserData(a);
  if (Is(op, "upgrade") || Is(op, "config-file")) return CheckTransfer(a);
  if (Is(op, "records") || Is(op, "download") || Is(op, "replay")) return CheckRecorderOp(a);
  return "unknown operation";
}

int RunOperation(const OpArgs& a) {
  const char* op = a.Arg(0);
  if (Is(op, "config")) return RunConfig(a);
  if (Is(op, "reboot")) return PrintAnswer(a, kCmdReboot, QXNet_Loc_RebootDVR(a.id));
  if (Is(op, "restore")) return PrintAnswer(a, kCmdRestoreConfig, QXNet_Loc_RestoreConfig(a.id));
  if (Is(op, "ptz")) return RunPtz(a);
  if (Is(op, "userdata")) return RunUserData(a);
  if (Is(op, "upgrade") || Is(op, "config-file")) return RunTransfer(a);
  if (Is(op, "records")) return RunRecords(a);
  if (Is(op, "download")) return RunDownload(a);
  return RunReplay(a);
}
