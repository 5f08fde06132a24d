#include "command/acceptLoop.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "command/daemonLog.h"
#include "command/unixSocketIpc.h"
#include "command/vessord.h"
#include "foundation/log.h"

namespace {

void report_accept_failure() {
  VLOG(LOG_COLOR_SOCKET, "ipc.Accept() ... fial\n");
  debug_write_log(g_cmdLogPath.c_str(), "Accept() [fail]");
  // The reported number is read after the command log was written.
  const int err = errno;
  const char* word = accept_errno_word(err);
  if (!word) {
    VLOG(LOG_COLOR_SOCKET, "%s..... %d\n", "ipc.Accept()", err);
  } else if (err == EPROTO) {
    VLOG(LOG_COLOR_SOCKET, "%s..... %s", "ipc.Accept()", word);
  } else {
    VLOG(LOG_COLOR_SOCKET, "%s..... %s\n", "ipc.Accept()", word);
  }
}

// One descriptor kept in reserve. When the process has no descriptor left,
// the pending connection can be neither taken nor refused, and the next
// accept would fail again at once: the loop would spin at full speed until
// some descriptor is freed. Giving up the reserve lets the loop take that
// connection and close it, so the client sees its connection close (as when
// no memory is left for it) and the loop waits again.
int g_spareFd = -1;

// Blocks until a connection waits on the listening socket. Linux reports
// EMFILE before it looks at the queue, so a failed accept says nothing
// about whether anyone is waiting.
bool wait_until_pending(int listenFd) {
  struct pollfd p = {listenFd, POLLIN, 0};
  for (;;) {
    const int n = ::poll(&p, 1, -1);
    if (n > 0) return true;
    if (n < 0 && errno != EINTR) return false;
  }
}

// After an accept failed for want of descriptors: waits for a connection,
// then tries again, since descriptors may have been freed meanwhile. Only
// when they are still exhausted is the waiting connection taken with the
// reserve and closed. The new descriptor, or -1.
int accept_after_exhaustion(CUnixSocketIpc& ipc) {
  if (!wait_until_pending(ipc.fd())) return -1;
  int fd = ipc.Accept();
  if (fd >= 0) return fd;
  if (errno != EMFILE && errno != ENFILE) return -1;
  if (g_spareFd < 0) {
    // Not even the reserve: the connection can be neither served nor
    // refused. A short rest instead of a spin until a descriptor frees.
    const struct timespec rest = {0, 50 * 1000 * 1000};
    nanosleep(&rest, nullptr);
    return -1;
  }
  ::close(g_spareFd);
  g_spareFd = -1;
  fd = ipc.Accept();
  if (fd >= 0) {
    VLOG(LOG_COLOR_SOCKET, "ipc.Accept() ... no descriptor left, connection closed\n");
    ipc.Close(fd);
  }
  // May fail when another thread took the number: the next round retries.
  accept_keep_spare();
  return -1;
}

// A detached thread with a small stack; false when it could not be made.
bool start_connection_thread(connectionArgs_s* args) {
  pthread_attr_t attr;
  if (pthread_attr_init(&attr) != 0) return false;
  pthread_attr_setstacksize(&attr, kConnectionStack);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const int rc = pthread_create(&thread, &attr, process, args);
  pthread_attr_destroy(&attr);
  return rc == 0;
}

}  // namespace

const char* accept_errno_word(int err) {
  switch (err) {
    case EINTR: return "EINTR";
    case EBADF: return "EBADF";
    case EAGAIN: return "EAGAIN";
    case EFAULT: return "EFAULT";
    case EINVAL: return "EINVAL";
    case EMFILE: return "EMFILE";
    case ENONET: return "ENONET";
    case EPROTO: return "EPROTO";
    case ENOTSOCK: return "ENOTSOCK";
    case ENOPROTOOPT: return "ENOPROTOOPT";
    case EOPNOTSUPP: return "EOPNOTSUPP";
    case ENETDOWN: return "ENETDOWN";
    case ENETUNREACH: return "ENETUNREACH";
    case ECONNABORTED: return "ECONNABORTED";
    case ENOBUFS: return "ENOBUFS";
    case EHOSTDOWN: return "EHOSTDOWN";
    case EHOSTUNREACH: return "EHOSTUNREACH";
    default: return nullptr;
  }
}

void accept_keep_spare() {
  if (g_spareFd < 0) g_spareFd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

void accept_once(CUnixSocketIpc& ipc, CPlayerManager* manager) {
  // A reserve lost earlier (reopening it failed) is taken again.
  accept_keep_spare();
  int fd = ipc.Accept();
  if (fd < 0) {
    const int err = errno;
    if (err == EINTR) return;
    report_accept_failure();
    if (err != EMFILE && err != ENFILE) return;
    fd = accept_after_exhaustion(ipc);
    if (fd < 0) return;
  }
  auto* args = static_cast<connectionArgs_s*>(std::malloc(sizeof(connectionArgs_s)));
  if (!args) {
    VLOG(LOG_COLOR_FAIL, "malloc() ... fail\n");
    ipc.Close(fd);
    return;
  }
  args->fd = fd;
  args->ipc = &ipc;
  args->manager = manager;
  if (!start_connection_thread(args)) {
    // No thread to own them: the connection closes instead of leaking.
    VLOG(LOG_COLOR_FAIL, "pthread_create() ... fail\n");
    ipc.Close(fd);
    std::free(args);
  }
}

void accept_loop(CUnixSocketIpc& ipc, CPlayerManager* manager) {
  for (;;) accept_once(ipc, manager);
}
