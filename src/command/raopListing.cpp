#include "command/raopListing.h"

#include <cstring>
#include <string>
#include <vector>

#include "devices/avahiDevices.h"
#include "devices/paramXmlWrap.h"
#include "foundation/nasUtil.h"
#include "foundation/sysUtil.h"
#include "foundation/thread.h"
#include "manager/playerManager.h"
#include "player/player.h"

namespace {

const char* const kRaopBrowse = "/usr/sbin/avahi-browse -rkpt _raop._tcp|grep '=;'";
constexpr int kBrowseSeconds = 10;
constexpr size_t kFields = 10;
constexpr size_t kNameBuf = 256;
constexpr size_t kInterfaceMax = 31;
constexpr size_t kPortMax = 7;

// The fields of one line; the last one (the TXT record) takes the rest.
std::vector<std::string> fields_of(const std::string& line) {
  std::vector<std::string> out;
  size_t at = 0;
  while (out.size() + 1 < kFields) {
    const size_t semi = line.find(';', at);
    if (semi == std::string::npos) break;
    out.push_back(line.substr(at, semi - at));
    at = semi + 1;
  }
  out.push_back(line.substr(at));
  return out;
}

// The value of `key` in a TXT record of quoted "key=value" strings; false
// when the key is not there.
bool txt_value(const std::string& txt, const char* key, std::string& value) {
  const std::string want = std::string(key) + "=";
  size_t at = 0;
  for (;;) {
    const size_t open = txt.find('"', at);
    if (open == std::string::npos) return false;
    const size_t close = txt.find('"', open + 1);
    const std::string piece = txt.substr(open + 1, close == std::string::npos ? std::string::npos : close - open - 1);
    if (piece.compare(0, want.size(), want) == 0) {
      value = piece.substr(want.size());
      return true;
    }
    if (close == std::string::npos) return false;
    at = close + 1;
  }
}

const char* et_word(const std::string& text) {
  if (text.find('1') != std::string::npos) return "rsa";
  if (text.find('0') != std::string::npos) return "no";
  return "notSupport";
}

const char* cn_word(const std::string& text) { return text.find('0') != std::string::npos ? "pcm" : "notSupport"; }

const char* text_of(const XMLNode& node) {
  if (node.isEmpty()) return nullptr;
  const char* t = node.getText();
  return t && *t ? t : nullptr;
}

}  // namespace

int gen_raop_devices(const std::string& text, XMLNode& reply) {
  struct seen_s {
    std::string name, address;
  };
  std::vector<seen_s> seen;
  int added = 0;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    const std::vector<std::string> f = fields_of(text.substr(at, end - at));
    at = end + 1;
    if (f.size() < kFields - 1 || f[0] != "=") continue;
    const std::string& service = f[3];
    const std::string& address = f[7];
    bool repeated = false;
    for (const seen_s& s : seen)
      if (s.name == service && s.address == address) repeated = true;
    if (repeated || service.empty()) continue;
    seen.push_back(seen_s{service, address});

    // A speaker's service name is its MAC, "@", and its name.
    char decoded[kNameBuf] = {0};
    decodeAvahi(service.c_str(), decoded, sizeof decoded);
    const std::string name = decoded;
    const size_t atSign = name.find('@');
    const std::string id = name.substr(0, atSign);
    const std::string shown = atSign == std::string::npos ? name : name.substr(atSign + 1);

    XMLNode device = XMLNode::createXMLTopNode("device");
    device.addAttribute("Type", "Raop");
    ParamXmlWrapper::add_child_node(device, "deviceId", id.c_str());
    ParamXmlWrapper::add_child_node(device, "deviceName", shown.c_str());
    XMLNode ip = ParamXmlWrapper::add_child_node(device, "ip", address.c_str());
    ip.addAttribute("interface", f[1].substr(0, kInterfaceMax).c_str());
    XMLNode type = ParamXmlWrapper::add_child_node(device, "type", "audio");
    type.addAttribute("protocol", "raop");
    type.addAttribute("port", f[8].substr(0, kPortMax).c_str());
    std::string value;
    const std::string txt = f.size() == kFields ? f[9] : std::string();
    if (txt_value(txt, "et", value) && !value.empty()) type.addAttribute("et", et_word(value));
    if (txt_value(txt, "cn", value) && !value.empty()) type.addAttribute("cn", cn_word(value));
    ParamXmlWrapper::add_child_node(device, "icon", "v3_menu/multizone/airplay");
    ParamXmlWrapper::add_child_node(device, "location", "remote");
    reply.addChild(device);
    ++added;
  }
  return added;
}

bool raop_device_playable(const XMLNode& device) {
  const XMLNode type = device.getChildNode("type");
  if (type.isEmpty()) return false;
  const char* cn = type.getAttribute("cn");
  const char* et = type.getAttribute("et");
  return cn && std::strcmp(cn, "pcm") == 0 && et && std::strcmp(et, "notSupport") != 0;
}

void list_raop_render(CPlayerManager* manager, XMLNode& reply) {
  std::string text;
  if (execute_external_cmd(kRaopBrowse, text, kBrowseSeconds) != 0) text.clear();
  const int before = reply.nChildNode("device");
  gen_raop_devices(text, reply);
  if (!manager) return;
  ThreadWriteLock registry(manager->getRWLock());
  // Only the speakers: what other listings found stays as it was.
  manager->invalidRenderCacheOfType_(PLAYER_TYPE_RAOP);
  const int count = reply.nChildNode("device");
  for (int i = before; i < count; ++i) {
    XMLNode device = reply.getChildNode("device", i);
    if (!raop_device_playable(device)) continue;
    const char* id = text_of(device.getChildNode("deviceId"));
    const char* name = text_of(device.getChildNode("deviceName"));
    if (!id || !name) continue;
    const XMLNode type = device.getChildNode("type");
    const char* ip = device.getChildNode("ip").getText();
    const char* port = type.getAttribute("port");
    manager->addRenderInCache(id, name, ip ? ip : "", PLAYER_TYPE_RAOP | PLAYER_TYPE_AUDIO, type.getAttribute("et"),
                              port ? itoa(port) : 0, "", "");
  }
}
