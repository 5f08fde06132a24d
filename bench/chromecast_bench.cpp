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
#include <string>
#include <vector>

#include "benchDaemon.h"
#include "foundation/rootPath.h"
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
  return failures ? 1 : 0;
}
