// The one way this library hands received text to TinyXML.
//
// TinyXML 2.6 is not safe on hostile text by itself:
//  - its parser recurses once per nested element, so a few kilobytes of "<a><a><a>..."
//    overflow the 512 KiB stack of a session worker (about 170 bytes per level);
//  - in UTF-8 text it steps over a whole multi-byte sequence without looking at its bytes,
//    so a lead byte just before the terminating NUL takes it up to 3 bytes past the NUL,
//    and it goes on reading from there.
// ParseXmlText therefore parses a copy of the text followed by kXmlTextPad zero bytes (the
// over-read lands on zeros and stops), and refuses text whose element nesting would go
// deeper than kXmlMaxNesting before TinyXML sees it. Device messages nest 3 to 6 levels.
#ifndef QXNET_XML_XMLPARSE_H
#define QXNET_XML_XMLPARSE_H

#include <stddef.h>

#include <tinyxml.h>

enum {
  kXmlMaxNesting = 128,  // deepest element nesting handed to TinyXML
  kXmlTextPad = 16,      // zero bytes after the copy that TinyXML parses
};

enum {
  XML_PARSE_OK = 0,
  XML_PARSE_ERROR = -1,    // TinyXML reported an error (a partial tree may remain)
  XML_PARSE_TOO_DEEP = -2  // refused before parsing; the document is left empty
};

// Parses `len` bytes of `text` (up to its first NUL) into `doc`, which should be empty.
// Returns XML_PARSE_OK, XML_PARSE_ERROR or XML_PARSE_TOO_DEEP. A null text is an error.
int ParseXmlText(TiXmlDocument& doc, const char* text, size_t len);
int ParseXmlText(TiXmlDocument& doc, const char* text);

// The deepest element nesting that TinyXML's parser reaches on this text (whether or not
// the parse then succeeds), computed without building anything. Stops counting once the
// depth passes `limit` and returns limit + 1. Exposed for tests: it equals the element
// depth of the (possibly partial) tree TinyXML leaves behind on the same text.
int XmlNestingDepth(const char* text, size_t len, int limit);

// Element nesting depth of a parsed tree (iterative, for tests and checks).
int XmlTreeDepth(const TiXmlNode* node);

#endif
