#include "benchDaemon.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

extern char** environ;

namespace benchdaemon {

std::string make_root() {
  char templ[] = "/tmp/vessord-bench-XXXXXX";
  if (!mkdtemp(templ)) return "";
  const std::string root = templ;
  const std::string lay = std::string("'") + VESSORD_SOURCE_DIR + "/sim/lay-root.sh' '" + root + "' '" +
                          VESSORD_BINARY_DIR + "/sim/bin'";
  return std::system(lay.c_str()) == 0 ? root : "";
}

bool listening(const std::string& path) {
  for (int i = 0; i < 2000; ++i) {
    std::ifstream in("/proc/net/unix");
    std::string line;
    while (std::getline(in, line))
      if (line.size() >= path.size() && line.compare(line.size() - path.size(), path.size(), path) == 0 &&
          line.find(" 00010000 ") != std::string::npos)
        return true;
    usleep(5000);
  }
  return false;
}

std::string socket_of(const std::string& root) { return root + "/tmp/.@vessord.xxx"; }

pid_t spawn_daemon(const std::string& root) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e)
    if (std::strncmp(*e, "VESSORD_ROOT=", 13) != 0) env.push_back(*e);
  env.push_back("VESSORD_ROOT=" + root);
  std::vector<char*> envp;
  for (auto& e : env) envp.push_back(&e[0]);
  envp.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  const std::string log = root + "/sim/daemon.log";
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  // The daemon's own prints go to the log too, not into a benchmark's report.
  posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
  std::string exe = std::string(VESSORD_BINARY_DIR) + "/src/vessord";
  char* argv[] = {&exe[0], nullptr};
  pid_t pid = -1;
  const int rc = posix_spawn(&pid, exe.c_str(), &actions, nullptr, argv, envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return -1;
  if (!listening(socket_of(root))) {
    stop_daemon(pid);
    return -1;
  }
  return pid;
}

void end_music_daemons(const std::string& root) {
  std::system(("for p in '" + root + "'/sim/mpd/*/pid; do [ -f \"$p\" ] && kill \"$(cat \"$p\")\" 2>/dev/null; done")
                  .c_str());
}

void stop_daemon(pid_t pid) {
  if (pid <= 0) return;
  kill(pid, SIGTERM);
  waitpid(pid, nullptr, 0);
}

}  // namespace benchdaemon
