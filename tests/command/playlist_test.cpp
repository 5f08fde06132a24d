// The playlist commands through the envelope, against the real store in the
// test root and a manager whose players are fakes: replies byte for byte,
// each failure code, the parameter files' lifecycle, the duplicate's rules,
// the agent's object ids, players following changes, and hostile values.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "command/playlistHandlers.h"
#include "command/vessord.h"
#include "manager/fakePlayer.h"
#include "player/playerTestSupport.h"
#include "support/daemonHarness.h"
#include "vessorClient.h"

using playertest::Strings;
using testsupport::node;
using Params = vessorclient::paramList_t;

namespace {

const char kOk[] = "<root>\n\t<status>0</status>\n</root>\n";

class PlaylistCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    db();  // the store opens under the test root before any handler reaches it
    app = "app-" + playertest::testTitle();
  }
  void TearDown() override { std::remove(root().path("/sim/brelctl/getObjectID.reply").c_str()); }
  static testsupport::TestRoot& root() { return playertest::sharedRoot(); }
  static CSqlitePlaylist& db() { return playertest::store(); }

  std::string run(const std::string& command, const Params& params = {}) {
    const std::string packet = vessorclient::build_packet(command, params);
    XMLNode reply;
    handle_request(&m, packet.c_str(), packet.size(), reply, outcome);
    return reply_text(reply);
  }
  std::string status(const std::string& command, const Params& params = {}) { return node(run(command, params), "status"); }
  Params create(const std::string& title, const char* type = "audio") {
    return {{"playlist", title}, {"playlistType", type}, {"appType", app}};
  }
  Params add(const std::string& title, const std::string& content, const char* media = "audio",
             const char* type = "file") {
    return {{"playlist", title}, {"contentType", type}, {"mediaType", media}, {"content", content}, {"appType", app}};
  }
  Params named(const std::string& title, Params more = {}) {
    more.insert(more.begin(), {{"playlist", title}, {"appType", app}});
    return more;
  }
  std::vector<playlistElm_s> rows(const std::string& title, const std::string& appType = "") {
    std::vector<playlistElm_s> out;
    const int id = db().getPlaylistID(title, appType.empty() ? app : appType);
    if (id > 0) db().getPlaylistElmsByPage(out, id, 0, 0);
    return out;
  }
  // "content:media" in play order, the orders checked dense on the way.
  Strings contents(const std::string& title, const std::string& appType = "") {
    if (db().getPlaylistID(title, appType.empty() ? app : appType) < 1) return {"<none>"};
    Strings out;
    const std::vector<playlistElm_s> r = rows(title, appType);
    for (size_t i = 0; i < r.size(); ++i) {
      EXPECT_EQ(static_cast<int>(i), r[i].orderNum) << "orders not dense in " << title;
      out.push_back(r[i].content + ":" + std::to_string(r[i].mediaType));
    }
    return out;
  }
  std::string uuidOf(const std::string& title, const std::string& content) {
    for (const playlistElm_s& r : rows(title))
      if (r.content == content) return std::to_string(r.uuid);
    return "0";
  }
  void make(const std::string& title, const Strings& items) {
    ASSERT_EQ("0", status("CreatePlaylist", create(title)));
    for (const std::string& item : items) ASSERT_EQ("0", status("AddContent", add(title, item)));
  }
  std::string paramFile(const std::string& name, const std::string& text) {
    root().write("/tmp/" + name, text);
    return root().path("/tmp/" + name);
  }
  static bool exists(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
  }

  std::unique_ptr<CPlayerManager> owner{managertest::make_manager()};
  CPlayerManager& m = *owner;
  requestOutcome_s outcome;
  std::string app;
};

TEST_F(PlaylistCommands, LibraryRepliesAndFailures) {
  EXPECT_EQ("<root>\n\t<status>0</status>\n\t<size>0</size>\n</root>\n", run("SizeOfPlaylist", {{"appType", app}}));
  Params mix = create("Mix", "video");
  mix.push_back({"owner", "bob"});
  const std::string created = run("CreatePlaylist", mix);
  EXPECT_EQ("<root>\n\t<status>0</status>\n\t<playlistID>" + std::to_string(db().getPlaylistID("Mix", app)) +
                "</playlistID>\n\t<title>Mix</title>\n\t<type>video</type>\n\t<appType>" + app +
                "</appType>\n\t<owner>bob</owner>\n\t<tag/>\n</root>\n",
            created);
  EXPECT_EQ("-12", status("CreatePlaylist", create("Mix")));
  for (const char* missing : {"playlist", "playlistType", "appType"}) {
    Params p = create("X");
    p.erase(std::find_if(p.begin(), p.end(), [&](const auto& kv) { return kv.first == missing; }));
    EXPECT_EQ("-3", status("CreatePlaylist", p)) << missing;
  }
  // An unknown type word is stored as 4: "unknow" here, no node in a list.
  EXPECT_EQ("unknow", node(run("CreatePlaylist", create("Odd", "mixed")), "type"));
  EXPECT_EQ("0", status("CreatePlaylist", create("Pics", "photo")));
  EXPECT_EQ("3", node(run("SizeOfPlaylist", {{"appType", app}}), "size"));

  const std::string all = run("ListPlaylist", {{"appType", app}});
  EXPECT_EQ(all, run("ListPlaylist", {{"appType", app}, {"start", "2"}}));  // start alone: the whole list
  EXPECT_NE(std::string::npos, all.find("<title>Odd</title>\n\t\t<appType>")) << all;
  EXPECT_NE(std::string::npos, all.find("<title>Pics</title>\n\t\t<type>photo</type>")) << all;
  const std::string page = run("ListPlaylist", {{"appType", app}, {"start", "1"}, {"count", "1"}});
  EXPECT_EQ("Odd", node(page, "playlist/title"));
  EXPECT_EQ(std::string::npos, page.find("Pics"));
  EXPECT_EQ("-3", status("ListPlaylist"));
  EXPECT_EQ("-3", status("SizeOfPlaylist"));
}

TEST_F(PlaylistCommands, ContentRepliesAndFailures) {
  make("L", {"/share/Public/a.mp3"});
  Params front = add("L", "64$1", "movie", "object");
  front.push_back({"orderNum", "0"});
  ASSERT_EQ("0", status("AddContent", front));
  const playlistElm_s first = rows("L")[0];
  EXPECT_EQ("<root>\n\t<status>0</status>\n\t<item>\n\t\t<playlistID>" + std::to_string(first.playlistID) +
                "</playlistID>\n\t\t<uuid>" + std::to_string(first.uuid) +
                "</uuid>\n\t\t<mediaType>UNKNOW</mediaType>\n\t\t<contentType>object</contentType>\n\t\t"
                "<content>64$1</content>\n\t\t<upnpID>" + first.upnpObjID +
                "</upnpID>\n\t\t<orderNum>0</orderNum>\n\t</item>\n</root>\n",
            run("ListContentOfPlaylist", named("L", {{"start", "0"}, {"count", "1"}})));
  EXPECT_EQ("64$1", node(run("ListContentOfPlaylist", named("L", {{"start", "1"}})), "item/content"));
  EXPECT_EQ("2", node(run("SizeOfListContent", named("L")), "size"));

  EXPECT_EQ("-10", status("SizeOfListContent", {{"playlist", "L"}}));  // not -3
  EXPECT_EQ("-14", status("SizeOfListContent", named("None")));
  EXPECT_EQ("-10", status("ListContentOfPlaylist", named("None")));
  EXPECT_EQ("-3", status("ListContentOfPlaylist", {{"playlist", "L"}}));
  EXPECT_EQ("-12", status("AddContent", add("None", "x")));
  EXPECT_EQ("-3", status("AddContent", {{"playlist", "L"}, {"mediaType", "audio"}, {"content", "x"}, {"appType", app}}));
  EXPECT_EQ("-14", status("ReOrderContent", named("None", {{"origOrder", "0"}, {"newOrder", "1"}})));
  EXPECT_EQ(kOk, run("ReOrderContent", named("L", {{"origOrder", "0"}, {"newOrder", "1"}})));
  EXPECT_EQ((Strings{"/share/Public/a.mp3:0", "64$1:4"}), contents("L"));
  EXPECT_EQ(kOk, run("DelContent", named("L", {{"uuid", std::to_string(first.uuid)}})));
  EXPECT_EQ((Strings{"/share/Public/a.mp3:0"}), contents("L"));
  EXPECT_EQ("-12", status("DelContent", named("None", {{"uuid", "1"}})));
  EXPECT_EQ(kOk, run("DelPlaylist", named("L")));
  EXPECT_EQ((Strings{"<none>"}), contents("L"));
  EXPECT_EQ("-3", status("DelPlaylist", {{"playlist", "L"}}));
}

TEST_F(PlaylistCommands, BatchAddPositionsAndFileLifecycle) {
  const std::string items = "<item mediaType=\"photo\" contentType=\"file\">N1</item><item>N2</item>"
                            "<item mediaType=\"video\">N3</item>";
  const Strings appended = {"A:0", "B:0", "C:0", "N1:1", "N2:4", "N3:4"};
  const std::pair<const char*, Strings> cases[] = {
      {"1", {"A:0", "N1:1", "N2:4", "N3:4", "B:0", "C:0"}}, {"3", appended}, {"9", appended}, {"0", appended}, {"-2", appended}};
  for (const auto& c : cases) {
    const std::string title = std::string("P") + c.first;
    make(title, {"A", "B", "C"});
    const std::string path = paramFile(
        "add.xml", "<any><playlist>" + title + "</playlist><appType>" + app + "</appType>" + items + "</any>");
    EXPECT_EQ(kOk, run("BatchAddPlaylist", {{"filePath", path}, {"start", c.first}}));
    EXPECT_EQ(c.second, contents(title)) << "start " << c.first;
    EXPECT_FALSE(exists(path)) << "a batch that reached its loop consumes its file";
  }
  // Made by the batch path: owner and tag from the file, "dup" is type 4.
  std::string path = paramFile("new.xml", "<r><playlist playlistType=\"dup\">Fresh</playlist><appType>" + app +
                                              "</appType><owner>carol</owner><tag>t1</tag><item mediaType=\"audio\" "
                                              "contentType=\"file\">F</item></r>");
  EXPECT_EQ("0", status("BatchAddPlaylist", {{"filePath", path}}));
  playlistLibElm_s lib;
  db().getPlaylistLibElmByID(db().getPlaylistID("Fresh", app), lib);
  EXPECT_EQ("carol/t1/4", lib.owner + "/" + lib.tag + "/" + std::to_string(lib.playlistType));
  EXPECT_EQ((Strings{"F:0"}), contents("Fresh"));
  // Failures before the loop leave the file.
  EXPECT_EQ("-15", status("BatchAddPlaylist", {{"filePath", root().path("/tmp/absent.xml")}}));
  for (const std::pair<const char*, const char*>& bad : {std::make_pair("", "-16"),
                                                        std::make_pair("<r><playlist>X</playlist><appType/></r>", "-12")}) {
    path = paramFile("bad.xml", bad.first);
    EXPECT_EQ(bad.second, status("BatchAddPlaylist", {{"filePath", path}}));
    EXPECT_TRUE(exists(path));
  }
  EXPECT_EQ("-3", status("BatchAddPlaylist"));
}

TEST_F(PlaylistCommands, BatchDeleteKeepsItsFileAndStopsAtFailure) {
  make("D", {"A", "B", "C"});
  const std::string head = "<r><playlist>D</playlist><appType>" + app + "</appType>";
  const std::string path =
      paramFile("del.xml", head + "<uuid>" + uuidOf("D", "A") + "</uuid><uuid/><uuid>" + uuidOf("D", "C") + "</uuid></r>");
  EXPECT_EQ(kOk, run("BatchDelPlaylist", {{"filePath", path}}));
  EXPECT_EQ((Strings{"B:0"}), contents("D"));
  EXPECT_TRUE(exists(path)) << "a batch delete never removes its file";
  const std::string gone = "<r><playlist>None</playlist><appType>" + app + "</appType></r>";
  EXPECT_EQ("-14", status("BatchDelPlaylist", {{"filePath", paramFile("d2.xml", gone)}}));
  EXPECT_EQ("-16", status("BatchDelPlaylist", {{"filePath", paramFile("d3.xml", "<r><playlist>D</playlist></r>")}}));
  EXPECT_EQ("-15", status("BatchDelPlaylist", {{"filePath", root().path("/tmp/absent.xml")}}));
  EXPECT_EQ("-3", status("BatchDelPlaylist"));
}

TEST_F(PlaylistCommands, DuplicateRules) {
  ASSERT_EQ("0", status("CreatePlaylist", create("Src")));
  for (const char* media : {"audio", "video", "photo"}) ASSERT_EQ("0", status("AddContent", add("Src", media, media)));
  const Strings copy = {"audio:0", "video:4", "photo:1"};  // "vidoe" in the file
  make("Dest", {"old"});
  const Params dup = {{"playlist_src", "Src"}, {"playlist_dest", "Dest"}, {"appType", app}};
  EXPECT_EQ(kOk, run("DupPlaylist", dup));
  EXPECT_EQ(copy, contents("Dest"));
  EXPECT_NE(std::string::npos, run("ListContentOfPlaylist", named("Dest")).find("<mediaType>UNKNOW</mediaType>"));
  EXPECT_FALSE(exists(root().path(kDupPlaylistFile)));

  // Another target application: its older playlist of that title is kept
  // and added to; the delete went to the source's application.
  const std::string other = app + "-other";
  ASSERT_EQ(0, db().addPlaylist("Dest", MEDIA_AUDIO, other.c_str(), nullptr, nullptr));
  ASSERT_EQ(0, db().addElmInPlaylist("Dest", MEDIA_AUDIO, CONTENT_FILE, other.c_str(), "kept", -1));
  Params toOther = dup;
  toOther.push_back({"destAppType", other});
  EXPECT_EQ("0", status("DupPlaylist", toOther));
  EXPECT_EQ((Strings{"kept:0", "audio:0", "video:4", "photo:1"}), contents("Dest", other));
  EXPECT_EQ((Strings{"<none>"}), contents("Dest"));

  // A source without rows deletes the destination and makes nothing.
  make("Empty", {});
  make("Gone", {"x"});
  EXPECT_EQ("0", status("DupPlaylist", {{"playlist_src", "Empty"}, {"playlist_dest", "Gone"}, {"appType", app}}));
  EXPECT_EQ((Strings{"<none>"}), contents("Gone"));
  EXPECT_EQ("-10", status("DupPlaylist", {{"playlist_src", "None"}, {"playlist_dest", "Z"}, {"appType", app}}));
  EXPECT_EQ("-3", status("DupPlaylist", {{"playlist_src", "Src"}, {"appType", app}}));
}

// Markup in the copy's title reaches no other playlist; markup in contents
// changes the copy at most; a planted link is never written through.
TEST_F(PlaylistCommands, DuplicateStaysInsideTheCopy) {
  make("Src", {"plain", "x</item><item mediaType=\"photo\" contentType=\"file\">injected"});
  make("A", {"a"});
  EXPECT_EQ("0", status("DupPlaylist", {{"playlist_src", "Src"}, {"playlist_dest", "A</playlist><playlist>B"},
                                        {"appType", app}}));
  EXPECT_EQ((Strings{"a:0"}), contents("A"));
  EXPECT_EQ((Strings{"<none>"}), contents("B"));
  EXPECT_EQ(3u, contents("A</playlist><playlist>B").size());
  EXPECT_EQ("0", status("DupPlaylist", {{"playlist_src", "Src"}, {"playlist_dest", "Rock & Roll"}, {"appType", app}}));
  EXPECT_EQ(3u, contents("Rock & Roll").size());

  root().write("/tmp/victim", "precious");
  const std::string link = root().path(kDupPlaylistFile);
  ASSERT_EQ(0, ::symlink(root().path("/tmp/victim").c_str(), link.c_str()));
  EXPECT_EQ("0", status("DupPlaylist", {{"playlist_src", "A"}, {"playlist_dest", "T"}, {"appType", app}}));
  EXPECT_EQ("precious", root().read("/tmp/victim"));
  EXPECT_EQ((Strings{"a:0"}), contents("T"));
  EXPECT_FALSE(exists(link));
}

TEST_F(PlaylistCommands, ObjectIdFromTheAgent) {
  for (const char* f : {"/share/Public/Ça va.mkv", "/share/Public/one.mkv", "/share/Public/x;touch pwned.mkv"})
    root().write(f, "v");
  auto ask = [&](const std::string& path) { return run("GetUpnpObjectID", {{"filePath", path}}); };
  root().write("/sim/brelctl/getObjectID.reply", "<root><status>success</status><objectID>64$9</objectID></root>");
  EXPECT_EQ("<root>\n\t<status>0</status>\n\t<objectID>64$9</objectID>\n</root>\n", ask("/share/Public/one.mkv"));
  // Unquoted on the line: the blank makes two words.
  root().clearCalls();
  EXPECT_EQ("0", node(ask("/share/Public/Ça va.mkv"), "status"));
  ASSERT_EQ(1u, root().calls().size());
  EXPECT_NE(std::string::npos, root().calls()[0].find("Ça' va.mkv")) << root().calls()[0];

  const std::pair<const char*, const char*> agent[] = {{"<root><status>failed</status></root>", "-13"},
                                                       {"<root><objectID>1</objectID></root>", "-17"},
                                                       {"<root><status>success</status></root>", "-9"},
                                                       {"garbage", "-6"}};
  for (const auto& a : agent) {
    root().write("/sim/brelctl/getObjectID.reply", a.first);
    EXPECT_EQ(a.second, node(ask("/share/Public/one.mkv"), "status")) << a.first;
  }
  EXPECT_EQ("-13", node(ask("/share/Public/missing.mkv"), "status"));
  // A name the shell would act on never reaches it.
  root().clearCalls();
  EXPECT_EQ("-1", node(ask("/share/Public/x;touch pwned.mkv"), "status"));
  EXPECT_TRUE(root().calls().empty());
  // No filePath: no reply at all, which ends the daemon.
  run("GetUpnpObjectID");
  EXPECT_TRUE(outcome.fatal);
}

TEST_F(PlaylistCommands, HostileAndOddValuesStoredVerbatimOrRefused) {
  const Strings odd = {"What's Going On?.mp3", "#1 Hits ~ 2024.mp3", "Ça va.mkv", "$(touch /tmp/p)", "a;b", "l1\nl2",
                       "x</content><y>"};
  make("Odd", odd);
  Strings expected;
  for (const std::string& content : odd) expected.push_back(content + ":0");
  EXPECT_EQ(expected, contents("Odd"));
  // What SQL's quotes cannot hold is refused as a failed write.
  for (const char* title : {"O'Brien", "x'); DROP TABLE Playlist_TBL; --"})
    EXPECT_EQ("-12", status("CreatePlaylist", create(title)));
  Params badOwner = create("Q");
  badOwner.push_back({"owner", "'; DELETE FROM PlaylistLib_TBL; --"});
  EXPECT_EQ("-12", status("CreatePlaylist", badOwner));
  for (const char* title : {"$(reboot)", "a;b", "#1 ~ ?!"}) EXPECT_EQ("0", status("CreatePlaylist", create(title)));
  EXPECT_EQ("4", node(run("SizeOfPlaylist", {{"appType", app}}), "size"));
  EXPECT_EQ(expected, contents("Odd"));
  EXPECT_FALSE(exists(root().path("/tmp/p")));
  sqlite3* raw = nullptr;
  ASSERT_EQ(SQLITE_OK, sqlite3_open(db().dbPath().c_str(), &raw));
  std::string schema;
  sqlite3_exec(raw, "SELECT group_concat(name) FROM sqlite_master", [](void* out, int, char** v, char**) {
    *static_cast<std::string*>(out) = v[0] ? v[0] : "";
    return 0;
  }, &schema, nullptr);
  sqlite3_close(raw);
  EXPECT_EQ("Version_TBL,PlaylistLib_TBL,Playlist_TBL", schema.substr(0, 40)) << schema;
}

// The real daemon over its socket: a batch file laid by the client is
// consumed, the page comes back, and GetUpnpObjectID without filePath ends
// the daemon.
TEST(PlaylistSocket, BatchThroughTheDaemonAndTheFatalObjectIdRequest) {
  testsupport::TestRoot root(false);
  testsupport::DaemonProcess daemon(root.dir());
  ASSERT_TRUE(daemon.start()) << daemon.log();
  root.write("/tmp/list.xml", "<r><playlist>S</playlist><appType>music</appType><item mediaType=\"audio\" "
                              "contentType=\"file\">/share/Public/#1 Hits ~ 2024.mp3</item></r>");
  EXPECT_EQ("0", node(daemon.command("BatchAddPlaylist", {{"filePath", root.path("/tmp/list.xml")}}), "status"));
  EXPECT_FALSE(std::ifstream(root.path("/tmp/list.xml")).good());
  EXPECT_EQ("/share/Public/#1 Hits ~ 2024.mp3",
            node(daemon.command("ListContentOfPlaylist", {{"playlist", "S"}, {"appType", "music"}}), "item/content"));
  std::string reply;
  EXPECT_NE(0, vessorclient::request(daemon.socketPath(), vessorclient::build_packet("GetUpnpObjectID", {}), reply));
  int status = -1;
  EXPECT_TRUE(daemon.waitExit(status));
  EXPECT_TRUE(daemon.waitForLog("Command:GetUpnpObjectID  --dev:N/A(err)")) << daemon.log();
}

// A fake player on "Live": its queue read back as contents.
class PlayersFollow : public PlaylistCommands {
 protected:
  Strings queue(managertest::CFakePlayer* p) {
    Strings out;
    for (const playQueueItem_s& item : p->getPlayQueue())
      for (const playlistElm_s& r : rows("Live"))
        if (r.uuid == item.uuid) out.push_back(r.content);
    return out;
  }
  std::string current(managertest::CFakePlayer* p) {
    const Strings q = queue(p);
    return p->getCurrTrackIndex() < q.size() ? q[p->getCurrTrackIndex()] : "none";
  }
};

TEST_F(PlayersFollow, EachChangeReachesThePlayingQueue) {
  make("Live", {"A", "B", "C"});
  managertest::list_device(m, "dev-1", "Kitchen", PLAYER_TYPE_DLNA | PLAYER_TYPE_AUDIO);
  ASSERT_EQ(0, m.setPlaylist("dev-1", "Live", app.c_str()));
  managertest::CFakePlayer* p = managertest::fake(m, "dev-1");
  ASSERT_NE(nullptr, p);
  p->setCurrTrackIndex(1);
  ASSERT_EQ("0", status("AddContent", add("Live", "D")));
  EXPECT_EQ((Strings{"A", "B", "C", "D"}), queue(p));
  EXPECT_EQ("B", current(p));
  // Another track deleted, then the current one moved: B stays current.
  ASSERT_EQ("0", status("DelContent", named("Live", {{"uuid", uuidOf("Live", "A")}})));
  EXPECT_EQ((Strings{"B", "C", "D"}), queue(p));
  EXPECT_EQ("B", current(p));
  ASSERT_EQ("0", status("ReOrderContent", named("Live", {{"origOrder", "0"}, {"newOrder", "2"}})));
  EXPECT_EQ((Strings{"C:0", "D:0", "B:0"}), contents("Live"));
  EXPECT_EQ((Strings{"C", "D", "B"}), queue(p));
  EXPECT_EQ("B", current(p));
  // A batch delete leaves the queue; a batch add brings it up to the store.
  const std::string head = "<r><playlist>Live</playlist><appType>" + app + "</appType>";
  const std::string del = paramFile("live-del.xml", head + "<uuid>" + uuidOf("Live", "D") + "</uuid></r>");
  ASSERT_EQ("0", status("BatchDelPlaylist", {{"filePath", del}}));
  EXPECT_EQ(3u, p->getPlayQueue().size());
  const std::string addFile =
      paramFile("live-add.xml", head + "<item mediaType=\"audio\" contentType=\"file\">E</item></r>");
  ASSERT_EQ("0", status("BatchAddPlaylist", {{"filePath", addFile}}));
  Strings held = queue(p);
  std::sort(held.begin(), held.end());
  EXPECT_EQ((Strings{"B", "C", "E"}), held);
  // Deleting the playlist stops the player and empties its queue.
  p->takeEvents();
  ASSERT_EQ("0", status("DelPlaylist", named("Live")));
  EXPECT_TRUE(p->getPlayQueue().empty());
  const Strings events = p->takeEvents();
  EXPECT_NE(events.end(), std::find(events.begin(), events.end(), "stop(true)"));
}

}  // namespace
