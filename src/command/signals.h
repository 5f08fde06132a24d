// The daemon's signal set-up and its one handler.
#pragma once

#include <signal.h>

// Fatal signals (and SIGUSR1) write the dump file and end the process with
// status 0; SIGCHLD, once someone installs it, reaps that child. Everything
// it calls is async-signal-safe.
void sigaction_handler(int sig, siginfo_t* info, void* context);

// SIGSEGV, SIGBUS, SIGABRT, SIGILL and SIGUSR1 go to sigaction_handler;
// SIGPIPE and SIGHUP are ignored. Call after vessord::set_log_dir.
void install_signals();
