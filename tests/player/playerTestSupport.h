// What the player tests share: a back-end that records what the base asks
// of it, one simulated appliance for the whole test program (the playlist
// store is a process-wide singleton that opens its file once), and quick
// ways to fill playlists.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "foundation/thread.h"
#include "player/player.h"
#include "playlist/SqlitePlaylist.h"
#include "support/testRoot.h"

namespace playertest {

// Built before the first use of the store, kept until the program ends.
inline testsupport::TestRoot& sharedRoot() {
  static testsupport::TestRoot root;
  return root;
}

inline CSqlitePlaylist& store() {
  sharedRoot();
  return *CGlobalsSingleton<CSqlitePlaylist>::get();
}

// A playlist named after the running test, so that tests never share one.
inline std::string testTitle(const std::string& suffix = "") {
  const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
  return std::string(info->test_suite_name()) + "." + info->name() + suffix;
}

// Makes the playlist with one element per content and returns its id.
// The playlist belongs to "alice" (or `owner`) under the appType "music".
inline int makePlaylist(const std::string& title, const std::vector<std::string>& contents,
                        contentType_e type = CONTENT_FILE, mediaType_e media = MEDIA_AUDIO,
                        const char* owner = "alice") {
  CSqlitePlaylist& s = store();
  EXPECT_EQ(0, s.addPlaylist(title.c_str(), media, "music", owner, "tagged"));
  int id = s.getPlaylistID(title, "music");
  EXPECT_GT(id, 0);
  s.transBegin();
  for (size_t i = 0; i < contents.size(); ++i)
    s.transAddElmInPlaylist(id, media, type, contents[i].c_str(), static_cast<int>(i));
  s.transEnd();
  return id;
}

inline std::vector<std::string> numbered(size_t n, const std::string& stem = "/share/Public/track") {
  std::vector<std::string> out;
  for (size_t i = 0; i < n; ++i) out.push_back(stem + std::to_string(i) + ".mp3");
  return out;
}

// A back-end without a device: it records play and stop, keeps a volume,
// and lets the tests reach the base's state.
class CRecordingPlayer : public CPlayer {
 public:
  CRecordingPlayer(unsigned type = PLAYER_TYPE_DLNA, const char* title = nullptr, const char* appType = nullptr)
      : CPlayer(type, "render-1", "Living room", title, appType) {}

  int play() override { return record("play", STATE_PLAY_E); }
  int stop(bool release) override { return record(release ? "stop(true)" : "stop(false)", STATE_STOP_E); }
  int pause() override { return 0; }
  int next() override { return 0; }
  int previous() override { return 0; }
  int seek(const char*) override { return 0; }
  int setAudioAndSubtitle(const char*, int, int, const char*, const char*, const char*, const char*, const char*,
                          const char*, int) override {
    return 0;
  }
  int setVolume(int volume) override { return m_bHasVolume ? (m_volume = volume, 0) : -1; }
  int getVolume() override { return m_bHasVolume ? m_volume : -1; }

  // The events since the last call.
  std::vector<std::string> takeEvents() {
    std::vector<std::string> out;
    out.swap(m_events);
    return out;
  }

  // The orders and uuids of the queue, place by place.
  std::vector<size_t> orders() const {
    std::vector<size_t> out;
    for (const playQueueItem_s& e : m_playQueue) out.push_back(e.order);
    return out;
  }
  std::vector<unsigned long> uuids() const {
    std::vector<unsigned long> out;
    for (const playQueueItem_s& e : m_playQueue) out.push_back(e.uuid);
    return out;
  }

  using CPlayer::m_autoPlugSubtitle;
  using CPlayer::m_currTime;
  using CPlayer::m_currTrack;
  using CPlayer::m_externalSubtitle;
  using CPlayer::m_playQueue;
  using CPlayer::m_seekTime;
  using CPlayer::m_sencoding;
  using CPlayer::m_sseek;

  bool m_bHasVolume = true;
  int m_volume = 0;

 private:
  int record(const char* event, playerState_e state) {
    m_events.push_back(event);
    m_playerState = state;
    return 0;
  }
  std::vector<std::string> m_events;
};

using Events = std::vector<std::string>;

}  // namespace playertest
