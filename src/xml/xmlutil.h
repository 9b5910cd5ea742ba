// The XML message layer: building request envelopes and reading received ones.
//
// Two envelope dialects travel on a session:
//   <PrivateProto><head><type/><cmd/><result/></head><body>...</body></PrivateProto>
//   <PRIVATE_PROTO>[<TRANSPARENT_HEADER .../>]<MESSAGE_HEADER .../><MESSAGE_BODY>...
// Readers look for the envelope tags with plain substring searches before parsing, so that
// broken messages (broken alarm reports in particular) are refused without a parse.
//
// Everything here is stateless and may be called from any thread at once. Every text
// output has a size: a value longer than its buffer is cut to size - 1 characters and
// NUL-terminated. A null output pointer (or a size of 0) means "not wanted". A null
// message is read as the empty text. Log lines go to fLog at level 0.
#ifndef QXNET_XML_XMLUTIL_H
#define QXNET_XML_XMLUTIL_H

#include <stddef.h>

#include <string>

#include <tinyxml.h>

#include "xml/AlarmParse.h"
#include "xml/PayloadReaders.h"
#include "xml/XmlPath.h"

// Result codes of the header readers.
enum {
  XML_HEADER_OK = 0,
  XML_HEADER_INVALID = -1,    // envelope tag missing, alarm report refused, or unparsable
  XML_HEADER_NO_HEAD = -2,    // no head (or no TRANSPARENT_HEADER)
  XML_HEADER_NO_TYPE = -3,    // empty type
  XML_HEADER_NO_CMD = -4,     // empty cmd
  XML_HEADER_NO_RESULT = -5,  // empty result
};

// Buffer form. Writes the declaration, then either the PrivateProto head (channel == -1)
// or, for any other channel, the PRIVATE_PROTO transparent header with MESSAGE_HEADER
// (logged), then "<body>\n%s\n</body>\n</PrivateProto>" (or "<body>\n</body>\n</PrivateProto>"
// for a null or empty body). The transparent form really does close with </PrivateProto>
// and carry its payload in <body>: that mixed form is what the devices accept.
// Returns the number of characters written (the text's strlen).
// When the whole message does not fit in capacity - 1 characters nothing partial is
// produced: out becomes "" and the result is -1 (a cut-off request would only be refused
// by the device, and its length would not match what the caller sends). Also -1 for a null
// out or a capacity below 1. Null type, cmd or result are written as "".
int MakeXMLRequest(char* out, int capacity, const char* type, const char* cmd, const char* result,
                   const char* body, int channel);

// String forms: "<?xml ... ?>" directly followed by "<PrivateProto>" (no line break), and an
// empty body written "<body/>". Return the length of `out`.
int MakeXMLRequest(std::string& out, const char* type, const char* cmd, const char* result, const char* body);
// The command is printed in decimal; the whole long value is printed (where long and int
// had the same width this was "%d").
int MakeXMLRequest(std::string& out, const char* type, long cmd, const char* result, const char* body);

// Reads type, cmd and result from a PrivateProto head. The reader this replaces took ten
// output buffers of which only these three were ever filled; the seven never-filled ones
// are gone. Results: XML_HEADER_* (0, -1 ... -5). Log lines:
//   "xmlutil: Invalid message, <PrivateProto>:\n%s\n" (tag missing)
//   "xmlutil: Invalid message, </PRIVATE_PROTO> not found:\n%s\n" (closing tag missing;
//     the other dialect's tag name in this line is historical and kept)
//   "xmlutil: GetMessageHeader detect bad ALARM_REPORT_MESSAGE message: %s\n"
//   "xmlutil: GetMessageHeader detect bad ALARM_REPORT_MESSAGE message, msg body is empty\n"
//   "xmlutil: ixmlParseBuffer message failed, clear msg body and try again: %s\n" (no retry
//     follows) or "xmlutil: Invalid message, <body> not found: %s\n" on a parse error.
int GetMessageHeader(const char* msg, char* type, size_t typeSize, char* cmd, size_t cmdSize, char* result,
                     size_t resultSize);

// As GetMessageHeader with its own two tag lines ("<PrivateProto> not found" and
// "</PrivateProto> not found") and without the parse-error test: text that does not parse
// usually ends in -2.
int GetMessageHeaderExt(const char* msg, char* type, size_t typeSize, char* cmd, size_t cmdSize, char* result,
                        size_t resultSize);

// Reads Channel_ID, Trans_Result and Session_ID of a PRIVATE_PROTO TRANSPARENT_HEADER.
// Clears the channel-id and transfer-result outputs (not the session id) first.
// 0; -1 tag missing (logged) or text unparsable; -2 no TRANSPARENT_HEADER under the root.
int GetMessageTransparentHeader(const char* msg, char* channelId, size_t channelIdSize, char* transResult,
                                size_t transResultSize, char* sessionId, size_t sessionIdSize);

// The text between "<body>" and the first "</body>", verbatim, in a new array the caller
// frees with delete[]. A message containing "<body/>" anywhere yields "null". 0, or -1 when
// a tag is missing, "</body>" comes before "<body>", or out is null (*out is then left
// unchanged).
int GetMessageBody(const char* msg, char** out);
// The same with the tags kept: from "<body>" through "</body>".
int GetMessageXMLBody(const char* msg, char** out);

// The value of the node's first child, or "" (also for a null node). `unused` is ignored.
const char* GetNodeValue(const TiXmlNode* node, char* unused);

// Copies `src` (null reads as "") into dst[size], cut to size - 1 characters and
// NUL-terminated; nothing is written when dst is null or size is 0.
void CopyText(char* dst, size_t size, const char* src);

// Where the body lies in `msg`, without copying: for "<body/>" anywhere, *isNull is set;
// otherwise [*begin, *end) runs from "<body>" through "</body>". false when there is none.
bool FindMessageBody(const char* msg, const char** begin, const char** end, bool* isNull);

#endif
