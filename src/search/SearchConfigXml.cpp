#include "search/SearchConfigXml.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "search/SearchLog.h"
#include "xml/XmlParse.h"
#include "xml/xmlutil.h"

namespace {
const char kLanWithCreds[] =
    "<UID>%s</UID>\r\n<token>%s</token>\r\n<userName>%s</userName>\r\n<password>%s</password>\r\n<TCPIP>\r\n"
    "<DHCPMode>%d</DHCPMode>\r\n<IP>%s</IP>\r\n<netmask>%s</netmask>\r\n<gateway>%s</gateway>\r\n"
    "<preferredDNS>%s</preferredDNS>\r\n<standbyDNS>%s</standbyDNS>\r\n<MAC>%s</MAC>\r\n</TCPIP>\r\n";
const char kLanNoCreds[] =
    "<UID>%s</UID>\r\n<TCPIP>\r\n<DHCPMode>%d</DHCPMode>\r\n<IP>%s</IP>\r\n<netmask>%s</netmask>\r\n"
    "<gateway>%s</gateway>\r\n<preferredDNS>%s</preferredDNS>\r\n<standbyDNS>%s</standbyDNS>\r\n<MAC>%s</MAC>\r\n"
    "</TCPIP>\r\n";
const char kRestoreWithCreds[] = "<UID>%s</UID>\r\n<token>%s</token>\r\n<userName>%s</userName>\r\n<password>%s</password>\r\n";
const char kRestoreNoCreds[] = "<UID>%s</UID>";
const char kAccount[] = "<Account\r\n Username=\"%s\"\r\n Password=\"%s\"\r\n Group=\"%s\"\r\n Status=\"%s\"\r\n />\r\n";

// Record fields are fixed arrays that may arrive without a NUL from the caller: print at
// most the array's width.
#define FIELD(a) static_cast<int>(strnlen(a, sizeof(a))), a

// A template with every "%s" turned into "%.*s", for the FIELD arguments.
std::string Bounded(const char* fmt) {
  std::string out = fmt;
  for (size_t p = 0; (p = out.find("%s", p)) != std::string::npos; p += 4) out.replace(p, 2, "%.*s");
  return out;
}

bool HasCreds(const NetSDK_LANConfig* c) {
  return c->szToken[0] && c->szUserName[0] && c->szPassword[0];
}

void CopyChild(char* dst, size_t size, const TiXmlElement* e) { CopyText(dst, size, GetNodeValue(e, nullptr)); }
}  // namespace

void ReadLANCfg(NetSDK_LANConfig* cfg, const TiXmlElement* root) {
  std::memset(cfg, 0, sizeof(*cfg));
  const TiXmlElement* tcpip = root ? root->FirstChildElement("TCPIP") : nullptr;
  if (!tcpip) return;
  for (const TiXmlElement* e = tcpip->FirstChildElement(); e; e = e->NextSiblingElement()) {
    const std::string name = e->Value();
    if (name == "DHCPMode") cfg->nDHCPMode = std::atoi(GetNodeValue(e, nullptr));
    else if (name == "IP") CopyChild(cfg->szIP, sizeof(cfg->szIP), e);
    else if (name == "netmask") CopyChild(cfg->szNetmask, sizeof(cfg->szNetmask), e);
    else if (name == "gateway") CopyChild(cfg->szGateway, sizeof(cfg->szGateway), e);
    else if (name == "preferredDNS") CopyChild(cfg->szPreferredDNS, sizeof(cfg->szPreferredDNS), e);
    else if (name == "standbyDNS") CopyChild(cfg->szStandbyDNS, sizeof(cfg->szStandbyDNS), e);
    else if (name == "MAC") CopyChild(cfg->szMAC, sizeof(cfg->szMAC), e);
  }
}

int Network_getLANCfgByXml(NetSDK_LANConfig* cfg, const char* xml) {
  if (!cfg) return -1;
  std::memset(cfg, 0, sizeof(*cfg));
  TiXmlDocument doc;
  if (ParseXmlText(doc, xml) != XML_PARSE_OK) {
    SearchLog(0, "[CSearchIPC] xml error : %s\r\n", doc.ErrorDesc() ? doc.ErrorDesc() : "");
    return -1;
  }
  ReadLANCfg(cfg, doc.RootElement());
  return 0;
}

char* MakeNetworkLANCfgXml(const char* uid, const NetSDK_LANConfig* c) {
  if (!c) return nullptr;
  char* out = new char[kLanCfgXmlSize];
  const char* u = uid ? uid : "";
  int un = static_cast<int>(strnlen(u, 32));
  // Each field is cut to its record width, so the text stays far below the buffer.
  std::string fmt = Bounded(HasCreds(c) ? kLanWithCreds : kLanNoCreds);
  if (HasCreds(c))
    std::snprintf(out, kLanCfgXmlSize, fmt.c_str(), un, u, FIELD(c->szToken), FIELD(c->szUserName),
                  FIELD(c->szPassword), c->nDHCPMode, FIELD(c->szIP), FIELD(c->szNetmask), FIELD(c->szGateway),
                  FIELD(c->szPreferredDNS), FIELD(c->szStandbyDNS), FIELD(c->szMAC));
  else
    std::snprintf(out, kLanCfgXmlSize, fmt.c_str(), un, u, c->nDHCPMode, FIELD(c->szIP), FIELD(c->szNetmask),
                  FIELD(c->szGateway), FIELD(c->szPreferredDNS), FIELD(c->szStandbyDNS), FIELD(c->szMAC));
  return out;
}

char* MakeUserCfgXml(const NetSDK_UserConfig* cfg) {
  if (!cfg) return nullptr;
  std::string text = "<UserConfig>\r\n";
  std::string fmt = Bounded(kAccount);
  int count = cfg->nAccountNum < 0 ? 0 : (cfg->nAccountNum > 20 ? 20 : cfg->nAccountNum);
  char scratch[2048];
  for (int i = 0; i < count; ++i) {
    const NetSDK_UserAccount& a = cfg->accounts[i];
    std::snprintf(scratch, sizeof(scratch), fmt.c_str(), FIELD(a.szUserName), FIELD(a.szPassword),
                  FIELD(a.szGroup), FIELD(a.szStatus));
    text += scratch;
  }
  text += "</UserConfig>\r\n";
  // 20 accounts of at most 120 characters of values and 60 of markup: under 4 KiB.
  char* out = new char[kUserCfgXmlSize];
  CopyText(out, kUserCfgXmlSize, text.c_str());
  return out;
}

int MakeRestoreBody(char* out, int size, const char* uid, const NetSDK_LANConfig* creds) {
  if (!out || size < 1) return -1;
  const char* u = uid ? uid : "";
  int un = static_cast<int>(strnlen(u, 32));
  std::memset(out, 0, static_cast<size_t>(size));
  std::string fmt = Bounded(creds && HasCreds(creds) ? kRestoreWithCreds : kRestoreNoCreds);
  int n;
  if (creds && HasCreds(creds))
    n = std::snprintf(out, static_cast<size_t>(size), fmt.c_str(), un, u, FIELD(creds->szToken),
                      FIELD(creds->szUserName), FIELD(creds->szPassword));
  else
    n = std::snprintf(out, static_cast<size_t>(size), fmt.c_str(), un, u);
  return n < size ? n : size - 1;
}
