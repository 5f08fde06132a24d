#include "foundation/nasUtil.h"

#include <dirent.h>
#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "foundation/log.h"
#include "foundation/shellRunner.h"

int time_convert_to_second(const char* text) {
  if (!text) return 0;
  char copy[32];
  std::snprintf(copy, sizeof copy, "%s", text);
  char* first = std::strchr(copy, ':');
  if (!first) return 0;
  // Unsigned arithmetic: a huge field from a device wraps instead of
  // overflowing.
  const unsigned long hours = static_cast<unsigned long>(std::strtol(copy, nullptr, 10));
  char* second = std::strchr(first + 1, ':');
  // With one colon only the hours count: the minutes are dropped.
  if (!second) return static_cast<int>(hours * 3600u);
  const unsigned long minutes = static_cast<unsigned long>(std::strtol(first + 1, nullptr, 10));
  // A fraction behind the seconds is ignored.
  const unsigned long seconds = static_cast<unsigned long>(std::strtol(second + 1, nullptr, 10));
  return static_cast<int>(hours * 3600u + minutes * 60u + seconds);
}

int hhmmss_convert_to_sec(const char* text) {
  if (!text) return 0;
  unsigned long total = 0;
  unsigned long group = 0;
  bool inGroup = false;
  for (const char* p = text;; ++p) {
    if (*p >= '0' && *p <= '9') {
      group = group * 10 + static_cast<unsigned long>(*p - '0');
      inGroup = true;
      continue;
    }
    if (inGroup) total = total * 60 + group;
    group = 0;
    inGroup = false;
    if (!*p) break;
  }
  return static_cast<int>(total);
}

int sec_convert_to_hhmmss(int seconds, char* out, int size) {
  if (!out || size <= 0) return 0;
  std::memset(out, 0, static_cast<size_t>(size));
  return std::snprintf(out, static_cast<size_t>(size), "%02d:%02d:%02d", seconds / 3600, seconds % 3600 / 60,
                       seconds % 60);
}

int itoa(const char* text) {
  if (!text) return 0;
  // Unsigned arithmetic: a long or odd text wraps instead of overflowing.
  unsigned int value = 0;
  for (const char* p = text; *p; ++p) value = value * 10u + static_cast<unsigned int>(*p - '0');
  return static_cast<int>(value);
}

int Go_Next_Line(const char* text, int size, int* advance) {
  int i = 0;
  if (text) {
    while (text[i] && text[i] != '\r' && text[i] != '\n') ++i;
  }
  if (!text || !text[i]) {
    if (advance) *advance = i;
    return -1;
  }
  while (text[i] == '\r' || text[i] == '\n') ++i;
  if (advance) *advance = i;
  return 0;
}

int Get_Next_Word(const char* text, int size, char* word, int wordSize, int* advance) {
  if (word && wordSize > 0) std::memset(word, 0, static_cast<size_t>(wordSize));
  int i = 0;
  if (!text) {
    if (advance) *advance = 0;
    return -1;
  }
  while (text[i] == ' ' || text[i] == '\t') ++i;
  if (!text[i] || text[i] == '\n' || text[i] == '\r') {
    if (advance) *advance = i;
    return -1;
  }
  int n = 0;
  while (text[i] && text[i] != ' ' && text[i] != '\t' && text[i] != '\n' && text[i] != '\r') {
    // A word that leaves no room for its terminating zero does not fit; the
    // advance then stops at its first character that did not fit.
    if (!word || n + 1 >= wordSize) {
      if (word && wordSize > 0) word[0] = '\0';
      if (advance) *advance = i;
      return -1;
    }
    word[n++] = text[i++];
  }
  word[n] = '\0';
  if (advance) *advance = i;
  return 0;
}

namespace {

// Length of the multibyte character that `lead` starts, as the quoting
// reads it: 110xxxxx two bytes, 1110xxxx three, any other four.
int multibyte_length(unsigned char lead) {
  if ((lead & 0xE0) == 0xC0) return 2;
  if ((lead & 0xF0) == 0xE0) return 3;
  return 4;
}

int quote_path(const char* in, char* out, int outSize, const char* set) {
  if (!in || !out || outSize <= 0) return -1;
  const size_t limit = static_cast<size_t>(outSize);
  if (std::strlen(in) >= limit) return -1;
  std::memset(out, 0, limit);
  size_t o = 0;
  // Keeps room for the terminating zero; a quoted text that does not fit
  // is no text at all.
  auto put = [&](char c) {
    if (o + 1 >= limit) return false;
    out[o++] = c;
    return true;
  };
  for (size_t i = 0; in[i];) {
    const unsigned char c = static_cast<unsigned char>(in[i]);
    if (c < 0x80) {
      if ((c != 0 && std::strchr(set, static_cast<char>(c)) && !put('\\')) || !put(static_cast<char>(c))) {
        std::memset(out, 0, limit);
        return -1;
      }
      ++i;
      continue;
    }
    // Copied as it stands; a stray lead byte swallows what follows it, but
    // never the input's terminating zero.
    const int len = multibyte_length(c);
    for (int k = 0; k < len && in[i]; ++k, ++i) {
      if (!put(in[i])) {
        std::memset(out, 0, limit);
        return -1;
      }
    }
  }
  return 0;
}

}  // namespace

// blank ! " $ & ' ( ) , ; = [ ] ^ ` { }
static const char kShellSpecial[] = " !\"$&'(),;=[]^`{}";
static const char kShellSpecialAndBackslash[] = " !\"$&'(),;=[]^`{}\\";

int convert_utf8_linux_filepath(const char* in, char* out, int outSize) {
  return quote_path(in, out, outSize, kShellSpecial);
}

int convert_utf8_linux_filepath_2(const char* in, char* out, int outSize) {
  return quote_path(in, out, outSize, kShellSpecialAndBackslash);
}

namespace {

struct dirCloser {
  void operator()(DIR* d) const { closedir(d); }
};

// Reads the feature switch: 1 on, 0 off, -1 when it cannot be read.
int default_subtitle_setting() {
  const vessord::ShellLine line(
      "/sbin/rakcfg -f /mnt/ext/opt/KIVO/etc/config/Tovud.conf -d 0 \"\" default_subtitle", {});
  std::string value;
  if (vessord::shell_read(line, value, 128) != 0) {
    VLOG(LOG_COLOR_FAIL, ">> can't get result of cmd=>%s \n", line.display().c_str());
    return -1;
  }
  if (value.empty()) return -1;  // nothing could be read
  return std::strtol(value.c_str(), nullptr, 10) != 0 ? 1 : 0;
}

// True when `entry` is a subtitle for `target` with extension `ext`: the
// exact name, or the name with a language tag before the extension.
bool subtitle_matches(const std::string& entry, const std::string& target, const char* ext) {
  const size_t dot = entry.rfind('.');
  const size_t extLen = std::strlen(ext);
  if (dot == std::string::npos || strncasecmp(entry.c_str() + dot, ext, extLen) != 0) return false;
  const std::string exact = target + ext;
  if (strncasecmp(entry.c_str(), exact.c_str(), entry.size()) == 0) return true;
  const std::string stem = entry.substr(0, dot);
  const size_t tag = stem.rfind('.');
  if (tag == std::string::npos) return false;
  VLOG(LOG_COLOR_STATE, "subtitle language tag: %s\n", stem.c_str() + tag);
  return true;
}

}  // namespace

int is_default_subtitle_found(const char* videoPath, char* out, int outSize) {
  const int setting = default_subtitle_setting();
  if (setting <= 0) return setting;

  const char* slash = videoPath ? std::strrchr(videoPath, '/') : nullptr;
  const size_t kPart = 256;
  if (!slash || static_cast<size_t>(slash - videoPath) + 1 >= kPart || std::strlen(slash + 1) >= kPart) {
    VLOG(LOG_COLOR_FAIL, "Can't split filename.\n");
    return -1;
  }
  const std::string dir(videoPath, static_cast<size_t>(slash - videoPath) + 1);
  const std::string fileName(slash + 1);

  std::unique_ptr<DIR, dirCloser> dp(opendir(dir.c_str()));
  if (!dp) {
    VLOG(LOG_COLOR_FAIL, "opendir %s fail.\n", dir.c_str());
    return -1;
  }
  const size_t point = fileName.rfind('.');
  if (point == std::string::npos) {
    VLOG(LOG_COLOR_FAIL, "Can't get target of filename.\n");
    return -1;
  }
  const std::string target = fileName.substr(0, point);

  while (struct dirent* de = readdir(dp.get())) {
    const std::string entry(de->d_name);
    if (entry.compare(0, target.size(), target) != 0) continue;  // with case
    if (!subtitle_matches(entry, target, ".srt") && !subtitle_matches(entry, target, ".ass")) continue;
    if (out && outSize > 0) std::snprintf(out, static_cast<size_t>(outSize), "%s%s", dir.c_str(), entry.c_str());
    return 1;
  }
  return -1;
}
