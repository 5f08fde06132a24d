#include "player/playerLoop.h"

#include "foundation/thread.h"

void PlayerLoopEnd::finish() {
  std::lock_guard<std::mutex> lk(m_lock);
  m_done = true;
  m_cond.notify_all();
}

bool PlayerLoopEnd::isDone() {
  std::lock_guard<std::mutex> lk(m_lock);
  return m_done;
}

void PlayerLoopEnd::wait() {
  std::unique_lock<std::mutex> lk(m_lock);
  m_cond.wait(lk, [this] { return m_done; });
}

void* player_loop_entry(void* a) {
  std::unique_ptr<playerLoopArg_s> arg(static_cast<playerLoopArg_s*>(a));
  arg->player->process();
  arg->end->finish();
  return nullptr;
}

timespec deadline_in_ms(unsigned ms) {
  timespec until{};
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_sec += ms / 1000;
  until.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
  if (until.tv_nsec >= 1000000000L) {
    until.tv_sec += 1;
    until.tv_nsec -= 1000000000L;
  }
  return until;
}

void sleep_pass(pthread_mutex_t& mutex, pthread_cond_t& cond, unsigned ms, const std::atomic<bool>& stop) {
  const timespec until = deadline_in_ms(ms);
  pthread_mutex_lock(&mutex);
  int rc = 0;
  while (!stop && rc == 0) rc = pthread_cond_timedwait(&cond, &mutex, &until);
  pthread_mutex_unlock(&mutex);
}
