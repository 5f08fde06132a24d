// CPlayerManager: construction and end, the registry, and the forwarding of
// commands to one player under the registry's read lock and the player's
// try-lock.
#include "manager/playerManager.h"

#include <cstdio>
#include <cstring>
#include <exception>

#include "foundation/log.h"
#include "foundation/xmlParser.h"
#include "foundation/crashDump.h"
#include "foundation/shellRunner.h"

CPlayerManager::CPlayerManager() : CPlayerManager(default_player_classes(), 3) {}

CPlayerManager::CPlayerManager(std::vector<playerClass_s> classes, unsigned settleSeconds)
    : CThread(THREAD_TYPE_DETACHED),
      m_playersLock(),
      m_rwLock(),
      m_classes(std::move(classes)),
      m_settleSeconds(settleSeconds),
      m_scanMutex(),
      m_scanCond() {
  CThread::mutexInit(m_playersLock, MUTEX_ATTR_NORMAL);
  pthread_rwlock_init(&m_rwLock, nullptr);
  CThread::mutexInit(m_scanMutex, MUTEX_ATTR_NORMAL);
  pthread_condattr_t attr;
  pthread_condattr_init(&attr);
  pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
  pthread_cond_init(&m_scanCond, &attr);
  pthread_condattr_destroy(&attr);
}

CPlayerManager::~CPlayerManager() {
  // The scan thread goes first: it walks the vectors this destructor empties.
  if (isStarted()) {
    ThreadSingleLock guard(m_scanMutex);
    m_bExit = true;
    pthread_cond_broadcast(&m_scanCond);
    while (!m_bScanDone) pthread_cond_wait(&m_scanCond, &m_scanMutex);
  }
  for (std::vector<CPlayer*>* vec : {&m_playerVec, &m_playerReclaimCacheVec}) {
    for (CPlayer* p : *vec) {
      if (!p) continue;
      { ThreadSingleLock barrier(p->m_lock); }
      delete p;
    }
    vec->clear();
  }
  pthread_mutex_destroy(&m_playersLock);
  pthread_rwlock_destroy(&m_rwLock);
  pthread_cond_destroy(&m_scanCond);
  pthread_mutex_destroy(&m_scanMutex);
}

void CPlayerManager::sigactionHandler(int sig, siginfo_t* info, void* context) {
  (void)context;
  vessord::handle_daemon_signal(sig, info, __PRETTY_FUNCTION__);
}

// ---- registry ---------------------------------------------------------------

CPlayer* CPlayerManager::findCreatedPlayer_(const std::string& renderID) {
  if (renderID.empty()) return nullptr;
  for (CPlayer* p : m_playerVec)
    if (p->getRenderID() == renderID) return p;
  return nullptr;
}

CPlayer* CPlayerManager::createPlayer_(const char* renderID) {
  return findCreatedPlayer_(std::string(renderID ? renderID : ""));
}

unsigned CPlayerManager::getNumOfPlayer() {
  ThreadReadLock registry(m_rwLock);
  return static_cast<unsigned>(m_playerVec.size());
}

std::string CPlayerManager::getPlayerRenderID(unsigned index) {
  ThreadReadLock registry(m_rwLock);
  return index < m_playerVec.size() ? std::string(m_playerVec[index]->getRenderID()) : std::string();
}

std::string CPlayerManager::getPlayerDeviceName(unsigned index) {
  ThreadReadLock registry(m_rwLock);
  return index < m_playerVec.size() ? std::string(m_playerVec[index]->getDeviceName()) : std::string();
}

unsigned CPlayerManager::getPlayerType(const char* renderID) {
  ThreadReadLock registry(m_rwLock);
  CPlayer* p = findCreatedPlayer_(renderID ? renderID : "");
  return p ? p->getPlayerType() : 0;
}

// ---- forwarding -------------------------------------------------------------

int CPlayerManager::forward(const char* dev, const std::function<int(CPlayer*)>& call) {
  ThreadReadLock registry(m_rwLock);
  CPlayer* p = findCreatedPlayer_(dev ? dev : "");
  if (!p) return -4;
  try {
    // A player working on another command is never waited for.
    ThreadSingleTryLock busy(p->m_lock);
    return call(p);
  } catch (const std::exception&) {
    return -19;
  }
}

int CPlayerManager::play(const char* dev, unsigned) {
  return forward(dev, [](CPlayer* p) { return p->play(); });
}

int CPlayerManager::pause(const char* dev) {
  return forward(dev, [](CPlayer* p) { return p->pause(); });
}

int CPlayerManager::stop(const char* dev) {
  return forward(dev, [](CPlayer* p) { return p->stop(true); });
}

int CPlayerManager::next(const char* dev) {
  return forward(dev, [](CPlayer* p) { return p->next(); });
}

int CPlayerManager::previous(const char* dev) {
  return forward(dev, [](CPlayer* p) { return p->previous(); });
}

int CPlayerManager::seek(const char* dev, const char* position) {
  return forward(dev, [position](CPlayer* p) { return p->seek(position); });
}

int CPlayerManager::setAudioAndSubtitle(const char* dev, const char* position, int aid, int sid,
                                        const char* externalSubtitle, const char* sseek, const char* ssize,
                                        const char* scolor, const char* sencoding, const char* realSubtitlePath,
                                        int autoSub) {
  return forward(dev, [&](CPlayer* p) {
    return p->setAudioAndSubtitle(position, aid, sid, externalSubtitle, sseek, ssize, scolor, sencoding,
                                  realSubtitlePath, autoSub);
  });
}

int CPlayerManager::setTrack(const char* dev, unsigned track) {
  return forward(dev, [track](CPlayer* p) { return p->setCurrTrack(track); });
}

int CPlayerManager::setTrackByContent(const char* dev, const char* content) {
  return forward(dev, [content](CPlayer* p) { return p->setCurrTrackByContent(content); });
}

int CPlayerManager::setSlideShowDelay(const char* dev, int delay) {
  return forward(dev, [delay](CPlayer* p) {
    p->setSlideShowDelay(delay);
    return 0;
  });
}

int CPlayerManager::getVolume(const char* dev) {
  return forward(dev, [](CPlayer* p) { return p->getVolume(); });
}

int CPlayerManager::setVolume(const char* dev, int volume) {
  return forward(dev, [volume](CPlayer* p) { return p->setVolume(volume); });
}

int CPlayerManager::isMute(const char* dev) {
  return forward(dev, [](CPlayer* p) { return p->isMute() ? 1 : 0; });
}

int CPlayerManager::setMute(const char* dev, bool mute) {
  return forward(dev, [mute](CPlayer* p) { return p->setMute(mute); });
}

int CPlayerManager::setPlayMode(const char* dev, playMode_e mode) {
  return forward(dev, [mode](CPlayer* p) {
    p->setPlayMode(mode, 0, 0);
    return 0;
  });
}

int CPlayerManager::getPlayerStatus(const char* dev, playerStatus_s& out) {
  return forward(dev, [&out](CPlayer* p) {
    playlistElm_s elm;
    // A current element that cannot be read leaves the start values, which
    // report "unknow".
    p->getPlaylistElmByOrder(elm, -1);
    out.currTrack = p->getCurrTrack();
    out.totalTracks = static_cast<uint32_t>(p->getPlaylistSize());
    out.playerType = p->getPlayerType();
    out.playMode = static_cast<uint32_t>(p->getPlayMode());
    out.playerState = static_cast<uint32_t>(p->getPlayerState());
    out.deviceName = p->getDeviceName();
    out.playlistTitle = p->getPlaylistTitle();
    out.appType = p->getAppType();
    out.currTime = p->getCurrTime();
    out.playlistOwner = p->getOwner();
    out.playlistTag = p->getTag();
    out.totalTime = p->getTotalTime();
    out.trackType = track_type_word(elm.mediaType);
    out.trackContentType = track_content_type_word(elm.contentType);
    out.trackContent = elm.content;
    p->getExternalSubtitle(out.currentExternalSubtitle);
    out.currentAudioTrack = p->getAudioTrack();
    out.currentSubtitleTrack = p->getSubtitleTrack();
    out.currentAutoSubtitle = p->getAutoPlugSubtitle();
    out.subtitleSize = p->getSsize();
    out.subtitleColor = p->getScolor();
    out.subtitleSeek = p->getSseek();
    out.subtitleEncoding = p->getSencoding();
    return 0;
  });
}

void CPlayerManager::getDebugInfo(const char* dev, XMLNode& out) {
  ThreadReadLock registry(m_rwLock);
  CPlayer* p = findCreatedPlayer_(dev ? dev : "");
  if (!p) return;
  std::string text;
  p->debugDump(text);
  out = XMLNode::createXMLTopNode("root");
  out.addChild("status").addText(text.c_str());
}

int CPlayerManager::setPlayerAttributes(const char* dev, const char* attrs) {
  {
    ThreadReadLock registry(m_rwLock);
    if (findCreatedPlayer_(dev ? dev : "")) {
      // Released before the frame takes its own hold; the player may be
      // parked in between, which then answers -4 as any later command would.
    } else {
      renderCacheInfo_s info;
      if (searchRenderInCache_(dev ? dev : "", info) != 0) return -4;
      int a = -2, b = -2;
      const outputAttributes_s& out = default_output_attributes();
      if (!out.parse || !out.send || out.parse(attrs, &a, &b) != 0) return -1;
      if (a == -2 && b == -2) return -4;
      // The name stands in double quotes on the line.
      if (!vessord::can_stand_in_double_quotes(info.deviceName)) return -1;
      char line[1024];
      std::snprintf(line, sizeof line, "/tmp/vexmpd/bin/mpc -p 8893 setoutputattr \"%s\" %d %d &> /dev/null",
                    info.deviceName.c_str(), b, a);
      return out.send(line);
    }
  }
  return forward(dev, [attrs](CPlayer* p) { return p->setAttributes(attrs); });
}

void CPlayerManager::setDeleting(bool on, const char* title, const char* appType) {
  // Deletions on two connections may cross here.
  ThreadSingleLock guard(m_playersLock);
  m_bDeleting = on;
  if (on) {
    m_deletingTitle = title ? title : "";
    m_deletingAppType = appType ? appType : "";
  } else {
    m_deletingTitle.clear();
    m_deletingAppType.clear();
  }
}
