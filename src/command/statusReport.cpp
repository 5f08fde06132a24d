#include "command/statusReport.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "devices/paramXmlWrap.h"
#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/thread.h"
#include "foundation/shellRunner.h"
#include "manager/playerManager.h"
#include "player/agentCommand.h"

cachedStatusInfo_s g_cachedStatusInfo[kCachedStatusSlots];
pthread_mutex_t g_cachedStatusInfoLock = PTHREAD_MUTEX_INITIALIZER;

namespace {

constexpr size_t kAgentReply = 4096;

// One of the agent's track lists: where it lies in the reply and what the
// cache calls it.
struct trackList_s {
  const char* command;   // the agent's command
  const char* response;  // the reply's response element
  const char* item;      // the agent's list element
  const char* top;       // the cached document's top
  const char* entry;     // the cached list element
  const char* first;     // the two fields
  const char* second;
};

const trackList_s kAudio = {"getAudioTrack", "u:GetAudioTrackResponse", "AudioTrack", "TotalAudioTrack",
                            "AudioTrack", "TrackId", "TrackLang"};
const trackList_s kSubtitle = {"getSubtitle", "u:GetSubtitleTrackResponse", "SubtitleTrack", "TotalSubtitleTrack",
                               "SubtitleTrack", "TrackId", "TrackLang"};
const trackList_s kExternal = {"getExternalSubtitle", "u:GetExternalSubtitleResponse", "ExternalSubtitleTrack",
                               "TotalExternalSubtitle", "ExternalSubtitle", "Path", "Name"};

void add_text_node(XMLNode& parent, const char* name, const std::string& text) {
  ParamXmlWrapper::add_child_node(parent, name, text.c_str());
}

void add_number_node(XMLNode& parent, const char* name, long value) {
  // Nine bytes on the wire: at most eight characters go out, as the
  // clients know it; the number is formatted whole first.
  char whole[16];
  std::snprintf(whole, sizeof whole, "%d", static_cast<int>(value));
  char text[9];
  std::snprintf(text, sizeof text, "%.8s", whole);
  ParamXmlWrapper::add_child_node(parent, name, text);
}

std::string player_type_words(uint32_t type) {
  std::string words;
  const std::pair<uint32_t, const char*> kinds[] = {{0x1, "video"}, {0x2, "music"}, {0x4, "photo"}};
  for (const auto& kind : kinds) {
    if (!(type & kind.first)) continue;
    if (!words.empty()) words += ",";
    words += kind.second;
  }
  return words.empty() ? "UNKNOW" : words;
}

void add_device_node(XMLNode& reply, uint32_t type) {
  XMLNode device = reply.addChild("device");
  if (type & PLAYER_TYPE_DLNA) {
    device.addAttribute("Type", "DLNA");
  } else if (type & PLAYER_TYPE_AIRPLAY) {
    device.addAttribute("Type", "AirPlay");
  } else if (type & PLAYER_TYPE_ALSA) {
    device.addAttribute("Type", "ALSA");
    const char* sub = "OTHER";
    if (type & PLAYER_TYPE_SOUND_ANALOG) sub = "ANALOG";
    else if (type & PLAYER_TYPE_SOUND_HDMI) sub = "HDMI";
    else if (type & PLAYER_TYPE_SOUND_USB) sub = "USB";
    device.addAttribute("Subtype", sub);
  } else if (type & PLAYER_TYPE_CHROMECAST) {
    device.addAttribute("Type", "Chromecast");
  } else if (type & PLAYER_TYPE_KINOVU) {
    device.addAttribute("Type", "KINOVUER");
  } else {
    device.addAttribute("Type", "UNKNOW");
  }
}

// A copy of `src` and all under it as the last child of `parent`. The cached
// documents are three levels deep.
void copy_node(XMLNode& parent, const XMLNode& src) {
  XMLNode copy = parent.addChild(src.getName());
  for (int i = 0; i < src.nAttribute(); ++i) copy.addAttribute(src.getAttributeName(i), src.getAttributeValue(i));
  for (int i = 0; i < src.nText(); ++i) copy.addText(src.getText(i));
  for (int i = 0; i < src.nChildNode(); ++i) copy_node(copy, src.getChildNode(i));
}

void attach_lists(XMLNode& reply, const cachedStatusInfo_s& slot) {
  for (const XMLNode* list : {&slot.total_aid, &slot.total_sid, &slot.total_externalSubtitle})
    if (!list->isEmpty()) copy_node(reply, *list);
}

void clear_list(XMLNode& list) {
  if (list.isEmpty()) return;
  list.deleteNodeContent();
  list = XMLNode();
}

// Fills `list` from the agent. -1 when the read failed; a run that could not
// start or a reply without the list leaves it empty and counts as done.
int fetch_list(const trackList_s& what, const std::string& objectID, XMLNode& list) {
  clear_list(list);
  const std::string format = std::string("/usr/bin/brelctl -c ") + what.command + " --objectID '%s'";
  vessord::ShellLine line(format.c_str(), {objectID});
  std::string text;
  if (!line.ok() || vessord::shell_read(line, text, kAgentReply) != 0) return 0;
  XMLNode didl =
      XMLNode::parseString(text.c_str(), nullptr).getChildNode(what.response).getChildNode("Result").getChildNode(
          "DIDL-Lite");
  if (didl.isEmpty()) return 0;
  list = XMLNode::createXMLTopNode(what.top);
  const int count = didl.nChildNode(what.item);
  for (int i = 0; i < count; ++i) {
    XMLNode item = didl.getChildNode(what.item, i);
    if (item.isEmpty()) continue;
    XMLNode entry = list.addChild(what.entry);
    for (const char* field : {what.first, what.second}) {
      const char* value = item.getChildNode(field).getText();
      if (value) entry.addChild(field).addText(value);
    }
  }
  return 0;
}

}  // namespace

void add_player_status_nodes(XMLNode& reply, const playerStatus_t& s) {
  add_text_node(reply, "deviceName", s.deviceName);
  add_device_node(reply, s.playerType);
  add_text_node(reply, "playerType", player_type_words(s.playerType));
  add_text_node(reply, "playerState", player_state_word(static_cast<int>(s.playerState)));
  add_text_node(reply, "playMode", play_mode_word(static_cast<int>(s.playMode)));
  add_text_node(reply, "playlistTitle", s.playlistTitle);
  add_text_node(reply, "appType", s.appType);
  add_text_node(reply, "trackType", s.trackType);
  add_text_node(reply, "trackContentType", s.trackContentType);
  add_text_node(reply, "trackContent", s.trackContent);
  add_number_node(reply, "currTrack", s.totalTracks != 0 ? static_cast<long>(s.currTrack) + 1 : s.currTrack);
  add_number_node(reply, "totalTracks", s.totalTracks);
  add_text_node(reply, "currTime", s.currTime);
  add_text_node(reply, "totalTime", s.totalTime);
  add_text_node(reply, "playlistOwner", s.playlistOwner);
  add_text_node(reply, "playlistTag", s.playlistTag);
  if (!s.currentAutoSubtitle.empty()) add_text_node(reply, "currentAutoSubtitle", s.currentAutoSubtitle);
  if (s.currentAudioTrack >= 0) add_number_node(reply, "currentAudioTrack", s.currentAudioTrack);
  if (s.currentSubtitleTrack >= 0) add_number_node(reply, "currentSubtitleTrack", s.currentSubtitleTrack);
  if (!s.currentExternalSubtitle.empty()) add_text_node(reply, "currentExternalSubtitle", s.currentExternalSubtitle);
  if (!s.subtitleSize.empty()) add_text_node(reply, "subtitleSize", s.subtitleSize);
  if (!s.subtitleColor.empty()) add_text_node(reply, "subtitleColor", s.subtitleColor);
  if (!s.subtitleEncoding.empty()) add_text_node(reply, "subtitleEncoding", s.subtitleEncoding);
  if (!s.subtitleSeek.empty()) add_text_node(reply, "subtitleSeek", s.subtitleSeek);
}

int update_g_cachedStatusInfo(const playerStatus_t& status, int index) {
  if (index < 0 || static_cast<size_t>(index) >= kCachedStatusSlots) return -1;
  cachedStatusInfo_s& slot = g_cachedStatusInfo[index];
  std::string objectID;
  bool haveLine = false;
  std::string text;
  int ran = -1;
  if (status.trackContentType == "file") {
    std::vector<char> quoted(kAgentReply, '\0');
    if (convert_utf8_linux_filepath(status.trackContent.c_str(), quoted.data(), static_cast<int>(quoted.size())) ==
        0) {
      haveLine = true;
      ran = vessord::shell_read(
          vessord::ShellLine("/usr/bin/brelctl -c getObjectID --filePath %s", {std::string(quoted.data())}), text,
          kAgentReply);
    }
  } else if (status.trackContentType == "dbID") {
    int media = -1;
    if (status.trackType == "audio") media = 0;
    else if (status.trackType == "photo") media = 1;
    else if (status.trackType == "video") media = 2;
    if (media < 0) {
      VLOG(LOG_COLOR_FAIL, "Unknow track media type\n");
    } else {
      haveLine = true;
      ran = vessord::shell_read(vessord::ShellLine("/usr/bin/brelctl -c getObjectID --dbID '%s' --mediaType %s",
                                                   {status.trackContent, std::to_string(media)}),
                                text, kAgentReply);
    }
  } else if (status.trackContentType == "object") {
    objectID = status.trackContent;
  } else {
    VLOG(LOG_COLOR_FAIL, "unknow track content type\n");
  }
  if (haveLine && ran == 0) {
    if (vessord::player::agent_value(text, nullptr, "objectID", objectID) != 0 || objectID.empty())
      VLOG(LOG_COLOR_FAIL, ">>> %s can't get objectId \n", status.trackContent.c_str());
  }

  VLOG(LOG_COLOR_NOTICE, "debug, replace the oldest index=%d\n", index);
  // The keys change before the object id is tested: a slot whose id cannot
  // be found keeps its old lists and age under the new keys.
  slot.trackContentType = status.trackContentType;
  slot.trackContent = status.trackContent;
  if (objectID.empty()) return -1;

  fetch_list(kAudio, objectID, slot.total_aid);
  fetch_list(kSubtitle, objectID, slot.total_sid);
  fetch_list(kExternal, objectID, slot.total_externalSubtitle);
  slot.lastUsed = time(nullptr);
  return 0;
}

int get_player_status(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  XMLNode dev;
  if (ParamXmlWrapper::get_param_node_with_check_text(root, dev, "dev") != 0) {
    VLOG(LOG_COLOR_FAIL, "PARAMTER NOT FOUNT\n");
    return -3;
  }
  playerStatus_s status;
  const int code = manager.getPlayerStatus(dev.getText(), status);
  if (code != 0) {
    VLOG(LOG_COLOR_FAIL, "playerManager.getPlayerStatus() ... %s\n", code == -19 ? "BUSY" : " Error");
    return code;
  }
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  add_player_status_nodes(reply, status);

  ThreadSingleLock guard(g_cachedStatusInfoLock);
  if (status.trackType != "video") return 0;
  const time_t now = time(nullptr);
  int match = -1;
  int oldest = 0;
  for (size_t i = 0; i < kCachedStatusSlots; ++i) {
    const cachedStatusInfo_s& slot = g_cachedStatusInfo[i];
    if (!slot.trackContentType.empty() && slot.trackContentType == status.trackContentType &&
        !slot.trackContent.empty() && slot.trackContent == status.trackContent) {
      match = static_cast<int>(i);
      break;
    }
    if (slot.lastUsed < g_cachedStatusInfo[oldest].lastUsed) oldest = static_cast<int>(i);
  }
  if (match >= 0 && now - g_cachedStatusInfo[match].lastUsed <= kCachedStatusMaxAge) {
    attach_lists(reply, g_cachedStatusInfo[match]);
    g_cachedStatusInfo[match].lastUsed = now;
    return 0;
  }
  const int index = match >= 0 ? match : oldest;
  if (update_g_cachedStatusInfo(status, index) == 0) attach_lists(reply, g_cachedStatusInfo[index]);
  return 0;
}
