// The player base over the real playlist store: time and the seek base,
// mute, the play queue, its modes and the walk through it.
#include <algorithm>
#include <numeric>
#include <random>
#include <set>

#include "playerTestSupport.h"

using namespace playertest;
using Uuids = std::vector<unsigned long>;

namespace {

std::vector<size_t> identity(size_t n) {
  std::vector<size_t> v(n);
  std::iota(v.begin(), v.end(), 0);
  return v;
}

template <typename T>
std::vector<T> sorted(std::vector<T> v) {
  std::sort(v.begin(), v.end());
  return v;
}

// A result, the current place and the play and stop calls since the last look: "0 @3 stop(true) play".
std::string after(CRecordingPlayer& p) {
  std::string out = "@" + std::to_string(p.getCurrTrackIndex());
  for (const std::string& e : p.takeEvents()) out += " " + e;
  return out;
}
std::string outcome(int result, CRecordingPlayer& p) { return std::to_string(result) + " " + after(p); }

}  // namespace

TEST(PlayerTime, TextsSecondsAndTheSeekBase) {
  const struct { std::string text; int seconds; } cases[] = {
      {"01:02:03", 3723},
      {"12:34", 43200},  // one colon: the minutes are lost
      {"45", 0},
      {std::string(23, '0') + "1:02:05", 3725},  // 30 characters are read...
      {std::string(24, '0') + "1:02:05", 3720},  // ...and no more
      {"596524:00:00", static_cast<int>(596524u * 3600u)},  // absurd hours wrap, never overflow
  };
  for (const auto& c : cases) EXPECT_EQ(c.seconds, CPlayer::hhmmssToSecond(c.text.c_str())) << c.text;
  CRecordingPlayer p;
  p.setCurrTime("00:01:00");
  p.m_seekTime = "00:00:30";
  EXPECT_EQ(90, p.getCurrTimeSecond());
  EXPECT_EQ(60, p.getCurrTimeSecondWithOutSeek());
  EXPECT_EQ("00:01:30", p.getCurrTime());
  p.setCurrTime("596523:00:00");
  p.m_seekTime = "01:00:00";
  EXPECT_EQ(static_cast<int>(596524u * 3600u), p.getCurrTimeSecond());
}

TEST(PlayerMute, LastVolumeIsProcessWide) {
  CRecordingPlayer a, b, deaf;
  deaf.m_bHasVolume = false;
  EXPECT_EQ(0, a.setMute(false));  // no volume above 0 read yet: volume 0
  EXPECT_EQ(0, a.m_volume);
  EXPECT_TRUE(a.isMute());
  a.m_volume = 35;
  EXPECT_FALSE(a.isMute());
  EXPECT_EQ(0, a.setMute(true));
  EXPECT_EQ(0, a.m_volume);
  EXPECT_EQ(0, b.setMute(false));
  EXPECT_EQ(35, b.m_volume);
  EXPECT_TRUE(deaf.isMute());  // no volume control reads as muted
  EXPECT_EQ(-1, deaf.setMute(false));
}

TEST(PlayQueueLoad, ConstructorAndSetPlaylist) {
  const std::string first = testTitle("-a"), second = testTitle("-b");
  const int id = makePlaylist(first, numbered(3));
  makePlaylist(second, numbered(5, "/share/Public/other"));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, first), raop(PLAYER_TYPE_RAOP, first);
  EXPECT_EQ(id, p.getPlaylistID());
  EXPECT_EQ("alice/tagged", p.getOwner() + "/" + p.getTag());
  EXPECT_EQ(identity(3), p.orders());
  p.setCurrTrackIndex(2);
  p.m_playerState = STATE_PLAY_E;
  p.setPlaylist(second, "music");  // a playing player goes on with the new list, from the top
  EXPECT_EQ("@0 stop(true) play", after(p));
  playlistElm_s elm;
  EXPECT_EQ("0 /share/Public/other0.mp3", got(p.getPlaylistElmByIndex(elm, -1), elm.content));
  raop.setPlaylist(second, "music");  // stopped: keeps the device and waits
  EXPECT_EQ("@0 stop(false)", after(raop));
  p.setPlayMode(SHUFFLE);
  p.setPlaylist(first, "music");  // loaded in a shuffled mode: plain order
  EXPECT_EQ(identity(3), p.orders());
}

TEST(Reorder, MovesInPlainModesAndSwapsInShuffledOnes) {
  makePlaylist(testTitle(), numbered(4));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, testTitle());
  const Uuids u = p.uuids();
  p.reorderPlayQueue(0, 2);
  EXPECT_EQ((Uuids{u[1], u[2], u[0], u[3]}), p.uuids());
  p.reorderPlayQueue(3, 1);
  p.reorderPlayQueue(1, 4);  // `to` past the end: nothing
  EXPECT_EQ((Uuids{u[1], u[3], u[2], u[0]}), p.uuids());
  EXPECT_EQ(identity(4), p.orders());
  p.setPlayMode(SHUFFLE_REPEAT_ONE);
  p.setPlayQueue({{2, 10}, {0, 11}, {3, 12}, {1, 13}});
  p.reorderPlayQueue(0, 3);  // the entries holding orders 0 and 3 trade places
  EXPECT_EQ((std::vector<size_t>{2, 3, 0, 1}), p.orders());
  EXPECT_EQ((Uuids{10, 12, 11, 13}), p.uuids());
}

// The back-ends' steps: one place at a time, refused at either end and
// from a place past the queue, never wrapping.
TEST(Reorder, BackEndStepsStopAtTheEnds) {
  makePlaylist(testTitle(), numbered(3));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, testTitle());
  std::string trail;
  for (bool forward : {false, true, true, true, false, false, false})
    trail += p.moveCurrTrack(forward) ? std::to_string(p.getCurrTrackIndex()) : "x";
  EXPECT_EQ("x12x10x", trail);
  p.setCurrTrackIndex(7);
  EXPECT_EQ("x x 7", std::string(p.moveCurrTrack(true) ? "?" : "x") + " " + (p.moveCurrTrack(false) ? "?" : "x") +
                         " " + std::to_string(p.getCurrTrackIndex()));
  EXPECT_TRUE(p.takeEvents().empty()) << "a step alone never stops or plays";
}

TEST(SelectTrack, ByNumberOrderContentAndAfterAClear) {
  const std::string title = testTitle();
  Strings contents = numbered(5);
  contents[3] = contents[1];  // the same file twice
  makePlaylist(title, contents);
  CRecordingPlayer p(PLAYER_TYPE_DLNA, title), cast(PLAYER_TYPE_CHROMECAST, title);
  EXPECT_EQ("-1 @0", outcome(p.setCurrTrack(5), p));
  // Shuffled: a track is an order number; the current element is the order at the current place.
  cast.setPlayMode(SHUFFLE);
  cast.setPlayQueue({{2, 0}, {0, 0}, {1, 0}, {4, 0}, {3, 0}});
  EXPECT_EQ("0 @3 stop(false) play", outcome(cast.setCurrTrack(4), cast));
  playlistElm_s elm;
  EXPECT_EQ("0 " + contents[4], got(cast.getPlaylistElmByIndex(elm, -1), elm.content));
  cast.setPlayMode(REPEAT_ONE);  // now SHUFFLE_REPEAT_ONE: the place is the order
  EXPECT_EQ("0 " + contents[3], got(cast.getPlaylistElmByOrder(elm, -1), elm.content));
  EXPECT_EQ("0 @2", outcome(cast.setCurrTrackIdByOrder(1), cast));
  EXPECT_EQ("-1 @2", outcome(cast.setCurrTrackIdByOrder(7), cast));
  // Found twice: the first row whose uuid has a queue entry wins.
  std::vector<playQueueItem_s> queue = p.getPlayQueue();
  queue.erase(queue.begin() + 1);
  p.setPlayQueue(queue);
  EXPECT_EQ("0 @2 stop(true) play", outcome(p.setCurrTrackByContent(contents[1].c_str()), p));
  EXPECT_EQ("-1 @2", outcome(p.setCurrTrackByContent("/share/Public/none.mp3"), p));
  p.clearPlayQueue(true);  // forgets the playlist, keeps the position
  EXPECT_EQ("@2 stop(true)", after(p));
  EXPECT_EQ("", p.getPlaylistTitle());
  EXPECT_EQ(-1, p.getPlaylistID());
  EXPECT_EQ(-1, p.setCurrTrackByContent(contents[0].c_str()));
}

TEST(SelectTrack, ContentSearchStopsAfter4000Rows) {
  makePlaylist(testTitle(), numbered(4001));
  CRecordingPlayer p(PLAYER_TYPE_DLNA, testTitle());
  EXPECT_EQ("0 @3999 stop(true) play", outcome(p.setCurrTrackByContent("/share/Public/track3999.mp3"), p));
  EXPECT_EQ(-1, p.setCurrTrackByContent("/share/Public/track4000.mp3"));
}

// Seeded random sequences of what commands and the player's thread do to a
// queue. After every step the queue is a permutation of the order numbers over
// the store's rows; each deletion, mode change and walk to the next tracks
// does what its mode asks.
struct QueueWalk {
  std::mt19937 rng;
  std::string title;
  CRecordingPlayer p;
  bool shuffledSome = false;
  size_t pick(size_t n) { return n == 0 ? 0 : std::uniform_int_distribution<size_t>(0, n - 1)(rng); }
  static bool shuffled(playMode_e m) { return m == SHUFFLE || m == SHUFFLE_REPEAT; }

  void step() {
    const size_t n = p.getPlaylistSize(), from = pick(n), to = pick(n);
    p.takeEvents();
    switch (pick(6)) {
      case 0: changeMode(static_cast<playMode_e>(pick(6))); break;
      case 1: p.setCurrTrack(static_cast<unsigned>(pick(n + 1))); break;
      case 2: walk(); break;
      case 3: if (n > 2) deleteOne(p.getPlayQueue()[from]); break;
      case 4:
        store().reorderPlaylistElm(p.getPlaylistID(), static_cast<int>(from), static_cast<int>(to));
        p.reorderPlayQueue(from, to);
        break;
      default: p.changeToNextTrack(); break;
    }
    std::vector<playlistElm_s> rows;
    store().getPlaylistElmsByPage(rows, p.getPlaylistID(), 0, 0);
    Uuids stored;
    for (const playlistElm_s& r : rows) stored.push_back(static_cast<unsigned long>(r.uuid));
    ASSERT_EQ(identity(rows.size()), sorted(p.orders()));
    ASSERT_EQ(sorted(stored), sorted(p.uuids()));
  }

  // Deleting the current entry stops, then plays what moved into its place
  // (past the end, REPEAT starts over); an earlier entry moves the place back.
  void deleteOne(playQueueItem_s item) {
    const size_t cur = p.getCurrTrackIndex();  // compared as an order number, in every mode
    const std::vector<playQueueItem_s> queue = p.getPlayQueue();
    auto playing = std::find_if(queue.begin(), queue.end(), [&](auto& e) { return e.order == cur; });
    if (pick(2) && playing != queue.end()) item = *playing;  // the current entry half the time
    const bool current = item.order == cur, last = cur + 1 == p.getPlaylistSize();
    const bool wrap = current && last && p.getPlayMode() == REPEAT, plays = current && (!last || wrap);
    store().delElmInPlaylist(title.c_str(), "music", item.uuid);
    p.delItemFromPlayQueue(item);
    const size_t place = wrap ? 0 : item.order < cur ? cur - 1 : cur;
    EXPECT_EQ("@" + std::to_string(place) + (plays ? " stop(true) play" : current ? " stop(true)" : ""), after(p));
  }

  void changeMode(playMode_e mode) {
    const playMode_e old = p.getPlayMode();
    const size_t cur = p.getCurrTrackIndex();
    const bool inside = cur < p.getPlaylistSize(), plain = mode == NORMAL || mode == REPEAT;
    const unsigned before = p.getCurrTrack();
    const std::vector<size_t> orders = p.orders();
    p.setPlayMode(mode);
    SCOPED_TRACE(std::string("from ") + play_mode_word(old) + " to " + play_mode_word(mode));
    EXPECT_EQ(mode == REPEAT_ONE && shuffled(old) ? SHUFFLE_REPEAT_ONE : mode, p.getPlayMode());
    if (plain && (shuffled(old) || old == SHUFFLE_REPEAT_ONE)) {
      EXPECT_EQ(identity(orders.size()), p.orders());
    } else if (!shuffled(mode) || shuffled(old) || old == REPEAT_ONE) {
      EXPECT_EQ(orders, p.orders());
    } else {
      shuffledSome |= orders != p.orders();
      EXPECT_TRUE(!inside || orders[cur] == p.orders()[cur]) << "a shuffle never moves the current entry";
    }
    // So a shuffle keeps the track only where the current entry's order is its place.
    const bool keeps = shuffled(mode) ? shuffled(old) || (inside && orders[cur] == cur) : plain || !shuffled(old);
    EXPECT_TRUE(!inside || !keeps || before == p.getCurrTrack()) << before << " became " << p.getCurrTrack();
  }

  void walk() {
    const size_t n = p.getPlaylistSize(), startPlace = p.getCurrTrackIndex();
    if (startPlace >= n) return;
    const playMode_e mode = p.getPlayMode();
    const unsigned start = p.getCurrTrack();
    std::vector<unsigned> seen;
    p.m_currTime = "00:01:00";
    p.setAudioTrack(2);
    while (seen.size() < n && p.changeToNextTrack()) seen.push_back(p.getCurrTrack());
    EXPECT_EQ("00:00:00", p.m_currTime);  // each change resets the track's choices
    EXPECT_EQ(0, p.getAudioTrack());
    if (mode == REPEAT_ONE || mode == SHUFFLE_REPEAT_ONE) {
      EXPECT_EQ(std::vector<unsigned>(n, start), seen);
      return;
    }
    // The others visit each entry once: REPEAT and SHUFFLE_REPEAT a round, NORMAL and SHUFFLE the rest.
    const bool round = mode == REPEAT || mode == SHUFFLE_REPEAT;
    const size_t visits = round ? n : n - 1 - startPlace;
    EXPECT_EQ(visits, seen.size());
    EXPECT_EQ(visits, std::set<unsigned>(seen.begin(), seen.end()).size());
    EXPECT_TRUE(round || p.getCurrTrackIndex() == n - 1) << "a list that ends stays on its last entry";
    for (size_t i = 0; (mode == NORMAL || mode == REPEAT) && i < seen.size(); ++i)
      EXPECT_EQ((start + 1 + i) % n, seen[i]);
  }
};

TEST(QueueProperties, SeededSequencesKeepThePermutationAndEachModesWalk) {
  bool shuffledSome = false;
  for (unsigned seed = 1; seed <= 10; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    QueueWalk w{std::mt19937(seed), testTitle("-" + std::to_string(seed)), CRecordingPlayer()};
    makePlaylist(w.title, numbered(12));
    w.p.setPlaylist(w.title, "music");
    for (int i = 0; i < 60 && !::testing::Test::HasFatalFailure(); ++i) w.step();
    shuffledSome |= w.shuffledSome;
  }
  EXPECT_TRUE(shuffledSome) << "no shuffle changed an order";
}
