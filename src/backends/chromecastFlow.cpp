// The Chromecast player's loop. Each pass of the running phase runs the
// stages whose flags are set, in this order:
//
// | Stage | When                          | What                                          |
// | ----- | ----------------------------- | --------------------------------------------- |
// | 1     | not stopped, nothing playing  | prepare the current item (URL, thumbnail,     |
// |       |                               | title) and order the device to play it        |
// | 2     | not stopped, playing, not     | photo: count the slide-show delay; music and  |
// |       | over                          | video: read the device's position, notice the |
// |       |                               | track's end or a device that never began      |
// | 3     | not stopped, not seeking,     | move the queue on, or stop at its end or when |
// |       | track over                    | every item failed in a row                    |
// | 4     | leaving the running phase     | pause the device (a track is on it) or stop   |
// |       |                               | it and end the transcoding job                |
// | 5, 6  | parked, woken                 |                                               |
//
// A pass ends with a wait of about a second, cut short by a stop. A new
// player's loop goes straight to stage 4: one stop to the device, then the
// park.
#include <ctime>

#include "backends/chromecastPlayer.h"
#include "foundation/log.h"
#include "player/playerLoop.h"
#include "foundation/nasUtil.h"
#include "services/vexAirplayOp.h"

using CVexAirplay::CVexAirplayOpInterface;

namespace {

std::string hhmmss(int seconds) {
  char buf[32];
  sec_convert_to_hhmmss(seconds, buf, sizeof buf);
  return buf;
}

const char* stateName(int state) {
  switch (state) {
    case STATE_PLAY_E: return "STATE_PLAY_E";
    case STATE_STOP_E: return "STATE_STOP_E";
    case STATE_PAUSE_E: return "STATE_PAUSE_E";
    default: return "STATE_UNKNOW";
  }
}

}  // namespace

void CChromecast::setState_(playerState_e state) {
  const playerState_e was = m_playerState.exchange(state);
  if (was != state) VLOG(LOG_COLOR_STATE, "%s: %s ---> %s\n", getRenderID().c_str(), stateName(was), stateName(state));
}

void CChromecast::process() {
  setLoopThread_(true);
  int polls = 0;
  int failed = 0;
  m_item.mediaType = MEDIA_UNKNOWN;
  m_item.contentType = CONTENT_UNKNOWN;
  while (!m_bExit) {
    while (!m_bStop) {
      FlowStage = 1;
      if (!m_bStop && !m_bIsPlaying) startTrack_(failed);
      FlowStage = 2;
      if (!m_bStop && !m_bChangeToNext && m_bIsPlaying) pollTrack_(polls);
      FlowStage = 3;
      if (!m_bStop && !m_bSeeking && m_bChangeToNext) changeTrack_(failed);
      if (m_bStop) break;
      passSleep_();
    }
    leaveRunning_();
    if (park_()) break;
  }
  m_bExit = false;
  m_bPause = false;
  setLoopThread_(false);
}

void CChromecast::resetTrackState_() {
  setCurrTime("00:00:00");
  setTotalTime("00:00:00");
  setSeekTime("00:00:00");
  setAudioTrack(0);
  setSubtitleTrack(-1);
  for (std::string* field : {&m_externalSubtitle, &m_tmpSubtitle, &m_sseek, &m_ssize, &m_scolor, &m_sencoding})
    writeField_(*field, "");
}

void CChromecast::startTrack_(int& failed) {
  m_bChangeToNext = false;
  m_delayCount = 0;
  g_zeroPositionPolls = 0;
  resetTrackState_();
  m_trackRequestsAtStart = m_trackRequests.load();
  m_stopRequestsAtStart = m_stopRequests.load();
  m_bIsPlaying = true;

  std::string url;
  if (getContentPath_(m_item, url, m_subtitleUrl, nullptr, 0, -1, nullptr, nullptr, nullptr, nullptr, 1) != 0) {
    m_bIsPlaying = false;
    VLOG(LOG_COLOR_FAIL, "+++>>>> item.orderNum:%d  item.contentType:%d  item.content:%s\n", m_item.orderNum,
         static_cast<int>(m_item.contentType), m_item.content.c_str());
  } else {
    std::string thumbnail, title;
    getThumbnailAndTitle(m_item, thumbnail, title);
    // A failed order counts as playing: the position poll gives it up.
    if (!url.empty() && sendPlay_(url, thumbnail, title) == 0) m_bIsPlaying = m_bPause ? true : !m_bStop;
  }
  if (m_trackRequests.load() != m_trackRequestsAtStart || m_stopRequests.load() != m_stopRequestsAtStart) {
    // A next() or previous() came meanwhile (its track starts on the next
    // pass), or a stop: this start does not count.
    m_bIsPlaying = false;
    return;
  }
  if (!m_bIsPlaying) {
    m_bChangeToNext = true;
    ++failed;
  } else {
    failed = 0;
  }
}

void CChromecast::pollTrack_(int& polls) {
  if (++polls >= 7) {
    savePlayHistory();
    polls = 0;
  }
  setState_(STATE_PLAY_E);
  if (m_item.mediaType == MEDIA_PHOTO) {
    const int delay = getSlideShowDelay();
    setCurrTime(hhmmss(m_delayCount));
    setTotalTime(hhmmss(delay));
    if (++m_delayCount > delay) {
      m_delayCount = 0;
      m_bChangeToNext = true;
    }
  } else if (m_item.mediaType != MEDIA_AUDIO && m_item.mediaType != MEDIA_VIDEO) {
    VLOG(LOG_COLOR_FAIL, "[Unknow Type]:%s\n", m_item.content.c_str());
  } else {
    int position = 0, duration = 0;
    CVexAirplayOpInterface::getPosInfo(getRenderID(), position, duration);
    if (duration == 0) duration = getTotalTimeSecond();
    setCurrTime(position);
    bool over = getCurrTimeSecond() + 2 >= duration;
    if (!over && position != 0)
      g_zeroPositionPolls = 0;
    else if (!over)
      over = ++g_zeroPositionPolls > kZeroPositionPollLimit;  // the device had a minute to begin
    if (over) m_bChangeToNext = true;
  }
}

void CChromecast::changeTrack_(int failed) {
  m_bChangeToNext = false;
  m_bIsPlaying = false;
  VLOG(LOG_COLOR_NEXT, "ChangeToNext.....\n");
  // A next() or previous() since this track began has moved the queue.
  if (m_trackRequests.load() != m_trackRequestsAtStart) return;
  const bool more = changeToNextTrack();
  if (!more || failed == static_cast<int>(getPlaylistSize())) {
    VLOG(LOG_COLOR_STATE, "[Play] ---> [STOP]\n");
    m_bIsPlaying = false;
    m_bStop = true;
  }
}

void CChromecast::passSleep_() {
  sleep_pass(m_waitMutex, m_waitCond, m_timing.passMs, m_bStop);
}

void CChromecast::leaveRunning_() {
  FlowStage = 4;
  if (!m_bIsPlaying) {
    if (m_bSilentStop)
      m_bSilentStop = false;
    else
      CVexAirplayOpInterface::sendCommand(CVexAirplayOpInterface::OP_STOP, getRenderID(), nullptr, nullptr, nullptr);
    resetTrackState_();
    m_subtitleUrl.clear();
    setState_(STATE_STOP_E);
    stopHLSTranscoding();
  } else {
    if (m_item.mediaType != MEDIA_PHOTO)
      CVexAirplayOpInterface::sendCommand(CVexAirplayOpInterface::OP_PAUSE, getRenderID(), nullptr, nullptr, nullptr);
    setState_(STATE_PAUSE_E);
  }
}

bool CChromecast::park_() {
  FlowStage = 5;
  pthread_mutex_lock(&m_waitMutex);
  m_bStuckOnWaitLock = true;
  ++m_parks;
  pthread_cond_broadcast(&m_parkedCond);
  const unsigned wakes = m_wakes;
  // A play() that came before the park has cleared m_bStop already.
  while (!m_bExit && m_wakes == wakes && m_bStop) pthread_cond_wait(&m_waitCond, &m_waitMutex);
  m_bStuckOnWaitLock = false;
  pthread_mutex_unlock(&m_waitMutex);
  setState_(STATE_PLAY_E);
  FlowStage = 6;
  return m_bExit;
}
