#include "backends/chromecastPlayer.h"

#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "backends/chromecastMedia.h"
#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/shellRunner.h"
#include "player/playerLoop.h"
#include "services/vexAirplayOp.h"

using CVexAirplay::CVexAirplayOpInterface;
using vessord::ShellLine;

std::atomic<int> g_zeroPositionPolls{0};

namespace {

constexpr size_t kMachineReply = 128;

// Which loop thread is running: a command called from the loop itself must
// not wait for the loop to park.
thread_local const CChromecast* t_loopPlayer = nullptr;

}  // namespace

CChromecast::CChromecast(uint32_t type, const char* renderID, const char* deviceName, const char* title,
                         const char* appType, const char* /*ip*/, int /*port*/, const chromecastTiming_s& timing)
    : CPlayer(type, renderID, deviceName, title, appType),
      CThread(THREAD_TYPE_DETACHED),
      m_timing(timing),
      m_loopEnd(std::make_shared<PlayerLoopEnd>()) {
  m_item.mediaType = MEDIA_UNKNOWN;
  m_item.contentType = CONTENT_UNKNOWN;
  std::string machine;
  if (vessord::shell_read(ShellLine("/bin/uname -m", {}), machine, kMachineReply) == 0)
    m_bIsArm = vessord::cast::is_arm_machine(machine);
  pthread_mutex_init(&m_waitMutex, nullptr);
  pthread_cond_init(&m_waitCond, nullptr);
  pthread_cond_init(&m_parkedCond, nullptr);
  CChromecast::start();  // last: the thread sees a whole player
}

CChromecast::~CChromecast() {
  VLOG(LOG_COLOR_NOTFOUND, "destroy Chromecast player %s\n", getRenderID().c_str());
  m_bIsPlaying = false;
  m_bStop = true;
  nudgeLoop_();
  waitParked_(nullptr);
  pthread_mutex_lock(&m_waitMutex);
  m_bExit = true;
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
  m_loopEnd->wait();
  pthread_cond_destroy(&m_parkedCond);
  pthread_cond_destroy(&m_waitCond);
  pthread_mutex_destroy(&m_waitMutex);
}

int CChromecast::start() {
  auto* arg = new playerLoopArg_s{this, m_loopEnd};
  const int rc = startThread_(&player_loop_entry, arg);
  if (rc != 0) {
    delete arg;
    m_loopEnd->finish();
  }
  return rc;
}

std::string CChromecast::contentUrl() const {
  std::lock_guard<std::mutex> lk(m_urlLock);
  return m_contentUrl;
}

std::string CChromecast::hlsUrl() const {
  std::lock_guard<std::mutex> lk(m_urlLock);
  return m_hlsUrl;
}

void CChromecast::debugDump(std::string& out) {
  char buf[512];
  std::snprintf(buf, sizeof buf,
                "\nFlowStage          :%d\nm_bStop            :%d\nm_bExit            :%d\n"
                "m_bStuckOnWaitLock :%d\nm_bIsPlaying       :%d\nm_bChangeToNext    :%d\n",
                FlowStage.load(), static_cast<int>(m_bStop.load()), static_cast<int>(m_bExit.load()),
                static_cast<int>(m_bStuckOnWaitLock.load()), static_cast<int>(m_bIsPlaying.load()),
                static_cast<int>(m_bChangeToNext.load()));
  out += buf;
  VLOG(LOG_COLOR_DUMP, "%s", buf);
}

// ---- the park and its waits ----

void CChromecast::wakeLoop_() {
  pthread_mutex_lock(&m_waitMutex);
  ++m_wakes;
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
}

void CChromecast::nudgeLoop_() {
  pthread_mutex_lock(&m_waitMutex);
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
}

bool CChromecast::onLoopThread_() const { return t_loopPlayer == this; }

void CChromecast::setLoopThread_(bool on) { t_loopPlayer = on ? this : nullptr; }

void CChromecast::waitParked_(const unsigned* since) {
  if (onLoopThread_()) return;
  pthread_mutex_lock(&m_waitMutex);
  auto parked = [&] { return m_bStuckOnWaitLock && m_parks > 0 && (!since || m_parks != *since); };
  while (!parked() && !m_loopEnd->isDone()) {
    const timespec until = deadline_in_ms(100);
    pthread_cond_timedwait(&m_parkedCond, &m_waitMutex, &until);
  }
  pthread_mutex_unlock(&m_waitMutex);
}

// ---- what the command threads call ----

int CChromecast::play() {
  if (getPlaylistSize() == 0) return -1;
  if (getPlayerState() == STATE_PLAY_E) return 0;
  if (getPlayerState() == STATE_PAUSE_E) CVexAirplayOpInterface::sendCommand(CVexAirplayOpInterface::OP_RESUME, getRenderID(), nullptr, nullptr, nullptr);
  m_bStop = false;
  wakeLoop_();
  return 0;
}

int CChromecast::stop(bool sendStop) {
  savePlayHistory();
  ++m_stopRequests;
  m_bIsPlaying = false;
  m_bStop = true;
  m_bSilentStop = !sendStop;
  nudgeLoop_();
  if (getPlayerState() == STATE_STOP_E) return 0;
  if (onLoopThread_()) return 0;
  if (getPlayerState() == STATE_PAUSE_E) {
    // The parked loop wakes into its stop branch and parks again.
    pthread_mutex_lock(&m_waitMutex);
    const bool parked = m_bStuckOnWaitLock && m_parks > 0;
    const unsigned parks = m_parks;
    if (parked) {
      ++m_wakes;
      pthread_cond_broadcast(&m_waitCond);
    }
    pthread_mutex_unlock(&m_waitMutex);
    if (parked) {
      waitParked_(&parks);
      return 0;
    }
  }
  waitParked_(nullptr);
  return 0;
}

int CChromecast::pause() {
  m_bStop = true;
  m_bPause = true;
  nudgeLoop_();
  if (getPlayerState() == STATE_PAUSE_E || getPlayerState() == STATE_STOP_E) return 0;
  waitParked_(nullptr);
  return 0;
}

int CChromecast::next() {
  if (!stepCurrTrackWrapping(true)) return -1;
  ++m_trackRequests;
  m_bIsPlaying = false;
  play();
  return 0;
}

int CChromecast::previous() {
  if (!stepCurrTrackWrapping(false)) return -1;
  ++m_trackRequests;
  m_bIsPlaying = false;
  play();
  return 0;
}

int CChromecast::seek(const char* position) {
  if (getPlaylistSize() == 0 || getPlayerState() == STATE_STOP_E) return 0;
  m_bSeeking = true;
  std::string external;
  getExternalSubtitle(external);
  int result = 0;
  if (getAudioTrack() > 0 || getSubtitleTrack() >= 0 || !external.empty()) {
    // A burnt-in track means a new stream: the item starts again with the
    // same choices, and the command layer hears of a failure.
    const std::string tmp = readField_(m_tmpSubtitle);
    const std::string sseek = getSseek(), ssize = getSsize(), scolor = getScolor(), sencoding = getSencoding();
    if (!tmp.empty())
      setAudioAndSubtitle(position, getAudioTrack(), getSubtitleTrack(), tmp.c_str(), sseek.c_str(), ssize.c_str(),
                          scolor.c_str(), sencoding.c_str(), external.c_str(), 0);
    else
      setAudioAndSubtitle(position, getAudioTrack(), getSubtitleTrack(), external.c_str(), sseek.c_str(),
                          ssize.c_str(), scolor.c_str(), sencoding.c_str(), nullptr, 0);
    result = -1;
  } else {
    result = seekWithAudioAndSubtitle(position);
  }
  m_bSeeking = false;
  return result;
}

int CChromecast::seekWithAudioAndSubtitle(const char* position) {
  const std::string seconds = std::to_string(vessord::cast::scrub_seconds(position));
  return CVexAirplayOpInterface::sendCommand(CVexAirplayOpInterface::OP_SCRUB, getRenderID(), seconds.c_str(), nullptr,
                                             nullptr);
}

int CChromecast::setAudioAndSubtitle(const char* position, int aid, int sid, const char* externalSubtitle,
                                     const char* sseek, const char* ssize, const char* scolor, const char* sencoding,
                                     const char* realSubtitlePath, int autoSub) {
  if (m_bIsArm || position == nullptr) return -1;
  if (getPlayerState() == STATE_STOP_E) return -1;
  stopHLSTranscoding();
  playlistElm_s item;
  std::string url, subtitleUrl;
  // The stream of other tracks begins at 0: the position is not handed on.
  if (getContentPath_(item, url, subtitleUrl, nullptr, aid, sid, externalSubtitle, sseek, ssize, scolor, autoSub) !=
          0 ||
      item.mediaType == MEDIA_PHOTO)
    return -1;
  std::string thumbnail, title;
  getThumbnailAndTitle(item, thumbnail, title);
  if (sendPlay_(url, thumbnail, title) != 0) return -1;
  setState_(STATE_PLAY_E);
  m_bIsPlaying = true;
  m_bStop = false;
  setAudioTrack(aid);
  setSubtitleTrack(sid);
  auto given = [](const char* text) { return text != nullptr && *text != '\0'; };
  if (given(realSubtitlePath)) {
    writeField_(m_externalSubtitle, realSubtitlePath);
    if (given(externalSubtitle)) writeField_(m_tmpSubtitle, externalSubtitle);
  } else {
    writeField_(m_externalSubtitle, given(externalSubtitle) ? externalSubtitle : "");
  }
  writeField_(m_sseek, given(sseek) ? sseek : "");
  writeField_(m_ssize, given(ssize) ? ssize : "");
  writeField_(m_scolor, given(scolor) ? scolor : "");
  writeField_(m_sencoding, given(sencoding) ? sencoding : "");
  return 0;
}

int CChromecast::sendPlay_(const std::string& url, const std::string& thumbnail, const std::string& title) {
  return CVexAirplayOpInterface::sendCommand(CVexAirplayOpInterface::OP_PLAY, getRenderID(), url.c_str(),
                                             thumbnail.empty() ? nullptr : thumbnail.c_str(),
                                             title.empty() ? nullptr : title.c_str());
}

int CChromecast::stopHLSTranscoding() {
  std::string target;
  {
    std::lock_guard<std::mutex> lk(m_urlLock);
    if (m_hlsUrl.empty()) return 1;
    target = vessord::cast::interrupt_url(m_hlsUrl);
  }
  if (target.empty()) return 1;
  // The URL stands in single quotes: one that would leave them ends nothing.
  const ShellLine line("curl -L '%s' > /dev/null", {target});
  if (!line.ok()) {
    VLOG(LOG_COLOR_FAIL, "refused url %s\n", target.c_str());
    return 1;
  }
  vessord::shell_system(line);
  std::lock_guard<std::mutex> lk(m_urlLock);
  if (m_hlsUrl == m_contentUrl)
    m_hlsUrl.clear();
  else
    m_hlsUrl = m_contentUrl;
  return 0;
}
