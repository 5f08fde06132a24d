// The player of one of the box's own sound outputs. It runs a private music
// daemon on a port of its own and drives it with the daemon's client: every
// action is one client line, and the only reply it reads is the text of
// `mpc status`. Tracks go to the daemon one at a time, as the single entry
// of its queue; the play queue itself stays in CPlayer.
//
// Threads: the player's loop (process(), in alsaFlow.cpp) hands each track
// to the daemon, polls its status once a pass and moves on at a track's end.
// Nothing is cancelled: the loop parks, is told to leave by m_bExit, and the
// destructor waits for it before it ends the daemon.
//
// Lock rules: m_waitMutex guards the park (the wait, the park and wake
// counters, the parked flag). It is never held across a client line.
#pragma once

#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>

#include "foundation/thread.h"
#include "player/player.h"

// The waits of the player. The defaults are those of the appliance; tests
// shorten them.
struct alsaTiming_s {
  unsigned startupMs = 2000;  // for the new daemon, before its output is chosen
  unsigned passMs = 1000;     // one pass of the running phase
};
typedef alsaTiming_s alsaTiming_t;

class PlayerLoopEnd;

class CAlsaPlayer : public CPlayer, public CThread {
 public:
  // Chooses a port, starts the private daemon there, chooses the output
  // named `deviceName` and starts the loop. Throws std::runtime_error,
  // before anything runs, for a name that cannot stand on the client's line.
  CAlsaPlayer(unsigned type, const char* renderID, const char* deviceName, const char* title, const char* appType,
              const char* renderIp, const alsaTiming_s& timing = alsaTiming_s());
  ~CAlsaPlayer() override;

  int play() override;
  int stop(bool release) override;
  int pause() override;
  int next() override;
  int previous() override;
  int seek(const char* position) override;
  int setAudioAndSubtitle(const char*, int, int, const char*, const char*, const char*, const char*, const char*,
                          const char*, int) override;
  int setVolume(int volume) override;
  int getVolume() override;
  int setAttributes(const char* attributes) override;
  int setMute(bool mute) override;
  void process() override;
  int start() override;

  // Finds a playable file from the current track on, skipping tracks that
  // have none: 0 with `path` set, -1 when the queue ran out.
  int getNextObjectFilePath(playlistElm_s& elm, std::string& path, int& startOffset, int& duration);
  // Makes `path` the daemon's only queue entry: the add line's result.
  int addFileToMPD(const std::string& path);
  int seekAbs(int seconds);
  // A client line with this player's port as its one number.
  int send_mpd_cmd1(const char* format);
  int acquireOutput() { return 0; }
  static bool isSndDevBusy(const std::string& card, const std::string& device);

  int port() const { return m_port; }
  // The loop has parked at least once and is parked now (the parked flag
  // alone is set before the thread first runs).
  bool isParked() const { return m_parks.load() > 0 && m_bStuckOnWaitLock.load(); }
  const std::string& renderIp() const { return m_renderIp; }

 private:
  // The loop's stages and park (alsaFlow.cpp).
  void startTrack_();
  void pollTrack_();
  void changeTrack_();
  void leaveRunning_();
  void passSleep_();
  // True when the thread must end.
  bool park_();
  void resetTimes_();
  // Runs the status line: 0 with its text, -1 when it could not run.
  int readStatus_(std::string& text);

  // Wakes the parked loop.
  void wakeLoop_();
  // Waits until the loop is parked (or gone); with `since`, until it has
  // parked again after the park count `*since`.
  void waitParked_(const unsigned* since);
  bool onLoopThread_() const;
  void setLoopThread_(bool on);
  // Cuts the running phase's wait short after m_bStop was set.
  void nudgeLoop_();

  std::atomic<bool> m_bStop{true};
  std::atomic<bool> m_bExit{false};
  std::atomic<bool> m_bStuckOnWaitLock{true};
  std::atomic<bool> m_bIsPlaying{false};
  std::atomic<bool> m_bChangeToNext{false};
  std::string m_renderIp;
  pthread_mutex_t m_waitMutex;
  pthread_cond_t m_waitCond;    // wakes the parked loop
  pthread_cond_t m_parkedCond;  // tells the commands that the loop parked
  unsigned m_wakes = 0;         // guarded by m_waitMutex
  std::atomic<unsigned> m_parks{0};  // changed under m_waitMutex
  std::atomic<int> m_startOffset{-1};
  std::atomic<int> m_duration{-1};
  int m_port = 0;
  std::atomic<int> m_savedVolume{-1};
  std::atomic<int> FlowStage{0};
  // Counts next()/previous(): a track's end seen while a command already
  // moved the queue does not move it a second time.
  std::atomic<unsigned> m_trackRequests{0};
  unsigned m_trackRequestsAtStart = 0;  // loop thread only
  std::atomic<bool> m_bDying{false};
  alsaTiming_s m_timing;
  std::shared_ptr<PlayerLoopEnd> m_loopEnd;
};
