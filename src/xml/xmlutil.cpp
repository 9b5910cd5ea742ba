#include "xml/xmlutil.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "base/FuncLog.h"
#include "xml/XmlParse.h"

namespace {

const char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>";

const char* OrEmpty(const char* s) { return s ? s : ""; }

void Clear(char* dst, size_t size) {
  if (dst && size) dst[0] = '\0';
}

// Appends one formatted piece at `*pos`; false when it does not fit in capacity - 1.
bool AppendPiece(char* out, int capacity, int* pos, const char* format, ...) __attribute__((format(printf, 4, 5)));
bool AppendPiece(char* out, int capacity, int* pos, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int n = vsnprintf(out + *pos, static_cast<size_t>(capacity - *pos), format, args);
  va_end(args);
  if (n < 0 || n > capacity - 1 - *pos) return false;
  *pos += n;
  return true;
}

// The envelope checks shared by the header readers, with their log lines.
struct EnvelopeLines {
  const char* noOpen;
  const char* noClose;
};

const EnvelopeLines kHeaderLines = {"xmlutil: Invalid message, <PrivateProto>:\n%s\n",
                                    "xmlutil: Invalid message, </PRIVATE_PROTO> not found:\n%s\n"};
const EnvelopeLines kHeaderExtLines = {"xmlutil: Invalid message, <PrivateProto> not found:\n%s\n",
                                       "xmlutil: Invalid message, </PrivateProto> not found:\n%s\n"};

// Tag presence and the refusal of broken alarm reports; false (logged) when refused.
bool CheckPrivateProto(const char* text, const EnvelopeLines& lines) {
  if (!strstr(text, "<PrivateProto>")) {
    fLog(0, lines.noOpen, text);
    return false;
  }
  if (!strstr(text, "</PrivateProto>")) {
    fLog(0, lines.noClose, text);
    return false;
  }
  // Broken alarm reports carry an attribute value "0" followed by a stray quote.
  if (strstr(text, "ALARM_REPORT_MESSAGE") && strstr(text, "\"0\"\"")) {
    fLog(0, "xmlutil: GetMessageHeader detect bad ALARM_REPORT_MESSAGE message: %s\n", text);
    return false;
  }
  if (strstr(text, "<MESSAGE_BODY></MESSAGE_BODY>") || strstr(text, "<MESSAGE_BODY>\n</MESSAGE_BODY>")) {
    fLog(0, "xmlutil: GetMessageHeader detect bad ALARM_REPORT_MESSAGE message, msg body is empty\n");
    return false;
  }
  return true;
}

int ReadHead(const char* msg, const EnvelopeLines& lines, bool testParse, char* type, size_t typeSize, char* cmd,
             size_t cmdSize, char* result, size_t resultSize) {
  Clear(type, typeSize);
  Clear(cmd, cmdSize);
  Clear(result, resultSize);
  const char* text = OrEmpty(msg);
  if (!CheckPrivateProto(text, lines)) return XML_HEADER_INVALID;

  TiXmlDocument doc;
  int parsed = ParseXmlText(doc, text);
  if (testParse && parsed != XML_PARSE_OK) {
    if (strstr(text, "<body>"))
      fLog(0, "xmlutil: ixmlParseBuffer message failed, clear msg body and try again: %s\n", text);
    else
      fLog(0, "xmlutil: Invalid message, <body> not found: %s\n", text);
    return XML_HEADER_INVALID;
  }
  TiXmlElement* root = doc.RootElement();
  if (!root || !SelectNode(root, "head")) return XML_HEADER_NO_HEAD;

  const char* t = "";
  const char* c = "";
  const char* r = "";
  for (const TiXmlNode* head = root->FirstChild(); head; head = head->NextSibling()) {
    if (!head->ToElement() || head->ValueStr() != "head") continue;
    for (const TiXmlNode* field = head->FirstChild(); field; field = field->NextSibling()) {
      if (!field->ToElement()) continue;
      const std::string& name = field->ValueStr();
      if (name == "type")
        t = GetNodeValue(field, nullptr);
      else if (name == "cmd")
        c = GetNodeValue(field, nullptr);
      else if (name == "result")
        r = GetNodeValue(field, nullptr);
    }
  }
  CopyText(type, typeSize, t);
  CopyText(cmd, cmdSize, c);
  CopyText(result, resultSize, r);
  if (!*t) return XML_HEADER_NO_TYPE;
  if (!*c) return XML_HEADER_NO_CMD;
  if (!*r) return XML_HEADER_NO_RESULT;
  return XML_HEADER_OK;
}

int CutBody(const char* msg, char** out, bool keepTags) {
  const char* begin;
  const char* end;
  bool isNull;
  if (!out || !FindMessageBody(msg, &begin, &end, &isNull)) return -1;
  if (isNull) {
    char* s = new char[5];
    memcpy(s, "null", 5);
    *out = s;
    return 0;
  }
  if (!keepTags) {
    begin += 6;  // "<body>"
    end -= 7;    // "</body>"
  }
  size_t n = static_cast<size_t>(end - begin);
  char* s = new char[n + 1];
  memcpy(s, begin, n);
  s[n] = '\0';
  *out = s;
  return 0;
}

}  // namespace

void CopyText(char* dst, size_t size, const char* src) {
  if (!dst || !size) return;
  src = OrEmpty(src);
  size_t n = strnlen(src, size - 1);
  memcpy(dst, src, n);
  dst[n] = '\0';
}

int MakeXMLRequest(char* out, int capacity, const char* type, const char* cmd, const char* result,
                   const char* body, int channel) {
  if (!out || capacity < 1) return -1;
  type = OrEmpty(type);
  cmd = OrEmpty(cmd);
  result = OrEmpty(result);
  int pos = 0;
  bool ok = AppendPiece(out, capacity, &pos, "%s\n", kDeclaration);
  if (ok && channel != -1) {
    ok = AppendPiece(out, capacity, &pos,
                     "<PRIVATE_PROTO>\n<TRANSPARENT_HEADER\nTrans_Type=\"TRANSPARENT_CHANNEL_MSG\"\n"
                     "Channel_ID=\"%d\"\nSource_Type=\"p2p\"\nSession_ID=\"0\"\nTrans_Result=\"0\"\n/>\n"
                     "<MESSAGE_HEADER\nMsg_type=\"%s\"\nMsg_code=\"%s\"\nMsg_flag=\"%s\"\n/>\n",
                     channel, type, cmd, result);
    if (ok) fLog(0, "xmlutil: MakeXMLRequest TRANSPARENT_HEADER %s\n", out);
  } else if (ok) {
    ok = AppendPiece(out, capacity, &pos,
                     "<PrivateProto>\n<head>\n<type>%s</type>\n<cmd>%s</cmd>\n<result>%s</result>\n</head>\n", type,
                     cmd, result);
  }
  if (ok) {
    if (body && *body)
      ok = AppendPiece(out, capacity, &pos, "<body>\n%s\n</body>\n</PrivateProto>", body);
    else
      ok = AppendPiece(out, capacity, &pos, "<body>\n</body>\n</PrivateProto>");
  }
  if (!ok) {
    out[0] = '\0';
    return -1;
  }
  return pos;
}

int MakeXMLRequest(std::string& out, const char* type, const char* cmd, const char* result, const char* body) {
  type = OrEmpty(type);
  cmd = OrEmpty(cmd);
  result = OrEmpty(result);
  bool hasBody = body && *body;
  out.clear();
  out.reserve(sizeof(kDeclaration) + 96 + strlen(type) + strlen(cmd) + strlen(result) +
              (hasBody ? strlen(body) : 0));
  out += kDeclaration;
  out += "<PrivateProto>\n<head>\n<type>";
  out += type;
  out += "</type>\n<cmd>";
  out += cmd;
  out += "</cmd>\n<result>";
  out += result;
  out += "</result>\n</head>\n";
  if (hasBody) {
    out += "<body>\n";
    out += body;
    out += "\n</body>\n</PrivateProto>";
  } else {
    out += "<body/>\n</PrivateProto>";
  }
  return static_cast<int>(out.size());
}

int MakeXMLRequest(std::string& out, const char* type, long cmd, const char* result, const char* body) {
  char text[32];
  snprintf(text, sizeof(text), "%ld", cmd);
  return MakeXMLRequest(out, type, text, result, body);
}

int GetMessageHeader(const char* msg, char* type, size_t typeSize, char* cmd, size_t cmdSize, char* result,
                     size_t resultSize) {
  return ReadHead(msg, kHeaderLines, true, type, typeSize, cmd, cmdSize, result, resultSize);
}

int GetMessageHeaderExt(const char* msg, char* type, size_t typeSize, char* cmd, size_t cmdSize, char* result,
                        size_t resultSize) {
  return ReadHead(msg, kHeaderExtLines, false, type, typeSize, cmd, cmdSize, result, resultSize);
}

int GetMessageTransparentHeader(const char* msg, char* channelId, size_t channelIdSize, char* transResult,
                                size_t transResultSize, char* sessionId, size_t sessionIdSize) {
  Clear(channelId, channelIdSize);
  Clear(transResult, transResultSize);
  const char* text = OrEmpty(msg);
  if (!strstr(text, "<PRIVATE_PROTO>")) {
    fLog(0, "xmlutil: Invalid message, <PRIVATE_PROTO> not found:\n%s\n", text);
    return -1;
  }
  if (!strstr(text, "</PRIVATE_PROTO>")) {
    fLog(0, "xmlutil: Invalid message, </PRIVATE_PROTO> not found:\n%s\n", text);
    return -1;
  }
  TiXmlDocument doc;
  if (ParseXmlText(doc, text) != XML_PARSE_OK) return -1;
  const TiXmlElement* root = doc.RootElement();
  const TiXmlElement* th = root ? root->FirstChildElement("TRANSPARENT_HEADER") : nullptr;
  if (!th) return -2;
  CopyText(channelId, channelIdSize, th->Attribute("Channel_ID"));
  CopyText(transResult, transResultSize, th->Attribute("Trans_Result"));
  CopyText(sessionId, sessionIdSize, th->Attribute("Session_ID"));
  return 0;
}

bool FindMessageBody(const char* msg, const char** begin, const char** end, bool* isNull) {
  const char* text = OrEmpty(msg);
  *isNull = false;
  if (strstr(text, "<body/>")) {
    *isNull = true;
    *begin = *end = nullptr;
    return true;
  }
  const char* open = strstr(text, "<body>");
  if (!open) return false;
  const char* close = strstr(text, "</body>");
  // A "</body>" before the first "<body>" means a broken envelope, not a body.
  if (!close || close < open) return false;
  *begin = open;
  *end = close + 7;
  return true;
}

int GetMessageBody(const char* msg, char** out) { return CutBody(msg, out, false); }

int GetMessageXMLBody(const char* msg, char** out) { return CutBody(msg, out, true); }

const char* GetNodeValue(const TiXmlNode* node, char* /*unused*/) {
  if (!node) return "";
  const TiXmlNode* child = node->FirstChild();
  if (!child) return "";
  return child->Value();
}
