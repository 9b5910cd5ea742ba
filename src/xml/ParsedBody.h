// The body element of a message that has been parsed whole already, when it is certain to
// read exactly as the body readers' own parse of the cut-out text ("<body>...</body>", as
// GetMessageXMLBody cuts it) would: then a reader of the body may use it and spare the
// second parse. Anything that could make the two differ gives null, and the caller parses
// the cut-out body as before.
#ifndef QXNET_XML_PARSEDBODY_H
#define QXNET_XML_PARSEDBODY_H

#include <tinyxml.h>

// `doc` is `msg` parsed with ParseXmlText, which succeeded. Returns the root's child
// element "body" when it spans exactly the text the body cut takes, the text holds no
// other "<body" or "</body" and that text parses alike whether TinyXML reads it as UTF-8
// (as the whole message may be read) or byte by byte (as the cut-out body is read);
// else null.
const TiXmlElement* ReusableBodyElement(const char* msg, const TiXmlDocument& doc);

// The encoding test alone, over [begin, end): no numeric character reference, every
// multi-byte lead followed by its continuation bytes, none of the sequences that TinyXML's
// UTF-8 mode skips as white space (byte-order mark, U+FFFE, U+FFFF), and no byte above
// 127 that the C library counts as white space or folds to a lower case below 128.
bool ReadsAlikeInBothEncodings(const char* begin, const char* end);

#endif
