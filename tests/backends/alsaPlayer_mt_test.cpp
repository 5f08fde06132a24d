// CAlsaPlayer's thread and daemon: the loop ends with the player whatever
// it is doing, the player's music daemon ends with it, and commands from
// several client threads (one at a time, as the manager's try-lock lets
// them through) never wedge the player.
#include <dirent.h>
#include <signal.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <random>

#include "backends/alsaTestSupport.h"

using namespace alsatest;

namespace {

int threadCount() { return testsupport::thread_count(); }

pid_t daemonOf(const CAlsaPlayer& p) {
  std::ifstream in(sharedRoot().path("/sim/mpd/" + std::to_string(p.port()) + "/pid"));
  long pid = 0;
  in >> pid;
  return static_cast<pid_t>(pid);
}

bool gone(pid_t pid) {
  return waitFor([pid] { return ::kill(pid, 0) != 0; }, 10);
}

}  // namespace

TEST(AlsaPlayerThreads, LoopAndDaemonEndWithThePlayerAtEveryStage) {
  layTracks({1, 30});
  makePlayer(playertest::testTitle()).reset();  // runtime threads into the baseline
  const int before = threadCount();
  for (int delayMs : {-1, 0, 40, 300, 1500}) {
    auto p = makePlayer(playertest::testTitle());
    const pid_t music = daemonOf(*p);
    EXPECT_EQ(before + 1, threadCount()) << "the loop";
    if (delayMs >= 0) {
      ASSERT_EQ(0, p->play());
      std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));
    }
    p.reset();
    EXPECT_TRUE(waitFor([&] { return threadCount() == before; }, 5)) << "after delay " << delayMs;
    if (music > 0) {
      EXPECT_TRUE(gone(music)) << "music daemon after delay " << delayMs;
    }
  }
}

TEST(AlsaPlayerThreads, CommandsFromSeveralClientsNeverWedgeIt) {
  layTracks({1, 2, 30});
  auto p = makePlayer(playertest::testTitle());
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  std::mutex one;  // the manager lets one command at a time through
  std::atomic<int> done{0};
  std::vector<std::thread> clients;
  for (int t = 0; t < 4; ++t) {
    clients.emplace_back([&, t] {
      std::mt19937 rng(static_cast<unsigned>(t) * 7919u + 1u);
      for (int i = 0; i < 25; ++i) {
        {
          std::lock_guard<std::mutex> lk(one);
          switch (rng() % 8) {
            case 0: p->play(); break;
            case 1: p->pause(); break;
            case 2: p->stop(true); break;
            case 3: p->next(); break;
            case 4: p->previous(); break;
            case 5: p->seek("00:00:01"); break;
            case 6: p->setMute(rng() % 2 == 0); break;
            default: p->setVolume(static_cast<int>(rng() % 101)); break;
          }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 60));
      }
      ++done;
    });
  }
  for (std::thread& c : clients) c.join();
  EXPECT_EQ(4, done.load());
  // Still answers: it plays, and stops.
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E; }));
  EXPECT_EQ(0, p->stop(true));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
}
