// libFuzzer targets over every reader of a discovery datagram. Built once per reader
// (QXNET_FUZZ_READER): the reader reads every input and the properties of its result are
// checked; "datagram" runs the whole receive path (classification, table, callback) on one
// long-lived discovery object, as a worker does for every answer of the LAN.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "search/SearchAnswer.h"
#include "search/SearchConfigXml.h"
#include "search/SearchIPC.h"
#include "search/SearchLog.h"
#include "search/SearchProto.h"

#ifndef QXNET_FUZZ_READER
#define QXNET_FUZZ_READER "datagram"
#endif

namespace {

void Check(bool ok, const char* what) {
  if (!ok) {
    fprintf(stderr, "property broken: %s\n", what);
    __builtin_trap();
  }
}

template <size_t N>
bool Terminated(const char (&field)[N]) {
  return memchr(field, '\0', N) != nullptr;
}

void CheckEntry(const __NetSDK_IPC_ENTRYV2& e) {
  Check(e.dwMagic == 0x01020304u && e.nVersion == 1001, "record constants");
  Check(Terminated(e.szUID) && Terminated(e.szHardwareType) && Terminated(e.szProductModel), "identity texts");
  Check(Terminated(e.lanCfg.szIP) && Terminated(e.lanCfg.szMAC) && Terminated(e.lanCfg.szStandbyDNS), "lan texts");
  Check(strlen(e.szOsdStr) <= 254, "osd text");
  Check(Terminated(e.userCfg.accounts[0].szStatus) && Terminated(e.szSdkPlatform), "other texts");
}

void RunClassify(const std::string& text) {
  SearchHead h;
  memset(&h, 0x5A, sizeof(h));
  SearchDatagramKind k = ClassifySearchDatagram(text.c_str(), &h);
  Check(Terminated(h.type) && Terminated(h.cmd) && Terminated(h.result), "head fields");
  if (k != SEARCH_DG_DROPPED) Check(h.type[0] && h.cmd[0] && h.result[0], "accepted head is complete");
}

std::vector<std::string>* g_log = nullptr;
void LogLine(int level, const char* line) {
  if (g_log) g_log->push_back(std::to_string(level) + line);
}

// Reads the answer on its own parse of the body, and, when the head reader accepts the
// text, once more from the head reader's parse: both must give the same record, result
// and log lines.
void RunAnswer(const std::string& text) {
  static bool hooked = (SetSearchLogHook(&LogLine), true);
  (void)hooked;
  std::vector<std::string> ownLog, sharedLog;
  __NetSDK_IPC_ENTRYV2 e;
  g_log = &ownLog;
  int rc = ParseSearchAnswer(text.c_str(), &e);
  g_log = nullptr;
  Check(rc == 0 || rc == -3, "answer result");
  CheckEntry(e);
  if (rc == 0) Check(IsKeptDeviceType(e), "kept type");
  SearchHead h;
  TiXmlDocument doc;
  if (ClassifySearchDatagram(text.c_str(), &h, &doc) == SEARCH_DG_DROPPED) return;
  __NetSDK_IPC_ENTRYV2 shared;
  g_log = &sharedLog;
  int rcShared = ParseSearchAnswer(text.c_str(), &shared, &doc);
  g_log = nullptr;
  Check(rcShared == rc && memcmp(&shared, &e, sizeof(e)) == 0, "shared parse reads as the body's own");
  Check(sharedLog == ownLog, "shared parse logs as the body's own");
}

void RunSetupAnswer(const std::string& text) {
  char uid[32], token[32];
  int rc = GetDeviceUID_TOKEN(uid, token, text.c_str());
  Check(rc == 0 || rc == -3, "setup answer result");
  Check(strlen(uid) < 32 && strlen(token) < 32, "uid and token");
  SearchHead h;
  TiXmlDocument doc;
  if (ClassifySearchDatagram(text.c_str(), &h, &doc) == SEARCH_DG_DROPPED) return;
  char uid2[32], token2[32];
  int rc2 = GetDeviceUID_TOKEN(uid2, token2, text.c_str(), &doc);
  Check(rc2 == rc && !strcmp(uid, uid2) && !strcmp(token, token2), "shared parse reads the setup answer alike");
}

void RunLanCfg(const std::string& text) {
  NetSDK_LANConfig c;
  int rc = Network_getLANCfgByXml(&c, text.c_str());
  Check(rc == 0 || rc == -1, "lan result");
  Check(Terminated(c.szIP) && Terminated(c.szMAC) && Terminated(c.szGateway), "lan texts");
  Check(c.szToken[0] == '\0' && c.nLastResult == 0, "credentials cleared");
}

long Callback(long code, long index, __NetSDK_IPC_ENTRYV2* e, void*) {
  Check(code >= 1 && code <= 4 && index >= 0 && index < 1000 && e, "callback arguments");
  CheckEntry(*e);
  return 0;
}

void RunDatagram(const std::string& text) {
  static CSearchIPC* search = [] {
    CSearchIPC* s = new CSearchIPC;
    s->SetSearchStatusCallBack(&Callback, nullptr);
    return s;
  }();
  std::string cut = text.substr(0, kSearchMsgSize);
  Check(search->HandleDatagram(cut.c_str(), static_cast<int>(cut.size())) == 0, "datagram result");
  int n = search->GetIPCCount();
  Check(n >= 0 && n <= 1000, "table bound");
  if (n > 0) {
    char xml[kSearchMsgSize];
    int len = search->GetIPCInfoXML(n - 1, xml, sizeof(xml));
    Check(len > 0 && static_cast<size_t>(len) == strlen(xml), "record as xml");
  }
}

typedef void (*Runner)(const std::string&);
Runner Selected() {
  static const Runner r = [] {
    const char* name = QXNET_FUZZ_READER;
    if (!strcmp(name, "classify")) return &RunClassify;
    if (!strcmp(name, "answer")) return &RunAnswer;
    if (!strcmp(name, "setup_answer")) return &RunSetupAnswer;
    if (!strcmp(name, "lancfg")) return &RunLanCfg;
    if (!strcmp(name, "datagram")) return &RunDatagram;
    fprintf(stderr, "no reader called %s\n", name);
    __builtin_trap();
  }();
  return r;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Selected();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A received datagram is read as NUL-terminated text.
  std::string text(reinterpret_cast<const char*>(data), size);
  text.resize(strlen(text.c_str()));
  Selected()(text);
  return 0;
}
