// The node handle: counting, building, lookups and removal.
#include <strings.h>

#include <cstdlib>
#include <cstring>

#include "foundation/xmlParser.h"

using Rec = XMLNode::XMLNodeDataTag;

const XMLNode XMLNode::emptyXMLNode;

namespace {

XMLOwnedText dup_text(const char* text) {
  if (!text) return nullptr;
  size_t n = strlen(text);
  XMLOwnedText copy(new char[n + 1]);
  memcpy(copy.get(), text, n + 1);
  return copy;
}

bool same_name(const char* stored, const char* wanted) {
  return stored && wanted && strcasecmp(stored, wanted) == 0;
}

// Frees a record whose count has reached 0, and every child whose count then
// reaches 0 in turn: a loop, so that depth costs heap, not stack.
void free_records(Rec* first) {
  std::vector<Rec*> pending{first};
  while (!pending.empty()) {
    Rec* rec = pending.back();
    pending.pop_back();
    for (Rec* child : rec->m_children) {
      child->m_parent = nullptr;
      if (--child->m_refCount == 0) pending.push_back(child);
    }
    rec->m_children.clear();
    delete rec;
  }
}

void release(Rec* rec) {
  // A parent holds a count on each child, so a record that reaches 0 here
  // has no live parent.
  if (rec && --rec->m_refCount == 0) free_records(rec);
}

// Makes room for a new entry of `type` at `position` of the order array and
// returns the index the entry gets in its own array.
int insert_order(Rec* rec, XMLElementType type, int position) {
  std::vector<int>& order = rec->m_order;
  int count = static_cast<int>(order.size());
  if (position < 0 || position >= count) {
    int index = 0;
    switch (type) {
      case eNodeChild: index = static_cast<int>(rec->m_children.size()); break;
      case eNodeText: index = static_cast<int>(rec->m_texts.size()); break;
      case eNodeClear: index = static_cast<int>(rec->m_clears.size()); break;
      case eNodeAttribute: break;
    }
    order.push_back((index << 2) | type);
    return index;
  }
  int index = 0;
  for (int k = 0; k < position; ++k) {
    if ((order[k] & 3) == type) ++index;
  }
  for (int k = position; k < count; ++k) {
    if ((order[k] & 3) == type) order[k] += 4;
  }
  order.insert(order.begin() + position, (index << 2) | type);
  return index;
}

// Drops the order entry of element `index` of `type`; later ones move down.
void remove_order(Rec* rec, XMLElementType type, int index) {
  std::vector<int>& order = rec->m_order;
  int entry = (index << 2) | type;
  size_t at = order.size();
  for (size_t k = 0; k < order.size(); ++k) {
    if (order[k] == entry) at = k;
    else if ((order[k] & 3) == type && (order[k] >> 2) > index) order[k] -= 4;
  }
  if (at < order.size()) order.erase(order.begin() + static_cast<std::ptrdiff_t>(at));
}

// Takes `child` out of its parent's arrays. The parent's count on it is left
// for the caller to move or drop.
void detach(Rec* child) {
  Rec* parent = child->m_parent;
  if (!parent) return;
  std::vector<Rec*>& kids = parent->m_children;
  for (size_t i = 0; i < kids.size(); ++i) {
    if (kids[i] == child) {
      remove_order(parent, eNodeChild, static_cast<int>(i));
      kids.erase(kids.begin() + static_cast<std::ptrdiff_t>(i));
      break;
    }
  }
  child->m_parent = nullptr;
}

void insert_child(Rec* parent, Rec* child, int position) {
  int index = insert_order(parent, eNodeChild, position);
  parent->m_children.insert(parent->m_children.begin() + index, child);
  child->m_parent = parent;
}

bool live(const Rec* rec) { return rec && !rec->m_bDeleted; }

}  // namespace

// ---- counting ----------------------------------------------------------------

XMLNode::XMLNode(XMLNodeDataTag* data) noexcept : d(data) {
  if (d) ++d->m_refCount;
}

XMLNode::XMLNode(const XMLNode& other) noexcept : d(other.d) {
  if (d) ++d->m_refCount;
}

// Self-assignment shares the record, which the test below leaves alone.
XMLNode& XMLNode::operator=(const XMLNode& other) noexcept {  // NOLINT(bugprone-unhandled-self-assignment)
  if (d != other.d) {
    Rec* old = d;
    d = other.d;
    if (d) ++d->m_refCount;
    release(old);
  }
  return *this;
}

XMLNode& XMLNode::operator=(XMLNode&& other) noexcept {
  if (this != &other) {
    Rec* old = d;
    d = other.d;
    other.d = nullptr;
    if (old != d) release(old);
    else if (old) --old->m_refCount;  // two handles collapsed into one
  }
  return *this;
}

XMLNode::~XMLNode() { release(d); }

// ---- building ------------------------------------------------------------------

XMLNode XMLNode::createXMLTopNode(const char* name, char isDeclaration) {
  Rec* rec = new Rec;
  rec->m_name = dup_text(name);
  rec->m_bDeclaration = isDeclaration != 0;
  return XMLNode(rec);
}

XMLNode XMLNode::addChild(const char* name, char isDeclaration, int position) {
  if (!live(d)) return XMLNode();
  Rec* rec = new Rec;
  rec->m_name = dup_text(name);
  rec->m_bDeclaration = isDeclaration != 0;
  rec->m_refCount = 1;  // the parent's
  insert_child(d, rec, position);
  return XMLNode(rec);
}

XMLNode XMLNode::addChild(XMLNode child, int position) {
  if (!live(d) || !live(child.d)) return XMLNode();
  for (Rec* up = d; up; up = up->m_parent) {
    if (up == child.d) return XMLNode();  // would make a cycle
  }
  if (child.d->m_parent) detach(child.d);  // the old parent's count moves here
  else ++child.d->m_refCount;
  insert_child(d, child.d, position);
  return child;
}

const char* XMLNode::addText(const char* text, int position) {
  if (!live(d) || !text) return nullptr;
  int index = insert_order(d, eNodeText, position);
  auto it = d->m_texts.insert(d->m_texts.begin() + index, dup_text(text));
  return it->get();
}

// Both texts are owned by the attribute as soon as it is built; the
// analyzer loses track of them inside the vector.
// NOLINTBEGIN(clang-analyzer-cplusplus.NewDeleteLeaks)
XMLAttribute* XMLNode::addAttribute(const char* name, const char* value) {
  if (!live(d) || !name) return nullptr;
  d->m_attributes.push_back(XMLAttribute{dup_text(name), dup_text(value)});
  return &d->m_attributes.back();
}
// NOLINTEND(clang-analyzer-cplusplus.NewDeleteLeaks)

void XMLNode::deleteText(int index) {
  if (!live(d) || index < 0 || index >= static_cast<int>(d->m_texts.size())) return;
  remove_order(d, eNodeText, index);
  d->m_texts.erase(d->m_texts.begin() + index);
}

void XMLNode::deleteNodeContent() {
  Rec* rec = d;
  d = nullptr;
  if (!rec) return;
  if (rec->m_bDeleted) {
    release(rec);
    return;
  }
  if (rec->m_parent) {
    detach(rec);
    --rec->m_refCount;  // the parent's; this handle's count is still held
  }
  // Empty the node and everything under it. Each pending record carries one
  // count (this handle's, or its former parent's); a record is freed when
  // that was the last, and otherwise stays as an empty shell for the other
  // handles that still point at it.
  std::vector<Rec*> pending{rec};
  while (!pending.empty()) {
    Rec* cur = pending.back();
    pending.pop_back();
    std::vector<Rec*> kids;
    kids.swap(cur->m_children);
    for (Rec* kid : kids) {
      kid->m_parent = nullptr;
      pending.push_back(kid);
    }
    cur->m_name.reset();
    cur->m_texts.clear();
    cur->m_clears.clear();
    cur->m_attributes.clear();
    cur->m_order.clear();
    cur->m_bDeclaration = false;
    cur->m_bDeleted = true;
    if (--cur->m_refCount == 0) delete cur;
  }
}

// ---- lookups ---------------------------------------------------------------------

bool XMLNode::isEmpty() const { return !live(d); }

const char* XMLNode::getName() const { return live(d) ? d->m_name.get() : nullptr; }

bool XMLNode::isDeclaration() const { return live(d) && d->m_bDeclaration; }

XMLNode XMLNode::getParentNode() const { return live(d) ? XMLNode(d->m_parent) : XMLNode(); }

int XMLNode::nChildNode() const { return live(d) ? static_cast<int>(d->m_children.size()) : 0; }

int XMLNode::nChildNode(const char* name) const {
  if (!live(d)) return 0;
  int count = 0;
  for (const Rec* child : d->m_children) {
    if (same_name(child->m_name.get(), name)) ++count;
  }
  return count;
}

XMLNode XMLNode::getChildNode(int index) const {
  if (!live(d) || index < 0 || index >= static_cast<int>(d->m_children.size())) return XMLNode();
  return XMLNode(d->m_children[index]);
}

XMLNode XMLNode::getChildNode(const char* name, int* iterator) const {
  if (!live(d) || !name) return XMLNode();
  int count = static_cast<int>(d->m_children.size());
  int i = (iterator && *iterator > 0) ? *iterator : 0;
  for (; i < count; ++i) {
    if (same_name(d->m_children[i]->m_name.get(), name)) {
      if (iterator) *iterator = i + 1;
      return XMLNode(d->m_children[i]);
    }
  }
  return XMLNode();
}

XMLNode XMLNode::getChildNode(const char* name, int index) const {
  if (!live(d) || !name) return XMLNode();
  const std::vector<Rec*>& kids = d->m_children;
  if (index < 0) {
    for (size_t i = kids.size(); i-- > 0;) {
      if (same_name(kids[i]->m_name.get(), name)) return XMLNode(kids[i]);
    }
    return XMLNode();
  }
  for (Rec* kid : kids) {
    if (same_name(kid->m_name.get(), name) && index-- == 0) return XMLNode(kid);
  }
  return XMLNode();
}

int XMLNode::nText() const { return live(d) ? static_cast<int>(d->m_texts.size()) : 0; }

const char* XMLNode::getText(int index) const {
  if (!live(d) || index < 0 || index >= static_cast<int>(d->m_texts.size())) return nullptr;
  return d->m_texts[index].get();
}

int XMLNode::nClear() const { return live(d) ? static_cast<int>(d->m_clears.size()) : 0; }

const char* XMLNode::getClear(int index) const {
  if (!live(d) || index < 0 || index >= static_cast<int>(d->m_clears.size())) return nullptr;
  return d->m_clears[index].lpszValue.get();
}

int XMLNode::nAttribute() const { return live(d) ? static_cast<int>(d->m_attributes.size()) : 0; }

const char* XMLNode::getAttributeName(int index) const {
  if (!live(d) || index < 0 || index >= static_cast<int>(d->m_attributes.size())) return nullptr;
  return d->m_attributes[index].lpszName.get();
}

const char* XMLNode::getAttributeValue(int index) const {
  if (!live(d) || index < 0 || index >= static_cast<int>(d->m_attributes.size())) return nullptr;
  return d->m_attributes[index].lpszValue.get();
}

const char* XMLNode::getAttribute(const char* name, int* iterator) const {
  if (!live(d) || !name) return nullptr;
  int count = static_cast<int>(d->m_attributes.size());
  int i = (iterator && *iterator > 0) ? *iterator : 0;
  for (; i < count; ++i) {
    if (same_name(d->m_attributes[i].lpszName.get(), name)) {
      if (iterator) *iterator = i + 1;
      return d->m_attributes[i].lpszValue.get();
    }
  }
  return nullptr;
}

const char* XMLNode::getAttribute(const char* name, int index) const {
  if (!live(d) || !name) return nullptr;
  const std::vector<XMLAttribute>& attrs = d->m_attributes;
  if (index < 0) {
    for (size_t i = attrs.size(); i-- > 0;) {
      if (same_name(attrs[i].lpszName.get(), name)) return attrs[i].lpszValue.get();
    }
    return nullptr;
  }
  for (const XMLAttribute& attr : attrs) {
    if (same_name(attr.lpszName.get(), name) && index-- == 0) return attr.lpszValue.get();
  }
  return nullptr;
}

bool XMLNode::isAttributeSet(const char* name) const {
  if (!live(d) || !name) return false;
  for (const XMLAttribute& attr : d->m_attributes) {
    if (same_name(attr.lpszName.get(), name)) return true;
  }
  return false;
}

const char* XMLNode::getError(XMLError error) {
  switch (error) {
    case eXMLErrorNone: return "No error";
    case eXMLErrorMissingEndTag: return "Warning: Unmatched end tag";
    case eXMLErrorNoXMLTagFound: return "Warning: No XML tag found";
    case eXMLErrorEmpty: return "Error: No XML data";
    case eXMLErrorMissingTagName: return "Error: Missing start tag name";
    case eXMLErrorMissingEndTagName: return "Error: Missing end tag name";
    case eXMLErrorUnmatchedEndTag: return "Error: Unmatched end tag";
    case eXMLErrorUnmatchedEndClearTag: return "Error: Unmatched clear tag end";
    case eXMLErrorUnexpectedToken: return "Error: Unexpected token found";
    case eXMLErrorNoElements: return "Error: No elements found";
    case eXMLErrorFileNotFound: return "Error: File not found";
    case eXMLErrorFirstTagNotFound: return "Error: First Tag not found";
    case eXMLErrorUnknownCharacterEntity: return "Error: Unknown character entity";
    case eXMLErrorCharacterCodeAbove255:
      return "Error: Character code above 255 is forbidden in MultiByte char mode.";
    case eXMLErrorCharConversionError: return "Error: unable to convert between WideChar and MultiByte chars";
  }
  return "Unknown";
}

void XMLNode::freeXMLString(char* text) { free(text); }
