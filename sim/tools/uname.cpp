// Stand-in for /bin/uname: "-m" prints the machine word from
// ROOT/sim/uname-m (a test lays "armv7l" there to be an Arm appliance),
// "x86_64" without it; any other use prints "Linux".
#include <cstring>
#include <iostream>
#include <string>

#include "common/standin.h"

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/bin/uname");
  sim::log_call(root, argc, argv);
  if (argc > 1 && std::strcmp(argv[1], "-m") == 0) {
    std::string machine = sim::read_file(root + "/sim/uname-m");
    while (!machine.empty() && (machine.back() == '\n' || machine.back() == '\r')) machine.pop_back();
    std::cout << (machine.empty() ? "x86_64" : machine) << "\n";
    return 0;
  }
  std::cout << "Linux\n";
  return 0;
}
