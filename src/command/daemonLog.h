// The daemon's own files in the log directory: the command log, with its
// crude rotation, and the one-line dump written when the daemon dies.
#pragma once

#include <string>

// The command log's path; set once by main before any thread starts.
extern std::string g_cmdLogPath;

// Appends "[hh:mm:ss] text" (UTC) to `path`. A file grown beyond 10 MiB is
// removed first, so the log starts over. 0, or -1.
int debug_write_log(const char* path, const char* text);

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

}  // namespace vessord
