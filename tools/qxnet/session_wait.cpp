#include "session_wait.h"

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
};
Waiter g_wait;

bool IsConnectionLoss(long code) { return code == QXNET_EV_SOCKET_ERROR || code == QXNET_EV_CONNECT_FAILED; }

long OnStatus(long, long code, char* data, void*) {
  {
    std::lock_guard<std::mutex> lock(g_wait.mu);
    g_wait.events.emplace_back(code, code == QXNET_EV_ALARM || !data ? std::string() : std::string(data));
    g_wait.cv.notify_all();
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
  double end = Now() + timeout;
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
    if (g_stop || Now() >= end) return -1;
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
