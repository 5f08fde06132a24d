#include "foundation/sysUtil.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "foundation/log.h"
#include "foundation/rootPath.h"
#include "foundation/thread.h"

pthread_mutex_t g_externalCmdLock = PTHREAD_MUTEX_INITIALIZER;

namespace {

// Fixed text runs as it stands: every '%' is doubled so that the line's
// composer reads none of them as a slot.
std::string as_fixed_format(const char* text) {
  std::string out;
  for (const char* p = text ? text : ""; *p; ++p) {
    out += *p;
    if (*p == '%') out += '%';
  }
  return out;
}

void finish_job(externalCmdJob_s& job, int result, const char* data, size_t n) {
  std::lock_guard<std::mutex> lk(job.lock);
  if (result == 0) {
    std::memset(job.output, 0, sizeof job.output);
    std::memcpy(job.output, data, n);
  }
  job.result = result;
  job.done = 1;
  job.doneCond.notify_all();
}

}  // namespace

externalCmdJob_s::externalCmdJob_s(const vessord::ShellLine& cmd)
    : line(cmd), stopFd(::eventfd(0, EFD_CLOEXEC)) {
  std::snprintf(command, sizeof command, "%s", cmd.display().c_str());
}

namespace {

// How long a stopped child has to end by itself once its pipe is closed.
constexpr int kStopGraceMs = 300;
// The longest pause of a worker that waits, without a pidfd, for a child
// that closed its output.
constexpr int kExitPollMs = 20;

// Waits for `fd` to be readable or for the stop notice. True when the stop
// notice came.
bool stop_requested_while_waiting(int fd, int stopFd, int timeoutMs) {
  struct pollfd fds[2] = {{stopFd, POLLIN, 0}, {fd, POLLIN, 0}};
  int n;
  do {
    n = ::poll(fds, fd >= 0 ? 2 : 1, timeoutMs);
  } while (n < 0 && errno == EINTR);
  return n > 0 && (fds[0].revents & (POLLIN | POLLERR | POLLHUP)) != 0;
}

int pidfd_of(pid_t pid) {
#ifdef SYS_pidfd_open
  return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
#else
  (void)pid;
  return -1;
#endif
}

bool child_exited(pid_t pid) {
  siginfo_t info;
  info.si_pid = 0;
  return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0;
}

}  // namespace

void* popen_timeout_wrap(void* arg) {
  std::shared_ptr<externalCmdJob_s> job;
  {
    std::unique_ptr<std::shared_ptr<externalCmdJob_s>> holder(static_cast<std::shared_ptr<externalCmdJob_s>*>(arg));
    job = std::move(*holder);
  }
  const size_t cap = std::min(job->outputSize, sizeof job->output);
  std::unique_ptr<char[]> buf(cap ? new (std::nothrow) char[cap] : nullptr);
  if (!buf) {
    finish_job(*job, -1, nullptr, 0);
    return nullptr;
  }
  vessord::ShellChild child;
  if (!child.start(job->line)) {
    VLOG(LOG_COLOR_FAIL, "popen(%s) ... fail\n", job->line.display().c_str());
    finish_job(*job, -1, nullptr, 0);
    return nullptr;
  }
  const int stopFd = job->stopFd.get();
  const int fd = child.output_fd();
  size_t n = 0;
  char sink[4096];
  // Reads to the end of the output, keeping the first bytes only, so that a
  // talkative child is not stopped by a full pipe.
  for (;;) {
    if (stop_requested_while_waiting(fd, stopFd, -1)) {
      child.stop(kStopGraceMs);
      finish_job(*job, -1, nullptr, 0);
      return nullptr;
    }
    const ssize_t got = n < cap ? ::read(fd, buf.get() + n, cap - n) : ::read(fd, sink, sizeof sink);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got <= 0) break;
    if (n < cap) n += static_cast<size_t>(got);
  }
  // A child may close its output and still run: it is waited for as long
  // as the caller waits, and stopped after that. A pidfd wakes the worker
  // when the child ends; without one, it looks at growing intervals.
  const UniqueFd exitFd(pidfd_of(child.pid()));
  for (int pause = 1; !child_exited(child.pid()); pause = std::min(pause * 2, kExitPollMs)) {
    if (stop_requested_while_waiting(exitFd.get(), stopFd, exitFd.get() >= 0 ? -1 : pause)) {
      child.stop(kStopGraceMs);
      finish_job(*job, -1, nullptr, 0);
      return nullptr;
    }
  }
  child.wait();
  finish_job(*job, 0, buf.get(), n);
  return nullptr;
}

int execute_external_cmd(const vessord::ShellLine& line, std::string& output, int seconds) {
  output.clear();
  if (!line.ok()) {
    VLOG(LOG_COLOR_FAIL, "popen(%s) ... fail\n", line.display().c_str());
    return -1;
  }
  ThreadSingleLock guard(g_externalCmdLock);
  auto job = std::make_shared<externalCmdJob_s>(line);
  if (job->stopFd.get() < 0) return -1;

  auto* ref = new std::shared_ptr<externalCmdJob_s>(job);
  pthread_t worker;
  if (pthread_create(&worker, nullptr, popen_timeout_wrap, ref) != 0) {
    delete ref;
    return -1;
  }

  // The limit counts tenths of a second from the moment the lock is held;
  // the worker's notice ends the wait at once.
  const long long tenths = seconds > 0 ? static_cast<long long>(seconds) * 10 : 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(100) * tenths;
  int result = -1;
  bool finished = false;
  {
    std::unique_lock<std::mutex> lk(job->lock);
    job->doneCond.wait_until(lk, deadline, [&] { return job->done != 0; });
    finished = job->done != 0;
    if (finished) {
      result = job->result;
      if (result == 0) output.assign(job->output, strnlen(job->output, sizeof job->output));
    }
  }
  if (!finished) {
    // Too late: the worker closes the pipe, stops the child and reaps it.
    const uint64_t one = 1;
    ssize_t w = ::write(job->stopFd.get(), &one, sizeof one);
    (void)w;
  }
  pthread_join(worker, nullptr);
  return result;
}

int execute_external_cmd(const char* command, std::string& output, int seconds) {
  const std::string format = as_fixed_format(command);
  return execute_external_cmd(vessord::ShellLine(format.c_str(), std::vector<std::string>()), output, seconds);
}

int is_file_exist(const char* path) {
  if (!path) return 0;
  return ::access(path, R_OK) == 0 ? 1 : 0;
}

int get_if_by_ip(const char* ip, char* ifName) {
  if (!ip || !ifName) return 1;
  struct in_addr want;
  if (inet_aton(ip, &want) == 0) return 1;
  struct ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return 1;
  std::unique_ptr<struct ifaddrs, void (*)(struct ifaddrs*)> owner(list, freeifaddrs);
  for (struct ifaddrs* ifa = list; ifa; ifa = ifa->ifa_next) {
    if (!ifa->ifa_addr || !ifa->ifa_netmask || ifa->ifa_addr->sa_family != AF_INET) continue;
    struct sockaddr_in addr;
    struct sockaddr_in mask;
    std::memcpy(&addr, ifa->ifa_addr, sizeof addr);
    std::memcpy(&mask, ifa->ifa_netmask, sizeof mask);
    if (((addr.sin_addr.s_addr ^ want.s_addr) & mask.sin_addr.s_addr) != 0) continue;
    const size_t n = strnlen(ifa->ifa_name, IFNAMSIZ - 1);
    std::memcpy(ifName, ifa->ifa_name, n);
    ifName[n] = '\0';
    return 0;
  }
  return 1;
}

void memory_dump(const unsigned char* data, int len) {
  std::printf("Len:%d\n", len);
  if (!data) len = 0;
  for (int row = 0; row < len; row += 16) {
    const int count = len - row < 16 ? len - row : 16;
    const bool last = row + count >= len;
    std::printf("[%04X]: ", static_cast<unsigned>(last ? len : row));
    for (int i = 0; i < count; ++i) std::printf("%02X ", data[row + i]);
    for (int i = count; i < 16; ++i) std::printf("   ");
    std::printf("   ");
    for (int i = 0; i < count; ++i) {
      const unsigned char c = data[row + i];
      std::putchar(c >= 0x20 && c <= 0x7E ? c : '.');
    }
    std::putchar('\n');
  }
  std::fflush(stdout);
}

void UniqueFd::reset(int fd) {
  if (m_fd >= 0) ::close(m_fd);
  m_fd = fd;
}

int remove_tmp_file(const std::string& appliancePath) {
  static const std::string kTmp = "/tmp/";
  if (appliancePath.compare(0, kTmp.size(), kTmp) != 0) {
    errno = EPERM;
    return -1;
  }
  std::vector<std::string> parts;
  size_t at = kTmp.size();
  while (at <= appliancePath.size()) {
    size_t end = appliancePath.find('/', at);
    if (end == std::string::npos) end = appliancePath.size();
    const std::string part = appliancePath.substr(at, end - at);
    if (part.empty() || part == "." || part == "..") {
      errno = EPERM;
      return -1;
    }
    parts.push_back(part);
    at = end + 1;
  }
  // Each folder is opened without following a link, so a link planted in
  // the world-writable /tmp never leads the removal elsewhere.
  int dir = ::open(vessord::root_path("/tmp").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir < 0) return -1;
  for (size_t k = 0; k + 1 < parts.size(); ++k) {
    const int sub = ::openat(dir, parts[k].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const int saved = errno;
    ::close(dir);
    if (sub < 0) {
      errno = saved == ELOOP || saved == ENOTDIR ? EPERM : saved;
      return -1;
    }
    dir = sub;
  }
  struct stat st {};
  int rc = ::fstatat(dir, parts.back().c_str(), &st, AT_SYMLINK_NOFOLLOW);
  if (rc == 0 && !S_ISREG(st.st_mode)) {
    errno = EPERM;
    rc = -1;
  }
  if (rc == 0) rc = ::unlinkat(dir, parts.back().c_str(), 0);
  const int saved = errno;
  ::close(dir);
  errno = saved;
  return rc;
}
