// The daemon's signal set-up.
#pragma once

// SIGSEGV, SIGBUS, SIGABRT, SIGILL and SIGUSR1 go to the player manager's
// sigactionHandler, which writes the dump file and ends the process with
// status 0; SIGPIPE and SIGHUP are ignored. Call after vessord::set_log_dir.
void install_signals();
