// qxnet: command-line client built on the public QXNetSDK interface only.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <condition_variable>
#include <mutex>
#include <vector>
#include <wchar.h>
#include <string>
#include <thread>

#include <tinyxml.h>

#include "QXNetSDK.h"
#include "lan_commands.h"

namespace {
std::atomic<bool> g_stop{false};
std::mutex g_out;
bool g_quietEvents = false;

// What the operations wait for: the latest answer and the events of the session.
struct Waiter {
  std::mutex mu;
  std::condition_variable cv;
  std::vector<std::pair<long, std::string>> events;
  std::vector<std::pair<long, std::string>> answers;
};
Waiter g_wait;

void OnSignal(int) { g_stop = true; }

const char* EventName(long code) {
  switch (code) {
    case QXNET_EV_CONNECT_FAILED: return "connect failed";
    case QXNET_EV_SOCKET_ERROR: return "socket error or closed";
    case QXNET_EV_BAD_CREDENTIALS: return "bad user name or password";
    case QXNET_EV_AUTH_FAILED: return "authentication failed";
    case QXNET_EV_CONNECTED: return "connected";
    case QXNET_EV_AUTHENTICATED: return "authenticated";
    case QXNET_EV_UPGRADE_FINISHED: return "firmware upload finished";
    case QXNET_EV_UPGRADE_FAILED: return "firmware upload failed";
    case QXNET_EV_ALARM: return "alarm";
    case QXNET_EV_MAX_CHANNELS: return "maximum channel count";
    case QXNET_EV_IPC_STATUS: return "recorder camera status";
    case QXNET_EV_DOWNLOAD_ACCEPTED: return "download accepted";
    case QXNET_EV_DOWNLOAD_REFUSED: return "download refused";
    case QXNET_EV_DOWNLOAD_STOPPED: return "download stopped";
    case QXNET_EV_DOWNLOAD_PROGRESS: return "download progress";
    case QXNET_EV_UPGRADE_PROGRESS: return "firmware upload progress";
    case QXNET_EV_MESSAGE: return "device message";
    case QXNET_EV_CFGFILE_GET_PROGRESS: return "configuration download progress";
    case QXNET_EV_CFGFILE_SET_FAILED: return "configuration upload failed";
    case QXNET_EV_CFGFILE_SET_PROGRESS: return "configuration upload progress";
    case QXNET_EV_CFGFILE_SET_FINISHED: return "configuration upload finished";
    default: return "event";
  }
}

// Event texts often end in a line break: print them on one line.
std::string OneLine(const char* text) {
  std::string s = text ? text : "";
  for (char& c : s)
    if (c == '\n' || c == '\r') c = ' ';
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

// Alarm reports reach the application as device messages (event 79) carrying the
// report: print each alarm's fields.
bool PrintAlarmReport(const char* body) {
  if (!body || !std::strstr(body, "ALARM_REPORT_PARAM")) return false;
  std::string wrapped = std::string("<r>") + body + "</r>";
  TiXmlDocument doc;
  doc.Parse(wrapped.c_str());
  TiXmlElement* root = doc.RootElement();
  TiXmlElement* mb = root ? root->FirstChildElement("MESSAGE_BODY") : nullptr;
  TiXmlElement* list = mb ? mb->FirstChildElement("ALARM_REPORT_PARAM") : nullptr;
  if (!list) return false;
  for (TiXmlElement* it = list->FirstChildElement("ALARM_ITEM"); it; it = it->NextSiblingElement("ALARM_ITEM")) {
    TiXmlElement* t = it->FirstChildElement("ALARM_TIME");
    TiXmlElement* i = it->FirstChildElement("ALARM_INFO");
    auto a = [](TiXmlElement* e, const char* n) {
      const char* v = e ? e->Attribute(n) : nullptr;
      return v ? v : "";
    };
    std::printf("[alarm] time=%s-%s-%s %s:%s:%s wday=%s code=%s flag=%s level=%s data=\"%s\"\n", a(t, "Year"),
                a(t, "Month"), a(t, "Day"), a(t, "Hour"), a(t, "Minute"), a(t, "Second"), a(t, "WDay"),
                a(i, "Alarm_code"), a(i, "Alarm_flag"), a(i, "Alarm_level"), a(i, "Alarm_data"));
  }
  return true;
}

long OnStatus(long loginId, long code, char* data, void*) {
  {
    std::lock_guard<std::mutex> lock(g_wait.mu);
    g_wait.events.emplace_back(code, code == QXNET_EV_ALARM || !data ? std::string() : std::string(data));
    g_wait.cv.notify_all();
  }
  if (g_quietEvents) return 0;
  std::lock_guard<std::mutex> lock(g_out);
  if (code == QXNET_EV_ALARM && data) {
    const ALARM_ITEM* a = reinterpret_cast<const ALARM_ITEM*>(data);
    std::printf("[event %ld] alarm: time=%04d-%02d-%02d %02d:%02d:%02d wday=%d code=%d flag=%d level=%d data=\"%s\"\n",
                code, a->nYear, a->nMonth, a->nDay, a->nHour, a->nMinute, a->nSecond, a->nWDay, a->nAlarmCode,
                a->nAlarmFlag, a->nAlarmLevel, a->szAlarmData);
  } else if (!(code == QXNET_EV_MESSAGE && PrintAlarmReport(data))) {
    std::printf("[event %ld] %s: %s\n", code, EventName(code), OneLine(data).c_str());
  }
  std::fflush(stdout);
  (void)loginId;
  return 0;
}

long OnAux(long, long code, char* data, void*) {
  {
    std::lock_guard<std::mutex> lock(g_wait.mu);
    g_wait.answers.emplace_back(code, data ? data : "");
    g_wait.cv.notify_all();
  }
  if (g_quietEvents) return 0;
  std::lock_guard<std::mutex> lock(g_out);
  std::printf("[answer] code=%ld body=%s\n", code, OneLine(data).c_str());
  std::fflush(stdout);
  return 0;
}

void Usage() {
  std::printf(
      "usage:\n"
      "  qxnet version                      print the library version (init/free round trip)\n"
      "  qxnet login HOST PORT USER PASS [--seconds N] [--no-reconnect]\n"
      "                                     log in, print status events and alarms until\n"
      "                                     interrupted (Ctrl-C) or N seconds have passed\n"
      "  qxnet HOST PORT USER PASS OPERATION [--timeout S]   one operation on a device:\n"
      "    config get CMD [BODY]            configuration request CMD, print the answer\n"
      "    config set CMD BODY              configuration write CMD with BODY\n"
      "    reboot | restore                 reboot / restore the factory configuration\n"
      "    ptz XML                          send a PTZ command document\n"
      "    userdata get | userdata set TEXT read / store the application's data on the device\n"
      "    upgrade FILE                     firmware upgrade with a progress bar\n"
      "    config-file save FILE            fetch the configuration file into FILE\n"
      "    config-file load FILE            send FILE as the configuration file\n"
      "    records DAY|MONTH CHANNEL        recorded spans of a day (YYYYMMDD) or a month (YYYYMM)\n"
      "    replay CHANNEL START [--seconds N]  replay from START (YYYYMMDDhhmmss): fps,\n"
      "                                     bitrate and codecs printed each second (10 s)\n"
      "    download CHANNEL START END FILE  a span (YYYYMMDDhhmmss) into an MP4 file, with a\n"
      "                                     progress bar (plain lines when not a terminal)\n");
  LanUsage();
  std::printf(
      "exit codes: 0 done, 1 the device refused or the transfer failed, 2 usage,\n"
      "            3 no connection, login refused, connection dropped or timeout\n");
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Waits for a status event whose code is in `codes`; returns its index or -1 on timeout.
// Connection loss (event 1) or a failed connect ends the wait with -2.
int WaitEvent(const std::vector<long>& codes, size_t from, double timeout, long* code, std::string* text,
              size_t* next) {
  std::unique_lock<std::mutex> lock(g_wait.mu);
  double end = Now() + timeout;
  for (;;) {
    for (size_t i = from; i < g_wait.events.size(); ++i) {
      long c = g_wait.events[i].first;
      for (long want : codes)
        if (c == want) {
          *code = c;
          *text = g_wait.events[i].second;
          *next = i + 1;
          return static_cast<int>(i);
        }
      if (c == QXNET_EV_SOCKET_ERROR || c == QXNET_EV_CONNECT_FAILED) {
        *code = c;
        *text = g_wait.events[i].second;
        *next = i + 1;
        return -2;
      }
    }
    from = g_wait.events.size();
    if (g_stop || Now() >= end) return -1;
    g_wait.cv.wait_for(lock, std::chrono::milliseconds(100));
  }
}

// Waits for an answer whose command (low 24 bits of the code) is `cmd`.
bool WaitAnswer(unsigned long cmd, double timeout, long* code, std::string* body) {
  std::unique_lock<std::mutex> lock(g_wait.mu);
  double end = Now() + timeout;
  size_t seen = 0;
  for (;;) {
    for (; seen < g_wait.answers.size(); ++seen) {
      long c = g_wait.answers[seen].first;
      if ((static_cast<unsigned long>(c) & 0xFFFFFFul) == (cmd & 0xFFFFFFul)) {
        *code = c;
        *body = g_wait.answers[seen].second;
        return true;
      }
    }
    for (auto& e : g_wait.events)
      if (e.first == QXNET_EV_SOCKET_ERROR) return false;
    if (g_stop || Now() >= end) return false;
    g_wait.cv.wait_for(lock, std::chrono::milliseconds(100));
  }
}

// The answer's result flag: the code's top byte, signed.
int AnswerFlag(long code) { return static_cast<int8_t>((static_cast<unsigned long>(code) >> 24) & 0xFF); }

// On a terminal a bar redrawn in place; otherwise (a log, a pipe) plain lines, at most one a
// second and the last one always, with no carriage returns. Rate and time left come from the
// percentage and the start time when the total is known (bytes > 0).
void ProgressBar(const char* what, int pct, double totalBytes = 0) {
  static double started = 0, lastLine = -10;
  static int lastPct = -1;
  double now = Now();
  if (pct <= 0 || started == 0) started = now;
  int w = pct < 0 ? 0 : (pct > 100 ? 100 : pct);
  char extra[96] = "";
  double took = now - started;
  if (w > 0 && took > 0.2) {
    double left = took * (100 - w) / w;
    if (totalBytes > 0)
      std::snprintf(extra, sizeof extra, "  %.1f MB/s  %.0f s left", totalBytes * w / 100 / took / 1e6, left);
    else
      std::snprintf(extra, sizeof extra, "  %.0f s left", left);
  }
  if (!isatty(fileno(stderr))) {
    if (w == lastPct || (w < 100 && now - lastLine < 1.0)) return;
    lastLine = now;
    lastPct = w;
    std::fprintf(stderr, "%s %d%%%s\n", what, w, extra);
    return;
  }
  char bar[41];
  for (int i = 0; i < 40; ++i) bar[i] = i < w * 40 / 100 ? '#' : ' ';
  bar[40] = 0;
  std::fprintf(stderr, "\r%s [%s] %3d%%%s", what, bar, w, extra);
  if (w >= 100) std::fprintf(stderr, "\n");
}

int AttrInt(const std::string& text, const char* name) {
  size_t p = text.find(std::string(name) + "=\"");
  if (p == std::string::npos) return -1;
  return std::atoi(text.c_str() + p + std::strlen(name) + 2);
}

// The device's command numbers this tool sends (the library's public header names the
// operations, not the wire codes it answers with).
enum : unsigned long {
  kCmdReboot = 14008,
  kCmdRestoreConfig = 14011,
  kCmdSetUserData = 14033,
  kCmdGetUserData = 14034,
};

// The arguments of one operation: argv[first] is its name.
struct OpArgs {
  long id;
  int argc;
  char** argv;
  int first;
  double timeout;
  const char* Arg(int k) const { return first + k < argc ? argv[first + k] : nullptr; }
};

// Waits for the answer to a queued request and prints it; the exit code.
int PrintAnswer(const OpArgs& a, unsigned long cmd, long rc) {
  if (rc != 0) {
    std::fprintf(stderr, "qxnet: request refused by the library (result %ld)\n", rc);
    return 1;
  }
  long code = 0;
  std::string body;
  if (!WaitAnswer(cmd, a.timeout, &code, &body)) {
    std::fprintf(stderr, "qxnet: no answer to %lu (connection dropped or timeout)\n", cmd);
    return 3;
  }
  int flag = AnswerFlag(code);
  std::printf("answer %lu flag %d\n%s\n", cmd, flag, body.c_str());
  if (flag < 0) {
    std::fprintf(stderr, "qxnet: the device refused (flag %d)\n", flag);
    return 1;
  }
  return 0;
}

int RunConfig(const OpArgs& a) {
  if (!a.Arg(1) || !a.Arg(2)) return -1;
  unsigned long cmd = std::strtoul(a.Arg(2), nullptr, 10);
  std::string sub = a.Arg(1);
  char* text = const_cast<char*>(a.Arg(3) ? a.Arg(3) : "");
  if (sub == "get") return PrintAnswer(a, cmd, QXNet_Loc_GetDVRConfig(a.id, cmd, 0, text, 0, nullptr));
  if (sub == "set" && a.Arg(3)) return PrintAnswer(a, cmd, QXNet_Loc_SetDVRConfig(a.id, cmd, 0, text, 0));
  return -1;
}

int RunPtz(const OpArgs& a) {
  if (!a.Arg(1)) return -1;
  // PTZ commands have no export of their own: the document goes out as a
  // PTZ_CONTROL_MESSAGE request; devices do not answer it.
  long rc = QXNet_Loc_WriteAUXStringEx(a.id, const_cast<char*>("PTZ_CONTROL_MESSAGE"), 0, 0,
                                       const_cast<char*>(a.Arg(1)));
  if (rc != 0) return 1;
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  std::printf("ptz command queued\n");
  return 0;
}

int RunUserData(const OpArgs& a) {
  if (!a.Arg(1)) return -1;
  std::string sub = a.Arg(1);
  if (sub == "get") return PrintAnswer(a, kCmdGetUserData, QXNet_Loc_GetUserData(a.id, nullptr, nullptr));
  if (sub != "set" || !a.Arg(2)) return -1;
  std::vector<char> data(a.Arg(2), a.Arg(2) + std::strlen(a.Arg(2)) + 1);
  return PrintAnswer(a, kCmdSetUserData,
                     QXNet_Loc_SetUserData(a.id, data.data(), static_cast<int>(data.size() - 1)));
}

// A file transfer being followed: what it is called and the events that tell its course.
struct Transfer {
  const char* what;
  const char* file;
  std::vector<long> codes;
};

// Starts the transfer named by the arguments; the library's result, or 1 for usage.
long StartTransfer(const OpArgs& a, Transfer* t) {
  bool firmware = std::string(a.Arg(0)) == "upgrade";
  t->file = firmware ? a.Arg(1) : a.Arg(2);
  if (firmware) {
    t->what = "upgrade";
    t->codes = {QXNET_EV_UPGRADE_PROGRESS, QXNET_EV_UPGRADE_FINISHED, QXNET_EV_UPGRADE_FAILED,
                QXNET_EV_CFGFILE_SET_FAILED};
    return QXNet_Loc_Upgrade(a.id, t->file);
  }
  std::string sub = a.Arg(1);
  if (sub == "save") {
    t->what = "config-file save";
    t->codes = {QXNET_EV_CFGFILE_GET_PROGRESS};
    return QXNet_Loc_GetConfigFile(a.id, t->file);
  }
  if (sub == "load") {
    t->what = "config-file load";
    t->codes = {QXNET_EV_CFGFILE_SET_PROGRESS, QXNET_EV_CFGFILE_SET_FINISHED, QXNET_EV_CFGFILE_SET_FAILED};
    return QXNet_Loc_SetConfigFile(a.id, t->file);
  }
  return 1;
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
    std::printf("%s finished\n", t.what);
    return 0;
  }
  if (code == QXNET_EV_CFGFILE_GET_PROGRESS) {
    size_t p = text.find("<downProgress>");
    int pct = p == std::string::npos ? -9 : std::atoi(text.c_str() + p + 14);
    if (pct == 100) {
      ProgressBar(t.what, 100);
      std::printf("%s finished: %s\n", t.what, t.file);
      return 0;
    }
    if (pct < 0) {
      std::fprintf(stderr, "\nqxnet: %s failed (%s)\n", t.what, OneLine(text.c_str()).c_str());
      return 1;
    }
    ProgressBar(t.what, pct);
    return -1;
  }
  std::fprintf(stderr, "\nqxnet: %s failed: %s\n", t.what, OneLine(text.c_str()).c_str());
  return 1;
}

int RunTransfer(const OpArgs& a) {
  bool firmware = std::string(a.Arg(0)) == "upgrade";
  if (!a.Arg(1) || (!firmware && !a.Arg(2))) return -1;
  Transfer t;
  long rc = StartTransfer(a, &t);
  if (rc == 1 && !firmware) return -1;
  if (rc != 0) {
    std::fprintf(stderr, "qxnet: %s refused (result %ld%s)\n", t.what, rc,
                 rc == QXNET_E_FILE ? ": file missing or unreadable" : rc == QXNET_E_BUSY ? ": a transfer is running" : "");
    return 1;
  }
  ProgressBar(t.what, 0);
  size_t from = 0;
  for (;;) {
    long code = 0;
    std::string text;
    int r = WaitEvent(t.codes, from, a.timeout, &code, &text, &from);
    if (r == -1) {
      std::fprintf(stderr, "\nqxnet: %s timed out\n", t.what);
      return 3;
    }
    if (r == -2) {
      std::fprintf(stderr, "\nqxnet: %s: connection lost (%s)\n", t.what, OneLine(text.c_str()).c_str());
      return 3;
    }
    int done = OnTransferEvent(t, code, text);
    if (done >= 0) return done;
  }
}

// The text of <name>..</name> in a record list, "" when absent.
std::string TagText(const std::string& text, const char* name) {
  std::string open = std::string("<") + name + ">", close = std::string("</") + name + ">";
  size_t a = text.find(open);
  size_t b = a == std::string::npos ? a : text.find(close, a);
  return b == std::string::npos ? "" : text.substr(a + open.size(), b - a - open.size());
}

// One day's record list of a channel: its spans text ("hhmmss-hhmmss,..."), or false.
bool SearchDay(const OpArgs& a, long ch, const std::string& day, std::string* spans) {
  std::string t = day + "000000";
  long rc = QXNet_Loc_SearchNVRRecByTime(a.id, ch, &t[0]);
  if (rc != 0) {
    std::fprintf(stderr, "qxnet: record search refused by the library (result %ld)\n", rc);
    return false;
  }
  long code = 0;
  std::string body;
  if (!WaitAnswer(14300, a.timeout, &code, &body) || AnswerFlag(code) < 0) {
    std::fprintf(stderr, "qxnet: no record list for %s\n", day.c_str());
    return false;
  }
  {
    std::lock_guard<std::mutex> lock(g_wait.mu);
    g_wait.answers.clear();  // the next day's search waits for its own answer
  }
  *spans = TagText(body, "Stream");
  return true;
}

// records DAY|MONTH CHANNEL: a table of a day's spans, or of a month's recorded days (one
// day search per day: the month search has no export).
int RunRecords(const OpArgs& a) {
  if (!a.Arg(1) || !a.Arg(2)) return -1;
  std::string when = a.Arg(1);
  long ch = std::atol(a.Arg(2));
  if (when.size() != 8 && when.size() != 6) return -1;
  std::vector<std::string> days;
  if (when.size() == 8) days.push_back(when);
  for (int d = 1; when.size() == 6 && d <= 31; ++d) days.push_back(when + (d < 10 ? "0" : "") + std::to_string(d));
  std::printf("%-10s %-8s %-8s %s\n", "day", "start", "end", "length");
  for (const std::string& day : days) {
    std::string spans;
    if (!SearchDay(a, ch, day, &spans)) return 1;
    for (size_t p = 0; p + 13 <= spans.size(); p += 14) {
      std::string s = spans.substr(p, 6), e = spans.substr(p + 7, 6);
      auto secs = [](const std::string& x) { return std::atoi(x.substr(0, 2).c_str()) * 3600 +
                                                    std::atoi(x.substr(2, 2).c_str()) * 60 + std::atoi(x.substr(4, 2).c_str()); };
      int len = secs(e) - secs(s);
      std::printf("%-10s %s:%s:%s %s:%s:%s %dh%02dm%02ds\n", day.c_str(), s.substr(0, 2).c_str(), s.substr(2, 2).c_str(),
                  s.substr(4, 2).c_str(), e.substr(0, 2).c_str(), e.substr(2, 2).c_str(), e.substr(4, 2).c_str(),
                  len / 3600, len / 60 % 60, len % 60);
    }
  }
  return 0;
}

// download CHANNEL START END FILE: the span into an MP4 file, with a progress bar.
int RunDownload(const OpArgs& a) {
  if (!a.Arg(4)) return -1;
  std::string start = a.Arg(2), end = a.Arg(3);
  long rc = QXNet_Loc_NVRRecordDownload(a.id, std::atol(a.Arg(1)), &start[0], &end[0], a.argv[a.first + 4]);
  if (rc != 0) {
    std::fprintf(stderr, "qxnet: download refused by the library (result %ld)\n", rc);
    return 1;
  }
  size_t from = 0;
  ProgressBar("download", 0);
  for (;;) {
    long code = 0;
    std::string text;
    int r = WaitEvent({QXNET_EV_DOWNLOAD_ACCEPTED, QXNET_EV_DOWNLOAD_REFUSED, QXNET_EV_DOWNLOAD_STOPPED,
                       QXNET_EV_DOWNLOAD_PROGRESS}, from, a.timeout, &code, &text, &from);
    if (r < 0) {
      std::fprintf(stderr, "\nqxnet: download %s\n", r == -1 ? "timed out" : "lost its connection");
      return 3;
    }
    if (code == QXNET_EV_DOWNLOAD_REFUSED) {
      std::fprintf(stderr, "\nqxnet: the recorder refused the download\n");
      return 1;
    }
    if (code == QXNET_EV_DOWNLOAD_STOPPED) {
      std::printf("download stopped: %s\n", a.Arg(4));
      return 0;
    }
    if (code != QXNET_EV_DOWNLOAD_PROGRESS) continue;
    int pct = AttrInt(text, "DownloadPos");
    ProgressBar("download", pct);
    if (pct >= 100) {
      std::printf("download finished: %s\n", a.Arg(4));
      return 0;
    }
  }
}

// Replayed frames, counted by the replay data callback (the session's worker thread).
struct ReplayCount {
  std::atomic<long> video{0}, audio{0}, bytes{0};
  std::atomic<int> videoType{-1}, audioType{-1};
} g_replay;

long OnReplayData(long, unsigned long type, unsigned char*, unsigned long length, FRAME_EXTDATA* ext) {
  if (type == QXNET_REPLAY_PARAM_AV || type == QXNET_REPLAY_PARAM_VIDEO || type == QXNET_REPLAY_PARAM_AUDIO)
    return 0;
  bool video = type == 0 || type == 2;  // stream types 0 and 2 are video
  (video ? g_replay.video : g_replay.audio)++;
  g_replay.bytes += static_cast<long>(length);
  if (ext) (video ? g_replay.videoType : g_replay.audioType) = static_cast<int>(ext->payload_type);
  return 0;
}

const char* CodecName(int payloadType, bool video) {
  if (payloadType < 0) return "-";
  if (video) return payloadType == 96 ? "H.264" : payloadType == 201 ? "H.265" : "video?";
  return payloadType == 0 ? "G.711u" : payloadType == 8 ? "G.711a" : payloadType == 97 ? "AAC" : "audio?";
}

// replay CHANNEL START [--seconds N]: frames per second, bitrate and codecs, once a second.
int RunReplay(const OpArgs& a) {
  if (!a.Arg(2)) return -1;
  double seconds = 10;
  if (a.Arg(3) && !std::strcmp(a.Arg(3), "--seconds") && a.Arg(4)) seconds = std::atof(a.Arg(4));
  static int user = 0;
  QXNet_Loc_SetReplayDataCallBack(OnReplayData, &user);
  std::string start = a.Arg(2);
  long ch = std::atol(a.Arg(1));
  long rc = QXNet_Loc_NVRReplayByTime(a.id, ch, &start[0]);
  if (rc != 0) {
    std::fprintf(stderr, "qxnet: replay refused by the library (result %ld)\n", rc);
    return 1;
  }
  double t0 = Now();
  long lastV = 0, lastB = 0;
  while (!g_stop && Now() - t0 < seconds) {
    std::this_thread::sleep_for(std::chrono::seconds(1));
    long v = g_replay.video, b = g_replay.bytes;
    std::printf("%5.0f s  %3ld fps  %7.1f kbit/s  video %s  audio %s\n", Now() - t0, v - lastV,
                (b - lastB) * 8 / 1000.0, CodecName(g_replay.videoType, true), CodecName(g_replay.audioType, false));
    std::fflush(stdout);
    lastV = v;
    lastB = b;
  }
  QXNet_Loc_ControlNVRReplay(a.id, ch, 3, 0, nullptr);
  QXNet_Loc_SetReplayDataCallBack(nullptr, &user);
  std::printf("replay: %ld video frames, %ld audio frames\n", g_replay.video.load(), g_replay.audio.load());
  return g_replay.video > 0 ? 0 : 1;
}

// Runs the operation named by argv[first]; the exit code.
int RunOperation(long id, int argc, char** argv, int first, double timeout) {
  OpArgs a{id, argc, argv, first, timeout};
  std::string op = argv[first];
  int rc = -1;
  if (op == "config")
    rc = RunConfig(a);
  else if (op == "reboot")
    rc = PrintAnswer(a, kCmdReboot, QXNet_Loc_RebootDVR(id));
  else if (op == "restore")
    rc = PrintAnswer(a, kCmdRestoreConfig, QXNet_Loc_RestoreConfig(id));
  else if (op == "ptz")
    rc = RunPtz(a);
  else if (op == "userdata")
    rc = RunUserData(a);
  else if (op == "upgrade" || op == "config-file")
    rc = RunTransfer(a);
  else if (op == "records")
    rc = RunRecords(a);
  else if (op == "download")
    rc = RunDownload(a);
  else if (op == "replay")
    rc = RunReplay(a);
  if (rc >= 0) return rc;
  Usage();
  return 2;
}

int CmdOperation(int argc, char** argv) {
  double timeout = 30;
  int end = argc;
  for (int i = 5; i + 1 < argc; ++i)
    if (!std::strcmp(argv[i], "--timeout")) {
      timeout = std::atof(argv[i + 1]);
      end = i;
      break;
    }
  if (end < 6) {
    Usage();
    return 2;
  }
  g_quietEvents = true;
  QXNet_init();
  static int user = 0;
  QXNet_SetStatusEventCallBack(OnStatus, &user);
  QXNet_SetAuxResponseCallBack(OnAux, &user);
  long id = QXNet_Loc_LoginDev(argv[1], std::strtoul(argv[2], nullptr, 10), argv[3], argv[4], nullptr);
  int rc;
  if (id <= 0) {
    std::fprintf(stderr, "qxnet: login refused (result %ld)\n", id);
    rc = 3;
  } else {
    long code = 0;
    std::string text;
    size_t next = 0;
    int r = WaitEvent({QXNET_EV_AUTHENTICATED, QXNET_EV_BAD_CREDENTIALS, QXNET_EV_AUTH_FAILED}, 0, 40, &code,
                      &text, &next);
    if (r < 0 || code != QXNET_EV_AUTHENTICATED) {
      std::fprintf(stderr, "qxnet: not logged in (%s)\n", r == -1 ? "timeout" : OneLine(text.c_str()).c_str());
      rc = 3;
    } else {
      rc = RunOperation(id, end, argv, 5, timeout);
    }
    QXNet_LogOutDev(id);
  }
  QXNet_Free();
  return rc;
}

int CmdVersion() {
  QXNet_init();
  std::printf("QXNetSDK %s\n", QXNet_GetSdkVersion());
  QXNet_Free();
  return 0;
}

int CmdLogin(int argc, char** argv) {
  if (argc < 6) {
    Usage();
    return 2;
  }
  double seconds = -1;
  bool reconnect = true;
  for (int i = 6; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc)
      seconds = std::atof(argv[++i]);
    else if (!std::strcmp(argv[i], "--no-reconnect"))
      reconnect = false;
    else {
      Usage();
      return 2;
    }
  }
  QXNet_init();
  QXNet_SetAutoReconnect(reconnect ? 1 : 0);
  static int user = 0;
  QXNet_SetStatusEventCallBack(OnStatus, &user);
  QXNet_SetAuxResponseCallBack(OnAux, &user);
  long id = QXNet_Loc_LoginDev(argv[2], std::strtoul(argv[3], nullptr, 10), argv[4], argv[5], nullptr);
  if (id <= 0) {
    std::fprintf(stderr, "qxnet: login refused (result %ld)\n", id);
    QXNet_Free();
    return 1;
  }
  auto start = std::chrono::steady_clock::now();
  while (!g_stop) {
    if (seconds >= 0 &&
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() >= seconds)
      break;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  QXNet_LogOutDev(id);
  QXNet_Free();
  return 0;
}
}  // namespace

int main(int argc, char** argv) {
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  if (argc < 2) {
    Usage();
    return 2;
  }
  std::string cmd = argv[1];
  if (cmd == "version") return CmdVersion();
  if (cmd == "login") return CmdLogin(argc, argv);
  int lan = RunLanCommand(argc, argv);
  if (lan >= 0) return lan;
  if (argc >= 6) return CmdOperation(argc, argv);
  Usage();
  return 2;
}
