// The dump written when the daemon dies, and the one handler of its fatal
// signals. Everything here that the handler calls is async-signal-safe.
#pragma once

#include <signal.h>

#include <cstddef>
#include <string>

// Replaces <log directory>/<name> with one line telling the signal, the
// sender's pid and our own pid. Only async-signal-safe calls: it runs inside
// the fatal-signal handler. The result of the last system call.
int show_stackframe(const char* name, int sig, int sendPid);

namespace vessord {

// The log directory (with its final slash) that show_stackframe writes
// into; ".log/" until set. Call before the signal handlers are installed.
void set_log_dir(const std::string& dir);
const char* log_dir();

// Async-signal-safe formatting for the fatal path: appends to `out` (of
// `cap` bytes, always terminated) and returns the new length.
size_t safe_append(char* out, size_t len, size_t cap, const char* text);
size_t safe_append_int(char* out, size_t len, size_t cap, long long value, int width = 0);

// "[yyyy-mm-dd hh:mm:ss]" of the UTC time `epoch`, by arithmetic alone
// (gmtime is not async-signal-safe). Returns the length.
size_t format_dump_stamp(long long epoch, char* out, size_t cap);

// Fatal signals (and SIGUSR1) write the dump file "vessord.dump" and end
// the process with status 0; SIGCHLD reaps that child. The player manager's
// sigactionHandler is this handler.
void daemon_signal_handler(int sig, siginfo_t* info, void* context);
// The same, with the log line naming `func` as the handler.
void handle_daemon_signal(int sig, siginfo_t* info, const char* func);

}  // namespace vessord
