// The daemon as a client sees it: framing, envelope, error replies, the
// version node, its descriptors, its start and its end; vessorctl and the
// configuration reader of the simulated appliance.
#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/daemonHarness.h"
#include "support/testRoot.h"
#include "vessorClient.h"

using testsupport::DaemonProcess;
using testsupport::node;
using testsupport::TestRoot;

namespace {

const char kEchoReply[] = "<root>\n\t<version>KIVO 3.2.7</version>\n\t<status>ECHO</status>\n</root>\n";
bool has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }
bool exited_zero(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }

// The daemon's descriptors above standard error, with their open flags.
std::map<int, long> descriptors(pid_t pid) {
  std::map<int, long> out;
  const std::string dir = "/proc/" + std::to_string(pid) + "/fdinfo/";
  std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(dir.c_str()), closedir);
  while (dirent* e = d ? readdir(d.get()) : nullptr) {
    if (e->d_name[0] == '.' || std::stoi(e->d_name) <= 2) continue;
    std::ifstream info(dir + e->d_name);
    std::string key;
    long flags = 0;
    while (info >> key && key != "flags:") info.ignore(1 << 20, '\n');
    if (info >> std::oct >> flags) out[std::stoi(e->d_name)] = flags;
  }
  return out;
}

class Daemon : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(daemon.start()) << daemon.log(); }
  std::string status(const std::string& packet) { return node(daemon.request(packet), "status"); }
  void expectServing() { EXPECT_EQ("ECHO", node(daemon.command("echo"), "status")) << daemon.log(); }

  TestRoot root{false};
  DaemonProcess daemon{root.dir()};
};

TEST_F(Daemon, EchoReplyIsIndentedWithTheVersionFirstAndTraced) {
  EXPECT_EQ(kEchoReply, daemon.command("echo"));
  EXPECT_TRUE(daemon.waitForLog("Command:echo  --dev:N/A(done)\n")) << daemon.log();
  daemon.command("echo", {{"dev", "renderer-1"}});
  EXPECT_TRUE(has(daemon.log(), "Command:echo  --dev:renderer-1\n"));
}

TEST_F(Daemon, EnvelopeFaultsGetTheirStatusAndStillTheVersion) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "-2"},
      {"hello there", "-2"},
      {"<foo><command>echo</command></foo>", "-2"},
      {"<root><paramList><dev>x</dev></paramList></root>", "-7"},
      {"<root><command></command></root>", "-7"},
      {"<root><command>NoSuchCommand</command></root>", "-7"},
      {"<root><command>Echo</command></root>", "-7"},    // command texts are case-sensitive,
      {"<ROOT><Command>echo</Command></ROOT>", "ECHO"},  // element names are not
      {"<wrap><root><command>echo</command></root></wrap>", "ECHO"},
      {"<?xml version=\"1.0\"?><root><command>echo</command></root>", "ECHO"},
  };
  for (const auto& c : cases) {
    const std::string reply = daemon.request(c.first);
    EXPECT_EQ(c.second, node(reply, "status")) << c.first;
    EXPECT_EQ("KIVO 3.2.7", node(reply, "version")) << c.first;
  }
  for (const char* line : {"WRONG PACKAGE FORMAT\n", "NO COMMAND FIELD\n", "COMMAND 'NoSuchCommand' not found\n"})
    EXPECT_TRUE(has(daemon.log(), line)) << line;
}

TEST_F(Daemon, VersionComesFromThePackageElseFromTheFirmwareElseNotAtAll) {
  root.clearCalls();
  daemon.command("echo");
  std::vector<std::string> want = {"/sbin/rakcfg -f /etc/config/tarpo.conf KIVO Version"};
  EXPECT_EQ(want, root.calls());

  ::unlink(root.path("/etc/config/tarpo.conf").c_str());
  root.clearCalls();
  EXPECT_EQ("FW 5.1.4.20240611", node(daemon.command("echo"), "version"));
  want.push_back("/sbin/rakcfg -f /etc/config/ostral.conf System Version");
  want.push_back("/sbin/rakcfg -f /etc/config/ostral.conf System 'Build Number'");
  EXPECT_EQ(want, root.calls());
  // The firmware line prints its dot even with nothing to read.
  ::unlink(root.path("/etc/config/ostral.conf").c_str());
  EXPECT_EQ("FW .", node(daemon.command("echo"), "version"));

  // The tools run through the system's shell, as popen runs them: an empty
  // PATH changes nothing.
  TestRoot other(false);
  DaemonProcess noPath(other.dir());
  ASSERT_TRUE(noPath.start({"PATH=/nonexistent"})) << noPath.log();
  EXPECT_EQ("KIVO 3.2.7", node(noPath.command("echo"), "version"));
  EXPECT_FALSE(has(noPath.log(), "Error: popen failed"));
}

TEST_F(Daemon, RequestIsWhatOneReadReturnsUpTo4096Bytes) {
  {  // sent after the reply was made: taken as the acknowledgement, never as request
    vessorclient::CVessorConnection c(daemon.socketPath());
    std::string reply;
    ASSERT_TRUE(c.send("<root><command>echo</command>") && c.receive(reply));
    EXPECT_EQ("ECHO", node(reply, "status"));
    EXPECT_TRUE(c.send("<paramList><dev>late</dev></paramList></root>"));
  }
  const std::string head = "<root><command>echo</command><pad>", tail = "</pad></root>";
  const std::string exact = head + std::string(4096 - head.size() - tail.size(), 'x') + tail;
  EXPECT_EQ("ECHO", status(exact));
  EXPECT_EQ("ECHO", status(exact + std::string(3000, 'y')));
  EXPECT_EQ("-7", status("<root><pad>" + std::string(4100, 'x') + "</pad><command>echo</command></root>"));
  EXPECT_FALSE(has(daemon.log(), "--dev:late"));
  expectServing();
}

TEST_F(Daemon, DescriptorsAreCloseOnExecAndGoWithTheirClients) {
  const std::map<int, long> before = descriptors(daemon.pid());
  ASSERT_FALSE(before.empty());
  {
    vessorclient::CVessorConnection idle(daemon.socketPath());
    expectServing();  // accepted after `idle`, so `idle` has its descriptor now
    const std::map<int, long> open = descriptors(daemon.pid());
    EXPECT_GT(open.size(), before.size());
    for (const auto& fd : open) EXPECT_TRUE(fd.second & O_CLOEXEC) << "descriptor " << fd.first;
  }
  // Clients that connect and close at once, or leave before their reply (SIGPIPE).
  for (int i = 0; i < 20; ++i) {
    vessorclient::CVessorConnection silent(daemon.socketPath());
    vessorclient::CVessorConnection gone(daemon.socketPath());
    ASSERT_TRUE(gone.send(vessorclient::build_packet("echo", {})));
    ::shutdown(gone.fd(), SHUT_RDWR);
  }
  expectServing();
  for (int i = 0; i < 400 && descriptors(daemon.pid()) != before; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(before, descriptors(daemon.pid()));
}

TEST_F(Daemon, HostileInputGetsAClearStatusAndTheDaemonLives) {
  std::string garbage, deep;
  for (int i = 0; i < 3000; ++i) garbage += static_cast<char>((i * 7919 + 13) % 256);
  for (int i = 0; i < 1000; ++i) deep += "<a>";
  for (const std::string& p : {garbage, std::string("<root><comm"), "<root" + deep, "<root>" + deep,
                               std::string("<root><command>&#99999999999999999999999;</command></root>"),
                               std::string("<root><command>&#x7fffffffffffffff;</command></root>"),
                               "<root a='" + std::string(4000, 'A') + "'><command>echo</command></root>",
                               std::string("<root><command><![CDATA[echo")}) {
    const std::string s = status(p);
    EXPECT_TRUE(s == "ECHO" || s == "-2" || s == "-7") << s << " for " << p.size() << " bytes";
  }
  // The request ends at a zero byte; an unterminated parameter still leaves the command.
  EXPECT_EQ("-2", status(std::string("\0<root><command>echo</command></root>", 37)));
  EXPECT_EQ("ECHO", status(std::string("<root><command>echo</command>\0<junk", 36)));
  EXPECT_EQ("ECHO", status("<root><command>echo</command><paramList><dev>x"));
  expectServing();
}

TEST(DaemonStart, OneDaemonPerRootRootsSideBySideAndStaleSocketsReplaced) {
  TestRoot root(false), other(false);
  DaemonProcess first(root.dir()), second(root.dir()), beside(other.dir());
  ASSERT_TRUE(first.start()) << first.log();
  struct stat before, after;
  ASSERT_EQ(0, ::stat(first.socketPath().c_str(), &before));
  second.start();
  int status = -1;
  ASSERT_TRUE(second.waitExit(status));
  EXPECT_TRUE(exited_zero(status)) << status;
  EXPECT_TRUE(has(second.log(), "process already exist!!"));
  ASSERT_EQ(0, ::stat(first.socketPath().c_str(), &after));
  EXPECT_EQ(before.st_ino, after.st_ino) << "the running daemon's socket was touched";

  // A stale socket file is replaced by a world-writable socket.
  other.write("/tmp/.@vessord.xxx", "left over");
  ASSERT_TRUE(beside.start()) << beside.log();
  ASSERT_EQ(0, ::stat(beside.socketPath().c_str(), &after));
  EXPECT_TRUE(S_ISSOCK(after.st_mode) && (after.st_mode & 0777u) == 0777u) << after.st_mode;
  EXPECT_EQ("ECHO", node(beside.command("echo"), "status"));
  EXPECT_EQ("ECHO", node(first.command("echo"), "status"));
}

// Both end with status 0 and one dump line "[yyyy-mm-dd hh:mm:ss] sig:S send_pid:P self_pid:Q".
TEST(DaemonEnd, SigUsr1AndCreatePlayerEndTheDaemonWithItsDump) {
  for (const bool byCommand : {false, true}) {
    TestRoot root(false);
    DaemonProcess daemon(root.dir());
    ASSERT_TRUE(daemon.start()) << daemon.log();
    const std::string self = std::to_string(daemon.pid()), us = std::to_string(::getpid());
    std::string tail = " sig:10 send_pid:" + us + " self_pid:" + self + "\n", line = "sig:10  pid:" + us;
    if (byCommand) {
      std::string reply;
      EXPECT_NE(0, vessorclient::request(daemon.socketPath(), vessorclient::build_packet("CreatePlayer", {}), reply));
      tail = " sig:6 send_pid:" + self + " self_pid:" + self + "\n";
      line = "Command:CreatePlayer  --dev:N/A(err)";
    } else {
      ::kill(daemon.pid(), SIGUSR1);
    }
    int status = -1;
    ASSERT_TRUE(daemon.waitExit(status));
    EXPECT_TRUE(exited_zero(status)) << status;
    const std::string dump = daemon.dump();
    ASSERT_EQ(21 + tail.size(), dump.size()) << dump;
    EXPECT_TRUE(dump[0] == '[' && dump[20] == ']' && dump.substr(21) == tail) << dump;
    EXPECT_TRUE(has(daemon.log(), line)) << daemon.log();
  }
}

struct call_s {
  std::string args, out;
  int status;
};

// Runs each `line + args` in a shell: its standard output and exit status.
void expect_calls(const std::string& line, const std::vector<call_s>& cases) {
  for (const auto& c : cases) {
    FILE* p = popen((line + c.args + " 2>/dev/null").c_str(), "re");
    ASSERT_NE(nullptr, p);
    std::string out;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    const int st = pclose(p);
    EXPECT_EQ(c.out, out) << c.args;
    EXPECT_EQ(c.status, WIFEXITED(st) ? WEXITSTATUS(st) : -1) << c.args;
  }
}

TEST(Rakcfg, AnswersEveryQueryFormOfTheDaemon) {
  TestRoot root(false);
  root.write("/etc/sample.conf",
             "top = level\n# comment = no\n[Media Server]\n  Build Number =  42 \n; Hidden = yes\nempty =\n"
             "[other]\nBuild Number = 7\n");
  const std::string f = "-f '" + root.path("/etc/sample.conf") + "' ";
  expect_calls("VESSORD_ROOT='" + root.dir() + "' '" + root.path("/sbin/rakcfg") + "' ",
               {{f + "'Media Server' 'Build Number'", "42\n", 0},
                {"'media server' 'build number' " + f, "42\n", 0},  // names match without regard to case
                {"-d 0 other 'Build Number' " + f, "7\n", 0},
                {f + "-d 0 '' top", "level\n", 0},  // an empty section: the keys above the first header
                {f + "'Media Server' empty", "\n", 0},
                {f + "-d FALSE -c 'Media Server' Hidden", "FALSE\n", 0},  // comments hold no keys
                {f + "other top", "", 1},
                {f + "OnlyOneName", "", 2},
                {"System Model -d unknow", "vantu\n", 0}});  // without -f: the system file of the root
}

TEST_F(Daemon, VessorctlExitCodesTellTheReplyAndValuesAreEscaped) {
  root.write("/packet.xml", "<ROOT><COMMAND>echo</COMMAND></ROOT>");
  const std::string ctl = "VESSORD_ROOT='" + root.dir() + "' '" + testsupport::vessorctlPath() + "' ";
  expect_calls(ctl, {{"echo 'dev=a&b<c>\"d\"' x=1", kEchoReply, 0},
                     {"--get status Nope", "-7\n", 1},
                     {"--get version echo", "KIVO 3.2.7\n", 0},
                     {"--get nothing echo", "", 1},
                     {"--get status,version echo", "ECHO\tKIVO 3.2.7\n", 0},
                     {"--get status,nothing echo", "ECHO\t-\n", 1},
                     {"--watch 3 --every 0 --get status echo", "ECHO\nECHO\nECHO\n", 0},
                     {"--watch 2 --every 0 --get status Nope", "-7\n-7\n", 1},
                     {"--watch soon echo", "", 2},
                     {"--get status --raw '" + root.path("/packet.xml") + "'", "ECHO\n", 0},
                     {"--get status --raw - < /dev/null", "-2\n", 1},
                     {"", "", 2},
                     {"echo novalue", "", 2},
                     {"echo '<bad>=1'", "", 2},
                     {"--socket '" + root.path("/tmp/none") + "' echo", "", 3}});
  EXPECT_TRUE(has(daemon.log(), "Command:echo  --dev:a&b<c>\"d\"\n")) << daemon.log();
  EXPECT_TRUE(has(daemon.log(), "<dev>a&amp;b&lt;c&gt;&quot;d&quot;</dev><x>1</x>"));
  expect_calls("printf '<root><command>echo</command></root>' | " + ctl + "--socket '" + daemon.socketPath() + "' ",
               {{"--get status --raw -", "ECHO\n", 0}});
}

}  // namespace
