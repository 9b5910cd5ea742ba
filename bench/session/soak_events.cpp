#include "soak_events.h"

#include "QXNetSDK.h"

namespace qxbench {

long EventBook::OnStatus(long loginId, long code, char*, void* user) {
  if (user) static_cast<EventBook*>(user)->Record(loginId, code);
  return 0;
}

void EventBook::Record(long loginId, long code) {
  std::lock_guard<std::mutex> lock(mu_);
  Tally& t = sessions_[loginId];
  switch (code) {
    case QXNET_EV_CONNECTED:
      ++t.connects;
      t.authenticated = false;
      break;
    case QXNET_EV_SOCKET_ERROR:
      ++t.closes;
      t.authenticated = false;
      break;
    case QXNET_EV_AUTHENTICATED:
      ++t.auths;
      t.authenticated = true;
      break;
    case QXNET_EV_CONNECT_FAILED:
      ++t.connectFailures;
      t.authenticated = false;
      break;
    case QXNET_EV_BAD_CREDENTIALS:
      ++t.badCredentials;
      t.authenticated = false;
      break;
    case QXNET_EV_AUTH_FAILED:
      ++t.authFailures;
      t.authenticated = false;
      break;
    default:
      break;  // channel counts, alarms, transfers: not connection state
  }
}

EventTotals EventBook::Sum() const {
  std::lock_guard<std::mutex> lock(mu_);
  EventTotals s;
  for (const auto& kv : sessions_) {
    const Tally& t = kv.second;
    s.connects += t.connects;
    s.closes += t.closes;
    s.auths += t.auths;
    s.connectFailures += t.connectFailures;
    s.badCredentials += t.badCredentials;
    s.authFailures += t.authFailures;
    ++s.sessionsSeen;
    if (t.auths > 0) ++s.sessionsAuthed;
  }
  return s;
}

long EventBook::AuthenticatedAmong(const std::vector<long>& ids) const {
  std::lock_guard<std::mutex> lock(mu_);
  long n = 0;
  for (long id : ids) {
    auto it = sessions_.find(id);
    if (it != sessions_.end() && it->second.authenticated) ++n;
  }
  return n;
}

}  // namespace qxbench
