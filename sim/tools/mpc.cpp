// Stand-in for the private music daemon's client /tmp/vexmpd/bin/mpc. Only
// `outputs` is answered here: the lines of ROOT/sim/mpc-outputs.txt, as the
// daemon's extended client prints them ("Output N (name) is enabled uid:...
// devType:N sampleRate:... sampleRateMode:... dsd:... dsdMode:...
// hwParam:hw:CARD=c,DEV=d"). Without the file the music daemon is not
// running: an error on standard error and status 1, as the real client.
#include <cstdio>
#include <string>

#include "common/standin.h"

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/tmp/vexmpd/bin/mpc");
  sim::log_call(root, argc, argv);
  std::string command;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if ((a == "-p" || a == "-h") && i + 1 < argc) {
      ++i;
      continue;
    }
    command = a;
    break;
  }
  if (command != "outputs") {
    std::fprintf(stderr, "mpc: only 'outputs' is simulated\n");
    return 2;
  }
  const std::string file = root + "/sim/mpc-outputs.txt";
  std::FILE* f = std::fopen(file.c_str(), "r");
  if (!f) {
    std::fprintf(stderr, "MPD error: Connection refused\n");
    return 1;
  }
  std::fclose(f);
  const std::string text = sim::read_file(file);
  std::fwrite(text.data(), 1, text.size(), stdout);
  return 0;
}
