// The database file's life: made, replaced, kept, and never lost to a
// passing fault or a crash in the middle of a batch.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <dirent.h>

#include <map>
#include <memory>
#include <random>
#include <regex>
#include <set>

#include "storeHelpers.h"

using namespace storetest;
using testsupport::TestRoot;

namespace {

const S kSchema = {
    "CREATE TABLE Version_TBL (Version)",
    "CREATE TABLE PlaylistLib_TBL (PlaylistID integer PRIMARY KEY,PlaylistType integer, AppType , PlaylistTitle, "
    "Owner, Tag)",
    "CREATE TABLE Playlist_TBL (UUID integer PRIMARY KEY, PlaylistID, OrderNr, MediaType, ContentType, Content, "
    "UPnPObjID)"};

// Lays the file at the store's place: raw bytes, or what `sql` makes.
void lay_file(const TestRoot& root, const std::string& text, bool isSql = true) {
  root.write(kDbFile, isSql ? "" : text);
  if (!isSql) return;
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(root.path(kDbFile).c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, text.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  sqlite3_close(db);
}

// The schema with `version`, a playlist "old" of "app" and one element.
std::string db_of_version(const std::string& version) {
  std::string sql;
  for (auto& s : kSchema) sql += s + ";";
  return sql + "INSERT INTO Version_TBL VALUES('" + version + "');" +
         "INSERT INTO PlaylistLib_TBL VALUES(NULL, 0, 'app', 'old', '', '');"
         "INSERT INTO Playlist_TBL VALUES(NULL, 1, 0, 0, 0, '/share/a.mp3', 'N/A');";
}

// The files moved aside beside the store, by name.
std::map<std::string, std::string> set_aside(const TestRoot& root) {
  std::map<std::string, std::string> out;
  const std::string file = root.path(kDbFile);
  const std::string dir = file.substr(0, file.rfind('/'));
  std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(dir.c_str()), closedir);
  if (!d) return out;
  while (dirent* e = readdir(d.get())) {
    const std::string name = e->d_name;
    if (name.rfind("playlist.db.damaged-", 0) == 0) out[name] = root.read(dir.substr(root.path("").size()) + "/" + name);
  }
  return out;
}

void expect_fresh(const std::string& file) {
  EXPECT_EQ(query(file, "SELECT sql FROM sqlite_master WHERE type='table' ORDER BY rowid"), kSchema);
  EXPECT_EQ(query(file, "SELECT * FROM Version_TBL"), S{"20131230"});
  EXPECT_EQ(query(file, "SELECT COUNT(*) FROM PlaylistLib_TBL UNION ALL SELECT COUNT(*) FROM Playlist_TBL"),
            (S{"0", "0"}));
}

}  // namespace

TEST(PlaylistFile, MissingFileOrOneWithoutThisVersionIsMadeEmptyAndThenKept) {
  std::string damaged;  // this version, its first page overwritten
  {
    TestRoot root;
    lay_file(root, db_of_version("20131230"));
    damaged = root.read(kDbFile).replace(100, 3996, std::string(3996, 'z'));
  }
  const std::map<std::string, std::pair<std::string, bool>> cases = {
      {"missing", {"", false}},
      {"zero-length", {"", false}},
      {"not a database", {std::string(4096, 'z'), false}},
      {"damaged", {damaged, false}},
      {"other version", {db_of_version("20120101"), true}},
      {"empty version table", {"CREATE TABLE Version_TBL (Version);CREATE TABLE x (a);", true}},
      {"no version table", {"CREATE TABLE x (a);INSERT INTO x VALUES(1);", true}}};
  for (auto& c : cases) {
    SCOPED_TRACE(c.first);
    TestRoot root;
    if (c.first != "missing") lay_file(root, c.second.first, c.second.second);
    {
      CSqlitePlaylist store;
      expect_fresh(root.path(kDbFile));
      EXPECT_EQ(query(root.path(kDbFile), "SELECT name FROM sqlite_master WHERE name='x'"), S{});
      EXPECT_EQ(store.addPlaylist("p", MEDIA_VIDEO, "app", "me", "t"), 0);
    }
    EXPECT_EQ(CSqlitePlaylist().getPlaylistID("p", "app"), 1);
    // A damaged file is kept beside the new one, whole; a file that only
    // lacks this version is replaced without a trace.
    const auto aside = set_aside(root);
    if (c.first == "damaged" || c.first == "not a database") {
      ASSERT_EQ(aside.size(), 1u);
      EXPECT_TRUE(std::regex_match(aside.begin()->first, std::regex("playlist\\.db\\.damaged-[0-9]{8}-[0-9]{6}")))
          << aside.begin()->first;
      EXPECT_TRUE(aside.begin()->second == c.second.first) << "the damaged bytes, unchanged";
    } else {
      EXPECT_TRUE(aside.empty());
    }
  }
}

// Damaged again and again: no earlier copy is overwritten.
TEST(PlaylistFile, EachDamagedFileIsKeptApart) {
  TestRoot root;
  for (int i = 0; i < 3; ++i) {
    lay_file(root, "SQLite format 3" + std::string(1, '\0') + std::string(4080, static_cast<char>('a' + i)), false);
    CSqlitePlaylist store;
    expect_fresh(root.path(kDbFile));
  }
  std::set<std::string> kept;
  for (const auto& f : set_aside(root)) kept.insert(f.second.substr(16, 1));
  EXPECT_EQ(kept, (std::set<std::string>{"a", "b", "c"}));
}

TEST(PlaylistFile, FileOfThisVersionIsKeptWhateverItHolds) {
  TestRoot root;
  lay_file(root, db_of_version("20131230") + "CREATE TABLE extra (a);");
  CSqlitePlaylist store;
  EXPECT_EQ(store.getPlaylistID("old", "app"), 1);
  EXPECT_EQ(contents(store, 1), S{"/share/a.mp3"});
  EXPECT_EQ(query(root.path(kDbFile), "SELECT name FROM sqlite_master WHERE name='extra'"), S{"extra"});
  EXPECT_EQ(query(root.path(kDbFile), "SELECT * FROM Version_TBL"), S{"20131230"});
}

// A file locked by another process is neither replaced nor given up: the
// operations fail with -12 until it can be read, and then it is judged.
TEST(PlaylistFile, FileThatCannotBeReadIsKeptAndOpenedLater) {
  for (const char* version : {"20131230", "19990101"}) {
    SCOPED_TRACE(version);
    TestRoot root;
    lay_file(root, db_of_version(version));
    const std::string before = root.read(kDbFile);
    sqlite3* holder = nullptr;
    ASSERT_EQ(sqlite3_open(root.path(kDbFile).c_str(), &holder), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    CSqlitePlaylist store;
    EXPECT_EQ(store.addPlaylist("new", MEDIA_AUDIO, "app", nullptr, nullptr), -12);
    EXPECT_EQ(root.read(kDbFile), before);
    EXPECT_TRUE(set_aside(root).empty()) << "a busy file is not damaged";

    sqlite3_exec(holder, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(holder);
    EXPECT_EQ(store.getSizeOfPlaylistLib("ALL"), version == std::string("20131230") ? 1 : 0);
  }
}

// A writer process killed at a random moment of its batches leaves a file
// that opens with its version and holds each batch whole or not at all.
TEST(PlaylistFile, KilledWriterLeavesWholeBatchesOnly) {
  const int kBatch = 200;
  TestRoot root;
  ASSERT_EQ(CSqlitePlaylist().addPlaylist("crash", MEDIA_AUDIO, "app", nullptr, nullptr), 0);
  std::mt19937 rng(7);
  for (int round = 0; round < 5; ++round) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {  // batches until killed, telling when one is half-way
      CSqlitePlaylist store;
      for (int batch = 0;; ++batch) {
        int base = store.getSizeOfPlaylist(1);
        store.transBegin();
        for (int j = 0; j < kBatch; ++j) {
          std::string c = std::to_string(round) + "." + std::to_string(batch) + "-" + std::to_string(j);
          store.transAddElmInPlaylist(1, MEDIA_AUDIO, CONTENT_FILE, c.c_str(), base + j);
          if (j == kBatch / 2 && write(fds[1], "x", 1) != 1) _exit(1);
        }
        store.transEnd();
      }
    }
    close(fds[1]);
    char ch;
    for (int seen = 0; seen < 2 + round && read(fds[0], &ch, 1) == 1;) ++seen;
    usleep(std::uniform_int_distribution<int>(0, 3000)(rng));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    close(fds[0]);

    CSqlitePlaylist store;
    EXPECT_EQ(query(root.path(kDbFile), "SELECT * FROM Version_TBL"), S{"20131230"});
    EXPECT_EQ(query(root.path(kDbFile), "PRAGMA integrity_check"), S{"ok"});
    std::map<std::string, int> perBatch;
    for (auto& c : contents(store, 1)) ++perBatch[c.substr(0, c.find('-'))];
    for (auto& b : perBatch) EXPECT_EQ(b.second, kBatch) << b.first;
    const I o = orders(store, 1);
    EXPECT_GE(o.size(), static_cast<size_t>(round + 1) * kBatch);  // each round commits one batch at least
    EXPECT_EQ(o, dense(static_cast<int>(o.size())));
  }
}

// A batch added at a position, killed after its shift and one item: the
// shift goes with the items, so the orders stay dense. A shift asked for
// outside a batch of this thread is refused rather than committed alone.
TEST(PlaylistFile, KilledPositionedBatchLeavesNoHole) {
  TestRoot root;
  {
    CSqlitePlaylist store;
    ASSERT_EQ(store.addPlaylist("hole", MEDIA_AUDIO, "app", nullptr, nullptr), 0);
    store.transBegin();
    for (int j = 0; j < 3; ++j) store.transAddElmInPlaylist(1, MEDIA_AUDIO, CONTENT_FILE, "old", j);
    store.transEnd();
    EXPECT_EQ(store.transAdjustPlayOrder(1, 1, 3), -1);
    EXPECT_EQ(orders(store, 1), dense(3));
  }
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    CSqlitePlaylist store;
    store.transBegin();
    if (store.transAdjustPlayOrder(1, 1, 3) != 0) _exit(1);
    store.transAddElmInPlaylist(1, MEDIA_AUDIO, CONTENT_FILE, "new", 1);
    if (write(fds[1], "x", 1) != 1) _exit(1);
    pause();
    _exit(0);
  }
  close(fds[1]);
  char ch;
  ASSERT_EQ(read(fds[0], &ch, 1), 1);
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  close(fds[0]);
  CSqlitePlaylist store;
  EXPECT_EQ(orders(store, 1), dense(3));
  EXPECT_EQ(contents(store, 1), (S{"old", "old", "old"}));
}
