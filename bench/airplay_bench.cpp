// One AirPlay request through CurlWrapper (one kept easy handle) against the
// curl command line for the same request, both to the simulated device on
// loopback in the same run.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "airplay/airplayDevice.h"
#include "backends/airplayPlayer.h"
#include "benchDaemon.h"
#include "foundation/rootPath.h"
#include "playlist/SqlitePlaylist.h"
#include "services/curlWrapper.h"

namespace {

using Clock = std::chrono::steady_clock;

template <class F>
double mean_ms(F fn, int runs) {
  fn();  // warm-up
  const auto t0 = Clock::now();
  for (int i = 0; i < runs; ++i) fn();
  return std::chrono::duration<double, std::milli>(Clock::now() - t0).count() / runs;
}

// The player's log lines would time the terminal.
int null2() { return open("/dev/null", O_WRONLY | O_CLOEXEC); }

double cpu_seconds() {
  double total = 0;
  for (int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
    rusage u{};
    getrusage(who, &u);
    total += static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
             static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
  }
  return total;
}

// CPU of this process and its children over `seconds`.
template <class F>
double cpu_over(int seconds, F during) {
  const double c0 = cpu_seconds();
  during();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  return cpu_seconds() - c0;
}

// A player on the simulated device plays a long video with the appliance's
// one-second passes (a position poll each), against the device alone.
void player_cpu(sim::AirplayDevice& device) {
  const int seconds = std::getenv("AIRPLAY_BENCH_SECONDS") ? std::atoi(std::getenv("AIRPLAY_BENCH_SECONDS")) : 30;
  const std::string root = benchdaemon::make_root();
  if (root.empty()) return;
  vessord::set_test_root(root);
  const std::string path = "/share/CACHEDEV1_DATA/Public/bench.mkv";
  std::system(("echo video > '" + root + path + "' && printf 'b1\\t9001\\t2\\t" + path +
               "\\t02:00:00\\n' >> '" + root + "/sim/media.tsv'").c_str());
  {
    CSqlitePlaylist db;
    db.addPlaylist("bench", MEDIA_VIDEO, "music", nullptr, nullptr);
    db.addElmInPlaylist("bench", MEDIA_VIDEO, CONTENT_FILE, "music", path.c_str(), 0);
  }
  device.setDefaultDuration(7200);
  const double idle = cpu_over(seconds, [] {});
  std::unique_ptr<CAirplayPlayer> player;
  const double playing = cpu_over(seconds, [&] {
    player.reset(new CAirplayPlayer(PLAYER_TYPE_AIRPLAY | PLAYER_TYPE_VIDEO, "bench-ap", "Bench", "bench", "music",
                                    "127.0.0.1", device.port()));
    player->setIP("127.0.0.1");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    player->play();
  });
  const bool played = player->getPlayerState() == STATE_PLAY_E;
  player.reset();
  std::system(("rm -rf '" + root + "'").c_str());

  std::printf("\n## AirPlay player at work\n\n");
  std::printf("One player plays a two-hour video on the simulated device (one position poll a second), in this\n");
  std::printf("process with the device's server; the baseline is the same process with the device alone.\n\n");
  std::printf("| Run | Seconds | CPU (s) | Share of one core |\n| --- | ---: | ---: | ---: |\n");
  std::printf("| device alone (baseline) | %d | %.3f | %.2f%% |\n", seconds, idle, 100.0 * idle / seconds);
  std::printf("| one player playing | %d | %.3f | %.2f%% |\n", seconds, playing, 100.0 * playing / seconds);
  if (idle > 0) std::printf("\nRatio playing / alone: %.1f.", playing / idle);
  std::printf("%s\n", played ? "" : " The player was not playing at the end: the figure is not valid.");
}

}  // namespace

int main() {
  sim::AirplayDevice device;
  if (!device.start()) {
    std::fprintf(stderr, "cannot start the simulated device\n");
    return 1;
  }
  vessord::CurlWrapper client;
  client.setIp("127.0.0.1");
  client.setPort(device.port());
  const std::string cli = "curl -s -o /dev/null http://127.0.0.1:" + std::to_string(device.port()) + "/scrub";

  // The client's log lines would time the terminal, not the request.
  const int saved = dup(2);
  const int null = open("/dev/null", O_WRONLY);
  dup2(null, 2);
  const int runs = 200;
  int failures = 0;
  const double wrapper = mean_ms(
      [&] {
        vessord::Response r;
        if (client.airplayGetScrub(r) != 0 || r.m_response != 200) failures++;
      },
      runs);
  const double command = mean_ms(
      [&] {
        if (std::system(cli.c_str()) != 0) failures++;
      },
      runs);
  dup2(saved, 2);
  close(null);
  close(saved);

  std::printf("## AirPlay request\n\n");
  std::printf("`GET /scrub` to the simulated AirPlay device on loopback, mean wall time per request.\n\n");
  std::printf("| Way of sending | Requests | ms per request | Ratio to curl CLI |\n");
  std::printf("| --- | ---: | ---: | ---: |\n");
  std::printf("| `curl -s -o /dev/null URL` through `system` (baseline) | %d | %.3f | 1.00 |\n", runs, command);
  std::printf("| `CurlWrapper::airplayGetScrub`, handle kept | %d | %.3f | %.2f |\n", runs, wrapper,
              wrapper / command);
  if (failures) std::printf("\n%d requests failed.\n", failures);
  dup2(null2(), 2);
  player_cpu(device);
  return failures ? 1 : 0;
}
