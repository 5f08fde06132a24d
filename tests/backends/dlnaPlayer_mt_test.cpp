// CDlnaPlayer's threads: the loop and both monitors end with the player,
// whatever the loop is doing when the player goes, and commands from
// several client threads (one at a time per player, as the manager's
// try-lock lets them through) never wedge it.
#include <dirent.h>

#include <atomic>
#include <mutex>
#include <random>

#include "backends/dlnaTestSupport.h"

using namespace dlnatest;

namespace {

int threadCount() { return testsupport::thread_count(); }

}  // namespace

TEST(DlnaPlayerThreads, ThreadsEndWithThePlayerAtEveryStage) {
  Media m = layTracks({"00:00:02", "00:01:00"});
  Renderer r(renderId());
  r.set("rate", "10");
  // A first player, so that threads a runtime starts lazily (a sanitizer's)
  // are in the baseline.
  makePlayer(m.title).reset();
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  const int before = threadCount();
  // Destroyed while parked, while loading, while polling, in a Busy retry,
  // and while parked with the monitors polling the renderer.
  const int delaysMs[] = {-1, 0, 30, 150, 400, 1500};
  for (int delay : delaysMs) {
    if (delay == 150) r.set("busy", "3");
    auto p = makePlayer(m.title);
    EXPECT_EQ(before + 3, threadCount()) << "loop and two monitors";
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
}

TEST(DlnaPlayerThreads, CommandsFromSeveralClientsNeverWedgeThePlayer) {
  Media m = layTracks({"00:00:03", "00:00:30", "00:00:04"});
  Renderer r(renderId());
  r.set("rate", "5");
  auto p = makePlayer(m.title);
  p->setPlayMode(REPEAT);
  std::mutex playerLock;  // what the manager's try-lock is to a player
  std::atomic<bool> done{false};
  std::atomic<int> served{0}, busy{0};
  auto client = [&](unsigned seed) {
    std::mt19937 rng(seed);
    while (!done) {
      std::unique_lock<std::mutex> lk(playerLock, std::try_to_lock);
      if (!lk.owns_lock()) {
        ++busy;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        continue;
      }
      switch (rng() % 7) {
        case 0: p->play(); break;
        case 1: p->pause(); break;
        case 2: p->next(); break;
        case 3: p->previous(); break;
        case 4: p->stop(false); break;
        case 5: p->seek("00:00:02"); break;
        default: p->getCurrTimeSecond(); p->getTotalTime(); break;
      }
      ++served;
      lk.unlock();
      std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 60));
    }
  };
  std::vector<std::thread> clients;
  for (unsigned i = 0; i < 3; ++i) clients.emplace_back(client, i + 1);
  // Until the clients got 30 commands through; the deadline only catches a
  // wedged player, however slow the machine.
  EXPECT_TRUE(waitFor([&] { return served.load() >= 30; }, 120)) << served.load() << " served";
  done = true;
  for (std::thread& t : clients) t.join();
  // Still answering: a last play runs a track to the renderer.
  ASSERT_EQ(0, p->play());
  EXPECT_TRUE(waitFor([&] { return r.get("state") == "PLAYING"; }));
  p.reset();
}
