// ListAirplayRender: the AirPlay devices of the network, browsed by mDNS,
// put into the render cache so that a client can hand them a playlist.
// ListRender never puts an AirPlay device into the cache; this command
// stands beside it and changes nothing of what ListRender answers.
#include <cstring>
#include <string>

#include "command/raopListing.h"
#include "command/renderListing.h"
#include "command/renderMerge.h"
#include "devices/avahiDevices.h"
#include "devices/paramXmlWrap.h"
#include "foundation/nasUtil.h"
#include "foundation/sysUtil.h"
#include "foundation/thread.h"
#include "manager/playerManager.h"
#include "player/player.h"

namespace {

const char* const kAirplayBrowse = "/usr/sbin/avahi-browse -rkpt _airplay._tcp|grep '=;'";
constexpr int kBrowseSeconds = 10;
constexpr int kDefaultPort = 7000;

const char* text_of(const XMLNode& node) {
  if (node.isEmpty()) return nullptr;
  const char* t = node.getText();
  return t && *t ? t : nullptr;
}

}  // namespace

int list_airplay_render(CPlayerManager* manager, XMLNode& reply) {
  std::string text;
  if (execute_external_cmd(kAirplayBrowse, text, kBrowseSeconds) != 0) text.clear();
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  gen_avahi_device(0, text, reply);

  if (manager) {
    ThreadWriteLock registry(manager->getRWLock());
    // Only the AirPlay entries: what other listings found stays as it was.
    manager->invalidRenderCacheOfType_(PLAYER_TYPE_AIRPLAY);
    const int count = reply.nChildNode("device");
    for (int i = 0; i < count; ++i) {
      XMLNode device = reply.getChildNode("device", i);
      XMLNode type = device.getChildNode("type");
      const char* id = text_of(device.getChildNode("deviceId"));
      const char* name = text_of(device.getChildNode("deviceName"));
      if (!text_of(type) || !id || !name) continue;
      const char* ip = device.getChildNode("ip").getText();
      const char* port = type.getAttribute("port");
      manager->addRenderInCache(id, name, ip ? ip : "", PLAYER_TYPE_AIRPLAY | render_type_of(device), nullptr,
                                port ? itoa(port) : kDefaultPort, "", "");
    }
  }
  list_raop_render(manager, reply);  // the speakers, after the AirPlay devices
  ParamXmlWrapper::add_media_dash_attr(reply);
  return 0;
}
