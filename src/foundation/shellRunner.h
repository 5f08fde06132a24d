// The one way the daemon runs a shell command line.
//
// A command is a fixed template, written as the appliance's command line with
// "%s" where a value goes ("%%" for a percent sign). The shell never parses a
// value: each "%s" becomes a positional parameter of `sh -c TEMPLATE sh V1 V2..`.
// Before that, each value is read the way sh would read it in its place of the
// line (inside '...', inside "...", or bare), so that for every harmless value
// the tool receives exactly the arguments the plain line would give it: the
// '\'' idiom inside single quotes, backslash escapes, and the splitting of a
// bare value into words are all honoured. A value that would make the shell do
// anything else (end its quotes, expand, redirect, glob, start a comment or a
// second command) makes the line unusable: ok() is false and nothing runs.
#pragma once

#include <sys/types.h>

#include <cstdio>
#include <initializer_list>
#include <string>
#include <vector>

namespace vessord {

enum class ShellSlot { BARE, SINGLE_QUOTED, DOUBLE_QUOTED };

// How many words a bare value may become. ONE_WORD is the rule; SPLIT is for
// the one command line whose contract hands the tool a path with a blank as
// two words (the object id lookup of the command service): its words are
// still read as sh reads them, and a word beginning with '-' still refuses it.
enum class BareWords { ONE_WORD, SPLIT };

// Reads `text` as sh would in `slot`. True when the shell would take it as
// literal text only; `words` then receives the resulting words (one for the
// quoted slots; none or one for a bare value that stands as a word of its own,
// after pathname expansion).
bool shell_read_value(const std::string& text, ShellSlot slot, std::vector<std::string>* words = nullptr);

// The checks that callers run on a client's or a device's text before they
// build a command from it.
inline bool can_stand_in_single_quotes(const std::string& text) {
  return shell_read_value(text, ShellSlot::SINGLE_QUOTED);
}
inline bool can_stand_unquoted(const std::string& text) { return shell_read_value(text, ShellSlot::BARE); }
inline bool can_stand_in_double_quotes(const std::string& text) {
  return shell_read_value(text, ShellSlot::DOUBLE_QUOTED);
}

class ShellLine {
 public:
  ShellLine(const char* format, std::initializer_list<std::string> values);
  ShellLine(const char* format, const std::vector<std::string>& values);
  // With BareWords::SPLIT, a bare value may become several words.
  ShellLine(const char* format, const std::vector<std::string>& values, BareWords bare);

  // False when a value could not stand in its place; such a line never runs.
  bool ok() const { return m_ok; }
  // The line as it reads with the values in place (fixed paths under the
  // test root, if one is set): what the log lines show.
  const std::string& display() const { return m_display; }
  // What `sh -c` receives, and its positional parameters.
  const std::string& script() const { return m_script; }
  const std::vector<std::string>& args() const { return m_args; }

  // The line without a shell: the words sh would give the tool, when the
  // template uses nothing of sh but words, quotes and the redirections
  // ">/dev/null", "2>/dev/null" and "2>&1", and names its tool by a path.
  // Empty when the line needs sh. Where the standard output and error go:
  // 0 /dev/null, 1 the line's standard output, 2 its standard error.
  const std::vector<std::string>& directArgv() const { return m_directArgv; }
  int directOut() const { return m_directTarget[1]; }
  int directErr() const { return m_directTarget[2]; }

 private:
  void compose(const char* format, const std::vector<std::string>& values);
  void composeDirect(const std::string& templ, const std::vector<std::string>& values);

  BareWords m_bare = BareWords::ONE_WORD;
  bool m_ok = true;
  std::string m_display;
  std::string m_script;
  std::vector<std::string> m_args;
  std::vector<std::string> m_directArgv;
  int m_directTarget[3] = {0, 1, 2};
};

// A running `sh -c` child with its standard output on a pipe, in a process
// group of its own. The destructor closes the pipe and reaps the child,
// waiting for it if it is still running: no zombie outlives the object.
class ShellChild {
 public:
  ShellChild() = default;
  ~ShellChild();
  ShellChild(const ShellChild&) = delete;
  ShellChild& operator=(const ShellChild&) = delete;
  ShellChild(ShellChild&& other) noexcept;
  ShellChild& operator=(ShellChild&& other) noexcept;

  // Starts the line. False (and errno set) when the line is not ok() or the
  // child cannot be started. With captureOutput false the child's standard
  // output is the daemon's own.
  bool start(const ShellLine& line, bool captureOutput = true);

  bool running() const { return m_pid > 0; }
  pid_t pid() const { return m_pid; }

  // fread semantics: reads until `cap` bytes, the end of the output, or a
  // read error (then read_failed() is true).
  size_t read(char* buf, size_t cap);
  bool read_failed() const;
  // The reading end, for a caller that waits on it with poll(); -1 without.
  int output_fd() const;

  // Ends a child that ran too long: closes the reading end (a writer meets a
  // closed pipe), gives the child up to `graceMs` to end, then kills its
  // process group and reaps it. Returns the wait status, or -1.
  int stop(int graceMs);
  // fgets semantics: one line of at most `max` - 1 bytes, with its line feed.
  bool read_line(std::string& line, size_t max);

  // pclose semantics: closes the pipe, waits, returns the wait status or -1.
  int wait();
  // Sends a signal to the child's whole process group.
  int kill_group(int sig);

 private:
  void reset();

  pid_t m_pid = -1;
  FILE* m_out = nullptr;
};

// Lines that need no shell run their tool in one exec (ShellLine's direct
// form). VESSORD_ALWAYS_SH=1 in the environment, or set_direct_exec(false),
// sends every line through sh instead: the way the benchmarks compare.
void set_direct_exec(bool on);
bool direct_exec_enabled();

// system() semantics: -1 when nothing could run, else the wait status.
int shell_system(const ShellLine& line);

// popen + one fread of at most `cap` bytes + pclose. -1 when nothing could
// run or the read ended in an error (`out` empty), else 0 with `out` holding
// what was read.
int shell_read(const ShellLine& line, std::string& out, size_t cap);

// popen + one fgets of at most `max` - 1 bytes + pclose. -1 when nothing
// could run; 1 when the command printed no line; 0 with the line (its line
// feed kept) otherwise.
int shell_read_line(const ShellLine& line, std::string& out, size_t max);

}  // namespace vessord
