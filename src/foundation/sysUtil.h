// Time-limited shell commands and small system helpers.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <string>

namespace vessord {
class ShellLine;
}

// What execute_external_cmd shares with its worker thread. The caller and the
// worker each hold a reference, so the record outlives a caller that gave up.
struct externalCmdJob_s {
  int result;          // -1 until the output is valid, then 0
  int done;            // 1 once the worker is on its way out
  size_t outputSize;   // always 8192
  char command[256];   // the fixed text of the const char* form, for the log
  char output[8192];   // the bytes read, zero-filled behind them
};
typedef externalCmdJob_s externalCmdJob_t;

// One guarded command at a time in the whole daemon.
extern pthread_mutex_t g_externalCmdLock;

// Runs `command` through sh, waiting at most `seconds` (counted in tenths of
// a second) once the lock is held. 0 with the first 8192 bytes of output in
// `output` (the exit status plays no part); -1 with an empty `output` on a
// time-out or failure. A child that outlives its limit is left running and
// reaped later. The text runs as it stands: a '%' in it is an ordinary
// character (it is never read as a format).
int execute_external_cmd(const char* command, std::string& output, int seconds);
// The same for a composed line; a line that is not ok() gives -1 at once.
int execute_external_cmd(const vessord::ShellLine& line, std::string& output, int seconds);

// The worker's body: `job` is the record above (kept alive by the caller).
void* popen_timeout_wrap(void* job);

// 1 when the file can be read, else 0.
int is_file_exist(const char* path);

// The name of the first IPv4 interface whose network holds `ip`, copied into
// `ifName` (at least IFNAMSIZ bytes). 0 when found, 1 otherwise.
int get_if_by_ip(const char* ip, char* ifName);

// Hex and text dump to standard output, 16 bytes a row; a debugging aid.
void memory_dump(const unsigned char* data, int len);
