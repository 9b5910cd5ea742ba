// The LAN reader and the XML writers of network setup.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "search/SearchConfigXml.h"
#include "search_test_util.h"

using namespace searchtest;

namespace {
NetSDK_LANConfig Lan() {
  NetSDK_LANConfig c;
  std::memset(&c, 0, sizeof(c));
  std::strcpy(c.szIP, "192.0.2.10");
  std::strcpy(c.szNetmask, "255.255.255.0");
  std::strcpy(c.szGateway, "192.0.2.1");
  std::strcpy(c.szPreferredDNS, "192.0.2.53");
  std::strcpy(c.szStandbyDNS, "");
  std::strcpy(c.szMAC, "AA:BB");
  c.nDHCPMode = 1;
  return c;
}
std::string Text(char* p) {
  std::unique_ptr<char[]> owned(p);
  return owned ? std::string(owned.get()) : std::string("(null)");
}
}  // namespace

TEST(LanConfigXml, TextWithoutTcpipGivesAnEmptyConfigAndSuccess) {
  NetSDK_LANConfig c;
  std::memset(&c, 0x5A, sizeof(c));
  EXPECT_EQ(Network_getLANCfgByXml(&c, "<body><other>1</other></body>"), 0);
  NetSDK_LANConfig zero;
  std::memset(&zero, 0, sizeof(zero));
  EXPECT_EQ(std::memcmp(&c, &zero, sizeof(c)), 0);
}

TEST(LanConfigXml, MalformedTextIsRefusedAndLogged) {
  StartLog();
  NetSDK_LANConfig c;
  std::memset(&c, 0x5A, sizeof(c));
  EXPECT_EQ(Network_getLANCfgByXml(&c, "<body><TCPIP><IP>1</TCPIP>"), -1);
  EXPECT_EQ(CountLogPrefix("[CSearchIPC] xml error : "), 1u);
  EXPECT_EQ(c.szIP[0], '\0');  // cleared before the parse
}

TEST(LanConfigXml, ReadsEveryFieldAndClearsCredentials) {
  NetSDK_LANConfig c;
  std::memset(&c, 0, sizeof(c));
  std::strcpy(c.szToken, "t");
  std::strcpy(c.szUserName, "u");
  c.nLastResult = 9;
  const char* xml = "<body><TCPIP><DHCPMode>2</DHCPMode><IP>1.2.3.4</IP><netmask>m</netmask><gateway>g</gateway>"
                    "<preferredDNS>p</preferredDNS><standbyDNS>s</standbyDNS><MAC>mac</MAC><junk>j</junk>"
                    "</TCPIP></body>";
  EXPECT_EQ(Network_getLANCfgByXml(&c, xml), 0);
  EXPECT_EQ(c.nDHCPMode, 2);
  EXPECT_STREQ(c.szIP, "1.2.3.4");
  EXPECT_STREQ(c.szNetmask, "m");
  EXPECT_STREQ(c.szGateway, "g");
  EXPECT_STREQ(c.szPreferredDNS, "p");
  EXPECT_STREQ(c.szStandbyDNS, "s");
  EXPECT_STREQ(c.szMAC, "mac");
  EXPECT_STREQ(c.szToken, "");
  EXPECT_STREQ(c.szUserName, "");
  EXPECT_EQ(c.nLastResult, 0);
}

TEST(LanConfigXml, OverlongValuesAreCutToTheirFields) {
  std::string big(1000, 'x');
  NetSDK_LANConfig c;
  std::string xml = "<b><TCPIP><IP>" + big + "</IP><MAC>" + big + "</MAC><DHCPMode>" + big + "</DHCPMode></TCPIP></b>";
  EXPECT_EQ(Network_getLANCfgByXml(&c, xml.c_str()), 0);
  EXPECT_EQ(std::string(c.szIP), std::string(255, 'x'));
  EXPECT_EQ(std::string(c.szMAC), std::string(255, 'x'));
  EXPECT_EQ(c.nDHCPMode, 0);
}

TEST(LanConfigXml, BodyWithoutCredentials) {
  NetSDK_LANConfig c = Lan();
  std::strcpy(c.szToken, "tok");
  std::strcpy(c.szUserName, "admin");  // no password: the UID-only body
  EXPECT_EQ(Text(MakeNetworkLANCfgXml("U1", &c)),
            "<UID>U1</UID>\r\n<TCPIP>\r\n<DHCPMode>1</DHCPMode>\r\n<IP>192.0.2.10</IP>\r\n<netmask>255.255.255.0"
            "</netmask>\r\n<gateway>192.0.2.1</gateway>\r\n<preferredDNS>192.0.2.53</preferredDNS>\r\n<standbyDNS>"
            "</standbyDNS>\r\n<MAC>AA:BB</MAC>\r\n</TCPIP>\r\n");
}

TEST(LanConfigXml, BodyWithCredentials) {
  NetSDK_LANConfig c = Lan();
  std::strcpy(c.szToken, "tok");
  std::strcpy(c.szUserName, "admin");
  std::strcpy(c.szPassword, "secret");
  EXPECT_EQ(Text(MakeNetworkLANCfgXml("U1", &c)),
            "<UID>U1</UID>\r\n<token>tok</token>\r\n<userName>admin</userName>\r\n<password>secret</password>\r\n"
            "<TCPIP>\r\n<DHCPMode>1</DHCPMode>\r\n<IP>192.0.2.10</IP>\r\n<netmask>255.255.255.0</netmask>\r\n"
            "<gateway>192.0.2.1</gateway>\r\n<preferredDNS>192.0.2.53</preferredDNS>\r\n<standbyDNS></standbyDNS>\r\n"
            "<MAC>AA:BB</MAC>\r\n</TCPIP>\r\n");
}

TEST(LanConfigXml, FieldsWithoutTerminatorStayWithinTheirWidth) {
  NetSDK_LANConfig c;
  std::memset(&c, 'Z', sizeof(c));
  c.nDHCPMode = 0;
  std::string text = Text(MakeNetworkLANCfgXml("U", &c));
  EXPECT_NE(text.find("<IP>" + std::string(256, 'Z') + "</IP>"), std::string::npos);
  EXPECT_NE(text.find("<token>" + std::string(32, 'Z') + "</token>"), std::string::npos);
  EXPECT_LT(text.size(), static_cast<size_t>(kLanCfgXmlSize));
}

TEST(UserConfigXml, AccountsInOrder) {
  NetSDK_UserConfig u;
  std::memset(&u, 0, sizeof(u));
  u.nAccountNum = 2;
  std::strcpy(u.accounts[0].szUserName, "a");
  std::strcpy(u.accounts[0].szPassword, "b");
  std::strcpy(u.accounts[0].szGroup, "c");
  std::strcpy(u.accounts[0].szStatus, "d");
  std::strcpy(u.accounts[1].szUserName, "e");
  EXPECT_EQ(Text(MakeUserCfgXml(&u)),
            "<UserConfig>\r\n<Account\r\n Username=\"a\"\r\n Password=\"b\"\r\n Group=\"c\"\r\n Status=\"d\"\r\n />\r\n"
            "<Account\r\n Username=\"e\"\r\n Password=\"\"\r\n Group=\"\"\r\n Status=\"\"\r\n />\r\n</UserConfig>\r\n");
}

TEST(UserConfigXml, NoAccountsForZeroOrNegativeCount) {
  NetSDK_UserConfig u;
  std::memset(&u, 0, sizeof(u));
  EXPECT_EQ(Text(MakeUserCfgXml(&u)), "<UserConfig>\r\n</UserConfig>\r\n");
  u.nAccountNum = -5;
  EXPECT_EQ(Text(MakeUserCfgXml(&u)), "<UserConfig>\r\n</UserConfig>\r\n");
}

TEST(UserConfigXml, HugeCountAndFullFieldsStayBounded) {
  NetSDK_UserConfig u;
  std::memset(&u, 'Q', sizeof(u));
  u.nAccountNum = 1000000;
  std::string text = Text(MakeUserCfgXml(&u));
  size_t accounts = 0;
  for (size_t p = 0; (p = text.find("<Account", p)) != std::string::npos; ++p) ++accounts;
  EXPECT_EQ(accounts, 20u);
  EXPECT_LT(text.size(), static_cast<size_t>(kUserCfgXmlSize));
  EXPECT_EQ(text.substr(text.size() - 15), "</UserConfig>\r\n");
}

TEST(RestoreBody, WithAndWithoutCredentials) {
  NetSDK_LANConfig c;
  std::memset(&c, 0, sizeof(c));
  char buf[kRestoreBodySize];
  EXPECT_EQ(MakeRestoreBody(buf, sizeof(buf), "U7", &c), 13);
  EXPECT_STREQ(buf, "<UID>U7</UID>");
  std::strcpy(c.szToken, "t");
  std::strcpy(c.szUserName, "u");
  std::strcpy(c.szPassword, "p");
  MakeRestoreBody(buf, sizeof(buf), "U7", &c);
  EXPECT_STREQ(buf, "<UID>U7</UID>\r\n<token>t</token>\r\n<userName>u</userName>\r\n<password>p</password>\r\n");
}
