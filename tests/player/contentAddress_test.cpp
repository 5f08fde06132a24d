// Content addressing through the media library's agent, checked against the
// simulated agent's call log: the exact command lines, what comes back, and
// that hostile text never reaches a shell.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "playerTestSupport.h"

using playertest::CRecordingPlayer;
using playertest::sharedRoot;
using Calls = std::vector<std::string>;

namespace {

const std::string kMovie = "/share/CACHEDEV1_DATA/Multimedia/Movies/Big Trip.mkv";
const std::string kCafe = "/share/CACHEDEV1_DATA/Multimedia/Movies/Café Nuit.mp4";

class AgentTest : public ::testing::Test {
 protected:
  void SetUp() override { sharedRoot().clearCalls(); }
  void TearDown() override {
    for (const char* cmd : {"getFilePath", "browse"})
      ::unlink(sharedRoot().path(std::string("/sim/brelctl/") + cmd + ".reply").c_str());
  }
  Calls calls() { return sharedRoot().calls(); }
  void cannedReply(const std::string& command, const std::string& text) {
    sharedRoot().write("/sim/brelctl/" + command + ".reply", text);
  }
};

}  // namespace

TEST_F(AgentTest, LookupsSendTheirLinesAndReadTheirNodes) {
  std::string id, path, url, xml;
  int start = -5, duration = -5;
  EXPECT_EQ(0, CPlayer::dbIDToUpnpObjectID("1001", MEDIA_VIDEO, id));
  EXPECT_EQ("v1001", id);
  EXPECT_EQ(0, CPlayer::upnpObjectToFilePath("v1001", path));
  EXPECT_EQ(kMovie, path);
  EXPECT_EQ(0, CPlayer::upnpObjectToFilePath("v1002", path, start, duration));
  EXPECT_EQ(95, start);
  EXPECT_EQ(2890, duration);
  // A blank and a non-ASCII letter: escaped, unquoted, one word for the agent.
  EXPECT_EQ(0, CPlayer::filePathToObjectID(kCafe, id));
  EXPECT_EQ("v1002", id);
  EXPECT_EQ(0, CPlayer::upnpObjectToUrl("a2001", url, "ChromeCast", "eth0"));
  EXPECT_EQ("http://127.0.0.1:8200/MediaItems/2001.mp3?client=ChromeCast", url);
  EXPECT_EQ(0, CPlayer::upnpObjectToUrl("a2001", url, nullptr, ""));  // the option, with nothing behind
  // Browse: -1 alone leaves a number out, an empty interface leaves it out.
  EXPECT_EQ(0, CPlayer::browseByUpnpObjectID("v1001", xml, "ChromeCast", 0, -1, ""));
  EXPECT_NE(std::string::npos, xml.find("<dc:title>Big Trip</dc:title>"));
  EXPECT_EQ(0, CPlayer::browseByDbID("3001", MEDIA_PHOTO, xml, "AppleTV", 5, 10, "eth1"));
  EXPECT_EQ(0, CPlayer::dbIDToUrl("2002", MEDIA_AUDIO, url, nullptr, nullptr));
  EXPECT_EQ("http://127.0.0.1:8200/MediaItems/2002.flac", url);
  EXPECT_EQ((Calls{"/usr/bin/brelctl -c getObjectID --dbID 1001 --mediaType 2",
                   "/usr/bin/brelctl -c getFilePath --objectID v1001",
                   "/usr/bin/brelctl -c getFilePath --objectID v1002",
                   "/usr/bin/brelctl -c getObjectID --filePath '" + kCafe + "'",
                   "/usr/bin/brelctl -c getContentUrl --objectID a2001 --clientType ChromeCast --interface eth0",
                   "/usr/bin/brelctl -c getContentUrl --objectID a2001 --interface",
                   "/usr/bin/brelctl -c browse --objectID v1001 --browseFlag BrowseMetadata --clientType ChromeCast "
                   "--startingIndex 0",
                   "/usr/bin/brelctl -c getObjectID --dbID 3001 --mediaType 1",
                   "/usr/bin/brelctl -c browse --objectID p3001 --browseFlag BrowseMetadata --clientType AppleTV "
                   "--startingIndex 5 --requestedCount 10 --interface eth1",
                   "/usr/bin/brelctl -c getObjectID --dbID 2002 --mediaType 0",
                   "/usr/bin/brelctl -c getContentUrl --objectID a2002"}),
            calls());

  // A failed first step runs nothing more.
  sharedRoot().clearCalls();
  path = "unchanged";
  EXPECT_EQ(-1, CPlayer::dbIDtToFilePath("9999", MEDIA_VIDEO, path));
  EXPECT_EQ(-1, CPlayer::browseByFilePath("/share/Public/none.mp4", xml, nullptr, -1, -1, nullptr));
  EXPECT_EQ("unchanged", path);
  EXPECT_EQ(2u, calls().size());
}

TEST_F(AgentTest, BadCutAndPartialReplies) {
  std::string path = "unchanged";
  int start = -5, duration = -5;
  for (const char* reply : {"<root><filePath></filePath></root>", "<root><status>failed</status></root>",
                            "agent: no such object\n", ""}) {
    cannedReply("getFilePath", reply);
    EXPECT_EQ(-1, CPlayer::upnpObjectToFilePath("v1001", path)) << reply;
    EXPECT_EQ("unchanged", path);
  }
  EXPECT_EQ(-1, CPlayer::upnpObjectToFilePath("v1001", path, start, duration));  // "" is no document
  cannedReply("getFilePath", "<root><status>failed</status></root>");
  EXPECT_EQ(0, CPlayer::upnpObjectToFilePath("v1001", path, start, duration));  // every value optional
  EXPECT_EQ("unchanged", path);
  EXPECT_EQ(-5, start);

  // A reply is one read of 4096 bytes: what lies behind is never seen.
  cannedReply("getFilePath", "<root><filePath>/x.mkv</filePath><pad>" + std::string(5000, 'p') +
                                 "</pad><duration>7</duration></root>");
  EXPECT_EQ(0, CPlayer::upnpObjectToFilePath("v1001", path, start, duration));
  EXPECT_EQ("/x.mkv", path);
  EXPECT_EQ(-5, duration);
  cannedReply("browse", std::string(6000, 'b'));
  std::string xml;
  EXPECT_EQ(0, CPlayer::browseByUpnpObjectID("v1001", xml, nullptr, -1, -1, nullptr));
  EXPECT_EQ(4096u, xml.size());
}

TEST_F(AgentTest, FileUrlsUseThePathResolvedOnDisk) {
  std::string real, url;
  ASSERT_EQ(0, CPlayer::getRealFilePath("/share/Multimedia/Music/Song One.mp3", real));
  EXPECT_EQ(sharedRoot().dir() + "/share/CACHEDEV1_DATA/Multimedia/Music/Song One.mp3", real);
  EXPECT_EQ(0, CPlayer::filePathToUrl("/share/Multimedia/Music/Song One.mp3", url, "ChromeCast", nullptr));
  EXPECT_EQ("http://127.0.0.1:8200/MediaItems/2001.mp3?client=ChromeCast", url);
  // Unresolvable: the agent is asked for an empty path.
  EXPECT_EQ(-1, CPlayer::getRealFilePath("/share/Multimedia/none/x.mp3", real));
  EXPECT_EQ(-1, CPlayer::filePathToUrl("/share/Multimedia/none/x.mp3", url, nullptr, nullptr));
  EXPECT_EQ((Calls{"/usr/bin/brelctl -c getContentUrl --filePath '/share/CACHEDEV1_DATA/Multimedia/Music/Song "
                   "One.mp3' --clientType ChromeCast",
                   "/usr/bin/brelctl -c getContentUrl --filePath ''"}),
            calls());
}

TEST_F(AgentTest, HostileTextRunsNothing) {
  std::string out = "unchanged", xml;
  int a = 0, b = 0;
  const std::string quoteBreak = "v1001' ; touch /tmp/owned ; echo '";
  EXPECT_EQ(-1, CPlayer::dbIDToUpnpObjectID(quoteBreak, MEDIA_VIDEO, out));
  EXPECT_EQ(-1, CPlayer::upnpObjectToFilePath(quoteBreak, out, a, b));
  EXPECT_EQ(-1, CPlayer::upnpObjectToUrl(quoteBreak, out, nullptr, nullptr));
  EXPECT_EQ(-1, CPlayer::browseByUpnpObjectID(quoteBreak, xml, nullptr, -1, -1, nullptr));
  // What the path escaping leaves special must not stand bare.
  EXPECT_EQ(-1, CPlayer::filePathToObjectID("/share/a|reboot.mp3", out));
  EXPECT_EQ(-1, CPlayer::filePathToObjectID("/share/a\nreboot.mp3", out));
  // Client types and interfaces stand bare too.
  EXPECT_EQ(-1, CPlayer::upnpObjectToUrl("a2001", out, "ChromeCast;reboot", nullptr));
  EXPECT_EQ(-1, CPlayer::upnpObjectToUrl("a2001", out, nullptr, "eth0&&reboot"));
  EXPECT_EQ(-1, CPlayer::browseByUpnpObjectID("v1001", xml, "$(reboot)", -1, -1, nullptr));
  EXPECT_EQ(-1, CPlayer::browseByUpnpObjectID("v1001", xml, nullptr, -1, -1, "`reboot`"));
  EXPECT_EQ("unchanged", out);
  EXPECT_TRUE(calls().empty());

  // Escaped shell characters reach the agent as plain text.
  EXPECT_EQ(-1, CPlayer::filePathToObjectID("/share/$(reboot) & co;.mp3", out));
  EXPECT_EQ(Calls{"/usr/bin/brelctl -c getObjectID --filePath '/share/$(reboot) & co;.mp3'"}, calls());
}

TEST_F(AgentTest, DurationOfEachKindOfElement) {
  CRecordingPlayer p;
  playlistElm_s elm;
  elm.contentType = CONTENT_FILE;
  elm.content = kMovie;
  p.setTotalTime(elm);
  EXPECT_EQ("01:42:05", p.getTotalTime());
  elm.contentType = CONTENT_DBID;
  elm.mediaType = MEDIA_VIDEO;
  elm.content = "1002";
  p.setTotalTime(elm);
  EXPECT_EQ("00:48:10", p.getTotalTime());
  elm.contentType = CONTENT_OBJECT;
  elm.content = "v404";
  p.setTotalTime(elm);
  EXPECT_EQ("00:00:00", p.getTotalTime());
  elm.content = "v1' ; reboot ; '";
  p.setTotalTime(elm);
  EXPECT_EQ((Calls{"/usr/local/medialibrary/bin/tovufix getDuration --filePath '" + kMovie + "'",
                   "/usr/bin/brelctl -c getObjectID --dbID 1002 --mediaType 2",
                   "/usr/bin/brelctl -c getFilePath --objectID v1002",
                   "/usr/local/medialibrary/bin/tovufix getDuration --filePath '" + kCafe + "'",
                   "/usr/bin/brelctl -c getFilePath --objectID v404"}),
            calls());
}
