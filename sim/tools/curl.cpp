// Stand-in for curl, which the AirPlay player runs by name to ask the media
// server to interrupt an HLS transcoding. It only logs the call; a test puts
// ROOT/usr/bin first in PATH so that the name finds it.
#include "common/standin.h"

int main(int argc, char** argv) {
  sim::log_call(sim::root(argv[0], "/usr/bin/curl"), argc, argv);
  return 0;
}
