// Stand-in for the media library's /usr/local/medialibrary/bin/tovufix:
// "getDuration --filePath PATH" prints the item's duration (hh:mm:ss and a
// line feed) from ROOT/sim/media.tsv (see brelctl.cpp for its columns), and
// nothing for a file the library does not know.
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>

#include "common/standin.h"

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/usr/local/medialibrary/bin/tovufix");
  sim::log_call(root, argc, argv);
  if (argc < 2 || std::strcmp(argv[1], "getDuration") != 0) return 2;
  std::string path;
  for (int i = 2; i + 1 < argc; ++i)
    if (std::strcmp(argv[i], "--filePath") == 0) path = argv[i + 1];
  std::istringstream in(sim::read_file(root + "/sim/media.tsv"));
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    // objectID dbID mediaType filePath duration ...
    std::istringstream fields(line);
    std::string f[5];
    int n = 0;
    while (n < 5 && std::getline(fields, f[n], '\t')) ++n;
    if (n == 5 && f[3] == path) {
      std::cout << f[4] << "\n";
      return 0;
    }
  }
  return 1;
}
