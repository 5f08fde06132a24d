// The status poll of a playing video against echo, both through the daemon
// in one run, with 1 and 8 concurrent clients. The video's track lists are
// in the status cache after the first poll, so every measured poll is a
// cache hit: the goal is a poll that costs no more than an echo.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "benchDaemon.h"
#include "foundation/rootPath.h"
#include "foundation/thread.h"
#include "playlist/SqlitePlaylist.h"
#include "vessorClient.h"


namespace {

using clock_type = std::chrono::steady_clock;

constexpr int kRequests = 1500;
const char kDev[] = "uuid:bench-1";
const char kVideo[] = "/share/CACHEDEV1_DATA/Multimedia/Movies/Big Trip.mkv";

struct figures_s {
  double perSecond;
  double medianUs;
  double p99Us;
  int failed;
  int busy;  // answered -19: the player was serving another poll
};

figures_s summarize(std::vector<double>& latUs, double seconds) {
  std::sort(latUs.begin(), latUs.end());
  figures_s f{};
  if (latUs.empty()) return f;
  f.perSecond = static_cast<double>(latUs.size()) / seconds;
  f.medianUs = latUs[latUs.size() / 2];
  f.p99Us = latUs[std::min(latUs.size() - 1, latUs.size() * 99 / 100)];
  return f;
}

std::string text_of(const std::string& reply, const char* node) {
  std::string text;
  return vessorclient::reply_node_text(reply, node, text) ? text : "";
}

// `clients` threads share kRequests round trips of `packet`; a reply
// counts as failed when `ok` rejects it.
template <typename Ok>
figures_s run_clients(const std::string& socketPath, const std::string& packet, int clients, Ok ok, int& failures) {
  std::vector<std::vector<double>> lat(static_cast<size_t>(clients));
  std::atomic<int> failed{0};
  std::atomic<int> busy{0};
  auto start = clock_type::now();
  std::vector<std::thread> threads;
  for (int c = 0; c < clients; ++c) {
    threads.emplace_back([&, c] {
      const int share = kRequests / clients + (c < kRequests % clients ? 1 : 0);
      for (int i = 0; i < share; ++i) {
        auto t0 = clock_type::now();
        std::string reply;
        if (vessorclient::request(socketPath, packet, reply) != 0) ++failed;
        else if (text_of(reply, "status") == "-19") ++busy;
        else if (!ok(reply)) ++failed;
        lat[static_cast<size_t>(c)].push_back(std::chrono::duration<double, std::micro>(clock_type::now() - t0).count());
      }
    });
  }
  for (auto& t : threads) t.join();
  double seconds = std::chrono::duration<double>(clock_type::now() - start).count();
  std::vector<double> all;
  for (auto& l : lat) all.insert(all.end(), l.begin(), l.end());
  failures += failed.load();
  figures_s f = summarize(all, seconds);
  f.failed = failed.load();
  f.busy = busy.load();
  return f;
}

void write_file(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
}

void row(const char* what, int clients, const figures_s& f) {
  std::printf("| %s | %d | %d | %.0f | %.0f | %.0f | %d |\n", what, clients, kRequests, f.perSecond, f.medianUs, f.p99Us,
              f.busy);
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  const std::string root = benchdaemon::make_root();
  if (root.empty()) return 1;
  std::system(("mkdir -p '" + root + "/share/CACHEDEV1_DATA/Multimedia/Movies'").c_str());
  write_file(root + kVideo, "video");
  write_file(root + "/sim/dlna-devices.xml",
             "<root><status>success</status><device><deviceId>uuid:bench-1</deviceId><deviceName>Bench TV</deviceName>"
             "<type>video,photo,audio</type><ip>127.0.0.1</ip></device></root>");

  // The playlist goes straight into the root's store.
  vessord::set_test_root(root);
  CSqlitePlaylist* store = CGlobalsSingleton<CSqlitePlaylist>::get();
  store->addPlaylist("bench", MEDIA_VIDEO, "video", "bench", "");
  const int id = store->getPlaylistID("bench", "video");
  store->transBegin();
  store->transAddElmInPlaylist(id, MEDIA_VIDEO, CONTENT_FILE, kVideo, 0);
  store->transEnd();

  const pid_t pid = benchdaemon::spawn_daemon(root);
  const std::string sock = benchdaemon::socket_of(root);
  if (pid < 0) {
    std::fprintf(stderr, "status_bench: the daemon did not start\n");
    return 1;
  }

  // List, set the playlist, play, and wait for the renderer to play.
  std::string reply;
  vessorclient::request(sock, vessorclient::build_packet("ListRender", {}), reply);
  vessorclient::request(sock, vessorclient::build_packet("SetPlaylist", {{"dev", kDev}, {"playlist", "bench"},
                                                                         {"appType", "video"}}),
                        reply);
  vessorclient::request(sock, vessorclient::build_packet("Play", {{"dev", kDev}}), reply);
  const std::string poll = vessorclient::build_packet("GetPlayerStatus", {{"dev", kDev}});
  bool playing = false;
  for (int i = 0; i < 300 && !playing; ++i) {
    vessorclient::request(sock, poll, reply);
    playing = text_of(reply, "playerState") == "PLAY";
    if (!playing) usleep(100000);
  }
  const bool lists = reply.find("<Total") != std::string::npos;

  int failures = playing ? 0 : 1;
  const std::string echo = vessorclient::build_packet("echo", {});
  auto echoOk = [](const std::string& r) { return vessorclient::reply_succeeded(r); };
  auto pollOk = [](const std::string& r) { return text_of(r, "status") == "0"; };
  figures_s e1 = run_clients(sock, echo, 1, echoOk, failures);
  figures_s s1 = run_clients(sock, poll, 1, pollOk, failures);
  figures_s e8 = run_clients(sock, echo, 8, echoOk, failures);
  figures_s s8 = run_clients(sock, poll, 8, pollOk, failures);

  benchdaemon::stop_daemon(pid);
  // VESSORD_BENCH_KEEP keeps the root and the daemon's log for a look.
  if (std::getenv("VESSORD_BENCH_KEEP")) std::fprintf(stderr, "root kept: %s\n", root.c_str());
  else std::system(("rm -rf '" + root + "'").c_str());

  std::printf("## Status poll of a playing video (cache hit) against echo\n\n");
  std::printf("One DLNA renderer playing a video; its track lists are in the status cache after the first poll, so\n");
  std::printf("every measured poll is a hit%s. Both commands run the version lookup for their reply.\n\n",
              lists ? "" : " (no lists were found: the figures are not of a hit)");
  std::printf("| Run | Clients | Requests | Per second | Median (us) | p99 (us) | Busy (-19) |\n");
  std::printf("| --- | --- | --- | --- | --- | --- | --- |\n");
  row("daemon, echo", 1, e1);
  row("daemon, GetPlayerStatus", 1, s1);
  row("daemon, echo", 8, e8);
  row("daemon, GetPlayerStatus", 8, s8);
  std::printf("\n");
  std::printf("- GetPlayerStatus against echo: %.2fx the median latency with 1 client, %.2fx with 8;"
              " %.2f and %.2f of its throughput.\n",
              s1.medianUs / e1.medianUs, s8.medianUs / e8.medianUs, s1.perSecond / e1.perSecond,
              s8.perSecond / e8.perSecond);
  std::printf("- A poll takes the player's lock by try: of %d polls by 8 clients at once, %d found the player busy with\n"
              "  another poll and were answered -19 at once (counted in the figures; a client polls again).\n",
              kRequests, s8.busy);
  if (failures) std::printf("- %d requests failed.\n", failures);
  return failures ? 1 : 0;
}
