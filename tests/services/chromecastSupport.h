// What the Chromecast service tests share: a root with the sender stand-in,
// its session and input logs, its fault files, and a Response whose every
// field holds a value that no reply would give, to tell what a reply wrote.
#pragma once

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "services/chromecastService.h"
#include "support/testRoot.h"

namespace castsupport {

constexpr const char* kIp = "10.0.0.5";

inline vessord::chromecastTiming_s normal_timing() { return {10000, 5000}; }
inline vessord::chromecastTiming_s short_timing() { return {300, 5000}; }

inline vessord::Response marked() {
  vessord::Response r;
  r.m_response = 777;
  r.m_duration = -7;
  r.m_position = -9;
  r.m_volume = -5;
  r.m_muted = 42;
  r.m_errMsg = "untouched";
  r.m_state = "untouched";
  return r;
}

// The pids of the sender's starts, in order.
inline std::vector<pid_t> sessions(const testsupport::TestRoot& root) {
  std::vector<pid_t> out;
  std::ifstream in(root.path("/sim/chromecast/sessions.log"));
  long pid = 0;
  std::string ip;
  while (in >> pid >> ip) out.push_back(static_cast<pid_t>(pid));
  return out;
}

// Every byte that the sender of `pid` received.
inline std::string input_of(const testsupport::TestRoot& root, pid_t pid) {
  std::ifstream in(root.path("/sim/chromecast/" + std::to_string(pid) + ".in"), std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// Waits (10 s at most) until the sender of `pid` has received `bytes`
// bytes: a child that is slow to start reads its first command late.
inline bool wait_input(const testsupport::TestRoot& root, pid_t pid, size_t bytes) {
  for (int i = 0; i < 1000; ++i) {
    if (input_of(root, pid).size() >= bytes) return true;
    ::usleep(10 * 1000);
  }
  return false;
}

inline void fault(const testsupport::TestRoot& root, const std::string& lines) {
  root.write(std::string("/sim/chromecast/") + kIp + ".fault", lines);
}

inline void clear_fault(const testsupport::TestRoot& root) {
  ::unlink(root.path(std::string("/sim/chromecast/") + kIp + ".fault").c_str());
}

// No process of that id any more: reaped, not a zombie.
inline bool gone(pid_t pid) { return ::kill(pid, 0) != 0 && errno == ESRCH; }

// The descriptors of a process, each with what it points at.
inline std::set<std::string> fds_of(const std::string& proc) {
  std::set<std::string> out;
  struct Closer {
    void operator()(DIR* d) const { ::closedir(d); }
  };
  std::unique_ptr<DIR, Closer> d(::opendir(("/proc/" + proc + "/fd").c_str()));
  if (!d) return out;
  const int own = ::dirfd(d.get());
  while (dirent* e = ::readdir(d.get())) {
    if (e->d_name[0] == '.' || (proc == "self" && std::stoi(e->d_name) == own)) continue;
    char target[256] = {0};
    const std::string link = "/proc/" + proc + "/fd/" + e->d_name;
    const ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
    out.insert(std::string(e->d_name) + " " + (n > 0 ? std::string(target, static_cast<size_t>(n)) : "?"));
  }
  return out;
}

// "pipe:[inode]" of a descriptor of this process.
inline std::string pipe_of(int fd) {
  char target[256] = {0};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t n = ::readlink(link.c_str(), target, sizeof target - 1);
  return n > 0 ? std::string(target, static_cast<size_t>(n)) : "";
}

}  // namespace castsupport
