// CPlayer: the play queue and the walk through it by play mode.
//
// The queue says in which order to visit the playlist's rows; the rows stay
// in the store. In SHUFFLE and SHUFFLE_REPEAT m_currTrack is a position in
// the queue; in every other mode it is itself the order number to play.
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "foundation/thread.h"
#include "player/player.h"
#include "playlist/SqlitePlaylist.h"

namespace {

CSqlitePlaylist* store() { return CGlobalsSingleton<CSqlitePlaylist>::get(); }

constexpr uint32_t kStopKeepsDevice = PLAYER_TYPE_RAOP | PLAYER_TYPE_CHROMECAST | PLAYER_TYPE_KINOVU;
constexpr unsigned kMaxContentSearch = 4000;
constexpr unsigned kContentSearchPage = 500;

}  // namespace

size_t CPlayer::getPlaylistSize() const {
  std::lock_guard<std::mutex> lk(m_queueLock);
  return m_playQueue.size();
}

unsigned CPlayer::getCurrTrackIndex() const {
  std::lock_guard<std::mutex> lk(m_queueLock);
  return static_cast<unsigned>(m_currTrack);
}

std::vector<playQueueItem_s> CPlayer::getPlayQueue() const {
  std::lock_guard<std::mutex> lk(m_queueLock);
  return m_playQueue;
}

void CPlayer::setPlayQueue(std::vector<playQueueItem_s> queue) {
  std::lock_guard<std::mutex> lk(m_queueLock);
  m_playQueue.swap(queue);
}

void CPlayer::setCurrTrackIndex(size_t index) {
  std::lock_guard<std::mutex> lk(m_queueLock);
  m_currTrack = index;
}

bool CPlayer::stepCurrTrackWrapping(bool forward) {
  std::lock_guard<std::mutex> lk(m_queueLock);
  const size_t size = m_playQueue.size();
  if (size == 0) return false;
  if (forward)
    m_currTrack = m_currTrack + 1 >= size ? 0 : m_currTrack + 1;
  else
    m_currTrack = m_currTrack == 0 || m_currTrack >= size ? size - 1 : m_currTrack - 1;
  return true;
}

bool CPlayer::moveCurrTrack(bool forward) {
  std::lock_guard<std::mutex> lk(m_queueLock);
  const size_t size = m_playQueue.size();
  if (forward) {
    if (m_currTrack + 1 >= size) return false;
    ++m_currTrack;
    return true;
  }
  if (m_currTrack == 0 || m_currTrack >= size) return false;
  --m_currTrack;
  return true;
}

unsigned CPlayer::getCurrTrack() {
  std::lock_guard<std::mutex> lk(m_queueLock);
  if (isShuffledMode_(m_playMode))
    return m_currTrack < m_playQueue.size() ? static_cast<unsigned>(m_playQueue[m_currTrack].order) : 0;
  return static_cast<unsigned>(m_currTrack);
}

int CPlayer::currOrderLocked_() const {
  if (isShuffledMode_(m_playMode)) {
    // A position past the queue names no element.
    if (m_currTrack >= m_playQueue.size()) return -1;
    return static_cast<int>(m_playQueue[m_currTrack].order);
  }
  return static_cast<int>(m_currTrack);
}

int CPlayer::currOrder_() const {
  std::lock_guard<std::mutex> lk(m_queueLock);
  return currOrderLocked_();
}

int CPlayer::getPlaylistElmByIndex(playlistElm_s& out, int index) {
  if (index == -1) {
    index = currOrder_();
    if (index < 0) return -12;
  }
  return store()->getPlaylistElmByIndex(out, getPlaylistID(), index);
}

int CPlayer::getPlaylistElmByOrder(playlistElm_s& out, int order) {
  if (order == -1) {
    order = currOrder_();
    if (order < 0) return -1;
  }
  return store()->getPlaylistElmByOrder(out, getPlaylistID(), order);
}

void CPlayer::loadPlaylist_() {
  const playMode_e mode = m_playMode;
  playlistLibElm_s lib;
  store()->getPlaylistLibElmByID(getPlaylistID(), lib);
  m_owner = lib.owner;
  m_tag = lib.tag;
  setPlayQueue({});
  std::vector<playlistElm_s> rows;
  if (store()->getPlaylistElmsByPage(rows, getPlaylistID(), 0, 0) != 0) return;
  std::vector<playQueueItem_s> queue;
  queue.reserve(rows.size());
  for (const playlistElm_s& row : rows) {
    playQueueItem_s item;
    item.order = static_cast<size_t>(static_cast<long>(row.orderNum));
    item.uuid = static_cast<unsigned long>(row.uuid);
    queue.push_back(item);
  }
  setPlayQueue(std::move(queue));
  // Already in this mode, so this reshuffles nothing: a playlist loaded in
  // a shuffled mode plays in plain order until the mode is entered again.
  if (isShuffledMode_(mode)) setPlayMode(mode, 0, 0);
}

void CPlayer::setPlaylist(const std::string& title, const std::string& appType) {
  const playerState_e state = m_playerState;
  stop((m_playerType & PLAYER_TYPE_RAOP) == 0);
  setCurrTrackIndex(0);
  writeField_(m_playlistTitle, title);
  m_appType = appType;
  m_playlistID = store()->getPlaylistID(title, appType);
  if (m_playlistID == 0) return;
  loadPlaylist_();
  if (state == STATE_PLAY_E) {
    play();
    if (m_playerType & PLAYER_TYPE_AIRPLAY) sleep(1);
  }
}

void CPlayer::shuffleLocked_(size_t start, size_t end) {
  const size_t size = m_playQueue.size();
  if (size == 0) return;
  if (end == 0 || end > size) end = size;
  for (size_t i = start; i < end; ++i) {
    // Seeded anew for every draw from the clock's nanoseconds.
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    srand(static_cast<unsigned>(ts.tv_nsec));
    const size_t j = static_cast<size_t>(rand()) % size;
    if (j == i || j == m_currTrack || i == m_currTrack) continue;
    std::swap(m_playQueue[i].order, m_playQueue[j].order);
  }
}

void CPlayer::setPlayMode(playMode_e mode, size_t start, size_t end) {
  std::lock_guard<std::mutex> lk(m_queueLock);
  const playMode_e old = m_playMode;
  playMode_e stored = mode;
  if (mode == SHUFFLE || mode == SHUFFLE_REPEAT) {
    if (old == NORMAL || old == REPEAT || old == SHUFFLE_REPEAT_ONE) shuffleLocked_(start, end);
  } else if (mode == NORMAL || mode == REPEAT) {
    if (old == SHUFFLE || old == SHUFFLE_REPEAT || old == SHUFFLE_REPEAT_ONE) {
      // Keep the track that plays now current once the entries read 0, 1, 2...
      size_t playing = m_currTrack;
      if (old != SHUFFLE_REPEAT_ONE && m_currTrack < m_playQueue.size()) playing = m_playQueue[m_currTrack].order;
      else if (old == SHUFFLE_REPEAT_ONE) playing = static_cast<uint32_t>(m_currTrack);
      for (size_t i = 0; i < m_playQueue.size(); ++i) m_playQueue[i].order = i;
      m_currTrack = playing;
    }
  } else if (mode == REPEAT_ONE) {
    if (old == SHUFFLE || old == SHUFFLE_REPEAT) stored = SHUFFLE_REPEAT_ONE;
  }
  m_playMode = stored;
}

bool CPlayer::changeToNextTrack() {
  bool goOn = true;
  {
    std::lock_guard<std::mutex> lk(m_queueLock);
    const size_t size = m_playQueue.size();
    if (size == 0) return false;
    ++m_currTrack;
    switch (m_playMode.load()) {
      case REPEAT:
      case SHUFFLE_REPEAT:
        if (m_currTrack >= size) m_currTrack = 0;
        break;
      case REPEAT_ONE:
      case SHUFFLE_REPEAT_ONE:
        --m_currTrack;
        break;
      default:
        if (m_currTrack >= size) {
          m_currTrack = size - 1;
          goOn = false;
        }
        break;
    }
  }
  setCurrTime("00:00:00");
  setTotalTime("00:00:00");
  m_audioTrack = 0;
  m_subtitleTrack = -1;
  resetExternalSubtitle();
  return goOn;
}

void CPlayer::addItemToPlayQueue(playQueueItem_s& item) {
  std::lock_guard<std::mutex> lk(m_queueLock);
  m_playQueue.push_back(item);
}

void CPlayer::delItemFromPlayQueue(playQueueItem_s& item) {
  auto byUuid = [this, &item]() {
    return std::find_if(m_playQueue.begin(), m_playQueue.end(),
                        [&item](const playQueueItem_s& e) { return e.uuid == item.uuid; });
  };
  bool wasCurrent;
  {
    std::lock_guard<std::mutex> lk(m_queueLock);
    auto it = byUuid();
    if (it == m_playQueue.end()) return;
    // m_currTrack is compared as an order number here, in every mode.
    wasCurrent = it->order == m_currTrack;
  }
  // The device lets go of the element before it leaves the queue.
  if (wasCurrent) stop(true);
  bool playAgain = false;
  {
    std::lock_guard<std::mutex> lk(m_queueLock);
    // Looked up again: the queue may have changed while the device stopped.
    auto it = byUuid();
    if (it == m_playQueue.end()) return;
    const size_t order = it->order;
    if (!wasCurrent && order < m_currTrack) --m_currTrack;
    m_playQueue.erase(it);
    for (playQueueItem_s& e : m_playQueue)
      if (e.order > order) --e.order;
    if (!wasCurrent) return;
    const size_t size = m_playQueue.size();
    if (size != 0 && m_currTrack < size) {
      playAgain = true;  // the element that moved into the place
    } else if (m_playMode == REPEAT && size != 0 && m_currTrack == size) {
      m_currTrack = 0;
      playAgain = true;
    }
  }
  if (playAgain) play();
}

void CPlayer::reorderPlayQueue(size_t from, size_t to) {
  std::lock_guard<std::mutex> lk(m_queueLock);
  const size_t size = m_playQueue.size();
  if (size == 0 || from == to || to >= size) return;
  const playMode_e mode = m_playMode;
  if (mode == SHUFFLE || mode == SHUFFLE_REPEAT || mode == SHUFFLE_REPEAT_ONE) {
    // A swap of the two entries, so that the rest keeps its shuffled order.
    auto byOrder = [this](size_t order) {
      return std::find_if(m_playQueue.begin(), m_playQueue.end(),
                          [order](const playQueueItem_s& e) { return e.order == order; });
    };
    auto a = byOrder(from);
    auto b = byOrder(to);
    if (a == m_playQueue.end() || b == m_playQueue.end()) return;
    std::iter_swap(a, b);
    return;
  }
  if (from >= size) return;
  const playQueueItem_s moving = m_playQueue[from];
  m_playQueue.erase(m_playQueue.begin() + static_cast<long>(from));
  m_playQueue.insert(m_playQueue.begin() + static_cast<long>(to), moving);
  for (size_t i = 0; i < size; ++i) m_playQueue[i].order = i;
}

void CPlayer::clearPlayQueue(bool full) {
  stop(true);
  setPlayQueue({});
  if (full) {
    writeField_(m_playlistTitle, "");
    m_playlistID = -1;
  }
  // Fails on the empty queue, so m_currTrack survives the clear.
  setCurrTrack(0);
}

int CPlayer::setCurrTrack(unsigned track) {
  if (track >= getPlaylistSize()) return -1;
  stop((m_playerType & kStopKeepsDevice) == 0);
  {
    std::lock_guard<std::mutex> lk(m_queueLock);
    if (isShuffledMode_(m_playMode)) {
      for (size_t i = 0; i < m_playQueue.size(); ++i) {
        if (m_playQueue[i].order == track) {
          m_currTrack = i;
          break;
        }
      }
    } else {
      m_currTrack = track;
    }
    if (m_playQueue.empty()) return 0;
  }
  play();
  return 0;
}

int CPlayer::setCurrTrackByContent(const char* content) {
  if (getPlaylistTitle().empty()) return -1;
  unsigned n = static_cast<unsigned>(store()->getSizeOfPlaylist(getPlaylistID()));
  if (n > kMaxContentSearch) n = kMaxContentSearch;  // also turns a failed count (-1) into 4000
  if (n == 0) return -1;
  const std::string wanted = content ? content : "";
  // Rows are read a page at a time, in the same order and through the same
  // statement as one indexed read per row, so the outcome is the same; a
  // row at a time would make the search quadratic in the playlist's size.
  std::vector<playlistElm_s> page;
  for (unsigned start = 0; start < n; start += kContentSearchPage) {
    const unsigned count = std::min(kContentSearchPage, n - start);
    page.clear();
    if (store()->getPlaylistElmsByPage(page, getPlaylistID(), static_cast<int>(start), static_cast<int>(count)) != 0)
      continue;
    for (const playlistElm_s& elm : page) {
      if (elm.content != wanted) continue;
      bool found = false;
      {
        std::lock_guard<std::mutex> lk(m_queueLock);
        if (m_playQueue.empty()) return -1;
        for (size_t pos = 0; pos < m_playQueue.size(); ++pos) {
          if (m_playQueue[pos].uuid != static_cast<unsigned long>(elm.uuid)) continue;
          m_currTrack = pos;
          found = true;
          break;
        }
      }
      if (found) {
        stop(true);
        play();
        return 0;
      }
      // No entry for this row: a later row with the same content may match.
    }
  }
  return -1;
}

int CPlayer::setCurrTrackIdByOrder(unsigned order) {
  std::lock_guard<std::mutex> lk(m_queueLock);
  for (size_t i = 0; i < m_playQueue.size(); ++i) {
    if (m_playQueue[i].order == order) {
      m_currTrack = i;
      return 0;
    }
  }
  return -1;
}
