// The one registry of players: every command reaches a player through it by
// render id, under the registry's read lock and the player's try-lock, and
// players are built here from the render cache when a device is first given
// a playlist. Its thread parks the players whose device left the listings.
//
// Lock order: m_rwLock, then one player's m_lock, then the store's mutex.
#pragma once

#include <pthread.h>

#include <csignal>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "foundation/thread.h"
#include "manager/playerClasses.h"
#include "player/player.h"

class XMLNode;

// What the latest listings said of one device.
struct renderCacheInfo_s {
  uint32_t type = 0;       // player type bits
  int port = 0;            // 7000 where discovery has none to give
  bool encrypted = false;  // the device's encryption word was "rsa"
  std::string deviceName;
  std::string ip;
  std::string card;    // sound card, for PLAYER_TYPE_ALSA
  std::string device;  // sound device on the card, for PLAYER_TYPE_ALSA
  bool valid = false;  // the last listing named this device
  int failCount = 0;   // scans in a row that found valid false
};
typedef renderCacheInfo_s renderCacheInfo_t;

class CPlayerManager : public CThread {
 public:
  // With the daemon's player classes; a new player is given three seconds
  // to start its thread before setPlaylist answers.
  CPlayerManager();
  // With other classes and another settling time (tests).
  CPlayerManager(std::vector<playerClass_s> classes, unsigned settleSeconds);
  // Ends the scan thread (if started), then deletes every player, live and
  // parked, each after any command on it is over.
  ~CPlayerManager() override;

  // The scan thread: every ten seconds, park the players whose device has
  // gone. Started by main with start().
  void process() override;
  // One scan (takes m_rwLock for writing).
  void scanPlayers();

  // Registry.
  CPlayer* findCreatedPlayer_(const std::string& renderID);
  CPlayer* createPlayer_(const char* renderID);
  CPlayer* addPlayer_(int& err, const std::string& renderID, const std::string& title, const std::string& appType);
  void removePlayer_(const std::string& renderID);
  unsigned getNumOfPlayer();
  std::string getPlayerRenderID(unsigned index);
  std::string getPlayerDeviceName(unsigned index);
  unsigned getPlayerType(const char* renderID);
  pthread_rwlock_t& getRWLock() { return m_rwLock; }

  // Forwarding: -4 for no such player, -19 for a busy one.
  int play(const char* dev, unsigned track);
  int pause(const char* dev);
  int stop(const char* dev);
  int next(const char* dev);
  int previous(const char* dev);
  int seek(const char* dev, const char* position);
  int setAudioAndSubtitle(const char* dev, const char* position, int aid, int sid, const char* externalSubtitle,
                          const char* sseek, const char* ssize, const char* scolor, const char* sencoding,
                          const char* realSubtitlePath, int autoSub);
  int setTrack(const char* dev, unsigned track);
  int setTrackByContent(const char* dev, const char* content);
  int setSlideShowDelay(const char* dev, int delay);
  int getVolume(const char* dev);
  int setVolume(const char* dev, int volume);
  int isMute(const char* dev);
  int setMute(const char* dev, bool mute);
  int setPlayMode(const char* dev, playMode_e mode);
  int getPlayerStatus(const char* dev, playerStatus_s& out);
  void getDebugInfo(const char* dev, XMLNode& out);
  int setPlayerAttributes(const char* dev, const char* attrs);

  // Playlists, for every player that plays the playlist concerned.
  int setPlaylist(const char* dev, const char* title, const char* appType);
  void delPlaylist(const char* title, const char* appType);
  void addLastItemInPlayQueue(const char* title, int position);
  void addLastItemInPlayQueueWithNoLock(int playlistID, int position);
  void delItemFromPlayQueue(const char* title, unsigned long uuid);
  void reorderPlayQueue(const std::string& title, size_t from, size_t to);
  void updatePlayModeByPlaylist(const char* title, const char* appType);
  void updateAssociatePlayQueue(int playlistID);
  void lockPlayersByPlaylistId(int playlistID);
  void unlockPlayersByPlaylistId(int playlistID);
  void setDeleting(bool on, const char* title, const char* appType);

  // Render cache. The caller of the `_` operations and of addRenderInCache
  // holds m_rwLock (for writing where the cache or the vectors change).
  void addRenderInCache(const char* renderID, const char* deviceName, const char* ip, unsigned type,
                        const char* encryption, int port, const std::string& card, const std::string& device);
  int searchRenderInCache_(const std::string& renderID, renderCacheInfo_s& out);
  // Marks every entry as not seen by the listing now being merged.
  void invalidRenderCache_();
  // The same for the entries that carry `bit` only.
  void invalidRenderCacheOfType_(unsigned bit);
  void invalidPlayerCollection();
  void invalidPlayerCollection_();

  // Fatal signals (and SIGCHLD once the music daemon's helper installs it).
  static void sigactionHandler(int sig, siginfo_t* info, void* context);

 protected:
  void onExit() override;

 private:
  // The frame of every forwarded command: the read lock, the player by id
  // (-4 when none), its m_lock by try (-19 when busy), then `call`.
  int forward(const char* dev, const std::function<int(CPlayer*)>& call);
  // Moves a live player to the reclaim vector (write lock held).
  void park_(size_t index, bool quietMonitor);
  // The render cache's copy of one device's record, under the read lock; -1
  // when unknown.
  int searchRenderInCache(const std::string& renderID, renderCacheInfo_s& out);

  std::vector<CPlayer*> m_playerVec;
  std::vector<CPlayer*> m_playerReclaimCacheVec;
  std::map<std::string, renderCacheInfo_s> m_renderCache;
  pthread_mutex_t m_playersLock;
  pthread_rwlock_t m_rwLock;
  bool m_bDeleting = false;
  std::string m_deletingTitle;
  std::string m_deletingAppType;

  std::vector<playerClass_s> m_classes;
  unsigned m_settleSeconds;
  // The scan thread's sleep and its end.
  pthread_mutex_t m_scanMutex;
  pthread_cond_t m_scanCond;
  bool m_bExit = false;
  bool m_bScanDone = false;
};
