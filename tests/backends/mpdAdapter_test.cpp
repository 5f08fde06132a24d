// The simulated appliance's music daemon and client: Debian's real mpd and
// mpc behind the adapters at /tmp/vexmpd/bin, one private daemon per port
// and per root.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "support/testRoot.h"

using testsupport::TestRoot;

namespace {

// A port nobody listens on now: the kernel's pick for a socket bound to 0.
int unused_port() {
  int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof a;
  ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
  ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
  ::close(s);
  return ntohs(a.sin_port);
}

int run(const std::string& line) {
  const int st = std::system(line.c_str());
  return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

std::string output(const std::string& line) {
  std::string text;
  if (std::FILE* p = ::popen(line.c_str(), "r")) {
    char buf[512];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) text.append(buf, n);
    ::pclose(p);
  }
  return text;
}

struct MusicDaemon {
  explicit MusicDaemon(const TestRoot& r) : root(r), port(unused_port()) {}
  std::string mpc(const std::string& args) const {
    return root.path("/tmp/vexmpd/bin/mpc") + " -p " + std::to_string(port) + " " + args;
  }
  std::string mpd(const std::string& args) const {
    return root.path("/tmp/vexmpd/bin/mpd") + " --port " + std::to_string(port) + " " + args + " " +
           root.path("/tmp/vexmpd/vexmusicplayer.conf");
  }
  pid_t pid() const {
    std::ifstream in(root.path("/sim/mpd/" + std::to_string(port) + "/pid"));
    long p = 0;
    in >> p;
    return static_cast<pid_t>(p);
  }
  const TestRoot& root;
  int port;
};

// Polls the client's status until it holds `word`, or gives up after a while.
bool status_reaches(const MusicDaemon& d, const std::string& word) {
  for (int i = 0; i < 100; ++i) {
    if (output(d.mpc("status")).find(word) != std::string::npos) return true;
    ::usleep(100 * 1000);
  }
  return false;
}

}  // namespace

TEST(MpdAdapter, RealDaemonPlaysPausesAndEndsOnItsPort) {
  TestRoot root;
  MusicDaemon d(root);
  const std::string track = root.path("/share/Public/tone one.wav");
  testsupport::write_wav(track, 30);
  ASSERT_EQ(0, run(d.mpd("1>/dev/null 2>/dev/null")));
  const pid_t pid = d.pid();
  ASSERT_GT(pid, 1);
  EXPECT_EQ(0, ::kill(pid, 0));

  // The port search of the appliance reads the TCP table under the root.
  char hex[16];
  std::snprintf(hex, sizeof hex, ":%04X ", d.port);
  EXPECT_NE(std::string::npos, root.read("/proc/net/tcp").find(hex));

  EXPECT_EQ(std::string::npos, output(d.mpc("status")).find("[playing]"));
  EXPECT_EQ(0, run(d.mpc("enable only \"HDMI Output\" >/dev/null")));
  EXPECT_EQ(0, run(d.mpc("clear")));
  EXPECT_EQ(0, run(d.mpc("add 'file://" + track + "'")));
  EXPECT_EQ(0, run(d.mpc("play >/dev/null")));
  EXPECT_TRUE(status_reaches(d, "[playing]"));
  EXPECT_NE(std::string::npos, output(d.mpc("status")).find("tone one.wav"));
  EXPECT_EQ(0, run(d.mpc("pause >/dev/null")));
  EXPECT_TRUE(status_reaches(d, "[paused]"));

  EXPECT_EQ(0, run(d.mpd("--kill 1>/dev/null 2>/dev/null")));
  bool gone = false;
  for (int i = 0; i < 100 && !gone; ++i) {
    gone = ::kill(pid, 0) != 0;
    if (!gone) ::usleep(100 * 1000);
  }
  EXPECT_TRUE(gone);
  EXPECT_NE(0, run(d.mpc("status >/dev/null 2>&1")));
}

TEST(MpdAdapter, DaemonLeftRunningEndsWithItsRoot) {
  pid_t pid = 0;
  {
    TestRoot root;
    MusicDaemon d(root);
    ASSERT_EQ(0, run(d.mpd("1>/dev/null 2>/dev/null")));
    pid = d.pid();
    ASSERT_GT(pid, 1);
  }
  bool gone = false;
  for (int i = 0; i < 100 && !gone; ++i) {
    gone = ::kill(pid, 0) != 0;
    if (!gone) ::usleep(100 * 1000);
  }
  EXPECT_TRUE(gone);
}

TEST(MpdAdapter, ApplianceOnlyCommandsAreAnsweredFromTheCards) {
  TestRoot root;
  MusicDaemon d(root);  // no daemon runs: these never reach it
  EXPECT_EQ(root.read("/sim/mpc-outputs.txt"), output(d.mpc("outputs")));
  EXPECT_EQ(0, run(d.mpc("setoutputattr \"USB DAC\" 1 2")));
  EXPECT_NE(0, run(d.mpc("setoutputattr \"USB\" 1 2 2>/dev/null")));
  EXPECT_NE(0, run(d.mpc("setoutputattr \"USB DAC\" 1 2>/dev/null")));
  EXPECT_EQ(0, run(d.mpc("reloadsettings")));
  EXPECT_NE(0, run(d.mpc("status >/dev/null 2>&1")));
  const std::string p = std::to_string(d.port);
  const auto calls = root.calls();
  ASSERT_FALSE(calls.empty());
  EXPECT_EQ("/tmp/vexmpd/bin/mpc -p " + p + " setoutputattr 'USB DAC' 1 2", calls[1]);

  ::unlink(root.path("/sim/mpc-outputs.txt").c_str());
  EXPECT_NE(0, run(d.mpc("outputs 2>/dev/null")));
}
