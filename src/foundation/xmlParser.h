// The daemon's one XML model: a counted handle on a tree of nodes, a
// forgiving single-pass parser and a writer. Not a validating parser and not
// namespace-aware: "u:Foo" is one plain name. Version text "v2.44".
//
// Not thread-safe: the counts are plain ints, so a document (and every handle
// into it) belongs to one thread at a time.
//
// No operation recurses over the depth of a document: parsing, writing and
// freeing walk with explicit stacks, so any nesting that fits in memory is
// handled on a small thread stack.
#pragma once

#include <memory>
#include <vector>

#define XMLPARSER_VERSION "v2.44"

// The parser's result. 1 and 2 are warnings (the tree read so far is kept);
// all others give the empty node.
enum XMLError {
  eXMLErrorNone = 0,
  eXMLErrorMissingEndTag = 1,          // "Warning: Unmatched end tag"
  eXMLErrorNoXMLTagFound = 2,          // "Warning: No XML tag found"
  eXMLErrorEmpty = 3,                  // "Error: No XML data"
  eXMLErrorMissingTagName = 4,         // "Error: Missing start tag name"
  eXMLErrorMissingEndTagName = 5,      // "Error: Missing end tag name"
  eXMLErrorUnmatchedEndTag = 6,        // "Error: Unmatched end tag"
  eXMLErrorUnmatchedEndClearTag = 7,   // "Error: Unmatched clear tag end"
  eXMLErrorUnexpectedToken = 8,        // "Error: Unexpected token found"
  eXMLErrorNoElements = 9,             // "Error: No elements found"
  eXMLErrorFileNotFound = 10,          // "Error: File not found"
  eXMLErrorFirstTagNotFound = 11,      // "Error: First Tag not found"
  eXMLErrorUnknownCharacterEntity = 12,
  eXMLErrorCharacterCodeAbove255 = 13,
  eXMLErrorCharConversionError = 14
};

// Kind of an entry of a node's order array (its two low bits).
enum XMLElementType { eNodeChild = 0, eNodeAttribute = 1, eNodeText = 2, eNodeClear = 3 };

// Filled by the parser when the caller passes one. Line and column (from 1)
// tell where the parse stopped.
struct XMLResults {
  XMLError error;
  int nLine;
  int nColumn;
};

using XMLOwnedText = std::unique_ptr<char[]>;

struct XMLAttribute {
  XMLOwnedText lpszName;
  XMLOwnedText lpszValue;  // null for an attribute written without a value
};

// Unparsed content such as a CDATA section or a comment. The tags point into
// the fixed table of clear tags.
struct XMLClear {
  const char* lpszOpenTag;
  XMLOwnedText lpszValue;
  const char* lpszCloseTag;
};

class XMLNode {
 public:
  struct XMLNodeDataTag;

  constexpr XMLNode() noexcept : d(nullptr) {}
  XMLNode(const XMLNode& other) noexcept;
  XMLNode(XMLNode&& other) noexcept : d(other.d) { other.d = nullptr; }
  XMLNode& operator=(const XMLNode& other) noexcept;
  XMLNode& operator=(XMLNode&& other) noexcept;
  ~XMLNode();

  // ---- building and reading documents ------------------------------------
  // The tree of `text` (NUL-terminated, any bytes), or the empty node. With a
  // non-empty `tag` the result is the node of that name: the top element
  // itself or its first child of that name.
  static XMLNode parseString(const char* text, const char* tag = nullptr, XMLResults* results = nullptr);
  // The same from a file (the caller resolves fixed paths). Byte order marks
  // are skipped; 16- and 32-bit wide text is converted to UTF-8.
  static XMLNode parseFile(const char* path, const char* tag = nullptr, XMLResults* results = nullptr);
  static XMLNode createXMLTopNode(const char* name, char isDeclaration = 0);

  // The words for an error value.
  static const char* getError(XMLError error);

  // ---- changing a node (no effect on the empty node) ----------------------
  // `position` counts all content entries (children, texts, clears) in
  // document order; -1 or any position past the end appends.
  XMLNode addChild(const char* name, char isDeclaration = 0, int position = -1);
  // Moves `child` (with its subtree) under this node, out of its old parent.
  // Refused (empty node returned) when `child` is empty, this node itself or
  // one of its ancestors.
  XMLNode addChild(XMLNode child, int position = -1);
  // The stored copy of `text` (null for a null `text`).
  const char* addText(const char* text, int position = -1);
  // Both are copied; a null `value` makes an attribute without value. The
  // pointer stays valid until the node's attributes change.
  XMLAttribute* addAttribute(const char* name, const char* value);
  void deleteText(int index = 0);
  // Takes this node out of its parent and empties it and everything under
  // it, whatever other handles exist; those handles then see empty nodes.
  // This handle becomes the empty node.
  void deleteNodeContent();

  // ---- lookups (names compared without regard to case) --------------------
  // The first child of that name at or behind *iterator, which then stands
  // behind it; without iterator the first child of that name.
  XMLNode getChildNode(const char* name, int* iterator = nullptr) const;
  // Child number `index` among those named `name`; negative: the last one.
  XMLNode getChildNode(const char* name, int index) const;
  // Child number `index` among all children.
  XMLNode getChildNode(int index = 0) const;
  int nChildNode(const char* name) const;
  int nChildNode() const;
  const char* getText(int index = 0) const;  // null when out of range
  const char* getAttribute(const char* name, int* iterator = nullptr) const;
  const char* getAttribute(const char* name, int index) const;
  bool isAttributeSet(const char* name) const;
  const char* getName() const;
  bool isEmpty() const;

  // Small extras.
  int nText() const;
  int nClear() const;
  int nAttribute() const;
  const char* getAttributeName(int index) const;
  const char* getAttributeValue(int index) const;
  const char* getClear(int index) const;  // the unparsed content
  bool isDeclaration() const;
  XMLNode getParentNode() const;

  // ---- writing -------------------------------------------------------------
  // New text of the subtree: format 0 is compact, any other value indents
  // with tabs and line feeds. Give the result to freeXMLString. `size` (may
  // be null) receives its length. The empty node gives "".
  char* createXMLString(int format = 1, int* size = nullptr) const;
  static void freeXMLString(char* text);

  // The shared empty node.
  static const XMLNode emptyXMLNode;

 private:
  explicit XMLNode(XMLNodeDataTag* data) noexcept;  // takes one count
  XMLNodeDataTag* d;

  friend class XMLParserImpl;
};

// The parser's and writer's access to records; not for other code.
class XMLParserImpl {
 public:
  static XMLNode wrap(XMLNode::XMLNodeDataTag* data) { return XMLNode(data); }  // adds a count
  static XMLNode::XMLNodeDataTag* data(const XMLNode& node) { return node.d; }
};

// Owns text from createXMLString.
struct XMLStringFree {
  void operator()(char* text) const { XMLNode::freeXMLString(text); }
};
using XMLString = std::unique_ptr<char, XMLStringFree>;

// One node's record. Children are counted references; the parent pointer is
// not. Records are freed by the handles' release, never by recursion.
struct XMLNode::XMLNodeDataTag {
  XMLOwnedText m_name;  // null for the unnamed top of a parse
  bool m_bDeclaration = false;
  XMLNodeDataTag* m_parent = nullptr;
  std::vector<XMLNodeDataTag*> m_children;
  std::vector<XMLOwnedText> m_texts;
  std::vector<XMLClear> m_clears;
  std::vector<XMLAttribute> m_attributes;
  // One entry for each child, text and clear in document order: the index
  // into its own array shifted left by 2, with the XMLElementType below.
  std::vector<int> m_order;
  int m_refCount = 0;
  bool m_bDeleted = false;  // emptied by deleteNodeContent
};
