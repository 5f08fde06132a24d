// The configuration reader of the simulated appliance, and vessorctl
// against a running daemon.
#include <sys/wait.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "support/daemonHarness.h"
#include "support/testRoot.h"

namespace {

struct result_s {
  int status;
  std::string out;
};

// Runs a shell line and returns its exit status and standard output.
result_s sh(const std::string& line) {
  result_s r{-1, ""};
  FILE* p = popen(line.c_str(), "r");
  if (!p) return r;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
  int st = pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

class Rakcfg : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write("/etc/sample.conf",
               "top = level\n"
               "# comment = no\n"
               "[Media Server]\n"
               "  Build Number =  42 \n"
               "; Hidden = yes\n"
               "empty =\n"
               "[other]\n"
               "Build Number = 7\n");
  }
  result_s cfg(const std::string& args) {
    return sh("VESSORD_ROOT='" + root.dir() + "' '" + root.path("/sbin/rakcfg") + "' " + args);
  }
  testsupport::TestRoot root{false};
};

TEST_F(Rakcfg, AnswersEveryQueryForm) {
  const std::string f = "-f '" + root.path("/etc/sample.conf") + "' ";
  EXPECT_EQ("42\n", cfg(f + "'Media Server' 'Build Number'").out);
  EXPECT_EQ("42\n", cfg("'media server' 'build number' " + f).out) << "names match without regard to case";
  EXPECT_EQ("7\n", cfg("-d 0 other 'Build Number' " + f).out);
  EXPECT_EQ("level\n", cfg(f + "-d 0 '' top").out) << "an empty section is the top of the file";
  EXPECT_EQ("\n", cfg(f + "'Media Server' empty").out);
  EXPECT_EQ("FALSE\n", cfg(f + "-d FALSE -c 'Media Server' Hidden").out) << "comments hold no keys";
  result_s missing = cfg(f + "other top");
  EXPECT_EQ(1, missing.status);
  EXPECT_EQ("", missing.out);
  EXPECT_EQ(1, cfg("-f '" + root.path("/etc/none.conf") + "' System Version").status);
  EXPECT_EQ(2, cfg(f + "OnlyOneName").status);
  // Without -f the system file of the root is read.
  EXPECT_EQ("vantu\n", cfg("System Model -d unknow").out);
  EXPECT_EQ("KIVO\n", cfg("KIVO Name -d null -f '" + root.path("/etc/config/tarpo.conf") + "'").out);
}

class Vessorctl : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(daemon.start()) << daemon.log(); }
  result_s ctl(const std::string& args) {
    return sh("VESSORD_ROOT='" + root.dir() + "' '" + testsupport::vessorctlPath() + "' " + args + " 2>/dev/null");
  }
  testsupport::TestRoot root{false};
  testsupport::DaemonProcess daemon{root.dir()};
};

TEST_F(Vessorctl, SendsCommandsAndTellsTheStatus) {
  result_s echo = ctl("echo");
  EXPECT_EQ(0, echo.status);
  EXPECT_EQ("<root>\n\t<version>KIVO 3.2.7</version>\n\t<status>ECHO</status>\n</root>\n", echo.out);
  result_s unknown = ctl("--get status Nope");
  EXPECT_EQ(1, unknown.status);
  EXPECT_EQ("-7\n", unknown.out);
  EXPECT_EQ("KIVO 3.2.7\n", ctl("--get version echo").out);
  EXPECT_EQ(1, ctl("--get nothing echo").status);

  // Values are escaped on the way and arrive as they were typed.
  EXPECT_EQ(0, ctl("echo 'dev=a&b<c>\"d\"' x=1").status);
  EXPECT_NE(std::string::npos, daemon.log().find("--dev:a&b<c>\"d\"\n")) << daemon.log();
  EXPECT_NE(std::string::npos, daemon.log().find("<dev>a&amp;b&lt;c&gt;&quot;d&quot;</dev><x>1</x>"));
}

TEST_F(Vessorctl, RawPacketsUsageAndMissingDaemon) {
  root.write("/packet.xml", "<ROOT><COMMAND>echo</COMMAND></ROOT>");
  EXPECT_EQ("ECHO\n", ctl("--get status --raw '" + root.path("/packet.xml") + "'").out);
  EXPECT_EQ("-2\n", ctl("--get status --raw - < /dev/null").out);
  EXPECT_EQ("ECHO\n", sh("printf '<root><command>echo</command></root>' | '" + testsupport::vessorctlPath() +
                         "' --socket '" + daemon.socketPath() + "' --get status --raw -")
                          .out);
  EXPECT_EQ(2, ctl("").status);
  EXPECT_EQ(2, ctl("echo novalue").status);
  EXPECT_EQ(2, ctl("echo '<bad>=1'").status);
  EXPECT_EQ(2, ctl("--raw").status);
  EXPECT_EQ(3, ctl("--socket '" + root.path("/tmp/none") + "' echo").status);
}

}  // namespace
