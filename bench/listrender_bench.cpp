// ListRender with all three sources in a simulated root: a fresh listing
// (the first of a daemon, which runs the agent's list, the mDNS browse and
// the music daemon's outputs) against one within the ten seconds (which
// runs only the outputs and reuses the kept texts). Each fresh sample is a
// new daemon, since a daemon lists afresh at most every ten seconds.
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "benchDaemon.h"
#include "vessorClient.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int kFresh = 8;
constexpr int kCached = 100;

const char kDlnaList[] =
    "<root><status>success</status>"
    "<device><deviceId>uuid:den-tv</deviceId><deviceName>Den TV</deviceName><type>video,photo,audio</type>"
    "<ip>192.168.1.30</ip></device>"
    "<device><deviceId>uuid:hifi</deviceId><deviceName>Hi-Fi</deviceName><type>audio</type>"
    "<ip>192.168.1.31</ip></device>"
    "</root>\n";

// One ListRender; its time in milliseconds, or -1 when it failed.
double list_once(const std::string& socketPath) {
  const std::string packet = vessorclient::build_packet("ListRender", {});
  auto t0 = clock_type::now();
  std::string reply;
  if (vessorclient::request(socketPath, packet, reply) != 0 || !vessorclient::reply_succeeded(reply)) return -1;
  return std::chrono::duration<double, std::milli>(clock_type::now() - t0).count();
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  using namespace benchdaemon;
  const std::string root = make_root();
  if (root.empty()) return 1;
  std::ofstream(root + "/sim/dlna-devices.xml") << kDlnaList;
  const std::string socketPath = socket_of(root);

  int failures = 0;
  std::vector<double> fresh, cached;
  for (int i = 0; i < kFresh; ++i) {
    const pid_t pid = spawn_daemon(root);
    if (pid < 0) {
      std::fprintf(stderr, "listrender_bench: the daemon did not start\n");
      return 1;
    }
    const double ms = list_once(socketPath);
    if (ms < 0) ++failures;
    else fresh.push_back(ms);
    // The rest of the window: listings that reuse the kept texts.
    if (i == 0) {
      auto start = clock_type::now();
      for (int k = 0; k < kCached && clock_type::now() - start < std::chrono::seconds(9); ++k) {
        const double c = list_once(socketPath);
        if (c < 0) ++failures;
        else cached.push_back(c);
      }
    }
    stop_daemon(pid);
  }
  std::system(("rm -rf '" + root + "'").c_str());

  const double f = median(fresh);
  const double c = median(cached);
  std::printf("## ListRender: within the ten seconds against a fresh listing\n\n");
  std::printf("Two simulated renderers, two Chromecast records, three sound outputs. A fresh listing runs the\n");
  std::printf("package test, the agent's list, the mDNS browse and the outputs; one within the ten seconds runs\n");
  std::printf("only the package test and the outputs (never cached) and reuses the kept texts.\n\n");
  std::printf("| Run | Listings | Median (ms) |\n| --- | --- | --- |\n");
  std::printf("| fresh (first of a new daemon) | %zu | %.2f |\n", fresh.size(), f);
  std::printf("| within ten seconds | %zu | %.2f |\n", cached.size(), c);
  std::printf("\nRatio within / fresh: %.2f. Failed requests: %d.\n", f > 0 ? c / f : 0.0, failures);
  return failures == 0 ? 0 : 1;
}
