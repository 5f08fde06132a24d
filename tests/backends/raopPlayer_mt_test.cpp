// The speaker player under concurrency: probes of two players at once each
// read their own report; commands racing the loop leave no child behind.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "backends/raopTestSupport.h"

using namespace raoptest;

TEST(RaopPlayerThreads, ProbesAtOnceReadTheirOwnReports) {
  const Strings paths = layMedia({"00:01:11", "00:02:22"});
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(2);
  for (size_t t = 0; t < 2; ++t) {
    threads.emplace_back([&, t] {
      const std::string expected = t == 0 ? "00:01:11" : "00:02:22";
      for (int i = 0; i < 15; ++i) {
        std::string duration;
        if (CRaopPlayer::_get_track_druation(sharedRoot().path(paths[t]).c_str(), duration) != 0 ||
            duration != expected)
          ++wrong;
      }
    });
  }
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(0, wrong.load());
}

// Pause, play, next, volume and stop from several threads while the loop
// runs; then the player goes: its children are all ended and reaped.
TEST(RaopPlayerThreads, CommandsRacingTheLoopLeaveNoChild) {
  layMedia({"00:00:01", "00:00:01", "00:00:01"});
  makeObjectPlaylist(3);
  auto p = makePlayer();
  p->setPlayMode(REPEAT);
  ASSERT_EQ(0, p->play());
  std::vector<int> pids{p->childPid()};
  std::vector<std::thread> threads;
  threads.reserve(3);
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 8; ++i) {
        switch ((i + t) % 4) {
          case 0: p->pause(); break;
          case 1: p->play(); break;
          case 2: p->next(); break;
          default: p->setVolume(i * 10); break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
      }
    });
  }
  for (std::thread& th : threads) th.join();
  p->stop(true);
  ASSERT_EQ(0, p->play());
  pids.push_back(p->childPid());
  p.reset();
  for (int pid : pids) EXPECT_FALSE(procExists(pid)) << pid;
}
