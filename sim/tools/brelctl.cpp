// Stand-in for the appliance's agent /usr/bin/brelctl: UPnP and media
// library queries answered from a small library in the root, replies in the
// agent's XML shapes on standard output.
//
// The library is ROOT/sim/media.tsv, one item a line, tab-separated:
//   objectID  dbID  mediaType  filePath  duration  [subtitles]  [startTime]
//   [audioTracks]  [subtitleTracks]
// mediaType is 0 audio, 1 photo, 2 video; duration is hh:mm:ss; subtitles are
// paths separated by '|'; tracks are id:language pairs separated by '|'
// ("1:eng|2:fre"); '#' starts a comment line.
//
// DLNA renderers (transport, position, volume, the XBMC test) are simulated
// per renderer id in common/renderer.cpp; `-c list` prints the devices laid in
// ROOT/sim/dlna-devices.xml.
//
// A test can put a reply of its own in ROOT/sim/brelctl/<command>.reply: it
// is printed as it stands instead of the computed one (for replies that are
// cut, malformed or lack a node). ROOT/sim/brelctl/<command>.delay holds
// seconds (a fraction allowed) that a slow agent takes: a canned reply is
// written first and the call ends after the wait; a computed one follows it.
// Device state of later commands lives in the same folder.
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "common/renderer.h"
#include "common/standin.h"

namespace {

struct MediaItem {
  std::string objectID;
  std::string dbID;
  int mediaType = 4;
  std::string filePath;
  std::string duration;
  std::vector<std::string> subtitles;
  std::string startTime;
  std::vector<std::string> audioTracks;
  std::vector<std::string> subtitleTracks;
};

struct Call {
  std::string root;
  std::string command;
  std::map<std::string, std::string> opts;  // "--objectID" -> value
  bool has(const char* k) const { return opts.count(k) != 0; }
  std::string get(const char* k) const {
    auto it = opts.find(k);
    return it == opts.end() ? std::string() : it->second;
  }
};

std::vector<std::string> split(const std::string& s, char sep) {
  std::vector<std::string> out;
  std::string cur;
  for (char c : s) {
    if (c == sep) {
      out.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  out.push_back(cur);
  return out;
}

std::vector<MediaItem> load_library(const std::string& root) {
  std::vector<MediaItem> items;
  std::istringstream in(sim::read_file(root + "/sim/media.tsv"));
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> f = split(line, '\t');
    if (f.size() < 5) continue;
    MediaItem m;
    m.objectID = f[0];
    m.dbID = f[1];
    m.mediaType = std::atoi(f[2].c_str());
    m.filePath = f[3];
    m.duration = f[4];
    if (f.size() > 5 && !f[5].empty()) m.subtitles = split(f[5], '|');
    if (f.size() > 6) m.startTime = f[6];
    if (f.size() > 7 && !f[7].empty()) m.audioTracks = split(f[7], '|');
    if (f.size() > 8 && !f[8].empty()) m.subtitleTracks = split(f[8], '|');
    items.push_back(m);
  }
  return items;
}

std::string xml_escape(const std::string& s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&apos;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string elem(const char* name, const std::string& text) {
  return std::string("<") + name + ">" + xml_escape(text) + "</" + name + ">";
}

int hhmmss_seconds(const std::string& t) {
  int total = 0;
  for (const std::string& part : split(t, ':')) total = total * 60 + std::atoi(part.c_str());
  return total;
}

// A path that the daemon resolved on disk carries the simulated root in
// front; the library knows appliance paths.
std::string appliance_path(const std::string& root, const std::string& p) {
  if (root.empty()) return p;
  std::vector<std::string> prefixes{root};
  char buf[PATH_MAX];
  if (realpath(root.c_str(), buf)) prefixes.push_back(buf);
  for (const std::string& pre : prefixes)
    if (p.size() > pre.size() && p.compare(0, pre.size(), pre) == 0 && p[pre.size()] == '/')
      return p.substr(pre.size());
  return p;
}

const MediaItem* by_object(const std::vector<MediaItem>& lib, const std::string& id) {
  for (const MediaItem& m : lib)
    if (m.objectID == id) return &m;
  return nullptr;
}

const MediaItem* by_path(const Call& c, const std::vector<MediaItem>& lib) {
  std::string p = appliance_path(c.root, c.get("--filePath"));
  for (const MediaItem& m : lib)
    if (m.filePath == p) return &m;
  return nullptr;
}

const MediaItem* by_db(const std::vector<MediaItem>& lib, const std::string& dbID, const std::string& type) {
  for (const MediaItem& m : lib)
    if (m.dbID == dbID && std::to_string(m.mediaType) == type) return &m;
  return nullptr;
}

// The item a call names by --objectID, --filePath or --dbID/--mediaType.
// Only a library that outlives the pointer will do.
const MediaItem* named_item(const Call& c, std::vector<MediaItem>&& lib) = delete;
const MediaItem* named_item(const Call& c, const std::vector<MediaItem>& lib) {
  if (c.has("--objectID")) return by_object(lib, c.get("--objectID"));
  if (c.has("--filePath")) return by_path(c, lib);
  if (c.has("--dbID")) return by_db(lib, c.get("--dbID"), c.get("--mediaType"));
  return nullptr;
}

std::string extension(const std::string& path) {
  size_t slash = path.rfind('/');
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  return path.substr(dot);
}

std::string content_url(const MediaItem& m, const Call& c) {
  std::string url = "http://127.0.0.1:8200/MediaItems/" + m.dbID + extension(m.filePath);
  if (c.has("--clientType") && !c.get("--clientType").empty()) url += "?client=" + c.get("--clientType");
  return url;
}

std::string failed() { return "<root><status>failed</status></root>\n"; }

int cmd_get_object_id(const Call& c, const std::vector<MediaItem>& lib) {
  const MediaItem* m = named_item(c, lib);
  if (!m) {
    std::cout << failed();
    return 1;
  }
  std::cout << "<root>" << elem("status", "success") << elem("objectID", m->objectID) << "</root>\n";
  return 0;
}

int cmd_get_file_path(const Call& c, const std::vector<MediaItem>& lib) {
  const MediaItem* m = named_item(c, lib);
  if (!m) {
    std::cout << failed();
    return 1;
  }
  std::cout << "<root>" << elem("status", "success") << elem("filePath", m->filePath);
  if (!m->startTime.empty()) std::cout << elem("startTime", m->startTime);
  std::cout << elem("duration", std::to_string(hhmmss_seconds(m->duration))) << "</root>\n";
  return 0;
}

int cmd_get_content_url(const Call& c, const std::vector<MediaItem>& lib) {
  const MediaItem* m = named_item(c, lib);
  if (!m) {
    std::cout << failed();
    return 1;
  }
  std::cout << "<root>" << elem("status", "success") << elem("url", content_url(*m, c)) << "</root>\n";
  return 0;
}

const char* upnp_class(int mediaType) {
  switch (mediaType) {
    case 0: return "object.item.audioItem.musicTrack";
    case 1: return "object.item.imageItem.photo";
    case 2: return "object.item.videoItem";
    default: return "object.item";
  }
}

std::string title_of(const std::string& path) {
  std::string name = path.substr(path.rfind('/') + 1);
  size_t dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

int cmd_browse(const Call& c, const std::vector<MediaItem>& lib) {
  const MediaItem* m = by_object(lib, c.get("--objectID"));
  std::cout << "<root><u:BrowseResponse><Result><DIDL-Lite>";
  if (m) {
    std::string thumb = "http://127.0.0.1:8200/Thumbnails/" + m->dbID + ".jpg";
    std::cout << "<item id=\"" << xml_escape(m->objectID) << "\">" << elem("dc:title", title_of(m->filePath))
              << elem("upnp:class", upnp_class(m->mediaType));
    if (m->mediaType == 0) std::cout << elem("upnp:albumArtURI", thumb);
    std::cout << "<res protocolInfo=\"http-get:*:*:*\" duration=\"" << xml_escape(m->duration) << "\">"
              << xml_escape(content_url(*m, c)) << "</res>";
    if (m->mediaType != 0)
      std::cout << "<res protocolInfo=\"http-get:*:image/jpeg:DLNA.ORG_PN=JPEG_TN\">" << xml_escape(thumb)
                << "</res>";
    std::cout << "</item>";
  }
  std::cout << "</DIDL-Lite></Result>" << elem("NumberReturned", m ? "1" : "0")
            << elem("TotalMatches", m ? "1" : "0") << "</u:BrowseResponse></root>\n";
  return m ? 0 : 1;
}

int cmd_get_external_subtitle(const Call& c, const std::vector<MediaItem>& lib) {
  const MediaItem* m = by_object(lib, c.get("--objectID"));
  std::cout << "<root><u:GetExternalSubtitleResponse><Result><DIDL-Lite>";
  if (m) {
    for (const std::string& s : m->subtitles)
      std::cout << "<ExternalSubtitleTrack>" << elem("Path", s) << elem("Name", s.substr(s.rfind('/') + 1))
                << "</ExternalSubtitleTrack>";
  }
  std::cout << "</DIDL-Lite></Result></u:GetExternalSubtitleResponse></root>\n";
  return m ? 0 : 1;
}

// The URL a renderer gets for an item: through the transcoder when the
// renderer is set to need it.
int cmd_get_content_url_by_mac(const Call& c, const std::vector<MediaItem>& lib) {
  const MediaItem* m = named_item(c, lib);
  if (!m) {
    std::cout << failed();
    return 1;
  }
  std::string url = content_url(*m, c);
  if (sim::renderer_transcodes(c.root, c.get("--uuid")))
    url = "http://127.0.0.1:8200/Transcode/" + m->dbID + extension(m->filePath);
  std::cout << "<root>" << elem("status", "success") << elem("url", url) << "</root>\n";
  return 0;
}

// Audio or subtitle tracks of a video, in the response shape of `response`.
int print_tracks(const Call& c, const std::vector<MediaItem>& lib, const char* response, const char* node,
                 std::vector<std::string> MediaItem::*tracks) {
  const MediaItem* m = by_object(lib, c.get("--objectID"));
  std::cout << "<root><" << response << "><Result><DIDL-Lite>";
  if (m) {
    for (const std::string& t : (*m).*tracks) {
      size_t colon = t.find(':');
      std::cout << "<" << node << ">" << elem("TrackId", t.substr(0, colon))
                << elem("TrackLang", colon == std::string::npos ? "" : t.substr(colon + 1)) << "</" << node << ">";
    }
  }
  std::cout << "</DIDL-Lite></Result></" << response << "></root>\n";
  return m ? 0 : 1;
}

int cmd_get_audio_track(const Call& c, const std::vector<MediaItem>& lib) {
  return print_tracks(c, lib, "u:GetAudioTrackResponse", "AudioTrack", &MediaItem::audioTracks);
}

int cmd_get_subtitle(const Call& c, const std::vector<MediaItem>& lib) {
  return print_tracks(c, lib, "u:GetSubtitleTrackResponse", "SubtitleTrack", &MediaItem::subtitleTracks);
}

// The renderers on the network, as laid in the root; a media server that is
// down is a file saying so.
int cmd_list(const Call& c, const std::vector<MediaItem>&) {
  struct stat st;
  const std::string file = c.root + "/sim/dlna-devices.xml";
  if (::stat(file.c_str(), &st) != 0) {
    std::cout << "<root><status>success</status></root>\n";
    return 0;
  }
  std::cout << sim::read_file(file);
  return 0;
}

using Handler = std::function<int(const Call&, const std::vector<MediaItem>&)>;

const std::map<std::string, Handler>& command_table() {
  static const std::map<std::string, Handler> table{
      {"getObjectID", cmd_get_object_id},
      {"getFilePath", cmd_get_file_path},
      {"getContentUrl", cmd_get_content_url},
      {"browse", cmd_browse},
      {"getExternalSubtitle", cmd_get_external_subtitle},
      {"getContentUrlByMAC", cmd_get_content_url_by_mac},
      {"getAudioTrack", cmd_get_audio_track},
      {"getSubtitle", cmd_get_subtitle},
      {"list", cmd_list},
  };
  return table;
}

}  // namespace

static void pause_for(double seconds) {
  if (!(seconds > 0)) return;
  struct timespec ts;
  ts.tv_sec = static_cast<time_t>(seconds);
  ts.tv_nsec = static_cast<long>((seconds - static_cast<double>(ts.tv_sec)) * 1e9);
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

int main(int argc, char** argv) {
  Call c;
  c.root = sim::root(argv[0], "/usr/bin/brelctl");
  // Test controls of the simulated renderers are not calls of the daemon.
  if (argc > 1 && std::strcmp(argv[1], "--sim") == 0) return sim::renderer_sim(c.root, argc - 2, argv + 2);
  sim::log_call(c.root, argc, argv);

  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "-c" && i + 1 < argc) {
      c.command = argv[++i];
    } else if (a.compare(0, 2, "--") == 0) {
      // An option without its value (such as a bare --interface) is kept empty.
      bool hasValue = i + 1 < argc && std::strncmp(argv[i + 1], "--", 2) != 0;
      c.opts[a] = hasValue ? argv[++i] : "";
    }
  }

  // A slow agent: a canned reply is written at once and the call ends only
  // after the wait; a computed one comes after the wait.
  const double delay = std::strtod(sim::read_file(c.root + "/sim/brelctl/" + c.command + ".delay").c_str(), nullptr);
  const std::string canned = c.root + "/sim/brelctl/" + c.command + ".reply";
  struct stat st;
  if (!c.command.empty() && ::stat(canned.c_str(), &st) == 0) {
    std::cout << sim::read_file(canned) << std::flush;
    pause_for(delay);
    return 0;
  }
  if (!c.command.empty()) pause_for(delay);

  sim::RendererCall rc{c.root, c.command, c.opts, -1};
  if (c.command == "setAvTransportUrl") {
    const std::vector<MediaItem> library = load_library(c.root);
    const MediaItem* m = named_item(c, library);
    if (m) rc.duration = hhmmss_seconds(m->duration);
  }
  int status = 0;
  if (sim::renderer_command(rc, status)) return status;

  auto it = command_table().find(c.command);
  if (it == command_table().end()) {
    std::cerr << "brelctl: unknown command '" << c.command << "'\n";
    return 2;
  }
  return it->second(c, load_library(c.root));
}
