// The time-limited command runner: one command at a time, the limit, the
// output's cap, and what becomes of a child that outlives its limit.
#include <gtest/gtest.h>

#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "foundation/shellRunner.h"
#include "foundation/sysUtil.h"
#include "support/testRoot.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

bool wait_until(const std::function<bool()>& cond) {
  for (int i = 0; i < 1000 && !cond(); ++i) usleep(10000);
  return cond();
}

TEST(ExternalCmd, OutputAsPrintedWhateverTheStatus) {
  testsupport::TestRoot root;
  root.write("/etc/config/extcmd.conf", "[x]\n");
  const struct { const char* command; const char* output; } cases[] = {
      {"cat /etc/config/extcmd.conf", "[x]\n"},                 // a fixed path moves under the root
      {"true", ""},
      {"echo oops; exit 3", "oops\n"},                          // the exit status plays no part
      {"printf '%s|' a 'b c'; printf '%%'", "a|b c|%"},         // a percent sign is no slot
      {"printf 'ab\\0cd'", "ab"},                               // up to the first zero byte
      {"head -c 300000 /dev/zero | tr '\\0' a; echo", nullptr},  // cut at 8192 bytes
  };
  for (const auto& c : cases) {
    std::string out = "stale";
    EXPECT_EQ(execute_external_cmd(c.command, out, 5), 0) << c.command;
    EXPECT_EQ(out, c.output ? c.output : std::string(8192, 'a')) << c.command;
  }
  std::string out;
  EXPECT_EQ(execute_external_cmd(vessord::ShellLine("printf '<%%s>' '%s'", {"it'\\''s here"}), out, 2), 0);
  EXPECT_EQ(out, "<it's here>");
  // A line whose value would break out of its quotes gives -1 and runs nothing.
  EXPECT_EQ(execute_external_cmd(vessord::ShellLine("echo '%s'", {"x'; echo ran; '"}), out, 2), -1);
  EXPECT_EQ(out, "");
}

size_t task_count() {
  size_t n = 0;
  if (DIR* d = opendir("/proc/self/task")) {
    while (struct dirent* e = readdir(d))
      if (e->d_name[0] != '.') ++n;
    closedir(d);
  }
  return n;
}

bool group_gone(const std::string& pid) {
  return !pid.empty() && ::kill(-std::stoi(pid), 0) != 0 && errno == ESRCH;
}

// A command past its limit is stopped: one that keeps writing meets a closed
// pipe, one that closed its output and runs on is killed with its group.
// Neither the child nor the worker thread outlives the call.
TEST(ExternalCmd, TimeOutStopsTheChildAndItsWorker) {
  testsupport::TestRoot s(false);
  // The baseline after one command: a runtime's own threads (a sanitizer's
  // background thread) start with the first worker and stay.
  std::string warm;
  ASSERT_EQ(execute_external_cmd("true", warm, 2), 0);
  const size_t threads = task_count();
  const std::string commands[] = {
      "echo $$ > " + s.path("/pid") + "; yes",                                    // writes for ever
      "echo $$ > " + s.path("/pid") + "; exec >&-; sleep 30; touch " + s.path("/late"),  // silent, still running
  };
  for (const std::string& cmd : commands) {
    ::unlink(s.path("/pid").c_str());
    std::string out = "stale";
    EXPECT_EQ(execute_external_cmd(cmd.c_str(), out, 1), -1) << cmd;
    EXPECT_EQ(out, "");
    const std::string text = s.read("/pid");
    const std::string pid = text.substr(0, text.find('\n'));
    ASSERT_FALSE(pid.empty()) << cmd;
    EXPECT_TRUE(wait_until([&] { return access(("/proc/" + pid).c_str(), F_OK) != 0; })) << pid << " still there";
    EXPECT_TRUE(wait_until([&] { return group_gone(pid); })) << "a process of the command's group runs on: " << cmd;
    EXPECT_TRUE(wait_until([&] { return task_count() == threads; })) << "a worker thread runs on";
  }
  EXPECT_FALSE(s.exists("/late"));
  // The lock is free again.
  std::string out;
  EXPECT_EQ(execute_external_cmd("echo next", out, 2), 0);
  EXPECT_EQ(out, "next\n");
}

TEST(ExternalCmd, CallersTakeTurnsAndTheLimitStartsWithTheLock) {
  testsupport::TestRoot s(false);
  std::string out[2];
  int rc[2] = {-2, -2};
  const auto run = [&](int i, const char* sleepFor, int limit) {
    const std::string n = std::to_string(i + 1), trace = " >> " + s.path("/trace");
    const std::string cmd = "echo start" + n + trace + "; sleep " + sleepFor + "; echo end" + n + trace + "; echo " + n;
    rc[i] = execute_external_cmd(cmd.c_str(), out[i], limit);
  };
  std::thread first(run, 0, "1.5", 4);
  ASSERT_TRUE(wait_until([&] { return s.read("/trace").find("start1") != std::string::npos; }));
  // Waits about 1.5 s for the lock, longer than its own limit of 1 s, and
  // still has its whole second once it runs.
  const auto t0 = Clock::now();
  std::thread second(run, 1, "0.3", 1);
  first.join();
  second.join();
  EXPECT_GE(seconds_since(t0), 1.0);
  EXPECT_EQ(rc[0], 0);
  EXPECT_EQ(out[0], "1\n");
  EXPECT_EQ(rc[1], 0);
  EXPECT_EQ(out[1], "2\n");
  EXPECT_EQ(s.read("/trace"), "start1\nend1\nstart2\nend2\n");
}

}  // namespace
