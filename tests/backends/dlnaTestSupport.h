// Shared by the DLNA player tests: a player on a simulated renderer of the
// test root, media files laid with their durations in the stand-ins'
// library, short waits for the loop, and a bounded wait for conditions.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backends/dlnaPlayer.h"
#include "player/playerTestSupport.h"

namespace dlnatest {

using playertest::Strings;

// One pass a tenth of a second; the monitors keep their second.
inline dlnaTiming_s fastTiming() {
  dlnaTiming_s t;
  t.passMs = 100;
  t.retryMs = 20;
  t.transitionPollUs = 20000;
  t.seekWaitUs = 50000;
  return t;
}

// Polls `cond` until it holds or `seconds` pass; the result says which.
inline bool waitFor(const std::function<bool()>& cond, double seconds = 15) {
  return testsupport::wait_for(cond, seconds, 20);
}

// A renderer id of the running test, so that no two tests share a renderer.
inline std::string renderId() {
  std::string id = "uuid-" + playertest::testTitle();
  for (char& c : id)
    if (c == '.' || c == '/') c = '-';
  return id;
}

// The simulated renderer `id`, driven through the agent stand-in's test
// controls.
class Renderer {
 public:
  explicit Renderer(std::string id) : m_id(std::move(id)) {}
  void set(const std::string& key, const std::string& value) const { sim({"set", m_id, key, value}); }
  void press(const std::string& button) const { sim({"press", m_id, button}); }
  std::string get(const std::string& key) const { return sim({"get", m_id, key}); }
  int pos() const { return std::atoi(get("pos").c_str()); }

 private:
  static std::string sim(const Strings& args) {
    std::string cmd = "'" + playertest::sharedRoot().path("/usr/bin/brelctl") + "' --sim";
    for (const std::string& a : args) cmd += " '" + a + "'";
    std::string out;
    FILE* p = ::popen(cmd.c_str(), "r");
    if (!p) return out;
    char buf[256];
    while (fgets(buf, sizeof buf, p)) out += buf;
    ::pclose(p);
    while (!out.empty() && out.back() == '\n') out.pop_back();
    return out;
  }
  std::string m_id;
};

// Audio files under /share/Public/dlna/ named after the test, each with its
// duration in the library; the playlist of them under the test's title.
struct Media {
  Strings paths;
  std::string title;
};

inline Media layTracks(const Strings& durations, mediaType_e media = MEDIA_AUDIO, bool inLibrary = true) {
  testsupport::TestRoot& root = playertest::sharedRoot();
  Media m;
  m.title = playertest::testTitle();
  std::string tsv = root.read("/sim/media.tsv");
  for (size_t i = 0; i < durations.size(); ++i) {
    std::string path = "/share/Public/dlna/" + renderId() + "-t" + std::to_string(i) + (media == MEDIA_VIDEO ? ".mkv" : ".mp3");
    root.write(path, "x");
    if (inLibrary)
      tsv += "o" + std::to_string(i) + "-" + renderId() + "\t" + std::to_string(900 + i) + "\t" +
             std::to_string(static_cast<int>(media)) + "\t" + path + "\t" + durations[i] + "\n";
    m.paths.push_back(path);
  }
  root.write("/sim/media.tsv", tsv);
  playertest::makePlaylist(m.title, m.paths, CONTENT_FILE, media);
  return m;
}

inline std::unique_ptr<CDlnaPlayer> makePlayer(const std::string& title, const std::string& id = renderId()) {
  // The agent must run inside the test root; the log holds this player's calls.
  playertest::sharedRoot().clearCalls();
  return std::unique_ptr<CDlnaPlayer>(new CDlnaPlayer(PLAYER_TYPE_DLNA | PLAYER_TYPE_AUDIO, id.c_str(), "Den",
                                                      title.empty() ? nullptr : title.c_str(),
                                                      title.empty() ? nullptr : "music", fastTiming()));
}

// The agent's calls of one command, in order, from the call log.
inline Strings agentCalls(const std::string& command) {
  Strings out;
  for (const std::string& line : playertest::sharedRoot().calls())
    if (line.find("/usr/bin/brelctl -c " + command + " ") == 0) out.push_back(line);
  return out;
}

// Which tracks were handed to the renderer, by index in `m.paths`.
inline std::vector<int> loadedTracks(const Media& m) {
  std::vector<int> out;
  for (const std::string& line : agentCalls("setAvTransportUrl"))
    for (size_t i = 0; i < m.paths.size(); ++i)
      if (line.find(" --filePath " + m.paths[i]) != std::string::npos) out.push_back(static_cast<int>(i));
  return out;
}

}  // namespace dlnatest
