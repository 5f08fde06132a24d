// The play queue and the status fields under threads: a command thread
// grows, shrinks and reorders the queue while the player's thread walks it
// and the status report reads it; a player thread writes the time texts
// while the report reads them. Run under ThreadSanitizer in CI.
#include <algorithm>
#include <atomic>
#include <set>
#include <thread>

#include "playerTestSupport.h"

using namespace playertest;

namespace {

// A back-end whose stop and play may run on any thread. Each of them reads
// the queue on its own thread: were the queue's lock held across the call,
// that read would never return.
class CThreadedPlayer : public CPlayer {
 public:
  explicit CThreadedPlayer(const std::string& title)
      : CPlayer(PLAYER_TYPE_DLNA, "render-mt", "Kitchen", title.empty() ? nullptr : title.c_str(), "music") {}
  int play() override {
    m_seen = getPlayQueue().size();
    ++m_plays;
    return 0;
  }
  int stop(bool) override {
    m_seen = getPlaylistSize();
    ++m_stops;
    return 0;
  }
  int pause() override { return 0; }
  int next() override { return 0; }
  int previous() override { return 0; }
  int seek(const char*) override { return 0; }
  int setAudioAndSubtitle(const char*, int, int, const char*, const char*, const char*, const char*, const char*,
                          const char*, int) override { return 0; }
  using CPlayer::getPlayQueue, CPlayer::moveCurrTrack, CPlayer::setCurrTrackIndex;

  std::atomic<int> m_plays{0};
  std::atomic<int> m_stops{0};
  std::atomic<size_t> m_seen{0};
};

// No uuid twice, and only uuids that were ever put in.
void expectSane(const std::vector<playQueueItem_s>& queue, unsigned long maxUuid) {
  std::set<unsigned long> seen;
  for (const playQueueItem_s& e : queue) {
    EXPECT_TRUE(seen.insert(e.uuid).second) << "uuid " << e.uuid << " twice";
    EXPECT_LE(e.uuid, maxUuid);
  }
}

}  // namespace

TEST(PlayQueueThreads, GrowShrinkReorderAndWalkWhileOthersRead) {
  const std::string title = testTitle();
  makePlaylist(title, numbered(8));
  CThreadedPlayer p(title);
  ASSERT_EQ(8u, p.getPlaylistSize());
  constexpr unsigned long kFirstAdded = 1000000;
  constexpr int kRounds = 3000;
  std::atomic<bool> done{false};
  // Announced before the entry goes in, so that a reader never sees more.
  std::atomic<unsigned long> lastAdded{kFirstAdded};

  std::vector<std::thread> threads;
  // Commands: add an entry, and drop the one added some rounds before.
  threads.emplace_back([&] {
    for (int i = 0; i < kRounds; ++i) {
      playQueueItem_s item{p.getPlaylistSize(), kFirstAdded + static_cast<unsigned long>(i)};
      lastAdded = item.uuid;
      p.addItemToPlayQueue(item);
      if (i >= 4) {
        playQueueItem_s old{0, kFirstAdded + static_cast<unsigned long>(i - 4)};
        p.delItemFromPlayQueue(old);
      }
    }
  });
  // Reorders, and mode changes that renumber or shuffle the entries.
  threads.emplace_back([&] {
    const playMode_e modes[] = {NORMAL, SHUFFLE, REPEAT, SHUFFLE_REPEAT, REPEAT_ONE};
    for (int i = 0; i < kRounds; ++i) {
      const size_t n = p.getPlaylistSize();
      if (n > 1) p.reorderPlayQueue(static_cast<size_t>(i) % n, static_cast<size_t>(i * 7 + 1) % n);
      if (i % 100 == 0) p.setPlayMode(modes[(i / 100) % 5]);
    }
  });
  // The player's own thread walks the queue.
  threads.emplace_back([&] {
    for (int i = 0; !done; ++i) {
      if (i % 3 == 0) p.changeToNextTrack();
      else if (!p.moveCurrTrack(i % 2 == 0)) p.setCurrTrackIndex(0);
    }
  });
  // Status reads: the current element, the track, the size, a copy.
  for (int r = 0; r < 2; ++r) {
    threads.emplace_back([&] {
      playlistElm_s elm;
      while (!done) {
        p.getPlaylistElmByIndex(elm, -1);
        p.getCurrTrack();
        p.getCurrTrackIndex();
        const std::vector<playQueueItem_s> queue = p.getPlayQueue();
        expectSane(queue, lastAdded);
      }
    });
  }
  threads[0].join();
  threads[1].join();
  done = true;
  for (size_t i = 2; i < threads.size(); ++i) threads[i].join();

  // The eight rows plus the last four added, each once.
  const std::vector<playQueueItem_s> queue = p.getPlayQueue();
  EXPECT_EQ(12u, queue.size());
  expectSane(queue, kFirstAdded + kRounds - 1);
  std::vector<size_t> orders;
  for (const playQueueItem_s& e : queue) orders.push_back(e.order);
  std::sort(orders.begin(), orders.end());
  for (size_t i = 0; i < orders.size(); ++i) EXPECT_EQ(i, orders[i]) << "order numbers no longer 0..n-1";
}

TEST(PlayQueueThreads, SelectingAndClearingCallTheBackEndWithoutTheQueueLock) {
  const std::string title = testTitle();
  makePlaylist(title, numbered(6));
  CThreadedPlayer p(title);
  std::atomic<bool> done{false};
  std::thread reader([&] {
    while (!done) p.getPlayQueue();
  });
  for (int i = 0; i < 200; ++i) {
    const unsigned track = static_cast<unsigned>(i % 5);
    EXPECT_EQ(0, p.setCurrTrack(track));
    playQueueItem_s current{};
    for (const playQueueItem_s& e : p.getPlayQueue())
      if (e.order == track) current = e;
    p.delItemFromPlayQueue(current);  // the current one: stop, then play the next in its place
    EXPECT_EQ(5u, p.m_seen.load()) << "play saw the queue after the removal";
    current.order = 5;
    p.addItemToPlayQueue(current);
  }
  p.clearPlayQueue(false);
  done = true;
  reader.join();
  EXPECT_EQ(0u, p.getPlaylistSize());
  EXPECT_EQ(p.m_stops.load(), 401);
  EXPECT_EQ(p.m_plays.load(), 400);
}

TEST(StatusFieldsThreads, ReadsSeeWholeTextsWhileAPlayerWritesThem) {
  CThreadedPlayer p("");
  // Beyond the small-string buffer, so that a torn copy would show.
  const std::string longTime = "123456789:59:59 and a long tail past any inline buffer";
  const std::string longPath = "/share/Public/subtitles of a rather long film name/part one.srt";
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 0; i < 20000; ++i) {
      const bool odd = i % 2 != 0;
      p.setCurrTime(odd ? longTime : "00:00:01");
      p.setTotalTime(odd ? "01:00:00" : longTime);
      p.setSeekTime(odd ? longTime : "00:00:00");
      std::string path = odd ? longPath : "";
      p.setExternalSubtitle(path.empty() ? nullptr : &path[0]);
      p.setIP(odd ? "192.168.100.200" : "10.0.0.1");
      p.setAudioTrack(odd ? 2 : 0);
    }
    done = true;
  });
  while (!done) {
    const std::string total = p.getTotalTime();
    EXPECT_TRUE(total == longTime || total == "01:00:00" || total == "00:00:00") << total;
    const std::string seek = p.getSeekTime();
    EXPECT_TRUE(seek == longTime || seek == "00:00:00") << seek;
    std::string sub;
    p.getExternalSubtitle(sub);
    EXPECT_TRUE(sub.empty() || sub == longPath) << sub;
    const std::string ip = p.getIP();
    EXPECT_TRUE(ip.empty() || ip == "192.168.100.200" || ip == "10.0.0.1") << ip;
    p.getCurrTime();
    p.getCurrTimeSecond();
    p.getTotalTimeSecond();
    const int audio = p.getAudioTrack();
    EXPECT_TRUE(audio == 0 || audio == 2);
  }
  writer.join();
  EXPECT_EQ(longTime, p.getSeekTime());
  EXPECT_EQ("01:00:00", p.getTotalTime());
}
