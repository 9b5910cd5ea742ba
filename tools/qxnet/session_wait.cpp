#include "session_wait.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "QXNetSDK.h"
#include "event_print.h"

std::atomic<bool> g_stop{false};

namespace {
bool g_quietEvents = false;

struct Waiter {
  std::mutex mu;
  std::condition_variable cv;
  std::vector<std::pair<long, std::string>> events;
  std::vector<std::pair<long, std::string>> answers;
  double lastEvent = 0;  // when the library last reported anything: a wait's timeout counts from it
};
Waiter g_wait;

bool IsConnectionLoss(long code) { return code == QXNET_EV_SOCKET_ERROR || code == QXNET_EV_CONNECT_FAILED; }

// A recorder download reports its progress after every picture, mostly the same percentage
// again: recording and waking the waiting thread for each repeat cost a context switch per
// picture. A repeat only proves the device is alive, which is what the timeout needs.
bool RepeatsLastEvent(long code, const char* data) {
  if (code != QXNET_EV_DOWNLOAD_PROGRESS && code != QXNET_EV_CFGFILE_GET_PROGRESS) return false;
  if (g_wait.events.empty() || !data) return false;
  const auto& last = g_wait.events.back();
  return last.first == code && last.second == data;
}

long OnStatus(long, long code, char* data, void*) {
  {
    std::lock_guard<std::mutex> lock(g_wait.mu);
    g_wait.lastEvent = Now();
    if (!RepeatsLastEvent(code, data)) {
      g_wait.events.emplace_back(code, code == QXNET_EV_ALARM || !data ? std::string() : std::string(data));
      g_wait.cv.notify_all();
    }
  }
  if (!g_quietEvents) PrintStatusEvent(code, data);
  return 0;
}

long OnAux(long, long code, char* data, void*) {
  {
    std::lock_guard<std::mutex> lock(g_wait.mu);
    g_wait.answers.emplace_back(code, data ? data : "");
    g_wait.cv.notify_all();
  }
  if (!g_quietEvents) PrintAuxAnswer(code, data);
  return 0;
}
}  // namespace

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void InstallSessionCallbacks(bool quiet) {
  g_quietEvents = quiet;
  static int user = 0;
  QXNet_SetStatusEventCallBack(OnStatus, &user);
  QXNet_SetAuxResponseCallBack(OnAux, &user);
}

bool SawAuthenticated() {
  std::lock_guard<std::mutex> lock(g_wait.mu);
  for (auto& e : g_wait.events)
    if (e.first == QXNET_EV_AUTHENTICATED) return true;
  return false;
}

int WaitEvent(const std::vector<long>& codes, size_t from, double timeout, long* code, std::string* text,
              size_t* next) {
  std::unique_lock<std::mutex> lock(g_wait.mu);
  const double start = Now();
  for (;;) {
    for (size_t i = from; i < g_wait.events.size(); ++i) {
      long c = g_wait.events[i].first;
      bool wanted = false;
      for (long want : codes) wanted = wanted || c == want;
      if (wanted || IsConnectionLoss(c)) {
        *code = c;
        *text = g_wait.events[i].second;
        *next = i + 1;
        return wanted ? static_cast<int>(i) : -2;
      }
    }
    from = g_wait.events.size();
    if (g_stop || Now() >= std::max(start, g_wait.lastEvent) + timeout) return -1;
    g_wait.cv.wait_for(lock, std::chrono::milliseconds(100));
  }
}

AnswerWait WaitAnswer(unsigned long cmd, double timeout, long* code, std::string* body) {
  std::unique_lock<std::mutex> lock(g_wait.mu);
  double end = Now() + timeout;
  size_t seen = 0;
  for (;;) {
    for (; seen < g_wait.answers.size(); ++seen) {
      long c = g_wait.answers[seen].first;
      if ((static_cast<unsigned long>(c) & 0xFFFFFFul) == (cmd & 0xFFFFFFul)) {
        *code = c;
        *body = g_wait.answers[seen].second;
        return AnswerWait::kAnswered;
      }
    }
    for (auto& e : g_wait.events)
      if (e.first == QXNET_EV_SOCKET_ERROR) return AnswerWait::kDropped;
    if (g_stop || Now() >= end) return AnswerWait::kTimedOut;
    g_wait.cv.wait_for(lock, std::chrono::milliseconds(100));
  }
}

void ClearAnswers() {
  std::lock_guard<std::mutex> lock(g_wait.mu);
  g_wait.answers.clear();
}

int AnswerFlag(long code) { return static_cast<int8_t>((static_cast<unsigned long>(code) >> 24) & 0xFF); }
