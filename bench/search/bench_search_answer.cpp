// Handling cost of one discovery answer in process, no sockets: N distinct answers in the
// simulator's form (about 780 bytes each) through the head reader, the answer reader, and
// the whole datagram path (classification, reading, table, callback) for devices the table
// knows already and for new ones. Each figure is the median over the rounds of the mean
// per answer; "new" starts every round from an empty table whose records were made
// resident beforehand, as the search worker does before its first request (timed apart).
//   bench_search_answer [--devices 1000] [--rounds 30]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "QXNetSDK.h"
#include "search/SearchAnswer.h"
#include "search/SearchIPC.h"
#include "search/SearchProto.h"

namespace {

using Clock = std::chrono::steady_clock;

// One device's search answer as the simulator sends it.
std::string Answer(int i) {
  char uid[32], mac[32], ip[32];
  std::snprintf(uid, sizeof uid, "QXSIM%07d", i);
  std::snprintf(mac, sizeof mac, "02:51:58:%02X:%02X:%02X", (i >> 16) & 0xFF, (i >> 8) & 0xFF, i & 0xFF);
  std::snprintf(ip, sizeof ip, "10.77.%d.%d", 1 + i / 250, 1 + i % 250);
  std::string body = std::string("<hardwareType>IPC</hardwareType>\n<versionInfo>\n<productModel>QX-IPC") +
                     "</productModel>\n<firmwareVersion>V2.8.5 build 2407</firmwareVersion>\n<UID>" + uid +
                     "</UID>\n<sdkPlatform>linux</sdkPlatform>\n</versionInfo>\n<OsdStr>Device " + std::to_string(i) +
                     "</OsdStr>\n<portConfig>\n<RTSPPort>554</RTSPPort>\n<HTTPPort>80</HTTPPort>\n</portConfig>\n"
                     "<TCPIP>\n<DHCPMode>0</DHCPMode>\n<IP>" + ip +
                     "</IP>\n<netmask>255.255.0.0</netmask>\n<gateway>10.77.0.254</gateway>\n<preferredDNS>10.77.0.254"
                     "</preferredDNS>\n<standbyDNS></standbyDNS>\n<MAC>" + mac +
                     "</MAC>\n</TCPIP>\n<userManagement>\n<userName>admin</userName>\n<Password>admin</Password>\n"
                     "<Group>Administrator</Group>\n</userManagement>";
  return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n<cmd>30002"
         "</cmd>\n<result>0</result>\n</head>\n<body>\n" + body + "\n</body>\n</PrivateProto>";
}

long g_callbacks = 0;
long OnSearch(long, long, __NetSDK_IPC_ENTRYV2*, void*) { return ++g_callbacks; }

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

template <class F>
double UsPerAnswer(const std::vector<std::string>& answers, F f) {
  auto t0 = Clock::now();
  for (const std::string& a : answers) f(a);
  return std::chrono::duration<double, std::micro>(Clock::now() - t0).count() / answers.size();
}

std::string LoadAverage() {
  std::ifstream f("/proc/loadavg");
  std::string a, b, c;
  f >> a >> b >> c;
  return a + " " + b + " " + c;
}

}  // namespace

int main(int argc, char** argv) {
  int devices = 1000, rounds = 30;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (!std::strcmp(argv[i], "--devices")) devices = std::max(1, std::min(1000, std::atoi(argv[i + 1])));
    if (!std::strcmp(argv[i], "--rounds")) rounds = std::max(1, std::atoi(argv[i + 1]));
  }
  std::vector<std::string> answers;
  size_t bytes = 0;
  for (int i = 0; i < devices; ++i) {
    answers.push_back(Answer(i));
    bytes += answers.back().size();
  }
  std::printf("bench_search_answer: %d answers of %zu bytes on average, %d rounds, load average %s\n", devices,
              bytes / answers.size(), rounds, LoadAverage().c_str());

  std::vector<double> head, answer, known, fresh, reserve;
  CSearchIPC search;
  search.SetSearchStatusCallBack(&OnSearch, nullptr);
  for (int r = 0; r < rounds; ++r) {
    head.push_back(UsPerAnswer(answers, [](const std::string& a) {
      SearchHead h;
      ClassifySearchDatagram(a.c_str(), &h);
    }));
    answer.push_back(UsPerAnswer(answers, [](const std::string& a) {
      __NetSDK_IPC_ENTRYV2 e;
      ParseSearchAnswer(a.c_str(), &e);
    }));
    search.ClearIPCInfo();
    // What the worker does before its first request: map the records and make them resident.
    auto r0 = Clock::now();
    search.Table().Reserve();
    reserve.push_back(std::chrono::duration<double, std::micro>(Clock::now() - r0).count());
    long before = g_callbacks;
    fresh.push_back(UsPerAnswer(answers, [&search](const std::string& a) {
      search.HandleDatagram(a.c_str(), static_cast<int>(a.size()));
    }));
    if (search.GetIPCCount() != devices || g_callbacks - before != devices) {
      std::fprintf(stderr, "new devices: %d in the table, %ld callbacks, expected %d\n", search.GetIPCCount(),
                   g_callbacks - before, devices);
      return 1;
    }
    before = g_callbacks;
    known.push_back(UsPerAnswer(answers, [&search](const std::string& a) {
      search.HandleDatagram(a.c_str(), static_cast<int>(a.size()));
    }));
    if (g_callbacks != before) {
      std::fprintf(stderr, "known devices raised %ld callbacks\n", g_callbacks - before);
      return 1;
    }
  }
  std::printf("head reader (ClassifySearchDatagram)  %6.2f us per answer\n", Median(head));
  std::printf("answer reader (ParseSearchAnswer)     %6.2f us per answer\n", Median(answer));
  std::printf("datagram, known device, same content  %6.2f us per answer\n", Median(known));
  std::printf("datagram, new device (empty table)    %6.2f us per answer\n", Median(fresh));
  std::printf("table's records made resident, once   %6.0f us per search\n", Median(reserve));
  std::printf("load average after: %s\n", LoadAverage().c_str());
  return 0;
}
