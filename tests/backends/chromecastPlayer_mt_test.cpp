// CChromecast's thread: the loop ends with the player whatever it is doing
// when the player goes (parked, preparing a track, polling, paused, showing
// a photo), and commands from several client threads never wedge it.
#include <dirent.h>

#include <random>

#include "castTestSupport.h"

using namespace casttest;

namespace {

int threadCount() { return testsupport::thread_count(); }

TEST(ChromecastPlayerThreads, TheLoopEndsWithThePlayerAtEveryStage) {
  setPassThrough(false);
  setDefaultSubtitle(false);
  const std::string video = playlistOf({lay("v0.mkv", MEDIA_VIDEO, "00:00:04"), lay("v1.mkv", MEDIA_VIDEO)},
                                       MEDIA_VIDEO);
  // A first player, so that threads a runtime starts lazily are in the
  // baseline.
  makePlayer(video).reset();
  // The detached loop may outlive the destructor by its last return.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const int before = threadCount();
  const int delaysMs[] = {-1, 0, 20, 300, 1500};
  for (int delay : delaysMs) {
    auto p = makePlayer(video);
    EXPECT_EQ(before + 1, threadCount()) << "the loop";
    if (delay >= 0) {
      ASSERT_EQ(0, p->play());
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
      if (delay == 1500) {
        ASSERT_EQ(0, p->pause());
      }
    }
    p.reset();
    EXPECT_TRUE(waitFor([&] { return threadCount() == before; }, 5)) << "after delay " << delay;
  }
  const std::string photos = playertest::testTitle("-photos");
  playertest::makePlaylist(photos, {lay("p.jpg", MEDIA_PHOTO).path}, CONTENT_FILE, MEDIA_PHOTO);
  auto p = makePlayer(photos);
  ASSERT_EQ(0, p->play());
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  p.reset();
  EXPECT_TRUE(waitFor([&] { return threadCount() == before; }, 5)) << "while a photo shows";
}

TEST(ChromecastPlayerThreads, CommandsFromSeveralClientsNeverWedgeThePlayer) {
  setPassThrough(false);
  setDefaultSubtitle(false);
  const std::string title = playlistOf(
      {lay("c0.mkv", MEDIA_VIDEO, "00:00:03"), lay("c1.mkv", MEDIA_VIDEO, "00:00:30"), lay("c2.mkv", MEDIA_VIDEO)},
      MEDIA_VIDEO);
  auto p = makePlayer(title);
  // One command at a time, as the manager's lock lets them through.
  std::mutex lock;
  std::vector<std::thread> clients;
  clients.reserve(3);
  for (int c = 0; c < 3; ++c) {
    clients.emplace_back([&, c] {
      std::mt19937 rng(static_cast<unsigned>(c) + 7);
      for (int i = 0; i < 12; ++i) {
        std::lock_guard<std::mutex> lk(lock);
        switch (rng() % 7) {
          case 0: p->play(); break;
          case 1: p->pause(); break;
          case 2: p->stop(rng() % 2 == 0); break;
          case 3: p->next(); break;
          case 4: p->previous(); break;
          case 5: p->seek("00:00:10"); break;
          default: {
            std::string dump;
            p->debugDump(dump);
          }
        }
      }
    });
  }
  for (std::thread& t : clients) t.join();
  ASSERT_EQ(0, p->stop(true));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_TRUE(p->isParked());
  ASSERT_EQ(0, p->play());
  EXPECT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E; }));
  p.reset();
}

}  // namespace
