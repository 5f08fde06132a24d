// An AirPlay audio speaker played through the daemon, against the streamer
// and probe stand-ins. Two figures, each beside a baseline of the same run:
// - the time from the `Play` command to the first "file ..." datagram the
//   child receives, against the child's own start-up (spawned by hand, until
//   its socket exists);
// - the per-track cost of the duration probe (two shell lines and two files
//   in /tmp), against the probe tool run alone.
// Prints one Markdown section.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "backends/raopPlayer.h"
#include "benchDaemon.h"
#include "benchTiming.h"
#include "foundation/rootPath.h"
#include "vessorClient.h"

namespace {

using clock_type = std::chrono::steady_clock;
constexpr int kSamples = 7;
const char kDev[] = "AABBCCDDEE01";

std::string g_root;
std::string g_socket;
int g_failures = 0;

void command(const std::string& name, const vessorclient::paramList_t& params) {
  std::string reply;
  if (vessorclient::request(g_socket, vessorclient::build_packet(name, params), reply) != 0 ||
      !vessorclient::reply_succeeded(reply))
    ++g_failures;
}

bool exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

size_t file_lines(const std::string& log) {
  size_t n = 0;
  if (FILE* f = std::fopen(log.c_str(), "re")) {
    char buf[4096];
    while (std::fgets(buf, sizeof buf, f))
      if (std::strstr(buf, " file ")) ++n;
    std::fclose(f);
  }
  return n;
}

double ms_since(clock_type::time_point t0) {
  return std::chrono::duration<double, std::milli>(clock_type::now() - t0).count();
}

double median(std::vector<double> v) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// The child started by hand, until its socket exists; then "quit" by signal.
double child_startup_ms() {
  const std::string program = g_root + "/usr/local/medialibrary/bin/raop_play";
  const auto t0 = clock_type::now();
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::execl(program.c_str(), program.c_str(), "-i", "--port", "5000", "-e", "10.0.0.21", nullptr);
    ::_exit(127);
  }
  if (pid < 0) return -1;
  const std::string server = g_root + "/tmp/.raop_play.srv." + std::to_string(pid);
  double ms = -1;
  while (ms_since(t0) < 10000) {
    if (exists(server)) {
      ms = ms_since(t0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  ::kill(pid, SIGTERM);
  int status = 0;
  ::waitpid(pid, &status, 0);
  ::unlink(server.c_str());
  ::unlink((g_root + "/tmp/.raop_play." + std::to_string(pid)).c_str());
  return ms;
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  g_root = benchdaemon::make_root();
  if (g_root.empty()) return 1;
  vessord::set_test_root(g_root);
  ::setenv("VESSORD_ROOT", g_root.c_str(), 1);
  g_socket = benchdaemon::socket_of(g_root);
  ::mkdir((g_root + "/sim/avahi").c_str(), 0755);
  ::mkdir((g_root + "/share/Public/bench").c_str(), 0755);
  const std::string track = "/share/Public/bench/song.mp3";
  if (FILE* f = std::fopen((g_root + track).c_str(), "we")) std::fclose(f);
  if (FILE* f = std::fopen((g_root + "/sim/media.tsv").c_str(), "ae")) {
    std::fprintf(f, "rb1\t71\t0\t%s\t00:10:00\n", track.c_str());
    std::fclose(f);
  }
  if (FILE* f = std::fopen((g_root + "/sim/avahi/_raop._tcp.txt").c_str(), "we")) {
    std::fprintf(f, "=;eth0;IPv4;%s@Bench;_raop._tcp;local;b.local;10.0.0.21;5000;\"cn=0,1\" \"et=0,1\"\n", kDev);
    std::fclose(f);
  }

  std::vector<double> startup;
  for (int i = 0; i < kSamples; ++i) {
    const double ms = child_startup_ms();
    if (ms < 0) ++g_failures;
    else startup.push_back(ms);
  }

  // The probe: the tool alone, and the whole per-track reading.
  const std::string probeAlone =
      "'" + g_root + "/usr/local/medialibrary/bin/ffprobe' -i '" + g_root + track + "' 2>/dev/null";
  const double alone = benchtiming::median_of(kSamples, [&] { std::system(probeAlone.c_str()); });
  const double whole = benchtiming::median_of(kSamples, [&] {
    std::string duration;
    if (CRaopPlayer::_get_track_druation((g_root + track).c_str(), duration) != 0) ++g_failures;
  });

  const pid_t daemon = benchdaemon::spawn_daemon(g_root);
  if (daemon < 0) {
    std::fprintf(stderr, "raop_bench: the daemon did not start\n");
    return 1;
  }
  command("CreatePlaylist", {{"playlist", "bench"}, {"playlistType", "audio"}, {"appType", "music"}});
  command("AddContent", {{"playlist", "bench"}, {"appType", "music"}, {"contentType", "object"},
                         {"mediaType", "audio"}, {"content", "rb1"}});
  command("ListAirplayRender", {});
  command("SetPlaylist", {{"dev", kDev}, {"playlist", "bench"}, {"appType", "music"}});
  const std::string log = g_root + "/sim/raop_play/datagrams.log";
  std::vector<double> viaDaemon;
  for (int i = 0; i < kSamples; ++i) {
    command("Stop", {{"dev", kDev}});
    const size_t before = file_lines(log);
    const auto t0 = clock_type::now();
    command("Play", {{"dev", kDev}});
    double ms = -1;
    while (ms_since(t0) < 40000) {
      if (file_lines(log) > before) {
        ms = ms_since(t0);
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    if (ms < 0) ++g_failures;
    else viaDaemon.push_back(ms);
  }
  command("Stop", {{"dev", kDev}});
  benchdaemon::stop_daemon(daemon);
  std::system(("rm -rf '" + g_root + "'").c_str());

  const double s = median(startup), d = median(viaDaemon);
  std::printf("## AirPlay audio speaker: Play to the first track, and the duration probe\n\n");
  std::printf("Against the streamer and probe stand-ins. The child alone: spawned by hand until its socket\n");
  std::printf("exists. Through the daemon: `Play` (child started, its socket awaited by the appliance's\n");
  std::printf("one-second polls) until the child receives \"file ...\" (agent lookup, existence test, probe).\n");
  std::printf("Medians of %d.\n\n", kSamples);
  std::printf("| Run | Samples | Median (ms) |\n| --- | --- | --- |\n");
  std::printf("| the child's start-up alone | %zu | %.1f |\n", startup.size(), s);
  std::printf("| `Play` to the first \"file\" datagram | %zu | %.1f |\n", viaDaemon.size(), d);
  std::printf("\nRatio daemon / child alone: %.1f.\n\n", s > 0 ? d / s : 0.0);
  std::printf("| Duration probe | Median |\n| --- | --- |\n");
  std::printf("| the probe tool alone | %s |\n", benchtiming::fmt_time(alone).c_str());
  std::printf("| per track: both lines, both /tmp files, the reading | %s |\n", benchtiming::fmt_time(whole).c_str());
  std::printf("\nRatio per track / tool alone: %.1f. Failed requests or samples: %d.\n", alone > 0 ? whole / alone : 0.0,
              g_failures);
  return g_failures == 0 ? 0 : 1;
}
