#include "search/SearchAnswer.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "search/SearchConfigXml.h"
#include "search/SearchLog.h"
#include "xml/ParsedBody.h"
#include "xml/XmlParse.h"
#include "xml/xmlutil.h"

namespace {
bool ParseBody(TiXmlDocument& doc, const char* body) {
  if (ParseXmlText(doc, body) == XML_PARSE_OK && doc.RootElement()) return true;
  SearchLog(0, "[CSearchIPC] Invalid message, xml format error:\n%s\n", body);
  return false;
}

// The body of a message: the element of its whole parse when that reads exactly as the
// cut-out body would (no second parse), else the cut-out body parsed into `own`. Null,
// with the log lines of a missing or unreadable body, when there is none to read.
const TiXmlElement* BodyRoot(const char* msg, const TiXmlDocument* parsed, TiXmlDocument& own) {
  if (parsed)
    if (const TiXmlElement* body = ReusableBodyElement(msg, *parsed)) return body;
  char* text = nullptr;
  if (GetMessageXMLBody(msg, &text) != 0 || !text) {
    SearchLog(1, "body is null\n");
    return nullptr;
  }
  std::unique_ptr<char[]> body(text);
  if (ParseBody(own, body.get())) return own.RootElement();
  SearchLog(0, "[CSearchIPC]serial number not found, msg=%s \n", msg);
  return nullptr;
}

// The text of the first child element named `name`, or null when there is none (of
// duplicate names the first counts).
const char* ChildText(const TiXmlElement* parent, const char* name) {
  const TiXmlElement* c = parent->FirstChildElement(name);
  return c ? GetNodeValue(c, nullptr) : nullptr;
}

void TakeModel(__NetSDK_IPC_ENTRYV2* e, const TiXmlElement* info) {
  const char* model = ChildText(info, "productModel");
  if (!model) model = ChildText(info, "product_model_ext");
  if (!model) {
    // An empty deviceType names product_model instead; no deviceType leaves the model empty.
    const char* type = ChildText(info, "deviceType");
    model = type && !*type ? ChildText(info, "product_model") : type;
  }
  if (model) CopyText(e->szProductModel, sizeof(e->szProductModel), model);
}

void ReadVersionInfo(__NetSDK_IPC_ENTRYV2* e, const TiXmlElement* info) {
  TakeModel(e, info);
  const char* firmware = ChildText(info, "firmwareVersion");
  if (!firmware) firmware = ChildText(info, "firmwaveVersion");
  if (firmware) CopyText(e->szFirmwareVersion, sizeof(e->szFirmwareVersion), firmware);
  if (const char* uid = ChildText(info, "UID")) CopyText(e->szUID, sizeof(e->szUID), uid);
  if (const char* sdk = ChildText(info, "sdkPlatform")) CopyText(e->szSdkPlatform, sizeof(e->szSdkPlatform), sdk);
}

void ReadDeviceParam(__NetSDK_IPC_ENTRYV2* e, const TiXmlElement* root) {
  for (const TiXmlElement* c = root->FirstChildElement(); c; c = c->NextSiblingElement()) {
    if (std::strcmp(c->Value(), "hardwareType") == 0)
      CopyText(e->szHardwareType, sizeof(e->szHardwareType), GetNodeValue(c, nullptr));
    else if (std::strcmp(c->Value(), "versionInfo") == 0)
      ReadVersionInfo(e, c);
  }
}

void ReadOsdAndPorts(__NetSDK_IPC_ENTRYV2* e, const TiXmlElement* root) {
  e->portCfg.nRTSPPort = 0;
  e->portCfg.nHTTPPort = 0;
  for (const TiXmlElement* c = root->FirstChildElement(); c; c = c->NextSiblingElement()) {
    const std::string name = c->Value();
    if (name == "OsdStr") {
      CopyText(e->szOsdStr, 255, GetNodeValue(c, nullptr));  // at most 254 characters
    } else if (name == "portConfig" || name == "platformAccess") {
      for (const TiXmlElement* p = c->FirstChildElement(); p; p = p->NextSiblingElement()) {
        if (std::strcmp(p->Value(), "RTSPPort") == 0) e->portCfg.nRTSPPort = std::atoi(GetNodeValue(p, nullptr));
        if (std::strcmp(p->Value(), "HTTPPort") == 0) e->portCfg.nHTTPPort = std::atoi(GetNodeValue(p, nullptr));
      }
    }
  }
}

// The first account; the status receives the group text as well (the devices send no
// status of their own).
void ReadFirstAccount(__NetSDK_IPC_ENTRYV2* e, const TiXmlElement* root) {
  NetSDK_UserAccount& a = e->userCfg.accounts[0];
  for (const TiXmlElement* m = root->FirstChildElement("userManagement"); m;
       m = m->NextSiblingElement("userManagement")) {
    for (const TiXmlElement* c = m->FirstChildElement(); c; c = c->NextSiblingElement()) {
      const std::string name = c->Value();
      const char* text = GetNodeValue(c, nullptr);
      if (name == "userName") CopyText(a.szUserName, sizeof(a.szUserName), text);
      if (name == "Password") CopyText(a.szPassword, sizeof(a.szPassword), text);
      if (name == "Group") {
        CopyText(a.szGroup, sizeof(a.szGroup), text);
        CopyText(a.szStatus, sizeof(a.szStatus), text);
      }
    }
  }
}
}  // namespace

void InitIpcEntry(__NetSDK_IPC_ENTRYV2* entry) {
  std::memset(entry, 0, sizeof(*entry));
  entry->dwMagic = kIpcEntryMagic;
  entry->nVersion = kIpcEntryVersion;
}

#define QXNET_TERMINATE(field) (field)[sizeof(field) - 1] = '\0'
void TerminateIpcEntryTexts(__NetSDK_IPC_ENTRYV2* e) {
  QXNET_TERMINATE(e->szUID);
  QXNET_TERMINATE(e->szHardwareType);
  QXNET_TERMINATE(e->szProductModel);
  for (NetSDK_UserAccount& a : e->userCfg.accounts) {
    QXNET_TERMINATE(a.szUserName);
    QXNET_TERMINATE(a.szPassword);
    QXNET_TERMINATE(a.szGroup);
    QXNET_TERMINATE(a.szStatus);
  }
  NetSDK_LANConfig& l = e->lanCfg;
  QXNET_TERMINATE(l.szUserName);
  QXNET_TERMINATE(l.szPassword);
  QXNET_TERMINATE(l.szToken);
  QXNET_TERMINATE(l.szMAC);
  QXNET_TERMINATE(l.szIP);
  QXNET_TERMINATE(l.szNetmask);
  QXNET_TERMINATE(l.szGateway);
  QXNET_TERMINATE(l.szPreferredDNS);
  QXNET_TERMINATE(l.szStandbyDNS);
  QXNET_TERMINATE(e->szOsdStr);
  QXNET_TERMINATE(e->szFirmwareVersion);
  QXNET_TERMINATE(e->szSdkPlatform);
}
#undef QXNET_TERMINATE

int GetDeviceParam(__NetSDK_IPC_ENTRYV2* entry, const char* body) {
  TiXmlDocument doc;
  if (!ParseBody(doc, body)) return -3;
  ReadDeviceParam(entry, doc.RootElement());
  return 0;
}

bool IsKeptDeviceType(const __NetSDK_IPC_ENTRYV2& e) {
  char type[sizeof(e.szHardwareType) + 1];
  CopyText(type, sizeof(type), std::string(e.szHardwareType, strnlen(e.szHardwareType, sizeof(e.szHardwareType))).c_str());
  return std::strstr(type, "IPC") || std::strstr(type, "NVR");
}

int ParseSearchAnswer(const char* msg, __NetSDK_IPC_ENTRYV2* e, const TiXmlDocument* parsed) {
  InitIpcEntry(e);
  // One parse serves every reader: they all read the same body.
  TiXmlDocument own;
  const TiXmlElement* root = BodyRoot(msg, parsed, own);
  if (!root) return -3;
  ReadDeviceParam(e, root);
  if (!IsKeptDeviceType(*e)) {
    SearchLog(0, "[CSearchIPC] Found one device not NVS or DVS or DEC or DVR, type=%s, sn=%s\n",
              e->szProductModel, e->szUID);
    return -3;
  }
  ReadOsdAndPorts(e, root);
  ReadLANCfg(&e->lanCfg, root);
  ReadFirstAccount(e, root);
  return 0;
}

int GetDeviceUID_TOKEN(char* uid, char* token, const char* msg, const TiXmlDocument* parsed) {
  uid[0] = token[0] = '\0';
  TiXmlDocument own;
  const TiXmlElement* root = BodyRoot(msg, parsed, own);
  if (!root) return -3;
  for (const TiXmlElement* c = root->FirstChildElement(); c; c = c->NextSiblingElement()) {
    if (std::strcmp(c->Value(), "UID") == 0) CopyText(uid, 32, GetNodeValue(c, nullptr));
    if (std::strcmp(c->Value(), "token") == 0) CopyText(token, 32, GetNodeValue(c, nullptr));
  }
  return 0;
}
