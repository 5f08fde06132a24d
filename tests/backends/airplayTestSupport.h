// Shared by the AirPlay player tests: a simulated device in the test
// process, media laid with their durations in the stand-ins' library, a
// player on the device with short passes, and the device's requests.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "airplay/airplayDevice.h"
#include "backends/airplayPlayer.h"
#include "player/playerTestSupport.h"

namespace airplaytest {

using playertest::Strings;

inline airplayTiming_s fastTiming() {
  airplayTiming_s t;
  t.passMs = 20;
  return t;
}

// The name "curl" of the HLS interruption finds the root's stand-in.
inline testsupport::TestRoot& root() {
  static testsupport::TestRoot& r = [] () -> testsupport::TestRoot& {
    testsupport::TestRoot& shared = playertest::sharedRoot();
    const char* path = std::getenv("PATH");
    ::setenv("PATH", (shared.path("/usr/bin") + ":" + (path ? path : "/usr/bin:/bin")).c_str(), 1);
    return shared;
  }();
  return r;
}

inline bool waitFor(const std::function<bool()>& cond, double seconds = 15) {
  return testsupport::wait_for(cond, seconds, 5);
}

inline std::string stem() {
  std::string id = playertest::testTitle();
  for (char& c : id)
    if (c == '.' || c == '/') c = '-';
  return id;
}

// The media folder, as the library knows it: the share's path on its volume.
const std::string kDir = "/share/CACHEDEV1_DATA/Public/airplay/";

// Files in kDir named after the test, each with its
// duration and a library id of its own; the playlist of them.
struct Media {
  Strings paths;
  std::vector<int> dbIDs;
  std::string title;
  // The URL the library gives the device for track i.
  std::string url(size_t i) const {
    const std::string& p = paths[i];
    return "http://127.0.0.1:8200/MediaItems/" + std::to_string(dbIDs[i]) + p.substr(p.rfind('.')) +
           "?client=AppleTV";
  }
};

inline Media layMedia(const Strings& durations, mediaType_e media, const Strings& names = {}) {
  static std::atomic<int> nextDb{5000};
  testsupport::TestRoot& r = root();
  const char* ext = media == MEDIA_VIDEO ? ".mkv" : media == MEDIA_PHOTO ? ".jpg" : ".mp3";
  Media m;
  m.title = playertest::testTitle();
  std::string tsv = r.read("/sim/media.tsv");
  for (size_t i = 0; i < durations.size(); ++i) {
    const std::string name = i < names.size() ? names[i] : stem() + "-t" + std::to_string(i) + ext;
    const std::string path = kDir + name;
    r.write(path, "bytes of " + name);
    const int db = nextDb++;
    tsv += "ap" + std::to_string(db) + "\t" + std::to_string(db) + "\t" + std::to_string(static_cast<int>(media)) +
           "\t" + path + "\t" + durations[i] + "\n";
    m.paths.push_back(path);
    m.dbIDs.push_back(db);
  }
  r.write("/sim/media.tsv", tsv);
  playertest::makePlaylist(m.title, m.paths, CONTENT_FILE, media);
  return m;
}

inline std::unique_ptr<CAirplayPlayer> makePlayer(const sim::AirplayDevice& device, const std::string& title,
                                                  airplayTiming_s timing = fastTiming()) {
  root().clearCalls();
  std::unique_ptr<CAirplayPlayer> p(new CAirplayPlayer(
      PLAYER_TYPE_AIRPLAY | PLAYER_TYPE_VIDEO | PLAYER_TYPE_AUDIO | PLAYER_TYPE_PHOTO, ("ap-" + stem()).c_str(), "Den",
      title.empty() ? nullptr : title.c_str(), title.empty() ? nullptr : "music", "127.0.0.1", device.port(), timing));
  p->setIP("127.0.0.1");
  return p;
}

// The device's requests as "METHOD path" lines.
inline Strings lines(const sim::AirplayDevice& device) {
  Strings out;
  for (const sim::AirplayRequest& r : device.requests()) out.push_back(r.method + " " + r.path);
  return out;
}

// The content URLs of the device's /play requests, in order.
inline Strings played(const sim::AirplayDevice& device) {
  Strings out;
  for (const sim::AirplayRequest& r : device.requests()) {
    if (r.path != "/play") continue;
    const size_t at = r.body.find("Content-Location: ");
    const size_t end = r.body.find("\r\n", at);
    if (at != std::string::npos) out.push_back(r.body.substr(at + 18, end - at - 18));
  }
  return out;
}

inline size_t count(const Strings& all, const std::string& line) {
  size_t n = 0;
  for (const std::string& l : all) n += l == line ? 1 : 0;
  return n;
}

// The stand-ins' calls that start with `prefix`.
inline Strings calls(const std::string& prefix) {
  Strings out;
  for (const std::string& line : root().calls())
    if (line.compare(0, prefix.size(), prefix) == 0) out.push_back(line);
  return out;
}

}  // namespace airplaytest
