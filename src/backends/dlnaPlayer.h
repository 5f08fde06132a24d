// The player of a DLNA renderer. Every action on the renderer is one run of
// the media library's agent (/usr/bin/brelctl) and a read of its XML reply.
//
// Threads: the player's loop (process(), in dlnaFlow.cpp) walks the play
// queue, hands each track to the renderer, polls it once a second and moves
// on at a track's end; two monitor threads poll the renderer while the loop
// is parked, so that a resume pressed on the renderer resumes the player.
// All three end before the destructor returns: nothing is cancelled, the loop
// parks, is told to leave by m_bExit, and the destructor waits for it.
//
// Lock rules: m_waitMutex guards the park (the wait and the flags the wait
// depends on); m_monitorLock guards the m_monitor pointer, never held while
// the monitor is destroyed; m_elmLock guards m_currElm. None is held across
// an agent call, and none is held while another is taken.
#pragma once

#include <pthread.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/monitor.h"
#include "foundation/thread.h"
#include "player/player.h"

// The waits of the player. The defaults are those of the appliance; tests
// shorten them so that a pass of the loop does not take a second.
struct dlnaTiming_s {
  unsigned passMs = 1000;           // one pass of the running phase
  unsigned retryMs = 1000;          // between Busy retries and Stop passes
  unsigned transitionPollUs = 50000;
  unsigned seekWaitUs = 500000;     // waiting for playback before a seek
  unsigned monitorSeconds = 1;      // the monitor's interval
};
typedef dlnaTiming_s dlnaTiming_t;

class PlayerLoopEnd;

class CDlnaPlayer : public CPlayer, public CThread, public myMonitor::CMyMonitorFunctor {
 public:
  CDlnaPlayer(unsigned type, const char* renderID, const char* deviceName, const char* title, const char* appType,
              const dlnaTiming_s& timing = dlnaTiming_s());
  ~CDlnaPlayer() override;

  int play() override;
  int stop(bool release) override;
  int pause() override;
  int next() override;
  int previous() override;
  int seek(const char* position) override;
  int setAudioAndSubtitle(const char*, int, int, const char*, const char*, const char*, const char*, const char*,
                          const char*, int) override {
    return -1;
  }
  int setVolume(int volume) override;
  int getVolume() override;
  bool isPlayerExist() override { return true; }
  using CPlayer::isPlayerExist;
  void monitor(bool on) override;
  void debugDump(std::string& out) override;
  void process() override;
  void callback() override;
  // Starts the loop's thread on an entry that never touches the player
  // after process() has returned.
  int start() override;

  // 1 when a seek must go through the transcoding path (the renderer's URL
  // is a transcoding one, or a video has a default subtitle, then put into
  // `subtitle`), else 0.
  int isNeedTranscode(std::string& subtitle);

  int flowStage() const { return FlowStage.load(); }
  bool isArm() const { return m_bIsArm; }
  bool isXBMC() const { return m_bIsXBMC; }
  bool isParked() const { return m_bStuckOnWaitLock.load(); }

 private:
  // The agent's commands (dlnaPlayer.cpp). None takes a lock.
  int getRenderState_();
  int isRanderStop_();
  int sendAvTransport_(const playlistElm_s& elm, const char* position, int audioTrack, int subtitle,
                       const char* externalSubtitle);
  int setAvTransport_(const char* position, int stopFirst, int audioTrack, int subtitle,
                      const char* externalSubtitle);
  int sendPlay_();
  int sendPause_();
  void sendStop_();
  // The agent line for this renderer's id: false (nothing to run) when the
  // id could not stand in its quotes.
  bool renderLine_(const char* format, std::string& reply, size_t cap, const char* tag, const char* node,
                   std::string& value);

  // The loop's stages and park (dlnaFlow.cpp).
  struct flowLocals_s;
  void startTrack_(flowLocals_s& f);
  void pollTrack_(flowLocals_s& f);
  void pollPosition_(flowLocals_s& f);
  void changeTrack_(flowLocals_s& f);
  void passSleep_(flowLocals_s& f);
  void renderStateTest_(flowLocals_s& f);
  // True when the thread must end.
  bool park_();
  void resetTrackChoices_();

  // Waits (bounded by the agent's calls) until the loop is parked; false if
  // it was resumed meanwhile (m_bStop cleared by someone else).
  bool waitParked_(bool insist);
  void wakeLoop_();
  void sleepMs_(unsigned ms);
  // Runs fn(monitor) under m_monitorLock when the monitor is still there.
  template <class F>
  void withMonitor_(F fn) {
    std::lock_guard<std::mutex> lk(m_monitorLock);
    if (m_monitor) fn(*m_monitor);
  }

  std::atomic<bool> m_bStop{true};
  std::atomic<bool> m_bExit{false};
  std::atomic<bool> m_bStuckOnWaitLock{false};
  std::atomic<bool> m_bIsPlaying{false};
  std::atomic<bool> m_bChangeToNext{false};
  int m_delayCount = 0;
  std::atomic<int> m_trackSkipCnt{0};
  bool m_bIsXBMC = false;
  bool m_bIsArm = false;
  std::atomic<bool> m_bTranscode{false};
  std::atomic<bool> m_bSeeking{false};
  pthread_mutex_t m_waitMutex;
  pthread_cond_t m_waitCond;    // wakes the parked loop
  pthread_cond_t m_parkedCond;  // tells the commands that the loop parked
  std::mutex m_elmLock;
  playlistElm_s m_currElm;
  std::mutex m_monitorLock;
  std::unique_ptr<myMonitor::CMyMonitor<CDlnaPlayer>> m_monitor;
  std::atomic<int> FlowStage{0};

  // Counts next()/previous(): a track change asked for while the loop was
  // handing over the old track is not lost when the hand-over ends.
  std::atomic<unsigned> m_trackRequests{0};
  // Destruction has begun: the monitor's callbacks no longer resume.
  std::atomic<bool> m_bDying{false};
  dlnaTiming_s m_timing;
  std::shared_ptr<PlayerLoopEnd> m_loopEnd;
};
