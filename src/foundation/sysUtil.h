// Time-limited shell commands and small system helpers.
#pragma once

#include <pthread.h>

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>

#include "foundation/shellRunner.h"

// Owns a descriptor: closed with the object.
class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : m_fd(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  int get() const { return m_fd; }
  void reset(int fd = -1);

 private:
  int m_fd;
};

// What execute_external_cmd shares with its worker thread. The caller and the
// worker each hold a shared_ptr to it, so the record outlives a caller that
// gave up waiting.
struct externalCmdJob_s {
  explicit externalCmdJob_s(const vessord::ShellLine& cmd);

  int result = -1;             // 0 once the output is valid
  int done = 0;                // 1 once the worker is on its way out
  size_t outputSize = 8192;    // always 8192
  char command[256] = {};      // the line as it reads, cut to fit (for the log)
  char output[8192] = {};      // the bytes read, zero-filled behind them

  vessord::ShellLine line;     // what runs
  UniqueFd stopFd;             // an eventfd: the caller's notice that the limit passed
  std::mutex lock;             // guards result, done and output
  std::condition_variable doneCond;
};
typedef externalCmdJob_s externalCmdJob_t;

// One guarded command at a time in the whole daemon.
extern pthread_mutex_t g_externalCmdLock;

// Runs `command` through sh, waiting at most `seconds` (counted in tenths of
// a second) once the lock is held. 0 with the first 8192 bytes of output in
// `output` (the exit status plays no part); -1 with an empty `output` on a
// time-out or failure. When the limit passes, the worker closes the reading
// end (a writing child meets a closed pipe), gives the child a moment to
// end, kills its process group and reaps it; the call returns once the
// worker has ended, so neither outlives the command. The text runs as it
// stands: a '%' in it is an ordinary character (it is never read as a format).
int execute_external_cmd(const char* command, std::string& output, int seconds);
// The same for a composed line; a line that is not ok() gives -1 at once.
int execute_external_cmd(const vessord::ShellLine& line, std::string& output, int seconds);

// The worker's body. `job` is a new'd std::shared_ptr<externalCmdJob_s>,
// which the worker takes over: the record lives until both sides are done.
// It reads until the end of the output or until the stop notice.
void* popen_timeout_wrap(void* job);

// 1 when the file can be read, else 0. The path is used as given (a caller
// passes a fixed path through vessord::root_path).
int is_file_exist(const char* path);

// Removes a temporary file that a client named (a transcoded subtitle):
// only a regular file below /tmp (under the test root, if one is set),
// reached without following a link and without "." or ".." components.
// 0, or -1 with errno set (EPERM for a path outside /tmp or a link).
int remove_tmp_file(const std::string& appliancePath);

// The name of the first IPv4 interface whose network holds `ip`, copied into
// `ifName` (at least IFNAMSIZ bytes). 0 when found, 1 otherwise.
int get_if_by_ip(const char* ip, char* ifName);

// Hex and text dump to standard output, 16 bytes a row; a debugging aid.
void memory_dump(const unsigned char* data, int len);
