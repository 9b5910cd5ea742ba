// A recorder's recordings: per channel, the spans of one day (the same every recorded day),
// and the days of a month that hold none. Answers the day and month searches.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace devsim {

constexpr uint32_t kDayMs = 86400000u;

struct Span {
  uint32_t startMs = 0;  // since midnight
  uint32_t endMs = 0;    // exclusive
};

// "YYYYMMDDhhmmss" (or a prefix of at least 8 digits): date and time of day.
struct TimeText {
  int year = 0, month = 0, day = 0;
  uint32_t ms = 0;  // since midnight; 0 when only the date is given
};
bool parseTimeText(const std::string& text, TimeText& out);
std::string hhmmss(uint32_t ms);  // "hhmmss"

class RecorderSpans {
 public:
  // The spans of a channel: set explicitly, else generated from the channel number (spans of
  // 20 to 120 minutes with gaps of 1 to 30 minutes, from 00:00:00 to the end of the day).
  const std::vector<Span>& day(int channel);
  // Explicit spans "hhmmss-hhmmss,..." for a channel; "-" goes back to generated ones.
  bool set(int channel, const std::string& text, std::string& err);
  // A day without recordings: every ninth day of the month, shifted by the channel.
  static bool recordedDay(int channel, int day) { return (day + channel) % 9 != 0; }
  // The first span ending after ms, or null.
  const Span* spanAtOrAfter(int channel, uint32_t ms);
  std::string text(int channel);  // the spans as "hhmmss-hhmmss,..."

 private:
  std::map<int, std::vector<Span>> spans_;
  std::map<int, bool> explicit_;
};

// Record-list bodies of the 14300 answer (read by the library's record-list readers, which
// take MESSAGE_BODY/RESPONSE_PARAM under the root of the text they are given).
std::string dayListBody(int channel, const TimeText& t, const std::vector<Span>& spans, bool recorded);
std::string monthListBody(int channel, const TimeText& t);

}  // namespace devsim
