// The player of an AirPlay device. The device talk is the AirPlayService's
// (HTTP over one kept libcurl handle); this class turns a playlist element
// into the URL the device fetches, with the transcoding options in its
// query, and decides from the device's position reports when a track ends.
//
// Threads: the player's loop (process(), in airplayFlow.cpp) walks the play
// queue, polls the device once a pass and moves on at a track's end. It ends
// before the destructor returns: nothing is cancelled, the loop parks, is
// told to leave by m_bExit, and the destructor waits for its end record.
//
// Lock rules: m_waitMutex guards the park (the wait and the wake request);
// m_sleepLock only the pass's sleep; m_pathLock the two URLs; m_tidLock
// only the draw of a tid. None is held across a device request or a shell
// line, and none is held while another is taken.
#pragma once

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "foundation/thread.h"
#include "player/player.h"
#include "services/airPlayService.h"

// The waits of the player. The default is the appliance's; tests shorten it
// so that a pass of the loop does not take a second.
struct airplayTiming_s {
  unsigned passMs = 1000;  // one pass of the running phase
};
typedef airplayTiming_s airplayTiming_t;

struct airplayLoopEnd_s;

class CAirplayPlayer : public CPlayer, public CThread {
 public:
  CAirplayPlayer(unsigned type, const char* renderID, const char* deviceName, const char* title, const char* appType,
                 const char* ip, int port, const airplayTiming_s& timing = airplayTiming_s());
  ~CAirplayPlayer() override;

  int play() override;
  int stop(bool release) override;
  int pause() override;
  int next() override;
  int previous() override;
  int seek(const char* position) override;
  int setAudioAndSubtitle(const char* position, int aid, int sid, const char* externalSubtitle, const char* sseek,
                          const char* ssize, const char* scolor, const char* sencoding, const char* realSubtitlePath,
                          int autoSub) override;
  void debugDump(std::string& out) override;
  void process() override;
  // Starts the loop's thread on an entry that never touches the player
  // after process() has returned.
  int start() override;
  virtual int seekWithAudioAndSubtitle(const char* position);

  // The URL of the current track into `path` (0), or -1 with `path` empty.
  // A photo gets its file path, the "s800" thumbnail preferred.
  int getContentPath_(playlistElm_s& elm, std::string& path, int* isTranscode, const char* pos, int aid, int sid,
                      const char* externalSubtitle, const char* sseek, const char* ssize, const char* scolor,
                      int autoSub);
  // Asks the media server to stop transcoding the stored HLS URL: 1 when
  // there is none, else 0.
  int stopHLSTranscoding();

  int flowStage() const { return FlowStage.load(); }
  bool isArm() const { return m_bIsArm; }
  bool isParked() const { return m_bStuckOnWaitLock.load(); }
  unsigned long long sid() const { return m_sid; }
  std::string contentPath() const;
  std::string hlsPath() const;

 private:
  // The loop's stages and park (airplayFlow.cpp).
  struct flowLocals_s;
  void startTrack_(flowLocals_s& f);
  void pollTrack_(flowLocals_s& f);
  void pollAudio_();
  void pollVideo_();
  void changeTrack_(flowLocals_s& f);
  void passSleep_();
  void leaveRunning_();
  // True when the thread must end.
  bool park_();
  // Times, seek base, tracks and subtitle choices back to a fresh track's.
  void resetTrackChoices_();

  // Waits until the loop is parked with no wake pending; false if it was
  // resumed meanwhile (m_bStop cleared by someone else) and `insist` is
  // false. With `insist`, m_bStop is set again whenever it was cleared.
  bool waitParked_(bool insist);
  // Wakes the parked loop; with `always`, asks for a pass through the loop
  // even though m_bStop stays set (stop from pause).
  void wakeLoop_(bool always);
  // Cuts the pass's sleep short once m_bStop is set.
  void nudgeSleep_();
  static int truncatedSeek_(const char* position);

  std::atomic<bool> m_bStop{true};
  std::atomic<bool> m_bExit{false};
  std::atomic<bool> m_bStuckOnWaitLock{false};
  std::atomic<bool> m_bIsPlaying{false};
  std::atomic<bool> m_bChangeToNext{false};
  int m_delayCount = 0;  // the loop's alone
  bool m_bIsArm = false;
  unsigned long long m_sid = 0;
  pthread_mutex_t m_waitMutex;
  pthread_cond_t m_waitCond;    // wakes the parked loop
  pthread_cond_t m_parkedCond;  // tells the commands that the loop parked
  bool m_wakeAsked = false;     // under m_waitMutex
  std::atomic<int> FlowStage{0};
  mutable std::mutex m_pathLock;
  std::mutex m_tidLock;  // around the base's gen_tid()
  std::string m_contentPath;
  std::string m_hlsPath;
  vessord::AirPlayService m_airplayService;

  // Counts next()/previous(): a track change asked for while the loop was
  // handing the old track over is not lost when the hand-over ends.
  std::atomic<unsigned> m_trackRequests{0};
  std::mutex m_sleepLock;
  std::condition_variable m_sleepCond;
  airplayTiming_s m_timing;
  std::shared_ptr<airplayLoopEnd_s> m_loopEnd;
};
