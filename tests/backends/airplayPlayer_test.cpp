// CAirplayPlayer against the simulated AirPlay device: the URLs it builds,
// what the device is sent for each command, and how the loop decides from
// the device's position reports that a track is over.
#include <sys/stat.h>

#include <algorithm>
#include <regex>

#include "backends/airplayTestSupport.h"
#include "manager/playerClasses.h"
#include "manager/playerManager.h"

using namespace airplaytest;

namespace {

// The device's stream of a video: the first path component is "APPLE".
std::string apple(const Media& m, size_t i) {
  std::string u = m.url(i);
  return u.replace(u.find("/MediaItems/"), 12, "/APPLE/");
}

// A fixed answer of GET /scrub.
std::string scrub(double duration, double position) {
  char buf[96];
  std::snprintf(buf, sizeof buf, "duration: %f\nposition: %f\n", duration, position);
  return buf;
}

// The GET /scrub requests between the first and the second /play.
size_t pollsOfFirstTrack(const sim::AirplayDevice& d) {
  size_t polls = 0, plays = 0;
  for (const std::string& l : lines(d)) {
    if (l == "POST /play") ++plays;
    else if (l == "GET /scrub" && plays == 1) ++polls;
  }
  return polls;
}

// The device's requests but the loop's polls.
Strings commands(const sim::AirplayDevice& d) {
  Strings out;
  for (const std::string& l : lines(d))
    if (l != "GET /scrub") out.push_back(l);
  return out;
}

class AirplayPlayerTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(device.start()); }
  sim::AirplayDevice device;
};

}  // namespace

TEST_F(AirplayPlayerTest, TheUrlOfEachKindOfTrack) {
  Media video = layMedia({"00:10:00"}, MEDIA_VIDEO);
  auto p = makePlayer(device, video.title);
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  const std::string sid = "?sid=" + std::to_string(p->sid());
  const std::string base = apple(video, 0) + sid + ",tid=";
  playlistElm_s elm;
  std::string path;
  int transcode = -1;

  // A URL without "Transcode" still gets its first component replaced.
  ASSERT_EQ(0, p->getContentPath_(elm, path, &transcode, nullptr, 0, -1, nullptr, nullptr, "30", "red", 1));
  EXPECT_TRUE(std::regex_match(path, std::regex(std::regex_replace(base, std::regex(R"([?.])"), R"(\$&)") +
                                                R"(\d+,autoSub=1)")))
      << path;
  EXPECT_EQ(0, transcode);
  EXPECT_EQ(MEDIA_VIDEO, elm.mediaType);
  EXPECT_EQ(path, p->contentPath());
  EXPECT_EQ(path, p->hlsPath());
  EXPECT_EQ("00:10:00", p->getTotalTime());
  const std::string first = path;

  auto options = [&](const std::string& url) { return url.substr(url.find(',', base.size())); };
  ASSERT_EQ(0, p->getContentPath_(elm, path, nullptr, nullptr, 0, -1, nullptr, nullptr, "30", "red", 0));
  EXPECT_EQ(",autoSub=0", options(path));  // no subtitle: size and colour left out
  ASSERT_EQ(0, p->getContentPath_(elm, path, nullptr, "00:02:07", 2, 2, "", "00:00:01", "30", "red", 0));
  EXPECT_EQ(",seek=127,atrack=2,strack=2,autoSub=0,ssize=30,scolor=red", options(path));
  ASSERT_EQ(0, p->getContentPath_(elm, path, nullptr, nullptr, 0, -1, "/share/Public/a b.srt", nullptr, "", nullptr,
                                  1));
  EXPECT_EQ(",externalSubtitle=%2Fshare%2FPublic%2Fa%20b.srt,autoSub=0", options(path));
  EXPECT_EQ(path, p->contentPath());
  EXPECT_EQ(first, p->hlsPath());  // the URL to interrupt stays the first
  EXPECT_EQ(0, path.find(base));

  // Audio: the library's URL and the sid alone; the stored URLs stay.
  playertest::store().delPlaylist(video.title, "music");
  Media audio = layMedia({"00:03:00"}, MEDIA_AUDIO, {stem() + "-song.mp3"});
  auto q = makePlayer(device, audio.title);
  ASSERT_EQ(0, q->getContentPath_(elm, path, nullptr, "00:01:00", 1, 2, nullptr, nullptr, nullptr, nullptr, 1));
  EXPECT_EQ(audio.url(0) + "?sid=" + std::to_string(q->sid()), path);
  EXPECT_EQ("", q->contentPath());
  EXPECT_EQ(1, q->stopHLSTranscoding());  // nothing stored, nothing run
  EXPECT_TRUE(calls("curl").empty());
}

TEST_F(AirplayPlayerTest, ATrackOutsideTheLibraryHasNoUrlAndIsSkipped) {
  const std::string title = playertest::testTitle();
  Media good = layMedia({"00:00:05"}, MEDIA_AUDIO);
  playertest::store().delPlaylist(title, "music");
  playertest::makePlaylist(title, {"/share/Public/airplay/" + stem() + "-gone.mp3", good.paths[0]});
  device.setScrubReply(scrub(5, 4.5));
  auto p = makePlayer(device, title);
  playlistElm_s elm;
  std::string path = "old";
  EXPECT_EQ(-1, p->getContentPath_(elm, path, nullptr, nullptr, 0, -1, nullptr, nullptr, nullptr, nullptr, 1));
  EXPECT_EQ("", path);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->isParked() && p->getPlayerState() == STATE_STOP_E && !played(device).empty(); }));
  EXPECT_EQ(Strings({good.url(0) + "?sid=" + std::to_string(p->sid())}), played(device));

  // Every track failing in a row stops even a repeating queue.
  playertest::store().delPlaylist(title, "music");
  playertest::makePlaylist(title, {"/share/Public/airplay/none1.mp3", "/share/Public/airplay/none2.mp3"});
  device.clearRequests();
  auto q = makePlayer(device, title);
  q->setPlayMode(REPEAT);
  ASSERT_EQ(0, q->play());
  ASSERT_TRUE(waitFor([&] { return q->isParked() && q->getPlayerState() == STATE_STOP_E; }));
  EXPECT_TRUE(played(device).empty());
}

TEST_F(AirplayPlayerTest, PlayPauseResumeSeekNextPreviousStop) {
  Media m = layMedia({"01:00:00", "01:00:00"}, MEDIA_VIDEO);
  device.setScrubReply(scrub(3600, 10));
  auto p = makePlayer(device, m.title);
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_EQ(Strings({"POST /stop"}), lines(device));  // a new player stops its device
  std::string dump;
  p->debugDump(dump);
  EXPECT_NE(std::string::npos, dump.find("FlowStage          :5\nm_bStop            :1\n")) << dump;
  EXPECT_EQ(0, p->seek("00:00:30"));  // stopped: nothing sent
  device.clearRequests();

  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 1 && p->getCurrTimeSecond() == 10; }));
  EXPECT_EQ("GET /scrub", lines(device).front());  // play() first asks whether the device answers
  EXPECT_EQ(0, played(device)[0].find(apple(m, 0) + "?sid=" + std::to_string(p->sid()) + ",tid="));
  EXPECT_EQ(STATE_PLAY_E, p->getPlayerState());

  ASSERT_EQ(0, p->pause());
  EXPECT_TRUE(p->isParked());
  EXPECT_EQ(STATE_PAUSE_E, p->getPlayerState());
  EXPECT_EQ(1u, count(lines(device), "POST /rate?value=0"));
  ASSERT_EQ(0, p->play());
  EXPECT_EQ(1u, count(lines(device), "POST /rate?value=1"));
  const size_t polls = count(lines(device), "GET /scrub");
  ASSERT_TRUE(waitFor([&] { return count(lines(device), "GET /scrub") > polls + 3; }));
  EXPECT_EQ(1u, played(device).size()) << "resumed, not restarted";
  EXPECT_EQ(STATE_PLAY_E, p->getPlayerState());

  EXPECT_EQ(0, p->seek("00:02:07"));
  EXPECT_EQ(1u, count(lines(device), "POST /scrub?position=125"));
  EXPECT_EQ(0, p->seekWithAudioAndSubtitle("00:00:04"));
  EXPECT_EQ(1u, count(lines(device), "POST /scrub?position=0"));

  ASSERT_EQ(0, p->next());
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 2; }));
  EXPECT_EQ(0, played(device)[1].find(apple(m, 1)));
  ASSERT_EQ(0, p->next());  // wraps to the first
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 3; }));
  EXPECT_EQ(0, played(device)[2].find(apple(m, 0)));
  ASSERT_EQ(0, p->previous());  // and back round to the last
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 4; }));
  EXPECT_EQ(0, played(device)[3].find(apple(m, 1)));
  EXPECT_EQ(1u, p->getCurrTrackIndex());

  const std::string firstUrl = played(device)[0];
  device.clearRequests();
  ASSERT_EQ(0, p->stop(false));
  EXPECT_TRUE(p->isParked());
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_EQ(1u, count(lines(device), "POST /stop"));
  EXPECT_EQ("", device.currentUrl());
  EXPECT_EQ("00:00:00", p->getCurrTime());
  // The first stream handed over is the one interrupted; the current one is
  // kept for the next time.
  std::string interrupted = firstUrl;
  interrupted.replace(interrupted.find("APPLE"), 5, "INTERRUPT_HLS");
  EXPECT_EQ(Strings({"curl -L '" + interrupted + "'"}), calls("curl"));
  EXPECT_EQ(p->contentPath(), p->hlsPath());
  EXPECT_EQ(0, p->stop(false));
  EXPECT_EQ(-1, p->setAudioAndSubtitle("00:00:10", 1, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
}

TEST_F(AirplayPlayerTest, StopFromPauseStopsTheDevice) {
  Media m = layMedia({"01:00:00"}, MEDIA_VIDEO);
  device.setScrubReply(scrub(3600, 10));
  auto p = makePlayer(device, m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 1 && p->getCurrTimeSecond() == 10; }));
  ASSERT_EQ(0, p->pause());
  device.clearRequests();
  ASSERT_EQ(0, p->stop(true));
  EXPECT_TRUE(p->isParked());
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_EQ(Strings({"POST /stop"}), lines(device));
}

TEST_F(AirplayPlayerTest, AForbiddingOrVanishedDeviceIsNotPlayed) {
  Media m = layMedia({"00:01:00"}, MEDIA_AUDIO);
  auto p = makePlayer(device, m.title);
  ASSERT_TRUE(waitFor([&] { return p->isParked(); }));
  device.setRefuse(403);
  EXPECT_EQ(-23, p->play());
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  EXPECT_EQ(0u, count(lines(device), "POST /play"));
  device.setRefuse(0);
  device.stop();
  EXPECT_EQ(-1, p->play());
  EXPECT_TRUE(p->isParked());

  sim::AirplayDevice other;
  ASSERT_TRUE(other.start());
  auto q = makePlayer(other, "");
  EXPECT_EQ(-1, q->play());
  EXPECT_EQ(-1, q->next());
  EXPECT_EQ(-1, q->previous());
  EXPECT_EQ(0, q->seek("00:00:10"));
}

TEST_F(AirplayPlayerTest, AudioEndsAtItsLengthAndTheQueueStopsAtItsEnd) {
  Media m = layMedia({"00:00:05", "00:00:05", "00:00:05"}, MEDIA_AUDIO);
  device.setScrubReply(scrub(5, 4.2));  // one second from the end
  auto p = makePlayer(device, m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 3 && p->isParked(); }));
  EXPECT_EQ(STATE_STOP_E, p->getPlayerState());
  const std::string sid = "?sid=" + std::to_string(p->sid());
  EXPECT_EQ(Strings({m.url(0) + sid, m.url(1) + sid, m.url(2) + sid}), played(device));
  EXPECT_EQ("POST /stop", lines(device).back());
  EXPECT_TRUE(calls("curl").empty());  // no stream of audio to interrupt
}

TEST_F(AirplayPlayerTest, StalledTracksEndAfterTheirCountOfPasses) {
  // Audio whose position never moves from 0: twelve polls.
  Media audio = layMedia({"01:00:00", "01:00:00"}, MEDIA_AUDIO);
  device.setScrubReply(scrub(0, 0));
  auto p = makePlayer(device, audio.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() >= 2; }));
  p.reset();
  EXPECT_EQ(12u, pollsOfFirstTrack(device));

  // A video at position 0: thirty-two polls.
  playertest::store().delPlaylist(audio.title, "music");
  Media video = layMedia({"01:00:00", "01:00:00"}, MEDIA_VIDEO);
  device.clearRequests();
  device.setScrubReply(scrub(3600, 0));
  auto v = makePlayer(device, video.title);
  ASSERT_EQ(0, v->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() >= 2; }));
  v.reset();
  EXPECT_EQ(32u, pollsOfFirstTrack(device));
}

TEST_F(AirplayPlayerTest, VideoEndsAtTheDevicesLengthOrTheLibrarysWhenTheDeviceHasNone) {
  Media m = layMedia({"01:00:00", "00:00:30"}, MEDIA_VIDEO);
  device.setScrubReply(scrub(120, 119.5));
  auto p = makePlayer(device, m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() >= 2; }));
  EXPECT_EQ(1u, pollsOfFirstTrack(device));
  // The second reports no length: the library's 30 s are past at 29.
  device.setScrubReply(scrub(0, 29));
  ASSERT_TRUE(waitFor([&] { return p->isParked() && p->getPlayerState() == STATE_STOP_E; }));
  EXPECT_EQ(2u, played(device).size());
}

TEST_F(AirplayPlayerTest, PhotosGoByTheirThumbnailAndChangeAfterTheSlideShowDelay) {
  const std::string a = stem() + "-a.jpg", b = stem() + "-b.jpg";
  Media m = layMedia({"", ""}, MEDIA_PHOTO, {a, b});
  root().write(kDir + ".@__thumb/s800" + a, "small a");
  auto p = makePlayer(device, m.title);
  p->setSlideShowDelay(2);
  playlistElm_s elm;
  std::string path;
  ASSERT_EQ(0, p->getContentPath_(elm, path, nullptr, nullptr, 0, -1, nullptr, nullptr, nullptr, nullptr, 1));
  EXPECT_EQ(kDir + ".@__thumb/s800" + a, path);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return p->getTotalTime() == "00:00:02"; }));
  ASSERT_TRUE(waitFor([&] { return p->isParked() && p->getPlayerState() == STATE_STOP_E; }));
  Strings bodies;
  for (const sim::AirplayRequest& r : device.requests())
    if (r.method == "PUT") bodies.push_back(r.body);
  EXPECT_EQ(Strings({"small a", "bytes of " + b}), bodies);  // no thumbnail: the photo itself
  EXPECT_EQ(1u, count(lines(device), "GET /scrub")) << "only play() asks; photos are not polled";
}

TEST_F(AirplayPlayerTest, AVideoAfterAPhotoStopsThePhotoViewFirst) {
  const std::string title = playertest::testTitle();
  Media photo = layMedia({""}, MEDIA_PHOTO, {stem() + ".jpg"});
  playertest::store().delPlaylist(title, "music");
  Media video = layMedia({"01:00:00"}, MEDIA_VIDEO, {stem() + ".mkv"});
  playertest::store().delPlaylist(title, "music");
  playertest::store().addPlaylist(title.c_str(), MEDIA_VIDEO, "music", "alice", "tagged");
  const int id = playertest::store().getPlaylistID(title, "music");
  playertest::store().transBegin();
  playertest::store().transAddElmInPlaylist(id, MEDIA_PHOTO, CONTENT_FILE, photo.paths[0].c_str(), 0);
  playertest::store().transAddElmInPlaylist(id, MEDIA_VIDEO, CONTENT_FILE, video.paths[0].c_str(), 1);
  playertest::store().transEnd();
  device.setScrubReply(scrub(3600, 10));
  auto p = makePlayer(device, title);
  p->setSlideShowDelay(0);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 1; }));
  Strings l = lines(device);
  auto put = std::find(l.begin(), l.end(), "PUT /photo");
  ASSERT_NE(l.end(), put);
  EXPECT_EQ(Strings({"POST /stop", "POST /play"}), Strings(put + 1, put + 3));
}

TEST_F(AirplayPlayerTest, ChangingTheSubtitleRestartsTheStreamAndSeeks) {
  Media m = layMedia({"01:00:00"}, MEDIA_VIDEO);
  device.setScrubReply(scrub(3600, 10));
  auto p = makePlayer(device, m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 1 && p->getCurrTimeSecond() == 10; }));
  const std::string tmp = "/tmp/" + stem() + ".tmp.srt";
  root().write(tmp, "1\n");
  device.clearRequests();
  ASSERT_EQ(0, p->setAudioAndSubtitle("00:02:07", 2, -1, tmp.c_str(), "1", "24", "white", "utf8",
                                      "/share/Public/airplay/movie.srt", 0));
  const Strings sent = commands(device);
  ASSERT_LE(3u, sent.size());
  EXPECT_EQ(Strings({"POST /stop", "POST /play", "POST /scrub?position=125"}), Strings(sent.begin(), sent.begin() + 3));
  const std::string url = played(device).at(0);
  EXPECT_EQ(std::string::npos, url.find(",seek="));
  EXPECT_NE(std::string::npos, url.find(",atrack=2,externalSubtitle=" + std::regex_replace(tmp, std::regex("/"), "%2F") +
                                        ",autoSub=0,ssize=24,scolor=white"))
      << url;
  EXPECT_EQ(2, p->getAudioTrack());
  std::string external;
  p->getExternalSubtitle(external);
  EXPECT_EQ("/share/Public/airplay/movie.srt", external);
  EXPECT_EQ("24", p->getSsize());
  EXPECT_EQ("utf8", p->getSencoding());
  EXPECT_EQ(1u, calls("curl").size());  // the first stream is interrupted

  // With a subtitle in use a seek restarts the stream with it.
  device.clearRequests();
  EXPECT_EQ(0, p->seek("00:00:12"));
  ASSERT_EQ(1u, played(device).size());
  EXPECT_NE(std::string::npos, played(device)[0].find(",externalSubtitle="));
  EXPECT_EQ("POST /scrub?position=10", commands(device).back());

  // Stopping removes the temporary subtitle.
  ASSERT_EQ(0, p->stop(false));
  EXPECT_FALSE(root().exists(tmp));
  p->getExternalSubtitle(external);
  EXPECT_EQ("", external);
}

TEST_F(AirplayPlayerTest, NoTrackChangeOnArmOrForAudio) {
  root().write("/sim/uname-m", "armv7l\n");
  Media m = layMedia({"01:00:00"}, MEDIA_VIDEO);
  auto arm = makePlayer(device, m.title);
  root().write("/sim/uname-m", "");
  EXPECT_TRUE(arm->isArm());
  device.setScrubReply(scrub(3600, 10));
  ASSERT_EQ(0, arm->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 1 && arm->getCurrTimeSecond() == 10; }));
  EXPECT_EQ(-1, arm->setAudioAndSubtitle("00:00:10", 1, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
  EXPECT_EQ(1u, played(device).size());
  arm.reset();

  playertest::store().delPlaylist(m.title, "music");
  Media a = layMedia({"01:00:00"}, MEDIA_AUDIO, {stem() + ".mp3"});
  device.setScrubReply("");
  auto p = makePlayer(device, a.title);
  EXPECT_FALSE(p->isArm());
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 2; }));
  EXPECT_EQ(-1, p->setAudioAndSubtitle("00:00:10", 1, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
  EXPECT_EQ(-1, p->setAudioAndSubtitle(nullptr, 1, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
}

TEST_F(AirplayPlayerTest, AHostileSubtitleOptionNeverReachesAShell) {
  Media m = layMedia({"01:00:00"}, MEDIA_VIDEO);
  device.setScrubReply(scrub(3600, 10));
  auto p = makePlayer(device, m.title);
  ASSERT_EQ(0, p->play());
  ASSERT_TRUE(waitFor([&] { return played(device).size() == 1 && p->getCurrTimeSecond() == 10; }));
  const std::string planted = root().path("/tmp/planted-" + stem());
  const std::string size = "1'; touch " + planted + "; echo '";
  ASSERT_EQ(0, p->setAudioAndSubtitle("00:00:05", 0, 1, nullptr, nullptr, size.c_str(), nullptr, nullptr, nullptr, 0));
  ASSERT_EQ(0, p->stop(false));
  struct stat st;
  EXPECT_NE(0, ::stat(planted.c_str(), &st));
  ASSERT_EQ(1u, calls("curl").size());  // the first stream's, which was harmless
  EXPECT_EQ(std::string::npos, calls("curl")[0].find("touch"));
  EXPECT_EQ("", p->hlsPath());
}

TEST_F(AirplayPlayerTest, TheManagerBuildsItForAnAirplayDevice) {
  const std::vector<playerClass_s>& rows = default_player_classes();
  ASSERT_GE(rows.size(), 2u);
  EXPECT_EQ(PLAYER_TYPE_DLNA, rows[0].bit);
  EXPECT_EQ(PLAYER_TYPE_AIRPLAY, rows[1].bit);
  renderCacheInfo_s info;
  info.type = PLAYER_TYPE_AIRPLAY | PLAYER_TYPE_VIDEO;
  info.deviceName = "Lounge";
  info.ip = "127.0.0.1";
  info.port = device.port();
  int err = 0;
  std::unique_ptr<CPlayer> p(rows[1].make(info, "ap-row", "", "", err));
  ASSERT_NE(nullptr, p);
  EXPECT_EQ("Lounge", p->getDeviceName());
  EXPECT_TRUE(waitFor([&] { return count(lines(device), "POST /stop") == 1; }));
  EXPECT_NE(nullptr, dynamic_cast<CAirplayPlayer*>(p.get()));
}
