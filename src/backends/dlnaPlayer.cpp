// CDlnaPlayer: construction and teardown, the agent's commands, and the
// operations that the command threads call. The loop is in dlnaFlow.cpp.
#include "backends/dlnaPlayer.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <net/if.h>
#include <vector>

#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/rootPath.h"
#include "foundation/shellRunner.h"
#include "foundation/sysUtil.h"
#include "foundation/xmlParser.h"
#include "player/agentCommand.h"
#include "player/playerLoop.h"

using vessord::ShellLine;
using vessord::player::agent_value;

namespace {

constexpr size_t kReplyBuf = 4096;
constexpr size_t kShortReply = 1024;
constexpr int kPathBuf = 2048;
constexpr int kAvTransportTries = 6;
constexpr int kStopChecks = 10;
constexpr int kStopPasses = 4;
constexpr int kTransitionPolls = 9;
constexpr int kSeekWaits = 30;

bool same(const std::string& a, const char* b) { return strcasecmp(a.c_str(), b) == 0; }

// Runs a line and reads one reply; -1 when nothing could run (a refused
// value included).
int run_agent(const ShellLine& line, std::string& reply, size_t cap) {
  if (!line.ok()) {
    VLOG(LOG_COLOR_FAIL, "refused: %s\n", line.display().c_str());
    return -1;
  }
  VLOG(LOG_COLOR_AGENT, "%s\n", line.display().c_str());
  return vessord::shell_read(line, reply, cap);
}

std::string node_text(const std::string& reply, const char* tag, const char* node) {
  std::string v;
  agent_value(reply, tag, node, v);
  return v;
}

// A path as a bare shell word, "" when it cannot be one.
std::string bare_path(const std::string& path) {
  std::vector<char> buf(kPathBuf, '\0');
  if (convert_utf8_linux_filepath(path.c_str(), buf.data(), kPathBuf) != 0) return "";
  return buf.data();
}

// Every single quote as '\'' for a single-quoted shell word.
std::string quote_inside(const char* text) {
  std::string out;
  for (const char* p = text; *p; ++p) {
    if (*p == '\'') out += "'\\''";
    else out += *p;
  }
  return out;
}

}  // namespace

CDlnaPlayer::CDlnaPlayer(unsigned type, const char* renderID, const char* deviceName, const char* title,
                         const char* appType, const dlnaTiming_s& timing)
    : CPlayer(type, renderID, deviceName, title, appType),
      CThread(THREAD_TYPE_DETACHED),
      m_timing(timing),
      m_loopEnd(std::make_shared<PlayerLoopEnd>()) {
  m_currElm.mediaType = MEDIA_UNKNOWN;
  m_currElm.contentType = CONTENT_UNKNOWN;

  std::string machine;
  if (vessord::shell_read(ShellLine("/bin/uname -m", {}), machine, 128) == 0)
    m_bIsArm = machine.find("arm") != std::string::npos || machine.find("Arm") != std::string::npos ||
               machine.find("ARM") != std::string::npos;
  // The id stands bare on this line: an id that a shell would read as more
  // than plain words is never run.
  std::string xbmc;
  ShellLine xbmcLine("/usr/bin/brelctl -c isXBMC --uuid %s", {getRenderID()});
  if (run_agent(xbmcLine, xbmc, 256) == 0) m_bIsXBMC = xbmc.find("xbmc") != std::string::npos;

  pthread_mutex_init(&m_waitMutex, nullptr);
  pthread_cond_init(&m_waitCond, nullptr);
  pthread_cond_init(&m_parkedCond, nullptr);
  m_monitor.reset(new myMonitor::CMyMonitor<CDlnaPlayer>(this));
  m_monitor->m_interval.store(static_cast<int>(m_timing.monitorSeconds));
  // Two monitor threads per player, both polling while the loop is parked.
  m_monitor->start();
  start();
}

CDlnaPlayer::~CDlnaPlayer() {
  VLOG(LOG_COLOR_NOTFOUND, "destroy DLNA player %s\n", getRenderID().c_str());
  m_bDying = true;
  // The monitor goes first: once its destructor returns no callback runs.
  std::unique_ptr<myMonitor::CMyMonitor<CDlnaPlayer>> monitor;
  {
    std::lock_guard<std::mutex> lk(m_monitorLock);
    monitor = std::move(m_monitor);
  }
  monitor.reset();

  m_bIsPlaying = false;
  m_bStop = true;
  waitParked_(true);
  pthread_mutex_lock(&m_waitMutex);
  m_bExit = true;
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
  m_loopEnd->wait();
  pthread_cond_destroy(&m_parkedCond);
  pthread_cond_destroy(&m_waitCond);
  pthread_mutex_destroy(&m_waitMutex);
}

int CDlnaPlayer::start() {
  auto* arg = new playerLoopArg_s{this, m_loopEnd};
  int rc = startThread_(&player_loop_entry, arg);
  if (rc != 0) {
    delete arg;
    m_loopEnd->finish();
  }
  return rc;
}

// ---- the agent's commands ----

int CDlnaPlayer::getRenderState_() {
  std::string reply;
  ShellLine line("/usr/bin/brelctl -c getTransportInfo --uuid '%s'", {getRenderID()});
  if (run_agent(line, reply, kReplyBuf) != 0) {
    VLOG(LOG_COLOR_FAIL, "popen(%s) ... fail\n", line.display().c_str());
    return 3;
  }
  std::string state = node_text(reply, "root", "CurrentTransportState");
  if (same(state, "PAUSED_PLAYBACK")) return STATE_PAUSE_E;
  if (same(state, "STOPPED")) return STATE_STOP_E;
  if (same(state, "PLAYING")) return STATE_PLAY_E;
  return 3;
}

int CDlnaPlayer::isRanderStop_() {
  std::string reply;
  ShellLine line("/usr/bin/brelctl -c getTransportInfo --uuid '%s'", {getRenderID()});
  if (run_agent(line, reply, kReplyBuf) != 0) return -1;
  std::string state = node_text(reply, nullptr, "CurrentTransportState");
  return same(state, "STOPPED") || same(state, "NO_MEDIA_PRESENT") ? 1 : 0;
}

int CDlnaPlayer::sendAvTransport_(const playlistElm_s& elm, const char* position, int audioTrack, int subtitle,
                                  const char* externalSubtitle) {
  std::string format;
  std::vector<std::string> values{getRenderID()};
  if (elm.contentType == CONTENT_FILE) {
    const std::string real = vessord::root_path(elm.content);
    if (!is_file_exist(real.c_str())) {
      VLOG(LOG_COLOR_FAIL, " %s not exist\n", elm.content.c_str());
      return -1;
    }
    format = "/usr/bin/brelctl -c setAvTransportUrl --uuid '%s' --filePath %s";
    values.push_back(bare_path(real));
    if (values.back().empty()) format.clear();
  } else if (elm.contentType == CONTENT_DBID) {
    if (elm.content.empty()) {
      VLOG(LOG_COLOR_FAIL, "content is null\n");
      return -1;
    }
    std::string objectID;
    if (dbIDToUpnpObjectID(elm.content, elm.mediaType, objectID) == 0) {
      format = "/usr/bin/brelctl -c setAvTransportUrl --uuid '%s' --objectID '%s'";
      values.push_back(objectID);
    }
  } else {
    format = "/usr/bin/brelctl -c setAvTransportUrl --uuid '%s' --objectID '%s'";
    values.push_back(elm.upnpObjID.empty() ? elm.content : elm.upnpObjID);
    position = nullptr;  // this form never carries a position
  }
  if (format.empty()) {
    VLOG(LOG_COLOR_FAIL, "command build fail\n");
    return -1;
  }
  if (position) {
    format += " --position '%s'";
    values.push_back(position);
  }
  char ifName[IFNAMSIZ + 1] = {};
  if (get_if_by_ip(getIP().c_str(), ifName) == 0) {
    format += " --interface %s";
    values.push_back(ifName);
  }
  if (audioTrack > 0) format += " --audioTrack " + std::to_string(audioTrack) + " ";
  if (subtitle >= 0) format += " --subtitle " + std::to_string(subtitle) + " ";
  if (externalSubtitle) {
    format += " --externalSubtitle '%s' ";
    values.push_back(quote_inside(externalSubtitle));
  }
  ShellLine line(format.c_str(), values);
  for (int attempt = 1; attempt <= kAvTransportTries; ++attempt) {
    std::string reply;
    if (run_agent(line, reply, kReplyBuf) != 0) break;
    std::string status = node_text(reply, nullptr, "Status");
    if (same(status, "Success")) return 0;
    if (!same(status, "Busy") || attempt == kAvTransportTries) break;
    sleepMs_(m_timing.retryMs);
  }
  VLOG(LOG_COLOR_FAIL, ">>> popen(%s) ... fail\n", line.display().c_str());
  return -1;
}

int CDlnaPlayer::setAvTransport_(const char* position, int stopFirst, int audioTrack, int subtitle,
                                 const char* externalSubtitle) {
  if (stopFirst != 0 && !m_bIsXBMC && isRanderStop_() == 0) {
    sendStop_();
    for (int i = 0; i < kStopChecks; ++i) {
      int r = isRanderStop_();
      if (r == -1) {
        VLOG(LOG_COLOR_FAIL, "isRanderStop_() ... fail \n");
        return -1;
      }
      if (r == 1) break;
      sendStop_();
      sleepMs_(m_timing.retryMs);
    }
    if (isRanderStop_() != 1) return -1;
  }
  playlistElm_s elm;
  if (getPlaylistElmByIndex(elm, -1) != 0) return -1;
  {
    std::lock_guard<std::mutex> lk(m_elmLock);
    m_currElm = elm;
  }
  if (sendAvTransport_(elm, position, audioTrack, subtitle, externalSubtitle) != 0) return -1;
  setCurrTime("00:00:00");
  if (elm.mediaType == MEDIA_PHOTO) {
    setTotalTime("00:00:00");
  } else {
    m_trackSkipCnt = 0;
    setTotalTime(elm);
  }
  return 0;
}

int CDlnaPlayer::sendPlay_() {
  ShellLine play("/usr/bin/brelctl -c Play --uuid '%s'", {getRenderID()});
  if (!play.ok()) return -1;
  VLOG(LOG_COLOR_AGENT, "%s\n", play.display().c_str());
  vessord::shell_system(play);
  ShellLine state("/usr/bin/brelctl -c getTransportInfo --uuid '%s'", {getRenderID()});
  for (int i = 0; i < kTransitionPolls; ++i) {
    usleep(m_timing.transitionPollUs);
    std::string reply;
    if (vessord::shell_read(state, reply, kShortReply) != 0) {
      VLOG(LOG_COLOR_FAIL, "popen(%s) ... fail\n", state.display().c_str());
      return 0;
    }
    std::string v;
    if (agent_value(reply, nullptr, "CurrentTransportState", v) == 0 && !same(v, "TRANSITIONING")) return 0;
  }
  return -1;
}

int CDlnaPlayer::sendPause_() {
  std::string reply;
  ShellLine line("/usr/bin/brelctl -c Pause --uuid '%s'", {getRenderID()});
  if (run_agent(line, reply, kReplyBuf) == 0 && same(node_text(reply, nullptr, "Status"), "Success")) return 0;
  VLOG(LOG_COLOR_FAIL, "popen(%s) ... fail\n", line.display().c_str());
  return -1;
}

void CDlnaPlayer::sendStop_() {
  ShellLine stop("/usr/bin/brelctl -c Stop --uuid '%s'", {getRenderID()});
  if (!stop.ok()) return;
  for (int i = 0; i < kStopPasses; ++i) {
    VLOG(LOG_COLOR_AGENT, "%s\n", stop.display().c_str());
    vessord::shell_system(stop);
    if (isRanderStop_() != 0) break;
    sleepMs_(m_timing.retryMs);
  }
}

// ---- the park and its waits ----

void CDlnaPlayer::sleepMs_(unsigned ms) { usleep(static_cast<useconds_t>(ms) * 1000); }

void CDlnaPlayer::wakeLoop_() {
  pthread_mutex_lock(&m_waitMutex);
  if (m_bStuckOnWaitLock) pthread_cond_signal(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
}

bool CDlnaPlayer::waitParked_(bool insist) {
  auto loopDone = [this] { return m_loopEnd->isDone(); };
  pthread_mutex_lock(&m_waitMutex);
  while (!m_bStuckOnWaitLock && !loopDone()) {
    if (!m_bStop) {
      if (!insist) break;
      m_bStop = true;
    }
    const timespec until = deadline_in_ms(100);
    pthread_cond_timedwait(&m_parkedCond, &m_waitMutex, &until);
  }
  bool parked = m_bStuckOnWaitLock;
  pthread_mutex_unlock(&m_waitMutex);
  return parked;
}

void CDlnaPlayer::resetTrackChoices_() {
  resetExternalSubtitle();
  setAudioTrack(0);
  setSubtitleTrack(-1);
  setSeekTime("00:00:00");
}

// ---- what the command threads call ----

int CDlnaPlayer::play() {
  if (getPlaylistSize() == 0) return -1;
  if (m_bDying) return -1;
  if (getPlayerState() == STATE_PLAY_E) return 0;
  if (getPlayerState() == STATE_PAUSE_E && sendPlay_() != 0) return -1;
  m_bStop = false;
  wakeLoop_();
  return 0;
}

int CDlnaPlayer::pause() {
  m_bStop = true;
  if (getPlayerState() == STATE_PAUSE_E || getPlayerState() == STATE_STOP_E) return 0;
  waitParked_(false);
  return 0;
}

int CDlnaPlayer::stop(bool release) {
  savePlayHistory();
  m_bIsPlaying = false;
  m_bStop = true;
  if (getPlayerState() == STATE_STOP_E) return 0;
  VLOG(LOG_COLOR_STATE, "[PLAY:stop(%s)] ---> [STOP]\n", release ? "True" : "False");
  if (getPlayerState() == STATE_PAUSE_E && m_bStuckOnWaitLock) {
    // The parked loop will not stop the renderer itself.
    m_playerState = STATE_STOP_E;
    sendStop_();
    setCurrTime("00:00:00");
    setTotalTime("00:00:00");
    resetTrackChoices_();
  }
  waitParked_(false);
  return 0;
}

int CDlnaPlayer::next() {
  if (getPlayerState() == STATE_STOP_E) return 0;
  if (getPlaylistSize() == 0) return -1;
  withMonitor_([](myMonitor::CMyMonitor<CDlnaPlayer>& m) {
    if (!m.m_paused) m.m_paused = true;
    m.m_hold = true;
  });
  stepCurrTrackWrapping(true);
  ++m_trackRequests;  // before the flag: see startTrack_
  m_bIsPlaying = false;
  m_bStop = false;
  wakeLoop_();
  withMonitor_([](myMonitor::CMyMonitor<CDlnaPlayer>& m) { m.m_hold = false; });
  return 0;
}

int CDlnaPlayer::previous() {
  if (getPlayerState() == STATE_STOP_E) return 0;
  if (getPlaylistSize() == 0) return -1;
  withMonitor_([](myMonitor::CMyMonitor<CDlnaPlayer>& m) {
    if (!m.m_paused) m.m_paused = true;
    m.m_hold = true;
  });
  stepCurrTrackWrapping(false);
  ++m_trackRequests;  // before the flag: see startTrack_
  m_bIsPlaying = false;
  m_bStop = false;
  wakeLoop_();
  withMonitor_([](myMonitor::CMyMonitor<CDlnaPlayer>& m) { m.m_hold = false; });
  return 0;
}

int CDlnaPlayer::isNeedTranscode(std::string& subtitle) {
  playlistElm_s elm;
  if (getPlaylistElmByIndex(elm, -1) != 0) return 0;
  {
    std::lock_guard<std::mutex> lk(m_elmLock);
    m_currElm = elm;
  }
  ShellLine line("", {});
  if (elm.contentType == CONTENT_FILE) {
    const std::string real = vessord::root_path(elm.content);
    if (!is_file_exist(real.c_str())) {
      VLOG(LOG_COLOR_FAIL, "%s not exist\n", elm.content.c_str());
      return 0;
    }
    line = ShellLine("/usr/bin/brelctl -c getContentUrlByMAC --uuid '%s' --filePath %s",
                     {getRenderID(), bare_path(real)});
  } else if (elm.contentType == CONTENT_DBID) {
    line = ShellLine("/usr/bin/brelctl -c getContentUrlByMAC --uuid '%s' --dbID %s --mediaType %s",
                     {getRenderID(), elm.content, std::to_string(static_cast<int>(elm.mediaType))});
  } else {
    line = ShellLine("/usr/bin/brelctl -c getContentUrlByMAC --uuid '%s' --objectID '%s'",
                     {getRenderID(), elm.upnpObjID});
  }
  std::string reply;
  if (run_agent(line, reply, kReplyBuf) != 0 || reply.empty()) return 0;
  std::string status, url;
  if (agent_value(reply, nullptr, "status", status) != 0 || strncasecmp(status.c_str(), "success", 7) != 0)
    return 0;
  if (agent_value(reply, nullptr, "url", url) != 0) return 0;
  if (url.find("Transcode") != std::string::npos) {
    m_bTranscode = true;
    return 1;
  }
  if (elm.mediaType != MEDIA_VIDEO) return 0;
  std::string path;
  if (elm.contentType == CONTENT_DBID) {
    if (dbIDtToFilePath(elm.content, elm.mediaType, path) != 0) return 1;
  } else if (elm.contentType == CONTENT_OBJECT) {
    if (upnpObjectToFilePath(elm.upnpObjID, path) != 0) return 1;
  } else {
    path = elm.content;
  }
  std::vector<char> found(kPathBuf, '\0');
  if (is_default_subtitle_found(vessord::root_path(path).c_str(), found.data(), kPathBuf) != 1) return 0;
  // The renderer's agent knows the appliance's path, not the test root's.
  const std::string& root = vessord::test_root();
  std::string foundPath = found.data();
  if (!root.empty() && foundPath.compare(0, root.size(), root) == 0) foundPath.erase(0, root.size());
  // As curl_escape writes it: every byte but the URL's unreserved ones
  // (letters, digits, - . _ ~) as %XX.
  static const char hex[] = "0123456789ABCDEF";
  subtitle.clear();
  for (char ch : foundPath) {
    unsigned char c = static_cast<unsigned char>(ch);
    if ((c < 0x80 && std::isalnum(c)) || c == '-' || c == '.' || c == '_' || c == '~') subtitle += static_cast<char>(c);
    else subtitle += std::string("%") + hex[c >> 4] + hex[c & 15];
  }
  return 1;
}

int CDlnaPlayer::seek(const char* position) {
  if (!position || m_bStop) return 0;
  for (int i = 0; i < kSeekWaits && getCurrTimeSecond() == 0; ++i) usleep(m_timing.seekWaitUs);
  if (getCurrTimeSecond() == 0) return 0;
  m_bSeeking = true;
  std::string subtitle;
  const int need = isNeedTranscode(subtitle);
  mediaType_e media;
  {
    std::lock_guard<std::mutex> lk(m_elmLock);
    media = m_currElm.mediaType;
  }
  // Such content is not seekable on this appliance; the end-of-track tests
  // stay off until a later seek.
  if (m_bIsArm && media != MEDIA_AUDIO && need == 1) return 0;
  if (setAvTransport_(position, need, 0, -1, subtitle.empty() ? nullptr : subtitle.c_str()) != 0) {
    m_bSeeking = false;
    return -1;
  }
  sendPlay_();
  if (need) setSeekTime(position);
  m_bIsPlaying = true;
  int r = play();
  m_bSeeking = false;
  return r;
}

int CDlnaPlayer::setVolume(int volume) {
  volume = std::max(0, std::min(100, volume));
  std::string reply;
  ShellLine line("/usr/bin/brelctl -c setVolume --uuid '%s' --vol %s", {getRenderID(), std::to_string(volume)});
  if (run_agent(line, reply, kShortReply) != 0) return -1;
  return reply.find("Success") == std::string::npos ? -1 : 0;
}

int CDlnaPlayer::getVolume() {
  std::string reply;
  ShellLine line("/usr/bin/brelctl -c getVolume --uuid '%s'", {getRenderID()});
  if (run_agent(line, reply, kReplyBuf) != 0) return -1;
  std::string v;
  if (agent_value(reply, nullptr, "CurrentVolume", v) != 0) return -1;
  return static_cast<int>(std::strtol(v.c_str(), nullptr, 10));
}

void CDlnaPlayer::monitor(bool on) {
  withMonitor_([on](myMonitor::CMyMonitor<CDlnaPlayer>& m) {
    if (on) {
      m.m_hold = false;
      return;
    }
    if (!m.m_paused) m.m_paused = true;
    m.m_hold = true;
  });
}

void CDlnaPlayer::callback() {
  // One last state for every DLNA player of the process.
  static std::atomic<int> s_lastState{STATE_PLAY_E};
  if (m_bDying) return;
  int state = getRenderState_();
  if (s_lastState.load() == STATE_PAUSE_E && state == STATE_PLAY_E) {
    play();
    s_lastState = STATE_PLAY_E;
    return;
  }
  s_lastState = state;
  if (state == STATE_STOP_E) withMonitor_([](myMonitor::CMyMonitor<CDlnaPlayer>& m) { m.m_paused = true; });
}

void CDlnaPlayer::debugDump(std::string& out) {
  char buf[512];
  std::snprintf(buf, sizeof buf,
                "\nFlowStage          :%d\nm_bStop            :%d\nm_bExit            :%d\n"
                "m_bStuckOnWaitLock :%d\nm_bIsPlaying       :%d\nm_bChangeToNext    :%d\n",
                FlowStage.load(), m_bStop.load(), m_bExit.load(), m_bStuckOnWaitLock.load(), m_bIsPlaying.load(),
                m_bChangeToNext.load());
  out += buf;
  VLOG(LOG_COLOR_DUMP, "%s", buf);
}
