// Path selection over TinyXML trees. TinyXML comes from the system package, so these are
// free functions taking the node or element as their first argument.
//
// A path is a text of components separated by '/', matched against node values (the
// element name for elements) from the given node downwards. At every level only the first
// child whose value matches is followed: a later sibling of the same name is never tried.
#ifndef QXNET_XML_XMLPATH_H
#define QXNET_XML_XMLPATH_H

#include <map>
#include <string>

#include <tinyxml.h>

// Splits `path` on '/' into parts[0], parts[1], ... (parts is cleared first) and returns
// the number of components. Every '/' separates, so empty components are kept: "a//b" has
// three components and "" has one (the empty text).
int Split(const std::string& path, std::map<int, std::string>& parts);

// With fewer than two components: the first direct child of `node` whose value equals the
// path. Otherwise one level per component, taking the first child whose value equals that
// component. Null when a level has no match, and for a null node or a null path.
TiXmlNode* SelectNode(TiXmlNode* node, const char* path);
const TiXmlNode* SelectNode(const TiXmlNode* node, const char* path);

// SelectNode's result as an element (null when it is some other kind of node).
TiXmlElement* SelectElement(TiXmlNode* node, const char* path);
const TiXmlElement* SelectElement(const TiXmlNode* node, const char* path);

// With a null name: descends from `elem` through first children until a text node and
// returns its text. With a name: starts instead from the first direct child of that value,
// or else from SelectNode(elem, name). Null when no text node is reached (or elem is null).
const char* GetNodeText(TiXmlElement* elem, const char* name);
const char* GetNodeText(const TiXmlElement* elem, const char* name);

#endif
