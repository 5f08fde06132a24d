// Sound-card device documents: the music daemon's output lines, the card
// status and HDMI monitor names from /proc/asound, and the restart of the
// music package when a model that must have an analog output lists none.
#include "devices/alsaDevices.h"

#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "devices/paramXmlWrap.h"
#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/shellRunner.h"

namespace {

using vessord::ShellLine;

constexpr int kWordMax = 1024;
constexpr size_t kNameMax = 1023;

struct outputKind_s {
  const char* word;
  const char* icon;
};
const outputKind_s kKinds[] = {
    {"UNKNOWN", "v3_menu/multizone/alsa_other"},
    {"USB", "v3_menu/multizone/alsa_usb"},
    {"HDMI", "v3_menu/multizone/alsa_hdmi"},
    {"ANALOG", "v3_menu/multizone/alsa_analog"},
};
enum { KIND_UNKNOWN = 0, KIND_USB = 1, KIND_HDMI = 2, KIND_ANALOG = 3 };

struct dirCloser {
  void operator()(DIR* d) const { closedir(d); }
};

// Searches forward from `*pos` for a word that begins with `key`; its rest
// goes to `value`. The search gives up at the end of the line or at a word
// too long to read.
bool find_field(const char* text, int* pos, const char* key, std::string& value) {
  char word[kWordMax];
  const size_t keyLen = std::strlen(key);
  for (;;) {
    int advance = 0;
    if (Get_Next_Word(text + *pos, 0, word, sizeof word, &advance) != 0) return false;
    *pos += advance;
    if (std::strncmp(word, key, keyLen) == 0) {
      value = word + keyLen;
      return true;
    }
  }
}

bool find_number(const char* text, int* pos, const char* key, long& value) {
  std::string t;
  if (!find_field(text, pos, key, t)) return false;
  value = std::strtol(t.c_str(), nullptr, 10);
  return true;
}

// "CARD=c,DEV=d" in any order; a number not given is 0.
void read_hw_param(const std::string& text, int& card, int& device) {
  card = 0;
  device = 0;
  size_t start = 0;
  while (start <= text.size()) {
    size_t comma = text.find(',', start);
    const std::string part = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    if (part.compare(0, 5, "CARD=") == 0) card = static_cast<int>(std::strtol(part.c_str() + 5, nullptr, 10));
    else if (part.compare(0, 4, "DEV=") == 0) device = static_cast<int>(std::strtol(part.c_str() + 4, nullptr, 10));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
}

void cut_trailing(std::string& s, const char* set) {
  while (!s.empty() && std::strchr(set, s.back())) s.pop_back();
}

// The ELD file of the box's own HDMI output, by the hardware model.
std::string own_hdmi_eld_template(const std::string& model) {
  if (model.find("zorpa") != std::string::npos) return "/proc/asound/card0/eld#3.1";
  // "zorpaU" cannot match here any more: "zorpa" was tested first.
  if (model.find("zorpaU") != std::string::npos || model.find("klimt") != std::string::npos)
    return "/proc/asound/card0/eld#0.1";
  if (model.find("vantu") != std::string::npos) return "/proc/asound/card0/eld#0.%s";
  return "/proc/asound/card0/eld#2.%s";
}

// Adds the Attributes block of one output.
void add_attributes(XMLNode& device, const alsaOutput_s& out) {
  XMLNode attrs = ParamXmlWrapper::add_child_node(device, "Attributes", nullptr);
  const std::string rate = std::to_string(out.sampleRate);
  XMLNode attr = ParamXmlWrapper::add_child_node(attrs, "Attr", nullptr);
  ParamXmlWrapper::add_child_node(attr, "Name", "Sample Frequency");
  ParamXmlWrapper::add_child_node(attr, "Tag", "SAMPLERATE");
  ParamXmlWrapper::add_child_node(attr, "Allow", "44100,48000,88200,96000,176400,192000,352800,384000,Auto");
  ParamXmlWrapper::add_child_node(attr, "CurrentSetting", out.sampleRateMode == 0 ? "Auto" : rate.c_str());
  ParamXmlWrapper::add_child_node(attr, "CurrentValue", rate.c_str());
  if (out.devType != KIND_USB) return;
  const char* dsd = out.dsd == 0 ? "Disable" : "Enable";
  XMLNode pass = ParamXmlWrapper::add_child_node(attrs, "Attr", nullptr);
  ParamXmlWrapper::add_child_node(pass, "Name", "DSD Passthrough");
  ParamXmlWrapper::add_child_node(pass, "Tag", "DSDPASS");
  ParamXmlWrapper::add_child_node(pass, "Allow", "Enable,Disable");
  ParamXmlWrapper::add_child_node(pass, "CurrentSetting", dsd);
  ParamXmlWrapper::add_child_node(pass, "CurrentValue", dsd);
}

void add_output(XMLNode& reply, const alsaOutput_s& out) {
  const outputKind_s& kind = kKinds[out.devType];
  XMLNode device = ParamXmlWrapper::add_child_node(reply, "device", nullptr);
  device.addAttribute("Type", "ALSA");
  device.addAttribute("Subtype", kind.word);
  ParamXmlWrapper::add_child_node(device, "deviceId", out.uid.c_str());
  if (out.devType == KIND_HDMI) {
    std::string monitor;
    if (hdmi_monitor_name(out.uid, monitor)) ParamXmlWrapper::add_child_node(device, "firendlyName", monitor.c_str());
  }
  ParamXmlWrapper::add_child_node(device, "deviceName", out.name.c_str());
  ParamXmlWrapper::add_child_node(device, "type", "audio");
  ParamXmlWrapper::add_child_node(device, "ip", std::to_string(out.number).c_str());
  ParamXmlWrapper::add_child_node(device, "icon", kind.icon);
  ParamXmlWrapper::add_child_node(device, "location", "local");

  char status[128] = {0};
  if (out.card >= 0 && out.device >= 0 && checkCardStatus(out.card, out.device, status, sizeof status) == 0) {
    std::string text = status;
    cut_trailing(text, "\r\n ");
    ParamXmlWrapper::add_child_node(device, "cardStatus", text.c_str());
    device.addAttribute("card", std::to_string(out.card).c_str());
    device.addAttribute("device", std::to_string(out.device).c_str());
  } else {
    ParamXmlWrapper::add_child_node(device, "cardStatus", "unknown");
  }
  add_attributes(device, out);
}

// After a first listing without an analog output, on the models that must
// have one: restart the music package. 1 when it was restarted.
int restart_music_package_if_needed(bool analogSeen) {
  std::string support;
  if (vessord::shell_read(ShellLine("/sbin/rakcfg 'System IO' VOICE_ALERT_SUPPORT -f /etc/model.conf", {}), support,
                          10) != 0)
    return 0;
  if (std::atoi(support.c_str()) != 1) return 0;
  VLOG(LOG_COLOR_NOTICE, "Check analog == %d\n", analogSeen ? 1 : 0);
  if (analogSeen) return 0;

  VLOG(LOG_COLOR_NOTICE, "Can't found analog, and try to restart VexMusicPlayer\n");
  std::string path;
  if (vessord::shell_read(ShellLine("/sbin/rakcfg -f /etc/config/tarpo.conf KIVO Install_Path", {}), path, 1024) != 0)
    return 0;
  // The tool's text is used as it stands, line end included.
  if (path.empty()) return 0;
  std::unique_ptr<DIR, dirCloser> dir(opendir(path.c_str()));
  if (!dir) return 0;
  const ShellLine restart("%s/VexMusicPlayer.sh restart", {path});
  VLOG(LOG_COLOR_NOTICE, "excute command %s\n", restart.display().c_str());
  // A path that a shell would read as more than a path is not run.
  if (!restart.ok()) return 0;
  const int ret = vessord::shell_system(restart);
  VLOG(LOG_COLOR_NOTICE, "system ret = %d\n", ret);
  return 1;
}

}  // namespace

int Get_Output_DeviceType(const char* text, int* advance) {
  int pos = 0;
  std::string value;
  int kind = KIND_UNKNOWN;
  if (text && find_field(text, &pos, "devType:", value)) {
    if (!value.empty() && value[0] >= '0' && value[0] <= '3') kind = value[0] - '0';
  } else {
    pos = 0;
  }
  if (advance) *advance = pos;
  return kind;
}

int checkCardStatus(int card, int device, char* buffer, int size) {
  if (card < 0 || device < 0 || !buffer || size <= 0) return 1;
  char templ[128];
  std::snprintf(templ, sizeof templ, "/bin/cat /proc/asound/card%d/pcm%dp/sub0/status", card, device);
  std::string line;
  if (vessord::shell_read_line(ShellLine(templ, {}), line, static_cast<size_t>(size)) != 0) return 1;
  std::snprintf(buffer, static_cast<size_t>(size), "%s", line.c_str());
  return 0;
}

bool parse_output_line(const std::string& lineText, alsaOutput_s& out) {
  out = alsaOutput_s();
  const char* text = lineText.c_str();
  char word[kWordMax];
  int pos = 0;
  int advance = 0;
  if (Get_Next_Word(text, 0, word, sizeof word, &advance) != 0 || std::strcmp(word, "Output") != 0) return false;
  pos += advance;
  if (Get_Next_Word(text + pos, 0, word, sizeof word, &advance) != 0) return false;
  pos += advance;
  out.number = static_cast<int>(std::strtol(word, nullptr, 10));

  const size_t open = lineText.find_first_not_of(" \t", static_cast<size_t>(pos));
  if (open == std::string::npos || lineText[open] != '(') return false;
  const size_t close = lineText.find(") is ", open + 1);
  if (close == std::string::npos) return false;
  out.name = lineText.substr(open + 1, close - open - 1);
  if (out.name.empty() || out.name.size() > kNameMax) return false;
  pos = static_cast<int>(close + 5);

  if (!find_field(text, &pos, "uid:", out.uid)) return false;
  out.devType = Get_Output_DeviceType(text + pos, &advance);
  pos += advance;
  std::string hw;
  if (!find_number(text, &pos, "sampleRate:", out.sampleRate) ||
      !find_number(text, &pos, "sampleRateMode:", out.sampleRateMode) || !find_number(text, &pos, "dsd:", out.dsd) ||
      !find_number(text, &pos, "dsdMode:", out.dsdMode) || !find_field(text, &pos, "hwParam:hw:", hw))
    return false;
  read_hw_param(hw, out.card, out.device);
  return true;
}

bool hdmi_monitor_name(const std::string& uid, std::string& name) {
  name.clear();
  const size_t underscore = uid.find('_');
  if (underscore != std::string::npos) {
    const size_t dash = uid.find('-', underscore);
    if (dash == std::string::npos) return false;
    const int n = uid[dash + 1] - '0';
    // The card's name comes from the music daemon's text: it runs only as
    // literal text in its place, or not at all.
    const ShellLine line(
        "/bin/cat /proc/asound/%s/eld#?.%s | grep monitor_name | tr -d 'monitor_name' | awk '{$1=$1;print}'",
        {uid.substr(0, underscore), std::to_string(n)});
    std::string out;
    if (vessord::shell_read(line, out, 1024) != 0) return false;
    if (!out.empty()) out.pop_back();
    name = out;
    return true;
  }
  if (uid.find("KINOVUTOHDMI") == std::string::npos) return false;

  std::string model;
  vessord::shell_read_line(ShellLine("/sbin/rakcfg System Model -d unknow -f /etc/config/ostral.conf", {}), model, 1024);
  const std::string file = own_hdmi_eld_template(model);
  // The character behind "KINOVUTOHDMI", less one: an id ending in 1 reads
  // the file ".0".
  const char one = static_cast<char>((uid.size() > 12 ? uid[12] : '\0') - 1);
  const std::string templ = "/bin/cat " + file + " | grep monitor_name |awk '{print $2,$3,$4,$5}' | sed 's/ *$//'";
  const bool needsChar = file.find("%s") != std::string::npos;
  const ShellLine line = needsChar ? ShellLine(templ.c_str(), {std::string(1, one)}) : ShellLine(templ.c_str(), {});
  std::string out;
  if (vessord::shell_read(line, out, 1024) != 0) return false;
  if (!out.empty() && out.back() == '\n') out.pop_back();
  name = out;
  return true;
}

int ParamXmlWrapper::alsa_device_doc_gen(const std::string& text, XMLNode& reply, int attempt) {
  bool analogSeen = false;
  const char* p = text.c_str();
  while (*p) {
    const size_t len = std::strcspn(p, "\r\n");
    alsaOutput_s out;
    if (parse_output_line(std::string(p, len), out) && (attempt == 0 || out.devType == KIND_ANALOG)) {
      if (out.devType == KIND_ANALOG) {
        VLOG(LOG_COLOR_NOTICE, "Analog device has found!!\n");
        analogSeen = true;
      }
      add_output(reply, out);
    }
    int advance = 0;
    if (Go_Next_Line(p, 0, &advance) != 0) break;
    p += advance;
  }
  if (attempt != 0) return 0;
  return restart_music_package_if_needed(analogSeen);
}
