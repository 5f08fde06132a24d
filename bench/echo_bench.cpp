// Echo round trips against the daemon in a simulated root, with 1 and 8
// concurrent clients, beside two baselines measured in the same run: the
// same client against a trivial in-process server that answers a fixed
// reply in the same framing (thread per connection, like the daemon), and
// the version lookup's command line alone through popen, which every reply
// of the daemon runs once.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "command/unixSocketIpc.h"
#include "benchDaemon.h"
#include "vessorClient.h"


namespace {

using clock_type = std::chrono::steady_clock;

constexpr int kRequests = 2000;
constexpr int kPopenRuns = 300;

struct figures_s {
  double perSecond;
  double medianUs;
  double p99Us;
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

// `clients` threads share `kRequests` echo round trips on `socketPath`.
figures_s run_clients(const std::string& socketPath, int clients, int& failures) {
  const std::string packet = vessorclient::build_packet("echo", {});
  std::vector<std::vector<double>> lat(static_cast<size_t>(clients));
  std::atomic<int> failed{0};
  auto start = clock_type::now();
  std::vector<std::thread> threads;
  for (int c = 0; c < clients; ++c) {
    threads.emplace_back([&, c] {
      const int share = kRequests / clients + (c < kRequests % clients ? 1 : 0);
      for (int i = 0; i < share; ++i) {
        auto t0 = clock_type::now();
        std::string reply;
        if (vessorclient::request(socketPath, packet, reply) != 0 || !vessorclient::reply_succeeded(reply)) ++failed;
        lat[static_cast<size_t>(c)].push_back(std::chrono::duration<double, std::micro>(clock_type::now() - t0).count());
      }
    });
  }
  for (auto& t : threads) t.join();
  double seconds = std::chrono::duration<double>(clock_type::now() - start).count();
  std::vector<double> all;
  for (auto& l : lat) all.insert(all.end(), l.begin(), l.end());
  failures += failed.load();
  return summarize(all, seconds);
}

// The trivial server: one read, the 256-byte header and a fixed reply, the
// acknowledgement, close; a detached thread for each connection.
std::atomic<int> g_handlers{0};

void serve_fixed(CUnixSocketIpc* ipc, std::atomic<bool>* stop) {
  static const std::string reply = "<root>\n\t<version>KIVO 3.2.7</version>\n\t<status>ECHO</status>\n</root>\n";
  while (!stop->load()) {
    int fd = ipc->Accept();
    if (fd < 0) continue;
    ++g_handlers;
    std::thread([ipc, fd] {
      char buf[4097];
      if (ipc->Read(buf, 4096, fd) >= 0) {
        char header[256] = {0};
        std::snprintf(header, sizeof header, "%d", static_cast<int>(reply.size()));
        if (ipc->Write(header, sizeof header, fd) >= 0 && ipc->Write(reply.data(), reply.size(), fd) >= 0)
          ipc->Read(header, sizeof header, fd);
      }
      ipc->Close(fd);
      --g_handlers;
    }).detach();
  }
}

figures_s run_popen(const std::string& root, int& failures) {
  const std::string line = root + "/sbin/rakcfg -f " + root + "/etc/config/tarpo.conf KIVO Version";
  std::vector<double> lat;
  auto start = clock_type::now();
  for (int i = 0; i < kPopenRuns; ++i) {
    auto t0 = clock_type::now();
    FILE* p = popen(line.c_str(), "r");
    char buf[1024];
    if (!p || !std::fgets(buf, sizeof buf, p)) ++failures;
    if (p) pclose(p);
    lat.push_back(std::chrono::duration<double, std::micro>(clock_type::now() - t0).count());
  }
  return summarize(lat, std::chrono::duration<double>(clock_type::now() - start).count());
}

void row(const char* what, int clients, int count, const figures_s& f) {
  std::printf("| %s | %d | %d | %.0f | %.0f | %.0f |\n", what, clients, count, f.perSecond, f.medianUs, f.p99Us);
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  const std::string root = benchdaemon::make_root();
  if (root.empty()) return 1;
  // The daemon, in the root, its log in a file as on the appliance.
  const pid_t pid = benchdaemon::spawn_daemon(root);
  const std::string daemonSocket = benchdaemon::socket_of(root);
  if (pid < 0) {
    std::fprintf(stderr, "echo_bench: the daemon did not start\n");
    return 1;
  }

  const std::string bareSocket = root + "/tmp/bare.sock";
  CUnixSocketIpc bare(bareSocket.c_str(), true);
  bare.Listen(64);
  std::atomic<bool> stop{false};
  std::thread server(serve_fixed, &bare, &stop);

  int failures = 0;
  figures_s d1 = run_clients(daemonSocket, 1, failures);
  figures_s d8 = run_clients(daemonSocket, 8, failures);
  figures_s b1 = run_clients(bareSocket, 1, failures);
  figures_s b8 = run_clients(bareSocket, 8, failures);
  figures_s po = run_popen(root, failures);

  stop = true;
  {
    vessorclient::CVessorConnection wake(bareSocket);  // lets the accept return
  }
  server.join();
  while (g_handlers.load() > 0) usleep(1000);
  benchdaemon::stop_daemon(pid);
  std::system(("rm -rf '" + root + "'").c_str());

  std::printf("## Command socket: echo round trips\n\n");
  std::printf("Each request is one connection: connect, send, 256-byte header and reply, acknowledgement.\n");
  std::printf("The daemon also runs the version lookup (one child process) for every reply.\n\n");
  std::printf("| Run | Clients | Requests | Per second | Median (us) | p99 (us) |\n");
  std::printf("| --- | --- | --- | --- | --- | --- |\n");
  row("daemon, echo", 1, kRequests, d1);
  row("daemon, echo", 8, kRequests, d8);
  row("baseline: fixed-reply server, same framing", 1, kRequests, b1);
  row("baseline: fixed-reply server, same framing", 8, kRequests, b8);
  row("baseline: version command line through popen", 1, kPopenRuns, po);
  std::printf("\n");
  std::printf("- Daemon against the bare transport: %.1fx the median latency with 1 client, %.1fx with 8;"
              " %.2f and %.2f of its throughput.\n",
              d1.medianUs / b1.medianUs, d8.medianUs / b8.medianUs, d1.perSecond / b1.perSecond,
              d8.perSecond / b8.perSecond);
  std::printf("- The version lookup alone is %.0f%% of the daemon's median echo with 1 client.\n",
              100.0 * po.medianUs / d1.medianUs);
  std::printf("- Parallel clients: the daemon serves %.2fx the requests per second with 8 clients as with 1.\n",
              d8.perSecond / d1.perSecond);
  if (failures) std::printf("- %d requests failed.\n", failures);
  return failures ? 1 : 0;
}
