// The road to an AirPlay device through the socket, against the real
// daemon and the simulated device: ListAirplayRender finds it by mDNS,
// SetPlaylist makes its player, and the playlist plays through with the
// device's own position reports; pause and resume at the device's rate.
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "airplay/airplayDevice.h"
#include "player/playerTestSupport.h"
#include "support/daemonHarness.h"

using testsupport::DaemonProcess;
using testsupport::node;

namespace {

const char kDev[] = "5855CA1A2B3C";  // deviceid=58:55:CA:1A:2B:3C

class AirplayRoad : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(device.start());
    root().write("/sim/avahi/_airplay._tcp.txt",
                 "=;lo;IPv4;Den\\032TV;_airplay._tcp;local;den.local;127.0.0.1;" + std::to_string(device.port()) +
                     ";\"deviceid=58:55:CA:1A:2B:3C\" \"model=AppleTV3,2\"\n");
    ASSERT_TRUE(daemon.start()) << daemon.log();
  }
  static testsupport::TestRoot& root() { return playertest::sharedRoot(); }
  std::string status(const std::string& command, const std::vector<std::pair<std::string, std::string>>& p = {}) {
    return node(daemon.command(command, p), "status");
  }
  std::string poll() { return daemon.command("GetPlayerStatus", {{"dev", kDev}}); }
  std::string until(const testsupport::replyTest_t& done, int seconds = 30) {
    return testsupport::poll_status_until(daemon, kDev, done, seconds, 100);
  }
  static testsupport::replyTest_t is(const char* path, const std::string& value) {
    return testsupport::status_is(path, value);
  }
  std::vector<std::string> bodies(const std::string& path) const {
    std::vector<std::string> out;
    for (const sim::AirplayRequest& r : device.requests())
      if (r.path == path) out.push_back(r.body);
    return out;
  }
  int count(const std::string& method, const std::string& path) const {
    int n = 0;
    for (const sim::AirplayRequest& r : device.requests()) n += r.method == method && r.path == path;
    return n;
  }

  sim::AirplayDevice device;
  DaemonProcess daemon{root().dir()};
};

TEST_F(AirplayRoad, AListedDevicePlaysItsPlaylistThrough) {
  // Two short videos the media library knows, by their library ids.
  std::string library = root().read("/sim/media.tsv");
  std::vector<std::string> contents;
  for (int i = 0; i < 2; ++i) {
    const std::string path = "/share/CACHEDEV1_DATA/Public/road/clip" + std::to_string(i) + ".mkv";
    root().write(path, "video");
    library += "ar" + std::to_string(i) + "\t77" + std::to_string(i) + "\t2\t" + path + "\t00:00:03\n";
    contents.push_back(path);
  }
  root().write("/sim/media.tsv", library);
  const std::string title = playertest::testTitle();
  playertest::makePlaylist(title, contents, CONTENT_FILE, MEDIA_VIDEO);
  device.setDefaultDuration(3);

  EXPECT_EQ("-4", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}))
      << "ListRender never lists it";
  EXPECT_EQ("0", status("ListRender"));
  EXPECT_EQ("-4", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}));
  const std::string listed = daemon.command("ListAirplayRender");
  EXPECT_EQ("0", node(listed, "status"));
  EXPECT_EQ("Den TV", node(listed, "device/deviceName"));
  ASSERT_EQ("0", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}));
  EXPECT_EQ("Den TV", node(poll(), "deviceName"));

  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  until(is("playerState", "PLAY"));
  until([this](const std::string&) { return !bodies("/play").empty() && count("GET", "/scrub") > 0; });
  const std::vector<std::string> first = bodies("/play");
  ASSERT_FALSE(first.empty());
  EXPECT_EQ(0u, first[0].find("Content-Location: http://")) << first[0];
  EXPECT_NE(std::string::npos, first[0].find("\r\nStart-Position: 0.0\r\n")) << first[0];

  ASSERT_EQ("0", status("Pause", {{"dev", kDev}}));
  EXPECT_EQ("PAUSE", node(poll(), "playerState"));
  EXPECT_EQ(0.0, device.rate());
  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  until(is("playerState", "PLAY"));
  EXPECT_EQ(1.0, device.rate());

  // The device's position reaches each clip's length: the next plays, then
  // the queue ends and the device is stopped.
  until(is("currTrack", "2"));
  until(is("playerState", "STOP"));
  EXPECT_EQ(2u, bodies("/play").size());
  EXPECT_GE(count("POST", "/stop"), 1);
  EXPECT_GE(count("GET", "/scrub"), 2);
}

}  // namespace
