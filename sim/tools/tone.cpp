// Writes a short WAV tone for the simulated appliance's music: the demo and
// the benchmarks lay their tracks with it.
//   tone FILE SECONDS
#include <cstdio>
#include <cstdlib>

#include "common/standin.h"

int main(int argc, char** argv) {
  if (argc != 3 || std::atoi(argv[2]) <= 0) {
    std::fprintf(stderr, "usage: tone FILE SECONDS\n");
    return 2;
  }
  sim::write_wav(argv[1], std::atoi(argv[2]));
  return 0;
}
