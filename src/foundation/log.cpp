#include "foundation/log.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

namespace vessord {
namespace {

std::atomic<int> g_tee{-1};

void write_all(int fd, const char* p, size_t n) {
  while (n > 0) {
    ssize_t w = ::write(fd, p, n);
    if (w < 0) {
      if (errno == EINTR) continue;
      return;
    }
    p += w;
    n -= static_cast<size_t>(w);
  }
}

void emit(const char* p, size_t n) {
  write_all(STDERR_FILENO, p, n);
  int tee = g_tee.load(std::memory_order_relaxed);
  if (tee >= 0) write_all(tee, p, n);
}

}  // namespace

void log_set_tee(int fd) { g_tee.store(fd); }

void log_linev(const char* color, const char* file, int line, const char* func, const char* fmt,
               va_list ap) {
  const char* base = std::strrchr(file, '/');
  base = base ? base + 1 : file;

  std::string text;
  char head[1024];
  int h = std::snprintf(head, sizeof head, "[File:%s][Line:%d][Func:%s]: ", base, line, func);
  if (h > 0) text.assign(head, std::min(static_cast<size_t>(h), sizeof head - 1));

  va_list copy;
  va_copy(copy, ap);
  char small[512];
  int n = std::vsnprintf(small, sizeof small, fmt, copy);
  va_end(copy);
  if (n >= 0 && static_cast<size_t>(n) < sizeof small) {
    text.append(small, static_cast<size_t>(n));
  } else if (n > 0) {
    std::string big(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(&big[0], big.size(), fmt, ap);
    big.pop_back();
    text += big;
  }

  emit(color, std::strlen(color));
  emit(text.data(), text.size());
  emit(LOG_COLOR_RESET, sizeof(LOG_COLOR_RESET) - 1);
}

void log_line(const char* color, const char* file, int line, const char* func, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  log_linev(color, file, line, func, fmt, ap);
  va_end(ap);
}

}  // namespace vessord
