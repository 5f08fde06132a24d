// CAirplayPlayer: construction and teardown, the URL of a track, the HLS
// interruption, and the operations that the command threads call. The loop
// is in airplayFlow.cpp.
#include "backends/airplayPlayer.h"

#include <net/if.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/rootPath.h"
#include "foundation/shellRunner.h"
#include "foundation/sysUtil.h"
#include "player/playerLoop.h"

using vessord::Response;
using vessord::ShellLine;

// The end of the loop's thread, shared with the thread so that the thread
// never touches the player once process() has returned.
struct airplayLoopEnd_s {
  std::mutex m;
  std::condition_variable c;
  bool done = false;
};

namespace {

constexpr int kForbidden = 403;
constexpr int kForbiddenResult = -23;
constexpr int kSeekStep = 5;  // the device is sent seeks on this grid of seconds

struct loopArg_s {
  CAirplayPlayer* player;
  std::shared_ptr<airplayLoopEnd_s> end;
};

void* loop_entry(void* a) {
  std::unique_ptr<loopArg_s> arg(static_cast<loopArg_s*>(a));
  arg->player->process();
  std::lock_guard<std::mutex> lk(arg->end->m);
  arg->end->done = true;
  arg->end->c.notify_all();
  return nullptr;
}

bool empty_text(const char* text) { return text == nullptr || *text == '\0'; }
std::string text_or_empty(const char* text) { return text ? text : ""; }

// The photo's file path on the appliance, "" when it cannot be found.
std::string photo_file(const playlistElm_s& elm) {
  std::string path;
  if (elm.contentType == CONTENT_DBID) {
    if (CPlayer::dbIDtToFilePath(elm.content, elm.mediaType, path) != 0) path.clear();
  } else if (elm.contentType == CONTENT_OBJECT) {
    if (CPlayer::upnpObjectToFilePath(elm.upnpObjID.empty() ? elm.content : elm.upnpObjID, path) != 0) path.clear();
  } else {
    path = elm.content;
  }
  return path;
}

}  // namespace

CAirplayPlayer::CAirplayPlayer(unsigned type, const char* renderID, const char* deviceName, const char* title,
                               const char* appType, const char* ip, int port, const airplayTiming_s& timing)
    : CPlayer(type, renderID, deviceName, title, appType),
      CThread(THREAD_TYPE_DETACHED),
      m_timing(timing),
      m_loopEnd(std::make_shared<airplayLoopEnd_s>()) {
  std::string machine;
  if (vessord::shell_read(ShellLine("/bin/uname -m", {}), machine, 128) == 0)
    m_bIsArm = machine.find("arm") != std::string::npos || machine.find("Arm") != std::string::npos ||
               machine.find("ARM") != std::string::npos;
  pthread_mutex_init(&m_waitMutex, nullptr);
  pthread_cond_init(&m_waitCond, nullptr);
  pthread_cond_init(&m_parkedCond, nullptr);
  m_airplayService.update(getRenderID(), text_or_empty(ip), port, getDeviceName());
  srand(static_cast<unsigned>(time(nullptr)));
  m_sid = static_cast<unsigned long long>(rand());
  start();
}

CAirplayPlayer::~CAirplayPlayer() {
  VLOG(LOG_COLOR_NOTFOUND, "destroy AirPlay player %s\n", getRenderID().c_str());
  m_bIsPlaying = false;
  m_bStop = true;
  nudgeSleep_();
  waitParked_(true);
  pthread_mutex_lock(&m_waitMutex);
  m_bExit = true;
  pthread_cond_broadcast(&m_waitCond);
  pthread_mutex_unlock(&m_waitMutex);
  {
    std::unique_lock<std::mutex> lk(m_loopEnd->m);
    m_loopEnd->c.wait(lk, [this] { return m_loopEnd->done; });
  }
  pthread_cond_destroy(&m_parkedCond);
  pthread_cond_destroy(&m_waitCond);
  pthread_mutex_destroy(&m_waitMutex);
}

int CAirplayPlayer::start() {
  auto* arg = new loopArg_s{this, m_loopEnd};
  int rc = startThread_(&loop_entry, arg);
  if (rc != 0) {
    delete arg;
    std::lock_guard<std::mutex> lk(m_loopEnd->m);
    m_loopEnd->done = true;
  }
  return rc;
}

std::string CAirplayPlayer::contentPath() const {
  std::lock_guard<std::mutex> lk(m_pathLock);
  return m_contentPath;
}

std::string CAirplayPlayer::hlsPath() const {
  std::lock_guard<std::mutex> lk(m_pathLock);
  return m_hlsPath;
}

// ---- the URL of a track ----

int CAirplayPlayer::getContentPath_(playlistElm_s& elm, std::string& path, int* isTranscode, const char* pos, int aid,
                                    int sid, const char* externalSubtitle, const char* /*sseek*/, const char* ssize,
                                    const char* scolor, int autoSub) {
  path.clear();
  const bool read = getPlaylistElmByIndex(elm, -1) == 0;
  if (read) {
    if (sid < 0 && empty_text(externalSubtitle) && autoSub != 0) findAutoPlugSubtitle(elm);
    else clearAutoPlugSubtitle();
  }

  if (read && elm.mediaType == MEDIA_PHOTO) {
    // The 800-pixel thumbnail beside the photo is enough for a screen.
    const std::string file = photo_file(elm);
    const size_t slash = file.rfind('/');
    if (!file.empty() && slash != std::string::npos) {
      path = file.substr(0, slash) + "/.@__thumb/s800" + file.substr(slash + 1);
      FILE* thumb = std::fopen(vessord::root_path(path).c_str(), "rb");
      if (thumb) std::fclose(thumb);
      else path = file;
    }
    return path.empty() ? -1 : 0;
  }

  std::string url;
  bool found = false;
  if (read) {
    char ifName[IFNAMSIZ + 1] = {};
    const char* iface = get_if_by_ip(getIP().c_str(), ifName) == 0 ? ifName : nullptr;
    if (elm.contentType == CONTENT_FILE)
      found = filePathToUrl(elm.content, url, "AppleTV", iface) == 0;
    else if (elm.contentType == CONTENT_DBID)
      found = dbIDToUrl(elm.content, elm.mediaType, url, "AppleTV", iface) == 0;
    else
      found = upnpObjectToUrl(elm.upnpObjID.empty() ? elm.content : elm.upnpObjID, url, "AppleTV", iface) == 0;
  }

  if (found) {
    setTotalTime(elm);
    char sidText[32];
    std::snprintf(sidText, sizeof sidText, "%llu", m_sid);
    if (elm.mediaType == MEDIA_AUDIO) {
      path = url + "?sid=" + sidText;
      return 0;
    }
    if (isTranscode) *isTranscode = url.find("Transcode") != std::string::npos ? 1 : 0;
    // The media server reads the first path component: "APPLE" asks it for
    // the device's stream of the item.
    const size_t scheme = url.find("http://");
    const size_t first = scheme == std::string::npos ? scheme : url.find('/', 8);
    const size_t second = first == std::string::npos ? first : url.find('/', first + 1);
    if (second != std::string::npos) {
      url.replace(first + 1, second - first - 1, "APPLE");
      unsigned tid;
      {
        // The loop and a command thread may both build a URL.
        std::lock_guard<std::mutex> lk(m_tidLock);
        tid = gen_tid();
      }
      path = url + "?sid=" + sidText + ",tid=" + std::to_string(tid);
      if (!empty_text(pos)) path += ",seek=" + std::to_string(time_convert_to_second(pos));
      if (aid > 0) path += ",atrack=" + std::to_string(aid);
      if (sid < 0 && empty_text(externalSubtitle)) {
        path += std::string(",autoSub=") + (autoSub != 0 ? "1" : "0");
      } else {
        if (sid >= 0) path += ",strack=" + std::to_string(sid);
        if (!empty_text(externalSubtitle))
          path += ",externalSubtitle=" + m_airplayService.urlEscape(externalSubtitle);
        path += ",autoSub=0";
        if (!empty_text(ssize)) path += std::string(",ssize=") + ssize;
        if (!empty_text(scolor)) path += std::string(",scolor=") + scolor;
      }
    }
  }

  std::lock_guard<std::mutex> lk(m_pathLock);
  m_contentPath = path;
  if (m_hlsPath.empty()) m_hlsPath = path;
  return path.empty() ? -1 : 0;
}

int CAirplayPlayer::stopHLSTranscoding() {
  std::string url = hlsPath();
  const size_t apple = url.find("APPLE");
  if (url.empty() || apple == std::string::npos) return 1;
  url.replace(apple, 5, "INTERRUPT_HLS");
  // The URL carries a client's subtitle options: one that would leave its
  // quotes builds no line.
  if (vessord::can_stand_in_single_quotes(url)) {
    ShellLine line("curl -L '%s' > /dev/null", {url});
    VLOG(LOG_COLOR_AGENT, "%s\n", line.display().c_str());
    vessord::shell_system(line);
  } else {
    VLOG(LOG_COLOR_FAIL, "refused: curl -L '%s' > /dev/null\n", url.c_str());
  }
  std::lock_guard<std::mutex> lk(m_pathLock);
  if (m_hlsPath == m_contentPath) m_hlsPath.clear();
  else m_hlsPath = m_contentPath;
  return 0;
}

// ---- the park and its waits ----

void CAirplayPlayer::nudgeSleep_() {
  std::lock_guard<std::mutex> lk(m_sleepLock);
  m_sleepCond.notify_all();
}

void CAirplayPlayer::wakeLoop_(bool always) {
  pthread_mutex_lock(&m_waitMutex);
  if (m_bStuckOnWaitLock) {
    if (always) m_wakeAsked = true;
    pthread_cond_signal(&m_waitCond);
  }
  pthread_mutex_unlock(&m_waitMutex);
}

bool CAirplayPlayer::waitParked_(bool insist) {
  auto loopDone = [this] {
    std::lock_guard<std::mutex> lk(m_loopEnd->m);
    return m_loopEnd->done;
  };
  pthread_mutex_lock(&m_waitMutex);
  while ((!m_bStuckOnWaitLock || m_wakeAsked) && !loopDone()) {
    if (!m_bStop) {
      if (!insist) break;
      m_bStop = true;
      nudgeSleep_();
    }
    const timespec until = deadline_in_ms(100);
    pthread_cond_timedwait(&m_parkedCond, &m_waitMutex, &until);
  }
  const bool parked = m_bStuckOnWaitLock;
  pthread_mutex_unlock(&m_waitMutex);
  return parked;
}

void CAirplayPlayer::resetTrackChoices_() {
  setCurrTime("00:00:00");
  setTotalTime("00:00:00");
  setSeekTime("00:00:00");
  setAudioTrack(0);
  setSubtitleTrack(-1);
  std::lock_guard<std::mutex> lk(m_fieldLock);
  m_externalSubtitle.clear();
  m_tmpSubtitle.clear();
  m_sseek.clear();
  m_ssize.clear();
  m_scolor.clear();
  m_sencoding.clear();
}

int CAirplayPlayer::truncatedSeek_(const char* position) {
  const int seconds = time_convert_to_second(position);
  return seconds - seconds % kSeekStep;
}

// ---- what the command threads call ----

int CAirplayPlayer::play() {
  Response r;
  const int rc = m_airplayService.getPosInfo(r);
  if (rc != 0) return rc;
  if (r.m_response == kForbidden) return kForbiddenResult;
  if (getPlaylistSize() == 0) return -1;
  const playerState_e state = getPlayerState();
  if (state == STATE_PLAY_E) return 0;
  int result = 0;
  if (state == STATE_PAUSE_E) {
    Response resume;
    result = m_airplayService.play(resume);
  }
  m_bStop = false;
  wakeLoop_(false);
  return result;
}

int CAirplayPlayer::pause() {
  m_bStop = true;
  const playerState_e state = getPlayerState();
  if (state == STATE_PAUSE_E || state == STATE_STOP_E) return 0;
  nudgeSleep_();
  waitParked_(false);
  return 0;
}

int CAirplayPlayer::stop(bool /*release*/) {
  savePlayHistory();
  m_bIsPlaying = false;
  m_bStop = true;
  const playerState_e state = getPlayerState();
  if (state == STATE_STOP_E) return 0;
  // A paused loop is woken once, to go through its stop branch.
  if (state == STATE_PAUSE_E) wakeLoop_(true);
  nudgeSleep_();
  waitParked_(false);
  return 0;
}

int CAirplayPlayer::next() {
  if (!stepCurrTrackWrapping(true)) return -1;
  ++m_trackRequests;  // before the flag: see startTrack_
  m_bIsPlaying = false;
  play();
  return 0;
}

int CAirplayPlayer::previous() {
  if (!stepCurrTrackWrapping(false)) return -1;
  ++m_trackRequests;  // before the flag: see startTrack_
  m_bIsPlaying = false;
  play();
  return 0;
}

int CAirplayPlayer::seek(const char* position) {
  if (getPlaylistSize() == 0 || getPlayerState() == STATE_STOP_E) return 0;
  std::string external, tmp;
  getExternalSubtitle(external);
  tmp = readField_(m_tmpSubtitle);
  if (getAudioTrack() >= 1 || getSubtitleTrack() >= 0 || !external.empty()) {
    // A track or subtitle in use means a new transcoded stream.
    const std::string sseek = getSseek(), ssize = getSsize(), scolor = getScolor(), sencoding = getSencoding();
    const bool transcoded = !tmp.empty();
    setAudioAndSubtitle(position, getAudioTrack(), getSubtitleTrack(), transcoded ? tmp.c_str() : external.c_str(),
                        sseek.c_str(), ssize.c_str(), scolor.c_str(), sencoding.c_str(),
                        transcoded ? external.c_str() : nullptr, 0);
  } else if (position) {
    Response r;
    m_airplayService.seek(r, static_cast<float>(truncatedSeek_(position)));
  }
  return 0;
}

int CAirplayPlayer::seekWithAudioAndSubtitle(const char* position) {
  Response r;
  return m_airplayService.seek(r, static_cast<float>(truncatedSeek_(position)));
}

int CAirplayPlayer::setAudioAndSubtitle(const char* position, int aid, int sid, const char* externalSubtitle,
                                        const char* sseek, const char* ssize, const char* scolor,
                                        const char* sencoding, const char* realSubtitlePath, int autoSub) {
  // Arm appliances offer no track change.
  if (m_bIsArm || position == nullptr) return -1;
  if (getPlaylistSize() == 0 || getPlayerState() == STATE_STOP_E) return -1;
  stopHLSTranscoding();
  playlistElm_s elm;
  std::string path;
  if (getContentPath_(elm, path, nullptr, nullptr, aid, sid, externalSubtitle, sseek, ssize, scolor, autoSub) != 0 ||
      elm.mediaType != MEDIA_VIDEO)
    return -1;
  // The device starts the new stream from its beginning, then seeks.
  Response r;
  m_airplayService.stop(r);
  if (m_airplayService.setContentUrl(r, path) != 0) return -1;
  m_playerState = STATE_PLAY_E;
  m_bIsPlaying = true;
  m_bStop = false;
  wakeLoop_(false);  // from a pause: the loop follows the new stream
  setAudioTrack(aid);
  setSubtitleTrack(sid);
  {
    std::lock_guard<std::mutex> lk(m_fieldLock);
    if (!empty_text(realSubtitlePath)) {
      m_externalSubtitle = realSubtitlePath;
      if (!empty_text(externalSubtitle)) m_tmpSubtitle = externalSubtitle;
    } else {
      m_externalSubtitle = text_or_empty(externalSubtitle);
    }
    m_sseek = text_or_empty(sseek);
    m_ssize = text_or_empty(ssize);
    m_scolor = text_or_empty(scolor);
    m_sencoding = text_or_empty(sencoding);
  }
  seekWithAudioAndSubtitle(position);
  return 0;
}

void CAirplayPlayer::debugDump(std::string& out) {
  char buf[512];
  std::snprintf(buf, sizeof buf,
                "\nFlowStage          :%d\nm_bStop            :%d\nm_bExit            :%d\n"
                "m_bStuckOnWaitLock :%d\nm_bIsPlaying       :%d\nm_bChangeToNext    :%d\n",
                FlowStage.load(), m_bStop.load(), m_bExit.load(), m_bStuckOnWaitLock.load(), m_bIsPlaying.load(),
                m_bChangeToNext.load());
  out += buf;
  VLOG(LOG_COLOR_DUMP, "%s", buf);
}
