#include "RecordingSink.h"

#include <string.h>

#include "QXNetSDK.h"
#include "session/DevComControl.h"

namespace {
// Texts no longer than the frame's own text: bodies cut from the message.
const size_t kFrameBound = static_cast<size_t>(-1);

// The status events a receive (and the close after it) may raise, with the longest text
// each may carry: the size of the buffer it is formatted in, less its terminating zero.
struct StatusKind {
  int code;
  size_t maxText;
};
const StatusKind kStatusKinds[] = {
    {QXNET_EV_SOCKET_ERROR, 127},      {QXNET_EV_BAD_CREDENTIALS, 127}, {QXNET_EV_AUTH_FAILED, 127},
    {QXNET_EV_AUTHENTICATED, 127},     {QXNET_EV_UPGRADE_FAILED, 2599}, {QXNET_EV_MAX_CHANNELS, 19},
    {QXNET_EV_IPC_STATUS, 255},        {QXNET_EV_MESSAGE, kFrameBound}, {QXNET_EV_CFGFILE_GET_PROGRESS, 2047},
    {QXNET_EV_CFGFILE_SET_FAILED, 2599},
};

const StatusKind* FindKind(int code) {
  for (const StatusKind& k : kStatusKinds)
    if (k.code == code) return &k;
  return nullptr;
}
}  // namespace

void RecordingSink::Attach(CDevComControl* session) {
  m_session = session;
  m_thread = pthread_self();
}

void RecordingSink::CheckCaller(void* dev) {
  if (!m_session || dev != m_session) m_fail("a report names another session");
  if (!pthread_equal(pthread_self(), m_thread)) m_fail("a report arrives on another thread");
}

size_t RecordingSink::FrameText() const { return strlen(m_session->RecvBuf()); }

void RecordingSink::Keep(Kind kind, long code, const char* text, size_t len) {
  ++m_count;
  if (m_reports.size() >= kKeptReports) return;
  Report r{kind, code, text == nullptr, std::string()};
  if (text) r.text.assign(text, len < kKeptText ? len : kKeptText);
  m_reports.push_back(r);
}

// An alarm item is handed over as the record itself; its data field must be terminated.
void RecordingSink::CheckAlarm(const char* data) {
  if (!data) m_fail("alarm event without its item");
  const ALARM_ITEM* item = reinterpret_cast<const ALARM_ITEM*>(data);
  if (!memchr(item->szAlarmData, 0, sizeof(item->szAlarmData))) m_fail("alarm data not terminated in its field");
  ++m_statusCounts[QXNET_EV_ALARM];
  Keep(kStatus, QXNET_EV_ALARM, nullptr, 0);
}

int RecordingSink::OnPostDevStatusMsg(void* dev, int event, char* data) {
  CheckCaller(dev);
  if (event == QXNET_EV_ALARM) {
    CheckAlarm(data);
    return 0;
  }
  const StatusKind* kind = FindKind(event);
  if (!kind) m_fail("status event with a code the receive path does not raise");
  if (!data) m_fail("status event without a text");
  size_t len = strlen(data);
  size_t bound = kind->maxText == kFrameBound ? FrameText() : kind->maxText;
  if (len > bound) m_fail("status event text longer than its bound");
  ++m_statusCounts[event];
  Keep(kStatus, event, data, len);
  return 0;
}

int RecordingSink::OnPostAuxRspMsg(void* dev, unsigned int command, int, const char* xml) {
  CheckCaller(dev);
  // Only a refused firmware chunk without a body is answered with no body at all.
  if (!xml && command != 20002) m_fail("auxiliary answer without a body for a command other than 20002");
  size_t len = xml ? strlen(xml) : 0;
  if (len > FrameText()) m_fail("auxiliary answer body longer than the message");
  Keep(kAux, command, xml, len);
  return 0;
}

void RecordingSink::OnFReplayMediaData(void* dev, unsigned long type, unsigned char* buffer, unsigned long length,
                                       void*) {
  CheckCaller(dev);
  if (length > m_session->RecvLen()) m_fail("media block longer than its frame");
  if (length && !buffer) m_fail("media block without its bytes");
  Keep(kReplayMedia, static_cast<long>(type), nullptr, 0);
}

long RecordingSink::OnFRePlayEventCallBack(void* dev, long a, long, char* text) {
  CheckCaller(dev);
  size_t len = text ? strlen(text) : 0;
  if (len > FrameText()) m_fail("play event text longer than the message");
  Keep(kPlayEvent, a, text, len);
  return 0;
}
