// vessorctl: sends one command to the daemon and prints its reply.
//
//   vessorctl [OPTIONS] COMMAND [name=value ...]
//   vessorctl [OPTIONS] --raw FILE|-
//
//   --socket PATH   the daemon's socket
//   --get N1[,N2..] print only these nodes' texts, tab-separated
//   --watch COUNT   send the same packet COUNT times (0: until interrupted),
//   --every SECONDS   SECONDS apart (default 1): a status poll
//
// Exit status: 0 when the (last) reply's status is 0 (or "ECHO"), 1 for any
// other reply, 2 for a usage error, 3 when no reply came.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "vessorClient.h"

namespace {

int usage(const char* why) {
  if (why) std::fprintf(stderr, "vessorctl: %s\n", why);
  std::fprintf(stderr,
               "usage: vessorctl [--socket PATH] [--get NODE[,NODE..]] [--watch COUNT [--every SECONDS]]\n"
               "                 COMMAND [name=value ...]\n"
               "       vessorctl [same options] --raw FILE|-\n");
  return 2;
}

bool read_packet(const std::string& source, std::string& packet) {
  if (source == "-") {
    packet.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    return true;
  }
  std::ifstream in(source, std::ios::binary);
  if (!in) return false;
  std::ostringstream ss;
  ss << in.rdbuf();
  packet = ss.str();
  return true;
}

// A whole non-negative number, or false.
bool parse_count(const std::string& text, long& out) {
  if (text.empty() || text.size() > 9 || text.find_first_not_of("0123456789") != std::string::npos) return false;
  out = std::strtol(text.c_str(), nullptr, 10);
  return true;
}

std::vector<std::string> split_nodes(const std::string& list) {
  std::vector<std::string> nodes;
  size_t start = 0;
  for (;;) {
    size_t comma = list.find(',', start);
    nodes.push_back(list.substr(start, comma == std::string::npos ? std::string::npos : comma - start));
    if (comma == std::string::npos) return nodes;
    start = comma + 1;
  }
}

// Prints the reply, or the chosen nodes; false when a chosen node is missing.
bool print_reply(const std::string& reply, const std::string& getNodes) {
  if (getNodes.empty()) {
    std::fwrite(reply.data(), 1, reply.size(), stdout);
    if (!reply.empty() && reply.back() != '\n') std::fputc('\n', stdout);
    std::fflush(stdout);
    return true;
  }
  std::string line;
  bool all = true;
  const std::vector<std::string> nodes = split_nodes(getNodes);
  for (const std::string& node : nodes) {
    std::string text;
    if (!vessorclient::reply_node_text(reply, node, text)) {
      std::fprintf(stderr, "vessorctl: no %s in the reply\n", node.c_str());
      all = false;
      text = "-";
    }
    if (!line.empty()) line += '\t';
    line += text;
  }
  // One missing node prints nothing; in a list "-" keeps the columns.
  if (all || nodes.size() > 1) std::printf("%s\n", line.c_str());
  std::fflush(stdout);
  return all;
}

}  // namespace

int main(int argc, char** argv) {
  std::string socketPath = vessorclient::default_socket_path();
  std::string getNode;
  std::string rawSource;
  bool raw = false;
  long watch = -1;
  long every = 1;
  int i = 1;
  for (; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--socket" || a == "--get" || a == "--raw" || a == "--watch" || a == "--every") {
      if (i + 1 >= argc) return usage((a + " needs a value").c_str());
      std::string v = argv[++i];
      if (a == "--socket") socketPath = v;
      else if (a == "--get") getNode = v;
      else if (a == "--watch") {
        if (!parse_count(v, watch)) return usage("--watch needs a count");
      } else if (a == "--every") {
        if (!parse_count(v, every)) return usage("--every needs whole seconds");
      } else {
        raw = true, rawSource = v;
      }
    } else if (a == "-h" || a == "--help") {
      usage(nullptr);
      return 0;
    } else if (a.size() > 1 && a[0] == '-' && a[1] == '-') {
      return usage(("unknown option " + a).c_str());
    } else {
      break;
    }
  }

  std::string packet;
  if (raw) {
    if (i != argc) return usage("--raw takes no command");
    if (!read_packet(rawSource, packet)) return usage(("cannot read " + rawSource).c_str());
  } else {
    if (i >= argc) return usage("no command");
    std::string command = argv[i++];
    vessorclient::paramList_t params;
    for (; i < argc; ++i) {
      const char* eq = std::strchr(argv[i], '=');
      if (!eq) return usage((std::string("not name=value: ") + argv[i]).c_str());
      std::string name(argv[i], static_cast<size_t>(eq - argv[i]));
      if (!vessorclient::valid_param_name(name)) return usage(("bad parameter name: " + name).c_str());
      params.emplace_back(name, eq + 1);
    }
    packet = vessorclient::build_packet(command, params);
  }

  // Without --watch the packet goes once; with it, COUNT times (0: for ever).
  const long rounds = watch < 0 ? 1 : watch;
  bool ok = false;
  for (long n = 0; rounds == 0 || n < rounds; ++n) {
    if (n > 0) std::this_thread::sleep_for(std::chrono::seconds(every));
    std::string reply, error;
    if (vessorclient::request(socketPath, packet, reply, &error) != 0) {
      std::fprintf(stderr, "vessorctl: %s\n", error.c_str());
      return 3;
    }
    ok = print_reply(reply, getNode) && vessorclient::reply_succeeded(reply);
  }
  return ok ? 0 : 1;
}
