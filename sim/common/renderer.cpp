#include "common/renderer.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <sstream>

namespace sim {

namespace {

long long now_ms() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// A renderer id as a file name: anything but [A-Za-z0-9._-] as %XX.
std::string file_name(const std::string& uuid) {
  static const char hex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : uuid) {
    if (std::isalnum(c) || c == '-' || c == '_' || (c == '.' && !out.empty())) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out.empty() ? "%" : out.substr(0, 200);
}

// One renderer's state, held under an exclusive lock of its file for the
// object's life and written back by save().
class State {
 public:
  State(const std::string& root, const std::string& uuid) {
    std::string dir = root + "/sim/renderers";
    ::mkdir((root + "/sim").c_str(), 0755);
    ::mkdir(dir.c_str(), 0755);
    m_fd = ::open((dir + "/" + file_name(uuid)).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (m_fd < 0) return;
    ::flock(m_fd, LOCK_EX);
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = ::read(m_fd, buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
      size_t eq = line.find('=');
      if (eq != std::string::npos) m_kv[line.substr(0, eq)] = line.substr(eq + 1);
    }
    advance();
  }
  ~State() {
    if (m_fd >= 0) ::close(m_fd);  // releases the lock
  }
  State(const State&) = delete;
  State& operator=(const State&) = delete;

  bool ok() const { return m_fd >= 0; }
  std::string get(const std::string& k, const std::string& dflt = "") const {
    auto it = m_kv.find(k);
    return it == m_kv.end() ? dflt : it->second;
  }
  long long num(const std::string& k, long long dflt = 0) const {
    auto it = m_kv.find(k);
    return it == m_kv.end() || it->second.empty() ? dflt : std::atoll(it->second.c_str());
  }
  void set(const std::string& k, const std::string& v) { m_kv[k] = v; }
  void set(const std::string& k, long long v) { m_kv[k] = std::to_string(v); }

  std::string state() const { return get("state", get("uri").empty() ? "NO_MEDIA_PRESENT" : "STOPPED"); }
  // The state a client reads: TRANSITIONING for a moment after Play.
  std::string transportState() const {
    if (state() == "PLAYING" && now_ms() < num("transUntilMs")) return "TRANSITIONING";
    return state();
  }
  long long posMs() const { return num("posMs"); }

  void load(const std::string& uri, int duration, long long posMs) {
    set("uri", uri);
    set("duration", duration);
    set("state", "STOPPED");
    set("posMs", posMs);
  }
  void play() {
    if (get("uri").empty() || state() == "PLAYING") return;
    if (num("duration") > 0 && posMs() >= num("duration") * 1000) set("posMs", 0);
    set("state", "PLAYING");
    set("sinceMs", now_ms());
    set("transUntilMs", now_ms() + num("transitionMs", 150));
  }
  bool pause() {
    if (state() == "PAUSED_PLAYBACK") return true;
    if (state() != "PLAYING") return false;
    set("state", "PAUSED_PLAYBACK");
    return true;
  }
  void stop() {
    set("state", get("uri").empty() ? "NO_MEDIA_PRESENT" : "STOPPED");
    if (num("stopKeepsPosition") == 0) set("posMs", 0);
  }

  void save() {
    if (m_fd < 0) return;
    std::string text;
    for (const auto& kv : m_kv) text += kv.first + "=" + kv.second + "\n";
    if (::ftruncate(m_fd, 0) != 0) return;
    ssize_t w = ::pwrite(m_fd, text.data(), text.size(), 0);
    (void)w;
  }

 private:
  // Brings a playing track's position up to now; a track that has run out
  // stops at its end.
  void advance() {
    if (state() != "PLAYING") return;
    long long now = now_ms();
    long long rate = num("rate", 1);
    long long pos = posMs() + (now - num("sinceMs", now)) * rate;
    long long end = num("duration") * 1000;
    if (pos >= end) {
      pos = end;
      set("state", "STOPPED");
    }
    set("posMs", pos);
    set("sinceMs", now);
  }

  int m_fd = -1;
  std::map<std::string, std::string> m_kv;
};

std::string hms(long long ms, bool fraction) {
  char buf[64];
  long long s = ms / 1000;
  if (fraction)
    std::snprintf(buf, sizeof buf, "%lld:%02lld:%02lld.%03lld", s / 3600, s / 60 % 60, s % 60, ms % 1000);
  else
    std::snprintf(buf, sizeof buf, "%lld:%02lld:%02lld", s / 3600, s / 60 % 60, s % 60);
  return buf;
}

long long hms_ms(const std::string& t) {
  long long total = 0;
  std::istringstream in(t);
  std::string part;
  while (std::getline(in, part, ':')) total = total * 60 + std::atoll(part.c_str());
  return total * 1000;
}

std::string status(const char* word) { return std::string("<root><Status>") + word + "</Status></root>\n"; }

std::string opt(const RendererCall& c, const char* k) {
  auto it = c.opts.find(k);
  return it == c.opts.end() ? std::string() : it->second;
}

}  // namespace

bool renderer_command(const RendererCall& c, int& rc) {
  static const char* const kCommands[] = {"getTransportInfo", "getPositionInfo", "setAvTransportUrl", "Play",
                                          "Pause", "Stop", "setVolume", "getVolume", "isXBMC"};
  bool known = false;
  for (const char* k : kCommands) known = known || c.command == k;
  if (!known) return false;
  rc = 0;
  State s(c.root, opt(c, "--uuid"));
  if (!s.ok() || s.num("offline") != 0) {
    rc = 1;  // an unreachable renderer: nothing on standard output
    return true;
  }
  const std::string& cmd = c.command;
  if (cmd == "getTransportInfo") {
    std::cout << "<root><CurrentTransportState>" << s.transportState()
              << "</CurrentTransportState><CurrentTransportStatus>OK</CurrentTransportStatus>"
              << "<CurrentSpeed>1</CurrentSpeed></root>\n";
  } else if (cmd == "getPositionInfo") {
    if (s.get("uri").empty() || s.num("positionFail") != 0) {
      std::cout << status("fail");
    } else {
      std::cout << "<root><Status>success</Status><Track>1</Track><TrackDuration>"
                << hms(s.num("duration") * 1000, false) << "</TrackDuration><RelTime>" << hms(s.posMs(), true)
                << "</RelTime></root>\n";
    }
  } else if (cmd == "setAvTransportUrl") {
    // A slow renderer, on demand: the answer comes after loadDelayMs.
    if (s.num("loadDelayMs") > 0) usleep(static_cast<useconds_t>(s.num("loadDelayMs")) * 1000);
    if (s.num("busy") > 0) {
      s.set("busy", s.num("busy") - 1);
      std::cout << status("Busy");
    } else if (c.duration < 0) {
      std::cout << status("Error");
    } else {
      std::string uri = c.opts.count("--objectID") ? opt(c, "--objectID") : opt(c, "--filePath");
      s.load(uri, c.duration, hms_ms(opt(c, "--position")));
      s.set("audioTrack", opt(c, "--audioTrack"));
      s.set("subtitle", opt(c, "--subtitle"));
      s.set("externalSubtitle", opt(c, "--externalSubtitle"));
      std::cout << status("Success");
    }
  } else if (cmd == "Play") {
    s.play();
  } else if (cmd == "Pause") {
    std::cout << status(s.pause() ? "Success" : "Error");
  } else if (cmd == "Stop") {
    s.stop();
  } else if (cmd == "setVolume") {
    s.set("volume", std::atoi(opt(c, "--vol").c_str()));
    std::cout << status("Success");
  } else if (cmd == "getVolume") {
    std::cout << "<root><CurrentVolume>" << s.num("volume", 30) << "</CurrentVolume></root>\n";
  } else if (cmd == "isXBMC") {
    std::cout << (s.num("xbmc") ? "<root><result>true</result><renderer>xbmc</renderer></root>\n"
                                : "<root><result>false</result></root>\n");
  }
  s.save();
  return true;
}

bool renderer_transcodes(const std::string& root, const std::string& uuid) {
  State s(root, uuid);
  return s.num("transcode") != 0;
}

int renderer_sim(const std::string& root, int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: brelctl --sim press UUID pause|stop|play | set UUID KEY VALUE | get UUID KEY\n";
    return 2;
  }
  const std::string what = argv[0];
  State s(root, argv[1]);
  if (!s.ok()) return 1;
  const std::string arg = argv[2];
  if (what == "press") {
    if (arg == "pause") s.pause();
    else if (arg == "stop") s.stop();
    else if (arg == "play") s.play(), s.set("transUntilMs", 0);
    else return 2;
  } else if (what == "set" && argc >= 4) {
    s.set(arg, argv[3]);
  } else if (what == "get") {
    if (arg == "state") std::cout << s.transportState() << "\n";
    else if (arg == "pos") std::cout << s.posMs() / 1000 << "\n";
    else std::cout << s.get(arg) << "\n";
  } else {
    return 2;
  }
  s.save();
  return 0;
}

}  // namespace sim
