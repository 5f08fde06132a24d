// Random sequences of the changing operations, checked step by step against
// a plain in-memory model: order numbers stay dense and the rows match.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "storeHelpers.h"

using namespace storetest;

namespace {

struct Item {
  std::string content;
  contentType_e type;
  std::string objID;
};

class OrderModel : public ::testing::TestWithParam<unsigned> {
 protected:
  RootInMemory mem;
  Store s;
  std::mt19937 rng{GetParam()};
  std::map<std::string, std::vector<Item>> model;
  int counter = 0;

  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
  CSqlitePlaylist& db() { return *s.db; }
  int id(const std::string& title) { return db().getPlaylistID(title, "app"); }

  Item fresh(bool batch) {
    contentType_e type = pick(0, 1) ? CONTENT_OBJECT : CONTENT_FILE;
    std::string c = "c" + std::to_string(counter++) + (pick(0, 3) ? "" : "'q");
    return {c, type, (type == CONTENT_OBJECT && !batch) ? c : "N/A"};
  }

  void addOne(const std::string& t, std::vector<Item>& m) {
    int n = static_cast<int>(m.size());
    int pos = pick(0, 3) == 0 ? -1 : pick(0, n + 3);
    Item it = fresh(false);
    ASSERT_EQ(db().addElmInPlaylist(t.c_str(), MEDIA_AUDIO, it.type, "app", it.content.c_str(), pos), 0);
    if (n == 0 || pos == -1 || pos > n) pos = n;
    m.insert(m.begin() + pos, it);
  }

  // The way a batch is added by the command handler.
  void addBatch(const std::string& t, std::vector<Item>& m) {
    int pl = id(t);
    int k = pick(1, 8);
    int point = pick(0, static_cast<int>(m.size()) + 1);
    int size = db().getSizeOfPlaylist(pl);
    ASSERT_EQ(size, static_cast<int>(m.size()));
    int base = size;
    if (point != 0 && point < size) {
      ASSERT_EQ(db().adjustPlayOrder(pl, point, k), 0);
      base = point;
    }
    ASSERT_EQ(db().transBegin(), SQLITE_OK);
    for (int i = 0; i < k; ++i) {
      Item it = fresh(true);
      ASSERT_EQ(db().transAddElmInPlaylist(pl, MEDIA_VIDEO, it.type, it.content.c_str(), base + i), 0);
      m.insert(m.begin() + base + i, it);
    }
    ASSERT_EQ(db().transEnd(), SQLITE_OK);
  }

  void remove(const std::string& t, std::vector<Item>& m) {
    auto rows = elements(db(), id(t));
    if (pick(0, 9) == 0 || rows.empty()) {  // a uuid from elsewhere changes nothing
      auto other = elements(db(), id(t == "p0" ? "p1" : "p0"));
      uint64_t stray = other.empty() ? 999999 : other[pick(0, static_cast<int>(other.size()) - 1)].uuid;
      ASSERT_EQ(db().delElmInPlaylist(t.c_str(), "app", stray), 0);
      return;
    }
    int at = pick(0, static_cast<int>(rows.size()) - 1);
    ASSERT_EQ(db().delElmInPlaylist(t.c_str(), "app", rows[at].uuid), 0);
    m.erase(m.begin() + at);
  }

  void move(const std::string& t, std::vector<Item>& m) {
    int n = static_cast<int>(m.size());
    if (n == 0 || pick(0, 9) == 0) {  // nothing at `from`: nothing moves
      db().reorderPlaylistElm(id(t), n + 2, 0);
      return;
    }
    int from = pick(0, n - 1), to = pick(0, n - 1);
    ASSERT_EQ(db().reorderPlaylistElm(id(t), from, to), 0);
    Item it = m[from];
    m.erase(m.begin() + from);
    m.insert(m.begin() + to, it);
  }

  // A gap opened and closed again.
  void adjust(const std::string& t, std::vector<Item>& m) {
    int n = static_cast<int>(m.size());
    int start = pick(0, n), d = pick(1, 5);
    ASSERT_EQ(db().adjustPlayOrder(id(t), start, d), 0);
    ASSERT_EQ(db().adjustPlayOrder(id(t), start, -d), 0);
  }

  void check(const std::string& t, const std::vector<Item>& m) {
    int pl = id(t);
    auto rows = elements(db(), pl);
    ASSERT_EQ(rows.size(), m.size());
    ASSERT_EQ(db().getSizeOfPlaylist(pl), static_cast<int>(m.size()));
    for (size_t i = 0; i < m.size(); ++i) {
      ASSERT_EQ(rows[i].orderNum, static_cast<int>(i));
      ASSERT_EQ(rows[i].content, m[i].content);
      ASSERT_EQ(rows[i].contentType, m[i].type);
      ASSERT_EQ(rows[i].upnpObjID, m[i].objID);
    }
    if (!m.empty()) {
      int at = pick(0, static_cast<int>(m.size()) - 1);
      playlistElm_s e;
      ASSERT_EQ(db().getPlaylistElmByOrder(e, pl, at), 0);
      ASSERT_EQ(e.content, m[at].content);
    }
  }
};

TEST_P(OrderModel, RandomSequencesKeepOrderDenseAndMatchTheModel) {
  const std::vector<std::string> titles = {"p0", "p1", "p2"};
  for (auto& t : titles) {
    ASSERT_EQ(db().addPlaylist(t.c_str(), MEDIA_AUDIO, "app", nullptr, nullptr), 0);
    model[t];
  }
  for (int step = 0; step < 1200; ++step) {
    SCOPED_TRACE("step " + std::to_string(step));
    const std::string& t = titles[pick(0, 2)];
    auto& m = model[t];
    int op = pick(0, 99);
    if (op < 35) addOne(t, m);
    else if (op < 50) addBatch(t, m);
    else if (op < 70) remove(t, m);
    else if (op < 90) move(t, m);
    else if (op < 95) adjust(t, m);
    else if (op < 98) {
      ASSERT_EQ(db().delAllElmInPlaylist(t.c_str(), "app"), 0);
      m.clear();
    } else {
      ASSERT_EQ(db().delPlaylist(t, "app"), 0);
      ASSERT_EQ(db().addPlaylist(t.c_str(), MEDIA_AUDIO, "app", nullptr, nullptr), 0);
      m.clear();
    }
    if (HasFatalFailure()) return;
    check(t, m);
    if (HasFatalFailure()) return;
  }
  for (auto& t : titles) check(t, model[t]);
}

INSTANTIATE_TEST_SUITE_P(Seeds, OrderModel, ::testing::Values(1u, 2u, 3u));

}  // namespace
