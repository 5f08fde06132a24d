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

struct watched_s : public myMonitor::CMyMonitorFunctor {
  void callback() override {
    if (++calls >= pauseAt && pauseAt > 0) monitor->m_paused = true;
  }
  std::string getDeviceName() const { return "Living room"; }
  std::atomic<int> calls{0};
  std::atomic<int> pauseAt{0};  // the callback sends the monitor back to its wait here
  CMyMonitor<watched_s>* monitor = nullptr;
};

bool wait_for(const std::function<bool()>& cond) {
  for (int i = 0; i < 600 && !cond(); ++i) usleep(5000);
  return cond();
}

double seconds_of(const std::function<void()>& fn) {
  const auto t0 = std::chrono::steady_clock::now();
  fn();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

TEST(Monitor, WaitsUntilWokenAndPollsUntilPausedAgain) {
  int logPipe[2];
  ASSERT_EQ(pipe2(logPipe, O_CLOEXEC | O_NONBLOCK), 0);
  vessord::log_set_tee(logPipe[1]);
  watched_s target;
  auto mon = std::make_unique<CMyMonitor<watched_s>>(&target);
  target.monitor = mon.get();
  EXPECT_TRUE(mon->m_paused.load());
  EXPECT_EQ(mon->m_interval.load(), 1);
  mon->m_interval = 0;
  usleep(200000);
  char buf[4096] = {};
  EXPECT_GT(read(logPipe[0], buf, sizeof buf - 1), 0);
  vessord::log_set_tee(-1);
  EXPECT_NE(std::string(buf).find("[Living room] >>> Monitor Lock!!!\n"), std::string::npos) << buf;

  mon->m_hold = true;  // held: the owner's wake-up is ignored
  mon->wake();
  usleep(100000);
  EXPECT_EQ(target.calls.load(), 0);

  mon->m_hold = false;
  for (int pauseAt : {3, 5}) {  // paused by its callback, then woken again
    target.pauseAt = pauseAt;
    mon->wake();
    ASSERT_TRUE(wait_for([&] { return target.calls.load() >= pauseAt; }));
    usleep(200000);
    EXPECT_EQ(target.calls.load(), pauseAt);
  }
  // An exit request taken on the way: the destructor then finds no thread
  // and must not wait for one.
  mon->m_exit = true;
  mon->wake();
  usleep(200000);
  mon.reset();
  for (int fd : logPipe) close(fd);
}

// With two threads on it, waiting or polling. Waiting, the broadcast wakes
// both: each calls back once and sleeps the interval, and the first to see
// the request ends the destructor's wait. Either way, no thread touches the
// target once the destructor has returned.
TEST(Monitor, DestroyedWithTwoThreadsWaitingOrPolling) {
  for (bool polling : {false, true}) {
    auto target = std::make_unique<watched_s>();
    auto* mon = new CMyMonitor<watched_s>(target.get());
    ASSERT_EQ(mon->start(), 0);  // a second thread on the same monitor
    if (polling) {
      mon->m_paused = false;
      pthread_cond_broadcast(&mon->m_cond);
    }
    usleep(200000);
    ASSERT_TRUE(wait_for([&] { return polling ? target->calls.load() >= 2 : target->calls.load() == 0; }));
    EXPECT_GE(seconds_of([&] { delete mon; }), polling ? 0.0 : 0.9);
    const int atReturn = target->calls.load();
    EXPECT_TRUE(polling || (atReturn >= 1 && atReturn <= 2)) << atReturn;
    usleep(1500000);
    EXPECT_EQ(target->calls.load(), atReturn) << "a monitor thread called back after the destructor returned";
    target.reset();  // a late access shows under the sanitizers
  }
}

}  // namespace
