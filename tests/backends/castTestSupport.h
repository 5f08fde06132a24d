// Shared by the Chromecast tests: media laid in the stand-ins' library and
// in the transcoding tool's description, a player on the device script's
// simulated device, the device's state and the script's calls, the two
// settings, and a loopback media server that answers over real HTTP.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "backends/chromecastPlayer.h"
#include "player/playerTestSupport.h"

namespace casttest {

using playertest::Strings;

inline chromecastTiming_s fastTiming() {
  chromecastTiming_s t;
  t.passMs = 50;
  return t;
}

inline bool waitFor(const std::function<bool()>& cond, double seconds = 15) {
  return testsupport::wait_for(cond, seconds, 10);
}

inline testsupport::TestRoot& root() { return playertest::sharedRoot(); }

// A render id of the running test, so that no two tests share a device.
inline std::string renderId() {
  std::string id = "cast-" + playertest::testTitle();
  for (char& c : id)
    if (c == '.' || c == '/') c = '-';
  return id;
}

struct Item {
  std::string path;
  std::string dbID;
};

// A file of the data volume (the media library knows the paths that the
// share's link resolves to), in the library with its duration and, for
// music and video, in the tool's description with its codecs. `name` is the
// file's name; the folder is the test's own.
inline Item lay(const std::string& name, mediaType_e media, const std::string& duration = "00:01:00",
                const std::string& video = "h264", const std::string& audio = "aac", bool inLibrary = true) {
  static int next = 7000;
  Item it;
  it.dbID = std::to_string(++next);
  it.path = "/share/CACHEDEV1_DATA/Public/cast/" + renderId() + "/" + name;
  root().write(it.path, "x");
  if (inLibrary)
    root().write("/sim/media.tsv", root().read("/sim/media.tsv") + "o" + it.dbID + "\t" + it.dbID + "\t" +
                                       std::to_string(static_cast<int>(media)) + "\t" + it.path + "\t" + duration +
                                       "\n");
  if (media != MEDIA_PHOTO)
    root().write("/sim/hls-media.tsv", root().read("/sim/hls-media.tsv") + it.path + "\t" + video + "\t" + audio + "\n");
  return it;
}

inline std::string playlistOf(const std::vector<Item>& items, mediaType_e media) {
  Strings paths;
  for (const Item& it : items) paths.push_back(it.path);
  const std::string title = playertest::testTitle();
  playertest::makePlaylist(title, paths, CONTENT_FILE, media);
  return title;
}

// The two settings the preparation reads.
inline void setPassThrough(bool on) {
  root().write("/etc/config/Tovud.conf", std::string("passthrough_for_atv_and_chromecast = ") + (on ? "1" : "0") + "\n");
}
inline void setDefaultSubtitle(bool on) {
  root().write("/mnt/ext/opt/KIVO/etc/config/Tovud.conf", std::string("default_subtitle = ") + (on ? "1" : "0") + "\n");
}

inline std::unique_ptr<CChromecast> makePlayer(const std::string& title, const std::string& id = renderId()) {
  root().clearCalls();
  auto p = std::unique_ptr<CChromecast>(new CChromecast(PLAYER_TYPE_CHROMECAST | PLAYER_TYPE_VIDEO, id.c_str(),
                                                        "Lounge TV", title.empty() ? nullptr : title.c_str(),
                                                        title.empty() ? nullptr : "music", "127.0.0.1", 8009,
                                                        fastTiming()));
  EXPECT_TRUE(waitFor([&] { return p->isParked(); }));
  return p;
}

// The simulated device of a render id (the script stand-in's state file).
class Device {
 public:
  explicit Device(const std::string& id) {
    for (char c : id) m_name += isalnum(static_cast<unsigned char>(c)) ? c : '_';
  }
  std::string file() const { return "/sim/vexairplay/" + m_name + ".state"; }
  // The last value of `key`; "" without one.
  std::string get(const std::string& key) const {
    std::string value;
    const std::string text = root().read(file());
    size_t at = 0;
    while (at < text.size()) {
      size_t end = text.find('\n', at);
      if (end == std::string::npos) end = text.size();
      if (text.compare(at, key.size() + 1, key + "=") == 0) value = text.substr(at + key.size() + 1, end - at - key.size() - 1);
      at = end + 1;
    }
    return value;
  }
  void set(const std::string& key, const std::string& value) const {
    root().write(file(), root().read(file()) + key + "=" + value + "\n");
  }

 private:
  std::string m_name;
};

// The script's calls of one action ("play", "stop", ...), in order.
inline Strings scriptCalls(const std::string& action) {
  Strings out;
  for (const std::string& line : root().calls())
    if (line.find("/usr/local/apache/bin/php ") == 0 && line.find(" -c=" + action + " ") != std::string::npos)
      out.push_back(line);
  return out;
}

inline Strings toolCalls() {
  Strings out;
  for (const std::string& line : root().calls())
    if (line.find("/usr/local/medialibrary/bin/VexHLSAgent ") == 0) out.push_back(line);
  return out;
}

// A media server on a loopback port: records each request's path and
// answers 200 to those that contain `okPart`, 404 to the rest.
class MediaServer {
 public:
  explicit MediaServer(std::string okPart) : m_okPart(std::move(okPart)) {
    m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int one = 1;
    ::setsockopt(m_fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (::bind(m_fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(m_fd, 8) != 0) return;
    socklen_t len = sizeof a;
    ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&a), &len);
    m_port = ntohs(a.sin_port);
    m_thread = std::thread([this] { serve(); });
  }
  ~MediaServer() {
    m_done = true;
    ::shutdown(m_fd, SHUT_RDWR);
    if (m_thread.joinable()) m_thread.join();
    ::close(m_fd);
  }
  MediaServer(const MediaServer&) = delete;
  MediaServer& operator=(const MediaServer&) = delete;

  std::string base() const { return "http://127.0.0.1:" + std::to_string(m_port); }
  Strings paths() const {
    std::lock_guard<std::mutex> lk(m_lock);
    return m_paths;
  }

 private:
  void serve() {
    while (!m_done) {
      const int c = ::accept(m_fd, nullptr, nullptr);
      if (c < 0) return;
      std::string req;
      char buf[1024];
      while (req.find("\r\n\r\n") == std::string::npos) {
        const ssize_t n = ::read(c, buf, sizeof buf);
        if (n <= 0) break;
        req.append(buf, static_cast<size_t>(n));
      }
      const size_t sp = req.find(' ');
      const size_t sp2 = sp == std::string::npos ? sp : req.find(' ', sp + 1);
      const std::string path = sp2 == std::string::npos ? "" : req.substr(sp + 1, sp2 - sp - 1);
      {
        std::lock_guard<std::mutex> lk(m_lock);
        m_paths.push_back(path);
      }
      const bool ok = path.find(m_okPart) != std::string::npos;
      const std::string reply = std::string("HTTP/1.1 ") + (ok ? "200 OK" : "404 Not Found") +
                                "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
      (void)!::write(c, reply.data(), reply.size());
      ::close(c);
    }
  }

  std::string m_okPart;
  int m_fd = -1;
  int m_port = 0;
  std::atomic<bool> m_done{false};
  mutable std::mutex m_lock;
  Strings m_paths;
  std::thread m_thread;
};

// The media server's URLs for the next queries come from `server` (the
// agent stand-in's canned reply); removed again with the object.
class ServedUrls {
 public:
  ServedUrls(const MediaServer& server, const Item& item) {
    root().write("/sim/brelctl/getContentUrl.reply", "<root><status>success</status><url>" + server.base() +
                                                         "/MediaItems/" + item.dbID + ".mkv</url></root>\n");
  }
  ~ServedUrls() { ::unlink(root().path("/sim/brelctl/getContentUrl.reply").c_str()); }
  ServedUrls(const ServedUrls&) = delete;
  ServedUrls& operator=(const ServedUrls&) = delete;
};

}  // namespace casttest
