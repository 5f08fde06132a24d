// The real daemon started in a test root: spawned with VESSORD_ROOT set,
// its standard error captured, requests sent through the client library.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace testsupport {

std::string daemonPath();     // the built vessord
std::string vessorctlPath();  // the built vessorctl

// True once a socket at `path` is listening (per /proc/net/unix), so that
// no probe connection has to be made; false after `timeoutMs`.
bool wait_for_listening(const std::string& path, int timeoutMs);

class DaemonProcess {
 public:
  // `rootDir` is the simulated appliance (TestRoot::dir()). Not started yet.
  explicit DaemonProcess(std::string rootDir);
  // A daemon still running is killed and reaped.
  ~DaemonProcess();
  DaemonProcess(const DaemonProcess&) = delete;
  DaemonProcess& operator=(const DaemonProcess&) = delete;

  // Spawns the daemon; `extraEnv` entries ("NAME=value") are added to or
  // replace the inherited ones. With `waitReady`, true only once the socket
  // listens. The daemon's standard output and error go to logPath().
  bool start(const std::vector<std::string>& extraEnv = {}, bool waitReady = true);

  pid_t pid() const { return m_pid; }
  std::string socketPath() const { return m_root + "/tmp/.@vessord.xxx"; }
  std::string logPath() const { return m_root + "/sim/daemon-" + std::to_string(m_serial) + ".log"; }
  std::string log() const;
  // True once the log holds `text`; lines written after the reply went out
  // (the "(done)" trace) may come a moment later than the reply.
  bool waitForLog(const std::string& text, int timeoutMs = 5000) const;
  // The dump file of a crash, "" when there is none.
  std::string dump() const;

  // One request through the client library: the reply text, or "" (with a
  // test failure recorded) when no reply came.
  std::string request(const std::string& packet);
  // Reply of a packet made of a command and name=value pairs.
  std::string command(const std::string& name, const std::vector<std::pair<std::string, std::string>>& params = {});

  // True while the process has not ended (it is reaped when it has).
  bool alive();
  // Waits for the end; true with the wait status in `status`.
  bool waitExit(int& status, int timeoutMs = 10000);
  void signal(int sig);

 private:
  std::string m_root;
  pid_t m_pid = -1;
  int m_serial;
};

// The text of a reply's node (see vessorclient::reply_node_text); "<none>"
// when the node is missing.
std::string node(const std::string& reply, const std::string& path);

}  // namespace testsupport
