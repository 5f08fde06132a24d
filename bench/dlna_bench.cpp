// DLNA players at rest and at work: 20 players on simulated renderers,
// first parked after their start (stopped), then parked in pause (their
// monitors poll the renderer once a second each), then playing (one
// position and one transport query a second). For each phase: threads,
// resident memory and CPU (the daemon's own and its agent children's) over
// the measured interval, per player, beside the process before any player.
// Prints one Markdown section. DLNA_BENCH_SECONDS sets the interval (60).
#include <dirent.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "backends/dlnaPlayer.h"
#include "foundation/rootPath.h"
#include "foundation/thread.h"
#include "playlist/SqlitePlaylist.h"

namespace {

constexpr int kPlayers = 20;

int thread_count() {
  int n = 0;
  DIR* d = ::opendir("/proc/self/task");
  if (!d) return -1;
  while (dirent* e = ::readdir(d))
    if (e->d_name[0] != '.') ++n;
  ::closedir(d);
  return n;
}

double rss_mib() {
  std::ifstream in("/proc/self/statm");
  long pages = 0, resident = 0;
  in >> pages >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

double cpu_seconds(int who) {
  rusage u{};
  getrusage(who, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

size_t count_lines(const std::string& file) {
  std::ifstream in(file);
  size_t n = 0;
  std::string line;
  while (std::getline(in, line)) ++n;
  return n;
}

struct Phase {
  const char* name;
  int threads;
  double rss;
  double selfCpu;
  double childCpu;
  double agentCalls;
};

Phase measure(const char* name, int seconds, const std::string& callLog) {
  const double self0 = cpu_seconds(RUSAGE_SELF), child0 = cpu_seconds(RUSAGE_CHILDREN);
  const size_t calls0 = count_lines(callLog);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  Phase p{name, thread_count(), rss_mib(), cpu_seconds(RUSAGE_SELF) - self0, cpu_seconds(RUSAGE_CHILDREN) - child0,
          static_cast<double>(count_lines(callLog) - calls0)};
  return p;
}

}  // namespace

int main() {
  const char* env = std::getenv("DLNA_BENCH_SECONDS");
  const int seconds = env && std::atoi(env) > 0 ? std::atoi(env) : 60;
  char tmpl[] = "/tmp/vessord-dlna-bench-XXXXXX";
  if (!mkdtemp(tmpl)) return 1;
  const std::string root = tmpl;
  const std::string lay =
      std::string("'") + VESSORD_SOURCE_DIR + "/sim/lay-root.sh' '" + root + "' '" + VESSORD_BINARY_DIR + "/sim/bin'";
  if (std::system(lay.c_str()) != 0) return 1;
  vessord::set_test_root(root);
  setenv("VESSORD_ROOT", root.c_str(), 1);

  std::string tsv;
  for (int i = 0; i < kPlayers; ++i) {
    const std::string path = "/share/Public/bench/track" + std::to_string(i) + ".mp3";
    tsv += "b" + std::to_string(i) + "\t" + std::to_string(500 + i) + "\t0\t" + path + "\t01:00:00\n";
  }
  std::system(("mkdir -p '" + root + "/share/CACHEDEV1_DATA/Public/bench'").c_str());
  for (int i = 0; i < kPlayers; ++i)
    std::ofstream((root + "/share/CACHEDEV1_DATA/Public/bench/track" + std::to_string(i) + ".mp3").c_str()) << "x";
  std::ofstream(root + "/sim/media.tsv") << tsv;
  CSqlitePlaylist& store = *CGlobalsSingleton<CSqlitePlaylist>::get();
  for (int i = 0; i < kPlayers; ++i) {
    const std::string title = "bench" + std::to_string(i);
    store.addPlaylist(title.c_str(), MEDIA_AUDIO, "music", "", "");
    const int id = store.getPlaylistID(title, "music");
    store.transBegin();
    store.transAddElmInPlaylist(id, MEDIA_AUDIO, CONTENT_FILE,
                                ("/share/Public/bench/track" + std::to_string(i) + ".mp3").c_str(), 0);
    store.transEnd();
  }

  const std::string callLog = root + "/sim/calls.log";
  const int threads0 = thread_count();
  const double rss0 = rss_mib();
  std::vector<std::unique_ptr<CDlnaPlayer>> players;
  for (int i = 0; i < kPlayers; ++i) {
    const std::string id = "bench-renderer-" + std::to_string(i);
    const std::string title = "bench" + std::to_string(i);
    players.emplace_back(new CDlnaPlayer(PLAYER_TYPE_DLNA | PLAYER_TYPE_AUDIO, id.c_str(), "bench", title.c_str(),
                                         "music"));
  }
  std::this_thread::sleep_for(std::chrono::seconds(3));  // the first park and its monitor turn
  std::vector<Phase> phases;
  phases.push_back(measure("parked, stopped", seconds, callLog));
  for (auto& p : players) p->play();
  std::this_thread::sleep_for(std::chrono::seconds(3));
  phases.push_back(measure("playing", seconds, callLog));
  for (auto& p : players) p->pause();
  std::this_thread::sleep_for(std::chrono::seconds(2));
  phases.push_back(measure("parked in pause", seconds, callLog));
  players.clear();
  std::this_thread::sleep_for(std::chrono::seconds(2));  // a monitor's second thread leaves at its next turn
  const int threadsAfter = thread_count();

  std::printf("## DLNA players: %d players at rest and at work\n\n", kPlayers);
  std::printf("Each phase measured over %d s against simulated renderers (every renderer query is one run of the "
              "agent stand-in). Baseline: the same process before any player, %d threads and %.1f MiB resident. "
              "CPU is the daemon's own time and that of its agent children, in ms per second of wall clock.\n\n",
              seconds, threads0, rss0);
  std::printf("| Phase | Threads (per player) | RSS MiB (per player) | Own CPU ms/s (per player) | Agent CPU ms/s "
              "(per player) | Agent runs/s (per player) |\n");
  std::printf("| --- | --- | --- | --- | --- | --- |\n");
  for (const Phase& p : phases) {
    std::printf("| %s | %d (%.1f) | %.1f (%.2f) | %.2f (%.3f) | %.1f (%.2f) | %.1f (%.2f) |\n", p.name, p.threads,
                static_cast<double>(p.threads - threads0) / kPlayers, p.rss, (p.rss - rss0) / kPlayers,
                p.selfCpu * 1000 / seconds, p.selfCpu * 1000 / seconds / kPlayers, p.childCpu * 1000 / seconds,
                p.childCpu * 1000 / seconds / kPlayers, p.agentCalls / seconds, p.agentCalls / seconds / kPlayers);
  }
  std::printf("\nAfter the players were destroyed: %d threads (baseline %d).\n", threadsAfter, threads0);
  std::system(("rm -rf '" + root + "'").c_str());
  return 0;
}
