// One AirPlay request through CurlWrapper (one kept easy handle) against the
// curl command line for the same request, both to the simulated device on
// loopback in the same run.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "airplay/airplayDevice.h"
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
  return failures ? 1 : 0;
}
