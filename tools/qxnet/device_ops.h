// qxnet HOST PORT USER PASS OPERATION ...: the operations on a logged-in device.
#pragma once

#include <string>

// The arguments of one operation: argv[first] is its name.
struct OpArgs {
  long id;
  int argc;
  char** argv;
  int first;
  double timeout;
  const char* Arg(int k) const { return first + k < argc ? argv[first + k] : nullptr; }
  int Count() const { return argc - first; }  // words, the operation's name included
};

// Why the operation's words are wrong, or nullptr when they are fine (checked before connecting).
const char* CheckOperation(const OpArgs& a);
// Runs the (checked) operation; the exit code.
int RunOperation(const OpArgs& a);

// The exit code for a library result that refused a request, after saying so on stderr.
int LibraryRefused(const char* what, long rc);
// The end of a transfer: a text line, or one JSON object.
void PrintOutcome(const char* operation, const char* status, const char* file, bool fileInText);

int RunTransfer(const OpArgs& a);
const char* CheckRecorderOp(const OpArgs& a);
int RunRecords(const OpArgs& a);
int RunDownload(const OpArgs& a);
int RunReplay(const OpArgs& a);
