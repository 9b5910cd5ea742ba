// records, download and replay: a recorder's recordings.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "cli_args.h"
#include "device_ops.h"
#include "exit_codes.h"
#include "json_out.h"
#include "progress.h"
#include "session_wait.h"

namespace {

const unsigned long kCmdRecordSearch = 14300;

// The text of <name>..</name> in a record list, "" when absent.
std::string TagText(const std::string& text, const char* name) {
  std::string open = std::string("<") + name + ">", close = std::string("</") + name + ">";
  size_t a = text.find(open);
  size_t b = a == std::string::npos ? a : text.find(close, a);
  return b == std::string::npos ? "" : text.substr(a + open.size(), b - a - open.size());
}

// One day's record list of a channel: its spans text ("hhmmss-hhmmss,..."); -1, or the exit code.
int SearchDay(const OpArgs& a, long ch, const std::string& day, std::string* spans) {
  std::string t = day + "000000";
  long rc = QXNet_Loc_SearchNVRRecByTime(a.id, ch, &t[0]);
  if (rc != 0) return LibraryRefused("record search", rc);
  long code = 0;
  std::string body;
  AnswerWait w = WaitAnswer(kCmdRecordSearch, a.timeout, &code, &body);
  if (w != AnswerWait::kAnswered || AnswerFlag(code) < 0) {
    std::fprintf(stderr, "qxnet: no record list for %s\n", day.c_str());
    return w == AnswerWait::kTimedOut ? kExitTimeout : w == AnswerWait::kDropped ? kExitConnection : kExitRefused;
  }
  ClearAnswers();  // the next day's search waits for its own answer
  *spans = TagText(body, "Stream");
  return -1;
}

int Seconds(const std::string& hhmmss) {
  return std::atoi(hhmmss.substr(0, 2).c_str()) * 3600 + std::atoi(hhmmss.substr(2, 2).c_str()) * 60 +
         std::atoi(hhmmss.substr(4, 2).c_str());
}

std::string Clock(const std::string& hhmmss) {
  return hhmmss.substr(0, 2) + ":" + hhmmss.substr(2, 2) + ":" + hhmmss.substr(4, 2);
}

// The spans of one day: table rows, or JSON objects appended to `json`.
void AddSpans(const std::string& day, const std::string& spans, std::vector<std::string>* json) {
  for (size_t p = 0; p + 13 <= spans.size(); p += 14) {
    std::string s = spans.substr(p, 6), e = spans.substr(p + 7, 6);
    int len = Seconds(e) - Seconds(s);
    if (json)
      json->push_back(JsonObject().Str("day", day).Str("start", Clock(s)).Str("end", Clock(e)).Int("seconds", len)
                          .Text());
    else
      std::printf("%-10s %s %s %dh%02dm%02ds\n", day.c_str(), Clock(s).c_str(), Clock(e).c_str(), len / 3600,
                  len / 60 % 60, len % 60);
  }
}

}  // namespace

const char* CheckRecorderOp(const OpArgs& a) {
  long ch = 0;
  double seconds = 0;
  bool records = !std::strcmp(a.Arg(0), "records");  // records DAY CHANNEL; the others CHANNEL first
  if (!ParseLong(a.Arg(records ? 2 : 1), &ch) || ch < 0) return "CHANNEL must be a channel number";
  if (records) {
    if (!IsDigits(a.Arg(1), 8) && !IsDigits(a.Arg(1), 6)) return "records: DAY must be YYYYMMDD, MONTH YYYYMM";
    return a.Count() == 3 ? nullptr : "records: too many arguments";
  }
  if (!IsDigits(a.Arg(2), 14)) return "START must be YYYYMMDDhhmmss";
  if (!std::strcmp(a.Arg(0), "download")) {
    if (!IsDigits(a.Arg(3), 14)) return "END must be YYYYMMDDhhmmss";
    return a.Count() == 5 ? nullptr : "download: needs CHANNEL START END FILE";
  }
  if (a.Count() == 3) return nullptr;
  if (a.Count() == 5 && !std::strcmp(a.Arg(3), "--seconds") && ParseSeconds(a.Arg(4), &seconds)) return nullptr;
  return "replay: bad options";
}

// records DAY|MONTH CHANNEL: a table of a day's spans, or of a month's recorded days (one
// day search per day: the month search has no export).
int RunRecords(const OpArgs& a) {
  std::string when = a.Arg(1);
  long ch = std::atol(a.Arg(2));
  std::vector<std::string> days;
  if (when.size() == 8) days.push_back(when);
  for (int d = 1; when.size() == 6 && d <= 31; ++d) days.push_back(when + (d < 10 ? "0" : "") + std::to_string(d));
  std::vector<std::string> json;
  if (!JsonOutput()) std::printf("%-10s %-8s %-8s %s\n", "day", "start", "end", "length");
  for (const std::string& day : days) {
    std::string spans;
    int rc = SearchDay(a, ch, day, &spans);
    if (rc >= 0) return rc;
    AddSpans(day, spans, JsonOutput() ? &json : nullptr);
  }
  if (JsonOutput()) std::printf("%s\n", JsonObject().Int("channel", ch).Raw("records", JsonArray(json)).Text().c_str());
  return kExitOk;
}

// The outcome of one download event: -1 to go on, else the exit code.
int OnDownloadEvent(const OpArgs& a, long code, const std::string& text) {
  if (code == QXNET_EV_DOWNLOAD_REFUSED) {
    std::fprintf(stderr, "\nqxnet: the recorder refused the download\n");
    return kExitRefused;
  }
  if (code == QXNET_EV_DOWNLOAD_STOPPED) {
    PrintOutcome("download", "stopped", a.Arg(4), true);
    return kExitOk;
  }
  if (code != QXNET_EV_DOWNLOAD_PROGRESS) return -1;
  size_t p = text.find("DownloadPos=\"");
  int pct = p == std::string::npos ? -1 : std::atoi(text.c_str() + p + 13);
  ProgressBar("download", pct);
  if (pct < 100) return -1;
  PrintOutcome("download", "finished", a.Arg(4), true);
  return kExitOk;
}

// download CHANNEL START END FILE: the span into an MP4 file, with a progress bar.
int RunDownload(const OpArgs& a) {
  if (!CanCreate(a.Arg(4))) {
    std::fprintf(stderr, "qxnet: cannot write %s\n", a.Arg(4));
    return kExitFile;
  }
  std::string start = a.Arg(2), end = a.Arg(3);
  long rc = QXNet_Loc_NVRRecordDownload(a.id, std::atol(a.Arg(1)), &start[0], &end[0], a.argv[a.first + 4]);
  if (rc != 0) return LibraryRefused("download", rc);
  size_t from = 0;
  ProgressBar("download", 0);
  for (;;) {
    long code = 0;
    std::string text;
    int r = WaitEvent({QXNET_EV_DOWNLOAD_ACCEPTED, QXNET_EV_DOWNLOAD_REFUSED, QXNET_EV_DOWNLOAD_STOPPED,
                       QXNET_EV_DOWNLOAD_PROGRESS}, from, a.timeout, &code, &text, &from);
    if (r < 0) {
      std::fprintf(stderr, "\nqxnet: download %s\n", r == -1 ? "timed out" : "lost its connection");
      return r == -1 ? kExitTimeout : kExitConnection;
    }
    int done = OnDownloadEvent(a, code, text);
    if (done >= 0) return done;
  }
}
