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
