#include "command/version.h"

#include <cstdio>
#include <string>

#include "foundation/log.h"
#include "foundation/shellRunner.h"

namespace {

constexpr size_t kLineMax = 1024;

void strip_line_feeds(std::string& s) {
  while (!s.empty() && s.back() == '\n') s.pop_back();
}

}  // namespace

int getTARPOVersion(char* version, int size, const char* name, int verbose) {
  if (!version || !name) {
    if (verbose) VLOG(LOG_COLOR_FAIL, "Error: version or tarpoName is NULL\n");
    return 1;
  }
  vessord::ShellLine line("/sbin/rakcfg -f /etc/config/tarpo.conf %s Version", {name});
  std::string text;
  int rc = vessord::shell_read_line(line, text, kLineMax);
  if (rc < 0) {
    if (verbose) VLOG(LOG_COLOR_FAIL, "Error: popen failed\n");
    return 1;
  }
  strip_line_feeds(text);
  if (rc != 0 || text.empty()) {
    if (verbose) VLOG(LOG_COLOR_FAIL, "Error: fgets failed or empty\n");
    return 1;
  }
  std::snprintf(version, static_cast<size_t>(size > 0 ? size : 0), "%s %s", name, text.c_str());
  return 0;
}

int getFirmwareVersion(char* version, int size, int verbose) {
  if (!version) {
    if (verbose) VLOG(LOG_COLOR_FAIL, "Error: version or tarpoName is NULL\n");
    return 1;
  }
  // A fixed line: the command substitutions hold no value of ours.
  vessord::ShellLine line(
      "echo $(/sbin/rakcfg -f /etc/config/ostral.conf System Version).$(/sbin/rakcfg -f "
      "/etc/config/ostral.conf System 'Build Number')",
      {});
  std::string text;
  int rc = vessord::shell_read_line(line, text, kLineMax);
  if (rc < 0) {
    if (verbose) VLOG(LOG_COLOR_FAIL, "Error: popen failed\n");
    return 1;
  }
  if (rc != 0) {
    if (verbose) VLOG(LOG_COLOR_FAIL, "Error: fgets failed or empty\n");
    return 1;
  }
  strip_line_feeds(text);
  std::snprintf(version, static_cast<size_t>(size > 0 ? size : 0), "FW %s", text.c_str());
  return 0;
}

int getVersion(char* version, int size, const char* name, int useFirmware, int verbose) {
  if (getTARPOVersion(version, size, name, verbose) == 0) return 0;
  if (!useFirmware) return 1;
  return getFirmwareVersion(version, size, verbose);
}
