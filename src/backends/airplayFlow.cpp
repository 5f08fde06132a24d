// CAirplayPlayer's loop: the running phase, one pass about once a second,
// then the pause or stop of the device and the park. The stages of a pass
// are the table in process(), read top to bottom; FlowStage tells debugDump
// the last one reached (4 leaving the running phase, 5 parked, 6 the exit
// test).
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "backends/airplayPlayer.h"
#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/rootPath.h"
#include "foundation/sysUtil.h"

using vessord::Response;

namespace {
constexpr int kHistoryPasses = 7;
constexpr int kAudioStalls = 10;  // more passes than this without progress end an audio track
constexpr int kVideoStalls = 30;  // more passes than this at position 0 end a video

// Passes without progress, shared by every AirPlay player of the process:
// one player's progress clears another's count, as on the appliance.
std::atomic<int> g_stallCnt{0};
}  // namespace

// What the loop keeps from one pass to the next.
struct CAirplayPlayer::flowLocals_s {
  size_t failCnt = 0;  // tracks in a row that could not be started
  int historyCnt = 0;
  playlistElm_s elm;   // the track stage 1 started
};

void CAirplayPlayer::process() {
  struct stage_s {
    int stage;
    bool (*when)(const CAirplayPlayer&);
    void (CAirplayPlayer::*act)(flowLocals_s&);
  };
  static const stage_s kStages[] = {
      // 1: hand the current track to the device.
      {1, [](const CAirplayPlayer& p) { return !p.m_bIsPlaying; }, &CAirplayPlayer::startTrack_},
      // 2: follow it by the device's position reports.
      {2, [](const CAirplayPlayer& p) { return !p.m_bChangeToNext && p.m_bIsPlaying; }, &CAirplayPlayer::pollTrack_},
      // 3: the track is over, or could not start: move on, or stop.
      {3, [](const CAirplayPlayer& p) { return p.m_bChangeToNext.load(); }, &CAirplayPlayer::changeTrack_},
  };

  flowLocals_s f;
  for (;;) {
    while (!m_bStop) {
      for (const stage_s& s : kStages) {
        if (m_bStop || !s.when(*this)) continue;
        FlowStage = s.stage;
        (this->*s.act)(f);
      }
      if (!m_bStop) passSleep_();
    }
    FlowStage = 4;
    if (m_bIsPlaying) {
      if (f.elm.mediaType != MEDIA_PHOTO) {
        Response r;
        m_airplayService.pause(r);
      }
      m_playerState = STATE_PAUSE_E;
    } else {
      leaveRunning_();
    }
    FlowStage = 5;
    const bool exit = park_();
    FlowStage = 6;
    if (exit) return;
  }
}

void CAirplayPlayer::startTrack_(flowLocals_s& f) {
  m_bChangeToNext = false;
  resetTrackChoices_();
  m_delayCount = 0;
  g_stallCnt = 0;
  const unsigned requests = m_trackRequests;
  std::string path;
  f.elm = playlistElm_s();
  if (getContentPath_(f.elm, path, nullptr, nullptr, 0, -1, nullptr, nullptr, nullptr, nullptr, 1) != 0) {
    VLOG(LOG_COLOR_FAIL, "*** Couldn't find %s\n", f.elm.content.c_str());
  } else if (f.elm.mediaType == MEDIA_PHOTO) {
    Response r;
    if (m_airplayService.playPhoto(r, vessord::root_path(path)) == 0) m_bIsPlaying = true;
  } else {
    // A photo before this track leaves the device in its photo view.
    const size_t size = getPlaylistSize();
    const size_t index = getCurrTrackIndex();
    const size_t before = index == 0 || index > size ? size - 1 : index - 1;
    playlistElm_s prev;
    bool read = false;
    if (size == 0) {
      // The queue was emptied meanwhile: there is no track before.
    } else if (getPlayMode() == SHUFFLE || getPlayMode() == SHUFFLE_REPEAT) {
      const std::vector<playQueueItem_s> queue = getPlayQueue();
      read = before < queue.size() && getPlaylistElmByOrder(prev, static_cast<int>(queue[before].order)) == 0;
    } else {
      read = getPlaylistElmByIndex(prev, static_cast<int>(before)) == 0;
    }
    Response r;
    if (read && prev.mediaType == MEDIA_PHOTO) m_airplayService.stop(r);
    if (m_airplayService.setContentUrl(r, path) == 0) m_bIsPlaying = !m_bStop;
  }
  // A next() or previous() during the hand-over cleared the flag before
  // this set it: the track it asked for starts at the next pass.
  if (m_trackRequests != requests) m_bIsPlaying = false;
  if (m_bIsPlaying) {
    f.failCnt = 0;
  } else if (m_trackRequests == requests) {
    m_bChangeToNext = true;
    ++f.failCnt;
  }
}

void CAirplayPlayer::pollTrack_(flowLocals_s& f) {
  m_playerState = STATE_PLAY_E;
  if (++f.historyCnt == kHistoryPasses) {
    savePlayHistory();
    f.historyCnt = 0;
  }
  switch (f.elm.mediaType) {
    case MEDIA_PHOTO: {
      char text[32];
      sec_convert_to_hhmmss(m_delayCount, text, sizeof text);
      setCurrTime(std::string(text));
      sec_convert_to_hhmmss(getSlideShowDelay(), text, sizeof text);
      setTotalTime(std::string(text));
      if (++m_delayCount > getSlideShowDelay()) {
        m_delayCount = 0;
        m_bChangeToNext = true;
      }
      break;
    }
    case MEDIA_AUDIO:
      pollAudio_();
      break;
    case MEDIA_VIDEO:
      pollVideo_();
      break;
    default:
      VLOG(LOG_COLOR_FAIL, "[Unknow Type]:%s\n", f.elm.content.c_str());
      break;
  }
}

// An audio track ends at its length, or when the device's position stands
// still (or at 0) for twelve passes.
void CAirplayPlayer::pollAudio_() {
  Response r;
  if (m_airplayService.getPosInfo(r) != 0) return;
  const int p = static_cast<int>(r.m_position);
  const int old = getCurrTimeSecondWithOutSeek();
  setCurrTime(p);
  const int total = getTotalTimeSecond();
  if (total != 0 && total <= getCurrTimeSecond() + 1) {
    m_bChangeToNext = true;
    return;
  }
  if (p != 0 && p != old) {
    g_stallCnt = 0;
  } else if (g_stallCnt++ > kAudioStalls) {
    m_bChangeToNext = true;
  }
}

// A video ends at its length (the device's, else the library's), or after
// thirty-two passes at position 0. A failed report reads as both 0.
void CAirplayPlayer::pollVideo_() {
  Response r;
  int duration = 0, position = 0;
  if (m_airplayService.getPosInfo(r) == 0) {
    duration = static_cast<int>(r.m_duration);
    position = static_cast<int>(r.m_position);
  }
  if (duration == 0) duration = getTotalTimeSecond();
  setCurrTime(position);
  const int current = getCurrTimeSecond();
  if (duration > current + 1) {
    if (position != 0) g_stallCnt = 0;
    else if (g_stallCnt++ > kVideoStalls) m_bChangeToNext = true;
  } else {
    m_bChangeToNext = true;
  }
}

void CAirplayPlayer::changeTrack_(flowLocals_s& f) {
  m_bChangeToNext = false;
  m_bIsPlaying = false;
  if (!changeToNextTrack() || f.failCnt == getPlaylistSize()) {
    VLOG(LOG_COLOR_FALLBACK, "[Play] ---> [STOP]\n");
    f.failCnt = 0;
    m_bStop = true;
  }
}

void CAirplayPlayer::passSleep_() {
  // A pause or stop cuts the wait short.
  std::unique_lock<std::mutex> lk(m_sleepLock);
  m_sleepCond.wait_for(lk, std::chrono::milliseconds(m_timing.passMs), [this] { return m_bStop.load(); });
}

void CAirplayPlayer::leaveRunning_() {
  Response r;
  m_airplayService.stop(r);
  const std::string tmp = readField_(m_tmpSubtitle);
  // Only a regular file below /tmp: the client names this path.
  if (!tmp.empty() && remove_tmp_file(tmp) != 0) {
    const int err = errno;
    VLOG(LOG_COLOR_FAIL, "remove temp transcoded subtitle %s failed(%d): %s\n", tmp.c_str(), err,
         std::strerror(err));
  }
  resetTrackChoices_();
  m_playerState = STATE_STOP_E;
  stopHLSTranscoding();
}

bool CAirplayPlayer::park_() {
  pthread_mutex_lock(&m_waitMutex);
  m_bStuckOnWaitLock = true;
  pthread_cond_broadcast(&m_parkedCond);
  // A resume that came before the wait is not lost: m_bStop is clear.
  while (!m_wakeAsked && !m_bExit && m_bStop) pthread_cond_wait(&m_waitCond, &m_waitMutex);
  m_wakeAsked = false;
  m_bStuckOnWaitLock = false;
  pthread_mutex_unlock(&m_waitMutex);
  m_playerState = STATE_PLAY_E;
  if (m_bExit) {
    m_bExit = false;
    return true;
  }
  return false;
}
