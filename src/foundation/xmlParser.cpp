// The forgiving single-pass parser. One cursor walks the text; open elements
// live on an explicit stack, so nesting depth never touches the C stack.
#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <unordered_map>

#include "foundation/xmlParser.h"

using Rec = XMLNode::XMLNodeDataTag;

namespace {

struct clearTag_s {
  const char* open;
  size_t openLen;
  const char* close;
  size_t closeLen;
};
using clearTag_t = clearTag_s;

// Tested in this order, by prefix and case-sensitively.
const clearTag_t g_clearTags[] = {
    {"<![CDATA[", 9, "]]>", 3},
    {"<!DOCTYPE", 9, ">", 1},
    {"<!--", 4, "-->", 3},
    {"<PRE>", 5, "</PRE>", 6},
};
const clearTag_t& g_commentTag = g_clearTags[2];

enum tokenType_e {
  TOKEN_WORD,
  TOKEN_QUOTED,
  TOKEN_SHORT_CLOSE,  // "/>"
  TOKEN_CLEAR,        // "<" and a clear tag
  TOKEN_END_TAG,      // "</"
  TOKEN_DECLARATION,  // "<?"
  TOKEN_START_TAG,    // "<"
  TOKEN_EQUALS,
  TOKEN_CLOSE,        // ">"
  TOKEN_NONE          // end of input
};

struct token_s {
  tokenType_e type;
  const char* start;
  size_t len;
  const clearTag_t* clear;
};
using token_t = token_s;

inline bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Bytes a character takes in UTF-8, by its first byte.
inline size_t char_size(unsigned char c) {
  if (c < 0xC0) return 1;
  if (c < 0xE0) return 2;
  if (c < 0xF0) return 3;
  if (c < 0xF8) return 4;
  return 1;
}

// The next character; a truncated sequence stops at the terminating NUL.
inline const char* next_char(const char* p) {
  size_t n = char_size(static_cast<unsigned char>(*p));
  for (size_t k = 1; k < n; ++k) {
    if (p[k] == '\0') return p + k;
  }
  return p + n;
}

inline bool ends_word(const char* p) {
  char c = *p;
  return c == '\0' || is_blank(c) || c == '<' || c == '=' || c == '>' || (c == '/' && p[1] == '>');
}

// Compares case-insensitively over the stored name's length; the source must
// then go on with a character that can end a tag name.
bool tag_matches(const char* stored, const char* source, size_t sourceLen) {
  if (!stored) return false;
  size_t n = strlen(stored);
  if (n > sourceLen || strncasecmp(stored, source, n) != 0) return false;
  if (n == sourceLen) return true;
  char c = source[n];
  return is_blank(c) || c == '<' || c == '=' || c == '>' || c == '/';
}

// FNV-1a over the lower-cased bytes: the index of open elements by name.
inline uint64_t name_hash_step(uint64_t h, char c) {
  unsigned char b = static_cast<unsigned char>(c);
  if (b >= 'A' && b <= 'Z') b = static_cast<unsigned char>(b + ('a' - 'A'));
  return (h ^ b) * 1099511628211ULL;
}
const uint64_t g_hashSeed = 14695981039346656037ULL;

// ---- entities ------------------------------------------------------------------

struct entity_s {
  const char* text;
  size_t len;
  char ch;
};
const entity_s g_entities[] = {
    {"&amp;", 5, '&'}, {"&lt;", 4, '<'}, {"&gt;", 4, '>'}, {"&quot;", 6, '"'}, {"&apos;", 6, '\''},
};

inline bool is_entity_name_char(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
         c == '.' || c == ':' || c >= 0x80;
}

inline int digit_value(char c, bool hex) {
  if (c >= '0' && c <= '9') return c - '0';
  if (hex && c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (hex && c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// "&#..;" or "&#x..;" at s[0] within n bytes: the code, or -1 when a digit is
// wrong, the ";" is missing or the code cannot stand in a text (NUL, a
// surrogate, above U+10FFFF). *used receives the length of the reference.
long numeric_entity(const char* s, size_t n, size_t* used) {
  size_t k = 2;
  bool hex = k < n && s[k] == 'x';
  if (hex) ++k;
  size_t firstDigit = k;
  long value = 0;
  for (; k < n && s[k] != ';'; ++k) {
    int digit = digit_value(s[k], hex);
    if (digit < 0) return -1;
    value = value * (hex ? 16 : 10) + digit;
    if (value > 0x10FFFF) value = 0x110000;  // stays out of range, never overflows
  }
  if (k == n || k == firstDigit) return -1;
  if (value == 0 || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return -1;
  *used = k + 1;
  return value;
}

size_t put_code(char* out, long value) {
  unsigned long v = static_cast<unsigned long>(value);
  if (v < 129) {  // one byte, 128 included
    out[0] = static_cast<char>(v);
    return 1;
  }
  if (v < 0x800) {
    out[0] = static_cast<char>(0xC0 | (v >> 6));
    out[1] = static_cast<char>(0x80 | (v & 0x3F));
    return 2;
  }
  if (v < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (v >> 12));
    out[1] = static_cast<char>(0x80 | ((v >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (v & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | (v >> 18));
  out[1] = static_cast<char>(0x80 | ((v >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((v >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (v & 0x3F));
  return 4;
}

// Decodes n bytes of s into out (room for n + 1; a reference never grows) and
// NUL-terminates. False on a bad or unknown entity; a lone '&', one that does
// not start a "name;" reference, stands for itself.
bool xml_decode(const char* s, size_t n, char* out, size_t* outLen) {
  size_t o = 0;
  size_t i = 0;
  while (i < n) {
    const char* amp = static_cast<const char*>(memchr(s + i, '&', n - i));
    size_t plain = amp ? static_cast<size_t>(amp - (s + i)) : n - i;
    memcpy(out + o, s + i, plain);
    o += plain;
    i += plain;
    if (i == n) break;
    const char* ref = s + i;
    size_t left = n - i;
    if (left > 1 && ref[1] == '#') {
      size_t used = 0;
      long value = numeric_entity(ref, left, &used);
      if (value < 0) return false;
      o += put_code(out + o, value);
      i += used;
      continue;
    }
    const entity_s* found = nullptr;
    for (const entity_s& entity : g_entities) {
      if (entity.len <= left && strncasecmp(ref, entity.text, entity.len) == 0) {
        found = &entity;
        break;
      }
    }
    if (found) {
      out[o++] = found->ch;
      i += found->len;
      continue;
    }
    size_t k = 1;
    while (k < left && is_entity_name_char(static_cast<unsigned char>(ref[k]))) ++k;
    if (k > 1 && k < left && ref[k] == ';') return false;  // an unknown entity
    out[o++] = '&';
    ++i;
  }
  out[o] = '\0';
  *outLen = o;
  return true;
}

class Parser {
 public:
  explicit Parser(const char* text) : m_p(text) {}

  XMLError error() const { return m_error; }
  const char* stop() const { return m_stop ? m_stop : m_p; }

  void run(Rec* top) {
    push(top);
    while (step()) {
    }
  }

 private:
  enum phase_e { PHASE_CONTENT, PHASE_IN_TAG, PHASE_ATTR_NAME, PHASE_ATTR_EQUALS };

  struct open_s {
    Rec* rec;
    uint64_t hash;
  };

  token_t next_token() {
    while (is_blank(*m_p)) ++m_p;
    token_t t{TOKEN_NONE, m_p, 0, nullptr};
    const char* s = m_p;
    switch (*s) {
      case '\0': return t;
      case '"':
      case '\'': {
        const char* q = next_char(s);
        while (*q && *q != *s && *q != '<') q = next_char(q);
        if (*q == *s) {
          m_p = q + 1;
          t.type = TOKEN_QUOTED;
        } else {  // the quote alone is a word
          m_p = s + 1;
          t.type = TOKEN_WORD;
        }
        t.len = static_cast<size_t>(m_p - s);
        return t;
      }
      case '<':
        for (const clearTag_t& clear : g_clearTags) {
          if (s[1] == clear.open[1] && strncmp(s, clear.open, clear.openLen) == 0) {
            t.type = TOKEN_CLEAR;
            t.clear = &clear;
            t.len = clear.openLen;
            m_p = s + t.len;
            return t;
          }
        }
        t.type = s[1] == '/' ? TOKEN_END_TAG : s[1] == '?' ? TOKEN_DECLARATION : TOKEN_START_TAG;
        t.len = t.type == TOKEN_START_TAG ? 1 : 2;
        m_p = s + t.len;
        return t;
      case '=':
      case '>':
        t.type = *s == '=' ? TOKEN_EQUALS : TOKEN_CLOSE;
        t.len = 1;
        m_p = s + 1;
        return t;
      case '/':
        if (s[1] == '>') {
          t.type = TOKEN_SHORT_CLOSE;
          t.len = 2;
          m_p = s + 2;
          return t;
        }
        break;
      default: break;
    }
    const char* q = next_char(s);
    while (!ends_word(q)) q = next_char(q);
    m_p = q;
    t.type = TOKEN_WORD;
    t.len = static_cast<size_t>(q - s);
    return t;
  }

  // The input ended, possibly inside a tag: keep what was read, with a
  // warning while elements are open. A text run not yet closed by a tag is
  // dropped.
  bool input_ended() {
    if (m_open.size() > 1) warn(eXMLErrorMissingEndTag);
    return false;
  }

  void fail(XMLError error, const char* at) {
    m_error = error;
    m_stop = at;
  }
  void warn(XMLError warning) {
    if (m_error == eXMLErrorNone) m_error = warning;
  }

  // ---- the stack of open elements ----------------------------------------

  static uint64_t hash_of(const char* name) {
    uint64_t h = g_hashSeed;
    for (; name && *name; ++name) h = name_hash_step(h, *name);
    return h;
  }

  void push(Rec* rec) {
    open_s entry{rec, 0};
    if (m_bIndexed && rec->m_name) {
      entry.hash = hash_of(rec->m_name.get());
      m_byName[entry.hash].push_back(m_open.size());
    }
    m_open.push_back(entry);
  }

  void pop() {
    const open_s& entry = m_open.back();
    if (m_bIndexed && entry.rec->m_name) {
      auto it = m_byName.find(entry.hash);
      it->second.pop_back();  // entries leave in the order they came
      if (it->second.empty()) m_byName.erase(it);
    }
    m_open.pop_back();
  }

  // The deepest open element (not the top) that an end tag names; 0 when
  // none. Built on the first badly nested end tag, kept up to date after.
  size_t find_open(const char* name, size_t len) {
    if (!m_bIndexed) {
      m_bIndexed = true;
      for (size_t i = 1; i < m_open.size(); ++i) {
        if (!m_open[i].rec->m_name) continue;
        m_open[i].hash = hash_of(m_open[i].rec->m_name.get());
        m_byName[m_open[i].hash].push_back(i);
      }
    }
    // A stored name matches the whole word, or a part of it that ends
    // before a '/': look up each such part.
    size_t best = 0;
    uint64_t h = g_hashSeed;
    for (size_t k = 0; k <= len; ++k) {
      if (k == len || name[k] == '/') {
        auto it = m_byName.find(h);
        if (it != m_byName.end()) {
          const std::vector<size_t>& at = it->second;
          for (size_t j = at.size(); j-- > 0 && at[j] > best;) {
            if (tag_matches(m_open[at[j]].rec->m_name.get(), name, len)) {
              best = at[j];
              break;
            }
          }
        }
      }
      if (k < len) h = name_hash_step(h, name[k]);
    }
    return best;
  }

  Rec* current() const { return m_open.back().rec; }

  // ---- content ---------------------------------------------------------------

  // Adds the text run that ends where a tag begins.
  bool flush_text(const char* end) {
    if (!m_textStart) return true;
    const char* s = m_textStart;
    m_textStart = nullptr;
    while (end > s && is_blank(end[-1])) --end;
    if (end == s) return true;
    size_t n = static_cast<size_t>(end - s);
    XMLOwnedText text(new char[n + 1]);
    size_t out = 0;
    if (!xml_decode(s, n, text.get(), &out)) {
      fail(eXMLErrorUnknownCharacterEntity, s);
      return false;
    }
    add_text(std::move(text), out);
    return true;
  }

  void add_text(XMLOwnedText text, size_t len) {
    Rec* rec = current();
    std::vector<int>& order = rec->m_order;
    size_t n = order.size();
    // A comment between two texts goes, and the texts become one.
    if (n >= 2 && (order[n - 1] & 3) == eNodeClear && (order[n - 2] & 3) == eNodeText &&
        rec->m_clears.back().lpszOpenTag == g_commentTag.open) {
      rec->m_clears.pop_back();
      order.pop_back();
      XMLOwnedText& last = rec->m_texts.back();
      size_t have = (last.get() == m_merged) ? m_mergedLen : strlen(last.get());
      size_t room = (last.get() == m_merged) ? m_mergedCap : have + 1;
      if (have + len + 1 > room) {
        room = std::max(room * 2, have + len + 1);
        XMLOwnedText grown(new char[room]);
        memcpy(grown.get(), last.get(), have);
        last = std::move(grown);
      }
      memcpy(last.get() + have, text.get(), len + 1);
      m_merged = last.get();
      m_mergedLen = have + len;
      m_mergedCap = room;
      return;
    }
    order.push_back(static_cast<int>(rec->m_texts.size() << 2) | eNodeText);
    rec->m_texts.push_back(std::move(text));
  }

  bool add_clear(const token_t& t) {
    const clearTag_t* clear = t.clear;
    const char* body = t.start + clear->openLen;
    const char* close = strstr(body, clear->close);
    if (!close) {
      fail(eXMLErrorUnmatchedEndClearTag, t.start);
      return false;
    }
    size_t n = static_cast<size_t>(close - body);
    XMLOwnedText value(new char[n + 1]);
    memcpy(value.get(), body, n);
    value[n] = '\0';
    Rec* rec = current();
    rec->m_order.push_back(static_cast<int>(rec->m_clears.size() << 2) | eNodeClear);
    rec->m_clears.push_back(XMLClear{clear->open, std::move(value), clear->close});
    m_p = close + clear->closeLen;
    return true;
  }

  bool start_element(bool declaration) {
    token_t name = next_token();
    if (name.type == TOKEN_NONE) return input_ended();
    if (name.type != TOKEN_WORD) {
      fail(eXMLErrorMissingTagName, name.start);
      return false;
    }
    size_t len = name.len;
    if (declaration && len > 1 && name.start[len - 1] == '?') --len;
    Rec* parent = current();
    Rec* rec = new Rec;
    rec->m_name.reset(new char[len + 1]);
    memcpy(rec->m_name.get(), name.start, len);
    rec->m_name[len] = '\0';
    rec->m_bDeclaration = declaration;
    rec->m_refCount = 1;  // the parent's
    rec->m_parent = parent;
    parent->m_order.push_back(static_cast<int>(parent->m_children.size() << 2) | eNodeChild);
    parent->m_children.push_back(rec);
    push(rec);
    m_phase = PHASE_IN_TAG;
    return true;
  }

  bool end_element(const char* at) {
    token_t name = next_token();
    if (name.type == TOKEN_NONE) return input_ended();
    if (name.type != TOKEN_WORD) {
      fail(eXMLErrorMissingEndTagName, name.start);
      return false;
    }
    token_t close = next_token();
    if (close.type == TOKEN_NONE) return input_ended();
    if (close.type != TOKEN_CLOSE) {
      fail(eXMLErrorMissingEndTagName, close.start);
      return false;
    }
    if (m_open.size() == 1) {  // nothing open to close
      fail(eXMLErrorUnmatchedEndTag, at);
      return false;
    }
    if (tag_matches(current()->m_name.get(), name.start, name.len)) {
      pop();
      return true;
    }
    // Badly nested: close the inner elements up to the one named, or, when
    // no open element has that name, just the current one.
    warn(eXMLErrorMissingEndTag);
    size_t target = find_open(name.start, name.len);
    if (target == 0) target = m_open.size() - 1;
    while (m_open.size() > target) pop();
    return true;
  }

  // ---- the start tag -----------------------------------------------------------

  void attribute_name(const token_t& t) {
    size_t len = t.len;
    Rec* rec = current();
    if (rec->m_bDeclaration && t.start[len - 1] == '?') --len;
    if (len == 0) {
      m_phase = PHASE_IN_TAG;
      return;
    }
    XMLOwnedText name(new char[len + 1]);
    memcpy(name.get(), t.start, len);
    name[len] = '\0';
    rec->m_attributes.push_back(XMLAttribute{std::move(name), nullptr});
    m_phase = PHASE_ATTR_NAME;
  }

  bool attribute_value(const token_t& t) {
    const char* s = t.start;
    size_t len = t.len;
    Rec* rec = current();
    m_phase = PHASE_IN_TAG;
    if (rec->m_bDeclaration && s[len - 1] == '?') --len;
    if (len == 0) return true;
    if (t.type == TOKEN_QUOTED) {
      ++s;
      len -= 2;
    }
    XMLOwnedText value(new char[len + 1]);
    size_t out = 0;
    if (!xml_decode(s, len, value.get(), &out)) {
      fail(eXMLErrorUnknownCharacterEntity, s);
      return false;
    }
    rec->m_attributes.back().lpszValue = std::move(value);
    return true;
  }

  // The start tag is over: a declaration or "/>" closes the element.
  void end_start_tag(bool shortClose) {
    if (shortClose || current()->m_bDeclaration) pop();
    m_phase = PHASE_CONTENT;
  }

  // One token; false when the parse is over.
  bool step() {
    token_t t = next_token();
    if (t.type == TOKEN_NONE) return input_ended();
    switch (m_phase) {
      case PHASE_CONTENT:
        switch (t.type) {
          case TOKEN_START_TAG:
          case TOKEN_DECLARATION:
            return flush_text(t.start) && start_element(t.type == TOKEN_DECLARATION);
          case TOKEN_END_TAG: return flush_text(t.start) && end_element(t.start);
          case TOKEN_CLEAR: return flush_text(t.start) && add_clear(t);
          default:
            if (!m_textStart) m_textStart = t.start;
            return true;
        }
      case PHASE_IN_TAG:
      case PHASE_ATTR_NAME:
        switch (t.type) {
          case TOKEN_WORD: attribute_name(t); return true;
          case TOKEN_CLOSE: end_start_tag(false); return true;
          case TOKEN_SHORT_CLOSE: end_start_tag(true); return true;
          case TOKEN_EQUALS:
            if (m_phase == PHASE_ATTR_NAME) {
              m_phase = PHASE_ATTR_EQUALS;
              return true;
            }
            break;
          default: break;
        }
        break;
      case PHASE_ATTR_EQUALS:
        if (t.type == TOKEN_WORD || t.type == TOKEN_QUOTED) return attribute_value(t);
        break;
    }
    fail(eXMLErrorUnexpectedToken, t.start);
    return false;
  }

  const char* m_p;
  const char* m_stop = nullptr;
  XMLError m_error = eXMLErrorNone;
  phase_e m_phase = PHASE_CONTENT;
  const char* m_textStart = nullptr;
  std::vector<open_s> m_open;
  bool m_bIndexed = false;
  std::unordered_map<uint64_t, std::vector<size_t>> m_byName;
  // The text last grown by a comment merge, and its room.
  const char* m_merged = nullptr;
  size_t m_mergedLen = 0;
  size_t m_mergedCap = 0;
};

void fill_results(XMLResults* results, XMLError error, const char* base, const char* stop) {
  if (!results) return;
  results->error = error;
  results->nLine = 1;
  results->nColumn = 1;
  if (!base) return;
  const char* lineStart = base;
  for (const char* p = base; p < stop; ++p) {
    if (*p == '\n') {
      ++results->nLine;
      lineStart = p + 1;
    }
  }
  results->nColumn = static_cast<int>(stop - lineStart) + 1;
}

}  // namespace

XMLNode XMLNode::parseString(const char* text, const char* tag, XMLResults* results) {
  if (!text) {
    fill_results(results, eXMLErrorNoElements, nullptr, nullptr);
    return XMLNode();
  }
  Rec* top = new Rec;
  XMLNode topNode = XMLParserImpl::wrap(top);
  Parser parser(text);
  parser.run(top);
  XMLError error = parser.error();

  XMLNode node = topNode;
  if (top->m_children.empty()) {
    error = eXMLErrorNoXMLTagFound;
    // Nothing at all was read: that is the empty node.
    if (top->m_order.empty()) node = XMLNode();
  } else if (top->m_order.size() == 1 && top->m_attributes.empty()) {
    node = XMLParserImpl::wrap(top->m_children[0]);
  }
  if (error != eXMLErrorNone && error != eXMLErrorMissingEndTag && error != eXMLErrorNoXMLTagFound) {
    node = XMLNode();
  } else if (tag && *tag && !node.isEmpty()) {
    const char* name = node.getName();
    if (!name || strcasecmp(name, tag) != 0) {
      node = node.getChildNode(tag);
      if (node.isEmpty()) error = eXMLErrorFirstTagNotFound;
    }
  } else if (tag && *tag) {
    error = eXMLErrorFirstTagNotFound;
  }
  fill_results(results, error, text, parser.stop());
  return node;
}
