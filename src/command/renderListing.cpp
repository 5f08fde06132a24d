#include "command/renderListing.h"

#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "command/renderMerge.h"
#include "devices/avahiDevices.h"
#include "devices/paramXmlWrap.h"
#include "foundation/log.h"
#include "foundation/shellRunner.h"
#include "foundation/sysUtil.h"

namespace {

using vessord::ShellChild;
using vessord::ShellLine;

constexpr int kSourceSeconds = 10;
constexpr time_t kCacheSeconds = 10;
constexpr size_t kMaskText = 255;
constexpr int kAlsaAttempts = 2;

const char* const kPackageTest = "/sbin/rakcfg  -f /etc/config/tarpo.conf -d FALSE -c KIVO Enable";
const char* const kDlnaList = "/usr/bin/brelctl -c list";
const char* const kChromecastBrowse = "/usr/sbin/avahi-browse -rkpt _googlecast._tcp|grep '=;'";
const char* const kSoundOutputs = "/tmp/vexmpd/bin/mpc -p 8893 outputs";
const char* const kPackageName = "/sbin/rakcfg KIVO Name -d null -f /etc/config/tarpo.conf";
const char* const kUnknownBrowse = "/usr/sbin/avahi-browse -krpt _googlecast._tcp | grep '=;'";

struct maskWord_s {
  const char* word;
  unsigned bit;
};
const maskWord_s kMaskWords[] = {
    {"dlna", RENDER_MASK_DLNA},   {"airplay", RENDER_MASK_AIRPLAY},   {"chromecast", RENDER_MASK_CHROMECAST},
    {"alsa", RENDER_MASK_ALSA},   {"kinovuer", RENDER_MASK_KINOVUER},
};

bool selects(unsigned mask, unsigned bit) { return mask == 0 || (mask & bit) != 0; }

// The media package counts as enabled only when its setting reads "TRUE".
bool package_enabled() {
  std::string line;
  const int got = vessord::shell_read_line(ShellLine(kPackageTest, {}), line, 10);
  if (got < 0) return false;
  if (got != 0) {
    VLOG(LOG_COLOR_FAIL, "Error when check is tarpo enable\n");
    return false;
  }
  return line.compare(0, 4, "TRUE") == 0;
}

// The id of a browse line: the text after `"id=` up to the next quote, in
// a field of 128 bytes; "" when there is none.
std::string chromecast_id(const std::string& line) {
  const size_t at = line.find("\"id=");
  if (at == std::string::npos) return std::string();
  const size_t start = at + 4;
  const size_t end = line.find('"', start);
  std::string id = line.substr(start, end == std::string::npos ? std::string::npos : end - start);
  if (id.size() > 127) id.resize(127);
  return id;
}

// The name of a browse line: what follows `"fn=`, up to the quote before
// ` "ic=`, or else up to the next `" "`; "Unknown" without either.
std::string chromecast_name(const std::string& line) {
  const size_t at = line.find("\"fn=");
  if (at == std::string::npos) return "Unknown";
  const size_t start = at + 4;
  size_t end = line.find("\" \"ic=", start);
  if (end == std::string::npos) end = line.find("\" \"", start);
  if (end == std::string::npos) return "Unknown";
  return line.substr(start, end - start);
}

}  // namespace

unsigned parse_render_mask(const char* text) {
  if (!text) return 0;
  const std::string copy(text, strnlen(text, kMaskText));
  if (copy.find("0x") != std::string::npos) return static_cast<unsigned>(std::strtoul(copy.c_str(), nullptr, 16));
  unsigned mask = 0;
  size_t start = 0;
  for (;;) {
    const size_t plus = copy.find('+', start);
    const std::string word = copy.substr(start, plus == std::string::npos ? std::string::npos : plus - start);
    for (const maskWord_s& w : kMaskWords)
      if (strcasecmp(word.c_str(), w.word) == 0) mask |= w.bit;
    if (plus == std::string::npos) break;
    start = plus + 1;
  }
  return mask;
}

bool CRenderListCache::checkStale(time_t now) {
  std::lock_guard<std::mutex> guard(m_lock);
  // Exactly ten seconds is still fresh.
  m_bStale = now - m_lastRefresh > kCacheSeconds;
  if (m_bStale) m_lastRefresh = now;
  return m_bStale;
}

std::string CRenderListCache::dlnaOutput() {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_dlnaOutput;
}

void CRenderListCache::setDlnaOutput(const std::string& text) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_dlnaOutput = text;
}

std::string CRenderListCache::chromecastOutput() {
  std::lock_guard<std::mutex> guard(m_lock);
  return m_chromecastOutput;
}

void CRenderListCache::setChromecastOutput(const std::string& text) {
  std::lock_guard<std::mutex> guard(m_lock);
  m_chromecastOutput = text;
}

CRenderListCache& render_list_cache() {
  static CRenderListCache cache;
  return cache;
}

int list_render(CPlayerManager* manager, XMLNode& root, XMLNode& reply) {
  const bool enabled = package_enabled();
  const time_t now = time(nullptr);
  XMLNode param;
  ParamXmlWrapper::get_param_node(root, param, "renderType");
  const unsigned mask = parse_render_mask(param.isEmpty() ? nullptr : param.getText());
  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);

  CRenderListCache& cache = render_list_cache();
  const bool stale = cache.checkStale(now);
  std::string output;

  if (selects(mask, RENDER_MASK_DLNA)) {
    if (stale) {
      if (execute_external_cmd(kDlnaList, output, kSourceSeconds) == 0) cache.setDlnaOutput(output);
      else VLOG(LOG_COLOR_FAIL, "brelctl ... fail\n");
    }
    ParamXmlWrapper::dlna_device_doc_gen(cache.dlnaOutput(), reply);
  }
  VLOG(LOG_COLOR_NOTICE, "using %ld sec for list DLNA\n", static_cast<long>(time(nullptr) - now));

  time_t start = time(nullptr);
  if (enabled && selects(mask, RENDER_MASK_CHROMECAST)) {
    if (stale) {
      if (execute_external_cmd(kChromecastBrowse, output, kSourceSeconds) == 0) cache.setChromecastOutput(output);
      else VLOG(LOG_COLOR_FAIL, "brelctl ... fail\n");
    }
    if (gen_avahi_device(1, cache.chromecastOutput(), reply) != 0) VLOG(LOG_COLOR_FAIL, "Airplay ... fail\n");
  }
  VLOG(LOG_COLOR_NOTICE, "using %ld sec for list airplay and chromecast\n", static_cast<long>(time(nullptr) - start));

  start = time(nullptr);
  if (enabled && selects(mask, RENDER_MASK_ALSA)) {
    // The sound outputs are never cached; a second attempt follows a
    // restart of the music package, for the analog output alone.
    for (int attempt = 0; attempt < kAlsaAttempts; ++attempt) {
      if (execute_external_cmd(kSoundOutputs, output, kSourceSeconds) != 0) break;
      if (ParamXmlWrapper::alsa_device_doc_gen(output, reply, attempt) == 0) break;
    }
  }
  if (enabled)
    VLOG(LOG_COLOR_NOTICE, "using %ld sec for list alsa\n", static_cast<long>(time(nullptr) - start));
  VLOG(LOG_COLOR_NOTICE, "using %ld sec for list kinovuer\n", 0L);

  merge_render_list(manager, reply);
  return 0;
}

int list_unknow_render(XMLNode& reply) {
  std::vector<std::string> names;
  std::string line;
  const int named = vessord::shell_read_line(ShellLine(kPackageName, {}), line, 2048);
  const bool installed = named == 0 && line.find("null") == std::string::npos;
  ShellChild browse;
  if (!installed && browse.start(ShellLine(kUnknownBrowse, {}))) {
    std::vector<std::string> ids;
    while (browse.read_line(line, 2048)) {
      const std::string id = chromecast_id(line);
      bool seen = false;
      for (const std::string& s : ids)
        if (s == id) seen = true;
      if (seen) continue;
      ids.push_back(id);
      names.push_back(chromecast_name(line));
    }
    browse.wait();
  }

  ParamXmlWrapper::create_status_xml_doc(reply, "0", nullptr);
  for (const std::string& name : names) {
    XMLNode device = ParamXmlWrapper::add_child_node(reply, "device", nullptr);
    device.addAttribute("Type", "Chromecast");
    ParamXmlWrapper::add_child_node(device, "deviceName", name.c_str());
  }
  return 0;
}
