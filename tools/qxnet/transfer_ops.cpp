// upgrade FILE, config-file save|load FILE: start the transfer and follow its events.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "QXNetSDK.h"
#include "cli_args.h"
#include "device_ops.h"
#include "event_print.h"
#include "exit_codes.h"
#include "progress.h"
#include "session_wait.h"

namespace {

// A file transfer being followed: what it is called and the events that tell its course.
struct Transfer {
  const char* what;
  const char* file;
  std::vector<long> codes;
};

int AttrInt(const std::string& text, const char* name) {
  size_t p = text.find(std::string(name) + "=\"");
  if (p == std::string::npos) return -1;
  return std::atoi(text.c_str() + p + std::strlen(name) + 2);
}

// Starts the transfer named by the (checked) arguments; the library's result.
long StartTransfer(const OpArgs& a, Transfer* t) {
  if (!std::strcmp(a.Arg(0), "upgrade")) {
    *t = {"upgrade", a.Arg(1), {QXNET_EV_UPGRADE_PROGRESS, QXNET_EV_UPGRADE_FINISHED, QXNET_EV_UPGRADE_FAILED,
                                QXNET_EV_CFGFILE_SET_FAILED}};
    return QXNet_Loc_Upgrade(a.id, t->file);
  }
  if (!std::strcmp(a.Arg(1), "save")) {
    *t = {"config-file save", a.Arg(2), {QXNET_EV_CFGFILE_GET_PROGRESS}};
    return QXNet_Loc_GetConfigFile(a.id, t->file);
  }
  *t = {"config-file load", a.Arg(2),
        {QXNET_EV_CFGFILE_SET_PROGRESS, QXNET_EV_CFGFILE_SET_FINISHED, QXNET_EV_CFGFILE_SET_FAILED}};
  return QXNet_Loc_SetConfigFile(a.id, t->file);
}

// The configuration download's progress event: -1 to go on, else the exit code.
int OnConfigDownload(const Transfer& t, const std::string& text) {
  size_t p = text.find("<downProgress>");
  int pct = p == std::string::npos ? -9 : std::atoi(text.c_str() + p + 14);
  if (pct == 100) {
    ProgressBar(t.what, 100);
    PrintOutcome(t.what, "finished", t.file, true);
    return kExitOk;
  }
  if (pct < 0) {
    std::fprintf(stderr, "\nqxnet: %s failed (%s)\n", t.what, OneLine(text.c_str()).c_str());
    return kExitRefused;
  }
  ProgressBar(t.what, pct);
  return -1;
}

// One event of a running transfer: -1 to go on, else the exit code.
int OnTransferEvent(const Transfer& t, long code, const std::string& text) {
  if (code == QXNET_EV_UPGRADE_PROGRESS || code == QXNET_EV_CFGFILE_SET_PROGRESS) {
    int start = AttrInt(text, "start"), size = AttrInt(text, "filesize");
    if (size > 0) ProgressBar(t.what, static_cast<int>(100.0 * start / size));
    return -1;
  }
  if (code == QXNET_EV_UPGRADE_FINISHED || code == QXNET_EV_CFGFILE_SET_FINISHED) {
    ProgressBar(t.what, 100);
    PrintOutcome(t.what, "finished", t.file, false);
    return kExitOk;
  }
  if (code == QXNET_EV_CFGFILE_GET_PROGRESS) return OnConfigDownload(t, text);
  std::fprintf(stderr, "\nqxnet: %s failed: %s\n", t.what, OneLine(text.c_str()).c_str());
  return kExitRefused;
}

}  // namespace

int RunTransfer(const OpArgs& a) {
  // The library reports a configuration download finished even when it could not write the
  // file: refuse a destination that cannot be made before asking the device.
  if (!std::strcmp(a.Arg(0), "config-file") && !std::strcmp(a.Arg(1), "save") && !CanCreate(a.Arg(2))) {
    std::fprintf(stderr, "qxnet: cannot write %s\n", a.Arg(2));
    return kExitFile;
  }
  Transfer t;
  long rc = StartTransfer(a, &t);
  if (rc != 0) return LibraryRefused(t.what, rc);
  ProgressBar(t.what, 0);
  size_t from = 0;
  for (;;) {
    long code = 0;
    std::string text;
    int r = WaitEvent(t.codes, from, a.timeout, &code, &text, &from);
    if (r == -1) {
      std::fprintf(stderr, "\nqxnet: %s timed out\n", t.what);
      return kExitTimeout;
    }
    if (r == -2) {
      std::fprintf(stderr, "\nqxnet: %s: connection lost (%s)\n", t.what, OneLine(text.c_str()).c_str());
      return kExitConnection;
    }
    int done = OnTransferEvent(t, code, text);
    if (done >= 0) return done;
  }
}
