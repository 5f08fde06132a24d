// Reading a document from a file: byte order marks are skipped and wide
// (16- or 32-bit) text is turned into UTF-8 before the parse.
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "foundation/xmlParser.h"

namespace {

struct FileClose {
  void operator()(FILE* f) const { fclose(f); }
};
using FilePtr = std::unique_ptr<FILE, FileClose>;

void append_utf8(std::string& out, uint32_t v) {
  if (v < 0x80) {
    out.push_back(static_cast<char>(v));
  } else if (v < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (v >> 6)));
    out.push_back(static_cast<char>(0x80 | (v & 0x3F)));
  } else if (v < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (v >> 12)));
    out.push_back(static_cast<char>(0x80 | ((v >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (v & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (v >> 18)));
    out.push_back(static_cast<char>(0x80 | ((v >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((v >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (v & 0x3F)));
  }
}

inline uint32_t byte_at(const std::string& s, size_t i) { return static_cast<unsigned char>(s[i]); }

uint32_t unit32(const std::string& s, size_t i, bool big) {
  return big ? (byte_at(s, i) << 24 | byte_at(s, i + 1) << 16 | byte_at(s, i + 2) << 8 | byte_at(s, i + 3))
             : (byte_at(s, i + 3) << 24 | byte_at(s, i + 2) << 16 | byte_at(s, i + 1) << 8 | byte_at(s, i));
}

uint32_t unit16(const std::string& s, size_t i, bool big) {
  return big ? (byte_at(s, i) << 8 | byte_at(s, i + 1)) : (byte_at(s, i + 1) << 8 | byte_at(s, i));
}

// Wide text to UTF-8, up to the first zero unit (a trailing part unit is
// ignored). False on a code that is no character.
bool convert32(const std::string& in, size_t from, bool big, std::string& out) {
  for (size_t i = from; i + 4 <= in.size(); i += 4) {
    uint32_t v = unit32(in, i, big);
    if (v == 0) break;
    if (v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) return false;
    append_utf8(out, v);
  }
  return true;
}

bool convert16(const std::string& in, size_t from, bool big, std::string& out) {
  for (size_t i = from; i + 2 <= in.size(); i += 2) {
    uint32_t v = unit16(in, i, big);
    if (v == 0) break;
    if (v >= 0xDC00 && v <= 0xDFFF) return false;
    if (v >= 0xD800 && v <= 0xDBFF) {
      if (i + 4 > in.size()) return false;
      uint32_t low = unit16(in, i + 2, big);
      if (low < 0xDC00 || low > 0xDFFF) return false;
      v = 0x10000 + ((v - 0xD800) << 10) + (low - 0xDC00);
      i += 2;
    }
    append_utf8(out, v);
  }
  return true;
}

// Text without a mark that is mostly small 32-bit values (tested on at most
// the first 256) is native wide text. Plain text never has the zero bytes
// that this needs.
bool looks_wide(const std::string& in) {
  size_t units = in.size() / 4;
  if (units == 0 || in.size() % 4 != 0) return false;
  if (units > 256) units = 256;
  size_t small = 0;
  for (size_t k = 0; k < units; ++k) {
    uint32_t v = unit32(in, k * 4, false);
    if (v != 0 && v <= 0x10FFFF) ++small;
  }
  return small * 2 > units;
}

bool read_all(FILE* f, std::string& out) {
  char buffer[65536];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) out.append(buffer, n);
  return !ferror(f);
}

bool starts_with(const std::string& s, const char* mark, size_t len) { return s.compare(0, len, mark, len) == 0; }

}  // namespace

XMLNode XMLNode::parseFile(const char* path, const char* tag, XMLResults* results) {
  auto give = [results](XMLError error) {
    if (results) *results = XMLResults{error, 0, 0};
    return XMLNode();
  };
  FilePtr file(path ? fopen(path, "re") : nullptr);
  if (!file) return give(eXMLErrorFileNotFound);
  std::string raw;
  if (!read_all(file.get(), raw)) return give(eXMLErrorFileNotFound);
  file.reset();

  std::string converted;
  bool ok = true;
  size_t skip = 0;
  if (starts_with(raw, "\xEF\xBB\xBF", 3)) {
    skip = 3;
  } else if (starts_with(raw, "\xFF\xFE\0\0", 4)) {
    ok = convert32(raw, 4, false, converted);
    raw.swap(converted);
  } else if (starts_with(raw, "\0\0\xFE\xFF", 4)) {
    ok = convert32(raw, 4, true, converted);
    raw.swap(converted);
  } else if (starts_with(raw, "\xFF\xFE", 2)) {
    ok = convert16(raw, 2, false, converted);
    raw.swap(converted);
  } else if (starts_with(raw, "\xFE\xFF", 2)) {
    ok = convert16(raw, 2, true, converted);
    raw.swap(converted);
  } else if (looks_wide(raw)) {
    ok = convert32(raw, 0, false, converted);
    raw.swap(converted);
  }
  if (!ok) return give(eXMLErrorCharConversionError);
  if (raw.size() == skip) return give(eXMLErrorEmpty);
  // The parse reads up to the first NUL, as for any C string.
  return parseString(raw.c_str() + skip, tag, results);
}
