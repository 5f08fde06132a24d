// Mutex kinds, the try-lock guard and the process singleton under contention.
#include <gtest/gtest.h>

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <set>
#include <thread>
#include <vector>

#include "foundation/thread.h"

namespace {

// What a second, time-limited lock by the holder gives.
int relock_result(int attr) {
  pthread_mutex_t m;
  EXPECT_EQ(CThread::mutexInit(m, static_cast<mutextAttr_e>(attr)), 0);
  pthread_mutex_lock(&m);
  struct timespec until;
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_nsec += 50 * 1000 * 1000;
  if (until.tv_nsec >= 1000000000L) until.tv_sec += 1, until.tv_nsec -= 1000000000L;
  int rc = pthread_mutex_timedlock(&m, &until);
  if (rc == 0) pthread_mutex_unlock(&m);
  pthread_mutex_unlock(&m);
  pthread_mutex_destroy(&m);
  return rc;
}

TEST(MutexInit, EachKindAndUnknownValuesGiveANormalMutex) {
  EXPECT_EQ(relock_result(MUTEX_ATTR_RECURSIVE), 0);
  EXPECT_EQ(relock_result(MUTEX_ATTR_ERRORCHECK), EDEADLK);
  EXPECT_EQ(relock_result(MUTEX_ATTR_NORMAL), ETIMEDOUT);  // a normal mutex blocks its holder
  EXPECT_EQ(relock_result(3), ETIMEDOUT);
}

TEST(TryLock, BusyMutexThrowsForTheHolderAndForOthers) {
  pthread_mutex_t m;
  ASSERT_EQ(CThread::mutexInit(m, MUTEX_ATTR_NORMAL), 0);
  {
    ThreadSingleTryLock held(m);
    EXPECT_THROW(ThreadSingleTryLock again(m), std::exception);
    std::thread([&] { EXPECT_THROW(ThreadSingleTryLock other(m), std::exception); }).join();
  }
  // The guard released it, and the failed tries left nothing held.
  EXPECT_EQ(pthread_mutex_trylock(&m), 0);
  pthread_mutex_unlock(&m);
  pthread_mutex_destroy(&m);
}

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
  std::vector<slowThing_s*> seen(kThreads, nullptr);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      ++ready;
      while (ready.load() < kThreads) std::this_thread::yield();
      seen[static_cast<size_t>(i)] = CGlobalsSingleton<slowThing_s>::get();
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(slowThing_s::built.load(), 1);
  EXPECT_EQ(std::set<slowThing_s*>(seen.begin(), seen.end()).size(), 1u);
}

}  // namespace
