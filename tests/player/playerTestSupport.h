// Shared by the player tests: one simulated appliance per test program (the
// store opens its file once), playlists named after the running test, and a
// back-end that records what the base asks of it.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "foundation/thread.h"
#include "player/player.h"
#include "playlist/SqlitePlaylist.h"
#include "support/testRoot.h"

namespace playertest {

using Strings = std::vector<std::string>;

inline testsupport::TestRoot& sharedRoot() {
  static testsupport::TestRoot root;
  return root;
}

inline CSqlitePlaylist& store() {
  sharedRoot();
  return *CGlobalsSingleton<CSqlitePlaylist>::get();
}

inline std::string testTitle(const std::string& suffix = "") {
  const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
  return std::string(info->test_suite_name()) + "." + info->name() + suffix;
}

inline Strings numbered(size_t n, const std::string& stem = "/share/Public/track") {
  Strings out;
  for (size_t i = 0; i < n; ++i) out.push_back(stem + std::to_string(i) + ".mp3");
  return out;
}

// A playlist of `owner` under the appType "music", one element per content.
inline int makePlaylist(const std::string& title, const Strings& contents, contentType_e type = CONTENT_FILE,
                        mediaType_e media = MEDIA_AUDIO, const char* owner = "alice") {
  EXPECT_EQ(0, store().addPlaylist(title.c_str(), media, "music", owner, "tagged"));
  const int id = store().getPlaylistID(title, "music");
  store().transBegin();
  for (size_t i = 0; i < contents.size(); ++i)
    store().transAddElmInPlaylist(id, media, type, contents[i].c_str(), static_cast<int>(i));
  store().transEnd();
  return id;
}

// A lookup's result and output as one text: "0 v1001".
inline std::string got(int result, const std::string& out) { return std::to_string(result) + " " + out; }

class CRecordingPlayer : public CPlayer {
 public:
  // With a title, the player loads that playlist of the appType "music".
  explicit CRecordingPlayer(unsigned type = PLAYER_TYPE_DLNA, const std::string& title = "")
      : CPlayer(type, "render-1", "Living room", title.empty() ? nullptr : title.c_str(),
                title.empty() ? nullptr : "music") {}

  int play() override { return record("play", STATE_PLAY_E); }
  int stop(bool release) override { return record(release ? "stop(true)" : "stop(false)", STATE_STOP_E); }
  int pause() override { return 0; }
  int next() override { return 0; }
  int previous() override { return 0; }
  int seek(const char*) override { return 0; }
  int setAudioAndSubtitle(const char*, int, int, const char*, const char*, const char*, const char*, const char*,
                          const char*, int) override { return 0; }
  int setVolume(int volume) override { return m_bHasVolume ? (m_volume = volume, 0) : -1; }
  int getVolume() override { return m_bHasVolume ? m_volume : -1; }

  Strings takeEvents() { return std::exchange(m_events, Strings()); }
  std::vector<size_t> orders() const { return field(&playQueueItem_s::order); }
  std::vector<unsigned long> uuids() const { return field(&playQueueItem_s::uuid); }

  using CPlayer::m_autoPlugSubtitle, CPlayer::m_currTime, CPlayer::m_externalSubtitle, CPlayer::m_playerState,
      CPlayer::m_seekTime, CPlayer::m_sencoding, CPlayer::m_sseek;
  using CPlayer::getPlayQueue, CPlayer::moveCurrTrack, CPlayer::setCurrTrackIndex, CPlayer::setPlayQueue;
  bool m_bHasVolume = true;
  int m_volume = 0;

 private:
  int record(const char* event, playerState_e state) {
    m_events.push_back(event);
    m_playerState = state;
    return 0;
  }
  template <typename T>
  std::vector<T> field(T playQueueItem_s::*member) const {
    std::vector<T> out;
    for (const playQueueItem_s& e : getPlayQueue()) out.push_back(e.*member);
    return out;
  }
  Strings m_events;
};

}  // namespace playertest
