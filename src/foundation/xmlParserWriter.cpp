// The writer: a node and everything under it as text, compact (format 0) or
// indented with one tab a level (any other format).
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "foundation/xmlParser.h"

using Rec = XMLNode::XMLNodeDataTag;

namespace {

// Texts and attribute values go out with the five characters of the entity
// table escaped. Bytes are copied one by one, so that a malformed multibyte
// sequence can never swallow a character that needs escaping.
void append_encoded(std::string& out, const char* text) {
  const char* run = text;
  for (const char* p = text; *p; ++p) {
    const char* entity;
    switch (*p) {
      case '&': entity = "&amp;"; break;
      case '<': entity = "&lt;"; break;
      case '>': entity = "&gt;"; break;
      case '"': entity = "&quot;"; break;
      case '\'': entity = "&apos;"; break;
      default: continue;
    }
    out.append(run, static_cast<size_t>(p - run));
    out.append(entity);
    run = p + 1;
  }
  out.append(run);
}

class Writer {
 public:
  Writer(std::string& out, bool indent) : m_out(out), m_bIndent(indent) {}

  void write(const Rec* top) {
    open(top, 0);
    while (!m_frames.empty()) {
      Frame& frame = m_frames.back();
      if (frame.next < frame.rec->m_order.size()) {
        int entry = frame.rec->m_order[frame.next++];
        int index = entry >> 2;
        int level = frame.level;
        switch (entry & 3) {
          case eNodeChild: open(frame.rec->m_children[index], level); break;  // may push
          case eNodeText:
            tabs(level);
            append_encoded(m_out, frame.rec->m_texts[index].get());
            newline();
            break;
          case eNodeClear: {
            const XMLClear& clear = frame.rec->m_clears[index];
            tabs(level);
            m_out.append(clear.lpszOpenTag);
            if (clear.lpszValue) m_out.append(clear.lpszValue.get());
            m_out.append(clear.lpszCloseTag);
            newline();
            break;
          }
          default: break;
        }
        continue;
      }
      if (frame.bEndTag) {
        tabs(frame.level - 1);
        m_out.append("</");
        m_out.append(frame.rec->m_name.get());
        m_out.push_back('>');
        newline();
      }
      m_frames.pop_back();
    }
  }

 private:
  struct Frame {
    const Rec* rec;
    size_t next;
    int level;  // of the content
    bool bEndTag;
  };

  void tabs(int level) {
    if (m_bIndent && level > 0) m_out.append(static_cast<size_t>(level), '\t');
  }
  void newline() {
    if (m_bIndent) m_out.push_back('\n');
  }

  // Writes the start of a node; pushes a frame when its content follows.
  void open(const Rec* rec, int level) {
    const char* name = rec->m_name.get();
    if (!name) {  // an unnamed node shows only its content
      m_frames.push_back(Frame{rec, 0, level, false});
      return;
    }
    tabs(level);
    m_out.push_back('<');
    if (rec->m_bDeclaration) m_out.push_back('?');
    m_out.append(name);
    for (const XMLAttribute& attr : rec->m_attributes) {
      m_out.push_back(' ');
      m_out.append(attr.lpszName.get());
      if (attr.lpszValue) {
        m_out.append("=\"");
        append_encoded(m_out, attr.lpszValue.get());
        m_out.push_back('"');
      }
    }
    if (rec->m_bDeclaration) {
      m_out.append("?>");
      newline();
      if (!rec->m_order.empty()) m_frames.push_back(Frame{rec, 0, level + 1, false});
      return;
    }
    if (rec->m_order.empty()) {
      m_out.append("/>");
      newline();
      return;
    }
    if (rec->m_order.size() == 1 && (rec->m_order[0] & 3) == eNodeText) {
      m_out.push_back('>');
      append_encoded(m_out, rec->m_texts[0].get());
      m_out.append("</");
      m_out.append(name);
      m_out.push_back('>');
      newline();
      return;
    }
    m_out.push_back('>');
    newline();
    m_frames.push_back(Frame{rec, 0, level + 1, true});
  }

  std::string& m_out;
  bool m_bIndent;
  std::vector<Frame> m_frames;
};

}  // namespace

char* XMLNode::createXMLString(int format, int* size) const {
  std::string out;
  if (!isEmpty()) Writer(out, format != 0).write(d);
  char* text = static_cast<char*>(malloc(out.size() + 1));
  if (!text) throw std::bad_alloc();
  memcpy(text, out.c_str(), out.size() + 1);
  if (size) *size = static_cast<int>(out.size());
  return text;
}
