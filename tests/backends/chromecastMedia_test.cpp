// The Chromecast media preparation: the URL's words and parameters, the
// tool's verdict, subtitle files beside a video, the browse reply's title
// and thumbnail; then the decisions of getContentPath_ against the agent,
// the transcoding tool and the settings of the simulated appliance.
#include <gtest/gtest.h>
#include <unistd.h>

#include "backends/chromecastMedia.h"
#include "castTestSupport.h"

using namespace casttest;
namespace cast = vessord::cast;

namespace {

std::string profiled(std::string url) {
  cast::to_device_profile(url);
  return url;
}

std::string hls(std::string url) {
  cast::to_hls_mime(url);
  return url;
}

TEST(ChromecastUrlWords, DeliveryWordsBecomeTheDeviceProfileAtTheFirstFoundPlace) {
  EXPECT_EQ("http://h/CHROMECAST/5.mkv", profiled("http://h/Transcode/5.mkv"));
  EXPECT_EQ("http://h/CHROMECAST/5.iso", profiled("http://h/BD/5.iso"));
  EXPECT_EQ("http://h/CHROMECAST/5.iso", profiled("http://h/DVD/5.iso"));
  // A second word overwrites the head of the profile just written at the
  // same place.
  EXPECT_EQ("http://h/CHROMECASTROMECAST/BD5.mkv", profiled("http://h/Transcode/BD5.mkv"));
  std::string plain = "http://h/MediaItems/5.mkv";
  EXPECT_FALSE(cast::to_device_profile(plain));
  EXPECT_EQ("http://h/MediaItems/5.mkv", plain);
}

TEST(ChromecastUrlWords, MimeBecomesHlsOnlyWithACommaBehindIt) {
  EXPECT_EQ("http://h/CHROMECAST/5.mkv,mime=application/x-mpegurl,tid=3",
            hls("http://h/CHROMECAST/5.mkv,mime=video/x-matroska,tid=3"));
  EXPECT_EQ("http://h/CHROMECAST/5.mkv,mime=video/mp4", hls("http://h/CHROMECAST/5.mkv,mime=video/mp4"));
  EXPECT_EQ("http://h/CHROMECAST/5.mkv", hls("http://h/CHROMECAST/5.mkv"));
}

TEST(ChromecastUrlWords, CaptionsAndInterruptUrls) {
  EXPECT_EQ("http://h/Captions/5.mkv,tid=1,subtitleType=.vtt,autoTranscode=1",
            cast::captions_url("http://h/MediaItems/5.mkv,tid=1"));
  EXPECT_EQ("http://h/Captions/5.mkv,subtitleType=.vtt,autoTranscode=1", cast::captions_url("http://h/Transcode/5.mkv"));
  EXPECT_EQ("http://h/INTERRUPT_HLS/5.mkv,tid=1", cast::interrupt_url("http://h/CHROMECAST/5.mkv,tid=1"));
  EXPECT_EQ("", cast::interrupt_url("http://h/MediaItems/5.mkv,tid=1"));
  EXPECT_EQ("%2Fshare%2FPublic%2Fa%20b%2Fmovie.en.srt", cast::url_escape("/share/Public/a b/movie.en.srt"));
  EXPECT_EQ("%C3%A9t%C3%A9~x", cast::url_escape("\xc3\xa9t\xc3\xa9~x"));
}

TEST(ChromecastUrlWords, ScrubIsLoweredToFiveSeconds) {
  EXPECT_EQ(60, cast::scrub_seconds("00:01:03"));
  EXPECT_EQ(65, cast::scrub_seconds("00:01:05"));
  EXPECT_EQ(0, cast::scrub_seconds("00:00:04"));
  EXPECT_EQ(0, cast::scrub_seconds(nullptr));
}

TEST(ChromecastToolReplies, OnlyStatusNineRefusesAndArmIsNotAarch64) {
  EXPECT_EQ(0, cast::codec_verdict("<?xml version=\"1.0\"?><root><status>9</status></root>"));
  EXPECT_EQ(1, cast::codec_verdict("<root><status>0</status></root>"));
  EXPECT_EQ(1, cast::codec_verdict("<root><status>2</status></root>"));
  EXPECT_EQ(1, cast::codec_verdict("<root><error>9</error></root>"));
  EXPECT_EQ(1, cast::codec_verdict(""));
  EXPECT_EQ(1, cast::codec_verdict("<other><status>9</status></other>"));
  EXPECT_TRUE(cast::is_arm_machine("armv7l\n"));
  EXPECT_TRUE(cast::is_arm_machine("ARM926"));
  EXPECT_FALSE(cast::is_arm_machine("aarch64\n"));
  EXPECT_FALSE(cast::is_arm_machine("x86_64\n"));
}

TEST(ChromecastSubtitleFiles, EntriesBesideTheMovie) {
  std::string lang;
  EXPECT_EQ(1, cast::subtitle_entry_matches("movie.srt", "movie", &lang));
  EXPECT_EQ("", lang);
  EXPECT_EQ(1, cast::subtitle_entry_matches("movie.ASS", "movie", &lang));
  EXPECT_EQ(1, cast::subtitle_entry_matches("movie.en.srt", "movie", &lang));
  EXPECT_EQ(".en", lang);
  EXPECT_EQ(0, cast::subtitle_entry_matches("movie2.srt", "movie", nullptr));
  EXPECT_EQ(0, cast::subtitle_entry_matches("Movie.srt", "movie", nullptr));
  EXPECT_EQ(0, cast::subtitle_entry_matches("movie.mkv", "movie", nullptr));
  EXPECT_EQ(0, cast::subtitle_entry_matches("movie.en.sub", "movie", nullptr));
}

TEST(ChromecastTitles, EntitiesAndQuotes) {
  EXPECT_EQ("&x&amp;y", cast::device_title("&amp;x&amp;y"));
  EXPECT_EQ("Tom & Jerry <1>", cast::device_title("Tom &amp; Jerry &lt;1&gt;"));
  EXPECT_EQ("say \\\"hi\\\"", cast::device_title("say \"hi\""));
  std::string thumb, title;
  const std::string video =
      "<root><u:BrowseResponse><Result><DIDL-Lite><item><dc:title>A &amp;amp; B</dc:title>"
      "<upnp:class>object.item.videoItem</upnp:class><res protocolInfo=\"x:JPEG_TN\">http://t/1.jpg</res>"
      "<res protocolInfo=\"x:*\">http://m/1.mkv</res><res protocolInfo=\"y:JPEG_TN\">http://t/2.jpg</res>"
      "</item></DIDL-Lite></Result></u:BrowseResponse></root>";
  EXPECT_EQ(0, cast::title_and_thumbnail(video, thumb, title));
  EXPECT_EQ("http://t/2.jpg", thumb);
  EXPECT_EQ("A & B", title);
  thumb.clear();
  title.clear();
  const std::string music =
      "<root><u:BrowseResponse><Result><DIDL-Lite><item><dc:title>Song</dc:title>"
      "<upnp:class>object.item.audioItem</upnp:class><upnp:albumArtURI>http://t/art.jpg</upnp:albumArtURI>"
      "<res protocolInfo=\"x:JPEG_TN\">http://t/no.jpg</res></item></DIDL-Lite></Result></u:BrowseResponse></root>";
  EXPECT_EQ(0, cast::title_and_thumbnail(music, thumb, title));
  EXPECT_EQ("http://t/art.jpg", thumb);
  thumb.clear();
  title.clear();
  EXPECT_EQ(0, cast::title_and_thumbnail("<root><u:BrowseResponse/></root>", thumb, title));
  EXPECT_EQ("", thumb + title);
}

// ---- the decisions, against the simulated appliance ----

class ChromecastMedia : public ::testing::Test {
 protected:
  void SetUp() override {
    setPassThrough(false);
    setDefaultSubtitle(false);
    root().write("/sim/uname-m", "x86_64\n");
  }
  void TearDown() override { root().write("/sim/uname-m", ""); }

  // getContentPath_ of the first item, as a track start asks it.
  std::string prepare(const std::vector<Item>& items, mediaType_e media, int* result = nullptr) {
    m_player = makePlayer(playlistOf(items, media));
    return prepareAgain(result);
  }
  std::string prepareAgain(int* result = nullptr) {
    root().clearCalls();
    playlistElm_s item;
    std::string url, subtitleUrl;
    const int rc =
        m_player->getContentPath_(item, url, subtitleUrl, nullptr, 0, -1, nullptr, nullptr, nullptr, nullptr, 1);
    if (result) *result = rc;
    return url;
  }
  std::unique_ptr<CChromecast> m_player;
};

TEST_F(ChromecastMedia, PlainVideoKeepsItsDeliveryWithTagAndTid) {
  const Item v = lay("plain.mkv", MEDIA_VIDEO);
  int rc = -9;
  const std::string url = prepare({v}, MEDIA_VIDEO, &rc);
  EXPECT_EQ(0, rc);
  EXPECT_EQ(0u, url.find("http://127.0.0.1:8200/MediaItems/" + v.dbID + ".mkv?client=ChromeCast,tid="));
  EXPECT_EQ(url, m_player->contentUrl());
  EXPECT_EQ(url, m_player->hlsUrl());
  ASSERT_EQ(1u, toolCalls().size());
  EXPECT_NE(std::string::npos, toolCalls()[0].find("-i " + v.path + " -type 2 -o null.m3u8 -silent"));
}

TEST_F(ChromecastMedia, PassThroughHandsThePlainUrlOver) {
  setPassThrough(true);
  const std::string url = prepare({lay("pass.mkv", MEDIA_VIDEO)}, MEDIA_VIDEO);
  EXPECT_EQ(std::string::npos, url.find(",tid="));
  EXPECT_EQ(std::string::npos, url.find("ChromeCast"));
  EXPECT_EQ("", m_player->hlsUrl());
}

TEST_F(ChromecastMedia, RefusedCodecGetsThePlainUrl) {
  const Item v = lay("refused.avi", MEDIA_VIDEO, "00:01:00", "wmv3", "wmav2");
  int rc = -9;
  const std::string url = prepare({v}, MEDIA_VIDEO, &rc);
  EXPECT_EQ(0, rc);
  EXPECT_EQ("http://127.0.0.1:8200/MediaItems/" + v.dbID + ".avi", url);
}

TEST_F(ChromecastMedia, PhotoAsksNoToolAndGetsItsTid) {
  const std::string url = prepare({lay("pic.jpg", MEDIA_PHOTO)}, MEDIA_PHOTO);
  EXPECT_TRUE(toolCalls().empty());
  EXPECT_NE(std::string::npos, url.find("?client=ChromeCast,tid="));
  EXPECT_EQ("00:00:00", m_player->getTotalTime());
}

TEST_F(ChromecastMedia, DefaultSubtitleBesideTheMovieIsBurntIn) {
  setDefaultSubtitle(true);
  const Item v = lay("movie.mkv", MEDIA_VIDEO);
  lay("movie.en.srt", MEDIA_PHOTO, "", "", "", false);
  const std::string url = prepare({v}, MEDIA_VIDEO);
  EXPECT_EQ(0u, url.find("http://127.0.0.1:8200/CHROMECAST/" + v.dbID + ".mkv?client=ChromeCast,tid="));
  const std::string dir = v.path.substr(0, v.path.rfind('/') + 1);
  EXPECT_NE(std::string::npos, url.find(",externalSubtitle=" + cast::url_escape(dir + "movie.en.srt")));
  EXPECT_EQ(std::string::npos, url.find(",strack="));
}

TEST_F(ChromecastMedia, SubtitleOfAnotherNameOrSwitchedOffIsNotTaken) {
  setDefaultSubtitle(true);
  const Item v = lay("film.mkv", MEDIA_VIDEO);
  lay("film2.srt", MEDIA_PHOTO, "", "", "", false);
  std::string url = prepare({v}, MEDIA_VIDEO);
  EXPECT_NE(std::string::npos, url.find("/MediaItems/"));
  playlistElm_s item;
  std::string found;
  EXPECT_EQ(-1, m_player->getDefaultSubtitle(item, found)) << "an item of no content type";
  m_player->getPlaylistElmByIndex(item, -1);
  EXPECT_EQ(-1, m_player->getDefaultSubtitle(item, found));
  lay("film.srt", MEDIA_PHOTO, "", "", "", false);
  setDefaultSubtitle(false);
  EXPECT_EQ(0, m_player->getDefaultSubtitle(item, found));
  EXPECT_EQ("", found);
}

TEST_F(ChromecastMedia, TranscodedFileMadeInAdvanceIsFound) {
  const Item v = lay("ready.mkv", MEDIA_VIDEO);
  m_player = makePlayer(playlistOf({v}, MEDIA_VIDEO));
  playlistElm_s item;
  m_player->getPlaylistElmByIndex(item, -1);
  EXPECT_EQ(0, m_player->getTranscodedVideo(item));
  const std::string dir = v.path.substr(0, v.path.rfind('/') + 1);
  root().write(dir + ".@__thumb/transcode/ready.mkv.mobile1080p", "x");
  EXPECT_EQ(1, m_player->getTranscodedVideo(item));
}

TEST_F(ChromecastMedia, ArmAppliancesDoNotTranscode) {
  root().write("/sim/uname-m", "armv7l\n");
  setDefaultSubtitle(true);
  const Item v = lay("arm.mkv", MEDIA_VIDEO);
  lay("arm.srt", MEDIA_PHOTO, "", "", "", false);
  const std::string url = prepare({v}, MEDIA_VIDEO);
  EXPECT_TRUE(m_player->isArm());
  EXPECT_EQ("http://127.0.0.1:8200/MediaItems/" + v.dbID + ".mkv?client=ChromeCast", url);
  EXPECT_EQ(-1, m_player->setAudioAndSubtitle("00:00:00", 1, 0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
}

TEST_F(ChromecastMedia, PathThatCannotStandInQuotesRunsNoTool) {
  // The tool's line has the path in single quotes: this one runs no tool
  // and counts, like a tool that could not run, as supported.
  const Item v = lay("it's.mkv", MEDIA_VIDEO);
  int rc = -9;
  const std::string url = prepare({v}, MEDIA_VIDEO, &rc);
  EXPECT_EQ(0, rc);
  EXPECT_TRUE(toolCalls().empty());
  EXPECT_EQ(0u, url.find("http://127.0.0.1:8200/MediaItems/" + v.dbID + ".mkv?client=ChromeCast,tid="));
}

TEST_F(ChromecastMedia, ServerTranscodeUrlBecomesAnHlsStreamUnlessTranscodedInAdvance) {
  const Item v = lay("disc.mkv", MEDIA_VIDEO);
  root().write("/sim/brelctl/getContentUrl.reply", "<root><status>success</status><url>http://127.0.0.1:8200/BD/" +
                                                       v.dbID + ".iso,mime=video/x-matroska,dlna=1</url></root>\n");
  std::string url = prepare({v}, MEDIA_VIDEO);
  EXPECT_EQ(0u, url.find("http://127.0.0.1:8200/CHROMECAST/" + v.dbID + ".iso,mime=application/x-mpegurl,dlna=1,tid="))
      << url;
  const std::string dir = v.path.substr(0, v.path.rfind('/') + 1);
  root().write(dir + ".@__thumb/transcode/disc.mkv.ipad720p", "x");
  url = prepareAgain();
  EXPECT_EQ(0u, url.find("http://127.0.0.1:8200/CHROMECAST/" + v.dbID + ".iso,mime=video/x-matroska,dlna=1,tid="))
      << url;
  ::unlink(root().path("/sim/brelctl/getContentUrl.reply").c_str());
}

TEST_F(ChromecastMedia, LibraryIdsArePreparedLikeFiles) {
  const Item v = lay("byid.mkv", MEDIA_VIDEO);
  const std::string title = playertest::testTitle("-ids");
  playertest::makePlaylist(title, {v.dbID}, CONTENT_DBID, MEDIA_VIDEO);
  m_player = makePlayer(title);
  root().clearCalls();
  playlistElm_s item;
  std::string url, subtitleUrl, thumbnail, shown;
  ASSERT_EQ(0, m_player->getContentPath_(item, url, subtitleUrl, nullptr, 2, -1, nullptr, nullptr, nullptr, nullptr, 0));
  EXPECT_EQ(CONTENT_DBID, item.contentType);
  EXPECT_EQ(0u, url.find("http://127.0.0.1:8200/CHROMECAST/" + v.dbID + ".mkv?client=ChromeCast,tid=")) << url;
  EXPECT_NE(std::string::npos, url.find(",atrack=2"));
  ASSERT_EQ(1u, toolCalls().size());
  EXPECT_NE(std::string::npos, toolCalls()[0].find("-i " + v.path + " -type 2"));
  ASSERT_EQ(0, m_player->getThumbnailAndTitle(item, thumbnail, shown));
  EXPECT_EQ("byid", shown);
  EXPECT_EQ("http://127.0.0.1:8200/Thumbnails/" + v.dbID + ".jpg", thumbnail);
}

TEST_F(ChromecastMedia, MissingItemFailsThePreparation) {
  int rc = 0;
  prepare({lay("gone.mkv", MEDIA_VIDEO, "00:01:00", "h264", "aac", false)}, MEDIA_VIDEO, &rc);
  EXPECT_NE(0, rc);
}

}  // namespace
