#include "backends/chromecastMedia.h"

#include <dirent.h>
#include <net/if.h>
#include <strings.h>
#include <sys/stat.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "backends/chromecastPlayer.h"
#include "foundation/log.h"
#include "foundation/nasUtil.h"
#include "foundation/rootPath.h"
#include "foundation/shellRunner.h"
#include "foundation/sysUtil.h"
#include "foundation/xmlParser.h"

using vessord::ShellLine;

namespace vessord {
namespace cast {

bool replace_first(std::string& url, const std::string& from, const std::string& to) {
  const size_t at = url.find(from);
  if (at == std::string::npos) return false;
  url.replace(at, from.size(), to);
  return true;
}

bool to_device_profile(std::string& url) {
  size_t p = url.find("Transcode");
  if (p == std::string::npos) p = url.find("BD");
  if (p == std::string::npos) p = url.find("DVD");
  if (p == std::string::npos) return false;
  if (url.find("Transcode") != std::string::npos) url.replace(p, 9, "CHROMECAST");
  if (url.find("BD") != std::string::npos) url.replace(p, 2, "CHROMECAST");
  if (url.find("DVD") != std::string::npos) url.replace(p, 3, "CHROMECAST");
  return true;
}

void to_hls_mime(std::string& url) {
  const size_t at = url.find("mime=");
  if (at == std::string::npos) return;
  const size_t comma = url.find(',', at);
  if (comma == std::string::npos) return;
  url.replace(at, comma - at, "mime=application/x-mpegurl");
}

std::string captions_url(const std::string& url) {
  std::string out = url;
  if (!replace_first(out, "MediaItems", "Captions")) replace_first(out, "Transcode", "Captions");
  return out + ",subtitleType=.vtt,autoTranscode=1";
}

std::string interrupt_url(const std::string& hlsUrl) {
  std::string out = hlsUrl;
  return replace_first(out, "CHROMECAST", "INTERRUPT_HLS") ? out : std::string();
}

std::string url_escape(const std::string& text) {
  static const char hex[] = "0123456789ABCDEF";
  std::string out;
  for (char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if ((c < 0x80 && std::isalnum(c)) || c == '-' || c == '.' || c == '_' || c == '~') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

int codec_verdict(const std::string& reply) {
  ::XMLNode root = ::XMLNode::parseString(reply.c_str(), "root");
  if (root.isEmpty()) {
    VLOG(LOG_COLOR_FAIL, "not root node\n");
    return 1;
  }
  ::XMLNode status = root.getChildNode("status");
  if (status.isEmpty()) {
    VLOG(LOG_COLOR_FAIL, "not status node\n");
    return 1;
  }
  const char* text = status.getText();
  if (text != nullptr && std::strcmp(text, "9") == 0) {
    VLOG(LOG_COLOR_STATE, "Codec is not supported\n");
    return 0;
  }
  return 1;
}

bool is_arm_machine(const std::string& machine) {
  return machine.find("arm") != std::string::npos || machine.find("Arm") != std::string::npos ||
         machine.find("ARM") != std::string::npos;
}

int scrub_seconds(const char* position) {
  const int seconds = time_convert_to_second(position ? position : "");
  return seconds - seconds % 5;
}

int subtitle_entry_matches(const std::string& entry, const std::string& target, std::string* lang) {
  if (entry.compare(0, target.size(), target) != 0) return 0;
  const size_t lastDot = entry.rfind('.');
  if (lastDot == std::string::npos) return 0;
  for (const std::string ext : {".srt", ".ass"}) {
    if (strncasecmp(entry.c_str() + lastDot, ext.c_str(), ext.size()) != 0) continue;
    const std::string whole = target + ext;
    if (entry.size() <= whole.size() && strncasecmp(entry.c_str(), whole.c_str(), entry.size()) == 0) return 1;
    if (entry.size() < ext.size()) continue;
    const std::string rest = entry.substr(0, entry.size() - ext.size());
    const size_t dot = rest.rfind('.');
    if (dot == std::string::npos) continue;
    if (lang != nullptr) *lang = rest.substr(dot);
    return 1;
  }
  return 0;
}

namespace {

// Each occurrence of `entity` becomes `ch`; the next search starts one past
// the replacement less the entity's length, and ends when that is negative.
void decode_entity(std::string& text, const std::string& entity, char ch) {
  size_t from = 0;
  for (;;) {
    const size_t at = text.find(entity, from);
    if (at == std::string::npos) return;
    text.replace(at, entity.size(), 1, ch);
    const long next = static_cast<long>(at) + 1 - static_cast<long>(entity.size());
    if (next < 0) return;
    from = static_cast<size_t>(next);
  }
}

}  // namespace

std::string device_title(const std::string& text) {
  std::string title = text;
  decode_entity(title, "&amp;", '&');
  decode_entity(title, "&lt;", '<');
  decode_entity(title, "&gt;", '>');
  std::string out;
  for (char c : title) {
    if (c == '"') out += '\\';
    out += c;
  }
  return out;
}

int title_and_thumbnail(const std::string& xml, std::string& thumbnail, std::string& title) {
  ::XMLNode node = ::XMLNode::parseString(xml.c_str(), "root");
  for (const char* step : {"u:BrowseResponse", "Result", "DIDL-Lite", "item"}) {
    if (node.isEmpty()) return 0;
    node = node.getChildNode(step);
  }
  if (node.isEmpty()) return 0;
  ::XMLNode titleNode = node.getChildNode("dc:title");
  const char* titleText = titleNode.isEmpty() ? nullptr : titleNode.getText();
  if (titleText != nullptr) title = device_title(titleText);
  ::XMLNode classNode = node.getChildNode("upnp:class");
  const char* cls = classNode.isEmpty() ? nullptr : classNode.getText();
  if (cls == nullptr) return 0;
  if (std::strstr(cls, "audioItem") != nullptr) {
    ::XMLNode art = node.getChildNode("upnp:albumArtURI");
    const char* text = art.isEmpty() ? nullptr : art.getText();
    if (text != nullptr) thumbnail = text;
  } else if (std::strstr(cls, "videoItem") != nullptr || std::strstr(cls, "imageItem") != nullptr) {
    const int n = node.nChildNode("res");
    for (int i = 0; i < n; ++i) {
      ::XMLNode res = node.getChildNode("res", i);
      const char* info = res.getAttribute("protocolInfo");
      const char* text = res.getText();
      if (info != nullptr && std::strstr(info, "JPEG_TN") != nullptr && text != nullptr) thumbnail = text;
    }
  }
  return 0;
}

}  // namespace cast
}  // namespace vessord

namespace {

constexpr size_t kToolReply = 1023;
constexpr size_t kStatusLine = 10;
constexpr size_t kSettingReply = 128;

// The file of an item on the appliance, by its content type; false for a
// content type that names no file.
bool item_file_path(const playlistElm_s& item, std::string& path) {
  if (item.contentType == CONTENT_DBID) {
    CPlayer::dbIDtToFilePath(item.content, item.mediaType, path);
    path = vessord::root_path(path);
  } else if (item.contentType == CONTENT_OBJECT) {
    CPlayer::upnpObjectToFilePath(item.content, path);
    path = vessord::root_path(path);
  } else if (item.contentType == CONTENT_FILE) {
    CPlayer::getRealFilePath(item.content, path);
  } else {
    VLOG(LOG_COLOR_FAIL, "Can't get contentType!!\n");
    return false;
  }
  return true;
}

// The appliance's own path of a file found on disk: the media server knows
// no test root.
std::string appliance_path(const std::string& path) {
  const std::string& root = vessord::test_root();
  if (!root.empty() && path.compare(0, root.size(), root) == 0) return path.substr(root.size());
  return path;
}

struct DirCloser {
  void operator()(DIR* d) const { closedir(d); }
};

}  // namespace

int CChromecast::isByPass() {
  std::string line;
  const int rc = vessord::shell_read_line(
      ShellLine("/sbin/rakcfg -f /etc/config/Tovud.conf -d 0 '' passthrough_for_atv_and_chromecast", {}), line,
      kStatusLine);
  if (rc < 0) return 0;
  if (rc == 1) {
    VLOG(LOG_COLOR_FAIL, "value not found assign passthrough_for_atv_and_chromecast to false\n");
    return 0;
  }
  return static_cast<int>(std::strtol(line.c_str(), nullptr, 10));
}

int CChromecast::isCodecSupported(playlistElm_t& item) {
  getPlaylistElmByIndex(item, -1);
  const char* type = nullptr;
  if (item.mediaType == MEDIA_AUDIO) type = "1";
  else if (item.mediaType == MEDIA_VIDEO) type = "2";
  else return 1;
  std::string path;
  if (item.contentType == CONTENT_DBID) dbIDtToFilePath(item.content, item.mediaType, path);
  else if (item.contentType == CONTENT_OBJECT) upnpObjectToFilePath(item.content, path);
  else path = item.content;
  // The path stands in single quotes; one that would leave them runs no
  // tool and counts, like a tool that could not run, as supported.
  const ShellLine line(
      "/usr/local/medialibrary/bin/VexHLSAgent -i '%s' -type %s -o null.m3u8 -silent 2>/dev/null", {path, type});
  if (!line.ok()) {
    VLOG(LOG_COLOR_FAIL, "refused path %s\n", path.c_str());
    return 1;
  }
  std::string reply;
  if (vessord::shell_read(line, reply, kToolReply) != 0) {
    VLOG(LOG_COLOR_FAIL, "error to read result.\n");
    return 1;
  }
  return vessord::cast::codec_verdict(reply);
}

int CChromecast::getTranscodedVideo(playlistElm_t& item) {
  std::string path;
  if (!item_file_path(item, path)) return 0;
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    VLOG(LOG_COLOR_FAIL, "Error path %s\n", path.c_str());
    return 0;
  }
  const std::string dir = path.substr(0, slash) + "/.@__thumb/transcode/";
  const std::string name = path.substr(slash + 1);
  for (const char* quality : {"mobile_original", "mobile1080p", "ipad720p"}) {
    const std::string file = dir + name + "." + quality;
    struct stat st{};
    if (stat(file.c_str(), &st) == 0) {
      VLOG(LOG_COLOR_STATE, "transcoded file %s found!!\n", file.c_str());
      return 1;
    }
  }
  return 0;
}

int CChromecast::getDefaultSubtitle(playlistElm_t& item, std::string& subtitlePath) {
  std::string path;
  if (!item_file_path(item, path)) return -1;
  const ShellLine cmd("/sbin/rakcfg -f /mnt/ext/opt/KIVO/etc/config/Tovud.conf -d 0 \"\" default_subtitle", {});
  std::string setting;
  if (vessord::shell_read(cmd, setting, kSettingReply) != 0) {
    VLOG(LOG_COLOR_FAIL, ">> can't get result of cmd=>%s\n", cmd.display().c_str());
    return -1;
  }
  if (std::strtol(setting.c_str(), nullptr, 10) == 0) return 0;
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    VLOG(LOG_COLOR_FAIL, "Can't split filename.\n");
    return -1;
  }
  const std::string dir = path.substr(0, slash + 1);
  const std::string name = path.substr(slash + 1);
  std::unique_ptr<DIR, DirCloser> d(opendir(dir.c_str()));
  if (!d) {
    VLOG(LOG_COLOR_FAIL, "opendir %s fail.\n", dir.c_str());
    return -1;
  }
  const size_t dot = name.rfind('.');
  if (dot == std::string::npos) {
    VLOG(LOG_COLOR_FAIL, "Can't get target of filename.\n");
    return -1;
  }
  const std::string target = name.substr(0, dot);
  while (const dirent* e = readdir(d.get())) {
    std::string lang;
    if (vessord::cast::subtitle_entry_matches(e->d_name, target, &lang) == 0) continue;
    if (lang.empty())
      VLOG(LOG_COLOR_STATE, "matched file! => %s\n", e->d_name);
    else
      VLOG(LOG_COLOR_STATE, "subtitle lang str = %s\n", lang.c_str());
    subtitlePath += dir + e->d_name;
    return 1;
  }
  return -1;
}

int CChromecast::getThumbnailAndTitle(playlistElm_t& item, std::string& thumbnail, std::string& title) {
  getPlaylistElmByIndex(item, -1);
  char ifName[IFNAMSIZ + 1] = {0};
  const char* interface = get_if_by_ip(getIP().c_str(), ifName) == 0 ? ifName : nullptr;
  std::string xml;
  int rc = 0;
  if (item.contentType == CONTENT_FILE)
    rc = browseByFilePath(item.content, xml, "ChromeCast", -1, -1, interface);
  else if (item.contentType == CONTENT_DBID)
    rc = browseByDbID(item.content, item.mediaType, xml, "ChromeCast", -1, -1, interface);
  else
    rc = browseByUpnpObjectID(item.content, xml, "ChromeCast", -1, -1, interface);
  if (rc == -1) return -1;
  if (xml.empty()) return 0;
  return vessord::cast::title_and_thumbnail(xml, thumbnail, title);
}

int CChromecast::getContentPath_(playlistElm_t& item, std::string& url, std::string& subtitleUrl, const char* seek,
                                 int audioTrack, int subtitleTrack, const char* externalSubtitle, const char* /*sseek*/,
                                 const char* ssize, const char* scolor, int autoSub) {
  std::lock_guard<std::mutex> preparing(m_prepareLock);
  const int supported = isCodecSupported(item);
  const int bypass = isByPass();
  char ifName[IFNAMSIZ + 1] = {0};
  const char* interface = get_if_by_ip(getIP().c_str(), ifName) == 0 ? ifName : nullptr;
  getPlaylistElmByIndex(item, -1);
  const bool noExternal = externalSubtitle == nullptr || *externalSubtitle == '\0';
  if (subtitleTrack < 0 && noExternal && autoSub != 0)
    findAutoPlugSubtitle(item);
  else
    clearAutoPlugSubtitle();

  const char* tag = (bypass == 0 && supported != 0) ? "ChromeCast" : nullptr;
  int result = 0;
  if (item.contentType == CONTENT_FILE)
    result = filePathToUrl(item.content, url, tag, interface);
  else if (item.contentType == CONTENT_DBID)
    result = dbIDToUrl(item.content, item.mediaType, url, tag, interface);
  else
    result = upnpObjectToUrl(item.content, url, tag, interface);

  // The setting hands the plain URL over whatever the file holds; so does a
  // file that the transcoder cannot read, as the last resort.
  if (result == 0 && bypass == 0 && supported != 0) {
    if (item.mediaType != MEDIA_PHOTO) setTotalTime(item);
    if (url.empty()) {
      result = -1;
    } else if (!m_bIsArm) {
      url += ",tid=" + std::to_string(gen_tid());
      bool transcode = false;
      bool useSubtitleTrack = false;
      std::string found;
      if (externalSubtitle != nullptr) {
        transcode = true;
        useSubtitleTrack = subtitleTrack >= 0;
      } else {
        getDefaultSubtitle(item, found);
        const bool autoVideo = item.mediaType == MEDIA_VIDEO && autoSub != 0 && subtitleTrack < 0;
        if (autoVideo && !found.empty()) {
          transcode = true;
        } else {
          if (autoVideo) probeCaptions_(url, subtitleUrl);
          useSubtitleTrack = subtitleTrack >= 0;
          transcode = audioTrack > 0 || useSubtitleTrack || !found.empty() || !subtitleUrl.empty();
        }
      }
      if (transcode) vessord::cast::replace_first(url, "MediaItems", "Transcode");
      if (vessord::cast::to_device_profile(url)) {
        if (seek != nullptr) url += ",seek=" + std::to_string(time_convert_to_second(seek));
        if (audioTrack > 0) url += ",atrack=" + std::to_string(audioTrack);
        if (useSubtitleTrack) url += ",strack=" + std::to_string(subtitleTrack);
        if (!noExternal)
          url += ",externalSubtitle=" + vessord::cast::url_escape(externalSubtitle);
        else if (!found.empty())
          url += ",externalSubtitle=" + vessord::cast::url_escape(appliance_path(found));
        if (ssize != nullptr && *ssize != '\0') url += std::string(",ssize=") + ssize;
        if (scolor != nullptr && *scolor != '\0') url += std::string(",scolor=") + scolor;
      }
      if (url.find("CHROMECAST") != std::string::npos && item.mediaType == MEDIA_VIDEO &&
          (transcode || getTranscodedVideo(item) == 0))
        vessord::cast::to_hls_mime(url);
      std::lock_guard<std::mutex> lk(m_urlLock);
      m_contentUrl = url;
      if (m_hlsUrl.empty()) m_hlsUrl = m_contentUrl;
    }
  }
  VLOG(LOG_COLOR_STATE, "contentPath = %s\n", url.c_str());
  return result;
}

void CChromecast::probeCaptions_(const std::string& url, std::string& subtitleUrl) {
  subtitleUrl = vessord::cast::captions_url(url);
  // The URL stands in single quotes; one that would leave them is not asked.
  const ShellLine line("/sbin/curl -w '%%{http_code}' '%s' -o /dev/null 2>/dev/null", {subtitleUrl});
  std::string status;
  const int rc = line.ok() ? vessord::shell_read_line(line, status, kStatusLine) : -1;
  if (rc < 0) {
    VLOG(LOG_COLOR_FAIL, "something error when using curl to get the captions\n");
    subtitleUrl.clear();
  } else if (rc == 1) {
    VLOG(LOG_COLOR_FAIL, "there is nothing to read\n");
    subtitleUrl.clear();
  } else if (std::strtol(status.c_str(), nullptr, 10) != 200) {
    subtitleUrl.clear();
  }
}
