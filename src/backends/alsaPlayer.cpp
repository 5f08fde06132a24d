#include "backends/alsaPlayer.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

#include "backends/alsaCommands.h"
#include "backends/alsaOutputs.h"
#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/shellRunner.h"
#include "player/playerLoop.h"

using vessord::send_mpd_cmd;
using vessord::ShellLine;

namespace {

constexpr int kLineBuf = 1024;
constexpr size_t kStatusBuf = 4096;

// Which loop thread is running: stop() called from the loop itself must not
// wait for the loop to park.
thread_local const CAlsaPlayer* t_loopPlayer = nullptr;

// A text as a bare word of the client's line: backslashes before what a
// shell reads specially. "" when the text does not fit or a shell would do
// more with it than pass it on as one word.
std::string bare_word(const std::string& text, const char* prefix = "") {
  std::vector<char> buf(kLineBuf, '\0');
  if (convert_utf8_linux_filepath_2(text.c_str(), buf.data(), kLineBuf) != 0) return "";
  std::string word = std::string(prefix) + buf.data();
  return vessord::can_stand_unquoted(word) ? word : "";
}

}  // namespace

CAlsaPlayer::CAlsaPlayer(unsigned type, const char* renderID, const char* deviceName, const char* title,
                         const char* appType, const char* renderIp, const alsaTiming_s& timing)
    : CPlayer(type, renderID, deviceName, title, appType),
      CThread(THREAD_TYPE_DETACHED),
      m_renderIp(renderIp ? renderIp : ""),
      m_timing(timing),
      m_loopEnd(std::make_shared<PlayerLoopEnd>()) {
  // The output's name stands bare on the client's line; one that a shell
  // would read as more than a name gets no player, and nothing runs.
  const std::string output = bare_word(getDeviceName());
  if (output.empty()) {
    VLOG(LOG_COLOR_FAIL, "refused output name %s\n", getDeviceName().c_str());
    throw std::runtime_error("output name cannot stand on the client's line");
  }
  m_port = vessord::next_mpd_port();
  send_mpd_cmd1("/tmp/vexmpd/bin/mpd --port %d /tmp/vexmpd/vexmusicplayer.conf 1>/dev/null 2>/dev/null");

  pthread_mutex_init(&m_waitMutex, nullptr);
  pthread_cond_init(&m_waitCond, nullptr);
  pthread_cond_init(&m_parkedCond, nullptr);
  usleep(static_cast<useconds_t>(m_timing.startupMs) * 1000);

  char line[kLineBuf] = {0};
  std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d enable only %s &> /dev/null", m_port, output.c_str());
  send_mpd_cmd(line);
  std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d volume %d &> /dev/null", m_port, 100);
  send_mpd_cmd(line);
  CAlsaPlayer::start();  // last: the thread sees a whole player
}

CAlsaPlayer::~CAlsaPlayer() {
  VLOG(LOG_COLOR_NOTFOUND, "destroy ALSA player %s\n", getRenderID().c_str());
  m_bDying = true;
  m_bIsPlaying = false;
  m_bStop = true;
  nudgeLoop_();
  waitParked_(nullptr);
  pthread_mutex_lock(&m_waitMutex);
  m_bExit = true;
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
  m_loopEnd->wait();
  pthread_cond_destroy(&m_parkedCond);
  pthread_cond_destroy(&m_waitCond);
  pthread_mutex_destroy(&m_waitMutex);
  send_mpd_cmd1("/tmp/vexmpd/bin/mpd --port %d --kill /tmp/vexmpd/vexmusicplayer.conf 1>/dev/null 2>/dev/null");
}

int CAlsaPlayer::start() {
  auto* arg = new playerLoopArg_s{this, m_loopEnd};
  int rc = startThread_(&player_loop_entry, arg);
  if (rc != 0) {
    delete arg;
    m_loopEnd->finish();
  }
  return rc;
}

bool CAlsaPlayer::isSndDevBusy(const std::string& card, const std::string& device) {
  return vessord::alsa_snd_dev_busy(card, device);
}

// ---- client lines ----

int CAlsaPlayer::send_mpd_cmd1(const char* format) {
  char line[kLineBuf] = {0};
  std::snprintf(line, sizeof line, format, m_port);
  return send_mpd_cmd(line);
}

int CAlsaPlayer::addFileToMPD(const std::string& path) {
  const std::string word = bare_word(path, "file://");
  if (word.empty()) {
    // A path that would not reach the daemon as it stands fails like a
    // failed add; the track is skipped.
    VLOG(LOG_COLOR_FAIL, "refused path %s\n", path.c_str());
    return -1;
  }
  send_mpd_cmd1("/tmp/vexmpd/bin/mpc -p %d clear &> /dev/null");
  char line[kLineBuf] = {0};
  std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d add %s &> /dev/null", m_port, word.c_str());
  return send_mpd_cmd(line);
}

int CAlsaPlayer::seekAbs(int seconds) {
  char position[32];
  sec_convert_to_hhmmss(seconds, position, sizeof position);
  char line[kLineBuf] = {0};
  std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d seek %s &> /dev/null", m_port, position);
  return send_mpd_cmd(line);
}

int CAlsaPlayer::readStatus_(std::string& text) {
  char line[kLineBuf] = {0};
  std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d status", m_port);
  return vessord::shell_read(ShellLine(line, std::vector<std::string>{}), text, kStatusBuf);
}

// ---- the park and its waits ----

void CAlsaPlayer::wakeLoop_() {
  pthread_mutex_lock(&m_waitMutex);
  ++m_wakes;
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
}

bool CAlsaPlayer::onLoopThread_() const { return t_loopPlayer == this; }

void CAlsaPlayer::setLoopThread_(bool on) { t_loopPlayer = on ? this : nullptr; }

void CAlsaPlayer::nudgeLoop_() {
  pthread_mutex_lock(&m_waitMutex);
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
}

void CAlsaPlayer::waitParked_(const unsigned* since) {
  pthread_mutex_lock(&m_waitMutex);
  auto parked = [&] { return m_bStuckOnWaitLock && (!since || m_parks != *since); };
  while (!parked() && !m_loopEnd->isDone()) {
    const timespec until = deadline_in_ms(100);
    pthread_cond_timedwait(&m_parkedCond, &m_waitMutex, &until);
  }
  pthread_mutex_unlock(&m_waitMutex);
}

// ---- what the command threads call ----

int CAlsaPlayer::play() {
  if (getPlaylistSize() == 0 || m_bDying) return -1;
  if (getPlayerState() == STATE_PLAY_E) return 0;
  if (getPlayerState() == STATE_PAUSE_E) send_mpd_cmd1("/tmp/vexmpd/bin/mpc -p %d play &> /dev/null");
  m_bStop = false;
  wakeLoop_();
  return 0;
}

int CAlsaPlayer::pause() {
  m_bStop = true;
  nudgeLoop_();
  if (getPlayerState() == STATE_PAUSE_E || getPlayerState() == STATE_STOP_E) return 0;
  if (!onLoopThread_()) waitParked_(nullptr);
  return 0;
}

int CAlsaPlayer::stop(bool) {
  m_bIsPlaying = false;
  m_bStop = true;
  nudgeLoop_();
  if (getPlayerState() == STATE_STOP_E) return 0;
  // From the loop itself (no later track has a file): the running phase
  // ends when this returns.
  if (onLoopThread_()) return 0;
  if (getPlayerState() == STATE_PAUSE_E) {
    // The parked loop wakes into its stop branch and parks again.
    pthread_mutex_lock(&m_waitMutex);
    const bool parked = m_bStuckOnWaitLock;
    const unsigned parks = m_parks;
    if (parked) {
      ++m_wakes;
      pthread_cond_broadcast(&m_waitCond);
    }
    pthread_mutex_unlock(&m_waitMutex);
    if (parked) {
      waitParked_(&parks);
      return 0;
    }
  }
  waitParked_(nullptr);
  return 0;
}

int CAlsaPlayer::next() {
  if (!stepCurrTrackWrapping(true)) return -1;
  ++m_trackRequests;
  m_bIsPlaying = false;
  play();
  return 0;
}

int CAlsaPlayer::previous() {
  if (!stepCurrTrackWrapping(false)) return -1;
  ++m_trackRequests;
  m_bIsPlaying = false;
  play();
  return 0;
}

int CAlsaPlayer::seek(const char* position) {
  if (!position || getPlayerState() == STATE_STOP_E) return 0;
  std::string target = position;
  if (m_startOffset >= 1) {
    char buf[32];
    sec_convert_to_hhmmss(hhmmss_convert_to_sec(position) + m_startOffset, buf, sizeof buf);
    target = buf;
  }
  // The position stands bare on the line: one that a shell would read as
  // more than one plain word is not sent.
  if (!vessord::can_stand_unquoted(target) || target.empty() || target[0] == '-') {
    VLOG(LOG_COLOR_FAIL, "refused position %s\n", target.c_str());
    return 0;
  }
  char line[kLineBuf] = {0};
  std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d seek %s &> /dev/null", m_port, target.c_str());
  send_mpd_cmd(line);
  return 0;
}

int CAlsaPlayer::setAudioAndSubtitle(const char*, int, int, const char*, const char*, const char*, const char*,
                                     const char*, const char*, int) {
  VLOG(LOG_COLOR_FAIL, "[%s][%d]: >>> Need to implement AlsaPlayer::setAudioAndSubtitle <<<\n", __FUNCTION__,
       __LINE__);
  return 0;
}

int CAlsaPlayer::setVolume(int volume) {
  if (volume < 0 || volume > 100) return -1;
  m_savedVolume = volume == 0 ? 1 : -1;
  char line[kLineBuf] = {0};
  std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d volume %d &> /dev/null", m_port, volume);
  send_mpd_cmd(line);
  return 0;
}

int CAlsaPlayer::getVolume() {
  std::string text;
  if (readStatus_(text) != 0) return -1;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find_first_of("\r\n", at);
    if (end == std::string::npos) end = text.size();
    if (text.compare(at, 7, "volume:") == 0) {
      size_t w = text.find_first_not_of(" \t", at + 7);
      if (w == std::string::npos || w >= end) return -1;
      size_t wEnd = text.find_first_of(" \t", w);
      if (wEnd == std::string::npos || wEnd > end) wEnd = end;
      const std::string word = text.substr(w, wEnd - w);
      if (word.size() < 2 || word.back() != '%') return -1;
      return static_cast<int>(std::strtol(word.c_str(), nullptr, 10));
    }
    at = text.find_first_not_of("\r\n", end);
    if (at == std::string::npos) break;
  }
  return -1;
}

int CAlsaPlayer::setMute(bool mute) {
  char line[kLineBuf] = {0};
  if (mute && m_savedVolume < 0) {
    const int volume = getVolume();
    if (static_cast<unsigned>(volume) > 100)
      m_savedVolume = 100;
    else if (volume != 0)
      m_savedVolume = volume;
    std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d volume %d &> /dev/null", m_port, 0);
    send_mpd_cmd(line);
  } else if (!mute && m_savedVolume > 0) {
    const int volume = m_savedVolume > 100 ? 100 : m_savedVolume.load();
    std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d volume %d &> /dev/null", m_port, volume);
    send_mpd_cmd(line);
    m_savedVolume = -1;
  }
  return 0;
}

int CAlsaPlayer::setAttributes(const char* attributes) {
  int sampleRate = -2, dsdPass = -2;
  if (vessord::ParseMpdAttr(attributes, &sampleRate, &dsdPass) != 0) return -1;
  if (sampleRate == -2 && dsdPass == -2) return -1;
  // The name stands in double quotes on the line.
  if (!vessord::can_stand_in_double_quotes(getDeviceName())) {
    VLOG(LOG_COLOR_FAIL, "refused output name %s\n", getDeviceName().c_str());
    return -1;
  }
  char line[kLineBuf] = {0};
  std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p %d setoutputattr \"%s\" %d %d &> /dev/null", m_port,
                getDeviceName().c_str(), dsdPass, sampleRate);
  const int result = send_mpd_cmd(line);
  send_mpd_cmd("/tmp/vexmpd/bin/mpc -p 8893 reloadsettings");
  return result;
}
