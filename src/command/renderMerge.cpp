#include "command/renderMerge.h"

#include <cstring>

#include "devices/paramXmlWrap.h"
#include "foundation/nasUtil.h"
#include "foundation/thread.h"
#include "manager/playerManager.h"
#include "player/player.h"

namespace {

bool equals(const char* a, const char* b) { return a && std::strcmp(a, b) == 0; }

const char* text_of(const XMLNode& node) {
  if (node.isEmpty()) return nullptr;
  const char* t = node.getText();
  return t && *t ? t : nullptr;
}

}  // namespace

unsigned render_type_of(const XMLNode& device) {
  const char* kind = device.getAttribute("Type");
  XMLNode typeNode = device.getChildNode("type");
  const char* protocol = typeNode.getAttribute("protocol");
  unsigned type = 0;
  if (equals(kind, "DLNA")) {
    type = PLAYER_TYPE_DLNA;
  } else if (equals(kind, "ALSA")) {
    const char* sub = device.getAttribute("Subtype");
    type = PLAYER_TYPE_ALSA;
    if (equals(sub, "ANALOG")) type |= PLAYER_TYPE_SOUND_ANALOG;
    else if (equals(sub, "HDMI")) type |= PLAYER_TYPE_SOUND_HDMI;
    else if (equals(sub, "USB")) type |= PLAYER_TYPE_SOUND_USB;
  } else if (equals(kind, "KINOVUER")) {
    type = PLAYER_TYPE_KINOVU;
  } else if (equals(protocol, "airplay")) {
    type = PLAYER_TYPE_AIRPLAY;
  } else if (equals(protocol, "chromecast")) {
    type = PLAYER_TYPE_CHROMECAST;
  } else {
    return 0;
  }
  // A video device counts as a photo device; "photo" alone sets nothing.
  const char* words = typeNode.getText();
  if (words && std::strstr(words, "video")) type |= PLAYER_TYPE_VIDEO | PLAYER_TYPE_PHOTO;
  if (words && std::strstr(words, "audio")) type |= PLAYER_TYPE_AUDIO;
  return type;
}

std::vector<renderEntry_s> render_entries_of(const XMLNode& reply) {
  std::vector<renderEntry_s> entries;
  const int count = reply.nChildNode("device");
  for (int i = 0; i < count; ++i) {
    XMLNode device = reply.getChildNode("device", i);
    XMLNode typeNode = device.getChildNode("type");
    const char* name = text_of(device.getChildNode("deviceName"));
    const char* id = text_of(device.getChildNode("deviceId"));
    if (!text_of(typeNode) || !name || !id) continue;
    const unsigned type = render_type_of(device);
    if (type == 0) continue;

    renderEntry_s e;
    e.renderID = id;
    e.deviceName = name;
    const char* ip = device.getChildNode("ip").getText();
    e.ip = ip ? ip : "";
    e.type = type;
    if (equals(typeNode.getAttribute("protocol"), "raop")) {
      const char* cn = typeNode.getAttribute("cn");
      const char* et = typeNode.getAttribute("et");
      if (!equals(cn, "pcm") || !et || equals(et, "notSupport")) continue;
      e.hasEncryption = true;
      e.encryption = et;
      const char* port = typeNode.getAttribute("port");
      e.port = itoa(port ? port : "");
    } else if (type & PLAYER_TYPE_ALSA) {
      const char* card = device.getAttribute("card");
      const char* dev = device.getAttribute("device");
      e.card = card ? card : "";
      e.device = dev ? dev : "";
    }
    entries.push_back(e);
  }
  return entries;
}

void merge_render_list(CPlayerManager* manager, XMLNode& reply) {
  if (reply.isEmpty()) return;
  if (!manager) {
    ParamXmlWrapper::add_media_dash_attr(reply);
    return;
  }
  const std::vector<renderEntry_s> entries = render_entries_of(reply);
  ThreadWriteLock registry(manager->getRWLock());
  // Before the loop: what this listing did not see stays unseen, also when
  // a mask hid it.
  manager->invalidRenderCache_();
  for (const renderEntry_s& e : entries)
    manager->addRenderInCache(e.renderID.c_str(), e.deviceName.c_str(), e.ip.c_str(), e.type,
                              e.hasEncryption ? e.encryption.c_str() : nullptr, e.port, e.card, e.device);
  ParamXmlWrapper::add_media_dash_attr(reply);
}
