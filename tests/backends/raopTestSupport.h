// Shared by the speaker player's tests: tracks in the root's media library,
// playlists of their object ids, fast waits, and the streamer stand-in's
// datagram log.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "backends/raopPlayer.h"
#include "player/playerTestSupport.h"

namespace raoptest {

using playertest::sharedRoot;
using playertest::Strings;

inline raopTiming_s fastTiming() {
  raopTiming_s t;
  t.passMs = 40;
  t.readyWaitMs = 20;
  t.readyWaits = 30;
  t.transportMs = 5;
  t.failMs = 5;
  t.replyMs = 500;
  t.quitMs = 500;
  return t;
}

inline bool waitFor(const std::function<bool()>& cond, double seconds = 20) {
  return testsupport::wait_for(cond, seconds, 10);
}

inline bool procExists(int pid) {
  struct stat st {};
  return pid > 0 && ::stat(("/proc/" + std::to_string(pid)).c_str(), &st) == 0;
}

// Files under /share/Public/raop/<test>/ of the given durations, listed in
// the media library under object ids "<test>#i"; the appliance paths.
inline Strings layMedia(const std::vector<std::string>& durations, const Strings& names = {}) {
  Strings paths;
  std::string tsv = sharedRoot().read("/sim/media.tsv");
  for (size_t i = 0; i < durations.size(); ++i) {
    const std::string name = i < names.size() ? names[i] : "track " + std::to_string(i) + ".mp3";
    const std::string path = "/share/Public/raop/" + playertest::testTitle() + "/" + name;
    sharedRoot().write(path, "ID3");
    tsv.append(playertest::testTitle()).append("#").append(std::to_string(i)).append("\t0\t0\t").append(path);
    tsv.append("\t").append(durations[i]).append("\n");
    paths.push_back(path);
  }
  sharedRoot().write("/sim/media.tsv", tsv);
  return paths;
}

// The playlist of the test's title with one object element per track,
// added singly so that each keeps its object id.
inline void makeObjectPlaylist(size_t tracks) {
  const std::string title = playertest::testTitle();
  ASSERT_EQ(0, playertest::store().addPlaylist(title.c_str(), MEDIA_AUDIO, "music", "alice", "tagged"));
  for (size_t i = 0; i < tracks; ++i) {
    const std::string id = title + "#" + std::to_string(i);
    ASSERT_EQ(0, playertest::store().addElmInPlaylist(title.c_str(), MEDIA_AUDIO, CONTENT_OBJECT, "music",
                                                       id.c_str(), -1));
  }
}

inline std::unique_ptr<CRaopPlayer> makePlayer(bool encrypted = true, const raopTiming_s& timing = fastTiming()) {
  const std::string title = playertest::testTitle();
  return std::unique_ptr<CRaopPlayer>(new CRaopPlayer(PLAYER_TYPE_RAOP | PLAYER_TYPE_AUDIO, "AABBCCDDEE01",
                                                      "Kitchen", title.c_str(), "music", encrypted, "10.0.0.21",
                                                      5000, timing));
}

// The texts that the child `pid` received, in order (the root taken out).
inline Strings datagramsOf(int pid) {
  Strings out;
  std::istringstream in(sharedRoot().read("/sim/raop_play/datagrams.log"));
  const std::string prefix = std::to_string(pid) + " ";
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, prefix.size(), prefix) != 0) continue;
    line.erase(0, prefix.size());
    for (size_t at; (at = line.find(sharedRoot().dir())) != std::string::npos;)
      line.erase(at, sharedRoot().dir().size());
    out.push_back(line);
  }
  return out;
}

inline size_t countOf(const Strings& texts, const std::string& text) {
  size_t n = 0;
  for (const std::string& t : texts) n += t == text ? 1 : 0;
  return n;
}

}  // namespace raoptest
