#include "command/vessord.h"

#include <poll.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "command/playbackHandlers.h"
#include "command/playlistHandlers.h"
#include "command/renderListing.h"
#include "command/statusReport.h"
#include "command/unixSocketIpc.h"
#include "command/version.h"
#include "devices/paramXmlWrap.h"
#include "foundation/log.h"

namespace {

constexpr size_t kVersionBuf = 1024;

struct freeDeleter_s {
  void operator()(void* p) const { std::free(p); }
};

// The polling commands stay out of the trace.
bool is_polling_command(const std::string& command) { return command == "GetVolume" || command == "GetMute"; }

// The reply for a negative code. A handler that built a reply and still
// failed loses what it built.
void make_error_reply(XMLNode& reply, int code, const std::string& command) {
  if (!reply.isEmpty()) {
    VLOG(LOG_COLOR_FAIL, "[%s]There is someting worng in the contorl flow\n", command.c_str());
    reply.deleteNodeContent();
    reply = XMLNode();
  }
  char text[16];
  std::snprintf(text, sizeof text, "%d", code);
  ParamXmlWrapper::create_status_xml_doc(reply, text, nullptr);
}

}  // namespace

int echo(XMLNode& reply) {
  ParamXmlWrapper::create_status_xml_doc(reply, "ECHO", nullptr);
  return 0;
}

// Players are made on demand by the manager, never by this command: it
// answers nothing, which ends the daemon. Kept so on purpose.
int create_player(XMLNode& reply) {
  (void)reply;
  return 0;
}

// The handlers of the table take the manager by reference.
#define VESSORD_HANDLER(fn) [](CPlayerManager* m, XMLNode& root, XMLNode& reply) { return fn(*m, root, reply); }

// Tested in this order; a name that is not listed answers -7. ListRender
// and ListUnknowRender stand first and give 0 whatever their handler
// returns. The playlist commands stand between them and ListPlayer.
const commandEntry_s g_commandTable[] = {
    {"ListRender",
     [](CPlayerManager* manager, XMLNode& root, XMLNode& reply) {
       list_render(manager, root, reply);
       return 0;
     }},
    {"ListUnknowRender",
     [](CPlayerManager*, XMLNode&, XMLNode& reply) {
       list_unknow_render(reply);
       return 0;
     }},
    // An extension: the AirPlay devices into the render cache.
    {"ListAirplayRender",
     [](CPlayerManager* manager, XMLNode&, XMLNode& reply) { return list_airplay_render(manager, reply); }},
    {"GetUpnpObjectID", [](CPlayerManager*, XMLNode& root, XMLNode& reply) { return get_upnp_object_id(root, reply); }},
    {"SizeOfPlaylist", VESSORD_HANDLER(size_of_playlist)},
    {"ListPlaylist", VESSORD_HANDLER(list_playlist)},
    {"SizeOfListContent", VESSORD_HANDLER(size_of_list_contents)},
    {"ListContentOfPlaylist", VESSORD_HANDLER(list_content_of_playlist)},
    {"CreatePlaylist", VESSORD_HANDLER(create_play_list)},
    {"AddContent", VESSORD_HANDLER(add_content)},
    {"DelPlaylist", VESSORD_HANDLER(del_playlist)},
    {"DelContent", VESSORD_HANDLER(del_content)},
    {"BatchAddPlaylist", VESSORD_HANDLER(batch_add_playlist)},
    {"BatchDelPlaylist", VESSORD_HANDLER(batch_del_playlist)},
    {"ReOrderContent", VESSORD_HANDLER(reorder_content)},
    {"DupPlaylist", VESSORD_HANDLER(duplicate_playlist)},
    {"ListPlayer", VESSORD_HANDLER(list_player)},
    {"Play", VESSORD_HANDLER(play)},
    {"Pause", VESSORD_HANDLER(pause)},
    {"Stop", VESSORD_HANDLER(stop)},
    {"Seek", VESSORD_HANDLER(seek)},
    {"Next", VESSORD_HANDLER(next)},
    {"Previous", VESSORD_HANDLER(previous)},
    {"SetTrack", VESSORD_HANDLER(set_track)},
    {"SetTrackByContent", VESSORD_HANDLER(set_track_by_content)},
    {"GetPlayerStatus", VESSORD_HANDLER(get_player_status)},
    {"SetSlideShowDelay", VESSORD_HANDLER(set_slide_show_delay)},
    {"GetVolume", VESSORD_HANDLER(get_volume)},
    {"SetVolume", VESSORD_HANDLER(set_volume)},
    {"GetMute", VESSORD_HANDLER(get_mute)},
    {"SetMute", VESSORD_HANDLER(set_mute)},
    {"CreatePlayer", [](CPlayerManager*, XMLNode&, XMLNode& reply) { return create_player(reply); }},
    {"SetPlaylist", VESSORD_HANDLER(set_playlist)},
    {"SetPlayMode", VESSORD_HANDLER(set_play_mode)},
    {"SetAudioAndSubtitle", VESSORD_HANDLER(setAudioSubtitleTrack)},
    {"SetAttributes", VESSORD_HANDLER(set_player_attrs)},
    {"debugDump", VESSORD_HANDLER(debug_dump)},
    {"echo", [](CPlayerManager*, XMLNode&, XMLNode& reply) { return echo(reply); }},
};
#undef VESSORD_HANDLER
const size_t g_commandTableSize = sizeof g_commandTable / sizeof g_commandTable[0];

const commandEntry_s* find_command(const commandEntry_s* table, size_t count, const char* name) {
  if (!name) return nullptr;
  for (size_t i = 0; i < count; ++i)
    if (std::strcmp(table[i].name, name) == 0) return &table[i];
  return nullptr;
}

void handle_request(CPlayerManager* manager, const char* buf, size_t len, XMLNode& reply, requestOutcome_s& outcome,
                    const commandEntry_s* table, size_t tableSize) {
  outcome = requestOutcome_s();
  outcome.dev = "N/A";
  reply = XMLNode();
  // The parser reads a C string: the request ends at its first zero byte.
  const std::string text(buf ? buf : "", buf ? strnlen(buf, len) : 0);

  XMLNode root = XMLNode::parseString(text.c_str(), "root", nullptr);
  if (root.isEmpty()) {
    VLOG(LOG_COLOR_FAIL, "WRONG PACKAGE FORMAT\n");
    outcome.code = -2;
    make_error_reply(reply, outcome.code, outcome.command);
    return;
  }
  const char* command = root.getChildNode("command").getText();
  if (!command) {
    VLOG(LOG_COLOR_FAIL, "NO COMMAND FIELD\n");
    outcome.code = -7;
    make_error_reply(reply, outcome.code, outcome.command);
    return;
  }
  outcome.command = command;
  XMLNode dev;
  if (ParamXmlWrapper::get_param_node_with_check_text(root, dev, "dev") == 0) outcome.dev = dev.getText();

  if (!is_polling_command(outcome.command)) {
    VLOG(LOG_COLOR_TRACE, "Command:%s  --dev:%s\n", outcome.command.c_str(), outcome.dev.c_str());
    VLOG(LOG_COLOR_TRACE, "\n%s\n", text.c_str());
  }

  const commandEntry_s* entry = find_command(table, tableSize, command);
  if (!entry) {
    VLOG(LOG_COLOR_NOTFOUND, "COMMAND '%s' not found\n", command);
    outcome.code = -7;
  } else {
    outcome.code = entry->handler(manager, root, reply);
  }
  if (outcome.code < 0) {
    make_error_reply(reply, outcome.code, outcome.command);
  } else if (reply.isEmpty()) {
    outcome.fatal = true;
  }
}

bool add_version_node(XMLNode& reply) {
  char version[kVersionBuf] = {0};
  if (getVersion(version, sizeof version, "KIVO", 1, 1) != 0) return false;
  reply.addChild("version", 0, 0).addText(version);
  return true;
}

std::string reply_text(const XMLNode& reply) {
  XMLString text(reply.createXMLString(1, nullptr));
  return text ? std::string(text.get()) : std::string();
}

int client_idle_ms() {
  static const int ms = [] {
    const char* env = std::getenv("VESSORD_IDLE_CLIENT_MS");
    const long v = env && *env ? std::strtol(env, nullptr, 10) : 0;
    return v > 0 && v < 24L * 3600 * 1000 ? static_cast<int>(v) : 60000;
  }();
  return ms;
}

namespace {

// A client that connects and then sends nothing (or never acknowledges the
// reply) would hold its thread and descriptor for ever; one that has sent
// nothing for the idle limit is let go. A real client sends at once.
bool wait_readable(int fd) {
  struct pollfd p = {fd, POLLIN, 0};
  int n;
  do {
    n = ::poll(&p, 1, client_idle_ms());
  } while (n < 0 && errno == EINTR);
  return n != 0;  // an error is left to the read, as before
}

}  // namespace

void* process(void* arg) {
  if (!arg) return nullptr;
  std::unique_ptr<connectionArgs_s, freeDeleter_s> args(static_cast<connectionArgs_s*>(arg));
  const int fd = args->fd;
  CUnixSocketIpc* ipc = args->ipc;

  // One byte more than a request may hold, so that the text always ends.
  char buffer[kRequestMax + 1];
  if (!wait_readable(fd)) {
    VLOG(LOG_COLOR_SOCKET, "a client sent nothing for %d ms: closed\n", client_idle_ms());
    ipc->Close(fd);
    return nullptr;
  }
  const ssize_t got = ipc->Read(buffer, kRequestMax, fd);
  buffer[kRequestMax] = '\0';
  if (got == -1) {
    ipc->Close(fd);
    return nullptr;
  }

  XMLNode reply;
  requestOutcome_s outcome;
  handle_request(args->manager, buffer, got > 0 ? static_cast<size_t>(got) : 0, reply, outcome);
  if (outcome.fatal) {
    VLOG(LOG_COLOR_FAIL, "Command:%s  --dev:%s(err)\n", outcome.command.c_str(), outcome.dev.c_str());
    // Nothing catches this: the process ends through SIGABRT and its dump.
    throw "porcess()";
  }

  add_version_node(reply);
  const std::string text = reply_text(reply);
  char block[kReplyHeaderSize];
  std::memset(block, 0, sizeof block);
  std::snprintf(block, sizeof block, "%d", static_cast<int>(text.size()));
  if (ipc->Write(block, sizeof block, fd) >= 0) {
    // Then the text, and the client's acknowledgement (or its end of stream).
    if (ipc->Write(text.data(), text.size(), fd) >= 0 && wait_readable(fd)) ipc->Read(block, sizeof block, fd);
    if (!is_polling_command(outcome.command))
      VLOG(LOG_COLOR_TRACE, "Command:%s  --dev:%s(done)\n", outcome.command.c_str(), outcome.dev.c_str());
  }

  ipc->Close(fd);
  return nullptr;
}
