// AirPlay audio speakers through the socket, against the real daemon and the
// streamer stand-in: ListAirplayRender lists the speakers and caches the
// playable ones, SetPlaylist makes the speaker player, Play starts the child
// with its argument vector, and the datagrams it receives are read from the
// stand-in's log. The player's waits are the appliance's own (a second a
// pass), so the tracks are a few seconds long.
#include <dirent.h>
#include <sys/stat.h>

#include <cctype>
#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/xmlParser.h"
#include "support/daemonHarness.h"
#include "support/testRoot.h"

using testsupport::DaemonProcess;
using testsupport::node;
using Params = std::vector<std::pair<std::string, std::string>>;

namespace {

const char kSpeakers[] =
    "=;eth0;IPv4;AABBCCDDEE01@Kitchen;_raop._tcp;local;k.local;10.0.0.21;5000;\"txtvers=1\" \"cn=0,1\" "
    "\"et=0,3,5\" \"md=0,1,2\"\n"
    "=;wlan0;IPv4;AABBCCDDEE01@Kitchen;_raop._tcp;local;k.local;10.0.0.21;5000;\"cn=0,1\" \"et=0,3,5\"\n"
    "=;eth0;IPv4;AABBCCDDEE02@Study\\032Room;_raop._tcp;local;s.local;10.0.0.22;7000;\"cn=0,1,2,3\" \"et=0,1\"\n"
    "=;eth0;IPv4;AABBCCDDEE03@Old\\032Radio;_raop._tcp;local;r.local;10.0.0.23;5000;\"cn=1\" \"et=1\"\n"
    "+;eth0;IPv4;AABBCCDDEE04@Unresolved;_raop._tcp;local\n";

const char kProgram[] = "/usr/local/medialibrary/bin/raop_play";

bool proc_exists(int pid) {
  struct stat st {};
  return ::stat(("/proc/" + std::to_string(pid)).c_str(), &st) == 0;
}

class RaopPlayback : public ::testing::Test {
 protected:
  void SetUp() override {
    root.write("/sim/avahi/_raop._tcp.txt", kSpeakers);
    ASSERT_TRUE(daemon.start()) << daemon.log();
  }

  std::string status(const std::string& command, const Params& p = {}) {
    return node(daemon.command(command, p), "status");
  }
  std::string poll(const std::string& dev) { return daemon.command("GetPlayerStatus", {{"dev", dev}}); }
  bool waitFor(const std::function<bool()>& done, int seconds = 30) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!done()) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return true;
  }

  // Library items of the object ids `ids`, files under /share/Public/raop/
  // with those names, lasting `duration`; then a playlist of them.
  void lay(const std::string& title, const std::vector<std::pair<std::string, std::string>>& items,
           const std::string& duration) {
    std::string tsv = root.read("/sim/media.tsv");
    for (const auto& item : items) {
      const std::string path = "/share/Public/raop/" + item.second;
      root.write(path, "ID3");
      tsv.append(item.first).append("\t9").append(item.first).append("\t0\t").append(path);
      tsv.append("\t").append(duration).append("\n");
    }
    root.write("/sim/media.tsv", tsv);
    ASSERT_EQ("0", status("CreatePlaylist", {{"playlist", title}, {"playlistType", "audio"}, {"appType", "music"},
                                             {"owner", "bob"}}));
    for (const auto& item : items)
      ASSERT_EQ("0", status("AddContent", {{"playlist", title}, {"appType", "music"}, {"contentType", "object"},
                                           {"mediaType", "audio"}, {"content", item.first}}));
  }

  // The stand-in's datagrams, "<pid> <text>", with the root taken out.
  std::vector<std::string> datagrams() const {
    std::vector<std::string> out;
    std::istringstream in(root.read("/sim/raop_play/datagrams.log"));
    std::string line;
    while (std::getline(in, line)) {
      for (size_t at; (at = line.find(root.dir())) != std::string::npos;) line.erase(at, root.dir().size());
      out.push_back(line);
    }
    return out;
  }
  // The pid of the child that received `text` (the `nth` time), 0 when none
  // did within the wait.
  int waitDatagram(const std::string& text, size_t nth = 1, int seconds = 30) {
    int pid = 0;
    waitFor(
        [&] {
          size_t seen = 0;
          for (const std::string& d : datagrams()) {
            const size_t blank = d.find(' ');
            if (blank != std::string::npos && d.substr(blank + 1) == text && ++seen == nth) {
              pid = std::stoi(d.substr(0, blank));
              return true;
            }
          }
          return false;
        },
        seconds);
    return pid;
  }
  std::vector<std::string> childCalls() const {
    std::vector<std::string> out;
    for (const std::string& c : root.calls())
      if (c.compare(0, sizeof kProgram - 1, kProgram) == 0) out.push_back(c);
    return out;
  }

  testsupport::TestRoot root{false};
  DaemonProcess daemon{root.dir()};
};

TEST_F(RaopPlayback, SpeakersAreListedAndOnlyThePlayableOnesCached) {
  const std::string reply = daemon.command("ListAirplayRender");
  XMLNode top = XMLNode::parseString(reply.c_str(), "root", nullptr);
  ASSERT_EQ(3, top.nChildNode("device")) << reply;  // the second interface counts once
  XMLNode kitchen = top.getChildNode("device", 0);
  EXPECT_STREQ("Raop", kitchen.getAttribute("Type"));
  EXPECT_STREQ("AABBCCDDEE01", kitchen.getChildNode("deviceId").getText());
  EXPECT_STREQ("Kitchen", kitchen.getChildNode("deviceName").getText());
  EXPECT_STREQ("10.0.0.21", kitchen.getChildNode("ip").getText());
  EXPECT_STREQ("eth0", kitchen.getChildNode("ip").getAttribute("interface"));
  XMLNode type = kitchen.getChildNode("type");
  EXPECT_STREQ("audio", type.getText());
  EXPECT_STREQ("raop", type.getAttribute("protocol"));
  EXPECT_STREQ("5000", type.getAttribute("port"));
  EXPECT_STREQ("no", type.getAttribute("et"));
  EXPECT_STREQ("pcm", type.getAttribute("cn"));
  EXPECT_STREQ("v3_menu/multizone/airplay", kitchen.getChildNode("icon").getText());
  EXPECT_STREQ("remote", kitchen.getChildNode("location").getText());
  XMLNode study = top.getChildNode("device", 1);
  EXPECT_STREQ("Study Room", study.getChildNode("deviceName").getText());
  EXPECT_STREQ("rsa", study.getChildNode("type").getAttribute("et"));
  XMLNode radio = top.getChildNode("device", 2);
  EXPECT_STREQ("notSupport", radio.getChildNode("type").getAttribute("cn"));

  // The radio cannot take PCM: listed, but it gets no player.
  lay("Radio", {{"q1", "radio.mp3"}}, "00:00:03");
  EXPECT_EQ("-4", status("SetPlaylist", {{"dev", "AABBCCDDEE03"}, {"playlist", "Radio"}, {"appType", "music"}}));
  EXPECT_EQ("0", status("SetPlaylist", {{"dev", "AABBCCDDEE01"}, {"playlist", "Radio"}, {"appType", "music"}}));
  EXPECT_TRUE(childCalls().empty()) << "the child starts with the first Play";
}

// Unencrypted speaker: "-e". The first track, its clock reaching the length
// and the next track (REPEAT), volume, seek, pause and resume, then Stop:
// "quit", the child reaped and its file removed.
TEST_F(RaopPlayback, PlaysThroughTheChildFromTrackToTrack) {
  lay("Kitchen", {{"k1", "one.mp3"}, {"k2", "two.mp3"}}, "00:00:03");
  ASSERT_EQ("0", status("ListAirplayRender"));
  ASSERT_EQ("0", status("SetPlaylist", {{"dev", "AABBCCDDEE01"}, {"playlist", "Kitchen"}, {"appType", "music"}}));
  ASSERT_EQ("0", status("SetPlayMode", {{"dev", "AABBCCDDEE01"}, {"playMode", "REPEAT"}}));
  ASSERT_EQ("0", status("Play", {{"dev", "AABBCCDDEE01"}}));
  ASSERT_EQ(std::vector<std::string>{std::string(kProgram) + " -i --port 5000 -e 10.0.0.21"}, childCalls());

  const int pid = waitDatagram("file /share/Public/raop/one.mp3");
  ASSERT_NE(0, pid) << daemon.log();
  EXPECT_TRUE(waitFor([&] { return node(poll("AABBCCDDEE01"), "totalTime") == "00:00:03"; }));
  EXPECT_EQ("PLAY", node(poll("AABBCCDDEE01"), "playerState"));
  // The clock reaches the length: the next track on the same child.
  EXPECT_EQ(pid, waitDatagram("file /share/Public/raop/two.mp3"));
  EXPECT_TRUE(waitFor([&] { return node(poll("AABBCCDDEE01"), "trackContent") == "k2"; }));
  EXPECT_EQ(pid, waitDatagram("state"));

  EXPECT_EQ("0", status("SetVolume", {{"dev", "AABBCCDDEE01"}, {"vol", "40"}}));
  EXPECT_EQ(pid, waitDatagram("volume 40", 1, 10));
  EXPECT_EQ("40", node(daemon.command("GetVolume", {{"dev", "AABBCCDDEE01"}}), "volume"));
  EXPECT_EQ("0", status("Seek", {{"dev", "AABBCCDDEE01"}, {"position", "00:00:02"}}));
  EXPECT_EQ(pid, waitDatagram("seek 2", 1, 10));

  ASSERT_EQ("0", status("Pause", {{"dev", "AABBCCDDEE01"}}));
  EXPECT_EQ(pid, waitDatagram("pause", 1, 10));
  EXPECT_EQ("PAUSE", node(poll("AABBCCDDEE01"), "playerState"));
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));  // the loop parks at its next pass
  const std::string pausedAt = node(poll("AABBCCDDEE01"), "currTime");
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(pausedAt, node(poll("AABBCCDDEE01"), "currTime")) << "the clock stands while paused";
  ASSERT_EQ("0", status("Play", {{"dev", "AABBCCDDEE01"}}));
  EXPECT_EQ(pid, waitDatagram("play", 1, 10));
  EXPECT_EQ("PLAY", node(poll("AABBCCDDEE01"), "playerState"));

  ASSERT_EQ("0", status("Stop", {{"dev", "AABBCCDDEE01"}}));
  EXPECT_EQ(pid, waitDatagram("quit", 1, 10));
  EXPECT_FALSE(proc_exists(pid)) << "the child is reaped by the time Stop answers";
  EXPECT_FALSE(root.exists("/tmp/.raop_play." + std::to_string(pid)));
  EXPECT_EQ(1u, childCalls().size());
}

// An encrypted speaker gets no "-e". Its child starts slowly, then dies in
// the middle of the track: a new child is started and the track begins
// again on it.
TEST_F(RaopPlayback, AChildThatDiesIsStartedAgainWithTheTrack) {
  lay("Study", {{"s1", "long.mp3"}}, "00:00:30");
  root.write("/sim/raop_play/startup-delay", "1.5");
  root.write("/sim/raop_play/die-at", "1");
  ASSERT_EQ("0", status("ListAirplayRender"));
  ASSERT_EQ("0", status("SetPlaylist", {{"dev", "AABBCCDDEE02"}, {"playlist", "Study"}, {"appType", "music"}}));
  ASSERT_EQ("0", status("Play", {{"dev", "AABBCCDDEE02"}}));
  const int first = waitDatagram("file /share/Public/raop/long.mp3");
  ASSERT_NE(0, first);
  const int second = waitDatagram("file /share/Public/raop/long.mp3", 2);
  ASSERT_NE(0, second) << daemon.log();
  EXPECT_NE(first, second);
  EXPECT_FALSE(proc_exists(first)) << "the dead child was reaped";
  const std::vector<std::string> calls = childCalls();
  ASSERT_EQ(2u, calls.size());
  EXPECT_EQ(std::string(kProgram) + " -i --port 7000 10.0.0.22", calls[0]);
  EXPECT_EQ(calls[0], calls[1]);
  EXPECT_TRUE(waitFor([&] { return node(poll("AABBCCDDEE02"), "currTime") == "00:00:02"; }));
  EXPECT_EQ("PLAY", node(poll("AABBCCDDEE02"), "playerState"));
}

// A track whose file name holds a single quote never reaches the probe or
// the child: the next track plays.
TEST_F(RaopPlayback, AFileWithAQuoteInItsNameIsSkipped) {
  lay("Quotes", {{"o1", "it's.mp3"}, {"o2", "plain.mp3"}}, "00:00:05");
  ASSERT_EQ("0", status("ListAirplayRender"));
  ASSERT_EQ("0", status("SetPlaylist", {{"dev", "AABBCCDDEE01"}, {"playlist", "Quotes"}, {"appType", "music"}}));
  ASSERT_EQ("0", status("Play", {{"dev", "AABBCCDDEE01"}}));
  ASSERT_NE(0, waitDatagram("file /share/Public/raop/plain.mp3"));
  EXPECT_EQ("o2", node(poll("AABBCCDDEE01"), "trackContent"));
  for (const std::string& d : datagrams()) EXPECT_EQ(std::string::npos, d.find("it")) << d;
  for (const std::string& c : root.calls()) EXPECT_EQ(std::string::npos, c.find("it'")) << c;
}

// A child that never makes its socket: after the thirty waits Play fails,
// the child is ended and reaped, and the player is finished.
TEST_F(RaopPlayback, AChildThatNeverMakesItsSocketFailsPlay) {
  lay("Silent", {{"n1", "one.mp3"}}, "00:00:05");
  root.write("/sim/raop_play/no-socket", "");
  ASSERT_EQ("0", status("ListAirplayRender"));
  ASSERT_EQ("0", status("SetPlaylist", {{"dev", "AABBCCDDEE01"}, {"playlist", "Silent"}, {"appType", "music"}}));
  EXPECT_EQ("-1", status("Play", {{"dev", "AABBCCDDEE01"}}));
  ASSERT_EQ(1u, childCalls().size());
  EXPECT_TRUE(daemon.waitForLog("connect() ... err")) << daemon.log();
  // The child wrote its file, named by its pid; the child is gone now.
  std::vector<int> pids;
  if (DIR* dir = ::opendir(root.path("/tmp").c_str())) {
    while (const dirent* e = ::readdir(dir)) {
      const std::string name = e->d_name;
      if (name.compare(0, 11, ".raop_play.") == 0 && std::isdigit(static_cast<unsigned char>(name[11])))
        pids.push_back(std::stoi(name.substr(11)));
    }
    ::closedir(dir);
  }
  ASSERT_EQ(1u, pids.size());
  EXPECT_FALSE(proc_exists(pids[0])) << "signal 15, and reaped";
  EXPECT_TRUE(datagrams().empty());
  EXPECT_EQ("-1", status("Play", {{"dev", "AABBCCDDEE01"}})) << "the player is finished";
  EXPECT_EQ(1u, childCalls().size());
}

}  // namespace
