// Records the search status callbacks of a test run.
#pragma once

#include <chrono>
#include <cstring>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "QXNetSDK.h"

namespace lantest {

struct SearchEvent {
  long code;
  long index;
  std::string uid, ip, token;
  int result;
};

class SearchEvents {
 public:
  static long Callback(long code, long index, __NetSDK_IPC_ENTRYV2* e, void* user) {
    SearchEvents* self = static_cast<SearchEvents*>(user);
    SearchEvent ev{code, index, "", "", "", 0};
    if (e) {
      ev.uid.assign(e->szUID, strnlen(e->szUID, sizeof e->szUID));
      ev.ip.assign(e->lanCfg.szIP, strnlen(e->lanCfg.szIP, sizeof e->lanCfg.szIP));
      ev.token.assign(e->lanCfg.szToken, strnlen(e->lanCfg.szToken, sizeof e->lanCfg.szToken));
      ev.result = e->lanCfg.nLastResult;
    }
    std::lock_guard<std::mutex> g(self->mu_);
    self->events_.push_back(ev);
    self->cv_.notify_all();
    return 0;
  }
  std::vector<SearchEvent> Snapshot() {
    std::lock_guard<std::mutex> g(mu_);
    return events_;
  }
  size_t Count(long code) {
    std::lock_guard<std::mutex> g(mu_);
    size_t n = 0;
    for (auto& e : events_) n += e.code == code;
    return n;
  }
  // Waits until at least n events of `code` were seen; false on timeout.
  bool WaitCount(long code, size_t n, int ms) {
    std::unique_lock<std::mutex> l(mu_);
    return cv_.wait_for(l, std::chrono::milliseconds(ms), [&] {
      size_t k = 0;
      for (auto& e : events_) k += e.code == code;
      return k >= n;
    });
  }
  void Clear() {
    std::lock_guard<std::mutex> g(mu_);
    events_.clear();
  }

 private:
  std::mutex mu_;
  std::condition_variable cv_;
  std::vector<SearchEvent> events_;
};

}  // namespace lantest
