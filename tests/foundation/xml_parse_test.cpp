// The parser: tolerance, errors, the tag rules, entities, files, hostile input.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "foundation/xmlParser.h"

namespace {

struct Parsed {
  XMLNode node;
  XMLResults results;
};

Parsed parse(const std::string& text, const char* tag = nullptr) {
  Parsed p{XMLNode(), XMLResults{eXMLErrorEmpty, -1, -1}};
  p.node = XMLNode::parseString(text.c_str(), tag, &p.results);
  return p;
}

std::string compact(const XMLNode& node) { return XMLString(node.createXMLString(0)).get(); }

struct TempFile {
  explicit TempFile(const std::string& content) {
    char name[] = "/tmp/xmltestXXXXXX";
    int fd = mkostemp(name, O_CLOEXEC);
    path = name;
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(fd);
  }
  ~TempFile() { unlink(path.c_str()); }
  std::string path;
};

// Warnings keep the tree read so far; errors give the empty node.
TEST(XmlParse, ToleranceTagRulesWarningsAndErrors) {
  const struct {
    const char* text;
    const char* tag;
    XMLError error;
    const char* tree;  // "" for the empty node
  } cases[] = {
      {"<root><a>1</a>", nullptr, eXMLErrorMissingEndTag, "<root><a>1</a></root>"},
      {"<root><a>1</b></root>", nullptr, eXMLErrorMissingEndTag, "<root><a>1</a></root>"},
      {"<root><a><b><c>x</a><d/></root>", nullptr, eXMLErrorMissingEndTag,  // names an ancestor
       "<root><a><b><c>x</c></b></a><d/></root>"},
      // Cut short, even inside a tag: whole tags stay, a text whose tag never came goes.
      {"<root><command>Play</command><p><dev>r1</dev><vol>4", nullptr, eXMLErrorMissingEndTag,
       "<root><command>Play</command><p><dev>r1</dev><vol/></p></root>"},
      {"<root><command>Play</comm", nullptr, eXMLErrorMissingEndTag, "<root><command>Play</command></root>"},
      {"", nullptr, eXMLErrorNoXMLTagFound, ""},
      {"<root> \t\r\n <a/>\n \n<b> x  y\t</b> </root>", nullptr, eXMLErrorNone, "<root><a/><b>x  y</b></root>"},
      // A comment between two texts goes and joins them; other clears stay.
      {"<a>one <!-- c --> two<![CDATA[ <raw> ]]>three</a>", nullptr, eXMLErrorNone,
       "<a>onetwo<![CDATA[ <raw> ]]>three</a>"},
      // Attributes quoted, bare, without value and empty; a quote that meets
      // '<' before its partner is an ordinary character.
      {"<a one=\"1 &amp; 2\" two='it&apos;s' three=bare four five=\"\">don't \"stop <b/></a>", nullptr,
       eXMLErrorNone,
       "<a one=\"1 &amp; 2\" two=\"it&apos;s\" three=\"bare\" four five=\"\">don&apos;t &quot;stop<b/></a>"},
      // The tag finds the root itself, behind a declaration, or inside a wrapper.
      {"<ROOT><Command>x</Command></ROOT>", "root", eXMLErrorNone, "<ROOT><Command>x</Command></ROOT>"},
      {"<?xml version=\"1.0\"?>\n<root><s>0</s></root>", "root", eXMLErrorNone, "<root><s>0</s></root>"},
      {"<answer><root><x/></root></answer>", "root", eXMLErrorNone, "<root><x/></root>"},
      {"<?xml version=\"1.0\"?><root/>", nullptr, eXMLErrorNone, "<?xml version=\"1.0\"?><root/>"},
      {"<answer><other/></answer>", "root", eXMLErrorFirstTagNotFound, ""},
      {"", "root", eXMLErrorFirstTagNotFound, ""},
      {"<a></a></a>", nullptr, eXMLErrorUnmatchedEndTag, ""},
      {"<a><></a>", nullptr, eXMLErrorMissingTagName, ""},
      {"<a></>", nullptr, eXMLErrorMissingEndTagName, ""},
      {"<a></a x>", nullptr, eXMLErrorMissingEndTagName, ""},
      {"<a><!-- open</a>", nullptr, eXMLErrorUnmatchedEndClearTag, ""},
      {"<a b=>", nullptr, eXMLErrorUnexpectedToken, ""},
      {"<a =x>", nullptr, eXMLErrorUnexpectedToken, ""},
      {"<a v=\"&#xZZ;\"/>", nullptr, eXMLErrorUnknownCharacterEntity, ""},
  };
  for (const auto& c : cases) {
    Parsed p = parse(c.text, c.tag);
    EXPECT_EQ(p.results.error, c.error) << c.text;
    EXPECT_EQ(compact(p.node), c.tree) << c.text;
    EXPECT_EQ(p.node.isEmpty(), !*c.tree) << c.text;
  }
  EXPECT_TRUE(parse("").node.getChildNode("x").isEmpty());
  EXPECT_EQ(parse("<a>\n  <b =/>").results.nLine, 2);
  XMLResults results{};
  EXPECT_TRUE(XMLNode::parseString(nullptr, nullptr, &results).isEmpty());
  EXPECT_EQ(results.error, eXMLErrorNoElements);
  EXPECT_STREQ(XMLNode::getError(eXMLErrorMissingEndTag), "Warning: Unmatched end tag");
  EXPECT_STREQ(XMLNode::getError(eXMLErrorCharacterCodeAbove255),
               "Error: Character code above 255 is forbidden in MultiByte char mode.");
}

TEST(XmlParse, EntitiesDecodeOnceAndBadOnesFail) {
  const struct { const char* in; const char* out; } good[] = {
      {"&amp;lt;", "&lt;"},         {"&LT;&Gt;&QUOT;&apos;", "<>\"'"}, {"AT&T & more &", "AT&T & more &"},
      {"&#65;&#x42;&#x63;", "ABc"}, {"&#128;", "\x80"},                {"&#233;", "\xC3\xA9"},
      {"&#x20AC;", "\xE2\x82\xAC"}, {"&#x1F600;", "\xF0\x9F\x98\x80"}, {"&#x10FFFF;", "\xF4\x8F\xBF\xBF"},
  };
  for (const auto& g : good) EXPECT_STREQ(parse(std::string("<a>") + g.in + "</a>").node.getText(), g.out) << g.in;

  for (const char* bad : {"&#0;", "&#xD800;", "&#57343;", "&#x110000;", "&#99999999999999999999;", "&#12a;", "&#;",
                          "&#x;", "&#65", "&unknown;"}) {
    Parsed p = parse(std::string("<a>x") + bad + "</a>");
    EXPECT_EQ(p.results.error, eXMLErrorUnknownCharacterEntity) << bad;
    EXPECT_TRUE(p.node.isEmpty()) << bad;
  }
}

TEST(XmlParse, HostileBytesNeverReadPastTheEnd) {
  // A multibyte lead byte right before the terminating NUL.
  for (const char* text : {"\xC3", "<a>\xF0", "<a b=\"\xE2", "<a \xF0", "<\xC3", "<a>x</\xE0"}) {
    EXPECT_LE(parse(text).results.error, eXMLErrorNoXMLTagFound) << text;
  }
  // A lead byte swallows what follows as part of its character.
  EXPECT_EQ(compact(parse("<a>\xC3</a><b/>").node), "<a>\xC3&lt;/a&gt;<b/></a>");
  const char withNul[] = "<a>x</a>\0<b/>";
  EXPECT_EQ(compact(XMLNode::parseString(withNul)), "<a>x</a>");

  std::string garbage;
  for (unsigned i = 0, seed = 7; i < 20000; ++i) {
    seed = seed * 1103515245u + 12345u;
    garbage.push_back(static_cast<char>(seed >> 16) ? static_cast<char>(seed >> 16) : '<');
  }
  for (size_t cut = 1; cut < garbage.size(); cut += 997) {
    XMLString text(XMLNode::parseString(garbage.substr(0, cut).c_str()).createXMLString(1));
    EXPECT_NE(text.get(), nullptr);
  }
}

// Parses, walks, writes, re-parses and frees 100000 levels on a 256 KiB stack.
TEST(XmlParse, DeepNestingFitsASmallStack) {
  constexpr int kDepth = 100000;
  static std::string doc, seen;
  for (int i = 0; i < kDepth; ++i) doc += "<d>";
  doc += "leaf";
  for (int i = 0; i < kDepth; ++i) doc += "</d>";
  auto body = [](void*) -> void* {
    XMLNode root = XMLNode::parseString(doc.c_str());
    XMLNode leaf = root;
    int depth = 0;
    for (; leaf.nChildNode() > 0; ++depth) leaf = leaf.getChildNode(0);
    XMLString text(root.createXMLString(0));
    root = XMLNode();  // the leaf's handle keeps only the leaf
    seen = std::to_string(depth) + std::string(text.get(), 6) + (leaf.getText() ? leaf.getText() : "");
    XMLNode::parseString(text.get()).deleteNodeContent();
    return nullptr;
  };
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 256 * 1024);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attr, body, nullptr), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  EXPECT_EQ(seen, std::to_string(kDepth - 1) + "<d><d>leaf");
}

TEST(XmlParse, FilesSkipMarksAndConvertWideText) {
  XMLResults results{};
  EXPECT_TRUE(XMLNode::parseFile("/nonexistent/x.xml", nullptr, &results).isEmpty());
  EXPECT_EQ(results.error, eXMLErrorFileNotFound);

  TempFile bom("\xEF\xBB\xBF<root><a>\xC3\xA9</a></root>");
  EXPECT_STREQ(XMLNode::parseFile(bom.path.c_str(), "root").getChildNode("a").getText(), "\xC3\xA9");
  std::string utf16("\xFF\xFE", 2), utf32;  // 16-bit with a mark, 32-bit without
  for (char c : std::string("<r>\xE9</r>")) utf16 += std::string{c, '\0'};
  for (char c : std::string("<r x='1'/>")) utf32 += std::string{c, '\0', '\0', '\0'};
  TempFile wide16(utf16), wide32(utf32);
  EXPECT_STREQ(XMLNode::parseFile(wide16.path.c_str()).getText(), "\xC3\xA9");
  EXPECT_STREQ(XMLNode::parseFile(wide32.path.c_str()).getAttribute("x"), "1");

  TempFile lone(std::string("\xFF\xFE\x00\xDC", 4));  // a lone low surrogate
  EXPECT_TRUE(XMLNode::parseFile(lone.path.c_str(), nullptr, &results).isEmpty());
  EXPECT_EQ(results.error, eXMLErrorCharConversionError);
}

}  // namespace
