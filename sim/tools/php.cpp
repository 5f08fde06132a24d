// Stand-in for /usr/local/apache/bin/php running the media library's device
// script (vexairplay.php): keeps one state per device and answers each action
// with the XML the daemon reads.
//
//   php SCRIPT -c=ACTION -d=DEVICE [-u=URL] [-t=VALUE] [-i=THUMB] -x
//
// State: ROOT/sim/vexairplay/<device, non-alphanumerics as '_'>.state, lines
// key=value: url, state (PLAYING, PAUSED, STOPPED), duration (seconds, 60
// unless a test set it), basePos, sinceMs, title, thumb, photo, and fail (a
// test sets it: every action answers status 1). While PLAYING the position
// follows the wall clock and ends at the duration, where the state becomes
// STOPPED.
//
// A play of a media server URL (http://HOST:PORT/WORD/DBID.ext...; WORD is
// MediaItems, Transcode, CHROMECAST, ...) takes the duration of that item
// from the media library ROOT/sim/media.tsv (the agent stand-in's file:
// dbID in the second column, hh:mm:ss in the fifth), as a device learns it
// from the stream; other URLs keep the duration the state holds.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "common/standin.h"

namespace {

using State = std::map<std::string, std::string>;

long long nowMs() {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  return static_cast<long long>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

State load(const std::string& file) {
  State s;
  std::string text = sim::read_file(file);
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string line = text.substr(start, end - start);
    size_t eq = line.find('=');
    if (eq != std::string::npos) s[line.substr(0, eq)] = line.substr(eq + 1);
    start = end + 1;
  }
  return s;
}

void save(const std::string& file, const State& s) {
  std::string tmp = file + ".tmp";
  FILE* f = fopen(tmp.c_str(), "w");
  if (!f) return;
  for (const auto& kv : s) fprintf(f, "%s=%s\n", kv.first.c_str(), kv.second.c_str());
  fclose(f);
  rename(tmp.c_str(), file.c_str());
}

double position(State& s) {
  double dur = atof(s["duration"].c_str());
  double pos = atof(s["basePos"].c_str());
  if (s["state"] == "PLAYING") pos += (nowMs() - atoll(s["sinceMs"].c_str())) / 1000.0;
  if (pos >= dur) {
    pos = dur;
    if (s["state"] == "PLAYING") s["state"] = "STOPPED";
  }
  return pos;
}

// The library's duration of the item that a media server URL names, in
// seconds; -1 when the URL names none.
long mediaDuration(const std::string& root, const std::string& url) {
  size_t at = url.find("://");
  if (at == std::string::npos) return -1;
  at = url.find('/', at + 3);                   // the path
  if (at == std::string::npos) return -1;
  at = url.find('/', at + 1);                   // behind the delivery word
  if (at == std::string::npos) return -1;
  const size_t end = url.find_first_of(".?,/", at + 1);
  const std::string dbID = url.substr(at + 1, end == std::string::npos ? std::string::npos : end - at - 1);
  const std::string lib = sim::read_file(root + "/sim/media.tsv");
  size_t start = 0;
  while (start < lib.size()) {
    size_t stop = lib.find('\n', start);
    if (stop == std::string::npos) stop = lib.size();
    std::vector<std::string> f;
    size_t from = start;
    while (from <= stop) {
      size_t tab = lib.find('\t', from);
      if (tab == std::string::npos || tab > stop) tab = stop;
      f.push_back(lib.substr(from, tab - from));
      from = tab + 1;
    }
    start = stop + 1;
    if (f.size() < 5 || f[0].empty() || f[0][0] == '#' || f[1] != dbID) continue;
    long total = 0;
    size_t p = 0;
    while (p <= f[4].size()) {
      size_t colon = f[4].find(':', p);
      if (colon == std::string::npos) colon = f[4].size();
      total = total * 60 + atol(f[4].substr(p, colon - p).c_str());
      p = colon + 1;
    }
    return total;
  }
  return -1;
}

void setPos(State& s, double pos) {
  char buf[64];
  snprintf(buf, sizeof buf, "%.3f", pos);
  s["basePos"] = buf;
  s["sinceMs"] = std::to_string(nowMs());
}

}  // namespace

int main(int argc, char** argv) {
  const std::string root = sim::root(argv[0], "/usr/local/apache/bin/php");
  sim::log_call(root, argc, argv);
  std::map<std::string, std::string> opt;
  for (int i = 2; i < argc; ++i) {
    std::string a = argv[i];
    size_t eq = a.find('=');
    if (a.size() > 1 && a[0] == '-' && eq != std::string::npos) opt[a.substr(1, eq - 1)] = a.substr(eq + 1);
  }
  const std::string action = opt["c"], device = opt["d"];
  if (action.empty() || device.empty()) {
    printf("<?xml version=\"1.0\"?><root><status>1</status><error>usage</error></root>\n");
    return 0;
  }
  std::string name;
  for (char c : device) name += isalnum(static_cast<unsigned char>(c)) ? c : '_';
  const std::string dir = root + "/sim/vexairplay";
  mkdir((root + "/sim").c_str(), 0755);
  mkdir(dir.c_str(), 0755);
  const std::string file = dir + "/" + name + ".state";
  // One call at a time per device: a status read beside a scrub must not
  // write the old position back. The lock ends with the process.
  const int lock = open((file + ".lock").c_str(), O_CREAT | O_RDWR, 0644);
  if (lock >= 0) flock(lock, LOCK_EX);
  State s = load(file);
  if (s["duration"].empty()) s["duration"] = "60";
  if (!s["fail"].empty()) {
    printf("<?xml version=\"1.0\"?><root><status>1</status><error>device refused</error></root>\n");
    return 0;
  }
  double pos = position(s);
  std::string extra;
  if (action == "play") {
    s["url"] = opt["u"];
    const long known = mediaDuration(root, opt["u"]);
    if (known > 0) s["duration"] = std::to_string(known);
    s["title"] = opt["t"];
    s["thumb"] = opt["i"];
    s["state"] = "PLAYING";
    setPos(s, 0);
  } else if (action == "pause") {
    if (s["state"] == "PLAYING") s["state"] = "PAUSED";
    setPos(s, pos);
  } else if (action == "resume") {
    if (s["state"] == "PAUSED") s["state"] = "PLAYING";
    setPos(s, pos);
  } else if (action == "scrub") {
    setPos(s, std::min(atof(opt["t"].c_str()), atof(s["duration"].c_str())));
  } else if (action == "stop" || action == "stop_only") {
    s["state"] = "STOPPED";
    s["url"].clear();
    setPos(s, 0);
  } else if (action == "photo") {
    s["photo"] = opt["u"];
  } else if (action == "status") {
    char buf[160];
    snprintf(buf, sizeof buf, "<duration>%.1f</duration><position>%.1f</position><state>%s</state>",
             atof(s["duration"].c_str()), pos, s["state"].empty() ? "STOPPED" : s["state"].c_str());
    extra = buf;
  } else {
    printf("<?xml version=\"1.0\"?><root><status>1</status><error>unknown action</error></root>\n");
    return 0;
  }
  save(file, s);
  printf("<?xml version=\"1.0\"?><root><status>0</status>%s</root>\n", extra.c_str());
  return 0;
}
