// The LAN devices' side of discovery: search answers (30002), modify (30003 -> 30004) and
// restore (30005 -> 30006), sent back to the requester's address and port.
#include "lan.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "proto.h"

namespace devsim {

namespace {

const size_t kMaxDatagram = 65536;

std::string ipPlus(const std::string& first, int k) {
  in_addr a{};
  inet_pton(AF_INET, first.c_str(), &a);
  a.s_addr = htonl(ntohl(a.s_addr) + static_cast<uint32_t>(k));
  char b[INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &a, b, sizeof b);
  return b;
}

LanDevice makeDevice(const LanOptions& o, int i) {
  LanDevice d;
  d.index = i;
  char uid[32], mac[32], tokenText[32];
  snprintf(uid, sizeof uid, "QXSIM%07d", i);
  snprintf(mac, sizeof mac, "02:51:58:%02X:%02X:%02X", (i >> 16) & 0xFF, (i >> 8) & 0xFF, i & 0xFF);
  snprintf(tokenText, sizeof tokenText, "tk%08x", 0x5a17u * static_cast<unsigned>(i + 1));
  const std::string& hw = o.kinds[static_cast<size_t>(i) % o.kinds.size()];
  d.f = {{"uid", uid}, {"hw", hw}, {"model", "QX-" + hw}, {"ip", ipPlus(o.firstIp, i)},
         {"mask", o.mask}, {"gw", o.gateway}, {"dns1", o.gateway}, {"dns2", ""},
         {"mac", mac}, {"osd", "Device " + std::to_string(i)}, {"fw", "V2.8.5 build 2407"},
         {"sdk", "linux"}, {"token", tokenText}, {"user", "admin"}, {"pass", "admin"},
         {"group", "Administrator"}, {"rtsp", "554"}, {"http", "80"}, {"dhcp", "0"}};
  for (const char* k : {"ip", "mask", "gw", "dns1", "dns2", "dhcp"}) d.factory[k] = d.f[k];
  return d;
}

bool splitAddr(const std::string& s, sockaddr_in& sa) {
  size_t c = s.rfind(':');
  if (c == std::string::npos) return false;
  memset(&sa, 0, sizeof sa);
  sa.sin_family = AF_INET;
  long long port;
  if (!parseInt(s.substr(c + 1), port) || port < 1 || port > 65535) return false;
  sa.sin_port = htons(static_cast<uint16_t>(port));
  return inet_pton(AF_INET, s.substr(0, c).c_str(), &sa.sin_addr) == 1;
}

void pauseUs(long long us) {
  if (us <= 0) return;
  timespec ts{static_cast<time_t>(us / 1000000), static_cast<long>((us % 1000000) * 1000)};
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {}
}

}  // namespace

std::string lanEnvelope(const std::string& cmd, long long result, const std::string& body) {
  return envelope("30000", cmd, std::to_string(result), body);
}

LanNet::LanNet(const LanOptions& o) : opt_(o) {
  if (opt_.kinds.empty()) opt_.kinds.push_back("IPC");
  for (int i = 0; i < o.devices; ++i) devices.push_back(makeDevice(opt_, i));
}

LanNet::~LanNet() {
  if (fd_ >= 0) close(fd_);
}

bool LanNet::open(std::string& err) {
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(opt_.listenPort);
  if (inet_pton(AF_INET, opt_.listenHost.c_str(), &sa.sin_addr) != 1) return err = "bad --lan-listen", false;
  fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd_ < 0) return err = std::string("socket: ") + strerror(errno), false;
  int one = 1, big = 4 << 20;
  setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  setsockopt(fd_, SOL_SOCKET, SO_BROADCAST, &one, sizeof one);
  setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &big, sizeof big);
  if (bind(fd_, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0)
    return err = "bind " + opt_.listenHost + ":" + std::to_string(opt_.listenPort) + ": " + strerror(errno), false;
  socklen_t len = sizeof sa;
  getsockname(fd_, reinterpret_cast<sockaddr*>(&sa), &len);
  port_ = ntohs(sa.sin_port);
  return true;
}

void LanNet::onReadable() {
  static char buf[kMaxDatagram + 1];
  for (int i = 0; i < 1000; ++i) {  // a bounded batch, so the control channel is served too
    sockaddr_in from{};
    socklen_t len = sizeof from;
    ssize_t n = recvfrom(fd_, buf, kMaxDatagram, 0, reinterpret_cast<sockaddr*>(&from), &len);
    if (n < 0) return;
    char a[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &from.sin_addr, a, sizeof a);
    handle(buf, static_cast<size_t>(n), std::string(a) + ":" + std::to_string(ntohs(from.sin_port)));
  }
}

void LanNet::handle(const char* data, size_t n, const std::string& from) {
  Message m = parseMessage(data, n);
  LanRequest r{m.hasHead ? m.cmd : "?", m.body, from, n};
  counts[r.cmd]++;
  requests.push_back(r);
  while (requests.size() > 10000) requests.pop_front();
  if (m.cmd == "30001") {
    lastSearcher_ = from;
    answerSearch(from);
  } else if (m.cmd == "30003" || m.cmd == "30005") {
    handleChange(m.cmd, m.body, from);
  }
}

long long LanNet::sendTo(const std::string& datagram, const std::string& to) {
  sockaddr_in sa;
  if (!splitAddr(to, sa)) return -1;
  for (int tries = 0; tries < 1000; ++tries) {
    ssize_t w = sendto(fd_, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr*>(&sa), sizeof sa);
    if (w >= 0) {
      stats["sent"]++;
      return w;
    }
    if (errno != EAGAIN && errno != ENOBUFS) break;
    pollfd p{fd_, POLLOUT, 0};
    poll(&p, 1, 10);
  }
  stats["send_failed"]++;
  return -1;
}

std::string LanNet::searchAnswer(const LanDevice& d) const {
  auto g = [&d](const char* k) {
    auto it = d.f.find(k);
    return it == d.f.end() ? std::string() : it->second;
  };
  std::string b = "<hardwareType>" + g("hw") + "</hardwareType>\n<versionInfo>\n<productModel>" + g("model") +
                  "</productModel>\n<firmwareVersion>" + g("fw") + "</firmwareVersion>\n<UID>" + g("uid") +
                  "</UID>\n<sdkPlatform>" + g("sdk") + "</sdkPlatform>\n</versionInfo>\n<OsdStr>" + g("osd") +
                  "</OsdStr>\n<portConfig>\n<RTSPPort>" + g("rtsp") + "</RTSPPort>\n<HTTPPort>" + g("http") +
                  "</HTTPPort>\n</portConfig>\n<TCPIP>\n<DHCPMode>" + g("dhcp") + "</DHCPMode>\n<IP>" + g("ip") +
                  "</IP>\n<netmask>" + g("mask") + "</netmask>\n<gateway>" + g("gw") + "</gateway>\n<preferredDNS>" +
                  g("dns1") + "</preferredDNS>\n<standbyDNS>" + g("dns2") + "</standbyDNS>\n<MAC>" + g("mac") +
                  "</MAC>\n</TCPIP>\n<userManagement>\n<userName>" + g("user") + "</userName>\n<Password>" +
                  g("pass") + "</Password>\n<Group>" + g("group") + "</Group>\n</userManagement>";
  return lanEnvelope("30002", 0, b);
}

void LanNet::answerSearch(const std::string& to) {
  for (const LanDevice& d : devices) {
    if (d.mute) continue;
    std::string a = searchAnswer(d);
    for (int k = 0; k < d.repeat; ++k) {
      sendTo(a, to);
      pauseUs(paceUs);
    }
  }
}

LanDevice* LanNet::byUid(const std::string& uid) {
  for (LanDevice& d : devices)
    if (d.f["uid"] == uid) return &d;
  return nullptr;
}

// 0 accepted; -1 the device wants credentials and they do not match.
long long LanNet::changeResult(const LanDevice& d, const std::string& body) const {
  if (d.forcedResult != LLONG_MIN) return d.forcedResult;
  if (!d.requireAuth) return 0;
  std::string token, user, pass;
  tagText(body, "token", token);
  tagText(body, "userName", user);
  tagText(body, "password", pass);
  bool ok = token == d.f.at("token") && user == d.f.at("user") && pass == d.f.at("pass");
  return ok ? 0 : -1;
}

void LanNet::applyModify(LanDevice& d, const std::string& body) {
  static const std::pair<const char*, const char*> fields[] = {
      {"IP", "ip"}, {"netmask", "mask"}, {"gateway", "gw"}, {"preferredDNS", "dns1"},
      {"standbyDNS", "dns2"}, {"DHCPMode", "dhcp"}};
  std::string tcpip, v;
  if (!tagText(body, "TCPIP", tcpip)) return;
  for (auto& f : fields)
    if (tagText(tcpip, f.first, v) && (!v.empty() || std::string(f.second) == "dns2")) d.f[f.second] = v;
}

void LanNet::handleChange(const std::string& cmd, const std::string& body, const std::string& from) {
  std::string uid;
  tagText(body, "UID", uid);
  LanDevice* d = byUid(uid);
  if (!d) {
    stats["unknown_uid"]++;
    return;
  }
  long long result = changeResult(*d, body);
  if (result == 0 && cmd == "30003") applyModify(*d, body);
  if (result == 0 && cmd == "30005")
    for (auto& kv : d->factory) d->f[kv.first] = kv.second;
  stats[cmd == "30003" ? "modified" : "restored"] += result == 0;
  if (d->mute) return;
  std::string answerBody = "<UID>" + uid + "</UID>\n<token>" + d->f["token"] + "</token>";
  sendTo(lanEnvelope(cmd == "30003" ? "30004" : "30006", result, answerBody), from);
}

}  // namespace devsim
