#include "event_print.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include <tinyxml.h>

#include "QXNetSDK.h"
#include "cli_args.h"
#include "json_out.h"

namespace {
std::mutex g_out;

const char* EventName(long code) {
  switch (code) {
    case QXNET_EV_CONNECT_FAILED: return "connect failed";
    case QXNET_EV_SOCKET_ERROR: return "socket error or closed";
    case QXNET_EV_BAD_CREDENTIALS: return "bad user name or password";
    case QXNET_EV_AUTH_FAILED: return "authentication failed";
    case QXNET_EV_CONNECTED: return "connected";
    case QXNET_EV_AUTHENTICATED: return "authenticated";
    case QXNET_EV_UPGRADE_FINISHED: return "firmware upload finished";
    case QXNET_EV_UPGRADE_FAILED: return "firmware upload failed";
    case QXNET_EV_ALARM: return "alarm";
    case QXNET_EV_MAX_CHANNELS: return "maximum channel count";
    case QXNET_EV_IPC_STATUS: return "recorder camera status";
    case QXNET_EV_DOWNLOAD_ACCEPTED: return "download accepted";
    case QXNET_EV_DOWNLOAD_REFUSED: return "download refused";
    case QXNET_EV_DOWNLOAD_STOPPED: return "download stopped";
    case QXNET_EV_DOWNLOAD_PROGRESS: return "download progress";
    case QXNET_EV_UPGRADE_PROGRESS: return "firmware upload progress";
    case QXNET_EV_MESSAGE: return "device message";
    case QXNET_EV_CFGFILE_GET_PROGRESS: return "configuration download progress";
    case QXNET_EV_CFGFILE_SET_FAILED: return "configuration upload failed";
    case QXNET_EV_CFGFILE_SET_PROGRESS: return "configuration upload progress";
    case QXNET_EV_CFGFILE_SET_FINISHED: return "configuration upload finished";
    default: return "event";
  }
}

// One alarm of a report: its attributes as they came.
struct AlarmFields {
  std::string year, month, day, hour, minute, second, wday, code, flag, level, data;
};

std::string Attr(TiXmlElement* e, const char* name) {
  const char* v = e ? e->Attribute(name) : nullptr;
  return v ? v : "";
}

// Alarm reports reach the application as device messages (event 79) carrying the report.
bool ReadAlarmReport(const char* body, std::vector<AlarmFields>* alarms) {
  if (!body || !std::strstr(body, "ALARM_REPORT_PARAM")) return false;
  std::string wrapped = std::string("<r>") + body + "</r>";
  TiXmlDocument doc;
  doc.Parse(wrapped.c_str());
  TiXmlElement* root = doc.RootElement();
  TiXmlElement* mb = root ? root->FirstChildElement("MESSAGE_BODY") : nullptr;
  TiXmlElement* list = mb ? mb->FirstChildElement("ALARM_REPORT_PARAM") : nullptr;
  if (!list) return false;
  for (TiXmlElement* it = list->FirstChildElement("ALARM_ITEM"); it; it = it->NextSiblingElement("ALARM_ITEM")) {
    TiXmlElement* t = it->FirstChildElement("ALARM_TIME");
    TiXmlElement* i = it->FirstChildElement("ALARM_INFO");
    alarms->push_back({Attr(t, "Year"), Attr(t, "Month"), Attr(t, "Day"), Attr(t, "Hour"), Attr(t, "Minute"),
                       Attr(t, "Second"), Attr(t, "WDay"), Attr(i, "Alarm_code"), Attr(i, "Alarm_flag"),
                       Attr(i, "Alarm_level"), Attr(i, "Alarm_data")});
  }
  return true;
}

void PrintAlarmText(const AlarmFields& a) {
  std::printf("[alarm] time=%s-%s-%s %s:%s:%s wday=%s code=%s flag=%s level=%s data=\"%s\"\n", a.year.c_str(),
              a.month.c_str(), a.day.c_str(), a.hour.c_str(), a.minute.c_str(), a.second.c_str(), a.wday.c_str(),
              a.code.c_str(), a.flag.c_str(), a.level.c_str(), a.data.c_str());
}

std::string AlarmJson(const AlarmFields& a) {
  std::string time = a.year + "-" + a.month + "-" + a.day + " " + a.hour + ":" + a.minute + ":" + a.second;
  return JsonObject()
      .Str("time", time)
      .Int("wday", std::atol(a.wday.c_str()))
      .Int("code", std::atol(a.code.c_str()))
      .Int("flag", std::atol(a.flag.c_str()))
      .Int("level", std::atol(a.level.c_str()))
      .Str("data", a.data)
      .Text();
}

AlarmFields FromItem(const ALARM_ITEM& a) {
  char t[6][16];
  int v[6] = {a.nYear, a.nMonth, a.nDay, a.nHour, a.nMinute, a.nSecond};
  for (int k = 0; k < 6; ++k) std::snprintf(t[k], sizeof t[k], k ? "%02d" : "%04d", v[k]);
  return {t[0], t[1], t[2], t[3], t[4], t[5], std::to_string(a.nWDay), std::to_string(a.nAlarmCode),
          std::to_string(a.nAlarmFlag), std::to_string(a.nAlarmLevel),
          std::string(a.szAlarmData, strnlen(a.szAlarmData, sizeof a.szAlarmData))};
}

void PrintEventText(long code, const char* data, const std::vector<AlarmFields>& alarms, bool report) {
  if (code == QXNET_EV_ALARM && !alarms.empty()) {
    const AlarmFields& a = alarms[0];
    std::printf("[event %ld] alarm: time=%s-%s-%s %s:%s:%s wday=%s code=%s flag=%s level=%s data=\"%s\"\n", code,
                a.year.c_str(), a.month.c_str(), a.day.c_str(), a.hour.c_str(), a.minute.c_str(), a.second.c_str(),
                a.wday.c_str(), a.code.c_str(), a.flag.c_str(), a.level.c_str(), a.data.c_str());
  } else if (report) {
    for (const AlarmFields& a : alarms) PrintAlarmText(a);
  } else {
    std::printf("[event %ld] %s: %s\n", code, EventName(code), OneLine(data).c_str());
  }
}

void PrintEventJson(long code, const char* data, const std::vector<AlarmFields>& alarms) {
  JsonObject o;
  o.Str("type", "event").Int("code", code).Str("name", EventName(code));
  if (code != QXNET_EV_ALARM) o.Str("text", data ? data : "");
  if (!alarms.empty()) {
    std::vector<std::string> items;
    for (const AlarmFields& a : alarms) items.push_back(AlarmJson(a));
    o.Raw("alarms", JsonArray(items));
  }
  std::printf("%s\n", o.Text().c_str());
}
}  // namespace

std::string OneLine(const char* text) {
  std::string s = text ? text : "";
  for (char& c : s)
    if (c == '\n' || c == '\r') c = ' ';
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

void PrintStatusEvent(long code, const char* data) {
  std::vector<AlarmFields> alarms;
  bool report = false;
  if (code == QXNET_EV_ALARM && data)
    alarms.push_back(FromItem(*reinterpret_cast<const ALARM_ITEM*>(data)));
  else if (code == QXNET_EV_MESSAGE)
    report = ReadAlarmReport(data, &alarms);
  std::lock_guard<std::mutex> lock(g_out);
  if (JsonOutput())
    PrintEventJson(code, code == QXNET_EV_ALARM ? nullptr : data, alarms);
  else
    PrintEventText(code, data, alarms, report);
  std::fflush(stdout);
}

void PrintAuxAnswer(long code, const char* data) {
  std::lock_guard<std::mutex> lock(g_out);
  if (JsonOutput()) {
    std::printf("%s\n", JsonObject()
                            .Str("type", "answer")
                            .Int("code", code)
                            .Int("command", static_cast<long>(static_cast<unsigned long>(code) & 0xFFFFFFul))
                            .Int("flag", static_cast<int8_t>((static_cast<unsigned long>(code) >> 24) & 0xFF))
                            .Str("body", data ? data : "")
                            .Text()
                            .c_str());
  } else {
    std::printf("[answer] code=%ld body=%s\n", code, OneLine(data).c_str());
  }
  std::fflush(stdout);
}
