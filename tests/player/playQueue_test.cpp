// The play queue over a real playlist store: loading, play modes, the walk
// to the next track, deletions, reorders and track selection.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "playerTestSupport.h"

using playertest::CRecordingPlayer;
using playertest::Events;
using playertest::makePlaylist;
using playertest::numbered;
using playertest::store;
using playertest::testTitle;

namespace {

std::vector<size_t> identity(size_t n) {
  std::vector<size_t> v(n);
  std::iota(v.begin(), v.end(), 0);
  return v;
}

std::string currentContent(CRecordingPlayer& p) {
  playlistElm_s elm;
  EXPECT_EQ(0, p.getPlaylistElmByOrder(elm, -1));
  return elm.content;
}

}  // namespace

TEST(PlayQueueLoad, ConstructorAndSetPlaylist) {
  const std::string first = testTitle("-a"), second = testTitle("-b");
  int id = makePlaylist(first, numbered(3));
  makePlaylist(second, numbered(5, "/share/Public/other"));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, first.c_str(), "music");
  EXPECT_EQ(id, p.getPlaylistID());
  EXPECT_EQ("alice", p.getOwner());
  EXPECT_EQ("tagged", p.getTag());
  EXPECT_EQ(identity(3), p.orders());
  std::vector<playlistElm_s> rows;
  ASSERT_EQ(0, store().getPlaylistElmsByPage(rows, id, 0, 0));
  EXPECT_EQ(rows[2].uuid, p.uuids()[2]);

  p.m_currTrack = 2;
  p.play();
  p.takeEvents();
  p.setPlaylist(second, "music");  // a playing player goes on with the new list
  EXPECT_EQ((Events{"stop(true)", "play"}), p.takeEvents());
  EXPECT_EQ(0u, p.m_currTrack);
  EXPECT_EQ("/share/Public/other0.mp3", currentContent(p));

  CRecordingPlayer raop(PLAYER_TYPE_RAOP, first.c_str(), "music");
  raop.setPlaylist(second, "music");  // stopped: keeps the device, waits
  EXPECT_EQ((Events{"stop(false)"}), raop.takeEvents());

  p.setPlayMode(SHUFFLE);
  p.setPlaylist(first, "music");  // loaded in a shuffled mode: plain order
  EXPECT_EQ(identity(3), p.orders());

  // The store answers -1 for an unknown title: nothing to load.
  p.takeEvents();
  p.setPlaylist(testTitle("-missing"), "music");
  EXPECT_EQ(-1, p.getPlaylistID());
  EXPECT_EQ(0u, p.getPlaylistSize());
  EXPECT_EQ((Events{"stop(true)", "play"}), p.takeEvents());
}

TEST(PlayModes, ShuffleUnshuffleAndRepeatOne) {
  const std::string title = testTitle();
  makePlaylist(title, numbered(40));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, title.c_str(), "music");
  p.m_currTrack = 7;
  p.setPlayMode(SHUFFLE);
  EXPECT_EQ(7u, p.orders()[7]);  // the current entry never moves
  EXPECT_NE(identity(40), p.orders());
  const std::vector<size_t> shuffled = p.orders();
  p.setPlayMode(SHUFFLE_REPEAT);
  EXPECT_EQ(shuffled, p.orders());

  p.m_currTrack = 12;
  const unsigned track = p.getCurrTrack();
  p.setPlayMode(NORMAL);
  EXPECT_EQ(identity(40), p.orders());
  EXPECT_EQ(track, p.m_currTrack);

  p.setPlayMode(SHUFFLE);
  p.setPlayMode(REPEAT_ONE);
  EXPECT_EQ(SHUFFLE_REPEAT_ONE, p.getPlayMode());
  p.setPlayMode(NORMAL);
  p.setPlayMode(REPEAT_ONE);
  p.setPlayMode(SHUFFLE);  // from REPEAT_ONE: no shuffle
  EXPECT_EQ(identity(40), p.orders());
  p.setPlayMode(NORMAL);
  p.setPlayMode(SHUFFLE_REPEAT_ONE);  // asked for directly: nothing shuffled
  EXPECT_EQ(identity(40), p.orders());
  p.setPlayMode(SHUFFLE);  // from SHUFFLE_REPEAT_ONE: shuffled once more
  EXPECT_NE(identity(40), p.orders());
  EXPECT_TRUE(p.takeEvents().empty());
}

TEST(DeleteEntry, CurrentLastOnlyAndEarlierEntries) {
  const std::string title = testTitle();
  makePlaylist(title, numbered(4));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, title.c_str(), "music");
  std::vector<unsigned long> u = p.uuids();
  p.m_currTrack = 2;
  const std::string playing = currentContent(p);
  store().delElmInPlaylist(title.c_str(), "music", u[0]);
  playQueueItem_s item{0, u[0]};
  p.delItemFromPlayQueue(item);  // an earlier entry: same track, no stop
  EXPECT_TRUE(p.takeEvents().empty());
  EXPECT_EQ(playing, currentContent(p));
  EXPECT_EQ(identity(3), p.orders());

  p.m_currTrack = 2;
  item.uuid = u[3];
  p.delItemFromPlayQueue(item);  // the current last one in NORMAL: one past the end
  EXPECT_EQ((Events{"stop(true)"}), p.takeEvents());
  EXPECT_EQ(2u, p.m_currTrack);

  p.setPlayMode(REPEAT);
  p.m_currTrack = 1;
  item.uuid = u[2];
  p.delItemFromPlayQueue(item);  // the same in REPEAT starts over
  EXPECT_EQ((Events{"stop(true)", "play"}), p.takeEvents());
  EXPECT_EQ(0u, p.m_currTrack);

  item.uuid = u[1];
  p.delItemFromPlayQueue(item);  // the only one: nothing plays
  EXPECT_EQ((Events{"stop(true)"}), p.takeEvents());
  EXPECT_EQ(0u, p.getPlaylistSize());
}

TEST(Reorder, MovesInPlainModesAndSwapsInShuffledOnes) {
  const std::string title = testTitle();
  makePlaylist(title, numbered(4));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, title.c_str(), "music");
  const std::vector<unsigned long> u = p.uuids();
  p.reorderPlayQueue(0, 2);
  EXPECT_EQ((std::vector<unsigned long>{u[1], u[2], u[0], u[3]}), p.uuids());
  p.reorderPlayQueue(3, 1);
  p.reorderPlayQueue(1, 4);  // `to` past the end: nothing
  EXPECT_EQ((std::vector<unsigned long>{u[1], u[3], u[2], u[0]}), p.uuids());
  EXPECT_EQ(identity(4), p.orders());

  p.setPlayMode(SHUFFLE_REPEAT_ONE);
  p.m_playQueue = {{2, 10}, {0, 11}, {3, 12}, {1, 13}};
  p.reorderPlayQueue(0, 3);  // the entries holding orders 0 and 3 trade places
  EXPECT_EQ((std::vector<size_t>{2, 3, 0, 1}), p.orders());
  EXPECT_EQ((std::vector<unsigned long>{10, 12, 11, 13}), p.uuids());
}

TEST(SelectTrack, ByNumberOrderContentAndAfterAClear) {
  const std::string title = testTitle();
  std::vector<std::string> contents = numbered(5);
  contents[3] = contents[1];  // the same file twice
  makePlaylist(title, contents);
  CRecordingPlayer p(PLAYER_TYPE_DLNA, title.c_str(), "music");
  EXPECT_EQ(-1, p.setCurrTrack(5));
  EXPECT_TRUE(p.takeEvents().empty());

  CRecordingPlayer cast(PLAYER_TYPE_CHROMECAST, title.c_str(), "music");
  cast.setPlayMode(SHUFFLE);
  cast.m_playQueue = {{2, 0}, {0, 0}, {1, 0}, {4, 0}, {3, 0}};
  EXPECT_EQ(0, cast.setCurrTrack(4));  // an order number, found at place 3
  EXPECT_EQ((Events{"stop(false)", "play"}), cast.takeEvents());
  EXPECT_EQ(3u, cast.m_currTrack);
  EXPECT_EQ(0, cast.setCurrTrackIdByOrder(1));
  EXPECT_EQ(2u, cast.m_currTrack);
  EXPECT_EQ(-1, cast.setCurrTrackIdByOrder(7));

  // Found twice: the first row whose uuid has a queue entry wins.
  p.m_playQueue.erase(p.m_playQueue.begin() + 1);
  EXPECT_EQ(0, p.setCurrTrackByContent(contents[1].c_str()));
  EXPECT_EQ(2u, p.m_currTrack);
  EXPECT_EQ((Events{"stop(true)", "play"}), p.takeEvents());
  EXPECT_EQ(-1, p.setCurrTrackByContent("/share/Public/none.mp3"));

  p.clearPlayQueue(true);  // forgets the playlist, keeps the position
  EXPECT_EQ((Events{"stop(true)"}), p.takeEvents());
  EXPECT_EQ(nullptr, p.getPlaylistTitle());
  EXPECT_EQ(-1, p.getPlaylistID());
  EXPECT_EQ(2u, p.m_currTrack);
  EXPECT_EQ(-1, p.setCurrTrackByContent(contents[0].c_str()));
}

TEST(SelectTrack, ContentSearchStopsAfter4000Rows) {
  const std::string title = testTitle();
  makePlaylist(title, numbered(4001));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, title.c_str(), "music");
  EXPECT_EQ(0, p.setCurrTrackByContent("/share/Public/track3999.mp3"));
  EXPECT_EQ(3999u, p.m_currTrack);
  EXPECT_EQ(-1, p.setCurrTrackByContent("/share/Public/track4000.mp3"));
}

TEST(CurrentElement, ReadsByPlaceInShuffledModesAndByOrderElse) {
  const std::string title = testTitle();
  makePlaylist(title, numbered(3));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, title.c_str(), "music");
  p.setPlayMode(SHUFFLE_REPEAT);
  p.m_playQueue = {{2, 0}, {1, 0}, {0, 0}};
  playlistElm_s elm;
  EXPECT_EQ(0, p.getPlaylistElmByIndex(elm, -1));
  EXPECT_EQ("/share/Public/track2.mp3", elm.content);
  p.setPlayMode(REPEAT_ONE);  // now SHUFFLE_REPEAT_ONE: m_currTrack is the order
  EXPECT_EQ(0, p.getPlaylistElmByIndex(elm, -1));
  EXPECT_EQ("/share/Public/track0.mp3", elm.content);
}

// Random sequences of what commands and the player's thread do to a queue.
// After every step the queue must still be a permutation of the playlist's
// order numbers over the store's rows; mode changes that keep the track
// must keep it; and every walk must follow its mode.
namespace {

class QueueWalk {
 public:
  QueueWalk(unsigned seed, const std::string& title) : m_rng(seed), m_title(title) {
    makePlaylist(title, numbered(12));
    m_player.reset(new CRecordingPlayer(PLAYER_TYPE_DLNA, title.c_str(), "music"));
  }

  void step() {
    CRecordingPlayer& p = *m_player;
    switch (pick(6)) {
      case 0: changeMode(static_cast<playMode_e>(pick(6))); break;
      case 1: p.setCurrTrack(static_cast<unsigned>(pick(p.getPlaylistSize() + 1))); break;
      case 2: walk(); break;
      case 3:
        if (p.getPlaylistSize() > 2) deleteOne();
        break;
      case 4: {
        size_t n = p.getPlaylistSize();
        if (n == 0) break;
        size_t from = pick(n), to = pick(n);
        store().reorderPlaylistElm(p.getPlaylistID(), static_cast<int>(from), static_cast<int>(to));
        p.reorderPlayQueue(from, to);
        break;
      }
      default: p.changeToNextTrack(); break;
    }
    p.takeEvents();
    checkQueue();
  }

 private:
  size_t pick(size_t n) { return n == 0 ? 0 : std::uniform_int_distribution<size_t>(0, n - 1)(m_rng); }

  static bool shuffled(playMode_e m) { return m == SHUFFLE || m == SHUFFLE_REPEAT; }

  void changeMode(playMode_e mode) {
    CRecordingPlayer& p = *m_player;
    const playMode_e old = p.getPlayMode();
    const size_t cur = p.m_currTrack;
    if (cur >= p.getPlaylistSize()) {
      p.setPlayMode(mode);
      return;
    }
    const unsigned before = p.getCurrTrack();
    // The entry at the current place keeps its order through a shuffle, so
    // a plain mode keeps its track only where that entry reads the same.
    const bool aligned = !shuffled(old) && p.m_playQueue[cur].order == cur;
    p.setPlayMode(mode);
    bool keeps = false;
    if (mode == NORMAL || mode == REPEAT) keeps = true;
    else if (shuffled(mode)) keeps = shuffled(old) || aligned;
    else keeps = !shuffled(old);
    if (keeps) {
      EXPECT_EQ(before, p.getCurrTrack()) << "from " << old << " to " << mode;
    }
  }

  void deleteOne() {
    CRecordingPlayer& p = *m_player;
    playQueueItem_s item = p.m_playQueue[pick(p.getPlaylistSize())];
    store().delElmInPlaylist(m_title.c_str(), "music", item.uuid);
    p.delItemFromPlayQueue(item);
  }

  // Walks a round from the current track and checks the visited orders.
  void walk() {
    CRecordingPlayer& p = *m_player;
    const size_t n = p.getPlaylistSize();
    if (n == 0 || p.m_currTrack >= n) return;
    const playMode_e mode = p.getPlayMode();
    const unsigned start = p.getCurrTrack();
    const size_t startPlace = p.m_currTrack;
    std::vector<unsigned> seen;
    p.m_currTime = "00:01:00";
    p.setAudioTrack(2);
    while (seen.size() < n && p.changeToNextTrack()) seen.push_back(p.getCurrTrack());
    EXPECT_EQ("00:00:00", p.m_currTime);  // each change resets the track's choices
    EXPECT_EQ(0, p.getAudioTrack());
    if (mode == REPEAT_ONE || mode == SHUFFLE_REPEAT_ONE) {
      EXPECT_EQ(std::vector<unsigned>(n, start), seen);
    } else if (mode == REPEAT) {
      std::vector<unsigned> want;
      for (size_t i = 1; i <= n; ++i) want.push_back(static_cast<unsigned>((start + i) % n));
      EXPECT_EQ(want, seen);
    } else if (mode == SHUFFLE_REPEAT) {
      ASSERT_EQ(n, seen.size());
      EXPECT_EQ(n, std::set<unsigned>(seen.begin(), seen.end()).size()) << "a round visits every entry once";
    } else {
      // NORMAL and SHUFFLE end the list: the rest of it, each entry once.
      EXPECT_EQ(n - 1 - startPlace, seen.size());
      std::set<unsigned> distinct(seen.begin(), seen.end());
      EXPECT_EQ(seen.size(), distinct.size());
      EXPECT_EQ(0u, distinct.count(start));
      if (mode == NORMAL) {
        for (size_t i = 0; i < seen.size(); ++i) EXPECT_EQ(start + 1 + i, seen[i]);
      }
      EXPECT_EQ(n - 1, p.m_currTrack);
    }
  }

  void checkQueue() {
    CRecordingPlayer& p = *m_player;
    std::vector<playlistElm_s> rows;
    store().getPlaylistElmsByPage(rows, p.getPlaylistID(), 0, 0);
    std::vector<size_t> orders = p.orders();
    std::sort(orders.begin(), orders.end());
    ASSERT_EQ(identity(rows.size()), orders);
    std::vector<unsigned long> uuids = p.uuids(), stored;
    for (const playlistElm_s& r : rows) stored.push_back(static_cast<unsigned long>(r.uuid));
    std::sort(uuids.begin(), uuids.end());
    std::sort(stored.begin(), stored.end());
    ASSERT_EQ(stored, uuids);
  }

  std::mt19937 m_rng;
  std::string m_title;
  std::unique_ptr<CRecordingPlayer> m_player;
};

}  // namespace

TEST(QueueProperties, SeededSequencesKeepThePermutationAndEachModesWalk) {
  for (unsigned seed = 1; seed <= 10; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    QueueWalk w(seed, testTitle("-" + std::to_string(seed)));
    for (int i = 0; i < 60; ++i) {
      w.step();
      if (::testing::Test::HasFatalFailure()) return;
    }
  }
}
