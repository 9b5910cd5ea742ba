// The parse guard: padded copies and the nesting limit, and the nesting walk against
// TinyXML itself.
#include <gtest/gtest.h>
#include <pthread.h>

#include <random>
#include <string>

#include "xml/XmlParse.h"
#include "xml/xmlutil.h"

namespace {

std::string Nested(int depth, const char* name = "a") {
  std::string s;
  for (int i = 0; i < depth; ++i) s += std::string("<") + name + ">";
  for (int i = 0; i < depth; ++i) s += std::string("</") + name + ">";
  return s;
}

int RawTreeDepth(const std::string& text) {
  std::string padded = text;
  padded.append(kXmlTextPad, '\0');
  TiXmlDocument doc;
  doc.Parse(padded.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
  return XmlTreeDepth(&doc);
}

TEST(ParseGuard, LimitIsExact) {
  TiXmlDocument ok;
  EXPECT_EQ(XML_PARSE_OK, ParseXmlText(ok, Nested(kXmlMaxNesting).c_str()));
  EXPECT_EQ(kXmlMaxNesting, XmlTreeDepth(&ok));
  TiXmlDocument deep;
  EXPECT_EQ(XML_PARSE_TOO_DEEP, ParseXmlText(deep, Nested(kXmlMaxNesting + 1).c_str()));
  EXPECT_EQ(nullptr, deep.FirstChild());
  // Many elements side by side are not deep.
  std::string wide = "<list>";
  for (int i = 0; i < 5000; ++i) wide += "<item n=\"" + std::to_string(i) + "\"/>";
  wide += "</list>";
  TiXmlDocument w;
  EXPECT_EQ(XML_PARSE_OK, ParseXmlText(w, wide.c_str()));
  EXPECT_EQ(2, XmlTreeDepth(&w));
}

TEST(ParseGuard, DepthHiddenFromANaiveScanIsStillFound) {
  // Closing-tag look-alikes inside attribute values, comments and CDATA do not close.
  std::string s;
  for (int i = 0; i < 300; ++i) s += "<a v=\"</a></a>\"><!-- </a> --><![CDATA[</a>]]>";
  for (int i = 0; i < 300; ++i) s += "</a>";
  EXPECT_EQ(300, RawTreeDepth(s));
  EXPECT_EQ(300, XmlNestingDepth(s.data(), s.size(), 1000));
  TiXmlDocument doc;
  EXPECT_EQ(XML_PARSE_TOO_DEEP, ParseXmlText(doc, s.c_str()));
  // A hexadecimal reference whose digits are not checked swallows what lies before ';'.
  std::string t = "<r>&#x<b>x;";
  for (int i = 0; i < 200; ++i) t += "<c>";
  EXPECT_EQ(RawTreeDepth(t), XmlNestingDepth(t.data(), t.size(), 1000));
  EXPECT_EQ(201, XmlNestingDepth(t.data(), t.size(), 1000));
  // In UTF-8 a lead byte takes the following bytes along, '<' included.
  std::string u = "<?xml version=\"1.0\" encoding=\"utf-8\"?><r>";
  for (int i = 0; i < 200; ++i) u += "\xe0<d><e>";
  EXPECT_EQ(RawTreeDepth(u), XmlNestingDepth(u.data(), u.size(), 1000));
  std::string l = "<?xml version=\"1.0\" encoding=\"latin1\"?><r>";
  for (int i = 0; i < 200; ++i) l += "\xe0<d><e>";
  EXPECT_EQ(RawTreeDepth(l), XmlNestingDepth(l.data(), l.size(), 1000));
  EXPECT_NE(XmlNestingDepth(u.data(), u.size(), 1000), XmlNestingDepth(l.data(), l.size(), 1000));
}

TEST(ParseGuard, WalkStopsPastItsLimit) {
  std::string s = Nested(5000);
  EXPECT_EQ(101, XmlNestingDepth(s.data(), s.size(), 100));
}

TEST(ParseGuard, WalkMatchesTinyXmlOnMutatedMessages) {
  const std::string seeds[] = {
      "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>10000</type>\n<cmd>14012</cmd>\n"
      "<result>0</result>\n</head>\n<body>\n<authRsp><MAXChannels>16</MAXChannels></authRsp>\n</body>\n"
      "</PrivateProto>",
      "<?xml version=\"1.0\" ?><PRIVATE_PROTO><MESSAGE_HEADER Msg_type=\"ALARM_REPORT_MESSAGE\" Msg_code=\"1\" "
      "Msg_flag=\"0\"/><MESSAGE_BODY><ALARM_REPORT_PARAM><ALARM_ITEM><ALARM_TIME Year=\"2024\"/><ALARM_INFO "
      "Alarm_data='x&amp;y&#x41;&#65;'/></ALARM_ITEM><!-- c <a> --><![CDATA[<b><b>]]></ALARM_REPORT_PARAM>"
      "</MESSAGE_BODY></PRIVATE_PROTO>",
      "<a><b x=1 y='2' x='3'><c>t&#x<d>x;<e/></c></b><?pi <f>?><!DOCTYPE <g>></a >",
      "\xef\xbb\xbf<a>\xe0<b>\xf0<c></c ></b></a>",
      "<?xml encoding=\"&#85;TF-8\"?><a>\xe0<b>\xf0<c></c></b></a>"};
  const char alphabet[] = "<>/=\"'&#x;!-[]?abcAB_ \n\t\xe0\xf0\xef\xbb\xbf\xc3" "CDATA";
  std::mt19937 rng(20240517);
  int compared = 0;
  for (int iter = 0; iter < 20000; ++iter) {
    std::string s = seeds[iter % 5];
    int muts = 1 + static_cast<int>(rng() % 8);
    for (int m = 0; m < muts; ++m) {
      size_t pos = rng() % (s.size() + 1);
      char c = alphabet[rng() % (sizeof(alphabet) - 1)];
      switch (rng() % 4) {
        case 0:
          if (pos < s.size()) s[pos] = c;
          break;
        case 1:
          s.insert(pos, 1, c);
          break;
        case 2:
          if (pos < s.size()) s.erase(pos, 1 + rng() % 4);
          break;
        default:
          s.insert(pos, s.substr(rng() % (s.size() + 1), rng() % 20));
      }
    }
    ASSERT_EQ(RawTreeDepth(s), XmlNestingDepth(s.data(), s.size(), 100000)) << s;
    ++compared;
  }
  EXPECT_EQ(20000, compared);
}

TEST(ParseGuard, EveryReaderSurvivesADeepBombOnASmallStack) {
  std::string body;
  for (int i = 0; i < 30000; ++i) body += "<x a='1'>";
  const std::string msgs[] = {
      "<?xml version=\"1.0\" ?><PrivateProto><head><type>1</type><cmd>14012</cmd><result>0</result></head><body>" +
          body + "</body></PrivateProto>",
      "<PRIVATE_PROTO><TRANSPARENT_HEADER/><MESSAGE_BODY>" + body + "</MESSAGE_BODY></PRIVATE_PROTO>"};
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 256 * 1024);
  for (const std::string& m : msgs) {
    pthread_t t;
    ASSERT_EQ(0, pthread_create(
                     &t, &attr,
                     [](void* p) -> void* {
                       const char* msg = static_cast<const std::string*>(p)->c_str();
                       char a[64], b[64], c[64];
                       GetMessageHeader(msg, a, sizeof(a), b, sizeof(b), c, sizeof(c));
                       GetMessageHeaderExt(msg, a, sizeof(a), b, sizeof(b), c, sizeof(c));
                       GetMessageTransparentHeader(msg, a, sizeof(a), b, sizeof(b), c, sizeof(c));
                       ALARM_ITEM* items = nullptr;
                       int s = 0, ch = 0;
                       if (GetAlarmList(msg, &items) > 0) delete[] items;
                       if (GetAlarmListEx(msg, &items, s, ch) > 0) delete[] items;
                       int64_t pos;
                       long len;
                       int n;
                       GetNVRChannels(msg, a, sizeof(a));
                       GetNVRIPCStatus(msg, a, sizeof(a));
                       GetXmlPosAndDataLen(msg, &pos, &len);
                       GetConfigPosAndDataLen(msg, &pos, &len);
                       GetFileTransportLength(msg, &n);
                       uint16_t port;
                       uint32_t flen;
                       GetFileTransportPort(msg, &port, &n, &flen);
                       GetEncryptMethod(msg, &n);
                       std::string key;
                       GetEncryptKey(msg, key);
                       LIVE_STREAM_PARAM_t live;
                       GetLiveStreamParam(msg, &live);
                       GetNvrRecInfo(msg, a, sizeof(a), b, sizeof(b));
                       GetNvrRecInfoByMonth(msg, a, sizeof(a), b, sizeof(b), c, sizeof(c));
                       GetDevPictureLen(msg, a, sizeof(a));
                       GetPictureLen(msg, a, sizeof(a));
                       AUDIO_RTP_PARAM_t audio;
                       GetAudioRTPParam(msg, &audio);
                       ModifyVideoParam(msg, 0, nullptr, nullptr, nullptr);
                       return reinterpret_cast<void*>(1);
                     },
                     const_cast<std::string*>(&m)));
    void* done = nullptr;
    pthread_join(t, &done);
    EXPECT_EQ(reinterpret_cast<void*>(1), done);
  }
  pthread_attr_destroy(&attr);
}

}  // namespace
