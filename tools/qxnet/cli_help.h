// qxnet's help: one table of commands, printed whole (qxnet --help) or one entry at a time
// (qxnet COMMAND --help, and to stderr on a usage error).
#pragma once

#include <cstdio>

// True when `name` is a command or operation of qxnet.
bool IsCommand(const char* name);
// Usage, summary, commands, global options and exit codes.
void PrintHelp(FILE* out);
// One command's usage, arguments and options; false when there is no such command.
bool PrintCommandHelp(const char* name, FILE* out);
// A usage error in `name` (or, when null, with no known command): its usage on stderr; 2.
int UsageError(const char* name, const char* why);
