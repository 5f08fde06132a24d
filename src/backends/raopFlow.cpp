// The speaker player's loop. Each pass runs the stages whose conditions
// hold, in this order:
//
// | Stage | When              | What                                              |
// | ----- | ----------------- | ------------------------------------------------- |
// | 1     | stopped           | park                                              |
// | 2     | no track handed   | find a playable track, probe its length, send     |
// |       |                   | "file ..." (no track at all: stop and park)       |
// | 3     | a track handed    | the clock: the track ends at its length; ask      |
// |       |                   | "state": 12 answers in a row without "NO_PAUSE"   |
// |       |                   | end it too                                        |
// | 4     | the track is over | move the queue on and hand over the next track;   |
// |       |                   | in NORMAL and SHUFFLE a further track stops the   |
// |       |                   | player, while the end of the queue plays its last |
// |       |                   | track again                                       |
// | 5     |                   | wait a second, count it                           |
// | 6     |                   | the child's /proc entry: gone for four further    |
// |       |                   | polls while playing, a new child is started and   |
// |       |                   | the track begins again                            |
//
// The park blocks until a command wakes the loop; the first one falls
// straight through when no command came, and the loop parks at its next
// pass, as stopped.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "backends/raopPlayer.h"
#include "foundation/log.h"
#include "player/playerLoop.h"
#include "foundation/nasUtil.h"

namespace {

std::string hhmmss(int seconds) {
  char buf[32];
  sec_convert_to_hhmmss(seconds, buf, sizeof buf);
  return buf;
}

constexpr int kPausePolls = 10;  // an old count above this ends the track
constexpr int kMissingPolls = 3;

}  // namespace

void CRaopPlayer::process() {
  if (m_bExit) {
    m_bExit = false;
    return;
  }
  int pauseCnt = 0;
  int missingCnt = 0;
  for (;;) {
    bool toPark = m_bStop;
    if (!toPark) {
      if (!m_bIsPlaying)
        toPark = !startTrack_();
      else
        trackClock_(pauseCnt);
    }
    if (!toPark && m_bChangeToNext) toPark = changeTrack_(pauseCnt);
    if (!toPark) {
      passSleep_();
      ++m_elapsed;
      toPark = testChild_(missingCnt);
    }
    if (toPark && park_()) return;
  }
}

bool CRaopPlayer::startTrack_() {
  m_requestsAtStart = m_requests.load();
  playlistElm_s elm;
  std::string path;
  if (findValidTrackPath_(elm, path) < 0) {
    VLOG(LOG_COLOR_STATE, "[Play] ---> [STOP]\n");
    stop(true);
    return false;
  }
  std::string duration;
  int rc = _get_track_druation(path.c_str(), duration);
  bool transportFailed = false;
  if (rc == 0) {
    m_elapsed = 0;
    rc = setAvTransport_(path);
    transportFailed = rc != 0;
  }
  if (rc == 0) {
    // A stop, next or previous meanwhile: this track is not the one wanted.
    if (m_requests.load() == m_requestsAtStart) {
      setTotalTime(duration);
      m_bIsPlaying = true;
    }
  } else {
    if (transportFailed) VLOG(LOG_COLOR_FAIL, "setAvTransport_() ... err\n");
    m_bChangeToNext = true;
  }
  return true;
}

void CRaopPlayer::trackClock_(int& pauseCnt) {
  const int total = time_convert_to_second(getTotalTime().c_str());
  if (total <= m_elapsed) {
    m_elapsed = 0;
    m_bChangeToNext = true;
  }
  setTotalTime(hhmmss(total));
  setCurrTime(hhmmss(m_elapsed));
  if (!isRaopPlayerStatePause_()) {
    pauseCnt = 0;
  } else if (pauseCnt++ > kPausePolls) {
    m_bChangeToNext = true;
  }
}

bool CRaopPlayer::changeTrack_(int& pauseCnt) {
  m_bChangeToNext = false;
  // A next() or previous() has moved the queue already, or a stop() ended
  // the track: the next pass sees to it.
  if (m_requests.load() != m_requestsAtStart) return false;
  const playMode_e mode = getPlayMode();
  if (changeToNextTrack() && (mode == NORMAL || mode == SHUFFLE)) {
    VLOG(LOG_COLOR_STATE, "[Play] ---> [STOP]\n");
    stop(true);
    pauseCnt = 0;
    return true;
  }
  playlistElm_s elm;
  std::string path;
  if (getContentPath_(elm, path) != 0) {
    if (findValidTrackPath_(elm, path) != 0) VLOG(LOG_COLOR_STATE, "[Play] ---> [STOP]\n");
    stop(true);
    pauseCnt = 0;
    return true;
  }
  m_elapsed = 0;
  std::string duration;
  if (_get_track_druation(path.c_str(), duration) != 0) {
    m_bIsPlaying = false;
    m_bChangeToNext = true;
  } else if (setAvTransport_(path) != 0) {
    VLOG(LOG_COLOR_FAIL, "setAvTransport_() ... err\n");
    m_bChangeToNext = true;
  } else if (m_requests.load() == m_requestsAtStart) {
    m_bIsPlaying = true;
    setTotalTime(duration);
  }
  pauseCnt = 0;
  return false;
}

bool CRaopPlayer::testChild_(int& missingCnt) {
  const pid_t pid = m_childPid;
  pthread_mutex_lock(&m_socketMutex);
  // A child that ended is reaped first: its zombie keeps its /proc entry.
  bool alive = childRunning_();
  pthread_mutex_unlock(&m_socketMutex);
  if (alive) {
    char proc[32];
    std::snprintf(proc, sizeof proc, "/proc/%d", static_cast<int>(pid));
    struct stat st {};
    alive = ::stat(proc, &st) == 0;
  }
  if (alive || !m_bIsPlaying) return false;
  if (missingCnt <= kMissingPolls) {
    ++missingCnt;
    return false;
  }
  VLOG(LOG_COLOR_FAIL, "raop_play %d is gone, starting it again\n", static_cast<int>(pid));
  pthread_mutex_lock(&m_socketMutex);
  m_bConnected = false;
  const int rc = connectRaopRender_();
  pthread_mutex_unlock(&m_socketMutex);
  missingCnt = 0;
  if (rc != 0) return true;
  m_bIsPlaying = false;  // the track starts again on the new child
  return false;
}

void CRaopPlayer::passSleep_() {
  // A second of the clock; only the player's end cuts it short.
  sleep_pass(m_waitMutex, m_waitCond, m_timing.passMs, m_bDying);
}

bool CRaopPlayer::park_() {
  pthread_mutex_lock(&m_waitMutex);
  m_bStuckOnWaitLock = true;
  ++m_parks;
  const unsigned wakes = m_wakes;
  // A play() that came before the park has cleared m_bStop already.
  while (!m_bExit && m_wakes == wakes && m_bStop) pthread_cond_wait(&m_waitCond, &m_waitMutex);
  m_bStuckOnWaitLock = false;
  pthread_mutex_unlock(&m_waitMutex);
  if (m_bExit) {
    m_bExit = false;
    return true;
  }
  return false;
}
