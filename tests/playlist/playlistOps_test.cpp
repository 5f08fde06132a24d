// The library and element operations: their results, the ordering rule, and
// text that must never change a statement.
#include <gtest/gtest.h>

#include "storeHelpers.h"

using namespace storetest;

class PlaylistOps : public ::testing::Test {
 protected:
  Store s;
  CSqlitePlaylist& db = s.db;
  int list(const char* title, S items, const char* app = "app") {
    db.addPlaylist(title, MEDIA_AUDIO, app, nullptr, nullptr);
    for (auto& i : items) EXPECT_EQ(db.addElmInPlaylist(title, MEDIA_AUDIO, CONTENT_FILE, app, i.c_str(), -1), 0);
    return db.getPlaylistID(title, app);
  }
};

TEST_F(PlaylistOps, TitlesAreUniqueWithinAnAppTypeAndFoundByIdOrTitle) {
  EXPECT_EQ(I({db.addPlaylist("t", MEDIA_VIDEO, "a1", "owner", nullptr),
               db.addPlaylist("t", MEDIA_AUDIO, "a1", nullptr, nullptr),
               db.addPlaylist("t", MEDIA_AUDIO, "a2", nullptr, "tag"), db.getPlaylistID("t", "a1"),
               db.getPlaylistID("t", "a2"), db.getPlaylistID("none", "a1")}),
            (I{0, 1, 0, 1, 2, -1}));
  playlistLibElm_s e;
  e.appType = "left as it was";
  EXPECT_EQ(db.getPlaylistLibElmByID(1, e), 0);
  EXPECT_EQ(std::make_tuple(e.playlistID, e.title, e.playlistType, e.owner, e.tag, e.appType),
            std::make_tuple(1, std::string("t"), int(MEDIA_VIDEO), std::string("owner"), std::string(),
                            std::string("left as it was")));
  std::string none, title;  // another app's playlist, or none at all: the id, and no title
  EXPECT_EQ(I({db.getPlaylistTitle(1, none, "a2"), db.getPlaylistTitle(99, none, "a1"),
               db.getPlaylistTitle(2, title, "a2")}), (I{1, 99, 2}));
  EXPECT_EQ(none + "|" + title, "|t");
}

TEST_F(PlaylistOps, CountingAndPagingTheLibrary) {
  for (const char* t : {"p0", "p1", "p2"}) list(t, {}, "a1");
  list("q0", {}, "a2");
  EXPECT_EQ(I({db.getSizeOfPlaylistLib("ALL"), db.getSizeOfPlaylistLib("a1"), db.getSizeOfPlaylistLib("x")}),
            (I{4, 3, 0}));
  std::vector<playlistLibElm_s> v;
  EXPECT_EQ(I({db.getPlaylistLibElmsByPage(v, "a1", 0, 0), db.getPlaylistLibElmsByPage(v, "a1", 1, 1),
               db.getPlaylistLibElmsByPage(v, "a1", 3, 5), db.getPlaylistLibElmsByPage(v, "ALL", 2, 10)}),
            (I{0, 0, 0, 0}));  // each appends; past the end, nothing
  S titles;
  for (auto& e : v) titles.push_back(e.title + "/" + e.appType);
  EXPECT_EQ(titles, (S{"p0/a1", "p1/a1", "p2/a1", "p1/a1", "p2/a1", "q0/a2"}));

  playlistLibElm_s e, past, all;
  past.playlistID = all.playlistID = 5;
  EXPECT_EQ(I({db.getPlaylistLibElmByIndex(e, "a1", 2), db.getPlaylistLibElmByIndex(past, "a1", 3),
               db.getPlaylistLibElmByIndex(all, "ALL", 3)}),  // "ALL" is counted, but read as an app type
            (I{0, -12, 0}));
  EXPECT_EQ(std::make_tuple(e.title, past.playlistID, all.playlistID), std::make_tuple(std::string("p2"), 0, 0));
}

// Random sequences are checked against a model elsewhere; these are the
// cases that model leaves out.
TEST_F(PlaylistOps, ElementOperationsAtTheEdges) {
  const int a = list("a", {"a", "b", "c", "d"}), b = list("b", {"a", "b"});
  const S before = dump(s.file());  // unknown playlist, `from` or uuid: nothing changes
  EXPECT_EQ(I({db.delPlaylist("nope", "app"), db.delAllElmInPlaylist("nope", "app"),
               db.delElmInPlaylist("nope", "app", 1),
               db.addElmInPlaylist("nope", MEDIA_AUDIO, CONTENT_FILE, "app", "x", -1),
               db.delElmInPlaylist("b", "app", elements(db, a)[1].uuid), db.delElmInPlaylist("b", "app", 99999),
               db.adjustPlayOrder(b, 2, 5), db.adjustPlayOrder(b, 3, 1)}),
            (I{0, 0, -12, -12, 0, 0, 0, -1}));
  EXPECT_NE(db.reorderPlaylistElm(b, 7, 1), 0);
  EXPECT_EQ(dump(s.file()), before);

  ASSERT_EQ(db.addElmInPlaylist("b", MEDIA_AUDIO, CONTENT_FILE, "app", "z", -3), 0);  // taken as it stands
  EXPECT_EQ(orders(db, b), (I{-3, 1, 2}));
  playlistElm_s e, f;
  EXPECT_EQ(I({db.getPlaylistElmByOrder(e, b, -3), db.getPlaylistElmByOrder(f, a, 9)}), (I{0, -1}));
  EXPECT_EQ(e.content, "z");
  EXPECT_EQ(db.getPlaylistElmByIndex(e, a, 3), 0);
  EXPECT_EQ(db.getPlaylistElmByIndex_NOLOCK(f, a, 3), 0);
  EXPECT_EQ(std::make_tuple(e.uuid, e.playlistID, e.content), std::make_tuple(f.uuid, a, std::string("d")));
  EXPECT_EQ(db.getPlaylistElmByIndex(e, a, 4), -12);
  EXPECT_EQ(e.playlistID, 0);

  std::vector<playlistElm_s> v(1);  // an empty playlist gives 0 even for a start past the end
  EXPECT_EQ(I({db.getPlaylistElmsByPage(v, list("e", {}), 5, 1), db.getPlaylistElmsByPage(v, a, 4, 1),
               db.getPlaylistElmsByPage(v, a, 1, 2)}), (I{0, -12, 0}));
  EXPECT_EQ(v.size(), 3u);
  EXPECT_EQ(db.delAllElmInPlaylist("a", "app"), 0);
  EXPECT_EQ(I({db.getSizeOfPlaylist(a), db.getSizeOfPlaylist(b)}), (I{0, 3}));
}

// Keys beyond an int (rows written by another program) travel cut short:
// such a move fails whole and leaves the order numbers dense, and it never
// moves the row whose key the cut one happens to equal.
TEST_F(PlaylistOps, ReorderOfAKeyBeyondAnIntFailsWhole) {
  const int id = list("p", {"a", "b", "c"});
  ASSERT_EQ(elements(db, id)[0].uuid, 1u);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(s.file().c_str(), &other), SQLITE_OK);
  const std::string rows = "INSERT INTO Playlist_TBL VALUES(3000000000, " + std::to_string(id) +
                           ", 3, 0, 0, 'far', 'N/A');INSERT INTO Playlist_TBL VALUES(4294967297, " +
                           std::to_string(id) + ", 4, 0, 0, 'wraps', 'N/A');";
  EXPECT_EQ(sqlite3_exec(other, rows.c_str(), nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(other);
  sqlite3_close(other);
  const S before = dump(s.file());
  EXPECT_NE(db.reorderPlaylistElm(id, 3, 0), 0);  // a key that matches no row
  EXPECT_EQ(dump(s.file()), before);
  EXPECT_NE(db.reorderPlaylistElm(id, 4, 2), 0);  // a cut key equal to the first row's
  EXPECT_NE(db.reorderPlaylistElm(id, 4, 0), 0);
  EXPECT_EQ(dump(s.file()), before);
  EXPECT_EQ(db.reorderPlaylistElm(id, 2, 0), 0);  // the store still moves what it can
  EXPECT_EQ(contents(db, id), (S{"c", "a", "b", "far", "wraps"}));
  EXPECT_EQ(orders(db, id), dense(5));
}

TEST_F(PlaylistOps, TransEndWithoutBeginFailsAndFreesTheLock) {
  EXPECT_NE(db.transEnd(), SQLITE_OK);
  EXPECT_EQ(list("p", {"a"}), 1);  // would hang on a lock left held
  ASSERT_EQ(db.transBegin(), SQLITE_OK);
  EXPECT_NE(db.transBegin(), SQLITE_OK);  // nested: refused, not hung
  EXPECT_EQ(db.transAddElmInPlaylist(1, MEDIA_AUDIO, CONTENT_FILE, "b", 1), 0);
  EXPECT_EQ(db.transEnd(), SQLITE_OK);
  EXPECT_EQ(contents(db, 1), (S{"a", "b"}));
}

// A statement too long for its buffer fails whole: no cut statement runs,
// and a shift made for it is undone.
TEST_F(PlaylistOps, OverlongStatementsFailWithoutTrace) {
  const int id = list("p", {"a", "b", "c"});
  const S before = dump(s.file());
  const std::string text(1000, 'c');
  EXPECT_EQ(db.addPlaylist(std::string(1100, 't').c_str(), MEDIA_AUDIO, "app", nullptr, nullptr), -12);
  EXPECT_EQ(db.addPlaylist("t", MEDIA_AUDIO, "app", text.c_str(), nullptr), 0);  // a failed insert is silent
  EXPECT_EQ(db.addElmInPlaylist("p", MEDIA_AUDIO, CONTENT_FILE, "app", text.c_str(), 0), -12);
  EXPECT_EQ(db.transAddElmInPlaylist(id, MEDIA_AUDIO, CONTENT_FILE, text.c_str(), 3), -12);
  EXPECT_EQ(dump(s.file()), before);
  ASSERT_EQ(db.addElmInPlaylist("p", MEDIA_AUDIO, CONTENT_FILE, "app", text.substr(100).c_str(), 0), 0);
  EXPECT_EQ(contents(db, id)[0], text.substr(100));
}

TEST_F(PlaylistOps, QuotesInNamesNeverReachSqlite) {
  const int id = list("p", {"a", "b"});
  const uint64_t uuid = elements(db, id)[0].uuid;
  const S before = dump(s.file());
  for (const char* bad : {"x' OR '1'='1", "'; DROP TABLE Playlist_TBL; --"}) {
    SCOPED_TRACE(bad);
    std::string title;
    playlistLibElm_s e;
    std::vector<playlistLibElm_s> v;
    EXPECT_EQ(I({db.addPlaylist(bad, MEDIA_AUDIO, "app", nullptr, nullptr),
                 db.addPlaylist("t", MEDIA_AUDIO, bad, nullptr, nullptr), db.delPlaylist(bad, "app"),
                 db.delPlaylist("p", bad), db.getSizeOfPlaylistLib(bad), db.getPlaylistID(bad, "app"),
                 db.getPlaylistID("p", bad), db.getPlaylistTitle(id, title, bad),
                 db.getPlaylistLibElmByIndex(e, bad, 0), db.getPlaylistLibElmsByPage(v, bad, 0, 0)}),
              (I{-12, -12, -12, -12, -1, -12, -12, -12, -12, 0}));
    EXPECT_EQ(I({db.addElmInPlaylist(bad, MEDIA_AUDIO, CONTENT_FILE, "app", "c", -1),
                 db.addElmInPlaylist("p", MEDIA_AUDIO, CONTENT_FILE, bad, "c", 0),
                 db.delElmInPlaylist(bad, "app", uuid), db.delElmInPlaylist("p", bad, uuid),
                 db.delAllElmInPlaylist(bad, "app"), db.delAllElmInPlaylist("p", bad)}),
              (I{-12, -12, -12, -12, -12, -12}));
    // Owner and tag reach only the insert, whose failure is not reported.
    EXPECT_EQ(I({db.addPlaylist("t", MEDIA_AUDIO, "app", bad, nullptr),
                 db.addPlaylist("t", MEDIA_AUDIO, "app", nullptr, bad),
                 db.addPlaylist("p", MEDIA_AUDIO, "app", bad, nullptr)}),
              (I{0, 0, 1}));
    EXPECT_EQ(title, "");
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(dump(s.file()), before);
  }
}
