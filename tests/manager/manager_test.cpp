// The player manager on one thread: the registry and its forwarding, the
// choice of class by type bits, parking after missed scans and the
// reclaim, and the playlist operations that keep the queues in step with
// the store.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "foundation/xmlParser.h"
#include "manager/fakePlayer.h"
#include "player/playerTestSupport.h"

using managertest::CFakePlayer;
using managertest::fake;
using managertest::list_device;
using managertest::Strings;
using playertest::makePlaylist;
using playertest::numbered;
using playertest::testTitle;

namespace {

constexpr unsigned kDlna = PLAYER_TYPE_DLNA | PLAYER_TYPE_AUDIO;

class Manager : public ::testing::Test {
 protected:
  void SetUp() override { playertest::store(); }
  // A playlist of `n` tracks under the appType "music".
  std::string playlist(size_t n, const std::string& suffix = "") {
    const std::string title = testTitle(suffix);
    makePlaylist(title, numbered(n, "/share/Public/" + suffix + "t"));
    return title;
  }
  CFakePlayer* player(const char* id, const std::string& title, const char* name = "Kitchen") {
    list_device(m, id, name, kDlna);
    EXPECT_EQ(0, m.setPlaylist(id, title.c_str(), "music"));
    return fake(m, id);
  }
  renderCacheInfo_s cached(const char* id) {
    renderCacheInfo_s info;
    EXPECT_EQ(0, m.searchRenderInCache_(id, info));
    return info;
  }

  std::unique_ptr<CPlayerManager> owner{managertest::make_manager()};
  CPlayerManager& m = *owner;
};

TEST_F(Manager, CommandsReachOnlyAPlayerThatSetPlaylistMade) {
  const std::string title = playlist(3);
  EXPECT_EQ(-4, m.play("dev-1", 0)) << "nothing listed yet";
  EXPECT_EQ(-4, m.setPlaylist("dev-1", title.c_str(), "music")) << "not in the render cache";
  EXPECT_EQ(0u, m.getNumOfPlayer());

  CFakePlayer* p = player("dev-1", title);
  ASSERT_NE(nullptr, p);
  EXPECT_EQ(3u, p->getPlaylistSize());
  EXPECT_EQ("10.0.0.9", p->getIP());
  EXPECT_EQ(1u, m.getNumOfPlayer());
  EXPECT_EQ("dev-1", m.getPlayerRenderID(0));
  EXPECT_EQ("Kitchen", m.getPlayerDeviceName(0));
  EXPECT_EQ("", m.getPlayerRenderID(1));
  EXPECT_EQ(kDlna, m.getPlayerType("dev-1"));
  EXPECT_EQ(0u, m.getPlayerType("dev-2"));
  p->takeEvents();

  // Calls reach their operation and bring its result back, volume and
  // truth values in the same integer as the codes.
  p->m_nextResult = 7;
  EXPECT_EQ(7, m.next("dev-1"));
  EXPECT_EQ(0, m.setMute("dev-1", true));
  EXPECT_EQ(1, m.isMute("dev-1"));
  EXPECT_EQ(0, m.setPlayMode("dev-1", REPEAT_ONE));
  EXPECT_EQ(REPEAT_ONE, p->getPlayMode());
  EXPECT_EQ(-1, m.setTrack("dev-1", 3)) << "past the queue";
  EXPECT_EQ((Strings{"next", "setVolume 0"}), p->takeEvents());

  XMLNode out;
  m.getDebugInfo("dev-9", out);
  EXPECT_TRUE(out.isEmpty());
  m.getDebugInfo("dev-1", out);
  EXPECT_STREQ("FlowStage:7", out.getChildNode("status").getText());

  EXPECT_EQ(-4, m.getVolume(""));
  EXPECT_EQ(-4, m.isMute("dev-2"));
  EXPECT_EQ(-4, m.play(nullptr, 0));
}

TEST_F(Manager, TheFirstClassWhoseBitTheDeviceCarriesBuildsThePlayer) {
  const std::string title = playlist(2);
  list_device(m, "alsa-1", "Analog", PLAYER_TYPE_ALSA | PLAYER_TYPE_AUDIO);
  list_device(m, "cc-1", "Cast", PLAYER_TYPE_CHROMECAST | PLAYER_TYPE_VIDEO);
  list_device(m, "kv-1", "HDMI", PLAYER_TYPE_KINOVU | PLAYER_TYPE_VIDEO);
  list_device(m, "none", "Nothing", 0);
  list_device(m, "both", "Both", PLAYER_TYPE_ALSA | PLAYER_TYPE_DLNA);
  EXPECT_EQ(-19, m.setPlaylist("alsa-1", title.c_str(), "music")) << "sound card in use";
  EXPECT_EQ(-4, m.setPlaylist("cc-1", title.c_str(), "music")) << "constructor threw";
  EXPECT_EQ(-4, m.setPlaylist("kv-1", title.c_str(), "music")) << "no class for the bit";
  EXPECT_EQ(-4, m.setPlaylist("none", title.c_str(), "music"));
  EXPECT_EQ(0u, m.getNumOfPlayer());
  EXPECT_EQ(0, m.setPlaylist("both", title.c_str(), "music")) << "the DLNA row comes first";
  ASSERT_NE(nullptr, fake(m, "both"));
  EXPECT_EQ(PLAYER_TYPE_ALSA | PLAYER_TYPE_DLNA, m.getPlayerType("both"));

  // An existing player: null names change nothing; new names load them.
  CFakePlayer* p = fake(m, "both");
  p->takeEvents();
  EXPECT_EQ(0, m.setPlaylist("both", nullptr, nullptr));
  EXPECT_EQ(Strings{}, p->takeEvents());
  EXPECT_EQ(title, p->getPlaylistTitle());
  const std::string other = playlist(5, "b");
  EXPECT_EQ(0, m.setPlaylist("both", other.c_str(), "music"));
  EXPECT_EQ(other, p->getPlaylistTitle());
  EXPECT_EQ(5u, p->getPlaylistSize());
  EXPECT_EQ(1u, m.getNumOfPlayer());
}

TEST_F(Manager, APlayerIsParkedAtItsFourthMissedScanAndTakenBackWhole) {
  const std::string title = playlist(4);
  CFakePlayer* one = player("dev-1", title, "One");
  CFakePlayer* two = player("dev-2", title, "Two");
  ASSERT_TRUE(one && two);
  one->takeEvents();
  two->takeEvents();

  m.scanPlayers();
  EXPECT_EQ(0, cached("dev-1").failCount);
  // A listing without dev-1, three scans, then a listing with it again.
  m.invalidRenderCache_();
  list_device(m, "dev-2", "Two", kDlna);
  for (int i = 0; i < 3; ++i) m.scanPlayers();
  EXPECT_EQ(3, cached("dev-1").failCount);
  EXPECT_EQ(2u, m.getNumOfPlayer());
  list_device(m, "dev-1", "One", kDlna);
  m.scanPlayers();
  EXPECT_EQ(0, cached("dev-1").failCount);

  // Both gone: at the fourth scan the first is parked; the second slides
  // into its place and waits for the next scan with its count unchanged.
  m.invalidRenderCache_();
  for (int i = 0; i < 4; ++i) m.scanPlayers();
  EXPECT_EQ(1u, m.getNumOfPlayer());
  EXPECT_EQ("dev-2", m.getPlayerRenderID(0));
  EXPECT_EQ(3, cached("dev-2").failCount);
  EXPECT_EQ((Strings{"monitor(false)", "stop(true)"}), one->takeEvents());
  EXPECT_EQ(Strings{}, two->takeEvents());
  EXPECT_EQ(-4, m.play("dev-1", 0)) << "a parked player answers no command";
  m.scanPlayers();
  EXPECT_EQ(0u, m.getNumOfPlayer());
  EXPECT_EQ(4, cached("dev-2").failCount);
  m.scanPlayers();
  EXPECT_EQ(4, cached("dev-2").failCount) << "only live players are scanned";

  // SetPlaylist takes the same object back, with its queue and without the
  // cached address; new names are loaded.
  one->setIP("10.9.9.9");
  const std::string other = playlist(2, "b");
  EXPECT_EQ(0, m.setPlaylist("dev-1", other.c_str(), "music"));
  EXPECT_EQ(one, fake(m, "dev-1"));
  EXPECT_EQ("", one->getIP());
  EXPECT_EQ(other, one->getPlaylistTitle());
  // Without names the player comes back but the result stays -4.
  EXPECT_EQ(-4, m.setPlaylist("dev-2", "", ""));
  EXPECT_EQ(two, fake(m, "dev-2"));
  EXPECT_EQ(title, two->getPlaylistTitle());
  EXPECT_EQ(4u, two->getPlaylistSize());
  EXPECT_EQ(2u, m.getNumOfPlayer());
}

TEST_F(Manager, ListingAPlayerParksTheOnesWhoseDeviceIsGone) {
  const std::string title = playlist(2);
  CFakePlayer* one = player("dev-1", title);
  CFakePlayer* two = player("dev-2", title);
  one->takeEvents();
  two->m_bExists = false;
  m.invalidPlayerCollection();
  EXPECT_EQ(1u, m.getNumOfPlayer());
  EXPECT_EQ("dev-1", m.getPlayerRenderID(0));
  EXPECT_EQ(Strings{"stop(true)"}, two->takeEvents()) << "no monitor call on this path";
  EXPECT_EQ(Strings{}, one->takeEvents());
  // The lock is free again.
  EXPECT_EQ(0, m.play("dev-1", 0));
  m.removePlayer_("dev-9");
  EXPECT_EQ(1u, m.getNumOfPlayer());
}

// The current track after moving one element from `from` to `to`.
struct reorderCase_s {
  size_t cur, from, to, expected;
};

TEST_F(Manager, MovingAnElementKeepsTheCurrentTrackByTheModesTable) {
  const std::string title = playlist(6);
  CFakePlayer* p = player("dev-1", title);
  const reorderCase_s plain[] = {
      {2, 3, 3, 2},  // no move
      {2, 2, 4, 4},  // the current element moves
      {3, 1, 4, 2},  // moved from before to behind it
      {3, 5, 1, 4},  // moved from behind to before it
      {1, 4, 1, 2},  // moved up onto its place
      {4, 1, 4, 4},  // moved down onto its place: it becomes current
      {0, 2, 4, 0},  // elsewhere
      {5, 0, 5, 5},  // to the end, onto the current place
  };
  for (const auto& c : plain) {
    p->setPlayMode(NORMAL);
    p->setCurrTrackIndex(c.cur);
    m.reorderPlayQueue(title, c.from, c.to);
    EXPECT_EQ(c.expected, p->getCurrTrack()) << c.cur << " " << c.from << "->" << c.to;
  }
  // A new place past the queue's end is not taken.
  p->setCurrTrackIndex(5);
  m.reorderPlayQueue(title, 7, 5);
  EXPECT_EQ(5u, p->getCurrTrack());

  // Shuffled: the current order number is found again by its new number.
  const reorderCase_s shuffled[] = {
      {2, 2, 4, 4}, {4, 1, 4, 3}, {1, 4, 1, 2}, {3, 1, 4, 2}, {3, 5, 1, 4}, {0, 2, 4, 0},
  };
  for (const auto& c : shuffled) {
    p->setPlayMode(NORMAL);
    p->setPlayMode(SHUFFLE);
    ASSERT_EQ(0, p->setCurrTrackIdByOrder(static_cast<unsigned>(c.cur)));
    m.reorderPlayQueue(title, c.from, c.to);
    EXPECT_EQ(c.expected, p->getCurrTrack()) << c.cur << " " << c.from << "->" << c.to;
  }

  // Other titles and an empty one are left alone.
  p->setPlayMode(NORMAL);
  p->setCurrTrackIndex(2);
  m.reorderPlayQueue("", 2, 4);
  m.reorderPlayQueue(title + "x", 2, 4);
  EXPECT_EQ(2u, p->getCurrTrack());
}

TEST_F(Manager, PlaylistChangesReachEveryPlayerOfThePlaylist) {
  CSqlitePlaylist& store = playertest::store();
  const std::string title = testTitle();
  const int musicID = makePlaylist(title, numbered(3, "/share/Public/m"));
  ASSERT_EQ(0, store.addPlaylist(title.c_str(), MEDIA_VIDEO, "video", "bob", ""));
  const int videoID = store.getPlaylistID(title, "video");
  store.transBegin();
  for (int i = 0; i < 2; ++i) store.transAddElmInPlaylist(videoID, MEDIA_VIDEO, CONTENT_FILE, "/share/v.mp4", i);
  store.transEnd();

  CFakePlayer* music = player("dev-m", title);
  list_device(m, "dev-v", "Video", kDlna);
  ASSERT_EQ(0, m.setPlaylist("dev-v", title.c_str(), "video"));
  CFakePlayer* video = fake(m, "dev-v");
  ASSERT_EQ(2u, video->getPlaylistSize());

  auto append = [&store, musicID](int order, const char* content) {
    store.transBegin();
    EXPECT_EQ(0, store.transAddElmInPlaylist(musicID, MEDIA_AUDIO, CONTENT_FILE, content, order));
    store.transEnd();
  };
  // A new last row reaches the queue, moved where the client put it.
  append(3, "/share/Public/new.mp3");
  playlistElm_s added;
  ASSERT_EQ(0, store.getPlaylistElmByIndex(added, musicID, 3));
  m.addLastItemInPlayQueue(title.c_str(), 0);
  ASSERT_EQ(4u, music->getPlaylistSize());
  EXPECT_EQ(added.uuid, music->getPlayQueue()[0].uuid);
  EXPECT_EQ(2u, video->getPlaylistSize()) << "its own playlist has no fourth row";

  // Rows added in a batch: the queue is brought up to the store.
  append(4, "/share/Public/b4.mp3");
  append(5, "/share/Public/b5.mp3");
  m.updateAssociatePlayQueue(musicID);
  EXPECT_EQ(6u, music->getPlaylistSize());
  // A queue longer than its playlist is rebuilt from the first row.
  for (int i = 0; i < 4; ++i) {
    playQueueItem_s extra{99, 99};
    music->addItemToPlayQueue(extra);
  }
  music->takeEvents();
  m.updateAssociatePlayQueue(musicID);
  EXPECT_EQ(6u, music->getPlaylistSize());
  EXPECT_EQ(Strings{"stop(true)"}, music->takeEvents());

  // A deleted row leaves every queue of that title, whatever its appType.
  playlistElm_s row;
  ASSERT_EQ(0, store.getPlaylistElmByIndex(row, musicID, 5));
  m.delItemFromPlayQueue(title.c_str(), static_cast<unsigned long>(row.uuid));
  EXPECT_EQ(5u, music->getPlaylistSize());
  // Deleting a playlist matches the title and the appType.
  video->takeEvents();
  m.delPlaylist(title.c_str(), "video");
  EXPECT_EQ("", video->getPlaylistTitle());
  EXPECT_EQ(0u, video->getPlaylistSize());
  EXPECT_EQ(title, music->getPlaylistTitle());
  m.delPlaylist(nullptr, "music");
  EXPECT_EQ(5u, music->getPlaylistSize());
}

}  // namespace
