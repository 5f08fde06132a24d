// Stand-in for /usr/bin/id: "-u NAME" prints the user's numeric id from
// ROOT/sim/users.txt ("name:uid" a line); an unknown name prints an error
// on standard error and exits 1, as the real tool does. "-u" alone prints 0.
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include "common/standin.h"

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/usr/bin/id");
  sim::log_call(root, argc, argv);
  if (argc < 2 || std::strcmp(argv[1], "-u") != 0) return 2;
  if (argc < 3) {
    std::cout << "0\n";
    return 0;
  }
  const std::string name = argv[2];
  std::istringstream in(sim::read_file(root + "/sim/users.txt"));
  std::string line;
  while (std::getline(in, line)) {
    size_t colon = line.find(':');
    if (colon != std::string::npos && line.compare(0, colon, name) == 0 && colon == name.size()) {
      std::cout << line.substr(colon + 1) << "\n";
      return 0;
    }
  }
  std::cerr << "id: '" << name << "': no such user\n";
  return 1;
}
