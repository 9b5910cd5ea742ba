// Captures what the library hands the application: log lines, status events and
// auxiliary responses, for assertions.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "QXNetSDK.h"

namespace qxtest {

struct Event {
  long loginId;
  long code;
  std::string text;
  ALARM_ITEM alarm;  // valid when code == 24
};

struct Aux {
  long loginId;
  long code;
  std::string body;
  bool nullBody;
};

class Capture {
 public:
  static Capture& Get();
  // Initialises the library (if needed) and registers the log, status and aux callbacks.
  void Install();
  void Clear();

  std::vector<std::string> Logs();
  std::vector<Event> Events();
  std::vector<Aux> Auxes();
  int CountLogs(const std::string& needle, unsigned level = 99);
  int CountEvents(long code);
  bool WaitEvent(long code, int count, int timeoutMs);
  bool WaitLog(const std::string& needle, int count, int timeoutMs);

  static void OnLog(unsigned int level, const char* line);
  static long OnStatus(long loginId, long code, char* data, void* user);
  static long OnAux(long loginId, long code, char* data, void* user);

 private:
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<std::pair<unsigned, std::string>> logs_;
  std::vector<Event> events_;
  std::vector<Aux> auxes_;
};

}  // namespace qxtest
