// The state that every render device's player shares: identity, playlist,
// play queue and position, time, audio and subtitle choices; plus the static
// translations of a playlist element through the media library's agent.
// Back-ends derive from CPlayer and CThread (in that order).
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "playlist/playlistTypes.h"

class XMLNode;
class CPlayerManager;

enum playerState_e { STATE_PLAY_E = 0, STATE_STOP_E = 1, STATE_PAUSE_E = 2, STATE_UNKNOW = 3 };

enum playMode_e {
  NORMAL = 0,
  REPEAT = 1,
  SHUFFLE = 2,
  SHUFFLE_REPEAT = 3,
  REPEAT_ONE = 4,
  SHUFFLE_REPEAT_ONE = 5
};

// The words of a state and a mode in replies and commands; "UNKNOW" for a
// value outside the tables.
const char* player_state_word(int state);
const char* play_mode_word(int mode);
// The mode for a command's word; false (mode untouched) for an unknown word.
bool play_mode_from_word(const char* word, playMode_e& mode);

// Player type bits: what a device can do, and which class drives it.
enum : uint32_t {
  PLAYER_TYPE_VIDEO = 0x1,
  PLAYER_TYPE_AUDIO = 0x2,
  PLAYER_TYPE_PHOTO = 0x4,
  PLAYER_TYPE_SOUND_ANALOG = 0x100,
  PLAYER_TYPE_SOUND_HDMI = 0x200,
  PLAYER_TYPE_SOUND_USB = 0x400,
  PLAYER_TYPE_DLNA = 0x10000,
  PLAYER_TYPE_AIRPLAY = 0x20000,
  PLAYER_TYPE_RAOP = 0x40000,
  PLAYER_TYPE_ALSA = 0x80000,
  PLAYER_TYPE_CHROMECAST = 0x100000,
  PLAYER_TYPE_KINOVU = 0x200000
};

// One place of the play queue: the order number to play there, and the row
// that stood there when the queue was built.
struct playQueueItem_s {
  size_t order;
  unsigned long uuid;
};
typedef playQueueItem_s playQueueItem_t;

// A snapshot of one player for the status report.
struct playerStatus_s {
  uint32_t currTrack = 0;
  uint32_t totalTracks = 0;
  uint32_t playerType = 0;
  uint32_t playMode = 0;
  uint32_t playerState = 0;
  std::string deviceName;
  std::string playlistTitle;
  std::string appType;
  std::string currTime;
  std::string playlistOwner;
  std::string playlistTag;
  std::string totalTime;
  std::string trackType;
  std::string trackContentType;
  std::string trackContent;
  std::string currentExternalSubtitle;
  int currentAudioTrack = 0;
  int currentSubtitleTrack = -1;
  std::string currentAutoSubtitle;
  std::string subtitleSize;
  std::string subtitleColor;
  std::string subtitleSeek;
  std::string subtitleEncoding;
};
typedef playerStatus_s playerStatus_t;

// The status words of an element's media and content type: "audio",
// "photo", "video", "file", "object", "dbID", else "unknow".
const char* track_type_word(int mediaType);
const char* track_content_type_word(int contentType);

class CPlayer {
 public:
  CPlayer(unsigned int type, const char* renderID, const char* deviceName, const char* title, const char* appType);
  virtual ~CPlayer();
  CPlayer(const CPlayer&) = delete;
  CPlayer& operator=(const CPlayer&) = delete;

  virtual int play() = 0;
  // `release` asks the back-end to let go of the device.
  virtual int stop(bool release) = 0;
  virtual int pause() = 0;
  virtual int next() = 0;
  virtual int previous() = 0;
  virtual int seek(const char* position) = 0;
  virtual int setAudioAndSubtitle(const char* position, int aid, int sid, const char* externalSubtitle,
                                  const char* sseek, const char* ssize, const char* scolor, const char* sencoding,
                                  const char* realSubtitlePath, int autoSub) = 0;
  virtual int setVolume(int volume);
  virtual int getVolume();
  virtual bool isPlayerExist();
  virtual bool isPlayerExist(const XMLNode& node);
  virtual int setAttributes(const char* attrs);
  virtual void monitor(bool on);
  virtual void debugDump(std::string& out);
  // Remembers the volume before muting, process-wide, and restores it.
  virtual int setMute(bool mute);
  // A player without volume control (-1) reads as muted.
  bool isMute();

  // Identity and playlist.
  const std::string& getDeviceName() const { return m_deviceName; }
  const std::string& getRenderID() const { return m_renderID; }
  const std::string& getAppType() const { return m_appType; }
  const std::string& getOwner() const { return m_owner; }
  const std::string& getTag() const { return m_tag; }
  // Empty when no playlist is set.
  std::string getPlaylistTitle() const { return readField_(m_playlistTitle); }
  unsigned getPlayerType() { return m_playerType; }
  playerState_e getPlayerState() { return m_playerState.load(); }
  playMode_e getPlayMode() { return m_playMode.load(); }
  int getPlaylistID() { return static_cast<int>(m_playlistID); }
  size_t getPlaylistSize() const;
  int getSlideShowDelay() { return m_slideShowDelay; }
  void setSlideShowDelay(int delay) { m_slideShowDelay = delay; }
  void setIP(const char* ip) { writeField_(m_ip, ip ? ip : ""); }
  std::string getIP() const { return readField_(m_ip); }

  // Audio and subtitle choices.
  void setAudioTrack(int track) { m_audioTrack = track; }
  int getAudioTrack() { return m_audioTrack; }
  void setSubtitleTrack(int track) { m_subtitleTrack = track; }
  int getSubtitleTrack() { return m_subtitleTrack; }
  void setExternalSubtitle(char* path) { writeField_(m_externalSubtitle, path ? path : ""); }
  void getExternalSubtitle(std::string& out) const { out = readField_(m_externalSubtitle); }
  void resetExternalSubtitle() { writeField_(m_externalSubtitle, ""); }
  int resetAudioAndSubtitle();
  std::string getAutoPlugSubtitle() const { return readField_(m_autoPlugSubtitle); }
  void clearAutoPlugSubtitle() { writeField_(m_autoPlugSubtitle, ""); }
  std::string getSsize() const { return readField_(m_ssize); }
  std::string getScolor() const { return readField_(m_scolor); }
  std::string getSseek() const { return readField_(m_sseek); }
  std::string getSencoding() const { return readField_(m_sencoding); }

  // Time. With one colon only the hours count: "12:34" is 43200 seconds.
  static int hhmmssToSecond(const char* text);
  static void secondToHHMMSS(int seconds, std::string& out);
  // The device's position plus the seek base.
  int getCurrTimeSecond();
  int getCurrTimeSecondWithOutSeek();
  // getCurrTimeSecond() as hh:mm:ss, the text the status report shows.
  std::string getCurrTime();
  // The time texts are written by a player's own thread and read by the
  // command threads: each access goes through m_fieldLock.
  std::string getTotalTime() const { return readField_(m_totalTime); }
  int getTotalTimeSecond();
  void setCurrTime(const std::string& time) { writeField_(m_currTime, time); }
  void setCurrTime(int seconds);
  void setTotalTime(const std::string& time) { writeField_(m_totalTime, time); }
  void setSeekTime(const std::string& time) { writeField_(m_seekTime, time); }
  std::string getSeekTime() const { return readField_(m_seekTime); }
  // Asks the media library for the element's duration; blocks while it runs.
  void setTotalTime(const playlistElm_s& elm);

  // Ids.
  static unsigned get_random();
  unsigned gen_tid();
  void intToString(int value, std::string& out);

  // Play queue and track navigation.
  void setPlaylist(const std::string& title, const std::string& appType);
  void setPlayMode(playMode_e mode, size_t start = 0, size_t end = 0);
  void addItemToPlayQueue(playQueueItem_s& item);
  void delItemFromPlayQueue(playQueueItem_s& item);
  void reorderPlayQueue(size_t from, size_t to);
  void clearPlayQueue(bool full);
  int setCurrTrack(unsigned track);
  int setCurrTrackByContent(const char* content);
  int setCurrTrackIdByOrder(unsigned order);
  // True to go on playing, false at the end of the list.
  bool changeToNextTrack();
  // The order number now playing, by the mode's reading of m_currTrack.
  unsigned getCurrTrack();
  unsigned getCurrTrackIndex() const;
  // -1 reads the current element.
  int getPlaylistElmByIndex(playlistElm_s& out, int index);
  int getPlaylistElmByOrder(playlistElm_s& out, int order);

  // Content addressing through the media library's agent. 0, or -1 with the
  // output left as it was.
  static int dbIDToUpnpObjectID(const std::string& dbID, int mediaType, std::string& objectID);
  static int upnpObjectToFilePath(const std::string& objectID, std::string& path);
  static int upnpObjectToFilePath(const std::string& objectID, std::string& path, int& startTime, int& duration);
  static int filePathToObjectID(const std::string& path, std::string& objectID);
  static int upnpObjectToUrl(const std::string& objectID, std::string& url, const char* clientType,
                             const char* interface);
  static int filePathToUrl(const std::string& path, std::string& url, const char* clientType,
                           const char* interface);
  static int browseByUpnpObjectID(const std::string& objectID, std::string& xml, const char* clientType,
                                  int startingIndex, int requestedCount, const char* interface);
  static int dbIDtToFilePath(const std::string& dbID, int mediaType, std::string& path);
  static int dbIDtToFilePath(const std::string& dbID, int mediaType, std::string& path, int& startTime,
                             int& duration);
  static int dbIDToUrl(const std::string& dbID, int mediaType, std::string& url, const char* clientType,
                       const char* interface);
  static int browseByDbID(const std::string& dbID, int mediaType, std::string& xml, const char* clientType,
                          int startingIndex, int requestedCount, const char* interface);
  static int browseByFilePath(const std::string& path, std::string& xml, const char* clientType,
                              int startingIndex, int requestedCount, const char* interface);
  // The path resolved on disk (under the test root, if one is set), with
  // each single quote written as '\'' for a single-quoted shell word.
  static int getRealFilePath(const std::string& path, std::string& real);

  // Subtitles and play history.
  int findAutoPlugSubtitle(playlistElm_s& elm);
  std::string convertFullSubtitle(const std::string& path);
  std::string getUserId(std::string& name);
  int savePlayHistory();

 protected:
  friend class CPlayerManager;

  // The queue for back-ends: a copy, so that no lock is held while they
  // talk to a device.
  std::vector<playQueueItem_s> getPlayQueue() const;
  void setCurrTrackIndex(size_t index);
  // One step of m_currTrack through the queue, read as the mode reads it
  // (a position in shuffled modes, an order number otherwise); false, and
  // nothing moved, at either end.
  bool moveCurrTrack(bool forward);
  // The step of next() and previous(): one place on, round to the other
  // end past either end. False, and nothing moved, for an empty queue.
  bool stepCurrTrackWrapping(bool forward);
  // Replaces the whole queue; m_currTrack stays as it is.
  void setPlayQueue(std::vector<playQueueItem_s> queue);

  void loadPlaylist_();
  static bool isShuffledMode_(playMode_e mode) { return mode == SHUFFLE || mode == SHUFFLE_REPEAT; }
  // The order number of the current element, for the store.
  int currOrder_() const;
  // Expect m_queueLock held.
  int currOrderLocked_() const;
  void shuffleLocked_(size_t start, size_t end);

  // The string fields below that a player's thread writes and the command
  // threads read go through these two, under m_fieldLock.
  std::string readField_(const std::string& field) const {
    std::lock_guard<std::mutex> lk(m_fieldLock);
    return field;
  }
  void writeField_(std::string& field, const std::string& value) {
    std::lock_guard<std::mutex> lk(m_fieldLock);
    field = value;
  }

  long m_playlistID;
  uint32_t m_playerType;
  std::atomic<playMode_e> m_playMode;
  // Set by a player's thread, read by the command threads.
  std::atomic<playerState_e> m_playerState;
  std::atomic<int> m_slideShowDelay;
  std::string m_appType;
  std::string m_renderID;
  std::string m_deviceName;
  // m_fieldLock guards the time texts, the title, the address, the subtitle
  // choices and texts: never held across anything but the copy.
  mutable std::mutex m_fieldLock;
  std::string m_playlistTitle;
  std::string m_currTime;
  std::string m_totalTime;
  std::string m_owner;
  std::string m_tag;
  std::string m_ip;
  std::string m_autoPlugSubtitle;
  std::string m_seekTime;
  std::atomic<int> m_audioTrack;
  std::atomic<int> m_subtitleTrack;
  std::string m_externalSubtitle;
  std::string m_tmpSubtitle;
  uint32_t m_tid;
  pthread_mutex_t m_lock;
  std::string m_sseek;
  std::string m_ssize;
  std::string m_scolor;
  std::string m_sencoding;

  // The last volume above 0 that any player read before muting.
  static std::atomic<int> s_lastVolume;

 private:
  // The play queue and the place in it: a command thread grows, shrinks
  // and reorders the queue while the player's thread walks it. Held only
  // for the read or the change, never across a back-end's stop/play or a
  // device call.
  mutable std::mutex m_queueLock;
  std::vector<playQueueItem_s> m_playQueue;
  size_t m_currTrack;
};
