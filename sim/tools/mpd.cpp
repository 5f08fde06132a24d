// Adapter for the private music daemon /tmp/vexmpd/bin/mpd over Debian's
// real mpd. The appliance's build takes `--port N` on its command line; the
// real one takes the port from its configuration. So the adapter writes a
// configuration of its own under ROOT/sim/mpd/<port>/ (TCP port, a local
// socket for the client adapter, pid file, log, and one `null` output,
// synchronised to real time, per sound card named in ROOT/sim/mpc-outputs.txt)
// and hands over to the real program. `--kill` ends the daemon of that port.
// The appliance's configuration file named on the line is not read.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "common/standin.h"

namespace {

const char* real_mpd() {
  const char* env = std::getenv("VESSORD_REAL_MPD");
  return env && *env ? env : "/usr/bin/mpd";
}

// The value between double quotes in mpd's configuration syntax.
std::string quoted(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

// Names of the outputs: the text in parentheses of "Output N (name) is ...".
std::vector<std::string> output_names(const std::string& text) {
  std::vector<std::string> names;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    const size_t open = line.find(" (");
    const size_t close = line.rfind(") is ");
    if (line.compare(0, 7, "Output ") != 0 || open == std::string::npos || close == std::string::npos ||
        close <= open)
      continue;
    names.push_back(line.substr(open + 2, close - open - 2));
  }
  return names;
}

bool all_digits(const std::string& s) {
  if (s.empty() || s.size() > 5) return false;
  for (char c : s)
    if (c < '0' || c > '9') return false;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/tmp/vexmpd/bin/mpd");
  sim::log_call(root, argc, argv);
  std::string port;
  bool kill = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--port" && i + 1 < argc)
      port = argv[++i];
    else if (a == "--kill")
      kill = true;
  }
  if (!all_digits(port)) {
    std::fprintf(stderr, "mpd: --port needs a port number\n");
    return 1;
  }
  const std::string dir = root + "/sim/mpd/" + port;
  const std::string conf = dir + "/mpd.conf";
  if (kill) {
    if (::access(conf.c_str(), R_OK) != 0) {
      std::fprintf(stderr, "mpd: no daemon was started on port %s\n", port.c_str());
      return 1;
    }
    ::execl(real_mpd(), "mpd", "--kill", conf.c_str(), static_cast<char*>(nullptr));
    std::perror("mpd: exec");
    return 127;
  }
  ::mkdir((root + "/sim/mpd").c_str(), 0755);
  ::mkdir(dir.c_str(), 0755);
  std::ofstream out(conf, std::ios::trunc);
  out << "pid_file " << quoted(dir + "/pid") << "\n"
      << "log_file " << quoted(dir + "/log") << "\n"
      << "bind_to_address \"127.0.0.1\"\n"
      << "bind_to_address " << quoted(dir + "/socket") << "\n"
      << "port \"" << port << "\"\n"
      << "zeroconf_enabled \"no\"\n";
  for (const std::string& name : output_names(sim::read_file(root + "/sim/mpc-outputs.txt")))
    out << "audio_output {\n  type \"null\"\n  name " << quoted(name)
        << "\n  mixer_type \"software\"\n}\n";
  out.close();
  if (!out) {
    std::fprintf(stderr, "mpd: cannot write %s\n", conf.c_str());
    return 1;
  }
  ::execl(real_mpd(), "mpd", conf.c_str(), static_cast<char*>(nullptr));
  std::perror("mpd: exec");
  return 127;
}
