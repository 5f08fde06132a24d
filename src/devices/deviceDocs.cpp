// Device documents from the agent's list and from an AirPlay list, and the
// front-end's application attributes laid over a finished listing.
#include <cstring>
#include <map>
#include <string>

#include "devices/paramXmlWrap.h"
#include "foundation/rootPath.h"

namespace {

const char* const kMediaDashFile = "/etc/config/mediaDash.conf";

bool has_text(const XMLNode& node) { return !node.isEmpty() && node.getText() != nullptr; }

const char* text_or_empty(const XMLNode& node) {
  const char* t = node.getText();
  return t ? t : "";
}

// The words of the encryption and codec lists, by the digits they hold;
// "1" wins over "0" for the encryption.
const char* encryption_word(const char* et) {
  if (std::strchr(et, '1')) return "rsa";
  if (std::strchr(et, '0')) return "no";
  return "notSupport";
}

const char* codec_word(const char* cn) { return std::strchr(cn, '0') ? "pcm" : "notSupport"; }

}  // namespace

int ParamXmlWrapper::dlna_device_doc_gen(const std::string& text, XMLNode& reply) {
  XMLNode list = XMLNode::parseString(text.c_str(), "root", nullptr);
  if (list.isEmpty()) return -1;
  XMLNode status = list.getChildNode("status");
  if (has_text(status) && std::strcmp(status.getText(), "localServer_ERR") == 0) return -1;

  const int count = list.nChildNode("device");
  for (int i = 0; i < count; ++i) {
    XMLNode source = list.getChildNode("device", i);
    if (source.getChildNode("type").isEmpty()) continue;
    // The element's own name is kept, whatever its case.
    XMLNode device = reply.addChild(source.getName());
    device.addAttribute("Type", "DLNA");
    const int children = source.nChildNode();
    for (int c = 0; c < children; ++c) {
      XMLNode child = source.getChildNode(c);
      add_child_node(device, child.getName(), child.getText());
    }
    add_child_node(device, "icon", "v3_menu/multizone/dlna");
    add_child_node(device, "location", "remote");
  }
  return 0;
}

int ParamXmlWrapper::air_play_device_doc_gen(const std::string& text, XMLNode& reply) {
  XMLNode list = XMLNode::parseString(text.c_str(), "root", nullptr);
  if (list.isEmpty()) return 0;
  XMLNode devices = list.getChildNode("devices");
  if (devices.isEmpty()) return 0;

  const int count = devices.nChildNode();
  for (int i = 0; i < count; ++i) {
    XMLNode entry = devices.getChildNode(i);
    XMLNode id = entry.getChildNode("device_id");
    XMLNode type = entry.getChildNode("type");
    const char* typeText = type.getText();
    if (!has_text(id)) continue;
    if (typeText && std::strcmp(typeText, "raop") == 0) continue;

    XMLNode device = add_child_node(reply, "device", nullptr);
    const bool chromecast = typeText && std::strcmp(typeText, "chromecast") == 0;
    if (typeText) device.addAttribute("Type", chromecast ? "Chromecast" : "AirPlay");
    add_child_node(device, "deviceId", id.getText());
    XMLNode name = entry.getChildNode("device_name");
    if (has_text(name)) add_child_node(device, "deviceName", name.getText());

    if (typeText) {
      XMLNode model = entry.getChildNode("model");
      if (chromecast || std::strcmp(typeText, "airplay") == 0) {
        if (has_text(model)) {
          XMLNode node = add_child_node(device, "type",
                                        std::strstr(model.getText(), "Xbmc") ? "video,photo" : "video,photo,audio");
          node.addAttribute("protocol", chromecast ? "chromecast" : "airplay");
        } else {
          add_child_node(device, "type", nullptr);
        }
      } else {
        XMLNode node = add_child_node(device, "type", "audio");
        node.addAttribute("protocol", "raop");
        XMLNode port = entry.getChildNode("port");
        if (has_text(port)) node.addAttribute("port", port.getText());
        XMLNode et = entry.getChildNode("et");
        if (has_text(et)) node.addAttribute("et", encryption_word(et.getText()));
        XMLNode cn = entry.getChildNode("cn");
        if (has_text(cn)) node.addAttribute("cn", codec_word(cn.getText()));
      }
    }
    for (const char* field : {"ip", "mac", "protovers", "model"}) {
      XMLNode node = entry.getChildNode(field);
      if (has_text(node)) add_child_node(device, field, node.getText());
    }
    // An entry without a type has no kind; it is shown as AirPlay.
    add_child_node(device, "icon", chromecast ? "v3_menu/multizone/chromecast" : "v3_menu/multizone/airplay");
    add_child_node(device, "location", "remote");
  }
  return 0;
}

void ParamXmlWrapper::add_media_dash_attr(XMLNode& reply) {
  XMLNode file = XMLNode::parseFile(vessord::root_path(kMediaDashFile).c_str(), nullptr, nullptr);
  if (file.isEmpty()) return;
  // The rows stand at the file's top level; a file written with one
  // enclosing element is read the same way.
  XMLNode rows = file;
  if (rows.nChildNode("device") == 0 && rows.nChildNode() > 0) rows = rows.getChildNode(0);

  struct mediaDashAttr {
    std::string allow;
    std::string inuse;
  };
  std::map<std::string, mediaDashAttr> byId;
  // Only as many rows as the listing has devices are read.
  const int count = reply.nChildNode("device");
  for (int i = 0; i < count; ++i) {
    XMLNode row = rows.getChildNode("device", i);
    if (row.isEmpty()) continue;
    const char* id = row.getAttribute("id");
    if (!id) continue;
    byId[id] = mediaDashAttr{text_or_empty(row.getChildNode("allow_apps")), text_or_empty(row.getChildNode("inuse_apps"))};
  }

  for (int i = 0; i < count; ++i) {
    XMLNode device = reply.getChildNode("device", i);
    XMLNode id = device.getChildNode("deviceId");
    if (!has_text(id)) continue;
    auto it = byId.find(id.getText());
    if (it == byId.end()) continue;
    if (!it->second.allow.empty()) add_child_node(device, "allow_apps", it->second.allow.c_str());
    if (!it->second.inuse.empty()) add_child_node(device, "inuse_apps", it->second.inuse.c_str());
  }
}
