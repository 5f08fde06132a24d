// The command service in-process: dispatch and error replies, the parameter
// helpers, the version text, the socket wrapper, the accept loop's failure
// report and the daemon's own log files.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "command/acceptLoop.h"
#include "command/daemonLog.h"
#include "command/unixSocketIpc.h"
#include "command/version.h"
#include "command/vessord.h"
#include "devices/paramXmlWrap.h"
#include "foundation/log.h"
#include "support/testRoot.h"

namespace {

using W = ParamXmlWrapper;

std::string compact(const XMLNode& n) {
  XMLString t(n.createXMLString(0, nullptr));
  return t ? t.get() : "";
}

// The log lines that `fn` writes.
template <typename F>
std::string logged(F fn) {
  int tee[2];
  if (::pipe2(tee, O_CLOEXEC | O_NONBLOCK) != 0) return "";
  vessord::log_set_tee(tee[1]);
  fn();
  vessord::log_set_tee(-1);
  char buf[8192];
  const ssize_t n = ::read(tee[0], buf, sizeof buf);
  ::close(tee[0]);
  ::close(tee[1]);
  return std::string(buf, n > 0 ? static_cast<size_t>(n) : 0);
}

const commandEntry_s kTable[] = {
    {"Drop", [](CPlayerManager*, XMLNode&, XMLNode& r) { W::create_status_xml_doc(r, "0", nullptr); return -19; }},
    {"Pos", [](CPlayerManager*, XMLNode&, XMLNode& r) { W::create_status_xml_doc(r, "0", nullptr); return 3; }},
    {"Empty", [](CPlayerManager*, XMLNode&, XMLNode&) { return 1; }},
    {"Fail", [](CPlayerManager*, XMLNode&, XMLNode&) { return -3; }},
    {"Dev", [](CPlayerManager*, XMLNode& root, XMLNode& r) {
       W::create_status_xml_doc(r, root.getChildNode("paramList").getChildNode("dev").getText(), nullptr);
       return 0;
     }},
    {"Dev", [](CPlayerManager*, XMLNode&, XMLNode&) { return -3; }},
};
const size_t kTableSize = sizeof kTable / sizeof kTable[0];

TEST(Envelope, HandlerResultsBecomeRepliesAndAFailedHandlersReplyIsDropped) {
  const struct {
    const char* command;
    int code;
    const char* reply;
  } cases[] = {
      {"Drop", -19, "<root><status>-19</status></root>"},
      {"Pos", 3, "<root><status>0</status></root>"},
      {"Fail", -3, "<root><status>-3</status></root>"},
      {"Dev", 0, "<root><status>r-1</status></root>"},  // the first entry of a name wins
      {"dev", -7, "<root><status>-7</status></root>"},  // names are exact
      {"Empty", 1, ""},                                 // 0 or more and no reply: fatal
  };
  for (const auto& c : cases) {
    const std::string p =
        std::string("<root><command>") + c.command + "</command><paramList><dev>r-1</dev></paramList></root>";
    XMLNode reply;
    requestOutcome_s out;
    const auto log = logged([&] { handle_request(nullptr, p.data(), p.size(), reply, out, kTable, kTableSize); });
    EXPECT_EQ(c.code, out.code) << c.command;
    EXPECT_EQ(c.reply, compact(reply)) << c.command;
    EXPECT_EQ(*c.reply == '\0', out.fatal) << c.command;
    EXPECT_TRUE(out.command == c.command && out.dev == "r-1") << c.command;
    EXPECT_EQ(c.code == -19, log.find("[Drop]There is someting worng in the contorl flow\n") != std::string::npos);
  }
}

TEST(ParamXmlWrapper, OnlyTheFirstParameterOfANameCounts) {
  XMLNode packet = XMLNode::parseString(
      "<root><paramList><dev>a</dev><DEV>b</DEV><vol></vol></paramList><paramList><x>1</x></paramList></root>", "root");
  XMLNode n;
  ASSERT_EQ(0, W::get_param_node(packet, n, "dev"));
  EXPECT_STREQ("a", n.getText());
  EXPECT_EQ(0, W::get_param_node(packet, n, "vol"));
  EXPECT_EQ(-1, W::get_param_node_with_check_text(packet, n, "vol"));
  EXPECT_EQ(-1, W::get_param_node(packet, n, "x")) << "only the first paramList counts";
}

TEST(Version, PackageElseFirmwareAndWhatFails) {
  testsupport::TestRoot root;
  char v[64], small[8];
  EXPECT_EQ(0, getTARPOVersion(small, sizeof small, "KIVO", 0));
  EXPECT_STREQ("KIVO 3.", small);
  EXPECT_EQ(1, getTARPOVersion(nullptr, 8, "KIVO", 0));
  root.clearCalls();
  EXPECT_EQ(1, getTARPOVersion(v, sizeof v, "KIVO;id", 0)) << "a name that would change the line never runs";
  EXPECT_TRUE(root.calls().empty());
  root.write("/etc/config/tarpo.conf", "[KIVO]\nVersion =\n");
  EXPECT_EQ(1, getVersion(v, sizeof v, "KIVO", 0, 0)) << "an empty version is a failure";
  EXPECT_EQ(0, getVersion(v, sizeof v, "KIVO", 1, 0));
  EXPECT_STREQ("FW 5.1.4.20240611", v);
}

TEST(UnixSocketIpc, ClientIgnoresTheDescriptorServerFallsBackToTheLastAccepted) {
  testsupport::TestRoot root(false);
  const std::string path = root.path("/tmp/sock");
  CUnixSocketIpc server(path.c_str(), true), client(path.c_str(), false);
  ASSERT_EQ(0, server.Listen(4));
  ASSERT_EQ(0, client.Connect());
  const int fd = server.Accept();
  ASSERT_EQ(5, client.Write("hello", 5, 12345));
  char buf[16];
  std::memset(buf, 'z', sizeof buf);
  ASSERT_EQ(5, server.Read(buf, 10, -1));
  EXPECT_EQ(std::string("hello\0\0\0\0\0zz", 12), std::string(buf, 12)) << "zero-filled behind what was read";
  ASSERT_EQ(2, server.Write("ok", 2, fd));
  EXPECT_EQ(2, client.Read(buf, sizeof buf, 999));
  EXPECT_STREQ("ok", buf);
  try {
    CUnixSocketIpc s(root.path("/no/such/dir/sock").c_str(), true);
    ADD_FAILURE() << "bound in a missing directory";
  } catch (const char* what) {
    EXPECT_STREQ("CUnixSocketIpc::CUnixSocketIpc", what);
  }
}

// Out of descriptors, in a child process of its own (the limit is per
// process). A client that arrives while none is free is dropped; once some
// are freed, the next client is served even though the accept that failed
// ran before it arrived.
TEST(AcceptLoop, OutOfDescriptorsDropsOnlyWhileStillExhausted) {
  testsupport::TestRoot root(false);
  const std::string path = root.path("/tmp/sock");
  CUnixSocketIpc server(path.c_str(), true);
  ASSERT_EQ(0, server.Listen(4));
  int logPipe[2], freePipe[2], ackPipe[2];
  ASSERT_EQ(0, ::pipe(logPipe));
  ASSERT_EQ(0, ::pipe(freePipe));
  ASSERT_EQ(0, ::pipe(ackPipe));
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(logPipe[0]);
    ::close(freePipe[1]);
    ::close(ackPipe[0]);
    vessord::log_set_tee(logPipe[1]);
    g_cmdLogPath = root.path("/cmd.log");  // cannot be opened either
    accept_keep_spare();
    const int idle[2] = {::open("/dev/null", O_RDONLY), ::open("/dev/null", O_RDONLY)};
    // Started before the limit: sanitizer runtimes need descriptors of their
    // own while a thread starts.
    std::thread freer([&] {  // the idle ones close on the test's word
      char c;
      if (::read(freePipe[0], &c, 1) != 1) return;
      ::close(idle[0]);
      ::close(idle[1]);
      if (::write(ackPipe[1], "k", 1) != 1) ::_exit(3);
    });
    const int lowest = ::dup(0);  // the next free number: none is left below the limit
    ::close(lowest);
    struct rlimit tight;
    ::getrlimit(RLIMIT_NOFILE, &tight);
    tight.rlim_cur = static_cast<rlim_t>(lowest);
    if (idle[0] < 0 || idle[1] < 0 || ::setrlimit(RLIMIT_NOFILE, &tight) != 0) ::_exit(2);
    accept_once(server, nullptr);  // client A
    accept_once(server, nullptr);  // client B
    freer.join();
    char c;
    while (::read(freePipe[0], &c, 1) > 0) {}  // the test is done with B
    ::_exit(0);
  }
  ::close(logPipe[1]);
  ::close(freePipe[0]);
  ::close(ackPipe[1]);
  std::string log;
  auto waitForReports = [&](size_t n) {  // the child's "EMFILE" lines
    auto count = [&] {
      size_t k = 0;
      for (size_t at = log.find("EMFILE"); at != std::string::npos; at = log.find("EMFILE", at + 1)) ++k;
      return k;
    };
    char buf[512];
    while (count() < n) {
      const ssize_t got = ::read(logPipe[0], buf, sizeof buf);
      if (got <= 0) break;
      log.append(buf, static_cast<size_t>(got));
    }
    return count() >= n;
  };
  char byte;
  {
    CUnixSocketIpc a(path.c_str(), false);
    ASSERT_EQ(0, a.Connect());
    EXPECT_EQ(0, a.Read(&byte, 1, -1)) << "still exhausted: the waiting client is closed";
  }
  EXPECT_TRUE(waitForReports(1)) << log;
  EXPECT_NE(std::string::npos, log.find("ipc.Accept() ... fial\n")) << log;
  EXPECT_NE(std::string::npos, log.find("ipc.Accept()..... EMFILE\n")) << log;
  // The second accept fails before B exists; then descriptors are freed.
  ASSERT_TRUE(waitForReports(2)) << log;
  ASSERT_EQ(1, ::write(freePipe[1], "f", 1));
  ASSERT_EQ(1, ::read(ackPipe[0], &byte, 1));
  {
    CUnixSocketIpc b(path.c_str(), false);
    ASSERT_EQ(0, b.Connect());
    const std::string request = "<root><command>NoSuchCommand</command></root>";
    ASSERT_EQ(static_cast<ssize_t>(request.size()), b.Write(request.data(), request.size(), -1));
    char header[kReplyHeaderSize];
    EXPECT_EQ(static_cast<ssize_t>(sizeof header), b.Read(header, sizeof header, -1)) << "B was dropped";
    EXPECT_GT(std::atoi(header), 0);
  }
  ::close(freePipe[1]);
  int status = 0;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  ::close(logPipe[0]);
  ::close(ackPipe[0]);
}

TEST(DebugWriteLog, StampedLinesAndRotationPast10MiB) {
  testsupport::TestRoot root(false);
  const std::string path = root.path("/log.txt");
  ASSERT_EQ(0, debug_write_log(path.c_str(), "Accept() [fail]"));
  const std::string text = root.read("/log.txt");  // "[hh:mm:ss] " and the text
  EXPECT_TRUE(text.size() == 27 && text[0] == '[' && text.substr(9) == "] Accept() [fail]\n") << text;
  // Exactly 10 MiB is kept; one byte more and the file starts over.
  ASSERT_EQ(0, truncate(path.c_str(), 0xA00000));
  ASSERT_EQ(0, debug_write_log(path.c_str(), "kept"));
  EXPECT_EQ(0xA00000u + 16, root.read("/log.txt").size());
  ASSERT_EQ(0, debug_write_log(path.c_str(), "fresh"));
  EXPECT_EQ(17u, root.read("/log.txt").size());
}

TEST(ShowStackframe, OneLineReplacedOnEachCallWithAStampByArithmetic) {
  testsupport::TestRoot root(false);
  vessord::set_log_dir(root.path("/logs/"));
  EXPECT_LT(show_stackframe("crash.dump", 11, 42), 0) << "no directory, no file";
  ::mkdir(root.path("/logs").c_str(), 0755);
  ASSERT_EQ(0, show_stackframe("crash.dump", 11, 42));
  ASSERT_EQ(0, show_stackframe("crash.dump", 7, -1));
  vessord::set_log_dir(".log/");
  const std::string line = root.read("/logs/crash.dump"), self = std::to_string(getpid());
  EXPECT_EQ(" sig:7 send_pid:-1 self_pid:" + self + "\n", line.substr(std::min<size_t>(21, line.size())));
  struct stat st;
  ASSERT_EQ(0, ::stat(root.path("/logs/crash.dump").c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 0777u);

  // Against gmtime every 97 hours and 17 seconds from 1900 to 2191.
  for (long long s = -2200000000LL; s < 7000000000LL; s += 97 * 3600 + 17) {
    const time_t tt = static_cast<time_t>(s);
    struct tm m;
    ASSERT_NE(nullptr, gmtime_r(&tt, &m));
    char want[40], got[40];
    std::snprintf(want, sizeof want, "[%d-%02d-%02d %02d:%02d:%02d]", m.tm_year + 1900, m.tm_mon + 1, m.tm_mday,
                  m.tm_hour, m.tm_min, m.tm_sec);
    vessord::format_dump_stamp(s, got, sizeof got);
    ASSERT_STREQ(want, got) << s;
  }
}

}  // namespace
