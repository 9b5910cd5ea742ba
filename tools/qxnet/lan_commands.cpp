// qxnet discover | set-ip | restore | free-ip | netinfo, on the public API only.
#include "lan_commands.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "QXNetSDK.h"
#include "cli_args.h"
#include "cli_help.h"
#include "exit_codes.h"
#include "json_out.h"

namespace {

volatile sig_atomic_t g_lanStop = 0;
void OnLanSignal(int) { g_lanStop = 1; }

struct SearchState {
  std::mutex mu;
  std::condition_variable cv;
  long changes = 0;                          // callbacks seen
  std::vector<std::pair<long, long>> events;  // (code, slot)
  std::vector<int> results;                   // last result of codes 3 and 4, in order
};
SearchState g_search;
bool g_plain = false;  // discover on a pipe: one line per found or changed device

std::string Field(const char* f, size_t n) { return std::string(f, strnlen(f, n)); }
#define FIELD(x) Field(x, sizeof(x))

std::string Row(long slot, const __NetSDK_IPC_ENTRYV2& e) {
  char line[512];
  snprintf(line, sizeof line, "%4ld  %-31s %-15s %-15s %-15s %-17s %-10s %s", slot, FIELD(e.szUID).c_str(),
           FIELD(e.lanCfg.szIP).c_str(), FIELD(e.lanCfg.szNetmask).c_str(), FIELD(e.lanCfg.szGateway).c_str(),
           FIELD(e.lanCfg.szMAC).c_str(), FIELD(e.szHardwareType).c_str(), FIELD(e.szFirmwareVersion).c_str());
  return line;
}

// One device of the table as a JSON object; `event` is "found" or "changed".
std::string RowJson(const char* event, long slot, const __NetSDK_IPC_ENTRYV2& e) {
  return JsonObject()
      .Str("event", event)
      .Int("slot", slot)
      .Str("uid", FIELD(e.szUID))
      .Str("ip", FIELD(e.lanCfg.szIP))
      .Str("netmask", FIELD(e.lanCfg.szNetmask))
      .Str("gateway", FIELD(e.lanCfg.szGateway))
      .Str("mac", FIELD(e.lanCfg.szMAC))
      .Str("type", FIELD(e.szHardwareType))
      .Str("firmware", FIELD(e.szFirmwareVersion))
      .Text();
}

const char* kHeader = "slot  UID                             IP              netmask         gateway         "
                      "MAC               type       firmware";

long OnSearch(long code, long index, __NetSDK_IPC_ENTRYV2* entry, void*) {
  if (g_plain && entry && (code == 1 || code == 2)) {
    if (JsonOutput())
      std::printf("%s\n", RowJson(code == 1 ? "found" : "changed", index, *entry).c_str());
    else
      std::printf("%s %s\n", code == 1 ? "found  " : "changed", Row(index, *entry).c_str());
    std::fflush(stdout);
  }
  std::lock_guard<std::mutex> g(g_search.mu);
  g_search.changes++;
  g_search.events.emplace_back(code, index);
  if ((code == 3 || code == 4) && entry) g_search.results.push_back(entry->lanCfg.nLastResult);
  g_search.cv.notify_all();
  return 0;
}

// The whole table, redrawn in place (a terminal).
void DrawTable(double left) {
  std::string out = "\033[H\033[2J";
  long n = QXNet_GetSearchIPCCount();
  char head[128];
  snprintf(head, sizeof head, "%ld device(s) found, %.0f s left (Ctrl-C to stop)\n\n", n < 0 ? 0 : n, left);
  out += head + std::string(kHeader) + "\n";
  __NetSDK_IPC_ENTRYV2 e;
  for (long i = 0; i < n; ++i)
    if (QXNet_Loc_GetIPCInfo(i, &e) == 0) out += Row(i, e) + "\n";
  fputs(out.c_str(), stdout);
  std::fflush(stdout);
}

// Only "--seconds N" may follow the command word.
bool SecondsOption(int argc, char** argv, int from, double& seconds) {
  for (int i = from; i < argc; i += 2)
    if (std::strcmp(argv[i], "--seconds") != 0 || i + 1 >= argc || !ParseSeconds(argv[i + 1], &seconds)) return false;
  return true;
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Starts the library and the search; false after printing why.
bool StartSearch() {
  if (QXNet_init() != 0) return std::fprintf(stderr, "qxnet: library init failed\n"), false;
  QXNet_Loc_SetSearchStatusCallBack(&OnSearch, nullptr);
  long rc = QXNet_StartSearchDev();
  if (rc != 0) {
    std::fprintf(stderr, "qxnet: the search could not start (%ld)\n", rc);
    QXNet_Free();
    return false;
  }
  return true;
}

int CmdDiscover(int argc, char** argv) {
  double seconds = 10;
  if (!SecondsOption(argc, argv, 2, seconds)) return UsageError("discover", "bad option");
  g_plain = JsonOutput() || !isatty(STDOUT_FILENO);
  signal(SIGINT, OnLanSignal);
  signal(SIGTERM, OnLanSignal);
  if (!StartSearch()) return kExitRefused;
  double end = Now() + seconds;
  long drawn = -1;
  while (!g_lanStop && Now() < end) {
    std::unique_lock<std::mutex> l(g_search.mu);
    g_search.cv.wait_for(l, std::chrono::milliseconds(100));
    long changes = g_search.changes;
    l.unlock();
    if (!g_plain && changes != drawn) DrawTable(end - Now()), drawn = changes;
  }
  long n = QXNet_GetSearchIPCCount();
  if (!g_plain) DrawTable(0);
  if (JsonOutput())
    std::printf("%s\n", JsonObject().Str("event", "end").Int("devices", n < 0 ? 0 : n).Text().c_str());
  else
    std::printf("%ld device(s) found\n", n < 0 ? 0 : n);
  QXNet_StopSearchDev();
  QXNet_Free();
  return kExitOk;
}

// The slot of UID once a search has found it within `seconds`; -1 otherwise.
long FindSlot(const std::string& uid, double seconds) {
  double end = Now() + seconds;
  __NetSDK_IPC_ENTRYV2 e;
  while (!g_lanStop && Now() < end) {
    long n = QXNet_GetSearchIPCCount();
    for (long i = 0; i < n; ++i)
      if (QXNet_Loc_GetIPCInfo(i, &e) == 0 && FIELD(e.szUID) == uid) return i;
    std::unique_lock<std::mutex> l(g_search.mu);
    g_search.cv.wait_for(l, std::chrono::milliseconds(100));
  }
  return -1;
}

// Waits for the device's answer (code 3 or 4) to the request just sent: 0 accepted,
// 1 refused, 5 no answer.
int AwaitVerdict(const char* uid, long code, size_t before, double seconds) {
  std::unique_lock<std::mutex> l(g_search.mu);
  bool got = g_search.cv.wait_for(l, std::chrono::duration<double>(seconds), [&] {
    for (size_t i = before; i < g_search.events.size(); ++i)
      if (g_search.events[i].first == code) return true;
    return false;
  });
  if (!got) return std::fprintf(stderr, "qxnet: no answer from the device\n"), kExitTimeout;
  int result = g_search.results.back();
  if (JsonOutput())
    std::printf("%s\n", JsonObject().Str("uid", uid).Int("result", result).Bool("done", result == 0).Text().c_str());
  else
    std::printf("device answered result %d: %s\n", result, result == 0 ? "done" : "refused");
  return result == 0 ? kExitOk : kExitRefused;
}

// Options after the positional words: --seconds, --token, --user, --pass.
bool ChangeOptions(int argc, char** argv, int from, double& seconds, __NetSDK_IPC_ENTRYV2& e) {
  for (int i = from; i + 1 < argc; i += 2) {
    std::string k = argv[i];
    const char* v = argv[i + 1];
    if (k == "--seconds") {
      if (!ParseSeconds(v, &seconds)) return false;
    } else if (k == "--token") snprintf(e.lanCfg.szToken, sizeof e.lanCfg.szToken, "%s", v);
    else if (k == "--user") snprintf(e.lanCfg.szUserName, sizeof e.lanCfg.szUserName, "%s", v);
    else if (k == "--pass") snprintf(e.lanCfg.szPassword, sizeof e.lanCfg.szPassword, "%s", v);
    else return false;
  }
  return (argc - from) % 2 == 0;
}

// set-ip UID IP MASK GATEWAY and restore UID: find the device, send, wait for its verdict.
int CmdChange(int argc, char** argv, bool modify) {
  int fixed = modify ? 6 : 3;
  const char* name = modify ? "set-ip" : "restore";
  if (argc < fixed) return UsageError(name, "missing arguments");
  double seconds = 10;
  __NetSDK_IPC_ENTRYV2 opts;
  memset(&opts, 0, sizeof opts);
  if (!ChangeOptions(argc, argv, fixed, seconds, opts)) return UsageError(name, "bad option");
  if (!StartSearch()) return kExitRefused;
  long slot = FindSlot(argv[2], seconds);
  int rc = kExitConnection;
  __NetSDK_IPC_ENTRYV2 e;
  if (slot < 0) {
    std::fprintf(JsonOutput() ? stderr : stdout, "device %s not found within %.0f s\n", argv[2], seconds);
  } else if (QXNet_Loc_GetIPCInfo(slot, &e) == 0) {
    memcpy(e.lanCfg.szToken, opts.lanCfg.szToken, sizeof e.lanCfg.szToken);
    memcpy(e.lanCfg.szUserName, opts.lanCfg.szUserName, sizeof e.lanCfg.szUserName);
    memcpy(e.lanCfg.szPassword, opts.lanCfg.szPassword, sizeof e.lanCfg.szPassword);
    if (modify) {
      snprintf(e.lanCfg.szIP, sizeof e.lanCfg.szIP, "%s", argv[3]);
      snprintf(e.lanCfg.szNetmask, sizeof e.lanCfg.szNetmask, "%s", argv[4]);
      snprintf(e.lanCfg.szGateway, sizeof e.lanCfg.szGateway, "%s", argv[5]);
    }
    size_t before;
    {
      std::lock_guard<std::mutex> g(g_search.mu);
      before = g_search.events.size();
    }
    long sent = modify ? QXNet_Loc_ModifyIPC(slot, &e) : QXNet_Loc_RestoreIPC(slot, &e);
    rc = sent != 0 ? (std::fprintf(stderr, "qxnet: request failed (%ld)\n", sent), kExitRefused)
                   : AwaitVerdict(argv[2], modify ? 3 : 4, before, 5);
  }
  QXNet_StopSearchDev();
  QXNet_Free();
  return rc;
}

// free-ip [--seconds N]: a short search first, so that found devices' addresses are skipped.
int CmdFreeIp(int argc, char** argv) {
  double seconds = 3;
  if (!SecondsOption(argc, argv, 2, seconds)) return UsageError("free-ip", "bad option");
  if (QXNet_init() != 0) return std::fprintf(stderr, "qxnet: library init failed\n"), kExitRefused;
  long started = QXNet_StartSearchDev();
  if (started != 0) std::fprintf(stderr, "qxnet: no search (%ld): found devices are not skipped\n", started);
  double end = Now() + (started == 0 ? seconds : 0);
  while (!g_lanStop && Now() < end) usleep(100000);
  char buf[64] = {0};
  long n = QXNet_Loc_GetOneIPAddress(buf, sizeof buf);
  QXNet_StopSearchDev();
  QXNet_Free();
  if (n < 0) return std::fprintf(stderr, "qxnet: no address (%ld)\n", n), kExitRefused;
  std::printf("%s\n", JsonOutput() ? JsonObject().Str("address", Field(buf, sizeof buf)).Text().c_str() : buf);
  return kExitOk;
}

int CmdNetinfo() {
  if (QXNet_init() != 0) return std::fprintf(stderr, "qxnet: library init failed\n"), kExitRefused;
  static const char* names[] = {"address", "netmask", "gateway", "dns1", "dns2"};
  int rc = kExitOk;
  JsonObject json;
  for (long i = 0; i < 5; ++i) {
    char buf[64] = {0};
    long n = QXNet_Loc_GetNetworkParam(i, buf, sizeof buf);
    if (n < 0) rc = kExitRefused;
    if (JsonOutput())
      n < 0 ? json.Null(names[i]) : json.Str(names[i], Field(buf, sizeof buf));
    else
      std::printf("%-8s %s\n", names[i], n < 0 ? "(unavailable)" : buf);
  }
  if (JsonOutput()) std::printf("%s\n", json.Text().c_str());
  QXNet_Free();
  return rc;
}

}  // namespace

int RunLanCommand(int argc, char** argv) {
  std::string cmd = argc > 1 ? argv[1] : "";
  if (cmd == "discover") return CmdDiscover(argc, argv);
  if (cmd == "set-ip") return CmdChange(argc, argv, true);
  if (cmd == "restore") return CmdChange(argc, argv, false);
  if (cmd == "free-ip") return CmdFreeIp(argc, argv);
  if (cmd == "netinfo") return argc == 2 ? CmdNetinfo() : UsageError("netinfo", "netinfo takes no arguments");
  return -1;
}
