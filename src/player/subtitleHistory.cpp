// CPlayer: the subtitle that the media library knows for an element, and
// the play history that it keeps for each user.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/log.h"
#include "foundation/shellRunner.h"
#include "foundation/xmlParser.h"
#include "player/agentCommand.h"
#include "player/player.h"

using vessord::can_stand_in_single_quotes;
using vessord::can_stand_unquoted;
using vessord::ShellChild;
using vessord::ShellLine;
using vessord::player::AgentCommand;

namespace {

constexpr size_t kLineBuf = 1024;
constexpr size_t kUidBuf = 64;

// The non-empty fields of a line, as strtok_r gives them: separators in a
// row count as one.
std::vector<std::string> tokens(const std::string& line, char sep) {
  std::vector<std::string> out;
  std::string cur;
  for (char c : line) {
    if (c == sep) {
      if (!cur.empty()) out.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  if (!cur.empty()) out.push_back(cur);
  return out;
}

// A history line in the making: fixed text and "%s" slots with their values.
struct HistoryLine {
  std::string format = "/usr/local/medialibrary/bin/tovuhist savePlayHistory ";
  std::vector<std::string> values;

  void add(const char* before, const std::string& value, const char* after) {
    format += before;
    format += "%s";
    format += after;
    values.push_back(value);
  }
};

}  // namespace

int CPlayer::findAutoPlugSubtitle(playlistElm_s& elm) {
  clearAutoPlugSubtitle();
  std::string objectID;
  switch (elm.contentType) {
    case CONTENT_FILE: {
      int r = filePathToObjectID(elm.content, objectID);
      if (r != 0) return r;
      break;
    }
    case CONTENT_DBID: {
      int r = dbIDToUpnpObjectID(elm.content, elm.mediaType, objectID);
      if (r != 0) return r;
      break;
    }
    case CONTENT_UNKNOWN:
      // Elements of unknown kind carry the object id; those addressed as
      // objects get no automatic subtitle.
      objectID = elm.content;
      break;
    default:
      VLOG(LOG_COLOR_FAIL, "Error, Unkown type!!\n");
      return -1;
  }
  if (!can_stand_in_single_quotes(objectID)) return -1;
  AgentCommand cmd("/usr/bin/brelctl -c getExternalSubtitle --objectID '%s'", {objectID});
  if (!cmd.fits(kLineBuf)) return -1;
  const ShellLine line = cmd.line();
  ShellChild child;
  if (!child.start(line)) {
    VLOG(LOG_COLOR_FAIL, "Execute %s failed\n", line.display().c_str());
    return -1;
  }
  std::string reply(vessord::player::kAgentBuf, '\0');
  reply.resize(child.read(&reply[0], reply.size()));
  if (reply.size() < vessord::player::kAgentBuf && child.read_failed()) {
    VLOG(LOG_COLOR_FAIL, "faile to fread\n");
    return -1;
  }
  child.wait();
  XMLNode node = XMLNode::parseString(reply.c_str(), nullptr);
  for (const char* name : {"u:GetExternalSubtitleResponse", "Result", "DIDL-Lite", "ExternalSubtitleTrack", "Path"}) {
    if (node.isEmpty()) break;
    node = node.getChildNode(name);
  }
  const char* path = node.isEmpty() ? nullptr : node.getText();
  if (path) {
    const std::string full = convertFullSubtitle(path);
    std::lock_guard<std::mutex> lk(m_fieldLock);
    m_autoPlugSubtitle = full;
    m_sseek = "0";
    m_sencoding = "UTF-8";
  }
  return static_cast<int>(reply.size());
}

std::string CPlayer::convertFullSubtitle(const std::string& path) {
  ShellChild child;
  if (!child.start(ShellLine("/sbin/narvuser -sv -a admin", {}))) return "";
  // Fields 1 and 3 of the last line that had them.
  std::string name, diskPath;
  std::string text;
  while (child.read_line(text, kLineBuf)) {
    if (text.find(':') == std::string::npos) continue;
    std::vector<std::string> f = tokens(text, ':');
    if (!f.empty()) name = f[0].substr(0, kLineBuf - 1);
    if (f.size() >= 3) diskPath = f[2].substr(0, kLineBuf - 1);
    while (!diskPath.empty() && (diskPath.back() == '\n' || diskPath.back() == '\r')) diskPath.pop_back();
    if (path.find(diskPath) == std::string::npos) continue;
    // Cut at the share's length from the start, wherever the match lay.
    return "/share/" + name + path.substr(std::min(diskPath.size(), path.size()));
  }
  return "";
}

std::string CPlayer::getUserId(std::string& name) {
  if (name.empty()) return "";
  if (!can_stand_in_single_quotes(name)) return "";
  std::string uid;
  int r = vessord::shell_read_line(ShellLine("/usr/bin/id -u '%s'", {name}), uid, kUidBuf);
  if (r < 0) return "";
  if (r != 0) {
    VLOG(LOG_COLOR_FAIL, "fgets error.\n");
    return "";
  }
  while (!uid.empty() && std::strchr(" \n\r\t", uid.back()) && uid.back() != '\0') uid.pop_back();
  VLOG(LOG_COLOR_NOTICE, "uid = %s\n", uid.c_str());
  return uid;
}

int CPlayer::savePlayHistory() {
  const std::string uid = getUserId(m_owner);
  if (uid.empty()) return 1;  // no known owner, no history
  if (getCurrTimeSecond() == 0) return 0;  // nothing watched yet
  if (!can_stand_unquoted(uid)) return 1;
  HistoryLine cmd;
  cmd.add("", uid, " ");
  playlistElm_s elm;
  getPlaylistElmByIndex(elm, -1);
  switch (elm.contentType) {
    case CONTENT_FILE:
      if (!can_stand_in_single_quotes(elm.content)) return 1;
      cmd.add("'", elm.content, "' ");
      break;
    case CONTENT_OBJECT: {
      std::string path;
      if (upnpObjectToFilePath(elm.content, path) != 0) return 1;
      if (!can_stand_in_single_quotes(path)) return 1;
      cmd.add("'", path, "' ");
      break;
    }
    case CONTENT_DBID:
      if (!can_stand_unquoted(elm.content)) return 1;
      cmd.add("", std::to_string(static_cast<int>(elm.mediaType)), " ");
      cmd.add("", elm.content, " ");
      break;
    default:
      return 1;
  }
  cmd.add("-p ", std::to_string(getCurrTimeSecond()), " -m 1 ");
  std::string external, sencoding, sseek;
  getExternalSubtitle(external);
  const std::string subtitle = !external.empty() ? external : getAutoPlugSubtitle();
  if (!subtitle.empty()) {
    if (!can_stand_in_single_quotes(subtitle)) return 1;
    cmd.add("-x '", subtitle, "' ");
  }
  // Read once: a player thread may change them meanwhile.
  const int subtitleTrack = m_subtitleTrack, audioTrack = m_audioTrack;
  if (subtitleTrack != -1) cmd.add("-s ", std::to_string(subtitleTrack), " ");
  if (audioTrack != 0) cmd.add("-a ", std::to_string(audioTrack), " ");
  sencoding = getSencoding();
  sseek = getSseek();
  if (!sencoding.empty()) {
    if (!can_stand_unquoted(sencoding)) return 1;
    cmd.add("-e ", sencoding, " ");
  }
  if (!sseek.empty()) {
    if (!can_stand_unquoted(sseek)) return 1;
    cmd.add("-o ", sseek, " ");
  }
  const ShellLine line(cmd.format.c_str(), cmd.values);
  VLOG(LOG_COLOR_AGENT, "savePlayHistory cmd = %s\n", line.display().c_str());
  vessord::shell_system(line);
  return 0;
}
