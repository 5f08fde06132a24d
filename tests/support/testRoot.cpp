#include "support/testRoot.h"

#include "common/standin.h"

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <cstdlib>
#include <cstring>
#include <cstdint>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include "foundation/rootPath.h"

namespace testsupport {

std::string binaryDir() { return VESSORD_BINARY_DIR; }
std::string sourceDir() { return VESSORD_SOURCE_DIR; }

namespace {
void mkdirs(const std::string& dir) {
  for (size_t i = 1; i <= dir.size(); ++i)
    if (i == dir.size() || dir[i] == '/') ::mkdir(dir.substr(0, i).c_str(), 0755);
}
bool alive_in_root(pid_t pid, const std::string& dir) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str().find(dir + "/sim/mpd/") != std::string::npos;
}

// Ends the music daemons that the mpd adapter started in this root, by the
// pids of their pid files, and only a process whose command line names this
// root's configuration, so a reused pid is never hit.
void end_music_daemons(const std::string& dir) {
  struct Closer {
    void operator()(DIR* d) const { ::closedir(d); }
  };
  std::unique_ptr<DIR, Closer> d(::opendir((dir + "/sim/mpd").c_str()));
  if (!d) return;
  while (dirent* e = ::readdir(d.get())) {
    if (e->d_name[0] == '.') continue;
    std::ifstream in(dir + "/sim/mpd/" + e->d_name + "/pid");
    long pid = 0;
    if (!(in >> pid) || pid <= 1) continue;
    const auto p = static_cast<pid_t>(pid);
    if (!alive_in_root(p, dir)) continue;
    ::kill(p, SIGTERM);
    for (int i = 0; i < 50 && alive_in_root(p, dir); ++i) ::usleep(100 * 1000);
    if (alive_in_root(p, dir)) ::kill(p, SIGKILL);
  }
}

}  // namespace

void write_wav(const std::string& file, int seconds, int rate) { sim::write_wav(file, seconds, rate); }

TestRoot::TestRoot(bool useForProcess) : m_process(useForProcess) {
  const char* tmp = std::getenv("TMPDIR");
  std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/vessord-test-XXXXXX";
  std::vector<char> buf(templ.begin(), templ.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
  m_dir = buf.data();
  std::string cmd = "'" + sourceDir() + "/sim/lay-root.sh' '" + m_dir + "' '" + binaryDir() + "/sim/bin'";
  if (std::system(cmd.c_str()) != 0) throw std::runtime_error("lay-root.sh failed");
  if (m_process) {
    vessord::set_test_root(m_dir);
    ::setenv("VESSORD_ROOT", m_dir.c_str(), 1);
  }
}

TestRoot::~TestRoot() {
  end_music_daemons(m_dir);
  if (m_process) {
    vessord::set_test_root("");
    ::unsetenv("VESSORD_ROOT");
  }
  if (!std::getenv("VESSORD_KEEP_TEST_ROOT")) {
    std::string cmd = "rm -rf '" + m_dir + "'";
    if (std::system(cmd.c_str()) != 0) { /* leftovers in /tmp are harmless */ }
  }
}

void TestRoot::write(const std::string& appliancePath, const std::string& content, int mode) const {
  std::string p = path(appliancePath);
  mkdirs(p.substr(0, p.rfind('/')));
  std::ofstream out(p, std::ios::binary | std::ios::trunc);
  out << content;
  out.close();
  ::chmod(p.c_str(), static_cast<mode_t>(mode));
}

std::string TestRoot::read(const std::string& appliancePath) const {
  std::ifstream in(path(appliancePath), std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool TestRoot::exists(const std::string& appliancePath) const {
  struct stat st;
  return ::lstat(path(appliancePath).c_str(), &st) == 0;
}

std::vector<std::string> TestRoot::calls() const {
  std::vector<std::string> out;
  std::istringstream in(read("/sim/calls.log"));
  std::string line;
  while (std::getline(in, line)) {
    size_t at;
    while ((at = line.find(m_dir)) != std::string::npos) line.erase(at, m_dir.size());
    out.push_back(line);
  }
  return out;
}

void TestRoot::clearCalls() const { write("/sim/calls.log", ""); }

int dir_entries(const std::string& dir) {
  DIR* d = ::opendir(dir.c_str());
  if (!d) return -1;
  int n = 0;
  while (dirent* e = ::readdir(d))
    if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) ++n;
  ::closedir(d);
  return n;
}

bool wait_for(const std::function<bool()>& cond, double seconds, int everyMs) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!cond()) {
    if (std::chrono::steady_clock::now() > until) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(everyMs));
  }
  return true;
}

}  // namespace testsupport
