#include "capture.h"

#include <chrono>
#include <cstring>

namespace qxtest {

Capture& Capture::Get() {
  static Capture c;
  return c;
}

void Capture::Install() {
  QXNet_init();
  QXNet_SetfcLogCallBackEx(&Capture::OnLog, 31);
  static int user = 1;
  QXNet_SetStatusEventCallBack(&Capture::OnStatus, &user);
  QXNet_SetAuxResponseCallBack(&Capture::OnAux, &user);
  Clear();
}

void Capture::Clear() {
  std::lock_guard<std::mutex> lock(mu_);
  logs_.clear();
  events_.clear();
  auxes_.clear();
}

std::vector<std::string> Capture::Logs() {
  std::lock_guard<std::mutex> lock(mu_);
  std::vector<std::string> out;
  for (auto& l : logs_) out.push_back(l.second);
  return out;
}

std::vector<Event> Capture::Events() {
  std::lock_guard<std::mutex> lock(mu_);
  return events_;
}

std::vector<Aux> Capture::Auxes() {
  std::lock_guard<std::mutex> lock(mu_);
  return auxes_;
}

int Capture::CountLogs(const std::string& needle, unsigned level) {
  std::lock_guard<std::mutex> lock(mu_);
  int n = 0;
  for (auto& l : logs_)
    if ((level == 99 || l.first == level) && l.second.find(needle) != std::string::npos) ++n;
  return n;
}

int Capture::CountEvents(long code) {
  std::lock_guard<std::mutex> lock(mu_);
  int n = 0;
  for (auto& e : events_)
    if (e.code == code) ++n;
  return n;
}

bool Capture::WaitEvent(long code, int count, int timeoutMs) {
  std::unique_lock<std::mutex> lock(mu_);
  return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
    int n = 0;
    for (auto& e : events_)
      if (e.code == code) ++n;
    return n >= count;
  });
}

bool Capture::WaitLog(const std::string& needle, int count, int timeoutMs) {
  std::unique_lock<std::mutex> lock(mu_);
  return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
    int n = 0;
    for (auto& l : logs_)
      if (l.second.find(needle) != std::string::npos) ++n;
    return n >= count;
  });
}

void Capture::OnLog(unsigned int level, const char* line) {
  Capture& c = Get();
  std::lock_guard<std::mutex> lock(c.mu_);
  c.logs_.emplace_back(level, line ? line : "");
  c.cv_.notify_all();
}

long Capture::OnStatus(long loginId, long code, char* data, void*) {
  Capture& c = Get();
  Event e;
  e.loginId = loginId;
  e.code = code;
  std::memset(&e.alarm, 0, sizeof(e.alarm));
  if (code == QXNET_EV_ALARM && data)
    std::memcpy(&e.alarm, data, sizeof(e.alarm));
  else if (data)
    e.text = data;
  std::lock_guard<std::mutex> lock(c.mu_);
  c.events_.push_back(e);
  c.cv_.notify_all();
  return 0;
}

long Capture::OnAux(long loginId, long code, char* data, void*) {
  Capture& c = Get();
  Aux a{loginId, code, data ? data : "", data == nullptr};
  std::lock_guard<std::mutex> lock(c.mu_);
  c.auxes_.push_back(a);
  c.cv_.notify_all();
  return 0;
}

}  // namespace qxtest
