// Status events of the soak's sessions, counted per session from the status callback:
// connects (5), closes (1), authentications (6) and failures (0, 2, 3), and whether a
// session's newest connection-state event left it authenticated.
#pragma once

#include <mutex>
#include <unordered_map>
#include <vector>

namespace qxbench {

struct EventTotals {
  long connects = 0, closes = 0, auths = 0;
  long connectFailures = 0, badCredentials = 0, authFailures = 0;
  long sessionsSeen = 0;    // sessions with at least one event
  long sessionsAuthed = 0;  // sessions authenticated at least once
};

class EventBook {
 public:
  // The status callback: pass the book as its user pointer.
  static long OnStatus(long loginId, long code, char* data, void* user);

  void Record(long loginId, long code);
  EventTotals Sum() const;
  // How many of ids are authenticated now (their newest state event was 6).
  long AuthenticatedAmong(const std::vector<long>& ids) const;

 private:
  struct Tally {
    long connects = 0, closes = 0, auths = 0;
    long connectFailures = 0, badCredentials = 0, authFailures = 0;
    bool authenticated = false;
  };
  mutable std::mutex mu_;
  std::unordered_map<long, Tally> sessions_;
};

}  // namespace qxbench
