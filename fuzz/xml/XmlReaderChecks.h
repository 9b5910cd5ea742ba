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

inline void HeaderReaders(const std::string& in) {
  const char* msg = in.c_str();
  for (size_t size : {size_t(256), size_t(3)}) {
    for (int ext = 0; ext < 2; ++ext) {
      const char* name = ext ? "GetMessageHeaderExt" : "GetMessageHeader";
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
}

inline void TransparentHeader(const std::string& in) {
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

inline void BodyReaders(const std::string& in) {
  const char* msg = in.c_str();
  const char* open = strstr(msg, "<body>");
  const char* close = strstr(msg, "</body>");
  bool isNull = strstr(msg, "<body/>") != nullptr;
  bool has = isNull || (open && close && close > open);
  char* sentinel = reinterpret_cast<char*>(&sentinel);
  char* body = sentinel;
  char* xmlBody = sentinel;
  int rc1 = GetMessageBody(msg, &body);
  int rc2 = GetMessageXMLBody(msg, &xmlBody);
  Check(rc1 == (has ? 0 : -1), "GetMessageBody", "result", in);
  Check(rc2 == (has ? 0 : -1), "GetMessageXMLBody", "result", in);
  if (!has) {
    Check(body == sentinel, "GetMessageBody", "output touched on failure", in);
    Check(xmlBody == sentinel, "GetMessageXMLBody", "output touched on failure", in);
    return;
  }
  if (isNull) {
    Check(strcmp(body, "null") == 0, "GetMessageBody", "<body/> gives null", in);
    Check(strcmp(xmlBody, "null") == 0, "GetMessageXMLBody", "<body/> gives null", in);
  } else {
    std::string inner(open + 6, close);
    Check(body == inner, "GetMessageBody", "content", in);
    Check(xmlBody == "<body>" + inner + "</body>", "GetMessageXMLBody", "content", in);
  }
  delete[] body;
  delete[] xmlBody;
}

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

inline void AlarmReaders(const std::string& in) {
  ALARM_ITEM* items = reinterpret_cast<ALARM_ITEM*>(&items);
  int rc = GetAlarmList(in.c_str(), &items);
  CheckAlarmResult("GetAlarmList", rc, items, in);
  items = reinterpret_cast<ALARM_ITEM*>(&items);
  int source = 12345, channel = 54321;
  rc = GetAlarmListEx(in.c_str(), &items, source, channel);
  CheckAlarmResult("GetAlarmListEx", rc, items, in);
}

// --- payload readers ----------------------------------------------------------------------

inline void MediaReaders(const std::string& in) {
  const char* msg = in.c_str();
  int64_t pos = 7;
  long len = 7;
  int rc = GetXmlPosAndDataLen(msg, &pos, &len);
  Check(In(rc, {0, -1}) && pos == -1, "GetXmlPosAndDataLen", "result", in);
  if (rc != 0) Check(len == 0, "GetXmlPosAndDataLen", "length on failure", in);

  pos = 7;
  len = 7;
  rc = GetConfigPosAndDataLen(msg, &pos, &len);
  Check(In(rc, {0, -4}), "GetConfigPosAndDataLen", "result", in);
  if (rc != 0) Check(pos == -1 && len == 0, "GetConfigPosAndDataLen", "outputs on failure", in);

  int flen = 7;
  rc = GetFileTransportLength(msg, &flen);
  Check(In(rc, {0, -1, -4}), "GetFileTransportLength", "result", in);
  if (rc != 0) Check(flen == 0, "GetFileTransportLength", "length on failure", in);

  uint16_t port = 7;
  int type = 7;
  uint32_t length = 7;
  rc = GetFileTransportPort(msg, &port, &type, &length);
  Check(In(rc, {0, -1, -2}), "GetFileTransportPort", "result", in);
  if (rc != 0) Check(port == 0 && type == 0 && length == 0, "GetFileTransportPort", "cleared", in);

  LIVE_STREAM_PARAM_t live;
  memset(&live, 0x5A, sizeof(live));
  rc = GetLiveStreamParam(msg, &live);
  Check(In(rc, {0, -1, -4}), "GetLiveStreamParam", "result", in);
  Check(memchr(live.szEncoder, 0, sizeof(live.szEncoder)) != nullptr, "GetLiveStreamParam", "encoder NUL", in);
  if (rc != 0) Check(live.nChannelId == -1 && live.nWidth == 0, "GetLiveStreamParam", "cleared", in);
}

inline void DeviceReaders(const std::string& in) {
  const char* msg = in.c_str();
  for (size_t size : {size_t(256), size_t(2)}) {
    Fenced out(size);
    int rc = GetNVRChannels(msg, out.data(), out.size());
    Check(out.Sound() && rc <= 0 && rc >= -5, "GetNVRChannels", "result / fence", in);
    if (rc != 0) Check(out.str().empty(), "GetNVRChannels", "output on failure", in);

    Fenced st(size);
    rc = GetNVRIPCStatus(msg, st.data(), st.size());
    Check(st.Sound() && In(rc, {0, -1, -3, -4}), "GetNVRIPCStatus", "result / fence", in);
    Check((rc == 0) == !st.str().empty(), "GetNVRIPCStatus", "0 iff non-empty", in);

    Fenced ch(size), stream(size), time(size), data(size);
    rc = GetNvrRecInfo(msg, ch.data(), ch.size(), stream.data(), stream.size());
    Check(ch.Sound() && stream.Sound() && In(rc, {0, -1, -2, -3}), "GetNvrRecInfo", "result / fence", in);
    if (rc != 0 && size > 2) Check(ch.str() == "-1" && stream.str().empty(), "GetNvrRecInfo", "defaults", in);
    rc = GetNvrRecInfoByMonth(msg, ch.data(), ch.size(), time.data(), time.size(), data.data(), data.size());
    Check(ch.Sound() && time.Sound() && data.Sound() && In(rc, {0, -1, -2, -3}), "GetNvrRecInfoByMonth",
          "result / fence", in);

    Fenced fl(size);
    rc = GetDevPictureLen(msg, fl.data(), fl.size());
    Check(fl.Sound() && rc <= 0 && rc >= -4, "GetDevPictureLen", "result / fence", in);
    if (rc != 0) Check(fl.str().empty(), "GetDevPictureLen", "cleared", in);
    rc = GetPictureLen(msg, fl.data(), fl.size());
    Check(fl.Sound() && rc <= 0 && rc >= -4, "GetPictureLen", "result / fence", in);
    if (rc != 0) Check(fl.str().empty(), "GetPictureLen", "cleared", in);
  }

  int version = 7;
  int rc = GetEncryptMethod(msg, &version);
  Check(In(rc, {0, -1}), "GetEncryptMethod", "result", in);
  if (rc != 0) Check(version == 0, "GetEncryptMethod", "version on failure", in);

  std::string key = "previous";
  rc = GetEncryptKey(msg, key);
  Check(In(rc, {0, -1}), "GetEncryptKey", "result", in);
  if (rc != 0) Check(key.empty(), "GetEncryptKey", "key on failure", in);

  AUDIO_RTP_PARAM_t audio;
  memset(&audio, 0x5A, sizeof(audio));
  rc = GetAudioRTPParam(msg, &audio);
  Check(In(rc, {0, -1, -2, -3}), "GetAudioRTPParam", "result", in);
  if (rc != 0) Check(audio.nAudioCodec == 0 && audio.nConnectionType == 0, "GetAudioRTPParam", "cleared", in);

  VIDEO_ENCODE_PARAM_t newValues;
  memset(&newValues, 0, sizeof(newValues));
  strcpy(newValues.szBitRate, "2048");
  strcpy(newValues.szFrameRate, "25");
  for (int stream = 0; stream < 2; ++stream) {
    VIDEO_ENCODE_PARAM_t old;
    std::string modified;
    rc = ModifyVideoParam(msg, stream, &newValues, &old, &modified);
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

struct Reader {
  const char* name;
  void (*run)(const std::string&);
};

inline const std::vector<Reader>& AllReaders() {
  static const std::vector<Reader> readers = {
      {"header", HeaderReaders}, {"transparent", TransparentHeader}, {"body", BodyReaders},
      {"alarm", AlarmReaders},   {"media", MediaReaders},           {"device", DeviceReaders},
      {"paths", NestingAndPaths}};
  return readers;
}

}  // namespace xmlcheck

#endif
