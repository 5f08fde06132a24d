// Stand-in for /usr/sbin/avahi-browse: prints the resolved records laid in
// the root for the service type asked for.
//
//   avahi-browse [-rkpt...] SERVICE_TYPE
//
// The records are ROOT/sim/avahi/<SERVICE_TYPE>.txt, printed as they stand
// (parsable output: "=;iface;IPv4;name;type;domain;host;address;port;txt").
// No file means no service on the network: nothing is printed.
#include <cstdio>
#include <string>

#include "common/standin.h"

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/usr/sbin/avahi-browse");
  sim::log_call(root, argc, argv);
  std::string type;
  for (int i = 1; i < argc; ++i)
    if (argv[i][0] != '-') type = argv[i];
  if (type.empty() || type.find('/') != std::string::npos) {
    std::fprintf(stderr, "usage: avahi-browse [-rkpt] SERVICE_TYPE\n");
    return 2;
  }
  const std::string text = sim::read_file(root + "/sim/avahi/" + type + ".txt");
  std::fwrite(text.data(), 1, text.size(), stdout);
  return 0;
}
