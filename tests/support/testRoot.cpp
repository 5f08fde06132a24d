#include "support/testRoot.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
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
}  // namespace

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

}  // namespace testsupport
