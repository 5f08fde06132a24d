#include "backends/raopPlayer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "backends/raopFiles.h"
#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/rootPath.h"
#include "player/playerLoop.h"

using vessord::raop::own_socket_at;
using vessord::raop::remove_own;

namespace {

const char kRaopPlay[] = "/usr/local/medialibrary/bin/raop_play";
constexpr size_t kReplyBuf = 1024;
constexpr int kPollMs = 20;

// One of the three names of a child in /tmp, under the root.
std::string child_path(const char* format, pid_t pid) {
  char buf[64];
  std::snprintf(buf, sizeof buf, format, static_cast<int>(pid));
  return vessord::root_path(buf);
}
std::string server_path(pid_t pid) { return child_path("/tmp/.raop_play.srv.%d", pid); }
std::string client_path(pid_t pid) { return child_path("/tmp/.raop_play.cli.%d", pid); }
std::string child_file(pid_t pid) { return child_path("/tmp/.raop_play.%d", pid); }

void sleep_ms(unsigned ms) {
  timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

bool fill_address(sockaddr_un& addr, const std::string& path) {
  std::memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  if (path.size() >= sizeof addr.sun_path) return false;
  std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
  return true;
}

// In the forked child, before exec: nothing of the daemon's stays open
// beyond the standard descriptors.
void close_inherited() {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, 3U, ~0U, 0U) == 0) return;
#endif
  const long max = sysconf(_SC_OPEN_MAX);
  for (long fd = 3; fd < (max > 0 ? max : 1024); ++fd) ::close(static_cast<int>(fd));
}

}  // namespace

CRaopPlayer::CRaopPlayer(unsigned type, const char* renderID, const char* deviceName, const char* title,
                         const char* appType, bool encrypted, const char* renderIp, int renderPort,
                         const raopTiming_s& timing)
    : CPlayer(type, renderID, deviceName, title, appType),
      CThread(THREAD_TYPE_DETACHED),
      m_bEncrypted(encrypted),
      m_renderPort(renderPort),
      m_renderIp(renderIp ? renderIp : ""),
      m_timing(timing),
      m_loopEnd(std::make_shared<PlayerLoopEnd>()) {
  pthread_mutex_init(&m_waitMutex, nullptr);
  pthread_mutex_init(&m_socketMutex, nullptr);
  pthread_cond_init(&m_waitCond, nullptr);
  CRaopPlayer::start();  // last: the thread sees a whole player
}

CRaopPlayer::~CRaopPlayer() {
  VLOG(LOG_COLOR_NOTFOUND, "destroy RAOP player %s\n", getRenderID().c_str());
  m_bDying = true;
  if (m_bConnected) closeRaopRender_();
  m_bIsPlaying = false;
  pthread_mutex_lock(&m_waitMutex);
  m_bExit = true;
  m_bStop = true;
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
  m_loopEnd->wait();
  pthread_mutex_lock(&m_socketMutex);
  closeSocket_();
  endChild_(false);
  if (m_childPid != 0) remove_own(child_file(m_childPid));
  pthread_mutex_unlock(&m_socketMutex);
  pthread_cond_destroy(&m_waitCond);
  pthread_mutex_destroy(&m_socketMutex);
  pthread_mutex_destroy(&m_waitMutex);
}

int CRaopPlayer::start() {
  auto* arg = new playerLoopArg_s{this, m_loopEnd};
  const int rc = startThread_(&player_loop_entry, arg);
  if (rc != 0) {
    delete arg;
    m_loopEnd->finish();
  }
  return rc;
}

// ---- the child and its sockets ----

ssize_t CRaopPlayer::send_(const std::string& text) {
  if (m_socketFd < 0) {
    errno = EBADF;
    return -1;
  }
  return ::write(m_socketFd, text.data(), text.size());
}

void CRaopPlayer::closeSocket_() {
  if (m_socketFd >= 0) {
    ::close(m_socketFd);
    m_socketFd = -1;
    if (m_childPid != 0) remove_own(client_path(m_childPid));
  }
}

bool CRaopPlayer::childRunning_() {
  const pid_t pid = m_childPid;
  if (pid <= 0 || m_childReaped) return false;
  int status = 0;
  const pid_t r = ::waitpid(pid, &status, WNOHANG);
  if (r == 0) return true;
  m_childReaped = true;  // ended and reaped now, or reaped by someone else
  return false;
}

void CRaopPlayer::endChild_(bool quitSent) {
  auto endsWithin = [this](unsigned ms) {
    for (unsigned waited = 0;; waited += kPollMs) {
      if (!childRunning_()) return true;
      if (waited >= ms) return false;
      sleep_ms(kPollMs);
    }
  };
  if (!childRunning_()) return;
  if (quitSent && endsWithin(m_timing.quitMs)) return;
  ::kill(m_childPid, SIGTERM);
  if (endsWithin(m_timing.quitMs)) return;
  ::kill(m_childPid, SIGKILL);
  int status = 0;
  while (::waitpid(m_childPid, &status, 0) < 0 && errno == EINTR) {
  }
  m_childReaped = true;
}

int CRaopPlayer::failConnect_() {
  m_bExit = true;
  m_bStop = true;
  m_bFinished = true;
  sleep_ms(m_timing.failMs);
  closeSocket_();
  if (m_childPid != 0) endChild_(false);
  // The loop leaves at its park.
  pthread_mutex_lock(&m_waitMutex);
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
  return -1;
}

int CRaopPlayer::connectRaopRender_() {
  if (m_bConnected) return 0;
  if (m_bDying) return -1;
  const pid_t old = m_childPid;
  if (old != 0) {
    // What is left of an earlier child: its sockets, its file, the child
    // itself if it did not end.
    remove_own(server_path(old));
    closeSocket_();
    endChild_(false);
    remove_own(child_file(old));
  }

  // Everything the child needs is made before the fork.
  const std::string program = vessord::root_path(kRaopPlay);
  std::vector<std::string> args = {program, "-i", "--port", std::to_string(m_renderPort)};
  if (!m_bEncrypted) args.emplace_back("-e");
  args.push_back(m_renderIp);
  std::vector<char*> argv;
  argv.reserve(args.size() + 1);
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);

  const pid_t pid = ::fork();
  if (pid == 0) {
    close_inherited();
    ::execvp(argv[0], argv.data());
    ::_exit(0);
  }
  if (pid < 1) return -1;
  m_childPid = pid;
  m_childReaped = false;
  VLOG(LOG_COLOR_STATE, "raop_play started, pid %d\n", static_cast<int>(pid));

  // The child is ready once its socket is there. One that ended already
  // will not make it.
  const std::string server = server_path(pid);
  const std::string client = client_path(pid);
  unsigned waits = 0;
  bool found = false;
  while (!(found = own_socket_at(server)) && waits++ < m_timing.readyWaits) {
    if (m_bDying || !childRunning_()) {
      waits = m_timing.readyWaits + 1;
      break;
    }
    sleep_ms(m_timing.readyWaitMs);
  }
  if (found && waits == m_timing.readyWaits) {
    VLOG(LOG_COLOR_FAIL, "raop_play created fail\n");
    return failConnect_();
  }

  m_socketFd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (m_socketFd < 0) {
    VLOG(LOG_COLOR_FAIL, "socket() ... err\n");
    return failConnect_();
  }
  sockaddr_un addr{};
  if (!remove_own(client) || !fill_address(addr, client) ||
      ::bind(m_socketFd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    VLOG(LOG_COLOR_FAIL, "bind() ... err\n");
    ::close(m_socketFd);  // the name was not bound: nothing to remove
    m_socketFd = -1;
    return failConnect_();
  }
  if (!fill_address(addr, server) || ::connect(m_socketFd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    VLOG(LOG_COLOR_FAIL, "connect() ... err\n");
    return failConnect_();
  }
  // A child that stops answering must not hold the socket for good.
  timeval tv{static_cast<time_t>(m_timing.replyMs / 1000), static_cast<suseconds_t>(m_timing.replyMs % 1000) * 1000};
  ::setsockopt(m_socketFd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  m_bConnected = true;
  return 0;
}

void CRaopPlayer::closeRaopRender_() {
  pthread_mutex_lock(&m_socketMutex);
  m_bConnected = false;
  const bool quitSent = send_("quit") > 0;
  closeSocket_();
  if (m_childPid != 0) {
    remove_own(child_file(m_childPid));
    endChild_(quitSent);
  }
  pthread_mutex_unlock(&m_socketMutex);
}

// ---- tracks ----

int CRaopPlayer::getContentPath_(playlistElm_s& elm, std::string& path) {
  if (getPlaylistElmByIndex(elm, -1) != 0) return -1;
  std::string file;
  const int rc = upnpObjectToFilePath(elm.upnpObjID, file);
  if (rc != 0) return rc;
  // Ready to stand inside single quotes; the file lies under the root in
  // a simulated appliance.
  const std::string real = vessord::root_path(file);
  path.clear();
  for (char c : real) {
    if (c == '\'')
      path += "'\\''";
    else
      path += c;
  }
  return 0;
}

int CRaopPlayer::findValidTrackPath_(playlistElm_s& elm, std::string& path) {
  const size_t size = getPlaylistSize();
  if (size == 0) return -1;
  for (size_t i = 0; i < size; ++i) {
    // The quoted form is what is opened: a name holding a quote never
    // passes, and neither does one that the probe's line cannot hold.
    if (getContentPath_(elm, path) == 0 && vessord::raop::probe_takes(path)) {
      if (std::FILE* f = std::fopen(path.c_str(), "re")) {
        std::fclose(f);
        return 0;
      }
    }
    changeToNextTrack();
  }
  return -1;
}

int CRaopPlayer::setAvTransport_(const std::string& path) {
  pthread_mutex_lock(&m_socketMutex);
  int rc = 0;
  if (send_("file " + path) < 0) {
    std::perror("write():");
    rc = -1;
  }
  sleep_ms(m_timing.transportMs);
  pthread_mutex_unlock(&m_socketMutex);
  return rc;
}

bool CRaopPlayer::isRaopPlayerStatePause_() {
  char buf[kReplyBuf + 1] = {0};
  pthread_mutex_lock(&m_socketMutex);
  if (m_socketFd >= 0) {
    // An answer that came after an earlier question gave up is not this one.
    while (::recv(m_socketFd, buf, kReplyBuf, MSG_DONTWAIT) > 0) {
    }
    std::memset(buf, 0, sizeof buf);
  }
  if (send_("state") < 0) {
    VLOG(LOG_COLOR_FAIL, "write() ... err\n");
  } else {
    const ssize_t n = ::read(m_socketFd, buf, kReplyBuf);
    if (n < 0) {
      VLOG(LOG_COLOR_FAIL, "read() ... err\n");
      buf[0] = '\0';
    }
  }
  pthread_mutex_unlock(&m_socketMutex);
  return std::strstr(buf, "NO_PAUSE") == nullptr;
}

// ---- what the command threads call ----

void CRaopPlayer::wakeLoop_() {
  pthread_mutex_lock(&m_waitMutex);
  ++m_wakes;
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
}

void CRaopPlayer::resetTimes_() {
  setCurrTime("00:00:00");
  setTotalTime("00:00:00");
  setSeekTime("00:00:00");
  setAudioTrack(0);
  setSubtitleTrack(-1);
  resetExternalSubtitle();
}

int CRaopPlayer::play() {
  if (m_bFinished || m_bDying) return -1;
  m_bStop = false;
  pthread_mutex_lock(&m_socketMutex);
  if (!m_bConnected) {
    const int rc = connectRaopRender_();
    if (rc != 0) {
      pthread_mutex_unlock(&m_socketMutex);
      return rc;
    }
  }
  if (m_bIsPlaying) send_("play");
  pthread_mutex_unlock(&m_socketMutex);
  m_playerState = STATE_PLAY_E;
  wakeLoop_();
  return 0;
}

int CRaopPlayer::pause() {
  pthread_mutex_lock(&m_socketMutex);
  m_bStop = true;
  send_("pause");
  m_playerState = STATE_PAUSE_E;
  pthread_mutex_unlock(&m_socketMutex);
  return 0;
}

int CRaopPlayer::stop(bool closeRender) {
  m_bIsPlaying = false;
  m_bStop = true;
  ++m_requests;
  if (closeRender) closeRaopRender_();
  m_playerState = STATE_STOP_E;
  resetTimes_();
  return 0;
}

int CRaopPlayer::next() {
  m_bStop = false;
  m_bIsPlaying = false;
  ++m_requests;
  stepCurrTrackWrapping(true);
  resetTimes_();
  play();
  return 0;
}

int CRaopPlayer::previous() {
  m_bStop = false;
  m_bIsPlaying = false;
  ++m_requests;
  stepCurrTrackWrapping(false);
  resetTimes_();
  play();
  return 0;
}

int CRaopPlayer::seek(const char* position) {
  if (!position) return -1;
  const int seconds = time_convert_to_second(position);
  pthread_mutex_lock(&m_socketMutex);
  int rc = 0;
  if (send_("seek " + std::to_string(seconds)) < 0) {
    VLOG(LOG_COLOR_FAIL, "write()... err\n");
    rc = -1;
  }
  pthread_mutex_unlock(&m_socketMutex);
  setSeekTime(position);
  m_elapsed = seconds;
  return rc;
}

int CRaopPlayer::setAudioAndSubtitle(const char*, int, int, const char*, const char*, const char*, const char*,
                                     const char*, const char*, int) {
  VLOG(LOG_COLOR_FAIL, "[%s][%d]: >>> Need to implement RaopPlayer::setAudioAndSubtitle <<<\n", __FUNCTION__,
       __LINE__);
  return 0;
}

int CRaopPlayer::setVolume(int volume) {
  if (volume < 0) volume = 0;
  if (volume > 100) volume = 100;
  pthread_mutex_lock(&m_socketMutex);
  const ssize_t w = send_("volume " + std::to_string(volume));
  pthread_mutex_unlock(&m_socketMutex);
  if (w < 1) {
    VLOG(LOG_COLOR_FAIL, "write()... err\n");
    return -1;
  }
  m_volume = volume;
  return 0;
}

int CRaopPlayer::getVolume() { return m_volume; }
