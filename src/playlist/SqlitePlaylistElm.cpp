// The element operations. Within a playlist the order numbers run densely
// from 0; each change shifts its neighbours with one UPDATE, and the shift
// and its insert or delete commit together.
#include <cstdio>

#include "foundation/log.h"
#include "playlist/SqlitePlaylist.h"
#include "playlist/sqlStatement.h"

using vessord::playlist::texts_can_stand;
using vessord::playlist::CStatement;
using vessord::playlist::CWriteUnit;

namespace {

const char* const kInsertElm = "INSERT INTO Playlist_TBL VALUES(NULL, %d, %d, %d, %d, '%q', '%q');";

}  // namespace

int CSqlitePlaylist::selectInt_(const CStatement& sql, int* pRows) {
  if (!sql.ok()) {
    if (pRows) *pRows = -1;
    return -1;
  }
  return selectInt_(sql.c_str(), pRows);
}

int CSqlitePlaylist::getSizeOfPlaylist_(int playlistID) {
  int count = 0;
  CStatement q =
      CStatement::format("SELECT COUNT(*) FROM Playlist_TBL WHERE PlaylistID=%d ORDER BY OrderNr;", playlistID);
  return exec_(q, getCount_CB, &count) == SQLITE_OK ? count : -1;
}

int CSqlitePlaylist::getSizeOfPlaylist(int playlistID) {
  ThreadSingleLock lock(m_dbMutex);
  if (!ensureOpen_()) return -1;
  return getSizeOfPlaylist_(playlistID);
}

int CSqlitePlaylist::addElmInPlaylist(const char* title, mediaType_e mediaType, contentType_e contentType,
                                      const char* appType, const char* content, int position) {
  ThreadSingleLock lock(m_dbMutex);
  if (!texts_can_stand({title, appType}) || !content) return -12;
  if (!ensureOpen_()) return -12;
  int id = 0;
  if (existingPlaylistID_(title, appType, id) != 0) return -12;
  char objID[256] = {0};

  CWriteUnit unit(db_());
  if (!unit.ok()) return -12;
  int order = 0;
  int size = getSizeOfPlaylist_(id);
  if (size < 0) return -12;
  if (size > 0) {
    int rows = 0;
    int top = selectInt_(CStatement::format(
                             "select orderNr from playlist_tbl where playlistid=%d order by orderNr desc limit 0,1", id),
                         &rows);
    if (rows != 1) return -12;
    int end = top + 1;
    if (position == -1 || position > end) {
      order = end;
    } else {
      CStatement shift = CStatement::format(
          "update playlist_tbl set orderNr=orderNr+1 where playlistid=%d and orderNr>=%d", id, position);
      if (exec_(shift, nullptr, nullptr) != SQLITE_OK) return -12;
      order = position;
    }
  }
  if (contentType == CONTENT_OBJECT) std::snprintf(objID, 255, "%s", content);
  CStatement ins = CStatement::formatQ(kInsertElm, id, order, static_cast<int>(mediaType),
                                       static_cast<int>(contentType), content, objID[0] ? objID : "N/A");
  if (exec_(ins, nullptr, nullptr) != SQLITE_OK) return -12;
  return unit.commit() == SQLITE_OK ? 0 : -12;
}

int CSqlitePlaylist::transAddElmInPlaylist(int playlistID, mediaType_e mediaType, contentType_e contentType,
                                           const char* content, int order) {
  if (!content) return -12;
  // A batch carries an object's id in Content alone.
  CStatement ins = CStatement::formatQ(kInsertElm, playlistID, order, static_cast<int>(mediaType),
                                       static_cast<int>(contentType), content, "N/A");
  return exec_(ins, nullptr, nullptr) == SQLITE_OK ? 0 : -12;
}

int CSqlitePlaylist::adjustPlayOrder(int playlistID, int start, int delta) {
  ThreadSingleLock lock(m_dbMutex);
  if (!ensureOpen_()) return -12;
  if (getSizeOfPlaylist_(playlistID) < start) return -1;
  CStatement q = CStatement::format("update playlist_tbl set orderNr=orderNr+%d where playlistid=%d and orderNr>=%d",
                                    delta, playlistID, start);
  return exec_(q, nullptr, nullptr);
}

int CSqlitePlaylist::transAdjustPlayOrder(int playlistID, int start, int delta) {
  // Without the batch's lock held by this thread the shift would commit on
  // its own, which is what this operation exists to avoid.
  if (!threadOwnsTrans_() || !db_()) return -1;
  if (getSizeOfPlaylist_(playlistID) < start) return -1;
  CStatement q = CStatement::format("update playlist_tbl set orderNr=orderNr+%d where playlistid=%d and orderNr>=%d",
                                    delta, playlistID, start);
  return exec_(q, nullptr, nullptr);
}

int CSqlitePlaylist::transSizeOfPlaylist(int playlistID) {
  if (!threadOwnsTrans_() || !db_()) return -1;
  return getSizeOfPlaylist_(playlistID);
}

int CSqlitePlaylist::delElmInPlaylist(const char* title, const char* appType, uint64_t uuid) {
  ThreadSingleLock lock(m_dbMutex);
  if (!texts_can_stand({title, appType})) return -12;
  if (!ensureOpen_()) return -12;
  int id = 0;
  if (existingPlaylistID_(title, appType, id) != 0) return -12;

  CWriteUnit unit(db_());
  if (!unit.ok()) return -12;
  int rows = 0;
  int order = selectInt_(CStatement::format("select orderNr from playlist_tbl where playlistid=%d and uuid=%lld", id,
                                            static_cast<long long>(uuid)),
                         &rows);
  if (rows < 0) return -12;
  // Not in this playlist: there is nothing to delete and no gap to close.
  if (rows == 0) return 0;
  CStatement del = CStatement::format("DELETE FROM Playlist_TBL WHERE PlaylistID=%d and UUID='%llu';", id,
                                      static_cast<unsigned long long>(uuid));
  if (exec_(del, nullptr, nullptr) != SQLITE_OK) return -12;
  CStatement close = CStatement::format(
      "update playlist_tbl set orderNr=orderNr-1 where playlistid=%d and orderNr>%d", id, order);
  if (exec_(close, nullptr, nullptr) != SQLITE_OK) return -12;
  return unit.commit() == SQLITE_OK ? 0 : -12;
}

int CSqlitePlaylist::delAllElmInPlaylist_(const std::string& title, const std::string& appType) {
  int id = 0;
  if (resolvePlaylistID_(title.c_str(), appType.c_str(), id) != SQLITE_OK) return -12;
  if (id == 0) {
    VLOG(LOG_COLOR_NOTFOUND, "%s not found\n", title.c_str());
    return 0;
  }
  CStatement del = CStatement::format("DELETE FROM Playlist_TBL WHERE PlayListID=%d;", id);
  return exec_(del, nullptr, nullptr) == SQLITE_OK ? 0 : -12;
}

int CSqlitePlaylist::delAllElmInPlaylist(const char* title, const char* appType) {
  ThreadSingleLock lock(m_dbMutex);
  if (!texts_can_stand({title, appType})) return -12;
  if (!ensureOpen_()) return -12;
  return delAllElmInPlaylist_(title, appType);
}

int CSqlitePlaylist::reorderPlaylistElm(int playlistID, int from, int to) {
  if (from == to) return 0;
  ThreadSingleLock lock(m_dbMutex);
  if (!ensureOpen_()) return -12;
  CWriteUnit unit(db_());
  if (!unit.ok()) return -12;
  int rows = 0;
  int key = selectInt_(
      CStatement::format("select uuid from playlist_tbl where playlistid=%d and orderNr=%d", playlistID, from), &rows);
  // No element at `from` (or no answer): nothing may move.
  if (rows != 1) return -12;
  // The key is carried as an int: a uuid beyond its range (a file written
  // elsewhere) would make the last update miss the row, or hit another.
  // Such a key must name the moving row and no other before anything moves.
  int keyRows = 0;
  int keyOrder = selectInt_(
      CStatement::format("select orderNr from playlist_tbl where playlistid=%d and uuid=%d", playlistID, key),
      &keyRows);
  if (keyRows != 1 || keyOrder != from) return SQLITE_ERROR;
  CStatement shift =
      from < to ? CStatement::format(
                      "update playlist_tbl set orderNr=orderNr-1 where playlistid=%d and orderNr>%d and orderNr<=%d",
                      playlistID, from, to)
                : CStatement::format(
                      "update playlist_tbl set orderNr=orderNr+1 where playlistid=%d and orderNr>=%d and orderNr<%d ",
                      playlistID, to, from);
  int rc = exec_(shift, nullptr, nullptr);
  if (rc != SQLITE_OK) return rc;
  rc = exec_(CStatement::format("update playlist_tbl set orderNr=%d where playlistid=%d and uuid=%d", to, playlistID,
                                key),
             nullptr, nullptr);
  if (rc != SQLITE_OK) return rc;
  // The shift has run: a last update that moved no row would leave two rows
  // with one order number. The unit rolls all of it back, as a failed
  // statement does.
  if (sqlite3_changes(db_()) != 1) return SQLITE_ERROR;
  return unit.commit();
}

int CSqlitePlaylist::getPlaylistElmByIndex_(playlistElm_s& out, int playlistID, int index) {
  out.playlistID = 0;
  if (getSizeOfPlaylist_(playlistID) <= index) return -12;
  CStatement q = CStatement::format("SELECT * FROM Playlist_TBL WHERE PlaylistID=%d ORDER BY OrderNr limit %d,%d ;",
                                    playlistID, index, 1);
  return exec_(q, getPlaylistElm_CB, &out) == SQLITE_OK ? 0 : -12;
}

int CSqlitePlaylist::getPlaylistElmByIndex(playlistElm_s& out, int playlistID, int index) {
  ThreadSingleLock lock(m_dbMutex);
  if (!ensureOpen_()) return -12;
  return getPlaylistElmByIndex_(out, playlistID, index);
}

int CSqlitePlaylist::getPlaylistElmByIndex_NOLOCK(playlistElm_s& out, int playlistID, int index) {
  // Opening needs the lock, so a store not open yet just fails here.
  if (!db_()) return -12;
  return getPlaylistElmByIndex_(out, playlistID, index);
}

int CSqlitePlaylist::getPlaylistElmByOrder(playlistElm_s& out, int playlistID, int order) {
  ThreadSingleLock lock(m_dbMutex);
  out.playlistID = 0;
  if (!ensureOpen_()) return -12;
  CStatement q =
      CStatement::format("select * from playlist_tbl where playlistid=%d and ordernr=%d", playlistID, order);
  if (exec_(q, getPlaylistElm_CB, &out) != SQLITE_OK) return -12;
  return out.playlistID == 0 ? -1 : 0;
}

int CSqlitePlaylist::getPlaylistElmsByPage(std::vector<playlistElm_s>& out, int playlistID, int start, int count) {
  ThreadSingleLock lock(m_dbMutex);
  if (!ensureOpen_()) return -12;
  int size = getSizeOfPlaylist_(playlistID);
  if (size == 0) return 0;
  if (size <= start) return -12;
  int limitCount = (start == 0 && count == 0) ? -1 : count;
  CStatement q = CStatement::format("SELECT * FROM Playlist_TBL WHERE PlaylistID=%d ORDER BY OrderNr limit %d,%d ;",
                                    playlistID, start, limitCount);
  return exec_(q, getPlaylistElmByPage_CB, &out) == SQLITE_OK ? 0 : -12;
}
