// The socket wrapper and the daemon's own log files.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "command/acceptLoop.h"
#include "command/daemonLog.h"
#include "command/unixSocketIpc.h"
#include "foundation/log.h"
#include "support/testRoot.h"

namespace {

bool cloexec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(UnixSocketIpc, ServerAndClientEnds) {
  testsupport::TestRoot root(false);
  const std::string path = root.path("/tmp/sock");
  CUnixSocketIpc server(path.c_str(), true);
  EXPECT_EQ(0777u, [&] { struct stat st; ::stat(path.c_str(), &st); return st.st_mode & 0777u; }());
  ASSERT_EQ(0, server.Listen(4));
  EXPECT_TRUE(cloexec(server.fd()));

  CUnixSocketIpc client(path.c_str(), false);
  ASSERT_EQ(0, client.Connect());
  int fd = server.Accept();
  ASSERT_GE(fd, 0);
  EXPECT_TRUE(cloexec(fd));

  // The client writes and reads its own socket whatever descriptor it is given.
  ASSERT_EQ(5, client.Write("hello", 5, 12345));
  char buf[16];
  std::memset(buf, 'z', sizeof buf);
  // A negative descriptor means the latest accepted connection; the buffer
  // is zero-filled behind what was read.
  ASSERT_EQ(5, server.Read(buf, 10, -1));
  EXPECT_EQ(std::string("hello\0\0\0\0\0zz", 12), std::string(buf, 12));
  ASSERT_EQ(2, server.Write("ok", 2, fd));
  EXPECT_EQ(2, client.Read(buf, sizeof buf, 999));
  EXPECT_STREQ("ok", buf);

  EXPECT_EQ(0, server.Close(fd));
  EXPECT_EQ(0, client.Read(buf, sizeof buf, -1)) << "0 when the peer closed";
  EXPECT_LT(server.Write("x", 1, fd), 0);
}

TEST(UnixSocketIpc, PathIsCutAt107AndRemovedWithTheServer) {
  testsupport::TestRoot root(false);
  std::string dir = root.path("/tmp/");
  std::string exact = dir + std::string(107 - dir.size(), 'e');
  std::string longer = dir + std::string(120 - dir.size(), 'l');
  {
    CUnixSocketIpc a(exact.c_str(), true);
    EXPECT_EQ(exact, a.path());
    CUnixSocketIpc b(longer.c_str(), true);
    EXPECT_EQ(longer.substr(0, 107), b.path());
    EXPECT_TRUE(root.exists(longer.substr(root.dir().size(), 107 - root.dir().size())));
  }
  EXPECT_FALSE(root.exists(exact.substr(root.dir().size())));
  EXPECT_FALSE(root.exists(longer.substr(root.dir().size(), 107 - root.dir().size())));
}

TEST(UnixSocketIpc, FailuresThrowOrReport) {
  testsupport::TestRoot root(false);
  try {
    CUnixSocketIpc s(root.path("/no/such/dir/sock").c_str(), true);
    FAIL() << "bound in a missing directory";
  } catch (const char* what) {
    EXPECT_STREQ("CUnixSocketIpc::CUnixSocketIpc", what);
  }
  CUnixSocketIpc client(root.path("/tmp/nobody").c_str(), false);
  EXPECT_NE(0, client.Connect());
}

TEST(AcceptLoop, OutOfDescriptorsIsReportedThenWaitedOut) {
  testsupport::TestRoot root(false);
  const std::string path = root.path("/tmp/sock");
  CUnixSocketIpc server(path.c_str(), true);
  ASSERT_EQ(0, server.Listen(4));
  CUnixSocketIpc client(path.c_str(), false);
  ASSERT_EQ(0, client.Connect());
  g_cmdLogPath = root.path("/cmd.log");
  int tee = ::open(root.path("/tee.log").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_GE(tee, 0);
  vessord::log_set_tee(tee);

  // No descriptor number is left: the pending connection cannot be taken.
  int lowest = ::dup(0);
  ASSERT_GE(lowest, 0);
  ::close(lowest);
  struct rlimit saved;
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &saved));
  struct rlimit tight = saved;
  tight.rlim_cur = static_cast<rlim_t>(lowest);
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &tight));
  auto t0 = std::chrono::steady_clock::now();
  accept_once(server, nullptr);
  auto waited = std::chrono::steady_clock::now() - t0;
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &saved));
  vessord::log_set_tee(-1);
  ::close(tee);

  EXPECT_GE(waited, std::chrono::milliseconds(45)) << "no pause before the next attempt";
  std::string log = slurp(root.path("/tee.log"));
  EXPECT_NE(std::string::npos, log.find("ipc.Accept() ... fial\n")) << log;
  EXPECT_NE(std::string::npos, log.find("ipc.Accept()..... EMFILE\n")) << log;
  // Once a descriptor is free again the waiting client is taken.
  int fd = server.Accept();
  EXPECT_GE(fd, 0);
  if (fd >= 0) server.Close(fd);
}

TEST(DebugWriteLog, StampedLinesAndRotationPast10MiB) {
  testsupport::TestRoot root(false);
  const std::string path = root.path("/log.txt");
  time_t before = time(nullptr);
  ASSERT_EQ(0, debug_write_log(path.c_str(), "Accept() [fail]"));
  ASSERT_EQ(0, debug_write_log(path.c_str(), "second"));
  std::string text = slurp(path);
  ASSERT_EQ(45u, text.size()) << text;
  struct tm t;
  gmtime_r(&before, &t);
  char stamp[16];
  std::snprintf(stamp, sizeof stamp, "[%02d:%02d:", t.tm_hour, t.tm_min);
  EXPECT_EQ(stamp, text.substr(0, 7)) << "UTC hours and minutes";
  EXPECT_EQ("] Accept() [fail]\n", text.substr(9, 18));
  EXPECT_EQ("] second\n", text.substr(27 + 9));

  // Exactly 10 MiB is kept; one byte more and the file starts over.
  ASSERT_EQ(0, truncate(path.c_str(), 0xA00000));
  ASSERT_EQ(0, debug_write_log(path.c_str(), "kept"));
  struct stat st;
  ASSERT_EQ(0, ::stat(path.c_str(), &st));
  EXPECT_EQ(0xA00000 + 16, st.st_size);
  ASSERT_EQ(0, debug_write_log(path.c_str(), "fresh"));
  EXPECT_EQ(17u, slurp(path).size());
  EXPECT_EQ(-1, debug_write_log(root.path("/missing/dir/log").c_str(), "x"));
}

TEST(ShowStackframe, OneLineReplacedOnEachCall) {
  testsupport::TestRoot root(false);
  vessord::set_log_dir(root.path("/logs/"));
  EXPECT_LT(show_stackframe("crash.dump", 11, 42), 0) << "the directory is missing";
  EXPECT_FALSE(root.exists("/logs"));

  ::mkdir(root.path("/logs").c_str(), 0755);
  time_t before = time(nullptr);
  ASSERT_EQ(0, show_stackframe("crash.dump", 11, 42));
  ASSERT_EQ(0, show_stackframe("crash.dump", 7, -1));
  time_t after = time(nullptr);
  std::string line = slurp(root.path("/logs/crash.dump"));
  std::string tail = " sig:7 send_pid:-1 self_pid:" + std::to_string(getpid()) + "\n";
  ASSERT_EQ(21 + tail.size(), line.size()) << line;
  EXPECT_EQ(tail, line.substr(21));
  // The stamp is the UTC time of the call, to the second.
  char first[32], last[32];
  vessord::format_dump_stamp(before, first, sizeof first);
  vessord::format_dump_stamp(after, last, sizeof last);
  EXPECT_TRUE(line.compare(0, 21, first) == 0 || line.compare(0, 21, last) == 0) << line;
  struct stat st;
  ASSERT_EQ(0, ::stat(root.path("/logs/crash.dump").c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 0777u);
  vessord::set_log_dir(".log/");
}

TEST(ShowStackframe, StampAgreesWithGmtimeAcrossCenturies) {
  // Every 97 hours and a few seconds from 1901 to 2199: leap days, century
  // rules and the negative side of the epoch.
  for (long long t = -2200000000LL; t < 7000000000LL; t += 97 * 3600 + 17) {
    time_t tt = static_cast<time_t>(t);
    struct tm m;
    ASSERT_NE(nullptr, gmtime_r(&tt, &m));
    char want[40], got[40];
    std::snprintf(want, sizeof want, "[%d-%02d-%02d %02d:%02d:%02d]", m.tm_year + 1900, m.tm_mon + 1, m.tm_mday,
                  m.tm_hour, m.tm_min, m.tm_sec);
    vessord::format_dump_stamp(t, got, sizeof got);
    ASSERT_STREQ(want, got) << t;
  }
}

}  // namespace
