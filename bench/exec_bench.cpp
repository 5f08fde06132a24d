// One exec per tool line against the old way (every line through `sh -c`),
// in the same run: the daemon started twice in one simulated root, the
// second time with VESSORD_ALWAYS_SH=1. Figures: `echo` (every reply runs
// the version lookup), `GetPlayerStatus` of a DLNA player at 1 and 8
// clients, and, in this process, one poll of a renderer through the agent
// stand-in. Prints one Markdown section.
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "benchDaemon.h"
#include "foundation/rootPath.h"
#include "foundation/shellRunner.h"
#include "playlist/SqlitePlaylist.h"
#include "vessorClient.h"

namespace {

using clock_type = std::chrono::steady_clock;
constexpr int kRequests = 800;
constexpr int kPolls = 300;
const char kDev[] = "uuid:bench-tv";

int g_failures = 0;
std::atomic<int> g_busy{0};

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

// Median microseconds of `kRequests` requests shared by `clients` threads.
double median_us(const std::string& socketPath, const std::string& packet, int clients) {
  std::vector<std::vector<double>> lat(static_cast<size_t>(clients));
  std::atomic<int> failed{0};
  std::vector<std::thread> threads;
  for (int c = 0; c < clients; ++c) {
    threads.emplace_back([&, c] {
      for (int i = 0; i < kRequests / clients; ++i) {
        const auto t0 = clock_type::now();
        std::string reply;
        std::string status;
        // -19: the player was busy with another client's poll, by contract.
        if (vessorclient::request(socketPath, packet, reply) != 0 ||
            (!vessorclient::reply_succeeded(reply) &&
             !(vessorclient::reply_node_text(reply, "status", status) && status == "-19")))
          ++failed;
        if (status == "-19") ++g_busy;
        lat[static_cast<size_t>(c)].push_back(std::chrono::duration<double, std::micro>(clock_type::now() - t0).count());
      }
    });
  }
  for (std::thread& t : threads) t.join();
  g_failures += failed.load();
  std::vector<double> all;
  for (auto& l : lat) all.insert(all.end(), l.begin(), l.end());
  return median(all);
}

struct daemonFigures_s {
  double echo1 = 0, status1 = 0, status8 = 0;
};

daemonFigures_s measure_daemon(const std::string& root, bool alwaysSh) {
  if (alwaysSh) ::setenv("VESSORD_ALWAYS_SH", "1", 1);
  else ::unsetenv("VESSORD_ALWAYS_SH");
  daemonFigures_s f;
  const pid_t pid = benchdaemon::spawn_daemon(root);
  ::unsetenv("VESSORD_ALWAYS_SH");
  if (pid < 0) {
    ++g_failures;
    return f;
  }
  const std::string sock = benchdaemon::socket_of(root);
  std::string reply;
  vessorclient::request(sock, vessorclient::build_packet("ListRender", {}), reply);
  vessorclient::request(sock, vessorclient::build_packet("SetPlaylist", {{"dev", kDev}, {"playlist", "bench"},
                                                                         {"appType", "music"}}),
                        reply);
  if (!vessorclient::reply_succeeded(reply)) ++g_failures;
  f.echo1 = median_us(sock, vessorclient::build_packet("echo", {}), 1);
  const std::string status = vessorclient::build_packet("GetPlayerStatus", {{"dev", kDev}});
  f.status1 = median_us(sock, status, 1);
  f.status8 = median_us(sock, status, 8);
  benchdaemon::stop_daemon(pid);
  return f;
}

// One renderer poll as the DLNA player makes it, in this process.
double poll_us(bool direct) {
  vessord::set_direct_exec(direct);
  const vessord::ShellLine line("/usr/bin/brelctl -c getPositionInfo --uuid '%s'", {kDev});
  std::vector<double> lat;
  for (int i = 0; i < kPolls; ++i) {
    const auto t0 = clock_type::now();
    std::string out;
    if (vessord::shell_read(line, out, 4096) != 0) ++g_failures;
    lat.push_back(std::chrono::duration<double, std::micro>(clock_type::now() - t0).count());
  }
  vessord::set_direct_exec(true);
  return median(lat);
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  const std::string root = benchdaemon::make_root();
  if (root.empty()) return 1;
  vessord::set_test_root(root);
  std::ofstream(root + "/sim/dlna-devices.xml")
      << "<root><status>success</status><device><deviceId>" << kDev
      << "</deviceId><deviceName>Bench TV</deviceName><type>video,photo,audio</type><ip>127.0.0.1</ip></device>"
         "</root>";
  {
    CSqlitePlaylist db;
    db.addPlaylist("bench", MEDIA_AUDIO, "music", nullptr, nullptr);
    db.addElmInPlaylist("bench", MEDIA_AUDIO, CONTENT_FILE, "music", "/share/Public/bench.mp3", 0);
  }

  const daemonFigures_s direct = measure_daemon(root, false);
  const daemonFigures_s viaSh = measure_daemon(root, true);
  const double pollDirect = poll_us(true);
  const double pollSh = poll_us(false);
  std::system(("rm -rf '" + root + "'").c_str());

  std::printf("## One exec per tool line\n\n");
  std::printf("A command line that uses nothing of the shell (no pipe, redirection but to /dev/null, expansion\n");
  std::printf("or `&`) runs its tool directly with the words sh would give it; the old way runs every line\n");
  std::printf("through `sh -c` (the same daemon with VESSORD_ALWAYS_SH=1). Medians in microseconds; %d requests\n",
              kRequests);
  std::printf("per figure, %d polls.\n\n", kPolls);
  std::printf("| Work | Through sh | One exec | Ratio |\n| --- | --- | --- | --- |\n");
  auto row = [](const char* what, double sh, double one) {
    std::printf("| %s | %.0f | %.0f | %.2f× |\n", what, sh, one, sh > 0 ? one / sh : 0.0);
  };
  row("`echo`, 1 client (the version lookup)", viaSh.echo1, direct.echo1);
  row("`GetPlayerStatus` of a DLNA player, 1 client", viaSh.status1, direct.status1);
  row("`GetPlayerStatus` of a DLNA player, 8 clients", viaSh.status8, direct.status8);
  row("one renderer poll through the agent (in process)", pollSh, pollDirect);
  std::printf("\nFailed requests: %d. Status polls answered -19 (the player busy with another client's poll): %d.\n",
              g_failures, g_busy.load());
  return g_failures == 0 ? 0 : 1;
}
