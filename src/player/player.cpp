// CPlayer: construction, fields, time and ids.
#include "player/player.h"

#include <sys/times.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "foundation/log.h"
#include "foundation/thread.h"
#include "playlist/SqlitePlaylist.h"

std::atomic<int> CPlayer::s_lastVolume{0};

namespace {
const char* const kStateWords[] = {"PLAY", "STOP", "PAUSE", "UNKNOW"};
const char* const kModeWords[] = {"NORMAL", "REPEAT", "SHUFFLE", "SHUFFLE_REPEAT", "REPEAT_ONE", "SHUFFLE_REPEAT_ONE"};
}  // namespace

const char* player_state_word(int state) {
  return state >= 0 && state <= 3 ? kStateWords[state] : "UNKNOW";
}

const char* play_mode_word(int mode) { return mode >= 0 && mode <= 5 ? kModeWords[mode] : "UNKNOW"; }

bool play_mode_from_word(const char* word, playMode_e& mode) {
  if (!word) return false;
  for (int i = 0; i <= 5; ++i) {
    if (std::strcmp(word, kModeWords[i]) == 0) {
      mode = static_cast<playMode_e>(i);
      return true;
    }
  }
  return false;
}

const char* track_type_word(int mediaType) {
  switch (mediaType) {
    case MEDIA_AUDIO: return "audio";
    case MEDIA_PHOTO: return "photo";
    case MEDIA_VIDEO: return "video";
    default: return "unknow";
  }
}

const char* track_content_type_word(int contentType) {
  switch (contentType) {
    case CONTENT_FILE: return "file";
    case CONTENT_OBJECT: return "object";
    case CONTENT_DBID: return "dbID";
    default: return "unknow";
  }
}

CPlayer::CPlayer(unsigned int type, const char* renderID, const char* deviceName, const char* title,
                 const char* appType)
    : m_playlistID(-1),
      m_playerType(type),
      m_playMode(NORMAL),
      m_playerState(STATE_STOP_E),
      m_slideShowDelay(5),
      m_renderID(renderID ? renderID : ""),
      m_deviceName(deviceName ? deviceName : ""),
      m_currTime("00:00:00"),
      m_totalTime("00:00:00"),
      m_seekTime("00:00:00"),
      m_audioTrack(0),
      m_subtitleTrack(-1),
      m_tid(0),
      m_lock(),
      m_currTrack(0) {
  CThread::mutexInit(m_lock, MUTEX_ATTR_NORMAL);
  if (title && appType) {
    m_playlistTitle = title;
    m_appType = appType;
    m_playlistID = CGlobalsSingleton<CSqlitePlaylist>::get()->getPlaylistID(m_playlistTitle, m_appType);
    loadPlaylist_();
  }
}

CPlayer::~CPlayer() {
  VLOG(LOG_COLOR_NOTFOUND, "Player destruct\n");
  pthread_mutex_destroy(&m_lock);
}

int CPlayer::setVolume(int) { return -1; }
int CPlayer::getVolume() { return -1; }
bool CPlayer::isPlayerExist() { return true; }
bool CPlayer::isPlayerExist(const XMLNode&) { return true; }
int CPlayer::setAttributes(const char*) { return -1; }
void CPlayer::monitor(bool) {}
void CPlayer::debugDump(std::string&) {}

int CPlayer::setMute(bool mute) {
  int volume = getVolume();
  if (volume > 0) s_lastVolume = volume;
  return setVolume(mute ? 0 : s_lastVolume.load());
}

bool CPlayer::isMute() { return getVolume() < 1; }

int CPlayer::resetAudioAndSubtitle() {
  resetExternalSubtitle();
  m_audioTrack = 0;
  m_subtitleTrack = -1;
  return -1;
}

int CPlayer::hhmmssToSecond(const char* text) {
  if (!text) return 0;
  char buf[31] = {0};
  std::strncpy(buf, text, 30);
  char* first = std::strchr(buf, ':');
  if (!first) return 0;
  *first = '\0';
  // Unsigned arithmetic: absurd hours from a device wrap, as the 32-bit
  // result does anyway, instead of overflowing.
  unsigned long seconds = static_cast<unsigned long>(std::strtol(buf, nullptr, 10)) * 3600u;
  char* middle = first + 1;
  char* second = std::strchr(middle, ':');
  if (!second) return static_cast<int>(seconds);
  *second = '\0';
  seconds += static_cast<unsigned long>(std::strtol(middle, nullptr, 10)) * 60u;
  seconds += static_cast<unsigned long>(std::strtol(second + 1, nullptr, 10));
  return static_cast<int>(seconds);
}

void CPlayer::secondToHHMMSS(int seconds, std::string& out) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", seconds / 3600, seconds % 3600 / 60, seconds % 60);
  out = buf;
}

int CPlayer::getCurrTimeSecond() {
  std::lock_guard<std::mutex> lk(m_fieldLock);
  return static_cast<int>(static_cast<unsigned>(hhmmssToSecond(m_currTime.c_str())) +
                          static_cast<unsigned>(hhmmssToSecond(m_seekTime.c_str())));
}

int CPlayer::getCurrTimeSecondWithOutSeek() {
  std::lock_guard<std::mutex> lk(m_fieldLock);
  return hhmmssToSecond(m_currTime.c_str());
}

std::string CPlayer::getCurrTime() {
  std::string text;
  secondToHHMMSS(getCurrTimeSecond(), text);
  return text;
}

int CPlayer::getTotalTimeSecond() {
  std::lock_guard<std::mutex> lk(m_fieldLock);
  return hhmmssToSecond(m_totalTime.c_str());
}

void CPlayer::setCurrTime(int seconds) {
  std::string text;
  secondToHHMMSS(seconds, text);
  setCurrTime(text);
}

unsigned CPlayer::get_random() {
  // Each draw is seeded from the clock: the three nearly always agree.
  srand(static_cast<unsigned>(times(nullptr)));
  unsigned a = static_cast<unsigned>(rand());
  srand(static_cast<unsigned>(times(nullptr)));
  unsigned b = static_cast<unsigned>(rand());
  srand(static_cast<unsigned>(times(nullptr)));
  unsigned c = static_cast<unsigned>(rand());
  return c % 1000000000u + (b % 1000000000u + a % 1000000000u) % 1000000000u;
}

unsigned CPlayer::gen_tid() {
  m_tid = get_random();
  return m_tid;
}

void CPlayer::intToString(int value, std::string& out) {
  std::ostringstream ss;
  ss << value;
  out = ss.str();
}
