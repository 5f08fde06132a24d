// The monitor's wait, its callback loop and its destruction with one or two
// threads on it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "foundation/log.h"
#include "foundation/monitor.h"

namespace {

using myMonitor::CMyMonitor;
using Clock = std::chrono::steady_clock;

struct watched_s : public myMonitor::CMyMonitorFunctor {
  void callback() override {
    int n = ++calls;
    if (pauseAt > 0 && n >= pauseAt && monitor) monitor->m_paused = true;
  }
  std::string getDeviceName() const { return "Living room"; }
  std::atomic<int> calls{0};
  int pauseAt = 0;  // the callback sends the monitor back to its wait here
  CMyMonitor<watched_s>* monitor = nullptr;
};

bool wait_for(const std::function<bool()>& cond, int ms) {
  for (int i = 0; i < ms / 5; ++i) {
    if (cond()) return true;
    usleep(5000);
  }
  return cond();
}

double seconds_since(Clock::time_point t0) {
  return std::chrono::duration<double>(Clock::now() - t0).count();
}

TEST(Monitor, WaitsUntilWokenAndPollsUntilPausedAgain) {
  int logPipe[2];
  ASSERT_EQ(pipe2(logPipe, O_CLOEXEC | O_NONBLOCK), 0);
  vessord::log_set_tee(logPipe[1]);
  watched_s target;
  auto mon = std::make_unique<CMyMonitor<watched_s>>(&target);
  target.monitor = mon.get();
  EXPECT_EQ(mon->m_target, &target);
  EXPECT_TRUE(mon->m_paused.load());
  EXPECT_EQ(mon->m_interval.load(), 1);
  mon->m_interval = 0;

  usleep(200000);
  EXPECT_EQ(target.calls.load(), 0) << "a paused monitor must not call back";
  char buf[4096] = {};
  ssize_t n = read(logPipe[0], buf, sizeof buf - 1);
  vessord::log_set_tee(-1);
  ASSERT_GT(n, 0);
  EXPECT_NE(std::string(buf).find("[Living room] >>> Monitor Lock!!!\n"), std::string::npos) << buf;

  // Held: the owner's wake-up is ignored.
  mon->m_hold = true;
  mon->wake();
  usleep(100000);
  EXPECT_EQ(target.calls.load(), 0);
  EXPECT_TRUE(mon->m_paused.load());

  // The callback pauses it again on its third call.
  target.pauseAt = 3;
  mon->m_hold = false;
  mon->wake();
  ASSERT_TRUE(wait_for([&] { return target.calls.load() >= 3; }, 3000));
  usleep(200000);
  EXPECT_EQ(target.calls.load(), 3) << "paused by the callback, the monitor waits again";

  // Woken again, it goes on from there.
  target.pauseAt = 5;
  mon->wake();
  ASSERT_TRUE(wait_for([&] { return target.calls.load() >= 5; }, 3000));
  usleep(200000);
  EXPECT_EQ(target.calls.load(), 5);
  mon.reset();
  close(logPipe[0]);
  close(logPipe[1]);
}

TEST(Monitor, DestroyedWhileTwoThreadsWaitCallsBackOnceMoreThenStops) {
  watched_s target;
  auto* mon = new CMyMonitor<watched_s>(&target);
  ASSERT_EQ(mon->start(), 0);  // a second thread on the same monitor
  usleep(200000);
  ASSERT_EQ(target.calls.load(), 0);

  const auto t0 = Clock::now();
  delete mon;
  const double took = seconds_since(t0);
  const int atReturn = target.calls.load();
  // The broadcast woke the waiters: a callback, then the interval's sleep
  // before the first thread sees the request and leaves.
  EXPECT_GE(atReturn, 1);
  EXPECT_LE(atReturn, 2);
  EXPECT_GE(took, 0.9);

  // The other thread may still be asleep: it must leave without a callback.
  usleep(1500000);
  EXPECT_EQ(target.calls.load(), atReturn);
}

TEST(Monitor, DestroyedWhilePollingWithTwoThreadsLeavesTheTargetAlone) {
  auto target = std::make_unique<watched_s>();
  auto* mon = new CMyMonitor<watched_s>(target.get());
  mon->start();
  mon->m_paused = false;
  pthread_cond_broadcast(&mon->m_cond);  // both threads poll
  ASSERT_TRUE(wait_for([&] { return target->calls.load() >= 2; }, 3000));
  delete mon;
  const int atReturn = target->calls.load();
  usleep(1500000);
  EXPECT_EQ(target->calls.load(), atReturn) << "a monitor thread called back after the destructor returned";
  target.reset();
  usleep(200000);
}

TEST(Monitor, StopsWithoutWaitWhenNoThreadRuns) {
  // A monitor whose threads have all left ends at once the second time.
  watched_s target;
  auto mon = std::make_unique<CMyMonitor<watched_s>>(&target);
  mon->m_interval = 0;
  mon->m_exit = true;  // the running thread takes this request and leaves
  mon->wake();
  usleep(200000);
  const auto t0 = Clock::now();
  mon.reset();
  EXPECT_LT(seconds_since(t0), 5.0);
}

}  // namespace
