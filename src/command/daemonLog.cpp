#include "command/daemonLog.h"

#include <sys/stat.h>

#include <cstdio>
#include <ctime>

std::string g_cmdLogPath;

namespace {
constexpr off_t kLogLimit = 0xA00000;
}  // namespace

int debug_write_log(const char* path, const char* text) {
  if (!path || !text) return -1;
  struct stat st;
  if (::stat(path, &st) == 0 && st.st_size > kLogLimit) {
    if (std::remove(path) != 0) std::fprintf(stderr, "remove %s failed", path);
  }
  FILE* f = std::fopen(path, "a+e");
  if (!f) return -1;
  time_t now = std::time(nullptr);
  struct tm tmv;
  gmtime_r(&now, &tmv);
  std::fprintf(f, "[%02d:%02d:%02d] %s\n", tmv.tm_hour, tmv.tm_min, tmv.tm_sec, text);
  std::fflush(f);
  std::fclose(f);
  return 0;
}

