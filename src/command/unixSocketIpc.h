// One AF_UNIX stream socket, for either end of a connection: in server mode
// it binds a path and accepts, in client mode it connects with time-outs.
#pragma once

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include <cstddef>

class CUnixSocketIpc {
 public:
  // Server mode removes a stale file at `path`, binds and makes the file
  // world-accessible. Throws "CUnixSocketIpc::CUnixSocketIpc" (a const
  // char*) when the socket cannot be made or bound. A path longer than 107
  // characters is cut there.
  CUnixSocketIpc(const char* path, bool server);
  ~CUnixSocketIpc();
  CUnixSocketIpc(const CUnixSocketIpc&) = delete;
  CUnixSocketIpc& operator=(const CUnixSocketIpc&) = delete;

  int Listen(int backlog);
  // Client mode: 30-second receive and send time-outs, then connect. 0 or -1.
  int Connect();
  // The new descriptor (close-on-exec), or a negative value with errno set.
  // Restarts on EINTR.
  int Accept();
  // Zero-fills `len` bytes of `buf`, then issues one read. Server mode reads
  // `fd`, or the latest accepted descriptor when `fd` is negative; client
  // mode always reads its own socket and retries a time-out twice.
  ssize_t Read(void* buf, size_t len, int fd);
  // One write (restarted on EINTR only); a short count is returned as is.
  ssize_t Write(const void* buf, size_t len, int fd);
  int Close(int fd);

  const char* path() const { return m_addr.sun_path; }
  int fd() const { return m_fd; }

 private:
  sockaddr_un m_addr;
  int m_fd;
  int m_acceptFd;
  bool m_isServer;
};
