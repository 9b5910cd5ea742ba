#include "xml/PayloadReaders.h"

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include <tinyxml.h>

#include "base/FuncLog.h"
#include "xml/XmlParse.h"
#include "xml/XmlPath.h"
#include "xml/xmlutil.h"
#include "session/Protocol.h"

namespace {

enum { kNoBody = 0, kFragmentParsed = 1, kFragmentBroken = -1 };

// Parses the body of `msg`, from "<body>" through "</body>", as a document of its own,
// straight from the message (no intermediate copy). "<body/>" gives the text "null",
// which does not parse.
int ParseFragment(const char* msg, TiXmlDocument& doc) {
  const char* begin;
  const char* end;
  bool isNull;
  if (!FindMessageBody(msg, &begin, &end, &isNull)) return kNoBody;
  int rc = isNull ? ParseXmlText(doc, "null", 4) : ParseXmlText(doc, begin, static_cast<size_t>(end - begin));
  return rc == XML_PARSE_OK ? kFragmentParsed : kFragmentBroken;
}

// The text of the first child named `name` of `parent`, or null when there is none.
const char* ChildText(const TiXmlNode* parent, const char* name) {
  const TiXmlNode* n = parent ? SelectNode(parent, name) : nullptr;
  return n ? GetNodeValue(n, nullptr) : nullptr;
}

// Parses the whole message and selects MESSAGE_BODY/<param> as an element.
// 0 found; -1 does not parse; -2 no MESSAGE_BODY; -3 no <param> element.
int SelectBodyParam(TiXmlDocument& doc, const char* msg, const char* param, const TiXmlElement** out) {
  *out = nullptr;
  if (ParseXmlText(doc, msg ? msg : "") != XML_PARSE_OK) return -1;
  const TiXmlElement* root = doc.RootElement();
  const TiXmlNode* body = root ? SelectNode(root, "MESSAGE_BODY") : nullptr;
  if (!body) return -2;
  *out = SelectElement(body, param);
  return *out ? 0 : -3;
}

// An attribute of `e` when present, else the text of its first child element of that name.
const char* AttrOrChildText(const TiXmlElement* e, const char* name) {
  const char* v = e->Attribute(name);
  if (v) return v;
  const TiXmlElement* c = e->FirstChildElement(name);
  return c ? GetNodeValue(c, nullptr) : nullptr;
}

int AttrInt(const TiXmlElement* e, const char* name) {
  const char* v = e->Attribute(name);
  return v ? atoi(v) : 0;
}

}  // namespace

int GetNVRChannels(const char* msg, char* out, size_t outSize) {
  CopyText(out, outSize, "");
  TiXmlDocument doc;
  if (ParseXmlText(doc, msg ? msg : "") != XML_PARSE_OK) return -1;
  const TiXmlElement* root = doc.RootElement();
  if (!root) return -1;
  // The head walk of GetMessageHeader: every head child, a later cmd overwrites.
  const char* cmd = "";
  for (const TiXmlNode* head = root->FirstChild(); head; head = head->NextSibling()) {
    if (!head->ToElement() || head->ValueStr() != "head") continue;
    for (const TiXmlNode* f = head->FirstChild(); f; f = f->NextSibling())
      if (f->ToElement() && f->ValueStr() == "cmd") cmd = GetNodeValue(f, nullptr);
  }
  if (!proto::IsCmd(cmd, proto::kCmdAuth)) return -2;

  char* body = nullptr;
  if (GetMessageBody(msg, &body) != 0) return -3;
  std::string wrapped;
  wrapped.reserve(strlen(body) + 16);
  wrapped += "<body>";
  wrapped += body;
  wrapped += "</body>\n";
  delete[] body;

  TiXmlDocument frag;
  if (ParseXmlText(frag, wrapped.data(), wrapped.size()) != XML_PARSE_OK) return -4;
  const TiXmlNode* auth = frag.RootElement() ? SelectNode(frag.RootElement(), "authRsp") : nullptr;
  const TiXmlNode* maxChannels = auth ? SelectNode(auth, "MAXChannels") : nullptr;
  if (!maxChannels) return -5;
  CopyText(out, outSize, GetNodeValue(maxChannels, nullptr));
  return 0;
}

int GetNVRIPCStatus(const char* msg, char* out, size_t outSize) {
  CopyText(out, outSize, "");
  const char* text = msg ? msg : "";
  if (!strstr(text, "<PrivateProto>")) {
    fLog(0, "Invalid message, <PrivateProto> not found:\n%s", text);
    return -1;
  }
  if (!strstr(text, "</PrivateProto>")) {
    fLog(0, "Invalid message, </PrivateProto> not found:\n%s", text);
    return -1;
  }
  if (strstr(text, "ALARM_REPORT_MESSAGE") && strstr(text, "\"0\"\"")) {
    fLog(0, "GetMessageHeader detect bad ALARM_REPORT_MESSAGE message ");
    return -1;
  }
  if (strstr(text, "<MESSAGE_BODY></MESSAGE_BODY>") || strstr(text, "<MESSAGE_BODY>\n</MESSAGE_BODY>")) {
    fLog(0, "GetMessageHeader detect bad ALARM_REPORT_MESSAGE message, msg body is empty ");
    return -1;
  }
  TiXmlDocument doc;
  int rc = ParseFragment(text, doc);
  if (rc == kNoBody) return -3;
  if (rc == kFragmentBroken) return -4;
  const char* status = nullptr;
  for (const TiXmlNode* c = doc.RootElement() ? doc.RootElement()->FirstChild() : nullptr; c; c = c->NextSibling())
    if (c->ToElement() && c->ValueStr() == "Ipcs_stat") status = GetNodeValue(c, nullptr);
  if (!status || !*status) return -3;
  CopyText(out, outSize, status);
  return out && outSize > 1 ? 0 : -3;
}

int GetXmlPosAndDataLen(const char* msg, int64_t* pos, long* len) {
  if (!pos || !len) return -1;
  *pos = -1;
  *len = 0;
  TiXmlDocument doc;
  int rc = ParseFragment(msg, doc);
  if (rc == kNoBody) return 0;
  if (rc == kFragmentBroken) return -1;
  for (const TiXmlNode* c = doc.RootElement() ? doc.RootElement()->FirstChild() : nullptr; c; c = c->NextSibling())
    if (c->ToElement() && c->ValueStr() == "dataLen") *len = atol(GetNodeValue(c, nullptr));
  return 0;
}

int GetConfigPosAndDataLen(const char* msg, int64_t* pos, long* len) {
  if (!pos || !len) return -1;
  *pos = -1;
  *len = 0;
  TiXmlDocument doc;
  int rc = ParseFragment(msg, doc);
  if (rc == kNoBody) return 0;
  if (rc == kFragmentBroken) return -4;
  const TiXmlElement* root = doc.RootElement();
  if (const char* start = ChildText(root, "startPos")) *pos = static_cast<int64_t>(static_cast<int32_t>(atoi(start)));
  if (const char* length = ChildText(root, "dataLength")) *len = atoi(length);
  return 0;
}

int GetFileTransportLength(const char* msg, int* len) {
  if (!len) return -1;
  *len = 0;
  TiXmlDocument doc;
  int rc = ParseFragment(msg, doc);
  if (rc == kNoBody) return -1;
  if (rc == kFragmentBroken) return -4;
  const char* text = ChildText(doc.RootElement(), "fileLength");
  if (!text) return -1;
  *len = atoi(text);
  return 0;
}

int GetFileTransportPort(const char* msg, uint16_t* port, int* type, uint32_t* length) {
  if (port) *port = 0;
  if (type) *type = 0;
  if (length) *length = 0;
  TiXmlDocument doc;
  if (ParseXmlText(doc, msg ? msg : "") != XML_PARSE_OK) return -1;
  const TiXmlElement* root = doc.RootElement();
  if (!root) return -2;
  if (port) *port = static_cast<uint16_t>(AttrInt(root, "Port"));
  if (type) *type = AttrInt(root, "Type");
  if (length) {
    const char* v = root->Attribute("FileLength");
    *length = v ? static_cast<uint32_t>(atol(v)) : 0;
  }
  return 0;
}

int GetEncryptMethod(const char* msg, int* version) {
  if (!version) return -1;
  *version = 0;
  TiXmlDocument doc;
  const TiXmlElement* encrypt;
  int rc = SelectBodyParam(doc, msg, "ENCRYPT", &encrypt);
  if (rc == -1) return -1;
  // A missing element is read like missing attributes: version 0, success.
  if (encrypt && encrypt->Attribute("Capbility")) *version = AttrInt(encrypt, "Version");
  return 0;
}

int GetEncryptKey(const char* msg, std::string& key) {
  key.clear();
  TiXmlDocument doc;
  const TiXmlElement* keyConfig;
  if (SelectBodyParam(doc, msg, "KeyConfig", &keyConfig) != 0) return -1;
  const char* value = keyConfig->Attribute("KeyValue");
  if (!value) return -1;
  key = value;
  return 0;
}

int GetLiveStreamParam(const char* msg, LIVE_STREAM_PARAM_t* param) {
  if (!param) return -1;
  memset(param, 0, sizeof(*param));
  param->nChannelId = -1;
  TiXmlDocument doc;
  int rc = ParseFragment(msg, doc);
  if (rc == kNoBody) return -1;
  if (rc == kFragmentBroken) return -4;
  const TiXmlElement* root = doc.RootElement();
  if (const char* v = ChildText(root, "ChannelId")) param->nChannelId = atoi(v);
  if (const char* v = ChildText(root, "VideoStream")) param->nVideoStream = atoi(v);
  if (const char* v = ChildText(root, "Encoder")) CopyText(param->szEncoder, sizeof(param->szEncoder), v);
  static const struct {
    const char* name;
    size_t offset;
  } kSizes[] = {{"Width", offsetof(LIVE_STREAM_PARAM_t, nWidth)},
                {"Height", offsetof(LIVE_STREAM_PARAM_t, nHeight)},
                {"Framerate", offsetof(LIVE_STREAM_PARAM_t, nFrameRate)},
                {"Bitrate", offsetof(LIVE_STREAM_PARAM_t, nBitRate)}};
  for (const auto& f : kSizes) {
    const char* v = ChildText(root, f.name);
    if (!v) {
      fLog(0, "xmlutil: GetLiveStreamParam(): %s not found!\n", f.name);
      continue;
    }
    int32_t n = atoi(v);
    memcpy(reinterpret_cast<char*>(param) + f.offset, &n, sizeof(n));
  }
  return 0;
}

int GetNvrRecInfo(const char* msg, char* channel, size_t channelSize, char* stream, size_t streamSize) {
  CopyText(channel, channelSize, "-1");
  CopyText(stream, streamSize, "");
  TiXmlDocument doc;
  const TiXmlElement* rsp;
  int rc = SelectBodyParam(doc, msg, "RESPONSE_PARAM", &rsp);
  if (rc != 0) return rc;
  if (const char* v = AttrOrChildText(rsp, "ChannelId")) CopyText(channel, channelSize, v);
  if (const char* v = AttrOrChildText(rsp, "Stream")) CopyText(stream, streamSize, v);
  return 0;
}

int GetNvrRecInfoByMonth(const char* msg, char* channel, size_t channelSize, char* time, size_t timeSize,
                         char* recordData, size_t recordDataSize) {
  CopyText(channel, channelSize, "-1");
  CopyText(time, timeSize, "");
  CopyText(recordData, recordDataSize, "");
  TiXmlDocument doc;
  const TiXmlElement* rsp;
  int rc = SelectBodyParam(doc, msg, "RESPONSE_PARAM", &rsp);
  if (rc != 0) return rc;
  if (const char* v = AttrOrChildText(rsp, "ChannelId")) CopyText(channel, channelSize, v);
  if (const char* v = AttrOrChildText(rsp, "Time")) CopyText(time, timeSize, v);
  if (const char* v = AttrOrChildText(rsp, "RecordData")) CopyText(recordData, recordDataSize, v);
  return 0;
}

namespace {

int ReadLengthAttribute(const char* msg, const char* element, const char* attribute, char* out, size_t outSize) {
  CopyText(out, outSize, "");
  TiXmlDocument doc;
  const TiXmlElement* e;
  int rc = SelectBodyParam(doc, msg, element, &e);
  if (rc != 0) return rc;
  const char* v = e->Attribute(attribute);
  if (!v) return -4;
  CopyText(out, outSize, v);
  return 0;
}

}  // namespace

int GetDevPictureLen(const char* msg, char* fileLen, size_t fileLenSize) {
  return ReadLengthAttribute(msg, "RESPONSE_PARAM", "FileLen", fileLen, fileLenSize);
}

int GetPictureLen(const char* msg, char* fileLen, size_t fileLenSize) {
  return ReadLengthAttribute(msg, "PICTURE", "FILE_LEN", fileLen, fileLenSize);
}

int GetAudioRTPParam(const char* msg, AUDIO_RTP_PARAM_t* param) {
  if (!param) return -1;
  memset(param, 0, sizeof(*param));
  TiXmlDocument doc;
  const TiXmlElement* e;
  int rc = SelectBodyParam(doc, msg, "RA_START_RESPONSE", &e);
  if (rc != 0) return rc;
  param->nAudioCodec = AttrInt(e, "AudioCodec");
  param->nSampleRate = AttrInt(e, "Samplerate");
  param->nBitsPerSample = AttrInt(e, "BitsPerSample");
  param->nChannels = AttrInt(e, "Channels");
  param->nRTPRecvPort = AttrInt(e, "RTPRecvPort");
  param->nConnectionType = AttrInt(e, "ConnectionType");
  return 0;
}

int ModifyVideoParam(const char* config, int stream, const VIDEO_ENCODE_PARAM_t* newValues,
                     VIDEO_ENCODE_PARAM_t* oldValues, std::string* modified) {
  if (oldValues) memset(oldValues, 0, sizeof(*oldValues));
  if (!config) return -1;
  TiXmlDocument doc;
  if (ParseXmlText(doc, config) != XML_PARSE_OK) return -1;

  // Document order, iteratively (the nesting is bounded, but no recursion is needed).
  TiXmlElement* entry = nullptr;
  std::vector<TiXmlNode*> todo;
  for (TiXmlNode* c = doc.LastChild(); c; c = c->PreviousSibling()) todo.push_back(c);
  while (!todo.empty() && !entry) {
    TiXmlNode* n = todo.back();
    todo.pop_back();
    TiXmlElement* e = n->ToElement();
    if (!e) continue;
    const char* s = e->Attribute("Stream");
    if (e->ValueStr() == "EncodeConfig" && s && atoi(s) == stream) {
      entry = e;
      break;
    }
    for (TiXmlNode* c = n->LastChild(); c; c = c->PreviousSibling()) todo.push_back(c);
  }
  if (!entry) return -2;

  const char* bitRate = entry->Attribute("BitRate");
  const char* initquant = entry->Attribute("Initquant");
  const char* frameRate = entry->Attribute("FrameRate");
  fLog(0, "xml: get strBitRate=%s, strInitquant=%s, strFrameRate=%s \n", bitRate ? bitRate : "",
       initquant ? initquant : "", frameRate ? frameRate : "");
  if (oldValues) {
    CopyText(oldValues->szBitRate, sizeof(oldValues->szBitRate), bitRate);
    CopyText(oldValues->szInitquant, sizeof(oldValues->szInitquant), initquant);
    CopyText(oldValues->szFrameRate, sizeof(oldValues->szFrameRate), frameRate);
  }
  if (newValues) {
    // The new texts are bounded by their fields even if the caller left no NUL.
    std::string v;
    v.assign(newValues->szBitRate, strnlen(newValues->szBitRate, sizeof(newValues->szBitRate)));
    if (!v.empty()) entry->SetAttribute("BitRate", v.c_str());
    v.assign(newValues->szInitquant, strnlen(newValues->szInitquant, sizeof(newValues->szInitquant)));
    if (!v.empty()) entry->SetAttribute("Initquant", v.c_str());
    v.assign(newValues->szFrameRate, strnlen(newValues->szFrameRate, sizeof(newValues->szFrameRate)));
    if (!v.empty()) entry->SetAttribute("FrameRate", v.c_str());
  }
  if (modified) {
    modified->clear();
    *modified << doc;
  }
  return 0;
}
