// CDlnaPlayer against the simulated renderer: what the agent is asked, how
// the loop walks the queue, and how it follows the renderer.
#include <sys/stat.h>

#include "backends/dlnaTestSupport.h"

using namespace dlnatest;

namespace {

bool hasCall(const std::string& line) {
  for (const std::string& c : playertest::sharedRoot().calls())
    if (c == line) return true;
  return false;
}

}  // namespace

TEST(DlnaPlayerCommands, NewPlayerStopsItsRendererAndParks) {
  const std::string id = renderId();
  Media m = layTracks({"00:00:05"});
  Renderer(id).set("xbmc", "1");
  auto p = makePlayer(m.title);
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_TRUE(p->isXBMC());
  EXPECT_FALSE(p->isArm());
  EXPECT_TRUE(hasCall("/bin/uname -m"));
  // The XBMC test carries the id bare, every other line in single quotes.
  EXPECT_TRUE(hasCall("/usr/bin/brelctl -c isXBMC --uuid " + id));
  EXPECT_TRUE(hasCall("/usr/bin/brelctl -c Stop --uuid " + id));
  EXPECT_TRUE(agentCalls("setAvTransportUrl").empty());
  EXPECT_EQ(0, p->next());  // stopped: the index stays
  EXPECT_EQ(0u, p->getCurrTrackIndex());
  std::string dump;
  p->debugDump(dump);
  EXPECT_NE(std::string::npos, dump.find("FlowStage          :6\n"));
  EXPECT_NE(std::string::npos, dump.find("m_bStuckOnWaitLock :1\n"));
}

TEST(DlnaPlayerCommands, ArmApplianceAndEmptyQueue) {
  playertest::sharedRoot().write("/sim/uname-m", "armv7l\n");
  auto p = makePlayer("");
  playertest::sharedRoot().write("/sim/uname-m", "");
  EXPECT_TRUE(p->isArm());
  EXPECT_FALSE(p->isXBMC());
  EXPECT_EQ(-1, p->play());
  EXPECT_EQ(-1, p->play());
  EXPECT_TRUE(waitFor([&] { return p->isParked(); }));
}

TEST(DlnaPlayerCommands, VolumeIsClampedAndMuteRestoresIt) {
  const std::string id = renderId();
  auto p = makePlayer("");
  EXPECT_EQ(0, p->setVolume(150));
  EXPECT_TRUE(hasCall("/usr/bin/brelctl -c setVolume --uuid " + id + " --vol 100"));
  EXPECT_EQ(100, p->getVolume());
  EXPECT_EQ(0, p->setVolume(-4));
  EXPECT_EQ(0, p->getVolume());
  EXPECT_TRUE(p->isMute());
  EXPECT_EQ(0, p->setVolume(40));
  EXPECT_EQ(0, p->setMute(true));
  EXPECT_EQ(0, p->getVolume());
  EXPECT_EQ(0, p->setMute(false));
  EXPECT_EQ(40, p->getVolume());
  // A renderer that does not answer.
  Renderer(id).set("offline", "1");
  EXPECT_EQ(-1, p->getVolume());
  EXPECT_EQ(-1, p->setVolume(10));
}

TEST(DlnaPlayerCommands, HostileRenderIdNeverReachesAShell) {
  const std::string planted = playertest::sharedRoot().path("/tmp/planted");
  const std::string id = "x'; touch " + planted + "; echo '";
  auto p = makePlayer("", id);
  EXPECT_EQ(-1, p->setVolume(10));
  EXPECT_EQ(-1, p->getVolume());
  p.reset();
  struct stat st;
  EXPECT_NE(0, ::stat(planted.c_str(), &st));
  // Only the line that takes the id bare runs, and sh reads the quotes in it
  // as quotes: the agent gets the text as one argument.
  for (const std::string& line : playertest::sharedRoot().calls())
    if (line.find("brelctl") != std::string::npos) {
      EXPECT_EQ("/usr/bin/brelctl -c isXBMC --uuid 'x; touch /tmp/planted; echo '", line);
    }
}

// The queue walk: each mode, with the natural change at a track's end.
struct ModeCase {
  playMode_e mode;
  size_t tracks;
  size_t loads;          // loads to wait for
  bool stopsAtTheEnd;
};

class DlnaPlayerModes : public ::testing::TestWithParam<ModeCase> {};

TEST_P(DlnaPlayerModes, TracksEndAndTheNextPlays) {
  const ModeCase c = GetParam();
  Media m = layTracks(Strings(c.tracks, "00:00:03"));
  Renderer(renderId()).set("rate", "10");
  auto p = makePlayer(m.title);
  p->setPlayMode(c.mode);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= c.loads; }));
  if (c.stopsAtTheEnd) {
    ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
    EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  }
  p.reset();
  std::vector<int> loaded = loadedTracks(m);
  loaded.resize(c.loads);
  std::vector<int> sorted = loaded;
  std::sort(sorted.begin(), sorted.end());
  switch (c.mode) {
    case NORMAL:
      EXPECT_EQ(std::vector<int>({0, 1, 2}), loaded);
      EXPECT_EQ(c.loads, loadedTracks(m).size());  // nothing after the end
      break;
    case REPEAT:
      EXPECT_EQ(std::vector<int>({0, 1, 0, 1, 0}), loaded);
      break;
    case REPEAT_ONE:
      EXPECT_EQ(std::vector<int>({0, 0, 0}), loaded);
      break;
    case SHUFFLE:
      EXPECT_EQ(std::vector<int>({0, 1, 2, 3}), sorted);  // each once, in any order
      EXPECT_EQ(c.loads, loadedTracks(m).size());
      break;
    default:
      FAIL();
  }
}

INSTANTIATE_TEST_SUITE_P(EachMode, DlnaPlayerModes,
                         ::testing::Values(ModeCase{NORMAL, 3, 3, true}, ModeCase{REPEAT, 2, 5, false},
                                           ModeCase{REPEAT_ONE, 3, 3, false}, ModeCase{SHUFFLE, 4, 4, true}));

TEST(DlnaPlayerLoop, PauseHoldsThePositionAndPlayResumesWithoutReloading) {
  const std::string id = renderId();
  Media m = layTracks({"00:01:00"});
  Renderer r(id);
  auto p = makePlayer(m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E && p->getCurrTimeSecond() >= 1; }));
  EXPECT_EQ("00:01:00", p->getTotalTime());
  EXPECT_TRUE(hasCall("/usr/bin/brelctl -c setAvTransportUrl --uuid " + id + " --filePath " + m.paths[0]));
  EXPECT_EQ(0, p->pause());
  EXPECT_TRUE(p->isParked());
  EXPECT_EQ(STATE_PAUSE_E, p->getPlayerState());
  EXPECT_EQ("PAUSED_PLAYBACK", r.get("state"));
  EXPECT_EQ(0, p->pause());  // already paused
  EXPECT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E && !p->isParked(); }));
  EXPECT_EQ("PLAYING", r.get("state"));
  EXPECT_EQ(1u, agentCalls("setAvTransportUrl").size());
  EXPECT_EQ(0, p->stop(true));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_EQ("STOPPED", r.get("state"));
  EXPECT_EQ("00:00:00", p->getCurrTime());
}

TEST(DlnaPlayerLoop, ResumePressedAtTheRendererResumesThePlayer) {
  Media m = layTracks({"00:01:00"});
  Renderer r(renderId());
  auto p = makePlayer(m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E && p->getCurrTimeSecond() >= 1; }));
  ASSERT_EQ(0, p->pause());
  // Let a monitor see the pause before the resume.
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));
  r.press("play");
  ASSERT_TRUE(waitFor([&] { return !p->isParked() && p->getPlayerState() == STATE_PLAY_E; }));
  EXPECT_EQ(1u, agentCalls("setAvTransportUrl").size());
}

TEST(DlnaPlayerLoop, PauseAndStopAtTheDeviceParkThePlayer) {
  Media m = layTracks({"00:01:00", "00:01:00"});
  Renderer r(renderId());
  // The player must see the stop before a poll reads the rewound position.
  r.set("stopKeepsPosition", "1");
  auto p = makePlayer(m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E && p->getCurrTimeSecond() >= 1; }));
  r.press("pause");
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  EXPECT_EQ(STATE_PAUSE_E, p->getPlayerState());
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E && !p->isParked(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));
  r.press("stop");
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_EQ(std::vector<int>({0}), loadedTracks(m));  // a stop by hand is no track end
}

TEST(DlnaPlayerLoop, StopAtTheDeviceNearTheEndMovesOn) {
  Media m = layTracks({"00:00:18", "00:00:30"});
  Renderer r(renderId());
  r.set("rate", "4");
  auto p = makePlayer(m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getCurrTimeSecond() >= 5 && p->getCurrTimeSecond() < 14; }));
  r.press("stop");
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 2; }));
  EXPECT_EQ(std::vector<int>({0, 1}), loadedTracks(m));
  EXPECT_FALSE(p->isParked());
}

TEST(DlnaPlayerLoop, SeekHandsThePositionToTheRenderer) {
  const std::string id = renderId();
  Media m = layTracks({"00:02:00"});
  Renderer r(id);
  auto p = makePlayer(m.title);
  EXPECT_EQ(0, p->seek("00:00:30"));  // not playing: nothing
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E && p->getCurrTimeSecond() >= 1; }));
  EXPECT_EQ(0, p->seek("00:01:30"));
  EXPECT_TRUE(hasCall("/usr/bin/brelctl -c setAvTransportUrl --uuid " + id + " --filePath " + m.paths[0] +
                      " --position 00:01:30"));
  EXPECT_GE(r.pos(), 90);
  ASSERT_TRUE(waitFor([&] { return p->getCurrTimeSecond() >= 90; }));
  // Through the transcoder: the renderer is stopped first and the renderer's
  // time counts from the seek.
  r.set("transcode", "1");
  playertest::sharedRoot().clearCalls();
  EXPECT_EQ(0, p->seek("00:00:40"));
  Strings calls = playertest::sharedRoot().calls();
  auto at = [&](const std::string& prefix) {
    for (size_t i = 0; i < calls.size(); ++i)
      if (calls[i].find(prefix) == 0) return static_cast<int>(i);
    return -1;
  };
  EXPECT_GE(at("/usr/bin/brelctl -c getContentUrlByMAC --uuid " + id + " --filePath " + m.paths[0]), 0);
  EXPECT_GE(at("/usr/bin/brelctl -c Stop"), 0);
  EXPECT_LT(at("/usr/bin/brelctl -c Stop"), at("/usr/bin/brelctl -c setAvTransportUrl"));
  ASSERT_TRUE(waitFor([&] { return p->getCurrTimeSecond() >= 80; }));
}

TEST(DlnaPlayerLoop, SeekOfVideoWithDefaultSubtitleCarriesIt) {
  const std::string id = renderId();
  playertest::sharedRoot().write("/mnt/ext/opt/KIVO/etc/config/Tovud.conf", "default_subtitle = 1\n");
  Media m = layTracks({"00:02:00"}, MEDIA_VIDEO);
  const std::string base = m.paths[0].substr(0, m.paths[0].rfind('.'));
  playertest::sharedRoot().write(base + ".en.srt", "1\n");
  auto p = makePlayer(m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getCurrTimeSecond() >= 1; }));
  EXPECT_EQ(0, p->seek("00:00:50"));
  std::string escaped;
  for (char c : base + ".en.srt")
    escaped += std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' ? std::string(1, c)
                                                                                    : "%" + std::string(c == '/' ? "2F" : "5F");
  EXPECT_TRUE(hasCall("/usr/bin/brelctl -c setAvTransportUrl --uuid " + id + " --filePath " + m.paths[0] +
                      " --position 00:00:50 --externalSubtitle " + escaped));
  // The subtitle asks for the transcoding path: the seek base counts.
  ASSERT_TRUE(waitFor([&] { return p->getCurrTimeSecond() >= 100; }));
}

TEST(DlnaPlayerLoop, SeekOfTranscodedVideoOnArmIsRefused) {
  playertest::sharedRoot().write("/sim/uname-m", "armv7l\n");
  Media m = layTracks({"00:02:00"}, MEDIA_VIDEO);
  Renderer r(renderId());
  r.set("transcode", "1");
  auto p = makePlayer(m.title);
  playertest::sharedRoot().write("/sim/uname-m", "");
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getCurrTimeSecond() >= 1; }));
  EXPECT_EQ(0, p->seek("00:01:00"));
  EXPECT_EQ(1u, agentCalls("setAvTransportUrl").size());
  EXPECT_LT(r.pos(), 60);
}

TEST(DlnaPlayerLoop, BusyRendererIsAskedAgainUpToSixTimes) {
  Media m = layTracks({"00:00:02", "00:00:02"});
  Renderer r(renderId());
  r.set("rate", "10");
  r.set("busy", "2");
  auto p = makePlayer(m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->isParked() && p->getPlayerState() == STATE_STOP_E && loadedTracks(m).size() >= 4; }));
  EXPECT_EQ(std::vector<int>({0, 0, 0, 1}), loadedTracks(m));
  // Busy six times: the track is skipped, the next one loads.
  playertest::sharedRoot().clearCalls();
  r.set("busy", "6");
  p->setCurrTrack(0);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 7; }));
  EXPECT_EQ(std::vector<int>({0, 0, 0, 0, 0, 0, 1}), loadedTracks(m));
}

TEST(DlnaPlayerLoop, AllTracksFailingEndsTheLoop) {
  Media m = layTracks({"00:00:02", "00:00:02", "00:00:02"}, MEDIA_AUDIO, false);
  Renderer(renderId()).set("rate", "10");
  auto p = makePlayer(m.title);
  p->setPlayMode(REPEAT);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 3 && p->isParked(); }));
  EXPECT_EQ(std::vector<int>({0, 1, 2}), loadedTracks(m));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
}

TEST(DlnaPlayerLoop, NextAndPreviousWrapAndReload) {
  Media m = layTracks({"00:01:00", "00:01:00", "00:01:00"});
  auto p = makePlayer(m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E; }));
  EXPECT_EQ(0, p->previous());
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 2; }));
  EXPECT_EQ(2u, p->getCurrTrackIndex());
  // A stopped player ignores next(): wait until the reloaded track plays.
  ASSERT_TRUE(waitFor([&] { return p->getPlayerState() == STATE_PLAY_E; }));
  EXPECT_EQ(0, p->next());
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 3; }));
  EXPECT_EQ(std::vector<int>({0, 2, 0}), loadedTracks(m));
  // A next() while the renderer is still taking the previous track.
  Renderer(renderId()).set("loadDelayMs", "400");
  EXPECT_EQ(0, p->next());
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 4; }));
  EXPECT_EQ(0, p->next());
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 5; }));
  EXPECT_EQ(std::vector<int>({0, 2, 0, 1, 2}), loadedTracks(m));
}

TEST(DlnaPlayerLoop, StalledOrFailingPositionsEndTheTrack) {
  Media m = layTracks({"00:01:00", "00:01:00", "00:01:00"});
  Renderer r(renderId());
  r.set("rate", "0");  // the renderer never moves
  auto p = makePlayer(m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 2; }));
  const size_t polls = agentCalls("getPositionInfo").size();
  EXPECT_GE(polls, 20u);  // twenty polls without progress
  r.set("rate", "1");
  r.set("positionFail", "1");
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 3; }));
  EXPECT_EQ(std::vector<int>({0, 1, 2}), loadedTracks(m));
}

TEST(DlnaPlayerLoop, PhotosChangeByTheSlideShowDelay) {
  Media m = layTracks({"00:00:00", "00:00:00"}, MEDIA_PHOTO);
  auto p = makePlayer(m.title);
  p->setSlideShowDelay(3);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getTotalTime() == "00:00:03"; }));
  // A paused photo parks without pausing the renderer.
  ASSERT_EQ(0, p->pause());
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  EXPECT_EQ(STATE_PAUSE_E, p->getPlayerState());
  EXPECT_TRUE(agentCalls("Pause").empty());
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return loadedTracks(m).size() >= 2; }));
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  EXPECT_EQ(std::vector<int>({0, 1}), loadedTracks(m));
  EXPECT_TRUE(agentCalls("getPositionInfo").empty());
}
