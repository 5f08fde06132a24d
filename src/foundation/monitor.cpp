#include "foundation/monitor.h"

#include <unistd.h>

#include "foundation/log.h"

namespace myMonitor {

monitorState_s::monitorState_s(void* t, void (*c)(void*), std::string (*n)(void*))
    : target(t), call(c), name(n) {
  CThread::mutexInit(mutex, MUTEX_ATTR_NORMAL);
  pthread_cond_init(&cond, nullptr);
}

monitorState_s::~monitorState_s() {
  pthread_cond_destroy(&cond);
  pthread_mutex_destroy(&mutex);
}

namespace {

// Runs fn while the owner is guaranteed to stay: false (and fn not run)
// once the owner has gone.
template <class F>
bool with_target(monitorState_s& s, F fn) {
  {
    std::lock_guard<std::mutex> lk(s.gate);
    if (s.ownerGone.load()) return false;
    ++s.inCallback;
  }
  fn();
  std::lock_guard<std::mutex> lk(s.gate);
  if (--s.inCallback == 0) s.gateCond.notify_all();
  return true;
}

// Takes the exit request if there is one: only one thread gets it.
bool leave_on_request(monitorState_s& s) {
  bool expected = true;
  if (!s.exit.compare_exchange_strong(expected, false)) return false;
  std::lock_guard<std::mutex> lk(s.gate);
  ++s.leaves;
  s.gateCond.notify_all();
  return true;
}

}  // namespace

void monitor_loop(const std::shared_ptr<monitorState_s>& state) {
  monitorState_s& s = *state;
  if (leave_on_request(s)) return;
  for (;;) {
    if (s.ownerGone.load()) return;
    if (s.paused.load()) {
      std::string name;
      if (!with_target(s, [&] { name = s.name(s.target); })) return;
      ThreadSingleLock guard(s.mutex);
      VLOG(LOG_COLOR_NOTICE, "[%s] >>> Monitor Lock!!!\n", name.c_str());
      // Whatever wakes the wait, the thread goes on to its callback. The
      // checks only keep a wake-up that came just before the wait from
      // being lost.
      if (s.paused.load() && !s.exit.load() && !s.ownerGone.load()) pthread_cond_wait(&s.cond, &s.mutex);
    }
    if (!with_target(s, [&] { s.call(s.target); })) return;
    int secs = s.interval.load();
    if (secs > 0) ::sleep(static_cast<unsigned>(secs));
    if (leave_on_request(s)) return;
  }
}

void* monitor_thread_entry(void* arg) {
  std::shared_ptr<monitorState_s> state;
  {
    std::unique_ptr<std::shared_ptr<monitorState_s>> holder(static_cast<std::shared_ptr<monitorState_s>*>(arg));
    state = std::move(*holder);
  }
  monitor_loop(state);
  std::lock_guard<std::mutex> lk(state->gate);
  --state->threads;
  state->gateCond.notify_all();
  return nullptr;
}

void monitor_shutdown(monitorState_s& s) {
  std::unique_lock<std::mutex> lk(s.gate);
  const int leavesBefore = s.leaves;
  s.exit.store(true);
  lk.unlock();
  {
    ThreadSingleLock guard(s.mutex);
    pthread_cond_broadcast(&s.cond);
  }
  lk.lock();
  // The first thread that leaves ends the wait.
  s.gateCond.wait(lk, [&] { return s.leaves > leavesBefore || s.threads == 0; });
  // The others may still be sleeping or about to wait: from now on they
  // leave without touching the target. Let a callback under way finish.
  s.ownerGone.store(true);
  s.gateCond.wait(lk, [&] { return s.inCallback == 0; });
  lk.unlock();
  ThreadSingleLock guard(s.mutex);
  pthread_cond_broadcast(&s.cond);
}

}  // namespace myMonitor
