#include "command/signals.h"

#include <signal.h>

#include <cstring>

#include "manager/playerManager.h"

void install_signals() {
  struct sigaction act;
  std::memset(&act, 0, sizeof act);
  sigemptyset(&act.sa_mask);
  act.sa_sigaction = CPlayerManager::sigactionHandler;
  act.sa_flags = SA_RESTART | SA_SIGINFO | SA_NOCLDWAIT;
  const int fatal[] = {SIGSEGV, SIGBUS, SIGABRT, SIGILL, SIGUSR1};
  for (int sig : fatal) sigaction(sig, &act, nullptr);

  std::memset(&act, 0, sizeof act);
  sigemptyset(&act.sa_mask);
  act.sa_handler = SIG_IGN;
  act.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGPIPE, &act, nullptr);
  sigaction(SIGHUP, &act, nullptr);
}
