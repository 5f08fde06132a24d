// A Chromecast found by mDNS, through the socket: listed, given a playlist,
// played on the device script's simulated device, paused and stopped.
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "player/playerTestSupport.h"
#include "support/daemonHarness.h"
#include "support/testRoot.h"

using testsupport::DaemonProcess;
using testsupport::node;

namespace {

// The sample appliance's "Living Room TV" (ROOT/sim/avahi/_googlecast._tcp.txt).
const char kDev[] = "4f2a9c3e11d04e6a";

class ChromecastPlayback : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(daemon.start()) << daemon.log(); }
  static testsupport::TestRoot& root() { return playertest::sharedRoot(); }

  std::string status(const std::string& command, const std::vector<std::pair<std::string, std::string>>& p = {}) {
    return node(daemon.command(command, p), "status");
  }
  std::string poll() { return daemon.command("GetPlayerStatus", {{"dev", kDev}}); }
  std::string until(const testsupport::replyTest_t& done, int seconds = 30) {
    return testsupport::poll_status_until(daemon, kDev, done, seconds, 200);
  }
  static testsupport::replyTest_t is(const char* path, const std::string& value) {
    return testsupport::status_is(path, value);
  }
  std::string deviceState() { return root().read(std::string("/sim/vexairplay/") + kDev + ".state"); }

  DaemonProcess daemon{root().dir()};
};

TEST_F(ChromecastPlayback, ListedDevicePlaysItsPlaylist) {
  const std::string path = "/share/CACHEDEV1_DATA/Public/castroad/film.mkv";
  root().write(path, "x");
  root().write("/sim/media.tsv", root().read("/sim/media.tsv") + "ocr1\t8801\t2\t" + path + "\t00:00:40\n");
  root().write("/sim/hls-media.tsv", path + "\th264\taac\n");
  const std::string title = playertest::testTitle();
  playertest::makePlaylist(title, {path}, CONTENT_FILE, MEDIA_VIDEO);

  const std::string listed = daemon.command("ListRender");
  ASSERT_EQ("0", node(listed, "status"));
  ASSERT_NE(std::string::npos, listed.find(kDev));
  ASSERT_EQ("0", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}));
  EXPECT_EQ("STOP", node(poll(), "playerState"));

  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  until(is("playerState", "PLAY"));
  until([](const std::string& r) { return node(r, "currTime") >= "00:00:01"; });
  EXPECT_EQ("00:00:40", node(poll(), "totalTime"));
  EXPECT_NE(std::string::npos, deviceState().find("url=http://127.0.0.1:8200/MediaItems/8801.mkv?client=ChromeCast,tid="));
  EXPECT_NE(std::string::npos, deviceState().find("state=PLAYING"));

  ASSERT_EQ("0", status("Pause", {{"dev", kDev}}));
  EXPECT_EQ("PAUSE", node(poll(), "playerState"));
  EXPECT_NE(std::string::npos, deviceState().find("state=PAUSED"));
  ASSERT_EQ("0", status("Stop", {{"dev", kDev}}));
  until(is("playerState", "STOP"));
  EXPECT_NE(std::string::npos, deviceState().find("state=STOPPED"));
}

}  // namespace
