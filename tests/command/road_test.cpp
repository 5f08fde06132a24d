// The road a front-end takes, through the socket against the real daemon
// and a simulated DLNA renderer: list the devices, hand a playlist to the
// renderer, play it, poll the status while the tracks advance by
// themselves in each play mode; pause and resume from both ends; a command
// on a player that is inside another one; a renderer that leaves the
// listings and comes back.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "player/playerTestSupport.h"
#include "support/daemonHarness.h"

using testsupport::DaemonProcess;
using testsupport::node;

namespace {

const char kDev[] = "uuid:road-1";
const char kDevices[] =
    "<root><status>success</status><device><deviceId>uuid:road-1</deviceId><deviceName>Road TV</deviceName>"
    "<type>video,photo,audio</type><ip>127.0.0.1</ip></device></root>";

class Road : public ::testing::Test {
 protected:
  void SetUp() override {
    root().write("/sim/dlna-devices.xml", kDevices);
    root().write("/sim/renderers/.keep", "");
    ASSERT_TRUE(daemon.start()) << daemon.log();
  }
  void TearDown() override {
    // The renderer starts afresh for the next test.
    std::system(("rm -rf '" + root().path("/sim/renderers") + "'").c_str());
  }
  static testsupport::TestRoot& root() { return playertest::sharedRoot(); }

  // A playlist of short tracks known to the media library, in the store.
  std::string playlist(const std::vector<std::pair<std::string, std::string>>& tracks) {
    std::string library = root().read("/sim/media.tsv");
    std::vector<std::string> contents;
    int n = 0;
    for (const auto& t : tracks) {
      const std::string path = "/share/CACHEDEV1_DATA/Public/" + t.first;
      root().write(path, "data");
      ++n;
      library += "r" + std::to_string(n) + "\t9" + std::to_string(n) + "\t0\t" + path + "\t" + t.second + "\n";
      contents.push_back(path);
    }
    root().write("/sim/media.tsv", library);
    const std::string title = playertest::testTitle();
    playertest::makePlaylist(title, contents);
    return title;
  }
  std::string status(const std::string& command, const std::vector<std::pair<std::string, std::string>>& p = {}) {
    return node(daemon.command(command, p), "status");
  }
  std::string poll() { return daemon.command("GetPlayerStatus", {{"dev", kDev}}); }
  // Polls until `done` holds for the status reply; the last reply either way.
  std::string until(const testsupport::replyTest_t& done, int seconds = 30) {
    return testsupport::poll_status_until(daemon, kDev, done, seconds, 200);
  }
  static testsupport::replyTest_t is(const char* path, const std::string& value) {
    return testsupport::status_is(path, value);
  }
  // The files handed to the renderer, in order.
  std::vector<std::string> loads() {
    std::vector<std::string> out;
    for (const std::string& line : root().calls()) {
      if (line.find("setAvTransportUrl") == std::string::npos) continue;
      const size_t at = line.find("Public/");
      if (at != std::string::npos) out.push_back(line.substr(at + 7, line.find(' ', at) - at - 7));
    }
    return out;
  }
  void press(const char* button) {
    const std::string line = root().path("/usr/bin/brelctl") + " --sim press " + kDev + " " + button;
    ASSERT_EQ(0, std::system(line.c_str()));
  }
  void listAndSet(const std::string& title) {
    EXPECT_EQ("0", status("ListRender"));
    ASSERT_EQ("0", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}));
  }

  DaemonProcess daemon{root().dir()};
};

TEST_F(Road, AListedRendererPlaysItsPlaylistThroughAndStops) {
  const std::string title = playlist({{"n1.mp3", "00:00:03"}, {"n2.mp3", "00:00:03"}});
  EXPECT_EQ("-4", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}))
      << "not listed yet";
  listAndSet(title);
  std::string reply = poll();
  EXPECT_EQ("STOP", node(reply, "playerState"));
  EXPECT_EQ("1", node(reply, "currTrack"));
  EXPECT_EQ("2", node(reply, "totalTracks"));
  EXPECT_EQ("Road TV", node(reply, "deviceName"));
  const std::string players = daemon.command("ListPlayer");
  EXPECT_EQ(kDev, node(players, "player/renderID"));

  root().clearCalls();
  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  reply = until(is("playerState", "PLAY"));
  EXPECT_EQ("/share/CACHEDEV1_DATA/Public/n1.mp3", node(reply, "trackContent"));
  until(is("currTrack", "2"));
  until(is("playerState", "STOP"));
  EXPECT_EQ((std::vector<std::string>{"n1.mp3", "n2.mp3"}), loads()) << "NORMAL ends after the last track";
  EXPECT_EQ("-4", status("Play", {{"dev", "uuid:nobody"}}));
}

TEST_F(Road, EachPlayModeChoosesTheNextTrack) {
  const std::string title = playlist({{"m1.mp3", "00:00:03"}, {"m2.mp3", "00:00:03"}, {"m3.mp3", "00:00:03"}});
  listAndSet(title);

  // REPEAT wraps round after the last track.
  ASSERT_EQ("0", status("SetPlayMode", {{"dev", kDev}, {"playMode", "REPEAT"}}));
  ASSERT_EQ("0", status("SetTrack", {{"dev", kDev}, {"track", "1"}}));
  until(is("currTrack", "3"));
  until(is("currTrack", "1"));
  EXPECT_EQ("REPEAT", node(poll(), "playMode"));

  // REPEAT_ONE plays the same track again.
  ASSERT_EQ("0", status("SetPlayMode", {{"dev", kDev}, {"playMode", "REPEAT_ONE"}}));
  ASSERT_EQ("0", status("Stop", {{"dev", kDev}}));
  root().clearCalls();
  ASSERT_EQ("0", status("SetTrack", {{"dev", kDev}, {"track", "1"}}));
  until([this](const std::string&) { return loads().size() >= 3; });
  const std::vector<std::string> again = loads();
  ASSERT_LE(3u, again.size());
  EXPECT_EQ((std::vector<std::string>{"m2.mp3", "m2.mp3", "m2.mp3"}),
            std::vector<std::string>(again.begin(), again.begin() + 3));

  // SHUFFLE visits every track once, then stops.
  ASSERT_EQ("0", status("Stop", {{"dev", kDev}}));
  ASSERT_EQ("0", status("SetPlayMode", {{"dev", kDev}, {"playMode", "NORMAL"}}));
  ASSERT_EQ("0", status("SetPlayMode", {{"dev", kDev}, {"playMode", "SHUFFLE"}}));
  root().clearCalls();
  ASSERT_EQ("0", status("SetTrack", {{"dev", kDev}, {"track", "0"}}));
  // Tracks this short may end before the renderer's state is next read.
  until([this](const std::string&) { return !loads().empty(); });
  until(is("playerState", "STOP"), 40);
  std::vector<std::string> seen = loads();
  std::sort(seen.begin(), seen.end());
  seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
  EXPECT_LE(1u, seen.size());
  EXPECT_EQ(seen.size(), loads().size()) << "no track twice";
}

TEST_F(Road, PauseAndResumeFromTheClientAndFromTheRenderer) {
  const std::string title = playlist({{"long.mp3", "00:05:00"}});
  listAndSet(title);
  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  until(is("playerState", "PLAY"));
  ASSERT_EQ("0", status("Pause", {{"dev", kDev}}));
  EXPECT_EQ("PAUSE", node(poll(), "playerState"));
  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  until(is("playerState", "PLAY"));

  // Paused at the device with more than fifteen seconds left: the player
  // parks; play pressed there resumes it.
  until([](const std::string& r) { return node(r, "currTime") != "00:00:00"; });
  press("pause");
  until(is("playerState", "PAUSE"));
  press("play");
  until(is("playerState", "PLAY"));
  press("stop");
  until(is("playerState", "STOP"));
  EXPECT_EQ("0", status("SetVolume", {{"dev", kDev}, {"vol", "33"}}));
  EXPECT_EQ("33", node(daemon.command("GetVolume", {{"dev", kDev}}), "volume"));
  EXPECT_EQ("0", status("SetMute", {{"dev", kDev}, {"mute", "on"}}));
  EXPECT_EQ("on", node(daemon.command("GetMute", {{"dev", kDev}}), "mute"));
  EXPECT_EQ("0", status("SetMute", {{"dev", kDev}, {"mute", "off"}}));
  EXPECT_EQ("33", node(daemon.command("GetVolume", {{"dev", kDev}}), "volume"));
}

TEST_F(Road, ACommandOnAPlayerInsideAnotherIsAnsweredBusy) {
  const std::string title = playlist({{"b1.mp3", "00:05:00"}});
  listAndSet(title);
  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  until([](const std::string& r) { return node(r, "currTime") != "00:00:00"; });
  // The renderer answers Busy to the next loads: the seek retries inside
  // the player for seconds, holding it.
  const std::string set = root().path("/usr/bin/brelctl") + " --sim set " + kDev + " busy 4";
  ASSERT_EQ(0, std::system(set.c_str()));
  auto seeking = std::async(std::launch::async, [this] {
    DaemonProcess* d = &daemon;
    return node(d->command("Seek", {{"dev", kDev}, {"position", "00:01:00"}}), "status");
  });
  bool busy = false;
  while (!busy && seeking.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready)
    busy = status("GetPlayerStatus", {{"dev", kDev}}) == "-19";
  EXPECT_TRUE(busy);
  EXPECT_EQ("0", seeking.get());
  EXPECT_EQ("0", status("GetPlayerStatus", {{"dev", kDev}}));
}

// Slow by nature: about a minute of ten-second scans and listing caches.
TEST_F(Road, SlowARendererGoneFromTheListingsIsParkedAndTakenBack) {
  const std::string title = playlist({{"p1.mp3", "00:05:00"}});
  listAndSet(title);
  const auto listed = std::chrono::steady_clock::now();
  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  until(is("playerState", "PLAY"));

  // A listing without the renderer, once the listing's own cache is stale.
  root().write("/sim/dlna-devices.xml", "<root><status>success</status></root>");
  std::this_thread::sleep_until(listed + std::chrono::seconds(11));
  EXPECT_EQ("0", status("ListRender"));
  const auto gone = [this](int seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) {
      if (node(daemon.command("ListPlayer"), "player/renderID") == "<none>") return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    return false;
  };
  ASSERT_TRUE(gone(70)) << "parked at the fourth scan";
  EXPECT_TRUE(daemon.waitForLog("Cache hit fail, and it faile 4 times."));
  EXPECT_EQ("-4", status("Play", {{"dev", kDev}}));
  EXPECT_EQ("-4", status("GetPlayerStatus", {{"dev", kDev}}));

  // Asked for again, the same player comes back with its playlist.
  ASSERT_EQ("0", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}));
  EXPECT_TRUE(daemon.waitForLog(">>>> get player(uuid:road-1) from m_playerReclaimCacheVec"));
  const std::string reply = poll();
  EXPECT_EQ(title, node(reply, "playlistTitle"));
  EXPECT_EQ("STOP", node(reply, "playerState"));
}

}  // namespace
