// The library and element operations: their results, the ordering rule, and
// text that must never change a statement.
#include <gtest/gtest.h>

#include "storeHelpers.h"

using namespace storetest;
using S = std::vector<std::string>;

class PlaylistOps : public ::testing::Test {
 protected:
  Store s;
  CSqlitePlaylist& db() { return *s.db; }
  int make(const char* title, const char* app = "app") {
    db().addPlaylist(title, MEDIA_AUDIO, app, nullptr, nullptr);
    return db().getPlaylistID(title, app);
  }
  void add(const char* title, const char* content, int position = -1, contentType_e type = CONTENT_FILE) {
    ASSERT_EQ(db().addElmInPlaylist(title, MEDIA_AUDIO, type, "app", content, position), 0) << content;
  }
  int list(const char* title, S items) {
    int id = make(title);
    for (auto& i : items) add(title, i.c_str());
    return id;
  }
};

TEST_F(PlaylistOps, TitlesAreUniqueWithinAnAppType) {
  EXPECT_EQ(db().addPlaylist("t", MEDIA_VIDEO, "a1", "owner", nullptr), 0);
  EXPECT_EQ(db().addPlaylist("t", MEDIA_AUDIO, "a1", nullptr, nullptr), 1);
  EXPECT_EQ(db().addPlaylist("t", MEDIA_AUDIO, "a2", nullptr, "tag"), 0);
  int id1 = db().getPlaylistID("t", "a1");
  int id2 = db().getPlaylistID("t", "a2");
  EXPECT_GT(id1, 0);
  EXPECT_GT(id2, id1);
  EXPECT_EQ(db().getPlaylistID("none", "a1"), -1);

  playlistLibElm_s e;
  e.appType = "left as it was";
  EXPECT_EQ(db().getPlaylistLibElmByID(id1, e), 0);
  EXPECT_EQ(e.playlistID, id1);
  EXPECT_EQ(e.title, "t");
  EXPECT_EQ(e.playlistType, MEDIA_VIDEO);
  EXPECT_EQ(e.owner, "owner");
  EXPECT_EQ(e.tag, "");
  EXPECT_EQ(e.appType, "left as it was");

  std::string title;
  EXPECT_EQ(db().getPlaylistTitle(id1, title, "a2"), id1);
  EXPECT_EQ(title, "");
  EXPECT_EQ(db().getPlaylistTitle(99, title, "a1"), 99);
  EXPECT_EQ(title, "");
  EXPECT_EQ(db().getPlaylistTitle(id2, title, "a2"), id2);
  EXPECT_EQ(title, "t");
}

TEST_F(PlaylistOps, CountingAndPagingTheLibrary) {
  for (const char* t : {"p0", "p1", "p2"}) make(t, "a1");
  make("q0", "a2");
  EXPECT_EQ(db().getSizeOfPlaylistLib("ALL"), 4);
  EXPECT_EQ(db().getSizeOfPlaylistLib("a1"), 3);
  EXPECT_EQ(db().getSizeOfPlaylistLib("unknown"), 0);

  std::vector<playlistLibElm_s> v;
  EXPECT_EQ(db().getPlaylistLibElmsByPage(v, "a1", 0, 0), 0);
  ASSERT_EQ(v.size(), 3u);
  EXPECT_EQ(v[2].title, "p2");
  EXPECT_EQ(v[2].appType, "a1");
  EXPECT_EQ(db().getPlaylistLibElmsByPage(v, "a1", 1, 1), 0);  // appends
  ASSERT_EQ(v.size(), 4u);
  EXPECT_EQ(v[3].title, "p1");
  EXPECT_EQ(db().getPlaylistLibElmsByPage(v, "a1", 3, 5), 0);
  EXPECT_EQ(v.size(), 4u);
  v.clear();
  EXPECT_EQ(db().getPlaylistLibElmsByPage(v, "ALL", 2, 10), 0);
  EXPECT_EQ(v.size(), 2u);

  playlistLibElm_s e;
  EXPECT_EQ(db().getPlaylistLibElmByIndex(e, "a1", 2), 0);
  EXPECT_EQ(e.title, "p2");
  EXPECT_EQ(db().getPlaylistLibElmByIndex(e, "a1", 3), -12);
  EXPECT_EQ(e.playlistID, 0);
  EXPECT_EQ(db().getPlaylistLibElmByIndex(e, "ALL", 3), 0);
  EXPECT_EQ(e.playlistID, 0);
}

TEST_F(PlaylistOps, DeletingAPlaylistTakesOnlyItsOwnElements) {
  list("p", {"a", "b"});
  int q = list("q", {"c"});
  EXPECT_EQ(db().delPlaylist("p", "app"), 0);
  EXPECT_EQ(db().getPlaylistID("p", "app"), -1);
  EXPECT_EQ(contents(db(), q), S{"c"});
  EXPECT_EQ(query(s.file(), "SELECT COUNT(*) FROM Playlist_TBL"), S{"1"});

  EXPECT_EQ(db().delPlaylist("nope", "app"), 0);
  EXPECT_EQ(db().delAllElmInPlaylist("nope", "app"), 0);
  EXPECT_EQ(db().delElmInPlaylist("nope", "app", 1), -12);
  EXPECT_EQ(db().addElmInPlaylist("nope", MEDIA_AUDIO, CONTENT_FILE, "app", "x", -1), -12);
  EXPECT_EQ(db().delAllElmInPlaylist("q", "app"), 0);
  EXPECT_EQ(db().getSizeOfPlaylist(q), 0);
}

TEST_F(PlaylistOps, AddingAtEveryKindOfPosition) {
  int id = make("p");
  add("p", "x", 5);  // first element: position ignored
  add("p", "a", -1);
  add("p", "b", 99);
  add("p", "f", 0);
  add("p", "e", 4);  // highest + 1
  add("p", "m", 2);
  EXPECT_EQ(contents(db(), id), (S{"f", "x", "m", "a", "b", "e"}));
  EXPECT_EQ(orders(db(), id), (std::vector<int>{0, 1, 2, 3, 4, 5}));

  int neg = list("n", {"a", "b"});
  add("n", "z", -3);  // taken as it stands
  EXPECT_EQ(orders(db(), neg), (std::vector<int>{-3, 1, 2}));
  playlistElm_s e;
  EXPECT_EQ(db().getPlaylistElmByOrder(e, neg, -3), 0);
  EXPECT_EQ(e.content, "z");
}

TEST_F(PlaylistOps, ContentIsStoredExactlyAndObjectsKeepTheirId) {
  int id = make("p");
  const S odd = {"x' OR '1'='1", "'; DROP TABLE Playlist_TBL; --", "%s%n%q", "a\\b\"c", "/share/Müsik/l'été.flac"};
  for (auto& c : odd) add("p", c.c_str());
  add("p", "obj'1", -1, CONTENT_OBJECT);
  std::string longID(300, 'o');
  add("p", longID.c_str(), -1, CONTENT_OBJECT);
  ASSERT_EQ(db().transBegin(), SQLITE_OK);
  EXPECT_EQ(db().transAddElmInPlaylist(id, MEDIA_VIDEO, CONTENT_OBJECT, "batchobj", 7), 0);
  EXPECT_EQ(db().transEnd(), SQLITE_OK);

  auto v = elements(db(), id);
  ASSERT_EQ(v.size(), 8u);
  for (size_t i = 0; i < odd.size(); ++i) {
    EXPECT_EQ(v[i].content, odd[i]);
    EXPECT_EQ(v[i].upnpObjID, "N/A");
    EXPECT_EQ(v[i].contentType, CONTENT_FILE);
  }
  EXPECT_EQ(v[5].upnpObjID, "obj'1");
  EXPECT_EQ(v[6].content, longID);
  EXPECT_EQ(v[6].upnpObjID, longID.substr(0, 254));
  EXPECT_EQ(v[7].content, "batchobj");
  EXPECT_EQ(v[7].upnpObjID, "N/A");
  EXPECT_EQ(v[7].mediaType, MEDIA_VIDEO);
  EXPECT_GT(v[7].uuid, v[6].uuid);
}

TEST_F(PlaylistOps, MovingAndDeletingKeepOrderDense) {
  int a = list("a", {"a", "b", "c", "d"});
  int b = list("b", {"a", "b", "c", "d"});
  EXPECT_EQ(db().reorderPlaylistElm(a, 0, 2), 0);
  EXPECT_EQ(contents(db(), a), (S{"b", "c", "a", "d"}));
  EXPECT_EQ(db().reorderPlaylistElm(b, 3, 1), 0);
  EXPECT_EQ(contents(db(), b), (S{"a", "d", "b", "c"}));
  EXPECT_EQ(orders(db(), b), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(db().reorderPlaylistElm(b, 2, 2), 0);
  EXPECT_NE(db().reorderPlaylistElm(b, 7, 1), 0);  // nothing at 7: nothing moves
  EXPECT_EQ(orders(db(), b), (std::vector<int>{0, 1, 2, 3}));

  auto before = elements(db(), a);
  EXPECT_EQ(db().delElmInPlaylist("b", "app", before[1].uuid), 0);  // not in "b"
  EXPECT_EQ(orders(db(), b), (std::vector<int>{0, 1, 2, 3}));
  EXPECT_EQ(db().delElmInPlaylist("a", "app", before[1].uuid), 0);
  EXPECT_EQ(contents(db(), a), (S{"b", "a", "d"}));
  EXPECT_EQ(orders(db(), a), (std::vector<int>{0, 1, 2}));

  playlistElm_s e, f;
  EXPECT_EQ(db().getPlaylistElmByOrder(e, a, 9), -1);
  EXPECT_EQ(db().getPlaylistElmByOrder(e, a, 1), 0);
  EXPECT_EQ(e.content, "a");
  EXPECT_EQ(db().getPlaylistElmByIndex(e, a, 2), 0);
  EXPECT_EQ(db().getPlaylistElmByIndex_NOLOCK(f, a, 2), 0);
  EXPECT_EQ(e.uuid, f.uuid);
  EXPECT_EQ(e.playlistID, a);
  EXPECT_EQ(db().getPlaylistElmByIndex(e, a, 3), -12);
  EXPECT_EQ(e.playlistID, 0);
}

TEST_F(PlaylistOps, AdjustingAndPagingBounds) {
  int empty = make("e");
  std::vector<playlistElm_s> v(1);
  EXPECT_EQ(db().getPlaylistElmsByPage(v, empty, 5, 1), 0);
  EXPECT_EQ(v.size(), 1u);

  int id = list("p", {"a", "b", "c"});
  EXPECT_EQ(db().adjustPlayOrder(id, 3, 2), 0);
  EXPECT_EQ(db().adjustPlayOrder(id, 4, 1), -1);
  EXPECT_EQ(orders(db(), id), (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(db().adjustPlayOrder(id, 1, 2), 0);
  EXPECT_EQ(orders(db(), id), (std::vector<int>{0, 3, 4}));
  EXPECT_EQ(db().adjustPlayOrder(id, 3, -2), 0);
  EXPECT_EQ(orders(db(), id), (std::vector<int>{0, 1, 2}));

  v.clear();
  EXPECT_EQ(db().getPlaylistElmsByPage(v, id, 3, 1), -12);
  EXPECT_EQ(db().getPlaylistElmsByPage(v, id, 1, 5), 0);
  EXPECT_EQ(v.size(), 2u);
  EXPECT_EQ(db().getSizeOfPlaylist(id), 3);
  EXPECT_EQ(db().getSizeOfPlaylist(12345), 0);
}

// A statement too long for its buffer fails whole: no cut statement runs,
// and a shift made for it is undone.
TEST_F(PlaylistOps, OverlongStatementsFailWithoutTrace) {
  int id = list("p", {"a", "b", "c"});
  auto before = dump(s.file());
  EXPECT_EQ(db().addPlaylist(std::string(1100, 't').c_str(), MEDIA_AUDIO, "app", nullptr, nullptr), -12);
  EXPECT_EQ(db().addElmInPlaylist("p", MEDIA_AUDIO, CONTENT_FILE, "app", std::string(1000, 'c').c_str(), 0), -12);
  EXPECT_EQ(db().transAddElmInPlaylist(id, MEDIA_AUDIO, CONTENT_FILE, std::string(1000, 'c').c_str(), 3), -12);
  EXPECT_EQ(dump(s.file()), before);
  add("p", std::string(900, 'k').c_str(), 0);
  EXPECT_EQ(contents(db(), id)[0], std::string(900, 'k'));
}

TEST_F(PlaylistOps, QuotesInTitlesAndAppTypesNeverReachSqlite) {
  int id = list("p", {"a", "b"});
  uint64_t uuid = elements(db(), id)[0].uuid;
  for (const char* bad : {"x' OR '1'='1", "'; DROP TABLE Playlist_TBL; --"}) {
    SCOPED_TRACE(bad);
    auto before = dump(s.file());
    EXPECT_EQ(db().addPlaylist(bad, MEDIA_AUDIO, "app", nullptr, nullptr), -12);
    EXPECT_EQ(db().addPlaylist("t", MEDIA_AUDIO, bad, nullptr, nullptr), -12);
    EXPECT_EQ(db().addPlaylist("t", MEDIA_AUDIO, "app", bad, nullptr), -12);
    EXPECT_EQ(db().addPlaylist("t", MEDIA_AUDIO, "app", nullptr, bad), -12);
    EXPECT_EQ(db().delPlaylist(bad, "app"), -12);
    EXPECT_EQ(db().delPlaylist("p", bad), -12);
    EXPECT_EQ(db().getSizeOfPlaylistLib(bad), -1);
    EXPECT_EQ(db().getPlaylistID(bad, "app"), -12);
    EXPECT_EQ(db().getPlaylistID("p", bad), -12);
    std::string title;
    EXPECT_EQ(db().getPlaylistTitle(id, title, bad), -12);
    EXPECT_EQ(title, "");
    playlistLibElm_s e;
    EXPECT_EQ(db().getPlaylistLibElmByIndex(e, bad, 0), -12);
    std::vector<playlistLibElm_s> v;
    EXPECT_EQ(db().getPlaylistLibElmsByPage(v, bad, 0, 0), 0);
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(db().addElmInPlaylist(bad, MEDIA_AUDIO, CONTENT_FILE, "app", "c", -1), -12);
    EXPECT_EQ(db().addElmInPlaylist("p", MEDIA_AUDIO, CONTENT_FILE, bad, "c", 0), -12);
    EXPECT_EQ(db().delElmInPlaylist(bad, "app", uuid), -12);
    EXPECT_EQ(db().delElmInPlaylist("p", bad, uuid), -12);
    EXPECT_EQ(db().delAllElmInPlaylist(bad, "app"), -12);
    EXPECT_EQ(db().delAllElmInPlaylist("p", bad), -12);
    EXPECT_EQ(dump(s.file()), before);
  }
}
