#include "command/processCheck.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <string>

#include "foundation/rootPath.h"
#include "foundation/shellRunner.h"

namespace {

struct dirCloser_s {
  void operator()(DIR* d) const { closedir(d); }
};

// Reads up to `cap` bytes of a file; false when it cannot be opened.
bool read_some(const std::string& path, std::string& out, size_t cap) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  out.assign(cap, '\0');
  size_t got = 0;
  while (got < cap) {
    ssize_t n = ::read(fd, &out[got], cap - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  ::close(fd);
  out.resize(got);
  return true;
}

std::string normalized_root(std::string r) {
  while (r.size() > 1 && r.back() == '/') r.pop_back();
  return r;
}

// The test root a process was started with, from its initial environment.
// A process whose environment cannot be read belongs to no root we know of.
bool root_of_process(const std::string& pid, std::string& root) {
  std::string env;
  if (!read_some("/proc/" + pid + "/environ", env, 1 << 20)) return false;
  root.clear();
  static const char kKey[] = "VESSORD_ROOT=";
  size_t at = 0;
  while (at < env.size()) {
    size_t end = env.find('\0', at);
    if (end == std::string::npos) end = env.size();
    if (env.compare(at, sizeof kKey - 1, kKey) == 0) root = env.substr(at + sizeof kKey - 1, end - at - (sizeof kKey - 1));
    at = end + 1;
  }
  root = normalized_root(root);
  return true;
}

}  // namespace

bool is_process_already_exist(const char* name) {
  if (!name) return false;
  std::unique_ptr<DIR, dirCloser_s> proc(opendir("/proc"));
  if (!proc) return false;
  const std::string ownRoot = normalized_root(vessord::test_root());
  int count = 0;
  while (dirent* e = readdir(proc.get())) {
    if (e->d_type != DT_DIR) continue;
    const std::string pid = e->d_name;
    std::string comm;
    if (!read_some("/proc/" + pid + "/comm", comm, 256)) continue;
    if (comm.find(name) == std::string::npos) continue;
    // Under a test root only that root's processes count. Without one every
    // process of the name counts, also those of other users, whose
    // environment cannot be read.
    std::string root;
    if (!ownRoot.empty() && (!root_of_process(pid, root) || root != ownRoot)) continue;
    std::string out;
    vessord::ShellLine line("cat /proc/%s/status | grep ^State.*\\(zombie\\)$", {pid});
    if (vessord::shell_read(line, out, 256) != 0 || out.find("zombie") == std::string::npos) ++count;
  }
  return count > 1;
}
