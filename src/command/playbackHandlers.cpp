#include "command/playbackHandlers.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "devices/paramXmlWrap.h"
#include "foundation/log.h"
#include "manager/playerManager.h"

namespace {

// The text of a required parameter, or null (with the log line) when it is
// missing or empty.
const char* required(XMLNode& root, const char* name) {
  XMLNode node;
  if (ParamXmlWrapper::get_param_node_with_check_text(root, node, name) != 0) {
    VLOG(LOG_COLOR_FAIL, "PARAMTER NOT FOUNT\n");
    return nullptr;
  }
  return node.getText();
}

// The text of an optional parameter, or null.
const char* optional(XMLNode& root, const char* name) {
  XMLNode node;
  return ParamXmlWrapper::get_param_node_with_check_text(root, node, name) == 0 ? node.getText() : nullptr;
}

int number(const char* text) { return static_cast<int>(std::strtol(text, nullptr, 10)); }

// Any non-zero result is the handler's: a positive one leaves no reply,
// and the envelope treats that as fatal.
int answer(int result, XMLNode& reply, const char* failure) {
  if (result != 0) {
    if (failure) VLOG(LOG_COLOR_FAIL, "%s\n", failure);
    return result;
  }
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  return 0;
}

// The frame of the commands that take `dev` alone.
template <typename Call>
int dev_only(XMLNode& root, XMLNode& reply, const char* failure, Call call) {
  const char* dev = required(root, "dev");
  if (!dev) return -3;
  return answer(call(dev), reply, failure);
}

}  // namespace

int list_player(CPlayerManager& manager, XMLNode&, XMLNode& reply) {
  manager.invalidPlayerCollection();
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  for (unsigned i = 0; i < manager.getNumOfPlayer(); ++i) {
    XMLNode player = ParamXmlWrapper::add_child_node(reply, "player", nullptr);
    ParamXmlWrapper::add_child_node(player, "renderID", manager.getPlayerRenderID(i).c_str());
    ParamXmlWrapper::add_child_node(player, "deviceName", manager.getPlayerDeviceName(i).c_str());
  }
  return 0;
}

int play(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  return dev_only(root, reply, "Play() ... fail", [&](const char* dev) { return manager.play(dev, 0xFFFFFFFF); });
}

int pause(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  return dev_only(root, reply, "Pause() ... fail", [&](const char* dev) { return manager.pause(dev); });
}

int stop(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  return dev_only(root, reply, "Stop() ... fail", [&](const char* dev) { return manager.stop(dev); });
}

int next(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  return dev_only(root, reply, "Next() ... fail", [&](const char* dev) { return manager.next(dev); });
}

int previous(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  return dev_only(root, reply, "Previous() ... fail", [&](const char* dev) { return manager.previous(dev); });
}

int seek(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  const char* position = dev ? required(root, "position") : nullptr;
  if (!position) return -3;
  return answer(manager.seek(dev, position), reply, "Seek() ... fail");
}

int set_track(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  const char* track = dev ? required(root, "track") : nullptr;
  if (!track) return -3;
  return answer(manager.setTrack(dev, static_cast<unsigned>(std::strtol(track, nullptr, 10))), reply,
                "SetTrack() ... fail");
}

int set_track_by_content(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  const char* content = dev ? required(root, "content") : nullptr;
  if (!content) return -3;
  return answer(manager.setTrackByContent(dev, content), reply, "SetTrack() ... fail");
}

int set_slide_show_delay(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  const char* delay = dev ? required(root, "delay") : nullptr;
  if (!delay) return -3;
  return answer(manager.setSlideShowDelay(dev, number(delay)), reply, "playerManager.setSlideShowDelay() ... fail");
}

int set_volume(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  const char* vol = dev ? required(root, "vol") : nullptr;
  if (!vol) return -3;
  return answer(manager.setVolume(dev, number(vol)), reply, "playerManager.setVolume() ... fail");
}

int get_volume(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  if (!dev) return -3;
  const int code = manager.getVolume(dev);
  // Built before the code is looked at: a negative code drops it again.
  char text[32];
  std::snprintf(text, sizeof text, "%d", code);
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  ParamXmlWrapper::add_child_node(reply, "volume", text);
  return code;
}

int get_mute(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  if (!dev) return -3;
  const int code = manager.isMute(dev);
  if (code == -19) {
    VLOG(LOG_COLOR_FAIL, "playerManager.isMute() ... fail\n");
    return code;
  }
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  ParamXmlWrapper::add_child_node(reply, "mute", code == 0 ? "off" : "on");
  return code;
}

int set_mute(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  const char* mute = dev ? required(root, "mute") : nullptr;
  if (!mute) return -3;
  return answer(manager.setMute(dev, std::strcmp(mute, "on") == 0), reply, nullptr);
}

int set_playlist(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  const char* playlist = dev ? required(root, "playlist") : nullptr;
  const char* appType = playlist ? required(root, "appType") : nullptr;
  if (!appType) return -3;
  const int result = manager.setPlaylist(dev, playlist, appType);
  if (result != 0) {
    VLOG(LOG_COLOR_FAIL, "playerManager.setPlaylist() ... %s\n", result == -19 ? "Busy" : "Error");
    return result;
  }
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  return 0;
}

int set_play_mode(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  const char* dev = required(root, "dev");
  const char* word = dev ? required(root, "playMode") : nullptr;
  if (!word) return -3;
  playMode_e mode = NORMAL;
  if (!play_mode_from_word(word, mode)) {
    VLOG(LOG_COLOR_FAIL, "UNKNOW Play mode\n");
    return -8;
  }
  return answer(manager.setPlayMode(dev, mode), reply, nullptr);
}

int setAudioSubtitleTrack(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  int count = 0;
  int aid = 0;
  int sid = -1;
  int autoSub = 0;
  const char* externalSubtitle = nullptr;
  const char* sseek = nullptr;
  const char* ssize = nullptr;
  const char* scolor = nullptr;
  const char* sencoding = nullptr;
  const char* realSubtitlePath = nullptr;
  if (const char* text = optional(root, "aid")) {
    ++count;
    aid = number(text);
  }
  const char* sidText = optional(root, "sid");
  if (sidText) {
    ++count;
    sid = number(sidText);
  }
  externalSubtitle = optional(root, "externalSubtitle");
  if (externalSubtitle) ++count;
  if (sidText || externalSubtitle) {
    sseek = optional(root, "sseek");
    ssize = optional(root, "ssize");
    scolor = optional(root, "scolor");
    sencoding = optional(root, "sencoding");
    realSubtitlePath = optional(root, "realSubtitlePath");
  }
  const char* position = optional(root, "position");
  if (position) ++count;
  if (!sidText && !externalSubtitle) {
    if (const char* text = optional(root, "autoSub")) autoSub = number(text);
  }
  VLOG(LOG_COLOR_TRACE, ">>debug>>> aid=%d, sid=%d, pExternalSubtitle=%s, pPos=%s, sseek=%s, ssize=%s, scolor=%s\n",
       aid, sid, externalSubtitle ? externalSubtitle : "(null)", position ? position : "(null)",
       sseek ? sseek : "(null)", ssize ? ssize : "(null)", scolor ? scolor : "(null)");
  const char* dev = optional(root, "dev");
  if (!dev || count == 0) {
    VLOG(LOG_COLOR_FAIL, "PARAMTER NOT FOUNT\n");
    return -3;
  }
  if (manager.setAudioAndSubtitle(dev, position, aid, sid, externalSubtitle, sseek, ssize, scolor, sencoding,
                                  realSubtitlePath, autoSub) != 0) {
    VLOG(LOG_COLOR_FAIL, "setAudioSubtitleTrack() ... fail\n");
    return -1;
  }
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  return 0;
}

int set_player_attrs(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  std::printf("set_player_attrs\n");
  std::fflush(stdout);
  const char* dev = required(root, "dev");
  const char* attr = dev ? required(root, "attr") : nullptr;
  if (!attr) return -3;
  const int result = manager.setPlayerAttributes(dev, attr);
  if (result == -19) return -19;
  if (result != 0) return -18;
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  return 0;
}

int debug_dump(CPlayerManager& manager, XMLNode& root, XMLNode& reply) {
  XMLNode dev;
  if (ParamXmlWrapper::get_param_node_with_check_text(root, dev, "dev") == 0)
    manager.getDebugInfo(dev.getText(), reply);
  return 0;
}
