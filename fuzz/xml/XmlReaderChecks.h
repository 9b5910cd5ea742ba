// Every reader of the XML layer, run on one input text with its outputs fenced by guard
// bytes, and the properties each result must have. Shared by the fuzz targets (a broken
// property aborts) and by the corpus replay of the unit tests (it fails the test).
#ifndef QXNET_FUZZ_XML_READERCHECKS_H
#define QXNET_FUZZ_XML_READERCHECKS_H

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "xml/XmlParse.h"
#include "xml/xmlutil.h"

namespace xmlcheck {

// Called with the reader's name and what went wrong; set by the harness.
typedef void (*FailFn)(const char* reader, const char* what, const std::string& input);
inline FailFn& Failure() {
  static FailFn fn = nullptr;
  return fn;
}

inline void Check(bool ok, const char* reader, const char* what, const std::string& input) {
  if (ok) return;
  if (Failure()) {
    Failure()(reader, what, input);
  } else {
    fprintf(stderr, "%s: %s\n", reader, what);
    __builtin_trap();
  }
}

// A text output of `size` bytes followed by guard bytes that no reader may touch.
class Fenced {
 public:
  explicit Fenced(size_t size) : m_size(size), m_buf(size + kGuard, static_cast<char>(0xA5)) {}
  char* data() { return m_buf.data(); }
  size_t size() const { return m_size; }
  // The guard is intact and the text is NUL-terminated inside its size.
  bool Sound() const {
    for (size_t i = m_size; i < m_buf.size(); ++i)
      if (m_buf[i] != static_cast<char>(0xA5)) return false;
    return m_size == 0 || memchr(m_buf.data(), 0, m_size) != nullptr;
  }
  std::string str() const { return std::string(m_buf.data(), strnlen(m_buf.data(), m_size)); }

 private:
  static const size_t kGuard = 16;
  size_t m_size;
  std::vector<char> m_buf;
};

inline bool In(int v, std::initializer_list<int> set) {
  for (int s : set)
    if (v == s) return true;
  return false;
}

// --- envelope readers -------------------------------------------------------------------

// Both header readers share the properties of their result; `ext` picks the reader.
inline void HeaderReader(const std::string& in, bool ext) {
  const char* msg = in.c_str();
  const char* name = ext ? "GetMessageHeaderExt" : "GetMessageHeader";
  for (size_t size : {size_t(256), size_t(3)}) {
    Fenced t(size), c(size), r(size);
    int rc = ext ? GetMessageHeaderExt(msg, t.data(), t.size(), c.data(), c.size(), r.data(), r.size())
                 : GetMessageHeader(msg, t.data(), t.size(), c.data(), c.size(), r.data(), r.size());
    Check(t.Sound() && c.Sound() && r.Sound(), name, "output fence", in);
    Check(rc <= 0 && rc >= -5, name, "result range", in);
    if (!strstr(msg, "<PrivateProto>") || !strstr(msg, "</PrivateProto>")) Check(rc == -1, name, "tag check", in);
    if (rc == 0) Check(!t.str().empty() && !c.str().empty() && !r.str().empty(), name, "0 with empty field", in);
    if (rc == -3) Check(t.str().empty(), name, "-3 with a type", in);
    if (rc == -4) Check(!t.str().empty() && c.str().empty(), name, "-4 fields", in);
    if (rc == -5) Check(!t.str().empty() && !c.str().empty() && r.str().empty(), name, "-5 fields", in);
    if (rc == -1 || rc == -2) Check(t.str().empty() && c.str().empty() && r.str().empty(), name, "fields on failure", in);
  }
}

inline void CheckGetMessageHeader(const std::string& in) { HeaderReader(in, false); }

inline void CheckGetMessageHeaderExt(const std::string& in) { HeaderReader(in, true); }

inline void CheckGetMessageTransparentHeader(const std::string& in) {
  for (size_t size : {size_t(64), size_t(2)}) {
    Fenced ch(size), tr(size), sid(size);
    int rc = GetMessageTransparentHeader(in.c_str(), ch.data(), ch.size(), tr.data(), tr.size(), sid.data(),
                                         sid.size());
    Check(ch.Sound() && tr.Sound(), "GetMessageTransparentHeader", "output fence", in);
    Check(In(rc, {0, -1, -2}), "GetMessageTransparentHeader", "result range", in);
    if (rc == 0) Check(sid.Sound(), "GetMessageTransparentHeader", "session id fence", in);
    if (rc != 0) Check(ch.str().empty() && tr.str().empty(), "GetMessageTransparentHeader", "cleared", in);
  }
}

// What the body readers must find in a text: whether it has a body, and if so either the
// empty form or the text between the first <body> and the first </body>.
struct ExpectedBody {
  explicit ExpectedBody(const char* msg)
      : open(strstr(msg, "<body>")), close(strstr(msg, "</body>")), isNull(strstr(msg, "<body/>") != nullptr),
        has(isNull || (open && close && close > open)) {}
  std::string Inner() const { return std::string(open + 6, close); }
  const char* open;
  const char* close;
  bool isNull;
  bool has;
};

// Both body readers: `xml` picks the one that keeps the body tags.
inline void BodyReader(const std::string& in, bool xml) {
  const char* msg = in.c_str();
  const char* name = xml ? "GetMessageXMLBody" : "GetMessageBody";
  ExpectedBody expected(msg);
  char* sentinel = reinterpret_cast<char*>(&sentinel);
  char* body = sentinel;
  int rc = xml ? GetMessageXMLBody(msg, &body) : GetMessageBody(msg, &body);
  Check(rc == (expected.has ? 0 : -1), name, "result", in);
  if (!expected.has) {
    Check(body == sentinel, name, "output touched on failure", in);
    return;
  }
  if (expected.isNull) {
    Check(strcmp(body, "null") == 0, name, "<body/> gives null", in);
  } else if (xml) {
    Check(body == "<body>" + expected.Inner() + "</body>", name, "content", in);
  } else {
    Check(body == expected.Inner(), name, "content", in);
  }
  delete[] body;
}

inline void CheckGetMessageBody(const std::string& in) { BodyReader(in, false); }

inline void CheckGetMessageXMLBody(const std::string& in) { BodyReader(in, true); }

// --- alarm reports ------------------------------------------------------------------------

inline void CheckAlarmResult(const char* name, int rc, ALARM_ITEM* items, const std::string& in) {
  Check(rc > 0 || In(rc, {-1, -2, -3}), name, "result range", in);
  if (rc <= 0) {
    Check(items == nullptr, name, "array on failure", in);
    return;
  }
  Check(items != nullptr, name, "no array", in);
  for (int i = 0; i < rc; ++i)
    Check(memchr(items[i].szAlarmData, 0, sizeof(items[i].szAlarmData)) != nullptr, name, "Alarm_data NUL", in);
  delete[] items;
}

inline void CheckGetAlarmList(const std::string& in) {
  ALARM_ITEM* items = reinterpret_cast<ALARM_ITEM*>(&items);
  int rc = GetAlarmList(in.c_str(), &items);
  CheckAlarmResult("GetAlarmList", rc, items, in);
}

inline void CheckGetAlarmListEx(const std::string& in) {
  ALARM_ITEM* items = reinterpret_cast<ALARM_ITEM*>(&items);
  int source = 12345, channel = 54321;
  int rc = GetAlarmListEx(in.c_str(), &items, source, channel);
  CheckAlarmResult("GetAlarmListEx", rc, items, in);
}

// --- payload readers: media and transfers -------------------------------------------------

inline void CheckGetXmlPosAndDataLen(const std::string& in) {
  int64_t pos = 7;
  long len = 7;
  int rc = GetXmlPosAndDataLen(in.c_str(), &pos, &len);
  Check(In(rc, {0, -1}) && pos == -1, "GetXmlPosAndDataLen", "result", in);
  if (rc != 0) Check(len == 0, "GetXmlPosAndDataLen", "length on failure", in);
}

inline void CheckGetConfigPosAndDataLen(const std::string& in) {
  int64_t pos = 7;
  long len = 7;
  int rc = GetConfigPosAndDataLen(in.c_str(), &pos, &len);
  Check(In(rc, {0, -4}), "GetConfigPosAndDataLen", "result", in);
  if (rc != 0) Check(pos == -1 && len == 0, "GetConfigPosAndDataLen", "outputs on failure", in);
}

inline void CheckGetFileTransportLength(const std::string& in) {
  int flen = 7;
  int rc = GetFileTransportLength(in.c_str(), &flen);
  Check(In(rc, {0, -1, -4}), "GetFileTransportLength", "result", in);
  if (rc != 0) Check(flen == 0, "GetFileTransportLength", "length on failure", in);
}

inline void CheckGetFileTransportPort(const std::string& in) {
  uint16_t port = 7;
  int type = 7;
  uint32_t length = 7;
  int rc = GetFileTransportPort(in.c_str(), &port, &type, &length);
  Check(In(rc, {0, -1, -2}), "GetFileTransportPort", "result", in);
  if (rc != 0) Check(port == 0 && type == 0 && length == 0, "GetFileTransportPort", "cleared", in);
}

inline void CheckGetLiveStreamParam(const std::string& in) {
  LIVE_STREAM_PARAM_t live;
  memset(&live, 0x5A, sizeof(live));
  int rc = GetLiveStreamParam(in.c_str(), &live);
  Check(In(rc, {0, -1, -4}), "GetLiveStreamParam", "result", in);
  Check(memchr(live.szEncoder, 0, sizeof(live.szEncoder)) != nullptr, "GetLiveStreamParam", "encoder NUL", in);
  if (rc != 0) Check(live.nChannelId == -1 && live.nWidth == 0, "GetLiveStreamParam", "cleared", in);
}

// --- payload readers: device answers -------------------------------------------------------

// The readers with text outputs run with a roomy and a tiny output size. Every output is a
// fresh fenced buffer: nothing a reader leaves behind may come from an earlier call.
static const size_t kDeviceOutputSizes[] = {256, 2};

inline void CheckGetNVRChannels(const std::string& in) {
  for (size_t size : kDeviceOutputSizes) {
    Fenced out(size);
    int rc = GetNVRChannels(in.c_str(), out.data(), out.size());
    Check(out.Sound() && rc <= 0 && rc >= -5, "GetNVRChannels", "result / fence", in);
    if (rc != 0) Check(out.str().empty(), "GetNVRChannels", "output on failure", in);
  }
}

inline void CheckGetNVRIPCStatus(const std::string& in) {
  for (size_t size : kDeviceOutputSizes) {
    Fenced st(size);
    int rc = GetNVRIPCStatus(in.c_str(), st.data(), st.size());
    Check(st.Sound() && In(rc, {0, -1, -3, -4}), "GetNVRIPCStatus", "result / fence", in);
    Check((rc == 0) == !st.str().empty(), "GetNVRIPCStatus", "0 iff non-empty", in);
  }
}

inline void CheckGetNvrRecInfo(const std::string& in) {
  for (size_t size : kDeviceOutputSizes) {
    Fenced ch(size), stream(size);
    int rc = GetNvrRecInfo(in.c_str(), ch.data(), ch.size(), stream.data(), stream.size());
    Check(ch.Sound() && stream.Sound() && In(rc, {0, -1, -2, -3}), "GetNvrRecInfo", "result / fence", in);
    if (rc != 0 && size > 2) Check(ch.str() == "-1" && stream.str().empty(), "GetNvrRecInfo", "defaults", in);
  }
}

inline void CheckGetNvrRecInfoByMonth(const std::string& in) {
  for (size_t size : kDeviceOutputSizes) {
    Fenced ch(size), time(size), data(size);
    int rc = GetNvrRecInfoByMonth(in.c_str(), ch.data(), ch.size(), time.data(), time.size(), data.data(),
                                  data.size());
    Check(ch.Sound() && time.Sound() && data.Sound() && In(rc, {0, -1, -2, -3}), "GetNvrRecInfoByMonth",
          "result / fence", in);
  }
}

// Both picture length readers share the properties of their result.
inline void PictureLenReader(const std::string& in, const char* name,
                             int (*read)(const char*, char*, size_t)) {
  for (size_t size : kDeviceOutputSizes) {
    Fenced fl(size);
    int rc = read(in.c_str(), fl.data(), fl.size());
    Check(fl.Sound() && rc <= 0 && rc >= -4, name, "result / fence", in);
    if (rc != 0) Check(fl.str().empty(), name, "cleared", in);
  }
}

inline void CheckGetDevPictureLen(const std::string& in) {
  PictureLenReader(in, "GetDevPictureLen", GetDevPictureLen);
}

inline void CheckGetPictureLen(const std::string& in) { PictureLenReader(in, "GetPictureLen", GetPictureLen); }

inline void CheckGetEncryptMethod(const std::string& in) {
  int version = 7;
  int rc = GetEncryptMethod(in.c_str(), &version);
  Check(In(rc, {0, -1}), "GetEncryptMethod", "result", in);
  if (rc != 0) Check(version == 0, "GetEncryptMethod", "version on failure", in);
}

inline void CheckGetEncryptKey(const std::string& in) {
  std::string key = "previous";
  int rc = GetEncryptKey(in.c_str(), key);
  Check(In(rc, {0, -1}), "GetEncryptKey", "result", in);
  if (rc != 0) Check(key.empty(), "GetEncryptKey", "key on failure", in);
}

inline void CheckGetAudioRTPParam(const std::string& in) {
  AUDIO_RTP_PARAM_t audio;
  memset(&audio, 0x5A, sizeof(audio));
  int rc = GetAudioRTPParam(in.c_str(), &audio);
  Check(In(rc, {0, -1, -2, -3}), "GetAudioRTPParam", "result", in);
  if (rc != 0) Check(audio.nAudioCodec == 0 && audio.nConnectionType == 0, "GetAudioRTPParam", "cleared", in);
}

inline void CheckModifyVideoParam(const std::string& in) {
  VIDEO_ENCODE_PARAM_t newValues;
  memset(&newValues, 0, sizeof(newValues));
  strcpy(newValues.szBitRate, "2048");
  strcpy(newValues.szFrameRate, "25");
  for (int stream = 0; stream < 2; ++stream) {
    VIDEO_ENCODE_PARAM_t old;
    std::string modified;
    int rc = ModifyVideoParam(in.c_str(), stream, &newValues, &old, &modified);
    Check(In(rc, {0, -1, -2}), "ModifyVideoParam", "result", in);
    Check(memchr(old.szBitRate, 0, sizeof(old.szBitRate)) && memchr(old.szInitquant, 0, sizeof(old.szInitquant)) &&
              memchr(old.szFrameRate, 0, sizeof(old.szFrameRate)),
          "ModifyVideoParam", "old values NUL", in);
    if (rc == 0) Check(!modified.empty(), "ModifyVideoParam", "printed document", in);
  }
}

// --- the parse guard and the path helpers -----------------------------------------------

// The nesting walk must reach exactly the depth TinyXML's parser reaches (never less: the
// guard relies on it). TinyXML is run here on the same zero-padded text, so only texts
// whose depth the walk finds moderate are parsed directly.
inline void NestingAndPaths(const std::string& in) {
  int walk = XmlNestingDepth(in.data(), in.size(), 4096);
  if (walk <= 2000) {
    std::string padded(in.c_str());
    padded.append(kXmlTextPad, '\0');
    TiXmlDocument raw;
    raw.Parse(padded.c_str(), nullptr, TIXML_ENCODING_UNKNOWN);
    int tree = XmlTreeDepth(&raw);
    Check(walk >= tree, "XmlNestingDepth", "walk shallower than TinyXML", in);
    Check(walk == tree, "XmlNestingDepth", "walk differs from TinyXML", in);
  }
  TiXmlDocument doc;
  int rc = ParseXmlText(doc, in.c_str());
  Check(In(rc, {XML_PARSE_OK, XML_PARSE_ERROR, XML_PARSE_TOO_DEEP}), "ParseXmlText", "result", in);
  if (rc == XML_PARSE_TOO_DEEP) Check(walk > kXmlMaxNesting, "ParseXmlText", "refused a shallow text", in);
  if (walk <= kXmlMaxNesting) Check(rc != XML_PARSE_TOO_DEEP, "ParseXmlText", "refused", in);

  // Paths made of names present in the text, and the text itself cut on its own bytes.
  static const char* const kPaths[] = {"head",        "head/type",         "body",
                                       "MESSAGE_BODY", "MESSAGE_BODY/ALARM_REPORT_PARAM/ALARM_ITEM",
                                       "",            "/",                 "a//b",
                                       "head/",       "/head"};
  std::vector<std::string> paths(std::begin(kPaths), std::end(kPaths));
  paths.push_back(in.substr(0, 40));
  for (TiXmlNode* start : {static_cast<TiXmlNode*>(&doc), static_cast<TiXmlNode*>(doc.RootElement())}) {
    for (const std::string& p : paths) {
      TiXmlNode* n = SelectNode(start, p.c_str());
      TiXmlElement* e = SelectElement(start, p.c_str());
      Check(!e || e == n, "SelectElement", "differs from SelectNode", in);
      if (start && start->ToElement()) {
        const char* t = GetNodeText(start->ToElement(), p.c_str());
        const TiXmlNode* from = start->FirstChild(p.c_str());
        if (!from) from = n;
        if (!from) Check(t == nullptr, "GetNodeText", "text without a node", in);
      }
      std::map<int, std::string> parts;
      int count = Split(p, parts);
      Check(count >= 1 && static_cast<size_t>(count) == parts.size(), "Split", "count", in);
    }
    Check(SelectNode(start, nullptr) == nullptr, "SelectNode", "null path", in);
    if (start && start->ToElement()) GetNodeText(start->ToElement(), nullptr);
  }
}

// --- all of them ---------------------------------------------------------------------------

// One entry per reader (the path helpers and the parse guard together are "paths"); each
// libFuzzer target fuzz_xml_<name> runs one entry, fuzz_xml_all runs them all.
struct Reader {
  const char* name;
  void (*run)(const std::string&);
};

inline const std::vector<Reader>& AllReaders() {
  static const std::vector<Reader> readers = {
      {"GetMessageHeader", CheckGetMessageHeader},
      {"GetMessageHeaderExt", CheckGetMessageHeaderExt},
      {"GetMessageTransparentHeader", CheckGetMessageTransparentHeader},
      {"GetMessageBody", CheckGetMessageBody},
      {"GetMessageXMLBody", CheckGetMessageXMLBody},
      {"GetAlarmList", CheckGetAlarmList},
      {"GetAlarmListEx", CheckGetAlarmListEx},
      {"GetXmlPosAndDataLen", CheckGetXmlPosAndDataLen},
      {"GetConfigPosAndDataLen", CheckGetConfigPosAndDataLen},
      {"GetFileTransportLength", CheckGetFileTransportLength},
      {"GetFileTransportPort", CheckGetFileTransportPort},
      {"GetLiveStreamParam", CheckGetLiveStreamParam},
      {"GetNVRChannels", CheckGetNVRChannels},
      {"GetNVRIPCStatus", CheckGetNVRIPCStatus},
      {"GetNvrRecInfo", CheckGetNvrRecInfo},
      {"GetNvrRecInfoByMonth", CheckGetNvrRecInfoByMonth},
      {"GetDevPictureLen", CheckGetDevPictureLen},
      {"GetPictureLen", CheckGetPictureLen},
      {"GetEncryptMethod", CheckGetEncryptMethod},
      {"GetEncryptKey", CheckGetEncryptKey},
      {"GetAudioRTPParam", CheckGetAudioRTPParam},
      {"ModifyVideoParam", CheckModifyVideoParam},
      {"paths", NestingAndPaths}};
  return readers;
}

// The entry called `name`, or nullptr.
inline const Reader* FindReader(const char* name) {
  for (const Reader& r : AllReaders())
    if (strcmp(r.name, name) == 0) return &r;
  return nullptr;
}

}  // namespace xmlcheck

#endif
