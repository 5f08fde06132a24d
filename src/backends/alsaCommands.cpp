#include "backends/alsaCommands.h"

#include <strings.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "foundation/shellRunner.h"

namespace vessord {

int send_mpd_cmd(const char* command) {
  if (!command) return -1;
  std::string line = command;
  // Under a POSIX sh "&>" would put the command in the background and answer
  // at once; the clear/add/play sequence must run in order.
  const std::string amp = " &> /dev/null";
  if (line.size() >= amp.size() && line.compare(line.size() - amp.size(), amp.size(), amp) == 0)
    line.replace(line.size() - amp.size(), amp.size(), " >/dev/null 2>&1");
  // The line is complete; a percent sign in it is text, not a value's place.
  std::string templ;
  for (char c : line) {
    templ += c;
    if (c == '%') templ += '%';
  }
  return shell_system(ShellLine(templ.c_str(), std::vector<std::string>{}));
}

int ParseMpdAttr(const char* text, int* sampleRate, int* dsdPass) {
  if (!text || !sampleRate || !dsdPass || !*text) return -1;
  *sampleRate = -2;
  *dsdPass = -2;
  const std::string all = text;
  size_t start = 0;
  while (start <= all.size()) {
    size_t end = all.find(',', start);
    if (end == std::string::npos) end = all.size();
    const std::string piece = all.substr(start, end - start);
    start = end + 1;
    const size_t eq = piece.find('=');
    if (eq == std::string::npos) continue;
    const std::string key = piece.substr(0, eq);
    const std::string value = piece.substr(eq + 1);
    if (strcasecmp(key.c_str(), "SAMPLERATE") == 0) {
      if (strcasecmp(value.c_str(), "Auto") == 0) {
        *sampleRate = -1;
      } else {
        const long n = std::strtol(value.c_str(), nullptr, 10);
        *sampleRate = n < 1 ? -2 : static_cast<int>(n > INT_MAX ? INT_MAX : n);
      }
    } else if (strcasecmp(key.c_str(), "DSDPASS") == 0) {
      if (strcasecmp(value.c_str(), "Enable") == 0)
        *dsdPass = 1;
      else if (strcasecmp(value.c_str(), "Disable") == 0)
        *dsdPass = 0;
      else if (strcasecmp(value.c_str(), "Auto") == 0)
        *dsdPass = -1;
      else
        *dsdPass = -2;
    }
  }
  return 0;
}

}  // namespace vessord
