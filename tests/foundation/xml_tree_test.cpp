// The node handle and the writer: counting, moving, removal, lookups, output.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

#include "foundation/xmlParser.h"

namespace {

std::string written(const XMLNode& node, int format) {
  int size = -1;
  XMLString text(node.createXMLString(format, &size));
  EXPECT_EQ(size, static_cast<int>(strlen(text.get())));
  return text.get();
}

TEST(XmlWrite, BothFormatsByteForByteWithEntities) {
  XMLNode reply = XMLNode::createXMLTopNode("root");
  reply.addChild("status").addText("0");
  reply.addChild("version", 0, 0).addText("KIVO 1.0");  // placed ahead of status
  EXPECT_EQ(written(reply, 1), "<root>\n\t<version>KIVO 1.0</version>\n\t<status>0</status>\n</root>\n");
  EXPECT_EQ(written(reply, 0), "<root><version>KIVO 1.0</version><status>0</status></root>");
  EXPECT_EQ(written(XMLNode(), 1), "");

  const std::string compact =
      "<?xml version=\"1.0\"?><root a=\"x&quot;y\" flag><e/><m>t1<c>v</c>t2</m><![CDATA[raw<]]></root>";
  XMLNode doc = XMLNode::parseString(compact.c_str());
  EXPECT_EQ(written(doc, 1),
            "<?xml version=\"1.0\"?>\n<root a=\"x&quot;y\" flag>\n\t<e/>\n\t<m>\n\t\tt1\n\t\t<c>v</c>\n\t\tt2\n\t</m>\n"
            "\t<![CDATA[raw<]]>\n</root>\n");
  EXPECT_EQ(written(doc, 0), compact);
  EXPECT_EQ(written(XMLNode::parseString(written(doc, 1).c_str()), 0), compact);

  // The five characters of the entity table go out encoded and read back.
  XMLNode node = XMLNode::createXMLTopNode("n");
  node.addAttribute("v", "a<b & \"c\" 'd'>");
  node.addText("<&>\"'");
  EXPECT_EQ(written(node, 0), "<n v=\"a&lt;b &amp; &quot;c&quot; &apos;d&apos;&gt;\">&lt;&amp;&gt;&quot;&apos;</n>");
  XMLNode back = XMLNode::parseString(written(node, 0).c_str());
  EXPECT_STREQ(back.getAttribute("v"), "a<b & \"c\" 'd'>");
  EXPECT_STREQ(back.getText(), "<&>\"'");
}

TEST(XmlTree, HandlesCountTheirRecords) {
  XMLNode inner;
  {
    XMLNode root = XMLNode::parseString("<r><a><b>x</b></a></r>");
    inner = root.getChildNode("a");
    EXPECT_STREQ(inner.getParentNode().getName(), "r");
  }
  EXPECT_STREQ(inner.getChildNode("b").getText(), "x");  // outlives its document
  EXPECT_TRUE(inner.getParentNode().isEmpty());

  // Copies, self-assignment and moves: a miscount shows under the sanitizers.
  XMLNode a = XMLNode::createXMLTopNode("a");
  XMLNode b = a;
  a = std::move(b);
  a = *&a;
  b = a;
  b = XMLNode();
  a.addChild("kid");
  EXPECT_EQ(written(a, 0), "<a><kid/></a>");
}

TEST(XmlTree, AddChildMovesBetweenParents) {
  XMLNode first = XMLNode::createXMLTopNode("first");
  XMLNode moved = first.addChild("a");
  moved.addText("x");
  XMLNode second = XMLNode::createXMLTopNode("second");
  EXPECT_STREQ(second.addChild(moved).getName(), "a");
  EXPECT_EQ(written(first, 0), "<first/>");
  EXPECT_EQ(written(second, 0), "<second><a>x</a></second>");
  EXPECT_STREQ(moved.getParentNode().getName(), "second");

  XMLNode loose = XMLNode::createXMLTopNode("b");
  second.addChild(loose, 0);
  EXPECT_EQ(written(second, 0), "<second><b/><a>x</a></second>");
  second.addChild(loose);  // within the same parent, to the end
  EXPECT_EQ(written(second, 0), "<second><a>x</a><b/></second>");

  // Never under itself or its own subtree.
  EXPECT_TRUE(moved.addChild(second).isEmpty());
  EXPECT_TRUE(second.addChild(second).isEmpty());
  EXPECT_EQ(second.nChildNode(), 2);

  first = XMLNode();  // the moved node is owned by its new parent alone
  moved = XMLNode();
  EXPECT_STREQ(second.getChildNode("a").getText(), "x");
}

TEST(XmlTree, PositionsInterleaveTextsAndChildren) {
  XMLNode n = XMLNode::createXMLTopNode("n");
  n.addText("t2");
  n.addChild("c");
  n.addText("t1", 0);
  n.addChild("b", 0, 1);
  EXPECT_EQ(written(n, 0), "<n>t1<b/>t2<c/></n>");
  n.deleteText(0);
  n.deleteText(5);
  EXPECT_EQ(written(n, 0), "<n><b/>t2<c/></n>");
  n.addText("t3", 2);
  EXPECT_EQ(written(n, 0), "<n><b/>t2t3<c/></n>");
  EXPECT_STREQ(n.getText(1), "t3");
  EXPECT_EQ(n.getText(2), nullptr);
}

TEST(XmlTree, DeleteNodeContentEmptiesEveryHandle) {
  XMLNode root = XMLNode::parseString("<r><a><b>x</b></a><c/></r>");
  XMLNode a = root.getChildNode("a");
  XMLNode other = a;
  XMLNode b = a.getChildNode("b");
  a.deleteNodeContent();
  for (const XMLNode* h : {&a, &other, &b}) EXPECT_TRUE(h->isEmpty());
  EXPECT_EQ(b.getText(), nullptr);
  EXPECT_TRUE(other.addChild("z").isEmpty());
  EXPECT_EQ(written(root, 0), "<r><c/></r>");

  // A top node goes with its inner handles.
  XMLNode reply = XMLNode::createXMLTopNode("root");
  XMLNode status = reply.addChild("status");
  reply.deleteNodeContent();
  EXPECT_TRUE(status.isEmpty());
}

TEST(XmlTree, LookupsByNameIndexAndIterator) {
  XMLNode r = XMLNode::parseString("<r a='1' b='2' A='3'><i>1</i><x/><I>2</I><i>3</i></r>");
  EXPECT_EQ(r.nChildNode("i"), 3);
  EXPECT_STREQ(r.getChildNode("i", 1).getText(), "2");
  EXPECT_STREQ(r.getChildNode("i", -1).getText(), "3");
  EXPECT_TRUE(r.getChildNode("i", 3).isEmpty());
  EXPECT_STREQ(r.getChildNode(1).getName(), "x");
  EXPECT_TRUE(r.getChildNode(4).isEmpty());

  std::string seen;
  int it = 0;
  for (XMLNode n = r.getChildNode("i", &it); !n.isEmpty(); n = r.getChildNode("i", &it)) seen += n.getText();
  EXPECT_EQ(seen, "123");
  it = 0;
  EXPECT_STREQ(r.getAttribute("a", &it), "1");
  EXPECT_STREQ(r.getAttribute("a", &it), "3");
  EXPECT_EQ(r.getAttribute("a", &it), nullptr);
  EXPECT_STREQ(r.getAttribute("A", -1), "3");

  // Reads on the empty node give empty answers; changes do nothing.
  XMLNode none = XMLNode::emptyXMLNode;
  EXPECT_EQ(none.getAttribute("a"), nullptr);
  EXPECT_TRUE(none.addChild("x").isEmpty());
  EXPECT_EQ(none.addText("t"), nullptr);
  EXPECT_EQ(none.nChildNode(), 0);
}

}  // namespace
