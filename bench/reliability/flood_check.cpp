// The daemon under a flood: FLOOD_SILENT (1000) connections that never
// send, and 8 threads connecting and closing without a word, for
// FLOOD_SECONDS (60), while one client times `echo` every 50 ms. Figures:
// the share of echoes served, their p50 and p99, the daemon's threads and
// descriptors before, during and after (once the idle limit, here
// FLOOD_IDLE_MS = 5000, has let the silent ones go). Prints one Markdown
// section.
#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "../benchDaemon.h"
#include "vessorClient.h"

namespace {

using clock_type = std::chrono::steady_clock;

int env_int(const char* name, int fallback) {
  const char* v = std::getenv(name);
  return v && std::atoi(v) > 0 ? std::atoi(v) : fallback;
}

int entries(const std::string& dir) {
  int n = 0;
  if (DIR* d = ::opendir(dir.c_str())) {
    while (dirent* e = ::readdir(d)) n += e->d_name[0] != '.';
    ::closedir(d);
  }
  return n;
}

int connect_to(const std::string& path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  std::snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
  if (::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

double pct(std::vector<double> v, double p) {
  if (v.empty()) return 0;
  std::sort(v.begin(), v.end());
  return v[std::min(v.size() - 1, static_cast<size_t>(static_cast<double>(v.size()) * p))];
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  const int silentCount = env_int("FLOOD_SILENT", 1000);
  const int seconds = env_int("FLOOD_SECONDS", 60);
  const int idleMs = env_int("FLOOD_IDLE_MS", 5000);
  // This process holds the silent connections too.
  rlimit lim{};
  getrlimit(RLIMIT_NOFILE, &lim);
  lim.rlim_cur = lim.rlim_max;
  setrlimit(RLIMIT_NOFILE, &lim);

  const std::string root = benchdaemon::make_root();
  if (root.empty()) return 1;
  ::setenv("VESSORD_IDLE_CLIENT_MS", std::to_string(idleMs).c_str(), 1);
  const pid_t pid = benchdaemon::spawn_daemon(root);
  if (pid < 0) return 1;
  const std::string sock = benchdaemon::socket_of(root);
  const std::string task = "/proc/" + std::to_string(pid) + "/task", fds = "/proc/" + std::to_string(pid) + "/fd";
  std::string reply;
  vessorclient::request(sock, vessorclient::build_packet("echo", {}), reply);
  const int threads0 = entries(task), fds0 = entries(fds);

  std::vector<int> silent;
  for (int i = 0; i < silentCount; ++i) {
    const int fd = connect_to(sock);
    if (fd >= 0) silent.push_back(fd);
  }
  std::atomic<bool> stop{false};
  std::atomic<long> churned{0};
  std::vector<std::thread> churn;
  for (int t = 0; t < 8; ++t)
    churn.emplace_back([&] {
      while (!stop) {
        const int fd = connect_to(sock);
        if (fd >= 0) {
          ::close(fd);
          ++churned;
        }
      }
    });

  std::vector<double> lat;
  int asked = 0, served = 0, threadsPeak = 0, fdsPeak = 0;
  const auto end = clock_type::now() + std::chrono::seconds(seconds);
  const std::string echo = vessorclient::build_packet("echo", {});
  while (clock_type::now() < end) {
    ++asked;
    const auto t0 = clock_type::now();
    if (vessorclient::request(sock, echo, reply) == 0 && vessorclient::reply_succeeded(reply)) {
      ++served;
      lat.push_back(std::chrono::duration<double, std::milli>(clock_type::now() - t0).count());
    }
    threadsPeak = std::max(threadsPeak, entries(task));
    fdsPeak = std::max(fdsPeak, entries(fds));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  stop = true;
  for (std::thread& t : churn) t.join();
  for (int fd : silent) ::close(fd);
  // The daemon's side of the silent ones goes with the clients' close, or
  // at the idle limit at the latest.
  std::this_thread::sleep_for(std::chrono::milliseconds(idleMs + 1000));
  const int threadsAfter = entries(task), fdsAfter = entries(fds);
  benchdaemon::stop_daemon(pid);
  std::system(("rm -rf '" + root + "'").c_str());

  std::printf("## Flood of silent clients\n\n");
  std::printf("%zu connections that never send, and 8 threads connecting and closing without a word (%ld\n",
              silent.size(), churned.load());
  std::printf("connections in all), for %d s, while one client asks `echo` every 50 ms. The idle limit is\n", seconds);
  std::printf("set to %d ms for the run (60 s by default).\n\n", idleMs);
  std::printf("| Echo requests | Served | p50 (ms) | p99 (ms) |\n| ---: | ---: | ---: | ---: |\n");
  std::printf("| %d | %.1f%% | %.1f | %.1f |\n\n", asked, asked ? 100.0 * served / asked : 0.0, pct(lat, 0.5),
              pct(lat, 0.99));
  std::printf("| Daemon | Threads | Descriptors |\n| --- | ---: | ---: |\n");
  std::printf("| before | %d | %d |\n| peak during | %d | %d |\n| after | %d | %d |\n", threads0, fds0, threadsPeak,
              fdsPeak, threadsAfter, fdsAfter);
  return served == asked && threadsAfter <= threads0 + 1 ? 0 : 1;
}
