// Automatic subtitles from the media library, share paths, user ids and
// the play history line.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "foundation/log.h"
#include "playerTestSupport.h"

using playertest::CRecordingPlayer;
using playertest::makePlaylist;
using playertest::sharedRoot;
using playertest::testTitle;
using Calls = std::vector<std::string>;

namespace {

class SubtitleHistoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sharedRoot().clearCalls();
    ::unlink(sharedRoot().path("/sim/history.tsv").c_str());
    m_shares = sharedRoot().read("/sim/shares.txt");
  }
  void TearDown() override {
    sharedRoot().write("/sim/shares.txt", m_shares);
    ::unlink(sharedRoot().path("/sim/brelctl/getExternalSubtitle.reply").c_str());
  }
  Calls calls() { return sharedRoot().calls(); }
  Calls historyCalls() {
    Calls out;
    for (const std::string& c : calls())
      if (c.find("tovuhist") != std::string::npos) out.push_back(c);
    return out;
  }
  int findSubtitle(CRecordingPlayer& p, contentType_e type, const std::string& content) {
    playlistElm_s e;
    e.contentType = type;
    e.mediaType = MEDIA_VIDEO;
    e.content = content;
    return p.findAutoPlugSubtitle(e);
  }
  std::string m_shares;
};

}  // namespace

TEST_F(SubtitleHistoryTest, AutoSubtitleByContentType) {
  CRecordingPlayer p;
  EXPECT_GT(findSubtitle(p, CONTENT_FILE, "/share/CACHEDEV1_DATA/Multimedia/Movies/Big Trip.mkv"), 0);
  EXPECT_EQ("/share/Multimedia/Movies/Big Trip.en.srt", p.getAutoPlugSubtitle());  // the first track only
  EXPECT_EQ("0", p.getSseek());
  EXPECT_EQ("UTF-8", p.getSencoding());
  EXPECT_EQ((Calls{"/usr/bin/brelctl -c getObjectID --filePath '/share/CACHEDEV1_DATA/Multimedia/Movies/Big Trip.mkv'",
                   "/usr/bin/brelctl -c getExternalSubtitle --objectID v1001", "/sbin/narvuser -sv -a admin"}),
            calls());
  EXPECT_GT(findSubtitle(p, CONTENT_DBID, "1003"), 0);
  EXPECT_EQ("/share/Public/clip.srt", p.getAutoPlugSubtitle());
  // An unknown content type carries the object id; an object gets nothing.
  EXPECT_GT(findSubtitle(p, CONTENT_UNKNOWN, "v1001"), 0);
  EXPECT_EQ("/share/Multimedia/Movies/Big Trip.en.srt", p.getAutoPlugSubtitle());
  sharedRoot().clearCalls();
  EXPECT_EQ(-1, findSubtitle(p, CONTENT_OBJECT, "v1001"));
  EXPECT_EQ("", p.getAutoPlugSubtitle());
  // A failed id lookup is returned before any subtitle query.
  EXPECT_EQ(-1, findSubtitle(p, CONTENT_FILE, "/share/Public/none.mkv"));
  EXPECT_EQ(-1, findSubtitle(p, CONTENT_UNKNOWN, "v1' ; reboot ; '"));
  EXPECT_EQ(Calls{"/usr/bin/brelctl -c getObjectID --filePath /share/Public/none.mkv"}, calls());

  CRecordingPlayer q;  // no track at all leaves the other fields alone
  EXPECT_GT(findSubtitle(q, CONTENT_UNKNOWN, "v1002"), 0);
  EXPECT_EQ("", q.getSseek());
  // A subtitle under no share: no path, but offset and encoding are set.
  sharedRoot().write("/sim/brelctl/getExternalSubtitle.reply",
                     "<root><u:GetExternalSubtitleResponse><Result><DIDL-Lite><ExternalSubtitleTrack>"
                     "<Path>/mnt/usb1/x.srt</Path></ExternalSubtitleTrack></DIDL-Lite></Result>"
                     "</u:GetExternalSubtitleResponse></root>");
  EXPECT_GT(findSubtitle(q, CONTENT_UNKNOWN, "v1002"), 0);
  EXPECT_EQ("", q.getAutoPlugSubtitle());
  EXPECT_EQ("0", q.getSseek());
  EXPECT_EQ("UTF-8", q.getSencoding());
}

TEST_F(SubtitleHistoryTest, ShareFormAndUserIds) {
  CRecordingPlayer p;
  sharedRoot().write("/sim/shares.txt",
                     "no separator here\n"
                     "Media::x:/data\r\n"  // empty fields collapse: /data is the third
                     "Public:x:/share/CACHEDEV1_DATA/Public:rw\n");
  // The share path matches in the middle, but the cut is made from the start.
  EXPECT_EQ("/share/Mediadata/sub/a.srt", p.convertFullSubtitle("/mnt/data/sub/a.srt"));
  EXPECT_EQ("/share/Public/a.srt", p.convertFullSubtitle("/share/CACHEDEV1_DATA/Public/a.srt"));
  EXPECT_EQ("", p.convertFullSubtitle("/elsewhere/a.srt"));

  sharedRoot().clearCalls();
  std::string alice = "alice", nobody = "nobody", empty, hostile = "a'; reboot; '";
  EXPECT_EQ("1000", p.getUserId(alice));
  EXPECT_EQ("", p.getUserId(nobody));
  EXPECT_EQ("", p.getUserId(empty));
  EXPECT_EQ("", p.getUserId(hostile));
  EXPECT_EQ((Calls{"/usr/bin/id -u alice", "/usr/bin/id -u nobody"}), calls());
}

TEST_F(SubtitleHistoryTest, HistoryLineForAFileWithEveryOption) {
  makePlaylist(testTitle(), {"/share/Public/a b.mp4"}, CONTENT_FILE, MEDIA_VIDEO);
  CRecordingPlayer p(PLAYER_TYPE_DLNA, testTitle().c_str(), "music");
  p.m_currTime = "00:01:00";
  p.m_seekTime = "00:00:30";
  char sub[] = "/share/Public/a b.srt";
  p.setExternalSubtitle(sub);
  p.m_autoPlugSubtitle = "/share/Public/auto.srt";  // the external one wins
  p.setSubtitleTrack(2);
  p.setAudioTrack(1);
  p.m_sencoding = "UTF-8";
  p.m_sseek = "0";

  int logPipe[2];
  ASSERT_EQ(0, pipe2(logPipe, O_CLOEXEC | O_NONBLOCK));
  vessord::log_set_tee(logPipe[1]);
  EXPECT_EQ(0, p.savePlayHistory());
  vessord::log_set_tee(-1);
  char buf[4096] = {0};
  ssize_t n = ::read(logPipe[0], buf, sizeof buf - 1);
  ::close(logPipe[0]);
  ::close(logPipe[1]);
  std::string log(buf, n > 0 ? static_cast<size_t>(n) : 0);
  for (size_t at; (at = log.find(sharedRoot().dir())) != std::string::npos;) log.erase(at, sharedRoot().dir().size());
  EXPECT_NE(std::string::npos,
            log.find("savePlayHistory cmd = /usr/local/medialibrary/bin/tovuhist savePlayHistory 1000 "
                     "'/share/Public/a b.mp4' -p 90 -m 1 -x '/share/Public/a b.srt' -s 2 -a 1 -e UTF-8 -o 0 \n"))
      << log;
  EXPECT_EQ("1000\t/share/Public/a b.mp4\t-p\t90\t-m\t1\t-x\t/share/Public/a b.srt\t-s\t2\t-a\t1\t-e\tUTF-8\t-o\t0\n",
            sharedRoot().read("/sim/history.tsv"));
}

TEST_F(SubtitleHistoryTest, HistoryLinesForDatabaseIdsAndObjects) {
  makePlaylist(testTitle("-db"), {"1003"}, CONTENT_DBID, MEDIA_VIDEO);
  CRecordingPlayer db(PLAYER_TYPE_DLNA, testTitle("-db").c_str(), "music");
  db.m_currTime = "00:00:30";
  db.m_autoPlugSubtitle = "/share/Public/clip.srt";
  EXPECT_EQ(0, db.savePlayHistory());

  makePlaylist(testTitle("-obj"), {"v1002", "v404"}, CONTENT_OBJECT, MEDIA_VIDEO);
  CRecordingPlayer obj(PLAYER_TYPE_DLNA, testTitle("-obj").c_str(), "music");
  obj.m_currTime = "00:00:05";
  EXPECT_EQ(0, obj.savePlayHistory());
  obj.m_currTrack = 1;  // an object the library does not know
  EXPECT_EQ(1, obj.savePlayHistory());
  EXPECT_EQ((Calls{"/usr/local/medialibrary/bin/tovuhist savePlayHistory 1000 2 1003 -p 30 -m 1 -x "
                   "/share/Public/clip.srt",
                   "/usr/local/medialibrary/bin/tovuhist savePlayHistory 1000 "
                   "'/share/CACHEDEV1_DATA/Multimedia/Movies/Café Nuit.mp4' -p 5 -m 1"}),
            historyCalls());
}

TEST_F(SubtitleHistoryTest, NothingIsWrittenWithoutOwnerPositionOrSafeText) {
  makePlaylist(testTitle("-nobody"), {"/share/Public/a.mp4"}, CONTENT_FILE, MEDIA_VIDEO, "");
  CRecordingPlayer noOwner(PLAYER_TYPE_DLNA, testTitle("-nobody").c_str(), "music");
  noOwner.m_currTime = "00:00:10";
  EXPECT_EQ(1, noOwner.savePlayHistory());
  EXPECT_TRUE(calls().empty());

  makePlaylist(testTitle(), {"/share/Public/a'; reboot; '.mp4", "/share/Public/fine.mp4"}, CONTENT_FILE,
               MEDIA_VIDEO);
  CRecordingPlayer p(PLAYER_TYPE_DLNA, testTitle().c_str(), "music");
  EXPECT_EQ(0, p.savePlayHistory());  // nothing watched yet
  EXPECT_EQ(Calls{"/usr/bin/id -u alice"}, calls());
  p.m_currTime = "00:00:10";
  EXPECT_EQ(1, p.savePlayHistory());  // the path would leave its quotes
  p.m_currTrack = 1;
  p.m_sencoding = "UTF-8;reboot";  // stands bare
  EXPECT_EQ(1, p.savePlayHistory());
  p.m_sencoding.clear();
  p.m_currTrack = 5;  // no such element: its type stays unknown
  EXPECT_EQ(1, p.savePlayHistory());
  EXPECT_TRUE(historyCalls().empty());
}
