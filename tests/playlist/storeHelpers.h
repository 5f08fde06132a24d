// Shared by the playlist store's tests: a store in its own simulated
// appliance, and a view of the file through a connection of the test's own.
#pragma once

#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include <memory>
#include <string>
#include <vector>

#include "playlist/SqlitePlaylist.h"
#include "support/testRoot.h"

namespace storetest {

const char* const kDbFile = "/share/.tarpo/.@vessorhome/playlist.db";

// Runs `sql` on the file at `path` and gives every row as "a|b|c"; a failed
// statement gives one line "ERROR <code>".
inline std::vector<std::string> query(const std::string& path, const std::string& sql) {
  std::vector<std::string> rows;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return {"ERROR open"};
  }
  auto cb = [](void* arg, int n, char** v, char**) {
    std::string row;
    for (int i = 0; i < n; ++i) row += (i ? "|" : "") + std::string(v[i] ? v[i] : "NULL");
    static_cast<std::vector<std::string>*>(arg)->push_back(row);
    return 0;
  };
  int rc = sqlite3_exec(db, sql.c_str(), cb, &rows, nullptr);
  sqlite3_close(db);
  if (rc != SQLITE_OK) return {"ERROR " + std::to_string(rc)};
  return rows;
}

// Every row of the three tables, for "nothing changed" checks.
inline std::vector<std::string> dump(const std::string& path) {
  std::vector<std::string> all;
  for (const char* t : {"Version_TBL", "PlaylistLib_TBL", "Playlist_TBL"}) {
    all.push_back(t);
    for (auto& r : query(path, std::string("SELECT * FROM ") + t + " ORDER BY rowid")) all.push_back(r);
  }
  return all;
}

// For tests of order and threads, not of durability: a root in memory keeps
// thousands of commits from waiting on the disk. Build it before the Store.
struct RootInMemory {
  RootInMemory() {
    struct stat st;
    if (::stat("/dev/shm", &st) == 0 && S_ISDIR(st.st_mode) && ::access("/dev/shm", W_OK) == 0)
      ::setenv("TMPDIR", "/dev/shm", 1);
  }
};

struct Store {
  testsupport::TestRoot root;
  std::unique_ptr<CSqlitePlaylist> db{new CSqlitePlaylist()};
  std::string file() const { return root.path(kDbFile); }
  void reopen() {
    db.reset();
    db.reset(new CSqlitePlaylist());
  }
};

// A playlist's elements in order, read through the store.
inline std::vector<playlistElm_s> elements(CSqlitePlaylist& s, int id) {
  std::vector<playlistElm_s> v;
  s.getPlaylistElmsByPage(v, id, 0, 0);
  return v;
}

inline std::vector<std::string> contents(CSqlitePlaylist& s, int id) {
  std::vector<std::string> out;
  for (auto& e : elements(s, id)) out.push_back(e.content);
  return out;
}

inline std::vector<int> orders(CSqlitePlaylist& s, int id) {
  std::vector<int> out;
  for (auto& e : elements(s, id)) out.push_back(e.orderNum);
  return out;
}

}  // namespace storetest
