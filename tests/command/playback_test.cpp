// The playback and status commands in-process, against a manager whose
// devices are recording back-ends: parameters and their failure codes, what
// reaches the player, the status reply in its order, and the cache of a
// video's track lists (hit, expiry, replacement, failures, hostile ids).
#include <cstdio>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "command/statusReport.h"
#include "command/vessord.h"
#include "manager/fakePlayer.h"
#include "player/playerTestSupport.h"
#include "support/daemonHarness.h"
#include "vessorClient.h"

using managertest::CFakePlayer;
using managertest::fake;
using managertest::list_device;
using managertest::Strings;
using testsupport::node;

namespace {

constexpr unsigned kVideoDlna = PLAYER_TYPE_DLNA | PLAYER_TYPE_VIDEO | PLAYER_TYPE_AUDIO;

class Playback : public ::testing::Test {
 protected:
  void SetUp() override {
    playertest::store();
    resetStatusCache();
  }
  void TearDown() override {
    for (const char* c : {"getAudioTrack", "getSubtitle", "getExternalSubtitle", "getObjectID"})
      std::remove(root().path(std::string("/sim/brelctl/") + c + ".reply").c_str());
  }
  static testsupport::TestRoot& root() { return playertest::sharedRoot(); }
  static void resetStatusCache() {
    ThreadSingleLock guard(g_cachedStatusInfoLock);
    for (cachedStatusInfo_s& slot : g_cachedStatusInfo) slot = cachedStatusInfo_s();
  }

  // A player on a new playlist of `contents`.
  CFakePlayer* player(const char* id, const playertest::Strings& contents, contentType_e type = CONTENT_FILE,
                      mediaType_e media = MEDIA_AUDIO, unsigned bits = kVideoDlna) {
    const std::string title = playertest::testTitle(id);
    playertest::makePlaylist(title, contents, type, media);
    list_device(m, id, "Kitchen", bits);
    EXPECT_EQ(0, m.setPlaylist(id, title.c_str(), "music"));
    CFakePlayer* p = fake(m, id);
    if (p) p->takeEvents();
    return p;
  }

  // The reply of one request, as the daemon would send it (without the
  // version node).
  std::string run(const std::string& command, const vessorclient::paramList_t& params = {}) {
    const std::string packet = vessorclient::build_packet(command, params);
    XMLNode reply;
    handle_request(&m, packet.c_str(), packet.size(), reply, outcome);
    return reply_text(reply);
  }
  std::string status(const std::string& command, const vessorclient::paramList_t& params = {}) {
    return node(run(command, params), "status");
  }
  // The agent's track-list commands run since the last call.
  Strings agentCalls() {
    Strings out;
    for (const std::string& line : root().calls())
      if (line.find("brelctl") != std::string::npos) out.push_back(line.substr(line.find("-c ") + 3));
    root().clearCalls();
    return out;
  }
  int slotOf(const std::string& content) {
    ThreadSingleLock guard(g_cachedStatusInfoLock);
    for (size_t i = 0; i < kCachedStatusSlots; ++i)
      if (g_cachedStatusInfo[i].trackContent == content) return static_cast<int>(i);
    return -1;
  }
  void cannedLists() {
    root().write("/sim/brelctl/getAudioTrack.reply",
                 "<root><u:GetAudioTrackResponse><Result><DIDL-Lite>"
                 "<AudioTrack><TrackId>1</TrackId><TrackLang>eng</TrackLang></AudioTrack>"
                 "<AudioTrack><TrackId>2</TrackId><TrackLang></TrackLang></AudioTrack>"
                 "</DIDL-Lite></Result></u:GetAudioTrackResponse></root>");
    root().write("/sim/brelctl/getSubtitle.reply",
                 "<root><u:GetSubtitleTrackResponse><Result><DIDL-Lite>"
                 "<SubtitleTrack><TrackId>3</TrackId><TrackLang>fre</TrackLang></SubtitleTrack>"
                 "</DIDL-Lite></Result></u:GetSubtitleTrackResponse></root>");
    root().write("/sim/brelctl/getExternalSubtitle.reply",
                 "<root><u:GetExternalSubtitleResponse><Result></Result></u:GetExternalSubtitleResponse></root>");
  }

  std::unique_ptr<CPlayerManager> owner{managertest::make_manager()};
  CPlayerManager& m = *owner;
  requestOutcome_s outcome;
};

TEST_F(Playback, ParametersAreCheckedAndEachCommandReachesItsPlayer) {
  CFakePlayer* p = player("dev-1", playertest::numbered(3));
  ASSERT_NE(nullptr, p);
  struct call_s {
    const char* command;
    vessorclient::paramList_t params;
    const char* status;
    Strings events;
  };
  const call_s calls[] = {
      {"Play", {}, "-3", {}},
      {"Play", {{"dev", ""}}, "-3", {}},
      {"Play", {{"dev", "nobody"}}, "-4", {}},
      {"Play", {{"dev", "dev-1"}}, "0", {"play"}},
      {"Pause", {{"dev", "dev-1"}}, "0", {"pause"}},
      {"Stop", {{"dev", "dev-1"}}, "0", {"stop(true)"}},
      {"Next", {{"dev", "dev-1"}}, "0", {"next"}},
      {"Previous", {{"dev", "dev-1"}}, "0", {"previous"}},
      {"Seek", {{"dev", "dev-1"}}, "-3", {}},
      {"Seek", {{"dev", "dev-1"}, {"position", "00:02:03"}}, "0", {"seek 00:02:03"}},
      {"SetTrack", {{"dev", "dev-1"}, {"track", "abc"}}, "0", {"stop(true)", "play"}},
      {"SetTrack", {{"dev", "dev-1"}, {"track", "9"}}, "-1", {}},
      {"SetVolume", {{"dev", "dev-1"}, {"vol", "40x"}}, "0", {"setVolume 40"}},
      {"SetMute", {{"dev", "dev-1"}, {"mute", "on"}}, "0", {"setVolume 0"}},
      {"SetMute", {{"dev", "dev-1"}, {"mute", "ON"}}, "0", {"setVolume 40"}},  // exact word only
      {"SetPlayMode", {{"dev", "dev-1"}, {"playMode", "shuffle"}}, "-8", {}},
      {"SetPlayMode", {{"dev", "dev-1"}, {"playMode", "REPEAT_ONE"}}, "0", {}},
      {"SetSlideShowDelay", {{"dev", "dev-1"}, {"delay", "12"}}, "0", {}},
      {"SetAudioAndSubtitle", {{"dev", "dev-1"}, {"autoSub", "1"}}, "-3", {}},
      {"SetAudioAndSubtitle", {{"aid", "2"}}, "-3", {}},
      {"SetAudioAndSubtitle", {{"dev", "dev-1"}, {"aid", "2"}, {"autoSub", "1"}}, "0",
       {"av pos=null aid=2 sid=-1 ext=null auto=1"}},
      {"SetAudioAndSubtitle", {{"dev", "dev-1"}, {"sid", "1"}, {"autoSub", "1"}}, "0",
       {"av pos=null aid=0 sid=1 ext=null auto=0"}},
      {"SetAudioAndSubtitle", {{"dev", "dev-1"}, {"position", "00:00:09"}, {"externalSubtitle", "/s.srt"}}, "0",
       {"av pos=00:00:09 aid=0 sid=-1 ext=/s.srt auto=0"}},
      {"SetAttributes", {{"dev", "dev-1"}, {"attr", "vol=1"}}, "-18", {"attrs vol=1"}},
      {"SetAttributes", {{"dev", "nobody"}, {"attr", "vol=1"}}, "-18", {}},
      {"SetPlaylist", {{"dev", "dev-1"}, {"playlist", "x"}}, "-3", {}},
      {"SetPlaylist", {{"dev", "nobody"}, {"playlist", "x"}, {"appType", "music"}}, "-4", {}},
  };
  p->m_attrResult = -5;
  for (const call_s& c : calls) {
    EXPECT_EQ(c.status, status(c.command, c.params)) << c.command;
    EXPECT_EQ(c.events, p->takeEvents()) << c.command;
  }
  EXPECT_EQ(REPEAT_ONE, p->getPlayMode());
  EXPECT_EQ(12, p->getSlideShowDelay());

  p->m_avResult = -7;
  EXPECT_EQ("-1", status("SetAudioAndSubtitle", {{"dev", "dev-1"}, {"aid", "1"}})) << "any failure is -1";
  // Volume and mute travel in the same integer as the manager's codes.
  p->m_volume = 0;
  std::string reply = run("GetVolume", {{"dev", "dev-1"}});
  EXPECT_EQ("0", node(reply, "status"));
  EXPECT_EQ("0", node(reply, "volume"));
  EXPECT_EQ("on", node(run("GetMute", {{"dev", "dev-1"}}), "mute"));
  reply = run("GetVolume", {{"dev", "nobody"}});
  EXPECT_EQ("-4", node(reply, "status"));
  EXPECT_EQ("<none>", node(reply, "volume")) << "the reply built first is dropped";
  EXPECT_EQ("-3", status("GetMute"));

  // A positive result from a player leaves no reply: fatal for the daemon.
  p->m_nextResult = 2;
  run("Next", {{"dev", "dev-1"}});
  EXPECT_TRUE(outcome.fatal);
}

TEST_F(Playback, ListPlayerAndDebugDumpShowTheLivePlayers) {
  player("dev-1", playertest::numbered(1));
  CFakePlayer* gone = player("dev-2", playertest::numbered(1));
  EXPECT_EQ(
      "<root>\n\t<status>0</status>\n\t<player>\n\t\t<renderID>dev-1</renderID>\n\t\t<deviceName>Kitchen</deviceName>\n"
      "\t</player>\n\t<player>\n\t\t<renderID>dev-2</renderID>\n\t\t<deviceName>Kitchen</deviceName>\n\t</player>\n"
      "</root>\n",
      run("ListPlayer"));
  gone->m_bExists = false;
  EXPECT_EQ(std::string::npos, run("ListPlayer").find("dev-2")) << "parked by the listing";
  EXPECT_EQ("-4", status("Play", {{"dev", "dev-2"}}));

  EXPECT_EQ("FlowStage:7", status("debugDump", {{"dev", "dev-1"}}));
  run("debugDump", {{"dev", "dev-2"}});
  EXPECT_TRUE(outcome.fatal) << "no live player: no reply";
}

TEST_F(Playback, StatusReplyListsTheSnapshotInItsOrder) {
  CFakePlayer* p = player("dev-1", {"/share/Public/a.mp3", "/share/Public/b.mp3"});
  p->setPlayMode(REPEAT);
  p->setCurrTrackIndex(1);
  p->setCurrTime("00:01:05");
  p->setTotalTime(std::string("00:03:00"));
  EXPECT_EQ(
      "<root>\n\t<status>0</status>\n\t<deviceName>Kitchen</deviceName>\n\t<device Type=\"DLNA\"/>\n"
      "\t<playerType>video,music</playerType>\n\t<playerState>STOP</playerState>\n\t<playMode>REPEAT</playMode>\n"
      "\t<playlistTitle>Playback.StatusReplyListsTheSnapshotInItsOrderdev-1</playlistTitle>\n"
      "\t<appType>music</appType>\n\t<trackType>audio</trackType>\n\t<trackContentType>file</trackContentType>\n"
      "\t<trackContent>/share/Public/b.mp3</trackContent>\n\t<currTrack>2</currTrack>\n"
      "\t<totalTracks>2</totalTracks>\n\t<currTime>00:01:05</currTime>\n\t<totalTime>00:03:00</totalTime>\n"
      "\t<playlistOwner>alice</playlistOwner>\n\t<playlistTag>tagged</playlistTag>\n"
      "\t<currentAudioTrack>0</currentAudioTrack>\n</root>\n",
      run("GetPlayerStatus", {{"dev", "dev-1"}}));
  EXPECT_EQ(Strings{}, agentCalls()) << "audio never asks the agent";

  // A queue past its end reads "unknow" and the index as it stands.
  p->clearPlayQueue(false);
  p->setCurrTrackIndex(4);
  p->setSubtitleTrack(2);
  const std::string reply = run("GetPlayerStatus", {{"dev", "dev-1"}});
  EXPECT_EQ("unknow", node(reply, "trackType"));
  EXPECT_EQ("4", node(reply, "currTrack"));
  EXPECT_EQ("2", node(reply, "currentSubtitleTrack"));
  EXPECT_EQ("-4", status("GetPlayerStatus", {{"dev", "nobody"}}));
  EXPECT_EQ("-3", status("GetPlayerStatus"));
}

TEST_F(Playback, DeviceKindsAndPlayerTypesAreNamedByTheirBits) {
  const std::pair<unsigned, const char*> kinds[] = {
      {PLAYER_TYPE_DLNA | PLAYER_TYPE_ALSA, "<device Type=\"DLNA\"/>"},
      {PLAYER_TYPE_ALSA | PLAYER_TYPE_SOUND_HDMI | PLAYER_TYPE_SOUND_USB, "<device Type=\"ALSA\" Subtype=\"HDMI\"/>"},
      {PLAYER_TYPE_ALSA, "<device Type=\"ALSA\" Subtype=\"OTHER\"/>"},
      {PLAYER_TYPE_RAOP, "<device Type=\"UNKNOW\"/>"},
      {PLAYER_TYPE_KINOVU | PLAYER_TYPE_PHOTO, "<playerType>photo</playerType>"},
      {0, "<playerType>UNKNOW</playerType>"},
  };
  for (const auto& kind : kinds) {
    playerStatus_s s;
    s.playerType = kind.first;
    XMLNode reply = XMLNode::createXMLTopNode("root");
    add_player_status_nodes(reply, s);
    const std::string text = reply_text(reply);
    EXPECT_NE(std::string::npos, text.find(kind.second)) << text;
  }
}

TEST_F(Playback, AVideosTrackListsAreCachedWhilePolledAndRefilledInTheirSlot) {
  cannedLists();
  player("dev-1", {"obj-7"}, CONTENT_OBJECT, MEDIA_VIDEO);
  root().clearCalls();
  const std::string first = run("GetPlayerStatus", {{"dev", "dev-1"}});
  EXPECT_EQ((Strings{"getAudioTrack --objectID obj-7", "getSubtitle --objectID obj-7",
                     "getExternalSubtitle --objectID obj-7"}),
            agentCalls());
  const size_t lists = first.find("\t<TotalAudioTrack>");
  ASSERT_NE(std::string::npos, lists) << first;
  EXPECT_EQ(
      "\t<TotalAudioTrack>\n\t\t<AudioTrack>\n\t\t\t<TrackId>1</TrackId>\n\t\t\t<TrackLang>eng</TrackLang>\n"
      "\t\t</AudioTrack>\n\t\t<AudioTrack>\n\t\t\t<TrackId>2</TrackId>\n\t\t</AudioTrack>\n\t</TotalAudioTrack>\n"
      "\t<TotalSubtitleTrack>\n\t\t<SubtitleTrack>\n\t\t\t<TrackId>3</TrackId>\n\t\t\t<TrackLang>fre</TrackLang>\n"
      "\t\t</SubtitleTrack>\n\t</TotalSubtitleTrack>\n</root>\n",
      first.substr(lists))
      << "no DIDL-Lite: no external list";

  // Polled again: the same lists, no agent. Each reply has its own copy.
  EXPECT_EQ(first, run("GetPlayerStatus", {{"dev", "dev-1"}}));
  EXPECT_EQ(first, run("GetPlayerStatus", {{"dev", "dev-1"}}));
  EXPECT_EQ(Strings{}, agentCalls());

  // Not polled for two minutes: refilled in the same slot.
  const int slot = slotOf("obj-7");
  ASSERT_GE(slot, 0);
  {
    ThreadSingleLock guard(g_cachedStatusInfoLock);
    g_cachedStatusInfo[slot].lastUsed = time(nullptr) - 118;
  }
  run("GetPlayerStatus", {{"dev", "dev-1"}});
  EXPECT_EQ(Strings{}, agentCalls()) << "still young enough";
  {
    ThreadSingleLock guard(g_cachedStatusInfoLock);
    g_cachedStatusInfo[slot].lastUsed = time(nullptr) - 121;
  }
  EXPECT_EQ(first, run("GetPlayerStatus", {{"dev", "dev-1"}}));
  EXPECT_EQ(3u, agentCalls().size());
  EXPECT_EQ(slot, slotOf("obj-7"));
}

TEST_F(Playback, ANewVideoTakesTheLeastRecentlyUsedSlot) {
  cannedLists();
  player("dev-1", {"obj-new"}, CONTENT_OBJECT, MEDIA_VIDEO);
  const time_t now = time(nullptr);
  auto fill = [now](time_t oldest, size_t oldestAt) {
    ThreadSingleLock guard(g_cachedStatusInfoLock);
    for (size_t i = 0; i < kCachedStatusSlots; ++i) {
      g_cachedStatusInfo[i].trackContentType = "object";
      g_cachedStatusInfo[i].trackContent = "other-" + std::to_string(i);
      g_cachedStatusInfo[i].lastUsed = now - 30;
    }
    g_cachedStatusInfo[oldestAt].lastUsed = oldest;
    g_cachedStatusInfo[oldestAt + 5].lastUsed = oldest;  // a tie goes to the lower index
  };
  fill(now - 90, 17);
  run("GetPlayerStatus", {{"dev", "dev-1"}});
  EXPECT_EQ(17, slotOf("obj-new"));
  EXPECT_EQ(-1, slotOf("other-17"));

  // A slot never filled goes first.
  fill(0, 40);
  run("GetPlayerStatus", {{"dev", "dev-1"}});
  EXPECT_EQ(40, slotOf("obj-new"));
}

TEST_F(Playback, ListsThatCannotBeHadLeaveTheReplyWithoutThem) {
  cannedLists();
  // No object id for the file: new keys, no lists, and the command holds.
  root().write("/sim/brelctl/getObjectID.reply", "<root><status>failed</status></root>");
  player("dev-1", {"/share/Public/film.mkv"}, CONTENT_FILE, MEDIA_VIDEO);
  root().clearCalls();
  std::string reply = run("GetPlayerStatus", {{"dev", "dev-1"}});
  EXPECT_EQ("0", node(reply, "status"));
  EXPECT_EQ("<none>", node(reply, "TotalAudioTrack"));
  EXPECT_EQ(Strings{"getObjectID --filePath /share/Public/film.mkv"}, agentCalls());
  const int slot = slotOf("/share/Public/film.mkv");
  ASSERT_GE(slot, 0);
  EXPECT_EQ("file", g_cachedStatusInfo[slot].trackContentType);

  // An id that would end its quotes never reaches a shell; one that only
  // looks like a command arrives as plain text.
  CFakePlayer* quoted = player("dev-q", {"o'; touch /tmp/x; '"}, CONTENT_OBJECT, MEDIA_VIDEO);
  ASSERT_NE(nullptr, quoted);
  root().clearCalls();
  reply = run("GetPlayerStatus", {{"dev", "dev-q"}});
  EXPECT_EQ("0", node(reply, "status"));
  EXPECT_EQ("o'; touch /tmp/x; '", node(reply, "trackContent"));
  EXPECT_EQ(Strings{}, agentCalls());
  player("dev-d", {"$(reboot)"}, CONTENT_OBJECT, MEDIA_VIDEO);
  root().clearCalls();
  EXPECT_EQ("0", status("GetPlayerStatus", {{"dev", "dev-d"}}));
  EXPECT_EQ("getAudioTrack --objectID '$(reboot)'", agentCalls().at(0));
}

}  // namespace
