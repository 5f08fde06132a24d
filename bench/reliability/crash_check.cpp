// The playlist store under sudden death: CRASH_ROUNDS (200) rounds, each
// one write sent through the socket (AddContent at a position, ReOrderContent,
// DelContent, or a BatchAddPlaylist of 2000 items) while the daemon is killed
// with SIGKILL at a random moment, then restarted. After each restart:
// every acknowledged write is there, a write that was not acknowledged is
// either wholly there or not at all, a batch is all or none, the order
// numbers of the playlist are dense, and the database file is the same one
// (never moved aside and recreated). Prints one Markdown section.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "../benchDaemon.h"
#include "vessorClient.h"

namespace {

std::string g_root, g_sock;
constexpr int kBatch = 2000;

struct row_s {
  std::string uuid, content;
  int order = -1;
};

std::string request(const std::string& name, const vessorclient::paramList_t& params, bool& acked) {
  std::string reply;
  acked = vessorclient::request(g_sock, vessorclient::build_packet(name, params), reply) == 0 &&
          vessorclient::reply_succeeded(reply);
  return reply;
}

// The rows of a playlist in order; `ok` false when it could not be read.
std::vector<row_s> rows_of(const std::string& title, bool& ok) {
  bool acked = false;
  const std::string reply =
      request("ListContentOfPlaylist", {{"playlist", title}, {"appType", "music"}, {"start", "0"}, {"count", "100000"}},
              acked);
  std::vector<row_s> rows;
  ok = acked;
  size_t at = 0;
  auto field = [&](size_t from, size_t to, const char* tag) {
    const std::string open = std::string("<") + tag + ">", close = std::string("</") + tag + ">";
    const size_t a = reply.find(open, from);
    if (a == std::string::npos || a > to) return std::string();
    const size_t b = reply.find(close, a);
    return reply.substr(a + open.size(), b - a - open.size());
  };
  while ((at = reply.find("<item>", at)) != std::string::npos) {
    const size_t end = reply.find("</item>", at);
    row_s r;
    r.uuid = field(at, end, "uuid");
    r.content = field(at, end, "content");
    r.order = std::atoi(field(at, end, "orderNum").c_str());
    rows.push_back(r);
    at = end;
  }
  return rows;
}

ino_t inode_of(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

std::string find_db() {
  std::string out;
  if (FILE* p = ::popen(("find '" + g_root + "' -name playlist.db").c_str(), "r")) {
    char buf[1024];
    if (std::fgets(buf, sizeof buf, p)) out = buf;
    ::pclose(p);
  }
  while (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  const int rounds = std::getenv("CRASH_ROUNDS") ? std::atoi(std::getenv("CRASH_ROUNDS")) : 200;
  g_root = benchdaemon::make_root();
  if (g_root.empty()) return 1;
  g_sock = benchdaemon::socket_of(g_root);
  pid_t pid = benchdaemon::spawn_daemon(g_root);
  if (pid < 0) return 1;
  bool acked = false;
  request("CreatePlaylist", {{"playlist", "P"}, {"playlistType", "audio"}, {"appType", "music"}, {"owner", "admin"}},
          acked);
  for (int i = 0; i < 20; ++i)
    request("AddContent", {{"playlist", "P"}, {"appType", "music"}, {"contentType", "file"}, {"mediaType", "audio"},
                           {"content", "/share/Public/seed" + std::to_string(i) + ".mp3"}},
            acked);
  const std::string db = find_db();
  const ino_t inode = inode_of(db);

  std::mt19937 rng(20261123);
  std::set<std::string> present;  // contents the store must hold
  bool ok = false;
  for (const row_s& r : rows_of("P", ok)) present.insert(r.content);
  int acks = 0, unacked = 0, violations = 0, batchesWhole = 0, batchesNone = 0, restarts = 0;
  auto violation = [&](const std::string& what) {
    if (violations++ < 10) std::fprintf(stderr, "crash_check: %s\n", what.c_str());
  };

  for (int round = 0; round < rounds; ++round) {
    const bool rowsOk = ok;
    std::vector<row_s> rows = rows_of("P", ok);
    if (!rowsOk || rows.empty()) break;
    const int op = static_cast<int>(rng() % 4);
    const std::string content = "/share/Public/r" + std::to_string(round) + ".mp3";
    const std::string batch = "B" + std::to_string(round);
    const row_s victim = rows[rng() % rows.size()];
    const int from = static_cast<int>(rng() % rows.size()), to = static_cast<int>(rng() % rows.size());
    const row_s moved = rows[static_cast<size_t>(from)];
    if (op == 3) {
      request("CreatePlaylist",
              {{"playlist", batch}, {"playlistType", "audio"}, {"appType", "music"}, {"owner", "admin"}}, acked);
      std::ofstream f(g_root + "/tmp/crash-batch.xml");
      f << "<root><playlist>" << batch << "</playlist><appType>music</appType>";
      for (int i = 0; i < kBatch; ++i) f << "<item mediaType=\"audio\" contentType=\"file\">/share/Public/b" << i << ".mp3</item>";
      f << "</root>";
    }
    // The killer: a random moment within the write's usual time.
    const int delayUs = static_cast<int>(rng() % (op == 3 ? 80000 : 40000));
    std::thread killer([pid, delayUs] {
      std::this_thread::sleep_for(std::chrono::microseconds(delayUs));
      ::kill(pid, SIGKILL);
    });
    switch (op) {
      case 0:
        request("AddContent", {{"playlist", "P"}, {"appType", "music"}, {"contentType", "file"},
                               {"mediaType", "audio"}, {"content", content},
                               {"orderNum", std::to_string(rng() % (rows.size() + 1))}},
                acked);
        break;
      case 1:
        request("ReOrderContent", {{"playlist", "P"}, {"appType", "music"}, {"origOrder", std::to_string(from)},
                                   {"newOrder", std::to_string(to)}},
                acked);
        break;
      case 2: request("DelContent", {{"playlist", "P"}, {"appType", "music"}, {"uuid", victim.uuid}}, acked); break;
      default: request("BatchAddPlaylist", {{"filePath", g_root + "/tmp/crash-batch.xml"}}, acked); break;
    }
    killer.join();
    ::waitpid(pid, nullptr, 0);
    acked ? ++acks : ++unacked;
    pid = benchdaemon::spawn_daemon(g_root);
    ++restarts;
    if (pid < 0) {
      violation("the daemon did not come back");
      break;
    }

    std::vector<row_s> after = rows_of("P", ok);
    std::set<std::string> now;
    for (size_t i = 0; i < after.size(); ++i) {
      now.insert(after[i].content);
      if (after[i].order != static_cast<int>(i)) violation("order numbers not dense after round " + std::to_string(round));
    }
    // What must be there, what must be gone, and what may be either.
    if (op == 0 && acked && !now.count(content)) violation("acknowledged add lost: " + content);
    if (op == 2 && acked && now.count(victim.content)) violation("acknowledged delete undone: " + victim.content);
    if (op == 1 && acked && (to >= static_cast<int>(after.size()) || after[static_cast<size_t>(to)].content != moved.content))
      violation("acknowledged move lost in round " + std::to_string(round));
    if (op == 0 && now.count(content)) present.insert(content);
    if (op == 2 && !now.count(victim.content)) present.erase(victim.content);
    if (now != present) violation("playlist changed beyond the write in round " + std::to_string(round));
    if (op == 3) {
      bool listed = false;
      const size_t n = rows_of(batch, listed).size();
      if (n == static_cast<size_t>(kBatch)) ++batchesWhole;
      else if (n == 0) ++batchesNone;
      else violation("batch half there: " + std::to_string(n) + " of " + std::to_string(kBatch));
      if (acked && n != static_cast<size_t>(kBatch)) violation("acknowledged batch lost");
    }
    if (inode_of(db) != inode) violation("the database file was replaced");
  }
  benchdaemon::stop_daemon(pid);
  std::system(("rm -rf '" + g_root + "'").c_str());

  std::printf("## Sudden death during playlist writes\n\n");
  std::printf("%d rounds: one write through the socket (AddContent at a position, ReOrderContent, DelContent,\n",
              rounds);
  std::printf("or BatchAddPlaylist of %d items), SIGKILL at a random moment within 40 ms (80 ms for a batch),\n", kBatch);
  std::printf("restart, check.\n\n");
  std::printf("| Restarts | Writes acknowledged | Cut before their reply | Batches whole | Batches none | Violations |\n");
  std::printf("| ---: | ---: | ---: | ---: | ---: | ---: |\n");
  std::printf("| %d | %d | %d | %d | %d | %d |\n", restarts, acks, unacked, batchesWhole, batchesNone, violations);
  std::printf("\nChecked after each restart: acknowledged writes present, unacknowledged ones wholly there or not,\n");
  std::printf("batches all or none, order numbers dense, the same database file.\n");
  return violations == 0 ? 0 : 1;
}
