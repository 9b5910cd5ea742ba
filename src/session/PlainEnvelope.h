// The head of an envelope with an empty body, read without building an XML document.
// The heartbeat answer comes every 10 s on every session; parsing it was most of the
// user time an idle session spends.
//
// Only a text of exactly this form is read here:
//   <?xml version="1.0" encoding="utf-8" ?>\n<PrivateProto>\n<head>\n<type>T</type>\n
//   <cmd>C</cmd>\n<result>R</result>\n</head>\n<body>\n</body>\n</PrivateProto>
// or the same with "<body/>\n" in place of "<body>\n</body>\n", with T and C of 1 to 9
// decimal digits, R the same with an optional leading '-', and the text ending there (a
// zero byte follows). The general header reader gives such a text the same head; any
// other text is refused and takes the general path.
#ifndef QXNET_SESSION_PLAINENVELOPE_H
#define QXNET_SESSION_PLAINENVELOPE_H

#include <cstddef>

struct PlainEnvelope {
  char type[11];
  char cmd[11];
  char result[11];
};

// text: the frame as received, `size` bytes of it readable. False when the text does not
// have the form above.
bool ReadPlainEnvelope(const char* text, size_t size, PlainEnvelope* out);

#endif
