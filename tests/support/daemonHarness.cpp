#include "support/daemonHarness.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "support/testRoot.h"
#include "vessorClient.h"

extern char** environ;

namespace testsupport {
namespace {

template <typename F>
bool poll_until(int timeoutMs, F done) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!done()) {
    if (std::chrono::steady_clock::now() >= until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Read from /proc/net/unix, so that no probe connection has to be made.
bool listening(const std::string& path) {
  std::ifstream in("/proc/net/unix");
  std::string line, skip, flags, p;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    fields >> skip >> skip >> skip >> flags >> skip >> skip >> skip;
    std::getline(fields >> std::ws, p);
    if (p == path && (std::stoul(flags, nullptr, 16) & 0x10000UL)) return true;  // __SO_ACCEPTCON
  }
  return false;
}

}  // namespace

std::string vessorctlPath() { return binaryDir() + "/tools/vessorctl"; }

DaemonProcess::DaemonProcess(std::string rootDir) : m_root(std::move(rootDir)) {
  static int serial = 0;  // daemons of one root keep their logs apart
  m_log = m_root + "/sim/daemon-" + std::to_string(++serial) + ".log";
}

DaemonProcess::~DaemonProcess() {
  if (m_pid > 0) ::kill(m_pid, SIGKILL);
  int status;
  waitExit(status);
}

bool DaemonProcess::reaped() {
  if (m_pid <= 0 || ::waitpid(m_pid, &m_status, WNOHANG) != m_pid) return false;
  m_pid = -1;
  return true;
}

bool DaemonProcess::start(const std::vector<std::string>& extraEnv) {
  std::vector<std::string> env = extraEnv;
  env.push_back("VESSORD_ROOT=" + m_root);
  auto name_of = [](const std::string& e) { return e.substr(0, e.find('=')); };
  for (char** e = environ; *e; ++e)
    if (std::none_of(env.begin(), env.end(), [&](const std::string& o) { return name_of(o) == name_of(*e); }))
      env.push_back(*e);
  std::vector<char*> envp;
  for (auto& e : env) envp.push_back(&e[0]);
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, m_log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);  // the daemon's descriptors are its own
  std::string exe = binaryDir() + "/src/vessord";
  char* argv[] = {&exe[0], nullptr};
  const int rc = posix_spawn(&m_pid, exe.c_str(), &actions, nullptr, argv, envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) m_pid = -1;
  return rc == 0 && poll_until(20000, [&] { return reaped() || listening(socketPath()); }) && m_pid > 0;
}

bool DaemonProcess::waitExit(int& status) {
  const bool ended = m_pid > 0 ? poll_until(10000, [&] { return reaped(); }) : m_status != -1;
  status = m_status;
  return ended;
}

std::string DaemonProcess::log() const { return slurp(m_log); }

bool DaemonProcess::waitForLog(const std::string& text) const {
  return poll_until(5000, [&] { return log().find(text) != std::string::npos; });
}

std::string DaemonProcess::dump() const { return slurp(m_root + "/share/CACHEDEV1_DATA/.log/vessord.dump"); }

std::string DaemonProcess::request(const std::string& packet) {
  std::string reply, error;
  if (vessorclient::request(socketPath(), packet, reply, &error) != 0) ADD_FAILURE() << "no reply: " << error;
  return reply;
}

std::string DaemonProcess::command(const std::string& name,
                                   const std::vector<std::pair<std::string, std::string>>& params) {
  return request(vessorclient::build_packet(name, params));
}

std::string node(const std::string& reply, const std::string& path) {
  std::string text;
  return vessorclient::reply_node_text(reply, path, text) ? text : "<none>";
}

std::string poll_status_until(DaemonProcess& daemon, const std::string& dev, const replyTest_t& done, int seconds,
                              int everyMs) {
  std::string reply;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  do {
    reply = daemon.command("GetPlayerStatus", {{"dev", dev}});
    if (done(reply)) return reply;
    std::this_thread::sleep_for(std::chrono::milliseconds(everyMs));
  } while (std::chrono::steady_clock::now() < end);
  ADD_FAILURE() << "the status of " << dev << " never reached the expected state:\n" << reply;
  return reply;
}

replyTest_t status_is(const std::string& path, const std::string& value) {
  return [path, value](const std::string& r) { return node(r, path) == value; };
}

}  // namespace testsupport
