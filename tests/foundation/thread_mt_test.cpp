// Lock guards, mutex kinds and the process singleton under several threads.
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

TEST(BlockingGuards, HoldUntilTheEndOfTheirScope) {
  pthread_mutex_t m;
  CThread::mutexInit(m, MUTEX_ATTR_NORMAL);
  pthread_rwlock_t rw = PTHREAD_RWLOCK_INITIALIZER;
  std::atomic<int> stage{0};
  std::thread waiter;
  {
    ThreadSingleLock hold(m);
    ThreadWriteLock write(rw);
    waiter = std::thread([&] {
      { ThreadSingleLock inner(m); }
      { ThreadReadLock read(rw); }
      stage = 1;
    });
    usleep(50000);
    EXPECT_EQ(stage.load(), 0);
  }
  waiter.join();
  EXPECT_EQ(stage.load(), 1);
  {
    // Two readers at once.
    ThreadReadLock r1(rw);
    std::thread([&] {
      ThreadReadLock r2(rw);
      stage = 2;
    }).join();
    EXPECT_EQ(stage.load(), 2);
  }
  pthread_rwlock_destroy(&rw);
  pthread_mutex_destroy(&m);
}

class countingThread : public CThread {
 public:
  countingThread() : CThread(THREAD_TYPE_DETACHED) {}
  void process() override {
    ran.store(true);
    while (!leave.load()) usleep(1000);
    done.store(true);
  }
  std::atomic<bool> ran{false};
  std::atomic<bool> leave{false};
  std::atomic<bool> done{false};
};

TEST(Thread, StartRunsProcessOnADetachedThread) {
  // Outlives the thread's return path (onExit runs after process()).
  static countingThread t;
  EXPECT_FALSE(t.isStarted());
  ASSERT_EQ(t.start(), 0);
  EXPECT_TRUE(t.isStarted());
  for (int i = 0; i < 2000 && !t.ran.load(); ++i) usleep(1000);
  EXPECT_TRUE(t.ran.load());
  t.leave = true;
  for (int i = 0; i < 2000 && !t.done.load(); ++i) usleep(1000);
  EXPECT_TRUE(t.done.load());
}

}  // namespace
