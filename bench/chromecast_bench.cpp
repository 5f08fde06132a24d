// One ChromecastService round trip (the STATUS command down, the document
// back and parsed) against a bare pipe exchange of the same bytes with the
// same node sender stand-in, both in one simulated root in the same run.
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "benchDaemon.h"
#include "foundation/rootPath.h"
#include "backends/chromecastPlayer.h"
#include "foundation/shellRunner.h"
#include "services/chromecastService.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;

const char* const kStatus = "{ \"cmd\":\"STATUS\" }\r\n";
constexpr int kRuns = 2000;
constexpr int kBlock = 100;

// The sender stand-in on two plain pipes, as the service would start it.
struct BareSender {
  pid_t pid = -1;
  int down = -1;
  int up = -1;

  bool start(const std::string& ip) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0) return false;
    if (pipe2(out, O_CLOEXEC) != 0) {
      close(in[0]);
      close(in[1]);
      return false;
    }
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, in[0], 0);
    posix_spawn_file_actions_adddup2(&fa, out[1], 1);
    std::string node = vessord::root_path(vessord::ChromecastService::kNodePath);
    std::string script = vessord::root_path(vessord::ChromecastService::kSenderPath);
    std::string argv0 = "node";
    std::string addr = ip;
    char* argv[] = {argv0.data(), script.data(), addr.data(), nullptr};
    const int rc = posix_spawn(&pid, node.c_str(), &fa, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&fa);
    close(in[0]);
    close(out[1]);
    down = in[1];
    up = out[0];
    return rc == 0;
  }
  // One command down, one read of the answer, as the service does it.
  bool exchange(const char* command, char* buffer, size_t size) const {
    const size_t len = std::strlen(command);
    if (write(down, command, len) != static_cast<ssize_t>(len)) return false;
    pollfd p{up, POLLIN, 0};
    if (poll(&p, 1, 35000) != 1) return false;
    const ssize_t n = read(up, buffer, size - 1);
    if (n <= 0) return false;
    buffer[n] = '\0';
    return true;
  }
  ~BareSender() {
    if (down >= 0) close(down);
    if (up >= 0) close(up);
    if (pid > 0) waitpid(pid, nullptr, 0);
  }
};

// Median and mean, in microseconds.
std::pair<double, double> summary(std::vector<double>& t) {
  double sum = 0;
  for (double v : t) sum += v;
  std::sort(t.begin(), t.end());
  return {t[t.size() / 2], sum / static_cast<double>(t.size())};
}

template <class F>
double micros(F fn, int& failures) {
  const auto t0 = Clock::now();
  if (!fn()) ++failures;
  return std::chrono::duration<double, std::micro>(Clock::now() - t0).count();
}

}  // namespace

struct prepFigures_s {
  int runs = 30;
  double prepMs = 0, toolMs = 0, children = 0;
  bool ok = true;
};

double median_of(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

size_t call_lines(const std::string& root) {
  std::ifstream in(root + "/sim/calls.log");
  size_t n = 0;
  std::string line;
  while (std::getline(in, line)) ++n;
  return n;
}

// The preparation of a video that needs transcoding, by a player on the
// script's simulated device, in the process's simulated root.
prepFigures_s prepare_cost(const std::string& root) {
  prepFigures_s f;
  vessord::set_test_root(root);
  const std::string path = "/share/CACHEDEV1_DATA/Public/bench-cast.mkv";
  std::ofstream(root + path) << "x";
  std::ofstream(root + "/sim/media.tsv", std::ios::app) << "oc1\t9101\t2\t" << path << "\t01:00:00\n";
  std::ofstream(root + "/sim/hls-media.tsv", std::ios::app) << path << "\tmpeg2video\tac3\n";
  CChromecast player(PLAYER_TYPE_CHROMECAST | PLAYER_TYPE_VIDEO, "bench-cast", "Bench TV", nullptr, nullptr,
                     "127.0.0.1", 8009);
  playlistElm_s item;
  item.mediaType = MEDIA_VIDEO;
  item.contentType = CONTENT_FILE;
  item.content = path;
  std::vector<double> prep, tool;
  size_t children = 0;
  for (int i = 0; i < f.runs; ++i) {
    const size_t before = call_lines(root);
    auto t0 = Clock::now();
    std::string url, subtitle;
    if (player.getContentPath_(item, url, subtitle, nullptr, 0, -1, nullptr, nullptr, nullptr, nullptr, 0) != 0 ||
        url.empty())
      f.ok = false;
    prep.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
    children += call_lines(root) - before;
    t0 = Clock::now();
    std::string out;
    vessord::shell_read(vessord::ShellLine("/usr/bin/brelctl -c getObjectID --filePath %s", {path}), out, 4096);
    tool.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
  }
  f.prepMs = median_of(prep);
  f.toolMs = median_of(tool);
  f.children = static_cast<double>(children) / f.runs;
  return f;
}

int main() {
  const std::string root = benchdaemon::make_root();
  if (root.empty()) {
    std::fprintf(stderr, "cannot lay out the simulated root\n");
    return 1;
  }
  vessord::set_test_root(root);
  // The service's log lines would time the terminal, not the exchange.
  const int saved = dup(2);
  const int null = open("/dev/null", O_WRONLY);
  dup2(null, 2);

  int failures = 0;
  std::pair<double, double> svcUs{0, 0};
  std::pair<double, double> bareUs{0, 0};
  {
    vessord::ChromecastService svc("bench", "10.0.0.9", 8009, "Bench");
    vessord::Response r;
    if (svc.setContentUrl(r, "http://10.0.0.2:8080/v.mp4", "Bench", "", "") != 0) ++failures;
    BareSender bare;
    char buffer[vessord::ChromecastService::kReplySize + 1];
    if (!bare.start("10.0.0.10") || !bare.exchange("{ \"cmd\":\"LAUNCH\" }\r\n", buffer, sizeof buffer) ||
        !bare.exchange("{\"cmd\":\"LOAD\", \"url\":\"http://10.0.0.2:8080/v.mp4\", \"title\":\"Bench\"}\r\n", buffer,
                       sizeof buffer))
      ++failures;
    // Warm both up, then time them in turn.
    for (int i = 0; i < 50; ++i) {
      svc.getPosInfo(r);
      bare.exchange(kStatus, buffer, sizeof buffer);
    }
    // Blocks in turn: each child stays warm within its block, and a busy
    // moment of the shared machine weighs on both ways alike.
    std::vector<double> bareT;
    std::vector<double> svcT;
    bareT.reserve(kRuns);
    svcT.reserve(kRuns);
    auto bareBlock = [&] {
      for (int i = 0; i < kBlock; ++i)
        bareT.push_back(micros([&] { return bare.exchange(kStatus, buffer, sizeof buffer); }, failures));
    };
    auto svcBlock = [&] {
      for (int i = 0; i < kBlock; ++i)
        svcT.push_back(micros(
            [&] {
              vessord::Response a;
              return svc.getPosInfo(a) == 0 && a.m_response == 0;
            },
            failures));
    };
    // Which way goes first changes from block to block: the first one after
    // the switch wakes a child that sat idle.
    for (int block = 0; block < kRuns / kBlock; ++block) {
      if (block % 2 == 0) {
        bareBlock();
        svcBlock();
      } else {
        svcBlock();
        bareBlock();
      }
    }
    bareUs = summary(bareT);
    svcUs = summary(svcT);
    svc._close(r);
  }
  // The player's log lines would time the terminal too.
  const prepFigures_s prep = prepare_cost(root);
  dup2(saved, 2);
  close(null);
  close(saved);
  std::system(("rm -rf '" + root + "'").c_str());

  std::printf("## Chromecast sender round trip\n\n");
  std::printf("The `STATUS` command to the sender stand-in (the real `node`) and its answer back, "
              "%d round trips each, in alternate blocks of %d, wall time per round trip.\n\n",
              kRuns, kBlock);
  std::printf("| Way of asking | Round trips | median µs | mean µs | Ratio (median) |\n");
  std::printf("| --- | ---: | ---: | ---: | ---: |\n");
  std::printf("| bare pipe write + poll + read (baseline) | %d | %.1f | %.1f | 1.00 |\n", kRuns, bareUs.first,
              bareUs.second);
  std::printf("| `ChromecastService::getPosInfo`, answer parsed | %d | %.1f | %.1f | %.2f |\n", kRuns, svcUs.first,
              svcUs.second, svcUs.first / bareUs.first);
  std::printf("\nThe service adds %.1f µs (median) to a round trip: the lock, the poll with its deadline and "
              "the parse of the answer.\n",
              svcUs.first - bareUs.first);
  if (failures) std::printf("\n%d round trips failed.\n", failures);

  std::printf("\n## Chromecast: preparing one track's URL\n\n");
  std::printf("`getContentPath_` for a video the device cannot play as it is (the codec test, the library's URL,\n");
  std::printf("the transcoding words), in the simulated appliance; the baseline is one run of the media agent's\n");
  std::printf("stand-in. Medians of %d.\n\n", prep.runs);
  std::printf("| Work | Child processes | median ms | Ratio |\n| --- | ---: | ---: | ---: |\n");
  std::printf("| one agent call (baseline) | 1 | %.2f | 1.00 |\n", prep.toolMs);
  std::printf("| preparing one track's URL | %.1f | %.2f | %.1f |\n", prep.children, prep.prepMs,
              prep.toolMs > 0 ? prep.prepMs / prep.toolMs : 0.0);
  if (!prep.ok) std::printf("\nThe preparation failed: the figure is not valid.\n");
  return failures || !prep.ok ? 1 : 0;
}
