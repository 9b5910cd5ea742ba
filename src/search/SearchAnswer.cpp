#include "search/SearchAnswer.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "search/SearchConfigXml.h"
#include "search/SearchLog.h"
#include "xml/XmlParse.h"
#include "xml/xmlutil.h"

namespace {
typedef std::map<std::string, std::string> TextMap;

// The body element of a message ("<body>...</body>") as a new text; null (logged) when
// there is none.
std::unique_ptr<char[]> BodyOf(const char* msg) {
  char* body = nullptr;
  if (GetMessageXMLBody(msg, &body) != 0 || !body) {
    SearchLog(1, "body is null\n");
    return nullptr;
  }
  return std::unique_ptr<char[]>(body);
}

bool ParseBody(TiXmlDocument& doc, const char* body) {
  if (ParseXmlText(doc, body) == XML_PARSE_OK && doc.RootElement()) return true;
  SearchLog(0, "[CSearchIPC] Invalid message, xml format error:\n%s\n", body);
  return false;
}

void Take(const TextMap& m, const char* key, char* dst, size_t size) {
  TextMap::const_iterator it = m.find(key);
  if (it != m.end()) CopyText(dst, size, it->second.c_str());
}

void ReadVersionInfo(__NetSDK_IPC_ENTRYV2* e, const TiXmlElement* info) {
  TextMap m;
  for (const TiXmlElement* c = info->FirstChildElement(); c; c = c->NextSiblingElement())
    m.insert(TextMap::value_type(c->Value(), GetNodeValue(c, nullptr)));
  const size_t model = sizeof(e->szProductModel);
  if (m.count("productModel")) Take(m, "productModel", e->szProductModel, model);
  else if (m.count("product_model_ext")) Take(m, "product_model_ext", e->szProductModel, model);
  else if (m.count("deviceType") && !m["deviceType"].empty()) Take(m, "deviceType", e->szProductModel, model);
  else if (m.count("deviceType")) Take(m, "product_model", e->szProductModel, model);
  if (m.count("firmwareVersion")) Take(m, "firmwareVersion", e->szFirmwareVersion, sizeof(e->szFirmwareVersion));
  else Take(m, "firmwaveVersion", e->szFirmwareVersion, sizeof(e->szFirmwareVersion));
  Take(m, "UID", e->szUID, sizeof(e->szUID));
  Take(m, "sdkPlatform", e->szSdkPlatform, sizeof(e->szSdkPlatform));
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

int ParseSearchAnswer(const char* msg, __NetSDK_IPC_ENTRYV2* e) {
  InitIpcEntry(e);
  std::unique_ptr<char[]> body = BodyOf(msg);
  if (!body) return -3;
  // One parse serves every reader: they all read the same body text.
  TiXmlDocument doc;
  if (!ParseBody(doc, body.get())) {
    SearchLog(0, "[CSearchIPC]serial number not found, msg=%s \n", msg);
    return -3;
  }
  const TiXmlElement* root = doc.RootElement();
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

int GetDeviceUID_TOKEN(char* uid, char* token, const char* msg) {
  uid[0] = token[0] = '\0';
  std::unique_ptr<char[]> body = BodyOf(msg);
  if (!body) return -3;
  TiXmlDocument doc;
  if (!ParseBody(doc, body.get())) {
    SearchLog(0, "[CSearchIPC]serial number not found, msg=%s \n", msg);
    return -3;
  }
  for (const TiXmlElement* c = doc.RootElement()->FirstChildElement(); c; c = c->NextSiblingElement()) {
    if (std::strcmp(c->Value(), "UID") == 0) CopyText(uid, 32, GetNodeValue(c, nullptr));
    if (std::strcmp(c->Value(), "token") == 0) CopyText(token, 32, GetNodeValue(c, nullptr));
  }
  return 0;
}
