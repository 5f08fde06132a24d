// The daemon's log line: three writes to standard error, the colour, then
// "[File:%s][Line:%d][Func:%s]: " with the message, then the reset. There is
// no level: what is compiled in is printed.
#pragma once

#include <cstdarg>

#define LOG_COLOR_FAIL "\033[1;31m"          // failures
#define LOG_COLOR_SOCKET "\033[0;32;31m"     // socket failures in main, unknown device types
#define LOG_COLOR_TRACE "\033[1;32m"         // the command trace
#define LOG_COLOR_STATE "\033[1;33m"         // player state changes, subtitle search
#define LOG_COLOR_NOTFOUND "\033[1;34m"      // "%s not found", player destruction
#define LOG_COLOR_AGENT "\033[1;35m"         // agent command lines
#define LOG_COLOR_NOTICE "\033[1;36m"        // signals and notices
#define LOG_COLOR_FALLBACK "\033[0;35m"      // falling back to stop, player removal
#define LOG_COLOR_DUMP "\033[0;37m"          // playlist field dumps, mpc command lines
#define LOG_COLOR_NEXT "\033[0;32;32m"       // moving on to the next track
#define LOG_COLOR_RESET "\033[m"

namespace vessord {

void log_line(const char* color, const char* file, int line, const char* func, const char* fmt, ...)
    __attribute__((format(printf, 5, 6)));
void log_linev(const char* color, const char* file, int line, const char* func, const char* fmt,
               va_list ap);

// Lets a test capture the log: every line also goes to this descriptor
// (-1 to stop). Standard error is always written.
void log_set_tee(int fd);

}  // namespace vessord

#define VLOG(color, ...) ::vessord::log_line(color, __FILE__, __LINE__, __PRETTY_FUNCTION__, __VA_ARGS__)
