// Stand-in for the appliance's reader of ini-style configuration files.
//
//   rakcfg [-f FILE] [-d DEFAULT] [-c] SECTION KEY
//
// Options and the two names may come in any order around each other. FILE
// is used as given (the daemon has already put it under the root); without
// -f the system file /etc/config/ostral.conf of the root is read. Sections
// and keys match without regard to case; keys may hold blanks; an empty
// SECTION names the keys above the first section header. Lines starting
// with '#' or ';' are comments. Prints the value and a line feed; when the
// key is absent prints DEFAULT if one was given, else nothing and exits 1.
// -c is accepted and changes nothing here.
#include <strings.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "common/standin.h"

namespace {

std::string trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return "";
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

bool same(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

bool lookup(const std::string& file, const std::string& section, const std::string& key, std::string& value) {
  std::ifstream in(file);
  if (!in) return false;
  std::string current;
  std::string raw;
  while (std::getline(in, raw)) {
    std::string line = trim(raw);
    if (line.empty() || line[0] == '#' || line[0] == ';') continue;
    if (line[0] == '[') {
      size_t close = line.find(']');
      current = trim(line.substr(1, close == std::string::npos ? std::string::npos : close - 1));
      continue;
    }
    size_t eq = line.find('=');
    if (eq == std::string::npos) continue;
    if (same(current, section) && same(trim(line.substr(0, eq)), key)) {
      value = trim(line.substr(eq + 1));
      return true;
    }
  }
  return false;
}

int usage() {
  std::fprintf(stderr, "usage: rakcfg [-f FILE] [-d DEFAULT] [-c] SECTION KEY\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/sbin/rakcfg");
  sim::log_call(root, argc, argv);

  std::string file = sim::path(root, "/etc/config/ostral.conf");
  std::string fallback;
  bool hasDefault = false;
  std::vector<std::string> names;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "-f" || a == "-d") {
      if (i + 1 >= argc) return usage();
      (a == "-f" ? file : fallback) = argv[++i];
      if (a == "-d") hasDefault = true;
    } else if (a == "-c") {
      continue;
    } else {
      names.push_back(a);
    }
  }
  if (names.size() != 2) return usage();

  std::string value;
  if (lookup(file, names[0], names[1], value)) {
    std::printf("%s\n", value.c_str());
    return 0;
  }
  if (hasDefault) {
    std::printf("%s\n", fallback.c_str());
    return 0;
  }
  return 1;
}
