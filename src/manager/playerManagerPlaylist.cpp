// CPlayerManager: keeping the queues of every player of a playlist in step
// with the store when a playlist command changes it.
//
// A barrier waits for a command then running on the player to end and holds
// nothing afterwards: the queue work runs with the player unlocked.
#include <cstring>

#include "foundation/log.h"
#include "manager/playerManager.h"
#include "playlist/SqlitePlaylist.h"

namespace {

CSqlitePlaylist* store() { return CGlobalsSingleton<CSqlitePlaylist>::get(); }

void barrier(pthread_mutex_t& lock) { ThreadSingleLock wait(lock); }

bool same_title(CPlayer* p, const char* title) {
  const std::string own = p->getPlaylistTitle();
  return !own.empty() && title && own == title;
}

bool is_shuffled_mode(playMode_e mode) {
  return mode == SHUFFLE || mode == SHUFFLE_REPEAT || mode == SHUFFLE_REPEAT_ONE;
}

}  // namespace

void CPlayerManager::delPlaylist(const char* title, const char* appType) {
  if (!title || !appType) return;
  ThreadReadLock registry(m_rwLock);
  for (CPlayer* p : m_playerVec) {
    if (!same_title(p, title) || p->getAppType() != appType) continue;
    barrier(p->m_lock);
    p->stop(true);
    p->clearPlayQueue(true);
  }
}

void CPlayerManager::addLastItemInPlayQueue(const char* title, int position) {
  ThreadReadLock registry(m_rwLock);
  for (CPlayer* p : m_playerVec) {
    if (!same_title(p, title)) continue;
    barrier(p->m_lock);
    const size_t n = p->getPlaylistSize();
    playlistElm_s elm;
    // Through the store's lock: the connection is shared by every thread.
    if (store()->getPlaylistElmByIndex(elm, p->getPlaylistID(), static_cast<int>(n)) != 0) continue;
    playQueueItem_s item;
    item.order = n;
    item.uuid = static_cast<unsigned long>(elm.uuid);
    p->addItemToPlayQueue(item);
    if (position >= 0) p->reorderPlayQueue(n, static_cast<size_t>(position));
  }
}

void CPlayerManager::addLastItemInPlayQueueWithNoLock(int playlistID, int position) {
  // No caller holds the registry here; the safe version takes the read lock
  // so the walk never meets a vector being changed.
  ThreadReadLock registry(m_rwLock);
  for (CPlayer* p : m_playerVec) {
    if (p->getPlaylistID() != playlistID) continue;
    const size_t n = p->getPlaylistSize();
    playlistElm_s elm;
    if (store()->getPlaylistElmByIndex(elm, playlistID, static_cast<int>(n)) != 0) continue;
    playQueueItem_s item;
    item.order = n;
    item.uuid = static_cast<unsigned long>(elm.uuid);
    p->addItemToPlayQueue(item);
    if (position >= 0) p->reorderPlayQueue(n, static_cast<size_t>(position));
  }
}

void CPlayerManager::delItemFromPlayQueue(const char* title, unsigned long uuid) {
  ThreadReadLock registry(m_rwLock);
  for (CPlayer* p : m_playerVec) {
    barrier(p->m_lock);
    if (!same_title(p, title)) continue;
    playQueueItem_s item;
    item.order = 0;
    item.uuid = uuid;
    p->delItemFromPlayQueue(item);
  }
}

void CPlayerManager::reorderPlayQueue(const std::string& title, size_t from, size_t to) {
  if (title.empty()) return;
  ThreadReadLock registry(m_rwLock);
  for (CPlayer* p : m_playerVec) {
    barrier(p->m_lock);
    if (!same_title(p, title.c_str())) continue;
    const size_t cur = p->getCurrTrack();
    p->reorderPlayQueue(from, to);
    const size_t size = p->getPlaylistSize();

    if (is_shuffled_mode(p->getPlayMode())) {
      // cur is an order number: find its new place again.
      bool known = true;
      size_t order = 0;
      if (cur == from) order = to;
      else if (cur == to && from <= to) order = to - 1;
      else if (cur == to) order = to + 1;
      else if (from < cur && cur < to) order = cur - 1;
      else if (to < cur && cur < from) order = cur + 1;
      else known = false;
      if (!known || p->setCurrTrackIdByOrder(static_cast<unsigned>(order)) != 0)
        VLOG(LOG_COLOR_FAIL, "setCurrTrackIdByOrder failed\n");
      continue;
    }

    size_t next = cur;
    if (from == to) next = cur;
    else if (cur == from) next = to;
    else if (from < cur && cur < to) next = cur - 1;
    else if (to < cur && cur < from) next = cur + 1;
    else if (cur == to && from > to) next = to + 1;
    // cur == to with from below to: unchanged, the moved element becomes
    // current.
    if (next != cur && next < size) p->setCurrTrackIndex(next);
  }
}

void CPlayerManager::updatePlayModeByPlaylist(const char* title, const char* appType) {
  if (!title || !appType) return;
  ThreadReadLock registry(m_rwLock);
  for (CPlayer* p : m_playerVec) {
    ThreadSingleLock own(p->m_lock);
    if (p->getPlayMode() != SHUFFLE || !same_title(p, title) || p->getAppType() != appType) continue;
    // Back to plain order, then a new shuffle.
    p->setPlayMode(NORMAL, 0, 0);
    p->setPlayMode(SHUFFLE, 0, 0);
  }
}

void CPlayerManager::updateAssociatePlayQueue(int playlistID) {
  ThreadReadLock registry(m_rwLock);
  std::vector<playlistElm_s> rows;
  for (CPlayer* p : m_playerVec) {
    if (p->getPlaylistID() != playlistID) continue;
    ThreadSingleLock own(p->m_lock);
    size_t n = p->getPlaylistSize();
    const int total = store()->getSizeOfPlaylist(playlistID);
    if (total < 0) return;
    if (n > static_cast<size_t>(total)) {
      // Longer than the playlist: rebuilt from the first row.
      p->clearPlayQueue(false);
      n = 0;
    }
    if (store()->getPlaylistElmsByPage(rows, playlistID, static_cast<int>(n), total - static_cast<int>(n)) == 0) {
      size_t order = n;
      for (const playlistElm_s& row : rows) {
        playQueueItem_s item;
        item.order = order++;
        item.uuid = static_cast<unsigned long>(row.uuid);
        p->addItemToPlayQueue(item);
      }
    }
    rows.clear();
  }
}

void CPlayerManager::lockPlayersByPlaylistId(int playlistID) {
  // Under the read lock too: the walk must not meet a vector being changed.
  ThreadReadLock registry(m_rwLock);
  ThreadSingleLock guard(m_playersLock);
  for (CPlayer* p : m_playerVec)
    if (p->getPlaylistID() == playlistID) pthread_mutex_lock(&p->m_lock);
}

void CPlayerManager::unlockPlayersByPlaylistId(int playlistID) {
  ThreadReadLock registry(m_rwLock);
  ThreadSingleLock guard(m_playersLock);
  for (CPlayer* p : m_playerVec)
    if (p->getPlaylistID() == playlistID) pthread_mutex_unlock(&p->m_lock);
}
