// The daemon's own files in the log directory: the command log, with its
// crude rotation, and (from foundation) the one-line dump written when the
// daemon dies.
#pragma once

#include <string>

#include "foundation/crashDump.h"

// The command log's path; set once by main before any thread starts.
extern std::string g_cmdLogPath;

// Appends "[hh:mm:ss] text" (UTC) to `path`. A file grown beyond 10 MiB is
// removed first, so the log starts over. 0, or -1.
int debug_write_log(const char* path, const char* text);
