// Shared by the sound-output player tests: WAV tracks in the shared root,
// a playlist of them, a player with short waits, and a bounded wait.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backends/alsaPlayer.h"
#include "player/playerTestSupport.h"

namespace alsatest {

using playertest::sharedRoot;
using playertest::Strings;

// A WAV file of `seconds` at an appliance path of the shared root.
inline void wav(const std::string& path, int seconds) {
  sharedRoot().write(path, "");  // makes the folders
  testsupport::write_wav(sharedRoot().path(path), seconds);
}

inline alsaTiming_s fastTiming() {
  alsaTiming_s t;
  t.startupMs = 100;
  t.passMs = 100;
  return t;
}

inline bool waitFor(const std::function<bool()>& cond, double seconds = 20) {
  return testsupport::wait_for(cond, seconds, 20);
}

// WAV tracks of the given lengths under /share/Public/alsa/, and the
// playlist of them under the test's title.
inline Strings layTracks(const std::vector<int>& seconds) {
  Strings paths;
  for (size_t i = 0; i < seconds.size(); ++i) {
    const std::string path = "/share/Public/alsa/" + playertest::testTitle() + " #" + std::to_string(i) + ".wav";
    wav(path, seconds[i]);
    paths.push_back(path);
  }
  playertest::makePlaylist(playertest::testTitle(), paths);
  return paths;
}

inline std::unique_ptr<CAlsaPlayer> makePlayer(const std::string& title, const std::string& output = "Built-in Audio") {
  sharedRoot().clearCalls();
  return std::unique_ptr<CAlsaPlayer>(new CAlsaPlayer(PLAYER_TYPE_ALSA, "ANALOG_card0", output.c_str(),
                                                      title.empty() ? nullptr : title.c_str(),
                                                      title.empty() ? nullptr : "music", "127.0.0.1", fastTiming()));
}

}  // namespace alsatest
