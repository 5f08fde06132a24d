// Stand-in for /sbin/narvuser: "-sv -a admin" lists the shares, one a line,
// fields separated by ':' (name, comment, path on disk, ...), as kept in
// ROOT/sim/shares.txt.
#include <cstring>
#include <iostream>
#include <string>

#include "common/standin.h"

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/sbin/narvuser");
  sim::log_call(root, argc, argv);
  bool list = false;
  for (int i = 1; i < argc; ++i)
    if (std::strcmp(argv[i], "-sv") == 0) list = true;
  if (!list) return 2;
  std::cout << sim::read_file(root + "/sim/shares.txt");
  return 0;
}
