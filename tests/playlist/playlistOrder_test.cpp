// Random sequences of the changing operations, checked step by step against
// a plain in-memory model: order numbers stay dense and the rows match.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "storeHelpers.h"

using namespace storetest;

class OrderModel : public ::testing::TestWithParam<unsigned> {
 protected:
  bool mem = root_in_memory();
  Store s;
  CSqlitePlaylist& db = s.db;
  std::mt19937 rng{GetParam()};
  int counter = 0;

  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
  int id(const std::string& t) { return db.getPlaylistID(t, "app"); }
  // Content that a statement could mistake for its own text; an object's
  // id is kept only when it is added singly, and then to 254 bytes.
  playlistElm_s fresh(bool batch) {
    static const S tails = {"", "'q", "%s%n", "\\\"é", "'; DROP TABLE Playlist_TBL; --", std::string(300, 'o')};
    playlistElm_s e;
    e.contentType = pick(0, 1) ? CONTENT_OBJECT : CONTENT_FILE;
    e.mediaType = batch ? MEDIA_VIDEO : MEDIA_AUDIO;
    e.content = "c" + std::to_string(counter++) + tails[pick(0, 5)];
    e.upnpObjID = (e.contentType == CONTENT_OBJECT && !batch) ? e.content.substr(0, 254) : "N/A";
    return e;
  }

  // One step on playlist `t`, applied to the store and to its model `m`.
  void step(const std::string& t, std::vector<playlistElm_s>& m) {
    const int n = static_cast<int>(m.size()), pl = id(t), op = pick(0, 99);
    if (op < 35) {
      int pos = pick(0, 3) == 0 ? -1 : pick(0, n + 3);
      auto it = fresh(false);
      ASSERT_EQ(db.addElmInPlaylist(t.c_str(), it.mediaType, it.contentType, "app", it.content.c_str(), pos), 0);
      m.insert(m.begin() + ((n == 0 || pos == -1 || pos > n) ? n : pos), it);
    } else if (op < 50) {  // a batch, the way the command handler adds one
      int k = pick(1, 8), point = pick(0, n + 1), base = db.getSizeOfPlaylist(pl);
      ASSERT_EQ(base, n);
      if (point != 0 && point < n) {
        ASSERT_EQ(db.adjustPlayOrder(pl, point, k), 0);
        base = point;
      }
      ASSERT_EQ(db.transBegin(), SQLITE_OK);
      for (int i = 0; i < k; ++i) {
        auto it = fresh(true);
        ASSERT_EQ(db.transAddElmInPlaylist(pl, it.mediaType, it.contentType, it.content.c_str(), base + i), 0);
        m.insert(m.begin() + base + i, it);
      }
      ASSERT_EQ(db.transEnd(), SQLITE_OK);
    } else if (op < 70) {
      const bool stray = n == 0 || pick(0, 9) == 0;  // a uuid of another playlist changes nothing
      auto rows = elements(db, stray ? id(t == "p0" ? "p1" : "p0") : pl);
      int at = rows.empty() ? -1 : pick(0, static_cast<int>(rows.size()) - 1);
      ASSERT_EQ(db.delElmInPlaylist(t.c_str(), "app", at < 0 ? 999999 : rows[at].uuid), 0);
      if (!stray) m.erase(m.begin() + at);
    } else if (op < 90) {
      int from = pick(0, n + 1), to = pick(0, std::max(n - 1, 0));
      int rc = db.reorderPlaylistElm(pl, from, to);
      if (from >= n) return;  // nothing at `from`: nothing moves
      ASSERT_EQ(rc, 0);
      auto it = m[from];
      m.erase(m.begin() + from);
      m.insert(m.begin() + to, it);
    } else if (op < 95) {  // a gap opened and closed again
      int start = pick(0, n), d = pick(1, 5);
      ASSERT_EQ(db.adjustPlayOrder(pl, start, d), 0);
      ASSERT_EQ(db.adjustPlayOrder(pl, start, -d), 0);
    } else if (op < 98) {
      ASSERT_EQ(db.delAllElmInPlaylist(t.c_str(), "app"), 0);
      m.clear();
    } else {
      ASSERT_EQ(db.delPlaylist(t, "app"), 0);
      ASSERT_EQ(db.addPlaylist(t.c_str(), MEDIA_AUDIO, "app", nullptr, nullptr), 0);
      m.clear();
    }
  }
};

TEST_P(OrderModel, RandomSequencesKeepOrderDenseAndMatchTheModel) {
  const S titles = {"p0", "p1", "p2"};
  std::map<std::string, std::vector<playlistElm_s>> model;
  for (auto& t : titles) ASSERT_EQ(db.addPlaylist(t.c_str(), MEDIA_AUDIO, "app", nullptr, nullptr), 0);
  auto key = [](const playlistElm_s& e) { return std::tie(e.content, e.contentType, e.upnpObjID, e.mediaType); };
  for (int i = 0; i < 1200; ++i) {
    SCOPED_TRACE("step " + std::to_string(i));
    const std::string& t = titles[pick(0, 2)];
    step(t, model[t]);
    if (HasFatalFailure()) return;
    const int pl = id(t);
    const auto& m = model[t];
    auto rows = elements(db, pl);
    ASSERT_EQ(rows.size(), m.size());
    ASSERT_EQ(db.getSizeOfPlaylist(pl), static_cast<int>(m.size()));
    for (size_t k = 0; k < m.size(); ++k) {
      ASSERT_EQ(rows[k].orderNum, static_cast<int>(k));
      ASSERT_EQ(key(rows[k]), key(m[k]));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, OrderModel, ::testing::Values(1u, 2u, 3u));
