// Any bytes through the parser and the writer. The sanitizers catch memory
// faults; beyond that, a document whose text the writer can express
// unambiguously must come back unchanged from a second parse, in both forms.
#include <strings.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/xmlParser.h"

namespace {

std::string text_of(const XMLNode& node, int format) {
  XMLString text(node.createXMLString(format));
  return text.get();
}

size_t char_size(unsigned char c) {
  if (c < 0xC0) return 1;
  if (c < 0xE0) return 2;
  if (c < 0xF0) return 3;
  if (c < 0xF8) return 4;
  return 1;
}

std::string encoded(const char* s) {
  std::string out;
  for (; *s; ++s) {
    switch (*s) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default: out += *s;
    }
  }
  return out;
}

// The parser walks by UTF-8 character sizes: a value is read back as written
// only when that walk ends exactly where the value does.
bool whole_characters(const std::string& s) {
  size_t i = 0;
  while (i < s.size()) i += char_size(static_cast<unsigned char>(s[i]));
  return i == s.size();
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Names the writer cannot make ambiguous: no '/' before '>', no clear-tag
// look-alikes ("<!--x", an element "PRE" that would read as "<PRE>").
bool plain_name(const char* name) {
  if (!name || !*name || strcmp(name, "PRE") == 0) return false;
  for (const char* p = name; *p; ++p) {
    char c = *p;
    bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
              c == '-' || c == '.' || c == ':';
    if (!ok) return false;
  }
  return true;
}

bool writable_text(const char* text) {
  size_t n = strlen(text);
  // The parser trims blanks around texts, and would drop an empty one.
  if (n == 0 || is_blank(text[0]) || is_blank(text[n - 1])) return false;
  return whole_characters(encoded(text));
}

bool round_trips(const XMLNode& top) {
  std::vector<XMLNode> pending{top};
  bool first = true;
  while (!pending.empty()) {
    XMLNode node = pending.back();
    pending.pop_back();
    if (!(first && !node.getName()) && !plain_name(node.getName())) return false;
    first = false;
    for (int i = 0; i < node.nAttribute(); ++i) {
      if (!plain_name(node.getAttributeName(i))) return false;
      const char* value = node.getAttributeValue(i);
      if (value && !whole_characters(encoded(value))) return false;
    }
    for (int i = 0; i < node.nText(); ++i) {
      if (!writable_text(node.getText(i))) return false;
    }
    for (int i = 0; i < node.nChildNode(); ++i) pending.push_back(node.getChildNode(i));
  }
  return true;
}

void check(const XMLNode& node) {
  std::string compact = text_of(node, 0);
  std::string indented = text_of(node, 1);

  // Whatever was written parses again without harm.
  XMLNode again = XMLNode::parseString(compact.c_str());
  text_of(again, 1);
  XMLNode againIndented = XMLNode::parseString(indented.c_str());

  if (node.isEmpty() || !round_trips(node)) return;
  // A text that ends the unnamed top (its tag was cut off) has no tag after
  // it in the output, and a text is kept only when a tag follows.
  if (!node.getName() && !compact.empty() && compact.back() != '>') return;
  XMLResults results{};
  XMLNode fromCompact = XMLNode::parseString(compact.c_str(), nullptr, &results);
  if (results.error != eXMLErrorNone && results.error != eXMLErrorNoXMLTagFound) abort();
  if (text_of(fromCompact, 0) != compact) abort();
  if (text_of(fromCompact, 1) != indented) abort();
  if (text_of(againIndented, 0) != compact) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);  // adds the NUL
  XMLResults results{};
  XMLNode plain = XMLNode::parseString(text.c_str(), nullptr, &results);
  if (results.error >= eXMLErrorEmpty && !plain.isEmpty()) abort();
  check(plain);

  XMLNode rooted = XMLNode::parseString(text.c_str(), "root", &results);
  if (!rooted.isEmpty() && strcasecmp(rooted.getName(), "root") != 0) abort();
  check(rooted);

  // An inner handle outlives the document; removal leaves every handle empty.
  if (plain.nChildNode() > 0) {
    XMLNode inner = plain.getChildNode(plain.nChildNode() - 1);
    XMLNode innerChild = inner.getChildNode(0);
    plain = XMLNode();
    text_of(inner, 1);
    inner.deleteNodeContent();
    if (!innerChild.isEmpty()) abort();
  }
  return 0;
}
