// The store's lifetime, its file, the lock, the batch transaction and the
// row callbacks.
#include "playlist/SqlitePlaylist.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "foundation/log.h"
#include "foundation/realPath.h"
#include "foundation/shellRunner.h"
#include "playlist/sqlStatement.h"

using vessord::playlist::CStatement;

namespace {

const char* const kDbVersion = "20131230";
const char* const kCreateVersion = "CREATE TABLE Version_TBL (Version);";
const char* const kCreateLib =
    "CREATE TABLE PlaylistLib_TBL (PlaylistID integer PRIMARY KEY,PlaylistType integer, AppType , PlaylistTitle, "
    "Owner, Tag);";
const char* const kCreateElm =
    "CREATE TABLE Playlist_TBL (UUID integer PRIMARY KEY, PlaylistID, OrderNr, MediaType, ContentType, Content, "
    "UPnPObjID);";
// Every count, read and shift of elements selects by playlist and order
// number; without this index each of them scans the whole table, the other
// playlists included. Reads and appends gain several-fold; a shift pays for
// rewriting the index entries it moves, about twice the time.
const char* const kCreateOrderIndex =
    "CREATE INDEX IF NOT EXISTS Playlist_TBL_Order_IDX ON Playlist_TBL (PlaylistID, OrderNr);";

// How long a statement waits for another process that holds the file.
constexpr int kBusyTimeoutMs = 1000;

struct CDbCloser {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
using CDbHandle = std::unique_ptr<sqlite3, CDbCloser>;

// The share's parent comes with each quote written for a shell; the file
// itself is opened by its plain name.
std::string shell_unquote(const std::string& s) {
  std::string out;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s.compare(i, 4, "'\\''") == 0) {
      out += '\'';
      i += 3;
    } else {
      out += s[i];
    }
  }
  return out;
}

int open_connection(const std::string& path, CDbHandle& out) {
  sqlite3* db = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                           nullptr);
  out.reset(db);
  if (rc != SQLITE_OK) {
    VLOG(LOG_COLOR_FAIL, "%s\n", db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
    out.reset();
    return rc;
  }
  // Nothing read from a statement or from the file may reach beyond it.
  sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
  sqlite3_db_config(db, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_limit(db, SQLITE_LIMIT_ATTACHED, 0);
  sqlite3_busy_timeout(db, kBusyTimeoutMs);
  return SQLITE_OK;
}

int exec_logged(sqlite3* db, const char* sql, int (*cb)(void*, int, char**, char**), void* arg) {
  char* err = nullptr;
  int rc = sqlite3_exec(db, sql, cb, arg, &err);
  if (rc != SQLITE_OK) VLOG(LOG_COLOR_FAIL, "%s\n", err ? err : sqlite3_errstr(rc));
  sqlite3_free(err);
  return rc;
}

template <class E>
E enum_from(const char* text, std::initializer_list<int> known, E unknown) {
  long v = std::strtol(text, nullptr, 10);
  for (int k : known)
    if (v == k) return static_cast<E>(k);
  return unknown;
}

// Fills one element from a row by the columns' names. A NULL leaves a
// number or text as it was, but for the ids and types, which take the
// values that mean "none".
void fill_elm(playlistElm_s& e, int columns, char** values, char** names) {
  for (int i = 0; i < columns; ++i) {
    const char* n = names[i];
    const char* v = values[i];
    if (std::strcmp(n, "PlaylistID") == 0) {
      e.playlistID = v ? static_cast<int>(std::strtol(v, nullptr, 10)) : -1;
    } else if (std::strcmp(n, "MediaType") == 0) {
      e.mediaType = v ? enum_from(v, {MEDIA_AUDIO, MEDIA_PHOTO, MEDIA_VIDEO, MEDIA_UNKNOWN}, MEDIA_UNKNOWN)
                      : MEDIA_UNKNOWN;
    } else if (std::strcmp(n, "ContentType") == 0) {
      e.contentType =
          v ? enum_from(v, {CONTENT_FILE, CONTENT_OBJECT, CONTENT_DBID, CONTENT_UNKNOWN}, CONTENT_UNKNOWN)
            : CONTENT_UNKNOWN;
    } else if (std::strcmp(n, "Content") == 0) {
      if (v) e.content = v;
    } else if (std::strcmp(n, "UUID") == 0) {
      if (v) e.uuid = static_cast<uint64_t>(std::strtoll(v, nullptr, 10));
    } else if (std::strcmp(n, "OrderNr") == 0) {
      if (v) e.orderNum = static_cast<int>(std::strtoll(v, nullptr, 10));
    } else if (std::strcmp(n, "UPnPObjID") == 0) {
      if (v) e.upnpObjID = v;
    }
  }
}

void fill_lib_elm(playlistLibElm_s& e, int columns, char** values, char** names, bool withAppType) {
  for (int i = 0; i < columns; ++i) {
    const char* n = names[i];
    const char* v = values[i];
    if (std::strcmp(n, "PlaylistID") == 0) {
      e.playlistID = v ? static_cast<int>(std::strtol(v, nullptr, 10)) : -1;
    } else if (std::strcmp(n, "PlaylistTitle") == 0) {
      if (v) e.title = v;
    } else if (std::strcmp(n, "PlaylistType") == 0) {
      e.playlistType = v ? static_cast<int>(std::strtol(v, nullptr, 10)) : -1;
    } else if (std::strcmp(n, "Owner") == 0) {
      if (v) e.owner = v;
    } else if (std::strcmp(n, "Tag") == 0) {
      if (v) e.tag = v;
    } else if (withAppType && std::strcmp(n, "AppType") == 0) {
      if (v) e.appType = v;
    }
  }
}

struct selectIntRow_s {
  int value = -1;
  int rows = 0;
};

int select_int_row(void* arg, int columns, char** values, char**) {
  selectIntRow_s* r = static_cast<selectIntRow_s*>(arg);
  // Only the first row counts, and a NULL is no value at all.
  if (r->rows == 0 && columns > 0 && values[0]) {
    r->value = static_cast<int>(std::strtol(values[0], nullptr, 10));
    r->rows = 1;
  }
  return 0;
}

// Moves a damaged file (and any journal of it, which may be needed to read
// it) aside under "<file>.damaged-YYYYMMDD-HHMMSS", so that what it held can
// still be recovered by hand. Never overwrites an earlier one. False when
// the file could not be moved.
bool move_damaged_aside(const std::string& path) {
  char stamp[32];
  const time_t now = time(nullptr);
  struct tm local;
  if (!localtime_r(&now, &local) || strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local) == 0) return false;
  std::string aside;
  for (int n = 0;; ++n) {
    aside = path + ".damaged-" + stamp + (n == 0 ? "" : "." + std::to_string(n));
    if (::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0) break;
    if (errno != EEXIST || n == 99) {
      VLOG(LOG_COLOR_FAIL, "%s: cannot move the damaged file aside: %s\n", path.c_str(), std::strerror(errno));
      return false;
    }
  }
  for (const char* suffix : {"-journal", "-wal", "-shm"})
    ::renameat2(AT_FDCWD, (path + suffix).c_str(), AT_FDCWD, (aside + suffix).c_str(), RENAME_NOREPLACE);
  VLOG(LOG_COLOR_FAIL, "%s is damaged: moved aside to %s, an empty one replaces it\n", path.c_str(), aside.c_str());
  return true;
}

}  // namespace

CSqlitePlaylist::CSqlitePlaylist() {
  CThread::mutexInit(m_dbMutex, MUTEX_ATTR_NORMAL);
  m_dbDir = vessord::public_parent_dir() + ".tarpo/.@vessorhome/";
  m_dbPath = shell_unquote(m_dbDir) + "playlist.db";
  makeDir_();
  ThreadSingleLock lock(m_dbMutex);
  openStore_();
}

void CSqlitePlaylist::makeDir_() {
  // A directory holding a quote cannot stand bare on this line; it is then
  // left to exist already.
  vessord::ShellLine mk("mkdir -p %s > /dev/null", {m_dbDir});
  if (mk.ok()) vessord::shell_system(mk);
}

CSqlitePlaylist::~CSqlitePlaylist() {
  sqlite3_close(m_db);
  pthread_mutex_destroy(&m_dbMutex);
}

// Opens the file, or replaces it when it is missing or holds no version or
// another one. Any other failure to read it (busy, locked, I/O, no
// descriptor left) leaves it alone for a later try. Runs under the lock.
int CSqlitePlaylist::openStore_() {
  // A missing file is made below; one that cannot even be looked at is
  // left for a later try.
  struct stat st;
  if (::stat(m_dbPath.c_str(), &st) != 0) {
    if (errno != ENOENT) {
      VLOG(LOG_COLOR_FAIL, "%s: %s\n", m_dbPath.c_str(), std::strerror(errno));
      return -12;
    }
    if (m_bTriedOpen) makeDir_();  // a later try: the directory may have gone
  }
  m_bTriedOpen = true;

  CDbHandle db;
  if (open_connection(m_dbPath, db) != SQLITE_OK) return -12;

  std::string version;
  char* err = nullptr;
  int rc = sqlite3_exec(db.get(), "SELECT * from Version_TBL", getDBVersion_CB, &version, &err);
  std::string errText = err ? err : "";
  sqlite3_free(err);
  // A damaged file holds no version either; only a passing fault (busy,
  // locked, I/O, memory) leaves the file for a later try.
  const bool bDamaged = rc == SQLITE_NOTADB || rc == SQLITE_CORRUPT;
  bool bNoVersion = bDamaged || (rc == SQLITE_ERROR && errText.rfind("no such table", 0) == 0);
  if (rc != SQLITE_OK && !bNoVersion) {
    VLOG(LOG_COLOR_FAIL, "%s\n", errText.empty() ? sqlite3_errstr(rc) : errText.c_str());
    return -12;
  }
  if (rc == SQLITE_OK && version == kDbVersion) {
    // Right version: kept whatever it holds (also when another process made
    // it since the test above). A file made elsewhere gains the index here.
    exec_logged(db.get(), kCreateOrderIndex, nullptr, nullptr);
    __atomic_store_n(&m_db, db.release(), __ATOMIC_RELEASE);
    return 0;
  }

  db.reset();
  // A damaged file is kept beside the new one; one that cannot be moved is
  // left alone for a later try rather than lost.
  if (bDamaged && !move_damaged_aside(m_dbPath)) return -12;
  if (!bDamaged && std::remove(m_dbPath.c_str()) != 0) VLOG(LOG_COLOR_FAIL, "remove %s failed\n", m_dbPath.c_str());
  // A journal of the old file must not be played into the new one.
  for (const char* suffix : {"-journal", "-wal", "-shm"}) std::remove((m_dbPath + suffix).c_str());

  if (open_connection(m_dbPath, db) != SQLITE_OK) return -12;
  bool bOk = createTable_(db.get(), kCreateVersion) == SQLITE_OK &&
             createTable_(db.get(), kCreateLib) == SQLITE_OK && createTable_(db.get(), kCreateElm) == SQLITE_OK;
  if (bOk) {
    CStatement ins = CStatement::format("INSERT INTO Version_TBL VALUES('%s');", kDbVersion);
    bOk = exec_logged(db.get(), ins.c_str(), nullptr, nullptr) == SQLITE_OK;
  }
  // Without its version row the file would be replaced at the next open,
  // so a half-made file is given up now and made again by a later try.
  if (!bOk) return -12;
  exec_logged(db.get(), kCreateOrderIndex, nullptr, nullptr);
  __atomic_store_n(&m_db, db.release(), __ATOMIC_RELEASE);
  return 0;
}

bool CSqlitePlaylist::ensureOpen_() { return db_() != nullptr || openStore_() == 0; }

int CSqlitePlaylist::createTable_(sqlite3* db, const char* sql) { return exec_logged(db, sql, nullptr, nullptr); }

int CSqlitePlaylist::exec_(const CStatement& sql, int (*cb)(void*, int, char**, char**), void* arg) {
  if (!sql.ok()) {
    VLOG(LOG_COLOR_FAIL, "%s\n", "statement too long");
    return SQLITE_TOOBIG;
  }
  return exec_(sql.c_str(), cb, arg);
}

int CSqlitePlaylist::exec_(const char* sql, int (*cb)(void*, int, char**, char**), void* arg) {
  sqlite3* db = db_();
  if (!db) return SQLITE_CANTOPEN;
  return exec_logged(db, sql, cb, arg);
}

int CSqlitePlaylist::selectInt_(const char* sql, int* pRows) {
  selectIntRow_s row;
  int rc = exec_(sql, select_int_row, &row);
  if (pRows) *pRows = rc == SQLITE_OK ? row.rows : -1;
  if (rc != SQLITE_OK) return -1;
  return row.value;
}

bool CSqlitePlaylist::threadOwnsTrans_() const {
  return m_bInTrans.load(std::memory_order_acquire) &&
         pthread_equal(m_transOwner.load(std::memory_order_relaxed), pthread_self());
}

int CSqlitePlaylist::transBegin() {
  // SQLite refuses a nested "begin"; relocking would hang this thread.
  if (threadOwnsTrans_()) return exec_("begin", nullptr, nullptr);
  pthread_mutex_lock(&m_dbMutex);
  m_transOwner.store(pthread_self(), std::memory_order_relaxed);
  m_bInTrans.store(true, std::memory_order_release);
  if (!ensureOpen_()) return SQLITE_CANTOPEN;
  return exec_("begin", nullptr, nullptr);
}

int CSqlitePlaylist::transEnd() {
  if (!threadOwnsTrans_()) {
    // No batch of this thread: wait for anyone else's to end, so that its
    // rows are not committed half-way, and let "commit" report.
    ThreadSingleLock lock(m_dbMutex);
    return exec_("commit", nullptr, nullptr);
  }
  int rc = exec_("commit", nullptr, nullptr);
  sqlite3* db = db_();
  // A commit that could not finish would leave the connection inside the
  // transaction, and every later write would vanish with it.
  if (rc != SQLITE_OK && db && !sqlite3_get_autocommit(db)) exec_("rollback", nullptr, nullptr);
  m_bInTrans.store(false, std::memory_order_release);
  pthread_mutex_unlock(&m_dbMutex);
  return rc;
}

int CSqlitePlaylist::getCount_CB(void* arg, int columns, char** values, char** names) {
  if (columns > 0 && values[0]) *static_cast<int*>(arg) = static_cast<int>(std::strtol(values[0], nullptr, 10));
  return 0;
}

int CSqlitePlaylist::getPlaylistID_CB(void* arg, int columns, char** values, char** names) {
  if (columns > 0 && values[0]) *static_cast<int*>(arg) = static_cast<int>(std::strtol(values[0], nullptr, 10));
  return 0;
}

int CSqlitePlaylist::getDBVersion_CB(void* arg, int columns, char** values, char** names) {
  if (columns > 0 && values[0]) *static_cast<std::string*>(arg) = values[0];
  return 0;
}

int CSqlitePlaylist::getPlaylistTitle_CB(void* arg, int columns, char** values, char** names) {
  if (columns > 0 && values[0]) *static_cast<std::string*>(arg) = values[0];
  return 0;
}

int CSqlitePlaylist::getPlaylistElm_CB(void* arg, int columns, char** values, char** names) {
  fill_elm(*static_cast<playlistElm_s*>(arg), columns, values, names);
  return 0;
}

int CSqlitePlaylist::getPlaylistLibElm_CB(void* arg, int columns, char** values, char** names) {
  fill_lib_elm(*static_cast<playlistLibElm_s*>(arg), columns, values, names, false);
  return 0;
}

int CSqlitePlaylist::getPlaylistElmByPage_CB(void* arg, int columns, char** values, char** names) {
  playlistElm_s e;
  fill_elm(e, columns, values, names);
  static_cast<std::vector<playlistElm_s>*>(arg)->push_back(std::move(e));
  return 0;
}

int CSqlitePlaylist::getPlaylistLibElmByPage_CB(void* arg, int columns, char** values, char** names) {
  playlistLibElm_s e;
  fill_lib_elm(e, columns, values, names, true);
  static_cast<std::vector<playlistLibElm_s>*>(arg)->push_back(std::move(e));
  return 0;
}
