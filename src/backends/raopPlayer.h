// The player of an AirPlay audio speaker (RAOP). The streaming is done by a
// child process, raop_play, one per player, started at the first play() and
// driven by short text datagrams over a pair of Unix-domain sockets in /tmp.
// The child reports little beyond whether it is paused, so the player keeps
// its own clock: each track's length comes from the duration probe, the loop
// counts the seconds played and moves on when the count reaches the length.
//
// Threads: the loop (process(), in raopFlow.cpp) hands each track to the
// child, keeps the clock, asks the child's state once a pass and restarts a
// child that died. Nothing is cancelled: the loop parks, is told to leave
// by m_bExit, and the destructor waits for it through m_loopEnd.
//
// Lock rules: m_socketMutex guards the socket, the child and everything sent
// on it (a "state" question together with its reply); m_waitMutex guards
// the park (its wait, the wake and park counters). m_waitMutex is never
// taken while waiting for m_socketMutex the other way round: the loop takes
// m_waitMutex only for the park and the pass's wait.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string>

#include "foundation/thread.h"
#include "player/player.h"

// The waits of the player. The defaults are those of the appliance; tests
// shorten them.
struct raopTiming_s {
  unsigned passMs = 1000;       // one pass of the loop: one second of the clock
  unsigned readyWaitMs = 1000;  // one wait for the child's socket to appear
  unsigned readyWaits = 30;     // how many of them
  unsigned transportMs = 1000;  // after "file ...", with the socket held
  unsigned failMs = 1000;       // before a failed start is cleaned up
  unsigned replyMs = 2000;      // the longest wait for the answer to "state"
  unsigned quitMs = 2000;       // for the child to end after "quit" or signal 15
};
typedef raopTiming_s raopTiming_t;

class PlayerLoopEnd;

class CRaopPlayer : public CPlayer, public CThread {
 public:
  // The child is not started here; the loop starts parked.
  CRaopPlayer(unsigned type, const char* renderID, const char* deviceName, const char* title, const char* appType,
              bool encrypted, const char* renderIp, int renderPort, const raopTiming_s& timing = raopTiming_s());
  ~CRaopPlayer() override;

  int play() override;
  int stop(bool closeRender) override;
  int pause() override;
  int next() override;
  int previous() override;
  int seek(const char* position) override;
  int setAudioAndSubtitle(const char*, int, int, const char*, const char*, const char*, const char*, const char*,
                          const char*, int) override;
  int setVolume(int volume) override;
  int getVolume() override;
  bool isPlayerExist() override { return true; }
  using CPlayer::isPlayerExist;
  void process() override;
  int start() override;

  // The track's length as hh:mm:ss from the duration probe: 0, or -1 when
  // the probe gave none. `path` is in its quoted form (getContentPath_).
  static int _get_track_druation(const char* path, std::string& duration);

  // The child's process id (0 before the first start) and whether the loop
  // is parked now, for tests and the log.
  pid_t childPid() const { return m_childPid.load(); }
  bool isParked() const { return m_parks.load() > 0 && m_bStuckOnWaitLock.load(); }
  bool isConnected() const { return m_bConnected.load(); }
  int elapsed() const { return m_elapsed.load(); }

 private:
  // The child and its sockets (raopPlayer.cpp), with m_socketMutex held.
  int connectRaopRender_();
  void closeRaopRender_();
  // Sends one datagram: write()'s result, -1 without a socket.
  ssize_t send_(const std::string& text);
  // The failure path of a start: the player is finished.
  int failConnect_();
  // Ends the child if it still runs and reaps it; `quitSent` gives it the
  // grace of quitMs before signal 15.
  void endChild_(bool quitSent);
  // True while the child has not ended (it is reaped here when it has).
  bool childRunning_();
  void closeSocket_();

  // Tracks (raopPlayer.cpp).
  int getContentPath_(playlistElm_s& elm, std::string& path);
  int findValidTrackPath_(playlistElm_s& elm, std::string& path);
  int setAvTransport_(const std::string& path);
  bool isRaopPlayerStatePause_();

  // The loop's stages and park (raopFlow.cpp).
  bool startTrack_();  // false: go to the park
  void trackClock_(int& pauseCnt);
  bool changeTrack_(int& pauseCnt);
  bool testChild_(int& missingCnt);
  void passSleep_();
  bool park_();
  void resetTimes_();
  void wakeLoop_();

  std::atomic<bool> m_bEncrypted;
  int m_socketFd = -1;  // guarded by m_socketMutex
  int m_renderPort;
  std::atomic<int> m_volume{85};
  std::atomic<int> m_elapsed{0};
  std::atomic<bool> m_bStop{true};
  std::atomic<bool> m_bExit{false};
  std::atomic<bool> m_bStuckOnWaitLock{false};
  std::atomic<bool> m_bIsPlaying{false};
  std::atomic<bool> m_bChangeToNext{false};
  std::atomic<bool> m_bConnected{false};
  std::atomic<pid_t> m_childPid{0};
  bool m_childReaped = true;  // guarded by m_socketMutex
  pthread_mutex_t m_waitMutex;
  pthread_cond_t m_waitCond;
  pthread_mutex_t m_socketMutex;
  std::string m_renderIp;

  unsigned m_wakes = 0;              // guarded by m_waitMutex
  std::atomic<unsigned> m_parks{0};  // changed under m_waitMutex
  // Counts stop(), next() and previous(): a track handed over while one of
  // them came is not taken as playing, and the queue is not moved twice.
  std::atomic<unsigned> m_requests{0};
  unsigned m_requestsAtStart = 0;  // loop thread only
  // A failed start finished the player: play() answers -1 from then on.
  std::atomic<bool> m_bFinished{false};
  std::atomic<bool> m_bDying{false};
  raopTiming_s m_timing;
  std::shared_ptr<PlayerLoopEnd> m_loopEnd;
};
