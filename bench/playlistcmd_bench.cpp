// Playlist commands through the daemon's socket against the store's own
// operations on the same rows: a batch add by parameter file, a page read
// at the end of a long playlist, and an insert at the front. Each at two
// sizes, to show how it grows. Prints one Markdown section.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "benchTiming.h"
#include "foundation/rootPath.h"
#include "playlist/SqlitePlaylist.h"
#include "benchDaemon.h"
#include "vessorClient.h"


namespace {


using benchtiming::fmt_time;
using benchtiming::median_of;
using benchtiming::seconds_of;

std::string g_socket;
std::string g_root;
int g_failures = 0;

std::string command(const std::string& name, const vessorclient::paramList_t& params) {
  std::string reply;
  if (vessorclient::request(g_socket, vessorclient::build_packet(name, params), reply) != 0 ||
      !vessorclient::reply_succeeded(reply))
    ++g_failures;
  return reply;
}

std::string item_path(int i) { return "/share/Public/Music/track" + std::to_string(i) + ".mp3"; }

// The add file of `n` items for `title`.
std::string write_add_file(const std::string& title, int n) {
  std::string text = "<root><playlist>" + title + "</playlist><appType>bench</appType>";
  for (int i = 0; i < n; ++i)
    text += "<item mediaType=\"audio\" contentType=\"file\">" + item_path(i) + "</item>";
  text += "</root>";
  const std::string path = g_root + "/tmp/bench-add.xml";
  std::ofstream(path) << text;
  return path;
}

int fresh(CSqlitePlaylist& db, const std::string& title) {
  db.addPlaylist(title.c_str(), MEDIA_AUDIO, "bench", nullptr, nullptr);
  return db.getPlaylistID(title, "bench");
}

void fill(CSqlitePlaylist& db, int id, int n) {
  db.transBegin();
  for (int i = 0; i < n; ++i) db.transAddElmInPlaylist(id, MEDIA_AUDIO, CONTENT_FILE, item_path(i).c_str(), i);
  db.transEnd();
}

int g_serial = 0;
std::string next_title() { return "p" + std::to_string(++g_serial); }

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  g_root = benchdaemon::make_root();
  if (g_root.empty()) return 1;
  vessord::set_test_root(g_root);
  g_socket = benchdaemon::socket_of(g_root);
  const pid_t pid = benchdaemon::spawn_daemon(g_root);
  if (pid < 0) {
    std::fprintf(stderr, "playlistcmd_bench: the daemon did not start\n");
    return 1;
  }
  CSqlitePlaylist db;  // the same file as the daemon's, through SQLite's locking

  std::printf("## Playlist commands through the socket\n\n");
  std::printf("Each command is one connection to the daemon in a simulated root; the baseline is the store's\n");
  std::printf("own operation on the same rows, in this process, on the same database file. Medians of 3 to 5.\n\n");
  std::printf("| Work | Size | Socket command | Store alone | Ratio |\n| --- | --- | --- | --- | --- |\n");

  for (int n : {1000, 10000}) {
    double viaSocket = median_of(3, [&] {
      const std::string path = write_add_file(next_title(), n);
      command("BatchAddPlaylist", {{"filePath", path}});
    });
    double direct = median_of(3, [&] { fill(db, fresh(db, next_title()), n); });
    std::printf("| BatchAddPlaylist of N items | N = %d | %s | %s | %.1f× |\n", n, fmt_time(viaSocket).c_str(),
                fmt_time(direct).c_str(), viaSocket / direct);
  }

  for (int n : {10000, 100000}) {
    const std::string title = next_title();
    const int id = fresh(db, title);
    fill(db, id, n);
    const std::string start = std::to_string(n - 1000);
    double viaSocket = median_of(5, [&] {
      command("ListContentOfPlaylist", {{"playlist", title}, {"appType", "bench"}, {"start", start}, {"count", "1000"}});
    });
    double direct = median_of(5, [&] {
      std::vector<playlistElm_s> rows;
      db.getPlaylistElmsByPage(rows, id, n - 1000, 1000);
    });
    std::printf("| ListContentOfPlaylist, last 1,000 rows | %d rows | %s | %s | %.1f× |\n", n,
                fmt_time(viaSocket).c_str(), fmt_time(direct).c_str(), viaSocket / direct);
  }

  for (int n : {1000, 10000}) {
    const std::string title = next_title();
    fill(db, fresh(db, title), n);
    const std::string other = next_title();
    fill(db, fresh(db, other), n);
    double viaSocket = median_of(5, [&] {
      command("AddContent", {{"playlist", title},
                             {"contentType", "file"},
                             {"mediaType", "audio"},
                             {"content", "/share/Public/front.mp3"},
                             {"appType", "bench"},
                             {"orderNum", "0"}});
    });
    double direct = median_of(5, [&] {
      db.addElmInPlaylist(other.c_str(), MEDIA_AUDIO, CONTENT_FILE, "bench", "/share/Public/front.mp3", 0);
    });
    std::printf("| AddContent at position 0 | %d rows | %s | %s | %.1f× |\n", n, fmt_time(viaSocket).c_str(),
                fmt_time(direct).c_str(), viaSocket / direct);
  }
  std::printf("\nFailed requests: %d.\n", g_failures);

  benchdaemon::stop_daemon(pid);
  std::system(("rm -rf '" + g_root + "'").c_str());
  return g_failures == 0 ? 0 : 1;
}
