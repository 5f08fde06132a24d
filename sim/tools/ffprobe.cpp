// Stand-in for the duration probe /usr/local/medialibrary/bin/ffprobe.
//
//   ffprobe -i PATH
//
// Like the real tool it writes its report to standard error: the banner,
// and for a file of the root's media library (ROOT/sim/media.tsv, the
// duration column of the row with that filePath) the input line and
//   "  Duration: 00:03:41.00, start: 0.000000, bitrate: 128 kb/s".
// A duration written with a fraction is printed as it stands. PATH may carry
// the root in front (the daemon opens files under it). A file that is not
// there gives "PATH: No such file or directory", one that is not in the
// library "PATH: Invalid data found when processing input"; both end with
// status 1. A test can put a report of its own in ROOT/sim/ffprobe/report:
// for a file that is there it is printed after the banner instead of the
// computed one.
#include <sys/stat.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "common/standin.h"

namespace {

std::vector<std::string> split_tabs(const std::string& line) {
  std::vector<std::string> out(1);
  for (char c : line) {
    if (c == '\t')
      out.emplace_back();
    else
      out.back() += c;
  }
  return out;
}

// The library's duration of `file` (an appliance path), "" when not listed.
std::string library_duration(const std::string& root, const std::string& file) {
  std::istringstream in(sim::read_file(root + "/sim/media.tsv"));
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    const std::vector<std::string> f = split_tabs(line);
    if (f.size() >= 5 && f[3] == file) return f[4];
  }
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/usr/local/medialibrary/bin/ffprobe");
  sim::log_call(root, argc, argv);
  std::string input;
  for (int i = 1; i + 1 < argc; ++i)
    if (std::string(argv[i]) == "-i") input = argv[i + 1];
  std::fprintf(stderr,
               "ffprobe version 4.4.2 Copyright (c) 2007-2021 the FFmpeg developers\n"
               "  built with gcc 10 (appliance build)\n");
  if (input.empty()) {
    std::fprintf(stderr, "Use -h to get full help or, even better, run 'man ffprobe'.\n");
    return 1;
  }
  struct stat st {};
  if (::stat(input.c_str(), &st) != 0) {
    std::fprintf(stderr, "%s: No such file or directory\n", input.c_str());
    return 1;
  }
  const std::string canned = sim::read_file(root + "/sim/ffprobe/report");
  if (!canned.empty()) {
    std::fwrite(canned.data(), 1, canned.size(), stderr);
    return 0;
  }
  std::string file = input;
  if (!root.empty() && file.compare(0, root.size(), root) == 0) file = file.substr(root.size());
  std::string duration = library_duration(root, file);
  if (duration.empty()) {
    std::fprintf(stderr, "%s: Invalid data found when processing input\n", input.c_str());
    return 1;
  }
  if (duration.find('.') == std::string::npos) duration += ".00";
  std::fprintf(stderr,
               "Input #0, mp3, from '%s':\n"
               "  Metadata:\n"
               "    encoder         : Lavf58.76.100\n"
               "  Duration: %s, start: 0.025057, bitrate: 128 kb/s\n"
               "    Stream #0:0: Audio: mp3, 44100 Hz, stereo, fltp, 128 kb/s\n",
               input.c_str(), duration.c_str());
  return 0;
}
