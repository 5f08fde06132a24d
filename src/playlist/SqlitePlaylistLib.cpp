// The library operations: making, finding, counting, paging and deleting
// playlists.
#include <cstring>

#include "foundation/log.h"
#include "playlist/SqlitePlaylist.h"
#include "playlist/sqlStatement.h"

using vessord::playlist::can_stand_in_sql_quotes;
using vessord::playlist::CStatement;
using vessord::playlist::CWriteUnit;
using vessord::playlist::texts_can_stand;

namespace {

bool is_all(const char* appType) { return appType && std::strcmp(appType, "ALL") == 0; }

}  // namespace

int CSqlitePlaylist::resolvePlaylistID_(const char* title, const char* appType, int& id) {
  id = 0;
  if (!can_stand_in_sql_quotes(title) || !can_stand_in_sql_quotes(appType)) return SQLITE_MISUSE;
  CStatement q = CStatement::format(
      "SELECT PlaylistID from PlaylistLib_TBL WHERE PlaylistTitle='%s' AND AppType='%s';", title, appType);
  return exec_(q, getPlaylistID_CB, &id);
}

int CSqlitePlaylist::existingPlaylistID_(const char* title, const char* appType, int& id) {
  if (resolvePlaylistID_(title, appType, id) != SQLITE_OK) return -1;
  if (id != 0) return 0;
  VLOG(LOG_COLOR_NOTFOUND, "%s not found\n", title);
  return -1;
}

int CSqlitePlaylist::addPlaylist(const char* title, mediaType_e type, const char* appType, const char* owner,
                                 const char* tag) {
  ThreadSingleLock lock(m_dbMutex);
  if (!texts_can_stand({title, appType})) return -12;
  if (!ensureOpen_()) return -12;

  int count = 0;
  CStatement q = CStatement::format(
      "SELECT COUNT(*) FROM PlaylistLib_TBL WHERE PlaylistTitle='%s' AND AppType='%s';", title, appType);
  if (exec_(q, getCount_CB, &count) != SQLITE_OK) return -12;
  if (count != 0) return 1;

  if (!owner) owner = "";
  if (!tag) tag = "";
  // Owner and tag reach only the insert, whose failure is not reported:
  // one that cannot stand in it is refused the same way.
  if (!texts_can_stand({owner, tag})) return 0;
  CStatement ins = CStatement::format("INSERT INTO PlaylistLib_TBL VALUES(NULL, '%d', '%s', '%s', '%s', '%s');",
                                      static_cast<int>(type), appType, title, owner, tag);
  // A failed insert is not reported: the caller finds no id afterwards.
  exec_(ins, nullptr, nullptr);
  return 0;
}

int CSqlitePlaylist::getPlaylistID(const std::string& title, const std::string& appType) {
  ThreadSingleLock lock(m_dbMutex);
  if (!texts_can_stand({title.c_str(), appType.c_str()})) return -12;
  if (!ensureOpen_()) return -12;
  int id = 0;
  if (resolvePlaylistID_(title.c_str(), appType.c_str(), id) != SQLITE_OK) return -12;
  return id < 1 ? -1 : id;
}

int CSqlitePlaylist::getPlaylistTitle(int playlistID, std::string& title, const char* appType) {
  ThreadSingleLock lock(m_dbMutex);
  if (!texts_can_stand({appType})) return -12;
  if (!ensureOpen_()) return -12;
  CStatement q = CStatement::format(
      "SELECT PlaylistTitle FROM PlaylistLib_TBL WHERE PlaylistID='%d' AND AppType='%s';", playlistID, appType);
  if (exec_(q, getPlaylistTitle_CB, &title) != SQLITE_OK) return -12;
  return playlistID;
}

int CSqlitePlaylist::getPlaylistLibElmByID(int playlistID, playlistLibElm_s& out) {
  ThreadSingleLock lock(m_dbMutex);
  if (!ensureOpen_()) return -12;
  CStatement q = CStatement::format("SELECT * from PlaylistLib_TBL WHERE PlaylistID='%d';", playlistID);
  if (exec_(q, getPlaylistLibElm_CB, &out) != SQLITE_OK) return -12;
  return 0;
}

int CSqlitePlaylist::getSizeOfPlaylistLib_(const std::string& appType) {
  int count = 0;
  int rc;
  if (appType == "ALL") {
    rc = exec_("SELECT COUNT(*) FROM PlaylistLib_TBL;", getCount_CB, &count);
  } else {
    if (!can_stand_in_sql_quotes(appType.c_str())) return -1;
    rc = exec_(CStatement::format("SELECT COUNT(*) FROM PlaylistLib_TBL WHERE AppType='%s';", appType.c_str()),
               getCount_CB, &count);
  }
  return rc == SQLITE_OK ? count : -1;
}

int CSqlitePlaylist::getSizeOfPlaylistLib(const char* appType) {
  ThreadSingleLock lock(m_dbMutex);
  if (!texts_can_stand({appType})) return -1;
  if (!ensureOpen_()) return -1;
  return getSizeOfPlaylistLib_(appType);
}

int CSqlitePlaylist::getPlaylistLibElmByIndex(playlistLibElm_s& out, const char* appType, int index) {
  ThreadSingleLock lock(m_dbMutex);
  out.playlistID = 0;
  if (!texts_can_stand({appType})) return -12;
  if (!ensureOpen_()) return -12;
  // The count knows "ALL", the read does not: with "ALL" it looks for that
  // literal application type and normally leaves out.playlistID at 0.
  if (getSizeOfPlaylistLib_(appType) <= index) return -12;
  CStatement q =
      CStatement::format("SELECT * from PlaylistLib_TBL WHERE AppType='%s' limit %d, %d;", appType, index, 1);
  if (exec_(q, getPlaylistLibElm_CB, &out) != SQLITE_OK) return -12;
  return 0;
}

int CSqlitePlaylist::getPlaylistLibElmsByPage(std::vector<playlistLibElm_s>& out, const char* appType, int start,
                                              int count) {
  ThreadSingleLock lock(m_dbMutex);
  if (!texts_can_stand({appType})) return 0;
  if (!ensureOpen_()) return 0;
  if (getSizeOfPlaylistLib_(appType) <= start) return 0;
  int limitStart = start;
  int limitCount = count;
  if (start == 0 && count == 0) limitCount = -1;  // the whole library
  if (is_all(appType)) {
    exec_(CStatement::format("SELECT * from PlaylistLib_TBL limit %d, %d;", limitStart, limitCount),
          getPlaylistLibElmByPage_CB, &out);
  } else {
    exec_(CStatement::format("SELECT * from PlaylistLib_TBL WHERE AppType='%s' limit %d, %d;", appType,
                             limitStart, limitCount),
          getPlaylistLibElmByPage_CB, &out);
  }
  return 0;
}

int CSqlitePlaylist::delPlaylist(const std::string& title, const std::string& appType) {
  ThreadSingleLock lock(m_dbMutex);
  if (!texts_can_stand({title.c_str(), appType.c_str()})) return -12;
  if (!ensureOpen_()) return -12;
  // Elements and their playlist go together or not at all.
  CWriteUnit unit(db_());
  if (!unit.ok()) return -12;
  if (delAllElmInPlaylist_(title, appType) != 0) {
    VLOG(LOG_COLOR_FAIL, "delAllContentInPlaylist()...fail\n");
    return -12;
  }
  CStatement del = CStatement::format("DELETE FROM PlaylistLib_TBL WHERE PlaylistTitle='%s' AND AppType='%s';",
                                      title.c_str(), appType.c_str());
  if (exec_(del, nullptr, nullptr) != SQLITE_OK) return -12;
  return unit.commit() == SQLITE_OK ? 0 : -12;
}
