#include "command/unixSocketIpc.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
constexpr size_t kPathLimit = 107;
constexpr int kClientTimeoutSec = 30;
constexpr int kClientRetries = 2;
}  // namespace

CUnixSocketIpc::CUnixSocketIpc(const char* path, bool server) : m_addr(), m_fd(-1), m_acceptFd(-1), m_isServer(server) {
  std::memset(&m_addr, 0, sizeof m_addr);
  // Close-on-exec: no tool the daemon starts later may inherit the socket.
  m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (m_fd >= 0) {
    m_addr.sun_family = AF_UNIX;
    if (path) std::strncpy(m_addr.sun_path, path, kPathLimit);
    if (!m_isServer) return;
    std::remove(m_addr.sun_path);
    if (::bind(m_fd, reinterpret_cast<const sockaddr*>(&m_addr), sizeof m_addr) == 0) {
      ::chmod(m_addr.sun_path, 0777);
      return;
    }
    ::close(m_fd);
    m_fd = -1;
  }
  // The destructor does not run for a throwing constructor: nothing is left
  // open here, and the path was not bound.
  m_addr.sun_path[0] = '\0';
  throw "CUnixSocketIpc::CUnixSocketIpc";
}

CUnixSocketIpc::~CUnixSocketIpc() {
  if (m_isServer && m_addr.sun_path[0] != '\0') std::remove(m_addr.sun_path);
  if (m_fd != -1) ::close(m_fd);
}

int CUnixSocketIpc::Listen(int backlog) { return ::listen(m_fd, backlog); }

int CUnixSocketIpc::Connect() {
  timeval tv;
  tv.tv_sec = kClientTimeoutSec;
  tv.tv_usec = 0;
  if (::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv) != 0) return -1;
  if (::setsockopt(m_fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv) != 0) return -1;
  return ::connect(m_fd, reinterpret_cast<const sockaddr*>(&m_addr), sizeof m_addr);
}

int CUnixSocketIpc::Accept() {
  int fd;
  do {
    fd = ::accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  m_acceptFd = fd;
  return fd;
}

ssize_t CUnixSocketIpc::Read(void* buf, size_t len, int fd) {
  std::memset(buf, 0, len);
  if (m_isServer) {
    const int from = fd < 0 ? m_acceptFd : fd;
    ssize_t n;
    do {
      n = ::read(from, buf, len);
    } while (n < 0 && errno == EINTR);
    return n;
  }
  int retries = kClientRetries;
  for (;;) {
    ssize_t n = ::read(m_fd, buf, len);
    if (n >= 0) return n;
    if (errno == EINTR) continue;
    if ((errno == ETIMEDOUT || errno == EAGAIN) && retries-- > 0) continue;
    return n;
  }
}

ssize_t CUnixSocketIpc::Write(const void* buf, size_t len, int fd) {
  const int to = m_isServer ? (fd < 0 ? m_acceptFd : fd) : m_fd;
  ssize_t n;
  do {
    // A peer that went away makes the write fail with EPIPE instead of
    // raising SIGPIPE; a descriptor that is no socket gets a plain write.
    n = ::send(to, buf, len, MSG_NOSIGNAL);
    if (n < 0 && errno == ENOTSOCK) n = ::write(to, buf, len);
  } while (n < 0 && errno == EINTR);
  return n;
}

int CUnixSocketIpc::Close(int fd) { return ::close(fd); }
