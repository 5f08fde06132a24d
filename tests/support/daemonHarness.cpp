#include "support/daemonHarness.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "support/testRoot.h"
#include "vessorClient.h"

extern char** environ;

namespace testsupport {
namespace {

std::atomic<int> g_serial{0};

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool listening_now(const std::string& path) {
  std::ifstream in("/proc/net/unix");
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string num, refs, proto, flags, type, state, inode, p;
    fields >> num >> refs >> proto >> flags >> type >> state >> inode;
    std::getline(fields, p);
    size_t b = p.find_first_not_of(' ');
    p = b == std::string::npos ? "" : p.substr(b);
    // __SO_ACCEPTCON: the socket listens.
    if (p == path && (std::stoul(flags, nullptr, 16) & 0x10000UL)) return true;
  }
  return false;
}

}  // namespace

std::string daemonPath() { return binaryDir() + "/src/vessord"; }
std::string vessorctlPath() { return binaryDir() + "/tools/vessorctl"; }

bool wait_for_listening(const std::string& path, int timeoutMs) {
  auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (std::chrono::steady_clock::now() < until) {
    if (listening_now(path)) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

DaemonProcess::DaemonProcess(std::string rootDir) : m_root(std::move(rootDir)), m_serial(++g_serial) {}

DaemonProcess::~DaemonProcess() {
  if (m_pid > 0 && alive()) {
    ::kill(m_pid, SIGKILL);
    int status;
    waitExit(status);
  }
}

bool DaemonProcess::start(const std::vector<std::string>& extraEnv, bool waitReady) {
  std::vector<std::string> env;
  auto name_of = [](const std::string& e) { return e.substr(0, e.find('=')); };
  std::vector<std::string> overrides = extraEnv;
  overrides.push_back("VESSORD_ROOT=" + m_root);
  for (char** e = environ; *e; ++e) {
    bool replaced = false;
    for (const auto& o : overrides) replaced = replaced || name_of(o) == name_of(*e);
    if (!replaced) env.push_back(*e);
  }
  env.insert(env.end(), overrides.begin(), overrides.end());
  std::vector<char*> envp;
  for (auto& e : env) envp.push_back(&e[0]);
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string log = logPath();
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  std::string exe = daemonPath();
  char* argv[] = {&exe[0], nullptr};
  int rc = posix_spawn(&m_pid, exe.c_str(), &actions, nullptr, argv, envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    m_pid = -1;
    return false;
  }
  if (!waitReady) return true;
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < until) {
    if (listening_now(socketPath())) return true;
    if (!alive()) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

std::string DaemonProcess::log() const { return slurp(logPath()); }

bool DaemonProcess::waitForLog(const std::string& text, int timeoutMs) const {
  auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  do {
    if (log().find(text) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  } while (std::chrono::steady_clock::now() < until);
  return false;
}

std::string DaemonProcess::dump() const { return slurp(m_root + "/share/.log/vessord.dump"); }

std::string DaemonProcess::request(const std::string& packet) {
  std::string reply, error;
  if (vessorclient::request(socketPath(), packet, reply, &error) != 0) {
    ADD_FAILURE() << "no reply: " << error;
    return "";
  }
  return reply;
}

std::string DaemonProcess::command(const std::string& name,
                                   const std::vector<std::pair<std::string, std::string>>& params) {
  return request(vessorclient::build_packet(name, params));
}

bool DaemonProcess::alive() {
  if (m_pid <= 0) return false;
  int status;
  pid_t r = ::waitpid(m_pid, &status, WNOHANG);
  if (r == m_pid) {
    m_pid = -1;
    return false;
  }
  return r == 0;
}

bool DaemonProcess::waitExit(int& status, int timeoutMs) {
  if (m_pid <= 0) return false;
  auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (std::chrono::steady_clock::now() < until) {
    pid_t r = ::waitpid(m_pid, &status, WNOHANG);
    if (r == m_pid) {
      m_pid = -1;
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

void DaemonProcess::signal(int sig) {
  if (m_pid > 0) ::kill(m_pid, sig);
}

std::string node(const std::string& reply, const std::string& path) {
  std::string text;
  return vessorclient::reply_node_text(reply, path, text) ? text : "<none>";
}

}  // namespace testsupport
