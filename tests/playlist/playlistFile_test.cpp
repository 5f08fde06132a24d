// The database file's life: made, replaced, kept, and never lost to a
// passing fault or a crash in the middle of a batch.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <map>
#include <random>

#include "storeHelpers.h"

using namespace storetest;
using testsupport::TestRoot;

namespace {

const std::vector<std::string> kSchema = {
    "CREATE TABLE Version_TBL (Version)",
    "CREATE TABLE PlaylistLib_TBL (PlaylistID integer PRIMARY KEY,PlaylistType integer, AppType , PlaylistTitle, "
    "Owner, Tag)",
    "CREATE TABLE Playlist_TBL (UUID integer PRIMARY KEY, PlaylistID, OrderNr, MediaType, ContentType, Content, "
    "UPnPObjID)"};

// Makes the file at the store's place by running `sql` on it.
void make_db(const TestRoot& root, const std::string& sql) {
  root.write(kDbFile, "");
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open(root.path(kDbFile).c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
  sqlite3_close(db);
}

std::string schema_with_version(const std::string& version) {
  std::string sql;
  for (auto& s : kSchema) sql += s + ";";
  return sql + "INSERT INTO Version_TBL VALUES('" + version + "');" +
         "INSERT INTO PlaylistLib_TBL VALUES(NULL, 0, 'app', 'old', '', '');"
         "INSERT INTO Playlist_TBL VALUES(NULL, 1, 0, 0, 0, '/share/a.mp3', 'N/A');";
}

void expect_fresh(const std::string& file) {
  EXPECT_EQ(query(file, "SELECT sql FROM sqlite_master WHERE type='table' ORDER BY rowid"), kSchema);
  EXPECT_EQ(query(file, "SELECT * FROM Version_TBL"), std::vector<std::string>{"20131230"});
  EXPECT_TRUE(query(file, "SELECT * FROM PlaylistLib_TBL").empty());
  EXPECT_TRUE(query(file, "SELECT * FROM Playlist_TBL").empty());
}

}  // namespace

TEST(PlaylistFile, MissingFileIsMadeWithSchemaVersionAndIndex) {
  Store s;
  expect_fresh(s.file());
  EXPECT_EQ(query(s.file(), "SELECT name FROM sqlite_master WHERE type='index' AND tbl_name='Playlist_TBL'"),
            std::vector<std::string>{"Playlist_TBL_Order_IDX"});
  EXPECT_EQ(s.db->addPlaylist("p", MEDIA_AUDIO, "app", nullptr, nullptr), 0);
  s.reopen();
  EXPECT_EQ(s.db->getPlaylistID("p", "app"), 1);
  EXPECT_EQ(query(s.file(), "SELECT COUNT(*) FROM Version_TBL"), std::vector<std::string>{"1"});
}

TEST(PlaylistFile, FileWithoutThisVersionIsReplaced) {
  const std::map<std::string, std::string> sqlCases = {
      {"other version", schema_with_version("20120101")},
      {"empty version table", "CREATE TABLE Version_TBL (Version);CREATE TABLE x (a);"},
      {"no version table", "CREATE TABLE PlaylistLib_TBL (a);INSERT INTO PlaylistLib_TBL VALUES(1);"}};
  for (auto& c : sqlCases) {
    SCOPED_TRACE(c.first);
    TestRoot root;
    make_db(root, c.second);
    CSqlitePlaylist store;
    expect_fresh(root.path(kDbFile));
    EXPECT_EQ(query(root.path(kDbFile), "SELECT name FROM sqlite_master WHERE name='x'"),
              std::vector<std::string>{});
  }
  for (std::string bytes : {std::string(), std::string(4096, 'z')}) {
    SCOPED_TRACE(bytes.empty() ? "zero-length file" : "not a database");
    TestRoot root;
    root.write(kDbFile, bytes);
    CSqlitePlaylist store;
    expect_fresh(root.path(kDbFile));
    EXPECT_EQ(store.addPlaylist("p", MEDIA_VIDEO, "app", "me", "t"), 0);
  }
}

TEST(PlaylistFile, FileOfThisVersionIsKeptWhateverItHolds) {
  TestRoot root;
  make_db(root, schema_with_version("20131230") + "CREATE TABLE extra (a);");
  for (int round = 0; round < 2; ++round) {
    CSqlitePlaylist store;
    EXPECT_EQ(store.getPlaylistID("old", "app"), 1);
    EXPECT_EQ(contents(store, 1), std::vector<std::string>{"/share/a.mp3"});
  }
  EXPECT_EQ(query(root.path(kDbFile), "SELECT name FROM sqlite_master WHERE type!='table' OR name='extra'"),
            (std::vector<std::string>{"extra", "Playlist_TBL_Order_IDX"}));
  EXPECT_EQ(query(root.path(kDbFile), "SELECT * FROM Version_TBL"), std::vector<std::string>{"20131230"});
}

// A file that cannot be read just now is neither replaced nor given up: the
// operations fail with -12 until it can be read again.
TEST(PlaylistFile, FileThatCannotBeReadIsKeptAndOpenedLater) {
  for (const char* version : {"20131230", "19990101"}) {
    SCOPED_TRACE(version);
    TestRoot root;
    make_db(root, schema_with_version(version));
    const std::string before = root.read(kDbFile);
    sqlite3* holder = nullptr;
    ASSERT_EQ(sqlite3_open(root.path(kDbFile).c_str(), &holder), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(holder, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);

    CSqlitePlaylist store;
    EXPECT_EQ(store.addPlaylist("new", MEDIA_AUDIO, "app", nullptr, nullptr), -12);
    playlistElm_s e;
    EXPECT_EQ(store.getPlaylistElmByIndex_NOLOCK(e, 1, 0), -12);
    EXPECT_EQ(root.read(kDbFile), before);

    sqlite3_exec(holder, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(holder);
    if (std::string(version) == "20131230") {
      EXPECT_EQ(store.getPlaylistID("old", "app"), 1);
      EXPECT_EQ(store.addPlaylist("new", MEDIA_AUDIO, "app", nullptr, nullptr), 0);
    } else {
      EXPECT_EQ(store.getSizeOfPlaylistLib("ALL"), 0);  // now read, and replaced
      expect_fresh(root.path(kDbFile));
    }
  }

  // An empty directory where the file should be: removable, yet no database.
  TestRoot root;
  root.write("/share/.tarpo/.@vessorhome/other", "");
  ASSERT_EQ(::mkdir(root.path(kDbFile).c_str(), 0755), 0);
  CSqlitePlaylist store;
  EXPECT_EQ(store.addPlaylist("p", MEDIA_AUDIO, "app", nullptr, nullptr), -12);
  EXPECT_EQ(store.getSizeOfPlaylist(1), -1);
  struct stat st;
  EXPECT_TRUE(::stat(root.path(kDbFile).c_str(), &st) == 0 && S_ISDIR(st.st_mode));
}

TEST(PlaylistFile, TransEndWithoutBeginFailsAndFreesTheLock) {
  Store s;
  EXPECT_NE(s.db->transEnd(), SQLITE_OK);
  auto later = std::async(std::launch::async, [&] { return s.db->getSizeOfPlaylistLib("ALL"); });
  ASSERT_EQ(later.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "store lock left held";
  EXPECT_EQ(later.get(), 0);

  ASSERT_EQ(s.db->addPlaylist("p", MEDIA_AUDIO, "app", nullptr, nullptr), 0);
  EXPECT_EQ(s.db->transBegin(), SQLITE_OK);
  EXPECT_NE(s.db->transBegin(), SQLITE_OK);  // nested: refused, not hung
  EXPECT_EQ(s.db->transAddElmInPlaylist(1, MEDIA_AUDIO, CONTENT_FILE, "a", 0), 0);
  EXPECT_EQ(s.db->transEnd(), SQLITE_OK);
  EXPECT_EQ(contents(*s.db, 1), std::vector<std::string>{"a"});
}

// A writer process killed at a random moment of its batches leaves a file
// that opens with its version and holds each batch whole or not at all.
TEST(PlaylistFile, KilledWriterLeavesWholeBatchesOnly) {
  const int kBatch = 200;
  TestRoot root;
  int id;
  {
    CSqlitePlaylist store;
    ASSERT_EQ(store.addPlaylist("crash", MEDIA_AUDIO, "app", nullptr, nullptr), 0);
    id = store.getPlaylistID("crash", "app");
  }
  std::mt19937 rng(7);
  for (int round = 0; round < 5; ++round) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      close(fds[0]);
      CSqlitePlaylist store;
      for (int batch = 0;; ++batch) {
        int base = store.getSizeOfPlaylist(id);
        store.transBegin();
        for (int j = 0; j < kBatch; ++j) {
          std::string c = "r" + std::to_string(round) + "b" + std::to_string(batch) + "-" + std::to_string(j);
          store.transAddElmInPlaylist(id, MEDIA_AUDIO, CONTENT_FILE, c.c_str(), base + j);
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
    EXPECT_EQ(query(root.path(kDbFile), "SELECT * FROM Version_TBL"), std::vector<std::string>{"20131230"});
    EXPECT_EQ(query(root.path(kDbFile), "PRAGMA integrity_check"), std::vector<std::string>{"ok"});
    std::map<std::string, int> perBatch;
    auto all = elements(store, id);
    for (size_t i = 0; i < all.size(); ++i) {
      ASSERT_EQ(all[i].orderNum, static_cast<int>(i));
      ++perBatch[all[i].content.substr(0, all[i].content.find('-'))];
    }
    ASSERT_EQ(all.size() % kBatch, 0u);
    for (auto& b : perBatch) EXPECT_EQ(b.second, kBatch) << b.first;
  }
}
