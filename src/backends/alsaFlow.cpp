// The ALSA player's loop. Each pass of the running phase runs the stages
// whose flags are set, in this order:
//
// | Stage | When                     | What                                               |
// | ----- | ------------------------ | -------------------------------------------------- |
// | 1     | not stopped, not playing | stop the daemon, find the current track's file,    |
// |       |                          | make it the daemon's only entry, play (and seek    |
// |       |                          | muted to the start of a track inside a file)       |
// | 2     | not stopped, playing     | read `mpc status`, publish the times, notice the   |
// |       |                          | track's end or a pause pressed on the daemon       |
// | 3     | not stopped, track over  | stop the daemon, move the queue on, or stop at     |
// |       |                          | the queue's end                                    |
//
// A pass ends with a wait of about a second. Once stopped, the loop pauses
// the daemon (a track is on it) or stops it, and parks until a command
// wakes it.
#include <unistd.h>

#include <cstdio>
#include <ctime>

#include "backends/alsaPlayer.h"
#include "backends/mpdStatus.h"
#include "foundation/log.h"
#include "player/playerLoop.h"
#include "foundation/nasUtil.h"

namespace {

std::string hhmmss(int seconds) {
  char buf[32];
  sec_convert_to_hhmmss(seconds, buf, sizeof buf);
  return buf;
}

}  // namespace

void CAlsaPlayer::process() {
  setLoopThread_(true);
  m_bStop = true;  // a new player's first pass stops the daemon and parks
  for (;;) {
    FlowStage = 0;
    while (!m_bStop) {
      if (!m_bIsPlaying) startTrack_();
      if (!m_bStop && m_bIsPlaying) pollTrack_();
      if (!m_bStop && m_bChangeToNext) changeTrack_();
      if (!m_bStop) passSleep_();
    }
    leaveRunning_();
    if (park_()) break;
    // Every wake starts afresh: a track inside a larger file loses its
    // offset and length here, as the appliance's clients know it.
    m_startOffset = -1;
    m_duration = -1;
  }
  setLoopThread_(false);
}

void CAlsaPlayer::resetTimes_() {
  setCurrTime("00:00:00");
  setTotalTime("00:00:00");
  setSeekTime("00:00:00");
  setAudioTrack(0);
  setSubtitleTrack(-1);
  resetExternalSubtitle();
}

void CAlsaPlayer::startTrack_() {
  FlowStage = 1;
  m_bChangeToNext = false;
  resetTimes_();
  m_trackRequestsAtStart = m_trackRequests.load();
  send_mpd_cmd1("/tmp/vexmpd/bin/mpc -p %d stop &> /dev/null");

  playlistElm_s elm;
  std::string path;
  int offset = -1, duration = -1;
  const int found = getNextObjectFilePath(elm, path, offset, duration);
  m_startOffset = offset;
  m_duration = duration;
  if (found != 0) {
    VLOG(LOG_COLOR_STATE, "getNextObjectFilePath() ... [fail] ... [Play] ---> [STOP]\n");
    stop(true);
  }
  if (!path.empty() && addFileToMPD(path) == 0) {
    if (m_startOffset > 0) setMute(true);
    if (send_mpd_cmd1("/tmp/vexmpd/bin/mpc -p %d play &> /dev/null") != 0)
      VLOG(LOG_COLOR_FAIL, "play ... fail\n");
    else if (m_trackRequests.load() == m_trackRequestsAtStart)
      m_bIsPlaying = true;  // else a next() or previous() came meanwhile: hand over its track

    if (m_startOffset > 0) {
      seekAbs(m_startOffset);
      setMute(false);
    }
  } else {
    VLOG(LOG_COLOR_FAIL, "setAvTransport_() ... err\n");
    m_bChangeToNext = true;
  }
}

void CAlsaPlayer::pollTrack_() {
  FlowStage = 2;
  m_playerState = STATE_PLAY_E;
  std::string text;
  if (readStatus_(text) != 0) return;
  const vessord::MpdStatus st = vessord::ParseMpdStatus(text.c_str());
  int elapsed = st.elapsed;
  const int offset = m_startOffset;
  const int duration = m_duration;
  if (offset > 0) elapsed = elapsed > offset ? elapsed - offset : 0;
  const int shown = duration > 0 ? duration : st.total;
  setTotalTime(hhmmss(shown));
  setCurrTime(hhmmss(elapsed));
  const bool endOfPart = offset >= 0 && duration > 0 && shown <= elapsed;
  if (st.state == vessord::MPD_STOPPED || (st.state == vessord::MPD_PLAYING && endOfPart)) {
    m_startOffset = -1;
    m_duration = -1;
    m_bChangeToNext = true;
  } else if (st.state == vessord::MPD_PAUSED) {
    m_bStop = true;
  }
}

void CAlsaPlayer::changeTrack_() {
  FlowStage = 3;
  send_mpd_cmd1("/tmp/vexmpd/bin/mpc -p %d stop &> /dev/null");
  m_bChangeToNext = false;
  m_bIsPlaying = false;
  // A next() or previous() since this track began has moved the queue
  // already.
  if (m_trackRequests.load() != m_trackRequestsAtStart) return;
  if (!changeToNextTrack()) {
    VLOG(LOG_COLOR_STATE, "[Play] ---> [STOP]\n");
    m_bStop = true;
  }
}

void CAlsaPlayer::passSleep_() {
  // About a second, cut short when a command stops the loop.
  sleep_pass(m_waitMutex, m_waitCond, m_timing.passMs, m_bStop);
}

void CAlsaPlayer::leaveRunning_() {
  FlowStage = 4;
  if (m_bIsPlaying) {
    send_mpd_cmd1("/tmp/vexmpd/bin/mpc -p %d pause &> /dev/null");
    m_playerState = STATE_PAUSE_E;
  } else {
    send_mpd_cmd1("/tmp/vexmpd/bin/mpc -p %d stop &> /dev/null");
    resetTimes_();
    m_playerState = STATE_STOP_E;
  }
}

bool CAlsaPlayer::park_() {
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
  FlowStage = 6;
  if (m_bExit) {
    m_bExit = false;
    return true;
  }
  return false;
}

int CAlsaPlayer::getNextObjectFilePath(playlistElm_s& elm, std::string& path, int& startOffset, int& duration) {
  startOffset = 0;
  duration = 0;
  auto resolve = [&]() {
    if (getPlaylistElmByIndex(elm, -1) != 0) return -1;
    if (elm.contentType == CONTENT_FILE) {
      path = elm.content;
      return 0;
    }
    if (elm.contentType == CONTENT_DBID)
      return dbIDtToFilePath(elm.content, elm.mediaType, path, startOffset, duration);
    return upnpObjectToFilePath(elm.content, path, startOffset, duration);
  };
  if (resolve() == 0) return 0;
  for (;;) {
    if (!changeToNextTrack()) return -1;
    resolve();
    if (!path.empty()) return 0;
  }
}
