// Recorder search, replay and download control: the requests. Each is one type "10000"
// message put on the send queue (ControlReplay excepted); the answers come back through
// DevComMedia.cpp and the auxiliary response callback.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/FuncLog.h"
#include "session/DevComControl.h"
#include "session/Protocol.h"

namespace {

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* format, ...) {
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  int n = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  std::string out(n > 0 ? static_cast<size_t>(n) : 0, '\0');
  if (n > 0) std::vsnprintf(&out[0], out.size() + 1, format, again);
  va_end(again);
  return out;
}

const char* OrEmpty(const char* s) { return s ? s : ""; }

// Milliseconds since midnight of a "YYYYMMDDhhmmss" text: characters 8-13, two digits each
// (a shorter text reads the missing digits as absent).
uint32_t MsOfDay(const char* text) {
  char t[15] = {0};
  std::strncpy(t, text, 14);
  auto two = [&t](int at) {
    char d[3] = {t[at], at + 1 < 14 ? t[at + 1] : '\0', 0};
    return std::atoi(d);
  };
  long s = two(8) * 3600L + two(10) * 60L + two(12);
  return static_cast<uint32_t>(s * 1000);
}

int SpeedCommand(unsigned int action) {
  switch (action) {
    case 1: return proto::kCmdReplayAction1;
    case 2: return proto::kCmdReplayAction2;
    case 4: return proto::kCmdReplayAction4;
    case 5: return proto::kCmdReplayAction5;
    default: return proto::kCmdReplayAction7;
  }
}

const char kReplayControlTemplate[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>                     <PRIVATE_PROTO>                     "
    "<MESSAGE_HEADER                      Msg_type=\"REPLAY_CONTROL_MESSAGE\"                     "
    "Msg_code=\"%d\"                      Msg_flag=\"0\"                      /><MESSAGE_BODY>                     "
    "<REQUEST_PARAM                      FileName = \"%s\"                      StartPos=\"%d\"                      "
    "PlayParam=\"%d\"                      />                     </MESSAGE_BODY>                     "
    "</PRIVATE_PROTO>";
constexpr size_t kReplayControlBufSize = 10240;

}  // namespace

int CDevComControl::SearchNVRRecByTime(unsigned int channel, const char* time) {
  std::string body = Format("<ChannelId>%ld</ChannelId>\n<Time>%s</Time>\n<ByMonth>0</ByMonth>\n",
                            static_cast<long>(channel), OrEmpty(time));
  int rc = WriteAUXStringEx(proto::kTypeConfig, proto::kCmdRecordSearch, 0, body.c_str());
  fLog(2, "SearchNVRRecByTime return=%d:%s", rc, body.c_str());
  return rc;
}

int CDevComControl::SearchNvrRecByMonth(long channel, const char* date) {
  if (channel < 0 || !date) {
    fLog(0, "[SearchNvrRecByMonth] search nvr record by month refused, nChannelId=%ld, pDate=%p", channel,
         static_cast<const void*>(date));
    return -2;
  }
  std::string body =
      Format("<ChannelId>%ld</ChannelId>\n<Time>%s</Time>\n<ByMonth>1</ByMonth>\n", channel, date);
  int rc = WriteAUXStringEx(proto::kTypeConfig, proto::kCmdRecordSearch, 0, body.c_str());
  fLog(2, "SearchNvrRecByMonth return=%d:%s", rc, body.c_str());
  return rc;
}

int CDevComControl::NVRReplayByTime(unsigned int channel, const char* time) {
  m_nCurChannel = static_cast<int32_t>(channel);
  // The reassembly buffer is allocated by the worker on the first pack.
  std::string body = Format("<ChannelId>%ld</ChannelId>\n<Time>%s</Time>\n<DownloadRecord>0</DownloadRecord>",
                            static_cast<long>(channel), OrEmpty(time));
  int rc = WriteAUXStringEx(proto::kTypeConfig, proto::kCmdRecordPlay, 0, body.c_str());
  m_nReplayMode = 0;
  fLog(2, "NVRReplayByTime return=%d:%s", rc, body.c_str());
  return rc;
}

int CDevComControl::ControlNVRReplay(unsigned int channel, unsigned int action, unsigned int speed,
                                     const char* time) {
  m_nCurChannel = static_cast<int32_t>(channel);
  if (action == 0 || action >= 8) {
    fLog(0, "[ControlNVRReplay] Control NVR replay failed, lAction=%ld is error \n", static_cast<long>(action));
    return -1;
  }
  long ch = static_cast<long>(channel);
  std::string body;
  int cmd;
  if (action == 3) {
    cmd = proto::kCmdRecordStop;
    body = Format("<ChannelId>%ld</ChannelId>\n<DownloadRecord>0</DownloadRecord>", ch);
  } else if (action == 6) {
    cmd = proto::kCmdReplaySeek;
    body = Format("<ChannelId>%ld</ChannelId>\n<Time>%s</Time>", ch, OrEmpty(time));
  } else {
    cmd = SpeedCommand(action);
    long s = (action == 4 || action == 5) ? static_cast<long>(speed) : 0;
    body = Format("<ChannelId>%ld</ChannelId>\n<Speed>%ld</Speed>", ch, s);
  }
  int rc = WriteAUXStringEx(proto::kTypeConfig, static_cast<unsigned long>(cmd), 0, body.c_str());
  fLog(2, "ControlNVRReplay return=%d:%s", rc, body.c_str());
  return rc;
}

int CDevComControl::ControlReplay(unsigned int action, unsigned int param) {
  if (m_szReplayFile[0] == 0) {
    fLog(0, "[ControlReplay] Dev=%s Control replay refused, replay file is empty \n", m_szDevAddr);
    return -86;
  }
  int status = m_nDevStatus.load();
  if (status == NETSDK_DEV_STATUS_NONE) {
    fLog(0, "[ControlReplay] Dev=%s not connected, Control replay refused \n", m_szDevAddr);
    return -88;
  }
  if (status == NETSDK_DEV_STATUS_CONNECTED || status == NETSDK_DEV_STATUS_SEND_AUTHMSG) {
    fLog(0, "[ControlReplay] Dev=%s not login, Control replay refused \n", m_szDevAddr);
    return -87;
  }
  if (action >= 8) {
    fLog(0, "[ControlReplay] Dev=%s control play refused, action=%ld error \n", m_szDevAddr,
         static_cast<long>(action));
    return -85;
  }
  int startPos = action == 5 ? static_cast<int>(param) : 0;
  int playParam = (action == 0 || action == 5 || action == 7) ? 0 : static_cast<int>(param);
  char* buf = new char[kReplayControlBufSize]();
  int n = std::snprintf(buf, kReplayControlBufSize, kReplayControlTemplate, static_cast<int>(action), m_szReplayFile,
                        startPos, playParam);
  (void)n;
  PutToSendData(NetSDKSendData_t{static_cast<uint32_t>(std::strlen(buf)), buf});
  return 0;
}

int CDevComControl::NVRRecordDownload(long channel, const char* start, const char* end, const char* path) {
  if (!start || !end) return QXNET_E_MISSING_ARG;
  m_nvrDownload.Span().Begin(path, MsOfDay(start), MsOfDay(end));
  std::string body =
      Format("<ChannelId>%ld</ChannelId>\n<Time>%s</Time>\n<TimeEnd>%s</TimeEnd>\n<DownloadRecord>1</DownloadRecord>",
             channel, start, end);
  int rc = WriteAUXStringEx(proto::kTypeConfig, proto::kCmdRecordPlay, 0, body.c_str());
  if (rc == 0) {
    m_nvrDownload.stopAnswerDue = false;
    m_nvrDownload.Span().active = true;
    m_nReplayMode = 1;
    m_nCurChannel = static_cast<int32_t>(channel);
  }
  fLog(2, "NVRRecordDownload return=%d:%s", rc, body.c_str());
  return rc;
}

int CDevComControl::NVRRecordDownloadStop(long channel) {
  if (!m_nvrDownload.Span().active) return 0;
  return RunStopProcedure(channel);
}

int CDevComControl::RunStopProcedure(long channel) {
  m_nvrDownload.Span().Stop();
  std::string body = Format("<ChannelId>%ld</ChannelId>\n<DownloadRecord>1</DownloadRecord>", channel);
  int rc = WriteAUXStringEx(proto::kTypeConfig, proto::kCmdRecordStop, 0, body.c_str());
  m_nvrDownload.stopAnswerDue = true;
  m_nReplayMode = 0;
  fLog(2, "NVRRecordDownloadStop return=%d:%s", rc, body.c_str());
  return rc;
}
