// The Chromecast service under several threads: each command and its answer
// stay one pair, the lines on the child's input never mix, and a close from
// another thread ends the session between two exchanges, never inside one.
#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "chromecastSupport.h"
#include "services/chromecastService.h"
#include "support/testRoot.h"

using vessord::ChromecastService;
using vessord::Response;
using namespace castsupport;

namespace {

const std::string kUrl = "http://10.0.0.2:8080/v.mp4";

TEST(CastServiceThreads, EachCommandGetsItsOwnAnswer) {
  testsupport::TestRoot root;
  ChromecastService svc("render-cc", kIp, 8009, "Living room");
  svc.setTiming(normal_timing());
  Response r;
  ASSERT_EQ(svc.setContentUrl(r, kUrl, "", "", ""), 0);
  ASSERT_EQ(svc.setVolume(r, 0.25F), 0);
  ASSERT_EQ(svc.setMute(r, true), 0);
  ASSERT_EQ(svc.pause(r), 0);

  constexpr int kThreads = 4;
  constexpr int kRounds = 20;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        Response a = marked();
        switch ((t + i) % 3) {
          case 0:
            if (svc.getVolume(a) != 0 || a.m_volume != 0.25F || a.m_muted != 42) ++wrong;
            break;
          case 1:
            if (svc.getMute(a) != 0 || a.m_muted != 1 || a.m_volume != -5) ++wrong;
            break;
          default:
            if (svc.getPosInfo(a) != 0 || a.m_state != "PAUSED" || a.m_volume != -5) ++wrong;
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(wrong.load(), 0);

  // Every line that reached the child is one whole command.
  std::map<std::string, int> seen;
  std::istringstream in(input_of(root, svc.childPid()));
  std::string line;
  while (std::getline(in, line)) ++seen[line];
  EXPECT_EQ(seen["{ \"cmd\":\"GET_VOLUME\" }\r"] + seen["{ \"cmd\":\"GET_MUTE\" }\r"] +
                seen["{ \"cmd\":\"STATUS\" }\r"],
            kThreads * kRounds);
  EXPECT_EQ(seen.size(), 8U);  // the four of the set-up, the launch and the three above
}

TEST(CastServiceThreads, SignalsDuringTheWaitDoNotCutItShort) {
  testsupport::TestRoot root;
  ChromecastService svc("render-cc", kIp, 8009, "Living room");
  svc.setTiming(normal_timing());
  Response r;
  ASSERT_EQ(svc.setContentUrl(r, kUrl, "", "", ""), 0);
  fault(root, "STATUS late 400\n");

  struct sigaction act {};
  struct sigaction old {};
  act.sa_handler = [](int) {};
  sigemptyset(&act.sa_mask);
  ASSERT_EQ(sigaction(SIGUSR2, &act, &old), 0);
  const pthread_t waiter = pthread_self();
  std::atomic<bool> done{false};
  std::thread poker([&] {
    while (!done.load()) {
      pthread_kill(waiter, SIGUSR2);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  });
  Response a = marked();
  const int rc = svc.getPosInfo(a);
  done = true;
  poker.join();
  sigaction(SIGUSR2, &old, nullptr);
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(a.m_response, 0);
  EXPECT_EQ(a.m_state, "PLAYING");
}

TEST(CastServiceThreads, CloseFromAnotherThreadFallsBetweenExchanges) {
  testsupport::TestRoot root;
  ChromecastService svc("render-cc", kIp, 8009, "Living room");
  svc.setTiming(normal_timing());
  Response r;
  ASSERT_EQ(svc.setContentUrl(r, kUrl, "", "", ""), 0);
  const pid_t pid = svc.childPid();

  std::atomic<bool> stop{false};
  std::atomic<int> answered{0};
  std::atomic<int> refused{0};
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(3);
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&] {
      while (!stop.load()) {
        Response a = marked();
        const int rc = svc.getVolume(a);
        if (rc == 0 && a.m_volume == 1.0F) {
          ++answered;
        } else if (rc == 1 && a.m_volume == -5) {
          ++refused;
        } else {
          ++wrong;
        }
        if (refused.load() > 20) stop = true;
      }
    });
  }
  while (answered.load() < 10 && refused.load() == 0) std::this_thread::yield();
  Response c;
  EXPECT_EQ(svc._close(c), 0);
  EXPECT_EQ(c.m_state, "CLOSED");
  for (auto& th : threads) th.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_GE(answered.load(), 10);
  EXPECT_GT(refused.load(), 20);
  EXPECT_TRUE(gone(pid));
  EXPECT_FALSE(svc.inited());
}

}  // namespace
