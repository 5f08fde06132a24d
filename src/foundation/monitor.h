// A side thread that watches a device for its owner while the owner's own
// thread sleeps: it waits until the owner wakes it, then calls the owner's
// callback() once every m_interval seconds until it is paused again.
//
// A monitor may be started twice (a DLNA player does so): both threads then
// share every flag and each makes its own callbacks.
//
// The state the threads use lives in a reference-counted block that every
// thread keeps alive, not in the monitor object. The destructor asks the
// threads to leave and returns as soon as the first of them has left; from
// then on the block tells any thread still sleeping or about to wait to leave
// without a callback, so no thread touches the monitor or its target once
// the destructor has returned.
#pragma once

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "foundation/thread.h"

namespace myMonitor {

class CMyMonitorFunctor {
 public:
  virtual ~CMyMonitorFunctor() = default;
  virtual void callback() {}
};

// What the monitor's threads share with their owner.
struct monitorState_s {
  monitorState_s(void* target, void (*call)(void*), std::string (*name)(void*));
  ~monitorState_s();
  monitorState_s(const monitorState_s&) = delete;
  monitorState_s& operator=(const monitorState_s&) = delete;

  void* target;
  void (*call)(void*);
  std::string (*name)(void*);

  std::atomic<bool> hold{false};    // while set, the owner does not wake the monitor
  std::atomic<bool> exit{false};    // leave request; the thread that leaves clears it
  std::atomic<bool> paused{true};   // wait on `cond` before the next callback
  std::atomic<int> interval{1};     // seconds of sleep after each callback
  pthread_mutex_t mutex;            // guards the wait
  pthread_cond_t cond;              // wakes the monitor

  // Bookkeeping of the threads against the owner's lifetime.
  std::mutex gate;
  std::condition_variable gateCond;
  std::atomic<bool> ownerGone{false};
  int inCallback = 0;  // threads now using the target (guarded by gate)
  int threads = 0;     // threads started and not yet ended (guarded by gate)
  int leaves = 0;      // threads that left on an exit request (guarded by gate)
};
typedef monitorState_s monitorState_t;

// The loop that each monitor thread runs.
void monitor_loop(const std::shared_ptr<monitorState_s>& state);
// Thread entry: `arg` is a new'd shared_ptr<monitorState_s>, taken over.
void* monitor_thread_entry(void* arg);
// Ends the monitor for its owner: returns once a thread has left (or when
// none is running), after which no thread uses the target any more.
void monitor_shutdown(monitorState_s& state);

namespace detail {
// The target's name for the log: its getDeviceName(), else a visible
// m_deviceName, else nothing.
template <class U>
auto target_name(const U& u, int) -> decltype(std::string(u.getDeviceName())) {
  return std::string(u.getDeviceName());
}
template <class U>
auto target_name(const U& u, long) -> decltype(std::string(u.m_deviceName)) {
  return std::string(u.m_deviceName);
}
template <class U>
std::string target_name(const U&, ...) {
  return std::string();
}
}  // namespace detail

template <class T>
class CMyMonitor : public CMyMonitorFunctor, public CThread {
 public:
  explicit CMyMonitor(T* target)
      : CThread(THREAD_TYPE_DETACHED),
        m_state(std::make_shared<monitorState_s>(target, &CMyMonitor::call_, &CMyMonitor::name_)),
        m_target(target),
        m_hold(m_state->hold),
        m_exit(m_state->exit),
        m_paused(m_state->paused),
        m_interval(m_state->interval),
        m_mutex(m_state->mutex),
        m_cond(m_state->cond) {
    start();
  }

  ~CMyMonitor() override { monitor_shutdown(*m_state); }

  // Runs the loop on the calling thread.
  void process() override { monitor_loop(m_state); }

  // Starts one more monitor thread on the shared state; the thread holds
  // the state, never this object.
  int start() override {
    {
      std::lock_guard<std::mutex> lk(m_state->gate);
      ++m_state->threads;
    }
    auto* arg = new std::shared_ptr<monitorState_s>(m_state);
    int rc = startThread_(&monitor_thread_entry, arg);
    if (rc != 0) {
      delete arg;
      std::lock_guard<std::mutex> lk(m_state->gate);
      --m_state->threads;
      m_state->gateCond.notify_all();
    }
    return rc;
  }

  // The owner's side of the protocol: unless held, clear the pause and wake
  // one monitor thread.
  void wake() {
    if (m_hold.load()) return;
    pthread_mutex_lock(&m_mutex);
    m_paused.store(false);
    pthread_cond_signal(&m_cond);
    pthread_mutex_unlock(&m_mutex);
  }

 private:
  static void call_(void* t) { static_cast<T*>(t)->callback(); }
  static std::string name_(void* t) { return detail::target_name(*static_cast<T*>(t), 0); }

  std::shared_ptr<monitorState_s> m_state;

 public:
  T* m_target;
  std::atomic<bool>& m_hold;
  std::atomic<bool>& m_exit;
  std::atomic<bool>& m_paused;
  std::atomic<int>& m_interval;
  pthread_mutex_t& m_mutex;
  pthread_cond_t& m_cond;
};

}  // namespace myMonitor
