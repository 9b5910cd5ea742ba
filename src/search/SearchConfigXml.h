// The XML of a found device's network and account settings: the LAN reader, the bodies of
// the modify and restore requests, and the account list.
#ifndef QXNET_SEARCH_SEARCHCONFIGXML_H
#define QXNET_SEARCH_SEARCHCONFIGXML_H

#include <tinyxml.h>

#include "QXNetSDK.h"

enum { kLanCfgXmlSize = 5120, kRestoreBodySize = 1024, kUserCfgXmlSize = 5120 };

// Clears all of cfg, then reads the "TCPIP" child of the text's root; 0, or -1 (logged)
// when the text is not well-formed XML. No "TCPIP" is no error.
int Network_getLANCfgByXml(NetSDK_LANConfig* cfg, const char* xml);
// The same from a parsed root element (null: cfg cleared only).
void ReadLANCfg(NetSDK_LANConfig* cfg, const TiXmlElement* root);

// The LAN body of a modify request in a new kLanCfgXmlSize buffer (delete[]), with the
// credentials when token, user name and password are all set. Null for a null cfg.
char* MakeNetworkLANCfgXml(const char* uid, const NetSDK_LANConfig* cfg);
// The account list in a new kUserCfgXmlSize buffer (delete[]); accounts beyond 20 and a
// negative count are ignored. Null for a null cfg.
char* MakeUserCfgXml(const NetSDK_UserConfig* cfg);
// The body of a restore request into out[size] (kRestoreBodySize): with token, user name
// and password from `creds` when all three are set, else the UID alone. Its length.
int MakeRestoreBody(char* out, int size, const char* uid, const NetSDK_LANConfig* creds);

#endif
