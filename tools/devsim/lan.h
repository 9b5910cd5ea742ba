// A LAN of discoverable devices: one UDP socket (port 2018 by default) answering the
// library's search requests as N devices, and its modify and restore requests for the
// device named by UID. Faults on demand: floods, repeats, malformed and oversized
// answers. Driven by the LAN control verb (ctl_lan.cpp).
#pragma once

#include <climits>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

namespace devsim {

struct LanOptions {
  int devices = 0;                    // 0: no LAN socket at all
  std::string listenHost = "0.0.0.0";
  uint16_t listenPort = 2018;
  std::string firstIp = "127.168.1.100";  // advertised addresses: consecutive from here
  std::string mask = "255.255.255.0";
  std::string gateway = "127.168.1.1";
  // Hardware types, cycled over the devices: IPC and NVR ones are kept by the library,
  // the others are filtered out.
  std::vector<std::string> kinds = {"IPC-2M", "IPC-2M", "IPC-4M", "IPC-2M", "IPC-2M",
                                    "IPC-8M", "IPC-2M", "IPC-2M", "NVR-16", "NVS"};
};

struct LanDevice {
  int index = 0;
  std::map<std::string, std::string> f;  // uid hw model ip mask gw dns1 dns2 mac osd fw
                                         // sdk token user pass group rtsp http dhcp
  std::map<std::string, std::string> factory;  // the network fields a restore brings back
  bool requireAuth = false;   // modify / restore need token, user and password
  long long forcedResult = LLONG_MIN;  // answer with this result whatever the request
  bool mute = false;          // no answers at all
  int repeat = 1;             // answers per search request
};

struct LanRequest {
  std::string cmd, body, from;
  size_t size = 0;
};

class LanNet {
 public:
  explicit LanNet(const LanOptions& o);
  ~LanNet();
  bool open(std::string& err);
  int fd() const { return fd_; }
  uint16_t port() const { return port_; }
  void onReadable();

  // Answers and faults (also used by the control verb).
  std::string searchAnswer(const LanDevice& d) const;
  long long sendTo(const std::string& datagram, const std::string& to);  // bytes or -1
  std::string defaultTarget() const { return lastSearcher_; }
  void answerSearch(const std::string& to);

  std::vector<LanDevice> devices;
  std::deque<LanRequest> requests;   // the newest 10000
  std::map<std::string, long long> counts;  // by cmd ("?" when unreadable)
  std::map<std::string, long long> stats;
  long long paceUs = 0;              // pause between the answers of one burst

 private:
  void handle(const char* data, size_t n, const std::string& from);
  void handleChange(const std::string& cmd, const std::string& body, const std::string& from);
  LanDevice* byUid(const std::string& uid);
  long long changeResult(const LanDevice& d, const std::string& body) const;
  void applyModify(LanDevice& d, const std::string& body);

  LanOptions opt_;
  int fd_ = -1;
  uint16_t port_ = 0;
  std::string lastSearcher_;
};

// Datagram text of a discovery message: the device's envelope, type 30000.
std::string lanEnvelope(const std::string& cmd, long long result, const std::string& body);

}  // namespace devsim
