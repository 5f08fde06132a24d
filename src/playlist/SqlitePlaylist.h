// The playlist store on SQLite: one connection, one mutex, reached through
// CGlobalsSingleton<CSqlitePlaylist>::get().
#pragma once

#include <pthread.h>
#include <sqlite3.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "foundation/thread.h"
#include "playlist/ISqlPlaylist.h"

namespace vessord {
namespace playlist {
class CStatement;
}
}  // namespace vessord

class CSqlitePlaylist : public ISqlPlaylist {
 public:
  // Opens (or makes) "playlist.db" in ".tarpo/.@vessorhome/" beside the
  // public share. A store that cannot be opened now is opened again by the
  // next operation that takes the lock.
  CSqlitePlaylist();
  ~CSqlitePlaylist() override;
  CSqlitePlaylist(const CSqlitePlaylist&) = delete;
  CSqlitePlaylist& operator=(const CSqlitePlaylist&) = delete;

  // Library operations.
  int addPlaylist(const char* title, mediaType_e type, const char* appType, const char* owner,
                  const char* tag) override;
  int delPlaylist(const std::string& title, const std::string& appType) override;
  int getSizeOfPlaylistLib(const char* appType) override;
  int getPlaylistID(const std::string& title, const std::string& appType) override;
  int getPlaylistTitle(int playlistID, std::string& title, const char* appType) override;
  int getPlaylistLibElmByIndex(playlistLibElm_s& out, const char* appType, int index) override;
  int getPlaylistLibElmByID(int playlistID, playlistLibElm_s& out) override;
  int getPlaylistLibElmsByPage(std::vector<playlistLibElm_s>& out, const char* appType, int start,
                               int count) override;

  // Element operations.
  int getSizeOfPlaylist(int playlistID) override;
  int getPlaylistElmByIndex(playlistElm_s& out, int playlistID, int index) override;
  int getPlaylistElmByOrder(playlistElm_s& out, int playlistID, int order) override;
  int getPlaylistElmsByPage(std::vector<playlistElm_s>& out, int playlistID, int start, int count) override;
  int addElmInPlaylist(const char* title, mediaType_e mediaType, contentType_e contentType, const char* appType,
                       const char* content, int position) override;
  int delElmInPlaylist(const char* title, const char* appType, uint64_t uuid) override;
  int delAllElmInPlaylist(const char* title, const char* appType) override;
  int reorderPlaylistElm(int playlistID, int from, int to) override;
  int getPlaylistElmByIndex_NOLOCK(playlistElm_s& out, int playlistID, int index) override;
  int adjustPlayOrder(int playlistID, int start, int delta) override;

  // Batch insertion: transBegin takes the mutex and keeps it (even when
  // "begin" fails) until transEnd; in between only transAddElmInPlaylist
  // may be used by that thread. transEnd commits and frees the mutex, and
  // called without transBegin it waits for any running batch, lets
  // "commit" fail and leaves the mutex free. Both return SQLite's code.
  int transBegin();
  int transEnd();
  // Inserts one element at `order` without shifting anything: the caller
  // has made room. 0, or -12.
  int transAddElmInPlaylist(int playlistID, mediaType_e mediaType, contentType_e contentType, const char* content,
                            int order);
  // adjustPlayOrder inside the running batch of this thread, so that the
  // room made and the items put there commit or vanish together. -1 when
  // the playlist has fewer than `start` elements or no batch of this
  // thread is open; otherwise SQLite's code.
  int transAdjustPlayOrder(int playlistID, int start, int delta);
  // getSizeOfPlaylist inside the running batch of this thread, so that two
  // batches into one playlist never count the same size; -1 otherwise.
  int transSizeOfPlaylist(int playlistID);

  // Where the database file lies.
  const std::string& dbPath() const { return m_dbPath; }

 private:
  // All of these run without taking m_dbMutex.
  // Runs one CREATE statement on a connection not yet in use; SQLite's code.
  int createTable_(sqlite3* db, const char* sql);
  int getSizeOfPlaylistLib_(const std::string& appType);
  int getSizeOfPlaylist_(int playlistID);
  int getPlaylistElmByIndex_(playlistElm_s& out, int playlistID, int index);
  int delAllElmInPlaylist_(const std::string& title, const std::string& appType);
  // The first column of the first row as an int, -1 on SQL failure. With
  // `pRows`, the number of rows seen (-1 on failure), so that "no row" can
  // be told from a value.
  int selectInt_(const char* sql, int* pRows = nullptr);
  int selectInt_(const vessord::playlist::CStatement& sql, int* pRows = nullptr);

  sqlite3* db_() const { return __atomic_load_n(&m_db, __ATOMIC_ACQUIRE); }
  void makeDir_();
  bool ensureOpen_();
  int openStore_();
  // The id of title and appType into `id` (0 when none); SQLite's code.
  int resolvePlaylistID_(const char* title, const char* appType, int& id);
  // The same for an operation that needs the playlist: 0 with its id, or
  // -1 when the lookup failed or no such playlist exists (logged).
  int existingPlaylistID_(const char* title, const char* appType, int& id);
  // sqlite3_exec with the failure logged; SQLITE_TOOBIG for a statement
  // that did not fit its buffer, SQLITE_CANTOPEN without a connection.
  int exec_(const vessord::playlist::CStatement& sql, int (*cb)(void*, int, char**, char**), void* arg);
  int exec_(const char* sql, int (*cb)(void*, int, char**, char**), void* arg);
  bool threadOwnsTrans_() const;

  static int getPlaylistID_CB(void* arg, int columns, char** values, char** names);
  static int getCount_CB(void* arg, int columns, char** values, char** names);
  static int getDBVersion_CB(void* arg, int columns, char** values, char** names);
  static int getPlaylistTitle_CB(void* arg, int columns, char** values, char** names);
  static int getPlaylistElm_CB(void* arg, int columns, char** values, char** names);
  static int getPlaylistLibElm_CB(void* arg, int columns, char** values, char** names);
  static int getPlaylistLibElmByPage_CB(void* arg, int columns, char** values, char** names);
  static int getPlaylistElmByPage_CB(void* arg, int columns, char** values, char** names);

  sqlite3* m_db = nullptr;  // set once the file is open; never closed before destruction
  pthread_mutex_t m_dbMutex;
  std::string m_dbDir;  // as the mkdir line takes it
  std::string m_dbPath;
  bool m_bTriedOpen = false;
  std::atomic<bool> m_bInTrans{false};
  std::atomic<pthread_t> m_transOwner{};
};
