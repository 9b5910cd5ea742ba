// The envelope of a media pack read without building an XML document. Packs arrive tens
// of thousands of times a second during a download, and parsing each envelope twice
// (the head, then the body for dataLen) cost more than the rest of the receive path.
//
// Only a text of exactly this form is read here:
//   <?xml version="1.0" encoding="utf-8" ?>\n<PrivateProto>\n<head>\n<type>T</type>\n
//   <cmd>C</cmd>\n<result>R</result>\n</head>\n<body>\n<dataLen>N</dataLen>\n</body>\n
//   </PrivateProto>
// with T, C and N of 1 to 9 decimal digits, R the same with an optional leading '-', and
// the text ending there (a zero byte follows). The general readers give such a text the
// same head and the same dataLen; any other text is refused and takes the general path.
#ifndef QXNET_SESSION_MEDIAENVELOPE_H
#define QXNET_SESSION_MEDIAENVELOPE_H

#include <cstddef>

struct MediaEnvelope {
  char type[11];
  char cmd[11];
  char result[11];
  long dataLen;
  size_t textLength;  // bytes before the zero that ends the text
};

// text: the frame as received, `size` bytes of it readable. False when the text does not
// have the form above.
bool ReadMediaEnvelope(const char* text, size_t size, MediaEnvelope* out);

#endif
