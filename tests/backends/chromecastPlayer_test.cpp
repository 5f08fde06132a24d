// The Chromecast player against the device script's simulated device: the
// stop at creation, direct play and transcoding, captions asked over HTTP,
// pause and resume, seek, a change of tracks, photos, a device lost in the
// middle of a track, and the stops.
#include <gtest/gtest.h>

#include "backends/chromecastMedia.h"
#include "castTestSupport.h"

using namespace casttest;

namespace {

class ChromecastPlayer : public ::testing::Test {
 protected:
  void SetUp() override {
    setPassThrough(false);
    setDefaultSubtitle(false);
  }
  bool stateIs(playerState_e state) {
    return waitFor([&] { return m_player->getPlayerState() == state && m_player->isParked() == (state != STATE_PLAY_E); });
  }
  void start(const std::vector<Item>& items, mediaType_e media) {
    m_player = makePlayer(playlistOf(items, media));
    ASSERT_EQ(0, m_player->play());
  }
  bool devicePlays(const std::string& part) {
    return waitFor([&] { return m_device.get("state") == "PLAYING" && m_device.get("url").find(part) != std::string::npos; });
  }
  Device m_device{renderId()};
  std::unique_ptr<CChromecast> m_player;
};

TEST_F(ChromecastPlayer, CreationStopsTheDeviceOnceAndParks) {
  m_player = makePlayer("");
  EXPECT_EQ(1u, scriptCalls("stop").size());
  size_t scripts = 0;
  for (const std::string& line : root().calls()) scripts += line.find("/usr/local/apache/bin/php ") == 0 ? 1 : 0;
  EXPECT_EQ(1u, scripts);
  EXPECT_EQ(STATE_STOP_E, m_player->getPlayerState());
  EXPECT_EQ(-1, m_player->play());
  std::string dump;
  m_player->debugDump(dump);
  EXPECT_NE(std::string::npos, dump.find("\nFlowStage          :5\nm_bStop            :1\n"));
}

TEST_F(ChromecastPlayer, VideoWithoutSubtitlePlaysDirectlyToItsEndAndStops) {
  const Item v = lay("short.mkv", MEDIA_VIDEO, "00:00:03");
  start({v}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays("/MediaItems/" + v.dbID + ".mkv?client=ChromeCast,tid="));
  const std::string play = scriptCalls("play").at(0);
  EXPECT_NE(std::string::npos, play.find("-i=http://127.0.0.1:8200/Thumbnails/" + v.dbID + ".jpg")) << play;
  EXPECT_NE(std::string::npos, play.find("-t=short")) << play;
  // Three seconds: over at the poll that reads one second.
  ASSERT_TRUE(stateIs(STATE_STOP_E));
  EXPECT_EQ(1u, scriptCalls("play").size());
  EXPECT_EQ(2u, scriptCalls("stop").size());
  EXPECT_EQ("00:00:00", m_player->getTotalTime());
}

TEST_F(ChromecastPlayer, QueueMovesOnAtEachTracksEnd) {
  const Item a = lay("a.mp3", MEDIA_AUDIO, "00:00:03", "-", "mp3");
  const Item b = lay("b.mp3", MEDIA_AUDIO, "00:00:03", "-", "mp3");
  start({a, b}, MEDIA_AUDIO);
  ASSERT_TRUE(waitFor([&] { return scriptCalls("play").size() == 2; }));
  EXPECT_NE(std::string::npos, scriptCalls("play")[0].find("/" + a.dbID + ".mp3"));
  EXPECT_NE(std::string::npos, scriptCalls("play")[1].find("/" + b.dbID + ".mp3"));
  EXPECT_NE(std::string::npos, scriptCalls("play")[1].find("-i=http://127.0.0.1:8200/Thumbnails/" + b.dbID + ".jpg"));
  ASSERT_TRUE(stateIs(STATE_STOP_E));
}

TEST_F(ChromecastPlayer, DefaultSubtitleTranscodesAndTheStopEndsTheJob) {
  setDefaultSubtitle(true);
  const Item v = lay("movie.mkv", MEDIA_VIDEO);
  lay("movie.srt", MEDIA_PHOTO, "", "", "", false);
  MediaServer server("/never");
  ServedUrls urls(server, v);
  start({v}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays(server.base() + "/CHROMECAST/" + v.dbID + ".mkv,tid="));
  EXPECT_NE(std::string::npos, m_device.get("url").find(",externalSubtitle="));
  ASSERT_EQ(0, m_player->stop(true));
  EXPECT_EQ(STATE_STOP_E, m_player->getPlayerState());
  EXPECT_EQ("STOPPED", m_device.get("state"));
  ASSERT_TRUE(waitFor([&] { return !server.paths().empty(); }));
  EXPECT_EQ(0u, server.paths().back().find("/INTERRUPT_HLS/" + v.dbID + ".mkv,tid="));
  EXPECT_EQ("", m_player->hlsUrl());
}

TEST_F(ChromecastPlayer, RefusedCodecPlaysThePlainFile) {
  const Item v = lay("old.avi", MEDIA_VIDEO, "00:01:00", "wmv3", "wmav2");
  start({v}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays("/MediaItems/" + v.dbID + ".avi"));
  EXPECT_EQ("http://127.0.0.1:8200/MediaItems/" + v.dbID + ".avi", m_device.get("url"));
}

TEST_F(ChromecastPlayer, EmbeddedCaptionsAnsweredOverHttpMakeATranscode) {
  const Item v = lay("captioned.mkv", MEDIA_VIDEO);
  MediaServer server("/Captions/");
  ServedUrls urls(server, v);
  start({v}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays(server.base() + "/CHROMECAST/" + v.dbID + ".mkv,tid="));
  ASSERT_FALSE(server.paths().empty());
  const std::string asked = server.paths().front();
  EXPECT_EQ(0u, asked.find("/Captions/" + v.dbID + ".mkv,tid=")) << asked;
  EXPECT_NE(std::string::npos, asked.find(",subtitleType=.vtt,autoTranscode=1"));
}

TEST_F(ChromecastPlayer, CaptionsTheServerDoesNotHaveLeaveDirectPlay) {
  const Item v = lay("nocaptions.mkv", MEDIA_VIDEO);
  MediaServer server("/never");
  ServedUrls urls(server, v);
  start({v}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays(server.base() + "/MediaItems/" + v.dbID + ".mkv,tid="));
  EXPECT_EQ(1u, server.paths().size());
}

TEST_F(ChromecastPlayer, PauseAndResume) {
  start({lay("long.mkv", MEDIA_VIDEO)}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays("/MediaItems/"));
  ASSERT_TRUE(stateIs(STATE_PLAY_E));
  ASSERT_EQ(0, m_player->pause());
  EXPECT_EQ(STATE_PAUSE_E, m_player->getPlayerState());
  EXPECT_EQ("PAUSED", m_device.get("state"));
  EXPECT_EQ(0, m_player->pause());
  EXPECT_EQ(1u, scriptCalls("pause").size());
  ASSERT_EQ(0, m_player->play());
  EXPECT_EQ(1u, scriptCalls("resume").size());
  EXPECT_EQ("PLAYING", m_device.get("state"));
  ASSERT_TRUE(stateIs(STATE_PLAY_E));
  EXPECT_EQ(1u, scriptCalls("play").size()) << "the same track goes on";
  // A stop during the pause goes through the stop branch.
  ASSERT_EQ(0, m_player->pause());
  ASSERT_EQ(0, m_player->stop(true));
  EXPECT_EQ(STATE_STOP_E, m_player->getPlayerState());
  EXPECT_EQ("STOPPED", m_device.get("state"));
}

TEST_F(ChromecastPlayer, SeekScrubsOrRestartsTheBurntInStream) {
  start({lay("seek.mkv", MEDIA_VIDEO, "00:10:00")}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays("/MediaItems/"));
  ASSERT_TRUE(stateIs(STATE_PLAY_E));
  EXPECT_EQ(0, m_player->seek("00:01:03"));
  ASSERT_EQ(1u, scriptCalls("scrub").size());
  EXPECT_NE(std::string::npos, scriptCalls("scrub")[0].find(" -t=60 "));
  EXPECT_TRUE(waitFor([&] { return m_player->getCurrTimeSecond() >= 60; }));

  ASSERT_EQ(0, m_player->setAudioAndSubtitle("00:00:00", 0, 1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
  ASSERT_TRUE(devicePlays(",strack=1"));
  // With a subtitle chosen, a seek is a new stream from the start, and a
  // failure to the command layer.
  EXPECT_EQ(-1, m_player->seek("00:05:00"));
  EXPECT_EQ(1u, scriptCalls("scrub").size());
  EXPECT_EQ(3u, scriptCalls("play").size());
  EXPECT_EQ(std::string::npos, scriptCalls("play").back().find(",seek="));
  EXPECT_NE(std::string::npos, scriptCalls("play").back().find(",strack=1"));
  EXPECT_EQ(1, m_player->getSubtitleTrack());
}

TEST_F(ChromecastPlayer, SeekKeepsAConvertedSubtitleAndItsOriginal) {
  start({lay("conv.mkv", MEDIA_VIDEO, "00:10:00")}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays("/MediaItems/"));
  ASSERT_EQ(0, m_player->setAudioAndSubtitle("00:00:00", 0, -1, "/tmp/conv.srt", nullptr, nullptr, nullptr, nullptr,
                                             "/share/Public/orig.ass", 0));
  ASSERT_TRUE(devicePlays(",externalSubtitle=%2Ftmp%2Fconv.srt"));
  EXPECT_EQ(-1, m_player->seek("00:02:00"));
  EXPECT_EQ(3u, scriptCalls("play").size());
  EXPECT_NE(std::string::npos, scriptCalls("play").back().find(",externalSubtitle=%2Ftmp%2Fconv.srt"));
  std::string external;
  m_player->getExternalSubtitle(external);
  EXPECT_EQ("/share/Public/orig.ass", external);
}

TEST_F(ChromecastPlayer, AudioAndSubtitleChangeRestartsWithTheTracksAndEndsTheOldJob) {
  setDefaultSubtitle(true);
  MediaServer server("/never");
  const Item v = lay("tracks.mkv", MEDIA_VIDEO);
  lay("tracks.ass", MEDIA_PHOTO, "", "", "", false);
  ServedUrls urls(server, v);
  start({v}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays("/CHROMECAST/"));
  ASSERT_TRUE(stateIs(STATE_PLAY_E));
  const std::string first = m_device.get("url").substr(server.base().size());
  ASSERT_EQ(0, m_player->setAudioAndSubtitle("00:00:30", 2, -1, "/share/Public/x y.srt", nullptr, "24", "yellow",
                                             "utf8", nullptr, 0));
  const std::string url = m_device.get("url");
  EXPECT_EQ(0u, url.find(server.base() + "/CHROMECAST/" + v.dbID + ".mkv,tid=")) << url;
  EXPECT_NE(std::string::npos, url.find(",atrack=2,externalSubtitle=%2Fshare%2FPublic%2Fx%20y.srt,ssize=24,scolor=yellow"));
  EXPECT_EQ(2, m_player->getAudioTrack());
  std::string external;
  m_player->getExternalSubtitle(external);
  EXPECT_EQ("/share/Public/x y.srt", external);
  EXPECT_EQ("yellow", m_player->getScolor());
  // Each change interrupts the job of the URL before it.
  const std::string second = url.substr(server.base().size());
  ASSERT_EQ(1u, server.paths().size());
  EXPECT_EQ(vessord::cast::interrupt_url(first), server.paths()[0]);
  ASSERT_EQ(0, m_player->setAudioAndSubtitle("00:00:30", 1, -1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
  ASSERT_EQ(2u, server.paths().size());
  EXPECT_EQ(vessord::cast::interrupt_url(second), server.paths()[1]);
  EXPECT_NE(first, second);
  EXPECT_EQ(-1, m_player->setAudioAndSubtitle(nullptr, 1, -1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
}

TEST_F(ChromecastPlayer, PhotosStayForTheSlideShowDelayPlusOnePass) {
  const Item a = lay("a.jpg", MEDIA_PHOTO);
  const Item b = lay("b.jpg", MEDIA_PHOTO);
  m_player = makePlayer(playlistOf({a, b}, MEDIA_PHOTO));
  m_player->setSlideShowDelay(3);
  ASSERT_EQ(0, m_player->play());
  ASSERT_TRUE(waitFor([&] { return scriptCalls("play").size() == 2; }));
  ASSERT_TRUE(stateIs(STATE_STOP_E));
  EXPECT_TRUE(toolCalls().empty());
  EXPECT_TRUE(scriptCalls("status").empty()) << "a photo has no position";
  EXPECT_NE(std::string::npos, scriptCalls("play")[1].find("/" + b.dbID + ".jpg"));
}

TEST_F(ChromecastPlayer, PausedPhotoSendsNoPause) {
  m_player = makePlayer(playlistOf({lay("p.jpg", MEDIA_PHOTO)}, MEDIA_PHOTO));
  m_player->setSlideShowDelay(100);
  ASSERT_EQ(0, m_player->play());
  ASSERT_TRUE(stateIs(STATE_PLAY_E));
  ASSERT_TRUE(waitFor([&] { return m_player->getCurrTime() >= "00:00:02"; }));
  EXPECT_EQ("00:01:40", m_player->getTotalTime());
  ASSERT_EQ(0, m_player->pause());
  EXPECT_EQ(STATE_PAUSE_E, m_player->getPlayerState());
  EXPECT_TRUE(scriptCalls("pause").empty());
}

TEST_F(ChromecastPlayer, DeviceLostMidTrackIsGivenUpAfterAMinuteOfZeroPolls) {
  start({lay("lost.mkv", MEDIA_VIDEO, "00:10:00")}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays("/MediaItems/"));
  ASSERT_TRUE(waitFor([&] { return m_player->getCurrTimeSecond() >= 1; }));
  m_device.set("fail", "1");
  ASSERT_TRUE(waitFor([&] { return scriptCalls("status").size() > kZeroPositionPollLimit; }));
  EXPECT_EQ(STATE_PLAY_E, m_player->getPlayerState());
  EXPECT_EQ("00:10:00", m_player->getTotalTime()) << "the total comes from the track";
  ASSERT_TRUE(stateIs(STATE_STOP_E));
  EXPECT_EQ(1u, scriptCalls("play").size());
  m_device.set("fail", "");
}

TEST_F(ChromecastPlayer, RefusedPlayOrderIsGivenUpByThePositionPoll) {
  m_player = makePlayer(playlistOf({lay("refusedplay.mkv", MEDIA_VIDEO, "00:10:00")}, MEDIA_VIDEO));
  m_device.set("fail", "1");
  const unsigned parks = m_player->parks();
  ASSERT_EQ(0, m_player->play());
  ASSERT_TRUE(waitFor([&] { return scriptCalls("status").size() > 10; }));
  EXPECT_EQ(STATE_PLAY_E, m_player->getPlayerState()) << "a failed start counts as playing";
  ASSERT_TRUE(waitFor([&] { return m_player->parks() > parks && m_player->isParked(); }));
  EXPECT_EQ(STATE_STOP_E, m_player->getPlayerState());
  EXPECT_EQ(kZeroPositionPollLimit + 1, static_cast<int>(scriptCalls("status").size()));
  EXPECT_EQ(1u, scriptCalls("play").size());
  m_device.set("fail", "");
}

TEST_F(ChromecastPlayer, RepeatedQueueWhoseItemsAllFailStops) {
  m_player = makePlayer(playlistOf({lay("gone0.mkv", MEDIA_VIDEO, "00:01:00", "h264", "aac", false),
                                    lay("gone1.mkv", MEDIA_VIDEO, "00:01:00", "h264", "aac", false)},
                                   MEDIA_VIDEO));
  m_player->setPlayMode(REPEAT);
  const unsigned parks = m_player->parks();
  ASSERT_EQ(0, m_player->play());
  ASSERT_TRUE(waitFor([&] { return m_player->parks() > parks && m_player->isParked(); }));
  EXPECT_EQ(STATE_STOP_E, m_player->getPlayerState());
  EXPECT_TRUE(scriptCalls("play").empty());
  size_t asked = 0;
  for (const std::string& line : root().calls()) asked += line.find("brelctl -c getContentUrl ") != std::string::npos;
  EXPECT_EQ(2u, asked) << "each item once";
}

TEST_F(ChromecastPlayer, SilentStopsSendNothingToTheDevice) {
  const Item longOne = lay("silent.mkv", MEDIA_VIDEO), shortOne = lay("silent2.mkv", MEDIA_VIDEO, "00:00:03");
  start({longOne, shortOne}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays("/MediaItems/" + longOne.dbID));
  ASSERT_EQ(0, m_player->stop(false));
  EXPECT_EQ(STATE_STOP_E, m_player->getPlayerState());
  EXPECT_EQ(1u, scriptCalls("stop").size()) << "only the one at creation";
  EXPECT_EQ("PLAYING", m_device.get("state"));
  EXPECT_FALSE(m_player->isSilentStop());
  // On a stopped player the flag stays, so that the stop at the queue's
  // end is silent too.
  ASSERT_EQ(0, m_player->stop(false));
  EXPECT_TRUE(m_player->isSilentStop());
  const unsigned parks = m_player->parks();
  ASSERT_EQ(0, m_player->next());
  ASSERT_TRUE(devicePlays("/MediaItems/" + shortOne.dbID));
  ASSERT_TRUE(waitFor([&] { return m_player->parks() > parks && m_player->isParked(); }));
  EXPECT_EQ(STATE_STOP_E, m_player->getPlayerState());
  EXPECT_EQ(1u, scriptCalls("stop").size());
  EXPECT_FALSE(m_player->isSilentStop());
}

TEST_F(ChromecastPlayer, NextAndPreviousStartTheirTrackOnce) {
  const Item a = lay("n0.mkv", MEDIA_VIDEO), b = lay("n1.mkv", MEDIA_VIDEO), c = lay("n2.mkv", MEDIA_VIDEO);
  start({a, b, c}, MEDIA_VIDEO);
  ASSERT_TRUE(devicePlays("/" + a.dbID + ".mkv"));
  ASSERT_EQ(0, m_player->next());
  ASSERT_TRUE(devicePlays("/" + b.dbID + ".mkv"));
  ASSERT_EQ(0, m_player->previous());
  ASSERT_EQ(0, m_player->previous());
  ASSERT_TRUE(devicePlays("/" + c.dbID + ".mkv"));
  ASSERT_TRUE(stateIs(STATE_PLAY_E));
  const size_t plays = scriptCalls("play").size();
  EXPECT_LE(plays, 4u);
  EXPECT_NE(std::string::npos, scriptCalls("play").back().find("/" + c.dbID + ".mkv"));
}

TEST_F(ChromecastPlayer, QueueOfOneFailingItemStopsAfterTheFirstFailure) {
  m_player = makePlayer(playlistOf({lay("absent.mkv", MEDIA_VIDEO, "00:01:00", "h264", "aac", false)}, MEDIA_VIDEO));
  const unsigned parks = m_player->parks();
  ASSERT_EQ(0, m_player->play());
  ASSERT_TRUE(waitFor([&] { return m_player->parks() > parks && m_player->isParked(); }));
  EXPECT_EQ(STATE_STOP_E, m_player->getPlayerState());
  EXPECT_TRUE(scriptCalls("play").empty());
  EXPECT_EQ(2u, scriptCalls("stop").size());
}

}  // namespace
