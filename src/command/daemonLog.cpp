#include "command/daemonLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

std::string g_cmdLogPath;

namespace {

constexpr off_t kLogLimit = 0xA00000;
constexpr size_t kPathBuf = 1024;

// Fixed storage: the signal handler reads it and must not touch the heap.
char g_logDir[kPathBuf] = ".log/";

struct civilTime_s {
  long long year;
  int month, day, hour, minute, second;
};

// UTC broken down by arithmetic alone (gmtime is not async-signal-safe).
civilTime_s civil_from_epoch(long long t) {
  civilTime_s c{};
  long long days = t / 86400;
  long long secs = t % 86400;
  if (secs < 0) secs += 86400, --days;
  c.hour = static_cast<int>(secs / 3600);
  c.minute = static_cast<int>(secs / 60 % 60);
  c.second = static_cast<int>(secs % 60);
  // Days since 1970-01-01 to a proleptic Gregorian date.
  long long z = days + 719468;
  long long era = (z >= 0 ? z : z - 146096) / 146097;
  long long doe = z - era * 146097;
  long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  long long mp = (5 * doy + 2) / 153;
  c.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
  c.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  c.year = yoe + era * 400 + (c.month <= 2 ? 1 : 0);
  return c;
}

}  // namespace

namespace vessord {

void set_log_dir(const std::string& dir) {
  size_t n = dir.size() < kPathBuf - 1 ? dir.size() : kPathBuf - 1;
  std::memcpy(g_logDir, dir.data(), n);
  g_logDir[n] = '\0';
}

const char* log_dir() { return g_logDir; }

size_t safe_append(char* out, size_t len, size_t cap, const char* text) {
  while (*text && len + 1 < cap) out[len++] = *text++;
  if (cap) out[len < cap ? len : cap - 1] = '\0';
  return len;
}

size_t safe_append_int(char* out, size_t len, size_t cap, long long value, int width) {
  char digits[24];
  int n = 0;
  bool negative = value < 0;
  unsigned long long v = negative ? 0ULL - static_cast<unsigned long long>(value) : static_cast<unsigned long long>(value);
  do {
    digits[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v && n < 23);
  while (n < width && n < 23) digits[n++] = '0';
  char text[26];
  int k = 0;
  if (negative) text[k++] = '-';
  while (n) text[k++] = digits[--n];
  text[k] = '\0';
  return safe_append(out, len, cap, text);
}

size_t format_dump_stamp(long long epoch, char* out, size_t cap) {
  civilTime_s c = civil_from_epoch(epoch);
  size_t k = safe_append(out, 0, cap, "[");
  k = safe_append_int(out, k, cap, c.year);
  k = safe_append(out, k, cap, "-");
  k = safe_append_int(out, k, cap, c.month, 2);
  k = safe_append(out, k, cap, "-");
  k = safe_append_int(out, k, cap, c.day, 2);
  k = safe_append(out, k, cap, " ");
  k = safe_append_int(out, k, cap, c.hour, 2);
  k = safe_append(out, k, cap, ":");
  k = safe_append_int(out, k, cap, c.minute, 2);
  k = safe_append(out, k, cap, ":");
  k = safe_append_int(out, k, cap, c.second, 2);
  return safe_append(out, k, cap, "]");
}

}  // namespace vessord

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

int show_stackframe(const char* name, int sig, int sendPid) {
  using vessord::safe_append;
  using vessord::safe_append_int;
  char path[kPathBuf];
  size_t n = safe_append(path, 0, sizeof path, g_logDir);
  safe_append(path, n, sizeof path, name ? name : "");

  int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return fd;

  char line[kPathBuf];
  size_t k = vessord::format_dump_stamp(static_cast<long long>(::time(nullptr)), line, sizeof line);
  k = safe_append(line, k, sizeof line, " sig:");
  k = safe_append_int(line, k, sizeof line, sig);
  k = safe_append(line, k, sizeof line, " send_pid:");
  k = safe_append_int(line, k, sizeof line, sendPid);
  k = safe_append(line, k, sizeof line, " self_pid:");
  k = safe_append_int(line, k, sizeof line, ::getpid());
  k = safe_append(line, k, sizeof line, "\n");

  ssize_t w = ::write(fd, line, k);
  (void)w;
  return ::close(fd);
}
