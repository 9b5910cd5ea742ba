// qxnet: command-line client built on the public QXNetSDK interface only.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include <tinyxml.h>

#include "QXNetSDK.h"

namespace {
std::atomic<bool> g_stop{false};
std::mutex g_out;

void OnSignal(int) { g_stop = true; }

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

// Event texts often end in a line break: print them on one line.
std::string OneLine(const char* text) {
  std::string s = text ? text : "";
  for (char& c : s)
    if (c == '\n' || c == '\r') c = ' ';
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

// Alarm reports reach the application as device messages (event 79) carrying the
// report: print each alarm's fields.
bool PrintAlarmReport(const char* body) {
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
    auto a = [](TiXmlElement* e, const char* n) {
      const char* v = e ? e->Attribute(n) : nullptr;
      return v ? v : "";
    };
    std::printf("[alarm] time=%s-%s-%s %s:%s:%s wday=%s code=%s flag=%s level=%s data=\"%s\"\n", a(t, "Year"),
                a(t, "Month"), a(t, "Day"), a(t, "Hour"), a(t, "Minute"), a(t, "Second"), a(t, "WDay"),
                a(i, "Alarm_code"), a(i, "Alarm_flag"), a(i, "Alarm_level"), a(i, "Alarm_data"));
  }
  return true;
}

long OnStatus(long loginId, long code, char* data, void*) {
  std::lock_guard<std::mutex> lock(g_out);
  if (code == QXNET_EV_ALARM && data) {
    const ALARM_ITEM* a = reinterpret_cast<const ALARM_ITEM*>(data);
    std::printf("[event %ld] alarm: time=%04d-%02d-%02d %02d:%02d:%02d wday=%d code=%d flag=%d level=%d data=\"%s\"\n",
                code, a->nYear, a->nMonth, a->nDay, a->nHour, a->nMinute, a->nSecond, a->nWDay, a->nAlarmCode,
                a->nAlarmFlag, a->nAlarmLevel, a->szAlarmData);
  } else if (!(code == QXNET_EV_MESSAGE && PrintAlarmReport(data))) {
    std::printf("[event %ld] %s: %s\n", code, EventName(code), OneLine(data).c_str());
  }
  std::fflush(stdout);
  (void)loginId;
  return 0;
}

long OnAux(long, long code, char* data, void*) {
  std::lock_guard<std::mutex> lock(g_out);
  std::printf("[answer] code=%ld body=%s\n", code, OneLine(data).c_str());
  std::fflush(stdout);
  return 0;
}

void Usage() {
  std::printf(
      "usage:\n"
      "  qxnet version                      print the library version (init/free round trip)\n"
      "  qxnet login HOST PORT USER PASS [--seconds N] [--no-reconnect]\n"
      "                                     log in, print status events and alarms until\n"
      "                                     interrupted (Ctrl-C) or N seconds have passed\n");
}

int CmdVersion() {
  QXNet_init();
  std::printf("QXNetSDK %s\n", QXNet_GetSdkVersion());
  QXNet_Free();
  return 0;
}

int CmdLogin(int argc, char** argv) {
  if (argc < 6) {
    Usage();
    return 2;
  }
  double seconds = -1;
  bool reconnect = true;
  for (int i = 6; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc)
      seconds = std::atof(argv[++i]);
    else if (!std::strcmp(argv[i], "--no-reconnect"))
      reconnect = false;
    else {
      Usage();
      return 2;
    }
  }
  QXNet_init();
  QXNet_SetAutoReconnect(reconnect ? 1 : 0);
  static int user = 0;
  QXNet_SetStatusEventCallBack(OnStatus, &user);
  QXNet_SetAuxResponseCallBack(OnAux, &user);
  long id = QXNet_Loc_LoginDev(argv[2], std::strtoul(argv[3], nullptr, 10), argv[4], argv[5], nullptr);
  if (id <= 0) {
    std::fprintf(stderr, "qxnet: login refused (result %ld)\n", id);
    QXNet_Free();
    return 1;
  }
  auto start = std::chrono::steady_clock::now();
  while (!g_stop) {
    if (seconds >= 0 &&
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() >= seconds)
      break;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  QXNet_LogOutDev(id);
  QXNet_Free();
  return 0;
}
}  // namespace

int main(int argc, char** argv) {
  signal(SIGINT, OnSignal);
  signal(SIGTERM, OnSignal);
  if (argc < 2) {
    Usage();
    return 2;
  }
  std::string cmd = argv[1];
  if (cmd == "version") return CmdVersion();
  if (cmd == "login") return CmdLogin(argc, argv);
  Usage();
  return 2;
}
