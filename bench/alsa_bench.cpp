// A sound output played through the daemon, against Debian's real music
// daemon behind the appliance's adapters. Two figures, each beside a
// baseline of the same run:
// - the time from the `Play` command to the first "[playing]" of the
//   player's daemon, against the same hand-over typed by hand with the
//   client (clear, add, play) on a daemon of its own;
// - the daemon's CPU (its own and its children's, the client lines) over
//   ALSA_BENCH_SECONDS (60) while one player plays, against the same daemon
//   idle before it, and the music daemon's own CPU beside it.
// Prints one Markdown section.
#include <dirent.h>
#include <sys/stat.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "benchDaemon.h"
#include "common/standin.h"
#include "foundation/rootPath.h"
#include "playlist/SqlitePlaylist.h"
#include "vessorClient.h"

namespace {

using clock_type = std::chrono::steady_clock;
constexpr int kSamples = 7;
constexpr int kHandPort = 12640;

std::string g_root;
std::string g_socket;
int g_failures = 0;

std::string command(const std::string& name, const vessorclient::paramList_t& params) {
  std::string reply;
  if (vessorclient::request(g_socket, vessorclient::build_packet(name, params), reply) != 0 ||
      !vessorclient::reply_succeeded(reply))
    ++g_failures;
  return reply;
}

std::string output_of(const std::string& line) {
  std::string text;
  if (FILE* p = ::popen(line.c_str(), "r")) {
    char buf[512];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) text.append(buf, n);
    ::pclose(p);
  }
  return text;
}

std::string mpc(int port, const std::string& args) {
  return "'" + g_root + "/tmp/vexmpd/bin/mpc' -p " + std::to_string(port) + " " + args;
}

// Milliseconds from `since` until the daemon on `port` reports playing; -1
// after ten seconds.
double until_playing(int port, clock_type::time_point since) {
  while (clock_type::now() - since < std::chrono::seconds(10)) {
    if (output_of(mpc(port, "status")).find("[playing]") != std::string::npos)
      return std::chrono::duration<double, std::milli>(clock_type::now() - since).count();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return -1;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// CPU seconds of a process, with its reaped children when asked.
double cpu_of(pid_t pid, bool children) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  const size_t close = text.rfind(')');
  if (close == std::string::npos) return 0;
  std::istringstream rest(text.substr(close + 2));
  std::vector<std::string> f{std::istream_iterator<std::string>(rest), std::istream_iterator<std::string>()};
  if (f.size() < 15) return 0;
  // After the name: state is field 0, utime 11, stime 12, cutime 13, cstime 14.
  double ticks = std::stod(f[11]) + std::stod(f[12]);
  if (children) ticks += std::stod(f[13]) + std::stod(f[14]);
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

pid_t pid_in(const std::string& file) {
  std::ifstream in(file);
  long p = 0;
  in >> p;
  return static_cast<pid_t>(p);
}

// The port of the player's daemon: the one folder of the adapter that is
// not the hand-typed daemon's.
int player_port() {
  int port = -1;
  if (DIR* d = ::opendir((g_root + "/sim/mpd").c_str())) {
    while (dirent* e = ::readdir(d)) {
      const int p = std::atoi(e->d_name);
      if (p > 0 && p != kHandPort) port = p;
    }
    ::closedir(d);
  }
  return port;
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  g_root = benchdaemon::make_root();
  if (g_root.empty()) return 1;
  vessord::set_test_root(g_root);
  g_socket = benchdaemon::socket_of(g_root);
  const int seconds = std::getenv("ALSA_BENCH_SECONDS") ? std::atoi(std::getenv("ALSA_BENCH_SECONDS")) : 60;
  ::mkdir((g_root + "/share/Public/bench").c_str(), 0755);
  const std::string track = "/share/Public/bench/tone.wav";
  sim::write_wav(g_root + track, seconds + 60);

  // By hand: the same hand-over, typed with the client.
  std::vector<double> hand;
  const std::string conf = " /tmp/vexmpd/vexmusicplayer.conf >/dev/null 2>&1";
  std::system(("'" + g_root + "/tmp/vexmpd/bin/mpd' --port " + std::to_string(kHandPort) + conf).c_str());
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  std::system((mpc(kHandPort, "enable only Built-in\\ Audio >/dev/null")).c_str());
  for (int i = 0; i < kSamples; ++i) {
    const auto t0 = clock_type::now();
    std::system((mpc(kHandPort, "clear >/dev/null") + " && " + mpc(kHandPort, "add file://" + track + " >/dev/null") +
                 " && " + mpc(kHandPort, "play >/dev/null"))
                    .c_str());
    const double ms = until_playing(kHandPort, t0);
    if (ms < 0) ++g_failures;
    else hand.push_back(ms);
    std::system(mpc(kHandPort, "stop >/dev/null").c_str());
  }
  std::system(("'" + g_root + "/tmp/vexmpd/bin/mpd' --port " + std::to_string(kHandPort) + " --kill" + conf).c_str());

  const pid_t daemon = benchdaemon::spawn_daemon(g_root);
  if (daemon < 0) {
    std::fprintf(stderr, "alsa_bench: the daemon did not start\n");
    return 1;
  }
  CSqlitePlaylist db;
  db.addPlaylist("bench", MEDIA_AUDIO, "music", nullptr, nullptr);
  db.addElmInPlaylist("bench", MEDIA_AUDIO, CONTENT_FILE, "music", track.c_str(), 0);

  // Idle: the daemon with no player, over the interval.
  double cpu0 = cpu_of(daemon, true);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double idle = cpu_of(daemon, true) - cpu0;

  command("ListRender", {{"renderType", "alsa"}});
  command("SetPlaylist", {{"dev", "ANALOG_card0"}, {"playlist", "bench"}, {"appType", "music"}});
  const int port = player_port();
  std::vector<double> viaDaemon;
  for (int i = 0; i < kSamples && port > 0; ++i) {
    command("Stop", {{"dev", "ANALOG_card0"}});
    const auto t0 = clock_type::now();
    command("Play", {{"dev", "ANALOG_card0"}});
    const double ms = until_playing(port, t0);
    if (ms < 0) ++g_failures;
    else viaDaemon.push_back(ms);
  }
  if (port < 0) ++g_failures;

  // Playing: the same daemon with one player at work, and its music daemon.
  const pid_t music = pid_in(g_root + "/sim/mpd/" + std::to_string(port) + "/pid");
  cpu0 = cpu_of(daemon, true);
  const double music0 = cpu_of(music, false);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double playing = cpu_of(daemon, true) - cpu0;
  const double musicCpu = cpu_of(music, false) - music0;
  command("Stop", {{"dev", "ANALOG_card0"}});
  benchdaemon::stop_daemon(daemon);
  // Every music daemon of the root ends with it: the daemon has no orderly
  // stop, so its player's daemon is still there.
  benchdaemon::end_music_daemons(g_root);
  std::system(("rm -rf '" + g_root + "'").c_str());

  const double h = median(hand), d = median(viaDaemon);
  std::printf("## Sound output: Play to playing, and the CPU of a playing player\n\n");
  std::printf("Debian's mpd and mpc behind the appliance's adapters, a WAV track. \"By hand\" types the same\n");
  std::printf("hand-over with the client (clear, add, play) on a daemon of its own; through the daemon, `Play`\n");
  std::printf("wakes the player's loop, which stops, clears, adds and plays. Medians of %d, until the music\n", kSamples);
  std::printf("daemon first reports [playing].\n\n");
  std::printf("| Run | Samples | Median (ms) |\n| --- | --- | --- |\n");
  std::printf("| by hand with the client | %zu | %.1f |\n", hand.size(), h);
  std::printf("| `Play` through the daemon | %zu | %.1f |\n", viaDaemon.size(), d);
  std::printf("\nRatio daemon / by hand: %.2f.\n\n", h > 0 ? d / h : 0.0);
  std::printf("CPU over %d s (the daemon's own and its client lines'):\n\n", seconds);
  std::printf("| Daemon | CPU (s) | Share of one core |\n| --- | --- | --- |\n");
  std::printf("| idle, no player | %.2f | %.2f%% |\n", idle, 100.0 * idle / seconds);
  std::printf("| one playing sound-output player | %.2f | %.2f%% |\n", playing, 100.0 * playing / seconds);
  std::printf("| its music daemon, beside it | %.2f | %.2f%% |\n", musicCpu, 100.0 * musicCpu / seconds);
  if (idle > 0)
    std::printf("\nRatio playing / idle: %.1f.", playing / idle);
  else
    std::printf("\nThe idle daemon used less than one clock tick (%.3f s) in all.", 1.0 / sysconf(_SC_CLK_TCK));
  std::printf(" Failed requests or samples: %d.\n", g_failures);
  return g_failures == 0 ? 0 : 1;
}
