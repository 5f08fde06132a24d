// The duration probe of the speaker player: the probe's report goes to a
// fixed file in /tmp, its "Duration" line to a second one, and the length is
// read from there. The names are shared by all players, so one probe runs
// at a time, and both files are made afresh as the daemon's own before each
// probe (see raopFiles.h).
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <string>

#include "backends/raopFiles.h"
#include "backends/raopPlayer.h"
#include "foundation/log.h"
#include "foundation/rootPath.h"
#include "foundation/shellRunner.h"

using vessord::ShellLine;

namespace {

const char kProbeLine[] = "/usr/local/medialibrary/bin/ffprobe -i '%s' 2> /tmp/.audo.info.xxx";
const char kGrepLine[] = "/bin/cat /tmp/.audo.info.xxx | grep Duration > /tmp/.audo.info.yyy";
constexpr size_t kReportRead = 512;
// The value stands this far past the start of "Duration:".
constexpr size_t kValueOffset = 10;

// Two players probing at once would read each other's report.
std::mutex& probe_lock() {
  static std::mutex lock;
  return lock;
}

}  // namespace

bool vessord::raop::probe_takes(const std::string& quoted) {
  return !quoted.empty() && quoted.size() < kQuotedPathBuf && ShellLine(kProbeLine, {quoted}).ok();
}

int CRaopPlayer::_get_track_druation(const char* path, std::string& duration) {
  using vessord::raop::open_own;
  using vessord::raop::prepare_own;
  using vessord::raop::remove_own;
  std::lock_guard<std::mutex> one(probe_lock());
  const std::string xxx = vessord::root_path("/tmp/.audo.info.xxx");
  const std::string yyy = vessord::root_path("/tmp/.audo.info.yyy");
  const std::string quoted = path ? path : "";
  if (!vessord::raop::probe_takes(quoted)) {
    VLOG(LOG_COLOR_FAIL, "refused path %s\n", quoted.c_str());
    return -1;
  }

  if (prepare_own(xxx)) vessord::shell_system(ShellLine(kProbeLine, {quoted}));
  int fd = open_own(xxx);
  if (fd < 0) {
    VLOG(LOG_COLOR_FAIL, "/tmp/.audo.info.xxx open fail\n");
    return -1;
  }
  ::close(fd);

  if (prepare_own(yyy)) vessord::shell_system(ShellLine(kGrepLine, std::vector<std::string>{}));
  fd = open_own(yyy);
  if (fd < 0) {
    VLOG(LOG_COLOR_FAIL, "Can't open /tmp/.audo.info.yyy \n");
    duration = "00:00:00";
    return -1;
  }
  char buf[kReportRead + 1] = {0};
  ssize_t got = 0;
  while (got < static_cast<ssize_t>(kReportRead)) {
    const ssize_t n = ::read(fd, buf + got, kReportRead - static_cast<size_t>(got));
    if (n <= 0) break;
    got += n;
  }
  ::close(fd);

  const char* word = std::strstr(buf, "Duration:");
  if (!word) return -1;  // both files stay, as the probe left them
  std::string value(word + std::min(kValueOffset, std::strlen(word)));
  // A length without a fraction ends at the comma before "start:", whose
  // own fraction must not be taken for the length's.
  value = value.substr(0, value.find_first_of(".,\r\n"));
  duration = value;

  if (!remove_own(xxx)) VLOG(LOG_COLOR_FAIL, "remove /tmp/.audo.info.xxx failed\n");
  if (!remove_own(yyy)) VLOG(LOG_COLOR_FAIL, "remove /tmp/.audo.info.yyy failed\n");
  return 0;
}
