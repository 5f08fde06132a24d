// The daemon as a client sees it: framing, envelope, error replies, the
// version node and the tools it runs for it.
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "support/daemonHarness.h"
#include "support/testRoot.h"
#include "vessorClient.h"

using testsupport::DaemonProcess;
using testsupport::node;
using testsupport::TestRoot;

namespace {

// A packet with zero bytes in it.
template <size_t N>
std::string bytes(const char (&text)[N]) {
  return std::string(text, N - 1);
}

class Daemon : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(daemon.start()) << daemon.log(); }

  // The daemon is still serving: an echo comes back.
  void expectServing() { EXPECT_EQ("ECHO", node(daemon.command("echo"), "status")) << daemon.log(); }

  TestRoot root{false};
  DaemonProcess daemon{root.dir()};
};

TEST_F(Daemon, EchoReplyIsTheIndentedDocumentWithTheVersionFirst) {
  EXPECT_EQ("<root>\n\t<version>KIVO 3.2.7</version>\n\t<status>ECHO</status>\n</root>\n", daemon.command("echo"));
  // The trace names the command and, without a dev parameter, "N/A".
  std::string log = daemon.log();
  EXPECT_NE(std::string::npos, log.find("Command:echo  --dev:N/A\n")) << log;
  EXPECT_TRUE(daemon.waitForLog("Command:echo  --dev:N/A(done)\n")) << daemon.log();
  daemon.command("echo", {{"dev", "renderer-1"}});
  EXPECT_NE(std::string::npos, daemon.log().find("Command:echo  --dev:renderer-1\n"));
}

TEST_F(Daemon, PacketsThatAreNoRootDocumentGetMinusTwo) {
  for (const char* packet : {"", "hello there", "<foo><command>echo</command></foo>", "</root>", "<<<>>>"}) {
    std::string reply = daemon.request(packet);
    EXPECT_EQ("-2", node(reply, "status")) << "packet: " << packet;
    EXPECT_EQ("KIVO 3.2.7", node(reply, "version")) << "error replies carry the version too";
  }
  EXPECT_NE(std::string::npos, daemon.log().find("WRONG PACKAGE FORMAT"));
  // root may also stand one level down, and behind a declaration.
  EXPECT_EQ("ECHO", node(daemon.request("<wrap><root><command>echo</command></root></wrap>"), "status"));
  EXPECT_EQ("ECHO", node(daemon.request("<?xml version=\"1.0\"?><root><command>echo</command></root>"), "status"));
}

TEST_F(Daemon, MissingOrUnknownCommandsGetMinusSeven) {
  EXPECT_EQ("-7", node(daemon.request("<root><paramList><dev>x</dev></paramList></root>"), "status"));
  EXPECT_EQ("-7", node(daemon.request("<root><command></command></root>"), "status"));
  EXPECT_EQ("-7", node(daemon.command("NoSuchCommand"), "status"));
  // Command texts are case-sensitive; element names are not.
  EXPECT_EQ("-7", node(daemon.command("Echo"), "status"));
  EXPECT_EQ("-7", node(daemon.command("debugDump", {{"dev", "r1"}}), "status"));
  EXPECT_EQ("ECHO", node(daemon.request("<ROOT><Command>echo</Command></ROOT>"), "status"));
  std::string log = daemon.log();
  EXPECT_NE(std::string::npos, log.find("NO COMMAND FIELD"));
  EXPECT_NE(std::string::npos, log.find("COMMAND 'NoSuchCommand' not found"));
}

TEST_F(Daemon, VersionLookupRunsTheConfigurationReaderOncePerReply) {
  root.clearCalls();
  daemon.command("echo");
  std::vector<std::string> want = {"/sbin/rakcfg -f /etc/config/tarpo.conf KIVO Version"};
  EXPECT_EQ(want, root.calls());

  // Without the package version the firmware's comes instead.
  ::unlink(root.path("/etc/config/tarpo.conf").c_str());
  root.clearCalls();
  EXPECT_EQ("FW 5.1.4.20240611", node(daemon.command("echo"), "version"));
  want.push_back("/sbin/rakcfg -f /etc/config/ostral.conf System Version");
  want.push_back("/sbin/rakcfg -f /etc/config/ostral.conf System 'Build Number'");
  EXPECT_EQ(want, root.calls());

  // The firmware line always prints its dot, even with nothing to read.
  ::unlink(root.path("/etc/config/ostral.conf").c_str());
  EXPECT_EQ("FW .", node(daemon.command("echo"), "version"));
}

TEST(DaemonVersion, NoVersionNodeWhenNoCommandCanRun) {
  TestRoot root(false);
  DaemonProcess daemon(root.dir());
  // No shell can be found: neither version can be read.
  ASSERT_TRUE(daemon.start({"PATH=/nonexistent"})) << daemon.log();
  std::string reply = daemon.command("echo");
  EXPECT_EQ("<root>\n\t<status>ECHO</status>\n</root>\n", reply);
  EXPECT_NE(std::string::npos, daemon.log().find("Error: popen failed"));
}

TEST_F(Daemon, OneReadMakesTheRequest) {
  // Only what the first read returns counts: a dev parameter sent after
  // the reply was made is not seen, and is taken as the acknowledgement.
  {
    vessorclient::CVessorConnection c(daemon.socketPath());
    ASSERT_TRUE(c.ok());
    ASSERT_TRUE(c.send("<root><command>echo</command>"));
    std::string reply;
    ASSERT_TRUE(c.receive(reply));
    EXPECT_EQ("ECHO", node(reply, "status"));
    EXPECT_TRUE(c.send("<paramList><dev>late</dev></paramList></root>"));
  }
  EXPECT_EQ(std::string::npos, daemon.log().find("--dev:late"));

  // 4096 bytes are read whole; what lies beyond is never read.
  std::string head = "<root><command>echo</command><pad>";
  std::string tail = "</pad></root>";
  std::string exact = head + std::string(4096 - head.size() - tail.size(), 'x') + tail;
  ASSERT_EQ(4096u, exact.size());
  EXPECT_EQ("ECHO", node(daemon.request(exact), "status"));
  EXPECT_EQ("ECHO", node(daemon.request(exact + std::string(3000, 'y')), "status"));
  std::string late = "<root><pad>" + std::string(4100, 'x') + "</pad><command>echo</command></root>";
  EXPECT_EQ("-7", node(daemon.request(late), "status"));
  expectServing();
}

TEST_F(Daemon, ClientsThatLeaveEarlyCostNothing) {
  for (int i = 0; i < 20; ++i) {
    vessorclient::CVessorConnection silent(daemon.socketPath());
    ASSERT_TRUE(silent.ok());
  }
  // Gone before the reply: the daemon's writes fail, it lives on.
  for (int i = 0; i < 20; ++i) {
    vessorclient::CVessorConnection c(daemon.socketPath());
    ASSERT_TRUE(c.send(vessorclient::build_packet("echo", {})));
    ::shutdown(c.fd(), SHUT_RDWR);
  }
  expectServing();
  EXPECT_TRUE(daemon.alive());
}

TEST_F(Daemon, HostileInputGetsAStatusAndTheDaemonLives) {
  std::string garbage;
  for (int i = 0; i < 3000; ++i) garbage += static_cast<char>((i * 7919 + 13) % 256);
  std::string deep;
  for (int i = 0; i < 1000; ++i) deep += "<a>";
  const std::vector<std::string> packets = {
      garbage,
      bytes("\0<root><command>echo</command></root>"),
      bytes("<root><command>echo</command>\0<junk"),
      "<root><command>echo</command><paramList><dev>x",
      "<root><comm",
      "<root" + deep,
      "<root>" + deep,
      "<root><command>&#99999999999999999999999;</command></root>",
      "<root><command>&#x7fffffffffffffff;</command></root>",
      "<root a='" + std::string(4000, 'A') + "'><command>echo</command></root>",
      "<root><command><![CDATA[echo",
  };
  for (const auto& p : packets) {
    std::string status = node(daemon.request(p), "status");
    bool clear = status == "ECHO" || status == "-2" || status == "-7";
    EXPECT_TRUE(clear) << "status '" << status << "' for a packet of " << p.size() << " bytes";
  }
  EXPECT_EQ("ECHO", node(daemon.request(packets[2]), "status"));
  EXPECT_EQ("-2", node(daemon.request(packets[1]), "status"));
  expectServing();
}

TEST(DaemonStart, StaleSocketFileIsReplaced) {
  TestRoot root(false);
  root.write("/tmp/.@vessord.xxx", "left over");
  DaemonProcess daemon(root.dir());
  ASSERT_TRUE(daemon.start()) << daemon.log();
  struct stat st;
  ASSERT_EQ(0, ::stat(daemon.socketPath().c_str(), &st));
  EXPECT_TRUE(S_ISSOCK(st.st_mode));
  EXPECT_EQ(0777u, st.st_mode & 0777u);
  EXPECT_EQ("ECHO", node(daemon.command("echo"), "status"));
}

TEST(DaemonStart, OneDaemonPerRootAndRootsRunSideBySide) {
  TestRoot root(false), other(false);
  DaemonProcess first(root.dir());
  ASSERT_TRUE(first.start()) << first.log();
  struct stat before;
  ASSERT_EQ(0, ::stat(first.socketPath().c_str(), &before));

  DaemonProcess second(root.dir());
  ASSERT_TRUE(second.start({}, false));
  int status = -1;
  ASSERT_TRUE(second.waitExit(status));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_NE(std::string::npos, second.log().find("process already exist!!"));
  struct stat after;
  ASSERT_EQ(0, ::stat(first.socketPath().c_str(), &after));
  EXPECT_EQ(before.st_ino, after.st_ino) << "the running daemon's socket was touched";
  EXPECT_EQ("ECHO", node(first.command("echo"), "status"));

  DaemonProcess beside(other.dir());
  ASSERT_TRUE(beside.start()) << beside.log();
  EXPECT_EQ("ECHO", node(beside.command("echo"), "status"));
  EXPECT_EQ("ECHO", node(first.command("echo"), "status"));
}

TEST(DaemonStart, RootThatCannotStandOnACommandLineIsRefused) {
  TestRoot root(false);
  std::string odd = root.dir() + "/with space";
  ASSERT_EQ(0, ::mkdir(odd.c_str(), 0755));
  ASSERT_EQ(0, ::mkdir((odd + "/sim").c_str(), 0755));
  DaemonProcess daemon(odd);
  ASSERT_TRUE(daemon.start({}, false));
  int status = -1;
  ASSERT_TRUE(daemon.waitExit(status));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << status;
}

TEST(DaemonEnd, FatalSignalWritesTheDumpAndExitsZero) {
  TestRoot root(false);
  DaemonProcess daemon(root.dir());
  ASSERT_TRUE(daemon.start()) << daemon.log();
  daemon.signal(SIGUSR1);
  int status = -1;
  ASSERT_TRUE(daemon.waitExit(status));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  std::string dump = daemon.dump();
  std::string tail = " sig:10 send_pid:" + std::to_string(::getpid()) + " self_pid:";
  EXPECT_NE(std::string::npos, dump.find(tail)) << dump;
  // "[yyyy-mm-dd hh:mm:ss]" then the numbers, one line.
  ASSERT_GT(dump.size(), 22u);
  EXPECT_EQ('[', dump[0]);
  EXPECT_EQ("] sig:10", dump.substr(20, 8)) << dump;
  EXPECT_EQ(1, std::count(dump.begin(), dump.end(), '\n'));
  EXPECT_NE(std::string::npos, daemon.log().find("sig:10  pid:" + std::to_string(::getpid())));
}

TEST(DaemonEnd, CreatePlayerEndsTheDaemonThroughTheDump) {
  TestRoot root(false);
  DaemonProcess daemon(root.dir());
  ASSERT_TRUE(daemon.start()) << daemon.log();
  const pid_t pid = daemon.pid();
  std::string reply, error;
  EXPECT_NE(0, vessorclient::request(daemon.socketPath(), vessorclient::build_packet("CreatePlayer", {}), reply, &error));
  int status = -1;
  ASSERT_TRUE(daemon.waitExit(status));
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_NE(std::string::npos, daemon.log().find("Command:CreatePlayer  --dev:N/A(err)"));
  EXPECT_NE(std::string::npos, daemon.dump().find(" sig:6 send_pid:" + std::to_string(pid) + " self_pid:" +
                                                  std::to_string(pid) + "\n"))
      << daemon.dump();
}

}  // namespace
