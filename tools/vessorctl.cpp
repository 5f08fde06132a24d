// vessorctl: sends one command to the daemon and prints its reply.
//
//   vessorctl [--socket PATH] [--get NODE] COMMAND [name=value ...]
//   vessorctl [--socket PATH] [--get NODE] --raw FILE|-
//
// Exit status: 0 when the reply's status is 0 (or "ECHO"), 1 for any other
// reply, 2 for a usage error, 3 when no reply came.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

#include "vessorClient.h"

namespace {

int usage(const char* why) {
  if (why) std::fprintf(stderr, "vessorctl: %s\n", why);
  std::fprintf(stderr,
               "usage: vessorctl [--socket PATH] [--get NODE] COMMAND [name=value ...]\n"
               "       vessorctl [--socket PATH] [--get NODE] --raw FILE|-\n");
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

}  // namespace

int main(int argc, char** argv) {
  std::string socketPath = vessorclient::default_socket_path();
  std::string getNode;
  std::string rawSource;
  bool raw = false;
  int i = 1;
  for (; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--socket" || a == "--get" || a == "--raw") {
      if (i + 1 >= argc) return usage((a + " needs a value").c_str());
      std::string v = argv[++i];
      if (a == "--socket") socketPath = v;
      else if (a == "--get") getNode = v;
      else raw = true, rawSource = v;
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

  std::string reply, error;
  if (vessorclient::request(socketPath, packet, reply, &error) != 0) {
    std::fprintf(stderr, "vessorctl: %s\n", error.c_str());
    return 3;
  }
  if (getNode.empty()) {
    std::fwrite(reply.data(), 1, reply.size(), stdout);
    if (!reply.empty() && reply.back() != '\n') std::fputc('\n', stdout);
  } else {
    std::string text;
    if (!vessorclient::reply_node_text(reply, getNode, text)) {
      std::fprintf(stderr, "vessorctl: no %s in the reply\n", getNode.c_str());
      return 1;
    }
    std::printf("%s\n", text.c_str());
  }
  return vessorclient::reply_succeeded(reply) ? 0 : 1;
}
