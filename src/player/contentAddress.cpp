// CPlayer: turning a playlist element's content (a file path, an object id
// or a media library database id) into what a device needs, through the
// media library's agent, and the element's duration.
//
// Every reply is one read of at most 4096 bytes; a longer one is cut. Ids
// stand in single quotes and are not escaped, paths go in escaped for the
// shell: a value that could leave its place fails the lookup before the
// agent runs.
#include <cstdlib>
#include <string>

#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/realPath.h"
#include "foundation/rootPath.h"
#include "foundation/shellRunner.h"
#include "foundation/xmlParser.h"
#include "player/agentCommand.h"
#include "player/player.h"

using vessord::can_stand_in_single_quotes;
using vessord::can_stand_unquoted;
using vessord::player::AgentCommand;
using vessord::player::agent_read;
using vessord::player::agent_value;
using vessord::player::kAgentBuf;

namespace {

constexpr size_t kPathBuf = 1024;
constexpr int kDurationPathLimit = 2048;
// The interface option is composed in a small buffer of its own.
constexpr size_t kInterfaceTail = 64;
constexpr size_t kUrlLineLimit = 1023;
constexpr size_t kBrowseScratch = 1024;
constexpr size_t kBrowseLineLimit = 4095;

// Runs a composed agent line and reads the text of `node`.
int ask_agent(const AgentCommand& cmd, const char* tag, const char* node, std::string& out) {
  if (!cmd.fits(kAgentBuf)) return -1;
  std::string reply;
  if (!agent_read(cmd.line(), reply)) return -1;
  return agent_value(reply, tag, node, out);
}

// The path quoted for a bare shell word; "" when it cannot be.
std::string shell_quoted_path(const std::string& path, int limit) {
  std::string buf(static_cast<size_t>(limit), '\0');
  if (convert_utf8_linux_filepath(path.c_str(), &buf[0], limit) != 0) return "";
  buf.resize(std::char_traits<char>::length(buf.c_str()));
  return buf;
}

// The getContentUrl line with its optional client type and interface.
int content_url(const char* base, const char* withClient, const std::string& subject, const char* tag,
                std::string& url, const char* clientType, const char* interface) {
  if (clientType && !can_stand_unquoted(clientType)) return -1;
  if (interface && !can_stand_unquoted(interface)) return -1;
  AgentCommand cmd = clientType ? AgentCommand(withClient, {subject, clientType}) : AgentCommand(base, {subject});
  if (!cmd.fits(kAgentBuf)) return -1;
  if (interface) cmd.append(" --interface ", interface, kInterfaceTail, kUrlLineLimit);
  return ask_agent(cmd, tag, "url", url);
}

}  // namespace

int CPlayer::dbIDToUpnpObjectID(const std::string& dbID, int mediaType, std::string& objectID) {
  if (!can_stand_in_single_quotes(dbID)) return -1;
  AgentCommand cmd("/usr/bin/brelctl -c getObjectID --dbID '%s' --mediaType %s", {dbID, std::to_string(mediaType)});
  return ask_agent(cmd, "root", "objectID", objectID);
}

int CPlayer::upnpObjectToFilePath(const std::string& objectID, std::string& path) {
  if (!can_stand_in_single_quotes(objectID)) return -1;
  AgentCommand cmd("/usr/bin/brelctl -c getFilePath --objectID '%s'", {objectID});
  return ask_agent(cmd, nullptr, "filePath", path);
}

int CPlayer::upnpObjectToFilePath(const std::string& objectID, std::string& path, int& startTime, int& duration) {
  if (!can_stand_in_single_quotes(objectID)) return -1;
  AgentCommand cmd("/usr/bin/brelctl -c getFilePath --objectID '%s'", {objectID});
  if (!cmd.fits(kAgentBuf)) return -1;
  std::string reply;
  if (!agent_read(cmd.line(), reply)) return -1;
  XMLNode top = XMLNode::parseString(reply.c_str(), nullptr);
  if (top.isEmpty()) return -1;
  // Each value is optional: a document without any still counts.
  const char* text = top.getChildNode("filePath").getText();
  if (text) path = text;
  text = top.getChildNode("startTime").getText();
  if (text) startTime = static_cast<int>(std::strtol(text, nullptr, 10));
  text = top.getChildNode("duration").getText();
  if (text) duration = static_cast<int>(std::strtol(text, nullptr, 10));
  return 0;
}

int CPlayer::filePathToObjectID(const std::string& path, std::string& objectID) {
  std::string quoted = shell_quoted_path(path, static_cast<int>(kPathBuf));
  if (quoted.empty() && !path.empty()) return -1;
  // The escaped path stands bare and is read as sh reads it (a `?` left
  // unescaped is a pattern); one that sh would act on, or that would become
  // more than one argument, is refused.
  if (!can_stand_unquoted(quoted)) return -1;
  AgentCommand cmd("/usr/bin/brelctl -c getObjectID --filePath %s", {quoted});
  return ask_agent(cmd, nullptr, "objectID", objectID);
}

int CPlayer::upnpObjectToUrl(const std::string& objectID, std::string& url, const char* clientType,
                             const char* interface) {
  if (!can_stand_in_single_quotes(objectID)) return -1;
  return content_url("/usr/bin/brelctl -c getContentUrl --objectID '%s'",
                     "/usr/bin/brelctl -c getContentUrl --objectID '%s' --clientType %s", objectID, "root", url,
                     clientType, interface);
}

int CPlayer::filePathToUrl(const std::string& path, std::string& url, const char* clientType,
                           const char* interface) {
  // A path that cannot be resolved asks for an empty one.
  std::string real;
  getRealFilePath(path, real);
  if (!can_stand_in_single_quotes(real)) return -1;
  return content_url("/usr/bin/brelctl -c getContentUrl --filePath '%s'",
                     "/usr/bin/brelctl -c getContentUrl --filePath '%s' --clientType %s", real, nullptr, url,
                     clientType, interface);
}

int CPlayer::browseByUpnpObjectID(const std::string& objectID, std::string& xml, const char* clientType,
                                  int startingIndex, int requestedCount, const char* interface) {
  if (!can_stand_in_single_quotes(objectID)) return -1;
  if (clientType && !can_stand_unquoted(clientType)) return -1;
  if (interface && *interface && !can_stand_unquoted(interface)) return -1;
  AgentCommand cmd("/usr/bin/brelctl -c browse --objectID '%s' --browseFlag '%s'", {objectID, "BrowseMetadata"});
  if (!cmd.fits(kAgentBuf)) return -1;
  if (clientType) cmd.append(" --clientType ", clientType, kBrowseScratch, kBrowseLineLimit);
  if (startingIndex != -1)
    cmd.append(" --startingIndex ", std::to_string(startingIndex), kBrowseScratch, kBrowseLineLimit);
  if (requestedCount != -1)
    cmd.append(" --requestedCount ", std::to_string(requestedCount), kBrowseScratch, kBrowseLineLimit);
  if (interface && *interface) cmd.append(" --interface ", interface, kBrowseScratch, kBrowseLineLimit);
  const vessord::ShellLine line = cmd.line();
  VLOG(LOG_COLOR_AGENT, "cmd: %s\n", line.display().c_str());
  std::string reply;
  if (!agent_read(line, reply)) return -1;
  if (reply.empty() || reply[0] == '\0') return -1;
  xml = reply;
  return 0;
}

int CPlayer::dbIDtToFilePath(const std::string& dbID, int mediaType, std::string& path) {
  std::string objectID;
  if (dbIDToUpnpObjectID(dbID, mediaType, objectID) != 0) return -1;
  return upnpObjectToFilePath(objectID, path);
}

int CPlayer::dbIDtToFilePath(const std::string& dbID, int mediaType, std::string& path, int& startTime,
                             int& duration) {
  std::string objectID;
  if (dbIDToUpnpObjectID(dbID, mediaType, objectID) != 0) return -1;
  return upnpObjectToFilePath(objectID, path, startTime, duration);
}

int CPlayer::dbIDToUrl(const std::string& dbID, int mediaType, std::string& url, const char* clientType,
                       const char* interface) {
  std::string objectID;
  if (dbIDToUpnpObjectID(dbID, mediaType, objectID) != 0) return -1;
  return upnpObjectToUrl(objectID, url, clientType, interface);
}

int CPlayer::browseByDbID(const std::string& dbID, int mediaType, std::string& xml, const char* clientType,
                          int startingIndex, int requestedCount, const char* interface) {
  std::string objectID;
  if (dbIDToUpnpObjectID(dbID, mediaType, objectID) < 0) return -1;
  return browseByUpnpObjectID(objectID, xml, clientType, startingIndex, requestedCount, interface);
}

int CPlayer::browseByFilePath(const std::string& path, std::string& xml, const char* clientType, int startingIndex,
                              int requestedCount, const char* interface) {
  std::string objectID;
  if (filePathToObjectID(path, objectID) < 0) return -1;
  return browseByUpnpObjectID(objectID, xml, clientType, startingIndex, requestedCount, interface);
}

int CPlayer::getRealFilePath(const std::string& path, std::string& real) {
  // A path on the appliance's disks lies under the simulated root in tests.
  char buf[kPathBuf] = {0};
  if (get_real_path(vessord::root_path(path).c_str(), buf) != 0) return -1;
  real = buf;
  return 0;
}

void CPlayer::setTotalTime(const playlistElm_s& elm) {
  std::string total;
  std::string path;
  if (elm.contentType == CONTENT_FILE) {
    path = shell_quoted_path(elm.content, kDurationPathLimit);
  } else {
    std::string objectID;
    if (elm.contentType == CONTENT_DBID) dbIDToUpnpObjectID(elm.content, elm.mediaType, objectID);
    else objectID = elm.content;
    if (can_stand_in_single_quotes(objectID)) {
      AgentCommand cmd("/usr/bin/brelctl -c getFilePath --objectID '%s'", {objectID});
      std::string reply, found;
      if (cmd.fits(kAgentBuf) && agent_read(cmd.line(), reply, 1024) &&
          agent_value(reply, "root", "filePath", found) == 0)
        path = shell_quoted_path(found, kDurationPathLimit);
    }
  }
  if (!path.empty() && can_stand_unquoted(path)) {
    AgentCommand cmd("/usr/local/medialibrary/bin/tovufix getDuration --filePath %s 2> /dev/null", {path});
    std::string answer;
    if (cmd.fits(kAgentBuf) && agent_read(cmd.line(), answer, 1024)) {
      answer.resize(std::char_traits<char>::length(answer.c_str()));
      if (!answer.empty() && answer.back() == '\n') answer.pop_back();
      total = answer;
    }
  }
  setTotalTime(total.empty() ? std::string("00:00:00") : total);
}
