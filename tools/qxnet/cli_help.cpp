#include "cli_help.h"

#include <cstring>

#include "exit_codes.h"

namespace {

struct CommandHelp {
  const char* name;
  bool operation;      // runs on a device: qxnet HOST PORT USER PASS NAME ...
  const char* usage;   // synopsis after "qxnet" (operations: after HOST PORT USER PASS)
  const char* summary;
  const char* details;  // arguments and options, one per line
};

const CommandHelp kCommands[] = {
    {"help", false, "help [COMMAND]", "this help, or one command's", "  COMMAND   a command or operation name\n"},
    {"version", false, "version [--json]", "print the library version (init/free round trip)",
     "  --json    {\"version\": TEXT}\n"},
    {"login", false, "login HOST PORT USER PASS [--seconds N] [--no-reconnect] [--json]",
     "log in and print status events, alarms and answers until Ctrl-C",
     "  HOST PORT USER PASS   the device and its account\n"
     "  --seconds N           stop after N seconds (default: run until interrupted)\n"
     "  --no-reconnect        do not reconnect after the connection drops\n"
     "  --json                JSON Lines: one object per event or answer\n"
     "  exits 3 when the login fails or the device was never authenticated\n"},
    {"config", true, "config get CMD [BODY] | config set CMD BODY",
     "read or write the setting of configuration command CMD, print the answer",
     "  CMD       the command number (decimal)\n"
     "  BODY      the request's XML body\n"
     "  --json    {\"command\", \"flag\", \"ok\", \"body\"}\n"},
    {"reboot", true, "reboot", "reboot the device", "  --json    {\"command\", \"flag\", \"ok\", \"body\"}\n"},
    {"restore", true, "restore",
     "restore the factory configuration (also: qxnet restore UID, a device found on the LAN)",
     "  on a device:  qxnet HOST PORT USER PASS restore [--timeout S] [--json]\n"
     "  on the LAN:   qxnet restore UID [--token T --user U --pass P] [--seconds N] [--json]\n"
     "                finds the device by UID within N seconds (default 10) and asks it to\n"
     "                restore itself; exits 3 when it is not found\n"
     "  --json    the answer, or {\"uid\", \"result\", \"done\"} on the LAN\n"},
    {"ptz", true, "ptz XML", "send a PTZ command document (devices do not answer it)",
     "  XML       the PTZ_CONTROL_MESSAGE document\n  --json    {\"queued\": true}\n"},
    {"userdata", true, "userdata get | userdata set TEXT", "read or store the application's data on the device",
     "  TEXT      the data to store\n  --json    {\"command\", \"flag\", \"ok\", \"body\"}\n"},
    {"upgrade", true, "upgrade FILE", "firmware upgrade with a progress bar (on stderr)",
     "  FILE      the firmware file; exits 4 when it cannot be read\n"
     "  --json    {\"operation\", \"status\", \"file\"} at the end\n"},
    {"config-file", true, "config-file save FILE | config-file load FILE",
     "fetch the configuration file into FILE, or send FILE as the configuration file",
     "  FILE      the local file; exits 4 when it cannot be opened\n"
     "  --json    {\"operation\", \"status\", \"file\"} at the end\n"},
    {"records", true, "records DAY|MONTH CHANNEL", "recorded spans of a day or of a month",
     "  DAY       YYYYMMDD, or MONTH YYYYMM (each day searched in turn)\n"
     "  CHANNEL   the recorder's channel number\n"
     "  --json    {\"channel\", \"records\": [{\"day\", \"start\", \"end\", \"seconds\"}]}\n"},
    {"replay", true, "replay CHANNEL START [--seconds N]",
     "replay from START: fps, bitrate and codecs printed each second",
     "  CHANNEL   the recorder's channel number\n"
     "  START     YYYYMMDDhhmmss\n"
     "  --seconds N   how long to watch (default 10)\n"
     "  --json    JSON Lines: {\"second\", \"fps\", \"kbit_per_s\", \"video\", \"audio\"} each second,\n"
     "            then {\"video_frames\", \"audio_frames\"}\n"},
    {"download", true, "download CHANNEL START END FILE",
     "a recorded span into an MP4 file, with a progress bar (on stderr)",
     "  CHANNEL     the recorder's channel number\n"
     "  START END   YYYYMMDDhhmmss\n"
     "  FILE        the MP4 file to write\n"
     "  --json      {\"operation\", \"status\", \"file\"} at the end\n"},
    {"discover", false, "discover [--seconds N] [--json]", "search the LAN for devices",
     "  --seconds N   search for N seconds (default 10): a live table on a terminal, else one\n"
     "                line per found or changed device\n"
     "  --json        JSON Lines: {\"event\": \"found\"|\"changed\", \"slot\", \"uid\", \"ip\", \"netmask\",\n"
     "                \"gateway\", \"mac\", \"type\", \"firmware\"}, then {\"event\": \"end\", \"devices\"}\n"},
    {"set-ip", false, "set-ip UID IP MASK GATEWAY [--token T --user U --pass P] [--seconds N] [--json]",
     "find a device on the LAN, change its address, print its verdict",
     "  UID                 the device (as listed by discover)\n"
     "  IP MASK GATEWAY     its new network settings\n"
     "  --token --user --pass   credentials the device may require\n"
     "  --seconds N         how long to search for it (default 10); exits 3 when not found\n"
     "  --json              {\"uid\", \"result\", \"done\"}\n"},
    {"free-ip", false, "free-ip [--seconds N] [--json]", "propose a free address on this host's subnet",
     "  --seconds N   search the LAN N seconds first, to skip found devices (default 3)\n"
     "  --json        {\"address\": TEXT}\n"},
    {"netinfo", false, "netinfo [--json]", "this host's address, netmask, gateway and DNS servers",
     "  --json    {\"address\", \"netmask\", \"gateway\", \"dns1\", \"dns2\"} (null when unavailable)\n"},
};

const CommandHelp* Find(const char* name) {
  for (const CommandHelp& c : kCommands)
    if (name && !std::strcmp(c.name, name)) return &c;
  return nullptr;
}

void PrintSynopsis(const CommandHelp& c, FILE* out) {
  if (c.operation)
    std::fprintf(out, "usage: qxnet HOST PORT USER PASS %s [--timeout S] [--json]\n", c.usage);
  else
    std::fprintf(out, "usage: qxnet %s\n", c.usage);
}

void PrintList(bool operations, FILE* out) {
  for (const CommandHelp& c : kCommands)
    if (c.operation == operations) std::fprintf(out, "  %-12s %s\n", c.name, c.summary);
}

}  // namespace

bool IsCommand(const char* name) { return Find(name) != nullptr; }

void PrintHelp(FILE* out) {
  std::fprintf(out,
               "usage: qxnet COMMAND [ARGS...] [OPTIONS]\n"
               "       qxnet HOST PORT USER PASS OPERATION [ARGS...] [OPTIONS]\n\ncommands:\n");
  PrintList(false, out);
  std::fprintf(out, "\noperations on a device (after HOST PORT USER PASS):\n");
  PrintList(true, out);
  std::fprintf(out,
               "\nglobal options:\n"
               "  --json        data on stdout as JSON (one document; JSON Lines for the streaming\n"
               "                commands login, replay and discover); progress and diagnostics\n"
               "                go to stderr\n"
               "  --timeout S   operations: seconds to wait for the device (default 30)\n"
               "  -h, --help    this help; qxnet COMMAND --help for one command\n"
               "\nexit codes:\n");
  for (const ExitCodeInfo& e : kExitCodeTable) std::fprintf(out, "  %d  %s\n", static_cast<int>(e.code), e.meaning);
}

bool PrintCommandHelp(const char* name, FILE* out) {
  const CommandHelp* c = Find(name);
  if (!c) return false;
  PrintSynopsis(*c, out);
  std::fprintf(out, "%s: %s\n\n%s", c->name, c->summary, c->details);
  if (c->operation) std::fprintf(out, "  --timeout S   seconds to wait for the device (default 30)\n");
  std::fprintf(out, "exit codes: see qxnet --help\n");
  return true;
}

int UsageError(const char* name, const char* why) {
  std::fprintf(stderr, "qxnet: %s\n", why);
  if (!PrintCommandHelp(name, stderr)) PrintHelp(stderr);
  return kExitUsage;
}
