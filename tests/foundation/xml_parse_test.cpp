// The parser: tolerance, errors, entities, the tag rules, files, hostile input.
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/xmlParser.h"

namespace {

struct Parsed {
  XMLNode node;
  XMLResults results;
};

Parsed parse(const std::string& text, const char* tag = nullptr) {
  Parsed p;
  p.results = XMLResults{eXMLErrorEmpty, -1, -1};
  p.node = XMLNode::parseString(text.c_str(), tag, &p.results);
  return p;
}

std::string compact(const XMLNode& node) {
  XMLString text(node.createXMLString(0));
  return text.get();
}

// A file that is removed when the test ends.
class TempFile {
 public:
  explicit TempFile(const std::string& content) {
    char name[] = "/tmp/xmltestXXXXXX";
    int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    m_path = name;
    EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
    close(fd);
  }
  ~TempFile() { unlink(m_path.c_str()); }
  const char* path() const { return m_path.c_str(); }

 private:
  std::string m_path;
};

TEST(XmlParse, ForgivesMissingAndBadlyNestedEndTags) {
  Parsed cut = parse("<root><a>1</a>");
  EXPECT_EQ(cut.results.error, eXMLErrorMissingEndTag);
  EXPECT_STREQ(cut.node.getName(), "root");
  EXPECT_EQ(cut.node.nChildNode(), 1);
  EXPECT_STREQ(cut.node.getChildNode("a").getText(), "1");

  Parsed stray = parse("<root><a>1</b></root>");
  EXPECT_EQ(stray.results.error, eXMLErrorMissingEndTag);
  EXPECT_EQ(compact(stray.node), "<root><a>1</a></root>");

  // An end tag naming an ancestor closes everything inside it.
  Parsed skip = parse("<root><a><b><c>x</a><d/></root>");
  EXPECT_EQ(skip.results.error, eXMLErrorMissingEndTag);
  EXPECT_EQ(compact(skip.node), "<root><a><b><c>x</c></b></a><d/></root>");

  // A request cut in the middle still yields its whole tags; the text whose
  // tag never came is dropped.
  Parsed request = parse("<root><command>Play</command><paramList><dev>r1</dev><vol>4");
  EXPECT_EQ(request.results.error, eXMLErrorMissingEndTag);
  EXPECT_STREQ(request.node.getChildNode("command").getText(), "Play");
  XMLNode params = request.node.getChildNode("paramList");
  EXPECT_STREQ(params.getChildNode("dev").getText(), "r1");
  EXPECT_FALSE(params.getChildNode("vol").isEmpty());
  EXPECT_EQ(params.getChildNode("vol").getText(), nullptr);

  // Cut inside an end tag is the same: what was read stays.
  Parsed inTag = parse("<root><command>Play</comm");
  EXPECT_EQ(inTag.results.error, eXMLErrorMissingEndTag);
  EXPECT_STREQ(inTag.node.getChildNode("command").getText(), "Play");

  // End tags that close nothing are errors.
  EXPECT_EQ(parse("<a></a></a>").results.error, eXMLErrorUnmatchedEndTag);
  EXPECT_TRUE(parse("<a></a></a>").node.isEmpty());
}

TEST(XmlParse, ErrorsGiveTheEmptyNodeWithTheirCode) {
  const struct {
    const char* text;
    XMLError error;
  } cases[] = {
      {"<a><></a>", eXMLErrorMissingTagName},
      {"<a></>", eXMLErrorMissingEndTagName},
      {"<a></a x>", eXMLErrorMissingEndTagName},
      {"<a><!-- open</a>", eXMLErrorUnmatchedEndClearTag},
      {"<a b=>", eXMLErrorUnexpectedToken},
      {"<a =x>", eXMLErrorUnexpectedToken},
      {"<a>&bogus;</a>", eXMLErrorUnknownCharacterEntity},
      {"<a v=\"&#xZZ;\"/>", eXMLErrorUnknownCharacterEntity},
  };
  for (const auto& c : cases) {
    Parsed p = parse(c.text);
    EXPECT_EQ(p.results.error, c.error) << c.text;
    EXPECT_TRUE(p.node.isEmpty()) << c.text;
  }
  EXPECT_EQ(parse("<a>\n  <b =/>").results.nLine, 2);

  XMLResults results{};
  EXPECT_TRUE(XMLNode::parseString(nullptr, nullptr, &results).isEmpty());
  EXPECT_EQ(results.error, eXMLErrorNoElements);
  EXPECT_STREQ(XMLNode::getError(eXMLErrorFirstTagNotFound), "Error: First Tag not found");
  EXPECT_STREQ(XMLNode::getError(eXMLErrorCharacterCodeAbove255),
               "Error: Character code above 255 is forbidden in MultiByte char mode.");
}

TEST(XmlParse, EmptyInputAndBlankText) {
  Parsed empty = parse("");
  EXPECT_EQ(empty.results.error, eXMLErrorNoXMLTagFound);
  EXPECT_TRUE(empty.node.isEmpty());
  EXPECT_TRUE(empty.node.getChildNode("x").isEmpty());
  EXPECT_EQ(empty.node.nChildNode(), 0);
  EXPECT_EQ(empty.node.getText(), nullptr);

  Parsed blanks = parse("<root> \t\r\n <a/>\n \n<b> x  y\t</b> </root>");
  EXPECT_EQ(blanks.node.nText(), 0);
  EXPECT_STREQ(blanks.node.getChildNode("b").getText(), "x  y");

  // A comment between two texts is dropped and the texts joined; other
  // clears stay in place.
  Parsed joined = parse("<a>one <!-- c --> two<![CDATA[ <raw> ]]>three</a>");
  EXPECT_EQ(joined.node.nText(), 2);
  EXPECT_STREQ(joined.node.getText(0), "onetwo");
  EXPECT_STREQ(joined.node.getClear(0), " <raw> ");
  EXPECT_STREQ(joined.node.getText(1), "three");
}

TEST(XmlParse, TagSelectsTheRootWherever) {
  Parsed cased = parse("<ROOT><Command>x</Command></ROOT>", "root");
  EXPECT_STREQ(cased.node.getChildNode("command").getText(), "x");
  EXPECT_STREQ(cased.node.getChildNode("COMMAND").getText(), "x");

  Parsed declared = parse("<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<root><status>0</status></root>", "root");
  EXPECT_EQ(declared.results.error, eXMLErrorNone);
  EXPECT_STREQ(declared.node.getName(), "root");

  Parsed untagged = parse("<?xml version=\"1.0\"?><root/>");
  EXPECT_EQ(untagged.node.getName(), nullptr);  // two top elements: the unnamed top
  XMLNode decl = untagged.node.getChildNode(0);
  EXPECT_TRUE(decl.isDeclaration());
  EXPECT_STREQ(decl.getAttribute("version"), "1.0");

  Parsed wrapped = parse("<answer><root><x/></root></answer>", "root");
  EXPECT_EQ(wrapped.node.nChildNode("x"), 1);

  Parsed missing = parse("<answer><other/></answer>", "root");
  EXPECT_EQ(missing.results.error, eXMLErrorFirstTagNotFound);
  EXPECT_TRUE(missing.node.isEmpty());
  EXPECT_EQ(parse("", "root").results.error, eXMLErrorFirstTagNotFound);
}

TEST(XmlParse, AttributesQuotedBareAndWithoutValue) {
  Parsed p = parse("<a one=\"1 &amp; 2\" two='it&apos;s' three=bare four five=\"\"/>");
  XMLNode a = p.node;
  EXPECT_STREQ(a.getAttribute("ONE"), "1 & 2");
  EXPECT_STREQ(a.getAttribute("two"), "it's");
  EXPECT_STREQ(a.getAttribute("three"), "bare");
  EXPECT_TRUE(a.isAttributeSet("four"));
  EXPECT_EQ(a.getAttribute("four"), nullptr);
  EXPECT_STREQ(a.getAttribute("five"), "");
  EXPECT_FALSE(a.isAttributeSet("six"));

  // A quote that meets '<' before its partner is an ordinary character.
  Parsed q = parse("<a>don't \"stop <b/></a>");
  EXPECT_STREQ(q.node.getText(), "don't \"stop");

  std::string big(4096, 'v');
  Parsed large = parse("<a big=\"" + big + "\"/>");
  ASSERT_NE(large.node.getAttribute("big"), nullptr);
  EXPECT_EQ(std::string(large.node.getAttribute("big")), big);
}

TEST(XmlParse, EntitiesDecodeOnce) {
  EXPECT_STREQ(parse("<a>&amp;lt;</a>").node.getText(), "&lt;");
  EXPECT_STREQ(parse("<a>&LT;&Gt;&QUOT;&apos;</a>").node.getText(), "<>\"'");
  EXPECT_STREQ(parse("<a>AT&T & more &</a>").node.getText(), "AT&T & more &");
  EXPECT_STREQ(parse("<a>&#65;&#x42;&#x63;</a>").node.getText(), "ABc");
  EXPECT_STREQ(parse("<a>&#128;</a>").node.getText(), "\x80");
  EXPECT_STREQ(parse("<a>&#233;</a>").node.getText(), "\xC3\xA9");
  EXPECT_STREQ(parse("<a>&#x20AC;</a>").node.getText(), "\xE2\x82\xAC");
  EXPECT_STREQ(parse("<a>&#x1F600;</a>").node.getText(), "\xF0\x9F\x98\x80");
  EXPECT_STREQ(parse("<a>&#x10FFFF;</a>").node.getText(), "\xF4\x8F\xBF\xBF");

  for (const char* bad : {"&#0;", "&#x0;", "&#xD800;", "&#57343;", "&#x110000;", "&#99999999999999999999;",
                          "&#xFFFFFFFFFFFFFFFFFFFF;", "&#12a;", "&#;", "&#x;", "&#65", "&unknown;"}) {
    Parsed p = parse(std::string("<a>x") + bad + "</a>");
    EXPECT_EQ(p.results.error, eXMLErrorUnknownCharacterEntity) << bad;
    EXPECT_TRUE(p.node.isEmpty()) << bad;
  }
}

TEST(XmlParse, HostileBytesNeverReadPastTheEnd) {
  // A multibyte lead byte right before the terminating NUL.
  for (const char* text : {"\xC3", "<a>\xF0", "<a b=\"\xE2", "<a \xF0", "<\xC3", "<a>x</\xE0"}) {
    Parsed p = parse(text);
    EXPECT_LE(p.results.error, eXMLErrorNoXMLTagFound) << text;
  }
  // A lead byte swallows what follows as part of its character.
  EXPECT_EQ(compact(parse("<a>\xC3</a><b/>").node), "<a>\xC3&lt;/a&gt;<b/></a>");

  std::string garbage;
  unsigned seed = 7;
  for (int i = 0; i < 20000; ++i) {
    seed = seed * 1103515245u + 12345u;
    char c = static_cast<char>((seed >> 16) & 0xFF);
    garbage.push_back(c ? c : '<');
  }
  for (size_t cut = 1; cut < garbage.size(); cut += 997) {
    XMLNode node = XMLNode::parseString(garbage.substr(0, cut).c_str());
    XMLString text(node.createXMLString(1));
    EXPECT_NE(text.get(), nullptr);
  }
  // Text after a NUL is never seen.
  const char withNul[] = "<a>x</a>\0<b/>";
  EXPECT_EQ(compact(XMLNode::parseString(withNul)), "<a>x</a>");
}

struct DeepJob {
  std::string path;
  std::string firstLine;
  int depth = 0;
};

void* deep_parse(void* arg) {
  DeepJob* job = static_cast<DeepJob*>(arg);
  XMLNode root = XMLNode::parseFile(job->path.c_str());
  XMLNode leaf = root;
  while (leaf.nChildNode() > 0) {
    leaf = leaf.getChildNode(0);
    ++job->depth;
  }
  XMLString text(root.createXMLString(0));
  job->firstLine = std::string(text.get()).substr(0, 6);
  root = XMLNode();  // the inner handle keeps only the leaf alive
  job->firstLine += leaf.getText() ? leaf.getText() : "";
  XMLNode copy = XMLNode::parseString(text.get());
  copy.deleteNodeContent();
  return nullptr;
}

TEST(XmlParse, DeepNestingFitsASmallStack) {
  const int depth = 100000;
  std::string doc;
  for (int i = 0; i < depth; ++i) doc += "<d>";
  doc += "leaf";
  for (int i = 0; i < depth; ++i) doc += "</d>";
  TempFile file(doc);

  DeepJob job;
  job.path = file.path();
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 256 * 1024);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attr, deep_parse, &job), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
  EXPECT_EQ(job.depth, depth - 1);
  EXPECT_EQ(job.firstLine, "<d><d>leaf");
}

TEST(XmlParse, Files) {
  XMLResults results{};
  EXPECT_TRUE(XMLNode::parseFile("/nonexistent/x.xml", nullptr, &results).isEmpty());
  EXPECT_EQ(results.error, eXMLErrorFileNotFound);

  TempFile bom("\xEF\xBB\xBF<root><a>\xC3\xA9</a></root>");
  EXPECT_STREQ(XMLNode::parseFile(bom.path(), "root").getChildNode("a").getText(), "\xC3\xA9");

  // 16-bit with a mark, and 32-bit without one: both become UTF-8.
  std::string utf16("\xFF\xFE", 2);
  for (char c : std::string("<r>\xE9</r>")) utf16 += std::string{c, '\0'};
  TempFile wide16(utf16);
  EXPECT_STREQ(XMLNode::parseFile(wide16.path()).getText(), "\xC3\xA9");

  std::string utf32;
  for (char c : std::string("<r x='1'/>")) utf32 += std::string{c, '\0', '\0', '\0'};
  TempFile wide32(utf32);
  EXPECT_STREQ(XMLNode::parseFile(wide32.path()).getAttribute("x"), "1");

  TempFile lone(std::string("\xFF\xFE\x00\xDC", 4));  // a lone low surrogate
  EXPECT_TRUE(XMLNode::parseFile(lone.path(), nullptr, &results).isEmpty());
  EXPECT_EQ(results.error, eXMLErrorCharConversionError);

  TempFile empty("");
  EXPECT_TRUE(XMLNode::parseFile(empty.path(), nullptr, &results).isEmpty());
  EXPECT_EQ(results.error, eXMLErrorEmpty);
}

}  // namespace
