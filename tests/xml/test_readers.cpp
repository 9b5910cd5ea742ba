// Payload readers: results and failure codes of each.
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "LogCapture.h"
#include "xml/xmlutil.h"

namespace {

const std::string kDecl = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n";

std::string Private(const std::string& type, const std::string& cmd, const std::string& body) {
  return kDecl + "<PrivateProto>\n<head>\n<type>" + type + "</type>\n<cmd>" + cmd +
         "</cmd>\n<result>0</result>\n</head>\n" + body + "\n</PrivateProto>";
}

std::string Body(const std::string& inner) { return "<body>\n" + inner + "\n</body>"; }

std::string Proto(const std::string& body) {
  return kDecl + "<PRIVATE_PROTO>\n<MESSAGE_HEADER Msg_type=\"X\" Msg_code=\"1\" Msg_flag=\"0\"/>\n" + body +
         "\n</PRIVATE_PROTO>";
}

// ---------------------------------------------------------------------------------------

TEST(GetNVRChannels, ReadsMaxChannels) {
  char out[20];
  memset(out, 'x', sizeof(out));
  const std::string msg = Private("10000", "14012", Body("<authRsp>\n<MAXChannels>32</MAXChannels>\n</authRsp>"));
  EXPECT_EQ(0, GetNVRChannels(msg.c_str(), out, sizeof(out)));
  EXPECT_STREQ("32", out);
  // Several top-level elements in the body parse thanks to the wrapping.
  const std::string two = Private("10000", "14012", Body("<a/>\n<authRsp><MAXChannels>8</MAXChannels></authRsp>"));
  EXPECT_EQ(0, GetNVRChannels(two.c_str(), out, sizeof(out)));
  EXPECT_STREQ("8", out);
  char small[3];
  const std::string big = Private("10000", "14012", Body("<authRsp><MAXChannels>12345</MAXChannels></authRsp>"));
  EXPECT_EQ(0, GetNVRChannels(big.c_str(), small, sizeof(small)));
  EXPECT_STREQ("12", small);
}

TEST(GetNVRChannels, FailureCodes) {
  char out[20];
  strcpy(out, "old");
  EXPECT_EQ(-1, GetNVRChannels("<PrivateProto><a></b></PrivateProto>", out, sizeof(out)));
  EXPECT_STREQ("", out);
  EXPECT_EQ(-1, GetNVRChannels(nullptr, out, sizeof(out)));
  EXPECT_EQ(-2, GetNVRChannels(Private("10000", "14013", Body("<authRsp><MAXChannels>1</MAXChannels></authRsp>"))
                                   .c_str(),
                               out, sizeof(out)));
  EXPECT_EQ(-2, GetNVRChannels(Private("10000", "140120", Body("")).c_str(), out, sizeof(out)));
  EXPECT_EQ(-3, GetNVRChannels(Private("10000", "14012", "").c_str(), out, sizeof(out)));
  EXPECT_EQ(-1, GetNVRChannels(Private("10000", "14012", Body("<a>")).c_str(), out, sizeof(out)));
  // The whole message parses, but the first <body> ... </body> cut (here inside a comment)
  // does not.
  EXPECT_EQ(-4, GetNVRChannels(
                    Private("10000", "14012", "<!-- <body><a></body> -->\n" + Body("<authRsp/>")).c_str(), out,
                    sizeof(out)));
  EXPECT_EQ(-5, GetNVRChannels(Private("10000", "14012", Body("<authRsp/>")).c_str(), out, sizeof(out)));
  EXPECT_EQ(-5, GetNVRChannels(Private("10000", "14012", "<body/>").c_str(), out, sizeof(out)));
  EXPECT_STREQ("", out);
}

// ---------------------------------------------------------------------------------------

TEST(GetNVRIPCStatus, TwoStatusesGiveTheSecond) {
  char out[256];
  const std::string msg =
      Private("30000", "35003", Body("<Ipcs_stat>1,0,1</Ipcs_stat>\n<Other/>\n<Ipcs_stat>0,0,1</Ipcs_stat>"));
  EXPECT_EQ(0, GetNVRIPCStatus(msg.c_str(), out, sizeof(out)));
  EXPECT_STREQ("0,0,1", out);
}

TEST(GetNVRIPCStatus, FailureCodesAndLines) {
  LogCapture log;
  char out[256];
  const std::string noOpen = "<a></PrivateProto>";
  EXPECT_EQ(-1, GetNVRIPCStatus(noOpen.c_str(), out, sizeof(out)));
  EXPECT_TRUE(log.Has("Invalid message, <PrivateProto> not found:\n" + noOpen));
  const std::string noClose = "<PrivateProto>";
  EXPECT_EQ(-1, GetNVRIPCStatus(noClose.c_str(), out, sizeof(out)));
  EXPECT_TRUE(log.Has("Invalid message, </PrivateProto> not found:\n" + noClose));
  EXPECT_EQ(-1, GetNVRIPCStatus(Private("30000", "35003", Body("<a v='ALARM_REPORT_MESSAGE \"0\"\"'/>")).c_str(), out,
                                sizeof(out)));
  EXPECT_TRUE(log.Has("GetMessageHeader detect bad ALARM_REPORT_MESSAGE message "));
  EXPECT_EQ(-1, GetNVRIPCStatus(Private("30000", "35003", Body("<MESSAGE_BODY></MESSAGE_BODY>")).c_str(), out,
                                sizeof(out)));
  EXPECT_TRUE(log.Has("GetMessageHeader detect bad ALARM_REPORT_MESSAGE message, msg body is empty "));
  EXPECT_EQ(-3, GetNVRIPCStatus(Private("30000", "35003", "").c_str(), out, sizeof(out)));
  EXPECT_EQ(-3, GetNVRIPCStatus(Private("30000", "35003", Body("<Other/>")).c_str(), out, sizeof(out)));
  EXPECT_EQ(-3, GetNVRIPCStatus(Private("30000", "35003", Body("<Ipcs_stat></Ipcs_stat>")).c_str(), out, sizeof(out)));
  EXPECT_EQ(-4, GetNVRIPCStatus(Private("30000", "35003", Body("<Ipcs_stat>")).c_str(), out, sizeof(out)));
  EXPECT_EQ(-4, GetNVRIPCStatus(Private("30000", "35003", "<body/>").c_str(), out, sizeof(out)));
  EXPECT_STREQ("", out);
}

// ---------------------------------------------------------------------------------------

TEST(GetXmlPosAndDataLen, MediaMessage) {
  int64_t pos = 0;
  long len = 0;
  const std::string msg = Private("90000", "90001", Body("<dataLen>1234</dataLen>"));
  EXPECT_EQ(0, GetXmlPosAndDataLen(msg.c_str(), &pos, &len));
  EXPECT_EQ(-1, pos);
  EXPECT_EQ(1234, len);
  // The last dataLen wins; atol reads the whole long.
  const std::string two = Private("90000", "90002", Body("<dataLen>5</dataLen><dataLen>3000000000</dataLen>"));
  EXPECT_EQ(0, GetXmlPosAndDataLen(two.c_str(), &pos, &len));
  EXPECT_EQ(3000000000L, len);
}

TEST(GetXmlPosAndDataLen, NoBodyIsZeroWithLengthZero) {
  int64_t pos = 5;
  long len = 5;
  EXPECT_EQ(0, GetXmlPosAndDataLen(Private("90000", "90001", "").c_str(), &pos, &len));
  EXPECT_EQ(-1, pos);
  EXPECT_EQ(0, len);
}

TEST(GetXmlPosAndDataLen, Failures) {
  int64_t pos = 5;
  long len = 5;
  EXPECT_EQ(-1, GetXmlPosAndDataLen(Private("90000", "90001", Body("<dataLen>")).c_str(), &pos, &len));
  EXPECT_EQ(0, len);
  EXPECT_EQ(-1, GetXmlPosAndDataLen(Private("90000", "90001", "<body/>").c_str(), &pos, &len));
  EXPECT_EQ(0, GetXmlPosAndDataLen(Private("90000", "90001", Body("<other>7</other>")).c_str(), &pos, &len));
  EXPECT_EQ(0, len);
  EXPECT_EQ(-1, GetXmlPosAndDataLen("x", nullptr, &len));
  EXPECT_EQ(-1, GetXmlPosAndDataLen("x", &pos, nullptr));
}

// ---------------------------------------------------------------------------------------

TEST(GetConfigPosAndDataLen, ReadsPositionAndLength) {
  int64_t pos = 0;
  long len = 0;
  const std::string msg = Private("20000", "20007", Body("<startPos>4096</startPos><dataLength>1024</dataLength>"));
  EXPECT_EQ(0, GetConfigPosAndDataLen(msg.c_str(), &pos, &len));
  EXPECT_EQ(4096, pos);
  EXPECT_EQ(1024, len);
  // The position is a 32-bit value sign-extended.
  const std::string neg = Private("20000", "20007", Body("<startPos>-2</startPos>"));
  EXPECT_EQ(0, GetConfigPosAndDataLen(neg.c_str(), &pos, &len));
  EXPECT_EQ(-2, pos);
  EXPECT_EQ(0, len);
}

TEST(GetConfigPosAndDataLen, AbsentAndFailures) {
  int64_t pos = 0;
  long len = 9;
  EXPECT_EQ(0, GetConfigPosAndDataLen(Private("20000", "20007", Body("<x/>")).c_str(), &pos, &len));
  EXPECT_EQ(-1, pos);
  EXPECT_EQ(0, len);
  EXPECT_EQ(0, GetConfigPosAndDataLen(Private("20000", "20007", "").c_str(), &pos, &len));
  EXPECT_EQ(-1, pos);
  EXPECT_EQ(-4, GetConfigPosAndDataLen(Private("20000", "20007", Body("<a></b>")).c_str(), &pos, &len));
  EXPECT_EQ(-1, GetConfigPosAndDataLen("x", nullptr, &len));
}

// ---------------------------------------------------------------------------------------

TEST(GetFileTransportLength, Codes) {
  int len = 5;
  EXPECT_EQ(0, GetFileTransportLength(Private("1", "2", Body("<fileLength>65536</fileLength>")).c_str(), &len));
  EXPECT_EQ(65536, len);
  EXPECT_EQ(-1, GetFileTransportLength(Private("1", "2", "").c_str(), &len));
  EXPECT_EQ(0, len);
  EXPECT_EQ(-1, GetFileTransportLength(Private("1", "2", Body("<other/>")).c_str(), &len));
  EXPECT_EQ(-4, GetFileTransportLength(Private("1", "2", Body("<fileLength>")).c_str(), &len));
  EXPECT_EQ(-1, GetFileTransportLength("x", nullptr));
}

TEST(GetFileTransportPort, ReadsTheRootAttributes) {
  uint16_t port = 1;
  int type = 1;
  uint32_t length = 1;
  EXPECT_EQ(0, GetFileTransportPort("<FileTransport Port=\"8200\" Type=\"2\" FileLength=\"4000000000\"/>", &port,
                                    &type, &length));
  EXPECT_EQ(8200, port);
  EXPECT_EQ(2, type);
  EXPECT_EQ(4000000000u, length);
}

TEST(GetFileTransportPort, ClearsAllOutputsFirst) {
  uint16_t port = 1;
  int type = 1;
  uint32_t length = 1;
  EXPECT_EQ(0, GetFileTransportPort("<FileTransport Port=\"80\"/>", &port, &type, &length));
  EXPECT_EQ(80, port);
  EXPECT_EQ(0, type);
  EXPECT_EQ(0u, length);
  port = 1;
  type = 1;
  length = 1;
  EXPECT_EQ(-1, GetFileTransportPort("<a></b>", &port, &type, &length));
  EXPECT_EQ(0, port);
  EXPECT_EQ(0, type);
  EXPECT_EQ(0u, length);
  EXPECT_EQ(-2, GetFileTransportPort("<!-- no element -->", &port, &type, &length));
  EXPECT_EQ(-1, GetFileTransportPort(nullptr, &port, &type, &length));
}

// ---------------------------------------------------------------------------------------

TEST(GetEncryptMethod, Codes) {
  int version = 9;
  EXPECT_EQ(0, GetEncryptMethod(Proto("<MESSAGE_BODY><ENCRYPT Capbility=\"1\" Version=\"3\"/></MESSAGE_BODY>").c_str(),
                                &version));
  EXPECT_EQ(3, version);
  EXPECT_EQ(0, GetEncryptMethod(Proto("<MESSAGE_BODY><ENCRYPT Version=\"3\"/></MESSAGE_BODY>").c_str(), &version));
  EXPECT_EQ(0, version);  // no Capbility
  version = 9;
  EXPECT_EQ(0, GetEncryptMethod(Proto("<MESSAGE_BODY><ENCRYPT Capbility=\"1\"/></MESSAGE_BODY>").c_str(), &version));
  EXPECT_EQ(0, version);
  version = 9;
  EXPECT_EQ(0, GetEncryptMethod(Proto("<MESSAGE_BODY/>").c_str(), &version));
  EXPECT_EQ(0, version);
  version = 9;
  EXPECT_EQ(-1, GetEncryptMethod("<a></b>", &version));
  EXPECT_EQ(0, version);
  EXPECT_EQ(-1, GetEncryptMethod("<a/>", nullptr));
}

TEST(GetEncryptKey, Codes) {
  std::string key = "old";
  EXPECT_EQ(0, GetEncryptKey(Proto("<MESSAGE_BODY><KeyConfig KeyValue=\"q+/=AbC&amp;\"/></MESSAGE_BODY>").c_str(), key));
  EXPECT_EQ("q+/=AbC&", key);
  EXPECT_EQ(-1, GetEncryptKey(Proto("<MESSAGE_BODY><KeyConfig/></MESSAGE_BODY>").c_str(), key));
  EXPECT_EQ("", key);
  EXPECT_EQ(-1, GetEncryptKey(Proto("<MESSAGE_BODY><Other KeyValue=\"1\"/></MESSAGE_BODY>").c_str(), key));
  EXPECT_EQ(-1, GetEncryptKey(Proto("").c_str(), key));
  EXPECT_EQ(-1, GetEncryptKey("<a></b>", key));
  // KeyConfig must be an element: a text node of that value does not count.
  EXPECT_EQ(-1, GetEncryptKey("<P><MESSAGE_BODY>KeyConfig</MESSAGE_BODY></P>", key));
}

// ---------------------------------------------------------------------------------------

TEST(GetLiveStreamParam, ReadsEveryField) {
  LIVE_STREAM_PARAM_t p;
  const std::string msg =
      Private("10000", "14200",
              Body("<ChannelId>3</ChannelId><VideoStream>1</VideoStream><Encoder>H265</Encoder><Width>1920</Width>"
                   "<Height>1080</Height><Framerate>25</Framerate><Bitrate>4096</Bitrate>"));
  EXPECT_EQ(0, GetLiveStreamParam(msg.c_str(), &p));
  EXPECT_EQ(3, p.nChannelId);
  EXPECT_EQ(1, p.nVideoStream);
  EXPECT_STREQ("H265", p.szEncoder);
  EXPECT_EQ(1920, p.nWidth);
  EXPECT_EQ(1080, p.nHeight);
  EXPECT_EQ(25, p.nFrameRate);
  EXPECT_EQ(4096, p.nBitRate);
}

TEST(GetLiveStreamParam, MissingFieldsAreLoggedAndZero) {
  LogCapture log;
  LIVE_STREAM_PARAM_t p;
  memset(&p, 0x7f, sizeof(p));
  const std::string msg = Private("10000", "14200", Body("<Encoder>" + std::string(40, 'E') + "</Encoder>"));
  EXPECT_EQ(0, GetLiveStreamParam(msg.c_str(), &p));
  EXPECT_EQ(-1, p.nChannelId);
  EXPECT_EQ(0, p.nVideoStream);
  EXPECT_EQ(0, p.nWidth);
  EXPECT_EQ(0, p.nBitRate);
  EXPECT_EQ(std::string(31, 'E'), p.szEncoder);
  for (const char* f : {"Width", "Height", "Framerate", "Bitrate"})
    EXPECT_TRUE(log.Has(std::string("xmlutil: GetLiveStreamParam(): ") + f + " not found!\n")) << f;
}

TEST(GetLiveStreamParam, Failures) {
  LIVE_STREAM_PARAM_t p;
  EXPECT_EQ(-1, GetLiveStreamParam(Private("1", "2", "").c_str(), &p));
  EXPECT_EQ(-1, p.nChannelId);
  EXPECT_EQ(-4, GetLiveStreamParam(Private("1", "2", Body("<Width>")).c_str(), &p));
  EXPECT_EQ(-1, GetLiveStreamParam("x", nullptr));
}

// ---------------------------------------------------------------------------------------

TEST(GetNvrRecInfo, AttributesOrChildElements) {
  char ch[8], stream[8];
  EXPECT_EQ(0, GetNvrRecInfo(Proto("<MESSAGE_BODY><RESPONSE_PARAM ChannelId=\"5\" Stream=\"1\"/></MESSAGE_BODY>").c_str(),
                             ch, sizeof(ch), stream, sizeof(stream)));
  EXPECT_STREQ("5", ch);
  EXPECT_STREQ("1", stream);
  EXPECT_EQ(0, GetNvrRecInfo(Proto("<MESSAGE_BODY><RESPONSE_PARAM><ChannelId>6</ChannelId><Stream>0</Stream>"
                                   "</RESPONSE_PARAM></MESSAGE_BODY>")
                                 .c_str(),
                             ch, sizeof(ch), stream, sizeof(stream)));
  EXPECT_STREQ("6", ch);
  EXPECT_STREQ("0", stream);
  EXPECT_EQ(0, GetNvrRecInfo(Proto("<MESSAGE_BODY><RESPONSE_PARAM/></MESSAGE_BODY>").c_str(), ch, sizeof(ch), stream,
                             sizeof(stream)));
  EXPECT_STREQ("-1", ch);
  EXPECT_STREQ("", stream);
}

TEST(GetNvrRecInfo, FailureCodes) {
  char ch[8], stream[8];
  strcpy(stream, "old");
  EXPECT_EQ(-1, GetNvrRecInfo("<a></b>", ch, sizeof(ch), stream, sizeof(stream)));
  EXPECT_STREQ("-1", ch);
  EXPECT_STREQ("", stream);
  EXPECT_EQ(-2, GetNvrRecInfo(Proto("").c_str(), ch, sizeof(ch), stream, sizeof(stream)));
  EXPECT_EQ(-3, GetNvrRecInfo(Proto("<MESSAGE_BODY/>").c_str(), ch, sizeof(ch), stream, sizeof(stream)));
  char tiny[2];
  EXPECT_EQ(-3, GetNvrRecInfo(Proto("<MESSAGE_BODY/>").c_str(), tiny, sizeof(tiny), stream, sizeof(stream)));
  EXPECT_STREQ("-", tiny);  // "-1" cut to the buffer
}

TEST(GetNvrRecInfoByMonth, ReadsTimeAndRecordData) {
  char ch[8], time[16], data[40];
  const std::string msg = Proto(
      "<MESSAGE_BODY><RESPONSE_PARAM ChannelId=\"2\" Time=\"20240500000000\" "
      "RecordData=\"0101000000000000000000000000011\"/></MESSAGE_BODY>");
  EXPECT_EQ(0, GetNvrRecInfoByMonth(msg.c_str(), ch, sizeof(ch), time, sizeof(time), data, sizeof(data)));
  EXPECT_STREQ("2", ch);
  EXPECT_STREQ("20240500000000", time);
  EXPECT_STREQ("0101000000000000000000000000011", data);
  char small[8];
  EXPECT_EQ(0, GetNvrRecInfoByMonth(msg.c_str(), ch, sizeof(ch), time, sizeof(time), small, sizeof(small)));
  EXPECT_STREQ("0101000", small);
  EXPECT_EQ(-3, GetNvrRecInfoByMonth(Proto("<MESSAGE_BODY/>").c_str(), ch, sizeof(ch), time, sizeof(time), data,
                                     sizeof(data)));
  EXPECT_STREQ("-1", ch);
  EXPECT_STREQ("", time);
  EXPECT_STREQ("", data);
  EXPECT_EQ(-2, GetNvrRecInfoByMonth(Proto("").c_str(), ch, sizeof(ch), time, sizeof(time), data, sizeof(data)));
  EXPECT_EQ(-1, GetNvrRecInfoByMonth("", ch, sizeof(ch), time, sizeof(time), data, sizeof(data)));
}

// ---------------------------------------------------------------------------------------

TEST(GetDevPictureLen, Codes) {
  char len[16];
  EXPECT_EQ(0, GetDevPictureLen(Proto("<MESSAGE_BODY><RESPONSE_PARAM FileLen=\"123456\"/></MESSAGE_BODY>").c_str(),
                                len, sizeof(len)));
  EXPECT_STREQ("123456", len);
  EXPECT_EQ(-4, GetDevPictureLen(Proto("<MESSAGE_BODY><RESPONSE_PARAM/></MESSAGE_BODY>").c_str(), len, sizeof(len)));
  EXPECT_STREQ("", len);
  EXPECT_EQ(-3, GetDevPictureLen(Proto("<MESSAGE_BODY><PICTURE FileLen=\"1\"/></MESSAGE_BODY>").c_str(), len,
                                 sizeof(len)));
  EXPECT_EQ(-2, GetDevPictureLen(Proto("").c_str(), len, sizeof(len)));
  EXPECT_EQ(-1, GetDevPictureLen("<a></b>", len, sizeof(len)));
}

TEST(GetPictureLen, Codes) {
  char len[4];
  EXPECT_EQ(0, GetPictureLen(Proto("<MESSAGE_BODY><PICTURE FILE_LEN=\"98765\"/></MESSAGE_BODY>").c_str(), len,
                             sizeof(len)));
  EXPECT_STREQ("987", len);
  EXPECT_EQ(-4, GetPictureLen(Proto("<MESSAGE_BODY><PICTURE FileLen=\"1\"/></MESSAGE_BODY>").c_str(), len,
                              sizeof(len)));
  EXPECT_EQ(-3, GetPictureLen(Proto("<MESSAGE_BODY><RESPONSE_PARAM FILE_LEN=\"1\"/></MESSAGE_BODY>").c_str(), len,
                              sizeof(len)));
  EXPECT_EQ(-2, GetPictureLen(Proto("").c_str(), len, sizeof(len)));
  EXPECT_EQ(-1, GetPictureLen(nullptr, len, sizeof(len)));
}

// ---------------------------------------------------------------------------------------

TEST(GetAudioRTPParam, Codes) {
  AUDIO_RTP_PARAM_t a;
  EXPECT_EQ(0, GetAudioRTPParam(Proto("<MESSAGE_BODY><RA_START_RESPONSE AudioCodec=\"1\" Samplerate=\"8000\" "
                                      "BitsPerSample=\"16\" Channels=\"1\" RTPRecvPort=\"5004\" "
                                      "ConnectionType=\"2\"/></MESSAGE_BODY>")
                                    .c_str(),
                                &a));
  EXPECT_EQ(1, a.nAudioCodec);
  EXPECT_EQ(8000, a.nSampleRate);
  EXPECT_EQ(16, a.nBitsPerSample);
  EXPECT_EQ(1, a.nChannels);
  EXPECT_EQ(5004, a.nRTPRecvPort);
  EXPECT_EQ(2, a.nConnectionType);
  EXPECT_EQ(0, GetAudioRTPParam(Proto("<MESSAGE_BODY><RA_START_RESPONSE Samplerate=\"16000\"/></MESSAGE_BODY>").c_str(),
                                &a));
  EXPECT_EQ(0, a.nAudioCodec);
  EXPECT_EQ(16000, a.nSampleRate);
  EXPECT_EQ(-3, GetAudioRTPParam(Proto("<MESSAGE_BODY/>").c_str(), &a));
  EXPECT_EQ(0, a.nSampleRate);
  EXPECT_EQ(-2, GetAudioRTPParam(Proto("").c_str(), &a));
  EXPECT_EQ(-1, GetAudioRTPParam("<a></b>", &a));
  EXPECT_EQ(-1, GetAudioRTPParam("<a/>", nullptr));
}

// ---------------------------------------------------------------------------------------

const char kEncodeConfig[] =
    "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
    "<Config><Video><EncodeConfig Stream=\"0\" BitRate=\"4096\" Initquant=\"28\" FrameRate=\"25\" Width=\"1920\"/>"
    "<EncodeConfig Stream=\"1\" BitRate=\"512\" FrameRate=\"15\"/></Video></Config>";

TEST(ModifyVideoParam, ReadsLogsAndWritesBack) {
  LogCapture log;
  VIDEO_ENCODE_PARAM_t newValues;
  memset(&newValues, 0, sizeof(newValues));
  strcpy(newValues.szBitRate, "2048");
  strcpy(newValues.szInitquant, "30");
  VIDEO_ENCODE_PARAM_t old;
  std::string modified;
  EXPECT_EQ(0, ModifyVideoParam(kEncodeConfig, 0, &newValues, &old, &modified));
  EXPECT_STREQ("4096", old.szBitRate);
  EXPECT_STREQ("28", old.szInitquant);
  EXPECT_STREQ("25", old.szFrameRate);
  EXPECT_TRUE(log.Has("xml: get strBitRate=4096, strInitquant=28, strFrameRate=25 \n"));
  EXPECT_NE(std::string::npos,
            modified.find("<EncodeConfig Stream=\"0\" BitRate=\"2048\" Initquant=\"30\" FrameRate=\"25\" "
                          "Width=\"1920\" />"))
      << modified;
  EXPECT_NE(std::string::npos, modified.find("<EncodeConfig Stream=\"1\" BitRate=\"512\" FrameRate=\"15\" />"));
}

TEST(ModifyVideoParam, AbsentAttributesAreAppendedInOrder) {
  VIDEO_ENCODE_PARAM_t newValues;
  memset(&newValues, 0, sizeof(newValues));
  strcpy(newValues.szBitRate, "1");
  strcpy(newValues.szInitquant, "2");
  strcpy(newValues.szFrameRate, "3");
  VIDEO_ENCODE_PARAM_t old;
  std::string modified;
  EXPECT_EQ(0, ModifyVideoParam("<EncodeConfig Stream=\"1\"/>", 1, &newValues, &old, &modified));
  EXPECT_STREQ("", old.szInitquant);
  EXPECT_EQ("<EncodeConfig Stream=\"1\" BitRate=\"1\" Initquant=\"2\" FrameRate=\"3\" />", modified);
}

TEST(ModifyVideoParam, ReadOnlyAndFailures) {
  VIDEO_ENCODE_PARAM_t old;
  EXPECT_EQ(0, ModifyVideoParam(kEncodeConfig, 1, nullptr, &old, nullptr));
  EXPECT_STREQ("512", old.szBitRate);
  EXPECT_STREQ("", old.szInitquant);
  EXPECT_EQ(-2, ModifyVideoParam(kEncodeConfig, 2, nullptr, &old, nullptr));
  EXPECT_STREQ("", old.szBitRate);
  EXPECT_EQ(-2, ModifyVideoParam("<EncodeConfig BitRate=\"1\"/>", 0, nullptr, &old, nullptr));  // no Stream
  EXPECT_EQ(-1, ModifyVideoParam("<a></b>", 0, nullptr, &old, nullptr));
  EXPECT_EQ(-1, ModifyVideoParam(nullptr, 0, nullptr, &old, nullptr));
}

}  // namespace
