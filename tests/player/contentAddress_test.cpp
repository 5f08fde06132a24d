// What the player asks of the media library's tools (content addressing, durations, subtitles, share paths, user
// ids, play history), checked against the stand-ins' call log: the exact command lines, what comes back, and that
// hostile text never reaches a shell.
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include <cctype>
#include <cstring>
#include <memory>

#include "foundation/log.h"
#include "playerTestSupport.h"

using namespace playertest;

namespace {

const std::string kMovie = "/share/CACHEDEV1_DATA/Multimedia/Movies/Big Trip.mkv";
const std::string kCafe = "/share/CACHEDEV1_DATA/Multimedia/Movies/Café Nuit.mp4";
const std::string kAgent = "/usr/bin/brelctl -c ";

// Each test starts with an empty call log and leaves no canned reply behind.
class AgentTest : public ::testing::Test {
 protected:
  void SetUp() override { sharedRoot().clearCalls(); }
  void TearDown() override {
    for (const char* cmd : {"getFilePath", "browse", "getExternalSubtitle"})
      for (const char* kind : {".reply", ".delay"})
        ::unlink(sharedRoot().path(std::string("/sim/brelctl/") + cmd + kind).c_str());
  }
  static playlistElm_s element(contentType_e type, const std::string& content) {
    playlistElm_s e;
    e.contentType = type;
    e.mediaType = MEDIA_VIDEO;
    e.content = content;
    return e;
  }
  // The result of the search and the subtitle found, as one text.
  static std::string findSubtitle(CRecordingPlayer& p, contentType_e type, const std::string& content) {
    playlistElm_s e = element(type, content);
    const int r = p.findAutoPlugSubtitle(e);
    return got(r > 0 ? 1 : r, p.getAutoPlugSubtitle());
  }
  // A player at `position` on a new playlist of video elements.
  static auto playing(const std::string& title, const Strings& contents, contentType_e type, const char* position,
                      const char* owner = "alice") {
    makePlaylist(title, contents, type, MEDIA_VIDEO, owner);
    auto p = std::make_unique<CRecordingPlayer>(PLAYER_TYPE_DLNA, title);
    p->m_currTime = position;
    return p;
  }
  static Strings historyCalls() {
    Strings out;
    for (const std::string& c : sharedRoot().calls())
      if (c.find("tovuhist") != std::string::npos) out.push_back(c);
    return out;
  }
};

}  // namespace

TEST_F(AgentTest, LookupsSendTheirLinesAndReadTheirNodes) {
  const std::string song = "http://127.0.0.1:8200/MediaItems/2001.mp3?client=ChromeCast";
  std::string id, path, url, xml;
  int start = -5, duration = -5;
  EXPECT_EQ("0 v1001", got(CPlayer::dbIDToUpnpObjectID("1001", MEDIA_VIDEO, id), id));
  EXPECT_EQ("0 " + kMovie, got(CPlayer::upnpObjectToFilePath("v1001", path), path));
  EXPECT_EQ(0, CPlayer::upnpObjectToFilePath("v1002", path, start, duration));
  EXPECT_EQ("95 2890", std::to_string(start) + " " + std::to_string(duration));
  // A blank and a non-ASCII letter: escaped, unquoted, one word for the agent.
  EXPECT_EQ("0 v1002", got(CPlayer::filePathToObjectID(kCafe, id), id));
  EXPECT_EQ("0 " + song, got(CPlayer::upnpObjectToUrl("a2001", url, "ChromeCast", "eth0"), url));
  EXPECT_EQ(0, CPlayer::upnpObjectToUrl("a2001", url, nullptr, ""));  // the option, with nothing behind
  // Browse: only -1 leaves a number out, and an empty interface leaves its option out.
  EXPECT_EQ(0, CPlayer::browseByUpnpObjectID("v1001", xml, "ChromeCast", 0, -1, ""));
  EXPECT_EQ(0, CPlayer::browseByDbID("3001", MEDIA_PHOTO, xml, "AppleTV", 5, 10, "eth1"));
  EXPECT_EQ("0 http://127.0.0.1:8200/MediaItems/2002.flac",
            got(CPlayer::dbIDToUrl("2002", MEDIA_AUDIO, url, nullptr, nullptr), url));
  // A file's URL is asked for by the path resolved on disk; an unresolvable one asks for an empty path.
  EXPECT_EQ("0 " + song,
            got(CPlayer::filePathToUrl("/share/Multimedia/Music/Song One.mp3", url, "ChromeCast", nullptr), url));
  EXPECT_EQ(-1, CPlayer::filePathToUrl("/share/Multimedia/none/x.mp3", url, nullptr, nullptr));
  EXPECT_EQ((Strings{kAgent + "getObjectID --dbID 1001 --mediaType 2", kAgent + "getFilePath --objectID v1001",
                     kAgent + "getFilePath --objectID v1002", kAgent + "getObjectID --filePath '" + kCafe + "'",
                     kAgent + "getContentUrl --objectID a2001 --clientType ChromeCast --interface eth0",
                     kAgent + "getContentUrl --objectID a2001 --interface",
                     kAgent + "browse --objectID v1001 --browseFlag BrowseMetadata --clientType ChromeCast "
                              "--startingIndex 0", kAgent + "getObjectID --dbID 3001 --mediaType 1",
                     kAgent + "browse --objectID p3001 --browseFlag BrowseMetadata --clientType AppleTV "
                              "--startingIndex 5 --requestedCount 10 --interface eth1",
                     kAgent + "getObjectID --dbID 2002 --mediaType 0", kAgent + "getContentUrl --objectID a2002",
                     kAgent + "getContentUrl --filePath '/share/CACHEDEV1_DATA/Multimedia/Music/Song One.mp3' "
                              "--clientType ChromeCast", kAgent + "getContentUrl --filePath ''"}),
            sharedRoot().calls());
  // A failed first step runs nothing more and leaves the output alone.
  sharedRoot().clearCalls();
  path = "unchanged";
  EXPECT_EQ(-1, CPlayer::dbIDtToFilePath("9999", MEDIA_VIDEO, path));
  EXPECT_EQ(-1, CPlayer::browseByFilePath("/share/Public/none.mp4", xml, nullptr, -1, -1, nullptr));
  EXPECT_EQ("unchanged", path);
  EXPECT_EQ(2u, sharedRoot().calls().size());
}

TEST_F(AgentTest, BadCutAndPartialReplies) {
  std::string path = "unchanged", xml;
  int start = -5, duration = -5;
  for (const char* reply : {"<root><filePath></filePath></root>", "<root><status>failed</status></root>",
                            "agent: no such object\n", ""}) {
    sharedRoot().write("/sim/brelctl/getFilePath.reply", reply);
    EXPECT_EQ(-1, CPlayer::upnpObjectToFilePath("v1001", path)) << reply;
    EXPECT_EQ("unchanged", path);
  }
  sharedRoot().write("/sim/brelctl/getFilePath.reply", "<root><status>failed</status></root>");
  EXPECT_EQ(0, CPlayer::upnpObjectToFilePath("v1001", path, start, duration));  // every value optional
  EXPECT_EQ("unchanged -5", path + " " + std::to_string(start));
  sharedRoot().write("/sim/brelctl/browse.reply", std::string(6000, 'b'));
  EXPECT_EQ(0, CPlayer::browseByUpnpObjectID("v1001", xml, nullptr, -1, -1, nullptr));
  EXPECT_EQ(4096u, xml.size());  // one read: a longer reply is cut
}

TEST_F(AgentTest, HostileTextRunsNothing) {
  std::string out = "unchanged", xml;
  const std::string quoteBreak = "v1001' ; touch /tmp/owned ; echo '";
  EXPECT_EQ(-1, CPlayer::dbIDToUpnpObjectID(quoteBreak, MEDIA_VIDEO, out));
  EXPECT_EQ(-1, CPlayer::upnpObjectToUrl(quoteBreak, out, nullptr, nullptr));
  EXPECT_EQ(-1, CPlayer::browseByUpnpObjectID(quoteBreak, xml, nullptr, -1, -1, nullptr));
  // Escaped paths, client types and interfaces stand bare.
  EXPECT_EQ(-1, CPlayer::filePathToObjectID("/share/a|reboot.mp3", out));
  EXPECT_EQ(-1, CPlayer::upnpObjectToUrl("a2001", out, "ChromeCast;reboot", nullptr));
  EXPECT_EQ(-1, CPlayer::upnpObjectToUrl("a2001", out, nullptr, "eth0&&reboot"));
  EXPECT_EQ(-1, CPlayer::browseByUpnpObjectID("v1001", xml, nullptr, -1, -1, "`reboot`"));
  EXPECT_EQ("unchanged", out);
  EXPECT_TRUE(sharedRoot().calls().empty());
  // Escaped shell characters reach the agent as plain text.
  EXPECT_EQ(-1, CPlayer::filePathToObjectID("/share/$(reboot) & co;.mp3", out));
  EXPECT_EQ(Strings{kAgent + "getObjectID --filePath '/share/$(reboot) & co;.mp3'"}, sharedRoot().calls());
}

TEST_F(AgentTest, DurationOfEachKindOfElement) {
  CRecordingPlayer p;
  const std::pair<contentType_e, std::string> elements[] = {
      {CONTENT_FILE, kMovie}, {CONTENT_DBID, "1002"}, {CONTENT_OBJECT, "v404"}, {CONTENT_OBJECT, "v1' ; reboot ; '"}};
  Strings totals;
  for (const auto& e : elements) {
    p.setTotalTime(element(e.first, e.second));
    totals.push_back(p.getTotalTime());
  }
  EXPECT_EQ((Strings{"01:42:05", "00:48:10", "00:00:00", "00:00:00"}), totals);
  EXPECT_EQ((Strings{"/usr/local/medialibrary/bin/tovufix getDuration --filePath '" + kMovie + "'",
                     kAgent + "getObjectID --dbID 1002 --mediaType 2", kAgent + "getFilePath --objectID v1002",
                     "/usr/local/medialibrary/bin/tovufix getDuration --filePath '" + kCafe + "'",
                     kAgent + "getFilePath --objectID v404"}),
            sharedRoot().calls());
}

TEST_F(AgentTest, AutoSubtitleByContentType) {
  CRecordingPlayer p;
  const std::string bigTrip = "1 /share/Multimedia/Movies/Big Trip.en.srt";  // the first track only
  EXPECT_EQ(bigTrip, findSubtitle(p, CONTENT_FILE, kMovie));
  EXPECT_EQ("0/UTF-8", p.getSseek() + "/" + p.getSencoding());
  EXPECT_EQ((Strings{kAgent + "getObjectID --filePath '" + kMovie + "'",
                     kAgent + "getExternalSubtitle --objectID v1001", "/sbin/narvuser -sv -a admin"}),
            sharedRoot().calls());
  EXPECT_EQ("1 /share/Public/clip.srt", findSubtitle(p, CONTENT_DBID, "1003"));
  // An unknown content type carries the object id; an object gets nothing.
  EXPECT_EQ(bigTrip, findSubtitle(p, CONTENT_UNKNOWN, "v1001"));
  sharedRoot().clearCalls();
  EXPECT_EQ("-1 ", findSubtitle(p, CONTENT_OBJECT, "v1001"));
  // A failed id lookup is returned before any subtitle query; hostile ids run nothing.
  EXPECT_EQ("-1 ", findSubtitle(p, CONTENT_FILE, "/share/Public/none.mkv"));
  EXPECT_EQ("-1 ", findSubtitle(p, CONTENT_UNKNOWN, "v1' ; reboot ; '"));
  EXPECT_EQ("-1 ", findSubtitle(p, CONTENT_DBID, "1' ; reboot ; '"));
  EXPECT_EQ(Strings{kAgent + "getObjectID --filePath /share/Public/none.mkv"}, sharedRoot().calls());
  // A subtitle under no share: no path, but offset and encoding are set.
  CRecordingPlayer q;
  sharedRoot().write("/sim/brelctl/getExternalSubtitle.reply",
                     "<root><u:GetExternalSubtitleResponse><Result><DIDL-Lite><ExternalSubtitleTrack>"
                     "<Path>/mnt/usb1/x.srt</Path></ExternalSubtitleTrack></DIDL-Lite></Result>"
                     "</u:GetExternalSubtitleResponse></root>");
  EXPECT_EQ("1 ", findSubtitle(q, CONTENT_UNKNOWN, "v1002"));
  EXPECT_EQ("0/UTF-8", q.getSseek() + "/" + q.getSencoding());
}

TEST_F(AgentTest, ShareFormAndUserIds) {
  CRecordingPlayer p;
  const std::string shares = sharedRoot().read("/sim/shares.txt");
  sharedRoot().write("/sim/shares.txt",
                     "no separator here\n"
                     "Media::x:/data\r\n"  // empty fields collapse: /data is the third
                     "Public:x:/share/CACHEDEV1_DATA/Public:rw\n");
  // The share path matches in the middle, but the cut is made from the start.
  EXPECT_EQ("/share/Mediadata/sub/a.srt", p.convertFullSubtitle("/mnt/data/sub/a.srt"));
  EXPECT_EQ("/share/Public/a.srt", p.convertFullSubtitle("/share/CACHEDEV1_DATA/Public/a.srt"));
  EXPECT_EQ("", p.convertFullSubtitle("/elsewhere/a.srt"));
  sharedRoot().write("/sim/shares.txt", shares);
  sharedRoot().clearCalls();
  std::string alice = "alice", nobody = "nobody", empty, hostile = "a'; reboot; '";
  EXPECT_EQ("1000", p.getUserId(alice));
  EXPECT_EQ("", p.getUserId(nobody));
  EXPECT_EQ("", p.getUserId(empty));
  EXPECT_EQ("", p.getUserId(hostile));
  EXPECT_EQ((Strings{"/usr/bin/id -u alice", "/usr/bin/id -u nobody"}), sharedRoot().calls());
}

TEST_F(AgentTest, HistoryLinesOfEachContentType) {
  auto file = playing(testTitle("-file"), {"/share/Public/a b.mp4"}, CONTENT_FILE, "00:01:00");
  file->m_seekTime = "00:00:30";
  file->m_externalSubtitle = "/share/Public/a b.srt";
  file->m_autoPlugSubtitle = "/share/Public/auto.srt";  // the external one wins
  file->setSubtitleTrack(2);
  file->setAudioTrack(1);
  file->m_sencoding = "UTF-8";
  file->m_sseek = "0";
  EXPECT_EQ(0, file->savePlayHistory());
  auto db = playing(testTitle("-db"), {"1003"}, CONTENT_DBID, "00:00:30");
  db->m_autoPlugSubtitle = "/share/Public/clip.srt";
  EXPECT_EQ(0, db->savePlayHistory());
  auto obj = playing(testTitle("-obj"), {"v1002", "v404"}, CONTENT_OBJECT, "00:00:05");
  EXPECT_EQ(0, obj->savePlayHistory());
  obj->setCurrTrackIndex(1);  // an object the library does not know
  EXPECT_EQ(1, obj->savePlayHistory());
  const std::string tool = "/usr/local/medialibrary/bin/tovuhist savePlayHistory 1000 ";
  EXPECT_EQ((Strings{tool + "'/share/Public/a b.mp4' -p 90 -m 1 -x '/share/Public/a b.srt' -s 2 -a 1 -e UTF-8 -o 0",
                     tool + "2 1003 -p 30 -m 1 -x /share/Public/clip.srt",
                     tool + "'/share/CACHEDEV1_DATA/Multimedia/Movies/Café Nuit.mp4' -p 5 -m 1"}),
            historyCalls());
}

TEST_F(AgentTest, NothingIsWrittenWithoutOwnerPositionOrSafeText) {
  auto noOwner = playing(testTitle("-nobody"), {"/share/Public/a.mp4"}, CONTENT_FILE, "00:00:10", "");
  EXPECT_EQ(1, noOwner->savePlayHistory());
  EXPECT_TRUE(sharedRoot().calls().empty());
  auto p = playing(testTitle(), {"/share/Public/a'; reboot; '.mp4", "/share/Public/b.mp4"}, CONTENT_FILE, "00:00:00");
  EXPECT_EQ(0, p->savePlayHistory());  // nothing watched yet
  EXPECT_EQ(Strings{"/usr/bin/id -u alice"}, sharedRoot().calls());
  p->m_currTime = "00:00:10";
  EXPECT_EQ(1, p->savePlayHistory());  // the path would leave its quotes
  p->setCurrTrackIndex(1);
  p->m_autoPlugSubtitle = "/share/Public/x'; reboot; '.srt";  // so would the subtitle
  EXPECT_EQ(1, p->savePlayHistory());
  p->m_autoPlugSubtitle.clear();
  p->m_sencoding = "UTF-8;reboot";  // stands bare
  EXPECT_EQ(1, p->savePlayHistory());
  p->m_sencoding.clear();
  p->setCurrTrackIndex(5);  // no such element: its type stays unknown
  EXPECT_EQ(1, p->savePlayHistory());
  auto db = playing(testTitle("-db"), {"1003 ; reboot"}, CONTENT_DBID, "00:00:10");
  EXPECT_EQ(1, db->savePlayHistory());  // a database id stands bare
  EXPECT_TRUE(historyCalls().empty());
}

namespace {

// An argument as the stand-ins write it to the call log.
std::string logged(const std::string& a) {
  bool plain = !a.empty();
  for (unsigned char c : a)
    if (!(std::isalnum(c) || std::strchr("_./:=@%+,-", c))) plain = false;
  if (plain) return a;
  std::string out = "'";
  for (char c : a) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

}  // namespace

// Names that users really give their files go through every operation that
// puts a path on a command line, and each tool gets the path as one argument.
TEST_F(AgentTest, RealFileNamesReachEachToolAsOneArgument) {
  const std::string dir = "/share/CACHEDEV1_DATA/Multimedia/Music/";
  const Strings names = {"What's Going On?.mp3", "AC/DC - Live [1991] {Remaster}.flac", "Don't Stop!.mp3",
                         "50% Off.mp4", "#1 Hits ~ 2024.mp3", "\xc3\x87" "a va.mkv", "Song #1.mp3", "~Song.mp3",
                         "two  blanks.mp3"};
  const std::string library = sharedRoot().read("/sim/media.tsv");
  std::string extra;
  for (size_t i = 0; i < names.size(); ++i) {
    extra += "x" + std::to_string(500 + i) + "\t" + std::to_string(500 + i) + "\t2\t" + dir + names[i] + "\t00:0" +
             std::to_string(i) + ":00\n";
    sharedRoot().write(dir + names[i], "media");
  }
  sharedRoot().write("/sim/media.tsv", library + extra);
  const std::string duration = "/usr/local/medialibrary/bin/tovufix getDuration --filePath ";
  for (size_t i = 0; i < names.size(); ++i) {
    const std::string path = dir + names[i], id = "x" + std::to_string(500 + i), arg = logged(path);
    sharedRoot().clearCalls();
    std::string out, xml, url;
    EXPECT_EQ("0 " + id, got(CPlayer::filePathToObjectID(path, out), out)) << path;
    CRecordingPlayer p;
    p.setTotalTime(element(CONTENT_FILE, path));
    EXPECT_EQ("00:0" + std::to_string(i) + ":00", p.getTotalTime()) << path;
    EXPECT_EQ(0, CPlayer::browseByFilePath(path, xml, nullptr, -1, -1, nullptr)) << path;
    playlistElm_s e = element(CONTENT_FILE, path);
    EXPECT_GE(p.findAutoPlugSubtitle(e), 0) << path;
    CPlayer::filePathToUrl(path, url, nullptr, nullptr);
    EXPECT_EQ((Strings{kAgent + "getObjectID --filePath " + arg, duration + arg, kAgent + "getObjectID --filePath " + arg,
                       kAgent + "browse --objectID " + id + " --browseFlag BrowseMetadata",
                       kAgent + "getObjectID --filePath " + arg, kAgent + "getExternalSubtitle --objectID " + id,
                       kAgent + "getContentUrl --filePath " + arg}),
              sharedRoot().calls());
    auto player = playing(testTitle(std::to_string(i)), {path}, CONTENT_FILE, "00:00:10");
    // The history line puts the path in single quotes as it stands: a quote
    // in the name would end them, so that line alone is not run.
    if (path.find('\'') != std::string::npos) {
      EXPECT_EQ(1, player->savePlayHistory());
      EXPECT_TRUE(historyCalls().empty());
      continue;
    }
    EXPECT_EQ(0, player->savePlayHistory());
    EXPECT_EQ(Strings{"/usr/local/medialibrary/bin/tovuhist savePlayHistory 1000 " + arg + " -p 10 -m 1"},
              historyCalls());
  }
  sharedRoot().write("/sim/media.tsv", library);
}

// A value that stands bare must stay one argument and never become an
// option, whatever the path escaping leaves unescaped (a tab, a stray UTF-8
// lead byte that swallows what follows it).
TEST_F(AgentTest, BareValuesNeverSplitIntoOptions) {
  CRecordingPlayer p;
  std::string out = "unchanged", xml;
  for (const std::string& path : {std::string("/share/x\t--dbID\t1001"), std::string("/share/\xc3\t--dbID 1001"),
                                  std::string("/share/a\xe2 --dbID 1001")}) {
    EXPECT_EQ(-1, CPlayer::filePathToObjectID(path, out));
    p.setTotalTime(element(CONTENT_FILE, path));
    EXPECT_EQ("00:00:00", p.getTotalTime());
  }
  EXPECT_EQ(-1, CPlayer::upnpObjectToUrl("a2001", out, "ChromeCast --all", nullptr));
  EXPECT_EQ(-1, CPlayer::upnpObjectToUrl("a2001", out, nullptr, "-x"));
  EXPECT_EQ(-1, CPlayer::browseByUpnpObjectID("v1001", xml, "--clientType", -1, -1, nullptr));
  EXPECT_EQ("unchanged", out);
  EXPECT_TRUE(sharedRoot().calls().empty());
  auto db = playing(testTitle("-db"), {"1 OR 1=1"}, CONTENT_DBID, "00:00:10");
  EXPECT_EQ(1, db->savePlayHistory());
  auto file = playing(testTitle("-file"), {"/share/Public/a.mp4"}, CONTENT_FILE, "00:00:10");
  for (const char* bad : {"-x", "UTF-8 -o 1", "--help"}) {
    file->m_sencoding = bad;
    EXPECT_EQ(1, file->savePlayHistory()) << bad;
    file->m_sencoding = "UTF-8";
    file->m_sseek = bad;
    EXPECT_EQ(1, file->savePlayHistory()) << bad;
    file->m_sseek = "0";
  }
  EXPECT_TRUE(historyCalls().empty());
}

namespace {

void on_signal(int) {}

// Runs `call` on a thread of its own while the agent, slow on `command`,
// has written the first part of its reply: that thread's blocked read is
// interrupted (no restart) until the call returns, so the read ends in an
// error after a short read.
int with_read_error(const std::string& command, const std::function<int()>& call) {
  sharedRoot().write("/sim/brelctl/" + command + ".delay", "1");
  struct sigaction sa = {}, old = {};
  sa.sa_handler = on_signal;
  sigemptyset(&sa.sa_mask);
  sigaction(SIGUSR1, &sa, &old);
  std::atomic<bool> done{false};
  int result = -99;
  std::thread worker([&] {
    result = call();
    done = true;
  });
  const auto started = [&] {
    for (const std::string& c : sharedRoot().calls())
      if (c.find("-c " + command) != std::string::npos) return true;
    return false;
  };
  while (!done && !started()) usleep(2000);
  while (!done) {
    pthread_kill(worker.native_handle(), SIGUSR1);
    usleep(5000);
  }
  worker.join();
  sigaction(SIGUSR1, &old, nullptr);
  return result;
}

}  // namespace

// A reply whose read ends in an error is no reply, even with its first part
// read: the subtitle search logs "faile to fread", and both give -1.
TEST_F(AgentTest, AReadErrorIsNoReply) {
  const std::string logFile = sharedRoot().path("/tmp/read-error.log");
  const int fd = ::open(logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  ASSERT_GE(fd, 0);
  vessord::log_set_tee(fd);
  sharedRoot().write("/sim/brelctl/getExternalSubtitle.reply",
                     "<root><u:GetExternalSubtitleResponse><Result><DIDL-Lite><ExternalSubtitleTrack>"
                     "<Path>/share/CACHEDEV1_DATA/Public/clip.srt</Path></ExternalSubtitleTrack></DIDL-Lite></Result>"
                     "</u:GetExternalSubtitleResponse></root>");
  CRecordingPlayer p;
  playlistElm_s e = element(CONTENT_UNKNOWN, "v1003");
  EXPECT_EQ(-1, with_read_error("getExternalSubtitle", [&] { return p.findAutoPlugSubtitle(e); }));
  EXPECT_EQ("", p.getAutoPlugSubtitle());
  sharedRoot().write("/sim/brelctl/browse.reply", "<root><item/></root>");
  std::string xml = "unchanged";
  EXPECT_EQ(-1, with_read_error("browse", [&] { return CPlayer::browseByUpnpObjectID("v1001", xml, nullptr, -1, -1,
                                                                                      nullptr); }));
  EXPECT_EQ("unchanged", xml);
  vessord::log_set_tee(-1);
  ::close(fd);
  const std::string log = sharedRoot().read("/tmp/read-error.log");
  EXPECT_NE(std::string::npos, log.find("faile to fread")) << log;
}
