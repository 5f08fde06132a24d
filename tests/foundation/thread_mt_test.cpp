// The try-lock guard and the process singleton under several threads.
#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "foundation/thread.h"

namespace {

struct slowThing_s {
  static std::atomic<int> built;
  slowThing_s() {
    ++built;
    usleep(20000);  // keeps the window open for the other callers
  }
};
std::atomic<int> slowThing_s::built{0};

TEST(Singleton, ManyThreadsAtFirstUseShareOneInstance) {
  constexpr int kThreads = 16;
  std::atomic<int> ready{0};
  std::atomic<bool> go{false};
  std::vector<slowThing_s*> seen(kThreads, nullptr);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      ++ready;
      while (!go.load()) std::this_thread::yield();
      seen[static_cast<size_t>(i)] = CGlobalsSingleton<slowThing_s>::get();
    });
  }
  while (ready.load() < kThreads) std::this_thread::yield();
  go = true;
  for (auto& t : threads) t.join();
  EXPECT_EQ(slowThing_s::built.load(), 1);
  EXPECT_EQ(std::set<slowThing_s*>(seen.begin(), seen.end()).size(), 1u);
  EXPECT_NE(seen[0], nullptr);
  EXPECT_EQ(CGlobalsSingleton<slowThing_s>::get(), seen[0]);
}

TEST(TryLock, BusyMutexThrowsForTheHolderAndForOthers) {
  pthread_mutex_t m;
  ASSERT_EQ(CThread::mutexInit(m, MUTEX_ATTR_NORMAL), 0);
  {
    ThreadSingleTryLock held(m);
    // The same thread again: a normal mutex is not recursive.
    EXPECT_THROW(ThreadSingleTryLock again(m), std::exception);
    bool otherThrew = false;
    std::thread([&] {
      try {
        ThreadSingleTryLock other(m);
      } catch (const std::exception&) {
        otherThrew = true;
      }
    }).join();
    EXPECT_TRUE(otherThrew);
  }
  // The guard released the mutex, and a failed try left nothing held.
  bool took = false;
  std::thread([&] {
    ThreadSingleTryLock other(m);
    took = true;
  }).join();
  EXPECT_TRUE(took);
  EXPECT_EQ(pthread_mutex_trylock(&m), 0);
  pthread_mutex_unlock(&m);
  pthread_mutex_destroy(&m);
}

}  // namespace
