#include "backends/alsaOutputs.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "backends/alsaCommands.h"
#include "foundation/rootPath.h"

namespace vessord {

namespace {

constexpr int kFirstPort = 12350;
constexpr int kLastPort = 12650;

std::mutex g_portLock;
int g_port = kFirstPort;  // guarded by g_portLock

struct Fd {
  int fd;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

}  // namespace

bool alsa_snd_dev_busy(const std::string& card, const std::string& device) {
  if (card.find('/') != std::string::npos || device.find('/') != std::string::npos) return true;
  const std::string file = root_path("/proc/asound/card" + card + "/pcm" + device + "p/sub0/status");
  Fd in{::open(file.c_str(), O_RDONLY | O_CLOEXEC)};
  if (in.fd < 0) return true;
  char buf[257];
  ssize_t n;
  do {
    n = ::read(in.fd, buf, 256);
  } while (n < 0 && errno == EINTR);
  if (n < 0) return true;
  buf[n] = '\0';
  return std::strstr(buf, "closed") == nullptr;
}

int next_mpd_port() {
  // Two players choosing at once must not take the same port.
  std::lock_guard<std::mutex> lock(g_portLock);
  for (int i = 0; i < 300; ++i) {
    if (++g_port > kLastPort) g_port = kFirstPort;
    char line[1024] = {0};
    std::snprintf(line, sizeof line,
                  "/bin/cat /proc/net/tcp | /bin/awk  '{print $2}' | /bin/awk -F \":\" '{print $2}' | /bin/grep \"%X\"",
                  static_cast<unsigned>(g_port));
    if (send_mpd_cmd(line) != 0) return g_port;
  }
  g_port = kFirstPort;
  return g_port;
}

}  // namespace vessord
