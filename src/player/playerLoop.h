// The end of a player's loop thread. The thread is detached and nothing is
// cancelled: a player's destructor tells its loop to leave and then waits
// here. The record is shared with the thread, so that the thread never
// touches the player once process() has returned.
#pragma once

#include <pthread.h>
#include <time.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

class CThread;

class PlayerLoopEnd {
 public:
  // The loop has returned (or never started).
  void finish();
  bool isDone();
  void wait();

 private:
  std::mutex m_lock;
  std::condition_variable m_cond;
  bool m_done = false;
};

// What a player hands to its thread: the thread runs player->process() and
// then finishes `end`. The entry deletes its argument.
struct playerLoopArg_s {
  CThread* player;
  std::shared_ptr<PlayerLoopEnd> end;
};
void* player_loop_entry(void* arg);

// The players' loops and commands wait on pthread conditions with a
// deadline on the real-time clock: now plus `ms`.
timespec deadline_in_ms(unsigned ms);

// One pass's wait of a player's loop: up to `ms`, cut short once `stop`
// holds (a command sets it, then broadcasts `cond`). `mutex` is the park's.
void sleep_pass(pthread_mutex_t& mutex, pthread_cond_t& cond, unsigned ms, const std::atomic<bool>& stop);
