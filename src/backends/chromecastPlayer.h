// The player of one Chromecast device. The daemon never speaks to the device
// itself: every action is one run of the media library's device script
// (CVexAirplay::CVexAirplayOpInterface) with the render id. For each track
// the player prepares a URL of the media server (direct play, or a
// transcoding job when a subtitle or an audio track has to be burnt in:
// chromecastMedia.cpp), hands it over with a thumbnail and a title, and
// polls the position once a pass until the track is over. Photos stay up
// for the slide-show delay.
//
// Threads: the player's loop (process(), in chromecastFlow.cpp) starts,
// polls and changes tracks; the command threads set flags and wake it.
// Nothing is cancelled: the loop parks, is told to leave by m_bExit, and
// the destructor waits for it through a shared PlayerLoopEnd.
//
// Lock rules: m_waitMutex guards the park (the wait, the park and wake
// counters, the parked flag); m_urlLock guards the two URLs of the last
// prepared item. Neither is held across a script or a tool. m_prepareLock
// lets one preparation run at a time (the loop's track start and a command
// thread's change of tracks); it is held across the preparation's tools,
// never across a device script; inside it only leaf locks are taken
// (m_urlLock and CPlayer's field and queue locks).
#pragma once

#include <pthread.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/thread.h"
#include "player/player.h"

// The waits of the player. The defaults are those of the appliance; tests
// shorten them.
struct chromecastTiming_s {
  unsigned passMs = 1000;  // one pass of the running phase
};
typedef chromecastTiming_s chromecastTiming_t;

class PlayerLoopEnd;

// Polls in a row that saw position 0, shared by every Chromecast player and
// cleared by any of them: a device has this many passes to begin.
extern std::atomic<int> g_zeroPositionPolls;
constexpr int kZeroPositionPollLimit = 60;

class CChromecast : public CPlayer, public CThread {
 public:
  // `ip` and `port` are taken and not kept: the device script finds the
  // device by its render id.
  CChromecast(uint32_t type, const char* renderID, const char* deviceName, const char* title, const char* appType,
              const char* ip, int port, const chromecastTiming_s& timing = chromecastTiming_s());
  ~CChromecast() override;

  int play() override;
  int stop(bool sendStop) override;
  int pause() override;
  int next() override;
  int previous() override;
  int seek(const char* position) override;
  int setAudioAndSubtitle(const char* position, int aid, int sid, const char* externalSubtitle, const char* sseek,
                          const char* ssize, const char* scolor, const char* sencoding, const char* realSubtitlePath,
                          int autoSub) override;
  void debugDump(std::string& out) override;
  void process() override;
  int start() override;
  // The scrub of seek() alone, without the seeking flag.
  int seekWithAudioAndSubtitle(const char* position);

  // Media preparation (chromecastMedia.cpp).
  int getContentPath_(playlistElm_t& item, std::string& url, std::string& subtitleUrl, const char* seek,
                      int audioTrack, int subtitleTrack, const char* externalSubtitle, const char* sseek,
                      const char* ssize, const char* scolor, int autoSub);
  int isCodecSupported(playlistElm_t& item);
  int isByPass();
  int getTranscodedVideo(playlistElm_t& item);
  int getDefaultSubtitle(playlistElm_t& item, std::string& subtitlePath);
  int getThumbnailAndTitle(playlistElm_t& item, std::string& thumbnail, std::string& title);
  // Ends the transcoding job of the last prepared URL on the media server:
  // 0 when a job was told to end, 1 when there was none to end.
  int stopHLSTranscoding();
  // Asks the media server for the item's own caption track: `subtitleUrl`
  // keeps its URL when the server answers 200, else it is cleared.
  void probeCaptions_(const std::string& url, std::string& subtitleUrl);

  bool isArm() const { return m_bIsArm; }
  std::string contentUrl() const;
  std::string hlsUrl() const;
  // The loop has parked at least once and is parked now.
  bool isParked() const { return m_parks.load() > 0 && m_bStuckOnWaitLock.load(); }
  bool isSilentStop() const { return m_bSilentStop.load(); }
  unsigned parks() const { return m_parks.load(); }

 private:
  // The loop's stages and park (chromecastFlow.cpp).
  void startTrack_(int& failed);
  void pollTrack_(int& polls);
  void changeTrack_(int failed);
  void passSleep_();
  void leaveRunning_();
  // True when the thread must end.
  bool park_();
  void resetTrackState_();
  // Sets the state, with a log line when it changes.
  void setState_(playerState_e state);
  // The play order for a prepared item: the script's result.
  int sendPlay_(const std::string& url, const std::string& thumbnail, const std::string& title);

  void wakeLoop_();
  // Waits until the loop is parked (or gone); with `since`, until it has
  // parked again after the park count `*since`.
  void waitParked_(const unsigned* since);
  void nudgeLoop_();
  bool onLoopThread_() const;
  void setLoopThread_(bool on);

  std::atomic<bool> m_bStop{true};
  std::atomic<bool> m_bPause{true};
  std::atomic<bool> m_bExit{false};
  std::atomic<bool> m_bStuckOnWaitLock{true};
  std::atomic<bool> m_bIsPlaying{false};
  std::atomic<bool> m_bChangeToNext{false};
  std::atomic<int> m_delayCount{0};
  bool m_bIsArm = false;
  std::atomic<bool> m_bSeeking{false};
  pthread_mutex_t m_waitMutex;
  pthread_cond_t m_waitCond;    // wakes the parked loop
  pthread_cond_t m_parkedCond;  // tells the commands that the loop parked
  unsigned m_wakes = 0;         // guarded by m_waitMutex
  std::atomic<unsigned> m_parks{0};
  std::atomic<bool> m_bSilentStop{false};
  std::atomic<int> FlowStage{0};
  std::mutex m_prepareLock;
  mutable std::mutex m_urlLock;
  std::string m_contentUrl;  // guarded by m_urlLock
  std::string m_hlsUrl;      // guarded by m_urlLock
  // Counts next()/previous(): a track's end seen while a command already
  // moved the queue does not move it a second time.
  std::atomic<unsigned> m_trackRequests{0};
  // Counts stop(): a stop that comes while a track is being handed over
  // stays a stop (m_bPause, set for good, would make it a pause).
  std::atomic<unsigned> m_stopRequests{0};
  // The loop thread's own: the item now on the device, the queue moves seen
  // when it began, and the caption URL of the last video prepared.
  playlistElm_s m_item;
  unsigned m_trackRequestsAtStart = 0;
  unsigned m_stopRequestsAtStart = 0;
  std::string m_subtitleUrl;
  chromecastTiming_s m_timing;
  std::shared_ptr<PlayerLoopEnd> m_loopEnd;
};
