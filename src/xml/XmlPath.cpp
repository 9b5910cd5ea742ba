#include "xml/XmlPath.h"

#include <string.h>

int Split(const std::string& path, std::map<int, std::string>& parts) {
  parts.clear();
  int n = 0;
  size_t from = 0;
  for (;;) {
    size_t slash = path.find('/', from);
    if (slash == std::string::npos) {
      parts[n++] = path.substr(from);
      break;
    }
    parts[n++] = path.substr(from, slash - from);
    from = slash + 1;
  }
  return n;
}

namespace {

// First direct child of `node` whose value is exactly [name, name + len).
const TiXmlNode* FirstChildNamed(const TiXmlNode* node, const char* name, size_t len) {
  for (const TiXmlNode* c = node->FirstChild(); c; c = c->NextSibling()) {
    const std::string& v = c->ValueStr();
    if (v.size() == len && memcmp(v.data(), name, len) == 0) return c;
  }
  return nullptr;
}

}  // namespace

const TiXmlNode* SelectNode(const TiXmlNode* node, const char* path) {
  if (!node || !path) return nullptr;
  // Walks the components in place: the same result as Split followed by one level per
  // component, without building the map on every look-up.
  const char* part = path;
  for (;;) {
    const char* slash = strchr(part, '/');
    size_t len = slash ? static_cast<size_t>(slash - part) : strlen(part);
    node = FirstChildNamed(node, part, len);
    if (!node || !slash) return node;
    part = slash + 1;
  }
}

TiXmlNode* SelectNode(TiXmlNode* node, const char* path) {
  return const_cast<TiXmlNode*>(SelectNode(static_cast<const TiXmlNode*>(node), path));
}

const TiXmlElement* SelectElement(const TiXmlNode* node, const char* path) {
  const TiXmlNode* n = SelectNode(node, path);
  return n ? n->ToElement() : nullptr;
}

TiXmlElement* SelectElement(TiXmlNode* node, const char* path) {
  TiXmlNode* n = SelectNode(node, path);
  return n ? n->ToElement() : nullptr;
}

namespace {

const char* DescendToText(const TiXmlNode* node) {
  while (node && !node->ToText()) node = node->FirstChild();
  return node ? node->Value() : nullptr;
}

}  // namespace

const char* GetNodeText(const TiXmlElement* elem, const char* name) {
  if (!elem) return nullptr;
  if (!name) return DescendToText(elem);
  const TiXmlNode* from = elem->FirstChild(name);
  if (!from) from = SelectNode(elem, name);
  return from ? DescendToText(from) : nullptr;
}

const char* GetNodeText(TiXmlElement* elem, const char* name) {
  return GetNodeText(static_cast<const TiXmlElement*>(elem), name);
}
