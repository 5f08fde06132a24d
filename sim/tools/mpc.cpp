// Adapter for the private music daemon's client /tmp/vexmpd/bin/mpc over
// Debian's real mpc. The appliance-only commands are answered here from the
// root's description of its sound cards, ROOT/sim/mpc-outputs.txt:
// `outputs` prints its lines as the extended client does ("Output N (name)
// is enabled uid:... devType:N ... hwParam:hw:CARD=c,DEV=d"; without the file
// no music daemon runs: an error and status 1, as the real client);
// `setoutputattr "name" a b` accepts a listed name and fails another;
// `reloadsettings` succeeds. Everything else goes to the real mpc, over the
// local socket of the daemon that the mpd adapter started for `-p N`, so that
// local files may be added by file:// address. On the appliance the media
// lie at their own paths; here they lie under the root, so `add
// file:///share/...` is handed on with the root before the path.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/standin.h"

namespace {

const char* real_mpc() {
  const char* env = std::getenv("VESSORD_REAL_MPC");
  return env && *env ? env : "/usr/bin/mpc";
}

bool listed(const std::string& text, const std::string& name) {
  return text.find(" (" + name + ") is ") != std::string::npos;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/tmp/vexmpd/bin/mpc");
  sim::log_call(root, argc, argv);
  std::string port = "6600";
  int first = argc;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "-p" && i + 1 < argc) {
      port = argv[++i];
      continue;
    }
    first = i;
    break;
  }
  const std::string command = first < argc ? argv[first] : "status";
  const std::string file = root + "/sim/mpc-outputs.txt";
  if (command == "outputs" || command == "setoutputattr") {
    std::FILE* f = std::fopen(file.c_str(), "r");
    if (!f) {
      std::fprintf(stderr, "MPD error: Connection refused\n");
      return 1;
    }
    std::fclose(f);
    const std::string text = sim::read_file(file);
    if (command == "outputs") {
      std::fwrite(text.data(), 1, text.size(), stdout);
      return 0;
    }
    if (argc - first != 4 || !listed(text, argv[first + 1])) {
      std::fprintf(stderr, "MPD error: No such audio output\n");
      return 1;
    }
    return 0;
  }
  if (command == "reloadsettings") return 0;
  const std::string host = "--host=" + root + "/sim/mpd/" + port + "/socket";
  std::vector<std::string> words(argv + first, argv + argc);
  const std::string scheme = "file://";
  if (words.size() == 2 && words[0] == "add" && words[1].compare(0, scheme.size() + 1, scheme + "/") == 0 &&
      words[1].compare(scheme.size(), root.size(), root) != 0)
    words[1] = scheme + root + words[1].substr(scheme.size());
  std::vector<char*> args;
  args.push_back(const_cast<char*>("mpc"));
  args.push_back(const_cast<char*>(host.c_str()));
  for (std::string& w : words) args.push_back(&w[0]);
  args.push_back(nullptr);
  ::execv(real_mpc(), args.data());
  std::perror("mpc: exec");
  return 127;
}
