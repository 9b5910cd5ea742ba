// Envelope builders and readers.
#include <gtest/gtest.h>
#include <pthread.h>
#include <string.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "xml/XmlParse.h"
#include "xml/xmlutil.h"

namespace {

const std::string kDecl = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>";

std::string PrivateProto(const std::string& type, const std::string& cmd, const std::string& result,
                         const std::string& body) {
  return kDecl + "\n<PrivateProto>\n<head>\n<type>" + type + "</type>\n<cmd>" + cmd + "</cmd>\n<result>" + result +
         "</result>\n</head>\n<body>\n" + body + "\n</body>\n</PrivateProto>";
}

const char kTransparentHead3[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
    "<PRIVATE_PROTO>\n<TRANSPARENT_HEADER\nTrans_Type=\"TRANSPARENT_CHANNEL_MSG\"\nChannel_ID=\"3\"\n"
    "Source_Type=\"p2p\"\nSession_ID=\"0\"\nTrans_Result=\"0\"\n/>\n"
    "<MESSAGE_HEADER\nMsg_type=\"T\"\nMsg_code=\"C\"\nMsg_flag=\"0\"\n/>\n";

struct Header {
  char type[256], cmd[256], result[256];
  int rc;
};

Header ReadHeader(const std::string& msg, bool ext = false) {
  Header h;
  memset(&h, 'x', sizeof(h));
  h.rc = ext ? GetMessageHeaderExt(msg.c_str(), h.type, sizeof(h.type), h.cmd, sizeof(h.cmd), h.result,
                                   sizeof(h.result))
             : GetMessageHeader(msg.c_str(), h.type, sizeof(h.type), h.cmd, sizeof(h.cmd), h.result,
                                sizeof(h.result));
  return h;
}

// ---------------------------------------------------------------------------------------
// MakeXMLRequest, buffer form

TEST(MakeXMLRequestBuffer, PrivateProtoWithBody) {
  char out[1024];
  int n = MakeXMLRequest(out, sizeof(out), "10000", "14012", "0", "<userName>a</userName>", -1);
  const std::string expected =
      "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>10000</type>\n<cmd>14012</cmd>\n"
      "<result>0</result>\n</head>\n<body>\n<userName>a</userName>\n</body>\n</PrivateProto>";
  EXPECT_EQ(expected, out);
  EXPECT_EQ(static_cast<int>(expected.size()), n);
}

TEST(MakeXMLRequestBuffer, EmptyAndNullBodyWriteAnEmptyBodyElement) {
  const std::string expected =
      "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<PrivateProto>\n<head>\n<type>30000</type>\n<cmd>35001</cmd>\n"
      "<result>0</result>\n</head>\n<body>\n</body>\n</PrivateProto>";
  char out[1024];
  EXPECT_EQ(static_cast<int>(expected.size()), MakeXMLRequest(out, sizeof(out), "30000", "35001", "0", "", -1));
  EXPECT_EQ(expected, out);
  EXPECT_EQ(static_cast<int>(expected.size()), MakeXMLRequest(out, sizeof(out), "30000", "35001", "0", nullptr, -1));
  EXPECT_EQ(expected, out);
}

TEST(MakeXMLRequestBuffer, ChannelThreeWritesTheTransparentHeaderAndEmptyBody) {
  LogCapture log;
  char out[1024];
  int n = MakeXMLRequest(out, sizeof(out), "T", "C", "0", "", 3);
  const std::string expected = std::string(kTransparentHead3) + "<body>\n</body>\n</PrivateProto>";
  EXPECT_EQ(expected, out);
  EXPECT_EQ(static_cast<int>(expected.size()), n);
  EXPECT_TRUE(log.Has(std::string("xmlutil: MakeXMLRequest TRANSPARENT_HEADER ") + kTransparentHead3 + "\n"));
}

TEST(MakeXMLRequestBuffer, ChannelWithBodyKeepsTheMixedForm) {
  char out[1024];
  int n = MakeXMLRequest(out, sizeof(out), "T", "C", "0", "<X/>", 3);
  const std::string expected = std::string(kTransparentHead3) + "<body>\n<X/>\n</body>\n</PrivateProto>";
  EXPECT_EQ(expected, out);
  EXPECT_EQ(static_cast<int>(expected.size()), n);
  // Any channel but -1 selects the transparent header, a negative one too.
  MakeXMLRequest(out, sizeof(out), "T", "C", "0", "", -2);
  EXPECT_NE(nullptr, strstr(out, "Channel_ID=\"-2\""));
  MakeXMLRequest(out, sizeof(out), "T", "C", "0", "", 0);
  EXPECT_NE(nullptr, strstr(out, "Channel_ID=\"0\""));
}

TEST(MakeXMLRequestBuffer, NullPiecesAreWrittenEmpty) {
  char out[512];
  MakeXMLRequest(out, sizeof(out), nullptr, nullptr, nullptr, nullptr, -1);
  EXPECT_EQ(kDecl + "\n<PrivateProto>\n<head>\n<type></type>\n<cmd></cmd>\n<result></result>\n</head>\n"
                    "<body>\n</body>\n</PrivateProto>",
            out);
}

TEST(MakeXMLRequestBuffer, ExactFitAndOneShortNeverWritePastCapacity) {
  char ref[1024];
  const int len = MakeXMLRequest(ref, sizeof(ref), "10000", "14012", "0", "<a>b</a>", -1);
  ASSERT_GT(len, 0);
  for (int capacity : {len + 1, len, len - 1, 60, 41, 40, 1}) {
    std::vector<char> buf(static_cast<size_t>(capacity) + 32, '#');
    int n = MakeXMLRequest(buf.data(), capacity, "10000", "14012", "0", "<a>b</a>", -1);
    for (size_t i = static_cast<size_t>(capacity); i < buf.size(); ++i)
      ASSERT_EQ('#', buf[i]) << "capacity " << capacity << " byte " << i;
    if (capacity > len) {
      EXPECT_EQ(len, n);
      EXPECT_STREQ(ref, buf.data());
    } else {
      // The whole message does not fit: nothing partial is handed out.
      EXPECT_EQ(-1, n) << capacity;
      EXPECT_EQ('\0', buf[0]);
    }
  }
  // Transparent header that does not fit either.
  char small[100];
  EXPECT_EQ(-1, MakeXMLRequest(small, sizeof(small), "T", "C", "0", "", 3));
  EXPECT_STREQ("", small);
}

TEST(MakeXMLRequestBuffer, RefusesNoBuffer) {
  char out[4] = {'a', 'b', 'c', 'd'};
  EXPECT_EQ(-1, MakeXMLRequest(nullptr, 100, "1", "2", "0", "", -1));
  EXPECT_EQ(-1, MakeXMLRequest(out, 0, "1", "2", "0", "", -1));
  EXPECT_EQ('a', out[0]);
  EXPECT_EQ(-1, MakeXMLRequest(out, -5, "1", "2", "0", "", -1));
}

// ---------------------------------------------------------------------------------------
// MakeXMLRequest, string forms

TEST(MakeXMLRequestString, NullBodyEndsInSelfClosedBody) {
  std::string out = "old";
  int n = MakeXMLRequest(out, "10000", "14012", "0", nullptr);
  EXPECT_EQ(kDecl + "<PrivateProto>\n<head>\n<type>10000</type>\n<cmd>14012</cmd>\n<result>0</result>\n</head>\n"
                    "<body/>\n</PrivateProto>",
            out);
  EXPECT_EQ(static_cast<int>(out.size()), n);
  MakeXMLRequest(out, "10000", "14012", "0", "");
  EXPECT_EQ(0, out.compare(out.size() - 23, 23, "<body/>\n</PrivateProto>"));
}

TEST(MakeXMLRequestString, OneLetterBody) {
  std::string out;
  int n = MakeXMLRequest(out, "1", "2", "0", "Q");
  EXPECT_EQ(kDecl + "<PrivateProto>\n<head>\n<type>1</type>\n<cmd>2</cmd>\n<result>0</result>\n</head>\n"
                    "<body>\nQ\n</body>\n</PrivateProto>",
            out);
  EXPECT_EQ(static_cast<int>(out.size()), n);
  const std::string tail = "<body>\nQ\n</body>\n</PrivateProto>";
  EXPECT_EQ(0, out.compare(out.size() - tail.size(), tail.size(), tail));
}

TEST(MakeXMLRequestString, NumericCommand) {
  std::string a, b;
  MakeXMLRequest(a, "10000", 14300L, "0", "<x/>");
  MakeXMLRequest(b, "10000", "14300", "0", "<x/>");
  EXPECT_EQ(b, a);
  MakeXMLRequest(a, "10000", -7L, "0", nullptr);
  EXPECT_NE(std::string::npos, a.find("<cmd>-7</cmd>"));
  MakeXMLRequest(a, "10000", 5000000000L, "0", nullptr);
  EXPECT_NE(std::string::npos, a.find("<cmd>5000000000</cmd>"));
}

// ---------------------------------------------------------------------------------------
// GetMessageHeader / GetMessageHeaderExt

TEST(GetMessageHeader, ReadsTheHead) {
  Header h = ReadHeader(PrivateProto("10000", "14012", "0", "<authRsp/>"));
  EXPECT_EQ(0, h.rc);
  EXPECT_STREQ("10000", h.type);
  EXPECT_STREQ("14012", h.cmd);
  EXPECT_STREQ("0", h.result);
}

TEST(GetMessageHeader, BuilderOutputReadsBack) {
  char out[1024];
  MakeXMLRequest(out, sizeof(out), "20000", "20007", "-3", "<a>1</a>", -1);
  Header h = ReadHeader(out);
  EXPECT_EQ(0, h.rc);
  EXPECT_STREQ("20000", h.type);
  EXPECT_STREQ("20007", h.cmd);
  EXPECT_STREQ("-3", h.result);
  std::string s;
  MakeXMLRequest(s, "10000", 14301L, "0", nullptr);
  h = ReadHeader(s);
  EXPECT_EQ(0, h.rc);
  EXPECT_STREQ("14301", h.cmd);
}

TEST(GetMessageHeader, EmptyResultIsMinusFiveWithTypeAndCmdFilled) {
  Header h = ReadHeader(PrivateProto("10000", "14012", "", "x"));
  EXPECT_EQ(-5, h.rc);
  EXPECT_STREQ("10000", h.type);
  EXPECT_STREQ("14012", h.cmd);
  EXPECT_STREQ("", h.result);
}

TEST(GetMessageHeader, EmptyTypeAndCmd) {
  EXPECT_EQ(-3, ReadHeader(PrivateProto("", "14012", "0", "x")).rc);
  Header h = ReadHeader(PrivateProto("10000", "", "0", "x"));
  EXPECT_EQ(-4, h.rc);
  EXPECT_STREQ("10000", h.type);
  // An element whose first child is not text gives that child's value.
  h = ReadHeader(kDecl + "<PrivateProto><head><type><x/></type><cmd>1</cmd><result>0</result></head></PrivateProto>");
  EXPECT_EQ(0, h.rc);
  EXPECT_STREQ("x", h.type);
}

TEST(GetMessageHeader, NamesAreExactAndLaterMatchesWin) {
  Header h = ReadHeader(kDecl +
                        "<PrivateProto><head><Type>9</Type><cmd>1</cmd><result>0</result></head></PrivateProto>");
  EXPECT_EQ(-3, h.rc);
  h = ReadHeader(kDecl +
                 "<PrivateProto><head><type>1</type><cmd>2</cmd><result>0</result><type>7</type></head>"
                 "<head><cmd>8</cmd></head></PrivateProto>");
  EXPECT_EQ(0, h.rc);
  EXPECT_STREQ("7", h.type);
  EXPECT_STREQ("8", h.cmd);
  EXPECT_STREQ("0", h.result);
}

TEST(GetMessageHeader, LongFieldsAreCutToTheirBuffers) {
  std::string msg = PrivateProto(std::string(300, 't'), "14012", "123456789", "x");
  char type[8], cmd[4], result[1];
  memset(type, 'x', sizeof(type));
  int rc = GetMessageHeader(msg.c_str(), type, sizeof(type), cmd, sizeof(cmd), result, sizeof(result));
  EXPECT_EQ(0, rc);  // judged on the values read, not on what fits
  EXPECT_STREQ("ttttttt", type);
  EXPECT_STREQ("140", cmd);
  EXPECT_STREQ("", result);
  // Outputs not wanted.
  EXPECT_EQ(0, GetMessageHeader(msg.c_str(), nullptr, 0, nullptr, 0, nullptr, 0));
}

TEST(GetMessageHeader, MissingTagsAreRefusedWithTheirLines) {
  LogCapture log;
  const std::string noOpen = "<?xml version=\"1.0\" ?><Other><head/></Other></PrivateProto>";
  Header h = ReadHeader(noOpen);
  EXPECT_EQ(-1, h.rc);
  EXPECT_STREQ("", h.type);
  EXPECT_TRUE(log.Has("xmlutil: Invalid message, <PrivateProto>:\n" + noOpen + "\n"));
  const std::string noClose = "<PrivateProto><head><type>1</type></head>";
  EXPECT_EQ(-1, ReadHeader(noClose).rc);
  EXPECT_TRUE(log.Has("xmlutil: Invalid message, </PRIVATE_PROTO> not found:\n" + noClose + "\n"));
  EXPECT_EQ(-1, GetMessageHeader(nullptr, nullptr, 0, nullptr, 0, nullptr, 0));
}

TEST(GetMessageHeader, BrokenAlarmReportIsRefusedBeforeParsing) {
  LogCapture log;
  // Well formed as a PrivateProto message, but it names an alarm report and carries "0"".
  const std::string msg = kDecl +
                          "<PrivateProto><head><type>1</type><cmd>2</cmd><result>0</result></head>"
                          "<body><a note='ALARM_REPORT_MESSAGE \"0\"\"'/></body></PrivateProto>";
  TiXmlDocument doc;
  ASSERT_EQ(XML_PARSE_OK, ParseXmlText(doc, msg.c_str()));
  EXPECT_EQ(-1, ReadHeader(msg).rc);
  EXPECT_EQ(-1, ReadHeader(msg, true).rc);
  EXPECT_TRUE(log.Has("xmlutil: GetMessageHeader detect bad ALARM_REPORT_MESSAGE message: " + msg + "\n"));
  // The two checks look at the whole text: the name in a head field and the quote in the body
  // are refused just the same.
  EXPECT_EQ(-1, ReadHeader(PrivateProto("ALARM_REPORT_MESSAGE", "2", "0", "<a v='\"0\"\"'/>")).rc);
  // The stray quote alone, or the name alone, is no reason to refuse.
  EXPECT_EQ(0, ReadHeader(PrivateProto("1", "2", "0", "<a v='ALARM_REPORT_MESSAGE'/>")).rc);
  EXPECT_EQ(0, ReadHeader(PrivateProto("1", "2", "0", "<a v='\"0\"\"'/>")).rc);
}

TEST(GetMessageHeader, EmptyMessageBodyIsRefused) {
  LogCapture log;
  for (const char* empty : {"<MESSAGE_BODY></MESSAGE_BODY>", "<MESSAGE_BODY>\n</MESSAGE_BODY>"}) {
    EXPECT_EQ(-1, ReadHeader(PrivateProto("1", "2", "0", empty)).rc) << empty;
  }
  EXPECT_TRUE(log.Has("xmlutil: GetMessageHeader detect bad ALARM_REPORT_MESSAGE message, msg body is empty\n"));
  // With something inside it is read normally.
  EXPECT_EQ(0, ReadHeader(PrivateProto("1", "2", "0", "<MESSAGE_BODY> </MESSAGE_BODY>")).rc);
}

TEST(GetMessageHeader, ParseErrorsLogAndGiveMinusOne) {
  LogCapture log;
  const std::string withBody = kDecl +
                               "<PrivateProto><head><type>1</type><cmd>2</cmd><result>0</result></head>"
                               "<body><a></b></body></PrivateProto>";
  EXPECT_EQ(-1, ReadHeader(withBody).rc);
  EXPECT_TRUE(log.Has("xmlutil: ixmlParseBuffer message failed, clear msg body and try again: " + withBody + "\n"));
  const std::string noBody = kDecl + "<PrivateProto><head><type>1</type><cmd>2</cmd><result>0</result></head"
                                     "</PrivateProto>";
  EXPECT_EQ(-1, ReadHeader(noBody).rc);
  EXPECT_TRUE(log.Has("xmlutil: Invalid message, <body> not found: " + noBody + "\n"));
}

TEST(GetMessageHeader, NoHeadIsMinusTwo) {
  EXPECT_EQ(-2, ReadHeader(kDecl + "<PrivateProto><body>x</body></PrivateProto>").rc);
  EXPECT_EQ(-2, ReadHeader(kDecl + "<!-- only <PrivateProto></PrivateProto> in a comment -->").rc);
}

TEST(GetMessageHeaderExt, OwnLinesAndNoParseTest) {
  LogCapture log;
  const std::string noOpen = "<a></PrivateProto>";
  EXPECT_EQ(-1, ReadHeader(noOpen, true).rc);
  EXPECT_TRUE(log.Has("xmlutil: Invalid message, <PrivateProto> not found:\n" + noOpen + "\n"));
  const std::string noClose = "<PrivateProto>";
  EXPECT_EQ(-1, ReadHeader(noClose, true).rc);
  EXPECT_TRUE(log.Has("xmlutil: Invalid message, </PrivateProto> not found:\n" + noClose + "\n"));

  // A text that fails to parse after its head: the header reader refuses it, the Ext reader
  // reads what the parser left behind.
  const std::string broken = kDecl +
                             "<PrivateProto><head><type>1</type><cmd>2</cmd><result>0</result></head>"
                             "<body><a></b></body></PrivateProto>";
  EXPECT_EQ(-1, ReadHeader(broken).rc);
  Header h = ReadHeader(broken, true);
  EXPECT_EQ(0, h.rc);
  EXPECT_STREQ("2", h.cmd);
  // ... and a text that fails before any head gives -2.
  EXPECT_EQ(-2, ReadHeader(kDecl + "<PrivateProto><x></y><head><type>1</type></head></PrivateProto>", true).rc);
}

TEST(GetMessageHeader, DeepNestingIsRefusedWithoutExhaustingASmallStack) {
  // 20000 nested elements would overflow a 256 KiB stack inside TinyXML's parser.
  std::string msg = kDecl + "<PrivateProto><head><type>1</type><cmd>2</cmd><result>0</result></head><body>";
  for (int i = 0; i < 20000; ++i) msg += "<a>";
  for (int i = 0; i < 20000; ++i) msg += "</a>";
  msg += "</body></PrivateProto>";
  struct Job {
    std::string* msg;
    int rc[2];
  } job{&msg, {1, 1}};
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 256 * 1024);
  pthread_t t;
  ASSERT_EQ(0, pthread_create(
                   &t, &attr,
                   [](void* p) -> void* {
                     Job* j = static_cast<Job*>(p);
                     char a[16], b[16], c[16];
                     j->rc[0] = GetMessageHeader(j->msg->c_str(), a, sizeof(a), b, sizeof(b), c, sizeof(c));
                     j->rc[1] = GetMessageHeaderExt(j->msg->c_str(), a, sizeof(a), b, sizeof(b), c, sizeof(c));
                     return nullptr;
                   },
                   &job));
  pthread_join(t, nullptr);
  pthread_attr_destroy(&attr);
  EXPECT_EQ(-1, job.rc[0]);
  EXPECT_EQ(-2, job.rc[1]);  // nothing was parsed
}

// ---------------------------------------------------------------------------------------
// GetMessageTransparentHeader

TEST(GetMessageTransparentHeader, ReadsTheAttributes) {
  const std::string msg = kDecl +
                          "<PRIVATE_PROTO><TRANSPARENT_HEADER Trans_Type=\"TRANSPARENT_CHANNEL_MSG\" "
                          "Channel_ID=\"12\" Source_Type=\"p2p\" Session_ID=\"77\" Trans_Result=\"-3\"/>"
                          "<MESSAGE_HEADER Msg_type=\"MEDIA_DATA_MESSAGE\" Msg_code=\"1\" Msg_flag=\"0\"/>"
                          "<MESSAGE_BODY/></PRIVATE_PROTO>";
  char ch[16], tr[16], sid[16];
  EXPECT_EQ(0, GetMessageTransparentHeader(msg.c_str(), ch, sizeof(ch), tr, sizeof(tr), sid, sizeof(sid)));
  EXPECT_STREQ("12", ch);
  EXPECT_STREQ("-3", tr);
  EXPECT_STREQ("77", sid);
  char small[2];
  EXPECT_EQ(0, GetMessageTransparentHeader(msg.c_str(), small, sizeof(small), tr, sizeof(tr), sid, sizeof(sid)));
  EXPECT_STREQ("1", small);
}

TEST(GetMessageTransparentHeader, EmptyOrMissingAttributesReadEmpty) {
  const std::string msg = kDecl + "<PRIVATE_PROTO><TRANSPARENT_HEADER Channel_ID=\"\"/></PRIVATE_PROTO>";
  char ch[16] = "x", tr[16] = "x", sid[16] = "x";
  EXPECT_EQ(0, GetMessageTransparentHeader(msg.c_str(), ch, sizeof(ch), tr, sizeof(tr), sid, sizeof(sid)));
  EXPECT_STREQ("", ch);
  EXPECT_STREQ("", tr);
  EXPECT_STREQ("", sid);
}

TEST(GetMessageTransparentHeader, Failures) {
  LogCapture log;
  char ch[16], tr[16], sid[16];
  strcpy(ch, "old");
  strcpy(tr, "old");
  strcpy(sid, "old");
  const std::string noOpen = "<PrivateProto></PRIVATE_PROTO>";
  EXPECT_EQ(-1, GetMessageTransparentHeader(noOpen.c_str(), ch, sizeof(ch), tr, sizeof(tr), sid, sizeof(sid)));
  EXPECT_TRUE(log.Has("xmlutil: Invalid message, <PRIVATE_PROTO> not found:\n" + noOpen + "\n"));
  EXPECT_STREQ("", ch);
  EXPECT_STREQ("", tr);
  EXPECT_STREQ("old", sid);  // only the first two outputs are cleared
  const std::string noClose = "<PRIVATE_PROTO>";
  EXPECT_EQ(-1, GetMessageTransparentHeader(noClose.c_str(), ch, sizeof(ch), tr, sizeof(tr), sid, sizeof(sid)));
  EXPECT_TRUE(log.Has("xmlutil: Invalid message, </PRIVATE_PROTO> not found:\n" + noClose + "\n"));
  EXPECT_EQ(-1, GetMessageTransparentHeader("<PRIVATE_PROTO><a></b></PRIVATE_PROTO>", ch, sizeof(ch), tr,
                                            sizeof(tr), sid, sizeof(sid)));
  EXPECT_EQ(-2, GetMessageTransparentHeader("<PRIVATE_PROTO><MESSAGE_HEADER/></PRIVATE_PROTO>", ch, sizeof(ch), tr,
                                            sizeof(tr), sid, sizeof(sid)));
  // Our own transparent requests close with </PrivateProto>: not a PRIVATE_PROTO message.
  char req[1024];
  MakeXMLRequest(req, sizeof(req), "T", "C", "0", "", 3);
  EXPECT_EQ(-1, GetMessageTransparentHeader(req, ch, sizeof(ch), tr, sizeof(tr), sid, sizeof(sid)));
}

// ---------------------------------------------------------------------------------------
// GetMessageBody / GetMessageXMLBody / GetNodeValue

TEST(GetMessageBody, SelfClosedBodyAnywhereGivesNull) {
  const std::string msg = PrivateProto("1", "2", "0", "<a>content</a>") + "<body/>";
  char* body = nullptr;
  char* xml = nullptr;
  ASSERT_EQ(0, GetMessageBody(msg.c_str(), &body));
  ASSERT_EQ(0, GetMessageXMLBody(msg.c_str(), &xml));
  EXPECT_STREQ("null", body);
  EXPECT_STREQ("null", xml);
  delete[] body;
  delete[] xml;
}

TEST(GetMessageBody, NewlineXNewline) {
  const std::string msg = PrivateProto("1", "2", "0", "X");  // <body>\nX\n</body>
  char* body = nullptr;
  char* xml = nullptr;
  ASSERT_EQ(0, GetMessageBody(msg.c_str(), &body));
  ASSERT_EQ(0, GetMessageXMLBody(msg.c_str(), &xml));
  EXPECT_STREQ("\nX\n", body);
  EXPECT_STREQ("<body>\nX\n</body>", xml);
  delete[] body;
  delete[] xml;
}

TEST(GetMessageBody, EmptyBodyAndFirstTags) {
  char* body = nullptr;
  ASSERT_EQ(0, GetMessageBody("<body></body>", &body));
  EXPECT_STREQ("", body);
  delete[] body;
  ASSERT_EQ(0, GetMessageBody("<body>a</body>b</body><body>c</body>", &body));
  EXPECT_STREQ("a", body);
  delete[] body;
  char* xml = nullptr;
  ASSERT_EQ(0, GetMessageXMLBody("zz<body></body>zz", &xml));
  EXPECT_STREQ("<body></body>", xml);
  delete[] xml;
}

TEST(GetMessageBody, MissingTagsLeaveTheOutputAlone) {
  char marker = 0;
  char* body = &marker;
  EXPECT_EQ(-1, GetMessageBody("<body>no end", &body));
  EXPECT_EQ(-1, GetMessageBody("no start</body>", &body));
  EXPECT_EQ(-1, GetMessageBody("</body> before <body>", &body));
  EXPECT_EQ(-1, GetMessageBody(nullptr, &body));
  EXPECT_EQ(-1, GetMessageXMLBody("<body>no end", &body));
  EXPECT_EQ(-1, GetMessageXMLBody("</body><body>", &body));
  EXPECT_EQ(&marker, body);
  EXPECT_EQ(-1, GetMessageBody("<body>x</body>", nullptr));
}

TEST(GetNodeValue, FirstChildOrEmpty) {
  TiXmlDocument doc;
  ASSERT_EQ(XML_PARSE_OK, ParseXmlText(doc, "<a><b>text</b><c/><d><e/></d></a>"));
  const TiXmlElement* a = doc.RootElement();
  char unused[4];
  EXPECT_STREQ("text", GetNodeValue(a->FirstChild("b"), unused));
  EXPECT_STREQ("", GetNodeValue(a->FirstChild("c"), nullptr));
  EXPECT_STREQ("e", GetNodeValue(a->FirstChild("d"), nullptr));
  EXPECT_STREQ("", GetNodeValue(nullptr, nullptr));
}

TEST(CopyText, CutsAndTerminates) {
  char buf[6];
  memset(buf, 'x', sizeof(buf));
  CopyText(buf, 4, "abcdef");
  EXPECT_STREQ("abc", buf);
  EXPECT_EQ('x', buf[4]);
  CopyText(buf, 1, "abc");
  EXPECT_STREQ("", buf);
  CopyText(buf, sizeof(buf), nullptr);
  EXPECT_STREQ("", buf);
  CopyText(nullptr, 10, "abc");  // nothing to do, no crash
}

}  // namespace
