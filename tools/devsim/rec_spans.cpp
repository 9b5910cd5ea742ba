// Recording spans of a simulated recorder and the record lists of the searches.
#include "rec_spans.h"

#include <cstdio>
#include <cstdlib>

namespace devsim {

namespace {

bool digitsAt(const std::string& s, size_t at, size_t n, int& out) {
  if (s.size() < at + n) return false;
  out = 0;
  for (size_t i = at; i < at + n; ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
    out = out * 10 + (s[i] - '0');
  }
  return true;
}

bool parseHhmmss(const std::string& s, uint32_t& ms) {
  int h, m, sec;
  if (s.size() != 6 || !digitsAt(s, 0, 2, h) || !digitsAt(s, 2, 2, m) || !digitsAt(s, 4, 2, sec)) return false;
  if (h > 24 || m > 59 || sec > 59 || (h == 24 && (m || sec))) return false;
  ms = static_cast<uint32_t>((h * 3600 + m * 60 + sec) * 1000);
  return true;
}

int daysInMonth(int year, int month) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12) return 31;
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

std::vector<Span> generated(int channel) {
  std::vector<Span> out;
  uint64_t x = 0x9E3779B97F4A7C15ull * static_cast<uint64_t>(channel + 1);
  auto next = [&x](uint32_t lo, uint32_t hi) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    return lo + static_cast<uint32_t>(x % (hi - lo + 1));
  };
  uint32_t t = 0;
  while (t < kDayMs) {
    uint32_t len = next(20, 120) * 60000u;
    Span s{t, std::min(kDayMs, t + len)};
    out.push_back(s);
    t = s.endMs + next(1, 30) * 60000u;
  }
  return out;
}

}  // namespace

bool parseTimeText(const std::string& text, TimeText& out) {
  out = TimeText();
  if (!digitsAt(text, 0, 4, out.year) || !digitsAt(text, 4, 2, out.month)) return false;
  if (text.size() == 6) return out.month >= 1 && out.month <= 12;
  if (!digitsAt(text, 6, 2, out.day) || out.month < 1 || out.month > 12 || out.day < 1 || out.day > 31) return false;
  if (text.size() == 8) return true;
  return text.size() == 14 && parseHhmmss(text.substr(8), out.ms);
}

std::string hhmmss(uint32_t ms) {
  char b[16];
  uint32_t s = ms / 1000;
  snprintf(b, sizeof b, "%02u%02u%02u", s / 3600 % 100, s / 60 % 60, s % 60);
  return b;
}

const std::vector<Span>& RecorderSpans::day(int channel) {
  auto it = spans_.find(channel);
  if (it == spans_.end()) it = spans_.emplace(channel, generated(channel)).first;
  return it->second;
}

bool RecorderSpans::set(int channel, const std::string& text, std::string& err) {
  if (text == "-") {
    spans_.erase(channel);
    return true;
  }
  std::vector<Span> out;
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t comma = text.find(',', pos);
    std::string item = text.substr(pos, comma == std::string::npos ? std::string::npos : comma - pos);
    Span s;
    if (item.size() != 13 || item[6] != '-' || !parseHhmmss(item.substr(0, 6), s.startMs) ||
        !parseHhmmss(item.substr(7), s.endMs) || s.endMs <= s.startMs ||
        (!out.empty() && s.startMs < out.back().endMs))
      return err = "bad span " + item + " (hhmmss-hhmmss, ascending, not overlapping)", false;
    out.push_back(s);
    if (comma == std::string::npos) break;
    pos = comma + 1;
  }
  spans_[channel] = out;
  return true;
}

const Span* RecorderSpans::spanAtOrAfter(int channel, uint32_t ms) {
  for (const Span& s : day(channel))
    if (s.endMs > ms) return &s;
  return nullptr;
}

std::string RecorderSpans::text(int channel) {
  std::string out;
  for (const Span& s : day(channel)) out += (out.empty() ? "" : ",") + hhmmss(s.startMs) + "-" + hhmmss(s.endMs);
  return out;
}

// <Stream> holds the day's spans "hhmmss-hhmmss" separated by commas (empty: no recording).
std::string dayListBody(int channel, const TimeText& t, const std::vector<Span>& spans, bool recorded) {
  char date[16];
  snprintf(date, sizeof date, "%04d%02d%02d", t.year, t.month, t.day);
  std::string list;
  if (recorded)
    for (const Span& s : spans) list += (list.empty() ? "" : ",") + hhmmss(s.startMs) + "-" + hhmmss(s.endMs);
  return "<PRIVATE_PROTO>\n<MESSAGE_BODY>\n<RESPONSE_PARAM>\n<ChannelId>" + std::to_string(channel) +
         "</ChannelId>\n<Time>" + date + "</Time>\n<Stream>" + list +
         "</Stream>\n</RESPONSE_PARAM>\n</MESSAGE_BODY>\n</PRIVATE_PROTO>";
}

// <RecordData> has one character per day of the month: '1' recorded, '0' not.
std::string monthListBody(int channel, const TimeText& t) {
  char month[16];
  snprintf(month, sizeof month, "%04d%02d", t.year, t.month);
  std::string days;
  for (int d = 1; d <= daysInMonth(t.year, t.month); ++d) days += RecorderSpans::recordedDay(channel, d) ? '1' : '0';
  return "<PRIVATE_PROTO>\n<MESSAGE_BODY>\n<RESPONSE_PARAM>\n<ChannelId>" + std::to_string(channel) +
         "</ChannelId>\n<Time>" + month + "</Time>\n<RecordData>" + days +
         "</RecordData>\n</RESPONSE_PARAM>\n</MESSAGE_BODY>\n</PRIVATE_PROTO>";
}

}  // namespace devsim
