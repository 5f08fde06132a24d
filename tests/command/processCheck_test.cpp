// The single-instance test against real processes: each is a sleep started
// under a name of its own, with or without a test root in its environment.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command/processCheck.h"
#include "foundation/rootPath.h"
#include "support/testRoot.h"

namespace {

// Under the 15 characters a command name keeps, and of this test process
// alone, so that test programs running side by side never count each other's.
// Fixed width, since names are matched as substrings.
const std::string kName = [] {
  char name[16];
  std::snprintf(name, sizeof name, "vqzP%07d", static_cast<int>(::getpid()));
  return std::string(name);
}();

std::string comm_of(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
  std::string text;
  std::getline(in, text);
  return text;
}

class ProcessCheck : public ::testing::Test {
 protected:
  void SetUp() override {
    m_link = m_root.path("/") + kName;
    ASSERT_EQ(0, ::symlink("/bin/sleep", m_link.c_str()));
  }
  void TearDown() override {
    for (pid_t pid : m_children) {
      ::kill(pid, SIGKILL);
      ::waitpid(pid, nullptr, 0);
    }
    vessord::set_test_root(m_savedRoot);
  }
  // A process named kName whose environment holds `env` (may be empty).
  pid_t start(const std::string& env) {
    const pid_t pid = ::fork();
    if (pid == 0) {
      char* const argv[] = {const_cast<char*>(kName.c_str()), const_cast<char*>("60"), nullptr};
      std::vector<char*> envp;
      if (!env.empty()) envp.push_back(const_cast<char*>(env.c_str()));
      envp.push_back(nullptr);
      ::execve(m_link.c_str(), argv, envp.data());
      ::_exit(127);
    }
    if (pid > 0) m_children.push_back(pid);
    // Named once the exec has happened.
    for (int i = 0; pid > 0 && i < 10000 && comm_of(pid) != kName; ++i) ::usleep(1000);
    return pid;
  }
  // Killed but not reaped: a zombie of the same name.
  void make_zombie(pid_t pid) {
    ::kill(pid, SIGKILL);
    siginfo_t info;
    ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
  }

  testsupport::TestRoot m_root{false};
  std::string m_link;
  std::string m_savedRoot = vessord::test_root();
  std::vector<pid_t> m_children;
};

}  // namespace

TEST_F(ProcessCheck, WithoutARootEveryLiveProcessOfTheNameCounts) {
  vessord::set_test_root("");
  ASSERT_GT(start("VESSORD_ROOT=/some/appliance"), 0);
  EXPECT_FALSE(is_process_already_exist(kName.c_str())) << "one process is the caller alone";
  const pid_t plain = start("");
  ASSERT_GT(plain, 0);
  EXPECT_TRUE(is_process_already_exist(kName.c_str())) << "a process with a root of its own counts too";
  make_zombie(plain);
  EXPECT_FALSE(is_process_already_exist(kName.c_str())) << "a zombie does not";
  EXPECT_FALSE(is_process_already_exist("vqzNoSuchProcessName"));
}

TEST_F(ProcessCheck, UnderARootOnlyThatRootsProcessesCount) {
  vessord::set_test_root("/some/appliance");
  ASSERT_GT(start("VESSORD_ROOT=/some/appliance"), 0);
  ASSERT_GT(start(""), 0);
  ASSERT_GT(start("VESSORD_ROOT=/other/appliance"), 0);
  EXPECT_FALSE(is_process_already_exist(kName.c_str()));
  ASSERT_GT(start("VESSORD_ROOT=/some/appliance/"), 0);  // the same root, written with a slash
  EXPECT_TRUE(is_process_already_exist(kName.c_str()));
}
