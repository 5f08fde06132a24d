// Stand-in for the speaker streamer /usr/local/medialibrary/bin/raop_play.
//
//   raop_play -i --port PORT [-e] ADDRESS
//
// Like the real child it writes its file ROOT/tmp/.raop_play.<pid>, and once
// ready binds its datagram socket ROOT/tmp/.raop_play.srv.<pid>. It takes
// the player's datagrams: "file PATH" (load and play from 0), "play",
// "pause", "seek N", "volume N", "state" (answered to the sender with one
// datagram, "state: playing position: 3 volume: 85 NO_PAUSE"; no "NO_PAUSE"
// while paused) and "quit" (removes its socket and ends with status 0). The
// position advances with real time while a file plays. It ends by itself
// when its parent is gone, so that a killed daemon leaves no child.
//
// Every datagram is appended to ROOT/sim/raop_play/datagrams.log as
// "<pid> <text>". A test steers it with files in ROOT/sim/raop_play/:
//   startup-delay   seconds (a fraction allowed) before the socket is made
//   no-socket       present: the socket is never made
//   die-at          seconds: once a playing file's position reaches them the
//                   child ends at once (status 1); the file is removed first,
//                   so that the next child plays on
//   answer-paused   present: "state" is answered without "NO_PAUSE"
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/standin.h"

namespace {

double now_s() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

bool exists(const std::string& file) {
  struct stat st {};
  return ::stat(file.c_str(), &st) == 0;
}

// A number from a control file; `fallback` when there is none.
double control_number(const std::string& file, double fallback) {
  const std::string text = sim::read_file(file);
  if (text.empty()) return fallback;
  return std::strtod(text.c_str(), nullptr);
}

void append(const std::string& file, const std::string& line) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return;
  ssize_t w = ::write(fd, line.data(), line.size());
  (void)w;
  ::close(fd);
}

struct Track {
  bool loaded = false;
  bool paused = false;
  double base = 0;     // position when the clock last started or was set
  double started = 0;  // when it started; meaningful while playing
  int volume = 85;
  double position() const { return loaded && !paused ? base + (now_s() - started) : base; }
  void set(double at) {
    base = at;
    started = now_s();
  }
};

}  // namespace

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/usr/local/medialibrary/bin/raop_play");
  sim::log_call(root, argc, argv);
  const pid_t parent = ::getppid();
  const int pid = static_cast<int>(::getpid());
  const std::string dir = root + "/sim/raop_play";
  ::mkdir(dir.c_str(), 0755);
  const std::string log = dir + "/datagrams.log";
  append(root + "/tmp/.raop_play." + std::to_string(pid), std::to_string(pid) + "\n");

  const double ready = now_s() + control_number(dir + "/startup-delay", 0);
  while (now_s() < ready || exists(dir + "/no-socket")) {
    if (::getppid() != parent) return 0;
    ::usleep(20000);
  }

  const std::string server = root + "/tmp/.raop_play.srv." + std::to_string(pid);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (server.size() >= sizeof addr.sun_path) {
    std::fprintf(stderr, "raop_play: socket path too long\n");
    return 1;
  }
  std::memcpy(addr.sun_path, server.c_str(), server.size() + 1);
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ::unlink(server.c_str());
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    std::perror("raop_play: bind");
    return 1;
  }

  Track track;
  for (;;) {
    if (::getppid() != parent) break;
    const double dieAt = control_number(dir + "/die-at", -1);
    if (dieAt >= 0 && track.loaded && !track.paused && track.position() >= dieAt) {
      ::unlink((dir + "/die-at").c_str());
      ::_exit(1);  // as a crash: the socket stays behind
    }
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, 50) <= 0) continue;
    char buf[2048];
    sockaddr_un from{};
    socklen_t fromLen = sizeof from;
    const ssize_t n = ::recvfrom(fd, buf, sizeof buf - 1, 0, reinterpret_cast<sockaddr*>(&from), &fromLen);
    if (n < 0) continue;
    const std::string text(buf, static_cast<size_t>(n));
    append(log, std::to_string(pid) + " " + text + "\n");

    if (text == "quit") break;
    if (text.compare(0, 5, "file ") == 0) {
      track.loaded = true;
      track.paused = false;
      track.set(0);
    } else if (text == "play") {
      if (track.paused) track.set(track.base);
      track.paused = false;
    } else if (text == "pause") {
      if (!track.paused) track.base = track.position();
      track.paused = true;
    } else if (text.compare(0, 5, "seek ") == 0) {
      track.set(std::atof(text.c_str() + 5));
    } else if (text.compare(0, 7, "volume ") == 0) {
      track.volume = std::atoi(text.c_str() + 7);
    } else if (text == "state") {
      const bool paused = track.paused || exists(dir + "/answer-paused");
      char reply[128];
      std::snprintf(reply, sizeof reply, "state: %s position: %d volume: %d%s",
                    paused ? "paused" : (track.loaded ? "playing" : "idle"), static_cast<int>(track.position()),
                    track.volume, paused ? "" : " NO_PAUSE");
      ::sendto(fd, reply, std::strlen(reply), 0, reinterpret_cast<sockaddr*>(&from), fromLen);
    }
  }
  ::unlink(server.c_str());
  ::close(fd);
  return 0;
}
