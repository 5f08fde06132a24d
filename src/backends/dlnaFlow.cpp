// CDlnaPlayer's loop: the running phase, one pass about once a second, then
// the park. The stages of a pass are the table in process(), read top to
// bottom; FlowStage tells debugDump the last one reached.
#include <strings.h>
#include <unistd.h>

#include <string>

#include "backends/dlnaPlayer.h"
#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/xmlParser.h"
#include "player/agentCommand.h"

using vessord::ShellLine;
using vessord::player::agent_value;

namespace {
constexpr int kHistoryPasses = 7;
constexpr int kStalledPolls = 19;  // more polls than this without progress end a track
constexpr int kFailedPolls = 9;    // more failed position replies than this end a track
constexpr int kSkipStateTest = 5;  // passes without the render state test after a change
constexpr int kUserStopMargin = 15;
}  // namespace

// What the loop keeps from one pass to the next.
struct CDlnaPlayer::flowLocals_s {
  unsigned long setAvTransportFailCnt = 0;  // tracks in a row that could not be handed over
  int priorCT = 0;                          // the last position that moved
  int changTrackCnt = 0;                    // passes left without the render state test
  int historyCnt = 0;
  bool changedTrack = false;                // stage 3 acted in this pass
};

void CDlnaPlayer::process() {
  if (m_bExit) {
    m_bExit = false;
    return;
  }
  struct stage_s {
    int stage;
    bool (*when)(const CDlnaPlayer&);
    void (CDlnaPlayer::*act)(flowLocals_s&);
  };
  static const stage_s kStages[] = {
      // 1: start a track.
      {1, [](const CDlnaPlayer& p) { return !p.m_bIsPlaying; }, &CDlnaPlayer::startTrack_},
      // 2: follow the track in progress.
      {2, [](const CDlnaPlayer& p) { return !p.m_bChangeToNext && p.m_bIsPlaying; }, &CDlnaPlayer::pollTrack_},
      // 3: the track is over, or could not start: move on, or stop.
      {3, [](const CDlnaPlayer& p) { return p.m_bChangeToNext.load(); }, &CDlnaPlayer::changeTrack_},
      // 4: wait, then ask the renderer whether it was stopped or paused.
      {4, [](const CDlnaPlayer&) { return true; }, &CDlnaPlayer::passSleep_},
  };

  flowLocals_s f;
  for (;;) {
    while (!m_bStop) {
      f.changedTrack = false;
      for (const stage_s& s : kStages) {
        FlowStage = s.stage;
        if (!m_bStop && s.when(*this)) (this->*s.act)(f);
      }
      if (f.changTrackCnt != 0) --f.changTrackCnt;
    }
    FlowStage = 5;
    if (park_()) return;
  }
}

void CDlnaPlayer::startTrack_(flowLocals_s& f) {
  m_bChangeToNext = false;
  m_delayCount = 0;
  setCurrTime("00:00:00");
  setTotalTime("00:00:00");
  resetTrackChoices_();
  const unsigned requests = m_trackRequests;
  if (setAvTransport_(nullptr, 1, 0, -1, nullptr) == 0) {
    m_bIsPlaying = true;
    // A next() or previous() during the hand-over cleared the flag before
    // this set it: the track it asked for starts at the next pass.
    if (m_trackRequests != requests) m_bIsPlaying = false;
    f.setAvTransportFailCnt = 0;
    f.priorCT = 0;
    sendPlay_();
  } else {
    f.priorCT = 0;
    m_bChangeToNext = true;
    ++f.setAvTransportFailCnt;
  }
}

void CDlnaPlayer::pollTrack_(flowLocals_s& f) {
  if (++f.historyCnt == kHistoryPasses) {
    savePlayHistory();
    f.historyCnt = 0;
  }
  playlistElm_s elm;
  {
    std::lock_guard<std::mutex> lk(m_elmLock);
    elm = m_currElm;
  }
  if (elm.mediaType == MEDIA_PHOTO) {
    char text[32];
    sec_convert_to_hhmmss(m_delayCount, text, sizeof text);
    setCurrTime(text);
    sec_convert_to_hhmmss(getSlideShowDelay(), text, sizeof text);
    setTotalTime(std::string(text));
    if (++m_delayCount > getSlideShowDelay()) {
      m_delayCount = 0;
      m_bChangeToNext = true;
    }
  } else if (elm.mediaType != MEDIA_AUDIO && elm.mediaType != MEDIA_VIDEO) {
    VLOG(LOG_COLOR_FAIL, "[Unknow Type]:%s\n", elm.content.c_str());
  } else {
    pollPosition_(f);
  }
}

void CDlnaPlayer::pollPosition_(flowLocals_s& f) {
  ShellLine line("/usr/bin/brelctl -c getPositionInfo --uuid '%s'", {getRenderID()});
  std::string reply;
  if (!line.ok() || vessord::shell_read(line, reply, 4096) != 0) {
    VLOG(LOG_COLOR_FAIL, "popen(%s) ... fail\n", line.display().c_str());
    reply.clear();
  }
  std::string relTime, status;
  if (agent_value(reply, "root", "RelTime", relTime) == 0) {
    relTime = relTime.substr(0, relTime.find('.'));
    setCurrTime(relTime);
    const int ct = getCurrTimeSecond();
    const int total = getTotalTimeSecond();
    if (ct >= 1 && ct != f.priorCT) {
      m_trackSkipCnt = 0;
      f.priorCT = ct;
    } else {
      ++m_trackSkipCnt;
    }
    if (!m_bSeeking) {
      if (m_trackSkipCnt > kStalledPolls) {
        m_trackSkipCnt = 0;
        m_bChangeToNext = true;
      } else if (ct >= total - 1) {
        m_bChangeToNext = true;
      }
    }
  } else if (agent_value(reply, "root", "Status", status) == 0 && strcasecmp(status.c_str(), "fail") == 0) {
    if (++m_trackSkipCnt > kFailedPolls) m_bChangeToNext = true;
  }
}

void CDlnaPlayer::changeTrack_(flowLocals_s& f) {
  m_bChangeToNext = false;
  m_bIsPlaying = false;
  const bool more = changeToNextTrack();
  if (more && f.setAvTransportFailCnt != getPlaylistSize()) {
    VLOG(LOG_COLOR_NEXT, "[Play] ---> [NEXT] track %u\n", getCurrTrackIndex());
  } else {
    if (f.setAvTransportFailCnt == getPlaylistSize())
      VLOG(LOG_COLOR_FALLBACK, "[Play] ---> [STOP] setAvTransportFailCnt:%lu\n", f.setAvTransportFailCnt);
    f.setAvTransportFailCnt = 0;
    m_bStop = true;
  }
  f.priorCT = 0;
  f.changTrackCnt = kSkipStateTest;
  f.changedTrack = true;
}

void CDlnaPlayer::passSleep_(flowLocals_s& f) {
  sleepMs_(m_timing.passMs);
  // A seek stops and reloads the renderer from the command's thread: that
  // stop is not one pressed at the device.
  if (!m_bStop && f.changTrackCnt == 0 && !f.changedTrack && !m_bSeeking) renderStateTest_(f);
}

// A renderer stopped or paused at the device, with more than the margin of
// the track left, parks the player; near the end it is the track ending.
void CDlnaPlayer::renderStateTest_(flowLocals_s&) {
  const int state = getRenderState_();
  if (state == STATE_PLAY_E) {
    m_playerState = STATE_PLAY_E;
    return;
  }
  const int current = getCurrTimeSecond();
  if (getTotalTimeSecond() - current <= kUserStopMargin || current == 0) return;
  if (state == STATE_STOP_E) {
    m_bStop = true;
    m_bIsPlaying = false;
    if (savePlayHistory() != 0) VLOG(LOG_COLOR_FAIL, "savePlayHistory failed\n");
  } else if (state == STATE_PAUSE_E) {
    m_bStop = true;
  }
}

bool CDlnaPlayer::park_() {
  if (m_bIsPlaying) {
    bool photo;
    {
      std::lock_guard<std::mutex> lk(m_elmLock);
      photo = m_currElm.mediaType == MEDIA_PHOTO;
    }
    if (!photo) sendPause_();
    m_playerState = STATE_PAUSE_E;
  } else {
    sendStop_();
    setCurrTime("00:00:00");
    setTotalTime("00:00:00");
    resetTrackChoices_();
    m_playerState = STATE_STOP_E;
  }
  FlowStage = 6;
  // Let the monitors poll the renderer while the loop sleeps.
  withMonitor_([](myMonitor::CMyMonitor<CDlnaPlayer>& m) { m.wake(); });
  pthread_mutex_lock(&m_waitMutex);
  m_bStuckOnWaitLock = true;
  pthread_cond_broadcast(&m_parkedCond);
  while (m_bStop && !m_bExit) pthread_cond_wait(&m_waitCond, &m_waitMutex);
  m_bStuckOnWaitLock = false;
  pthread_mutex_unlock(&m_waitMutex);
  withMonitor_([](myMonitor::CMyMonitor<CDlnaPlayer>& m) { m.m_paused = true; });
  FlowStage = 7;
  if (m_bExit) {
    m_bExit = false;
    return true;
  }
  return false;
}
