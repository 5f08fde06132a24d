#include "command/signals.h"

#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include "command/daemonLog.h"
#include "foundation/log.h"

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

void sigaction_handler(int sig, siginfo_t* info, void* context) {
  (void)context;
  const int saved = errno;
  const int pid = info ? info->si_pid : 0;
  handler_lock();
  if (sig != SIGCHLD) {
    safe_log_line(LOG_COLOR_NOTICE, __FILE__, __LINE__, __PRETTY_FUNCTION__, sig, pid);
    show_stackframe("vessord.dump", sig, pid);
    // _exit: static destructors and stdio must not run on a broken heap.
    _exit(0);
  }
  handler_unlock();
  int status = 0;
  pid_t rt = waitpid(pid, &status, WNOHANG);
  char text[96];
  size_t k = vessord::safe_append(text, 0, sizeof text, "info->si_pid:");
  k = vessord::safe_append_int(text, k, sizeof text, pid);
  k = vessord::safe_append(text, k, sizeof text, "  rt:");
  k = vessord::safe_append_int(text, k, sizeof text, rt);
  k = vessord::safe_append(text, k, sizeof text, "\n");
  write_all(STDOUT_FILENO, text, k);
  errno = saved;
}

void install_signals() {
  struct sigaction act;
  std::memset(&act, 0, sizeof act);
  sigemptyset(&act.sa_mask);
  act.sa_sigaction = sigaction_handler;
  act.sa_flags = SA_RESTART | SA_SIGINFO | SA_NOCLDWAIT;
  const int fatal[] = {SIGSEGV, SIGBUS, SIGABRT, SIGILL, SIGUSR1};
  for (int sig : fatal) sigaction(sig, &act, nullptr);

  std::memset(&act, 0, sizeof act);
  sigemptyset(&act.sa_mask);
  act.sa_handler = SIG_IGN;
  act.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGPIPE, &act, nullptr);
  sigaction(SIGHUP, &act, nullptr);
}
