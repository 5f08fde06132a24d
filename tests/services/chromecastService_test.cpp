// The Chromecast service against the sender stand-in run by the real node:
// the exact bytes of every command on the child's input, every field of the
// answers, the child's faults (death, silence, late or broken answers, a
// lost device) and what is left behind: no child, no descriptor.
#include <gtest/gtest.h>
#include <poll.h>

#include <cstring>
#include <memory>
#include <string>

#include "chromecastSupport.h"
#include "services/chromecastService.h"
#include "support/testRoot.h"

using vessord::ChromecastService;
using vessord::Response;
using namespace castsupport;

namespace {

const char* const kLaunch = "{ \"cmd\":\"LAUNCH\" }\r\n";
const char* const kLoad = "{\"cmd\":\"LOAD\", \"url\":\"http://10.0.0.2:8080/v.mp4\"}\r\n";
const std::string kUrl = "http://10.0.0.2:8080/v.mp4";

class CastService : public ::testing::Test {
 protected:
  CastService() : svc(new ChromecastService("render-cc", kIp, 8009, "Living room")) {
    svc->setTiming(normal_timing());
  }
  // Starts the child with a load of kUrl.
  void load() {
    Response r;
    ASSERT_EQ(svc->setContentUrl(r, kUrl, "", "", ""), 0);
    ASSERT_EQ(r.m_response, 0);
  }
  pid_t child() const { return svc->childPid(); }
  std::string input() const { return input_of(root, svc->childPid()); }

  testsupport::TestRoot root;
  std::unique_ptr<ChromecastService> svc;
};

TEST(CastMedia, LoadCommandBytesAndEscaping) {
  std::string out;
  ChromecastService::genMedia(out, "http://h/a.mp4", "", "", "");
  EXPECT_EQ(out, "{\"cmd\":\"LOAD\", \"url\":\"http://h/a.mp4\"}\r\n");
  ChromecastService::genMedia(out, "u", "T", "http://h/i.jpg", "http://h/s.vtt");
  EXPECT_EQ(out, "{\"cmd\":\"LOAD\", \"url\":\"u\", \"title\":\"T\", \"imageUrl\":\"http://h/i.jpg\", "
                 "\"subtitle\":\"http://h/s.vtt\"}\r\n");
  ChromecastService::genMedia(out, "u", "", "", "s");
  EXPECT_EQ(out, "{\"cmd\":\"LOAD\", \"url\":\"u\", \"subtitle\":\"s\"}\r\n");
  // Nothing a client hands in can close the string or the line.
  ChromecastService::genMedia(out, "u\"}\r\n{\"cmd\":\"CLOSE", std::string("a\\\"b\n\t\x01\x1f", 8), "", "");
  EXPECT_EQ(out, "{\"cmd\":\"LOAD\", \"url\":\"u\\\"}\\r\\n{\\\"cmd\\\":\\\"CLOSE\", "
                 "\"title\":\"a\\\\\\\"b\\n\\t\\u0001\\u001f\"}\r\n");
  EXPECT_EQ(ChromecastService::jsonEscape("Ünïcode /\x7f"), "Ünïcode /\x7f");
}

TEST(CastReply, EveryFieldOfTheAnswer) {
  ChromecastService svc;
  Response r = marked();
  EXPECT_EQ(svc.parseRetXml("<?xml version=\"1.0\"?><root><status>3</status><error>no media</error>"
                            "<duration>125.5</duration><position>12.25</position><volume>0.4</volume>"
                            "<mute>1.9</mute><state>BUFFERING</state></root>",
                            r),
            0);
  EXPECT_EQ(r.m_response, 3);
  EXPECT_EQ(r.m_errMsg, "no media");
  EXPECT_FLOAT_EQ(r.m_duration, 125.5F);
  EXPECT_FLOAT_EQ(r.m_position, 12.25F);
  EXPECT_FLOAT_EQ(r.m_volume, 0.4F);
  EXPECT_EQ(r.m_muted, 1);  // cut to an integer
  EXPECT_EQ(r.m_state, "BUFFERING");

  // Only what the answer carries is written.
  r = marked();
  EXPECT_EQ(svc.parseRetXml("<root><status>0</status><mute>true</mute></root>", r), 0);
  EXPECT_EQ(r.m_response, 0);
  EXPECT_EQ(r.m_muted, 0);  // a word is no number
  EXPECT_EQ(r.m_errMsg, "untouched");
  EXPECT_FLOAT_EQ(r.m_volume, -5);

  // Unusable answers change nothing.
  for (const char* bad : {"", "no document", "<root><error>e</error><volume>1</volume></root>",
                          "<root><status></status><volume>1</volume></root>", "<other><status>0</status></other>"}) {
    r = marked();
    EXPECT_EQ(svc.parseRetXml(bad, r), 1) << bad;
    EXPECT_EQ(r.m_response, 777) << bad;
    EXPECT_FLOAT_EQ(r.m_volume, -5) << bad;
    EXPECT_EQ(r.m_errMsg, "untouched") << bad;
  }
}

TEST_F(CastService, NothingGoesOutBeforeTheFirstLoad) {
  Response r = marked();
  EXPECT_EQ(svc->play(r), 1);
  EXPECT_EQ(svc->pause(r), 1);
  EXPECT_EQ(svc->stop(r), 1);
  EXPECT_EQ(svc->seek(r, 3), 1);
  EXPECT_EQ(svc->getPosInfo(r), 1);
  EXPECT_EQ(svc->getVolume(r), 1);
  EXPECT_EQ(svc->setVolume(r, 0.5F), 1);
  EXPECT_EQ(svc->getMute(r), 1);
  EXPECT_EQ(svc->setMute(r, true), 1);
  EXPECT_EQ(svc->_close(r), 1);
  EXPECT_EQ(r.m_response, 777);
  EXPECT_EQ(r.m_errMsg, "untouched");
  EXPECT_TRUE(sessions(root).empty());
  EXPECT_EQ(child(), -1);

  char buffer[ChromecastService::kReplySize + 1] = {0};
  EXPECT_EQ(svc->sendMessage("{ \"cmd\":\"PLAY\" }\r\n", buffer, sizeof buffer, 0), 1);
  EXPECT_STREQ(buffer, "<?xml version=\"1.0\"?><status>-1</status><error>Sender not init</error>");
}

TEST_F(CastService, EveryCommandsBytesAndItsAnswer) {
  root.write("/sim/chromecast/media", kUrl + " 125.5\n");
  Response r = marked();
  ASSERT_EQ(svc->setContentUrl(r, kUrl, "", "", ""), 0);
  EXPECT_EQ(r.m_response, 0);
  EXPECT_EQ(r.m_state, "PLAYING");
  EXPECT_FLOAT_EQ(r.m_duration, 125.5F);
  EXPECT_GE(r.m_position, 0);
  EXPECT_EQ(r.m_errMsg, "untouched");
  EXPECT_TRUE(svc->inited());
  EXPECT_TRUE(svc->launched());
  ASSERT_EQ(sessions(root).size(), 1U);
  EXPECT_EQ(sessions(root)[0], child());
  // The child's command line: node, the script, the device's address.
  ASSERT_FALSE(root.calls().empty());
  EXPECT_EQ(root.calls().back(), "node /usr/local/medialibrary/bin/nodejs/ChromecastSender.js 10.0.0.5");

  r = marked();
  EXPECT_EQ(svc->pause(r), 0);
  EXPECT_EQ(r.m_state, "PAUSED");
  r = marked();
  EXPECT_EQ(svc->seek(r, 12.5F), 0);
  EXPECT_FLOAT_EQ(r.m_position, 12.5F);
  r = marked();
  EXPECT_EQ(svc->getPosInfo(r), 0);
  EXPECT_EQ(r.m_response, 0);
  EXPECT_FLOAT_EQ(r.m_position, 12.5F);
  EXPECT_FLOAT_EQ(r.m_duration, 125.5F);
  EXPECT_EQ(r.m_state, "PAUSED");
  r = marked();
  EXPECT_EQ(svc->play(r), 0);
  EXPECT_EQ(r.m_state, "PLAYING");
  EXPECT_GE(r.m_position, 12.5F);
  r = marked();
  EXPECT_EQ(svc->setVolume(r, 0.3F), 0);
  EXPECT_FLOAT_EQ(r.m_volume, 0.3F);
  EXPECT_EQ(r.m_muted, 42);
  r = marked();
  EXPECT_EQ(svc->getVolume(r), 0);
  EXPECT_FLOAT_EQ(r.m_volume, 0.3F);
  r = marked();
  EXPECT_EQ(svc->setMute(r, true), 0);
  EXPECT_EQ(r.m_muted, 1);
  EXPECT_FLOAT_EQ(r.m_volume, -5);
  r = marked();
  EXPECT_EQ(svc->getMute(r), 0);
  EXPECT_EQ(r.m_muted, 1);
  r = marked();
  EXPECT_EQ(svc->setMute(r, false), 0);
  EXPECT_EQ(r.m_muted, 0);
  r = marked();
  EXPECT_EQ(svc->stop(r), 0);
  EXPECT_EQ(r.m_state, "IDLE");
  // A refusal of the device is its answer, not a failure of the exchange.
  r = marked();
  EXPECT_EQ(svc->seek(r, 1), 0);
  EXPECT_EQ(r.m_response, 1);
  EXPECT_EQ(r.m_errMsg, "no media loaded");

  const pid_t pid = child();
  const std::string expected = std::string(kLaunch) +
                               "{\"cmd\":\"LOAD\", \"url\":\"http://10.0.0.2:8080/v.mp4\"}\r\n"
                               "{ \"cmd\":\"PAUSE\" }\r\n"
                               "{ \"cmd\":\"SEEK\", \"seektime\":\"12.500000\" }\r\n"
                               "{ \"cmd\":\"STATUS\" }\r\n"
                               "{ \"cmd\":\"PLAY\" }\r\n"
                               "{ \"cmd\":\"SET_VOLUME\", \"volume\":\"0.300000\" }\r\n"
                               "{ \"cmd\":\"GET_VOLUME\" }\r\n"
                               "{ \"cmd\":\"SET_MUTE\", \"mute\":\"true\" }\r\n"
                               "{ \"cmd\":\"GET_MUTE\" }\r\n"
                               "{ \"cmd\":\"SET_MUTE\", \"mute\":\"false\" }\r\n"
                               "{ \"cmd\":\"STOP\" }\r\n"
                               "{ \"cmd\":\"SEEK\", \"seektime\":\"1.000000\" }\r\n";
  EXPECT_EQ(input_of(root, pid), expected);

  r = marked();
  EXPECT_EQ(svc->_close(r), 0);
  EXPECT_EQ(r.m_state, "CLOSED");
  EXPECT_EQ(input_of(root, pid), expected + "{ \"cmd\":\"CLOSE\" }\r\n");
  EXPECT_FALSE(svc->inited());
  EXPECT_FALSE(svc->launched());
  EXPECT_EQ(svc->outPipe(ChromecastService::WRITE), -1);
  EXPECT_EQ(svc->inPipe(ChromecastService::READ), -1);
  EXPECT_EQ(child(), -1);
  EXPECT_TRUE(gone(pid));
}

TEST_F(CastService, HostileTextsArriveAsOneReadableCommand) {
  const std::string title = "Say \"hi\" \\ to\r\n{\"cmd\":\"CLOSE\"}\x01";
  Response r = marked();
  ASSERT_EQ(svc->setContentUrl(r, kUrl + "?a=\"b\"", title, "http://h/i\\.jpg", "s\nt"), 0);
  // The stand-in parsed one LOAD: an unreadable line gets status 1.
  EXPECT_EQ(r.m_response, 0);
  EXPECT_EQ(r.m_state, "PLAYING");
  std::string load;
  ChromecastService::genMedia(load, kUrl + "?a=\"b\"", title, "http://h/i\\.jpg", "s\nt");
  EXPECT_EQ(input(), kLaunch + load);
  EXPECT_EQ(load.find('\n'), load.size() - 1);
}

TEST_F(CastService, PositionFollowsTheClockAndEndsAtTheDuration) {
  root.write("/sim/chromecast/media", kUrl + " 0.4\n");
  load();
  Response r = marked();
  for (int i = 0; i < 200 && r.m_state != "IDLE"; ++i) {
    ::usleep(20 * 1000);
    r = marked();
    ASSERT_EQ(svc->getPosInfo(r), 0);
    EXPECT_LE(r.m_position, 0.4F);
  }
  EXPECT_EQ(r.m_state, "IDLE");
  EXPECT_FLOAT_EQ(r.m_position, 0.4F);
  EXPECT_FLOAT_EQ(r.m_duration, 0.4F);
}

TEST_F(CastService, LostDeviceEndsTheSessionAndTheNextLoadStartsAnother) {
  load();
  const pid_t first = child();
  root.write(std::string("/sim/chromecast/") + kIp + ".lost", "");
  Response r = marked();
  EXPECT_EQ(svc->getPosInfo(r), 0);
  EXPECT_EQ(r.m_response, -1);
  EXPECT_EQ(r.m_errMsg, "connection closed");
  EXPECT_FALSE(svc->inited());
  EXPECT_FALSE(svc->launched());
  EXPECT_EQ(svc->outPipe(ChromecastService::READ), -1);
  EXPECT_EQ(svc->inPipe(ChromecastService::WRITE), -1);
  EXPECT_TRUE(gone(first));
  EXPECT_EQ(svc->play(r), 1);  // no child now

  ::unlink(root.path(std::string("/sim/chromecast/") + kIp + ".lost").c_str());
  load();
  ASSERT_EQ(sessions(root).size(), 2U);
  EXPECT_NE(child(), first);
  EXPECT_EQ(input(), std::string(kLaunch) + kLoad);
}

TEST_F(CastService, BrokenAnswersLeaveTheResponseAndSucceed) {
  load();
  fault(root, "GET_VOLUME nostatus\nGET_MUTE notext\nSTATUS garbage\n");
  for (int op = 0; op < 3; ++op) {
    Response r = marked();
    const int rc = op == 0 ? svc->getVolume(r) : op == 1 ? svc->getMute(r) : svc->getPosInfo(r);
    EXPECT_EQ(rc, 0) << op;
    EXPECT_EQ(r.m_response, 777) << op;
    EXPECT_FLOAT_EQ(r.m_volume, -5) << op;
    EXPECT_EQ(r.m_muted, 42) << op;
    EXPECT_EQ(r.m_state, "untouched") << op;
  }
  // An answer longer than a document may be is cut, never overrun.
  fault(root, "GET_VOLUME long\n");
  char buffer[ChromecastService::kReplySize + 1];
  std::memset(buffer, 'Z', sizeof buffer);
  ASSERT_EQ(svc->sendMessage("{ \"cmd\":\"GET_VOLUME\" }\r\n", buffer, sizeof buffer, 0), 0);
  EXPECT_EQ(std::strlen(buffer), ChromecastService::kReplySize);
  EXPECT_TRUE(svc->inited());
}

TEST_F(CastService, SilentChildTimesOutAndALateAnswerIsReadNext) {
  load();
  fault(root, "STATUS silent\nGET_VOLUME late 600\n");
  svc->setTiming(short_timing());
  char buffer[ChromecastService::kReplySize + 1] = {0};
  EXPECT_EQ(svc->sendMessage("{ \"cmd\":\"STATUS\" }\r\n", buffer, sizeof buffer, 0), 1);
  EXPECT_STREQ(buffer, "<?xml version=\"1.0\"?><status>0</status><error>Time out when read</error>");

  Response r = marked();
  EXPECT_EQ(svc->getVolume(r), 1);
  EXPECT_FLOAT_EQ(r.m_volume, -5);
  // Nothing is reset: the late volume answer stays in the pipe and is taken
  // as the answer of the next command.
  pollfd p{svc->inPipe(ChromecastService::READ), POLLIN, 0};
  ASSERT_EQ(::poll(&p, 1, 10000), 1);
  // Each answer from now on comes a while after its command, so that one
  // read never takes two of them.
  fault(root, "* late 200\n");
  svc->setTiming(normal_timing());
  r = marked();
  EXPECT_EQ(svc->getMute(r), 0);
  EXPECT_FLOAT_EQ(r.m_volume, 1);
  EXPECT_EQ(r.m_muted, 42);
  r = marked();
  EXPECT_EQ(svc->getPosInfo(r), 0);
  EXPECT_EQ(r.m_muted, 0);  // the mute answer, one behind
  EXPECT_TRUE(svc->inited());
}

TEST_F(CastService, DeadChildFailsByTimeOutAndIsReaped) {
  load();
  const pid_t pid = child();
  fault(root, "PAUSE die\n");
  svc->setTiming(short_timing());
  Response r = marked();
  EXPECT_EQ(svc->pause(r), 1);
  EXPECT_EQ(svc->play(r), 1);
  EXPECT_EQ(r.m_response, 777);
  EXPECT_TRUE(svc->inited());  // a time-out resets nothing
  EXPECT_EQ(svc->_close(r), 1);
  EXPECT_FALSE(svc->inited());
  EXPECT_TRUE(gone(pid));
  clear_fault(root);
  svc->setTiming(normal_timing());
  load();
  EXPECT_EQ(sessions(root).size(), 2U);
}

TEST_F(CastService, AChildThatStopsReadingFailsTheWriteInsteadOfBlockingIt) {
  load();
  fault(root, "STATUS late 1500\n");
  svc->setTiming(short_timing());
  const size_t sent = input().size();
  Response r = marked();
  EXPECT_EQ(svc->getPosInfo(r), 1);
  ASSERT_TRUE(wait_input(root, child(), sent + std::strlen("{ \"cmd\":\"STATUS\" }\r\n")));
  // The child sleeps now and reads nothing; more than a pipe holds goes down.
  char buffer[ChromecastService::kReplySize + 1] = {0};
  EXPECT_EQ(svc->sendMessage(std::string(256 * 1024, 'x'), buffer, sizeof buffer, 0), 1);
  const std::string text = buffer;
  EXPECT_TRUE(text == "<?xml version=\"1.0\"?><status>1</status><error>Write error.</error>" ||
              text.find(std::string("<error>") + std::strerror(EAGAIN)) != std::string::npos)
      << text;
}

TEST_F(CastService, FailedLaunchRefusesEverythingButClose) {
  fault(root, "LAUNCH silent\n");
  svc->setTiming(short_timing());
  Response r = marked();
  EXPECT_EQ(svc->setContentUrl(r, kUrl, "", "", ""), 1);
  EXPECT_TRUE(svc->inited());
  EXPECT_FALSE(svc->launched());
  ASSERT_TRUE(wait_input(root, child(), std::strlen(kLaunch)));
  // The word in a title does not pass for the launch command.
  EXPECT_EQ(svc->setContentUrl(r, kUrl, "LAUNCH", "", ""), 1);
  EXPECT_EQ(svc->play(r), 1);
  char buffer[ChromecastService::kReplySize + 1] = {0};
  EXPECT_EQ(svc->sendMessage("{ \"cmd\":\"STATUS\" }\r\n", buffer, sizeof buffer, 0), 1);
  EXPECT_STREQ(buffer, "<?xml version=\"1.0\"?><status>-1</status><error>Receiver is not launch</error>");
  EXPECT_EQ(input(), kLaunch);
  EXPECT_EQ(r.m_response, 777);

  const pid_t pid = child();
  EXPECT_EQ(svc->_close(r), 1);  // refused too, and still the way out
  EXPECT_EQ(input_of(root, pid), kLaunch);
  EXPECT_TRUE(gone(pid));
  EXPECT_FALSE(svc->inited());
  clear_fault(root);
  svc->setTiming(normal_timing());
  load();
  EXPECT_EQ(input(), std::string(kLaunch) + kLoad);
}

TEST_F(CastService, MissingNodeFailsTheLoadAndLeavesNothingOpen) {
  const auto before = fds_of("self");
  ASSERT_EQ(::unlink(root.path(ChromecastService::kNodePath).c_str()), 0);
  Response r = marked();
  EXPECT_NE(svc->setContentUrl(r, kUrl, "", "", ""), 0);
  EXPECT_FALSE(svc->inited());
  EXPECT_EQ(child(), -1);
  EXPECT_EQ(svc->outPipe(ChromecastService::WRITE), -1);
  EXPECT_EQ(fds_of("self"), before);
}

TEST_F(CastService, PipesReachOnlyTheSenderAndOnlyAsItsInputAndOutput) {
  load();
  const std::string down = pipe_of(svc->outPipe(ChromecastService::WRITE));
  const std::string up = pipe_of(svc->inPipe(ChromecastService::READ));
  ASSERT_EQ(down.rfind("pipe:", 0), 0U);
  ASSERT_EQ(up.rfind("pipe:", 0), 0U);
  std::set<std::string> ours;
  for (const auto& e : fds_of(std::to_string(child())))
    if (e.find(down) != std::string::npos || e.find(up) != std::string::npos) ours.insert(e);
  EXPECT_EQ(ours, (std::set<std::string>{"0 " + down, "1 " + up}));

  // Another child of the daemon sees none of them.
  FILE* other = ::popen("ls -l /proc/self/fd", "re");
  ASSERT_NE(other, nullptr);
  std::string listing;
  char line[512];
  while (std::fgets(line, sizeof line, other)) listing += line;
  ::pclose(other);
  EXPECT_NE(listing.find("pipe:"), std::string::npos);  // its own output
  EXPECT_EQ(listing.find(down), std::string::npos);
  EXPECT_EQ(listing.find(up), std::string::npos);
}

TEST_F(CastService, DestructionLeavesNoChildAndNoDescriptor) {
  const auto before = fds_of("self");
  load();
  const pid_t pid = child();
  EXPECT_NE(fds_of("self"), before);
  svc.reset();
  EXPECT_TRUE(gone(pid));
  EXPECT_EQ(fds_of("self"), before);
}

TEST_F(CastService, ASenderThatHangsOnIsKilledOnClose) {
  root.write(std::string("/sim/chromecast/") + kIp + ".stubborn", "");
  svc->setTiming({10000, 200});
  const auto before = fds_of("self");
  load();
  const pid_t pid = child();
  Response r;
  EXPECT_EQ(svc->_close(r), 0);
  EXPECT_TRUE(gone(pid));
  EXPECT_EQ(fds_of("self"), before);
}

}  // namespace
