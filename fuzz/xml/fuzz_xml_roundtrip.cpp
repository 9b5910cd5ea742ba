// libFuzzer target over the builders: the input is cut into type, cmd, result and body
// (separated by '\x01'), plus a capacity and a channel taken from its first bytes. Every
// form must come out byte for byte as expected, never write past its capacity, and read
// back through the header and body readers.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "xml/xmlutil.h"

namespace {

void Fail(const char* what) {
  fprintf(stderr, "round trip: %s\n", what);
  __builtin_trap();
}

// Pieces that TinyXML reads back unchanged as element text.
bool Plain(const std::string& s) {
  if (s.empty()) return false;
  for (unsigned char c : s)
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-' || c == '_'))
      return false;
  return true;
}

const std::string kDecl = "<?xml version=\"1.0\" encoding=\"utf-8\" ?>";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  int capacity = data[0] | (data[1] << 8);  // 0 .. 65535
  int channel = static_cast<int8_t>(data[2]);  // -128 .. 127, -1 = none
  std::string rest(reinterpret_cast<const char*>(data + 3), size - 3);
  rest.resize(strlen(rest.c_str()));
  std::vector<std::string> parts;
  size_t from = 0;
  for (int i = 0; i < 3; ++i) {
    size_t cut = rest.find('\x01', from);
    if (cut == std::string::npos) cut = rest.size();
    parts.push_back(rest.substr(from, cut - from));
    from = cut < rest.size() ? cut + 1 : rest.size();
  }
  parts.push_back(rest.substr(from));
  const std::string &type = parts[0], &cmd = parts[1], &result = parts[2], &body = parts[3];

  // String form.
  std::string s;
  int n = MakeXMLRequest(s, type.c_str(), cmd.c_str(), result.c_str(), body.c_str());
  std::string expect = kDecl + "<PrivateProto>\n<head>\n<type>" + type + "</type>\n<cmd>" + cmd + "</cmd>\n<result>" +
                       result + "</result>\n</head>\n" +
                       (body.empty() ? std::string("<body/>\n</PrivateProto>")
                                     : "<body>\n" + body + "\n</body>\n</PrivateProto>");
  if (s != expect || n != static_cast<int>(s.size())) Fail("string form");

  // Buffer form, fenced.
  std::string head = channel != -1
                         ? "<PRIVATE_PROTO>\n<TRANSPARENT_HEADER\nTrans_Type=\"TRANSPARENT_CHANNEL_MSG\"\nChannel_ID=\"" +
                               std::to_string(channel) +
                               "\"\nSource_Type=\"p2p\"\nSession_ID=\"0\"\nTrans_Result=\"0\"\n/>\n<MESSAGE_HEADER\n"
                               "Msg_type=\"" +
                               type + "\"\nMsg_code=\"" + cmd + "\"\nMsg_flag=\"" + result + "\"\n/>\n"
                         : "<PrivateProto>\n<head>\n<type>" + type + "</type>\n<cmd>" + cmd + "</cmd>\n<result>" +
                               result + "</result>\n</head>\n";
  std::string expectBuf = kDecl + "\n" + head +
                          (body.empty() ? std::string("<body>\n</body>\n</PrivateProto>")
                                        : "<body>\n" + body + "\n</body>\n</PrivateProto>");
  std::vector<char> buf(static_cast<size_t>(capacity) + 64, '\x5a');
  n = MakeXMLRequest(buf.data(), capacity, type.c_str(), cmd.c_str(), result.c_str(), body.c_str(), channel);
  for (size_t i = static_cast<size_t>(capacity); i < buf.size(); ++i)
    if (buf[i] != '\x5a') Fail("write past capacity");
  if (static_cast<int>(expectBuf.size()) < capacity) {
    if (n != static_cast<int>(expectBuf.size()) || expectBuf != buf.data()) Fail("buffer form");
  } else {
    if (n != -1 || (capacity > 0 && buf[0] != '\0')) Fail("buffer form overflow result");
  }

  // Numeric command.
  long numeric = static_cast<long>(capacity) * (channel < 0 ? -1 : 1) * 1000003L;
  std::string a, b;
  MakeXMLRequest(a, type.c_str(), numeric, result.c_str(), body.c_str());
  MakeXMLRequest(b, type.c_str(), std::to_string(numeric).c_str(), result.c_str(), body.c_str());
  if (a != b) Fail("numeric form");

  // Read back: plain head fields come back as written, the body as written.
  bool asciiBody = true;  // a UTF-8 lead byte would swallow the bytes after it, tags included
  for (unsigned char ch : body) asciiBody = asciiBody && ch < 0x80;
  // A text naming ALARM_REPORT_MESSAGE anywhere (a head field may) and carrying the
  // "0"" of broken alarm reports anywhere (the body may) is refused before any parse.
  bool brokenAlarm = s.find("ALARM_REPORT_MESSAGE") != std::string::npos && s.find("\"0\"\"") != std::string::npos;
  if (Plain(type) && Plain(cmd) && Plain(result) && asciiBody && body.find('<') == std::string::npos &&
      body.find('&') == std::string::npos) {
    char t[64], c[64], r[64];
    int rc = GetMessageHeader(s.c_str(), t, sizeof(t), c, sizeof(c), r, sizeof(r));
    if (brokenAlarm) {
      if (rc != -1) Fail("broken alarm report not refused");
    } else {
      if (rc != 0) Fail("header of the string form");
      if (type.substr(0, 63) != t || cmd.substr(0, 63) != c || result.substr(0, 63) != r) Fail("header values");
    }
    if (!brokenAlarm && channel == -1 && static_cast<int>(expectBuf.size()) < capacity) {
      rc = GetMessageHeader(buf.data(), t, sizeof(t), c, sizeof(c), r, sizeof(r));
      if (rc != 0 || type.substr(0, 63) != t) Fail("header of the buffer form");
    }
  }
  // The body reader takes the first "<body>" and the first "</body>" of the whole text, so
  // the body comes back as written only when no piece carries either tag.
  bool bodyTagsOnlyOurs = true;
  for (const std::string& piece : parts)
    bodyTagsOnlyOurs = bodyTagsOnlyOurs && piece.find("<body") == std::string::npos &&
                       piece.find("</body>") == std::string::npos;
  if (bodyTagsOnlyOurs) {
    char* got = nullptr;
    if (GetMessageBody(s.c_str(), &got) != 0) Fail("body of the string form");
    if (std::string(got) != (body.empty() ? std::string("null") : "\n" + body + "\n")) Fail("body content");
    delete[] got;
  }
  return 0;
}
