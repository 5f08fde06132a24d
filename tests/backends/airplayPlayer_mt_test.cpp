// CAirplayPlayer's thread: the loop ends with the player whatever it is
// doing when the player goes, and commands from several client threads (one
// at a time per player, as the manager's try-lock lets them through) never
// wedge it.
#include <dirent.h>

#include <mutex>
#include <random>

#include "backends/airplayTestSupport.h"

using namespace airplaytest;

namespace {

int threadCount() { return testsupport::thread_count(); }

}  // namespace

TEST(AirplayPlayerThreads, TheLoopEndsWithThePlayerAtEveryStage) {
  sim::AirplayDevice device;
  ASSERT_TRUE(device.start());
  Media m = layMedia({"00:00:02", "01:00:00"}, MEDIA_AUDIO);
  // A first player, so that threads a runtime starts lazily (a sanitizer's,
  // the device's workers) are in the baseline.
  auto first = makePlayer(device, m.title);
  ASSERT_EQ(0, first->play());
  ASSERT_TRUE(waitFor([&] { return device.currentUrl() != ""; }));
  first.reset();
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const int before = threadCount();
  // Destroyed while parked, while handing a track over, while polling,
  // while paused, and while the device is gone.
  const int delaysMs[] = {-1, 0, 5, 80, 120, 200};
  for (int delay : delaysMs) {
    auto p = makePlayer(device, m.title);
    EXPECT_LE(before + 1, threadCount()) << "one loop";
    if (delay >= 0) {
      ASSERT_EQ(0, p->play());
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
      if (delay == 120) {
        ASSERT_EQ(0, p->pause());
        EXPECT_TRUE(p->isParked());
      }
      if (delay == 200) device.setRefuse(500);
    }
    p.reset();
    // A loaded machine (a sanitizer build beside other jobs) may take a while.
    EXPECT_TRUE(waitFor([&] { return threadCount() <= before; }, 20)) << "after delay " << delay << ": "
                                                                      << threadCount() << " threads, " << before
                                                                      << " before";
  }
}

TEST(AirplayPlayerThreads, CommandsFromSeveralClientsNeverWedgeThePlayer) {
  sim::AirplayDevice device;
  ASSERT_TRUE(device.start());
  Media m = layMedia({"00:00:03", "00:00:30", "00:00:04"}, MEDIA_VIDEO);
  device.setDefaultDuration(3);
  auto p = makePlayer(device, m.title);
  p->setPlayMode(REPEAT);
  std::mutex playerLock;  // what the manager's try-lock is to a player
  std::atomic<bool> done{false};
  std::atomic<int> served{0};
  auto client = [&](unsigned seed) {
    std::mt19937 rng(seed);
    while (!done) {
      std::unique_lock<std::mutex> lk(playerLock, std::try_to_lock);
      if (!lk.owns_lock()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        continue;
      }
      switch (rng() % 8) {
        case 0: p->play(); break;
        case 1: p->pause(); break;
        case 2: p->next(); break;
        case 3: p->previous(); break;
        case 4: p->stop(false); break;
        case 5: p->seek("00:00:02"); break;
        case 6:
          p->setAudioAndSubtitle("00:00:01", 1, static_cast<int>(rng() % 3) - 1, nullptr, nullptr, "20", nullptr,
                                 nullptr, nullptr, 0);
          break;
        default: {
          std::string dump;
          p->debugDump(dump);
          p->getCurrTime();
          break;
        }
      }
      ++served;
      lk.unlock();
      std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 30));
    }
  };
  std::vector<std::thread> clients;
  for (unsigned i = 0; i < 3; ++i) clients.emplace_back(client, i + 1);
  std::this_thread::sleep_for(std::chrono::seconds(3));
  done = true;
  for (std::thread& t : clients) t.join();
  EXPECT_GT(served.load(), 10);
  // Still answering: after a stop, a play hands a track to the device.
  ASSERT_EQ(0, p->stop(false));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_TRUE(p->isParked());
  device.clearRequests();
  ASSERT_EQ(0, p->play());
  EXPECT_TRUE(waitFor([&] { return !played(device).empty(); }));
  p.reset();
}
