// Path helpers over TinyXML trees.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "xml/XmlParse.h"
#include "xml/XmlPath.h"

namespace {

TEST(Split, Components) {
  std::map<int, std::string> parts;
  EXPECT_EQ(3, Split("MESSAGE_BODY/ALARM_REPORT_PARAM/ALARM_ITEM", parts));
  EXPECT_EQ("MESSAGE_BODY", parts[0]);
  EXPECT_EQ("ALARM_REPORT_PARAM", parts[1]);
  EXPECT_EQ("ALARM_ITEM", parts[2]);
  EXPECT_EQ(1, Split("head", parts));
  EXPECT_EQ(1u, parts.size());  // cleared first
  EXPECT_EQ("head", parts[0]);
  EXPECT_EQ(3, Split("a//b", parts));
  EXPECT_EQ("", parts[1]);
  EXPECT_EQ(1, Split("", parts));
  EXPECT_EQ("", parts[0]);
  EXPECT_EQ(2, Split("/", parts));
  EXPECT_EQ(2, Split("a/", parts));
  EXPECT_EQ("a", parts[0]);
  EXPECT_EQ("", parts[1]);
}

class PathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(XML_PARSE_OK, ParseXmlText(m_doc,
                                         "<root>"
                                         "<a><x>first</x></a>"
                                         "<a><b>second</b></a>"
                                         "<c><d><e>deep</e></d></c>"
                                         "<t>plain</t><u><![CDATA[]]></u><v/>"
                                         "</root>"));
    m_root = m_doc.RootElement();
    ASSERT_NE(nullptr, m_root);
  }
  TiXmlDocument m_doc;
  TiXmlElement* m_root = nullptr;
};

TEST_F(PathTest, SingleComponentIsTheFirstDirectChild) {
  TiXmlNode* a = SelectNode(m_root, "a");
  ASSERT_NE(nullptr, a);
  EXPECT_EQ(m_root->FirstChild("a"), a);
  EXPECT_EQ(nullptr, SelectNode(m_root, "x"));  // not a direct child
  EXPECT_EQ(nullptr, SelectNode(m_root, "missing"));
  EXPECT_EQ(m_root, SelectNode(&m_doc, "root"));
}

TEST_F(PathTest, FirstMatchPerLevelOnly) {
  // The first <a> lacks <b>; the second has one but is never searched.
  EXPECT_EQ(nullptr, SelectNode(m_root, "a/b"));
  EXPECT_EQ(nullptr, SelectElement(m_root, "a/b"));
  TiXmlNode* x = SelectNode(m_root, "a/x");
  ASSERT_NE(nullptr, x);
  EXPECT_STREQ("first", x->FirstChild()->Value());
}

TEST_F(PathTest, MultiLevel) {
  TiXmlElement* e = SelectElement(m_root, "c/d/e");
  ASSERT_NE(nullptr, e);
  EXPECT_STREQ("deep", e->GetText());
  EXPECT_EQ(e, SelectNode(&m_doc, "root/c/d/e"));
  EXPECT_EQ(nullptr, SelectNode(m_root, "c/d/e/f"));
  EXPECT_EQ(nullptr, SelectNode(m_root, "c//e"));
  EXPECT_EQ(nullptr, SelectNode(m_root, "c/d/"));
}

TEST_F(PathTest, NullsDoNotCrash) {
  EXPECT_EQ(nullptr, SelectNode(m_root, nullptr));
  EXPECT_EQ(nullptr, SelectNode(static_cast<TiXmlNode*>(nullptr), "a"));
  EXPECT_EQ(nullptr, SelectElement(m_root, nullptr));
  const TiXmlNode* croot = m_root;
  EXPECT_EQ(nullptr, SelectNode(croot, nullptr));
  EXPECT_EQ(m_root->FirstChild("c"), SelectNode(croot, "c"));
  EXPECT_EQ(nullptr, GetNodeText(static_cast<TiXmlElement*>(nullptr), "a"));
}

TEST_F(PathTest, SelectElementOfATextNodeIsNull) {
  TiXmlNode* t = SelectNode(m_root, "t/plain");  // the text node's value is its text
  ASSERT_NE(nullptr, t);
  EXPECT_NE(nullptr, t->ToText());
  EXPECT_EQ(nullptr, SelectElement(m_root, "t/plain"));
}

TEST_F(PathTest, GetNodeText) {
  TiXmlElement* c = SelectElement(m_root, "c");
  EXPECT_STREQ("deep", GetNodeText(c, nullptr));  // first children down to the text
  EXPECT_STREQ("deep", GetNodeText(c, "d"));      // direct child
  EXPECT_STREQ("deep", GetNodeText(m_root, "c/d"));  // path
  EXPECT_STREQ("first", GetNodeText(m_root, "a"));   // first <a>
  EXPECT_EQ(nullptr, GetNodeText(m_root, "a/b"));
  EXPECT_STREQ("plain", GetNodeText(m_root, "t"));
  EXPECT_STREQ("", GetNodeText(m_root, "u"));  // an empty text node
  EXPECT_EQ(nullptr, GetNodeText(m_root, "v"));  // no text at all
  EXPECT_EQ(nullptr, GetNodeText(m_root, "nothing"));
  EXPECT_STREQ("first", GetNodeText(m_root, nullptr));
}

}  // namespace
