#include "foundation/crashDump.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "foundation/log.h"

namespace {

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

namespace {

// The handler's own lock. A spin on a lock-free atomic stands in for a
// mutex, which may not be taken inside a signal handler. The fatal path
// never releases it, so a second thread that crashes meanwhile waits here
// until the first one has ended the process.
std::atomic<bool> g_handlerBusy{false};

void handler_lock() {
  while (g_handlerBusy.exchange(true, std::memory_order_acquire)) {
    struct timespec pause = {0, 1000000};
    nanosleep(&pause, nullptr);
  }
}

void handler_unlock() { g_handlerBusy.store(false, std::memory_order_release); }

void write_all(int fd, const char* p, size_t n) {
  while (n > 0) {
    ssize_t w = ::write(fd, p, n);
    if (w <= 0) {
      if (w < 0 && errno == EINTR) continue;
      return;
    }
    p += w;
    n -= static_cast<size_t>(w);
  }
}

// The log line of log.h, put together without the heap or stdio.
void safe_log_line(const char* color, const char* file, int line, const char* func, int sig, int pid) {
  using vessord::safe_append;
  using vessord::safe_append_int;
  const char* base = std::strrchr(file, '/');
  base = base ? base + 1 : file;
  char text[1024];
  size_t k = safe_append(text, 0, sizeof text, "[File:");
  k = safe_append(text, k, sizeof text, base);
  k = safe_append(text, k, sizeof text, "][Line:");
  k = safe_append_int(text, k, sizeof text, line);
  k = safe_append(text, k, sizeof text, "][Func:");
  k = safe_append(text, k, sizeof text, func);
  k = safe_append(text, k, sizeof text, "]: sig:");
  k = safe_append_int(text, k, sizeof text, sig);
  k = safe_append(text, k, sizeof text, "  pid:");
  k = safe_append_int(text, k, sizeof text, pid);
  k = safe_append(text, k, sizeof text, "\n");
  write_all(STDERR_FILENO, color, std::strlen(color));
  write_all(STDERR_FILENO, text, k);
  write_all(STDERR_FILENO, LOG_COLOR_RESET, std::strlen(LOG_COLOR_RESET));
}

}  // namespace

namespace vessord {

void daemon_signal_handler(int sig, siginfo_t* info, void* context) {
  (void)context;
  handle_daemon_signal(sig, info, __PRETTY_FUNCTION__);
}

void handle_daemon_signal(int sig, siginfo_t* info, const char* func) {
  const int saved = errno;
  const int pid = info ? info->si_pid : 0;
  handler_lock();
  if (sig != SIGCHLD) {
    safe_log_line(LOG_COLOR_NOTICE, __FILE__, __LINE__, func, sig, pid);
    show_stackframe("vessord.dump", sig, pid);
    // _exit: static destructors and stdio must not run on a broken heap.
    _exit(0);
  }
  handler_unlock();
  int status = 0;
  pid_t rt = waitpid(pid, &status, WNOHANG);
  char text[96];
  size_t k = safe_append(text, 0, sizeof text, "info->si_pid:");
  k = safe_append_int(text, k, sizeof text, pid);
  k = safe_append(text, k, sizeof text, "  rt:");
  k = safe_append_int(text, k, sizeof text, rt);
  k = safe_append(text, k, sizeof text, "\n");
  write_all(STDOUT_FILENO, text, k);
  errno = saved;
}

}  // namespace vessord
