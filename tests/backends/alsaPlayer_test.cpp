// The sound-output player against Debian's real music daemon and client,
// behind the appliance's adapters: the daemon's state, elapsed time, pause
// and the end of a track are the real program's.
#include "backends/alsaPlayer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backends/alsaTestSupport.h"

using namespace alsatest;

namespace {

// The client's calls on this player's port, without the port, and without
// the status polls.
Strings clientCalls(const CAlsaPlayer& p, bool withStatus = false) {
  const std::string prefix = "/tmp/vexmpd/bin/mpc -p " + std::to_string(p.port()) + " ";
  Strings out;
  for (const std::string& c : sharedRoot().calls())
    if (c.compare(0, prefix.size(), prefix) == 0 && (withStatus || c != prefix + "status"))
      out.push_back(c.substr(prefix.size()));
  return out;
}

bool called(const CAlsaPlayer& p, const std::string& call) {
  const Strings calls = clientCalls(p);
  return std::find(calls.begin(), calls.end(), call) != calls.end();
}

// The loop has handed a track over since the log was cleared and polls it.
bool pollingAfterPlay(const CAlsaPlayer& p) {
  const Strings calls = clientCalls(p, true);
  const auto play = std::find(calls.begin(), calls.end(), "play");
  return play != calls.end() && std::find(play, calls.end(), "status") != calls.end();
}

// The add line as the call log shows it: the address single-quoted.
std::string joined(const Strings& lines) {
  std::string out;
  for (const std::string& l : lines) out += l + "\n";
  return out;
}

std::string addOf(const std::string& path) {
  std::string out = "add 'file://";
  for (char c : path) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

}  // namespace

// A new player runs its own daemon on a free port of the appliance's range,
// chooses its output, parks stopped; the playlist plays through to its end
// in order, each track as the daemon's only entry; the daemon ends with the
// player.
TEST(AlsaPlayer, PlaysTheQueueThroughOnItsOwnDaemon) {
  const Strings tracks = layTracks({1, 1});
  auto p = makePlayer(playertest::testTitle());
  const int port = p->port();
  ASSERT_GE(port, 12351);
  ASSERT_LE(port, 12650);
  const std::string ps = std::to_string(port);
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  const Strings start = clientCalls(*p);
  ASSERT_GE(start.size(), 3u);
  EXPECT_EQ("enable only 'Built-in Audio'", start[0]);
  EXPECT_EQ("volume 100", start[1]);
  EXPECT_EQ("stop", start[2]);
  const Strings calls = sharedRoot().calls();
  EXPECT_NE(calls.end(), std::find(calls.begin(), calls.end(),
                                   "/tmp/vexmpd/bin/mpd --port " + ps + " /tmp/vexmpd/vexmusicplayer.conf"));

  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E; })) << joined(sharedRoot().calls());
  ASSERT_TRUE(waitFor([&] { return called(*p, addOf(tracks[1])); }));
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_STOP_E && p->isParked(); }));
  EXPECT_EQ("00:00:00", p->getCurrTime());

  // Each track: stop, clear, add, play; at its end stop again.
  Strings handOver;
  for (const std::string& c : clientCalls(*p))
    if (c == "clear" || c.compare(0, 4, "add ") == 0 || c == "play") handOver.push_back(c);
  EXPECT_EQ((Strings{"clear", addOf(tracks[0]), "play", "clear", addOf(tracks[1]), "play"}), handOver);

  p.reset();
  const Strings after = sharedRoot().calls();
  EXPECT_EQ("/tmp/vexmpd/bin/mpd --port " + ps + " --kill /tmp/vexmpd/vexmusicplayer.conf", after.back());
}

// Pause parks with the daemon paused, play resumes it, seek moves the
// daemon's time, stop from pause stops it; next and previous wrap around.
TEST(AlsaPlayer, PauseResumeSeekStopAndWrapAround) {
  const Strings tracks = layTracks({30, 30});
  auto p = makePlayer(playertest::testTitle());
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  EXPECT_EQ(0, p->seek("00:00:05"));  // stopped: nothing is sent
  EXPECT_FALSE(called(*p, "seek 00:00:05"));

  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E; }));
  EXPECT_EQ(0, p->seek("00:00:20"));
  EXPECT_TRUE(called(*p, "seek 00:00:20"));
  EXPECT_EQ(0, p->seek("00:00:01;touch /tmp/owned"));
  EXPECT_EQ(0, p->seek("00:00:01 -h"));
  EXPECT_FALSE(sharedRoot().exists("/tmp/owned"));
  ASSERT_TRUE(waitFor([&] { return p->getCurrTimeSecond() >= 20; }));
  EXPECT_EQ("00:00:30", p->getTotalTime());

  EXPECT_EQ(0, p->pause());
  EXPECT_EQ(STATE_PAUSE_E, p->getPlayerState());
  EXPECT_TRUE(p->isParked());
  EXPECT_TRUE(called(*p, "pause"));
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E; }));

  EXPECT_EQ(0, p->previous());  // from the first track round to the last
  ASSERT_TRUE(waitFor([&] { return called(*p, addOf(tracks[1])); }));
  EXPECT_EQ(1u, p->getCurrTrackIndex());
  sharedRoot().clearCalls();
  EXPECT_EQ(0, p->next());  // and from the last back to the first
  EXPECT_EQ(0u, p->getCurrTrackIndex());
  ASSERT_TRUE(waitFor([&] { return pollingAfterPlay(*p); }));

  EXPECT_EQ(0, p->pause());
  EXPECT_EQ(STATE_PAUSE_E, p->getPlayerState());
  sharedRoot().clearCalls();
  EXPECT_EQ(0, p->stop(true));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_EQ((Strings{"stop"}), clientCalls(*p));
  EXPECT_EQ("00:00:00", p->getTotalTime());
}

// A track that is part of a larger file: played from its offset with the
// output muted for the jump, times shown relative to it, a seek moved by
// it, and its end reached at its own length rather than the file's.
TEST(AlsaPlayer, TrackInsideALargerFile) {
  testsupport::TestRoot& root = sharedRoot();
  const std::string file = "/share/Public/alsa/" + playertest::testTitle() + " album.wav";
  wav(file, 40);
  root.write("/sim/media.tsv", root.read("/sim/media.tsv") + "cue-" + playertest::testTitle() + "\t7001\t0\t" + file +
                                   "\t00:00:04\t\t20\n");
  playertest::makePlaylist(playertest::testTitle(), {"cue-" + playertest::testTitle()}, CONTENT_OBJECT);
  auto p = makePlayer(playertest::testTitle());
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  ASSERT_EQ(0, p->setVolume(60));
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E; }));
  ASSERT_TRUE(waitFor([&] { return p->getCurrTimeSecond() >= 1; }));
  EXPECT_EQ("00:00:04", p->getTotalTime());
  EXPECT_LE(p->getCurrTimeSecond(), 4);
  EXPECT_EQ(0, p->seek("00:00:02"));
  EXPECT_TRUE(called(*p, "seek 00:00:22"));

  // Muted around the jump to the offset, then the volume read back.
  const Strings calls = clientCalls(*p);
  const auto play = std::find(calls.begin(), calls.end(), "play");
  ASSERT_NE(calls.end(), play);
  EXPECT_EQ((Strings{"volume 0", "play", "seek 00:00:20", "volume 60"}),
            Strings(play - 1, std::min(calls.end(), play + 3)));

  // Ends at 4 s of the track: the queue is over, long before the file is.
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_STOP_E; }, 40));
}

// Volume bounds and the mute that keeps the volume to come back to.
TEST(AlsaPlayer, VolumeAndMuteKeepTheSavedVolume) {
  layTracks({5});
  auto p = makePlayer(playertest::testTitle());
  EXPECT_EQ(-1, p->setVolume(101));
  EXPECT_EQ(-1, p->setVolume(-1));
  EXPECT_EQ(0, p->setVolume(40));
  EXPECT_EQ(40, p->getVolume());  // read from the daemon's status
  EXPECT_EQ(0, p->setMute(true));
  EXPECT_EQ(0, p->getVolume());
  EXPECT_EQ(0, p->setMute(true));  // the second mute keeps 40
  EXPECT_EQ(0, p->setMute(false));
  EXPECT_EQ(40, p->getVolume());
  EXPECT_EQ(0, p->setVolume(0));  // a volume of 0 comes back as 1
  EXPECT_EQ(0, p->setMute(false));
  EXPECT_EQ(1, p->getVolume());
}

// Output attributes: the two numbers in the order DSD pass, sample rate,
// then the settings reload on the appliance's fixed port; a text with
// neither key runs nothing.
TEST(AlsaPlayer, AttributesGoToTheOutputThenReload) {
  auto p = makePlayer("", "USB DAC");
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  sharedRoot().clearCalls();
  EXPECT_EQ(-1, p->setAttributes("VOLUME=3"));
  EXPECT_EQ(-1, p->setAttributes(""));
  EXPECT_TRUE(sharedRoot().calls().empty());
  EXPECT_EQ(0, p->setAttributes("SampleRate=Auto,dsdpass=enable"));
  EXPECT_EQ((Strings{"/tmp/vexmpd/bin/mpc -p " + std::to_string(p->port()) + " setoutputattr 'USB DAC' 1 -1",
                     "/tmp/vexmpd/bin/mpc -p 8893 reloadsettings"}),
            sharedRoot().calls());
  auto q = makePlayer("", "Lounge");  // not an output the daemon knows
  EXPECT_NE(0, q->setAttributes("SAMPLERATE=44100"));
}

// Names and paths go onto the client's line bare: what a shell would act on
// is refused before anything runs, while odd but harmless names still play.
TEST(AlsaPlayer, ShellTextInNamesAndPathsNeverRuns) {
  EXPECT_THROW(makePlayer("", "Out | touch /tmp/owned"), std::runtime_error);
  EXPECT_THROW(makePlayer("", "Out\ntouch /tmp/owned"), std::runtime_error);
  makePlayer("", "Out`touch /tmp/owned`");  // escaped: only a name
  EXPECT_FALSE(sharedRoot().exists("/tmp/owned"));

  testsupport::TestRoot& root = sharedRoot();
  const std::string odd = "/share/Public/alsa/Odd [live] ~ #1 (été) it's.wav";
  wav(odd, 1);
  const std::string bad = "/share/Public/alsa/bad|touch /tmp/owned.wav";
  playertest::makePlaylist(playertest::testTitle(), {bad, odd});
  auto p = makePlayer(playertest::testTitle());
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  ASSERT_EQ(0, p->play());
  // The refused path is skipped like a failed add; the odd one plays.
  ASSERT_TRUE(waitFor([&] { return called(*p, addOf(odd)); }));
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_STOP_E && p->isParked(); }));
  EXPECT_FALSE(root.exists("/tmp/owned"));
  for (const std::string& c : clientCalls(*p)) EXPECT_EQ(std::string::npos, c.find("bad|")) << c;
}
