// Hostile text everywhere a client's text goes: every command that takes
// text, each of its text parameters, with some 300 payloads (both quotes,
// $(...), backticks, ; | &&, newlines, %n, '\'', NUL, long and non-UTF-8
// texts, SQL breaking out of its quotes). Checked: no canary file is ever
// made, the stand-ins are only ever called by their own names, the store's
// schema is unchanged, and a title or content is either stored exactly as
// sent or refused with a failure status. Then the same payloads in every
// kind of discovery record and in the media agent's replies, with players
// made on the devices they name. Prints one Markdown section.
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "../benchDaemon.h"
#include "vessorClient.h"

namespace {

std::string g_root, g_sock;

std::vector<std::string> base_payloads(const std::string& canary) {
  const std::string touch = "touch " + canary;
  return {
      "'; " + touch + "; '", "\"; " + touch + "; \"", "$(" + touch + ")", "`" + touch + "`", "; " + touch,
      "| " + touch,          "&& " + touch,          "\n" + touch,       "'\\''; " + touch + "; '\\''",
      "${IFS}" + touch,      "%n%n%n%s%s%s",         "' OR '1'='1",      "'; DROP TABLE playlist; --",
      "\"; DROP TABLE playlist; --", "x' UNION SELECT sql FROM sqlite_master --", "-rf /",
      "--help",              "~root/.ssh",           "../../etc/passwd", "*",
      "a\\",                 "\\$(" + touch + ")",   "<root><x/></root>", "&amp;&lt;",
      "caf\xc3\xa9 \xe9\x9b\xbb",  "\xff\xfe\xc0\x80",    std::string(3000, 'A'), std::string("nul\0", 4) + touch,
  };
}

std::vector<std::string> payloads(const std::string& canary) {
  const std::vector<std::string> base = base_payloads(canary);
  std::vector<std::string> out;
  // Each payload alone, after a harmless prefix, and inside a harmless name.
  for (const std::string& b : base) {
    out.push_back(b);
    out.push_back("name" + b);
    out.push_back("/share/Public/" + b + ".mp3");
    out.push_back(b + " " + b);
    out.push_back("x" + b + "y" + b);
    out.push_back("'" + b + "'");
    out.push_back("\"" + b + "\"");
    out.push_back(b + "\t" + b);
    out.push_back("-" + b);
    out.push_back(b.substr(0, b.size() / 2));
    out.push_back(b + "#");
  }
  return out;
}

int status_of(const std::string& reply) {
  std::string s;
  return vessorclient::reply_node_text(reply, "status", s) ? std::atoi(s.c_str()) : -9999;
}

std::string send(const std::string& name, const vessorclient::paramList_t& params) {
  std::string reply;
  vessorclient::request(g_sock, vessorclient::build_packet(name, params), reply);
  return reply;
}

std::string schema_of(const std::string& db) {
  std::string out;
  sqlite3* h = nullptr;
  if (sqlite3_open_v2(db.c_str(), &h, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_exec(
        h, "SELECT sql FROM sqlite_master ORDER BY name",
        [](void* o, int n, char** v, char**) {
          for (int i = 0; i < n; ++i) *static_cast<std::string*>(o) += std::string(v[i] ? v[i] : "") + "\n";
          return 0;
        },
        &out, nullptr);
  }
  sqlite3_close(h);
  return out;
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

// A daemon that gave no reply may be on its way out: up to two seconds.
bool ended(pid_t pid) {
  for (int i = 0; i < 200; ++i) {
    if (::waitpid(pid, nullptr, WNOHANG) == pid) return true;
    ::usleep(10000);
  }
  return false;
}

std::string xml_text(const std::string& t) {
  std::string out;
  for (char c : t) {
    if (c == '&') out += "&amp;";
    else if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else if (c == '\0') out += "?";
    else out += c;
  }
  return out;
}

// A line of an mDNS record: no line break inside, as avahi-browse prints.
std::string one_line(const std::string& t) {
  std::string out;
  for (char c : t) out += c == '\n' || c == '\0' ? ' ' : c;
  return out.substr(0, 400);
}

void write_file(const std::string& path, const std::string& text) {
  if (FILE* f = std::fopen(path.c_str(), "w")) {
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
  }
}

// Every device id of a listing reply.
std::vector<std::string> device_ids(const std::string& reply) {
  std::vector<std::string> ids;
  size_t at = 0;
  while ((at = reply.find("<deviceId>", at)) != std::string::npos) {
    const size_t end = reply.find("</deviceId>", at);
    std::string id = reply.substr(at + 10, end - at - 10);
    // The reply is XML: its entities back to text.
    for (const auto& e : std::vector<std::pair<std::string, std::string>>{
             {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}})
      for (size_t k; (k = id.find(e.first)) != std::string::npos;) id.replace(k, e.first.size(), e.second);
    ids.push_back(id);
    at = end;
  }
  return ids;
}

}  // namespace

int main() {
  signal(SIGPIPE, SIG_IGN);
  g_root = benchdaemon::make_root();
  if (g_root.empty()) return 1;
  g_sock = benchdaemon::socket_of(g_root);
  pid_t pid = benchdaemon::spawn_daemon(g_root);
  if (pid < 0) return 1;
  const std::string canary = g_root + "/tmp/pwned";
  const std::vector<std::string> hostile = payloads(canary);
  send("CreatePlaylist", {{"playlist", "P"}, {"playlistType", "audio"}, {"appType", "music"}, {"owner", "admin"}});
  send("AddContent", {{"playlist", "P"}, {"appType", "music"}, {"contentType", "file"}, {"mediaType", "audio"},
                      {"content", "/share/Public/a.mp3"}});
  const std::string db = find_db();
  const std::string schema = schema_of(db);

  // Every command that takes text, with its text parameters; the others
  // get harmless values.
  struct target_s {
    const char* command;
    std::vector<std::string> params;
  };
  const std::vector<target_s> targets = {
      {"CreatePlaylist", {"playlist", "appType", "owner", "tag", "playlistType"}},
      {"AddContent", {"playlist", "appType", "content", "contentType", "mediaType"}},
      {"SizeOfPlaylist", {"appType"}},
      {"ListPlaylist", {"appType", "owner"}},
      {"SizeOfListContent", {"playlist", "appType"}},
      {"ListContentOfPlaylist", {"playlist", "appType"}},
      {"DelContent", {"playlist", "appType", "uuid"}},
      {"ReOrderContent", {"playlist", "appType"}},
      {"DupPlaylist", {"playlist_src", "playlist_dest", "appType"}},
      {"DelPlaylist", {"playlist", "appType"}},
      {"BatchAddPlaylist", {"filePath"}},
      {"BatchDelPlaylist", {"filePath"}},
      {"GetUpnpObjectID", {"filePath"}},
      {"ListRender", {"renderType"}},
      {"SetPlaylist", {"dev", "playlist", "appType"}},
      {"Play", {"dev"}},
      {"Seek", {"dev", "position"}},
      {"SetTrackByContent", {"dev", "content"}},
      {"GetPlayerStatus", {"dev"}},
      {"SetAttributes", {"dev", "attr"}},
      {"SetAudioAndSubtitle", {"dev", "position", "externalSubtitle", "sseek", "ssize", "scolor", "sencoding",
                               "realSubtitlePath"}},
      {"SetPlayMode", {"dev", "playMode"}},
  };
  const vessorclient::paramList_t defaults = {
      {"playlist", "P"},       {"appType", "music"}, {"owner", "admin"},       {"tag", "t"},
      {"playlistType", "audio"}, {"contentType", "file"}, {"mediaType", "audio"}, {"content", "/share/Public/a.mp3"},
      {"uuid", "1"},           {"origOrder", "0"},   {"newOrder", "0"},        {"playlist_src", "P"},
      {"playlist_dest", "Q"},  {"dev", "ANALOG_card0"}, {"position", "00:00:01"}, {"attr", "SAMPLERATE=44100"},
      {"playMode", "NORMAL"},  {"sid", "0"},
  };
  int requests = 0, refused = 0, stored = 0, altered = 0, deaths = 0, contractEnds = 0;
  std::set<std::string> endedBy;
  for (const target_s& t : targets) {
    for (const std::string& param : t.params) {
      for (const std::string& value : hostile) {
        vessorclient::paramList_t params;
        for (const auto& d : defaults) params.push_back(d.first == param ? std::make_pair(d.first, value) : d);
        bool has = false;
        for (const auto& p : params) has = has || p.first == param;
        if (!has) params.push_back({param, value});
        if (std::string(t.command) == "GetUpnpObjectID" && value.empty()) continue;  // ends the daemon by contract
        const std::string reply = send(t.command, params);
        ++requests;
        if (reply.empty() && ended(pid)) {
          // The daemon ended: GetUpnpObjectID whose filePath was cut off by
          // the 4096-byte read ends it by contract. The supervisor's part.
          ++contractEnds;
          endedBy.insert(t.command);
          pid = benchdaemon::spawn_daemon(g_root);
          if (pid < 0) return 1;
        } else if (reply.empty()) {
          if (deaths++ < 5) {
            std::string shown = value.substr(0, 60);
            for (char& c : shown)
              if (static_cast<unsigned char>(c) < 32) c = '?';
            std::fprintf(stderr, "injection_check: no reply to %s %s=[%s]\n", t.command, param.c_str(), shown.c_str());
          }
        }
        const int st = status_of(reply);
        // A stored title must read back exactly.
        if (std::string(t.command) == "CreatePlaylist" && param == "playlist") {
          if (st != 0) {
            ++refused;
          } else {
            const std::string size = send("SizeOfListContent", {{"playlist", value}, {"appType", "music"}});
            status_of(size) == 0 ? ++stored : ++altered;
            send("DelPlaylist", {{"playlist", value}, {"appType", "music"}});
          }
        }
      }
    }
  }
  // Hostile discovery records of every kind, then players on what they
  // name, with hostile replies of the media agent while they play.
  const std::vector<std::string> base = base_payloads(canary);
  std::string dlna = "<root><status>success</status>", cast, airplay, raop, outputs;
  for (size_t i = 0; i < base.size(); ++i) {
    const std::string& b = base[i];
    const std::string line = one_line(b);
    dlna += "<device><deviceId>uuid:" + xml_text(b) + "</deviceId><deviceName>" + xml_text(b) +
            "</deviceName><type>video,photo,audio</type><ip>" + xml_text(b) + "</ip></device>";
    cast += "=;eth0;IPv4;" + line + ";_googlecast._tcp;local;h;10.0.0.9;8009;\"id=" + line + "\" \"md=" + line +
            "\" \"fn=" + line + "\"\n";
    airplay += "=;lo;IPv4;" + line + ";_airplay._tcp;local;h;127.0.0.1;7000;\"deviceid=" + line + "\" \"model=" +
               line + "\"\n";
    raop += "=;lo;IPv4;" + line + "@" + line + ";_raop._tcp;local;h;127.0.0.1;5000;\"et=0,1\" \"cn=0,1\"\n";
    if (i < 8)
      outputs += "Output " + std::to_string(i + 1) + " (" + line + ") is enabled uid:" + line +
                 " devType:3 sampleRate:44100 sampleRateMode:0 dsd:0 dsdMode:0 hwParam:hw:CARD=0,DEV=0\n";
  }
  write_file(g_root + "/sim/dlna-devices.xml", dlna + "</root>");
  write_file(g_root + "/sim/avahi/_googlecast._tcp.txt", cast);
  write_file(g_root + "/sim/avahi/_airplay._tcp.txt", airplay);
  write_file(g_root + "/sim/avahi/_raop._tcp.txt", raop);
  write_file(g_root + "/sim/mpc-outputs.txt", outputs);
  std::vector<std::string> ids = device_ids(send("ListRender", {}));
  for (const std::string& id : device_ids(send("ListAirplayRender", {}))) ids.push_back(id);
  ::mkdir((g_root + "/sim/brelctl").c_str(), 0755);
  int players = 0;
  for (size_t i = 0; i < ids.size(); i += 3) {
    // The agent's answers carry the payloads too.
    const std::string& b = xml_text(base[(i / 3) % base.size()]);
    for (const char* command : {"getFilePath", "getContentUrl", "getObjectID", "getPositionInfo"})
      write_file(g_root + "/sim/brelctl/" + command + ".reply",
                 "<root><status>success</status><filePath>" + b + "</filePath><url>" + b + "</url><objectID>" + b +
                     "</objectID><RelTime>" + b + "</RelTime><TrackDuration>" + b + "</TrackDuration></root>");
    const std::string reply = send("SetPlaylist", {{"dev", ids[i]}, {"playlist", "P"}, {"appType", "music"}});
    if (status_of(reply) == 0) {
      ++players;
      send("Play", {{"dev", ids[i]}});
    }
  }
  ::sleep(3);  // the players' first passes, with the hostile answers
  for (size_t i = 0; i < ids.size(); i += 3) send("Stop", {{"dev", ids[i]}});
  const std::string discovery = std::to_string(ids.size()) + " hostile devices listed, players made on " +
                                std::to_string(players) + " of them";

  const bool canaryMade = std::system(("test -e '" + canary + "'").c_str()) == 0;
  const bool schemaSame = schema_of(db) == schema;
  // The stand-ins log their own name first on each line.
  std::set<std::string> tools;
  if (FILE* f = std::fopen((g_root + "/sim/calls.log").c_str(), "r")) {
    char line[8192];
    while (std::fgets(line, sizeof line, f)) {
      std::string l = line;
      tools.insert(l.substr(0, l.find(' ')));
    }
    std::fclose(f);
  }
  std::string foreign;
  for (const std::string& tool : tools)
    if (tool.find(g_root) != 0 && tool.find('/') == 0) foreign += " " + tool;
  benchdaemon::stop_daemon(pid);
  benchdaemon::end_music_daemons(g_root);
  std::system(("rm -rf '" + g_root + "'").c_str());

  std::printf("## Hostile text in every parameter\n\n");
  std::printf("%zu payloads in each text parameter of %zu commands: %d requests.\n\n", hostile.size(), targets.size(),
              requests);
  std::printf("| Check | Result |\n| --- | --- |\n");
  std::printf("| canary file made by any payload | %s |\n", canaryMade ? "YES" : "never");
  std::printf("| store schema | %s |\n", schemaSame ? "unchanged" : "CHANGED");
  std::printf("| tools called | %zu stand-ins, by their own names%s |\n", tools.size(),
              foreign.empty() ? "" : (", and:" + foreign).c_str());
  std::printf("| discovery records and the agent's replies | %s |\n", discovery.c_str());
  std::printf("| hostile titles (CreatePlaylist) | %d stored exactly, %d refused with a failure status, %d altered |\n",
              stored, refused, altered);
  std::string ends;
  for (const std::string& e : endedBy) ends += " " + e;
  std::printf("| daemon ended by contract (restarted as the service would) | %d%s%s |\n", contractEnds,
              ends.empty() ? "" : ", by:", ends.c_str());
  std::printf("| other requests without a reply | %d |\n", deaths);
  return !canaryMade && schemaSame && altered == 0 && foreign.empty() && deaths == 0 ? 0 : 1;
}
