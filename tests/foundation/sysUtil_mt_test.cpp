// The time-limited command runner: one command at a time, the limit, the
// output's cap, and what becomes of a child that outlives its limit.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "foundation/shellRunner.h"
#include "foundation/sysUtil.h"
#include "support/testRoot.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

std::string slurp(const std::string& file) {
  std::ifstream in(file);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool exists(const std::string& file) {
  struct stat st;
  return ::stat(file.c_str(), &st) == 0;
}

bool wait_until(const std::function<bool()>& cond, int ms) {
  for (int i = 0; i < ms / 10; ++i) {
    if (cond()) return true;
    usleep(10000);
  }
  return cond();
}

// A scratch directory under /tmp; no test root is set for the process.
struct scratch_s {
  scratch_s() : root(false) {}
  std::string file(const std::string& name) const { return root.dir() + "/" + name; }
  testsupport::TestRoot root;
};

TEST(ExternalCmd, OutputStatusAndFixedText) {
  std::string out = "stale";
  EXPECT_EQ(execute_external_cmd("true", out, 2), 0);
  EXPECT_EQ(out, "");
  // The exit status plays no part once something was printed.
  EXPECT_EQ(execute_external_cmd("echo oops; exit 3", out, 2), 0);
  EXPECT_EQ(out, "oops\n");
  // Fixed text runs as it stands: a percent sign is no slot.
  EXPECT_EQ(execute_external_cmd("printf '%s|' a 'b c'; printf '%%'", out, 2), 0);
  EXPECT_EQ(out, "a|b c|%");
  // A composed line with a value in its place.
  EXPECT_EQ(execute_external_cmd(vessord::ShellLine("printf '<%%s>' '%s'", {"it'\\''s here"}), out, 2), 0);
  EXPECT_EQ(out, "<it's here>");
}

TEST(ExternalCmd, RefusedLineRunsNothing) {
  scratch_s s;
  const std::string marker = s.file("ran");
  std::string out = "stale";
  vessord::ShellLine line(("touch " + marker + "; echo '%s'").c_str(), {"x'; touch " + marker + "2; '"});
  ASSERT_FALSE(line.ok());
  EXPECT_EQ(execute_external_cmd(line, out, 2), -1);
  EXPECT_EQ(out, "");
  usleep(100000);
  EXPECT_FALSE(exists(marker));
  EXPECT_FALSE(exists(marker + "2"));
}

TEST(ExternalCmd, OutputIsCutAt8192BytesAndTheRestDrained) {
  std::string out;
  // Far more than a pipe holds: the child must not be left blocked.
  EXPECT_EQ(execute_external_cmd("head -c 300000 /dev/zero | tr '\\0' a; echo tail", out, 5), 0);
  ASSERT_EQ(out.size(), 8192u);
  EXPECT_EQ(out.find_first_not_of('a'), std::string::npos);
  // Output stops at its first zero byte.
  EXPECT_EQ(execute_external_cmd("printf 'ab\\0cd'", out, 2), 0);
  EXPECT_EQ(out, "ab");
}

TEST(ExternalCmd, TimeOutLeavesTheChildRunningAndReapsItLater) {
  scratch_s s;
  const std::string pidFile = s.file("pid");
  const std::string late = s.file("late");
  std::string out = "stale";
  const auto t0 = Clock::now();
  int rc = execute_external_cmd(("echo $$ > " + pidFile + "; echo early; sleep 3; touch " + late).c_str(), out, 1);
  const double took = seconds_since(t0);
  EXPECT_EQ(rc, -1);
  EXPECT_EQ(out, "");
  EXPECT_GE(took, 0.95);
  EXPECT_FALSE(exists(late)) << "returned only after the child had ended";

  // The lock is free again while the late child still runs.
  EXPECT_EQ(execute_external_cmd("echo next", out, 2), 0);
  EXPECT_EQ(out, "next\n");
  EXPECT_FALSE(exists(late));

  // The child finishes its work, and once it ends it is reaped: no zombie.
  ASSERT_TRUE(wait_until([&] { return exists(late); }, 10000));
  const std::string pid = slurp(pidFile).substr(0, slurp(pidFile).find('\n'));
  ASSERT_FALSE(pid.empty());
  const std::string proc = "/proc/" + pid;
  EXPECT_TRUE(wait_until([&] { return !exists(proc); }, 5000)) << "child " << pid << " was not reaped";
}

TEST(ExternalCmd, CallersTakeTurnsAndTheLimitStartsWithTheLock) {
  scratch_s s;
  const std::string trace = s.file("trace");
  std::string out1, out2;
  int rc1 = -2, rc2 = -2;
  std::thread first([&] {
    rc1 = execute_external_cmd(
        ("echo start1 >> " + trace + "; sleep 1.5; echo end1 >> " + trace + "; echo one").c_str(), out1, 4);
  });
  ASSERT_TRUE(wait_until([&] { return slurp(trace).find("start1") != std::string::npos; }, 5000));
  // Waits about 1.5 s for the lock, longer than its own limit of 1 s, and
  // still has its whole second once it runs.
  const auto t0 = Clock::now();
  std::thread second([&] {
    rc2 = execute_external_cmd(
        ("echo start2 >> " + trace + "; sleep 0.3; echo end2 >> " + trace + "; echo two").c_str(), out2, 1);
  });
  first.join();
  second.join();
  EXPECT_GE(seconds_since(t0), 1.0);
  EXPECT_EQ(rc1, 0);
  EXPECT_EQ(out1, "one\n");
  EXPECT_EQ(rc2, 0);
  EXPECT_EQ(out2, "two\n");
  EXPECT_EQ(slurp(trace), "start1\nend1\nstart2\nend2\n");
}

TEST(ExternalCmd, FixedPathsMoveUnderTheTestRoot) {
  testsupport::TestRoot root;
  root.write("/etc/config/extcmd.conf", "[x]\nvalue = 1\n");
  std::string out;
  EXPECT_EQ(execute_external_cmd("cat /etc/config/extcmd.conf", out, 2), 0);
  EXPECT_EQ(out, "[x]\nvalue = 1\n");
}

}  // namespace
