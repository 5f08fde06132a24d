#include "backends/mpdStatus.h"

#include <cstring>

namespace vessord {

namespace {

bool line_end(char c) { return c == '\r' || c == '\n'; }
bool blank(char c) { return c == ' ' || c == '\t'; }

// Times past this are nonsense from the daemon; capping keeps the sums
// defined whatever digits a line carries.
constexpr long kMaxSeconds = 100000000L;

long capped(long v) { return v > kMaxSeconds ? kMaxSeconds : v; }

bool is_word(const char* w, int n, const char* expected) {
  return static_cast<size_t>(n) == std::strlen(expected) && std::strncmp(w, expected, n) == 0;
}

}  // namespace

const char* Go_Next_Line(const char* p) {
  while (*p && !line_end(*p)) ++p;
  while (*p && line_end(*p)) ++p;
  return p;
}

const char* Get_Next_Word(const char* p, const char*& word, int& length) {
  while (blank(*p)) ++p;
  word = p;
  while (*p && !blank(*p) && !line_end(*p)) ++p;
  length = static_cast<int>(p - word);
  return p;
}

MpdStatus ParseMpdStatus(const char* text) {
  MpdStatus st;
  if (!text) return st;
  const char* p = text;
  while (*p && *p != '[') p = Go_Next_Line(p);
  if (!*p) return st;

  const char* w;
  int n;
  p = Get_Next_Word(p, w, n);
  if (is_word(w, n, "[playing]"))
    st.state = MPD_PLAYING;
  else if (is_word(w, n, "[paused]"))
    st.state = MPD_PAUSED;
  else
    return st;

  p = Get_Next_Word(p, w, n);  // the queue position
  if (n == 0) return st;
  Get_Next_Word(p, w, n);  // the times: the last word this line needs
  if (n == 0) return st;

  // "m:ss/m:ss", or with hours "h:mm:ss": each ':' carries what came before
  // into the next unit, the '/' closes the elapsed time.
  long sum = 0, part = 0, elapsed = 0;
  bool odd = false;
  for (int i = 0; i < n && !odd; ++i) {
    const char c = w[i];
    if (c >= '0' && c <= '9')
      part = capped(part * 10 + (c - '0'));
    else if (c == ':')
      sum = capped((sum + part) * 60), part = 0;
    else if (c == '/')
      elapsed = capped(sum + part), sum = part = 0;
    else
      odd = true;
  }
  st.elapsed = static_cast<int>(elapsed);
  st.total = odd ? 0 : static_cast<int>(capped(sum + part));
  return st;
}

}  // namespace vessord
