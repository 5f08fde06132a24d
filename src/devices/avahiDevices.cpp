#include "devices/avahiDevices.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "devices/paramXmlWrap.h"
#include "foundation/log.h"

namespace {

constexpr size_t kLineMax = 1023;   // a line is cut to this many characters
constexpr size_t kNameBuf = 256;    // the decoded service name
constexpr size_t kInterfaceBuf = 32;
constexpr size_t kPortBuf = 8;
constexpr size_t kFriendlyMax = 1023;

// What a TXT key does.
enum txtAction_e { TXT_IDENTITY = 1, TXT_PLAIN = 2, TXT_METHOD = 3, TXT_FORCE = 4 };

struct txtRow_s {
  txtAction_e action;
  const char* key;
  const char* node;
};

const txtRow_s kAirplayRows[] = {
    {TXT_IDENTITY, "deviceid", "deviceId"}, {TXT_IDENTITY, "deviceid", "mac"}, {TXT_PLAIN, "model", "model"},
    {TXT_METHOD, "pin", "authMethod"},      {TXT_METHOD, "pw", "authMethod"},  {TXT_FORCE, "psi", "forceAuth"},
};
const txtRow_s kChromecastRows[] = {
    {TXT_IDENTITY, "id", "deviceId"},
    {TXT_PLAIN, "md", "model"},
};

// The rows of `kind`, and their number; none for RAOP.
std::pair<const txtRow_s*, size_t> rows_of(uint32_t kind) {
  if (kind == AVAHI_AIRPLAY_E) return {kAirplayRows, sizeof kAirplayRows / sizeof kAirplayRows[0]};
  if (kind == AVAHI_CHROMECAST_E) return {kChromecastRows, sizeof kChromecastRows / sizeof kChromecastRows[0]};
  return {nullptr, 0};
}

// A service already met in this call: the undecoded name and the address.
struct devMap_t {
  std::string name;
  std::string address;
};

std::string bounded(const char* text, size_t max) {
  if (!text) return std::string();
  return std::string(text, strnlen(text, max));
}

// The value of "fn=" in a TXT text: up to `" "ic=`, or else up to the next
// `" "`. Empty when there is no such value.
std::string friendly_name(const char* txt) {
  const char* start = std::strstr(txt, "fn=");
  if (!start) return std::string();
  start += 3;
  const char* end = std::strstr(start, "\" \"ic=");
  if (!end) end = std::strstr(start, "\" \"");
  if (!end || end == start) return std::string();
  const size_t len = static_cast<size_t>(end - start);
  if (len > kFriendlyMax) return std::string();
  return std::string(start, len);
}

void set_text(XMLNode& node, const char* text) {
  while (node.nText() > 0) node.deleteText(0);
  node.addText(text);
}

}  // namespace

int decodeAvahi(const char* source, char* target, size_t targetSize) {
  if (!source || !*source) return 1;
  if (!target || targetSize == 0) return 0;
  size_t out = strnlen(target, targetSize - 1);
  auto put = [&](char c) {
    if (out + 1 < targetSize) target[out++] = c;
    target[out] = '\0';
  };
  const char* p = source;
  while (*p) {
    if (*p != '\\') {
      put(*p++);
      continue;
    }
    if (p[1] == '\0') return 0;  // a lone backslash at the end
    if (p[1] >= '0' && p[1] <= '9' && strnlen(p + 1, 3) == 3) {
      const char digits[4] = {p[1], p[2], p[3], '\0'};
      const long value = std::strtol(digits, nullptr, 10);
      // A code of 0 would end the name as a C string: nothing is added.
      if (value > 0 && value < 256) put(static_cast<char>(value));
      p += 4;
      continue;
    }
    ++p;  // dropped; what follows is looked at anew
  }
  return 0;
}

int parseAvahiTxt(char* txt, XMLNode& device, uint32_t kind) {
  if (!txt || !*txt) return 1;
  const auto rows = rows_of(kind);
  const char* forceAuth = "0";
  const char* method = nullptr;
  bool authSeen = false;
  std::vector<std::string> ids;

  char* save = nullptr;
  for (char* piece = strtok_r(txt, "\"", &save); piece; piece = strtok_r(nullptr, "\"", &save)) {
    char* inner = nullptr;
    char* key = strtok_r(piece, "=", &inner);
    if (!key) continue;
    const char* value = strtok_r(nullptr, "=", &inner);
    if (!value) value = "";
    const txtRow_s* row = nullptr;
    for (size_t r = 0; r < rows.second && !row; ++r)
      if (std::strcmp(rows.first[r].key, key) == 0) row = &rows.first[r];
    if (!row) continue;

    switch (row->action) {
      case TXT_IDENTITY:
        if (kind == AVAHI_AIRPLAY_E) {
          char part[6][3] = {};
          std::sscanf(value, "%2s:%2s:%2s:%2s:%2s:%2s", part[0], part[1], part[2], part[3], part[4], part[5]);
          std::string joined;
          for (auto& p : part) joined += p;
          for (const std::string& seen : ids)
            if (seen == joined) return -1;
          ids.push_back(joined);
          ParamXmlWrapper::add_child_node(device, row->node, joined.c_str());
          ParamXmlWrapper::add_child_node(device, (row + 1)->node, value);
        } else {
          for (const std::string& seen : ids)
            if (seen == value) return -1;
          ids.emplace_back(value);
          ParamXmlWrapper::add_child_node(device, row->node, value);
        }
        break;
      case TXT_PLAIN:
        ParamXmlWrapper::add_child_node(device, row->node, value);
        break;
      case TXT_METHOD:
        authSeen = true;
        method = std::strcmp(key, "pin") == 0 ? "Passcode" : "Password";
        break;
      case TXT_FORCE:
        authSeen = true;
        forceAuth = "1";
        break;
    }
  }

  if (kind == AVAHI_AIRPLAY_E) {
    ParamXmlWrapper::add_child_node(device, "forceAuth", forceAuth);
    if (authSeen) ParamXmlWrapper::add_child_node(device, "authMethod", method ? method : "First-Time Passcode");
  }
  return 0;
}

int parseDevices(char* text, XMLNode& reply, uint32_t kind) {
  if (!text || !*text) return -1;
  std::vector<devMap_t> seen;

  char* lineSave = nullptr;
  for (char* raw = strtok_r(text, "\n", &lineSave); raw; raw = strtok_r(nullptr, "\n", &lineSave)) {
    char line[kLineMax + 1];
    std::snprintf(line, sizeof line, "%s", raw);

    char* save = nullptr;
    const char* state = strtok_r(line, ";", &save);
    if (!state || std::strcmp(state, "=") != 0) continue;
    const std::string interfaceName = bounded(strtok_r(nullptr, ";", &save), kInterfaceBuf - 1);
    strtok_r(nullptr, ";", &save);  // address family
    char* service = strtok_r(nullptr, ";", &save);
    for (int skip = 0; skip < 3; ++skip) strtok_r(nullptr, ";", &save);  // type, domain, host
    const char* address = strtok_r(nullptr, ";", &save);
    const char* port = strtok_r(nullptr, ";", &save);
    char* txt = strtok_r(nullptr, ";", &save);
    // A line cut short before its port is no service record.
    if (!service || !address || !port) continue;

    XMLNode device = XMLNode::createXMLTopNode("device");
    char name[kNameBuf] = {0};
    decodeAvahi(service, name, sizeof name);
    XMLNode nameNode = ParamXmlWrapper::add_child_node(device, "deviceName", name);

    bool repeated = false;
    for (const devMap_t& m : seen)
      if (m.name == service && m.address == address) repeated = true;
    if (repeated) continue;  // the same service on another interface
    seen.push_back(devMap_t{service, address});

    XMLNode ip = ParamXmlWrapper::add_child_node(device, "ip", address);
    ip.addAttribute("interface", interfaceName.c_str());
    const std::string portText = bounded(port, kPortBuf - 1);

    if (txt) {
      const std::string fn = friendly_name(txt);
      if (!fn.empty()) set_text(nameNode, fn.c_str());
    }
    const int parsed = parseAvahiTxt(txt, device, kind);
    if (parsed == -1) {
      VLOG(LOG_COLOR_FAIL, "There is duplicate device!\n");
      continue;
    }
    if (parsed != 0) VLOG(LOG_COLOR_FAIL, "parse avahi txt something error!\n");

    const char* model = device.getChildNode("model").getText();
    XMLNode type;
    if (kind == AVAHI_AIRPLAY_E) {
      device.addAttribute("Type", "AirPlay");
      const char* words = nullptr;
      if (!device.getChildNode("model").isEmpty())
        words = model && std::strstr(model, "Xbmc") ? "video,photo" : "video,photo,audio";
      type = ParamXmlWrapper::add_child_node(device, "type", words);
      type.addAttribute("protocol", "airplay");
    } else if (kind == AVAHI_RAOP_E) {
      device.addAttribute("Type", "Raop");
      type = ParamXmlWrapper::add_child_node(device, "type", nullptr);
      type.addAttribute("protocol", "raop");
      VLOG(LOG_COLOR_FAIL, "Not implement finish\n");
    } else {
      device.addAttribute("Type", "Chromecast");
      // A record without "md" is read as a model without "Audio".
      type = ParamXmlWrapper::add_child_node(device, "type",
                                             model && std::strstr(model, "Audio") ? "audio" : "video,photo,audio");
      type.addAttribute("protocol", "chromecast");
    }
    type.addAttribute("port", portText.c_str());
    if (kind == AVAHI_AIRPLAY_E) ParamXmlWrapper::add_child_node(device, "icon", "v3_menu/multizone/airplay");
    if (kind == AVAHI_CHROMECAST_E) ParamXmlWrapper::add_child_node(device, "icon", "v3_menu/multizone/chromecast");
    ParamXmlWrapper::add_child_node(device, "location", "remote");
    reply.addChild(device);
  }
  return 0;
}

int gen_avahi_device(uint32_t source, const std::string& text, XMLNode& reply) {
  uint32_t kind;
  if (source == 0) kind = AVAHI_AIRPLAY_E;
  else if (source == 1) kind = AVAHI_CHROMECAST_E;
  else return 0;
  if (text.empty()) return 0;
  // The last character, normally the final line feed, is cut on purpose.
  std::vector<char> copy;
  try {
    copy.assign(text.begin(), text.end() - 1);
    copy.push_back('\0');
  } catch (const std::bad_alloc&) {
    return -1;
  }
  parseDevices(copy.data(), reply, kind);
  return 0;
}
