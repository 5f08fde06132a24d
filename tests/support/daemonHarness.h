// The real daemon in a test root: spawned with VESSORD_ROOT set, its output
// captured, requests sent through the client library.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

std::string vessorctlPath();  // the built vessorctl

class DaemonProcess {
 public:
  explicit DaemonProcess(std::string rootDir);  // TestRoot(false).dir(); not started yet
  ~DaemonProcess();  // kills and reaps a daemon still running
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;

  // Spawns the daemon, `extraEnv` ("NAME=value") added to or replacing the
  // inherited environment. True once its socket listens; false when it
  // ended first (waitExit then gives its status at once).
  bool start(const std::vector<std::string>& extraEnv = {});
  bool waitExit(int& status);  // up to 10 s; the wait status

  pid_t pid() const { return m_pid; }
  std::string socketPath() const { return m_root + "/tmp/.@vessord.xxx"; }
  std::string log() const;  // standard output and error so far
  // Up to 5 s: lines written after the reply went out ("(done)") may lag it.
  bool waitForLog(const std::string& text) const;
  std::string dump() const;  // the crash dump, "" when there is none

  // The reply text, or "" (with a test failure recorded) when none came.
  std::string request(const std::string& packet);
  std::string command(const std::string& name, const std::vector<std::pair<std::string, std::string>>& params = {});

 private:
  bool reaped();

  std::string m_root, m_log;
  pid_t m_pid = -1;
  int m_status = -1;
};

// A reply node's text (vessorclient::reply_node_text); "<none>" when missing.
std::string node(const std::string& reply, const std::string& path);

// What a front-end does while a device plays: polls GetPlayerStatus of
// `dev` every `everyMs` until `done` holds for the reply or `seconds` pass
// (a test failure then). The last reply either way.
using replyTest_t = std::function<bool(const std::string&)>;
std::string poll_status_until(DaemonProcess& daemon, const std::string& dev, const replyTest_t& done,
                              int seconds = 30, int everyMs = 200);
// A test of one reply node's text.
replyTest_t status_is(const std::string& path, const std::string& value);

}  // namespace testsupport
