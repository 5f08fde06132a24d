// The manager's locks across threads: a player inside a command answers
// every other command with -19 at once, the playlist operations wait for
// that command and no longer, the listing's check stands aside while
// anybody is inside, and the scan thread ends with the manager.
#include <future>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "manager/fakePlayer.h"
#include "player/playerTestSupport.h"

using managertest::CFakePlayer;
using managertest::fake;
using managertest::list_device;
using managertest::Strings;

namespace {

constexpr unsigned kDlna = PLAYER_TYPE_DLNA | PLAYER_TYPE_AUDIO;

class ManagerThreads : public ::testing::Test {
 protected:
  void SetUp() override {
    playertest::store();
    title = playertest::testTitle();
    playertest::makePlaylist(title, playertest::numbered(3));
    for (const char* id : {"busy", "idle"}) {
      list_device(m, id, id, kDlna);
      ASSERT_EQ(0, m.setPlaylist(id, title.c_str(), "music"));
    }
    busy = fake(m, "busy");
    idle = fake(m, "idle");
  }
  // Starts a Play on "busy" that stays inside the player until released.
  std::future<int> holdBusy() {
    busy->closeGate();
    auto held = std::async(std::launch::async, [this] { return m.play("busy", 0); });
    busy->waitInside();
    return held;
  }

  std::unique_ptr<CPlayerManager> owner{managertest::make_manager()};
  CPlayerManager& m = *owner;
  std::string title;
  CFakePlayer* busy = nullptr;
  CFakePlayer* idle = nullptr;
};

TEST_F(ManagerThreads, APlayerInsideACommandAnswersEveryOtherCommandBusy) {
  auto held = holdBusy();
  playerStatus_s status;
  EXPECT_EQ(-19, m.play("busy", 0));
  EXPECT_EQ(-19, m.pause("busy"));
  EXPECT_EQ(-19, m.stop("busy"));
  EXPECT_EQ(-19, m.getVolume("busy"));
  EXPECT_EQ(-19, m.isMute("busy"));
  EXPECT_EQ(-19, m.setMute("busy", true));
  EXPECT_EQ(-19, m.setPlayMode("busy", REPEAT));
  EXPECT_EQ(-19, m.getPlayerStatus("busy", status));
  EXPECT_EQ(-19, m.setPlayerAttributes("busy", "x"));
  EXPECT_EQ(-19, m.setPlaylist("busy", title.c_str(), "music"));
  EXPECT_EQ(NORMAL, busy->getPlayMode()) << "nothing reached the player";
  // Another player and the registry are not held up.
  EXPECT_EQ(0, m.stop("idle"));
  EXPECT_EQ(0, m.getPlayerStatus("idle", status));
  EXPECT_EQ(2u, m.getNumOfPlayer());
  busy->openGate();
  EXPECT_EQ(0, held.get());
  EXPECT_EQ(0, m.stop("busy"));
}

TEST_F(ManagerThreads, PlaylistOperationsWaitForTheRunningCommandOnly) {
  busy->takeEvents();
  auto held = holdBusy();
  auto deleting = std::async(std::launch::async, [this] { m.delPlaylist(title.c_str(), "music"); });
  // The deletion waits at the busy player's barrier.
  EXPECT_EQ(std::future_status::timeout, deleting.wait_for(std::chrono::milliseconds(50)));
  busy->openGate();
  deleting.get();
  EXPECT_EQ(0, held.get());
  const Strings events = busy->takeEvents();
  ASSERT_EQ(4u, events.size());
  EXPECT_EQ((Strings{"play", "play-end", "stop(true)", "stop(true)"}), events);
  EXPECT_EQ("", busy->getPlaylistTitle());
  EXPECT_EQ("", idle->getPlaylistTitle());
  // The barrier holds nothing afterwards.
  EXPECT_EQ(0, m.play("busy", 0));
}

TEST_F(ManagerThreads, TheListingsCheckStandsAsideWhileAnybodyIsInside) {
  idle->m_bExists = false;
  auto held = holdBusy();
  m.invalidPlayerCollection();
  EXPECT_EQ(2u, m.getNumOfPlayer()) << "skipped: a command holds the registry";
  busy->openGate();
  held.get();
  m.invalidPlayerCollection();
  EXPECT_EQ(1u, m.getNumOfPlayer());
  EXPECT_EQ(-4, m.play("idle", 0));
}

TEST_F(ManagerThreads, TheScanWaitsForARunningCommandAndTheThreadEndsWithTheManager) {
  auto held = holdBusy();
  m.invalidRenderCache_();
  auto scanning = std::async(std::launch::async, [this] { m.scanPlayers(); });
  EXPECT_EQ(std::future_status::timeout, scanning.wait_for(std::chrono::milliseconds(50)));
  busy->openGate();
  scanning.get();
  held.get();
  renderCacheInfo_s info;
  ASSERT_EQ(0, m.searchRenderInCache_("busy", info));
  EXPECT_EQ(1, info.failCount);

  // A started manager scans at once and ends its thread when destroyed,
  // without waiting out its ten seconds.
  std::unique_ptr<CPlayerManager> other(managertest::make_manager());
  list_device(*other, "x", "x", kDlna);
  ASSERT_EQ(0, other->setPlaylist("x", title.c_str(), "music"));
  ASSERT_EQ(0, other->start());
  other.reset();
}

}  // namespace
