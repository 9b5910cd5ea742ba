// Throughput of the XML layer on one core, beside TinyXML's bare parse of the same text.
// Prints figures only; nothing is asserted. Usage: xml_bench [seconds per figure, default 1]
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <string>

#include <tinyxml.h>

#include "xml/xmlutil.h"

namespace {

double Now() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

volatile long g_sink;

// Runs fn in batches until `seconds` have passed; returns calls per second.
template <typename Fn>
double Rate(double seconds, Fn fn) {
  for (int i = 0; i < 1000; ++i) fn();  // warm up
  long calls = 0;
  double start = Now(), elapsed = 0;
  do {
    for (int i = 0; i < 1000; ++i) fn();
    calls += 1000;
    elapsed = Now() - start;
  } while (elapsed < seconds);
  return static_cast<double>(calls) / elapsed;
}

void Report(const char* what, double ours, double bare) {
  printf("%-44s %12.0f /s   bare TinyXML parse %12.0f /s   ratio %.2f\n", what, ours, bare, ours / bare);
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = argc > 1 ? atof(argv[1]) : 1.0;
  if (seconds <= 0) seconds = 1.0;
  // One core: keep the process on the CPU it starts on.
  cpu_set_t set;
  CPU_ZERO(&set);
  int cpu = sched_getcpu();
  if (cpu >= 0) {
    CPU_SET(cpu, &set);
    sched_setaffinity(0, sizeof(set), &set);
  }

  const std::string answer =
      "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>10000</type>\n<cmd>14002</cmd>\n"
      "<result>0</result>\n</head>\n<body>\n<NetConfig>\n<IPAddress>127.168.1.64</IPAddress>\n"
      "<SubnetMask>255.255.255.0</SubnetMask>\n<Gateway>127.168.1.1</Gateway>\n<HttpPort>80</HttpPort>\n"
      "</NetConfig>\n</body>\n</PrivateProto>";
  const std::string media =
      "<?xml version=\"1.0\" encoding=\"utf-8\" ?><PrivateProto><head><type>90000</type><cmd>90001</cmd>"
      "<result>0</result></head><body><dataLen>1234</dataLen></body></PrivateProto>";

  // TinyXML's bare parse with its defaults (row and column tracking on).
  auto bare = [](const std::string& text) {
    return [&text]() {
      TiXmlDocument doc;
      doc.Parse(text.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
      g_sink = doc.Error();
    };
  };
  // The same without row and column tracking, which is how the layer parses.
  auto bareNoTabs = [](const std::string& text) {
    return [&text]() {
      TiXmlDocument doc;
      doc.SetTabSize(0);
      doc.Parse(text.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
      g_sink = doc.Error();
    };
  };

  printf("XML layer, one core, %.1f s per figure\n", seconds);
  printf("typical answer: %zu bytes; media pack header: %zu bytes\n\n", answer.size(), media.size());

  double bareAnswer = Rate(seconds, bare(answer));
  double header = Rate(seconds, [&]() {
    char t[256], c[256], r[256];
    g_sink = GetMessageHeader(answer.c_str(), t, sizeof(t), c, sizeof(c), r, sizeof(r));
  });
  Report("GetMessageHeader, typical answer", header, bareAnswer);

  double bareMedia = Rate(seconds, bare(media));
  double mediaHeader = Rate(seconds, [&]() {
    char t[256], c[256], r[256];
    g_sink = GetMessageHeader(media.c_str(), t, sizeof(t), c, sizeof(c), r, sizeof(r));
  });
  Report("GetMessageHeader, media message", mediaHeader, bareMedia);
  double posLen = Rate(seconds, [&]() {
    int64_t pos;
    long len;
    GetXmlPosAndDataLen(media.c_str(), &pos, &len);
    g_sink = len;
  });
  Report("GetXmlPosAndDataLen, media message", posLen, bareMedia);
  double pack = Rate(seconds, [&]() {
    char t[256], c[256], r[256];
    int64_t pos;
    long len;
    GetMessageHeader(media.c_str(), t, sizeof(t), c, sizeof(c), r, sizeof(r));
    GetXmlPosAndDataLen(media.c_str(), &pos, &len);
    g_sink = len;
  });
  Report("media pack (header + GetXmlPosAndDataLen)", pack, bareMedia);

  double build = Rate(seconds, [&]() {
    char out[1024];
    g_sink = MakeXMLRequest(out, sizeof(out), "10000", "14012", "0", "<userName>admin</userName>", -1);
  });
  printf("%-44s %12.0f /s\n", "MakeXMLRequest, buffer form", build);

  printf("\nbare TinyXML parse without row/column tracking: typical answer %.0f /s, media message %.0f /s\n",
         Rate(seconds, bareNoTabs(answer)), Rate(seconds, bareNoTabs(media)));
  return 0;
}
