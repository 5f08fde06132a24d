// Any bytes through the parser and the writer, under the sanitizers. A document that the writer
// expresses unambiguously must come back unchanged from a second parse, in both forms.
#include <strings.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/xmlParser.h"

namespace {

std::string text_of(const XMLNode& node, int format) { return XMLString(node.createXMLString(format)).get(); }

// The parser walks by UTF-8 character sizes: a value reads back as written
// only when that walk over its encoded form ends exactly where it does.
bool reads_back(const char* value) {
  XMLNode holder = XMLNode::createXMLTopNode("x");
  holder.addText(value);
  const std::string s = text_of(holder, 0);  // "<x>", the encoded value, "</x>"; or "<x/>"
  size_t i = 3;
  for (unsigned char c; i + 4 < s.size(); i += c < 0xC0 || c >= 0xF8 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4) {
    c = static_cast<unsigned char>(s[i]);
  }
  return i + 4 == s.size() || !*value;
}

// Names the writer cannot make ambiguous: no '/' before '>', no clear-tag
// look-alikes ("<!--x", an element "PRE" that would read as "<PRE>").
bool plain_name(const char* n) {
  return n && *n && std::strcmp(n, "PRE") != 0 &&
         std::strspn(n, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.:") == std::strlen(n);
}

bool round_trips(const XMLNode& top) {
  std::vector<XMLNode> pending{top};
  for (bool first = true; !pending.empty(); first = false) {
    XMLNode node = pending.back();
    pending.pop_back();
    bool ok = (first && !node.getName()) || plain_name(node.getName());
    for (int i = 0; ok && i < node.nAttribute(); ++i) {
      const char* value = node.getAttributeValue(i);
      ok = plain_name(node.getAttributeName(i)) && (!value || reads_back(value));
    }
    for (int i = 0; ok && i < node.nText(); ++i) {
      const char* t = node.getText(i);  // the parser trims blanks around texts and drops an empty one
      ok = *t && !std::strchr(" \t\n\r", t[0]) && !std::strchr(" \t\n\r", t[std::strlen(t) - 1]) && reads_back(t);
    }
    if (!ok) return false;
    for (int i = 0; i < node.nChildNode(); ++i) pending.push_back(node.getChildNode(i));
  }
  return true;
}

void check(const XMLNode& node) {
  const std::string compact = text_of(node, 0), indented = text_of(node, 1);
  // Whatever was written parses again without harm.
  XMLResults results{};
  XMLNode fromCompact = XMLNode::parseString(compact.c_str(), nullptr, &results);
  const std::string again = text_of(fromCompact, 1), againCompact = text_of(XMLNode::parseString(indented.c_str()), 0);
  // Only what the writer expresses unambiguously must read back: not a text
  // that ends an unnamed top, as a text is kept only when a tag follows.
  if (node.isEmpty() || !round_trips(node) || (!node.getName() && !compact.empty() && compact.back() != '>')) return;
  if ((results.error != eXMLErrorNone && results.error != eXMLErrorNoXMLTagFound) ||
      text_of(fromCompact, 0) != compact || again != indented || againCompact != compact)
    abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);  // adds the NUL
  XMLResults results{};
  XMLNode plain = XMLNode::parseString(text.c_str(), nullptr, &results);
  if (results.error >= eXMLErrorEmpty && !plain.isEmpty()) abort();
  check(plain);
  XMLNode rooted = XMLNode::parseString(text.c_str(), "root", &results);
  if (!rooted.isEmpty() && strcasecmp(rooted.getName(), "root") != 0) abort();
  check(rooted);
  // An inner handle outlives the document; removal leaves every handle empty.
  XMLNode inner = plain.getChildNode(plain.nChildNode() - 1);
  XMLNode innerChild = inner.getChildNode(0);
  plain = XMLNode();
  text_of(inner, 1);
  inner.deleteNodeContent();
  if (!innerChild.isEmpty()) abort();
  return 0;
}
