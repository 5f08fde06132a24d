// The player manager on one thread: the registry and its forwarding, the
// choice of class by type bits, the render cache, parking after missed
// scans and the reclaim, and the playlist operations that keep the queues
// in step with the store.
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
  EXPECT_STREQ("10.0.0.9", p->getIP());
  EXPECT_EQ(1u, m.getNumOfPlayer());
  EXPECT_EQ("dev-1", m.getPlayerRenderID(0));
  EXPECT_EQ("Kitchen", m.getPlayerDeviceName(0));
  EXPECT_EQ("", m.getPlayerRenderID(1));
  EXPECT_EQ("", m.getPlayerDeviceName(7));
  EXPECT_EQ(kDlna, m.getPlayerType("dev-1"));
  EXPECT_EQ(0u, m.getPlayerType("dev-2"));
  EXPECT_EQ(nullptr, m.createPlayer_(""));
  EXPECT_EQ(p, m.createPlayer_("dev-1"));
  p->takeEvents();

  // Each call reaches its operation and brings its result back.
  EXPECT_EQ(0, m.play("dev-1", 0xFFFFFFFF));
  EXPECT_EQ(0, m.stop("dev-1"));
  p->m_nextResult = 7;
  EXPECT_EQ(7, m.next("dev-1"));
  EXPECT_EQ(0, m.seek("dev-1", "00:01:00"));
  EXPECT_EQ(0, m.setVolume("dev-1", 55));
  EXPECT_EQ(55, m.getVolume("dev-1"));
  EXPECT_EQ(0, m.isMute("dev-1"));
  EXPECT_EQ(0, m.setMute("dev-1", true));
  EXPECT_EQ(1, m.isMute("dev-1"));
  p->m_avResult = -1;
  EXPECT_EQ(-1, m.setAudioAndSubtitle("dev-1", nullptr, 2, -1, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 1));
  EXPECT_EQ((Strings{"play", "stop(true)", "next", "seek 00:01:00", "setVolume 55", "setVolume 0",
                     "av pos=null aid=2 sid=-1 ext=null auto=1"}),
            p->takeEvents());

  EXPECT_EQ(0, m.setSlideShowDelay("dev-1", 9));
  EXPECT_EQ(9, p->getSlideShowDelay());
  EXPECT_EQ(0, m.setPlayMode("dev-1", REPEAT_ONE));
  EXPECT_EQ(REPEAT_ONE, p->getPlayMode());
  EXPECT_EQ(0, m.setTrack("dev-1", 2));
  EXPECT_EQ(2u, p->getCurrTrack());
  EXPECT_EQ(-1, m.setTrack("dev-1", 3)) << "past the queue";
  p->m_attrResult = -1;
  EXPECT_EQ(-1, m.setPlayerAttributes("dev-1", "a=1"));

  XMLNode out;
  m.getDebugInfo("dev-9", out);
  EXPECT_TRUE(out.isEmpty());
  m.getDebugInfo("dev-1", out);
  EXPECT_STREQ("FlowStage:7", out.getChildNode("status").getText());

  for (const char* dev : {"", "dev-2"}) {
    EXPECT_EQ(-4, m.play(dev, 0));
    EXPECT_EQ(-4, m.getVolume(dev));
    EXPECT_EQ(-4, m.isMute(dev));
    playerStatus_s status;
    EXPECT_EQ(-4, m.getPlayerStatus(dev, status));
  }
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

TEST_F(Manager, TheRenderCacheKeepsTheLastListingOfEachDevice) {
  renderCacheInfo_s info;
  EXPECT_EQ(-1, m.searchRenderInCache_("gone", info));
  m.addRenderInCache("dev-1", "Kitchen", "10.0.0.5", kDlna, "rsa", 7100, "1", "3");
  info = cached("dev-1");
  EXPECT_EQ("Kitchen", info.deviceName);
  EXPECT_EQ("10.0.0.5", info.ip);
  EXPECT_EQ(kDlna, info.type);
  EXPECT_EQ(7100, info.port);
  EXPECT_TRUE(info.encrypted);
  EXPECT_EQ("1", info.card);
  EXPECT_EQ("3", info.device);
  EXPECT_TRUE(info.valid);

  m.invalidRenderCache_();
  EXPECT_FALSE(cached("dev-1").valid) << "not seen by the listing now merged";
  m.addRenderInCache("dev-1", "Hall", "10.0.0.6", kDlna, "RSA", 7000, "", "");
  info = cached("dev-1");
  EXPECT_TRUE(info.valid);
  EXPECT_EQ("Hall", info.deviceName);
  EXPECT_FALSE(info.encrypted) << "only the exact word";
  EXPECT_EQ("", info.card) << "the record is overwritten whole";
  m.addRenderInCache("dev-2", "Den", "10.0.0.7", kDlna, nullptr, 7000, "", "");
  EXPECT_FALSE(cached("dev-2").encrypted);
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
  EXPECT_STREQ("", one->getIP());
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
    p->m_currTrack = c.cur;
    m.reorderPlayQueue(title, c.from, c.to);
    EXPECT_EQ(c.expected, p->getCurrTrack()) << c.cur << " " << c.from << "->" << c.to;
  }
  // A new place past the queue's end is not taken.
  p->m_currTrack = 5;
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
  p->m_currTrack = 2;
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
  EXPECT_EQ(added.uuid, music->m_playQueue[0].uuid);
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

  // Deleting matches the title and the appType.
  video->takeEvents();
  m.delPlaylist(title.c_str(), "video");
  EXPECT_EQ(nullptr, video->getPlaylistTitle());
  EXPECT_EQ(0u, video->getPlaylistSize());
  EXPECT_EQ(title, music->getPlaylistTitle());
  m.delPlaylist(nullptr, "music");
  EXPECT_EQ(6u, music->getPlaylistSize());
}

TEST_F(Manager, DeletedItemsLeaveEveryQueueOfThatTitle) {
  const std::string title = playlist(3);
  CFakePlayer* one = player("dev-1", title);
  CFakePlayer* two = player("dev-2", title);
  playlistElm_s elm;
  ASSERT_EQ(0, one->getPlaylistElmByIndex(elm, 1));
  m.delItemFromPlayQueue(title.c_str(), static_cast<unsigned long>(elm.uuid));
  EXPECT_EQ(2u, one->getPlaylistSize());
  EXPECT_EQ(2u, two->getPlaylistSize());
  m.delItemFromPlayQueue((title + "x").c_str(), 1);
  m.delItemFromPlayQueue(nullptr, 1);
  EXPECT_EQ(2u, one->getPlaylistSize());
}

TEST_F(Manager, ShuffledPlayersOfAPlaylistAreShuffledAgain) {
  const std::string title = playlist(5);
  CFakePlayer* p = player("dev-1", title);
  p->setPlayMode(SHUFFLE);
  for (size_t i = 0; i < 5; ++i) p->m_playQueue[i].order = 4 - i;
  p->m_currTrack = 1;  // playing order 3
  m.updatePlayModeByPlaylist(title.c_str(), "video");
  EXPECT_EQ(1u, p->m_currTrack);
  m.updatePlayModeByPlaylist(title.c_str(), "music");
  EXPECT_EQ(SHUFFLE, p->getPlayMode());
  // Through plain order, which puts the playing element at its own place,
  // which the new shuffle never moves.
  EXPECT_EQ(3u, p->m_currTrack);
  EXPECT_EQ(3u, p->getCurrTrack());
}

}  // namespace
