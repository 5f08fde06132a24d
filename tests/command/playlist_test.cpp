// The playlist commands through the envelope, against the real store in the
// test root and a manager whose players are fakes: replies byte for byte,
// each failure code, the parameter files' lifecycle, the duplicate's rules,
// the agent's object ids, players following changes, and hostile values.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command/playlistHandlers.h"
#include "command/vessord.h"
#include "manager/fakePlayer.h"
#include "player/playerTestSupport.h"
#include "support/daemonHarness.h"
#include "vessorClient.h"

using managertest::CFakePlayer;
using playertest::Strings;
using testsupport::node;

namespace {

class PlaylistCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    playertest::store();
    app = "app-" + playertest::testTitle();
  }
  void TearDown() override { std::remove(root().path("/sim/brelctl/getObjectID.reply").c_str()); }
  static testsupport::TestRoot& root() { return playertest::sharedRoot(); }

  std::string run(const std::string& command, const vessorclient::paramList_t& params = {}) {
    const std::string packet = vessorclient::build_packet(command, params);
    XMLNode reply;
    handle_request(&m, packet.c_str(), packet.size(), reply, outcome);
    return reply_text(reply);
  }
  std::string status(const std::string& command, const vessorclient::paramList_t& params = {}) {
    return node(run(command, params), "status");
  }
  // The contents of `title` under `app`, in play order, as "content:media".
  Strings contents(const std::string& title, const std::string& appType = "") {
    Strings out;
    std::vector<playlistElm_s> rows;
    int id = playertest::store().getPlaylistID(title, appType.empty() ? app : appType);
    if (id < 1 || playertest::store().getPlaylistElmsByPage(rows, id, 0, 0) != 0) return {"<none>"};
    for (size_t i = 0; i < rows.size(); ++i) {
      EXPECT_EQ(static_cast<int>(i), rows[i].orderNum) << "orders not dense in " << title;
      out.push_back(rows[i].content + ":" + std::to_string(rows[i].mediaType));
    }
    return out;
  }
  void make(const std::string& title, const Strings& items) {
    ASSERT_EQ("0", status("CreatePlaylist", {{"playlist", title}, {"playlistType", "audio"}, {"appType", app}}));
    for (const std::string& item : items)
      ASSERT_EQ("0", status("AddContent", {{"playlist", title},
                                           {"contentType", "file"},
                                           {"mediaType", "audio"},
                                           {"content", item},
                                           {"appType", app}}));
  }
  // A parameter file in the test root; its path as a client names it.
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
  const std::string created = run("CreatePlaylist", {{"playlist", "Mix"},
                                                     {"playlistType", "video"},
                                                     {"appType", app},
                                                     {"owner", "bob"}});
  const int id = playertest::store().getPlaylistID("Mix", app);
  EXPECT_EQ("<root>\n\t<status>0</status>\n\t<playlistID>" + std::to_string(id) +
                "</playlistID>\n\t<title>Mix</title>\n\t<type>video</type>\n\t<appType>" + app +
                "</appType>\n\t<owner>bob</owner>\n\t<tag/>\n</root>\n",
            created);
  // Same title again, and a missing parameter in each place.
  EXPECT_EQ("-12", status("CreatePlaylist", {{"playlist", "Mix"}, {"playlistType", "audio"}, {"appType", app}}));
  EXPECT_EQ("-3", status("CreatePlaylist", {{"playlistType", "audio"}, {"appType", app}}));
  EXPECT_EQ("-3", status("CreatePlaylist", {{"playlist", "X"}, {"appType", app}}));
  EXPECT_EQ("-3", status("CreatePlaylist", {{"playlist", "X"}, {"playlistType", "audio"}}));
  // Unknown type words are stored as 4: "unknow" here, no node in the list.
  EXPECT_EQ("unknow", node(run("CreatePlaylist", {{"playlist", "Odd"}, {"playlistType", "mixed"}, {"appType", app}}),
                           "type"));
  EXPECT_EQ("0", status("CreatePlaylist", {{"playlist", "Pics"}, {"playlistType", "photo"}, {"appType", app}}));
  EXPECT_EQ("3", node(run("SizeOfPlaylist", {{"appType", app}}), "size"));
  EXPECT_EQ("-3", status("SizeOfPlaylist"));

  const std::string all = run("ListPlaylist", {{"appType", app}});
  EXPECT_EQ(all, run("ListPlaylist", {{"appType", app}, {"start", "2"}}));  // start without count: whole list
  EXPECT_NE(std::string::npos, all.find("<title>Mix</title>\n\t\t<type>video</type>")) << all;
  EXPECT_NE(std::string::npos, all.find("<title>Odd</title>\n\t\t<appType>")) << all;
  EXPECT_NE(std::string::npos, all.find("<title>Pics</title>\n\t\t<type>photo</type>")) << all;
  const std::string page = run("ListPlaylist", {{"appType", app}, {"start", "1"}, {"count", "1"}});
  EXPECT_EQ(std::string::npos, page.find("<title>Mix</title>")) << page;
  EXPECT_NE(std::string::npos, page.find("<title>Odd</title>")) << page;
  EXPECT_EQ(std::string::npos, page.find("<title>Pics</title>")) << page;
  EXPECT_EQ("-3", status("ListPlaylist"));
}

TEST_F(PlaylistCommands, ContentRepliesAndFailures) {
  make("L", {"/share/Public/a.mp3"});
  ASSERT_EQ("0", status("AddContent", {{"playlist", "L"},
                                       {"contentType", "object"},
                                       {"mediaType", "movie"},
                                       {"content", "64$1"},
                                       {"appType", app},
                                       {"orderNum", "0"}}));
  std::vector<playlistElm_s> rows;
  const int id = playertest::store().getPlaylistID("L", app);
  playertest::store().getPlaylistElmsByPage(rows, id, 0, 0);
  ASSERT_EQ(2u, rows.size());
  EXPECT_EQ("<root>\n\t<status>0</status>\n\t<item>\n\t\t<playlistID>" + std::to_string(id) + "</playlistID>\n\t\t<uuid>" +
                std::to_string(rows[0].uuid) +
                "</uuid>\n\t\t<mediaType>UNKNOW</mediaType>\n\t\t<contentType>object</contentType>\n\t\t<content>64$1</"
                "content>\n\t\t<upnpID>" + rows[0].upnpObjID + "</upnpID>\n\t\t<orderNum>0</orderNum>\n\t</item>\n</root>\n",
            run("ListContentOfPlaylist", {{"playlist", "L"}, {"appType", app}, {"start", "0"}, {"count", "1"}}));
  EXPECT_EQ("64$1",
            node(run("ListContentOfPlaylist", {{"playlist", "L"}, {"appType", app}, {"start", "1"}}), "item/content"))
      << "start without count lists from the top";
  EXPECT_EQ("2", node(run("SizeOfListContent", {{"playlist", "L"}, {"appType", app}}), "size"));
  EXPECT_EQ("-10", status("SizeOfListContent", {{"playlist", "L"}}));
  EXPECT_EQ("-14", status("SizeOfListContent", {{"playlist", "None"}, {"appType", app}}));
  EXPECT_EQ("-10", status("ListContentOfPlaylist", {{"playlist", "None"}, {"appType", app}}));
  EXPECT_EQ("-3", status("ListContentOfPlaylist", {{"playlist", "L"}}));
  EXPECT_EQ("-12", status("AddContent", {{"playlist", "None"},
                                         {"contentType", "file"},
                                         {"mediaType", "audio"},
                                         {"content", "x"},
                                         {"appType", app}}));
  EXPECT_EQ("-3", status("AddContent", {{"playlist", "L"}, {"mediaType", "audio"}, {"content", "x"}, {"appType", app}}));
  EXPECT_EQ("-14", status("ReOrderContent", {{"playlist", "None"}, {"origOrder", "0"}, {"newOrder", "1"}, {"appType", app}}));
  EXPECT_EQ("0", status("ReOrderContent", {{"playlist", "L"}, {"origOrder", "0"}, {"newOrder", "1"}, {"appType", app}}));
  EXPECT_EQ((Strings{"/share/Public/a.mp3:0", "64$1:4"}), contents("L"));
  EXPECT_EQ("0", status("DelContent", {{"playlist", "L"}, {"uuid", std::to_string(rows[0].uuid)}, {"appType", app}}));
  EXPECT_EQ((Strings{"/share/Public/a.mp3:0"}), contents("L"));
  EXPECT_EQ("-12", status("DelContent", {{"playlist", "None"}, {"uuid", "1"}, {"appType", app}}));
  EXPECT_EQ("0", status("DelPlaylist", {{"playlist", "L"}, {"appType", app}}));
  EXPECT_EQ((Strings{"<none>"}), contents("L"));
  EXPECT_EQ("-3", status("DelPlaylist", {{"playlist", "L"}}));
}

TEST_F(PlaylistCommands, BatchAddPositionsAndFileLifecycle) {
  const std::string items = "<item mediaType=\"photo\" contentType=\"file\">N1</item><item>N2</item>"
                            "<item mediaType=\"video\">N3</item>";
  struct Case {
    const char* start;
    Strings expected;
  } cases[] = {
      {"1", {"A:0", "N1:1", "N2:4", "N3:4", "B:0", "C:0"}},   // inside
      {"3", {"A:0", "B:0", "C:0", "N1:1", "N2:4", "N3:4"}},   // equal to the size: appended
      {"9", {"A:0", "B:0", "C:0", "N1:1", "N2:4", "N3:4"}},   // beyond: appended
      {"0", {"A:0", "B:0", "C:0", "N1:1", "N2:4", "N3:4"}},
  };
  for (const Case& c : cases) {
    const std::string title = std::string("P") + c.start;
    make(title, {"A", "B", "C"});
    const std::string path =
        paramFile("add.xml", "<anything><playlist>" + title + "</playlist><appType>" + app + "</appType>" + items +
                                 "</anything>");
    EXPECT_EQ("<root>\n\t<status>0</status>\n</root>\n", run("BatchAddPlaylist", {{"filePath", path}, {"start", c.start}}));
    EXPECT_EQ(c.expected, contents(title)) << "start " << c.start;
    EXPECT_FALSE(exists(path)) << "a batch that reached its loop consumes its file";
  }

  // A playlist made by the batch path takes owner and tag from the file and
  // an unknown type word gives 4.
  std::string path = paramFile("new.xml", "<r><playlist playlistType=\"dup\">Fresh</playlist><appType>" + app +
                                              "</appType><owner>carol</owner><tag>t1</tag><item mediaType=\"audio\" "
                                              "contentType=\"file\">F</item></r>");
  EXPECT_EQ("0", status("BatchAddPlaylist", {{"filePath", path}}));
  playlistLibElm_s lib;
  playertest::store().getPlaylistLibElmByID(playertest::store().getPlaylistID("Fresh", app), lib);
  EXPECT_EQ("carol/t1/4", lib.owner + "/" + lib.tag + "/" + std::to_string(lib.playlistType));
  EXPECT_EQ((Strings{"F:0"}), contents("Fresh"));

  // Failures before the loop leave the file.
  EXPECT_EQ("-15", status("BatchAddPlaylist", {{"filePath", root().path("/tmp/absent.xml")}}));
  path = paramFile("bad.xml", "");
  EXPECT_EQ("-16", status("BatchAddPlaylist", {{"filePath", path}}));
  EXPECT_TRUE(exists(path));
  path = paramFile("noapp.xml", "<r><playlist>X</playlist><appType></appType></r>");
  EXPECT_EQ("-12", status("BatchAddPlaylist", {{"filePath", path}}));
  EXPECT_TRUE(exists(path));
  EXPECT_EQ("-3", status("BatchAddPlaylist"));
}

TEST_F(PlaylistCommands, BatchDeleteKeepsItsFileAndStopsAtFailure) {
  make("D", {"A", "B", "C"});
  std::vector<playlistElm_s> rows;
  playertest::store().getPlaylistElmsByPage(rows, playertest::store().getPlaylistID("D", app), 0, 0);
  const std::string path = paramFile("del.xml", "<r><playlist>D</playlist><appType>" + app + "</appType><uuid>" +
                                                    std::to_string(rows[0].uuid) + "</uuid><uuid/><uuid>" +
                                                    std::to_string(rows[2].uuid) + "</uuid></r>");
  EXPECT_EQ("<root>\n\t<status>0</status>\n</root>\n", run("BatchDelPlaylist", {{"filePath", path}}));
  EXPECT_EQ((Strings{"B:0"}), contents("D"));
  EXPECT_TRUE(exists(path)) << "a batch delete never removes its file";

  EXPECT_EQ("-14", status("BatchDelPlaylist", {{"filePath", paramFile("d2.xml", "<r><playlist>None</playlist><appType>" +
                                                                                    app + "</appType></r>")}}));
  EXPECT_EQ("-16", status("BatchDelPlaylist", {{"filePath", paramFile("d3.xml", "<r><playlist>D</playlist></r>")}}));
  EXPECT_EQ("-15", status("BatchDelPlaylist", {{"filePath", root().path("/tmp/absent.xml")}}));
  EXPECT_EQ("-3", status("BatchDelPlaylist"));
}

TEST_F(PlaylistCommands, DuplicateRules) {
  ASSERT_EQ("0", status("CreatePlaylist", {{"playlist", "Src"}, {"playlistType", "audio"}, {"appType", app}}));
  for (const char* media : {"audio", "video", "photo"})
    ASSERT_EQ("0", status("AddContent", {{"playlist", "Src"},
                                         {"contentType", "file"},
                                         {"mediaType", media},
                                         {"content", std::string("/share/Public/") + media},
                                         {"appType", app}}));
  make("Dest", {"old"});
  EXPECT_EQ("<root>\n\t<status>0</status>\n</root>\n",
            run("DupPlaylist", {{"playlist_src", "Src"}, {"playlist_dest", "Dest"}, {"appType", app}}));
  // The video comes out unknown; the old destination is gone.
  EXPECT_EQ((Strings{"/share/Public/audio:0", "/share/Public/video:4", "/share/Public/photo:1"}), contents("Dest"));
  EXPECT_NE(std::string::npos,
            run("ListContentOfPlaylist", {{"playlist", "Dest"}, {"appType", app}}).find("<mediaType>UNKNOW</mediaType>"));
  EXPECT_FALSE(exists(root().path(kDupPlaylistFile)));

  // Another target application: its older playlist of that title is kept
  // and the items are added behind.
  const std::string other = app + "-other";
  ASSERT_EQ(0, playertest::store().addPlaylist("Dest", MEDIA_AUDIO, other.c_str(), nullptr, nullptr));
  ASSERT_EQ(0, playertest::store().addElmInPlaylist("Dest", MEDIA_AUDIO, CONTENT_FILE, other.c_str(), "kept", -1));
  EXPECT_EQ("0", status("DupPlaylist", {{"playlist_src", "Src"}, {"playlist_dest", "Dest"}, {"appType", app},
                                        {"destAppType", other}}));
  EXPECT_EQ((Strings{"kept:0", "/share/Public/audio:0", "/share/Public/video:4", "/share/Public/photo:1"}),
            contents("Dest", other));
  EXPECT_EQ((Strings{"<none>"}), contents("Dest")) << "deleted under appType";

  // A source without rows deletes the destination and makes nothing.
  make("Empty", {});
  make("Gone", {"x"});
  EXPECT_EQ("0", status("DupPlaylist", {{"playlist_src", "Empty"}, {"playlist_dest", "Gone"}, {"appType", app}}));
  EXPECT_EQ((Strings{"<none>"}), contents("Gone"));

  EXPECT_EQ("-10", status("DupPlaylist", {{"playlist_src", "None"}, {"playlist_dest", "Z"}, {"appType", app}}));
  EXPECT_EQ("-3", status("DupPlaylist", {{"playlist_src", "Src"}, {"appType", app}}));
}

// Markup in the copy's title reaches no other playlist; markup in contents
// changes the copy at most.
TEST_F(PlaylistCommands, DuplicateMarkupStaysInTheCopy) {
  make("Src", {"plain", "x</item><item mediaType=\"photo\" contentType=\"file\">injected"});
  make("A", {"a"});
  EXPECT_EQ("0", status("DupPlaylist", {{"playlist_src", "Src"}, {"playlist_dest", "A</playlist><playlist>B"},
                                        {"appType", app}}));
  EXPECT_EQ((Strings{"a:0"}), contents("A"));
  EXPECT_EQ((Strings{"<none>"}), contents("B"));
  EXPECT_EQ(3u, contents("A</playlist><playlist>B").size());
  EXPECT_EQ("0", status("DupPlaylist", {{"playlist_src", "Src"}, {"playlist_dest", "Rock & Roll"}, {"appType", app}}));
  EXPECT_EQ(3u, contents("Rock & Roll").size());
}

TEST_F(PlaylistCommands, DuplicateNeverWritesThroughAPlantedLink) {
  make("S", {"a"});
  root().write("/tmp/victim", "precious");
  const std::string link = root().path(kDupPlaylistFile);
  std::remove(link.c_str());
  ASSERT_EQ(0, ::symlink(root().path("/tmp/victim").c_str(), link.c_str()));
  EXPECT_EQ("0", status("DupPlaylist", {{"playlist_src", "S"}, {"playlist_dest", "T"}, {"appType", app}}));
  EXPECT_EQ("precious", root().read("/tmp/victim"));
  EXPECT_EQ((Strings{"a:0"}), contents("T"));
  EXPECT_FALSE(exists(link));
}

TEST_F(PlaylistCommands, ObjectIdFromTheAgent) {
  root().write("/share/Public/Ça va.mkv", "v");
  root().write("/share/Public/one.mkv", "v");
  root().clearCalls();
  auto ask = [&](const std::string& path) { return run("GetUpnpObjectID", {{"filePath", path}}); };
  root().write("/sim/brelctl/getObjectID.reply", "<root><status>success</status><objectID>64$9</objectID></root>");
  EXPECT_EQ("<root>\n\t<status>0</status>\n\t<objectID>64$9</objectID>\n</root>\n", ask("/share/Public/one.mkv"));
  // The unquoted path: a blank makes two words.
  EXPECT_EQ("0", node(ask("/share/Public/Ça va.mkv"), "status"));
  Strings calls = root().calls();
  ASSERT_FALSE(calls.empty());
  EXPECT_NE(std::string::npos, calls.back().find("Ça' va.mkv"))
      << calls.back();

  const struct {
    const char* reply;
    const char* code;
  } agent[] = {{"<root><status>failed</status></root>", "-13"},
               {"<root><objectID>1</objectID></root>", "-17"},
               {"<root><status>success</status></root>", "-9"},
               {"garbage", "-6"}};
  for (const auto& a : agent) {
    root().write("/sim/brelctl/getObjectID.reply", a.reply);
    EXPECT_EQ(a.code, node(ask("/share/Public/one.mkv"), "status")) << a.reply;
  }
  EXPECT_EQ("-13", node(ask("/share/Public/missing.mkv"), "status"));

  // A name the shell would act on never reaches it.
  root().write("/share/Public/x;touch pwned.mkv", "v");
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
  make("Odd", {});
  for (const std::string& content : odd)
    EXPECT_EQ("0", status("AddContent", {{"playlist", "Odd"},
                                         {"contentType", "file"},
                                         {"mediaType", "audio"},
                                         {"content", content},
                                         {"appType", app}}))
        << content;
  Strings expected;
  for (const std::string& content : odd) expected.push_back(content + ":0");
  EXPECT_EQ(expected, contents("Odd"));

  // Titles and owners that SQL's quotes cannot hold are refused with the
  // failure of a write; everything else stays as it was.
  for (const char* title : {"O'Brien", "x'); DROP TABLE Playlist_TBL; --"})
    EXPECT_EQ("-12", status("CreatePlaylist", {{"playlist", title}, {"playlistType", "audio"}, {"appType", app}}));
  EXPECT_EQ("-12", status("CreatePlaylist", {{"playlist", "Q"}, {"playlistType", "audio"}, {"appType", app},
                                             {"owner", "'; DELETE FROM PlaylistLib_TBL; --"}}));
  for (const char* title : {"$(reboot)", "a;b", "#1 ~ ?!"})
    EXPECT_EQ("0", status("CreatePlaylist", {{"playlist", title}, {"playlistType", "audio"}, {"appType", app}}))
        << title;
  EXPECT_EQ("4", node(run("SizeOfPlaylist", {{"appType", app}}), "size"));
  EXPECT_EQ(expected, contents("Odd"));
  EXPECT_FALSE(exists(root().path("/tmp/p")));
}

// A fake player on the playlist "Live" of this test's application; its
// queue read back as contents, in queue order.
class PlayersFollow : public PlaylistCommands {
 protected:
  CFakePlayer* start(const Strings& items) {
    make("Live", items);
    managertest::list_device(m, "dev-1", "Kitchen", PLAYER_TYPE_DLNA | PLAYER_TYPE_AUDIO);
    EXPECT_EQ(0, m.setPlaylist("dev-1", "Live", app.c_str()));
    CFakePlayer* p = managertest::fake(m, "dev-1");
    if (p) p->takeEvents();
    return p;
  }
  std::string contentOf(unsigned long uuid) {
    std::vector<playlistElm_s> rows;
    playertest::store().getPlaylistElmsByPage(rows, playertest::store().getPlaylistID("Live", app), 0, 0);
    for (const playlistElm_s& row : rows)
      if (row.uuid == uuid) return row.content;
    return "?";
  }
  Strings queue(CFakePlayer* p) {
    Strings out;
    for (const playQueueItem_s& item : p->m_playQueue) out.push_back(contentOf(item.uuid));
    return out;
  }
  std::string current(CFakePlayer* p) {
    const size_t at = static_cast<size_t>(p->m_currTrack);
    return at < p->m_playQueue.size() ? contentOf(p->m_playQueue[at].uuid) : "none";
  }
  unsigned long uuidOf(const std::string& content) {
    std::vector<playlistElm_s> rows;
    playertest::store().getPlaylistElmsByPage(rows, playertest::store().getPlaylistID("Live", app), 0, 0);
    for (const playlistElm_s& row : rows)
      if (row.content == content) return static_cast<unsigned long>(row.uuid);
    return 0;
  }
  vessorclient::paramList_t add(const std::string& content) {
    return {{"playlist", "Live"}, {"contentType", "file"}, {"mediaType", "audio"}, {"content", content}, {"appType", app}};
  }
};

TEST_F(PlayersFollow, EachChangeReachesThePlayingQueue) {
  CFakePlayer* p = start({"A", "B", "C"});
  ASSERT_NE(nullptr, p);
  p->m_currTrack = 1;
  ASSERT_EQ("0", status("AddContent", add("D")));
  EXPECT_EQ((Strings{"A", "B", "C", "D"}), queue(p));
  EXPECT_EQ("B", current(p));

  // Deleting another track, then moving the current one: B stays current.
  ASSERT_EQ("0", status("DelContent", {{"playlist", "Live"}, {"uuid", std::to_string(uuidOf("A"))}, {"appType", app}}));
  EXPECT_EQ((Strings{"B", "C", "D"}), queue(p));
  EXPECT_EQ("B", current(p));
  ASSERT_EQ("0", status("ReOrderContent", {{"playlist", "Live"}, {"origOrder", "0"}, {"newOrder", "2"}, {"appType", app}}));
  EXPECT_EQ((Strings{"C:0", "D:0", "B:0"}), contents("Live"));
  EXPECT_EQ((Strings{"C", "D", "B"}), queue(p));
  EXPECT_EQ("B", current(p));

  // A batch delete leaves the queue as it was; a batch add brings it up
  // to the store.
  const std::string del = paramFile("live-del.xml", "<r><playlist>Live</playlist><appType>" + app + "</appType><uuid>" +
                                                        std::to_string(uuidOf("D")) + "</uuid></r>");
  ASSERT_EQ("0", status("BatchDelPlaylist", {{"filePath", del}}));
  EXPECT_EQ(3u, p->m_playQueue.size());
  const std::string addFile = paramFile("live-add.xml", "<r><playlist>Live</playlist><appType>" + app +
                                                            "</appType><item mediaType=\"audio\" contentType=\"file\">E</item></r>");
  ASSERT_EQ("0", status("BatchAddPlaylist", {{"filePath", addFile}}));
  EXPECT_EQ(3u, p->m_playQueue.size()) << "one row left, one row came: the queue matches the store's size";

  // Deleting the playlist stops the player and empties its queue.
  ASSERT_EQ("0", status("DelPlaylist", {{"playlist", "Live"}, {"appType", app}}));
  EXPECT_TRUE(p->m_playQueue.empty());
  const Strings events = p->takeEvents();
  EXPECT_NE(events.end(), std::find(events.begin(), events.end(), "stop(true)"));
}

}  // namespace
