// The box's own sound outputs through the socket, against the real daemon
// and Debian's real music daemon behind the appliance's adapters: list the
// outputs, hand a playlist to a free one (a busy card answers -19), play,
// pause and resume, volume and mute, and the end of the queue.
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

const char kDev[] = "ANALOG_card0";  // "Built-in Audio", card 0, device 0

class AlsaPlayback : public ::testing::Test {
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

  DaemonProcess daemon{root().dir()};
};

TEST_F(AlsaPlayback, AFreeOutputPlaysItsPlaylistThrough) {
  std::vector<std::string> tracks;
  for (int i = 0; i < 2; ++i) {
    const std::string path = "/share/Public/alsa-road/tone " + std::to_string(i) + ".wav";
    root().write(path, "");
    testsupport::write_wav(root().path(path), i == 0 ? 20 : 2);
    tracks.push_back(path);
  }
  const std::string title = playertest::testTitle();
  playertest::makePlaylist(title, tracks);
  EXPECT_EQ("0", status("ListRender", {{"renderType", "alsa"}}));

  // The USB DAC's card is open elsewhere in the sample appliance.
  EXPECT_EQ("-19", status("SetPlaylist", {{"dev", "USB_DAC_0"}, {"playlist", title}, {"appType", "music"}}));
  root().write("/proc/asound/card0/pcm0p/sub0/status", "state: RUNNING\n");
  EXPECT_EQ("-19", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}));
  root().write("/proc/asound/card0/pcm0p/sub0/status", "closed\n");
  ASSERT_EQ("0", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}));
  EXPECT_EQ("STOP", node(poll(), "playerState"));
  EXPECT_EQ("Built-in Audio", node(poll(), "deviceName"));

  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  std::string reply = until(is("playerState", "PLAY"));
  EXPECT_EQ(tracks[0], node(reply, "trackContent"));
  until([](const std::string& r) { return node(r, "currTime") >= "00:00:02"; });
  EXPECT_EQ("00:00:20", node(poll(), "totalTime"));

  EXPECT_EQ("0", status("SetVolume", {{"dev", kDev}, {"vol", "35"}}));
  EXPECT_EQ("35", node(daemon.command("GetVolume", {{"dev", kDev}}), "volume"));
  EXPECT_EQ("0", status("SetMute", {{"dev", kDev}, {"mute", "on"}}));
  EXPECT_EQ("0", node(daemon.command("GetVolume", {{"dev", kDev}}), "volume"));
  EXPECT_EQ("0", status("SetMute", {{"dev", kDev}, {"mute", "off"}}));
  EXPECT_EQ("35", node(daemon.command("GetVolume", {{"dev", kDev}}), "volume"));

  ASSERT_EQ("0", status("Pause", {{"dev", kDev}}));
  EXPECT_EQ("PAUSE", node(poll(), "playerState"));
  const std::string pausedAt = node(poll(), "currTime");
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(pausedAt, node(poll(), "currTime")) << "the daemon itself is paused";
  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  until(is("playerState", "PLAY"));

  // Near the end of the first track; the second follows, then the queue ends.
  ASSERT_EQ("0", status("Seek", {{"dev", kDev}, {"position", "00:00:18"}}));
  until(is("trackContent", tracks[1]));
  until(is("playerState", "STOP"));
  EXPECT_EQ("00:00:00", node(poll(), "currTime"));
}

// In REPEAT the queue wraps round at its end; output attributes of a
// player go to its own daemon, then the settings reload.
TEST_F(AlsaPlayback, RepeatWrapsAndAttributesReachThePlayersDaemon) {
  std::vector<std::string> tracks;
  for (int i = 0; i < 2; ++i) {
    const std::string path = "/share/Public/alsa-road/short " + std::to_string(i) + ".wav";
    root().write(path, "");
    testsupport::write_wav(root().path(path), 1);
    tracks.push_back(path);
  }
  const std::string title = playertest::testTitle();
  playertest::makePlaylist(title, tracks);
  EXPECT_EQ("0", status("ListRender", {{"renderType", "alsa"}}));
  ASSERT_EQ("0", status("SetPlaylist", {{"dev", kDev}, {"playlist", title}, {"appType", "music"}}));
  ASSERT_EQ("0", status("SetPlayMode", {{"dev", kDev}, {"playMode", "REPEAT"}}));
  ASSERT_EQ("0", status("Play", {{"dev", kDev}}));
  until(is("trackContent", tracks[1]));
  until(is("trackContent", tracks[0]));
  EXPECT_EQ("PLAY", node(poll(), "playerState"));

  root().clearCalls();
  EXPECT_EQ("0", status("SetAttributes", {{"dev", kDev}, {"attr", "SAMPLERATE=48000,DSDPASS=Disable"}}));
  std::vector<std::string> client;
  for (const std::string& c : root().calls())
    if (c.find("setoutputattr") != std::string::npos || c.find("reloadsettings") != std::string::npos)
      client.push_back(c.substr(c.find(" -p ")));
  ASSERT_EQ(2u, client.size());
  EXPECT_NE(" -p 8893 setoutputattr 'Built-in Audio' 0 48000", client[0]) << "the player's own port";
  EXPECT_NE(std::string::npos, client[0].find(" setoutputattr 'Built-in Audio' 0 48000"));
  EXPECT_EQ(" -p 8893 reloadsettings", client[1]);
  ASSERT_EQ("0", status("Stop", {{"dev", kDev}}));
  EXPECT_EQ("STOP", node(poll(), "playerState"));
}

}  // namespace
