// Shared by the playlist store's tests: a store in its own simulated
// appliance, and a view of the file through a connection of the test's own.
#pragma once

#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "playlist/SqlitePlaylist.h"
#include "support/testRoot.h"

namespace storetest {

using S = std::vector<std::string>;
using I = std::vector<int>;
// The public share links into the data volume, and the store lies beside it.
const char* const kDbFile = "/share/CACHEDEV1_DATA/.tarpo/.@vessorhome/playlist.db";

// Every row of `sql` on the file as "a|b|c"; a failure gives {"ERROR <code>"}.
inline S query(const std::string& path, const std::string& sql) {
  S rows;
  sqlite3* db = nullptr;
  sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  int rc = sqlite3_exec(db, sql.c_str(), [](void* arg, int n, char** v, char**) {
    std::string row;
    for (int i = 0; i < n; ++i) row += (i ? "|" : "") + std::string(v[i] ? v[i] : "NULL");
    static_cast<S*>(arg)->push_back(row);
    return 0;
  }, &rows, nullptr);
  sqlite3_close(db);
  return rc == SQLITE_OK ? rows : S{"ERROR " + std::to_string(rc)};
}

// Every row of the three tables, for "nothing changed" checks.
inline S dump(const std::string& path) {
  S all;
  for (std::string t : {"Version_TBL", "PlaylistLib_TBL", "Playlist_TBL"})
    for (auto& r : query(path, "SELECT '" + t + "', * FROM " + t + " ORDER BY rowid")) all.push_back(r);
  return all;
}

// A root in memory keeps thousands of commits from waiting on the disk, for
// tests of order and threads. Call before making the Store.
inline bool root_in_memory() { return ::access("/dev/shm", W_OK) == 0 && ::setenv("TMPDIR", "/dev/shm", 1) == 0; }

struct Store {
  testsupport::TestRoot root;
  CSqlitePlaylist db;
  std::string file() const { return root.path(kDbFile); }
};

inline std::vector<playlistElm_s> elements(CSqlitePlaylist& s, int id) {
  std::vector<playlistElm_s> v;
  s.getPlaylistElmsByPage(v, id, 0, 0);
  return v;
}
template <class T>
std::vector<T> column(CSqlitePlaylist& s, int id, T playlistElm_s::*field) {
  std::vector<T> out;
  for (auto& e : elements(s, id)) out.push_back(e.*field);
  return out;
}
inline S contents(CSqlitePlaylist& s, int id) { return column(s, id, &playlistElm_s::content); }
inline I orders(CSqlitePlaylist& s, int id) { return column(s, id, &playlistElm_s::orderNum); }
inline I dense(int n) {
  I v(n);
  std::iota(v.begin(), v.end(), 0);
  return v;
}

}  // namespace storetest
