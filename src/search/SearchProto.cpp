#include "search/SearchProto.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "search/SearchLog.h"
#include "xml/XmlParse.h"
#include "xml/XmlPath.h"
#include "xml/xmlutil.h"

char g_strVendorId[64] = "";

namespace {
const char kNoBody[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n<cmd>%d</cmd>\n"
    "<result>0</result>\n</head>\n<body>\n</body>\n</PrivateProto>";
const char kNoBodyVendor[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n<cmd>%d</cmd>\n"
    "<result>0</result>\n</head>\n<body>\n<VENDOR_PARAM VendorId=\"%s\" />\n</body>\n</PrivateProto>";
const char kBody[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n<cmd>%d</cmd>\n"
    "<result>0</result>\n</head>\n<body>\n%s\n</body>\n</PrivateProto>";
const char kBodyVendor[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n<cmd>%d</cmd>\n"
    "<result>0</result>\n</head>\n<body>\n%s\n<VENDOR_PARAM VendorId=\"%s\" />\n</body>\n</PrivateProto>";

// Copies the head's type, cmd and result; false when the text does not parse or has no
// head under its root.
bool ReadHead(const char* text, SearchHead* head, TiXmlDocument& doc) {
  bool parsed = ParseXmlText(doc, text) == XML_PARSE_OK;
  if (!parsed) SearchLog(0, "[CSearchIPC] Invalid message, xml format error:\n%s\n", text);
  TiXmlElement* root = doc.RootElement();
  if (!root || !SelectNode(root, "head")) {
    SearchLog(0, "[CSearchIPC] select head node failed:\n%s\n", text);
    return false;
  }
  for (TiXmlElement* h = root->FirstChildElement(); h; h = h->NextSiblingElement()) {
    if (std::strcmp(h->Value(), "head") != 0) continue;
    for (TiXmlElement* f = h->FirstChildElement(); f; f = f->NextSiblingElement()) {
      const char* name = f->Value();
      if (std::strcmp(name, "type") == 0) CopyText(head->type, sizeof(head->type), GetNodeValue(f, nullptr));
      if (std::strcmp(name, "cmd") == 0) CopyText(head->cmd, sizeof(head->cmd), GetNodeValue(f, nullptr));
      if (std::strcmp(name, "result") == 0) CopyText(head->result, sizeof(head->result), GetNodeValue(f, nullptr));
    }
  }
  return parsed;
}
}  // namespace

int FormatSearchRequest(char* out, size_t size, int cmd, const char* body, const char* vendorId) {
  if (!out || size == 0) return -1;
  bool vendor = vendorId && vendorId[0];
  int n;
  if (!body)
    n = vendor ? std::snprintf(out, size, kNoBodyVendor, cmd, vendorId) : std::snprintf(out, size, kNoBody, cmd);
  else
    n = vendor ? std::snprintf(out, size, kBodyVendor, cmd, body, vendorId) : std::snprintf(out, size, kBody, cmd, body);
  if (n < 0 || static_cast<size_t>(n) >= size) {
    out[0] = '\0';
    return -1;
  }
  return n;
}

SearchDatagramKind ClassifySearchDatagram(const char* text, SearchHead* head) {
  TiXmlDocument doc;
  return ClassifySearchDatagram(text, head, &doc);
}

SearchDatagramKind ClassifySearchDatagram(const char* text, SearchHead* head, TiXmlDocument* doc) {
  head->type[0] = head->cmd[0] = head->result[0] = '\0';
  bool envelope = true;
  if (!std::strstr(text, "<PrivateProto>")) {
    SearchLog(0, "[CSearchIPC] Invalid message, <PrivateProto> not found:\n%s\n", text);
    envelope = false;
  } else if (!std::strstr(text, "</PrivateProto>")) {
    SearchLog(0, "[CSearchIPC] Invalid message, </PrivateProto> not found:\n%s\n", text);
    envelope = false;
  }
  if (!envelope || !ReadHead(text, head, *doc) || !head->type[0] || !head->cmd[0] || !head->result[0]) {
    SearchLog(0, "[CSearchIPC] get message header faile.recv message: %s\n", text);
    return SEARCH_DG_DROPPED;
  }
  int cmd = std::atoi(head->cmd);
  if (cmd == SEARCH_CMD_SEARCH_ANSWER) return SEARCH_DG_SEARCH_ANSWER;
  if (cmd == SEARCH_CMD_MODIFY_ANSWER || cmd == SEARCH_CMD_RESTORE_ANSWER) return SEARCH_DG_SETUP_ANSWER;
  SearchLog(0, "[CSearchIPC] recv message: %s\n", text);
  return SEARCH_DG_OTHER;
}
