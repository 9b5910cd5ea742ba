// Shared helpers of the discovery tests: the captured discovery log, device answers as
// devices send them, and a loopback UDP endpoint that plays the devices' side.
#ifndef QXNET_TESTS_SEARCH_SEARCH_TEST_UTIL_H
#define QXNET_TESTS_SEARCH_SEARCH_TEST_UTIL_H

#include <arpa/inet.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "QXNetSDK.h"
#include "base/SDKSocket.h"
#include "base/UdpSocket.h"
#include "search/SearchLog.h"

namespace searchtest {

// ---- captured log lines of discovery
inline std::mutex& LogMutex() {
  static std::mutex m;
  return m;
}
inline std::vector<std::string>& LogStore() {
  static std::vector<std::string> v;
  return v;
}
inline void LogHook(int, const char* line) {
  std::lock_guard<std::mutex> g(LogMutex());
  LogStore().push_back(line);
}
inline void StartLog() {
  SetSearchLogHook(&LogHook);
  std::lock_guard<std::mutex> g(LogMutex());
  LogStore().clear();
}
inline std::vector<std::string> Log() {
  std::lock_guard<std::mutex> g(LogMutex());
  return LogStore();
}
inline size_t CountLog(const std::string& line) {
  size_t n = 0;
  for (const std::string& l : Log()) n += l == line;
  return n;
}
inline size_t CountLogPrefix(const std::string& head) {
  size_t n = 0;
  for (const std::string& l : Log()) n += l.compare(0, head.size(), head) == 0;
  return n;
}

// ---- device answers
struct Device {
  std::string uid = "UID0001";
  std::string hardwareType = "IPC";
  std::string productModel = "QX-100";
  std::string firmware = "1.2.3";
  std::string ip = "127.9.8.7";
  std::string mask = "255.255.255.0";
  std::string gateway = "127.9.8.1";
  std::string mac = "00:11:22:33:44:55";
  int rtspPort = 554;
  int httpPort = 80;
  std::string osd = "Front door";
  std::string user = "admin";
  std::string password = "pw";
  std::string group = "Administrators";
};

inline std::string Envelope(int cmd, const std::string& body, const std::string& result = "0") {
  return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n<cmd>" +
         std::to_string(cmd) + "</cmd>\n<result>" + result + "</result>\n</head>\n<body>\n" + body +
         "\n</body>\n</PrivateProto>";
}

inline std::string AnswerBody(const Device& d) {
  return "<hardwareType>" + d.hardwareType + "</hardwareType>\n<versionInfo>\n<productModel>" + d.productModel +
         "</productModel>\n<firmwareVersion>" + d.firmware + "</firmwareVersion>\n<UID>" + d.uid +
         "</UID>\n<sdkPlatform>linux</sdkPlatform>\n</versionInfo>\n<OsdStr>" + d.osd +
         "</OsdStr>\n<portConfig>\n<RTSPPort>" + std::to_string(d.rtspPort) + "</RTSPPort>\n<HTTPPort>" +
         std::to_string(d.httpPort) + "</HTTPPort>\n</portConfig>\n<TCPIP>\n<DHCPMode>0</DHCPMode>\n<IP>" + d.ip +
         "</IP>\n<netmask>" + d.mask + "</netmask>\n<gateway>" + d.gateway +
         "</gateway>\n<preferredDNS>8.8.8.8</preferredDNS>\n<standbyDNS></standbyDNS>\n<MAC>" + d.mac +
         "</MAC>\n</TCPIP>\n<userManagement>\n<userName>" + d.user + "</userName>\n<Password>" + d.password +
         "</Password>\n<Group>" + d.group + "</Group>\n</userManagement>";
}

inline std::string Answer(const Device& d) { return Envelope(30002, AnswerBody(d)); }

inline std::string SetupAnswer(int cmd, const std::string& uid, const std::string& token, const std::string& result) {
  return Envelope(cmd, "<UID>" + uid + "</UID>\n<token>" + token + "</token>", result);
}

// ---- a loopback endpoint
class Endpoint {
 public:
  explicit Endpoint(int port = 0) : m_sock(CreateUdpSocket()) {
    if (m_sock >= 0 && BindIPv4(m_sock, htonl(INADDR_LOOPBACK), static_cast<uint16_t>(port)) != 0) {
      CloseSocket(m_sock);
      m_sock = -1;
    }
  }
  ~Endpoint() {
    if (m_sock >= 0) CloseSocket(m_sock);
  }
  bool Ok() const { return m_sock >= 0; }
  int Port() const { return LocalPort(m_sock); }
  // One datagram within timeoutMs; false on timeout. The sender's port in *fromPort.
  bool Receive(std::string* text, int timeoutMs, int* fromPort = nullptr) {
    if (PollSocket(m_sock, false, timeoutMs) != 1) return false;
    std::vector<char> buf(70000);
    uint16_t port = 0;
    long n = UdpRecvFrom(m_sock, buf.data(), buf.size(), nullptr, &port);
    if (n < 0) return false;
    text->assign(buf.data(), static_cast<size_t>(n));
    if (fromPort) *fromPort = port;
    return true;
  }
  long SendTo(int port, const std::string& data) {
    return UdpSendTo(m_sock, data.data(), data.size(), htonl(INADDR_LOOPBACK), static_cast<uint16_t>(port));
  }

 private:
  int m_sock;
};

// ---- callback recording
struct CallbackEvent {
  long code;
  long index;
  std::string uid;
  int rtspPort;
};
struct Recorder {
  std::mutex m;
  std::vector<CallbackEvent> events;
  static long Cb(long code, long index, __NetSDK_IPC_ENTRYV2* e, void* user) {
    Recorder* r = static_cast<Recorder*>(user);
    std::lock_guard<std::mutex> g(r->m);
    r->events.push_back({code, index, e ? std::string(e->szUID) : std::string("(null)"), e ? e->portCfg.nRTSPPort : -1});
    return 0;
  }
  std::vector<CallbackEvent> Events() {
    std::lock_guard<std::mutex> g(m);
    return events;
  }
};

inline bool WaitUntil(const std::function<bool()>& pred, int ms) {
  auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!pred()) {
    if (std::chrono::steady_clock::now() >= end) return pred();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace searchtest

#endif
