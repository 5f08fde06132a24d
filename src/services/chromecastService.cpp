#include "services/chromecastService.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "foundation/log.h"
#include "foundation/rootPath.h"
#include "foundation/thread.h"
#include "foundation/xmlParser.h"

extern char** environ;

namespace vessord {

namespace {

const char* const kLaunch = "{ \"cmd\":\"LAUNCH\" }\r\n";
const char* const kPlay = "{ \"cmd\":\"PLAY\" }\r\n";
const char* const kPause = "{ \"cmd\":\"PAUSE\" }\r\n";
const char* const kStop = "{ \"cmd\":\"STOP\" }\r\n";
const char* const kStatus = "{ \"cmd\":\"STATUS\" }\r\n";
const char* const kGetVolume = "{ \"cmd\":\"GET_VOLUME\" }\r\n";
const char* const kGetMute = "{ \"cmd\":\"GET_MUTE\" }\r\n";
const char* const kClose = "{ \"cmd\":\"CLOSE\" }\r\n";

using Clock = std::chrono::steady_clock;

int ms_left(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

// poll() that goes on after a signal until `deadline`: >0 ready, 0 time-out,
// -1 error.
int poll_until(int fd, Clock::time_point deadline) {
  for (;;) {
    pollfd p{fd, POLLIN, 0};
    const int r = ::poll(&p, 1, ms_left(deadline));
    if (r >= 0 || errno != EINTR) return r;
  }
}

// A pipe end on 0, 1 or 2 would be overwritten by the child's own dup2 of
// the other end; such an end moves above the standard descriptors.
int above_stdio(int fd) {
  if (fd > STDERR_FILENO) return fd;
  const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (moved < 0) return fd;
  ::close(fd);
  return moved;
}

struct SpawnSetup {
  SpawnSetup() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attr);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;
  posix_spawn_file_actions_t actions{};
  posix_spawnattr_t attr{};
};

// The text of one child element, or null when it is missing or has none.
const char* child_text(const XMLNode& root, const char* name) {
  XMLNode node = root.getChildNode(name);
  if (node.isEmpty()) return nullptr;
  return node.getText();
}

}  // namespace

ChromecastService::ChromecastService() : mOutPipe{-1, -1}, mInPipe{-1, -1}, mLock() {
  CThread::mutexInit(mLock, MUTEX_ATTR_RECURSIVE);
}

ChromecastService::ChromecastService(std::string renderId, std::string ip, int port, std::string name)
    : Service(std::move(renderId), std::move(ip), port, std::move(name)), mOutPipe{-1, -1}, mInPipe{-1, -1},
      mLock() {
  CThread::mutexInit(mLock, MUTEX_ATTR_RECURSIVE);
}

ChromecastService::~ChromecastService() {
  closeFd();
  pthread_mutex_destroy(&mLock);
}

int ChromecastService::init() {
  ThreadSingleLock lock(mLock);
  VLOG(LOG_COLOR_STATE, "ChromecastService init");
  // What an earlier session left would leak otherwise.
  if (mChildPid > 0 || mOutPipe[READ] != -1 || mInPipe[READ] != -1) closeFd();
  // Close-on-exec from the start: no other child of the daemon, started by
  // whatever thread, inherits an end of these pipes.
  if (::pipe2(mOutPipe, O_CLOEXEC) != 0) {
    const int err = errno;
    VLOG(LOG_COLOR_FAIL, "create out pipe failed(%d): %s", err, std::strerror(err));
    mOutPipe[READ] = mOutPipe[WRITE] = -1;
    return -1;
  }
  if (::pipe2(mInPipe, O_CLOEXEC) != 0) {
    const int err = errno;
    VLOG(LOG_COLOR_FAIL, "create in pipe failed(%d): %s", err, std::strerror(err));
    mInPipe[READ] = mInPipe[WRITE] = -1;
    closeFd();
    return -1;
  }
  for (int& fd : mOutPipe) fd = above_stdio(fd);
  for (int& fd : mInPipe) fd = above_stdio(fd);
  // A child that stops reading must not block a command in write(); a full
  // pipe fails the command instead.
  ::fcntl(mOutPipe[WRITE], F_SETFL, ::fcntl(mOutPipe[WRITE], F_GETFL) | O_NONBLOCK);

  const std::string node = root_path(kNodePath);
  std::string script = root_path(kSenderPath);
  std::string argv0 = "node";
  std::string ip = m_ip;
  char* argv[] = {argv0.data(), script.data(), ip.data(), nullptr};

  // Detached: a session of its own, so the daemon's terminal and process
  // group signals do not reach it, with default signal handling and an
  // empty mask. The spawn is one step for the calling thread, so nothing
  // that is unsafe between fork and exec runs in a threaded daemon.
  SpawnSetup setup;
  posix_spawn_file_actions_adddup2(&setup.actions, mOutPipe[READ], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&setup.actions, mInPipe[WRITE], STDOUT_FILENO);
  sigset_t def;
  sigemptyset(&def);
  sigaddset(&def, SIGCHLD);
  sigaddset(&def, SIGPIPE);
  sigaddset(&def, SIGHUP);
  sigset_t mask;
  sigemptyset(&mask);
  posix_spawnattr_setsigdefault(&setup.attr, &def);
  posix_spawnattr_setsigmask(&setup.attr, &mask);
  posix_spawnattr_setflags(&setup.attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID);

  VLOG(LOG_COLOR_STATE, "start chromecast sender ip: %s", m_ip.c_str());
  pid_t pid = -1;
  const int rc = ::posix_spawn(&pid, node.c_str(), &setup.actions, &setup.attr, argv, environ);
  if (rc != 0) {
    if (rc == EAGAIN || rc == ENOMEM)
      VLOG(LOG_COLOR_FAIL, "fork failed(%d): %s", rc, std::strerror(rc));
    else
      VLOG(LOG_COLOR_FAIL, "execl failed(%d): %s", rc, std::strerror(rc));
    closeFd();
    return rc;
  }
  mChildPid = pid;
  // Called directly: the library's declaration lacks C linkage in places.
  mChildPidFd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  return 0;
}

void ChromecastService::closeFd() {
  ThreadSingleLock lock(mLock);
  auto closeOne = [](int& fd, const char* name) {
    if (fd == -1) return;
    if (::close(fd) != 0) VLOG(LOG_COLOR_FAIL, "Failed on close %s", name);
    fd = -1;
  };
  closeOne(mInPipe[READ], "mInPipe[READ]");
  closeOne(mInPipe[WRITE], "mInPipe[WRITE]");
  closeOne(mOutPipe[READ], "mOutPipe[READ]");
  closeOne(mOutPipe[WRITE], "mOutPipe[WRITE]");
  reapChild();
}

void ChromecastService::reapChild() {
  if (mChildPid <= 0) return;
  // Its standard input is at its end now; a sender leaves by itself then.
  bool ended = false;
  const auto deadline = Clock::now() + std::chrono::milliseconds(mTiming.exitGraceMs);
  if (mChildPidFd >= 0) {
    ended = poll_until(mChildPidFd, deadline) > 0;
  } else {
    for (;;) {
      const pid_t r = ::waitpid(mChildPid, nullptr, WNOHANG);
      if (r != 0 && !(r < 0 && errno == EINTR)) {
        // Reaped here, or by a SIGCHLD disposition of the daemon.
        mChildPid = -1;
        return;
      }
      if (ms_left(deadline) == 0) break;
      ::usleep(5000);
    }
  }
  if (!ended) {
    VLOG(LOG_COLOR_FAIL, "chromecast sender %d did not leave, killed", static_cast<int>(mChildPid));
    // Through the pidfd a reused process id can never be hit.
    if (mChildPidFd >= 0)
      ::syscall(SYS_pidfd_send_signal, mChildPidFd, SIGKILL, nullptr, 0);
    else
      ::kill(mChildPid, SIGKILL);
  }
  int status = 0;
  while (::waitpid(mChildPid, &status, 0) < 0 && errno == EINTR) {
  }
  if (mChildPidFd >= 0) ::close(mChildPidFd);
  mChildPidFd = -1;
  mChildPid = -1;
}

void ChromecastService::genStatusXml(char* buffer, size_t size, int status, const char* error) {
  if (!buffer || size == 0) return;
  std::snprintf(buffer, size, "<?xml version=\"1.0\"?><status>%d</status><error>%s</error>", status, error);
}

int ChromecastService::sendMessage(const std::string& message, char* buffer, size_t size, int timeoutSeconds) {
  if (!buffer || size < 2) return 1;
  ThreadSingleLock lock(mLock);
  if (!mInited) {
    genStatusXml(buffer, size, -1, "Sender not init");
    return 1;
  }
  if (mOutPipe[WRITE] == -1) {
    genStatusXml(buffer, size, -1, "Fd write not init");
    return 1;
  }
  if (mInPipe[READ] == -1) {
    genStatusXml(buffer, size, -1, "Fd read not init");
    return 1;
  }
  // Only the launch command itself may go to a receiver not launched; a
  // title that holds the word does not count.
  if (message != kLaunch && !mLaunched) {
    genStatusXml(buffer, size, -1, "Receiver is not launch");
    return 1;
  }
  ssize_t written = -1;
  do {
    written = ::write(mOutPipe[WRITE], message.data(), message.size());
  } while (written < 0 && errno == EINTR);
  if (written < 0) {
    const int err = errno;
    genStatusXml(buffer, size, err, std::strerror(err));
    return 1;
  }
  if (static_cast<size_t>(written) != message.size()) {
    genStatusXml(buffer, size, 1, "Write error.");
    return 1;
  }
  const int waitMs = timeoutSeconds > 0 ? timeoutSeconds * 1000 : mTiming.replyTimeoutMs;
  const int ready = poll_until(mInPipe[READ], Clock::now() + std::chrono::milliseconds(waitMs));
  if (ready < 0) {
    VLOG(LOG_COLOR_FAIL, "The error occured when read");
    return 1;
  }
  if (ready == 0) {
    VLOG(LOG_COLOR_FAIL, "Time out when read");
    genStatusXml(buffer, size, 0, "Time out when read");
    return 1;
  }
  ssize_t got = -1;
  do {
    got = ::read(mInPipe[READ], buffer, size - 1);
  } while (got < 0 && errno == EINTR);
  if (got < 0) {
    const int err = errno;
    genStatusXml(buffer, size, err, std::strerror(err));
    return 1;
  }
  if (got == 0) {
    genStatusXml(buffer, size, 1, "Nothing read.");
    return 1;
  }
  buffer[got] = '\0';
  return 0;
}

int ChromecastService::parseRetXml(const char* xml, Response& response) {
  XMLNode root = XMLNode::parseString(xml, "root");
  if (root.isEmpty()) return 1;
  ThreadSingleLock lock(mLock);
  // An element without text counts as missing.
  const char* status = child_text(root, "status");
  if (!status) return 1;
  response.m_response = std::strtoll(status, nullptr, 10);
  if (response.m_response == -1) {
    VLOG(LOG_COLOR_STATE, "connection closed, close fd and init flag");
    closeFd();
    mInited = 0;
    mLaunched = 0;
  }
  if (const char* t = child_text(root, "error")) response.m_errMsg = t;
  if (const char* t = child_text(root, "duration")) response.m_duration = Response::stringToF(t);
  if (const char* t = child_text(root, "position")) response.m_position = Response::stringToF(t);
  if (const char* t = child_text(root, "volume")) response.m_volume = Response::stringToF(t);
  if (const char* t = child_text(root, "mute")) response.m_muted = static_cast<int>(Response::stringToF(t));
  if (const char* t = child_text(root, "state")) response.m_state = t;
  return 0;
}

std::string ChromecastService::jsonEscape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char esc[8];
          std::snprintf(esc, sizeof esc, "\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
          out += esc;
        } else {
          out += c;
        }
    }
  }
  return out;
}

void ChromecastService::genMedia(std::string& out, const std::string& url, const std::string& title,
                                 const std::string& imageUrl, const std::string& subtitle) {
  out = "{\"cmd\":\"LOAD\", \"url\":\"" + jsonEscape(url) + "\"";
  if (!title.empty()) out += ", \"title\":\"" + jsonEscape(title) + "\"";
  if (!imageUrl.empty()) out += ", \"imageUrl\":\"" + jsonEscape(imageUrl) + "\"";
  if (!subtitle.empty()) out += ", \"subtitle\":\"" + jsonEscape(subtitle) + "\"";
  out += "}\r\n";
}

void ChromecastService::setTiming(const chromecastTiming_s& timing) {
  ThreadSingleLock lock(mLock);
  mTiming = timing;
}

int ChromecastService::setContentUrl(Response& response, std::string message) {
  // The lock is recursive: the four-string load holds it already.
  ThreadSingleLock lock(mLock);
  char buffer[kReplySize + 1] = {0};
  if (!mInited) {
    const int rc = init();
    if (rc != 0) {
      VLOG(LOG_COLOR_FAIL, "init failed");
      return rc;
    }
    mInited = 1;
    // The answer to the launch is not read for its fields.
    if (sendMessage(kLaunch, buffer, sizeof buffer, 0) != 0) {
      VLOG(LOG_COLOR_FAIL, "sendMessage failed: %s", buffer);
      return 1;
    }
    mLaunched = 1;
    std::memset(buffer, 0, sizeof buffer);
  }
  if (sendMessage(message, buffer, sizeof buffer, 0) != 0) {
    VLOG(LOG_COLOR_FAIL, "sendMessage failed: %s", buffer);
    return 1;
  }
  parseRetXml(buffer, response);
  return 0;
}

int ChromecastService::setContentUrl(Response& response, const std::string& url, const std::string& title,
                                     const std::string& imageUrl, const std::string& subtitle) {
  ThreadSingleLock lock(mLock);
  std::string message;
  genMedia(message, url, title, imageUrl, subtitle);
  return setContentUrl(response, std::move(message));
}

int ChromecastService::exchange(const char* command, Response& response) {
  char buffer[kReplySize + 1] = {0};
  ThreadSingleLock lock(mLock);
  const int rc = sendMessage(command, buffer, sizeof buffer, 0);
  if (rc == 0)
    parseRetXml(buffer, response);
  else
    VLOG(LOG_COLOR_FAIL, "sendMessage failed: %s", buffer);
  return rc;
}

int ChromecastService::play(Response& response) { return exchange(kPlay, response); }
int ChromecastService::pause(Response& response) { return exchange(kPause, response); }
int ChromecastService::stop(Response& response) { return exchange(kStop, response); }
int ChromecastService::getPosInfo(Response& response) { return exchange(kStatus, response); }
int ChromecastService::getVolume(Response& response) { return exchange(kGetVolume, response); }
int ChromecastService::getMute(Response& response) { return exchange(kGetMute, response); }

int ChromecastService::seek(Response& response, float seconds) {
  char command[128];
  std::snprintf(command, sizeof command, "{ \"cmd\":\"SEEK\", \"seektime\":\"%f\" }\r\n", static_cast<double>(seconds));
  return exchange(command, response);
}

int ChromecastService::setVolume(Response& response, float volume) {
  char command[128];
  std::snprintf(command, sizeof command, "{ \"cmd\":\"SET_VOLUME\", \"volume\":\"%f\" }\r\n",
                static_cast<double>(volume));
  return exchange(command, response);
}

int ChromecastService::setMute(Response& response, bool mute) {
  char command[64];
  std::snprintf(command, sizeof command, "{ \"cmd\":\"SET_MUTE\", \"mute\":\"%s\" }\r\n", mute ? "true" : "false");
  return exchange(command, response);
}

int ChromecastService::_close(Response& response) {
  // Locked too, so that a close beside another command cannot pull the
  // pipes from under it.
  ThreadSingleLock lock(mLock);
  const int rc = exchange(kClose, response);
  closeFd();
  mInited = 0;
  mLaunched = 0;
  return rc;
}

}  // namespace vessord
