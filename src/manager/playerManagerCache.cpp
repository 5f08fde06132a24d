// CPlayerManager: the render cache, the making of players from it, the
// scan thread that parks players whose device has gone, and the reclaim of
// parked players.
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <exception>

#include "foundation/log.h"
#include "manager/playerManager.h"

namespace {
constexpr int kParkAfterMisses = 4;
constexpr int kScanSeconds = 10;
}  // namespace

// ---- render cache ------------------------------------------------------------

void CPlayerManager::addRenderInCache(const char* renderID, const char* deviceName, const char* ip, unsigned type,
                                      const char* encryption, int port, const std::string& card,
                                      const std::string& device) {
  renderCacheInfo_s info;
  info.deviceName = deviceName ? deviceName : "";
  info.ip = ip ? ip : "";
  info.type = type;
  info.port = port;
  if (!card.empty()) info.card = card;
  if (!device.empty()) info.device = device;
  info.encrypted = encryption && std::strcmp(encryption, "rsa") == 0;
  info.valid = true;
  info.failCount = 0;
  m_renderCache[renderID ? renderID : ""] = info;
}

int CPlayerManager::searchRenderInCache_(const std::string& renderID, renderCacheInfo_s& out) {
  auto it = m_renderCache.find(renderID);
  if (it == m_renderCache.end()) return -1;
  out = it->second;
  return 0;
}

int CPlayerManager::searchRenderInCache(const std::string& renderID, renderCacheInfo_s& out) {
  ThreadReadLock registry(m_rwLock);
  return searchRenderInCache_(renderID, out);
}

void CPlayerManager::invalidRenderCache_() {
  for (auto& entry : m_renderCache) entry.second.valid = false;
}

void CPlayerManager::invalidRenderCacheOfType_(unsigned bit) {
  for (auto& entry : m_renderCache)
    if (entry.second.type & bit) entry.second.valid = false;
}

// ---- making and reclaiming players ---------------------------------------------

CPlayer* CPlayerManager::addPlayer_(int& err, const std::string& renderID, const std::string& title,
                                    const std::string& appType) {
  if (renderID.empty()) return nullptr;

  for (auto it = m_playerReclaimCacheVec.begin(); it != m_playerReclaimCacheVec.end(); ++it) {
    CPlayer* p = *it;
    if (p->getRenderID() != renderID) continue;
    VLOG(LOG_COLOR_NOTICE, ">>>> get player(%s) from m_playerReclaimCacheVec\n", renderID.c_str());
    // The cache record is not read on this path: the address stays empty.
    p->setIP("");
    m_playerReclaimCacheVec.erase(it);
    m_playerVec.push_back(p);
    if (!title.empty() && !appType.empty()) {
      ThreadSingleLock own(p->m_lock);
      p->setPlaylist(title, appType);
      err = 0;
    }
    return p;
  }

  renderCacheInfo_s info;
  if (searchRenderInCache_(renderID, info) != 0) {
    VLOG(LOG_COLOR_FAIL, "Render %s doesn't exist\n", renderID.c_str());
    return nullptr;
  }

  const playerClass_s* cls = nullptr;
  for (const playerClass_s& row : m_classes) {
    if (info.type & row.bit) {
      cls = &row;
      break;
    }
  }
  if (!cls) {
    VLOG(LOG_COLOR_SOCKET, "Unkonw Type %s\n", renderID.c_str());
    return nullptr;
  }

  CPlayer* p = nullptr;
  try {
    p = cls->make(info, renderID, title, appType, err);
  } catch (const std::exception&) {
    VLOG(LOG_COLOR_FAIL, "Could not create player %s\n", renderID.c_str());
    return nullptr;
  }
  if (!p) return nullptr;
  { ThreadSingleLock barrier(p->m_lock); }
  p->setIP(info.ip.c_str());
  m_playerVec.push_back(p);
  err = 0;
  return p;
}

int CPlayerManager::setPlaylist(const char* dev, const char* title, const char* appType) {
  const std::string renderID = dev ? dev : "";
  const bool kinovu = renderID.compare(0, 6, "KINOVU") == 0;
  int result = -4;
  {
    ThreadReadLock registry(m_rwLock);
    if (CPlayer* p = findCreatedPlayer_(renderID)) {
      try {
        ThreadSingleTryLock busy(p->m_lock);
        if (p->getPlayerType() & PLAYER_TYPE_KINOVU) {
          // The appliance's HDMI output serves one player at a time.
          for (CPlayer* other : m_playerVec)
            if (other->getPlayerType() & PLAYER_TYPE_KINOVU) other->stop(true);
          sleep(1);
        }
        if (title && appType) p->setPlaylist(title, appType);
        return 0;
      } catch (const std::exception&) {
        return -19;
      }
    }
    if (kinovu) {
      for (CPlayer* other : m_playerVec)
        if (other->getPlayerType() & PLAYER_TYPE_KINOVU) other->stop(true);
      sleep(1);
    }
  }

  // A new or reclaimed player changes the vectors, which every reader walks:
  // that takes the write lock, held only while the player is made.
  CPlayer* made = nullptr;
  bool fresh = false;
  {
    ThreadWriteLock registry(m_rwLock);
    if (findCreatedPlayer_(renderID)) {
      // Another connection made it meanwhile.
      result = 0;
    } else {
      const size_t parked = m_playerReclaimCacheVec.size();
      made = addPlayer_(result, renderID, title ? title : "", appType ? appType : "");
      fresh = made && m_playerReclaimCacheVec.size() == parked;
      if (!made) VLOG(LOG_COLOR_FAIL, "addPlayer() ... fail\n");
    }
  }
  if (fresh && m_settleSeconds) {
    // The new player's thread gets time to start before anyone commands it.
    ThreadReadLock registry(m_rwLock);
    sleep(m_settleSeconds);
  }
  return result;
}

// ---- parking -------------------------------------------------------------------

void CPlayerManager::park_(size_t index, bool quietMonitor) {
  CPlayer* p = m_playerVec[index];
  if (quietMonitor) p->monitor(false);
  p->stop(true);
  m_playerReclaimCacheVec.push_back(p);
  m_playerVec.erase(m_playerVec.begin() + static_cast<long>(index));
}

void CPlayerManager::removePlayer_(const std::string& renderID) {
  for (size_t i = 0; i < m_playerVec.size(); ++i) {
    if (m_playerVec[i]->getRenderID() != renderID) continue;
    park_(i, false);
    return;
  }
}

void CPlayerManager::scanPlayers() {
  ThreadWriteLock registry(m_rwLock);
  // The index moves on after a park too: the player that slid into the
  // place waits for the next scan.
  for (size_t i = 0; i < m_playerVec.size(); ++i) {
    CPlayer* p = m_playerVec[i];
    ThreadSingleLock own(p->m_lock);
    const std::string name = p->getDeviceName();
    auto it = m_renderCache.find(p->getRenderID());
    if (it == m_renderCache.end()) {
      VLOG(LOG_COLOR_STATE, "[remove] >>> player:%s not in the renderCache\n", name.c_str());
      park_(i, true);
      continue;
    }
    renderCacheInfo_s& entry = it->second;
    if (entry.valid) {
      entry.failCount = 0;
      continue;
    }
    ++entry.failCount;
    VLOG(LOG_COLOR_STATE, "[remove] >>> player:%s Cache hit fail, and it faile %d times.\n", name.c_str(),
         entry.failCount);
    if (entry.failCount >= kParkAfterMisses) park_(i, true);
  }
}

void CPlayerManager::invalidPlayerCollection() {
  if (pthread_rwlock_trywrlock(&m_rwLock) != 0) return;
  try {
    for (size_t i = 0; i < m_playerVec.size(); ++i)
      if (!m_playerVec[i]->isPlayerExist()) removePlayer_(m_playerVec[i]->getRenderID());
  } catch (...) {
    VLOG(LOG_COLOR_FAIL, "invalidPlayerCollection ... err\n");
  }
  // Released here rather than by the caller's next read guard: the same
  // hold, without a guard that unlocks what it did not lock.
  pthread_rwlock_unlock(&m_rwLock);
}

void CPlayerManager::invalidPlayerCollection_() {
  for (size_t i = 0; i < m_playerVec.size(); ++i) {
    CPlayer* p = m_playerVec[i];
    if (p->isPlayerExist()) continue;
    const std::string renderID = p->getRenderID();
    VLOG(LOG_COLOR_FALLBACK, "Remove %s \n", renderID.c_str());
    removePlayer_(renderID);
  }
}

// ---- the scan thread -------------------------------------------------------------

void CPlayerManager::process() {
  for (;;) {
    {
      ThreadSingleLock guard(m_scanMutex);
      if (m_bExit) return;
    }
    scanPlayers();
    ThreadSingleLock guard(m_scanMutex);
    struct timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += kScanSeconds;
    while (!m_bExit && pthread_cond_timedwait(&m_scanCond, &m_scanMutex, &until) == 0) {
    }
    if (m_bExit) return;
  }
}

void CPlayerManager::onExit() {
  // The last touch of this object by its thread: the destructor waits for it.
  ThreadSingleLock guard(m_scanMutex);
  m_bScanDone = true;
  pthread_cond_broadcast(&m_scanCond);
}
